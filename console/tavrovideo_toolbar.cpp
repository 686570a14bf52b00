// The floating toolbar over the picture, its tool switch, the watermark and full screen.
#include "console/tavrovideo.h"

void TavroVideo::initFlowPanel() {}
void TavroVideo::setupUI() {}
void TavroVideo::setupToolSwitchButtonIcon() {}
void TavroVideo::loadToolSwitchRelativePosition() {}
void TavroVideo::saveToolSwitchRelativePosition() {}
void TavroVideo::applyToolSwitchPosition() {}
void TavroVideo::positionToolSwitchClamped(const QPoint &) {}
void TavroVideo::onBtnToolSwitchClicked() {}
void TavroVideo::positionFlowPanelAtToolSwitchAnchor() {}
void TavroVideo::positionFlowPanelClamped(const QPoint &) {}
void TavroVideo::syncToolSwitchAnchorFromFlowPanel() {}
QPoint TavroVideo::flowPanelTopLeftForDrag() const
{
    return {};
}
void TavroVideo::showFlowPanel() {}
void TavroVideo::setFlowPanelVisible(bool) {}
void TavroVideo::setFlowEnable(bool enable)
{
    m_flowEnabled = enable;
}
void TavroVideo::polishToolbarIconButton(QPushButton *) {}
void TavroVideo::setWatermarkDebugInfoVisible(bool visible)
{
    m_watermarkDebugInfoVisible = visible;
}
void TavroVideo::onBtnFullScreenClicked() {}
void TavroVideo::toggleFullScreen(QWidget *) {}
void TavroVideo::handleFullScreenExit() {}
void TavroVideo::updateChildWidgetsPosition() {}
void TavroVideo::showUnavailableFeature(const QString &, const QString &) {}
void TavroVideo::updateWatermark() {}
