// tavrokvm-bench-recording: what a recording costs the live picture. The console view runs the
// virtual box camera in one format, first without and then with a recording, and prints for each
// phase the frames that reached the view and the frames painted per second, and the process's CPU
// time per second (100% = one core).
//
//   tavrokvm-bench-recording [--seconds N] [--format nv12|mjpeg|yuy2] [--size WxH] [--keep DIR]
//
// Default: NV12 1920x1080 (at 60 fps, the box's rate for it), 10 s per phase. --keep saves the
// recording in DIR (for gst-discoverer-1.0). The virtual camera draws its pictures in this process
// (and encodes them for MJPEG), which a real box does not: its cost is part of both phases.
#include <QApplication>
#include <QCamera>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTextStream>
#include <QThread>
#include <QTimer>

#include <sys/resource.h>

#include "console/tavrovideo.h"
#include "platform/cameraidentity.h"
#include "platform/recordingencoder.h"
#include "tests/support/modalcatcher.h"
#include "tests/support/tavrovideotestaccess.h"

namespace {

void quietLog(QtMsgType, const QMessageLogContext &, const QString &) {}

double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// The console view, counting the paints that show a picture it had not shown before.
class CountingView : public TavroVideo
{
public:
    int shown = 0;

protected:
    void paintEvent(QPaintEvent *event) override
    {
        TavroVideo::paintEvent(event);
        if (convertedSequence() != m_lastShown) {
            m_lastShown = convertedSequence();
            ++shown;
        }
    }

private:
    qint32 m_lastShown = -1;
};

struct Phase
{
    double receivedFps = 0;
    double shownFps = 0;
    double cpuPercent = 0;
};

// Runs the event loop for `ms`: the GUI thread sleeps between events as in the console.
void runFor(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

Phase measure(CountingView &view, int seconds)
{
    const quint32 received = view.frameSequence();
    const int shown = view.shown;
    const double cpu = cpuSeconds();
    QElapsedTimer wall;
    wall.start();
    runFor(seconds * 1000);
    const double elapsed = double(wall.elapsed()) / 1000.0;
    return {double(view.frameSequence() - received) / elapsed, double(view.shown - shown) / elapsed,
            100.0 * (cpuSeconds() - cpu) / elapsed};
}

QString line(const char *name, const Phase &phase)
{
    return QStringLiteral("%1  received %2 fps  shown %3 fps  cpu %4%\n")
        .arg(QLatin1String(name), -16)
        .arg(phase.receivedFps, 5, 'f', 1)
        .arg(phase.shownFps, 5, 'f', 1)
        .arg(phase.cpuPercent, 5, 'f', 0);
}

} // namespace

int main(int argc, char **argv)
{
    int seconds = 10;
    QString formatName = QStringLiteral("nv12");
    QSize size(1920, 1080);
    QString keep;
    for (int i = 1; i + 1 < argc; ++i) {
        if (qstrcmp(argv[i], "--seconds") == 0) {
            seconds = std::max(2, atoi(argv[++i]));
        } else if (qstrcmp(argv[i], "--format") == 0) {
            formatName = QString::fromLatin1(argv[++i]).toLower();
        } else if (qstrcmp(argv[i], "--size") == 0) {
            const QStringList wh = QString::fromLatin1(argv[++i]).split(QLatin1Char('x'));
            if (wh.size() == 2)
                size = QSize(wh[0].toInt(), wh[1].toInt());
        } else if (qstrcmp(argv[i], "--keep") == 0) {
            keep = QString::fromLocal8Bit(argv[++i]);
        }
    }
    const QVideoFrameFormat::PixelFormat pixelFormat =
        formatName == QLatin1String("mjpeg")  ? QVideoFrameFormat::Format_Jpeg
        : formatName == QLatin1String("yuy2") ? QVideoFrameFormat::Format_YUYV
                                              : QVideoFrameFormat::Format_NV12;

    QTemporaryDir dir;
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    if (qEnvironmentVariableIsEmpty("GST_PLUGIN_PATH"))
        qputenv("GST_PLUGIN_PATH", TAVROKVM_GST_PLUGIN_DIR);
    qputenv("QT_MEDIA_BACKEND", "gstreamer");
    qputenv("GST_REGISTRY", dir.filePath("registry.bin").toUtf8());
    qputenv("TAVROKVM_VCAM_DEVICES", "box:BENCHREC1");
    qputenv("TMPDIR", dir.path().toUtf8());

    QApplication app(argc, argv);
    QTextStream out(stdout);
    qInstallMessageHandler(quietLog);

    CountingView view;
    view.resize(1280, 720);
    QEventLoop startup;
    QObject::connect(&view, &TavroVideo::cameraStarted, &startup, &QEventLoop::quit);
    QTimer::singleShot(20000, &startup, &QEventLoop::quit);
    view.show();
    startup.exec();
    if (!view.isCameraActive()) {
        out << "bench: the camera did not start\n";
        return 1;
    }
    QCameraFormat wanted;
    for (const QCameraFormat &format :
         findCameraByIdentity(view.currentDeviceId()).videoFormats()) {
        if (format.pixelFormat() == pixelFormat && format.resolution() == size)
            wanted = format;
    }
    if (wanted.isNull() || !TavroVideoTestAccess::restartCameraInFormat(view, wanted)) {
        out << "bench: the camera offers no " << formatName << " " << size.width() << "x"
            << size.height() << "\n";
        return 1;
    }
    out << "camera: " << formatName << " " << size.width() << "x" << size.height() << " @ "
        << wanted.maxFrameRate() << " fps, view 1280x720, " << QThread::idealThreadCount()
        << " cores\n";
    out << "encoder: " << recordingEncoderDescription() << "\n";
    out.flush();
    runFor(2000);

    const Phase live = measure(view, seconds);
    out << line("live", live);
    out.flush();

    // The recording stops itself at the limit; its box is answered and its file kept or dropped.
    ModalCatcher catcher;
    QString saved;
    view.setSavePathChooser([&](const QString &, const QString &path, const QString &) {
        saved = keep.isEmpty() ? QString() : QDir(keep).filePath(QFileInfo(path).fileName());
        return saved;
    });
    TavroVideoTestAccess::setRecordingLimit(view, (seconds + 2) * 1000);
    view.beginScreenRecordingFromUvc();
    if (!view.isRecording()) {
        out << "bench: the recording did not start\n";
        return 1;
    }
    runFor(1000); // the encoder's start
    const Phase recording = measure(view, seconds);
    out << line("recording", recording);
    for (int waited = 0; view.isRecording() && waited < 30000; waited += 100)
        runFor(100);
    runFor(500);
    if (!saved.isEmpty())
        out << "kept: " << saved << " (" << QFileInfo(saved).size() / 1024 << " KiB)\n";
    return 0;
}
