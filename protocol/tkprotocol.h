#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

// One vendor packet taken out of the receive stream.
struct TkPacket
{
    quint8 channel = 0;
    quint32 sequence = 0;
    quint16 command = 0;
    QByteArray payload;
};

// The box controller's vendor protocol ("TK_V1"): packet checksum, command builders, the
// incremental stream parser, and the process-wide cache of the last information record.
// Static functions only; GUI thread only (the cache is unguarded).
class TkProtocol
{
public:
    TkProtocol() = delete;

    // Command codes sent to the box and reply codes received from it.
    enum Command : quint16 {
        CmdDeviceInfoQuery = 1,
        CmdUdiskSet = 3,
        CmdAtxPower = 4,
        CmdDeviceRestart = 10,
        CmdMouseAutoMoveSet = 11,
        ReplyGeneral = 0,
        ReplyDeviceInfo = 0x81,
    };

    // Bytes before the payload (magic .. payload length); parsing starts once this many are in.
    static constexpr int HeaderSize = 17;
    // Header plus checksum: a packet is PacketOverhead + N bytes long.
    static constexpr int PacketOverhead = 21;
    // Largest payload length a header may announce. Real payloads are a few hundred bytes at
    // most; a larger N can only come from corrupt or foreign bytes, and waiting for that many
    // bytes would stall the link, so such a header is skipped like a checksum mismatch.
    static constexpr quint32 MaxPayloadLength = 64 * 1024;

    static quint32 mcAddChecksum(const quint8 *data, quint32 length);

    static QByteArray createDeviceInfoQueryPacket(quint32 seq);
    static QByteArray createUdiskSetPacket(quint8 direction, quint32 seq);
    static QByteArray createMouseAutoMoveSetPacket(bool enable, quint32 seq);
    static QByteArray createDeviceRestartPacket(quint32 seq);
    static QByteArray createAtxPowerPacket(quint8 action, quint32 seq);
    // Any packet: magic, channel 1, sequence, body length, command, payload, checksum.
    static QByteArray buildPacket(quint16 command, const QByteArray &payload, quint32 seq);

    // Takes the first valid packet out of `buffer` and returns true; false when no complete
    // valid packet is buffered yet. Bytes before the first candidate magic are dropped; a
    // partial candidate stays for the next call; fewer than HeaderSize bytes are left alone.
    // A candidate whose checksum fails, or whose payload length exceeds MaxPayloadLength,
    // loses its first byte and the search goes on. Skipping costs one pass over the bytes
    // skipped; each candidate costs one pass over its announced length.
    static bool tryConsumeOnePacket(QByteArray &buffer, TkPacket &packet);
    // The same with a smaller limit than MaxPayloadLength for the announced payload length: a
    // reader that bounds its buffer skips headers whose packet could never fit in it.
    static bool tryConsumeOnePacket(QByteArray &buffer, TkPacket &packet, quint32 maxPayloadLength);

    // Human-readable text of an information record: lines joined by '\n', no trailing line
    // feed; "(无数据)" for an empty record. Any byte sequence yields a text.
    static QString formatDeviceInfoPayload(const QByteArray &payload);

    static void updateGlobalDeviceInfoCache(const QByteArray &payload);
    static void clearGlobalDeviceInfoCache();
    static QByteArray globalCachedDeviceInfoPayload();
    static int globalCachedUdiskDir();                              // -1 unknown
    static int globalCachedMouseAutoMove();                         // -1 unknown
    static int udiskDirFromPayload(const QByteArray &payload);      // byte 24, or -1
    static int mouseAutoMoveFromPayload(const QByteArray &payload); // byte 109, or -1
};
