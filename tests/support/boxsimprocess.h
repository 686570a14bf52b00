#pragma once

// tavrokvm-boxsim as a child process of a test, with its JSON event lines collected as they
// arrive. Header-only; tests define TAVROKVM_BOXSIM_PATH.

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStringList>
#include <QTest>

#include <csignal>

#include <sys/prctl.h>

class BoxSimProcess
{
public:
    static constexpr int kWaitMs = 10000;

    ~BoxSimProcess() { stop(); }

    // Starts the box with its link at `link`; the caller waits for next("ready").
    bool start(const QString &link, const QStringList &arguments = {})
    {
        // A box that hung up may still be on its way out; starting over it would keep the old
        // process and miss the new one's "ready".
        stop();
        m_events.clear();
        m_pending.clear();
        m_cursor = 0;
        m_process.setProgram(QStringLiteral(TAVROKVM_BOXSIM_PATH));
        m_process.setArguments(QStringList{"--link", link} + arguments);
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        // The box goes with the test, also when the test crashes: an orphan would keep CTest's
        // output pipe open and the run would never end.
        m_process.setChildProcessModifier([] { prctl(PR_SET_PDEATHSIG, SIGTERM); });
        m_process.start();
        return m_process.waitForStarted(kWaitMs);
    }

    // Starts the box and waits until its link exists.
    bool startReady(const QString &link, const QStringList &arguments = {})
    {
        return start(link, arguments) && !next("ready").isEmpty();
    }

    void stop()
    {
        if (m_process.state() == QProcess::NotRunning)
            return;
        m_process.terminate();
        if (!m_process.waitForFinished(kWaitMs))
            m_process.kill();
        m_process.waitForFinished(kWaitMs);
    }

    // The next event named `name` after the previous match; an empty object when none comes
    // within kWaitMs. Keeps the caller's event loop running while it waits.
    QJsonObject next(const QString &name)
    {
        QElapsedTimer timer;
        timer.start();
        for (;;) {
            readLines();
            while (m_cursor < m_events.size()) {
                const QJsonObject event = m_events.at(m_cursor++);
                if (event.value("event").toString() == name)
                    return event;
            }
            if (timer.elapsed() > kWaitMs)
                return {};
            if (m_process.state() == QProcess::NotRunning) {
                readLines();
                if (m_cursor >= m_events.size())
                    return {};
            } else {
                QTest::qWait(5);
            }
        }
    }

    // Names of every event so far.
    QStringList namesSeen()
    {
        readLines();
        QStringList names;
        for (const QJsonObject &event : m_events)
            names << event.value("event").toString();
        return names;
    }

    // Every event so far, in order of arrival.
    QList<QJsonObject> events()
    {
        readLines();
        return m_events;
    }

    // Makes the box stop answering vendor commands, or resume (it prints "replies_off" or
    // "replies_on"); the line stays up and frames still reach the target.
    bool toggleReplies()
    {
        return m_process.state() == QProcess::Running &&
               ::kill(pid_t(m_process.processId()), SIGUSR1) == 0;
    }

    QProcess &process() { return m_process; }

private:
    void readLines()
    {
        m_pending += m_process.readAllStandardOutput();
        int end;
        while ((end = int(m_pending.indexOf('\n'))) >= 0) {
            const QByteArray line = m_pending.left(end);
            m_pending.remove(0, end + 1);
            QJsonParseError error;
            const QJsonDocument document = QJsonDocument::fromJson(line, &error);
            if (error.error != QJsonParseError::NoError || !document.isObject())
                qWarning("not a JSON object: %s", line.constData());
            m_events << document.object();
        }
    }

    QProcess m_process;
    QByteArray m_pending;
    QList<QJsonObject> m_events;
    int m_cursor = 0;
};
