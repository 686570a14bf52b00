// tavrokvm-bench-frames: the frame road of the console view, from a frame reaching the view to
// the end of the paint that shows it.
//
//   tavrokvm-bench-frames [--seconds N] [--view WxH]
//                                         every format and size for N seconds (default 5), in a
//                                         1280x720 and a 1920x1080 view (or the one given)
//   tavrokvm-bench-frames --soak MINUTES  1080p60 NV12 for that long, resident memory each minute
//   tavrokvm-bench-frames --cursor-correction [--seconds N]
//                                         1080p60 and 4K30 with cursor correction off, then on
//
// Frames are offered at the camera's rate by a precise timer, as the sink would deliver them; each
// is a fresh copy made on the GUI thread (the sink's own frames cost the GUI thread nothing, so
// the GUI lateness figures include that copy).
// "MJPEG" frames are what the capture pipeline hands over after its JPEG decoder: YUV420P. With
// TAVROKVM_GPU_VIDEO set (and OpenGL, i.e. on xcb), NV12, YUYV and UYVY take the GPU surface.
#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QHash>
#include <QPainter>
#include <QTemporaryDir>
#include <QTextStream>
#include <QTimer>
#include <QVideoFrame>

#include <sys/resource.h>

#include <algorithm>
#include <vector>

#include "console/tavrovideo.h"
#include "db/dbmanager.h"
#include "tests/support/tavrovideotestaccess.h"

namespace {

struct Config
{
    const char *name;
    QVideoFrameFormat::PixelFormat format;
    QSize size;
    int fps;
};

// A moving picture: a bright bar that moves one step per frame over a mid-grey field.
QVideoFrame makeFrame(const Config &config, int index)
{
    QVideoFrame frame(QVideoFrameFormat(config.size, config.format));
    if (!frame.map(QVideoFrame::WriteOnly))
        return QVideoFrame();
    const int w = config.size.width(), h = config.size.height();
    const bool packed = config.format == QVideoFrameFormat::Format_YUYV ||
                        config.format == QVideoFrameFormat::Format_UYVY;
    for (int plane = 0; plane < frame.planeCount(); ++plane) {
        const int rows = plane == 0 || packed ? h : h / 2;
        memset(frame.bits(plane), 128, size_t(frame.bytesPerLine(plane)) * size_t(rows));
    }
    const int bar = (index * 16) % std::max(1, w - 64);
    const int bytesPerPixel = packed ? 2 : 1;
    for (int y = 0; y < h; ++y)
        memset(frame.bits(0) + y * frame.bytesPerLine(0) + bar * bytesPerPixel, 235,
               size_t(64 * bytesPerPixel));
    frame.unmap();
    return frame;
}

// A new frame with the template's pixels. Every frame the sink delivers is a new one; reusing one
// would let the toolkit hand back the picture it converted the first time.
QVideoFrame freshCopy(const QVideoFrame &source)
{
    QVideoFrame in = source;
    QVideoFrame out(source.surfaceFormat());
    if (!in.map(QVideoFrame::ReadOnly))
        return QVideoFrame();
    if (out.map(QVideoFrame::WriteOnly)) {
        for (int plane = 0; plane < in.planeCount(); ++plane)
            memcpy(out.bits(plane), in.bits(plane),
                   size_t(std::min(in.mappedBytes(plane), out.mappedBytes(plane))));
        out.unmap();
    }
    in.unmap();
    return out;
}

// User and system time of the whole process so far.
double cpuSeconds()
{
    rusage usage{};
    if (getrusage(RUSAGE_SELF, &usage) != 0)
        return 0;
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

qint64 residentKiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

double percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const size_t at = std::min(values.size() - 1, size_t(p * double(values.size() - 1) + 0.5));
    return values[at];
}

// The console view, with the end of every paint that shows a new picture timed.
class TimedView : public TavroVideo
{
public:
    QElapsedTimer clock;
    QHash<quint32, qint64> arrivalNs;
    std::vector<double> latencyMs;
    qint32 lastShown = -1;
    int shown = 0;

    void offer(const QVideoFrame &frame)
    {
        arrivalNs.insert(frameSequence() + 1, clock.nsecsElapsed());
        processVideoFrame(frame);
    }

    // The GPU surface paints itself; its frame is on screen once the surface has been updated,
    // which this counts at the view's next event loop turn.
    void noteGpuFrame()
    {
        const qint32 seq = qint32(frameSequence());
        if (seq == lastShown)
            return;
        record(seq);
    }

protected:
    void paintEvent(QPaintEvent *event) override
    {
        TavroVideo::paintEvent(event);
        if (convertedSequence() != lastShown && !isGlSurfaceActive())
            record(convertedSequence());
    }

private:
    void record(qint32 seq)
    {
        lastShown = seq;
        ++shown;
        const auto arrival = arrivalNs.constFind(quint32(seq));
        if (arrival != arrivalNs.cend())
            latencyMs.push_back(double(clock.nsecsElapsed() - *arrival) / 1e6);
        arrivalNs.remove(quint32(seq));
    }
};

struct Result
{
    double offeredFps = 0; // the timer's whole-millisecond interval makes 60 fps 62.5
    double shownFps = 0;
    double p50 = 0, p99 = 0;
    double loopLateP99 = 0, loopLateMax = 0;
    double cpuMsPerFrame = 0; // whole process, the benchmark's own frame copies included
    qint64 rssKiB = 0;
};

Result run(const Config &config, double seconds, bool cursorCorrection = false,
           const QSize &viewSize = QSize(1280, 720))
{
    // Inside a window of its own, as the main window holds it.
    QWidget window;
    window.resize(viewSize);
    TimedView &view = *new TimedView;
    view.setParent(&window);
    view.setGeometry(QRect(QPoint(0, 0), viewSize));
    window.show();
    TavroVideoTestAccess::setCameraActive(view, true);
    view.applyCursorCorrectionRuntime(cursorCorrection);
    QCoreApplication::processEvents();

    std::vector<QVideoFrame> frames;
    for (int i = 0; i < 8; ++i)
        frames.push_back(makeFrame(config, i));

    // The GUI thread's lateness on a 1 ms timer shows whether input would wait behind frames.
    std::vector<double> lateness;
    QElapsedTimer loopClock;
    loopClock.start();
    qint64 lastTick = 0;
    QTimer probe;
    probe.setTimerType(Qt::PreciseTimer);
    probe.setInterval(1);
    QObject::connect(&probe, &QTimer::timeout, [&] {
        const qint64 now = loopClock.nsecsElapsed();
        if (lastTick)
            lateness.push_back(std::max(0.0, double(now - lastTick) / 1e6 - 1.0));
        lastTick = now;
    });

    int offered = 0;
    QTimer source;
    source.setTimerType(Qt::PreciseTimer);
    source.setInterval(1000 / config.fps);
    QObject::connect(&source, &QTimer::timeout, [&] {
        view.offer(freshCopy(frames[size_t(offered++ % int(frames.size()))]));
        if (view.isGlSurfaceActive())
            QTimer::singleShot(0, &view, [&view] { view.noteGpuFrame(); });
    });

    const double cpuAtStart = cpuSeconds();
    view.clock.start();
    probe.start();
    source.start();
    // A loop that sleeps between events: spinning on processEvents() would count as CPU time.
    QEventLoop loop;
    QTimer::singleShot(int(seconds * 1000), &loop, &QEventLoop::quit);
    loop.exec();
    source.stop();
    probe.stop();
    const double cpuUsed = cpuSeconds() - cpuAtStart;

    Result result;
    result.cpuMsPerFrame = offered > 0 ? cpuUsed * 1000.0 / offered : 0;
    result.offeredFps = offered / seconds;
    result.shownFps = view.shown / seconds;
    result.p50 = percentile(view.latencyMs, 0.5);
    result.p99 = percentile(view.latencyMs, 0.99);
    result.loopLateP99 = percentile(lateness, 0.99);
    result.loopLateMax = lateness.empty() ? 0 : *std::max_element(lateness.begin(), lateness.end());
    result.rssKiB = residentKiB();
    return result;
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QTemporaryDir data;
    DBManager::instance()->initDatabase(data.filePath(QStringLiteral("bench.db")));
    // No camera opens by itself: the benchmark is the only source of frames.
    DBManager::instance()->setAppSetting(QStringLiteral("multi_same_display"), QStringLiteral("1"));
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &text) {
        if (type >= QtWarningMsg)
            QTextStream(stderr) << text << Qt::endl;
    });

    QTextStream out(stdout);
    const QStringList args = app.arguments();
    const int soakAt = args.indexOf(QStringLiteral("--soak"));
    if (soakAt > 0 && soakAt + 1 < args.size()) {
        const int minutes = args.at(soakAt + 1).toInt();
        const Config config{"NV12", QVideoFrameFormat::Format_NV12, {1920, 1080}, 60};
        out << "1080p60 NV12 soak, resident memory per minute (KiB)" << Qt::endl;
        for (int minute = 1; minute <= minutes; ++minute) {
            const Result r = run(config, 60);
            out << "  minute " << minute << ": " << r.rssKiB << " KiB, shown " << r.shownFps
                << " fps" << Qt::endl;
        }
        return 0;
    }

    const int secondsAt = args.indexOf(QStringLiteral("--seconds"));
    const double seconds =
        secondsAt > 0 && secondsAt + 1 < args.size() ? args.at(secondsAt + 1).toDouble() : 5.0;
    if (args.contains(QStringLiteral("--cursor-correction"))) {
        const Config corrected[] = {
            {"MJPEG (YUV420P)", QVideoFrameFormat::Format_YUV420P, {1920, 1080}, 60},
            {"MJPEG (YUV420P)", QVideoFrameFormat::Format_YUV420P, {3840, 2160}, 30},
        };
        out << "cursor correction, view 1280x720, " << seconds << " s each" << Qt::endl;
        out << "format            size        correction  shown fps  GUI late p99/max ms"
            << Qt::endl;
        for (const Config &config : corrected) {
            for (const bool on : {false, true}) {
                const Result r = run(config, seconds, on);
                out << QString::asprintf("%-17s %4dx%-4d   %-3s         %6.1f     %5.1f / %-6.1f",
                                         config.name, config.size.width(), config.size.height(),
                                         on ? "on" : "off", r.shownFps, r.loopLateP99,
                                         r.loopLateMax)
                    << Qt::endl;
            }
        }
        return 0;
    }
    QList<QSize> views{QSize(1280, 720), QSize(1920, 1080)};
    const int viewAt = args.indexOf(QStringLiteral("--view"));
    if (viewAt > 0 && viewAt + 1 < args.size()) {
        const QStringList sides = args.at(viewAt + 1).split(QLatin1Char('x'));
        if (sides.size() == 2 && sides.at(0).toInt() > 0 && sides.at(1).toInt() > 0)
            views = {QSize(sides.at(0).toInt(), sides.at(1).toInt())};
    }
    const Config configs[] = {
        {"MJPEG (YUV420P)", QVideoFrameFormat::Format_YUV420P, {1280, 720}, 60},
        {"MJPEG (YUV420P)", QVideoFrameFormat::Format_YUV420P, {1920, 1080}, 60},
        {"MJPEG (YUV420P)", QVideoFrameFormat::Format_YUV420P, {3840, 2160}, 30},
        {"NV12", QVideoFrameFormat::Format_NV12, {1280, 720}, 60},
        {"NV12", QVideoFrameFormat::Format_NV12, {1920, 1080}, 60},
        {"NV12", QVideoFrameFormat::Format_NV12, {3840, 2160}, 30},
        {"YUYV", QVideoFrameFormat::Format_YUYV, {1280, 720}, 60},
        {"YUYV", QVideoFrameFormat::Format_YUYV, {1920, 1080}, 60},
        {"YUYV", QVideoFrameFormat::Format_YUYV, {3840, 2160}, 30},
        {"UYVY", QVideoFrameFormat::Format_UYVY, {1920, 1080}, 60},
        {"UYVY", QVideoFrameFormat::Format_UYVY, {3840, 2160}, 30},
    };
    for (const QSize &viewSize : views) {
        out << "frame road, view " << viewSize.width() << "x" << viewSize.height() << ", "
            << seconds << " s each, path "
            << (TavroVideo::gpuVideoUsable() ? "GPU for NV12/YUYV/UYVY" : "CPU") << ", platform "
            << QGuiApplication::platformName() << Qt::endl;
        out << "format            size        offered  shown fps  latency p50/p99 ms  "
               "GUI late p99/max ms  CPU ms/frame  RSS MiB"
            << Qt::endl;
        for (const Config &config : configs) {
            const Result r = run(config, seconds, false, viewSize);
            out << QString::asprintf("%-17s %4dx%-4d   %5.1f    %6.1f     %7.1f / %-7.1f    "
                                     "%5.1f / %-6.1f      %6.2f     %5.0f",
                                     config.name, config.size.width(), config.size.height(),
                                     r.offeredFps, r.shownFps, r.p50, r.p99, r.loopLateP99,
                                     r.loopLateMax, r.cpuMsPerFrame, r.rssKiB / 1024.0)
                << Qt::endl;
        }
    }
    return 0;
}
