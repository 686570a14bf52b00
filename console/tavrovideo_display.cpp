// Console view: frames from the capture session on screen. One decode job at a time converts the
// newest frame on the global thread pool, straight to the size it is shown at; the paint only
// places the result in the letterboxed rectangle.
#include "console/tavrovideo.h"

#include <QCamera>
#include <QCoreApplication>
#include <QDebug>
#include <QFutureWatcher>
#include <QPainter>
#include <QResizeEvent>
#include <QTimer>
#include <QtConcurrent/QtConcurrentRun>

#include "console/capturerules.h"
#include "console/frameimage.h"
#include "console/gl/videoglsurface.h"
#include "console/input/bordercheck.h"
#include "console/yuvconvert.h"

namespace {

constexpr int kFirstFramesLogged = 10;
constexpr int kFpsWindowMs = 1000;
constexpr int kRenderReportEveryWindows = 60;
constexpr int kPaintGeometryLogs = 5;
constexpr int kPaintFailureLogs = 3;
constexpr int kMemoryCleanupEveryRuns = 10;

} // namespace

void TavroVideo::processVideoFrame(const QVideoFrame &frame)
{
    if (!m_cameraActive || !frame.isValid())
        return;

    m_frameAgeClock.start();
    if (!m_audioPassthroughOn)
        syncAudioPassthroughState();
    m_lastFrameTimeMs = nowMs();

    static quint64 framesSeen = 0;
    ++framesSeen;
    const QString formatName = getPixelFormatString(frame.pixelFormat());
    if (framesSeen <= kFirstFramesLogged) {
        qDebug().noquote().nospace()
            << "[设备切换调试] 新设备第" << framesSeen << "帧"
            << " 尺寸:" << frame.width() << "x" << frame.height() << " 格式:" << formatName
            << " 设备ID:" << QString::fromUtf8(m_currentDeviceId);
        if (framesSeen == 1) {
            qDebug() << "[第一帧] 收到第一帧视频数据，视频显示应该开始工作";
            qDebug().noquote().nospace() << "[第一帧] 帧尺寸:" << frame.width() << "x"
                                         << frame.height() << " 像素格式:" << formatName;
        }
    }

    if (frame.size() != m_negotiatedResolution) {
        qDebug() << "[TavroVideo::processVideoFrame] 实际帧尺寸更新: 从" << m_negotiatedResolution
                 << "到" << frame.size();
        m_negotiatedResolution = frame.size();
        invalidateActualVideoDisplayRect();
        if (frame.width() >= 1 && frame.height() >= 1) {
            const double ratio = double(frame.width()) / frame.height();
            emit aspectRatioChanged(ratio);
            qDebug() << "[TavroVideo] 已自动调整窗口比例为:" << ratio;
        }
    }

    if (frame.width() > frame.height()) {
        static quint64 landscapeFramesSeen = 0;
        const bool due = borderCheckDue(landscapeFramesSeen++, m_blackBorderInfo);
        if (m_cursorCorrectionEnabled && (due || m_borderCheckRequested)) {
            m_borderCheckRequested = false;
            scheduleJpegBorderCheckAsync(frame);
        }
    }

    m_lastFrame = frame;
    ++m_frameSequence;

    presentVideoFrame(frame);
    updateWatermark();

    static quint64 measurementWindows = 0;
    ++m_framesInWindow;
    const qint64 now = nowMs();
    if (m_fpsWindowStartMs == 0)
        m_fpsWindowStartMs = now;
    const qint64 elapsed = now - m_fpsWindowStartMs;
    if (elapsed >= kFpsWindowMs) {
        m_measuredFps = m_framesInWindow / (elapsed / 1000.0);
        m_framesInWindow = 0;
        m_fpsWindowStartMs = now;
        if (++measurementWindows % kRenderReportEveryWindows == 0) {
            qDebug() << "[视频渲染] === 渲染报告 ===";
            qDebug() << "  实测FPS:" << m_measuredFps;
            qDebug() << "  协商FPS:" << m_negotiatedFps;
            qDebug().noquote().nospace() << "  分辨率:" << frame.width() << "x" << frame.height();
            qDebug().noquote() << "  像素格式:" << formatName;
            qDebug() << "  渲染路径:"
                     << (m_glSurfaceActive ? "GPU着色器(VideoGlSurface)" : "CPU异步解码(QPainter)");
            qDebug() << "  MJPEG:"
                     << (frame.pixelFormat() == QVideoFrameFormat::Format_Jpeg ? "是" : "否");
            qDebug().noquote() << QString(42, QLatin1Char('='));
        }
    }
}

bool TavroVideo::gpuVideoRequested()
{
    return qEnvironmentVariableIsSet("TAVROKVM_GPU_VIDEO");
}

bool TavroVideo::gpuVideoUsable()
{
    if (!gpuVideoRequested())
        return false;
    static const bool usable = [] {
        const bool available = VideoGlSurface::openGlAvailable();
        if (!available)
            qWarning() << "[TavroVideo] 已设置 TAVROKVM_GPU_VIDEO，但无法创建 OpenGL 3.3 "
                          "上下文，视频改走 CPU 路径";
        return available;
    }();
    return usable;
}

// NV12, YUYV and UYVY go to the GPU surface when it can be used; every other frame, and every
// frame without it, is converted on the CPU. A stream that changes from one to the other without
// a close hides the surface, or its last picture would stay over the view.
void TavroVideo::presentVideoFrame(const QVideoFrame &frame)
{
    if (gpuVideoUsable() && VideoGlSurface::canFastUpload(frame.pixelFormat())) {
        ensureVideoGlSurface();
        m_glSurfaceActive = true;
        if (m_glSurface->geometry() != rect())
            m_glSurface->setGeometry(rect());
        m_glSurface->setVideoFrame(frame);
        if (m_glSurface->isVisible())
            return;
        m_glSurface->lower();
        m_glSurface->show();
        raiseOverlaysAboveVideo();
        return;
    }
    if (m_glSurfaceActive) {
        qDebug() << "[TavroVideo] 帧格式不再适用 GPU 着色器，切换到 CPU 路径";
        m_glSurface->hide();
        m_glSurfaceActive = false;
    }
    m_pendingDecodeFrame = frame;
    if (!m_decodeBusy)
        startAsyncFrameDecodeWorker();
}

void TavroVideo::ensureVideoGlSurface()
{
    if (m_glSurface)
        return;
    m_glSurface = new VideoGlSurface(this);
    m_glSurface->setGeometry(rect());
    m_glSurface->hide();
}

void TavroVideo::releaseVideoGlSurface()
{
    if (m_glSurface) {
        m_glSurface->hide();
        m_glSurface->deleteLater();
        m_glSurface = nullptr;
    }
    m_glSurfaceActive = false;
}

// The floating toolbar, its switch and the status label stay above the picture once they exist.
// The border measurement joins here with cursor correction.

// Audio pass-through follows the frames once audio pairing is built.

void TavroVideo::startAsyncFrameDecodeWorker()
{
    const QVideoFrame frame = m_pendingDecodeFrame;
    if (!frame.isValid()) {
        m_decodeBusy = false;
        return;
    }
    m_decodeBusy = true;
    ++m_decodeJobsStarted;
    const quint32 generation = bumpFrameGeneration();
    const quint32 sequence = m_frameSequence;
    const QSize size = displayPictureSize();
    if (!m_displayScratch)
        m_displayScratch = std::make_shared<FrameScratch>();
    const std::shared_ptr<FrameScratch> scratch = m_displayScratch;
    // The job only sees a shared copy of the generation, to skip obviously stale work; the
    // completion checks the view's own value again on the GUI thread.
    const std::shared_ptr<std::atomic<quint32>> liveGeneration = m_sharedFrameGeneration;
    auto *watcher = new QFutureWatcher<QImage>(this);
    connect(watcher, &QFutureWatcher<QImage>::finished, this,
            [this, watcher, generation, sequence, size] {
                watcher->deleteLater();
                onFrameDecoded(generation, sequence, size, watcher->result());
            });
    watcher->setFuture(
        QtConcurrent::run([frame, generation, liveGeneration, size, scratch]() -> QImage {
            if (liveGeneration->load() != generation)
                return QImage();
            QVideoFrame copy = frame;
            if (!copy.isValid() || !copy.map(QVideoFrame::ReadOnly))
                return QImage();
            QImage image = displayImageOfMappedFrame(copy, size, *scratch);
            copy.unmap();
            return image;
        }));
}

quint32 TavroVideo::bumpFrameGeneration()
{
    ++m_frameGeneration;
    m_sharedFrameGeneration->store(m_frameGeneration);
    return m_frameGeneration;
}

void TavroVideo::onFrameDecoded(quint32 generation, quint32 sequence, const QSize &size,
                                const QImage &image)
{
    if (generation != m_frameGeneration)
        return;
    if (!image.isNull()) {
        m_convertedImage = image;
        m_convertedImage.setDevicePixelRatio(devicePixelRatio());
        m_convertedSequence = qint32(sequence);
        scheduleVideoPaintUpdate();
    }
    // A newer frame waits, or the view changed size while this one was converted: the pending
    // frame is the newest, and converting it again at the new size keeps the picture unstretched.
    const bool resized = !m_glSurfaceActive && size != displayPictureSize();
    if ((sequence < m_frameSequence || resized) && m_pendingDecodeFrame.isValid())
        startAsyncFrameDecodeWorker();
    else
        m_decodeBusy = false;
}

void TavroVideo::scheduleVideoPaintUpdate()
{
    if (m_paintScheduled)
        return;
    m_paintScheduled = true;
    QTimer::singleShot(0, this, [this] {
        m_paintScheduled = false;
        update();
    });
}

void TavroVideo::paintEvent(QPaintEvent *)
{
    static int paintGeometryLogs = 0;
    static int paintFailureLogs = 0;
    static int skippedPaintLogs = 0;
    if (m_glSurfaceActive && m_glSurface && m_glSurface->isVisible())
        return;
    if (!isVisible() || width() < 1 || height() < 1) {
        if (skippedPaintLogs++ < kPaintFailureLogs)
            qDebug() << "[TavroVideo::paintEvent] 跳过绘制 - visible:" << isVisible()
                     << "size:" << size();
        return;
    }
    QPainter painter(this);
    if (!painter.isActive()) {
        if (paintFailureLogs++ < kPaintFailureLogs)
            qDebug() << "[TavroVideo::paintEvent] QPainter "
                        "初始化失败，跳过绘制（OpenGL 上下文可能尚未就绪）";
        QTimer::singleShot(16, this, qOverload<>(&QWidget::update));
        return;
    }
    if (m_convertedImage.isNull()) {
        painter.fillRect(rect(), Qt::black);
        return;
    }
    // The picture was converted at the displayed rectangle's size and is copied as it is. Between
    // a resize and its re-conversion it keeps its own size, centred where the picture goes. Only
    // the bars around it are filled: a full-view fill first would write every pixel twice.
    QRect area = getActualVideoDisplayRect();
    if (area.isNull())
        area = rect();
    const QSize shown = m_convertedImage.deviceIndependentSize().toSize();
    const QRect target(area.x() + (area.width() - shown.width()) / 2,
                       area.y() + (area.height() - shown.height()) / 2, shown.width(),
                       shown.height());
    for (const QRect &bar : QRegion(rect()).subtracted(QRegion(target)))
        painter.fillRect(bar, Qt::black);
    if (paintGeometryLogs++ < kPaintGeometryLogs)
        qDebug() << "[TavroVideo::paintEvent] 绘制视频帧 - 帧尺寸:" << m_convertedImage.size()
                 << "窗口尺寸:" << size() << "目标区域:" << target;
    painter.drawImage(target.topLeft(), m_convertedImage);
}

void TavroVideo::resizeEvent(QResizeEvent *event)
{
    invalidateActualVideoDisplayRect();
    if (m_glSurface)
        m_glSurface->setGeometry(rect());
    layoutOverlays();
    // The held frame once more at the new size; a running job does the same when it ends.
    if (!m_glSurfaceActive && !m_decodeBusy && !m_convertedImage.isNull() &&
        m_convertedImage.size() != displayPictureSize())
        startAsyncFrameDecodeWorker();
    QWidget::resizeEvent(event);
}

QSize TavroVideo::videoContentSizeForLayout() const
{
    if (m_negotiatedResolution.width() >= 1 && m_negotiatedResolution.height() >= 1)
        return m_negotiatedResolution;
    // The converted image has the size it is shown at, not the frame's.
    if (m_lastFrame.isValid())
        return m_lastFrame.size();
    return QSize(-1, -1);
}

QRect TavroVideo::getActualVideoDisplayRect() const
{
    // A hidden view is resized without a resize event: the size the cache was made for counts.
    if (!m_displayRectCacheValid || m_displayRectCacheViewSize != size()) {
        m_displayRectCache = letterboxRect(size(), videoContentSizeForLayout());
        m_displayRectCacheViewSize = size();
        m_displayRectCacheValid = true;
    }
    return m_displayRectCache;
}

void TavroVideo::invalidateActualVideoDisplayRect()
{
    m_displayRectCacheValid = false;
}

QSize TavroVideo::displayPictureSize() const
{
    return picturePixelSize(getActualVideoDisplayRect(), devicePixelRatio());
}

void TavroVideo::clearDisplayState()
{
    m_lastFrame = QVideoFrame();
    m_lastFrameTimeMs = 0;
    m_convertedImage = QImage();
    m_pendingDecodeFrame = QVideoFrame();
    m_decodeBusy = false;
    m_displayScratch.reset();
    bumpFrameGeneration();
    m_paintScheduled = false;
}

void TavroVideo::monitorMemoryUsage()
{
    static int runs = 0;
    qDebug() << "[内存监控] === 当前资源使用情况 ===";
    qDebug() << "  最后一帧:" << (m_lastFrame.isValid() ? "有效" : "无效");
    if (m_lastFrame.isValid()) {
        qDebug().noquote() << "  帧格式:" << getPixelFormatString(m_lastFrame.pixelFormat());
        qDebug().noquote()
            << "  帧尺寸:"
            << QStringLiteral("%1x%2").arg(m_lastFrame.width()).arg(m_lastFrame.height());
    }
    qDebug() << "  控制面板: 已合并到flowPanel中";
    qDebug() << "  相机状态:" << (m_camera && m_camera->isActive() ? "活跃" : "非活跃");
    qDebug().noquote() << QString(37, QLatin1Char('='));
    if (++runs % kMemoryCleanupEveryRuns == 0)
        performMemoryCleanup();
}

void TavroVideo::performMemoryCleanup()
{
    qDebug() << "[内存清理] 开始执行内存清理...";
    QCoreApplication::processEvents();
    qDebug() << "[内存清理] 硬解码零拷贝渲染内存清理完成";
}

void TavroVideo::forceGarbageCollection()
{
    qDebug() << "[TavroVideo] 强制垃圾回收开始";
    m_lastFrame = QVideoFrame();
    qDebug() << "[TavroVideo] 强制垃圾回收完成";
}
