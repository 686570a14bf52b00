#include "devices/tavrovideopreview.h"

#include <QCamera>
#include <QDateTime>
#include <QDebug>
#include <QFrame>
#include <QLabel>
#include <QMediaCaptureSession>
#include <QMouseEvent>
#include <QPixmap>
#include <QTimer>
#include <QVBoxLayout>
#include <QVideoFrame>
#include <QVideoSink>

#include "console/captureformat.h"
#include "console/frameimage.h"
#include "devices/previewrules.h"
#include "platform/cameraidentity.h"

namespace {

constexpr int kFlashIntervalMs = 90;

QList<CaptureFormatDesc> describeFormats(const QList<QCameraFormat> &formats)
{
    QList<CaptureFormatDesc> described;
    for (const QCameraFormat &format : formats)
        described.append({int(format.pixelFormat()), format.resolution().width(),
                          format.resolution().height(), double(format.minFrameRate()),
                          double(format.maxFrameRate())});
    return described;
}

} // namespace

TavroVideoPreview::TavroVideoPreview(int slot, QWidget *parent) : QWidget(parent), m_slot(slot)
{
    setObjectName(QStringLiteral("tavrovideo_preview_%1").arg(slot));
    setAttribute(Qt::WA_StyledBackground);
    setAutoFillBackground(true);
    QPalette black = palette();
    black.setColor(QPalette::Window, Qt::black);
    setPalette(black);
    setMinimumSize(1, 1);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    setToolTip(tr("双击画面可切换到主画布全屏显示"));

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    m_surface = new QFrame(this);
    m_surface->setObjectName(QStringLiteral("preview_surface_%1").arg(slot));
    m_surface->setFrameShape(QFrame::NoFrame);
    m_surface->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    m_surface->setAttribute(Qt::WA_StyledBackground);
    m_surface->installEventFilter(this);
    layout->addWidget(m_surface);

    auto *surfaceLayout = new QVBoxLayout(m_surface);
    surfaceLayout->setContentsMargins(0, 0, 0, 0);
    surfaceLayout->setSpacing(0);
    m_videoLabel = new QLabel(m_surface);
    m_videoLabel->setAlignment(Qt::AlignCenter);
    m_videoLabel->setStyleSheet(QStringLiteral("background-color: black;"));
    m_videoLabel->setFocusPolicy(Qt::NoFocus);
    m_videoLabel->setScaledContents(false);
    // The pixmap must not size the tile: the grid gives every tile the same share.
    m_videoLabel->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Ignored);
    m_videoLabel->setMinimumSize(1, 1);
    m_videoLabel->hide();
    m_videoLabel->installEventFilter(this);
    surfaceLayout->addWidget(m_videoLabel, 1);

    m_sink = new QVideoSink(this);
    connect(m_sink, &QVideoSink::videoFrameChanged, this, &TavroVideoPreview::onPreviewVideoFrame);

    m_placeholder = new QLabel(tr("主画面占用该设备"), m_surface);
    m_placeholder->setAlignment(Qt::AlignCenter);
    m_placeholder->setStyleSheet(QStringLiteral(
        "background-color: rgba(0,0,0,160); color: #e0e0e0; font-size: 12px; padding: 6px;"));
    m_placeholder->hide();

    applyNormalChrome();
    m_flashTimer = new QTimer(this);
    m_flashTimer->setInterval(kFlashIntervalMs);
    connect(m_flashTimer, &QTimer::timeout, this, &TavroVideoPreview::onFlashTick);
}

TavroVideoPreview::~TavroVideoPreview()
{
    // The sink sends an invalid frame while it goes: nothing of the tile may receive it.
    disconnect(m_sink, nullptr, this, nullptr);
    closeCamera();
}

qint64 TavroVideoPreview::nowMs() const
{
    return QDateTime::currentMSecsSinceEpoch() + m_clockOffsetMs;
}

// ---- Opening and closing -------------------------------------------------------------------

void TavroVideoPreview::openCamera(const QByteArray &uvcId, bool forceReopen)
{
    if (uvcId.isEmpty()) {
        closeCamera();
        return;
    }
    const QCameraDevice device = findCameraByIdentity(uvcId);
    if (device.isNull()) {
        qWarning().noquote() << "[TavroVideoPreview] UVC not found:" << QString::fromUtf8(uvcId);
        closeCamera();
        return;
    }
    openDevice(device, uvcId, forceReopen);
}

void TavroVideoPreview::openCamera(const QCameraDevice &device, bool forceReopen)
{
    if (device.isNull()) {
        closeCamera();
        return;
    }
    openDevice(device, cameraIdentity(device), forceReopen);
}

void TavroVideoPreview::openDevice(const QCameraDevice &device, const QByteArray &identity,
                                   bool forceReopen)
{
    if (identity.isEmpty()) {
        qWarning().noquote() << "[TavroVideoPreview] UVC not found:" << device.description();
        closeCamera();
        return;
    }
    if (!forceReopen && identity == m_boundId && m_camera) {
        if (m_camera->isActive()) {
            showVideoLabel();
            return;
        }
        // Bound to the same camera, stopped (detached or given up): restart it in place. A
        // camera plugged in again is a new device and is opened anew below.
        if (m_camera->cameraDevice() == device) {
            applyPreviewFormat(device);
            if (!m_session)
                m_session = new QMediaCaptureSession(this);
            attachPreviewSession();
            m_camera->setActive(true);
            return;
        }
    }

    closeCamera();
    m_camera = new QCamera(device, this);
    connect(m_camera, &QCamera::errorOccurred, this, [this](QCamera::Error, const QString &text) {
        qWarning().noquote() << "[TavroVideoPreview] 槽位" << m_slot << "相机错误:" << text;
    });
    // The format is chosen before the camera runs: a running camera does not reliably take one.
    applyPreviewFormat(device);
    m_session = new QMediaCaptureSession(this);
    // The sink goes on the session first: with the camera first the pipeline may stall.
    m_session->setVideoSink(m_sink);
    m_session->setCamera(m_camera);
    m_camera->setActive(true);
    m_boundId = identity;
    qDebug().noquote() << "[TavroVideoPreview] 槽位" << m_slot
                       << "打开预览:" << QString::fromUtf8(identity);
}

void TavroVideoPreview::applyPreviewFormat(const QCameraDevice &device)
{
    const QList<QCameraFormat> formats = device.videoFormats();
    const int chosen = choosePreviewFormat(describeFormats(formats));
    if (chosen < 0) {
        qDebug() << "[TavroVideoPreview] 槽位" << m_slot << "无合适的预览格式，使用默认格式";
        return;
    }
    m_camera->setCameraFormat(formats[chosen]);
}

void TavroVideoPreview::closeCamera()
{
    suspendVideoSurface();
    m_boundId.clear();
    m_lastFrameMs = 0;
    m_paintClock = PreviewPaintClock();
    if (m_camera) {
        m_camera->disconnect(this);
        m_camera->setActive(false);
    }
    if (m_session) {
        m_session->setCamera(nullptr);
        m_session->setVideoSink(nullptr);
        m_session->setVideoOutput(nullptr);
        delete m_session;
        m_session = nullptr;
    }
    delete m_camera;
    m_camera = nullptr;
}

bool TavroVideoPreview::isPreviewStreaming() const
{
    return m_camera && m_camera->isActive();
}

bool TavroVideoPreview::isPreviewStreamHealthy(qint64 maxAgeMs) const
{
    return previewStreamHealthy(isPreviewStreaming(), m_lastFrameMs, nowMs(), maxAgeMs);
}

void TavroVideoPreview::detachPreviewSession()
{
    if (!m_session)
        return;
    m_session->setCamera(nullptr);
    m_session->setVideoSink(nullptr);
    m_session->setVideoOutput(nullptr);
}

void TavroVideoPreview::attachPreviewSession()
{
    if (!m_session || !m_camera || !m_sink)
        return;
    m_session->setVideoSink(m_sink);
    m_session->setCamera(m_camera);
}

// ---- Frames --------------------------------------------------------------------------------

void TavroVideoPreview::onPreviewVideoFrame(const QVideoFrame &frame)
{
    if (!frame.isValid() || !isPreviewStreaming())
        return;
    const qint64 now = nowMs();
    m_lastFrameMs = now;
    ++m_receivedFrames;
    const qint64 frameMs = frame.startTime() >= 0 ? frame.startTime() / 1000 : -1;
    if (!m_videoLabel || !previewFrameIsPainted(m_paintClock, now, frameMs))
        return;
    m_paintClock = {now, frameMs};

    QVideoFrame mapped = frame;
    if (!mapped.map(QVideoFrame::ReadOnly))
        return;
    QImage image = imageOfMappedFrame(mapped);
    mapped.unmap();
    if (image.isNull())
        return;
    if (m_videoLabel->size() != image.size())
        image = image.scaled(m_videoLabel->size(), Qt::KeepAspectRatio, Qt::FastTransformation);
    m_videoLabel->setPixmap(QPixmap::fromImage(image));
    ++m_paintedFrames;
    showVideoLabel();
}

void TavroVideoPreview::showVideoLabel()
{
    if (!m_videoLabel->isHidden())
        return;
    m_videoLabel->setUpdatesEnabled(true);
    m_videoLabel->show();
}

void TavroVideoPreview::suspendVideoSurface()
{
    m_videoLabel->hide();
    m_videoLabel->clear();
    m_videoLabel->setUpdatesEnabled(false);
}

// ---- Placeholder, border, zoom -------------------------------------------------------------

void TavroVideoPreview::setMainOccupiedPlaceholder(bool on)
{
    if (!on) {
        m_placeholder->hide();
        return;
    }
    suspendVideoSurface();
    fitPlaceholder();
    m_placeholder->raise();
    m_placeholder->show();
}

bool TavroVideoPreview::isMainOccupiedPlaceholderShown() const
{
    return !m_placeholder->isHidden();
}

void TavroVideoPreview::fitPlaceholder()
{
    m_placeholder->setGeometry(m_surface->rect());
}

void TavroVideoPreview::applyNormalChrome()
{
    m_highlighted = false;
    m_surface->setStyleSheet(
        QStringLiteral("QFrame#%1 { background-color: black; border: 3px solid transparent; }")
            .arg(m_surface->objectName()));
}

void TavroVideoPreview::applyHighlightedChrome()
{
    m_highlighted = true;
    m_surface->setStyleSheet(
        QStringLiteral("QFrame#%1 { background-color: black; border: 3px solid #00c853; }")
            .arg(m_surface->objectName()));
}

void TavroVideoPreview::flashGreenBorderHint()
{
    m_flashTimer->stop();
    m_flashCounter = 0;
    applyHighlightedChrome();
    m_flashTimer->start();
}

void TavroVideoPreview::onFlashTick()
{
    const PreviewFlashStep step = previewFlashStep(m_flashCounter++);
    if (step.finished) {
        m_flashTimer->stop();
        m_flashCounter = 0;
        applyNormalChrome();
    } else if (step.highlighted != m_highlighted) {
        if (step.highlighted)
            applyHighlightedChrome();
        else
            applyNormalChrome();
    }
}

bool TavroVideoPreview::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_videoLabel && event->type() == QEvent::MouseButtonDblClick) {
        emit zoomRequested(m_slot);
        return true;
    }
    if (watched == m_surface && event->type() == QEvent::Resize)
        fitPlaceholder();
    return QWidget::eventFilter(watched, event);
}

void TavroVideoPreview::mouseDoubleClickEvent(QMouseEvent *event)
{
    // A tile without a picture (no camera, placeholder) can be zoomed too: the console page
    // then shows nothing, which is what that slot has.
    event->accept();
    emit zoomRequested(m_slot);
}

void TavroVideoPreview::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    fitPlaceholder();
}
