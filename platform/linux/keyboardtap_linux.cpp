#include <QAbstractNativeEventFilter>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QWindow>
#include <QtGui/qguiapplication_platform.h>
#include <xcb/xcb.h>

#include "platform/keyboardtap.h"

namespace {

class X11KeyboardGrab : public KeyboardTap, public QAbstractNativeEventFilter
{
public:
    X11KeyboardGrab(xcb_connection_t *connection, xcb_window_t window)
        : m_connection(connection), m_window(window)
    {
        QCoreApplication::instance()->installNativeEventFilter(this);
    }

    ~X11KeyboardGrab() override
    {
        // After the application object the connection is gone, and the grab with it.
        if (!QCoreApplication::instance())
            return;
        QCoreApplication::instance()->removeNativeEventFilter(this);
        setEnabled(false);
    }

    bool isEnabled() const override { return m_held; }

    // Grabs with owner events on, so that keys keep going to the console's own windows as they
    // would without the grab, while the window manager's shortcut grabs no longer fire. Taking
    // it again while holding it is harmless: the server keeps the grab and sends no events.
    KeyboardGrabStatus setEnabled(bool enabled) override
    {
        if (enabled) {
            const xcb_grab_keyboard_cookie_t cookie =
                xcb_grab_keyboard(m_connection, 1, m_window, XCB_CURRENT_TIME, XCB_GRAB_MODE_ASYNC,
                                  XCB_GRAB_MODE_ASYNC);
            xcb_grab_keyboard_reply_t *reply =
                xcb_grab_keyboard_reply(m_connection, cookie, nullptr);
            const KeyboardGrabStatus status =
                keyboardGrabStatusFromX11(reply ? int(reply->status) : -1);
            free(reply);
            m_requestSequence = cookie.sequence;
            m_held = status == KeyboardGrabStatus::Success;
            return status;
        }
        if (m_held) {
            m_requestSequence = xcb_ungrab_keyboard(m_connection, XCB_CURRENT_TIME).sequence;
            xcb_flush(m_connection);
            m_held = false;
        }
        return KeyboardGrabStatus::Success;
    }

    bool isWindowGrab() const override { return true; }
    void yieldToPopup() override { m_held = false; }

    bool nativeEventFilter(const QByteArray &eventType, void *message, qintptr *) override
    {
        if (eventType != "xcb_generic_event_t")
            return false;
        const auto *event = static_cast<const xcb_generic_event_t *>(message);
        const uint8_t type = event->response_type & ~0x80;
        if (type == XCB_FOCUS_IN || type == XCB_FOCUS_OUT) {
            const auto *focus = reinterpret_cast<const xcb_focus_in_event_t *>(event);
            if (focus->event != m_window || isBeforeLastRequest(event))
                return false;
            const auto mode = FocusEventMode(focus->mode);
            if (mode != FocusEventMode::Grab && mode != FocusEventMode::Ungrab)
                return false;
            m_held = keyboardHeldAfterFocusEvent(m_held, type == XCB_FOCUS_IN, mode);
            notifyChange();
        } else if (type == XCB_MAP_NOTIFY) {
            if (reinterpret_cast<const xcb_map_notify_event_t *>(event)->window == m_window)
                notifyChange(); // viewable again: a grab refused as not viewable may succeed
        }
        return false; // the toolkit needs every focus event too
    }

private:
    // Events carry the sequence of the last request the server had carried out. What happened
    // before the last grab or ungrab is already in that request's outcome.
    bool isBeforeLastRequest(const xcb_generic_event_t *event) const
    {
        return qint32(event->full_sequence - m_requestSequence) < 0;
    }

    xcb_connection_t *m_connection;
    xcb_window_t m_window;
    bool m_held = false;
    quint32 m_requestSequence = 0;
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
    return std::make_unique<X11KeyboardGrab>(x11->connection(), xcb_window_t(window->winId()));
}

bool isAccessibilityTrusted()
{
    return true; // X11 lets any client grab the keyboard of its own window
}

bool requestAccessibilityTrust()
{
    return true;
}
