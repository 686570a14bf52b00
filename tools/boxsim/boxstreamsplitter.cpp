#include "boxstreamsplitter.h"

namespace {

constexpr char kHello[] = "hello";
constexpr int kHelloLength = 5;
constexpr quint8 kMagic0 = 0x57;
constexpr quint8 kMagic1 = 0xAB;
constexpr quint8 kFrameAddress = 0x00; // CH9329 chip address
constexpr quint8 kVendorChannel = 0x01;
constexpr int kVendorHeader = 17; // magic, channel, sequence, body length, command, N
constexpr int kVendorOverhead = 21;

quint8 byteAt(const QByteArray &buffer, int index)
{
    return quint8(buffer.at(index));
}

quint32 u32At(const QByteArray &buffer, int offset)
{
    return quint32(byteAt(buffer, offset)) | quint32(byteAt(buffer, offset + 1)) << 8 |
           quint32(byteAt(buffer, offset + 2)) << 16 | quint32(byteAt(buffer, offset + 3)) << 24;
}

} // namespace

bool BoxStreamSplitter::take(BoxStreamItem &item, bool draining)
{
    while (!m_buffer.isEmpty()) {
        Step step = Step::Skip;
        const quint8 first = byteAt(m_buffer, 0);
        if (first == quint8(kHello[0])) {
            step = tryHello(item);
        } else if (first == kMagic0) {
            if (m_buffer.size() < 2 || (byteAt(m_buffer, 1) == kMagic1 && m_buffer.size() < 3))
                step = Step::NeedMore;
            else if (byteAt(m_buffer, 1) == kMagic1 && byteAt(m_buffer, 2) == kFrameAddress)
                step = tryFrame(item);
            else if (byteAt(m_buffer, 1) == kMagic1 && byteAt(m_buffer, 2) == kVendorChannel)
                step = tryVendor(item);
        }
        if (step == Step::NeedMore && draining) {
            const bool candidate = m_buffer.size() >= 3 && byteAt(m_buffer, 0) == kMagic0 &&
                                   byteAt(m_buffer, 1) == kMagic1;
            if (candidate) {
                const bool vendor = byteAt(m_buffer, 2) == kVendorChannel;
                reject(item, int(m_buffer.size()), "incomplete", vendor);
                return true;
            }
            step = Step::Skip;
        }
        switch (step) {
        case Step::NeedMore:
            return false;
        case Step::Item:
            return true;
        case Step::Skip:
            m_buffer.remove(0, 1);
            ++m_skipped;
            break;
        }
    }
    return false;
}

BoxStreamSplitter::Step BoxStreamSplitter::tryHello(BoxStreamItem &item)
{
    const int available = qMin(int(m_buffer.size()), kHelloLength);
    if (m_buffer.left(available) != QByteArray(kHello, available))
        return Step::Skip;
    if (available < kHelloLength)
        return Step::NeedMore;
    item = BoxStreamItem();
    item.kind = BoxStreamItem::Hello;
    item.raw = m_buffer.left(kHelloLength);
    m_buffer.remove(0, kHelloLength);
    return Step::Item;
}

void BoxStreamSplitter::reject(BoxStreamItem &item, int length, const char *reason, bool vendor)
{
    item = BoxStreamItem();
    item.kind = BoxStreamItem::BadFrame;
    item.raw = m_buffer.left(length);
    item.reason = QString::fromLatin1(reason);
    item.vendor = vendor;
    if (!vendor && m_buffer.size() > 3)
        item.command = byteAt(m_buffer, 3);
    // Only the first byte goes: a real frame may start inside the rejected candidate.
    m_buffer.remove(0, 1);
}

BoxStreamSplitter::Step BoxStreamSplitter::tryFrame(BoxStreamItem &item)
{
    if (m_buffer.size() < 5)
        return Step::NeedMore;
    const int dataLength = byteAt(m_buffer, 4);
    if (dataLength > kMaxFrameData) {
        reject(item, 5, "length", false);
        return Step::Item;
    }
    const int total = 6 + dataLength;
    if (m_buffer.size() < total)
        return Step::NeedMore;
    quint8 sum = 0;
    for (int i = 0; i < total - 1; ++i)
        sum = quint8(sum + byteAt(m_buffer, i));
    if (sum != byteAt(m_buffer, total - 1)) {
        reject(item, total, "checksum", false);
        return Step::Item;
    }
    item = BoxStreamItem();
    item.kind = BoxStreamItem::Frame;
    item.raw = m_buffer.left(total);
    item.command = byteAt(m_buffer, 3);
    item.data = m_buffer.mid(5, dataLength);
    m_buffer.remove(0, total);
    return Step::Item;
}

BoxStreamSplitter::Step BoxStreamSplitter::tryVendor(BoxStreamItem &item)
{
    if (m_buffer.size() < kVendorHeader)
        return Step::NeedMore;
    const quint32 bodyLength = u32At(m_buffer, 7);
    const quint32 payloadLength = u32At(m_buffer, 13);
    // The body length is redundant (6 + N); requiring it keeps stray magic bytes with a wild
    // length from holding up the stream.
    if (payloadLength > kMaxVendorPayload || bodyLength != payloadLength + 6) {
        reject(item, kVendorHeader, "header", true);
        return Step::Item;
    }
    const int total = int(payloadLength) + kVendorOverhead;
    if (m_buffer.size() < total)
        return Step::NeedMore;
    const auto *bytes = reinterpret_cast<const quint8 *>(m_buffer.constData());
    const quint32 sum = TkProtocol::mcAddChecksum(bytes, quint32(total - 4));
    if (sum != u32At(m_buffer, total - 4)) {
        reject(item, total, "checksum", true);
        return Step::Item;
    }
    item = BoxStreamItem();
    item.kind = BoxStreamItem::VendorPacket;
    item.raw = m_buffer.left(total);
    item.packet.channel = byteAt(m_buffer, 2);
    item.packet.sequence = u32At(m_buffer, 3);
    item.packet.command = quint16(byteAt(m_buffer, 11) | byteAt(m_buffer, 12) << 8);
    item.packet.payload = m_buffer.mid(kVendorHeader, int(payloadLength));
    m_buffer.remove(0, total);
    return Step::Item;
}
