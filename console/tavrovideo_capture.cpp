// Console view: which camera is shown, how it is opened and closed, its format, and the box's
// serial link that is opened with it. Permissions and the resolution check have files of their
// own.
#include "console/tavrovideo.h"

#include <QAudioInput>
#include <QAudioOutput>
#include <QAudioSink>
#include <QAudioSource>
#include <QCamera>
#include <QDebug>
#include <QLabel>
#include <QMainWindow>
#include <QMediaCaptureSession>
#include <QMediaDevices>
#include <QStatusBar>
#include <QTimer>
#include <QVideoSink>

#include "console/camerapreference.h"
#include "console/captureformat.h"
#include "console/capturerules.h"
#include "console/gl/videoglsurface.h"
#include "db/dbmanager.h"
#include "devices/devicelistrules.h"
#include "platform/cameraidentity.h"
#include "platform/camerainventory.h"
#include "platform/permissions.h"
#include "serial/deviceuartmanager.h"
#include "serial/uartmanager.h"

static_assert(int(QVideoFrameFormat::Format_Jpeg) == CapturePixelFormat::Jpeg);
static_assert(int(QVideoFrameFormat::Format_NV12) == CapturePixelFormat::NV12);
static_assert(int(QVideoFrameFormat::Format_YUYV) == CapturePixelFormat::YUYV);
static_assert(int(QVideoFrameFormat::Format_UYVY) == CapturePixelFormat::UYVY);
static_assert(int(QVideoFrameFormat::Format_YUV420P) == CapturePixelFormat::YUV420P);
static_assert(int(QVideoFrameFormat::Format_RGBX8888) == CapturePixelFormat::RGBX8888);
static_assert(int(QVideoFrameFormat::Format_BGRA8888) == CapturePixelFormat::BGRA8888);

namespace {

constexpr int kTkCdcBaudRate = 2000000;

const char *yesNo(bool value)
{
    return value ? "true" : "false";
}

CameraText cameraText(const IdentifiedCamera &camera)
{
    return {camera.device.description(), camera.identity};
}

QList<CameraText> cameraTexts(const QList<IdentifiedCamera> &cameras)
{
    QList<CameraText> texts;
    for (const IdentifiedCamera &camera : cameras)
        texts.append(cameraText(camera));
    return texts;
}

QList<CaptureFormatDesc> describeFormats(const QList<QCameraFormat> &formats)
{
    QList<CaptureFormatDesc> described;
    for (const QCameraFormat &format : formats)
        described.append({int(format.pixelFormat()), format.resolution().width(),
                          format.resolution().height(), double(format.minFrameRate()),
                          double(format.maxFrameRate())});
    return described;
}

QString describeFormat(const QCameraFormat &format)
{
    return QStringLiteral("%1 %2x%3 @ %4 FPS")
        .arg(TavroVideo::getPixelFormatString(format.pixelFormat()))
        .arg(format.resolution().width())
        .arg(format.resolution().height())
        .arg(double(format.maxFrameRate()));
}

} // namespace

// ---- Cameras -------------------------------------------------------------------------------

bool TavroVideo::isUsbVideoLikeDevice(const QCameraDevice &device)
{
    return looksLikeUsbVideo({device.description(), cameraIdentity(device)});
}

QByteArray TavroVideo::pickPreferredInitialCameraId(const QList<QCameraDevice> &devices)
{
    const QList<IdentifiedCamera> cameras = identifiedVideoInputs();
    QList<CameraText> texts;
    for (const QCameraDevice &device : devices)
        texts.append({device.description(), identityIn(cameras, device)});
    return preferredInitialCameraId(texts);
}

QList<IdentifiedCamera> TavroVideo::enumerateIdentifiedCameras()
{
    const QList<SystemCamera> systemCameras = systemCameraInventory();
    if (systemCameras.isEmpty()) {
        qDebug() << "[TavroVideo::enumerateCameras] No AVFoundation camera devices found.";
    } else {
        qDebug() << "[TavroVideo::enumerateCameras] Found" << systemCameras.size()
                 << "AVFoundation camera devices.";
        for (int i = 0; i < systemCameras.size(); ++i)
            qDebug().noquote().nospace()
                << "  AVF Device " << i << ": Description=" << systemCameras[i].name
                << ", ID=" << systemCameras[i].uniqueId;
    }

    const QList<IdentifiedCamera> cameras = identifiedVideoInputs();
    if (cameras.isEmpty()) {
        qDebug() << "[TavroVideo::enumerateCameras] No camera devices found.";
        return cameras;
    }
    qDebug().noquote().nospace()
        << "[TavroVideo::enumerateCameras] 枚举到" << cameras.size()
        << "个摄像头（列表展示全部；开机默认次序：TK USB video -> usb video -> 首个）。";
    for (int i = 0; i < cameras.size(); ++i) {
        const CameraText text = cameraText(cameras[i]);
        qDebug().noquote().nospace() << "  Device " << i << ": Description=" << text.description
                                     << ", ID=" << QString::fromUtf8(text.id);
        if (isTkUsbVideoDevice(text))
            qDebug().noquote()
                << "    -> TK USB video 特征（优选次序 1：名称或 VID_a5c0+PID_2132）";
        else if (looksLikeUsbVideo(text))
            qDebug().noquote() << "    -> usb video 特征（优选次序 2）";
    }
    return cameras;
}

void TavroVideo::enumerateCameras(QList<QCameraDevice> &out)
{
    out.clear();
    const QList<IdentifiedCamera> cameras = enumerateIdentifiedCameras();
    for (const IdentifiedCamera &camera : cameras)
        out.append(camera.device);
}

QList<IdentifiedCamera> TavroVideo::getIdentifiedUvcDeviceList()
{
    QList<IdentifiedCamera> boxes;
    for (const IdentifiedCamera &camera : enumerateIdentifiedCameras()) {
        if (isBoxLikeCamera(cameraText(camera)))
            boxes.append(camera);
    }
    return boxes;
}

QList<QCameraDevice> TavroVideo::getUvcDeviceList()
{
    QList<QCameraDevice> list;
    for (const IdentifiedCamera &camera : getIdentifiedUvcDeviceList())
        list.append(camera.device);
    return list;
}

void TavroVideo::runDeferredFirstOpen()
{
    const QList<IdentifiedCamera> cameras = enumerateIdentifiedCameras();
    if (cameras.isEmpty()) {
        qDebug() << "[TavroVideo] 初始化：首轮未检测到摄像头，可等待枚举更新";
        return;
    }
    const QByteArray id = preferredInitialCameraId(cameraTexts(cameras));
    qDebug().noquote() << "[TavroVideo] 初始化(事件循环后首轮)：在" << cameras.size()
                       << "个摄像头中按 TK USB video -> usb video 次序优选，ID:"
                       << QString::fromUtf8(id);

    switch (mediaPermissionStatus(MediaPermission::Camera)) {
    case MediaPermissionStatus::Undetermined:
        m_pendingCameraId = id;
        qDebug() << "[TavroVideo::init] 权限未确定，保存待启动相机ID，等待权限请求完成";
        break;
    case MediaPermissionStatus::Denied:
        qWarning() << "[TavroVideo::init] 相机权限被拒绝，无法启动相机";
        break;
    case MediaPermissionStatus::Granted:
        qDebug() << "[TavroVideo::init] 权限已授予，启动相机";
        openCamera(id);
        break;
    }
}

void TavroVideo::onVideoInputsChangedDebounced()
{
    qDebug() << "[TavroVideo] UVC 设备枚举变化，通知 device 同步列表与预览";
    emit uvcInputsChanged();
    onVideoInputsChangedForPreferred();
}

void TavroVideo::onVideoInputsChangedForPreferred()
{
    if (startupElapsedMs() > kPreferredCameraSwitchWindowMs || m_currentDeviceId.isEmpty())
        return;
    const QList<IdentifiedCamera> cameras = enumerateIdentifiedCameras();
    if (cameras.isEmpty())
        return;
    const QList<CameraText> texts = cameraTexts(cameras);
    const QByteArray preferred = preferredInitialCameraId(texts);
    if (preferred.isEmpty() || preferred == m_currentDeviceId)
        return;

    const CameraText *current = nullptr;
    const CameraText *wanted = nullptr;
    for (const CameraText &text : texts) {
        if (text.id == m_currentDeviceId)
            current = &text;
        if (text.id == preferred)
            wanted = &text;
    }
    if (current && wanted && isTkUsbVideoDevice(*wanted) && !isTkUsbVideoDevice(*current)) {
        qDebug() << "[TavroVideo] 摄像头枚举更新，从非 TK USB 设备切换到优选 TK USB 设备";
        openCamera(preferred);
    }
}

// ---- Open and close ------------------------------------------------------------------------

QString TavroVideo::getCurrentDeviceDid() const
{
    return deviceDidForCameraId(m_currentDeviceId);
}

void TavroVideo::connectVideoSink()
{
    connect(m_videoSink, &QVideoSink::videoFrameChanged, this, &TavroVideo::processVideoFrame,
            Qt::UniqueConnection);
}

void TavroVideo::openCamera(const QByteArray &cameraId)
{
    qDebug().noquote() << "[DEBUG] openCamera called, cameraId:" << QString::fromUtf8(cameraId);
    qDebug().noquote() << "[TavroVideo::openCamera] 开始打开相机，ID:"
                       << QString::fromUtf8(cameraId);

    const qint64 now = nowMs();
    if (m_camera && cameraId == m_currentDeviceId && m_camera->isActive()) {
        if (framesAreFlowing(m_lastFrameTimeMs, now)) {
            qDebug() << "[TavroVideo::openCamera] 目标设备已在前台激活且帧流正常，跳过重复打开";
            return;
        }
        m_sessionNeedsRenewal = true;
        qWarning().noquote()
            << "[TavroVideo::openCamera] 同设备处于 active 但帧流超时，执行强制重开:"
            << QStringLiteral("lastFrameAgoMs=%1").arg(lastFrameAgoMs(m_lastFrameTimeMs, now));
    }

    closeCamera(true);
    qDebug() << "[TavroVideo::openCamera] 设备切换，清理旧的视频帧数据";
    m_lastFrame = QVideoFrame();
    m_convertedImage = QImage();
    m_negotiatedResolution = QSize(-1, -1);
    invalidateActualVideoDisplayRect();
    qDebug() << "[TavroVideo::openCamera] 内存清理完成，准备切换到新设备";

    m_currentDeviceId = cameraId;
    loadCursorCorrectionSettingForCurrentDevice();
    loadLinkModesForCurrentDevice();
    qDebug() << "[TavroVideo::openCamera] 使用Qt原生相机";

    const QCameraDevice device = findCameraByIdentity(cameraId);
    if (device.isNull()) {
        qWarning().noquote() << "[TavroVideo::openCamera] 未找到ID为" << QString::fromUtf8(cameraId)
                             << "的相机设备";
        return;
    }
    qDebug().noquote() << "[TavroVideo::openCamera] 找到目标设备:" << device.description();

    m_camera = new QCamera(device, this);
    connect(m_camera, &QCamera::errorOccurred, this, [this](QCamera::Error, const QString &text) {
        qWarning().noquote() << "[TavroVideo] 相机错误:" << text;
        m_sessionNeedsRenewal = true;
    });
    connect(m_camera, &QCamera::activeChanged, this, [this](bool active) {
        m_cameraActive = active;
        qDebug() << "[TavroVideo] 相机状态变化:" << (active ? "激活" : "停止");
    });
    // A session whose camera stopped delivering (pulled out, failed) may not recover its
    // pipeline when given a new camera: start from a fresh one then.
    if (m_sessionNeedsRenewal) {
        qDebug() << "[TavroVideo::openCamera] 上一路采集异常中断，重建采集会话";
        delete m_captureSession;
        m_captureSession = new QMediaCaptureSession(this);
        m_sessionNeedsRenewal = false;
    }
    // The sink goes on the session first: with the camera first the pipeline may stall.
    m_captureSession->setVideoSink(m_videoSink);
    m_captureSession->setCamera(m_camera);
    setupUvcAudioPlayback(device);

    connectVideoSink();
    qDebug() << "[TavroVideo::openCamera] 会话:" << (m_captureSession ? "已创建" : "未创建")
             << "相机:" << (m_camera ? "已创建" : "未创建")
             << "视频输出:" << (m_videoSink ? "已创建" : "未创建") << "帧信号:"
             << "已连接";
    qDebug().noquote() << "[TavroVideo::openCamera] 设备:" << device.description()
                       << "格式数:" << device.videoFormats().size();

    switch (mediaPermissionStatus(MediaPermission::Camera)) {
    case MediaPermissionStatus::Granted:
        qDebug() << "[TavroVideo::openCamera] 相机权限已授予，启动相机";
        // The format is chosen before the camera starts: a running camera does not reliably
        // take a new format here.
        negotiateFormat(device);
        startCameraWithPermission();
        loadSerialLinkAtOpen(cameraId);
        ensureUartInfoSignalConnected();
        showNegotiatedFormatInStatusBar();
        qDebug() << "[openCamera] ========== 设备格式分析结束 ==========";
        break;
    case MediaPermissionStatus::Denied:
        qWarning() << "[TavroVideo::openCamera] 相机权限被拒绝，无法启动相机";
        qWarning() << "[TavroVideo::openCamera] 请前往 系统设置 > 隐私与安全性 > 相机 中授予权限";
        emit cameraPermissionDenied();
        break;
    case MediaPermissionStatus::Undetermined:
        qDebug() << "[TavroVideo::openCamera] 相机权限未确定，正在请求权限...";
        requestMediaPermission(MediaPermission::Camera, this, [this](MediaPermissionStatus result) {
            qDebug() << "[TavroVideo::openCamera] 相机权限请求回调，状态:"
                     << permissionStatusText(result);
            if (result == MediaPermissionStatus::Granted) {
                qDebug() << "[TavroVideo::openCamera] "
                            "相机权限已授予，立即启动相机";
                startCameraWithPermission();
            } else {
                qWarning() << "[TavroVideo::openCamera] 相机权限被拒绝，无法启动相机";
                qWarning() << "[TavroVideo::openCamera] 请前往 系统设置 > "
                              "隐私与安全性 > 相机 中授予权限";
                emit cameraPermissionDenied();
            }
        });
        break;
    }
}

void TavroVideo::startCameraWithPermission()
{
    if (!m_camera) {
        qWarning() << "[TavroVideo::startCameraWithPermission] 相机实例为空，无法启动";
        return;
    }
    m_camera->setActive(true);
    if (!m_camera->isActive()) {
        qWarning() << "[TavroVideo::startCameraWithPermission] Qt原生相机启动失败";
        return;
    }
    m_cameraActive = true;
    const QCameraDevice bound = m_camera->cameraDevice();
    const QByteArray boundId = cameraIdentity(bound);
    qDebug().noquote() << "[TavroVideo::startCameraWithPermission] 已绑定设备:"
                       << bound.description() << "ID:" << QString::fromUtf8(boundId);
    if (!m_currentDeviceId.isEmpty() && boundId != m_currentDeviceId) {
        qWarning() << "[TavroVideo::startCameraWithPermission] 警告：QCamera 实际设备 ID 与 "
                      "m_currentDeviceId 不一致（系统/驱动可能改绑）";
        qWarning().noquote() << "  请求 ID:" << QString::fromUtf8(m_currentDeviceId);
        qWarning().noquote() << "  实际 ID:" << QString::fromUtf8(boundId);
    }
    if (m_audioInput && m_captureSession->audioInput() != m_audioInput)
        m_captureSession->setAudioInput(m_audioInput);

    const QCameraFormat format = m_camera->cameraFormat();
    if (!format.isNull()) {
        m_negotiatedResolution = format.resolution();
        m_negotiatedFps = format.maxFrameRate();
        qDebug() << "[TavroVideo::startCameraWithPermission] 设置默认分辨率:"
                 << m_negotiatedResolution << "@" << m_negotiatedFps;
    } else {
        m_negotiatedResolution = QSize(1920, 1080);
        m_negotiatedFps = 30.0;
        qDebug() << "[TavroVideo::startCameraWithPermission] 使用默认分辨率:"
                 << m_negotiatedResolution << "@" << m_negotiatedFps;
    }
    syncResolutionCheck("[TavroVideo::startCameraWithPermission] 启动分辨率检查定时器", nullptr);
    update();
    qDebug() << "[TavroVideo::startCameraWithPermission] 相机启动完成，等待第一帧...";
    emit cameraStarted();
}

void TavroVideo::closeCamera(bool closeUart)
{
    qDebug() << "[TavroVideo::closeCamera] 开始关闭相机, closeUart:" << yesNo(closeUart);
    discardRecordingOnClose();
    // A camera closed after it stopped delivering or was pulled out may leave the session's
    // pipeline unable to run the next camera: the next open starts from a fresh session.
    if (m_camera && (!framesAreFlowing(m_lastFrameTimeMs, nowMs()) ||
                     findCameraByIdentity(m_currentDeviceId).isNull())) {
        qDebug() << "[TavroVideo::closeCamera] 相机已无帧或已拔出，下次打开时重建采集会话";
        m_sessionNeedsRenewal = true;
    }
    m_cameraActive = false;
    m_fullClose = closeUart;
    ++m_captureGeneration;
    disconnect(m_videoSink, nullptr, this, nullptr);

    m_frameAgeClock.invalidate();
    m_audioPassthroughOn = false;

    releaseCaptureAudio();

    if (m_camera) {
        m_camera->disconnect(this);
        m_captureSession->setCamera(nullptr);
        m_captureSession->setVideoOutput(nullptr);
        if (m_camera->isActive()) {
            m_camera->setActive(false);
            qDebug() << "[TavroVideo::closeCamera] Qt原生相机已关闭";
        }
        delete m_camera;
        m_camera = nullptr;
    }
    syncResolutionCheck(nullptr, "[TavroVideo::closeCamera] 停止分辨率检查定时器");

    clearDisplayState();

    if (closeUart) {
        const QString did = getCurrentDeviceDid();
        DeviceUartManager *link =
            did.isEmpty() ? nullptr : UartManager::instance()->getDeviceUartManager(did);
        if (did.isEmpty()) {
            qDebug() << "[TavroVideo::closeCamera] 设备DID为空，跳过串口关闭";
        } else if (link && link->serialPort() && link->serialPort()->isOpen()) {
            qDebug() << "[TavroVideo::closeCamera] 检测到UART已连接，关闭串口连接";
            closeSerialPort();
        } else if (link && link->isWaitingToReopen()) {
            // A lost link would otherwise reopen by itself for a box no longer shown.
            qDebug() << "[TavroVideo::closeCamera] UART等待重新连接，停止重连并关闭";
            closeSerialPort();
        } else {
            qDebug() << "[TavroVideo::closeCamera] UART未连接，跳过串口关闭";
        }
    } else {
        qDebug() << "[TavroVideo::closeCamera] 跳过串口关闭（仅释放相机，例如多窗口回九宫格）";
    }

    m_negotiatedResolution = QSize(-1, -1);
    m_negotiatedFps = 0;
    qDebug() << "[TavroVideo::closeCamera] 相机关闭完成，所有资源已清理";
    QMetaObject::invokeMethod(this, &TavroVideo::finishCloseCameraTeardown, Qt::QueuedConnection);
}

void TavroVideo::finishCloseCameraTeardown()
{
    qDebug() << "[TavroVideo::finishCloseCameraTeardown] fullClose=" << yesNo(m_fullClose);
    if (!m_fullClose)
        return;
    releaseVideoGlSurface();
    emit cameraClosed();
}

void TavroVideo::parkMainCameraForGridLayout()
{
    m_cameraActive = false;
    if (m_glSurface)
        m_glSurface->hide();
    m_glSurfaceActive = false;
    m_lastFrame = QVideoFrame();
    m_convertedImage = QImage();
    m_pendingDecodeFrame = QVideoFrame();
    bumpFrameGeneration();
    closeCamera(false);
    update();
}

bool TavroVideo::isUvcHeldByExclusiveMainCanvas(const QByteArray &id) const
{
    return !id.isEmpty() && id == m_currentDeviceId && m_camera && m_camera->isActive();
}

void TavroVideo::showVideoDisplay()
{
    if (isHidden())
        show();
    raise();
    update();
}

// The box's audio input joins the session here once audio pairing is built.

// The device information reply reaches the parameters dialog through this connection once the
// dialog exists.
// ---- Serial link ---------------------------------------------------------------------------

void TavroVideo::loadSerialLinkAtOpen(const QByteArray &cameraId)
{
    qDebug().noquote() << "[TavroVideo::openCamera] 开机时开始加载数据库串口配置，UVC ID:"
                       << QString::fromUtf8(cameraId);
    if (!DBManager::instance()->isInitialized()) {
        qDebug() << "[TavroVideo::openCamera] 数据库尚未初始化，跳过串口配置加载";
        return;
    }
    const QString did = getCurrentDeviceDid();
    qDebug().noquote() << "[TavroVideo::openCamera] 设备DID:" << did;
    if (did.isEmpty()) {
        qDebug() << "[TavroVideo::openCamera] 设备DID为空，跳过串口配置加载";
        return;
    }
    DeviceUartManager *link = UartManager::instance()->getDeviceUartManager(did);
    link->loadUartConfigFromDb();
    const QString port = link->portName();
    const int baud = link->baudRate();
    qDebug().noquote() << "[TavroVideo::openCamera] 开机时从数据库加载的串口配置 - 串口:" << port
                       << "波特率:" << baud;

    if (!port.isEmpty() && link->isValidSerialPortName(port)) {
        qDebug().noquote() << "[TavroVideo::openCamera] 开机时发现有效的数据库串口配置，尝试打开:"
                           << port;
        const QString bare = bareStoredPortName(port);
        if (bare != port)
            qDebug().noquote() << "[TavroVideo::openCamera] 提取纯端口名称:" << port << "->"
                               << bare;
        if (openSerialPort(bare, baud))
            qDebug().noquote() << "[TavroVideo::openCamera] 开机时UART连接成功:" << bare;
        else
            qWarning().noquote() << "[TavroVideo::openCamera] 开机时UART连接失败，不重试:" << bare;
        emit uartConfigLoaded(port, baud);
        return;
    }

    qDebug().noquote() << "[TavroVideo::openCamera] 开机时数据库无有效串口配置，尝试自动连接名称含 "
                          "TK CDC 的端口 @"
                       << kTkCdcBaudRate;
    const QString tkPort = UartManager::instance()->findFirstTkCdcPortName();
    if (tkPort.isEmpty()) {
        qDebug() << "[TavroVideo::openCamera] 未找到名称含 TK CDC 的串口，等待用户手动设置";
        return;
    }
    if (link->openSerialPort(tkPort, kTkCdcBaudRate)) {
        link->saveUartConfigToDb(tkPort, kTkCdcBaudRate);
        qDebug().noquote() << "[TavroVideo::openCamera] 已自动连接 TK CDC 串口:" << tkPort
                           << "波特率:" << kTkCdcBaudRate;
    } else {
        qWarning().noquote() << "[TavroVideo::openCamera] 自动连接 TK CDC 失败:" << tkPort;
    }
    emit uartConfigLoaded(tkPort, kTkCdcBaudRate);
}

bool TavroVideo::openSerialPort(const QString &portName, int baudRate)
{
    qDebug().noquote().nospace() << "[DEBUG] openSerialPort called, portName: " << portName
                                 << " , baudRate: " << baudRate;
    const QString did = getCurrentDeviceDid();
    if (did.isEmpty()) {
        qDebug() << "[DEBUG] openSerialPort: 设备DID为空，无法打开串口";
        return false;
    }
    return UartManager::instance()->getDeviceUartManager(did)->openSerialPort(portName, baudRate);
}

bool TavroVideo::initializeUartSystem(const QString &portName, int baudRate)
{
    const QString did = getCurrentDeviceDid();
    if (did.isEmpty()) {
        qDebug() << "[DEBUG] initializeUartSystem: 设备DID为空，无法初始化UART";
        return false;
    }
    if (portName.isEmpty())
        return true;
    if (DeviceUartManager::isValidSerialPortName(portName)) {
        openSerialPort(portName, baudRate);
    } else {
        qDebug().noquote() << "[DEBUG] initializeUartSystem: 无效的串口名称，跳过打开:" << portName;
    }
    return true;
}

void TavroVideo::closeSerialPort()
{
    const QString did = getCurrentDeviceDid();
    if (did.isEmpty()) {
        qDebug() << "[DEBUG] closeSerialPort: 设备DID为空，无法关闭串口";
        return;
    }
    UartManager::instance()->getDeviceUartManager(did)->closeSerialPort();
    QTimer::singleShot(0, this, &TavroVideo::refreshUartStatus);
}

// ---- Format --------------------------------------------------------------------------------

QString TavroVideo::getPixelFormatString(QVideoFrameFormat::PixelFormat format)
{
    return pixelFormatName(int(format));
}

void TavroVideo::negotiateFormat(const QCameraDevice &device)
{
    const QList<QCameraFormat> formats = device.videoFormats();
    const int chosenIndex = negotiateCaptureFormat(describeFormats(formats), device.description());
    if (chosenIndex < 0) {
        qWarning() << "[openCamera] ⚠⚠⚠ 没有找到任何可用格式，保持原有逻辑 ⚠⚠⚠";
        return;
    }
    const QCameraFormat chosen = formats[chosenIndex];
    qDebug() << "[openCamera] ========== 设置相机格式 ==========";
    qDebug().noquote() << "[openCamera] 尝试设置格式:" << describeFormat(chosen);
    m_camera->setCameraFormat(chosen);
    const QCameraFormat actual = m_camera->cameraFormat();
    qDebug().noquote() << "[openCamera] 实际生效格式:" << describeFormat(actual);
    if (actual.pixelFormat() == chosen.pixelFormat() &&
        actual.resolution() == chosen.resolution()) {
        qDebug() << "[openCamera] ✓✓✓ 格式设置成功 ✓✓✓";
        if (actual.pixelFormat() == QVideoFrameFormat::Format_Jpeg)
            qDebug() << "[openCamera] ✓✓✓ 已成功选择MJPEG格式 ✓✓✓";
    } else {
        qWarning() << "[openCamera] ⚠⚠⚠ 警告: 设置格式失败！⚠⚠⚠";
        qWarning().noquote() << "[openCamera]   期望格式:" << describeFormat(chosen);
        qWarning().noquote() << "[openCamera]   实际格式:" << describeFormat(actual);
        if (actual.pixelFormat() != QVideoFrameFormat::Format_Jpeg)
            qWarning() << "[openCamera] ⚠ 实际格式不是MJPEG，可能是设备不支持或格式设置失败";
    }
}

void TavroVideo::showNegotiatedFormatInStatusBar()
{
    if (!m_camera)
        return;
    const QCameraFormat format = m_camera->cameraFormat();
    if (format.isNull())
        return;
    m_negotiatedResolution = format.resolution();
    m_negotiatedFps = format.maxFrameRate();
    invalidateActualVideoDisplayRect();
    qDebug() << "[openCamera] 协商分辨率/帧率已更新:" << m_negotiatedResolution << "@"
             << m_negotiatedFps;
    auto *mainWindow = qobject_cast<QMainWindow *>(window());
    if (!mainWindow || !mainWindow->statusBar())
        return;
    if (auto *size = mainWindow->statusBar()->findChild<QLabel *>(QStringLiteral("statusSection1")))
        size->setText(QStringLiteral("%1x%2")
                          .arg(m_negotiatedResolution.width())
                          .arg(m_negotiatedResolution.height()));
    if (auto *rate = mainWindow->statusBar()->findChild<QLabel *>(QStringLiteral("statusSection2")))
        rate->setText(QStringLiteral("%1fps").arg(m_negotiatedFps, 0, 'f', 1));
}

QCameraFormat TavroVideo::findBestSupportedFormat(const QCameraDevice &device)
{
    const QList<QCameraFormat> formats = device.videoFormats();
    const int index = bestSupportedFormatIndex(describeFormats(formats), device.description());
    return index < 0 ? QCameraFormat() : formats[index];
}

QSize TavroVideo::getMaxSupportedResolution()
{
    const QCameraDevice device = findCameraByIdentity(m_currentDeviceId);
    if (device.isNull()) {
        qDebug() << "[获取最大分辨率] 未找到有效的最大分辨率";
        return QSize();
    }
    return maxSupportedResolution(describeFormats(device.videoFormats()));
}
