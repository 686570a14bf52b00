// The floating toolbar over the picture, its tool switch, the watermark, popups placed under the
// toolbar, and full screen.
#include "console/tavrovideo.h"

#include <QApplication>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QMainWindow>
#include <QMessageBox>
#include <QMouseEvent>
#include <QPainter>
#include <QPushButton>
#include <QScreen>
#include <QSettings>
#include <QStatusBar>
#include <QStyle>
#include <QTimer>
#include <QVBoxLayout>
#include <QWindow>

#include "ui/flowpaneldraghandle.h"
#include "ui/mouse.h"
#include "ui/toolbarrules.h"

namespace {

constexpr int kToolButtonSize = 24;
constexpr int kToolSwitchSize = 32;
constexpr int kDefaultToolSwitchWidth = 32; // the switch's width when there is no switch
constexpr qint64 kStatusSectionsIntervalMs = 500;
constexpr qint64 kUartEvaluationIntervalMs = 2000;
const char kSettingsGroup[] = "TavroVideo";
const char kToolSwitchIcon[] =
    ":/images/keyboard_double_arrow_down_96dp_75FB4C_FILL0_wght400_GRAD0_opsz48.png";

// The record button shows this tint while it blinks.
QIcon tintedIcon(const QIcon &icon, const QColor &colour)
{
    QPixmap pixmap = icon.pixmap(QSize(kToolButtonSize, kToolButtonSize) * 2);
    QPainter painter(&pixmap);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(pixmap.rect(), colour);
    painter.end();
    return QIcon(pixmap);
}

} // namespace

// ---- Building --------------------------------------------------------------------------------

void TavroVideo::initFlowPanel()
{
    m_flowPanel = new QWidget(this);
    m_flowPanel->setObjectName(QStringLiteral("flowPanel"));
    m_flowPanel->setAutoFillBackground(false);
    m_flowPanel->setAttribute(Qt::WA_TransparentForMouseEvents, false);
    // A click between two buttons must not reach the view, which would send it to the target.
    m_flowPanel->setAttribute(Qt::WA_NoMousePropagation);
    m_flowPanel->hide();
    m_flowPanelWanted = false;

    auto *panelLayout = new QVBoxLayout(m_flowPanel);
    panelLayout->setContentsMargins(0, 0, 0, 0);
    panelLayout->setSpacing(0);
    auto *buttonsRow = new QWidget(m_flowPanel);
    buttonsRow->setObjectName(QStringLiteral("buttonsRow"));
    buttonsRow->setAttribute(Qt::WA_StyledBackground);
    auto *rowLayout = new QHBoxLayout(buttonsRow);
    rowLayout->setSpacing(2);
    rowLayout->setContentsMargins(2, 0, 0, 0);
    auto *keyboardAnchor = new QWidget(m_flowPanel);
    keyboardAnchor->setObjectName(QStringLiteral("keyboardAnchor"));
    keyboardAnchor->setFixedHeight(2);
    panelLayout->addWidget(buttonsRow);
    panelLayout->addWidget(keyboardAnchor);

    m_flowDragHandle = new FlowPanelDragHandle(this, buttonsRow);
    m_flowDragHandle->setObjectName(QStringLiteral("flowDragHandle"));
    m_flowDragHandle->setFixedWidth(18);
    m_flowDragHandle->setMinimumHeight(kToolButtonSize);
    m_flowDragHandle->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Expanding);
    m_flowDragHandle->setCursor(Qt::OpenHandCursor);
    m_flowDragHandle->setToolTip(tr("拖动工具栏"));
    m_flowDragHandle->setAttribute(Qt::WA_StyledBackground);
    rowLayout->addWidget(m_flowDragHandle);

    struct ToolButton
    {
        const char *name;
        const char *icon;
        QString tip;
        void (TavroVideo::*action)();
    };
    const ToolButton buttons[] = {
        {"btnAtx", "cable.png", tr("设备设置：视频设备、串口、波特率等"),
         &TavroVideo::showDeviceSettingsDialog},
        {"btnKeyboard", "keyboard.png", tr("软键盘"), &TavroVideo::toggleKeyboard},
        {"btnPaste", "paste.png", tr("粘贴：把剪贴板文本键入目标机 (Ctrl+Alt+V)"),
         &TavroVideo::pasteTextAsKeyEvents},
        {"btnMouse", "mouse.png", tr("鼠标控制"), &TavroVideo::onBtnMouseClicked},
        {"btnUdiskSwitch", "usb-t.png", QString(), &TavroVideo::onBtnUdiskSwitchClicked},
        {"btnRecord", "videocam.png", tr("录屏"), &TavroVideo::onBtnRecordClicked},
        {"btnSnap", "photo_camera.png", tr("截图"), &TavroVideo::onBtnCaptureClicked},
        {"btnSettings", "settings.png", tr("参数及控制"), &TavroVideo::onBtnSettingsClicked},
        {"btnInfo", "info.png", tr("信息"), &TavroVideo::onBtnInfoClicked},
        {"btnMultiWindow", "multi-window.png", tr("多窗口"), &TavroVideo::onBtnMultiWindowClicked},
        {"btnFullscreen", "fullscreen.png", tr("全屏"), &TavroVideo::onBtnFullScreenClicked},
    };
    int count = 0;
    for (const ToolButton &entry : buttons) {
        auto *button = new QPushButton(buttonsRow);
        button->setObjectName(QLatin1String(entry.name));
        const QIcon icon = toolbarIcon(QStringLiteral(":/images/device/%1").arg(entry.icon), false);
        button->setIcon(icon);
        button->setToolTip(entry.tip);
        polishToolbarIconButton(button);
        connect(button, &QPushButton::clicked, this, entry.action);
        ++count;
        if (button->objectName() == QLatin1String("btnRecord")) {
            m_btnRecord = button;
            m_recordIcon = icon;
            m_recordingIcon = tintedIcon(icon, QColor(0x4c, 0xd9, 0x64));
            auto *column = new QWidget(buttonsRow);
            column->setObjectName(QStringLiteral("recordButtonColumn"));
            auto *columnLayout = new QVBoxLayout(column);
            columnLayout->setContentsMargins(0, 0, 0, 0);
            columnLayout->setSpacing(0);
            auto *elapsed = new QLabel(QStringLiteral("0"), column);
            elapsed->setObjectName(QStringLiteral("recordElapsedLabel"));
            elapsed->setAlignment(Qt::AlignCenter);
            elapsed->setStyleSheet(QStringLiteral(
                "color: #f44336; font-weight: bold; font-family: monospace; font-size: 12px;"));
            elapsed->hide();
            m_recordElapsedLabel = elapsed;
            columnLayout->addWidget(button, 0, Qt::AlignHCenter);
            columnLayout->addWidget(elapsed, 0, Qt::AlignHCenter);
            rowLayout->addWidget(column);
        } else {
            rowLayout->addWidget(button);
        }
        if (button->objectName() == QLatin1String("btnUdiskSwitch")) {
            m_btnUdiskSwitch = button;
            updateUdiskSwitchButtonIcon();
        }
    }

    // Buttons other code may look for, whose functions come in a later version.
    struct LaterButton
    {
        const char *name;
        QString title;
        QString text;
    };
    const LaterButton later[] = {
        {"btnEthernet", tr("以太网"), tr("以太网相关功能将在后续版本中提供。")},
        {"btnWifi", QStringLiteral("Wi‑Fi"), tr("无线网络相关功能将在后续版本中提供。")},
        {"btnDisk", tr("磁盘"), tr("磁盘扩展相关功能将在后续版本中提供。")},
        {"btnMouseClick", tr("鼠标宏"), tr("鼠标点击宏功能将在后续版本中提供。")},
    };
    for (const LaterButton &entry : later) {
        auto *button = new QPushButton(buttonsRow);
        button->setObjectName(QLatin1String(entry.name));
        button->hide();
        const QString title = entry.title;
        const QString text = entry.text;
        connect(button, &QPushButton::clicked, this,
                [this, title, text] { showUnavailableFeature(title, text); });
    }

    auto *cancel = new QPushButton(buttonsRow);
    cancel->setObjectName(QStringLiteral("btnCancel"));
    cancel->setIcon(toolbarIcon(QStringLiteral(":/images/device/cancel.png"), true));
    cancel->setToolTip(tr("隐藏工具栏"));
    polishToolbarIconButton(cancel);
    connect(cancel, &QPushButton::clicked, this, [this] { setFlowPanelVisible(false); });
    rowLayout->addWidget(cancel);
    ++count;
    qDebug() << "[TavroVideo::initFlowPanel] 所有按钮已合并到flowPanel中，按钮数量:" << count;
}

QIcon TavroVideo::toolbarIcon(const QString &path, bool cancelButton)
{
    const QIcon icon(path);
    if (!icon.isNull() && !icon.availableSizes().isEmpty())
        return icon;
    qWarning().noquote() << (cancelButton ? "[TavroVideo] 无法加载cancel图标:"
                                          : "[TavroVideo] 无法加载图标:")
                         << path << "，使用系统标准图标";
    return QApplication::style()->standardIcon(cancelButton ? QStyle::SP_TitleBarCloseButton
                                                            : QStyle::SP_TitleBarMenuButton);
}

void TavroVideo::polishToolbarIconButton(QPushButton *button)
{
    button->setFixedSize(kToolButtonSize, kToolButtonSize);
    button->setIconSize(QSize(kToolButtonSize, kToolButtonSize));
    button->setFlat(true);
    button->setFocusPolicy(Qt::NoFocus);
    button->setAutoDefault(false);
    button->setDefault(false);
    button->setAttribute(Qt::WA_StyledBackground);
}

void TavroVideo::showUnavailableFeature(const QString &title, const QString &text)
{
    showInformation(this, title, text);
}

void TavroVideo::setupUI()
{
    m_btnToolSwitch = new QPushButton(this);
    m_btnToolSwitch->setObjectName(QStringLiteral("btnToolSwitch"));
    m_btnToolSwitch->setFixedSize(kToolSwitchSize, kToolSwitchSize);
    m_btnToolSwitch->setContentsMargins(0, 0, 0, 0);
    setupToolSwitchButtonIcon();
    m_btnToolSwitch->setToolTip(tr("拖动可移动；点击显示或隐藏工具栏"));
    m_btnToolSwitch->setStyleSheet(QStringLiteral(
        "QPushButton#btnToolSwitch { background: transparent; border: none; padding: 0; margin: "
        "0; }QPushButton#btnToolSwitch:hover { background: rgba(255, 255, 255, 0.12); "
        "border-radius: 4px; }QPushButton#btnToolSwitch:pressed { background: rgba(255, 255, "
        "255, 0.18); border-radius: 4px; }"));
    m_btnToolSwitch->setCursor(Qt::OpenHandCursor);
    m_btnToolSwitch->setFocusPolicy(Qt::NoFocus);
    m_btnToolSwitch->setAttribute(Qt::WA_NoMousePropagation);
    // The view already filters every event of the process (keys); the switch's presses, moves
    // and releases are handled there (handleToolSwitchEvent).
    loadToolSwitchRelativePosition();
    applyToolSwitchPosition();
    m_btnToolSwitch->raise();
    m_btnToolSwitch->show();

    m_watermarkLabel = new QLabel(this);
    m_watermarkLabel->setObjectName(QStringLiteral("watermarkLabel"));
    m_watermarkLabel->setAlignment(Qt::AlignCenter);
    m_watermarkLabel->setWordWrap(true);
    m_watermarkLabel->setAttribute(Qt::WA_TransparentForMouseEvents);
    m_watermarkLabel->setStyleSheet(
        QStringLiteral("color: white; background-color: rgba(0,0,0,100); padding: 5px;"));
    m_watermarkLabel->hide();
    qDebug() << "[TavroVideo] 水印标签已设置为鼠标事件透明，确保坐标获取正常";
}

void TavroVideo::setupToolSwitchButtonIcon()
{
    if (!m_btnToolSwitch)
        return;
    QIcon icon{QString::fromLatin1(kToolSwitchIcon)};
    if (icon.isNull() || icon.availableSizes().isEmpty())
        icon = style()->standardIcon(QStyle::SP_ArrowDown);
    m_btnToolSwitch->setIcon(icon);
    m_btnToolSwitch->setIconSize(QSize(kToolButtonSize, kToolButtonSize));
}

// ---- Tool switch -----------------------------------------------------------------------------

void TavroVideo::loadToolSwitchRelativePosition()
{
    QSettings settings;
    settings.beginGroup(QLatin1String(kSettingsGroup));
    m_toolSwitchHasCustomPos =
        settings.value(QStringLiteral("toolSwitchHasCustomPos"), false).toBool();
    m_toolSwitchRelX = settings.value(QStringLiteral("toolSwitchRelX"), 0.5).toDouble();
    m_toolSwitchRelY = settings.value(QStringLiteral("toolSwitchRelY"), 0.0).toDouble();
    settings.endGroup();
}

void TavroVideo::saveToolSwitchRelativePosition()
{
    if (!m_btnToolSwitch || width() < 1 || height() < 1)
        return;
    m_toolSwitchRelX = double(m_btnToolSwitch->x()) / width();
    m_toolSwitchRelY = double(m_btnToolSwitch->y()) / height();
    m_toolSwitchHasCustomPos = true;
    QSettings settings;
    settings.beginGroup(QLatin1String(kSettingsGroup));
    settings.setValue(QStringLiteral("toolSwitchHasCustomPos"), true);
    settings.setValue(QStringLiteral("toolSwitchRelX"), m_toolSwitchRelX);
    settings.setValue(QStringLiteral("toolSwitchRelY"), m_toolSwitchRelY);
    settings.endGroup();
}

void TavroVideo::applyToolSwitchPosition()
{
    if (!m_btnToolSwitch || width() < 1 || height() < 1)
        return;
    const QPoint wanted = m_toolSwitchHasCustomPos
                              ? relativeToolSwitchPosition(size(), m_btnToolSwitch->size(),
                                                           m_toolSwitchRelX, m_toolSwitchRelY)
                              : defaultToolSwitchPosition(size(), m_btnToolSwitch->size());
    if (m_btnToolSwitch->pos() != wanted)
        m_btnToolSwitch->move(wanted);
}

void TavroVideo::positionToolSwitchClamped(const QPoint &topLeft)
{
    if (m_btnToolSwitch)
        m_btnToolSwitch->move(clampTopLeftInto(topLeft, m_btnToolSwitch->size(), size()));
}

bool TavroVideo::handleToolSwitchEvent(QEvent *event)
{
    switch (event->type()) {
    case QEvent::MouseButtonPress: {
        auto *press = static_cast<QMouseEvent *>(event);
        if (press->button() != Qt::LeftButton)
            return false;
        m_toolSwitchPressed = true;
        m_toolSwitchDragging = false;
        m_toolSwitchPressPos = press->globalPosition().toPoint();
        m_toolSwitchGrabOffset = m_btnToolSwitch->pos() - mapFromGlobal(m_toolSwitchPressPos);
        return true;
    }
    case QEvent::MouseMove: {
        auto *move = static_cast<QMouseEvent *>(event);
        if (!m_toolSwitchPressed || !(move->buttons() & Qt::LeftButton))
            return false;
        const QPoint global = move->globalPosition().toPoint();
        if (!m_toolSwitchDragging &&
            reachedDragDistance(m_toolSwitchPressPos, global, QApplication::startDragDistance())) {
            m_toolSwitchDragging = true;
            m_btnToolSwitch->grabMouse();
        }
        if (m_toolSwitchDragging)
            positionToolSwitchClamped(mapFromGlobal(global) + m_toolSwitchGrabOffset);
        return true;
    }
    case QEvent::MouseButtonRelease: {
        auto *release = static_cast<QMouseEvent *>(event);
        if (release->button() != Qt::LeftButton || !m_toolSwitchPressed)
            return false;
        m_toolSwitchPressed = false;
        if (m_toolSwitchDragging) {
            m_toolSwitchDragging = false;
            m_btnToolSwitch->releaseMouse();
            saveToolSwitchRelativePosition();
        } else {
            onBtnToolSwitchClicked();
        }
        return true;
    }
    case QEvent::MouseButtonDblClick:
        return true;
    default:
        return false;
    }
}

void TavroVideo::onBtnToolSwitchClicked()
{
    m_flowPanelWanted = !m_flowPanelWanted;
    setFlowPanelVisible(m_flowPanelWanted);
}

// ---- Toolbar placement -----------------------------------------------------------------------

void TavroVideo::positionFlowPanelAtToolSwitchAnchor()
{
    if (!m_flowPanel)
        return;
    const int switchWidth = m_btnToolSwitch ? m_btnToolSwitch->width() : kDefaultToolSwitchWidth;
    QPoint anchor;
    if (m_btnToolSwitch && !m_toolSwitchHasCustomPos && m_btnToolSwitch->isVisible())
        anchor = m_btnToolSwitch->pos();
    else if (m_toolSwitchHasCustomPos)
        anchor = QPoint(int(m_toolSwitchRelX * width()), int(m_toolSwitchRelY * height()));
    else
        anchor = QPoint((width() - switchWidth) / 2, 4);
    m_flowPanel->adjustSize();
    positionFlowPanelClamped(flowPanelTopLeftAtAnchor(anchor, switchWidth, m_flowPanel->width()));
}

void TavroVideo::positionFlowPanelClamped(const QPoint &topLeft)
{
    if (!m_flowPanel)
        return;
    m_flowPanel->resize(m_flowPanel->sizeHint());
    m_flowPanel->move(clampTopLeftInto(topLeft, m_flowPanel->size(), size()));
}

void TavroVideo::syncToolSwitchAnchorFromFlowPanel()
{
    if (!m_flowPanel || width() < 1 || height() < 1)
        return;
    const int switchWidth = m_btnToolSwitch ? m_btnToolSwitch->width() : kDefaultToolSwitchWidth;
    const QPointF relative =
        relativeAnchorOfFlowPanel(m_flowPanel->pos(), m_flowPanel->width(), switchWidth, size());
    m_toolSwitchHasCustomPos = true;
    m_toolSwitchRelX = relative.x();
    m_toolSwitchRelY = relative.y();
    QSettings settings;
    settings.beginGroup(QLatin1String(kSettingsGroup));
    settings.setValue(QStringLiteral("toolSwitchHasCustomPos"), true);
    settings.setValue(QStringLiteral("toolSwitchRelX"), m_toolSwitchRelX);
    settings.setValue(QStringLiteral("toolSwitchRelY"), m_toolSwitchRelY);
    settings.endGroup();
    positionToolSwitchClamped(
        QPoint(int(m_toolSwitchRelX * width()), int(m_toolSwitchRelY * height())));
}

QPoint TavroVideo::flowPanelTopLeftForDrag() const
{
    return m_flowPanel ? m_flowPanel->pos() : QPoint();
}

void TavroVideo::showFlowPanel()
{
    if (m_flowPanelWanted && m_flowEnabled)
        setFlowPanelVisible(true);
}

void TavroVideo::setFlowPanelVisible(bool visible)
{
    if (!m_flowPanel)
        return;
    m_flowPanelWanted = visible;
    if (visible) {
        positionFlowPanelAtToolSwitchAnchor();
        for (QWidget *widget : {m_flowPanel, m_flowPanel->findChild<QWidget *>("buttonsRow"),
                                m_flowPanel->findChild<QWidget *>("keyboardAnchor")}) {
            if (widget)
                widget->setAutoFillBackground(false);
        }
        m_flowPanel->show();
        m_flowPanel->raise();
        if (m_btnToolSwitch)
            m_btnToolSwitch->hide();
        qDebug().noquote() << QStringLiteral("[TavroVideo] 工具栏已显示，屏幕位置: %1,%2 %3x%4")
                                  .arg(m_flowPanel->mapToGlobal(QPoint(0, 0)).x())
                                  .arg(m_flowPanel->mapToGlobal(QPoint(0, 0)).y())
                                  .arg(m_flowPanel->width())
                                  .arg(m_flowPanel->height());
        return;
    }
    m_flowPanel->hide();
    if (m_btnToolSwitch) {
        applyToolSwitchPosition();
        m_btnToolSwitch->show();
        m_btnToolSwitch->raise();
    }
}

void TavroVideo::setFlowEnable(bool enable)
{
    m_flowEnabled = enable;
    qDebug() << "[TavroVideo::setFlowEnable] 工具栏启用状态设置为:" << enable;
    if (enable)
        return;
    m_flowPanelWanted = false;
    if (m_flowPanel)
        m_flowPanel->hide();
    if (m_btnToolSwitch) {
        setupToolSwitchButtonIcon();
        applyToolSwitchPosition();
        m_btnToolSwitch->show();
        m_btnToolSwitch->raise();
    }
}

void TavroVideo::raiseOverlaysAboveVideo()
{
    if (m_watermarkLabel && m_watermarkLabel->isVisible())
        m_watermarkLabel->raise();
    if (m_btnToolSwitch)
        m_btnToolSwitch->raise();
    if (m_flowPanel && m_flowPanel->isVisible())
        m_flowPanel->raise();
}

void TavroVideo::updateChildWidgetsPosition()
{
    if (m_flowPanel && m_flowPanel->isVisible())
        positionFlowPanelAtToolSwitchAnchor();
    if (m_newSoftKeyboard && m_newSoftKeyboard->isVisible()) {
        placeSoftKeyboard();
        qDebug() << "[updateChildWidgetsPosition] 更新新软键盘位置（X居中Y在flowPanel下方）:"
                 << m_newSoftKeyboard->pos();
    }
}

void TavroVideo::layoutOverlays()
{
    applyToolSwitchPosition();
    raiseOverlaysAboveVideo();
    if (m_watermarkLabel && m_watermarkLabel->isVisible()) {
        m_watermarkLabel->setMaximumWidth(std::max(width() - 20, 40));
        m_watermarkLabel->adjustSize();
        m_watermarkLabel->move((width() - m_watermarkLabel->width()) / 2, 0);
    }
    updateChildWidgetsPosition();
}

void TavroVideo::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    layoutOverlays();
    if (isWindow())
        activateWindow();
    raise();
    setFocus(Qt::OtherFocusReason);
}

void TavroVideo::moveEvent(QMoveEvent *event)
{
    QWidget::moveEvent(event);
    if (!isVisible())
        return;
    qDebug() << "[TavroVideo::moveEvent] 窗口移动，关闭所有浮动窗口:" << event->pos();
    closePopupWindows();
}

// ---- Popups ----------------------------------------------------------------------------------

void TavroVideo::centerPopupWindow(QWidget *popup)
{
    if (!popup)
        return;
    // Under the toolbar; while it is hidden, under the switch that brings it back.
    QWidget *anchorWidget = m_flowPanel && m_flowPanel->isVisible()
                                ? m_flowPanel
                                : static_cast<QWidget *>(m_btnToolSwitch);
    const QPoint anchor =
        anchorWidget
            ? anchorWidget->mapToGlobal(QPoint(anchorWidget->width() / 2, anchorWidget->height()))
            : mapToGlobal(QPoint(width() / 2, 0));
    QScreen *screen = QGuiApplication::screenAt(anchor);
    if (!screen) {
        qWarning() << "[centerPopupWindow] 警告：无法确定 flowPanel 所在屏幕，使用主屏幕";
        screen = QGuiApplication::primaryScreen();
    }
    const QSize popupSize = popup->size();
    const QPoint topLeft = screen ? popupTopLeftUnderAnchor(anchor, popupSize, screen->geometry())
                                  : QPoint(anchor.x() - popupSize.width() / 2, anchor.y());
    popup->move(topLeft);
    qDebug() << "[centerPopupWindow]"
             << "显示在 flowPanel 下方:" << topLeft << (screen ? screen->name() : QString());
}

// ---- Watermark -------------------------------------------------------------------------------

void TavroVideo::setWatermarkDebugInfoVisible(bool visible)
{
    m_watermarkDebugInfoVisible = visible;
    updateWatermark();
}

void TavroVideo::updateWatermark()
{
    const QSize capture = videoContentSizeForLayout();
    const WatermarkFacts facts =
        watermarkFacts(m_blackBorderInfo, capture, m_lastMousePos, m_uartStatusText);

    if (m_watermarkLabel) {
        if (m_watermarkDebugInfoVisible) {
            if (m_watermarkLabel->text() != facts.line)
                m_watermarkLabel->setText(facts.line);
            if (!m_watermarkLabel->isVisible()) {
                m_watermarkLabel->show();
                layoutOverlays();
            }
        } else if (m_watermarkLabel->isVisible()) {
            m_watermarkLabel->hide();
        }
    }

    if (facts.calcText != m_lastCalcText) {
        m_lastCalcText = facts.calcText;
        emit calcChanged(facts.calcText);
    }
    // No position before the pointer first crossed the picture.
    if (m_lastMousePos.x() >= 0 && facts.mouseText != m_lastMouseText) {
        m_lastMouseText = facts.mouseText;
        emit mouseChanged(facts.mouseText);
    }

    const qint64 now = nowMs();
    if (m_uartStatusText.isEmpty() || m_lastUartEvaluationMs < 0 ||
        now - m_lastUartEvaluationMs >= kUartEvaluationIntervalMs) {
        m_lastUartEvaluationMs = now;
        refreshUartStatus();
    }

    if (m_lastStatusSectionsMs >= 0 && now - m_lastStatusSectionsMs < kStatusSectionsIntervalMs)
        return;
    m_lastStatusSectionsMs = now;
    auto *mainWindow = qobject_cast<QMainWindow *>(window());
    if (!mainWindow || !mainWindow->statusBar() || capture.width() < 1)
        return;
    const QString size = QStringLiteral("%1x%2").arg(capture.width()).arg(capture.height());
    const double fps = m_measuredFps > 0 ? m_measuredFps : m_negotiatedFps;
    const QString rate = QStringLiteral("%1fps").arg(fps, 0, 'f', 1);
    QStatusBar *bar = mainWindow->statusBar();
    if (auto *label = bar->findChild<QLabel *>(QStringLiteral("statusSection1"));
        label && label->text() != size)
        label->setText(size);
    if (auto *label = bar->findChild<QLabel *>(QStringLiteral("statusSection2"));
        label && label->text() != rate)
        label->setText(rate);
}

// ---- Full screen -----------------------------------------------------------------------------

void TavroVideo::onBtnFullScreenClicked()
{
    qDebug() << "[UI] 全屏按钮点击";
    toggleFullScreen(this);
}

void TavroVideo::toggleFullScreen(QWidget *widget)
{
    if (!widget)
        return;
    qDebug() << "[TavroVideo::toggleFullScreen] 当前全屏状态:" << m_isFullScreen
             << "窗口全屏:" << widget->isFullScreen();
    if (!m_isFullScreen) {
        if (widget->isFullScreen()) {
            qDebug() << "[TavroVideo::toggleFullScreen] macOS: 检测到残留的全屏状态，先退出";
            widget->showNormal();
        }
        closePopupWindows();
        m_fullScreenPreviousParent = widget->parentWidget();
        m_fullScreenPreviousGeometry = widget->geometry();
        QScreen *target = QGuiApplication::screenAt(widget->window()->geometry().center());
        if (!target)
            target = QGuiApplication::screenAt(widget->mapToGlobal(widget->rect().center()));
        if (!target) {
            qWarning() << "[TavroVideo::toggleFullScreen] Could not determine current screen, "
                          "falling back to primary screen";
            target = QGuiApplication::primaryScreen();
        }
        m_isFullScreen = true;
        widget->setParent(nullptr);
        widget->setWindowFlags(Qt::Window | Qt::FramelessWindowHint);
        if (target) {
            widget->setGeometry(target->geometry());
            if (QWindow *handle = widget->windowHandle())
                handle->setScreen(target);
        }
        widget->showFullScreen();
        if (target && widget->screen() != target)
            qWarning() << "[TavroVideo::toggleFullScreen] WARNING: Widget ended up on"
                       << widget->screen()->name() << "instead of target screen" << target->name();
        widget->raise();
        widget->activateWindow();
        return;
    }

    m_isFullScreen = false;
    closePopupWindows();
    if (QWidget *parent = m_fullScreenPreviousParent) {
        widget->setParent(parent);
        widget->setWindowFlag(Qt::FramelessWindowHint);
        widget->setGeometry(m_fullScreenPreviousGeometry);
        widget->show();
    } else {
        qDebug() << "[TavroVideo::toggleFullScreen] No original parent, just showing normal";
        widget->showNormal();
    }
    m_fullScreenPreviousParent = nullptr;
    // The capture is renewed once the window change has settled.
    QTimer::singleShot(0, this, &TavroVideo::handleFullScreenExit);
}

void TavroVideo::handleFullScreenExit()
{
    qDebug() << "[TavroVideo::handleFullScreenExit] Executing delayed full screen exit tasks.";
    const QByteArray id = m_currentDeviceId;
    closeCamera(true);
    if (!id.isEmpty())
        openCamera(id);
    setFocus(Qt::OtherFocusReason);
    update();
}
