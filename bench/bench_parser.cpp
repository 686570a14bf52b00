// Vendor packet parser throughput: valid streams and garbage, at three buffer sizes. Equal
// ns/byte across sizes shows the cost is linear in the bytes given.
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QTextStream>

#include <algorithm>
#include <vector>

#include "bench/bench.h"
#include "protocol/deviceinfo.h"
#include "protocol/tkprotocol.h"

namespace {

constexpr qsizetype kSizes[] = {4 * 1024, 64 * 1024, 1024 * 1024};
constexpr qint64 kBytesPerCase = 64 * 1024 * 1024; // runs per size = this / size

// Replies as the box sends them: mostly general replies, now and then an information record.
QByteArray validStream(qsizetype size)
{
    const QByteArray general =
        TkProtocol::buildPacket(TkProtocol::ReplyGeneral, QByteArray(1, '\0'), 0);
    const QByteArray info = TkProtocol::buildPacket(TkProtocol::ReplyDeviceInfo,
                                                    encodeDeviceInfoRecord(DeviceInfoRecord()), 0);
    QByteArray out;
    out.reserve(size);
    for (int i = 0; out.size() + info.size() <= size; ++i)
        out += (i % 4 == 3) ? info : general;
    return out;
}

QByteArray badChecksumStream(qsizetype size)
{
    QByteArray bad = TkProtocol::buildPacket(TkProtocol::ReplyGeneral, QByteArray(1, '\0'), 0);
    bad[bad.size() - 1] = '\x55';
    QByteArray out;
    out.reserve(size);
    while (out.size() + bad.size() <= size)
        out += bad;
    return out;
}

QByteArray randomGarbage(qsizetype size)
{
    QRandomGenerator rng(12345);
    QByteArray out(size, '\0');
    for (qsizetype i = 0; i < size; ++i)
        out[i] = char(rng.bounded(256));
    return out;
}

struct Figures
{
    double medianUs;
    double p99Us;
    int packets;
};

// Feeds `stream` in reads of `readSize` bytes (0: all at once) and drains the parser after
// every read, as the serial link does.
Figures measure(const QByteArray &stream, qsizetype readSize)
{
    const int runs = int(qMax<qint64>(8, kBytesPerCase / qMax<qsizetype>(1, stream.size())));
    std::vector<qint64> times;
    times.reserve(runs);
    int packets = 0;
    for (int run = 0; run < runs; ++run) {
        // A private copy made before timing, so the parser's first removal does not detach.
        QByteArray buffer =
            readSize == 0 ? QByteArray(stream.constData(), stream.size()) : QByteArray();
        TkPacket packet;
        int found = 0;
        QElapsedTimer timer;
        timer.start();
        if (readSize == 0) {
            while (TkProtocol::tryConsumeOnePacket(buffer, packet))
                ++found;
        } else {
            for (qsizetype at = 0; at < stream.size(); at += readSize) {
                buffer.append(stream.constData() + at, qMin(readSize, stream.size() - at));
                while (TkProtocol::tryConsumeOnePacket(buffer, packet))
                    ++found;
            }
        }
        times.push_back(timer.nsecsElapsed());
        packets = found;
    }
    std::sort(times.begin(), times.end());
    const auto at = [&](double q) { return times[size_t(q * double(times.size() - 1))] / 1000.0; };
    return {at(0.5), at(0.99), packets};
}

void report(const char *kind, qsizetype nominalSize, const QByteArray &stream, qsizetype readSize)
{
    const Figures f = measure(stream, readSize);
    const double mbPerS = double(stream.size()) / f.medianUs; // bytes/us == MB/s
    const double nsPerByte = f.medianUs * 1000.0 / double(stream.size());
    QTextStream out(stdout);
    out << QStringLiteral("%1 %2 KiB: median %3 us, p99 %4 us, %5 MB/s, %6 ns/byte, %7 packets")
               .arg(QLatin1String(kind))
               .arg(nominalSize / 1024, 5)
               .arg(f.medianUs, 9, 'f', 1)
               .arg(f.p99Us, 9, 'f', 1)
               .arg(mbPerS, 7, 'f', 0)
               .arg(nsPerByte, 6, 'f', 3)
               .arg(f.packets)
        << Qt::endl;
}

void benchValid()
{
    for (qsizetype size : kSizes)
        report("valid, one read     ", size, validStream(size), 0);
    for (qsizetype size : kSizes)
        report("valid, 256-byte reads", size, validStream(size), 256);
}

void benchGarbage()
{
    for (qsizetype size : kSizes)
        report("random garbage      ", size, randomGarbage(size), 0);
    // Every byte is a first magic byte: the worst case for the skip.
    for (qsizetype size : kSizes)
        report("0x57 garbage        ", size, QByteArray(size, '\x57'), 0);
    for (qsizetype size : kSizes)
        report("random, 256-b reads ", size, randomGarbage(size), 256);
    // Packets with a bad checksum back to back: every one is a full candidate to check.
    for (qsizetype size : kSizes)
        report("bad-checksum packets", size, badChecksumStream(size), 0);
}

} // namespace

TAVROKVM_BENCH("parser: valid streams", benchValid);
TAVROKVM_BENCH("parser: garbage", benchGarbage);
