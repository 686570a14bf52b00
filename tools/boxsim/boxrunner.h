#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <deque>
#include <functional>
#include <vector>

#include "boxsimulator.h"
#include "ptyline.h"

// Drives the simulator behind a pty: feeds it received bytes, prints its events, writes its
// replies (at once or after the reply delay), and carries out restarts and the hang-up.
class BoxRunner : public QObject
{
    Q_OBJECT
public:
    explicit BoxRunner(const BoxOptions &options, QObject *parent = nullptr);

    // Opens the line and announces it; false with `error` when the pty or link fails.
    bool start(QString &error);
    // Closes the line and removes the link.
    void stop();
    // Stops or resumes answering vendor commands (SIGUSR1), printing "replies_off" or
    // "replies_on".
    void toggleReplies();

signals:
    // The process should end with this exit code.
    void finished(int exitCode);

private:
    struct Pending
    {
        qint64 due = 0;
        int generation = 0; // line generation the output belongs to
        BoxOutput output;
    };

    void onBytesReceived(const QByteArray &bytes);
    void carryOut(const QVector<BoxOutput> &outputs);
    void perform(const BoxOutput &output);
    void runDue();
    void dropLine(const BoxOutput &restart);
    // Runs `then` once the console has read what was written, or after kDrainLimitMs.
    void afterConsoleRead(int waitedMs, const std::function<void()> &then);
    void cutReply(const BoxOutput &output);
    void bringLineBack();
    void hangUp();
    // Publishes the target's screen for the camera when it changed (after the capture delay).
    void updateScreen();
    void publishDueScreens();
    static void print(const QByteArray &line);

    BoxOptions m_options;
    BoxSimulator m_simulator;
    PtyLine m_line;
    qint64 m_received = 0;
    bool m_restarting = false;
    bool m_finished = false;
    int m_generation = 0;           // grows each time the line drops
    std::vector<Pending> m_pending; // ordered by due time, then arrival
    QTimer m_dueTimer;
    QTimer m_idleTimer; // a quiet line ends an unfinished item
    QElapsedTimer m_clock;

    targetscreen::Writer m_screen;
    targetscreen::State m_screenState; // the latest, stamped with its change times
    bool m_screenKnown = false;
    QTimer m_pollTimer;
    std::deque<std::pair<qint64, targetscreen::State>> m_delayedScreens; // due, state
    QTimer m_delayTimer;
};
