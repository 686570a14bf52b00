#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

#include <algorithm>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include "db/dbmanager.h"
#include "protocol/deviceinfo.h"
#include "protocol/tkprotocol.h"
#include "serial/deviceuartmanager.h"
#include "serial/uartmanager.h"
#include "tests/support/boxsimprocess.h"

namespace {

constexpr int kWaitMs = 10000;

// Records every log line so tests can check status transitions that pass quickly.
QStringList g_logLines;
void recordingHandler(QtMsgType, const QMessageLogContext &, const QString &msg)
{
    g_logLines << msg;
}

bool logged(const QString &text)
{
    return std::any_of(g_logLines.begin(), g_logLines.end(),
                       [&](const QString &line) { return line.contains(text); });
}

// Heartbeat and reopen timing short enough for a test, restored when the case ends.
struct FastWatch
{
    FastWatch()
    {
        DeviceUartManager::WatchTiming timing;
        timing.heartbeatIntervalMs = 100;
        timing.missedHeartbeatLimit = 3;
        timing.reopenPollMs = 50;
        DeviceUartManager::setWatchTiming(timing);
    }
    ~FastWatch() { DeviceUartManager::setWatchTiming(saved); }
    const DeviceUartManager::WatchTiming saved = DeviceUartManager::watchTiming();
};

} // namespace

class TestDeviceUartManager : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();

    void boxPortIsFoundAndOpenedWithGreetingAndInfoRequest();
    void sameSettingsTwiceDoNothing();
    void otherRateReopensAndGreetsAgain();
    void zeroRateMeansDefault();
    void nameDifferingInCaseAndBlanksPassesEnumeration();
    void portNotEnumeratedCreatesNoPortObject();
    void generalRepliesCarryPendingCommand();
    void rejectedSetCommandReportsItsCode();
    void craftedStreamLosesNoValidReply();
    void garbageFromTheBoxLosesNoReply();
    void vanishedPortIsReopenedWhenItReturns();
    void silentBoxIsLostAndReopenedWhenItAnswersAgain();
    void idleLinkIsAskedQuietly();
    void boxThatNeverAnswersIsKept();
    void explicitCloseStopsWatching_data();
    void explicitCloseStopsWatching();
    void linkNeverOpenedIsNotReopened();
    void replyCutByHangUpLeavesNothingForTheNextSession();
    void headerAnnouncingMoreThanTheBoundHoldsBackNoReply();
    void settingsAreSavedAndLoaded();
    void removalFromTheLinksOwnSignalIsDeferred();
    void updateWithStoredSettingsOnClosedPortDoesNothing();
    void infoRoundTrip();
    void exitWithOpenLinksDestroysThemFirst_data();
    void exitWithOpenLinksDestroysThemFirst();

private:
    DeviceUartManager *freshLink();

    QTemporaryDir m_dir;
    QString m_link;
    BoxSimProcess m_box;
    int m_didCounter = 0;
    QtMessageHandler m_previous = nullptr;
};

DeviceUartManager *TestDeviceUartManager::freshLink()
{
    const QString did = QString("%1").arg(++m_didCounter, 32, 16, QChar('0'));
    return UartManager::instance()->getDeviceUartManager(did);
}

void TestDeviceUartManager::initTestCase()
{
    QVERIFY(m_dir.isValid());
    QVERIFY(DBManager::instance()->initDatabase(m_dir.filePath("links.db")));
    m_link = m_dir.filePath("tk-box");
    qputenv("TAVROKVM_EXTRA_SERIAL_PORTS", (m_link + "=TK CDC").toUtf8());
    m_previous = qInstallMessageHandler(recordingHandler);
}

void TestDeviceUartManager::cleanupTestCase()
{
    qInstallMessageHandler(m_previous);
}

void TestDeviceUartManager::init()
{
    g_logLines.clear();
    m_box.stop();
    QVERIFY(m_box.startReady(m_link, {"--serial", "SIMBOX-SERIAL-01"}));
}

void TestDeviceUartManager::boxPortIsFoundAndOpenedWithGreetingAndInfoRequest()
{
    QCOMPARE(UartManager::instance()->findFirstTkCdcPortName(), m_link);

    DeviceUartManager *link = freshLink();
    QSignalSpy info(link, &DeviceUartManager::deviceInfoPayloadReceived);
    bool cachedBeforeSignal = false;
    connect(link, &DeviceUartManager::deviceInfoPayloadReceived, this,
            [&](const QString &, const QByteArray &payload) {
                cachedBeforeSignal = TkProtocol::globalCachedDeviceInfoPayload() == payload;
            });

    QVERIFY(link->openSerialPort(m_link, 2000000));
    QVERIFY(link->isConnected());
    QCOMPARE(link->statusText(), QString("串口%1已连接").arg(m_link));
    QCOMPARE(link->serialPort()->baudRate(), 2000000);

    QVERIFY(!m_box.next("hello").isEmpty());
    QCOMPARE(m_box.next("command").value("name").toString(), QString("device_info_query"));

    QTRY_COMPARE_WITH_TIMEOUT(info.size(), 1, kWaitMs);
    QCOMPARE(info.first().at(0).toString(), link->deviceId());
    const QByteArray payload = info.first().at(1).toByteArray();
    QCOMPARE(payload.size(), 134);
    QVERIFY(cachedBeforeSignal);
    QCOMPARE(decodeDeviceInfoRecord(payload).serialNumber, QByteArray("SIMBOX-SERIAL-01"));
    QCOMPARE(TkProtocol::globalCachedUdiskDir(), 1);
    QVERIFY(logged(QString("[DeviceInfo] 设备 %1 信息:\n").arg(link->deviceId())));
    link->closeSerialPort();
}

void TestDeviceUartManager::sameSettingsTwiceDoNothing()
{
    DeviceUartManager *link = freshLink();
    QVERIFY(link->openSerialPort(m_link, 2000000));
    QVERIFY(!m_box.next("command").isEmpty());
    QSerialPort *port = link->serialPort();

    QVERIFY(link->openSerialPort(m_link, 2000000));
    QCOMPARE(link->serialPort(), port);
    QTest::qWait(400); // longer than the delayed information request
    QCOMPARE(m_box.namesSeen().count("hello"), 1);
    QCOMPARE(m_box.namesSeen().count("command"), 1);
    link->forceCloseSerialPort();
}

void TestDeviceUartManager::otherRateReopensAndGreetsAgain()
{
    DeviceUartManager *link = freshLink();
    QVERIFY(link->openSerialPort(m_link, 2000000));
    QVERIFY(!m_box.next("command").isEmpty());
    QSerialPort *port = link->serialPort();

    QVERIFY(link->openSerialPort(m_link, 115200));
    QCOMPARE(link->serialPort(), port); // the port object is reused
    QCOMPARE(link->baudRate(), 115200);
    QVERIFY(!m_box.next("hello").isEmpty());
    QVERIFY(!m_box.next("command").isEmpty());
    QVERIFY(logged("[DeviceUartManager] 串口配置发生变化，关闭现有串口后重新打开"));
    link->forceCloseSerialPort();
}

void TestDeviceUartManager::zeroRateMeansDefault()
{
    DeviceUartManager *link = freshLink();
    QVERIFY(link->openSerialPort(m_link, 0));
    QCOMPARE(link->baudRate(), 2000000);
    QCOMPARE(link->serialPort()->baudRate(), 2000000);
    link->forceCloseSerialPort();
    QCOMPARE(link->serialPort(), nullptr);
    QCOMPARE(link->statusText(), QString("串口已断开"));
}

void TestDeviceUartManager::nameDifferingInCaseAndBlanksPassesEnumeration()
{
    DeviceUartManager *link = freshLink();
    const QString variant = "  " + m_link.toUpper() + " ";
    link->openSerialPort(variant, 2000000);
    // The enumeration check passed (no "not ready"); the file system then decides the open.
    QVERIFY(!link->statusText().contains("未就绪"));
    QVERIFY(!logged("跳过打开(可能刚插拔)"));
    QVERIFY(link->serialPort() != nullptr);
    link->forceCloseSerialPort();
}

void TestDeviceUartManager::portNotEnumeratedCreatesNoPortObject()
{
    DeviceUartManager *link = freshLink();
    const QString missing = m_dir.filePath("no-such-port");
    QVERIFY(!link->openSerialPort(missing, 2000000));
    QCOMPARE(link->statusText(), QString("串口%1未就绪").arg(missing));
    QCOMPARE(link->serialPort(), nullptr);

    // An open link stays as it was.
    QVERIFY(link->openSerialPort(m_link, 2000000));
    QSerialPort *port = link->serialPort();
    QVERIFY(!link->openSerialPort(missing, 2000000));
    QCOMPARE(link->serialPort(), port);
    QVERIFY(port->isOpen());
    QCOMPARE(link->portName(), m_link);
    link->forceCloseSerialPort();

    QVERIFY(!link->openSerialPort(QString(), 2000000));
    QCOMPARE(link->statusText(), QString("串口名称为空"));
}

void TestDeviceUartManager::generalRepliesCarryPendingCommand()
{
    DeviceUartManager *link = freshLink();
    QSignalSpy replies(link, &DeviceUartManager::deviceGeneralReply);
    QVERIFY(link->openSerialPort(m_link, 2000000));
    QVERIFY(!m_box.next("reply").isEmpty()); // the information record came back

    link->sendUdiskSetDirection(2);
    QVERIFY(replies.wait(kWaitMs));
    QCOMPARE(replies.at(0).at(1).value<quint8>(), quint8(0));
    QCOMPARE(replies.at(0).at(2).toString(), QString("UDISK_SET"));

    // Two commands before any reply: the first reply names the second, the next names none.
    link->sendUdiskSetDirection(1);
    link->sendMouseAutoMoveSet(true);
    QTRY_COMPARE_WITH_TIMEOUT(replies.size(), 3, kWaitMs);
    QCOMPARE(replies.at(1).at(2).toString(), QString("MOUSE_AUTO_MOVE_SET"));
    QCOMPARE(replies.at(2).at(2).toString(), QString());
    link->forceCloseSerialPort();

    // Without an open port the pending command is dropped and the failure logged.
    link->sendDeviceRestart();
    QVERIFY(logged("[DeviceUartManager] sendDeviceRestart 发送失败 deviceId:"));
}

void TestDeviceUartManager::rejectedSetCommandReportsItsCode()
{
    m_box.stop();
    QVERIFY(m_box.startReady(m_link, {"--reply-code", "7"}));
    DeviceUartManager *link = freshLink();
    QSignalSpy replies(link, &DeviceUartManager::deviceGeneralReply);
    QVERIFY(link->openSerialPort(m_link, 2000000));
    link->sendMouseAutoMoveSet(false);
    QVERIFY(replies.wait(kWaitMs));
    QCOMPARE(replies.at(0).at(1).value<quint8>(), quint8(7));
    QCOMPARE(replies.at(0).at(2).toString(), QString("MOUSE_AUTO_MOVE_SET"));
    link->forceCloseSerialPort();
}

void TestDeviceUartManager::craftedStreamLosesNoValidReply()
{
    // A pseudo-terminal of the test's own, to send what no well-behaved box would.
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    QVERIFY(master >= 0);
    QVERIFY(grantpt(master) == 0 && unlockpt(master) == 0);
    const QString slave = QString::fromLocal8Bit(ptsname(master));
    qputenv("TAVROKVM_EXTRA_SERIAL_PORTS", (m_link + "=TK CDC;" + slave + "=Raw").toUtf8());

    DeviceUartManager *link = freshLink();
    QSignalSpy replies(link, &DeviceUartManager::deviceGeneralReply);
    QSignalSpy info(link, &DeviceUartManager::deviceInfoPayloadReceived);
    QVERIFY(link->openSerialPort(slave, 2000000));

    QByteArray corrupted = TkProtocol::buildPacket(TkProtocol::ReplyGeneral, "\x01", 0);
    corrupted[corrupted.size() - 2] = char(corrupted.at(corrupted.size() - 2) ^ 0x40);
    QByteArray otherChannel = TkProtocol::buildPacket(TkProtocol::ReplyGeneral, "\x05", 0);
    otherChannel[2] = 2; // channel byte; checksum recomputed below
    const quint32 sum = TkProtocol::mcAddChecksum(
        reinterpret_cast<const quint8 *>(otherChannel.constData()), otherChannel.size() - 4);
    for (int i = 0; i < 4; ++i)
        otherChannel[otherChannel.size() - 4 + i] = char((sum >> (8 * i)) & 0xFF);
    const QByteArray record = encodeDeviceInfoRecord(DeviceInfoRecord());

    const QByteArray stream = QByteArray("\x00\x57\xAB garbage", 11) + corrupted +
                              TkProtocol::buildPacket(TkProtocol::ReplyGeneral, {}, 0) +
                              otherChannel + QByteArray(7, '\x57') +
                              TkProtocol::buildPacket(TkProtocol::ReplyDeviceInfo, record, 0) +
                              TkProtocol::buildPacket(0x42, "ignored", 0);
    // Written in two pieces that split a packet.
    const int cut = stream.size() / 2;
    QCOMPARE(::write(master, stream.constData(), size_t(cut)), ssize_t(cut));
    QTest::qWait(50);
    QCOMPARE(::write(master, stream.constData() + cut, size_t(stream.size() - cut)),
             ssize_t(stream.size() - cut));

    QVERIFY(info.wait(kWaitMs));
    QCOMPARE(info.first().at(1).toByteArray(), record);
    QCOMPARE(replies.size(), 1);
    QCOMPARE(replies.at(0).at(1).value<quint8>(), quint8(255)); // empty payload
    QCOMPARE(replies.at(0).at(2).toString(), QString());        // nothing was pending

    link->forceCloseSerialPort();
    ::close(master);
    qputenv("TAVROKVM_EXTRA_SERIAL_PORTS", (m_link + "=TK CDC").toUtf8());
}

void TestDeviceUartManager::garbageFromTheBoxLosesNoReply()
{
    m_box.stop();
    QVERIFY(m_box.startReady(m_link, {"--garbage-between"}));
    DeviceUartManager *link = freshLink();
    QSignalSpy replies(link, &DeviceUartManager::deviceGeneralReply);
    QSignalSpy info(link, &DeviceUartManager::deviceInfoPayloadReceived);
    QVERIFY(link->openSerialPort(m_link, 2000000));
    QVERIFY(info.wait(kWaitMs));
    for (int i = 0; i < 10; ++i)
        link->sendUdiskSetDirection(quint8(1 + i % 2));
    QTRY_COMPARE_WITH_TIMEOUT(replies.size(), 10, kWaitMs);
    link->sendDeviceInfoRequest();
    QTRY_COMPARE_WITH_TIMEOUT(info.size(), 2, kWaitMs);
    link->forceCloseSerialPort();
}

void TestDeviceUartManager::vanishedPortIsReopenedWhenItReturns()
{
    FastWatch fast;
    DeviceUartManager *link = freshLink();
    QSignalSpy info(link, &DeviceUartManager::deviceInfoPayloadReceived);
    QSignalSpy opened(link, &DeviceUartManager::linkOpened);
    QSignalSpy lost(link, &DeviceUartManager::linkLost);
    QSignalSpy registryOpened(UartManager::instance(), &UartManager::linkOpened);
    QVERIFY(link->openSerialPort(m_link, 2000000));
    QCOMPARE(opened.size(), 1);
    QCOMPARE(opened.first().at(0).toString(), link->deviceId());
    QVERIFY(info.wait(kWaitMs));
    QVERIFY(!TkProtocol::globalCachedDeviceInfoPayload().isEmpty());

    // The box goes away with its port.
    m_box.stop();
    QTRY_VERIFY_WITH_TIMEOUT(link->serialPort() == nullptr, kWaitMs);
    QVERIFY(logged("[DeviceUartManager] 串口状态更新: 已断开 串口错误: "));
    QVERIFY(logged("[DeviceUartManager] 串口已强制关闭:"));
    QCOMPARE(lost.size(), 1);
    QCOMPARE(lost.first().at(0).toString(), link->deviceId());
    QCOMPARE(link->statusText(), QString("串口%1已断开，等待设备重新连接").arg(m_link));
    QVERIFY(!link->isConnected());
    QVERIFY(link->isWaitingToReopen());
    QVERIFY(TkProtocol::globalCachedDeviceInfoPayload().isEmpty());
    QCOMPARE(TkProtocol::globalCachedUdiskDir(), -1);

    // While it is away nothing is tried.
    g_logLines.clear();
    QTest::qWait(500);
    QVERIFY(!logged("[DeviceUartManager] 尝试打开串口:"));

    // Back on the same port: the link opens by itself, greets and asks for the record.
    QVERIFY(m_box.startReady(m_link));
    QTRY_COMPARE_WITH_TIMEOUT(opened.size(), 2, kWaitMs);
    QVERIFY(link->isConnected());
    QVERIFY(!link->isWaitingToReopen());
    QVERIFY(!m_box.next("hello").isEmpty());
    QTRY_COMPARE_WITH_TIMEOUT(info.size(), 2, kWaitMs);
    QCOMPARE(lost.size(), 1);
    // The registry passes both opens on, for views that follow whichever box they show.
    QCOMPARE(registryOpened.size(), 2);
    QCOMPARE(registryOpened.at(1).at(0).toString(), link->deviceId());
    link->forceCloseSerialPort();
}

void TestDeviceUartManager::silentBoxIsLostAndReopenedWhenItAnswersAgain()
{
    FastWatch fast;
    DeviceUartManager *link = freshLink();
    QSignalSpy info(link, &DeviceUartManager::deviceInfoPayloadReceived);
    QSignalSpy opened(link, &DeviceUartManager::linkOpened);
    QSignalSpy lost(link, &DeviceUartManager::linkLost);
    QString statusWhenLost;
    bool cacheEmptyWhenLost = false;
    connect(link, &DeviceUartManager::linkLost, this, [&] {
        statusWhenLost = link->statusText();
        cacheEmptyWhenLost = TkProtocol::globalCachedDeviceInfoPayload().isEmpty();
    });
    QVERIFY(link->openSerialPort(m_link, 2000000));
    QVERIFY(info.wait(kWaitMs));

    // The controller hangs; its port stays.
    QVERIFY(m_box.toggleReplies());
    QVERIFY(!m_box.next("replies_off").isEmpty());
    QTRY_VERIFY_WITH_TIMEOUT(lost.size() >= 1, kWaitMs);
    QCOMPARE(statusWhenLost, QString("串口%1无应答，等待设备重新连接").arg(m_link));
    QVERIFY(cacheEmptyWhenLost);
    QVERIFY(logged("[DeviceUartManager] 设备连续3次未应答心跳，判定链路断开"));
    // Its port is still there, so the link reopens and tries again.
    QTRY_VERIFY_WITH_TIMEOUT(opened.size() >= 2, kWaitMs);

    QVERIFY(m_box.toggleReplies());
    QVERIFY(!m_box.next("replies_on").isEmpty());
    QVERIFY(!m_box.next("reply").isEmpty());
    QTRY_VERIFY_WITH_TIMEOUT(link->isConnected(), kWaitMs);
    // Answered again: the link stays, for many heartbeat intervals.
    const int lostBefore = int(lost.size());
    QTest::qWait(1000);
    QCOMPARE(lost.size(), lostBefore);
    QVERIFY(link->isConnected());
    QCOMPARE(link->statusText(), QString("串口%1已连接").arg(m_link));
    link->forceCloseSerialPort();
}

void TestDeviceUartManager::idleLinkIsAskedQuietly()
{
    FastWatch fast;
    DeviceUartManager *link = freshLink();
    QSignalSpy info(link, &DeviceUartManager::deviceInfoPayloadReceived);
    QVERIFY(link->openSerialPort(m_link, 2000000));
    QVERIFY(info.wait(kWaitMs));
    QVERIFY(!m_box.next("reply").isEmpty());

    // Idle: asked every interval, answered, and nobody is told.
    g_logLines.clear();
    TkProtocol::clearGlobalDeviceInfoCache();
    const int before = m_box.namesSeen().count("reply");
    QTest::qWait(1000);
    const int answered = m_box.namesSeen().count("reply") - before;
    QVERIFY2(answered >= 4, qPrintable(QString::number(answered)));
    QCOMPARE(info.size(), 1);
    QVERIFY(!logged("[DeviceInfo]"));
    QVERIFY(!logged("已发送设备信息查询请求"));
    QVERIFY(!logged("心跳"));
    QVERIFY(!TkProtocol::globalCachedDeviceInfoPayload().isEmpty()); // kept fresh
    QVERIFY(link->isConnected());

    // Frames going out count as traffic: no request while they flow.
    const int commandsBefore = m_box.namesSeen().count("command");
    QElapsedTimer busy;
    busy.start();
    while (busy.elapsed() < 800) {
        QVERIFY(link->sendData(QByteArray::fromHex("57AB00020800000000000000000C")));
        QTest::qWait(20);
    }
    QCOMPARE(m_box.namesSeen().count("command"), commandsBefore);

    // A request of the program's own is still reported and logged.
    link->sendDeviceInfoRequest();
    QVERIFY(info.wait(kWaitMs));
    QVERIFY(logged(QString("[DeviceInfo] 设备 %1 信息:\n").arg(link->deviceId())));
    link->forceCloseSerialPort();
}

void TestDeviceUartManager::boxThatNeverAnswersIsKept()
{
    // Firmware without the vendor protocol: its silence says nothing about the link.
    FastWatch fast;
    m_box.stop();
    QVERIFY(m_box.startReady(m_link, {"--no-replies"}));
    DeviceUartManager *link = freshLink();
    QSignalSpy lost(link, &DeviceUartManager::linkLost);
    QVERIFY(link->openSerialPort(m_link, 2000000));
    QTest::qWait(1200);
    QCOMPARE(lost.size(), 0);
    QVERIFY(link->isConnected());
    // It is asked a few times, then left alone.
    const int asked = m_box.namesSeen().count("command");
    QVERIFY2(asked >= 2 && asked <= 5, qPrintable(QString::number(asked)));
    link->forceCloseSerialPort();
}

void TestDeviceUartManager::explicitCloseStopsWatching_data()
{
    QTest::addColumn<bool>("force");
    QTest::newRow("closeSerialPort") << false;
    QTest::newRow("forceCloseSerialPort") << true;
}

void TestDeviceUartManager::explicitCloseStopsWatching()
{
    QFETCH(bool, force);
    FastWatch fast;
    DeviceUartManager *link = freshLink();
    QSignalSpy opened(link, &DeviceUartManager::linkOpened);
    QSignalSpy lost(link, &DeviceUartManager::linkLost);
    QVERIFY(link->openSerialPort(m_link, 2000000));
    QVERIFY(!m_box.next("reply").isEmpty());
    if (force)
        link->forceCloseSerialPort();
    else
        link->closeSerialPort();
    QCOMPARE(link->statusText(), QString("串口已断开"));
    QVERIFY(!link->isWaitingToReopen());

    // The box goes and comes back: the closed link stays closed.
    m_box.stop();
    QVERIFY(m_box.startReady(m_link));
    QTest::qWait(600);
    QCOMPARE(opened.size(), 1);
    QCOMPARE(lost.size(), 0);
    QVERIFY(!m_box.namesSeen().contains("hello"));
    QVERIFY(!link->isConnected());
}

void TestDeviceUartManager::linkNeverOpenedIsNotReopened()
{
    FastWatch fast;
    const QString later = m_dir.filePath("tk-later");
    qputenv("TAVROKVM_EXTRA_SERIAL_PORTS", (m_link + "=TK CDC;" + later + "=TK CDC").toUtf8());
    DeviceUartManager *link = freshLink();
    QSignalSpy opened(link, &DeviceUartManager::linkOpened);
    // Declared but not there yet: not enumerated.
    QVERIFY(!link->openSerialPort(later, 2000000));
    QCOMPARE(link->statusText(), QString("串口%1未就绪").arg(later));
    BoxSimProcess laterBox;
    QVERIFY(laterBox.startReady(later));
    QTest::qWait(500);
    QCOMPARE(opened.size(), 0);
    QVERIFY(!laterBox.namesSeen().contains("hello"));
    qputenv("TAVROKVM_EXTRA_SERIAL_PORTS", (m_link + "=TK CDC").toUtf8());
}

void TestDeviceUartManager::replyCutByHangUpLeavesNothingForTheNextSession()
{
    // The box sends 40 bytes of a reply announcing a 600-byte record, then hangs up.
    m_box.stop();
    QVERIFY(m_box.startReady(m_link, {"--record-size", "600", "--cut-reply-after-bytes", "40"}));
    DeviceUartManager *link = freshLink();
    QSignalSpy info(link, &DeviceUartManager::deviceInfoPayloadReceived);
    QVERIFY(link->openSerialPort(m_link, 2000000));
    QVERIFY(!m_box.next("reply_cut").isEmpty());
    QTRY_VERIFY_WITH_TIMEOUT(link->serialPort() == nullptr, kWaitMs);

    // Back with an ordinary record: its 155-byte reply is whole, not the tail of the cut one.
    QVERIFY(m_box.startReady(m_link));
    QVERIFY(link->openSerialPort(m_link, 2000000));
    QTRY_COMPARE_WITH_TIMEOUT(info.size(), 1, kWaitMs);
    QCOMPARE(info.first().at(1).toByteArray().size(), 134);
    link->forceCloseSerialPort();
}

void TestDeviceUartManager::headerAnnouncingMoreThanTheBoundHoldsBackNoReply()
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    QVERIFY(master >= 0);
    QVERIFY(grantpt(master) == 0 && unlockpt(master) == 0);
    const QString slave = QString::fromLocal8Bit(ptsname(master));
    qputenv("TAVROKVM_EXTRA_SERIAL_PORTS", (m_link + "=TK CDC;" + slave + "=Raw").toUtf8());

    DeviceUartManager *link = freshLink();
    QSignalSpy replies(link, &DeviceUartManager::deviceGeneralReply);
    QVERIFY(link->openSerialPort(slave, 2000000));

    // A header that announces 60000 payload bytes (line noise, or a foreign device), then a
    // reply: the reply must not wait for the 60000 bytes.
    QByteArray header = TkProtocol::buildPacket(TkProtocol::ReplyDeviceInfo, {}, 0).left(17);
    qToLittleEndian<quint32>(60000, header.data() + 13);
    const QByteArray stream = header + TkProtocol::buildPacket(TkProtocol::ReplyGeneral, "\x03", 0);
    QCOMPARE(::write(master, stream.constData(), size_t(stream.size())), ssize_t(stream.size()));
    QVERIFY(replies.wait(kWaitMs));
    QCOMPARE(replies.first().at(1).value<quint8>(), quint8(3));

    link->forceCloseSerialPort();
    ::close(master);
    qputenv("TAVROKVM_EXTRA_SERIAL_PORTS", (m_link + "=TK CDC").toUtf8());
}

void TestDeviceUartManager::settingsAreSavedAndLoaded()
{
    DeviceUartManager *link = freshLink();
    const QString did = link->deviceId();
    QSignalSpy changed(link, &DeviceUartManager::uartConfigChanged);
    QVERIFY(DBManager::instance()->insertOrUpdateDevice(
        {{"did", did}, {"device_name", "Rack 4"}, {"cursor_correction_enabled", 1}}));

    link->updateUartConfigByUser(m_link, 2000000);
    QCOMPARE(changed.size(), 1);
    QVERIFY(link->serialPort() && link->serialPort()->isOpen());
    const QVariantMap record = DBManager::instance()->getDeviceByDid(did);
    QCOMPARE(record.value("uart_port").toString(), m_link);
    QCOMPARE(record.value("baud_rate").toInt(), 2000000);
    // The rest of the record survives the write-back.
    QCOMPARE(record.value("device_name").toString(), QString("Rack 4"));
    QCOMPARE(record.value("cursor_correction_enabled").toInt(), 1);

    // Placeholders never reach the database.
    link->updateUartConfigByUser("请选择串口", 115200);
    QCOMPARE(changed.size(), 1);
    QCOMPARE(DBManager::instance()->getDeviceByDid(did).value("baud_rate").toInt(), 2000000);

    UartManager::instance()->removeDeviceUartManager(did);
    DeviceUartManager *reloaded = UartManager::instance()->getDeviceUartManager(did);
    QCOMPARE(reloaded->portName(), m_link);
    QCOMPARE(reloaded->baudRate(), 2000000);
    QCOMPARE(reloaded->serialPort(), nullptr); // loading never opens
}

void TestDeviceUartManager::removalFromTheLinksOwnSignalIsDeferred()
{
    DeviceUartManager *link = freshLink();
    const QString did = link->deviceId();
    QPointer<DeviceUartManager> dying(link);
    DeviceUartManager *fresh = nullptr;
    bool aliveAfterRemoval = false;
    bool portClosedAtRemoval = false;
    // A slot of the link's own signal removes it; the link's handler then resumes on it.
    connect(link, &DeviceUartManager::deviceInfoPayloadReceived, this, [&] {
        UartManager::instance()->removeDeviceUartManager(did);
        aliveAfterRemoval = !dying.isNull();
        portClosedAtRemoval = dying && dying->serialPort() == nullptr;
        fresh = UartManager::instance()->getDeviceUartManager(did);
    });
    QVERIFY(link->openSerialPort(m_link, 2000000));
    QTRY_VERIFY_WITH_TIMEOUT(fresh != nullptr, kWaitMs);
    QVERIFY(aliveAfterRemoval);
    QVERIFY(portClosedAtRemoval);
    QVERIFY(fresh != dying.data()); // a new link, not the one being removed
    QTRY_VERIFY_WITH_TIMEOUT(dying.isNull(), kWaitMs);
    QCOMPARE(UartManager::instance()->getDeviceUartManager(did), fresh);

    // The dying link let go of the port: the new one opens it and talks to the box.
    QSignalSpy info(fresh, &DeviceUartManager::deviceInfoPayloadReceived);
    QVERIFY(fresh->openSerialPort(m_link, 2000000));
    QVERIFY(info.wait(kWaitMs));
    fresh->forceCloseSerialPort();
}

void TestDeviceUartManager::updateWithStoredSettingsOnClosedPortDoesNothing()
{
    DeviceUartManager *link = freshLink();
    QVERIFY(DBManager::instance()->insertOrUpdateDevice(
        {{"did", link->deviceId()}, {"uart_port", m_link}, {"baud_rate", 2000000}}));
    link->loadUartConfigFromDb();
    QSignalSpy changed(link, &DeviceUartManager::uartConfigChanged);
    link->updateUartConfig(m_link, 2000000);
    QCOMPARE(changed.size(), 0);
    QCOMPARE(link->serialPort(), nullptr);
    QCOMPARE(m_box.namesSeen().count("hello"), 0);
}

void TestDeviceUartManager::infoRoundTrip()
{
    DeviceUartManager *link = freshLink();
    QSignalSpy info(link, &DeviceUartManager::deviceInfoPayloadReceived);
    QVERIFY(link->openSerialPort(m_link, 2000000));
    QVERIFY(info.wait(kWaitMs));

    QList<double> times;
    for (int i = 0; i < 20; ++i) {
        info.clear();
        QElapsedTimer timer;
        timer.start();
        link->sendDeviceInfoRequest();
        QVERIFY(info.wait(kWaitMs));
        times << timer.nsecsElapsed() / 1e6;
    }
    std::sort(times.begin(), times.end());
    // A figure for the record, not a limit.
    qInstallMessageHandler(m_previous);
    qInfo("information round trip over the pseudo-terminal: median %.2f ms, max %.2f ms",
          times.at(times.size() / 2), times.last());
    qInstallMessageHandler(recordingHandler);
    link->forceCloseSerialPort();
}

void TestDeviceUartManager::exitWithOpenLinksDestroysThemFirst_data()
{
    QTest::addColumn<QString>("ending");
    QTest::newRow("event loop quits") << "quit";
    QTest::newRow("application destroyed without running its loop") << "return";
}

void TestDeviceUartManager::exitWithOpenLinksDestroysThemFirst()
{
    // Two boxes' links open, a record cached, then the program ends normally. Under the
    // sanitizers a link touching what static destruction already freed aborts the child.
    QFETCH(QString, ending);
    BoxSimProcess second;
    const QString secondLink = m_dir.filePath("tk-box-2");
    QVERIFY(second.startReady(secondLink));
    QProcess child;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("TAVROKVM_EXTRA_SERIAL_PORTS", m_link + "=TK CDC;" + secondLink + "=TK CDC");
    child.setProcessEnvironment(environment);
    child.start(TAVROKVM_LINK_EXIT_CHILD_PATH,
                {m_dir.filePath("exit-" + ending + ".db"), ending, m_link, secondLink});
    QVERIFY(child.waitForFinished(30000));
    const QString log = QString::fromUtf8(child.readAllStandardError());
    QVERIFY2(child.exitStatus() == QProcess::NormalExit && child.exitCode() == 0,
             qPrintable(log.right(4000)));
    QCOMPARE(log.count("[DeviceInfo] 设备 exit-child-box-"), 2);
    const int gone = int(log.indexOf("linkexitchild: application object gone"));
    QVERIFY(gone > 0);
    // Both links went, closing their ports, while the application object still existed.
    QCOMPARE(log.left(gone).count("[DeviceUartManager] 设备UART管理器已销毁"), 2);
    QVERIFY2(!log.mid(gone).contains("[DeviceUartManager]"), qPrintable(log.mid(gone)));
}

QTEST_GUILESS_MAIN(TestDeviceUartManager)
#include "tst_deviceuartmanager.moc"
