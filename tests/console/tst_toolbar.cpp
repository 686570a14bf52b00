// The floating toolbar of the console view against the virtual camera and the simulated box:
// its buttons and what each one does, the tool switch's clicks, drags and stored place, popups
// kept on screen, the watermark's signals and status sections, and full screen in and out.

#include <QApplication>
#include <QClipboard>
#include <QJsonObject>
#include <QLabel>
#include <QLayout>
#include <QMainWindow>
#include <QScreen>
#include <QSettings>
#include <QSignalSpy>
#include <QStatusBar>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include "serial/deviceuartmanager.h"
#include "serial/uartmanager.h"
#include "tests/support/consolewithbox.h"
#include "tests/support/modalcatcher.h"
#include "tests/support/tavrovideotestaccess.h"
#include "ui/mouse.h"

namespace {

// The toolbar's row, left to right: object name and tooltip ("" = set elsewhere).
const QList<QPair<QString, QString>> kRow = {
    {"btnAtx", "设备设置：视频设备、串口、波特率等"},
    {"btnKeyboard", "软键盘"},
    {"btnPaste", "粘贴：把剪贴板文本键入目标机 (Ctrl+Alt+V)"},
    {"btnMouse", "鼠标控制"},
    {"btnUdiskSwitch", ""},
    {"btnRecord", "录屏"},
    {"btnSnap", "截图"},
    {"btnSettings", "参数及控制"},
    {"btnInfo", "信息"},
    {"btnMultiWindow", "多窗口"},
    {"btnFullscreen", "全屏"},
    {"btnCancel", "隐藏工具栏"},
};

QTemporaryDir &configDir()
{
    static QTemporaryDir dir;
    return dir;
}

} // namespace

class TestToolbar : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void buttonsInOrder();
    void eachButtonDoesItsJob_data();
    void eachButtonDoesItsJob();
    void laterVersionButtonsSaySo();
    void missingIconGetsAStandardOne();
    void switchClickTogglesAndDragMoves();
    void storedPlaceStaysInsideASmallerView();
    void removedSettingsRestoreTheDefaultPlace();
    void draggedToolbarLeavesTheSwitchAtItsCentre();
    void popupNearTheScreenEdgeStaysInside();
    void watermarkSignalsOnlyChanges();
    void uartTextIsReevaluatedEveryTwoSeconds();
    void statusSectionsAtMostEveryHalfSecond();
    void fullScreenInAndOut();

private:
    QPushButton *button(const QString &name) const
    {
        return m_view->flowPanel()->findChild<QPushButton *>(name);
    }
    void showToolbar()
    {
        if (!m_view->flowPanel()->isVisible())
            m_view->onBtnToolSwitchClicked();
        QVERIFY(m_view->flowPanel()->isVisible());
    }
    QLabel *statusSection(const char *name) const
    {
        return m_console.window()->statusBar()->findChild<QLabel *>(QLatin1String(name));
    }
    // The last box event named `name` after the first `from` events; empty when none came.
    QJsonObject eventAfter(int from, const char *name)
    {
        const QList<QJsonObject> events = m_console.box().events();
        QJsonObject found;
        for (int i = from; i < events.size(); ++i) {
            if (events[i].value("event").toString() == QLatin1String(name))
                found = events[i];
        }
        return found;
    }
    QStringList commandsAfter(int from)
    {
        const QList<QJsonObject> events = m_console.box().events();
        QStringList names;
        for (int i = from; i < events.size(); ++i) {
            if (events[i].value("event").toString() == QLatin1String("command"))
                names << events[i].value("name").toString();
        }
        return names;
    }
    bool waitForFrames(int count)
    {
        const quint32 from = m_view->frameSequence();
        return QTest::qWaitFor([&] { return m_view->frameSequence() >= from + quint32(count); },
                               20000);
    }

    ConsoleWithBox m_console;
    TavroVideo *m_view = nullptr;
    ModalCatcher *m_catcher = nullptr;
    QStringList m_saveCaptions;
};

void TestToolbar::initTestCase()
{
    QVERIFY(m_console.start());
    m_view = m_console.view();
    m_catcher = new ModalCatcher;
    m_view->setSavePathChooser([this](const QString &caption, const QString &, const QString &) {
        m_saveCaptions << caption;
        return QString();
    });
    QVERIFY(waitForFrames(3));
}

void TestToolbar::cleanupTestCase()
{
    m_console.stop();
    delete m_catcher;
}

void TestToolbar::init()
{
    m_catcher->boxes.clear();
    m_catcher->dialogs.clear();
    m_saveCaptions.clear();
    // A row before may have re-opened the camera: frames of its negotiated size flow again.
    QTRY_VERIFY_WITH_TIMEOUT(m_view->isCameraActive() &&
                                 m_view->lastFrame().size() == m_view->negotiatedResolution(),
                             20000);
    QVERIFY(waitForFrames(3));
}

void TestToolbar::buttonsInOrder()
{
    auto *row = m_view->flowPanel()->findChild<QWidget *>(QStringLiteral("buttonsRow"));
    QVERIFY(row);
    QStringList order;
    for (int i = 0; i < row->layout()->count(); ++i) {
        QWidget *widget = row->layout()->itemAt(i)->widget();
        if (!widget)
            continue;
        if (widget->objectName() == QLatin1String("recordButtonColumn"))
            widget = widget->findChild<QPushButton *>(QStringLiteral("btnRecord"));
        order << widget->objectName();
    }
    QStringList expected{QStringLiteral("flowDragHandle")};
    for (const auto &entry : kRow)
        expected << entry.first;
    QCOMPARE(order, expected);
    for (const auto &entry : kRow) {
        QPushButton *found = button(entry.first);
        QVERIFY2(found, qPrintable(entry.first));
        QCOMPARE(found->size(), QSize(24, 24));
        QCOMPARE(found->focusPolicy(), Qt::NoFocus);
        QVERIFY2(!found->icon().isNull(), qPrintable(entry.first));
        if (!entry.second.isEmpty())
            QCOMPARE(found->toolTip(), entry.second);
    }
    QVERIFY(button(QStringLiteral("btnUdiskSwitch"))->toolTip().startsWith("U盘方向"));
    auto *elapsed = m_view->flowPanel()->findChild<QLabel *>(QStringLiteral("recordElapsedLabel"));
    QVERIFY(elapsed && elapsed->isHidden());
}

// Each row clicks one button with the toolbar shown and names what must follow.
void TestToolbar::eachButtonDoesItsJob_data()
{
    QTest::addColumn<QString>("name");
    for (const auto &entry : kRow)
        QTest::newRow(qPrintable(entry.first)) << entry.first;
}

void TestToolbar::eachButtonDoesItsJob()
{
    QFETCH(QString, name);
    // As a click of the user's would, the click finds the console's window active (a floating
    // panel of an earlier row may have had the activation).
    m_console.window()->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_console.window()));
    showToolbar();
    QPushButton *clicked = button(name);
    QVERIFY(clicked);
    QSignalSpy grid(m_view, &TavroVideo::previewGridRequested);
    const int boxEvents = int(m_console.box().events().size());

    if (name == QLatin1String("btnPaste"))
        QGuiApplication::clipboard()->setText(QStringLiteral("ok"));
    QTest::mouseClick(clicked, Qt::LeftButton);

    if (name == QLatin1String("btnAtx")) {
        QTRY_COMPARE(m_catcher->dialogs, QStringList{QStringLiteral("deviceSettingsDialog")});
    } else if (name == QLatin1String("btnKeyboard")) {
        QVERIFY(m_view->softKeyboard() && m_view->softKeyboard()->isVisible());
        // Under the toolbar.
        QCOMPARE(m_view->softKeyboard()->y(),
                 m_view->flowPanel()->mapToGlobal(QPoint(0, m_view->flowPanel()->height())).y());
        QTest::mouseClick(clicked, Qt::LeftButton);
        QVERIFY(!m_view->softKeyboard()->isVisible());
    } else if (name == QLatin1String("btnPaste")) {
        // The target's text so far ends with the clipboard's.
        QTRY_VERIFY_WITH_TIMEOUT(
            eventAfter(boxEvents, "text").value("text").toString().endsWith("ok"), 10000);
    } else if (name == QLatin1String("btnMouse")) {
        QVERIFY(m_view->mouseControl() && m_view->mouseControl()->isVisible());
        m_view->closePopupWindows();
        QVERIFY(!m_view->mouseControl()->isVisible());
    } else if (name == QLatin1String("btnUdiskSwitch")) {
        QTRY_VERIFY_WITH_TIMEOUT(commandsAfter(boxEvents).contains("udisk_set"), 10000);
    } else if (name == QLatin1String("btnRecord")) {
        QVERIFY(m_view->isRecording());
        QTest::mouseClick(clicked, Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(!m_view->isRecording(), 15000);
        QTRY_COMPARE(m_saveCaptions, QStringList{QStringLiteral("保存录屏")});
    } else if (name == QLatin1String("btnSnap")) {
        QTRY_COMPARE(m_saveCaptions, QStringList{QStringLiteral("保存截图")});
    } else if (name == QLatin1String("btnSettings")) {
        QTRY_COMPARE(m_catcher->dialogs, QStringList{QStringLiteral("paramControlDialog")});
    } else if (name == QLatin1String("btnInfo")) {
        QTRY_COMPARE_WITH_TIMEOUT(m_catcher->boxes.size(), 1, 10000);
        QCOMPARE(m_catcher->boxes[0].title, QStringLiteral("设备信息"));
    } else if (name == QLatin1String("btnMultiWindow")) {
        // Without "multi_same_display" the view steps aside for the device list.
        QVERIFY(m_view->isHidden() || grid.size() == 1);
        m_view->show();
    } else if (name == QLatin1String("btnFullscreen")) {
        QVERIFY(m_view->isViewFullScreen());
        QVERIFY(m_view->isWindow());
        QTest::mouseClick(button(name), Qt::LeftButton);
        QVERIFY(!m_view->isViewFullScreen());
        QVERIFY(!m_view->isWindow());
    } else if (name == QLatin1String("btnCancel")) {
        QVERIFY(!m_view->flowPanel()->isVisible());
        QVERIFY(m_view->toolSwitchButton()->isVisible());
    }
    QVERIFY(m_catcher->boxes.size() <= 1);
}

void TestToolbar::laterVersionButtonsSaySo()
{
    const QList<QStringList> buttons = {
        {"btnEthernet", "以太网", "以太网相关功能将在后续版本中提供。"},
        {"btnWifi", "Wi‑Fi", "无线网络相关功能将在后续版本中提供。"},
        {"btnDisk", "磁盘", "磁盘扩展相关功能将在后续版本中提供。"},
        {"btnMouseClick", "鼠标宏", "鼠标点击宏功能将在后续版本中提供。"},
    };
    for (const QStringList &entry : buttons) {
        QPushButton *later = button(entry[0]);
        QVERIFY2(later, qPrintable(entry[0]));
        later->click();
        QTRY_COMPARE(m_catcher->count(entry[1], entry[2]), 1);
    }
}

void TestToolbar::missingIconGetsAStandardOne()
{
    const QString missing = QStringLiteral(":/images/device/no-such-icon.png");
    QTest::ignoreMessage(
        QtWarningMsg, qPrintable("[TavroVideo] 无法加载图标: " + missing + " ，使用系统标准图标"));
    QVERIFY(!TavroVideo::toolbarIcon(missing, false).isNull());
    QTest::ignoreMessage(QtWarningMsg, qPrintable("[TavroVideo] 无法加载cancel图标: " + missing +
                                                  " ，使用系统标准图标"));
    QVERIFY(!TavroVideo::toolbarIcon(missing, true).isNull());
}

void TestToolbar::switchClickTogglesAndDragMoves()
{
    m_view->setFlowPanelVisible(false);
    QPushButton *toolSwitch = m_view->toolSwitchButton();
    QVERIFY(toolSwitch->isVisible());
    const bool shownBefore = m_view->flowPanel()->isVisible();

    // A press and release in place toggles the toolbar.
    QTest::mousePress(toolSwitch, Qt::LeftButton, {}, QPoint(16, 16));
    QTest::mouseRelease(toolSwitch, Qt::LeftButton, {}, QPoint(16, 16));
    QCOMPARE(m_view->flowPanel()->isVisible(), !shownBefore);
    m_view->setFlowPanelVisible(false);

    // A drag by the start-drag distance moves it and toggles nothing.
    const QPoint before = toolSwitch->pos();
    const int distance = QApplication::startDragDistance();
    QTest::mousePress(toolSwitch, Qt::LeftButton, {}, QPoint(16, 16));
    QTest::mouseMove(toolSwitch, QPoint(16 + distance + 40, 16 + 60));
    QTest::mouseRelease(toolSwitch, Qt::LeftButton, {}, QPoint(16 + distance + 40, 16 + 60));
    QVERIFY(!m_view->flowPanel()->isVisible());
    QCOMPARE(toolSwitch->pos(), before + QPoint(distance + 40, 60));
    QSettings settings;
    QVERIFY(settings.value("TavroVideo/toolSwitchHasCustomPos").toBool());
    QCOMPARE(settings.value("TavroVideo/toolSwitchRelX").toDouble(),
             double(toolSwitch->x()) / m_view->width());
    QCOMPARE(settings.value("TavroVideo/toolSwitchRelY").toDouble(),
             double(toolSwitch->y()) / m_view->height());
}

void TestToolbar::storedPlaceStaysInsideASmallerView()
{
    {
        QSettings settings;
        settings.setValue("TavroVideo/toolSwitchHasCustomPos", true);
        settings.setValue("TavroVideo/toolSwitchRelX", 0.95);
        settings.setValue("TavroVideo/toolSwitchRelY", 0.95);
    }
    // A second view, as after a restart, in a smaller window.
    TavroVideo view;
    view.resize(400, 300);
    view.loadToolSwitchRelativePosition();
    view.applyToolSwitchPosition();
    const QRect placed = view.toolSwitchButton()->geometry();
    QVERIFY2(view.rect().contains(placed), qPrintable(QStringLiteral("%1,%2 %3x%4")
                                                          .arg(placed.x())
                                                          .arg(placed.y())
                                                          .arg(placed.width())
                                                          .arg(placed.height())));
    QCOMPARE(placed.topLeft(), QPoint(368, 268));
}

void TestToolbar::removedSettingsRestoreTheDefaultPlace()
{
    QSettings().clear();
    m_view->loadToolSwitchRelativePosition();
    m_view->applyToolSwitchPosition();
    QCOMPARE(m_view->toolSwitchButton()->pos(), QPoint((m_view->width() - 32) / 2, 4));
}

void TestToolbar::draggedToolbarLeavesTheSwitchAtItsCentre()
{
    showToolbar();
    QWidget *panel = m_view->flowPanel();
    auto *handle = panel->findChild<QWidget *>(QStringLiteral("flowDragHandle"));
    QVERIFY(handle);
    QTest::mousePress(handle, Qt::LeftButton, {}, QPoint(9, 12));
    QTest::mouseMove(handle, QPoint(9 + 100, 12 + 150));
    QTest::mouseRelease(handle, Qt::LeftButton, {}, QPoint(9 + 100, 12 + 150));
    const QRect dragged = panel->geometry();
    QVERIFY(dragged.top() > 100);
    button(QStringLiteral("btnCancel"))->click();
    const QRect toolSwitch = m_view->toolSwitchButton()->geometry();
    QVERIFY(m_view->toolSwitchButton()->isVisible());
    QVERIFY2(
        qAbs(toolSwitch.center().x() - dragged.center().x()) <= 1,
        qPrintable(
            QStringLiteral("%1 vs %2").arg(toolSwitch.center().x()).arg(dragged.center().x())));
    QCOMPARE(toolSwitch.top(), dragged.top());
    // Shown again, the toolbar comes back where it was.
    m_view->onBtnToolSwitchClicked();
    QCOMPARE(panel->geometry(), dragged);
}

void TestToolbar::popupNearTheScreenEdgeStaysInside()
{
    QScreen *screen = QGuiApplication::primaryScreen();
    const QRect area = screen->geometry();
    QWidget popup;
    popup.resize(500, 400);
    // The window moved so that the toolbar hangs near the screen's bottom right.
    QWidget *window = m_console.window();
    const QPoint oldPos = window->pos();
    window->move(area.right() - window->width() / 2, area.bottom() - 60);
    showToolbar();
    m_view->centerPopupWindow(&popup);
    QVERIFY2(area.contains(QRect(popup.pos(), popup.size())),
             qPrintable(QStringLiteral("%1,%2").arg(popup.x()).arg(popup.y())));
    window->move(oldPos);
}

void TestToolbar::watermarkSignalsOnlyChanges()
{
    QSignalSpy calc(m_view, &TavroVideo::calcChanged);
    QSignalSpy mouseMoves(m_view, &TavroVideo::mouseChanged);
    m_view->setWatermarkDebugInfoVisible(true);
    auto *label = m_view->findChild<QLabel *>(QStringLiteral("watermarkLabel"));
    QVERIFY(label && label->isVisible());
    QVERIFY2(label->text().startsWith("Borders: T0 L0 B0 R0 | Calc: "), qPrintable(label->text()));
    // Frames keep coming; nothing changed, nothing is signalled.
    QVERIFY(waitForFrames(5));
    QCOMPARE(calc.size(), 0);
    QCOMPARE(mouseMoves.size(), 0);
    // A measured border changes the active size once.
    image_blank_info borders;
    borders.left = borders.right = 10;
    m_view->setBlackBorderInfo(borders);
    QVERIFY(waitForFrames(3));
    QCOMPARE(calc.size(), 1);
    const QSize capture = m_view->videoContentSizeForLayout();
    QCOMPARE(calc[0][0].toString(),
             QStringLiteral("%1x%2").arg(capture.width() - 20).arg(capture.height()));
    QVERIFY(label->text().contains("Borders: T0 L10 B0 R10"));
    m_view->setBlackBorderInfo(image_blank_info());
    m_view->setWatermarkDebugInfoVisible(false);
    QVERIFY(label->isHidden());
}

void TestToolbar::uartTextIsReevaluatedEveryTwoSeconds()
{
    QSignalSpy uart(m_view, &TavroVideo::uartStatusChanged);
    DeviceUartManager *link =
        UartManager::instance()->getDeviceUartManager(m_view->getCurrentDeviceDid());
    QVERIFY(link);
    // Closed behind the view's back: noticed within the next 2000 ms.
    link->closeSerialPort();
    QTRY_COMPARE_WITH_TIMEOUT(uart.size(), 1, 4000);
    QCOMPARE(uart[0][0].toBool(), false);
    QCOMPARE(uart[0][1].toString(), QStringLiteral("UART: disconnected"));
}

void TestToolbar::statusSectionsAtMostEveryHalfSecond()
{
    QLabel *size = statusSection("statusSection1");
    QLabel *rate = statusSection("statusSection2");
    QVERIFY(size && rate);
    const QSize capture = m_view->videoContentSizeForLayout();
    QTRY_COMPARE(size->text(), QStringLiteral("%1x%2").arg(capture.width()).arg(capture.height()));
    QVERIFY(rate->text().endsWith("fps"));
    // Written over by someone else after every write of the view's: over 1.2 s of frames the
    // view writes again at most once per 500 ms.
    int writes = 0;
    QTimer poll;
    poll.setInterval(5);
    connect(&poll, &QTimer::timeout, this, [&] {
        if (size->text() != QLatin1String("-")) {
            ++writes;
            size->setText(QStringLiteral("-"));
        }
    });
    size->setText(QStringLiteral("-"));
    poll.start();
    QTest::qWait(1200);
    poll.stop();
    QVERIFY2(writes >= 1 && writes <= 3, qPrintable(QString::number(writes)));
}

void TestToolbar::fullScreenInAndOut()
{
    QWidget *page = m_view->parentWidget();
    QVERIFY(page);
    const QRect geometry = m_view->geometry();
    showToolbar();
    button(QStringLiteral("btnFullscreen"))->click();
    QVERIFY(m_view->isViewFullScreen());
    QCOMPARE(m_view->parentWidget(), nullptr);
    QTRY_COMPARE(m_view->geometry(), m_view->screen()->geometry());
    QVERIFY(waitForFrames(3));

    QSignalSpy started(m_view, &TavroVideo::cameraStarted);
    const int boxEvents = int(m_console.box().events().size());
    button(QStringLiteral("btnFullscreen"))->click();
    QVERIFY(!m_view->isViewFullScreen());
    QCOMPARE(m_view->parentWidget(), page);
    QCOMPARE(m_view->geometry(), geometry);
    QVERIFY(m_view->isVisible());
    // The capture is opened anew, and the box's link with it.
    QVERIFY(started.wait(20000));
    QVERIFY(waitForFrames(3));
    QTRY_VERIFY_WITH_TIMEOUT(!eventAfter(boxEvents, "hello").isEmpty(), 10000);
}

int main(int argc, char **argv)
{
    // The tool switch's place is kept in the user's settings: a folder of this test's own.
    qputenv("XDG_CONFIG_HOME", configDir().path().toLocal8Bit());
    QApplication app(argc, argv);
    TestToolbar test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_toolbar.moc"
