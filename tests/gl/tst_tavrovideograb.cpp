// The console's keyboard grab on a real X server (Xvfb in CI), checked the way the desktop sees
// it: another X client's grab attempt fails while the console holds the keyboard. The console
// runs as the operator uses it, with the virtual camera and a simulated box.

#include <QApplication>
#include <QFocusEvent>
#include <QLabel>
#include <QMainWindow>
#include <QMenu>
#include <QTest>
#include <QTimer>
#include <QWidget>
#include <QtGui/qguiapplication_platform.h>
#include <xcb/xcb.h>

#include "tests/support/consolewithbox.h"
#include "tests/support/otherxclient.h"

namespace {

// Log lines written while it lives; they still reach the previous handler.
class LogRecorder
{
public:
    LogRecorder()
    {
        s_lines.clear();
        s_previous = qInstallMessageHandler(&LogRecorder::handle);
    }
    ~LogRecorder() { qInstallMessageHandler(s_previous); }
    bool contains(const QString &text) const
    {
        for (const QString &line : s_lines) {
            if (line.contains(text))
                return true;
        }
        return false;
    }
    QString text() const { return s_lines.join('\n'); }

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        s_lines << message;
        s_previous(type, context, message);
    }
    static inline QStringList s_lines;
    static inline QtMessageHandler s_previous = nullptr;
};

// Xvfb runs no window manager to activate a window it shows: does that for main windows.
class ActivateShownMainWindows : public QObject
{
public:
    ActivateShownMainWindows() { qApp->installEventFilter(this); }
    ~ActivateShownMainWindows() override { qApp->removeEventFilter(this); }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Show && qobject_cast<QMainWindow *>(watched))
            static_cast<QWidget *>(watched)->activateWindow();
        return false;
    }
};

enum class Obstacle { OtherClientHoldsKeyboard, WindowUnmapped, KeyboardFrozen };

// The view restores the hook this long after the application becomes active again.
constexpr int kHookRestoreDelayMs = 500;
// Long enough for the 5 s hook monitor to come round twice.
constexpr int kRetakeTimeoutMs = 15000;

} // namespace

Q_DECLARE_METATYPE(Obstacle)

class TestTavroVideoGrab : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();

    void focusInRacingAScheduledStopKeepsTheGrab();
    void grabTakenAwayIsSeenAndTakenAgain();
    void popupKeepsItsGrabAndTheConsoleTakesItBack();
    void grabFailureIsLoggedByName_data();
    void grabFailureIsLoggedByName();
    void minimisedWindowHoldsNoGrab();
    void releaseChordLetsTheKeyboardGo();

private:
    // What another client's grab attempt gets once the server has carried out every request
    // the console sent.
    int probeKeyboard()
    {
        syncConsole();
        return m_other.probeKeyboard();
    }
    static void syncConsole()
    {
        xcb_connection_t *console =
            qGuiApp->nativeInterface<QNativeInterface::QX11Application>()->connection();
        free(xcb_get_input_focus_reply(console, xcb_get_input_focus(console), nullptr));
    }
    bool consoleHoldsKeyboard() { return probeKeyboard() == XCB_GRAB_STATUS_ALREADY_GRABBED; }
    // What the console itself shows: the status bar's sign that it holds the keyboard. Waiting
    // for it, rather than probing, leaves the console to notice changes by itself (a probe that
    // grabs and lets go sends the console focus events of its own).
    bool indicatorShown() const
    {
        const auto *indicator =
            m_console.window()->findChild<QLabel *>(QStringLiteral("keyboardGrabIndicator"));
        return indicator && !indicator->isHidden();
    }
    xcb_window_t consoleWindow() const { return xcb_window_t(m_console.window()->winId()); }
    void sendFocus(QEvent::Type type)
    {
        QFocusEvent event(type, Qt::ActiveWindowFocusReason);
        QApplication::sendEvent(m_view, &event);
    }
    // Returns once everything posted to the event loop before the call has run.
    static bool passEventLoop()
    {
        bool passed = false;
        QTimer::singleShot(0, qApp, [&passed] { passed = true; });
        return QTest::qWaitFor([&passed] { return passed; });
    }

    ConsoleWithBox m_console;
    TavroVideo *m_view = nullptr;
    OtherXClient m_other;
};

void TestTavroVideoGrab::initTestCase()
{
    if (QGuiApplication::platformName() != QLatin1String("xcb"))
        QSKIP("needs an X11 display");
    QVERIFY(m_other.isConnected());
    ActivateShownMainWindows activator;
    QVERIFY(m_console.start());
    m_view = m_console.view();
}

void TestTavroVideoGrab::cleanupTestCase()
{
    m_console.stop();
}

// Every case starts with the console in front, holding the keyboard.
void TestTavroVideoGrab::init()
{
    QVERIFY(m_view->isKeyboardHookActive());
    QVERIFY(indicatorShown());
    QVERIFY(consoleHoldsKeyboard());
}

void TestTavroVideoGrab::focusInRacingAScheduledStopKeepsTheGrab()
{
    m_view->stopKeyboardHookForLayoutSwitch(); // the tap goes on the next pass
    sendFocus(QEvent::FocusIn);                // and the view is back in front before it
    QVERIFY(passEventLoop());
    QVERIFY(m_view->isKeyboardHookActive());
    QVERIFY(consoleHoldsKeyboard());
}

void TestTavroVideoGrab::grabTakenAwayIsSeenAndTakenAgain()
{
    // Unmapping the window drops the console's grab in the server; another client takes the
    // keyboard meanwhile and lets it go once the window is back in front.
    m_other.unmap(consoleWindow());
    QCOMPARE(m_other.grabKeyboard(), int(XCB_GRAB_STATUS_SUCCESS));
    LogRecorder log;
    m_other.mapAndFocus(consoleWindow());
    m_other.ungrabKeyboard();

    // Without the window losing the focus, the server's events alone tell the console.
    QTRY_VERIFY_WITH_TIMEOUT(log.contains(QStringLiteral("[底层键盘钩子] 已重新抓取键盘")),
                             kRetakeTimeoutMs);
    QVERIFY(consoleHoldsKeyboard());
    QVERIFY(indicatorShown());
    QVERIFY(m_view->isKeyboardHookActive());
}

void TestTavroVideoGrab::popupKeepsItsGrabAndTheConsoleTakesItBack()
{
    // A popup of the console's own process grabs on the same connection, and its ungrab lets go
    // of every grab of the process.
    QMenu menu(m_console.window());
    menu.addAction(QStringLiteral("一"));
    menu.popup(m_console.window()->mapToGlobal(QPoint(40, 40)));
    QVERIFY(QTest::qWaitForWindowExposed(&menu));
    QVERIFY(passEventLoop());
    QVERIFY(consoleHoldsKeyboard()); // the popup's grab, left alone while it is open
    menu.close();

    QTRY_VERIFY_WITH_TIMEOUT(indicatorShown(), kRetakeTimeoutMs);
    QVERIFY(consoleHoldsKeyboard());
}

void TestTavroVideoGrab::grabFailureIsLoggedByName_data()
{
    QTest::addColumn<Obstacle>("obstacle");
    QTest::addColumn<QString>("reason");
    QTest::newRow("another client holds the keyboard")
        << Obstacle::OtherClientHoldsKeyboard << QStringLiteral("AlreadyGrabbed");
    QTest::newRow("the window was unmapped behind the console's back")
        << Obstacle::WindowUnmapped << QStringLiteral("GrabNotViewable");
    QTest::newRow("another client froze the keyboard")
        << Obstacle::KeyboardFrozen << QStringLiteral("GrabFrozen");
}

void TestTavroVideoGrab::grabFailureIsLoggedByName()
{
    QFETCH(Obstacle, obstacle);
    QFETCH(QString, reason);

    LogRecorder log;
    // The view leaves and comes back while the obstacle is in place; nothing runs the event
    // loop in between, so the console still counts its window as shown.
    sendFocus(QEvent::FocusOut);
    syncConsole();
    switch (obstacle) {
    case Obstacle::OtherClientHoldsKeyboard:
        QCOMPARE(m_other.grabKeyboard(), int(XCB_GRAB_STATUS_SUCCESS));
        break;
    case Obstacle::WindowUnmapped:
        m_other.unmap(consoleWindow());
        break;
    case Obstacle::KeyboardFrozen:
        QCOMPARE(m_other.grabPointerFreezingKeyboard(), int(XCB_GRAB_STATUS_SUCCESS));
        break;
    }
    sendFocus(QEvent::FocusIn);
    QVERIFY2(log.contains(reason), qPrintable(log.text()));
    QVERIFY(!indicatorShown());

    switch (obstacle) {
    case Obstacle::OtherClientHoldsKeyboard:
        m_other.ungrabKeyboard();
        break;
    case Obstacle::WindowUnmapped:
        m_other.mapAndFocus(consoleWindow());
        break;
    case Obstacle::KeyboardFrozen:
        m_other.ungrabPointer();
        break;
    }
    // The failed grab is tried again without the view leaving and coming back.
    QTRY_VERIFY_WITH_TIMEOUT(indicatorShown(), kRetakeTimeoutMs);
    QVERIFY(consoleHoldsKeyboard());
    QVERIFY(m_view->isKeyboardHookActive());
}

void TestTavroVideoGrab::minimisedWindowHoldsNoGrab()
{
    // The application loses the focus to another client and gets it back; the window is
    // minimised the moment the application is active again, before its focus and the delayed
    // hook restore arrive.
    m_other.focusRoot();
    QTRY_COMPARE(QGuiApplication::applicationState(), Qt::ApplicationInactive);
    // Runs after the view's own handler, which has set off the delayed restore; a timer of the
    // same delay started after it fires after it.
    bool restoreDue = false;
    QMetaObject::Connection minimiser = connect(
        qApp, &QGuiApplication::applicationStateChanged, this,
        [this, &restoreDue](Qt::ApplicationState state) {
            if (state != Qt::ApplicationActive)
                return;
            m_console.window()->setWindowState(Qt::WindowMinimized);
            QTimer::singleShot(kHookRestoreDelayMs, this, [&restoreDue] { restoreDue = true; });
        });
    m_other.mapAndFocus(consoleWindow());
    QTRY_VERIFY(restoreDue);
    disconnect(minimiser);
    QVERIFY(m_console.window()->isMinimized());
    QVERIFY(passEventLoop());
    QCOMPARE(probeKeyboard(), int(XCB_GRAB_STATUS_SUCCESS));
    // The probe's grab and ungrab reach the console as focus events: still not taken.
    QVERIFY(passEventLoop());
    QCOMPARE(probeKeyboard(), int(XCB_GRAB_STATUS_SUCCESS));
    QVERIFY(!indicatorShown());

    // Restored: taken again.
    m_console.window()->setWindowState(Qt::WindowNoState);
    QTRY_VERIFY_WITH_TIMEOUT(indicatorShown(), kRetakeTimeoutMs);
    QVERIFY(consoleHoldsKeyboard());
}

void TestTavroVideoGrab::releaseChordLetsTheKeyboardGo()
{
    const int from = int(m_console.box().events().size());
    const Qt::KeyboardModifiers chord = Qt::ControlModifier | Qt::AltModifier | Qt::ShiftModifier;
    QTest::keyPress(m_view, Qt::Key_Control, Qt::ControlModifier);
    QTest::keyPress(m_view, Qt::Key_Alt, Qt::ControlModifier | Qt::AltModifier);
    QTest::keyPress(m_view, Qt::Key_Shift, chord);
    QTest::keyClick(m_view, Qt::Key_Escape, chord);
    QTest::keyRelease(m_view, Qt::Key_Shift, Qt::ControlModifier | Qt::AltModifier);
    QTest::keyRelease(m_view, Qt::Key_Alt, Qt::ControlModifier);
    QTest::keyRelease(m_view, Qt::Key_Control, Qt::NoModifier);
    QTest::keyClick(m_view, Qt::Key_Z); // marks the end of what the chord sent
    QVERIFY(passEventLoop());
    QCOMPARE(probeKeyboard(), int(XCB_GRAB_STATUS_SUCCESS));
    QVERIFY(!indicatorShown());

    // The modifiers reached the target, the Escape did not.
    QStringList keys;
    for (;;) {
        const QJsonObject event = m_console.box().next(QStringLiteral("key_up"));
        QVERIFY(!event.isEmpty());
        if (event.value("key").toString() == QLatin1String("Z"))
            break;
    }
    const QList<QJsonObject> events = m_console.box().events();
    for (int i = from; i < events.size(); ++i) {
        if (events.at(i).value("event").toString() == QLatin1String("key_down"))
            keys << events.at(i).value("key").toString();
    }
    QCOMPARE(keys, QStringList({"LeftControl", "LeftAlt", "LeftShift", "Z"}));

    // Focus moving within the window does not take it back.
    sendFocus(QEvent::FocusOut);
    sendFocus(QEvent::FocusIn);
    QVERIFY(passEventLoop());
    QCOMPARE(probeKeyboard(), int(XCB_GRAB_STATUS_SUCCESS));

    // Another window in front, then the console again: held again.
    QWidget other;
    other.resize(200, 100);
    other.show();
    other.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&other));
    m_console.window()->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_console.window()));
    m_view->setFocus();
    QTRY_VERIFY_WITH_TIMEOUT(indicatorShown(), kRetakeTimeoutMs);
    QVERIFY(consoleHoldsKeyboard());
}

int main(int argc, char **argv)
{
    // Without an X display xcb would end the process: run offscreen and skip instead.
    const QByteArray platform = qgetenv("QT_QPA_PLATFORM");
    if ((platform.isEmpty() || platform == "xcb") && qEnvironmentVariableIsEmpty("DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("TAVROKVM_VCAM_DEVICES", "box:TKGRAB01");
    QApplication app(argc, argv);
    TestTavroVideoGrab test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_tavrovideograb.moc"
