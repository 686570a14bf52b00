// The main window without a box: status sections following the console view, the transient tip,
// the device menu when nothing is attached, frame edges on the real window, centring, and the
// pages across minimise and restore.

#include <QApplication>
#include <QLabel>
#include <QMenu>
#include <QScreen>
#include <QTableWidget>
#include <QTest>
#include <QTimer>
#include <QToolButton>

#include "console/tavrovideo.h"
#include "devices/device.h"
#include "ui/customtitlebar.h"
#include "ui/mainwindow.h"
#include "ui/messagewidget.h"
#include "ui/tools.h"
#include "ui/windowrules.h"

Q_DECLARE_METATYPE(Qt::Edges)

class TestMainWindow : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void statusSectionsFollowTheView();
    void tipShowsTrimmedTextForSixSeconds();
    void emptyDeviceMenu();
    void frameEdgesOfTheRealWindow_data();
    void frameEdgesOfTheRealWindow();
    void centringNearTheCentreDoesNotMove();
    void devicePageReturnsAfterMinimise();
    void escapeNeverClosesTheDevicePage();
    void pageSwitchingShowsExactlyOnePage();
    void toolPageReturnsAfterMinimise();
    void consoleMessagesReachThePanel();
    void badgeFollowsTheUpdateCheck();

private:
    QLabel *label(const char *name) const
    {
        return m_window->findChild<QLabel *>(QLatin1String(name));
    }
    MainWindow *m_window = nullptr;
};

void TestMainWindow::initTestCase()
{
    m_window = new MainWindow;
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window));
}

void TestMainWindow::cleanupTestCase()
{
    delete m_window;
}

void TestMainWindow::statusSectionsFollowTheView()
{
    TavroVideo *view = m_window->videoView();
    QCOMPARE(label("statusSection3")->text(), QStringLiteral("Freq: N/A"));
    QCOMPARE(label("statuSection5")->text(), QStringLiteral("UART: unknown"));
    emit view->calcChanged(QStringLiteral("1920x1080"));
    emit view->mouseChanged(QStringLiteral("960,540"));
    emit view->uartStatusChanged(true, QStringLiteral("/dev/ttyACM0: connected"));
    QCOMPARE(label("statusSection3")->text(), QStringLiteral("1920x1080"));
    QCOMPARE(label("statusSection4")->text(), QStringLiteral("960,540"));
    QCOMPARE(label("statuSection5")->text(), QStringLiteral("UART: /dev/ttyACM0: connected"));
    emit view->uartStatusChanged(false, QStringLiteral("UART: disconnected"));
    QCOMPARE(label("statuSection5")->text(), QStringLiteral("UART: disconnected"));
    emit view->statusBarMessageRequested(QStringLiteral("串口已连接"));
    QCOMPARE(label("statusTipLabel")->text(), QStringLiteral("串口已连接"));
}

void TestMainWindow::tipShowsTrimmedTextForSixSeconds()
{
    QLabel *tip = label("statusTipLabel");
    auto *timer = m_window->findChild<QTimer *>(QStringLiteral("statusTipTimer"));
    QVERIFY(timer);
    m_window->showTransientStatusMessage(QStringLiteral("  first  "));
    QCOMPARE(tip->text(), QStringLiteral("first"));
    QVERIFY(timer->isActive());
    QCOMPARE(timer->interval(), 6000);
    // Blanks change nothing, not even the time left.
    timer->start(4000);
    m_window->showTransientStatusMessage(QStringLiteral("   "));
    QCOMPARE(tip->text(), QStringLiteral("first"));
    QCOMPARE(timer->interval(), 4000);
    // A second message gets a full six seconds of its own.
    m_window->showTransientStatusMessage(QStringLiteral("second"));
    QCOMPARE(tip->text(), QStringLiteral("second"));
    QCOMPARE(timer->interval(), 6000);
    timer->start(1);
    QTRY_VERIFY(tip->text().isEmpty());
}

void TestMainWindow::emptyDeviceMenu()
{
    QVERIFY(m_window->devicePage()->cameras().isEmpty());
    QMenu *menu = m_window->deviceMenu();
    for (int opening = 0; opening < 2; ++opening) { // rebuilt, not appended to
        emit menu->aboutToShow();
        const QList<QAction *> actions = menu->actions();
        QCOMPARE(actions.size(), 3);
        QCOMPARE(actions.first()->text(), QStringLiteral("设备设置…"));
        // After the separator: the boxes, here the one disabled "none" item.
        QVERIFY(actions.at(1)->isSeparator());
        QCOMPARE(actions.last()->text(), QStringLiteral("（无可用设备）"));
        QVERIFY(!actions.last()->isEnabled());
    }
}

void TestMainWindow::frameEdgesOfTheRealWindow_data()
{
    QTest::addColumn<QPoint>("fromCorner"); // negative coordinates count from the right/bottom
    QTest::addColumn<Qt::Edges>("edges");
    QTest::addColumn<int>("cursor");
    QTest::newRow("inside the title bar") << QPoint(300, 20) << Qt::Edges() << int(Qt::ArrowCursor);
    QTest::newRow("title bar's top rows")
        << QPoint(300, 2) << Qt::Edges(Qt::TopEdge) << int(Qt::SizeVerCursor);
    QTest::newRow("left edge") << QPoint(1, 300) << Qt::Edges(Qt::LeftEdge)
                               << int(Qt::SizeHorCursor);
    QTest::newRow("right edge") << QPoint(-3, 300) << Qt::Edges(Qt::RightEdge)
                                << int(Qt::SizeHorCursor);
    QTest::newRow("bottom right") << QPoint(-1, -1) << (Qt::BottomEdge | Qt::RightEdge)
                                  << int(Qt::SizeFDiagCursor);
    QTest::newRow("bottom left") << QPoint(2, -2) << (Qt::BottomEdge | Qt::LeftEdge)
                                 << int(Qt::SizeBDiagCursor);
    QTest::newRow("the picture") << QPoint(700, 400) << Qt::Edges() << int(Qt::ArrowCursor);
}

void TestMainWindow::frameEdgesOfTheRealWindow()
{
    QFETCH(QPoint, fromCorner);
    QFETCH(Qt::Edges, edges);
    QFETCH(int, cursor);
    const QPoint pos(fromCorner.x() < 0 ? m_window->width() + fromCorner.x() : fromCorner.x(),
                     fromCorner.y() < 0 ? m_window->height() + fromCorner.y() : fromCorner.y());
    QCOMPARE(m_window->getResizeEdges(pos), edges);
    m_window->updateCursor(edges);
    QCOMPARE(int(m_window->cursor().shape()), cursor);
}

void TestMainWindow::centringNearTheCentreDoesNotMove()
{
    const QRect screen = QGuiApplication::primaryScreen()->geometry();
    const QPoint centre = centredPlacement(screen, m_window->size(), QPoint()).target;
    m_window->move(centre + QPoint(4, -5));
    QTRY_COMPARE(m_window->pos(), centre + QPoint(4, -5));
    QTest::ignoreMessage(QtDebugMsg, "【主窗口】窗口位置已接近中心，不进行调整");
    m_window->centerWindowOnScreen();
    QCOMPARE(m_window->pos(), centre + QPoint(4, -5));
}

void TestMainWindow::devicePageReturnsAfterMinimise()
{
    device *page = m_window->devicePage();
    QVERIFY(page->isVisible());
    m_window->showMinimized();
    QTRY_VERIFY(page->isHidden());
    m_window->showNormal();
    QTRY_VERIFY(page->isVisible());
    // The left bar's device button shows the page that is there.
    m_window->onDeviceBtnClicked();
    QVERIFY(page->isVisible());
}

void TestMainWindow::escapeNeverClosesTheDevicePage()
{
    device *page = m_window->devicePage();
    // Escape not taken by the console view travels up to the page, a dialog by class.
    QTest::keyClick(page, Qt::Key_Escape);
    QVERIFY(page->isVisible());
}

namespace {

// Which of the three pages show, as "device", "tools", "message".
QStringList shownPages(MainWindow *window)
{
    QStringList shown;
    if (window->devicePage() && window->devicePage()->isVisible())
        shown << "device";
    if (window->toolPage() && window->toolPage()->isVisible())
        shown << "tools";
    if (window->messagePanel() && window->messagePanel()->isVisible())
        shown << "message";
    return shown;
}

} // namespace

void TestMainWindow::pageSwitchingShowsExactlyOnePage()
{
    auto click = [this](const char *button) {
        QTest::mouseClick(m_window->findChild<QToolButton *>(QLatin1String(button)),
                          Qt::LeftButton);
    };
    click("toolBtn");
    QCOMPARE(shownPages(m_window), QStringList{"tools"});
    click("mailBtn");
    QCOMPARE(shownPages(m_window), QStringList{"message"});
    click("deviceBtn");
    QCOMPARE(shownPages(m_window), QStringList{"device"});
    m_window->onLogToolBtnClicked();
    QCOMPARE(shownPages(m_window), QStringList{"tools"});
    click("deviceBtn");
    QCOMPARE(shownPages(m_window), QStringList{"device"});
}

void TestMainWindow::toolPageReturnsAfterMinimise()
{
    m_window->onLogToolBtnClicked();
    m_window->showMinimized();
    QTRY_VERIFY(m_window->toolPage()->isHidden());
    m_window->showNormal();
    QTRY_COMPARE(shownPages(m_window), QStringList{"tools"});
    m_window->onDeviceBtnClicked();
    QCOMPARE(shownPages(m_window), QStringList{"device"});
}

void TestMainWindow::consoleMessagesReachThePanel()
{
    emit m_window->videoView()->statusBarMessageRequested(QStringLiteral("  光标矫正已开启 "));
    emit m_window->videoView()->operatorMessageShown(QStringLiteral("设备信息: 请先连接串口。"));
    auto *table = m_window->messagePanel()->findChild<QTableWidget *>("msgTableWidget");
    QVERIFY(table);
    const int rows = table->rowCount();
    QVERIFY(rows >= 2);
    auto text = [table](int row) {
        const QTableWidgetItem *item = table->item(row, 1);
        return item ? item->text() : table->cellWidget(row, 1)->findChild<QLabel *>()->text();
    };
    QVERIFY(text(rows - 2).contains(QStringLiteral("光标矫正已开启")));
    QVERIFY(text(rows - 1).contains(QStringLiteral("请先连接串口。")));
}

void TestMainWindow::badgeFollowsTheUpdateCheck()
{
    QLabel *badge = label("settingBadge");
    QVERIFY(badge);
    AppVersionManifest manifest;
    manifest.versionNo = QStringLiteral("1.0.0");
    m_window->onUpdateCheckFinished(true, manifest);
    QVERIFY(badge->isVisible());
    QVERIFY(m_window->hasUpdate());
    // Inside the settings button, in its top-right corner.
    QVERIFY(badge->geometry().right() < badge->parentWidget()->width());
    QCOMPARE(badge->y(), 5);
    m_window->onUpdateCheckFinished(false, manifest);
    QVERIFY(!badge->isVisible());
}

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
