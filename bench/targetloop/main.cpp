// tavrokvm-bench-loop: glass to glass in simulation. A key event delivered to the console view
// travels to the simulated box (a tavrokvm-boxsim process), which types it on its target's
// screen; the virtual camera shows that screen at 1080p60 (NV12), and the console paints it. Each
// key is timed from its delivery to the end of the first paint that shows the changed text area,
// split at the arrival of the first frame that shows it: capture (key -> frame reaches the
// console: the simulated box and camera) and console (frame arrival -> painted: ours).
//
//   tavrokvm-bench-loop [--keys N] [--path cpu|gpu] [-- box options...]
//
// Without --path it runs itself once per path (the GPU path needs OpenGL: an X display).
// Box options go to tavrokvm-boxsim, e.g. -- --hid-poll-ms 8 --capture-delay-ms 30.
#include <QApplication>
#include <QCameraDevice>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QKeyEvent>
#include <QMediaDevices>
#include <QOpenGLWidget>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextStream>
#include <QVideoFrame>
#include <QVideoSink>

#include <algorithm>
#include <functional>
#include <vector>

#include "console/tavrovideo.h"
#include "db/dbmanager.h"
#include "targetscreen.h"
#include "tests/support/tavrovideotestaccess.h"
#include "ui/mainwindow.h"
#include "vcamdesktop.h"

namespace {

constexpr char kSerial[] = "BENCHLP1";
constexpr double kFramePeriodMs = 1000.0 / 60;

void quietLog(QtMsgType, const QMessageLogContext &, const QString &) {}

double percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(p * double(values.size() - 1) + 0.5))];
}

// Follows the frames reaching the view and the paints that show them.
class LoopProbe : public QObject
{
public:
    LoopProbe(TavroVideo *view, const targetscreen::State &geometry)
        : m_view(view), m_geometry(geometry)
    {
        m_clock.start();
        // Connected after the view's own handler: the view has counted the frame already.
        auto *sink = view->findChild<QVideoSink *>();
        connect(sink, &QVideoSink::videoFrameChanged, this, &LoopProbe::onFrame);
        view->installEventFilter(this);
    }

    // Waits for the text edit count `code`: true when a frame showing it arrived and was painted.
    bool waitFor(int code, qint64 &arrivalNs, qint64 &paintedNs)
    {
        m_wanted = code;
        m_arrivalNs = m_paintedNs = -1;
        QElapsedTimer limit;
        limit.start();
        while (m_paintedNs < 0 && limit.elapsed() < 2000) {
            watchGlSurface();
            QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents,
                                            5);
        }
        arrivalNs = m_arrivalNs;
        paintedNs = m_paintedNs;
        return m_paintedNs >= 0;
    }

    qint64 now() const { return m_clock.nsecsElapsed(); }
    // When the matching frame arrived, on the clock the box stamps its changes with.
    quint64 arrivalMonotonicNs() const { return m_arrivalMonotonicNs; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() != QEvent::Paint || m_arrivalNs < 0 || m_paintedNs >= 0 ||
            m_view->isGlSurfaceActive())
            return false;
        // Paint now, inside the filter, so that the time taken is the end of the paint.
        static_cast<QObject *>(watched)->event(event);
        if (m_view->convertedSequence() >= m_arrivalSequence)
            m_paintedNs = now();
        return true;
    }

private:
    void onFrame(const QVideoFrame &source)
    {
        if (m_arrivalNs >= 0 || m_wanted < 0)
            return;
        const qint64 at = now();
        QVideoFrame frame = source;
        if (!frame.map(QVideoFrame::ReadOnly))
            return;
        const int step = frame.pixelFormat() == QVideoFrameFormat::Format_YUYV ? 2 : 1;
        const int code = vcam::readEditCode(m_geometry, frame.bits(0), frame.bytesPerLine(0), step,
                                            frame.width(), frame.height());
        frame.unmap();
        if (code == m_wanted) {
            m_arrivalNs = at;
            m_arrivalMonotonicNs = targetscreen::monotonicNs();
            m_arrivalSequence = qint32(m_view->frameSequence());
        }
    }

    void watchGlSurface()
    {
        if (auto *surface = m_view->findChild<QOpenGLWidget *>();
            surface && surface != m_glSurface) {
            m_glSurface = surface;
            // The surface's picture is on screen once its window has swapped buffers.
            connect(surface, &QOpenGLWidget::frameSwapped, this, [this] {
                if (m_arrivalNs >= 0 && m_paintedNs < 0 && m_view->isGlSurfaceActive())
                    m_paintedNs = now();
            });
        }
    }

    TavroVideo *m_view;
    targetscreen::State m_geometry;
    QOpenGLWidget *m_glSurface = nullptr;
    QElapsedTimer m_clock;
    int m_wanted = -1;
    qint64 m_arrivalNs = -1;
    quint64 m_arrivalMonotonicNs = 0;
    qint32 m_arrivalSequence = -1;
    qint64 m_paintedNs = -1;
};

bool waitUntil(const std::function<bool()> &done, int ms)
{
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > ms)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    return true;
}

int runPath(const QString &path, int keys, const QStringList &boxOptions)
{
    QTextStream out(stdout);
    QTemporaryDir dir;
    const bool gpu = path == QLatin1String("gpu");
    if (gpu)
        qputenv("TAVROKVM_GPU_VIDEO", "1");
    else
        qunsetenv("TAVROKVM_GPU_VIDEO");
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && qEnvironmentVariableIsEmpty("DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    if (qEnvironmentVariableIsEmpty("GST_PLUGIN_PATH"))
        qputenv("GST_PLUGIN_PATH", TAVROKVM_GST_PLUGIN_DIR);
    qputenv("QT_MEDIA_BACKEND", "gstreamer");
    qputenv("GST_REGISTRY", QFile::encodeName(dir.filePath("registry.bin")));
    qputenv("TAVROKVM_VCAM_DEVICES", QByteArray("box:") + kSerial);
    qputenv("TAVROKVM_VCAM_TARGETS", QFile::encodeName(dir.path()));
    const QString link = dir.filePath("tk-box");
    qputenv("TAVROKVM_EXTRA_SERIAL_PORTS", (link + "=TK CDC").toUtf8());
    const QString screenFile = dir.filePath(QString::fromLatin1(kSerial) + ".screen");

    QProcess box;
    box.setProgram(QStringLiteral(TAVROKVM_BOXSIM_PATH));
    box.setArguments(QStringList{"--link", link, "--screen-file", screenFile} + boxOptions);
    box.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    box.start();
    if (!box.waitForReadyRead(5000) || !box.readLine().contains("\"ready\"")) {
        out << "bench: the simulated box did not start\n";
        return 1;
    }

    int argc = 1;
    char name[] = "tavrokvm-bench-loop";
    char *argv[] = {name, nullptr};
    QApplication app(argc, argv);
    qInstallMessageHandler(quietLog);
    DBManager::instance()->initDatabase(dir.filePath("bench.db"));
    MainWindow window;
    window.resize(1280, 800);
    TavroVideo *view = window.videoView();
    bool started = false;
    QObject::connect(view, &TavroVideo::cameraStarted, [&] { started = true; });
    window.show();
    if (!waitUntil([&] { return started; }, 20000)) {
        out << "bench: the camera did not start\n";
        return 1;
    }
    // Let the console settle on its format, then run the camera at 1080p60 NV12.
    waitUntil([] { return false; }, 3000);
    QCameraFormat wanted;
    for (const QCameraDevice &device : QMediaDevices::videoInputs()) {
        for (const QCameraFormat &format : device.videoFormats()) {
            if (format.pixelFormat() == QVideoFrameFormat::Format_NV12 &&
                format.resolution() == QSize(1920, 1080) && format.maxFrameRate() >= 59)
                wanted = format;
        }
    }
    if (wanted.isNull() || !TavroVideoTestAccess::restartCameraInFormat(*view, wanted)) {
        out << "bench: the camera does not run at 1080p60 NV12\n";
        return 1;
    }
    window.activateWindow();
    view->setFocus();
    if (!waitUntil([&] { return view->isAppReallyInForeground(); }, 5000)) {
        out << "bench: the view did not get the keyboard\n";
        return 1;
    }

    targetscreen::Reader reader(screenFile.toStdString());
    targetscreen::State geometry;
    if (!waitUntil([&] { return reader.read(geometry, 0); }, 5000)) {
        out << "bench: the box's screen cannot be read\n";
        return 1;
    }
    LoopProbe probe(view, geometry);
    waitUntil([] { return false; }, 1000);

    std::vector<double> total, capture, console, boxShare, cameraShare;
    int lost = 0;
    for (int i = 0; i < keys; ++i) {
        // An X, then a Backspace: the text stays short and every key changes it.
        const bool erase = i % 2 == 1;
        const Qt::Key key = erase ? Qt::Key_Backspace : Qt::Key_X;
        const QString text = erase ? QStringLiteral("\b") : QStringLiteral("x");
        // Without a window manager the window can lose activation when the GPU surface first
        // shows; keys of an inactive console are not sent.
        if (!view->isAppReallyInForeground()) {
            window.activateWindow();
            view->setFocus();
            waitUntil([&] { return view->isAppReallyInForeground(); }, 2000);
        }
        reader.read(geometry, 0);
        const int wanted = int((geometry.textEdits + 1) & 0xFFFF);
        QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier, text);
        QKeyEvent release(QEvent::KeyRelease, key, Qt::NoModifier, text);
        const qint64 t0 = probe.now();
        const quint64 t0Monotonic = targetscreen::monotonicNs();
        QApplication::sendEvent(view, &press);
        QApplication::sendEvent(view, &release);
        qint64 arrival = -1;
        qint64 painted = -1;
        if (!probe.waitFor(wanted, arrival, painted)) {
            ++lost;
            continue;
        }
        total.push_back(double(painted - t0) / 1e6);
        capture.push_back(double(arrival - t0) / 1e6);
        console.push_back(double(painted - arrival) / 1e6);
        reader.read(geometry, 0);
        boxShare.push_back(double(qint64(geometry.textChangedNs - t0Monotonic)) / 1e6);
        cameraShare.push_back(double(qint64(probe.arrivalMonotonicNs() - geometry.textChangedNs)) /
                              1e6);
        // A pause of a varying length, so that keys fall on every phase of the frame period.
        const int pauseMs = 20 + (i * 7) % 17;
        waitUntil([] { return false; }, pauseMs);
    }

    out << QStringLiteral("%1 path (%2), %3 keys at 1080p60 NV12, frame period %4 ms%5\n")
               .arg(gpu ? "GPU" : "CPU")
               .arg(view->isGlSurfaceActive() ? "GPU surface" : "painter")
               .arg(keys)
               .arg(kFramePeriodMs, 0, 'f', 1)
               .arg(boxOptions.isEmpty() ? QString()
                                         : QStringLiteral(", box ") + boxOptions.join(' '));
    const auto row = [&](const char *what, const std::vector<double> &ms) {
        out << QStringLiteral("  %1 median %2 ms, p99 %3 ms\n")
                   .arg(QLatin1String(what), -42)
                   .arg(percentile(ms, 0.5), 5, 'f', 1)
                   .arg(percentile(ms, 0.99), 5, 'f', 1);
    };
    row("glass to glass (key -> painted):", total);
    row("capture (key -> frame reaches console):", capture);
    row("  of which box (key -> target's text changed):", boxShare);
    row("  of which camera (text changed -> frame arrives):", cameraShare);
    row("console (frame arrival -> painted):", console);
    if (lost)
        out << "  keys whose picture never came: " << lost << "\n";
    out.flush();
    window.close();
    box.terminate();
    box.waitForFinished(5000);
    return lost ? 1 : 0;
}

} // namespace

int main(int argc, char **argv)
{
    int keys = 200;
    QString path;
    QStringList boxOptions;
    for (int i = 1; i < argc; ++i) {
        if (qstrcmp(argv[i], "--") == 0) {
            for (++i; i < argc; ++i)
                boxOptions << QString::fromLocal8Bit(argv[i]);
        } else if (qstrcmp(argv[i], "--keys") == 0 && i + 1 < argc) {
            keys = std::max(2, atoi(argv[++i]));
        } else if (qstrcmp(argv[i], "--path") == 0 && i + 1 < argc) {
            path = QString::fromLatin1(argv[++i]);
        }
    }
    if (!path.isEmpty())
        return runPath(path, keys, boxOptions);

    // Each path in a process of its own: the GPU choice is made once per process.
    int failures = 0;
    for (const char *each : {"cpu", "gpu"}) {
        if (each == QLatin1String("gpu") && qEnvironmentVariableIsEmpty("DISPLAY")) {
            QTextStream(stdout) << "GPU path: skipped (no X display for OpenGL)\n";
            continue;
        }
        QStringList arguments{"--keys", QString::number(keys), "--path", QString::fromLatin1(each)};
        if (!boxOptions.isEmpty())
            arguments << "--" << boxOptions;
        QProcess child;
        child.setProcessChannelMode(QProcess::ForwardedChannels);
        child.start(QString::fromLocal8Bit(argv[0]), arguments);
        child.waitForFinished(-1);
        failures += child.exitCode() != 0;
    }
    return failures;
}
