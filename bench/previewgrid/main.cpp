// tavrokvm-bench-preview: the preview grid with twelve boxes of the virtual camera, as the console
// shows it with "multi_same_display": CPU use of the process, painted frames per second of each
// tile, how late the GUI thread runs, and resident memory.
//
//   tavrokvm-bench-preview [--seconds N]   measure for N seconds once every tile streams (20)
//   tavrokvm-bench-preview --soak MINUTES  the same for that long, resident memory each minute
//
// The virtual camera runs inside the process, as a camera driver would not: the CPU figure
// includes drawing twelve 320x240 test pictures ten times a second.
#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QTemporaryDir>
#include <QTextStream>
#include <QTimer>

#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <vector>

#include "db/dbmanager.h"
#include "devices/device.h"
#include "devices/tavrovideopreview.h"
#include "ui/mainwindow.h"

namespace {

constexpr int kTiles = 12;
constexpr qint64 kHealthAgeMs = 2000;

qint64 residentKiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    }
    return 0;
}

// User and system CPU time of the whole process, in seconds.
double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

double percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(p * double(values.size() - 1) + 0.5))];
}

void quietLog(QtMsgType type, const QMessageLogContext &, const QString &text)
{
    if (type >= QtCriticalMsg)
        QTextStream(stderr) << text << Qt::endl;
}

// Runs the event loop for that long without spinning it.
void wait(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
}

} // namespace

int main(int argc, char **argv)
{
    int seconds = 20;
    int soakMinutes = 0;
    for (int i = 1; i + 1 < argc; ++i) {
        if (qstrcmp(argv[i], "--seconds") == 0)
            seconds = std::max(1, atoi(argv[++i]));
        else if (qstrcmp(argv[i], "--soak") == 0)
            soakMinutes = std::max(1, atoi(argv[++i]));
    }
    QTemporaryDir dir;
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    if (qEnvironmentVariableIsEmpty("GST_PLUGIN_PATH"))
        qputenv("GST_PLUGIN_PATH", TAVROKVM_GST_PLUGIN_DIR);
    qputenv("QT_MEDIA_BACKEND", "gstreamer");
    qputenv("GST_REGISTRY", dir.filePath("registry.bin").toUtf8());
    QByteArray boxes;
    for (int i = 1; i <= kTiles; ++i)
        boxes += QStringLiteral("%1box:BENCHPV%2")
                     .arg(i > 1 ? "," : "")
                     .arg(i, 2, 10, QChar('0'))
                     .toUtf8();
    qputenv("TAVROKVM_VCAM_DEVICES", boxes);
    qputenv("TAVROKVM_VCAM_QUIET_START", "1");

    QApplication app(argc, argv);
    QTextStream out(stdout);
    qInstallMessageHandler(quietLog);
    if (!DBManager::instance()->initDatabase(dir.filePath("bench.db")) ||
        !DBManager::instance()->setAppSetting(QStringLiteral("multi_same_display"),
                                              QStringLiteral("1"))) {
        out << "no database" << Qt::endl;
        return 1;
    }

    MainWindow window;
    window.resize(1600, 900);
    window.show();
    device *page = window.devicePage();
    auto allStreaming = [page] {
        for (int slot = 0; slot < kTiles; ++slot) {
            if (!page->previewTile(slot)->isPreviewStreamHealthy(kHealthAgeMs))
                return false;
        }
        return true;
    };
    QElapsedTimer startup;
    startup.start();
    while (!allStreaming() && startup.elapsed() < 30000)
        wait(50);
    if (!allStreaming()) {
        out << "not every tile streams after 30 s (" << page->cameras().size() << " boxes listed)"
            << Qt::endl;
        return 1;
    }
    out << "twelve tiles streaming after " << startup.elapsed() << " ms" << Qt::endl;
    wait(2000);

    // The GUI thread's lateness on a 1 ms timer: how long input would wait behind the tiles.
    std::vector<double> lateness;
    QElapsedTimer loopClock;
    loopClock.start();
    qint64 lastTick = loopClock.nsecsElapsed();
    QTimer probe;
    probe.setTimerType(Qt::PreciseTimer);
    QObject::connect(&probe, &QTimer::timeout, [&] {
        const qint64 now = loopClock.nsecsElapsed();
        lateness.push_back(std::max(0.0, double(now - lastTick) / 1e6 - 1.0));
        lastTick = now;
    });
    probe.start(1);

    std::array<quint64, kTiles> paintedBefore{};
    std::array<quint64, kTiles> receivedBefore{};
    for (int slot = 0; slot < kTiles; ++slot) {
        paintedBefore[std::size_t(slot)] = page->previewTile(slot)->paintedFrameCount();
        receivedBefore[std::size_t(slot)] = page->previewTile(slot)->receivedFrameCount();
    }
    const double cpuBefore = cpuSeconds();
    QElapsedTimer wall;
    wall.start();
    if (soakMinutes > 0) {
        for (int minute = 1; minute <= soakMinutes; ++minute) {
            wait(60000);
            out << "minute " << minute << ": resident " << residentKiB() / 1024 << " MiB"
                << Qt::endl;
        }
    } else {
        wait(seconds * 1000);
    }
    const double elapsed = double(wall.nsecsElapsed()) / 1e9;
    const double cpu = cpuSeconds() - cpuBefore;
    probe.stop();

    double lowest = 1e9, highest = 0, total = 0, received = 0;
    int alive = 0;
    for (int slot = 0; slot < kTiles; ++slot) {
        TavroVideoPreview *tile = page->previewTile(slot);
        const double fps =
            double(tile->paintedFrameCount() - paintedBefore[std::size_t(slot)]) / elapsed;
        lowest = std::min(lowest, fps);
        highest = std::max(highest, fps);
        total += fps;
        received += double(tile->receivedFrameCount() - receivedBefore[std::size_t(slot)]) /
                    elapsed / kTiles;
        alive += tile->isPreviewStreamHealthy(kHealthAgeMs) ? 1 : 0;
    }
    out << QString::asprintf("measured %.1f s on %s\n", elapsed,
                             qPrintable(QGuiApplication::platformName()));
    out << QString::asprintf("tiles alive          %d of %d\n", alive, kTiles);
    out << QString::asprintf("painted fps per tile min %.2f  mean %.2f  max %.2f\n", lowest,
                             total / kTiles, highest);
    out << QString::asprintf("received fps per tile mean %.2f\n", received);
    out << QString::asprintf("CPU of the process   %.0f %% of one core (%.0f %% of two)\n",
                             100 * cpu / elapsed, 50 * cpu / elapsed);
    out << QString::asprintf(
        "GUI late p99 / max   %.1f / %.1f ms\n", percentile(lateness, 0.99),
        lateness.empty() ? 0.0 : *std::max_element(lateness.begin(), lateness.end()));
    out << "resident             " << residentKiB() / 1024 << " MiB" << Qt::endl;
    return alive == kTiles ? 0 : 1;
}
