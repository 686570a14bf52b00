// tavrokvm-bench-input: the road of the operator's input, from an event delivered to the console
// view to its frame decoded by the simulated box on the other end of a pseudo-terminal.
//
//   tavrokvm-bench-input [--events N] [--seconds S]
//
// Latency: N key events (presses and releases) and N mouse moves, one at a time, each timed from
// just before the view receives it to the moment the box's reader has decoded its frame; median,
// 99th percentile and maximum. A 14-byte frame takes 70 us on a real 2 Mbaud line; the pty has no
// baud rate, so the figures are the console's own cost plus the kernel's.
// Throughput: mouse moves at 1 kHz for S seconds (default 10): reports the box received, how far
// each was from the newest position at that time, and frames the box rejected.
//
// The box camera is the virtual camera; the box runs on its own thread in this process. Log lines
// go to a no-op handler so that terminal output does not count.
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QMutex>
#include <QTemporaryDir>
#include <QTextStream>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <vector>

#include "boxsimulator.h"
#include "console/tavrovideo.h"
#include "db/dbmanager.h"
#include "ptyline.h"
#include "ui/mainwindow.h"

namespace {

using Clock = std::chrono::steady_clock;

qint64 nowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch())
        .count();
}

struct Arrival
{
    qint64 ns;
    bool mouse;
    int x;
    int y;
};

// The simulated box on its own thread: decodes what the console writes and stamps each keyboard
// or mouse frame as it is decoded.
class BoxThread : public QThread
{
public:
    explicit BoxThread(const QString &link) : m_link(link) {}

    bool waitReady()
    {
        while (!m_ready.load() && !m_failed.load())
            QThread::msleep(5);
        return m_ready.load();
    }

    int arrivals()
    {
        QMutexLocker lock(&m_mutex);
        return int(m_arrivals.size());
    }
    Arrival arrival(int index)
    {
        QMutexLocker lock(&m_mutex);
        return m_arrivals.at(size_t(index));
    }
    int rejected() const { return m_rejected.load(); }

protected:
    void run() override
    {
        BoxOptions options;
        options.link = m_link;
        BoxSimulator box(options);
        PtyLine line(m_link);
        QString error;
        if (!line.open(error)) {
            QTextStream(stderr) << "bench: pty: " << error << "\n";
            m_failed = true;
            return;
        }
        QObject::connect(&line, &PtyLine::bytesReceived, [&](const QByteArray &bytes) {
            const qint64 at = nowNs();
            for (const BoxOutput &output : box.receive(bytes)) {
                if (output.kind == BoxOutput::Send) {
                    line.write(output.bytes);
                    continue;
                }
                if (output.kind != BoxOutput::Event)
                    continue;
                const QByteArray &text = output.line;
                if (text.startsWith("{\"event\":\"bad_frame\"")) {
                    ++m_rejected;
                } else if (text.startsWith("{\"event\":\"frame\"")) {
                    QMutexLocker lock(&m_mutex);
                    m_arrivals.push_back({at, text.contains("\"mouse_abs\""), -1, -1});
                } else if (text.startsWith("{\"event\":\"mouse\"")) {
                    // Follows the frame it was decoded from.
                    QMutexLocker lock(&m_mutex);
                    if (!m_arrivals.empty()) {
                        m_arrivals.back().x = number(text, "\"x\":");
                        m_arrivals.back().y = number(text, "\"y\":");
                    }
                }
            }
        });
        m_ready = true;
        exec();
    }

private:
    static int number(const QByteArray &text, const char *key)
    {
        const int at = int(text.indexOf(key));
        return at < 0 ? -1 : text.mid(at + int(qstrlen(key))).split(',').first().toInt();
    }

    QString m_link;
    std::atomic<bool> m_ready{false};
    std::atomic<bool> m_failed{false};
    std::atomic<int> m_rejected{0};
    QMutex m_mutex;
    std::vector<Arrival> m_arrivals;
};

void quietLog(QtMsgType, const QMessageLogContext &, const QString &) {}

// Runs the event loop until the box has decoded `count` frames; false after a second.
bool waitForArrivals(BoxThread &box, int count)
{
    QElapsedTimer timer;
    timer.start();
    while (box.arrivals() < count) {
        QCoreApplication::processEvents(QEventLoop::AllEvents);
        if (timer.elapsed() > 1000)
            return false;
    }
    return true;
}

struct Figures
{
    double medianUs = 0;
    double p99Us = 0;
    double maxUs = 0;
};

Figures summarise(std::vector<double> us)
{
    Figures f;
    if (us.empty())
        return f;
    std::sort(us.begin(), us.end());
    f.medianUs = us[us.size() / 2];
    f.p99Us = us[std::min(us.size() - 1, size_t(std::ceil(us.size() * 0.99)) - 1)];
    f.maxUs = us.back();
    return f;
}

void printFigures(QTextStream &out, const char *what, int events, const Figures &f)
{
    out << QStringLiteral("%1: %2 events, median %3 us, p99 %4 us, max %5 us (wire time of a "
                          "14-byte frame at 2 Mbaud: 70 us)\n")
               .arg(QLatin1String(what))
               .arg(events)
               .arg(f.medianUs, 0, 'f', 1)
               .arg(f.p99Us, 0, 'f', 1)
               .arg(f.maxUs, 0, 'f', 1);
}

} // namespace

int main(int argc, char **argv)
{
    int events = 10000;
    int seconds = 10;
    for (int i = 1; i + 1 < argc; ++i) {
        if (qstrcmp(argv[i], "--events") == 0)
            events = std::max(2, atoi(argv[++i]));
        else if (qstrcmp(argv[i], "--seconds") == 0)
            seconds = std::max(1, atoi(argv[++i]));
    }
    QTemporaryDir dir;
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    if (qEnvironmentVariableIsEmpty("GST_PLUGIN_PATH"))
        qputenv("GST_PLUGIN_PATH", TAVROKVM_GST_PLUGIN_DIR);
    qputenv("QT_MEDIA_BACKEND", "gstreamer");
    qputenv("GST_REGISTRY", dir.filePath("registry.bin").toUtf8());
    qputenv("TAVROKVM_VCAM_DEVICES", "box:BENCHIN1");
    const QString link = dir.filePath("tk-box");
    qputenv("TAVROKVM_EXTRA_SERIAL_PORTS", (link + "=TK CDC").toUtf8());

    QApplication app(argc, argv);
    QApplication::setAttribute(Qt::AA_CompressHighFrequencyEvents, false);
    QTextStream out(stdout);
    qInstallMessageHandler(quietLog);

    BoxThread box(link);
    box.start();
    if (!box.waitReady())
        return 1;
    DBManager::instance()->initDatabase(dir.filePath("bench.db"));
    MainWindow window;
    TavroVideo *view = window.videoView();
    QEventLoop startup;
    bool cameraStarted = false;
    QObject::connect(view, &TavroVideo::cameraStarted, &startup, [&] {
        cameraStarted = true;
        startup.quit();
    });
    QTimer::singleShot(20000, &startup, &QEventLoop::quit);
    window.show();
    startup.exec();
    if (!cameraStarted) {
        out << "bench: the camera did not start\n";
        return 1;
    }
    view->setFocus();
    QElapsedTimer settle;
    settle.start();
    while (settle.elapsed() < 1000 || !view->isAppReallyInForeground())
        QCoreApplication::processEvents();

    // Keys: press and release of A, alternately; each is one frame.
    std::vector<double> keyUs;
    for (int i = 0; i < events; ++i) {
        const int before = box.arrivals();
        const bool press = i % 2 == 0;
        QKeyEvent key(press ? QEvent::KeyPress : QEvent::KeyRelease, Qt::Key_A, Qt::NoModifier,
                      QStringLiteral("a"));
        const qint64 t0 = nowNs();
        QApplication::sendEvent(view, &key);
        if (!waitForArrivals(box, before + 1)) {
            out << "bench: key frame " << i << " never arrived\n";
            return 1;
        }
        keyUs.push_back((box.arrival(before).ns - t0) / 1000.0);
    }
    printFigures(out, "key event -> frame decoded", events, summarise(keyUs));

    // Moves: one at a time, alternating between two points of the picture. Each waits out the
    // 1 ms throttle before its report leaves.
    const QRect picture = view->getActualVideoDisplayRect();
    std::vector<double> moveUs;
    for (int i = 0; i < events; ++i) {
        const int before = box.arrivals();
        const QPoint at = picture.topLeft() + QPoint(10 + (i % 2) * 300, 10 + (i % 2) * 200);
        QMouseEvent move(QEvent::MouseMove, at, view->mapToGlobal(at), Qt::NoButton, Qt::NoButton,
                         Qt::NoModifier);
        const qint64 t0 = nowNs();
        QApplication::sendEvent(view, &move);
        if (!waitForArrivals(box, before + 1)) {
            out << "bench: mouse report " << i << " never arrived\n";
            return 1;
        }
        moveUs.push_back((box.arrival(before).ns - t0) / 1000.0);
    }
    printFigures(out, "mouse move -> report decoded", events, summarise(moveUs));

    // Throughput: a move every millisecond, each to a new position along a diagonal.
    const QSize capture = view->negotiatedResolution();
    const int firstArrival = box.arrivals();
    std::vector<std::pair<qint64, QPoint>> sent; // when, and the report position expected
    QElapsedTimer clock;
    clock.start();
    const qint64 total = qint64(seconds) * 1000;
    for (qint64 tick = 0; tick < total; ++tick) {
        while (clock.nsecsElapsed() < tick * 1000000)
            QCoreApplication::processEvents();
        const int step = int(tick % 600);
        const QPoint at = picture.topLeft() + QPoint(20 + step, 20 + step / 2);
        QMouseEvent move(QEvent::MouseMove, at, view->mapToGlobal(at), Qt::NoButton, Qt::NoButton,
                         Qt::NoModifier);
        QApplication::sendEvent(view, &move);
        const QPoint mapped = view->lastMousePos();
        sent.emplace_back(nowNs(), QPoint(mapped.x() * 4096 / capture.width(),
                                          mapped.y() * 4096 / capture.height()));
    }
    QElapsedTimer drain;
    drain.start();
    while (drain.elapsed() < 200)
        QCoreApplication::processEvents();

    const int reports = box.arrivals() - firstArrival;
    double errorSum = 0;
    double errorMax = 0;
    size_t newest = 0;
    for (int i = firstArrival; i < box.arrivals(); ++i) {
        const Arrival a = box.arrival(i);
        while (newest + 1 < sent.size() && sent[newest + 1].first <= a.ns)
            ++newest;
        const QPoint expected = sent[newest].second;
        const double error = std::hypot(a.x - expected.x(), a.y - expected.y());
        errorSum += error;
        errorMax = std::max(errorMax, error);
    }
    const Arrival last = box.arrival(box.arrivals() - 1);
    const QPoint lastSent = sent.back().second;
    out << QStringLiteral("mouse at 1 kHz for %1 s: %2 moves, %3 reports (%4/s), newest-position "
                          "error mean %5 max %6 (12-bit units), last report %7 the last move, %8 "
                          "frames rejected by the box\n")
               .arg(seconds)
               .arg(sent.size())
               .arg(reports)
               .arg(reports / double(seconds), 0, 'f', 0)
               .arg(reports ? errorSum / reports : 0, 0, 'f', 2)
               .arg(errorMax, 0, 'f', 1)
               .arg(QPoint(last.x, last.y) == lastSent ? QStringLiteral("equals")
                                                       : QStringLiteral("differs from"))
               .arg(box.rejected());
    out.flush();

    window.close();
    box.quit();
    box.wait();
    return 0;
}
