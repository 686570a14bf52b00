#include "boxrunner.h"

#include "jsonline.h"

#include <QFile>

#include <cstdio>
#include <iterator>

namespace {

constexpr int kDrainPollMs = 10;
// How long a restart or a cut reply waits for the console to read before the line goes.
constexpr int kDrainMinimumMs = 50;
constexpr int kDrainLimitMs = 1000;
// The console writes each frame and packet in one piece, so a pause this long inside one
// means the rest is never coming.
constexpr int kIdleFlushMs = 200;

} // namespace

BoxRunner::BoxRunner(const BoxOptions &options, QObject *parent)
    : QObject(parent), m_options(options), m_simulator(options), m_line(options.link)
{
    m_clock.start();
    m_dueTimer.setSingleShot(true);
    connect(&m_dueTimer, &QTimer::timeout, this, &BoxRunner::runDue);
    connect(&m_line, &PtyLine::bytesReceived, this, &BoxRunner::onBytesReceived);
    m_idleTimer.setSingleShot(true);
    m_idleTimer.setInterval(kIdleFlushMs);
    connect(&m_idleTimer, &QTimer::timeout, this, [this] {
        carryOut(m_simulator.flushIncomplete());
        updateScreen();
    });
    m_pollTimer.setTimerType(Qt::PreciseTimer);
    m_pollTimer.setInterval(options.hidPollMs);
    connect(&m_pollTimer, &QTimer::timeout, this, [this] {
        carryOut(m_simulator.pollTarget(qint64(targetscreen::monotonicNs())));
        updateScreen();
    });
    m_delayTimer.setTimerType(Qt::PreciseTimer);
    m_delayTimer.setSingleShot(true);
    connect(&m_delayTimer, &QTimer::timeout, this, &BoxRunner::publishDueScreens);
}

bool BoxRunner::start(QString &error)
{
    if (!m_options.screenFile.isEmpty()) {
        std::string reason;
        if (!m_screen.open(QFile::encodeName(m_options.screenFile).toStdString(), reason)) {
            error = QString::fromStdString(reason);
            return false;
        }
        updateScreen();
    }
    if (m_options.hidPollMs > 0)
        m_pollTimer.start();
    if (!m_line.open(error))
        return false;
    print(JsonLine("ready").add("pty", m_line.ptyName()).add("link", m_options.link).toLine());
    return true;
}

void BoxRunner::stop()
{
    m_pollTimer.stop();
    m_dueTimer.stop();
    m_idleTimer.stop();
    m_pending.clear();
    m_line.close();
}

void BoxRunner::toggleReplies()
{
    const bool answering = !m_simulator.isAnswering();
    m_simulator.setAnswering(answering);
    print(JsonLine(answering ? "replies_on" : "replies_off").toLine());
}

void BoxRunner::print(const QByteArray &line)
{
    std::fwrite(line.constData(), 1, size_t(line.size()), stdout);
    std::fflush(stdout);
}

void BoxRunner::onBytesReceived(const QByteArray &bytes)
{
    if (m_finished)
        return;
    QByteArray taken = bytes;
    bool hangUpNow = false;
    if (m_options.hangupAfterBytes > 0) {
        const qint64 left = m_options.hangupAfterBytes - m_received;
        if (taken.size() >= left) {
            taken.truncate(int(left));
            hangUpNow = true;
        }
    }
    m_received += taken.size();
    m_simulator.setArrivalTime(qint64(targetscreen::monotonicNs()));
    carryOut(m_simulator.receive(taken));
    updateScreen();
    if (hangUpNow) {
        hangUp();
        return;
    }
    if (m_simulator.splitter().buffered() > 0)
        m_idleTimer.start();
    else
        m_idleTimer.stop();
}

void BoxRunner::carryOut(const QVector<BoxOutput> &outputs)
{
    for (const BoxOutput &output : outputs) {
        if (output.kind == BoxOutput::Event) {
            print(output.line);
            continue;
        }
        if (output.delayMs <= 0 && m_pending.empty()) {
            perform(output);
            continue;
        }
        Pending pending;
        pending.due = m_clock.elapsed() + output.delayMs;
        pending.generation = m_generation;
        pending.output = output;
        auto at = m_pending.end();
        while (at != m_pending.begin() && std::prev(at)->due > pending.due)
            --at;
        m_pending.insert(at, pending);
        runDue();
    }
}

void BoxRunner::runDue()
{
    while (!m_pending.empty() && m_pending.front().due <= m_clock.elapsed()) {
        const Pending pending = m_pending.front();
        m_pending.erase(m_pending.begin());
        // Answers to bytes from before a line drop died with that line.
        if (pending.generation == m_generation)
            perform(pending.output);
    }
    if (!m_pending.empty())
        m_dueTimer.start(int(qMax<qint64>(0, m_pending.front().due - m_clock.elapsed())));
}

void BoxRunner::perform(const BoxOutput &output)
{
    if (m_finished || m_restarting || !m_line.isOpen())
        return;
    if (output.kind == BoxOutput::Send) {
        if (m_options.cutReplyAfterBytes > 0) {
            cutReply(output);
            return;
        }
        if (m_line.write(output.bytes))
            print(output.line);
    } else if (output.kind == BoxOutput::Restart) {
        m_restarting = true;
        afterConsoleRead(0, [this, output] { dropLine(output); });
    }
}

void BoxRunner::afterConsoleRead(int waitedMs, const std::function<void()> &then)
{
    // A hang-up discards what the console has not read yet. The kernel hands written bytes to
    // the slave side a little later, so the count means something only after a first pause.
    const bool unread = waitedMs < kDrainMinimumMs || m_line.unreadByConsole() > 0;
    if (unread && waitedMs < kDrainLimitMs) {
        QTimer::singleShot(kDrainPollMs, this, [this, waitedMs, then] {
            afterConsoleRead(waitedMs + kDrainPollMs, then);
        });
        return;
    }
    then();
}

void BoxRunner::cutReply(const BoxOutput &output)
{
    const QByteArray part = output.bytes.left(
        qsizetype(qMin<qint64>(m_options.cutReplyAfterBytes, output.bytes.size())));
    m_line.write(part);
    print(JsonLine("reply_cut")
              .add("sent", qint64(part.size()))
              .add("length", qint64(output.bytes.size()))
              .toLine());
    // Nothing more is received or answered; the line goes once the console has the part.
    m_finished = true;
    m_pending.clear();
    afterConsoleRead(0, [this] { hangUp(); });
}

void BoxRunner::dropLine(const BoxOutput &restart)
{
    if (m_finished)
        return;
    print(restart.line);
    m_line.close();
    m_idleTimer.stop();
    m_simulator.lineDropped();
    updateScreen();
    ++m_generation;
    QTimer::singleShot(restart.downTimeMs, this, &BoxRunner::bringLineBack);
}

void BoxRunner::bringLineBack()
{
    if (m_finished)
        return;
    QString error;
    if (!m_line.open(error)) {
        std::fprintf(stderr, "tavrokvm-boxsim: the line did not come back: %s\n",
                     qPrintable(error));
        m_finished = true;
        emit finished(1);
        return;
    }
    m_restarting = false;
    print(JsonLine("line_back").toLine());
}

void BoxRunner::updateScreen()
{
    if (!m_screen.isOpen())
        return;
    targetscreen::State state = m_simulator.screenState();
    if (m_screenKnown && targetscreen::sameScreen(state, m_screenState))
        return;
    const quint64 now = targetscreen::monotonicNs();
    state.changedNs = now;
    state.textChangedNs = !m_screenKnown || state.textEdits != m_screenState.textEdits
                              ? now
                              : m_screenState.textChangedNs;
    m_screenState = state;
    m_screenKnown = true;
    if (m_options.captureDelayMs <= 0) {
        m_screen.publish(state);
        return;
    }
    m_delayedScreens.emplace_back(m_clock.elapsed() + m_options.captureDelayMs, state);
    if (!m_delayTimer.isActive())
        m_delayTimer.start(m_options.captureDelayMs);
}

void BoxRunner::publishDueScreens()
{
    const qint64 now = m_clock.elapsed();
    while (!m_delayedScreens.empty() && m_delayedScreens.front().first <= now) {
        m_screen.publish(m_delayedScreens.front().second);
        m_delayedScreens.pop_front();
    }
    if (!m_delayedScreens.empty())
        m_delayTimer.start(int(m_delayedScreens.front().first - now));
}

void BoxRunner::hangUp()
{
    m_finished = true;
    print(JsonLine("hangup").toLine());
    stop();
    emit finished(0);
}
