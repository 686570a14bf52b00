// The device page's preview grid against the virtual camera with three boxes: the start in grid
// mode, a tile zoomed into the console view and back, a slot without a box, the placeholder while
// the console holds a box, collapsing forced syncs, the periodic recovery in both modes, and a
// box pulled out while the grid shows. Across all of it the virtual camera counts the streams of
// each camera: never two at once.

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QFile>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>

#include "console/tavrovideo.h"
#include "db/dbmanager.h"
#include "devices/device.h"
#include "devices/tavrovideopreview.h"
#include "platform/cameraidentity.h"
#include "tests/support/devicetestaccess.h"
#include "tests/support/previewtestaccess.h"
#include "tests/support/tavrovideotestaccess.h"
#include "tests/support/vcamholders.h"
#include "ui/mainwindow.h"

namespace {

constexpr int kTimeoutMs = 20000;
constexpr qint64 kHealthAgeMs = 8000;
const QByteArray kThreeBoxes = "box:TKGRID01,box:TKGRID02,box:TKGRID03";
const QByteArray kSecondPulled = "box:TKGRID01,box:TKGRID03";
const QString kTableUpdated = QStringLiteral("[device::updateDevicesTable] 被调用，当前行数:");
const QString kStaggerDone =
    QStringLiteral("[device::advanceStaggeredPreviewSync] 错峰预览同步完成");

QTemporaryDir &workDir()
{
    static QTemporaryDir dir;
    return dir;
}

QString holdersFile()
{
    return workDir().filePath(QStringLiteral("holders.txt"));
}

bool writeScene(const QByteArray &scene)
{
    QFile file(workDir().filePath(QStringLiteral("scene.txt")));
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(scene) >= 0;
}

QStringList g_log;
QtMessageHandler g_previousHandler = nullptr;

void recordingHandler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    g_log.append(message);
    g_previousHandler(type, context, message);
}

int logged(const QString &start)
{
    return int(std::count_if(g_log.begin(), g_log.end(),
                             [&start](const QString &line) { return line.startsWith(start); }));
}

} // namespace

class TestPreviewGrid : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void cleanup();
    void startsInTheGridWithTilesStreaming();
    void tileDoubleClickOpensTheBoxInTheConsole();
    void menuTakesTheConsoleBackToTheGrid();
    void slotWithoutBoxShowsAnEmptyConsolePageAndZoomsAreThrottled();
    void consoleHoldingABoxSuppressesItsTile();
    void forcedSchedulesCollapseAndStaggerRestarts();
    void periodicTickInConsoleReopensWithoutRebuildingTheTable();
    void periodicTickInTheGridRefreshesOnlyDeadStreams();
    void boxPulledOutWhileInTheGrid();

private:
    TavroVideoPreview *tile(int slot) const { return m_page->previewTile(slot); }
    QByteArray rowId(int row) const { return m_page->cameras().at(row).identity; }
    bool gridShows() const { return m_page->videoAreaStack()->currentIndex() == 1; }
    // The tiles of the listed boxes stream their row's camera; the others are closed.
    bool tilesStreamTheirRows() const
    {
        for (int slot = 0; slot < kPreviewSlotCount; ++slot) {
            if (slot < m_page->cameras().size()) {
                if (tile(slot)->boundId() != rowId(slot) ||
                    !tile(slot)->isPreviewStreamHealthy(kHealthAgeMs))
                    return false;
            } else if (!tile(slot)->boundId().isEmpty()) {
                return false;
            }
        }
        return true;
    }
    bool allTilesClosed() const
    {
        for (int slot = 0; slot < kPreviewSlotCount; ++slot) {
            if (!tile(slot)->boundId().isEmpty() || tile(slot)->isPreviewStreaming())
                return false;
        }
        return true;
    }
    VcamHolders holders(const QString &serial) const
    {
        return vcamHoldersOf(holdersFile(), serial);
    }
    void goToTheGrid();
    // Zooms a tile and waits for the console to run its box.
    void zoomInto(int slot);

    QTemporaryDir m_dataDir;
    MainWindow *m_window = nullptr;
    TavroVideo *m_view = nullptr;
    device *m_page = nullptr;
};

void TestPreviewGrid::initTestCase()
{
    g_previousHandler = qInstallMessageHandler(recordingHandler);
    QVERIFY(m_dataDir.isValid());
    QVERIFY(DBManager::instance()->initDatabase(m_dataDir.filePath("console.db")));
    QVERIFY(DBManager::instance()->setAppSetting("multi_same_display", "1"));
    QTRY_COMPARE_WITH_TIMEOUT(identifiedVideoInputs().size(), 3, kTimeoutMs);

    m_window = new MainWindow;
    m_view = m_window->videoView();
    m_page = m_window->devicePage();
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window));
}

void TestPreviewGrid::cleanupTestCase()
{
    delete m_window;
    for (const char *serial : {"TKGRID01", "TKGRID02", "TKGRID03"})
        QCOMPARE(holders(serial).streaming, 0);
    // Never two capture sessions on one camera, through every switch above.
    QCOMPARE(vcamPeakHolders(holdersFile()), 1);
    qInstallMessageHandler(g_previousHandler);
}

void TestPreviewGrid::cleanup()
{
    // Never two capture sessions on one camera, checked after every step.
    QVERIFY(vcamPeakHolders(holdersFile()) <= 1);
}

void TestPreviewGrid::goToTheGrid()
{
    auto *grid = m_view->findChild<QPushButton *>("btnMultiWindow");
    QVERIFY(grid);
    grid->click();
    QTRY_VERIFY(gridShows());
    QTRY_VERIFY_WITH_TIMEOUT(tilesStreamTheirRows(), kTimeoutMs);
}

void TestPreviewGrid::zoomInto(int slot)
{
    QSignalSpy started(m_view, &TavroVideo::cameraStarted);
    QTRY_VERIFY(tile(slot)->videoInteractionTarget()->isVisible());
    QTest::mouseDClick(tile(slot)->videoInteractionTarget(), Qt::LeftButton);
    // The tiles let go at once, before the console opens anything.
    QVERIFY(allTilesClosed());
    QVERIFY(started.wait(kTimeoutMs));
    QCOMPARE(m_view->currentDeviceId(), rowId(slot));
    QVERIFY(!gridShows());
    DeviceTestAccess::advanceClock(*m_page, 1000); // past the zoom and row throttles
}

void TestPreviewGrid::startsInTheGridWithTilesStreaming()
{
    QVERIFY(m_page->multiSameDisplay());
    QVERIFY(gridShows());
    QCOMPARE(m_page->cameras().size(), 3);
    // The console view left its first open to the grid.
    QVERIFY(m_view->currentDeviceId().isEmpty());
    QTRY_VERIFY_WITH_TIMEOUT(tilesStreamTheirRows(), kTimeoutMs);
    for (const char *serial : {"TKGRID01", "TKGRID02", "TKGRID03"})
        QTRY_COMPARE(holders(serial).streaming, 1);
    QCOMPARE(m_page->currentRow(), -1);
}

void TestPreviewGrid::tileDoubleClickOpensTheBoxInTheConsole()
{
    const int tableUpdates = logged(kTableUpdated);
    zoomInto(1);
    QCOMPARE(m_page->currentRow(), 1);
    QVERIFY(m_page->checkboxAtRow(1)->isChecked());
    // The console's own start does not rebuild the table on the way out of the grid.
    QCOMPARE(logged(kTableUpdated), tableUpdates);
    QTRY_VERIFY_WITH_TIMEOUT(m_view->lastFrameTimeMs() > 0, kTimeoutMs);
    QCOMPARE(holders("TKGRID02").streaming, 1);
    QCOMPARE(holders("TKGRID01").streaming, 0);
    QCOMPARE(holders("TKGRID03").streaming, 0);
}

void TestPreviewGrid::menuTakesTheConsoleBackToTheGrid()
{
    g_log.clear();
    goToTheGrid();
    QCOMPARE(logged("[device::continuePreviewGridSwitchAfterMainClose] 切到预览栈"), 1);
    QVERIFY(!m_view->isCameraActive());
    QCOMPARE(m_page->currentRow(), -1);
    QVERIFY(!m_page->checkboxAtRow(1)->isChecked());
    // The serial side stays: parking releases only the camera.
    QCOMPARE(logged("[TavroVideo::closeCamera] 跳过串口关闭"), 1);
    QTRY_COMPARE(logged(kStaggerDone), 1);
}

void TestPreviewGrid::slotWithoutBoxShowsAnEmptyConsolePageAndZoomsAreThrottled()
{
    g_log.clear();
    QTest::mouseDClick(tile(7), Qt::LeftButton);
    QVERIFY(!gridShows());
    QVERIFY(allTilesClosed());
    QCOMPARE(m_page->currentRow(), -1);
    QVERIFY(!m_view->isCameraActive());

    // Within 350 ms of the first, a second double-click is throttled; past it, it goes through.
    // The page's clock also runs in real time, which a slow (sanitized, busy) run spends freely:
    // it is set back far enough that the second click lands inside the window, then forward to
    // just past it.
    DeviceTestAccess::advanceClock(*m_page, -5000);
    QTest::ignoreMessage(QtDebugMsg, "[device::onPreviewZoomRequested] 双击请求过于频繁，已节流");
    m_page->onPreviewZoomRequested(0);
    QVERIFY(!m_view->isCameraActive());
    DeviceTestAccess::advanceClock(*m_page, 5000 + 350);
    QSignalSpy started(m_view, &TavroVideo::cameraStarted);
    m_page->onPreviewZoomRequested(0);
    // While the console opens, further zooms are refused outright.
    QTest::ignoreMessage(QtDebugMsg,
                         "[device::onPreviewZoomRequested] 切换进行中，忽略双击放大请求");
    DeviceTestAccess::advanceClock(*m_page, 1000);
    m_page->onPreviewZoomRequested(2);
    QVERIFY(started.wait(kTimeoutMs));
    QCOMPARE(m_view->currentDeviceId(), rowId(0));
    DeviceTestAccess::advanceClock(*m_page, 1000);
    goToTheGrid();
}

void TestPreviewGrid::consoleHoldingABoxSuppressesItsTile()
{
    // Something opens box 3 in the console while the grid shows (its tile let go first).
    tile(2)->closeCamera();
    QTRY_COMPARE(holders("TKGRID03").streaming, 0);
    g_log.clear();
    QSignalSpy started(m_view, &TavroVideo::cameraStarted);
    m_view->openCamera(rowId(2));
    QVERIFY(started.count() == 1 || started.wait(kTimeoutMs));
    // The console's start rebuilds the table, whose sync binds the slots: slot 2 stays shut.
    QTRY_VERIFY(m_page->isPreviewSlotSuppressed(2));
    QVERIFY(tile(2)->isMainOccupiedPlaceholderShown());
    QVERIFY(!tile(2)->isPreviewStreaming());
    QCOMPARE(logged("[device::applyPreviewSlotSync][p3] 槽位 2 与主画布同 UVC，预览抑制:"), 1);
    QVERIFY(tile(0)->isPreviewStreaming() && tile(1)->isPreviewStreaming());
    QCOMPARE(holders("TKGRID03").streaming, 1);

    // A later sync leaves it suppressed and says so once.
    m_page->syncPreviewCameras(false);
    QVERIFY(m_page->isPreviewSlotSuppressed(2));
    QCOMPARE(logged("[device::applyPreviewSlotSync][p3] 槽位 2 与主画布同 UVC，预览抑制:"), 1);

    // The console lets go: the next sync shows the box in its tile again.
    m_view->parkMainCameraForGridLayout();
    m_page->syncPreviewGridAfterLeavingMain();
    QTRY_VERIFY_WITH_TIMEOUT(tilesStreamTheirRows(), kTimeoutMs);
    QVERIFY(!m_page->isPreviewSlotSuppressed(2));
    QVERIFY(!tile(2)->isMainOccupiedPlaceholderShown());
    QCOMPARE(logged("[device::applyPreviewSlotSync][p3] 槽位 2 解除主路独占抑制，恢复预览:"), 1);
    QTRY_COMPARE(logged(kStaggerDone), 1);
}

void TestPreviewGrid::forcedSchedulesCollapseAndStaggerRestarts()
{
    g_log.clear();
    const QString forced =
        QStringLiteral("[device::onDeferredPreviewSync] macOS 错峰强制重建预览流");
    m_page->scheduleSyncPreviewCameras(true);
    m_page->scheduleSyncPreviewCameras(true);
    m_page->scheduleSyncPreviewCameras(false);
    m_page->scheduleSyncPreviewCameras(true);
    QTRY_COMPARE_WITH_TIMEOUT(logged(kStaggerDone), 1, kTimeoutMs);
    QCOMPARE(logged(forced), 1);
    QTRY_VERIFY_WITH_TIMEOUT(tilesStreamTheirRows(), kTimeoutMs);

    // A staggered sync begun while one runs starts again from slot 0.
    g_log.clear();
    const QString opened = QStringLiteral("[TavroVideoPreview] 槽位");
    m_page->beginStaggeredPreviewSync(true, QByteArray());
    QTRY_VERIFY(logged(opened) >= 2);
    m_page->beginStaggeredPreviewSync(true, QByteArray());
    QTRY_COMPARE_WITH_TIMEOUT(logged(kStaggerDone), 1, kTimeoutMs);
    QStringList opens;
    for (const QString &line : std::as_const(g_log)) {
        if (line.startsWith(opened) && line.contains(QStringLiteral("打开预览")))
            opens << line.section(' ', 2, 2);
    }
    QCOMPARE(opens.mid(opens.size() - 3), QStringList({"0", "1", "2"}));
    QVERIFY(opens.size() >= 5);
    QTRY_VERIFY_WITH_TIMEOUT(tilesStreamTheirRows(), kTimeoutMs);
}

void TestPreviewGrid::periodicTickInConsoleReopensWithoutRebuildingTheTable()
{
    zoomInto(0);
    QTRY_VERIFY_WITH_TIMEOUT(m_view->lastFrameTimeMs() > 0, kTimeoutMs);

    // The console's frames stop counting and look stale: the tick's re-open goes through.
    g_log.clear();
    TavroVideoTestAccess::setCameraActive(*m_view, false);
    TavroVideoTestAccess::advanceClock(*m_view, 5000);
    QSignalSpy started(m_view, &TavroVideo::cameraStarted);
    m_page->onPeriodicRecoverTick();
    QCOMPARE(logged("[device::onPeriodicRecoverTick] 主画布模式：按双击当前设备行执行重开"), 1);
    QVERIFY(started.wait(kTimeoutMs));
    QCOMPARE(logged(kTableUpdated), 0);
    QCOMPARE(m_page->currentRow(), 0);
    QCOMPARE(m_view->currentDeviceId(), rowId(0));

    // With frames flowing nothing is re-opened, and no later start is kept from the table.
    const qint64 reopened = QDateTime::currentMSecsSinceEpoch();
    QTRY_VERIFY_WITH_TIMEOUT(m_view->lastFrameTimeMs() > reopened + 5000, kTimeoutMs);
    started.clear();
    m_page->onPeriodicRecoverTick();
    QTRY_COMPARE(logged("[TavroVideo::openCamera] 目标设备已在前台激活且帧流正常，跳过重复打开"),
                 1);
    QCOMPARE(started.count(), 0);
    DeviceTestAccess::advanceClock(*m_page, 1000);
    m_page->activateRowLikeDoubleClick(1);
    QVERIFY(started.wait(kTimeoutMs));
    QCOMPARE(logged(kTableUpdated), 1);
    QCOMPARE(holders("TKGRID02").streaming, 1);
    QCOMPARE(holders("TKGRID01").streaming, 0);
    DeviceTestAccess::advanceClock(*m_page, 1000);
    goToTheGrid();
}

void TestPreviewGrid::periodicTickInTheGridRefreshesOnlyDeadStreams()
{
    g_log.clear();
    m_page->onPeriodicRecoverTick();
    QCOMPARE(logged("[device::onPeriodicRecoverTick][preview]"), 3);
    QCOMPARE(logged("[device::onPeriodicRecoverTick] 预览模式：流状态健康，跳过本轮刷新"), 1);
    QCOMPARE(logged("Refreshing device list..."), 0);

    // A tile without a frame for more than 8 s: a full refresh and a staggered re-open.
    TavroVideoPreviewTestAccess::advanceClock(*tile(1), kHealthAgeMs + 1000);
    DeviceTestAccess::advanceClock(*m_page, 1000);
    m_page->onPeriodicRecoverTick();
    QCOMPARE(logged("[device::onPeriodicRecoverTick] 预览模式：周期执行设备刷新"), 1);
    QCOMPARE(logged("Refreshing device list..."), 1);
    TavroVideoPreviewTestAccess::advanceClock(*tile(1), -(kHealthAgeMs + 1000));
    QTRY_COMPARE_WITH_TIMEOUT(logged(kStaggerDone), 1, kTimeoutMs);
    QTRY_VERIFY_WITH_TIMEOUT(tilesStreamTheirRows(), kTimeoutMs);
}

void TestPreviewGrid::boxPulledOutWhileInTheGrid()
{
    const QByteArray pulled = rowId(1);
    const QByteArray third = rowId(2);
    {
        // The page has not heard of it yet: its table still lists the box.
        const QSignalBlocker quiet(m_view);
        QVERIFY(writeScene(kSecondPulled));
        QTRY_VERIFY_WITH_TIMEOUT(findCameraByIdentity(pulled).isNull(), kTimeoutMs);
        QTest::ignoreMessage(QtWarningMsg,
                             qPrintable("[TavroVideoPreview] UVC not found: " + pulled));
        m_page->syncPreviewCameras(true);
        QVERIFY(tile(1)->boundId().isEmpty());
        QVERIFY(!tile(1)->isPreviewStreaming());
        QCOMPARE(m_page->cameras().size(), 3);
    }
    // The next refresh rebinds: the third box moves up to slot 1, slot 2 closes.
    DeviceTestAccess::advanceClock(*m_page, 1000);
    m_page->refreshDevices();
    QTRY_COMPARE(m_page->cameras().size(), 2);
    QTRY_VERIFY_WITH_TIMEOUT(tilesStreamTheirRows(), kTimeoutMs);
    QCOMPARE(tile(1)->boundId(), third);
    QVERIFY(tile(2)->boundId().isEmpty());
    QTRY_COMPARE(holders("TKGRID03").streaming, 1);
    QCOMPARE(holders("TKGRID02").streaming, 0);
}

int main(int argc, char **argv)
{
    // The scene must be known before the virtual camera is first asked for its cameras.
    if (!workDir().isValid() || !writeScene(kThreeBoxes))
        return 1;
    qputenv("TAVROKVM_VCAM_SCENE", workDir().filePath(QStringLiteral("scene.txt")).toUtf8());
    qputenv("TAVROKVM_VCAM_HOLDERS", holdersFile().toUtf8());
    // The cameras present at start are listed, not announced as plugged in on top: no hot-plug
    // reaches the page but the one a test makes.
    qputenv("TAVROKVM_VCAM_QUIET_START", "1");
    QApplication app(argc, argv);
    TestPreviewGrid test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_previewgrid.moc"
