// Console view: construction, destruction, and the reactions to application state and window
// state. Cameras are in tavrovideo_capture.cpp, frames on screen in tavrovideo_display.cpp.
#include "console/tavrovideo.h"

#include "ui/mouse.h"

#include <QApplication>
#include <QCamera>
#include <QDebug>
#include <QEvent>
#include <QMediaCaptureSession>
#include <QMediaDevices>
#include <QTimer>
#include <QVideoSink>
#include <QWindowStateChangeEvent>

#include "app/hardwareacceleration.h"
#include "console/capturerules.h"
#include "console/input/newsoftkeyboard.h"
#include "console/input/systemkeyboardhook.h"
#include "db/dbmanager.h"
#include "serial/deviceuartmanager.h"
#include "serial/uartmanager.h"
#include "ui/stylesheet.h"

namespace {

constexpr int kVideoInputsDebounceMs = 400;
constexpr int kResolutionCheckIntervalMs = 15000;
constexpr int kMemoryMonitorIntervalMs = 30000;
constexpr int kHookRestoreDelayMs = 500;
constexpr int kUartStatusIntervalMs = 2000;

// Switches the multimedia back end may honour; set on the sink and in the environment before
// the first camera opens.
const char *const kSinkAccelerationProperties[] = {
    "hardwareAcceleration", "useHardwareDecoder", "useHardwareRenderer", "useZeroCopy",
    "useDirectRendering",   "useMJPEGDirect",     "useFastPath",         "useLowLatency",
    "useGPUMemory",         "disableCPUDecoding", "useAsyncRendering"};

const char *const kAccelerationEnvironment[] = {
    "QT_MULTIMEDIA_USE_ZERO_COPY",         "QT_MULTIMEDIA_USE_DIRECT_RENDERING",
    "QT_MULTIMEDIA_USE_MJPEG_DIRECT",      "QT_MULTIMEDIA_DISABLE_SOFTWARE_DECODER",
    "QT_MULTIMEDIA_USE_FAST_PATH",         "QT_MULTIMEDIA_USE_LOW_LATENCY",
    "QT_MULTIMEDIA_USE_HARDWARE_RENDERER", "QT_MULTIMEDIA_USE_GPU_MEMORY",
    "QT_MULTIMEDIA_DISABLE_CPU_DECODING"};

} // namespace

TavroVideo::TavroVideo(QWidget *parent) : QWidget(parent)
{
    m_captureSession = new QMediaCaptureSession(this);
    m_videoSink = new QVideoSink(this);
    qDebug() << "[TavroVideo] === 强制启用硬件加速 ===";
    HardwareAcceleration::forceEnableHardwareAcceleration();

    for (const char *property : kSinkAccelerationProperties)
        m_videoSink->setProperty(property, true);
    for (const char *variable : kAccelerationEnvironment)
        qputenv(variable, "1");
    qDebug() << "[TavroVideo] QVideoSink硬件加速属性已启用";
    qDebug().noquote() << "[TavroVideo] 硬件加速状态:"
                       << HardwareAcceleration::getHardwareAccelerationStatus();

    qDebug() << "[TavroVideo] VideoGlSurface 将在 NV12/YUYV/UYVY "
                "帧到达时按需创建（避免与 QPainter 冲突）";
    connectVideoSink();
    createRecordingTimers();

    setWindowFlag(Qt::FramelessWindowHint);
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_MouseTracking);
    setAttribute(Qt::WA_OpaquePaintEvent);
    setAttribute(Qt::WA_NoSystemBackground);
    setAttribute(Qt::WA_Hover);
    setAttribute(Qt::WA_KeyCompression, false);
    setAttribute(Qt::WA_InputMethodEnabled, false);
    setMinimumSize(320, 240);
    setFocusPolicy(Qt::StrongFocus);
    // Every key of the process passes the view first, so system shortcuts reach the target.
    qApp->installEventFilter(this);
    qDebug() << "[TavroVideo] 已安装全局事件过滤器（捕获系统快捷键）";

    m_resolutionCheckTimer = new QTimer(this);
    m_resolutionCheckTimer->setInterval(kResolutionCheckIntervalMs);
    connect(m_resolutionCheckTimer, &QTimer::timeout, this,
            &TavroVideo::checkAndSwitchToMaxResolution);

    createMouseTimers();
    initFlowPanel();
    setupUI();
    setupConnections();
    resize(800, 600);
    qDebug() << "[TavroVideo] UI初始化完成";

    qDebug() << "[TavroVideo] 应用启动，请求摄像头权限";
    requestCameraPermissionEarly();

    m_memoryMonitorTimer = new QTimer(this);
    m_memoryMonitorTimer->setInterval(kMemoryMonitorIntervalMs);
    connect(m_memoryMonitorTimer, &QTimer::timeout, this, &TavroVideo::monitorMemoryUsage);
    m_memoryMonitorTimer->start();

    connect(qApp, &QGuiApplication::applicationStateChanged, this,
            &TavroVideo::onApplicationStateChanged);

    DBManager *db = DBManager::instance();
    m_multiSameDisplay =
        db->isInitialized() && db->getAppSetting(QStringLiteral("multi_same_display"),
                                                 QStringLiteral("0")) == QLatin1String("1");

    qDebug() << "[TavroVideo] 开始初始化相机（首轮打开推迟到事件循环后，并监听 "
                "videoInputsChanged）...";
    m_startupClock.start();
    m_mediaDevices = new QMediaDevices(this);
    m_videoInputsDebounceTimer = new QTimer(this);
    m_videoInputsDebounceTimer->setSingleShot(true);
    m_videoInputsDebounceTimer->setInterval(kVideoInputsDebounceMs);
    connect(m_videoInputsDebounceTimer, &QTimer::timeout, this,
            &TavroVideo::onVideoInputsChangedDebounced);
    connect(m_mediaDevices, &QMediaDevices::videoInputsChanged, this,
            [this] { m_videoInputsDebounceTimer->start(); });

    if (m_multiSameDisplay) {
        qDebug()
            << "[TavroVideo] multi_same_display=1：跳过主画布自动 openCamera，由九宫格预览负责";
    } else {
        QTimer::singleShot(0, this, &TavroVideo::runDeferredFirstOpen);
    }

    // The link can open, reopen or be lost at any time; the status bar follows within 2 s,
    // and at once when it opens.
    m_uartStatusTimer = new QTimer(this);
    m_uartStatusTimer->setInterval(kUartStatusIntervalMs);
    connect(m_uartStatusTimer, &QTimer::timeout, this, &TavroVideo::refreshUartStatus);
    m_uartStatusTimer->start();
    connect(UartManager::instance(), &UartManager::linkOpened, this,
            &TavroVideo::refreshUartStatus);

    setStyleSheet(getQssString(QStringLiteral(":/res/qss/tavrovideo.css")));
}

TavroVideo::~TavroVideo()
{
    qDebug() << "[TavroVideo] 开始析构，清理所有资源";
    if (keyboardHookOwner() == this)
        stopSystemKeyboardHook();
    m_resolutionCheckTimer->stop();
    m_memoryMonitorTimer->stop();
    m_videoInputsDebounceTimer->stop();
    closeCamera(true);
    closeSerialPort();
    cleanupPopupWindows();
    m_lastFrame = QVideoFrame();
    m_convertedImage = QImage();
    m_pendingDecodeFrame = QVideoFrame();
    forceGarbageCollection();
    qDebug() << "[TavroVideo] 析构完成，所有资源已清理";
}

void TavroVideo::setupConnections()
{
    connect(this, &TavroVideo::cameraPermissionGranted, this, [this] {
        if (m_pendingCameraId.isEmpty())
            return;
        qDebug().noquote() << "[TavroVideo::setupConnections] 相机权限已授予，启动待启动的相机："
                           << m_pendingCameraId;
        const QByteArray id = m_pendingCameraId;
        m_pendingCameraId.clear();
        openCamera(id);
    });
}

qint64 TavroVideo::nowMs() const
{
    return QDateTime::currentMSecsSinceEpoch() + m_clockOffsetMs;
}

qint64 TavroVideo::startupElapsedMs() const
{
    return m_startupClock.elapsed() + m_clockOffsetMs;
}

void TavroVideo::onApplicationStateChanged(Qt::ApplicationState state)
{
    const bool wasActive = m_appActive;
    m_appActive = state == Qt::ApplicationActive;
    if (m_appActive && !wasActive) {
        qDebug() << "[AppState] 应用恢复前台，启动所有服务";
        if (!window()->isMinimized()) {
            qDebug() << "[AppState] 延迟恢复键盘钩子（500ms），确保摄像头权限对话框优先显示";
            QTimer::singleShot(kHookRestoreDelayMs, this, [this] {
                // Focus arriving within the delay has started it already.
                if (!m_appActive || m_keyboardHookActive || window()->isMinimized())
                    return;
                qDebug() << "[AppState] 恢复键盘钩子";
                startKeyboardHookIfStopped();
            });
        }
    } else if (!m_appActive && wasActive) {
        qDebug() << "[AppState] 应用切换到后台，停止所有服务";
        if (m_keyboardHookActive) {
            stopKeyboardHookIfRunning();
            qDebug() << "[AppState] 停止键盘钩子";
        }
        closePopupWindows();
    }
    if (m_appActive && !wasActive && m_flowEnabled && m_flowPanelWanted) {
        qDebug() << "[AppState] 恢复flowPanel显示";
        showFlowPanel();
    }
    syncResolutionCheck("[AppState] 恢复分辨率检查定时器", "[AppState] 停止分辨率检查定时器");
}

void TavroVideo::changeEvent(QEvent *event)
{
    // Embedded in a main window, the window's own state and activation reach the view through
    // its event filter instead.
    if (isWindow()) {
        if (event->type() == QEvent::WindowStateChange)
            onWindowStateChanged(static_cast<QWindowStateChangeEvent *>(event)->oldState());
        else if (event->type() == QEvent::ActivationChange)
            onWindowActivationChanged(isActiveWindow());
    }
    QWidget::changeEvent(event);
}

void TavroVideo::refreshUartStatus()
{
    DeviceUartManager *link = currentLink();
    const bool open = isLinkOpen(link);
    const QString text = uartStatusText(open, open ? link->portName() : QString());
    if (text == m_uartStatusText)
        return;
    m_uartStatusText = text;
    qDebug().noquote() << "[TavroVideo::updateWatermark] UART状态已更新:" << text;
    emit uartStatusChanged(open, text);
}

void TavroVideo::closePopupWindows()
{
    qDebug() << "[closePopupWindows] 关闭所有浮动窗口";
    if (mouse *panel = mouseControl(); panel && panel->isVisible()) {
        panel->hide();
        qDebug() << "  - 鼠标UI已关闭";
    }
    if (m_newSoftKeyboard && m_newSoftKeyboard->isVisible()) {
        m_newSoftKeyboard->hide();
        qDebug() << "  - 新软键盘已关闭";
    }
}

void TavroVideo::cleanupPopupWindows()
{
    if (!m_newSoftKeyboard)
        return;
    m_newSoftKeyboard->disconnect(this);
    m_newSoftKeyboard->hide();
    m_newSoftKeyboard->deleteLater();
    m_newSoftKeyboard = nullptr;
}
