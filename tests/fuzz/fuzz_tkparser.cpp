// Feeds arbitrary bytes to the vendor packet parser in arbitrary reads and checks it against
// the step-by-step reference after every read.
#include "protocol/tkprotocol.h"
#include "tests/fuzz/referenceparser.h"

#include <cstdlib>

namespace {

void check(bool condition)
{
    if (!condition)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    // The first byte chooses the read size, so split packets and many packets per read are
    // both explored; 0 delivers everything in one read.
    const size_t readSize = data[0];
    const QByteArray stream(reinterpret_cast<const char *>(data + 1), qsizetype(size - 1));

    QByteArray buffer;
    QByteArray reference;
    qsizetype at = 0;
    while (at < stream.size()) {
        const qsizetype chunk = readSize == 0 ? stream.size() : qsizetype(readSize);
        const QByteArray read = stream.mid(at, chunk);
        at += read.size();
        buffer += read;
        reference += read;
        for (;;) {
            const qsizetype before = buffer.size();
            TkPacket mine;
            TkPacket expected;
            const bool got = TkProtocol::tryConsumeOnePacket(buffer, mine);
            check(got == referenceparser::consumeOne(reference, expected));
            check(buffer == reference);
            check(buffer.size() <= before);
            if (!got)
                break;
            check(mine.channel == expected.channel && mine.sequence == expected.sequence &&
                  mine.command == expected.command && mine.payload == expected.payload);
            check(mine.payload.size() <= qsizetype(TkProtocol::MaxPayloadLength));
        }
        // Only a candidate can keep the parser waiting: fewer than a header's bytes, or a magic.
        check(buffer.size() < TkProtocol::HeaderSize ||
              (quint8(buffer[0]) == 0x57 && quint8(buffer[1]) == 0xAB));
    }
    return 0;
}
