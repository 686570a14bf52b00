// The console view's capture side against the virtual camera and the simulated box: which camera
// the first open picks, the format it negotiates, reopening, closing, and the box's serial link.

#include <QApplication>
#include <QFile>
#include <QLabel>
#include <QMediaDevices>
#include <QSignalSpy>
#include <QStatusBar>
#include <QTemporaryDir>
#include <QTest>

#include "console/tavrovideo.h"
#include "db/dbmanager.h"
#include "platform/cameraidentity.h"
#include "serial/deviceuartmanager.h"
#include "serial/uartmanager.h"
#include "tests/support/boxsimprocess.h"
#include "tests/support/tavrovideotestaccess.h"
#include "ui/mainwindow.h"

namespace {

constexpr int kOpenTimeoutMs = 20000;

QTemporaryDir &sceneDir()
{
    static QTemporaryDir dir;
    return dir;
}

QString sceneFile()
{
    return sceneDir().filePath(QStringLiteral("scene.txt"));
}

void writeScene(const QByteArray &scene)
{
    QFile file(sceneFile());
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(scene);
}

QStringList g_logLines;
QtMessageHandler g_previousHandler = nullptr;

void recordingHandler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    g_logLines.append(message);
    static const bool verbose = qEnvironmentVariableIsSet("TAVROKVM_TEST_VERBOSE");
    if (type >= QtWarningMsg || verbose)
        g_previousHandler(type, context, message);
}

int logCount(const QString &fragment)
{
    int count = 0;
    for (const QString &line : std::as_const(g_logLines))
        count += line.contains(fragment) ? 1 : 0;
    return count;
}

} // namespace

class TestTavroVideoCapture : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();

    void firstOpenPicksTheBoxAndNegotiatesItsLargestMjpeg();
    void openingTheShownCameraWhileFramesFlowIsSkipped();
    void openingTheShownCameraAfterAStallReopensIt();
    void closeWithoutLinkKeepsItAndEmitsNothing();
    void fullCloseClosesLinkAndEmitsOnce();
    void unknownIdLeavesTheViewClosed();
    void boxAppearingEarlySwitchesOnce();
    void boxAppearingLateSwitchesNothing();
    void secondBoxModelWinsOverGenericUsbVideo();
    void replugBoxGetsItsRecordBack();
    void fullCloseStopsALostLinkFromReopening();
    void resolutionCheckRunsWhileACameraIsShownInFront();

private:
    // A main window with the console view; waits until the first open has started a camera.
    void startConsole(const QByteArray &scene);
    bool waitForFrames(int count);

    QTemporaryDir m_dataDir;
    BoxSimProcess m_box;
    QString m_link;
    MainWindow *m_window = nullptr;
    TavroVideo *m_view = nullptr;
};

void TestTavroVideoCapture::initTestCase()
{
    QVERIFY(m_dataDir.isValid());
    QVERIFY(DBManager::instance()->initDatabase(m_dataDir.filePath("console.db")));
    m_link = m_dataDir.filePath("tk-box");
    qputenv("TAVROKVM_EXTRA_SERIAL_PORTS", (m_link + "=TK CDC").toUtf8());
    QVERIFY(m_box.startReady(m_link));
    g_previousHandler = qInstallMessageHandler(recordingHandler);
}

void TestTavroVideoCapture::cleanupTestCase()
{
    qInstallMessageHandler(g_previousHandler);
    m_box.stop();
}

void TestTavroVideoCapture::init()
{
    g_logLines.clear();
}

void TestTavroVideoCapture::cleanup()
{
    delete m_window;
    m_window = nullptr;
    m_view = nullptr;
    // Lets the closed camera's pipeline and the queued teardown finish before the next scene.
    QTest::qWait(200);
}

void TestTavroVideoCapture::startConsole(const QByteArray &scene)
{
    writeScene(scene);
    // The camera list follows the scene file within a few hundred milliseconds.
    QTest::qWait(600);
    m_window = new MainWindow;
    m_view = m_window->videoView();
    m_window->show();
    QSignalSpy started(m_view, &TavroVideo::cameraStarted);
    QVERIFY(started.wait(kOpenTimeoutMs));
    // Every open begins with a full close whose second half, and cameraClosed, are queued.
    QTest::qWait(50);
}

bool TestTavroVideoCapture::waitForFrames(int count)
{
    int seen = 0;
    qint64 last = m_view->lastFrameTimeMs();
    QElapsedTimer timer;
    timer.start();
    while (seen < count && timer.elapsed() < kOpenTimeoutMs) {
        QTest::qWait(20);
        if (m_view->lastFrameTimeMs() != last) {
            last = m_view->lastFrameTimeMs();
            ++seen;
        }
    }
    return seen >= count;
}

void TestTavroVideoCapture::firstOpenPicksTheBoxAndNegotiatesItsLargestMjpeg()
{
    startConsole("builtin,box:TKFIRST01");
    const QByteArray id = m_view->currentDeviceId();
    QVERIFY2(id.contains("vid_a5c0") && id.contains("pid_2132"), id.constData());
    QVERIFY(waitForFrames(3));
    QVERIFY(!m_view->convertedImage().isNull() || waitForFrames(5));

    // Size before rate: the 4K MJPEG format beats 1080p60, and MJPEG beats NV12.
    QCOMPARE(m_view->negotiatedResolution(), QSize(3840, 2160));
    QCOMPARE(qRound(m_view->negotiatedFps()), 30);
    QCOMPARE(logCount(QStringLiteral("[openCamera] ✓✓✓ 已成功选择MJPEG格式 ✓✓✓")), 1);
    auto *size = m_window->statusBar()->findChild<QLabel *>("statusSection1");
    auto *rate = m_window->statusBar()->findChild<QLabel *>("statusSection2");
    QVERIFY(size && rate);
    QCOMPARE(size->text(), QStringLiteral("3840x2160"));
    QCOMPARE(rate->text(), QStringLiteral("30.0fps"));

    // The box's "TK CDC" port was opened at 2000000 baud and stored for its DID.
    const QString did = m_view->getCurrentDeviceDid();
    QCOMPARE(did.size(), 32);
    DeviceUartManager *link = UartManager::instance()->getDeviceUartManager(did);
    QVERIFY(link->isConnected());
    QCOMPARE(link->portName(), m_link);
    QCOMPARE(link->baudRate(), 2000000);
    QVERIFY(!m_box.next("hello").isEmpty());
    const QVariantMap record = DBManager::instance()->getDeviceByDid(did);
    QCOMPARE(record.value("uart_port").toString(), m_link);
    QCOMPARE(record.value("baud_rate").toInt(), 2000000);
}

void TestTavroVideoCapture::openingTheShownCameraWhileFramesFlowIsSkipped()
{
    startConsole("box:TKSKIP01");
    QVERIFY(waitForFrames(2));
    QSignalSpy started(m_view, &TavroVideo::cameraStarted);
    QSignalSpy closed(m_view, &TavroVideo::cameraClosed);
    m_view->openCamera(m_view->currentDeviceId());
    QTest::qWait(300);
    QCOMPARE(started.count(), 0);
    QCOMPARE(closed.count(), 0);
    QCOMPARE(logCount(QStringLiteral("目标设备已在前台激活且帧流正常，跳过重复打开")), 1);
    QVERIFY(m_view->isCameraActive());
}

void TestTavroVideoCapture::openingTheShownCameraAfterAStallReopensIt()
{
    startConsole("box:TKSTALL01");
    QVERIFY(waitForFrames(2));
    const QByteArray id = m_view->currentDeviceId();
    QSignalSpy started(m_view, &TavroVideo::cameraStarted);
    // 1.8 s without a frame: the view no longer trusts the stream.
    TavroVideoTestAccess::advanceClock(*m_view, 1900);
    m_view->openCamera(id);
    QCOMPARE(logCount(QStringLiteral("同设备处于 active 但帧流超时，执行强制重开")), 1);
    const int agoAt = g_logLines.filter("lastFrameAgoMs=").value(0).indexOf("lastFrameAgoMs=");
    QVERIFY(agoAt >= 0);
    QVERIFY(g_logLines.filter("lastFrameAgoMs=").value(0).mid(agoAt + 15).toLongLong() >= 1900);
    QVERIFY(started.count() == 1 || started.wait(kOpenTimeoutMs));
    QCOMPARE(m_view->currentDeviceId(), id);
    QVERIFY(waitForFrames(2));
}

void TestTavroVideoCapture::closeWithoutLinkKeepsItAndEmitsNothing()
{
    startConsole("box:TKKEEP01");
    const QString did = m_view->getCurrentDeviceDid();
    DeviceUartManager *link = UartManager::instance()->getDeviceUartManager(did);
    QVERIFY(link->isConnected());
    QSignalSpy closed(m_view, &TavroVideo::cameraClosed);
    m_view->closeCamera(false);
    QTest::qWait(200);
    QCOMPARE(closed.count(), 0);
    QVERIFY(!m_view->isCameraActive());
    QVERIFY(link->isConnected());
    QCOMPARE(m_view->negotiatedResolution(), QSize(-1, -1));
}

void TestTavroVideoCapture::fullCloseClosesLinkAndEmitsOnce()
{
    startConsole("box:TKFULL01");
    const QString did = m_view->getCurrentDeviceDid();
    DeviceUartManager *link = UartManager::instance()->getDeviceUartManager(did);
    QVERIFY(link->isConnected());
    QSignalSpy closed(m_view, &TavroVideo::cameraClosed);
    m_view->closeCamera(true);
    QCOMPARE(closed.count(), 0); // the second half of the close is queued
    QVERIFY(closed.wait(2000));
    QTest::qWait(100);
    QCOMPARE(closed.count(), 1);
    QVERIFY(!link->isConnected());
}

void TestTavroVideoCapture::unknownIdLeavesTheViewClosed()
{
    startConsole("box:TKUNKNOWN01");
    QSignalSpy started(m_view, &TavroVideo::cameraStarted);
    m_view->openCamera("vid_ffff&pid_ffff&sn_nothing");
    QTest::qWait(300);
    QCOMPARE(started.count(), 0);
    QVERIFY(!m_view->isCameraActive());
    QCOMPARE(logCount(QStringLiteral("的相机设备")), 1);
}

void TestTavroVideoCapture::boxAppearingEarlySwitchesOnce()
{
    startConsole("builtin");
    QVERIFY(!m_view->currentDeviceId().contains("vid_a5c0"));
    QSignalSpy started(m_view, &TavroVideo::cameraStarted);
    TavroVideoTestAccess::advanceClock(*m_view, 3000 - 1000); // about 3 s after the view started
    writeScene("builtin,box:TKLATE01");
    QVERIFY(started.wait(kOpenTimeoutMs));
    QTest::qWait(1500);
    QCOMPARE(started.count(), 1);
    QVERIFY(m_view->currentDeviceId().contains("pid_2132"));
    QCOMPARE(logCount(QStringLiteral("从非 TK USB 设备切换到优选 TK USB 设备")), 1);
}

void TestTavroVideoCapture::boxAppearingLateSwitchesNothing()
{
    startConsole("builtin");
    const QByteArray builtin = m_view->currentDeviceId();
    QSignalSpy started(m_view, &TavroVideo::cameraStarted);
    QSignalSpy inputs(m_view, &TavroVideo::uvcInputsChanged);
    TavroVideoTestAccess::advanceClock(*m_view, 6000);
    writeScene("builtin,box:TKLATE02");
    QVERIFY(inputs.wait(kOpenTimeoutMs));
    QTest::qWait(1000);
    QCOMPARE(started.count(), 0);
    QCOMPARE(m_view->currentDeviceId(), builtin);
}

void TestTavroVideoCapture::secondBoxModelWinsOverGenericUsbVideo()
{
    startConsole("builtin,usbvideo,box2131:TKSECOND01");
    QVERIFY(m_view->currentDeviceId().contains("pid_2131"));
}

void TestTavroVideoCapture::replugBoxGetsItsRecordBack()
{
    startConsole("box:TKPLUG01");
    const QByteArray id = m_view->currentDeviceId();
    const QString did = m_view->getCurrentDeviceDid();
    QVariantMap record = DBManager::instance()->getDeviceByDid(did);
    QCOMPARE(record.value("uart_port").toString(), m_link);
    record.insert("cursor_correction_enabled", 1);
    QVERIFY(DBManager::instance()->insertOrUpdateDevice(record));

    // Pulled out while it shows its picture, then plugged back in.
    writeScene("");
    QTRY_VERIFY_WITH_TIMEOUT(identifiedVideoInputs().isEmpty(), kOpenTimeoutMs);
    // A camera that is gone delivers no more pictures.
    QTest::qWait(2000);
    QVERIFY(QDateTime::currentMSecsSinceEpoch() - m_view->lastFrameTimeMs() > 1800);
    writeScene("box:TKPLUG01");
    QTRY_COMPARE_WITH_TIMEOUT(identifiedVideoInputs().size(), 1, kOpenTimeoutMs);

    g_logLines.clear();
    QSignalSpy started(m_view, &TavroVideo::cameraStarted);
    m_view->openCamera(id);
    QVERIFY(started.count() == 1 || started.wait(kOpenTimeoutMs));
    QCOMPARE(m_view->getCurrentDeviceDid(), did);
    // The link comes from the box's stored record, not from a new search for the port.
    QCOMPARE(logCount(QStringLiteral("开机时发现有效的数据库串口配置，尝试打开")), 1);
    QCOMPARE(logCount(QStringLiteral("尝试自动连接名称含 TK CDC 的端口")), 0);
    record = DBManager::instance()->getDeviceByDid(did);
    QCOMPARE(record.value("cursor_correction_enabled").toInt(), 1);
    QVERIFY(UartManager::instance()->getDeviceUartManager(did)->isConnected());
    QVERIFY(waitForFrames(2));
}

void TestTavroVideoCapture::fullCloseStopsALostLinkFromReopening()
{
    startConsole("box:TKLOST01");
    DeviceUartManager *link =
        UartManager::instance()->getDeviceUartManager(m_view->getCurrentDeviceDid());
    QTRY_VERIFY(link->isConnected());
    // The box goes away: its link waits for the port to come back.
    m_box.stop();
    QTRY_VERIFY_WITH_TIMEOUT(link->isWaitingToReopen(), kOpenTimeoutMs);
    m_view->closeCamera(true);
    QVERIFY(!link->isWaitingToReopen());
    // The box comes back; nothing reopens a link for a box that is no longer shown.
    QVERIFY(m_box.startReady(m_link));
    QTest::qWait(2500);
    QVERIFY(!link->isConnected());
}

void TestTavroVideoCapture::resolutionCheckRunsWhileACameraIsShownInFront()
{
    // The application becomes active only once the window shows, after the view was made.
    startConsole("box:TKRES01");
    QTRY_COMPARE(QGuiApplication::applicationState(), Qt::ApplicationActive);
    QVERIFY(TavroVideoTestAccess::resolutionCheckRunning(*m_view));

    m_window->showMinimized();
    QTRY_VERIFY(!TavroVideoTestAccess::resolutionCheckRunning(*m_view));
    m_window->showNormal();
    QTRY_VERIFY(TavroVideoTestAccess::resolutionCheckRunning(*m_view));

    // Reopening the shown camera keeps it running; without a camera there is nothing to check.
    QSignalSpy started(m_view, &TavroVideo::cameraStarted);
    TavroVideoTestAccess::advanceClock(*m_view, 1900);
    m_view->openCamera(m_view->currentDeviceId());
    QVERIFY(started.count() == 1 || started.wait(kOpenTimeoutMs));
    QVERIFY(TavroVideoTestAccess::resolutionCheckRunning(*m_view));
    m_view->closeCamera(false);
    QVERIFY(!TavroVideoTestAccess::resolutionCheckRunning(*m_view));
}

int main(int argc, char **argv)
{
    // The scene file must be known before the virtual camera is first asked for its cameras.
    if (!sceneDir().isValid())
        return 1;
    qputenv("TAVROKVM_VCAM_SCENE", sceneFile().toUtf8());
    {
        QFile file(sceneFile());
        if (!file.open(QIODevice::WriteOnly))
            return 1;
    }
    QApplication app(argc, argv);
    TestTavroVideoCapture test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_tavrovideocapture.moc"
