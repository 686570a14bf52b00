#pragma once

#include <QByteArray>
#include <QRandomGenerator>
#include <QString>
#include <QVector>

#include "boxoptions.h"
#include "boxstreamsplitter.h"
#include "hidtarget.h"

// One thing the box does in answer to received bytes.
struct BoxOutput
{
    enum Kind {
        Event,   // print `line`
        Send,    // after `delayMs`, write `bytes` to the line, then print `line`
        Restart, // after `delayMs`, drop the line for `downTimeMs`; print `line` when it drops
    };

    Kind kind = Event;
    QByteArray line; // one JSON line, with its line feed
    QByteArray bytes;
    int delayMs = 0;
    int downTimeMs = 0;
};

// The simulated box without its pseudo-terminal: cuts the received stream, answers vendor
// commands from its state, and passes keyboard and mouse frames to the target behind it.
// Everything it does comes back as a list of outputs, so it runs the same under a test as
// behind the pty.
class BoxSimulator
{
public:
    explicit BoxSimulator(const BoxOptions &options);

    // Takes received bytes (any split) and returns what follows from them, in order.
    QVector<BoxOutput> receive(const QByteArray &bytes);

    // No bytes came for a while: whatever unfinished item is buffered will not be completed.
    QVector<BoxOutput> flushIncomplete();

    // The time (any monotonic nanoseconds) at which the bytes passed to receive() next arrived.
    void setArrivalTime(qint64 ns) { m_arrivalNs = ns; }

    // With a poll interval, keyboard and mouse reports wait for the target to sample them.
    // Samples fall on a fixed grid every poll interval up to `untilNs`: at each, the latest
    // report of each kind that had arrived is taken and the ones it replaced were lost
    // ("report_lost"), however late this call comes. Without a time, one sample now.
    QVector<BoxOutput> pollTarget(qint64 untilNs = -1);

    // What the target's screen shows now (the times are left for the caller to stamp).
    targetscreen::State screenState() const;

    // The line went down: bytes of an unfinished item are lost, and the keyboard-and-mouse
    // chip restarts with nothing held.
    void lineDropped();

    // A hung controller: vendor commands are still received but go unanswered; keyboard and
    // mouse frames still reach the target.
    void setAnswering(bool answering) { m_answering = answering; }
    bool isAnswering() const { return m_answering; }

    // The information record of the current state: 134 bytes, or the length the options ask.
    QByteArray deviceInfoRecord() const;

    // "device_info_query", "udisk_set", "mouse_auto_move_set", "restart", "atx_power" or
    // "unknown".
    static QString commandName(quint16 command);

    quint8 udiskDir() const { return m_record.udiskDirection; }
    bool mouseAutoMove() const { return m_record.mouseAutoMove == 1; }
    const HidTarget &target() const { return m_target; }
    const BoxStreamSplitter &splitter() const { return m_splitter; }

private:
    void handleItem(const BoxStreamItem &item, QVector<BoxOutput> &outputs);
    void handleFrame(const BoxStreamItem &item, QVector<BoxOutput> &outputs);
    void applyToTarget(const BoxStreamItem &item, QVector<BoxOutput> &outputs);
    void handleCommand(const TkPacket &packet, QVector<BoxOutput> &outputs);
    void reply(quint16 command, const QByteArray &payload, quint32 sequence, const QByteArray &line,
               QVector<BoxOutput> &outputs);
    QByteArray garbage();

    BoxOptions m_options;
    BoxStreamSplitter m_splitter;
    HidTarget m_target;
    DeviceInfoRecord m_record; // the box's state as its information record tells it
    QRandomGenerator m_random;
    bool m_answering = true;
    struct Arrived
    {
        qint64 atNs;
        BoxStreamItem item;
    };
    void sample(qsizetype count, QVector<BoxOutput> &outputs);
    QVector<Arrived> m_unsampled; // reports not sampled yet, in order of arrival
    qint64 m_arrivalNs = 0;
    qint64 m_nextSampleNs = -1;
};
