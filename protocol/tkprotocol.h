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

    static quint32 mcAddChecksum(const quint8 *data, quint32 length);

    static QByteArray createDeviceInfoQueryPacket(quint32 seq);
    static QByteArray createUdiskSetPacket(quint8 direction, quint32 seq);
    static QByteArray createMouseAutoMoveSetPacket(bool enable, quint32 seq);
    static QByteArray createDeviceRestartPacket(quint32 seq);
    static QByteArray createAtxPowerPacket(quint8 action, quint32 seq);
    // Any packet: magic, channel 1, sequence, body length, command, payload, checksum.
    static QByteArray buildPacket(quint16 command, const QByteArray &payload, quint32 seq);

    // Takes the first valid packet out of `buffer` and returns true; false when no complete
    // valid packet is buffered yet (garbage before a magic is dropped, partial packets stay).
    static bool tryConsumeOnePacket(QByteArray &buffer, TkPacket &packet);

    // Human-readable text of an information record (multi-line).
    static QString formatDeviceInfoPayload(const QByteArray &payload);

    static void updateGlobalDeviceInfoCache(const QByteArray &payload);
    static void clearGlobalDeviceInfoCache();
    static QByteArray globalCachedDeviceInfoPayload();
    static int globalCachedUdiskDir();       // -1 unknown
    static int globalCachedMouseAutoMove();  // -1 unknown
    static int udiskDirFromPayload(const QByteArray &payload);      // byte 24, or -1
    static int mouseAutoMoveFromPayload(const QByteArray &payload); // byte 109, or -1
};
