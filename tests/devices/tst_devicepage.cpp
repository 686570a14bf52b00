// The device page against the virtual camera and a simulated box: which cameras become rows and
// records, names, the device menu, the exclusive check boxes, the blink, the throttles, and a box
// pulled out and plugged back while the console shows it.

#include <QApplication>
#include <QCheckBox>
#include <QFile>
#include <QLabel>
#include <QMenu>
#include <QSignalSpy>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <QToolButton>

#include "console/tavrovideo.h"
#include "db/dbmanager.h"
#include "devices/device.h"
#include "devices/devicelistrules.h"
#include "serial/deviceuartmanager.h"
#include "serial/uartmanager.h"
#include "tests/support/boxsimprocess.h"
#include "tests/support/devicetestaccess.h"
#include "ui/mainwindow.h"

namespace {

constexpr int kTimeoutMs = 20000;
const QByteArray kSceneWithBoth = "box:TKROWA01,builtin,box:TKROWB02";
const QByteArray kSceneWithoutA = "builtin,box:TKROWB02";

QTemporaryDir &sceneDir()
{
    static QTemporaryDir dir;
    return dir;
}

QString sceneFile()
{
    return sceneDir().filePath(QStringLiteral("scene.txt"));
}

QStringList g_logLines;
QtMessageHandler g_previousHandler = nullptr;

void recordingHandler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    g_logLines.append(message);
    g_previousHandler(type, context, message);
}

int logCount(const QString &line)
{
    return int(g_logLines.count(line));
}

// The device menu past the current box's controls: the boxes, then what follows them.
QList<QAction *> boxItems(QMenu *menu)
{
    const QList<QAction *> actions = menu->actions();
    int first = 0;
    while (first < actions.size() && !actions.at(first)->isSeparator())
        ++first;
    return actions.mid(first + 1);
}

bool writeScene(const QByteArray &scene)
{
    QFile file(sceneFile());
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(scene) >= 0;
}

} // namespace

class TestDevicePage : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void listsTheBoxesWithTheirRecords();
    void customNameReachesRecordAndTable();
    void deviceMenuOpensTheRowItNames();
    void checkBoxesStayExclusiveAndShareTheThrottle();
    void refreshIsThrottled();
    void currentRowBlinks();
    void pulledBoxClosesTheConsoleAndReturns();

private:
    QTableWidget *table() const { return m_page->findChild<QTableWidget *>("devicesTableWidget"); }
    QByteArray rowId(int row) const { return table()->item(row, 5)->text().toUtf8(); }
    QStringList rowIds() const
    {
        QStringList ids;
        for (int row = 0; row < table()->rowCount(); ++row)
            ids << QString::fromUtf8(rowId(row));
        return ids;
    }
    // Lets the page's throttles forget the last user action.
    void passThrottles() { DeviceTestAccess::advanceClock(*m_page, 1000); }
    bool checked(int row) const { return m_page->checkboxAtRow(row)->isChecked(); }

    QTemporaryDir m_dataDir;
    BoxSimProcess m_box;
    MainWindow *m_window = nullptr;
    TavroVideo *m_view = nullptr;
    device *m_page = nullptr;
};

void TestDevicePage::initTestCase()
{
    g_previousHandler = qInstallMessageHandler(recordingHandler);
    QVERIFY(m_dataDir.isValid());
    QVERIFY(DBManager::instance()->initDatabase(m_dataDir.filePath("console.db")));
    const QString link = m_dataDir.filePath("tk-box");
    qputenv("TAVROKVM_EXTRA_SERIAL_PORTS", (link + "=TK CDC").toUtf8());
    QVERIFY(m_box.startReady(link));
    QVERIFY(writeScene(kSceneWithBoth));
    QTest::qWait(600); // the camera list follows the scene file

    m_window = new MainWindow;
    m_view = m_window->videoView();
    m_page = m_window->devicePage();
    QSignalSpy started(m_view, &TavroVideo::cameraStarted);
    m_window->show();
    QVERIFY(started.wait(kTimeoutMs));
    QTRY_VERIFY_WITH_TIMEOUT(
        UartManager::instance()->getDeviceUartManager(m_view->getCurrentDeviceDid())->isConnected(),
        kTimeoutMs);
}

void TestDevicePage::cleanupTestCase()
{
    delete m_window;
    m_box.stop();
    qInstallMessageHandler(g_previousHandler);
}

void TestDevicePage::listsTheBoxesWithTheirRecords()
{
    // Two boxes and a built-in camera: the built-in camera is no row.
    QTRY_COMPARE(table()->rowCount(), 2);
    QVERIFY(rowIds()[0].endsWith("sn_TKROWA01"));
    QVERIFY(rowIds()[1].endsWith("sn_TKROWB02"));
    QCOMPARE(m_page->currentRow(), 0);
    QCOMPARE(m_view->currentDeviceId(), rowId(0));
    // The row's DID is the one the console view and the serial link use.
    QCOMPARE(deviceDidForCameraId(rowId(0)), m_view->getCurrentDeviceDid());

    for (int row = 0; row < 2; ++row) {
        const QVariantMap record =
            DBManager::instance()->getDeviceByDid(deviceDidForCameraId(rowId(row)));
        QVERIFY2(!record.isEmpty(), qPrintable(rowIds()[row]));
        QCOMPARE(record.value("device_id").toString(), rowIds()[row]);
        QCOMPARE(record.value("sys_desc_name").toString(), QStringLiteral("TK USB3 Video"));
        QCOMPARE(record.value("device_name").toString(), QStringLiteral("USB video"));
        QCOMPARE(record.value("baud_rate").toInt(), 2000000);
        QCOMPARE(record.value("cursor_correction_enabled").toInt(), 0);
    }
}

void TestDevicePage::customNameReachesRecordAndTable()
{
    const QByteArray id = rowId(1);
    const QString did = deviceDidForCameraId(id);
    m_page->setCustomDeviceName(id, QStringLiteral("机房 B"));
    QCOMPARE(DBManager::instance()->getDeviceByDid(did).value("device_name").toString(),
             QStringLiteral("机房 B"));
    QCOMPARE(m_page->deviceDescriptionMenuLabels(),
             QStringList({QStringLiteral("TK USB3 Video"), QStringLiteral("机房 B")}));
    QCOMPARE(m_page->getCustomDeviceName(id), QStringLiteral("机房 B"));

    // An empty name removes it: the record's name goes back to the default.
    m_page->setCustomDeviceName(id, QString());
    QCOMPARE(DBManager::instance()->getDeviceByDid(did).value("device_name").toString(),
             QStringLiteral("USB video"));
    QCOMPARE(m_page->deviceDescriptionMenuLabels()[1], QStringLiteral("TK USB3 Video"));
}

void TestDevicePage::deviceMenuOpensTheRowItNames()
{
    QMenu *menu = m_window->deviceMenu();
    emit menu->aboutToShow();
    QList<QAction *> items = boxItems(menu);
    QCOMPARE(items.size(), 2);
    QCOMPARE(items[1]->text(), QStringLiteral("TK USB3 Video"));

    QSignalSpy started(m_view, &TavroVideo::cameraStarted);
    items[1]->trigger();
    QVERIFY(started.wait(kTimeoutMs));
    QCOMPARE(m_view->currentDeviceId(), rowId(1));
    QTRY_COMPARE(m_page->currentRow(), 1);
    QVERIFY(!checked(0) && checked(1));

    emit menu->aboutToShow();
    boxItems(menu).at(0)->trigger();
    QVERIFY(started.wait(kTimeoutMs));
    QCOMPARE(m_view->currentDeviceId(), rowId(0));
    QTRY_COMPARE(m_page->currentRow(), 0);
}

void TestDevicePage::checkBoxesStayExclusiveAndShareTheThrottle()
{
    passThrottles();
    QSignalSpy started(m_view, &TavroVideo::cameraStarted);
    QTest::mouseClick(m_page->checkboxAtRow(1), Qt::LeftButton);
    QVERIFY(!checked(0) && checked(1));
    QVERIFY(started.wait(kTimeoutMs));
    QCOMPARE(m_view->currentDeviceId(), rowId(1));

    // Within 999 ms a second row action, by check box or double-click, is refused.
    QTest::ignoreMessage(QtDebugMsg,
                         "[device::onDeviceCheckboxClicked] 用户设备点击过于频繁，已节流");
    QTest::mouseClick(m_page->checkboxAtRow(0), Qt::LeftButton);
    QVERIFY(!checked(0) && checked(1)); // the refused click left no tick behind
    QTest::ignoreMessage(QtDebugMsg,
                         "[device::onDevicesTableCellDoubleClicked] 用户设备双击过于频繁，已节流");
    emit table()->cellDoubleClicked(0, 4);
    QTest::qWait(300);
    QCOMPARE(m_view->currentDeviceId(), rowId(1));

    passThrottles();
    emit table()->cellDoubleClicked(0, 4);
    QVERIFY(started.wait(kTimeoutMs));
    QCOMPARE(m_view->currentDeviceId(), rowId(0));
    QTRY_VERIFY(checked(0) && !checked(1));
}

void TestDevicePage::refreshIsThrottled()
{
    const QString ran = QStringLiteral("Refreshing device list...");
    const QString userThrottled =
        QStringLiteral("[device::refreshDevices] 用户刷新点击过于频繁，已节流");
    const QString throttled = QStringLiteral("[device::refreshDevices] 刷新请求过于频繁，已节流");
    passThrottles();
    g_logLines.clear();
    auto *button = m_page->findChild<QToolButton *>("btnFreshDevice");
    QTest::mouseClick(button, Qt::LeftButton);
    QTest::mouseClick(button, Qt::LeftButton);
    QCOMPARE(logCount(ran), 1);
    QCOMPARE(logCount(userThrottled), 1);

    // Not by the user: only the 800 ms throttle applies.
    DeviceTestAccess::advanceClock(*m_page, 1000);
    m_page->refreshDevices();
    QCOMPARE(logCount(ran), 2);
    m_page->refreshDevices();
    QCOMPARE(logCount(throttled), 1);
    DeviceTestAccess::advanceClock(*m_page, 800);
    m_page->refreshDevices();
    QCOMPARE(logCount(ran), 3);
    QCOMPARE(table()->rowCount(), 2);
}

void TestDevicePage::currentRowBlinks()
{
    const QImage green = QIcon(":/images/dot_green.png").pixmap(11, 11).toImage();
    auto dot = [this](int row) {
        return table()->cellWidget(row, 2)->findChild<QLabel *>()->pixmap().toImage();
    };
    QCOMPARE(m_page->currentRow(), 0);
    QList<bool> currentGreen;
    for (int tick = 0; tick < 4; ++tick) {
        m_page->updateGreenDotBlink();
        currentGreen << (dot(0) == green);
        QCOMPARE(dot(1), green);
    }
    // Green and gray by turns, one change per 500 ms tick: a 1 Hz blink.
    QCOMPARE(currentGreen[0], !currentGreen[1]);
    QCOMPARE(currentGreen[1], !currentGreen[2]);
    QCOMPARE(currentGreen[2], !currentGreen[3]);
    const auto timers = m_page->findChildren<QTimer *>();
    QVERIFY(std::any_of(timers.begin(), timers.end(),
                        [](QTimer *t) { return t->isActive() && t->interval() == 500; }));
}

void TestDevicePage::pulledBoxClosesTheConsoleAndReturns()
{
    const QByteArray pulled = m_view->currentDeviceId();
    QCOMPARE(pulled, rowId(0));
    DeviceUartManager *link =
        UartManager::instance()->getDeviceUartManager(m_view->getCurrentDeviceDid());
    QVERIFY(link->isConnected());

    QVERIFY(writeScene(kSceneWithoutA));
    QTRY_COMPARE_WITH_TIMEOUT(table()->rowCount(), 1, kTimeoutMs);
    QVERIFY(rowIds()[0].endsWith("sn_TKROWB02"));
    // The console lets go of the camera and the serial link of the box that is gone.
    QTRY_VERIFY(!m_view->isCameraActive());
    QVERIFY(!link->isConnected());
    QCOMPARE(m_page->currentRow(), -1);
    QVERIFY(!checked(0));

    // Plugged back in, it is listed again and the console shows it again by itself.
    QSignalSpy started(m_view, &TavroVideo::cameraStarted);
    QVERIFY(writeScene(kSceneWithBoth));
    QTRY_COMPARE_WITH_TIMEOUT(table()->rowCount(), 2, kTimeoutMs);
    // A camera plugged in comes after those already there.
    QCOMPARE(rowId(1), pulled);
    QVERIFY(started.count() > 0 || started.wait(kTimeoutMs));
    QCOMPARE(m_view->currentDeviceId(), pulled);
    const qint64 opened = QDateTime::currentMSecsSinceEpoch();
    QTRY_VERIFY_WITH_TIMEOUT(m_view->lastFrameTimeMs() > opened, kTimeoutMs);
    QTRY_VERIFY(link->isConnected());
    QTRY_COMPARE(m_page->currentRow(), 1);
    QVERIFY(!checked(0) && checked(1));
}

int main(int argc, char **argv)
{
    // The scene file must be known before the virtual camera is first asked for its cameras.
    if (!sceneDir().isValid() || !writeScene(QByteArray()))
        return 1;
    qputenv("TAVROKVM_VCAM_SCENE", sceneFile().toUtf8());
    QApplication app(argc, argv);
    TestDevicePage test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_devicepage.moc"
