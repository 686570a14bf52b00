#include "boxsimulator.h"

#include "jsonline.h"
#include "protocol/deviceinfo.h"

namespace {

QString hexText(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.toHex(' ').toUpper());
}

QByteArray hidEventLine(const HidEvent &event)
{
    switch (event.kind) {
    case HidEvent::KeyDown:
        return JsonLine("key_down").add("key", event.key).add("usage", event.usage).toLine();
    case HidEvent::KeyUp:
        return JsonLine("key_up").add("key", event.key).add("usage", event.usage).toLine();
    case HidEvent::Modifiers:
        return JsonLine("modifiers").add("held", event.held).toLine();
    case HidEvent::Text:
        return JsonLine("text").add("text", event.text).toLine();
    case HidEvent::Mouse:
        return JsonLine("mouse")
            .add("x", event.x)
            .add("y", event.y)
            .add("buttons", event.buttons)
            .add("wheel", event.wheel)
            .toLine();
    }
    return QByteArray();
}

BoxOutput eventOutput(const QByteArray &line)
{
    BoxOutput output;
    output.kind = BoxOutput::Event;
    output.line = line;
    return output;
}

} // namespace

BoxSimulator::BoxSimulator(const BoxOptions &options)
    : m_options(options), m_record(options.record), m_random(options.seed)
{
    m_target.setScreenSize(options.screenWidth, options.screenHeight);
    m_target.setLayout(options.keyboardLayout);
}

QString BoxSimulator::commandName(quint16 command)
{
    switch (command) {
    case TkProtocol::CmdDeviceInfoQuery:
        return QStringLiteral("device_info_query");
    case TkProtocol::CmdUdiskSet:
        return QStringLiteral("udisk_set");
    case TkProtocol::CmdMouseAutoMoveSet:
        return QStringLiteral("mouse_auto_move_set");
    case TkProtocol::CmdDeviceRestart:
        return QStringLiteral("restart");
    case TkProtocol::CmdAtxPower:
        return QStringLiteral("atx_power");
    default:
        return QStringLiteral("unknown");
    }
}

QVector<BoxOutput> BoxSimulator::receive(const QByteArray &bytes)
{
    QVector<BoxOutput> outputs;
    m_splitter.feed(bytes);
    BoxStreamItem item;
    while (m_splitter.next(item))
        handleItem(item, outputs);
    return outputs;
}

QVector<BoxOutput> BoxSimulator::flushIncomplete()
{
    QVector<BoxOutput> outputs;
    BoxStreamItem item;
    while (m_splitter.drain(item))
        handleItem(item, outputs);
    return outputs;
}

QByteArray BoxSimulator::deviceInfoRecord() const
{
    QByteArray record = encodeDeviceInfoRecord(m_record);
    if (record.size() < m_options.recordSize)
        record.append(QByteArray(m_options.recordSize - record.size(), '\0'));
    return record;
}

QVector<BoxOutput> BoxSimulator::pollTarget(qint64 untilNs)
{
    QVector<BoxOutput> outputs;
    if (untilNs < 0) {
        sample(m_unsampled.size(), outputs);
        return outputs;
    }
    const qint64 periodNs = qint64(qMax(1, m_options.hidPollMs)) * 1000000;
    if (m_nextSampleNs < 0)
        m_nextSampleNs = untilNs;
    while (m_nextSampleNs <= untilNs) {
        qsizetype count = 0;
        while (count < m_unsampled.size() && m_unsampled.at(count).atNs <= m_nextSampleNs)
            ++count;
        sample(count, outputs);
        m_nextSampleNs += periodNs;
    }
    return outputs;
}

void BoxSimulator::sample(qsizetype count, QVector<BoxOutput> &outputs)
{
    // Of the first `count` reports, the last of each kind is what the target reads.
    for (qsizetype i = 0; i < count; ++i) {
        const BoxStreamItem &item = m_unsampled.at(i).item;
        bool replaced = false;
        for (qsizetype later = i + 1; later < count && !replaced; ++later)
            replaced = m_unsampled.at(later).item.command == item.command;
        if (replaced) {
            outputs << eventOutput(JsonLine("report_lost")
                                       .add("kind", HidTarget::frameKind(item.command))
                                       .add("hex", hexText(item.raw))
                                       .toLine());
        } else {
            applyToTarget(item, outputs);
        }
    }
    m_unsampled.remove(0, count);
}

targetscreen::State BoxSimulator::screenState() const
{
    targetscreen::State state;
    state.width = quint32(m_target.screenWidth());
    state.height = quint32(m_target.screenHeight());
    state.cursorX = m_target.cursorX();
    state.cursorY = m_target.cursorY();
    state.buttons = quint32(m_target.buttons());
    state.clickX = m_target.clickX();
    state.clickY = m_target.clickY();
    state.clicks = quint32(m_target.clicks());
    state.heldKeys = quint32(m_target.heldCount());
    state.capsLock = m_target.capsLock();
    state.numLock = m_target.numLock();
    state.borderMode = m_options.borderMode;
    state.borderLeft = quint32(m_options.borderLeft);
    state.borderTop = quint32(m_options.borderTop);
    state.textEdits = quint32(m_target.textEdits());
    state.setText(m_target.text().toStdString());
    return state;
}

void BoxSimulator::lineDropped()
{
    m_unsampled.clear();
    m_splitter.clear();
    m_target.releaseAll();
}

void BoxSimulator::handleItem(const BoxStreamItem &item, QVector<BoxOutput> &outputs)
{
    switch (item.kind) {
    case BoxStreamItem::Hello:
        outputs << eventOutput(JsonLine("hello").toLine());
        break;
    case BoxStreamItem::Frame:
        handleFrame(item, outputs);
        break;
    case BoxStreamItem::VendorPacket:
        outputs << eventOutput(JsonLine("command")
                                   .add("command", item.packet.command)
                                   .add("name", commandName(item.packet.command))
                                   .toLine());
        handleCommand(item.packet, outputs);
        break;
    case BoxStreamItem::BadFrame: {
        const QString kind =
            item.vendor ? QStringLiteral("vendor") : HidTarget::frameKind(item.command);
        outputs << eventOutput(JsonLine("bad_frame")
                                   .add("reason", item.reason)
                                   .add("hex", hexText(item.raw))
                                   .add("kind", kind)
                                   .toLine());
        break;
    }
    }
}

void BoxSimulator::handleFrame(const BoxStreamItem &item, QVector<BoxOutput> &outputs)
{
    if (m_options.hidPollMs <= 0) {
        applyToTarget(item, outputs);
        return;
    }
    outputs << eventOutput(JsonLine("frame")
                               .add("kind", HidTarget::frameKind(item.command))
                               .add("hex", hexText(item.raw))
                               .toLine());
    m_unsampled.append({m_arrivalNs, item});
}

void BoxSimulator::applyToTarget(const BoxStreamItem &item, QVector<BoxOutput> &outputs)
{
    QVector<HidEvent> events;
    QString reason;
    if (!m_target.applyFrame(item.command, item.data, events, reason)) {
        outputs << eventOutput(JsonLine("bad_frame")
                                   .add("reason", reason)
                                   .add("hex", hexText(item.raw))
                                   .add("kind", HidTarget::frameKind(item.command))
                                   .toLine());
        return;
    }
    if (m_options.hidPollMs <= 0) {
        outputs << eventOutput(JsonLine("frame")
                                   .add("kind", HidTarget::frameKind(item.command))
                                   .add("hex", hexText(item.raw))
                                   .toLine());
    }
    for (const HidEvent &event : events)
        outputs << eventOutput(hidEventLine(event));
}

void BoxSimulator::handleCommand(const TkPacket &packet, QVector<BoxOutput> &outputs)
{
    const quint8 code = m_options.replyCode;
    // A set-command takes effect when the box reports success, also when its reply is lost.
    const bool apply = code == 0 && !packet.payload.isEmpty();
    bool generalReply = true;
    switch (packet.command) {
    case TkProtocol::CmdDeviceInfoQuery:
        generalReply = false;
        if (!m_options.noReplies && m_answering) {
            const QByteArray record = deviceInfoRecord();
            reply(TkProtocol::ReplyDeviceInfo, record, packet.sequence,
                  JsonLine("reply")
                      .add("command", TkProtocol::ReplyDeviceInfo)
                      .add("length", record.size())
                      .toLine(),
                  outputs);
        }
        break;
    case TkProtocol::CmdUdiskSet:
        if (apply)
            m_record.udiskDirection = quint8(packet.payload.at(0));
        break;
    case TkProtocol::CmdMouseAutoMoveSet:
        if (apply)
            m_record.mouseAutoMove = packet.payload.at(0) != 0 ? 1 : 0;
        break;
    case TkProtocol::CmdAtxPower:
    case TkProtocol::CmdDeviceRestart:
        break;
    default:
        generalReply = false; // unknown commands go unanswered
        break;
    }
    if (generalReply && !m_options.noReplies && m_answering) {
        reply(TkProtocol::ReplyGeneral, QByteArray(1, char(code)), packet.sequence,
              JsonLine("reply").add("command", TkProtocol::ReplyGeneral).add("code", code).toLine(),
              outputs);
    }
    if (packet.command == TkProtocol::CmdDeviceRestart && code == 0) {
        BoxOutput restart;
        restart.kind = BoxOutput::Restart;
        restart.delayMs = m_options.replyDelayMs;
        restart.downTimeMs = m_options.restartDownTimeMs;
        restart.line = JsonLine("restart").add("downtime_ms", m_options.restartDownTimeMs).toLine();
        outputs << restart;
    }
}

void BoxSimulator::reply(quint16 command, const QByteArray &payload, quint32 sequence,
                         const QByteArray &line, QVector<BoxOutput> &outputs)
{
    QByteArray packet = TkProtocol::buildPacket(command, payload, sequence);
    if (m_options.corruptChecksums && !packet.isEmpty())
        packet[packet.size() - 4] = char(packet.at(packet.size() - 4) ^ 0x5A);
    BoxOutput output;
    output.kind = BoxOutput::Send;
    output.bytes = m_options.garbageBetween ? garbage() + packet + garbage() : packet;
    output.line = line;
    output.delayMs = m_options.replyDelayMs;
    outputs << output;
}

QByteArray BoxSimulator::garbage()
{
    // Never 0x57: a stray first magic byte would make the console's parser wait for a
    // packet length read from garbage.
    QByteArray bytes(1 + int(m_random.bounded(8u)), Qt::Uninitialized);
    for (char &byte : bytes) {
        do {
            byte = char(m_random.bounded(256u));
        } while (quint8(byte) == 0x57);
    }
    return bytes;
}
