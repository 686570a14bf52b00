#pragma once

// The vendor packet parser written as plainly as its rules read: drop one byte at a time,
// recompute everything for every candidate. Slow on purpose; the real parser must agree with
// it on every input (unit test and fuzz target compare the two).
#include "protocol/tkprotocol.h"

#include <QByteArray>

namespace referenceparser {

inline quint32 readU32(const QByteArray &b, qsizetype at)
{
    return quint32(quint8(b[at])) | quint32(quint8(b[at + 1])) << 8 |
           quint32(quint8(b[at + 2])) << 16 | quint32(quint8(b[at + 3])) << 24;
}

inline bool consumeOne(QByteArray &buffer, TkPacket &packet)
{
    for (;;) {
        if (buffer.size() < 17)
            return false;
        if (quint8(buffer[0]) != 0x57 || quint8(buffer[1]) != 0xAB) {
            buffer.remove(0, 1);
            continue;
        }
        const quint32 n = readU32(buffer, 13);
        if (n > TkProtocol::MaxPayloadLength) {
            buffer.remove(0, 1);
            continue;
        }
        if (buffer.size() < qsizetype(n) + 21)
            return false;
        quint32 sum = 0;
        for (quint32 i = 0; i < n + 17; ++i) {
            const quint8 b = quint8(buffer[i]);
            sum += b + (i % 32) * (b % 8);
        }
        if (sum != readU32(buffer, n + 17)) {
            buffer.remove(0, 1);
            continue;
        }
        packet.channel = quint8(buffer[2]);
        packet.sequence = readU32(buffer, 3);
        packet.command = quint16(quint8(buffer[11]) | quint8(buffer[12]) << 8);
        packet.payload = buffer.mid(17, n);
        buffer.remove(0, n + 21);
        return true;
    }
}

} // namespace referenceparser
