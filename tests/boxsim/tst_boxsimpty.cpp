#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSerialPort>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

#include "protocol/tkprotocol.h"
#include "tests/support/boxsimprocess.h"

namespace {

constexpr int kWaitMs = 5000;

using Box = BoxSimProcess;

bool openPort(QSerialPort &port, const QString &link)
{
    port.setPortName(link);
    port.setBaudRate(2000000);
    port.setDataBits(QSerialPort::Data8);
    port.setParity(QSerialPort::NoParity);
    port.setStopBits(QSerialPort::OneStop);
    port.setFlowControl(QSerialPort::NoFlowControl);
    return port.open(QIODevice::ReadWrite);
}

// Reads from the port until `minimum` bytes arrived or kWaitMs passed.
QByteArray readAtLeast(QSerialPort &port, int minimum)
{
    QByteArray bytes;
    QElapsedTimer timer;
    timer.start();
    while (bytes.size() < minimum && timer.elapsed() < kWaitMs) {
        if (port.bytesAvailable() == 0)
            port.waitForReadyRead(50);
        bytes += port.readAll();
    }
    return bytes;
}

QByteArray hex(const char *text)
{
    return QByteArray::fromHex(QByteArray(text));
}

} // namespace

class TestBoxSimPty : public QObject
{
    Q_OBJECT
private slots:
    void informationQuery_data();
    void informationQuery();
    void keyboardFramesReachTheTarget();
    void hangupAfterBytes();
    void cutReplyHangsUpAfterThePart();
    void signalStopsAndResumesReplies();
    void restartDropsAndRestoresTheLine();
    void terminateRemovesTheLink();

private:
    QTemporaryDir m_dir;
};

void TestBoxSimPty::informationQuery_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("replies");
    QTest::addColumn<bool>("parses");

    QTest::newRow("plain") << QStringList() << true << true;
    QTest::newRow("garbage between") << QStringList{"--garbage-between"} << true << true;
    QTest::newRow("reply delay") << QStringList{"--reply-delay-ms", "150"} << true << true;
    QTest::newRow("corrupt checksums") << QStringList{"--corrupt-checksums"} << true << false;
    QTest::newRow("no replies") << QStringList{"--no-replies"} << false << false;
}

void TestBoxSimPty::informationQuery()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, replies);
    QFETCH(bool, parses);

    const QString link = m_dir.filePath(QStringLiteral("tk-box"));
    Box box;
    QVERIFY(box.start(link, QStringList{"--serial", "TKPTY0000042"} + arguments));
    const QJsonObject ready = box.next("ready");
    QVERIFY2(!ready.isEmpty(), "no ready line");
    QVERIFY(ready.value("pty").toString().startsWith("/dev/pts/"));
    QCOMPARE(ready.value("link").toString(), link);
    QCOMPARE(QFileInfo(link).symLinkTarget(), ready.value("pty").toString());

    QSerialPort port;
    QVERIFY2(openPort(port, link), qPrintable(port.errorString()));
    port.write(QByteArray("hello") + TkProtocol::createDeviceInfoQueryPacket(0));
    QVERIFY(port.waitForBytesWritten(kWaitMs));

    QVERIFY(!box.next("hello").isEmpty());
    const QJsonObject command = box.next("command");
    QCOMPARE(command.value("command").toInt(), 1);
    QCOMPARE(command.value("name").toString(), QStringLiteral("device_info_query"));

    if (!replies) {
        // A second greeting marks the point by which a reply would have been written.
        port.write("hello");
        QVERIFY(port.waitForBytesWritten(kWaitMs));
        QVERIFY(!box.next("hello").isEmpty());
        QVERIFY(!box.namesSeen().contains("reply"));
        QVERIFY(!port.waitForReadyRead(200));
        QCOMPARE(port.bytesAvailable(), qint64(0));
        return;
    }

    const QJsonObject reply = box.next("reply");
    QCOMPARE(reply.value("command").toInt(), 129);
    QCOMPARE(reply.value("length").toInt(), 134);

    QByteArray received = readAtLeast(port, 134 + 21);
    QVERIFY(received.size() >= 134 + 21);
    TkPacket packet;
    QCOMPARE(TkProtocol::tryConsumeOnePacket(received, packet), parses);
    if (parses) {
        QCOMPARE(packet.command, quint16(0x81));
        QCOMPARE(packet.payload.size(), 134);
        QCOMPARE(packet.payload.left(16), QByteArray("TKPTY0000042").leftJustified(16, '\0'));
    }
}

void TestBoxSimPty::keyboardFramesReachTheTarget()
{
    const QString link = m_dir.filePath(QStringLiteral("tk-keys"));
    Box box;
    QVERIFY(box.start(link, {}));
    QVERIFY(!box.next("ready").isEmpty());
    QSerialPort port;
    QVERIFY2(openPort(port, link), qPrintable(port.errorString()));

    // Shift down, A down, all up; then the centre of the screen.
    port.write(hex("57 AB 00 02 08 02 00 00 00 00 00 00 00 0E"
                   "57 AB 00 02 08 02 00 04 00 00 00 00 00 12"
                   "57 AB 00 02 08 00 00 00 00 00 00 00 00 0C"
                   "57 AB 00 04 07 02 00 00 08 00 08 00 1F"));
    QVERIFY(port.waitForBytesWritten(kWaitMs));
    const QJsonObject frame = box.next("frame");
    QCOMPARE(frame.value("kind").toString(), QStringLiteral("keyboard"));
    QCOMPARE(frame.value("hex").toString(),
             QStringLiteral("57 AB 00 02 08 02 00 00 00 00 00 00 00 0E"));
    QCOMPARE(box.next("text").value("text").toString(), QStringLiteral("A"));
    const QJsonObject mouse = box.next("mouse");
    QCOMPARE(mouse.value("x").toInt(), 2048);
    QCOMPARE(mouse.value("y").toInt(), 2048);
}

void TestBoxSimPty::hangupAfterBytes()
{
    const QString link = m_dir.filePath(QStringLiteral("tk-hangup"));
    Box box;
    QVERIFY(box.start(link, {"--hangup-after-bytes", "7"}));
    QVERIFY(!box.next("ready").isEmpty());
    QSerialPort port;
    QVERIFY2(openPort(port, link), qPrintable(port.errorString()));

    // The greeting and two bytes of a frame are received; the line goes before the rest.
    port.write(QByteArray("hello") + hex("57 AB 00 02 08 02 00 04 00 00 00 00 00 12"));
    QVERIFY(port.waitForBytesWritten(kWaitMs));
    QVERIFY(!box.next("hello").isEmpty());
    QVERIFY(!box.next("hangup").isEmpty());
    QVERIFY(!box.namesSeen().contains("frame"));
    // The event loop may already have seen the exit while waiting for the last event.
    QVERIFY(box.process().state() == QProcess::NotRunning ||
            box.process().waitForFinished(kWaitMs));
    QCOMPARE(box.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(box.process().exitCode(), 0);
    QVERIFY(!QFileInfo(link).isSymLink());
    // The console's side sees the line gone.
    port.waitForReadyRead(200);
    QVERIFY(port.error() != QSerialPort::NoError || port.read(1).isEmpty());
}

void TestBoxSimPty::cutReplyHangsUpAfterThePart()
{
    const QString link = m_dir.filePath(QStringLiteral("tk-cut"));
    Box box;
    QVERIFY(box.startReady(link, {"--cut-reply-after-bytes", "40", "--record-size", "600"}));
    QSerialPort port;
    QVERIFY2(openPort(port, link), qPrintable(port.errorString()));

    port.write(TkProtocol::createDeviceInfoQueryPacket(0));
    QVERIFY(port.waitForBytesWritten(kWaitMs));
    const QJsonObject cut = box.next("reply_cut");
    QCOMPARE(cut.value("sent").toInt(), 40);
    QCOMPARE(cut.value("length").toInt(), 621);
    // The console's side gets exactly the part, a header announcing 600 bytes, then the line goes.
    const QByteArray part = readAtLeast(port, 40);
    QCOMPARE(part.size(), 40);
    QCOMPARE(part.left(3), hex("57AB01"));
    QCOMPARE(qFromLittleEndian<quint16>(part.constData() + 11), quint16(0x81));
    QCOMPARE(qFromLittleEndian<quint32>(part.constData() + 13), quint32(600));
    QVERIFY(!box.next("hangup").isEmpty());
    QVERIFY(box.process().state() == QProcess::NotRunning ||
            box.process().waitForFinished(kWaitMs));
    QCOMPARE(box.process().exitCode(), 0);
    QVERIFY(!QFileInfo(link).isSymLink());
}

void TestBoxSimPty::signalStopsAndResumesReplies()
{
    const QString link = m_dir.filePath(QStringLiteral("tk-mute"));
    Box box;
    QVERIFY(box.startReady(link));
    QSerialPort port;
    QVERIFY2(openPort(port, link), qPrintable(port.errorString()));

    QVERIFY(box.toggleReplies());
    QVERIFY(!box.next("replies_off").isEmpty());
    port.write(TkProtocol::createDeviceInfoQueryPacket(0));
    QVERIFY(port.waitForBytesWritten(kWaitMs));
    QVERIFY(!box.next("command").isEmpty());
    QVERIFY(!port.waitForReadyRead(300));
    QVERIFY(!box.namesSeen().contains("reply"));

    QVERIFY(box.toggleReplies());
    QVERIFY(!box.next("replies_on").isEmpty());
    port.write(TkProtocol::createDeviceInfoQueryPacket(0));
    QVERIFY(port.waitForBytesWritten(kWaitMs));
    QByteArray received = readAtLeast(port, 155);
    TkPacket packet;
    QVERIFY(TkProtocol::tryConsumeOnePacket(received, packet));
    QCOMPARE(packet.command, quint16(0x81));
    QVERIFY(received.isEmpty()); // nothing was held back from the silent time
}

void TestBoxSimPty::restartDropsAndRestoresTheLine()
{
    const QString link = m_dir.filePath(QStringLiteral("tk-restart"));
    Box box;
    QVERIFY(box.start(link, {"--restart-downtime-ms", "300"}));
    QVERIFY(!box.next("ready").isEmpty());
    QSerialPort port;
    QVERIFY2(openPort(port, link), qPrintable(port.errorString()));

    port.write(TkProtocol::createDeviceRestartPacket(0));
    QVERIFY(port.waitForBytesWritten(kWaitMs));
    QCOMPARE(box.next("command").value("name").toString(), QStringLiteral("restart"));
    QCOMPARE(box.next("reply").value("code").toInt(), 0);
    QByteArray received = readAtLeast(port, 22);
    TkPacket packet;
    QVERIFY2(TkProtocol::tryConsumeOnePacket(received, packet), received.toHex(' ').constData());
    QCOMPARE(packet.command, quint16(0));
    QCOMPARE(packet.payload, QByteArray(1, '\0'));

    QCOMPARE(box.next("restart").value("downtime_ms").toInt(), 300);
    QVERIFY(!box.next("line_back").isEmpty());
    port.close();

    QVERIFY(QFileInfo(link).symLinkTarget().startsWith("/dev/pts/"));
    QSerialPort again;
    QVERIFY2(openPort(again, link), qPrintable(again.errorString()));
    again.write("hello");
    QVERIFY(again.waitForBytesWritten(kWaitMs));
    QVERIFY(!box.next("hello").isEmpty());
}

void TestBoxSimPty::terminateRemovesTheLink()
{
    const QString link = m_dir.filePath(QStringLiteral("tk-term"));
    // A stale link from an earlier run is replaced.
    QVERIFY(QFile::link(QStringLiteral("/nonexistent/pts"), link));
    Box box;
    QVERIFY(box.start(link, {}));
    const QJsonObject ready = box.next("ready");
    QCOMPARE(QFileInfo(link).symLinkTarget(), ready.value("pty").toString());

    box.process().terminate();
    QVERIFY(box.process().waitForFinished(kWaitMs));
    QCOMPARE(box.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(box.process().exitCode(), 0);
    QVERIFY(!QFileInfo(link).isSymLink());
}

QTEST_GUILESS_MAIN(TestBoxSimPty)
#include "tst_boxsimpty.moc"
