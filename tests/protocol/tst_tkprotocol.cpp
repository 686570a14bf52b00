// Vendor packets: checksum, builders, the stream parser and the information-record cache.
#include <QRandomGenerator>
#include <QTest>
#include <QtEndian>

#include "protocol/tkprotocol.h"
#include "tests/fuzz/referenceparser.h"

#include <vector>

namespace {

QByteArray hex(const char *text)
{
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

// Packets with sequence number 0, written out by hand:
//   magic | channel | sequence | body length | command | payload length | payload | checksum
const QByteArray kInfoQuery = hex("57 AB 01 00000000 06000000 0100 00000000 44010000");
const QByteArray kUdiskTarget = hex("57 AB 01 00000000 07000000 0300 01000000 01 84010000");
const QByteArray kUdiskHost = hex("57 AB 01 00000000 07000000 0300 01000000 02 96010000");
const QByteArray kAutoMoveOn = hex("57 AB 01 00000000 07000000 0B00 01000000 01 8C010000");
const QByteArray kAutoMoveOff = hex("57 AB 01 00000000 07000000 0B00 01000000 00 7A010000");
const QByteArray kRestart = hex("57 AB 01 00000000 0A000000 0A00 04000000 01000000 8A010000");

QByteArray randomBytes(QRandomGenerator &rng, int count)
{
    QByteArray out(count, '\0');
    for (int i = 0; i < count; ++i)
        out[i] = char(rng.bounded(256));
    return out;
}

// Garbage that looks like the start of packets often: lone magic bytes, headers with small
// announced lengths, cut packets and packets with one byte changed.
QByteArray trickyGarbage(QRandomGenerator &rng)
{
    switch (rng.bounded(5)) {
    case 0:
        return randomBytes(rng, rng.bounded(40));
    case 1:
        return hex("57") + randomBytes(rng, rng.bounded(4)) + hex("57 AB");
    case 2: {
        QByteArray header = hex("57 AB 01 00000000 06000000 0100");
        header += char(rng.bounded(64));
        header += QByteArray(3, '\0');
        return header + randomBytes(rng, rng.bounded(30));
    }
    case 3: {
        const QByteArray packet = TkProtocol::buildPacket(quint16(rng.bounded(0x10000)),
                                                          randomBytes(rng, rng.bounded(50)), 7);
        return packet.left(rng.bounded(1, int(packet.size())));
    }
    default: {
        QByteArray packet = TkProtocol::buildPacket(0x81, randomBytes(rng, rng.bounded(50)), 9);
        const int at = rng.bounded(int(packet.size()));
        packet[at] = char(packet[at] ^ char(1 + rng.bounded(255)));
        return packet;
    }
    }
}

} // namespace

class TestTkProtocol : public QObject
{
    Q_OBJECT

private slots:
    void checksum_data();
    void checksum();
    void checksumWrapsAccumulator();
    void builders_data();
    void builders();
    void parseWhole_data();
    void parseWhole();
    void parseByteByByte_data();
    void parseByteByByte();
    void garbageBeforePacket();
    void changedChecksumByte_data();
    void changedChecksumByte();
    void twoPacketsBackToBack();
    void shortBufferUntouched_data();
    void shortBufferUntouched();
    void garbageKeepsLastSixteenBytes();
    void incompleteCandidateWaits();
    void oversizedLength_data();
    void oversizedLength();
    void payloadAtLengthBound();
    void callersLengthLimit_data();
    void callersLengthLimit();
    void randomStreamRecoversAllPackets();
    void agreesWithStepwiseRules();
    void payloadDecoders_data();
    void payloadDecoders();
    void cache();
};

void TestTkProtocol::checksum_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<quint32>("expected");

    QTest::newRow("empty") << QByteArray() << 0u;
    QTest::newRow("57 alone") << hex("57") << 0x57u;
    // 0xAB at position 1: 171 + 1 * 3
    QTest::newRow("00 AB") << hex("00 AB") << 174u;
    // Weight 31 is the last before the wrap: 255 + 31 * 7.
    QTest::newRow("byte 31 = FF") << QByteArray(31, '\0') + hex("FF") << 472u;
    {
        // Byte 32 has weight 0 and byte 33 weight 1: 5 + 0 + 5 + 5.
        QByteArray range(40, '\0');
        range[32] = 5;
        range[33] = 5;
        QTest::newRow("40 bytes, 32 and 33 set") << range << 15u;
    }
    // 40 * 7 + 7 * (0 + ... + 31 + 0 + ... + 7)
    QTest::newRow("40 bytes of 07") << QByteArray(40, '\x07') << 3948u;
    // Only the low three bits are weighted: 0xF8 has (b mod 8) = 0 at any position.
    QTest::newRow("F8 everywhere") << QByteArray(5, '\xF8') << 5u * 0xF8u;
}

void TestTkProtocol::checksum()
{
    QFETCH(QByteArray, data);
    QFETCH(quint32, expected);
    QCOMPARE(TkProtocol::mcAddChecksum(reinterpret_cast<const quint8 *>(data.constData()),
                                       quint32(data.size())),
             expected);
}

void TestTkProtocol::checksumWrapsAccumulator()
{
    // Each block of 32 0xFF bytes adds 32 * 255 + 7 * 496 = 11632; 12 MiB holds 393216 blocks,
    // 4573888512 in all, which wraps to 278921216 in 32 bits.
    const QByteArray data(12 * 1024 * 1024, '\xFF');
    QCOMPARE(TkProtocol::mcAddChecksum(reinterpret_cast<const quint8 *>(data.constData()),
                                       quint32(data.size())),
             278921216u);
}

void TestTkProtocol::builders_data()
{
    QTest::addColumn<QByteArray>("built");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("info query") << TkProtocol::createDeviceInfoQueryPacket(0) << kInfoQuery;
    QTest::newRow("udisk to target") << TkProtocol::createUdiskSetPacket(1, 0) << kUdiskTarget;
    QTest::newRow("udisk to host") << TkProtocol::createUdiskSetPacket(2, 0) << kUdiskHost;
    QTest::newRow("auto-move on") << TkProtocol::createMouseAutoMoveSetPacket(true, 0)
                                  << kAutoMoveOn;
    QTest::newRow("auto-move off")
        << TkProtocol::createMouseAutoMoveSetPacket(false, 0) << kAutoMoveOff;
    QTest::newRow("restart") << TkProtocol::createDeviceRestartPacket(0) << kRestart;
    // Checksums below worked out by hand.
    QTest::newRow("atx action 1") << TkProtocol::createAtxPowerPacket(1, 0)
                                  << hex("57 AB 01 00000000 07000000 0400 01000000 01 90010000");
    // Sequence bytes 01 02 03 04 at positions 3..6 add 4 + 10 + 18 + 28 to 0x144.
    QTest::newRow("info query seq 0x04030201")
        << TkProtocol::createDeviceInfoQueryPacket(0x04030201)
        << hex("57 AB 01 01020304 06000000 0100 00000000 80010000");
}

void TestTkProtocol::builders()
{
    QFETCH(QByteArray, built);
    QFETCH(QByteArray, expected);
    QCOMPARE(built.toHex(' '), expected.toHex(' '));
}

void TestTkProtocol::parseWhole_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<quint16>("command");
    QTest::addColumn<QByteArray>("payload");

    QTest::newRow("info query") << kInfoQuery << quint16(1) << QByteArray();
    QTest::newRow("udisk to target") << kUdiskTarget << quint16(3) << hex("01");
    QTest::newRow("udisk to host") << kUdiskHost << quint16(3) << hex("02");
    QTest::newRow("auto-move on") << kAutoMoveOn << quint16(11) << hex("01");
    QTest::newRow("auto-move off") << kAutoMoveOff << quint16(11) << hex("00");
    QTest::newRow("restart") << kRestart << quint16(10) << hex("01000000");
}

void TestTkProtocol::parseWhole()
{
    QFETCH(QByteArray, bytes);
    QFETCH(quint16, command);
    QFETCH(QByteArray, payload);

    QByteArray buffer = bytes;
    TkPacket packet;
    QVERIFY(TkProtocol::tryConsumeOnePacket(buffer, packet));
    QCOMPARE(packet.channel, quint8(1));
    QCOMPARE(packet.sequence, 0u);
    QCOMPARE(packet.command, command);
    QCOMPARE(packet.payload, payload);
    QVERIFY(buffer.isEmpty());
    QVERIFY(!TkProtocol::tryConsumeOnePacket(buffer, packet));
}

void TestTkProtocol::parseByteByByte_data()
{
    parseWhole_data();
}

void TestTkProtocol::parseByteByByte()
{
    QFETCH(QByteArray, bytes);
    QFETCH(quint16, command);
    QFETCH(QByteArray, payload);

    QByteArray buffer;
    TkPacket packet;
    for (qsizetype i = 0; i + 1 < bytes.size(); ++i) {
        buffer.append(bytes.at(i));
        QVERIFY2(!TkProtocol::tryConsumeOnePacket(buffer, packet),
                 qPrintable(QStringLiteral("returned early at byte %1").arg(i)));
        QCOMPARE(buffer.size(), i + 1); // nothing dropped while waiting
    }
    buffer.append(bytes.back());
    QVERIFY(TkProtocol::tryConsumeOnePacket(buffer, packet));
    QCOMPARE(packet.command, command);
    QCOMPARE(packet.payload, payload);
    QVERIFY(buffer.isEmpty());
}

void TestTkProtocol::garbageBeforePacket()
{
    QByteArray buffer = hex("00 57 FF") + kUdiskHost;
    TkPacket packet;
    QVERIFY(TkProtocol::tryConsumeOnePacket(buffer, packet));
    QCOMPARE(packet.command, quint16(3));
    QCOMPARE(packet.payload, hex("02"));
    QVERIFY(buffer.isEmpty());
}

void TestTkProtocol::changedChecksumByte_data()
{
    QTest::addColumn<int>("position");
    for (int k = 0; k < 4; ++k)
        QTest::addRow("checksum byte %d", k) << int(kRestart.size()) - 4 + k;
    QTest::newRow("payload byte") << 17;
    QTest::newRow("channel byte") << 2;
}

void TestTkProtocol::changedChecksumByte()
{
    QFETCH(int, position);
    QByteArray corrupt = kRestart;
    corrupt[position] = char(corrupt[position] ^ 0x10);

    QByteArray buffer = corrupt;
    TkPacket packet;
    QVERIFY(!TkProtocol::tryConsumeOnePacket(buffer, packet));
    // The magic was passed over; only a tail too short to parse remains.
    QCOMPARE(buffer, corrupt.right(16));

    // The search goes on past the corrupt packet and finds the next good one.
    buffer = corrupt + kAutoMoveOn;
    QVERIFY(TkProtocol::tryConsumeOnePacket(buffer, packet));
    QCOMPARE(packet.command, quint16(11));
    QCOMPARE(packet.payload, hex("01"));
    QVERIFY(buffer.isEmpty());
}

void TestTkProtocol::twoPacketsBackToBack()
{
    QByteArray buffer = kInfoQuery + kRestart;
    TkPacket packet;
    QVERIFY(TkProtocol::tryConsumeOnePacket(buffer, packet));
    QCOMPARE(packet.command, quint16(1));
    QCOMPARE(buffer, kRestart);
    QVERIFY(TkProtocol::tryConsumeOnePacket(buffer, packet));
    QCOMPARE(packet.command, quint16(10));
    QCOMPARE(packet.payload, hex("01000000"));
    QVERIFY(buffer.isEmpty());
}

void TestTkProtocol::shortBufferUntouched_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("16 bytes without magic") << hex("00112233445566778899AABBCCDDEEFF");
    QTest::newRow("16 bytes of a packet") << kInfoQuery.left(16);
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("one byte") << hex("57");
}

void TestTkProtocol::shortBufferUntouched()
{
    QFETCH(QByteArray, bytes);
    QByteArray buffer = bytes;
    TkPacket packet;
    QVERIFY(!TkProtocol::tryConsumeOnePacket(buffer, packet));
    QCOMPARE(buffer, bytes);
}

void TestTkProtocol::garbageKeepsLastSixteenBytes()
{
    // No candidate anywhere: everything but the last 16 bytes goes, since those could still be
    // the start of a packet once more bytes arrive.
    QByteArray garbage(1000, '\x11');
    garbage[999] = char(0x57);
    QByteArray buffer = garbage;
    TkPacket packet;
    QVERIFY(!TkProtocol::tryConsumeOnePacket(buffer, packet));
    QCOMPARE(buffer, garbage.right(16));
}

void TestTkProtocol::incompleteCandidateWaits()
{
    const QByteArray info = TkProtocol::buildPacket(0x81, QByteArray(134, '\x42'), 0);
    QByteArray buffer = hex("01 02 03 04 05") + info.left(100);
    TkPacket packet;
    QVERIFY(!TkProtocol::tryConsumeOnePacket(buffer, packet));
    QCOMPARE(buffer, info.left(100)); // garbage dropped, the partial packet kept whole
    buffer += info.mid(100);
    QVERIFY(TkProtocol::tryConsumeOnePacket(buffer, packet));
    QCOMPARE(packet.command, quint16(0x81));
    QCOMPARE(packet.payload, QByteArray(134, '\x42'));
    QVERIFY(buffer.isEmpty());
}

void TestTkProtocol::oversizedLength_data()
{
    QTest::addColumn<QByteArray>("lengthField");
    QTest::newRow("64 KiB + 1") << hex("01000100");
    QTest::newRow("16 MiB") << hex("00000001");
    QTest::newRow("0xFFFFFFFF") << hex("FFFFFFFF");
}

void TestTkProtocol::oversizedLength()
{
    // A header announcing more than any real packet can carry must not make the parser wait
    // for that many bytes: it is skipped like a bad checksum and the next packet comes out.
    QFETCH(QByteArray, lengthField);
    const QByteArray bogus = hex("57 AB 01 00000000 06000000 0100") + lengthField;
    QByteArray buffer = bogus + kAutoMoveOff;
    TkPacket packet;
    QVERIFY(TkProtocol::tryConsumeOnePacket(buffer, packet));
    QCOMPARE(packet.command, quint16(11));
    QCOMPARE(packet.payload, hex("00"));
    QVERIFY(buffer.isEmpty());
}

void TestTkProtocol::payloadAtLengthBound()
{
    // The bound itself is still a possible packet: wait for it, then parse it.
    const QByteArray payload(int(TkProtocol::MaxPayloadLength), '\x5A');
    const QByteArray packetBytes = TkProtocol::buildPacket(0x81, payload, 3);
    QByteArray buffer = packetBytes.left(packetBytes.size() - 1);
    TkPacket packet;
    QVERIFY(!TkProtocol::tryConsumeOnePacket(buffer, packet));
    QCOMPARE(buffer.size(), packetBytes.size() - 1);
    buffer += packetBytes.back();
    QVERIFY(TkProtocol::tryConsumeOnePacket(buffer, packet));
    QCOMPARE(packet.sequence, 3u);
    QCOMPARE(packet.payload, payload);
}

void TestTkProtocol::callersLengthLimit_data()
{
    QTest::addColumn<quint32>("limit");
    QTest::addColumn<quint32>("announced");
    QTest::addColumn<bool>("skipped"); // else the header waits for its bytes

    QTest::newRow("at a 1024 limit") << 1024u << 1024u << false;
    QTest::newRow("above a 1024 limit") << 1024u << 1025u << true;
    QTest::newRow("above a 100 limit") << 100u << 101u << true;
    // A limit above the protocol's own is no limit beyond it.
    QTest::newRow("above 64 KiB, limit 0xFFFFFFFF") << 0xFFFFFFFFu << 65537u << true;
}

void TestTkProtocol::callersLengthLimit()
{
    QFETCH(quint32, limit);
    QFETCH(quint32, announced);
    QFETCH(bool, skipped);
    QByteArray header = hex("57 AB 01 00000000 06000000 8100 00000000");
    qToLittleEndian<quint32>(announced, header.data() + 13);
    // A complete packet follows, so a header that is skipped lets it out at once.
    QByteArray buffer = header + kAutoMoveOff;
    TkPacket packet;
    const bool found = TkProtocol::tryConsumeOnePacket(buffer, packet, limit);
    QCOMPARE(found, skipped);
    if (skipped) {
        QCOMPARE(packet.command, quint16(11));
        QVERIFY(buffer.isEmpty());
    } else {
        QCOMPARE(buffer.size(), header.size() + kAutoMoveOff.size());
    }
}

void TestTkProtocol::randomStreamRecoversAllPackets()
{
    const quint32 seed = 20260528;
    QRandomGenerator rng(seed);
    for (int round = 0; round < 50; ++round) {
        std::vector<TkPacket> sent;
        QByteArray stream;
        const int count = rng.bounded(1, 40);
        for (int i = 0; i < count; ++i) {
            stream += trickyGarbage(rng);
            TkPacket p;
            p.channel = 1;
            p.sequence = rng.generate();
            p.command = quint16(rng.bounded(0x10000));
            p.payload = randomBytes(rng, rng.bounded(300));
            stream += TkProtocol::buildPacket(p.command, p.payload, p.sequence);
            sent.push_back(p);
        }
        // A corrupt header may announce up to the bound; enough filler lets it fail.
        stream += QByteArray(int(TkProtocol::MaxPayloadLength) + 21, '\0');

        // Deliver in reads of random size, draining the parser after each like the link does.
        std::vector<TkPacket> received;
        QByteArray buffer;
        qsizetype at = 0;
        while (at < stream.size()) {
            const qsizetype chunk = qMin<qsizetype>(rng.bounded(1, 200), stream.size() - at);
            buffer += stream.mid(at, chunk);
            at += chunk;
            TkPacket p;
            while (TkProtocol::tryConsumeOnePacket(buffer, p))
                received.push_back(p);
        }

        const QString where = QStringLiteral("seed %1, round %2").arg(seed).arg(round);
        QVERIFY2(
            received.size() == sent.size(),
            qPrintable(
                where +
                QStringLiteral(": sent %1, received %2").arg(sent.size()).arg(received.size())));
        for (size_t i = 0; i < sent.size(); ++i) {
            const bool same = received[i].sequence == sent[i].sequence &&
                              received[i].command == sent[i].command &&
                              received[i].payload == sent[i].payload && received[i].channel == 1;
            QVERIFY2(same, qPrintable(where + QStringLiteral(": packet %1 differs").arg(i)));
        }
    }
}

void TestTkProtocol::agreesWithStepwiseRules()
{
    // Skipping by index must give the same packets and leave the same buffer as dropping one
    // byte at a time, for any input.
    const quint32 seed = 7;
    QRandomGenerator rng(seed);
    for (int round = 0; round < 2000; ++round) {
        QByteArray input;
        const int pieces = rng.bounded(1, 8);
        for (int i = 0; i < pieces; ++i) {
            if (rng.bounded(3) == 0)
                input += TkProtocol::buildPacket(quint16(rng.bounded(4)),
                                                 randomBytes(rng, rng.bounded(20)), 0);
            else
                input += trickyGarbage(rng);
        }
        QByteArray mine = input;
        QByteArray reference = input;
        for (int call = 0;; ++call) {
            TkPacket a;
            TkPacket b;
            const bool gotMine = TkProtocol::tryConsumeOnePacket(mine, a);
            const bool gotReference = referenceparser::consumeOne(reference, b);
            const QString where = QStringLiteral("seed %1, round %2, call %3, input %4")
                                      .arg(seed)
                                      .arg(round)
                                      .arg(call)
                                      .arg(QString::fromLatin1(input.toHex()));
            QVERIFY2(gotMine == gotReference, qPrintable(where));
            QVERIFY2(mine == reference, qPrintable(where));
            if (!gotMine)
                break;
            QVERIFY2(a.channel == b.channel && a.sequence == b.sequence && a.command == b.command &&
                         a.payload == b.payload,
                     qPrintable(where));
        }
    }
}

void TestTkProtocol::payloadDecoders_data()
{
    QTest::addColumn<QByteArray>("record");
    QTest::addColumn<int>("udiskDir");
    QTest::addColumn<int>("autoMove");

    QByteArray r25(25, '\0');
    r25[24] = 2;
    QByteArray r110(110, '\0');
    r110[24] = 1;
    r110[109] = 1;
    QByteArray r134(134, '\xEE');

    QTest::newRow("empty") << QByteArray() << -1 << -1;
    QTest::newRow("24 bytes") << QByteArray(24, '\x02') << -1 << -1;
    QTest::newRow("25 bytes, byte 24 = 2") << r25 << 2 << -1;
    QTest::newRow("109 bytes") << QByteArray(109, '\x01') << 1 << -1;
    QTest::newRow("110 bytes, auto-move 1") << r110 << 1 << 1;
    QTest::newRow("134 bytes of EE") << r134 << 0xEE << 0xEE; // raw bytes, unsigned
}

void TestTkProtocol::payloadDecoders()
{
    QFETCH(QByteArray, record);
    QFETCH(int, udiskDir);
    QFETCH(int, autoMove);
    QCOMPARE(TkProtocol::udiskDirFromPayload(record), udiskDir);
    QCOMPARE(TkProtocol::mouseAutoMoveFromPayload(record), autoMove);

    TkProtocol::updateGlobalDeviceInfoCache(record);
    QCOMPARE(TkProtocol::globalCachedDeviceInfoPayload(), record);
    QCOMPARE(TkProtocol::globalCachedUdiskDir(), udiskDir);
    QCOMPARE(TkProtocol::globalCachedMouseAutoMove(), autoMove);
    TkProtocol::clearGlobalDeviceInfoCache();
}

void TestTkProtocol::cache()
{
    QByteArray record(134, '\0');
    record[24] = 2;
    record[109] = 1;
    TkProtocol::updateGlobalDeviceInfoCache(record);
    record[24] = 1; // the cache holds its own copy
    QCOMPARE(TkProtocol::globalCachedUdiskDir(), 2);
    QCOMPARE(TkProtocol::globalCachedDeviceInfoPayload().at(24), '\x02');

    TkProtocol::clearGlobalDeviceInfoCache();
    QCOMPARE(TkProtocol::globalCachedUdiskDir(), -1);
    QCOMPARE(TkProtocol::globalCachedMouseAutoMove(), -1);
    QVERIFY(TkProtocol::globalCachedDeviceInfoPayload().isEmpty());
}

QTEST_APPLESS_MAIN(TestTkProtocol)
#include "tst_tkprotocol.moc"
