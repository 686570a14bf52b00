#pragma once

#include <QByteArray>
#include <QString>

#include "protocol/tkprotocol.h"

// One unit cut out of the byte stream the console sends to the box.
struct BoxStreamItem
{
    enum Kind {
        Hello,        // the five bytes "hello"
        Frame,        // a CH9329 frame with a valid checksum: 57 AB 00 cmd len data sum
        VendorPacket, // a vendor packet with a valid checksum: 57 AB 01 ...
        BadFrame,     // a candidate frame or packet that was rejected
    };

    Kind kind = Hello;
    QByteArray raw;      // the bytes as received (BadFrame: the rejected candidate)
    quint8 command = 0;  // Frame, and BadFrame of a CH9329 candidate: command byte
    QByteArray data;     // Frame: the data bytes between the length and the checksum
    TkPacket packet;     // VendorPacket
    QString reason;      // BadFrame: "checksum", "length", "header" or "incomplete"
    bool vendor = false; // BadFrame: the candidate was a vendor packet
};

// Incremental splitter of the console's byte stream into "hello", CH9329 frames and vendor
// packets. Feed bytes as they arrive (any split), then call next() until it returns false.
// Bytes that start nothing are skipped one at a time, and a rejected candidate is skipped by
// its first byte only, so the search resumes inside it. Lengths are bounded, so a corrupt
// header delays at most one maximal candidate and never blocks the stream for good.
class BoxStreamSplitter
{
public:
    static constexpr int kMaxFrameData = 64; // CH9329 data length limit
    static constexpr quint32 kMaxVendorPayload = 1024;

    void feed(const QByteArray &bytes) { m_buffer += bytes; }
    // Takes the next complete item; false when the buffered bytes do not yet decide one.
    bool next(BoxStreamItem &item) { return take(item, false); }
    // Like next(), but no more bytes are coming for now: an unfinished frame or packet is
    // rejected as "incomplete" and the search resumes after its first byte; a partial
    // "hello" is dropped. Call until it returns false to empty the buffer.
    bool drain(BoxStreamItem &item) { return take(item, true); }
    // Forgets buffered bytes (the line went down).
    void clear() { m_buffer.clear(); }

    int buffered() const { return int(m_buffer.size()); }
    // Bytes dropped because they started no item (rejected candidates not counted).
    qint64 skippedBytes() const { return m_skipped; }

private:
    enum class Step { NeedMore, Skip, Item };
    bool take(BoxStreamItem &item, bool draining);
    Step tryHello(BoxStreamItem &item);
    Step tryFrame(BoxStreamItem &item);
    Step tryVendor(BoxStreamItem &item);
    void reject(BoxStreamItem &item, int length, const char *reason, bool vendor);

    QByteArray m_buffer;
    qint64 m_skipped = 0;
};
