// The keyboard tap on X11: while the console holds it, no other client (the window manager's
// shortcut handling included) can take the keyboard; released, the keyboard is free again.

#include <QApplication>
#include <QTest>
#include <QWidget>
#include <QWindow>
#include <xcb/xcb.h>

#include "platform/keyboardtap.h"

namespace {

// What another client gets when it tries to grab the keyboard now.
int otherClientGrabStatus()
{
    xcb_connection_t *other = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(other)) {
        xcb_disconnect(other);
        return -1;
    }
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(other)).data->root;
    xcb_grab_keyboard_reply_t *reply =
        xcb_grab_keyboard_reply(other,
                                xcb_grab_keyboard(other, 0, root, XCB_CURRENT_TIME,
                                                  XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
                                nullptr);
    const int status = reply ? reply->status : -1;
    free(reply);
    xcb_ungrab_keyboard(other, XCB_CURRENT_TIME);
    xcb_disconnect(other);
    return status;
}

} // namespace

class TestKeyboardGrab : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void grabHoldsTheKeyboardUntilReleased();
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
    QVERIFY(tap->isEnabled());
    QCOMPARE(otherClientGrabStatus(), int(XCB_GRAB_STATUS_ALREADY_GRABBED));

    // Paused while minimised, then taken again.
    tap->setEnabled(false);
    QVERIFY(!tap->isEnabled());
    QCOMPARE(otherClientGrabStatus(), int(XCB_GRAB_STATUS_SUCCESS));
    tap->setEnabled(true);
    QVERIFY(tap->isEnabled());
    QCOMPARE(otherClientGrabStatus(), int(XCB_GRAB_STATUS_ALREADY_GRABBED));

    tap.reset();
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
