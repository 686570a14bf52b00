// The serial settings panel and the device settings dialog, opened from the toolbar.
#include "console/tavrovideo.h"

#include "ui/devicesettingsdialog.h"
#include "ui/mouse.h"

void TavroVideo::onBtnMouseClicked() {}

void TavroVideo::showMouseControl() {}

void TavroVideo::handleMouseDialogClosed() {}

void TavroVideo::showDeviceSettingsDialog() {}

mouse *TavroVideo::mouseControl() const
{
    return m_mouseControl;
}
