// The keyboard tap on X11: while the console holds it, no other client (the window manager's
// shortcut handling included) can take the keyboard; released, the keyboard is free again. The
// tap's state follows the server, not what it last asked for.

#include <QApplication>
#include <QTest>
#include <QWidget>
#include <QWindow>
#include <QtGui/qguiapplication_platform.h>
#include <xcb/xcb.h>

#include "platform/keyboardtap.h"
#include "tests/support/otherxclient.h"

namespace {

// What another client gets when it tries to grab the keyboard now.
int otherClientGrabStatus()
{
    OtherXClient other;
    return other.isConnected() ? other.probeKeyboard() : -1;
}

enum class Obstacle { None, OtherClientHoldsKeyboard, KeyboardFrozen, WindowUnmapped };

} // namespace

Q_DECLARE_METATYPE(Obstacle)
Q_DECLARE_METATYPE(KeyboardGrabStatus)

class TestKeyboardGrab : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void grabHoldsTheKeyboardUntilReleased();
    void grabFailsWithTheServersReason_data();
    void grabFailsWithTheServersReason();
    void grabEndedByTheServerIsSeen();
    void grabReplacedOnTheSameConnectionIsSeen();
    void trustIsGranted();
};

void TestKeyboardGrab::initTestCase()
{
    if (QGuiApplication::platformName() != QLatin1String("xcb"))
        QSKIP("needs an X11 display");
}

void TestKeyboardGrab::grabHoldsTheKeyboardUntilReleased()
{
    QWidget window;
    window.resize(320, 240);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QCOMPARE(otherClientGrabStatus(), int(XCB_GRAB_STATUS_SUCCESS));

    QString error;
    std::unique_ptr<KeyboardTap> tap = createKeyboardTap(window.windowHandle(), {}, &error);
    QVERIFY2(tap, qPrintable(error));
    QVERIFY(!tap->isEnabled()); // made without the keyboard
    QCOMPARE(tap->setEnabled(true), KeyboardGrabStatus::Success);
    QVERIFY(tap->isEnabled());
    QCOMPARE(otherClientGrabStatus(), int(XCB_GRAB_STATUS_ALREADY_GRABBED));
    // Taking it again while holding it changes nothing.
    QCOMPARE(tap->setEnabled(true), KeyboardGrabStatus::Success);
    QCOMPARE(otherClientGrabStatus(), int(XCB_GRAB_STATUS_ALREADY_GRABBED));

    // Paused while minimised, then taken again.
    tap->setEnabled(false);
    QVERIFY(!tap->isEnabled());
    QCOMPARE(otherClientGrabStatus(), int(XCB_GRAB_STATUS_SUCCESS));
    QCOMPARE(tap->setEnabled(true), KeyboardGrabStatus::Success);
    QVERIFY(tap->isEnabled());
    QCOMPARE(otherClientGrabStatus(), int(XCB_GRAB_STATUS_ALREADY_GRABBED));

    tap.reset();
    QCOMPARE(otherClientGrabStatus(), int(XCB_GRAB_STATUS_SUCCESS));
}

void TestKeyboardGrab::grabFailsWithTheServersReason_data()
{
    QTest::addColumn<Obstacle>("obstacle");
    QTest::addColumn<KeyboardGrabStatus>("status");
    QTest::newRow("another client holds the keyboard")
        << Obstacle::OtherClientHoldsKeyboard << KeyboardGrabStatus::AlreadyGrabbed;
    QTest::newRow("another client froze it")
        << Obstacle::KeyboardFrozen << KeyboardGrabStatus::Frozen;
    QTest::newRow("the window is unmapped")
        << Obstacle::WindowUnmapped << KeyboardGrabStatus::NotViewable;
}

void TestKeyboardGrab::grabFailsWithTheServersReason()
{
    QFETCH(Obstacle, obstacle);
    QFETCH(KeyboardGrabStatus, status);

    QWidget window;
    window.resize(320, 240);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    std::unique_ptr<KeyboardTap> tap = createKeyboardTap(window.windowHandle(), {}, nullptr);
    QVERIFY(tap);
    {
        OtherXClient other;
        switch (obstacle) {
        case Obstacle::OtherClientHoldsKeyboard:
            QCOMPARE(other.grabKeyboard(), int(XCB_GRAB_STATUS_SUCCESS));
            break;
        case Obstacle::KeyboardFrozen:
            QCOMPARE(other.grabPointerFreezingKeyboard(), int(XCB_GRAB_STATUS_SUCCESS));
            break;
        case Obstacle::WindowUnmapped:
            other.unmap(xcb_window_t(window.winId()));
            break;
        case Obstacle::None:
            break;
        }
        QCOMPARE(tap->setEnabled(true), status);
        QVERIFY(!tap->isEnabled());
    }
    if (obstacle != Obstacle::WindowUnmapped) {
        // The other client has gone: the same tap takes it now.
        QCOMPARE(tap->setEnabled(true), KeyboardGrabStatus::Success);
        QVERIFY(tap->isEnabled());
    }
}

// The server drops the grab of a window that is unmapped; the tap hears of it and says so.
void TestKeyboardGrab::grabEndedByTheServerIsSeen()
{
    QWidget window;
    window.resize(320, 240);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    std::unique_ptr<KeyboardTap> tap = createKeyboardTap(window.windowHandle(), {}, nullptr);
    QVERIFY(tap);
    int changes = 0;
    tap->setChangeHandler([&changes] { ++changes; });
    QCOMPARE(tap->setEnabled(true), KeyboardGrabStatus::Success);

    OtherXClient other;
    other.unmap(xcb_window_t(window.winId()));
    QTRY_VERIFY(!tap->isEnabled());
    QVERIFY(changes > 0);
    QCOMPARE(otherClientGrabStatus(), int(XCB_GRAB_STATUS_SUCCESS));
}

// A popup's grab on the same connection replaces the tap's: the tap hears of it, and letting
// go after yielding leaves the popup's grab alone.
void TestKeyboardGrab::grabReplacedOnTheSameConnectionIsSeen()
{
    QWidget window;
    window.resize(320, 240);
    window.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window));
    QWidget popup;
    popup.resize(100, 100);
    popup.show();
    QVERIFY(QTest::qWaitForWindowExposed(&popup));

    std::unique_ptr<KeyboardTap> tap = createKeyboardTap(window.windowHandle(), {}, nullptr);
    QVERIFY(tap);
    QCOMPARE(tap->setEnabled(true), KeyboardGrabStatus::Success);
    // What Qt does for a popup: a grab on its window, on the application's connection.
    xcb_connection_t *connection =
        qGuiApp->nativeInterface<QNativeInterface::QX11Application>()->connection();
    xcb_grab_keyboard_reply_t *reply = xcb_grab_keyboard_reply(
        connection,
        xcb_grab_keyboard(connection, 0, xcb_window_t(popup.winId()), XCB_CURRENT_TIME,
                          XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
        nullptr);
    QVERIFY(reply && reply->status == XCB_GRAB_STATUS_SUCCESS);
    free(reply);
    QTRY_VERIFY(!tap->isEnabled());

    tap->yieldToPopup();
    tap.reset();
    QCOMPARE(otherClientGrabStatus(), int(XCB_GRAB_STATUS_ALREADY_GRABBED));
    xcb_ungrab_keyboard(connection, XCB_CURRENT_TIME);
    free(xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
    QCOMPARE(otherClientGrabStatus(), int(XCB_GRAB_STATUS_SUCCESS));
}

void TestKeyboardGrab::trustIsGranted()
{
    QVERIFY(isAccessibilityTrusted());
    QVERIFY(requestAccessibilityTrust());
}

int main(int argc, char **argv)
{
    // The xcb platform aborts without an X display: run offscreen and skip instead.
    const QByteArray platform = qgetenv("QT_QPA_PLATFORM");
    if ((platform.isEmpty() || platform == "xcb") && qEnvironmentVariableIsEmpty("DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    TestKeyboardGrab test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_keyboardgrab.moc"
