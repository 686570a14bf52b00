#include <QGuiApplication>
#include <QWindow>
#include <QtGui/qguiapplication_platform.h>
#include <xcb/xcb.h>

#include "platform/keyboardtap.h"

namespace {

class X11KeyboardGrab : public KeyboardTap
{
public:
    X11KeyboardGrab(xcb_connection_t *connection, xcb_window_t window)
        : m_connection(connection), m_window(window)
    {}
    ~X11KeyboardGrab() override { setEnabled(false); }

    // Grabs with owner events on, so that keys keep going to the console's own windows as they
    // would without the grab, while the window manager's shortcut grabs no longer fire.
    bool grab()
    {
        const xcb_grab_keyboard_cookie_t cookie = xcb_grab_keyboard(
            m_connection, 1, m_window, XCB_CURRENT_TIME, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
        xcb_grab_keyboard_reply_t *reply = xcb_grab_keyboard_reply(m_connection, cookie, nullptr);
        m_grabbed = reply && reply->status == XCB_GRAB_STATUS_SUCCESS;
        free(reply);
        return m_grabbed;
    }

    bool isEnabled() const override { return m_grabbed; }

    void setEnabled(bool enabled) override
    {
        if (enabled) {
            if (!m_grabbed)
                grab();
            return;
        }
        if (m_grabbed) {
            xcb_ungrab_keyboard(m_connection, XCB_CURRENT_TIME);
            xcb_flush(m_connection);
            m_grabbed = false;
        }
    }

private:
    xcb_connection_t *m_connection;
    xcb_window_t m_window;
    bool m_grabbed = false;
};

} // namespace

std::unique_ptr<KeyboardTap> createKeyboardTap(QWindow *window, KeyboardTap::Handler,
                                               QString *error)
{
    auto *x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!x11 || !x11->connection()) {
        if (error)
            *error =
                QStringLiteral("no X11 display (platform %1)").arg(QGuiApplication::platformName());
        return nullptr;
    }
    if (!window) {
        if (error)
            *error = QStringLiteral("no window");
        return nullptr;
    }
    auto grab = std::make_unique<X11KeyboardGrab>(x11->connection(), xcb_window_t(window->winId()));
    if (!grab->grab()) {
        if (error)
            *error = QStringLiteral("the keyboard is grabbed by another client");
        return nullptr;
    }
    return grab;
}

bool isAccessibilityTrusted()
{
    return true; // X11 lets any client grab the keyboard of its own window
}

bool requestAccessibilityTrust()
{
    return true;
}
