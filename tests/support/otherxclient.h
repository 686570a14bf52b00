#pragma once

// A second X client for the keyboard-grab tests, acting on the test's display (DISPLAY).

#include <cstdlib>
#include <xcb/xcb.h>

// Another client on the same display: a window manager, a screen locker, a second program.
class OtherXClient
{
public:
    OtherXClient() : m_connection(xcb_connect(nullptr, nullptr)) {}
    ~OtherXClient()
    {
        ungrabKeyboard();
        ungrabPointer();
        xcb_disconnect(m_connection);
    }
    OtherXClient(const OtherXClient &) = delete;
    OtherXClient &operator=(const OtherXClient &) = delete;

    bool isConnected() const { return !xcb_connection_has_error(m_connection); }

    // Takes the keyboard and keeps it; the grab status.
    int grabKeyboard()
    {
        xcb_grab_keyboard_reply_t *reply =
            xcb_grab_keyboard_reply(m_connection,
                                    xcb_grab_keyboard(m_connection, 0, root(), XCB_CURRENT_TIME,
                                                      XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
                                    nullptr);
        const int status = reply ? reply->status : -1;
        free(reply);
        return status;
    }
    void ungrabKeyboard()
    {
        xcb_ungrab_keyboard(m_connection, XCB_CURRENT_TIME);
        sync();
    }
    // What a grab attempt gets now; a grab that succeeds is let go at once.
    int probeKeyboard()
    {
        const int status = grabKeyboard();
        if (status == XCB_GRAB_STATUS_SUCCESS)
            ungrabKeyboard();
        return status;
    }
    // An active pointer grab in synchronous keyboard mode freezes the keyboard for every other
    // client until it ends.
    int grabPointerFreezingKeyboard()
    {
        xcb_grab_pointer_reply_t *reply = xcb_grab_pointer_reply(
            m_connection,
            xcb_grab_pointer(m_connection, 0, root(), 0, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_SYNC,
                             XCB_NONE, XCB_NONE, XCB_CURRENT_TIME),
            nullptr);
        const int status = reply ? reply->status : -1;
        free(reply);
        return status;
    }
    void ungrabPointer()
    {
        xcb_ungrab_pointer(m_connection, XCB_CURRENT_TIME);
        sync();
    }
    // As a window manager hiding a window behind the application's back.
    void unmap(xcb_window_t window)
    {
        xcb_unmap_window(m_connection, window);
        sync();
    }
    // As a window manager showing a window again and giving it the focus.
    void mapAndFocus(xcb_window_t window)
    {
        xcb_map_window(m_connection, window);
        xcb_set_input_focus(m_connection, XCB_INPUT_FOCUS_PARENT, window, XCB_CURRENT_TIME);
        sync();
    }
    void focusRoot()
    {
        xcb_set_input_focus(m_connection, XCB_INPUT_FOCUS_POINTER_ROOT, root(), XCB_CURRENT_TIME);
        sync();
    }

private:
    xcb_window_t root() const
    {
        return xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
    }
    // Returns once the server has carried out every request sent so far.
    void sync()
    {
        free(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    }

    xcb_connection_t *m_connection;
};
