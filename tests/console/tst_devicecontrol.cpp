// Device information and control against the simulated box: the information query and its
// reply box, the time-out, the parameters dialog's switches, the MPR test's frames, and the
// USB-disk direction.

#include <QCheckBox>
#include <QJsonObject>
#include <QPushButton>
#include <QTest>

#include "protocol/tkprotocol.h"
#include "serial/deviceuartmanager.h"
#include "serial/uartmanager.h"
#include "tests/support/consolewithbox.h"
#include "tests/support/modalcatcher.h"
#include "tests/support/tavrovideotestaccess.h"
#include "ui/paramcontroldialog.h"

namespace {

const QString kInfoTitle = QStringLiteral("设备信息");

QPushButton *buttonWithText(QWidget *parent, const QString &text)
{
    for (QPushButton *button : parent->findChildren<QPushButton *>()) {
        if (button->text() == text)
            return button;
    }
    return nullptr;
}

} // namespace

class TestDeviceControl : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void informationReplyIsShownOnce();
    void silentBoxTimesOut();
    void autoMoveReachesTheBoxOrRevertsTheBox();
    void udiskSwitchSendsTheOtherDirection();
    void mprSendsTheFourFramesAndStopsWhenTheBoxHangsUp();

private:
    DeviceUartManager *link() const
    {
        return UartManager::instance()->getDeviceUartManager(m_view->getCurrentDeviceDid());
    }
    BoxSimProcess &box() { return m_console.box(); }
    // The next command the box receives, past the information queries that the link's heartbeat
    // and the dialog send on their own.
    QString nextControlCommand()
    {
        for (;;) {
            const QString name = box().next("command").value("name").toString();
            if (name != QLatin1String("device_info_query"))
                return name;
        }
    }

    ConsoleWithBox m_console;
    TavroVideo *m_view = nullptr;
};

void TestDeviceControl::initTestCase()
{
    QVERIFY(m_console.start());
    m_view = m_console.view();
    QTRY_VERIFY(link()->isConnected());
}

void TestDeviceControl::cleanupTestCase()
{
    m_console.stop();
}

void TestDeviceControl::informationReplyIsShownOnce()
{
    ModalCatcher catcher;
    // The second click cancels the first query: one reply box, not two.
    m_view->onBtnInfoClicked();
    m_view->onBtnInfoClicked();
    QTRY_COMPARE(catcher.boxes.size(), 1);
    QCOMPARE(catcher.boxes[0].title, kInfoTitle);
    QVERIFY(catcher.boxes[0].text.contains(QStringLiteral("固件版本: 1.2.3")));
    QVERIFY(!m_view->isDeviceInfoRequestPending());
    QTest::qWait(300);
    QCOMPARE(catcher.boxes.size(), 1);
}

void TestDeviceControl::silentBoxTimesOut()
{
    QVERIFY(box().toggleReplies());
    QVERIFY(!box().next("replies_off").isEmpty());
    TavroVideoTestAccess::setDeviceInfoTimeout(*m_view, 300);
    ModalCatcher catcher;
    m_view->onBtnInfoClicked();
    QVERIFY(m_view->isDeviceInfoRequestPending());
    QTRY_COMPARE(
        catcher.count(kInfoTitle, QStringLiteral("等待设备回复超时，请检查串口连接与固件。")), 1);
    QVERIFY(!m_view->isDeviceInfoRequestPending());
    TavroVideoTestAccess::setDeviceInfoTimeout(*m_view, 4000);
    QVERIFY(box().toggleReplies());
    QVERIFY(!box().next("replies_on").isEmpty());
}

void TestDeviceControl::autoMoveReachesTheBoxOrRevertsTheBox()
{
    ParamControlDialog dialog(nullptr, m_view);
    dialog.show();
    auto *autoMove = dialog.findChild<QCheckBox *>();
    QVERIFY(autoMove && autoMove->text() == QStringLiteral("鼠标微动"));
    const bool before = autoMove->isChecked();
    autoMove->click();
    QCOMPARE(nextControlCommand(), QStringLiteral("mouse_auto_move_set"));
    autoMove->click(); // back as it was
    QCOMPARE(nextControlCommand(), QStringLiteral("mouse_auto_move_set"));
    QCOMPARE(autoMove->isChecked(), before);

    // Without the link nothing is sent and the box goes back.
    const QString port = link()->portName();
    const int baud = link()->baudRate();
    m_view->closeSerialPort();
    ModalCatcher catcher;
    autoMove->click();
    QCOMPARE(catcher.count(QStringLiteral("参数及控制"), QStringLiteral("请先连接串口。")), 1);
    QCOMPARE(autoMove->isChecked(), before);
    QVERIFY(m_view->openSerialPort(port, baud));
}

void TestDeviceControl::udiskSwitchSendsTheOtherDirection()
{
    m_view->refreshDeviceInfoOnce();
    QTRY_COMPARE(TkProtocol::globalCachedUdiskDir(), 1); // the box starts on the target
    m_view->onBtnUdiskSwitchClicked();
    QCOMPARE(nextControlCommand(), QStringLiteral("udisk_set"));
    // The information request 250 ms later brings the box's new direction.
    QTRY_COMPARE(TkProtocol::globalCachedUdiskDir(), 2);
    m_view->onBtnUdiskSwitchClicked();
    QTRY_COMPARE(TkProtocol::globalCachedUdiskDir(), 1);

    // Direction unknown: the switch asks for the target.
    TkProtocol::clearGlobalDeviceInfoCache();
    QCOMPARE(TkProtocol::globalCachedUdiskDir(), -1);
    QVERIFY(box().toggleReplies()); // keep the cache unknown until the command is out
    QVERIFY(!box().next("replies_off").isEmpty());
    m_view->onBtnUdiskSwitchClicked();
    QVERIFY(box().toggleReplies());
    QVERIFY(!box().next("replies_on").isEmpty());
    m_view->refreshDeviceInfoOnce();
    QTRY_COMPARE(TkProtocol::globalCachedUdiskDir(), 1);
}

void TestDeviceControl::mprSendsTheFourFramesAndStopsWhenTheBoxHangsUp()
{
    ParamControlDialog dialog(nullptr, m_view);
    dialog.show();
    QPushButton *mpr = buttonWithText(&dialog, QStringLiteral("MPR test start"));
    QVERIFY(mpr);
    const int from = int(box().events().size());
    QStringList hex;
    auto framesSeen = [&] {
        hex.clear();
        const QList<QJsonObject> events = box().events();
        for (int i = from; i < events.size(); ++i) {
            if (events[i].value("event") == "frame" && events[i].value("kind") == "mouse_abs")
                hex << events[i].value("hex").toString().remove(' ').toUpper();
        }
        return int(hex.size());
    };
    mpr->click();
    QVERIFY(dialog.isMprTestRunning());
    QCOMPARE(mpr->text(), QStringLiteral("MPR test stop"));
    QTRY_VERIFY_WITH_TIMEOUT(framesSeen() >= 8, 10000);
    mpr->click();
    QVERIFY(!dialog.isMprTestRunning());
    QCOMPARE(mpr->text(), QStringLiteral("MPR test start"));
    QTest::qWait(50); // frames still on the line
    framesSeen();
    const QStringList cycle = {"57AB0004070201400115020068", "57AB0004070200400115020067",
                               "57AB0004070201190C6B0A00AA", "57AB0004070200190C6B0A00A9"};
    for (int i = 0; i < hex.size(); ++i)
        QCOMPARE(hex[i], cycle[i % 4]);

    // The box hangs up while the test runs: it stops at the next tick and says why.
    ModalCatcher catcher;
    mpr->click();
    QVERIFY(dialog.isMprTestRunning());
    box().stop();
    QTRY_COMPARE(
        catcher.count(QStringLiteral("MPR 测试"), QStringLiteral("串口已断开，测试已停止。")), 1);
    QVERIFY(!dialog.isMprTestRunning());
    QCOMPARE(mpr->text(), QStringLiteral("MPR test start"));
}

int main(int argc, char **argv)
{
    qputenv("TAVROKVM_VCAM_DEVICES", "box:TKCTRL01");
    QApplication app(argc, argv);
    TestDeviceControl test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_devicecontrol.moc"
