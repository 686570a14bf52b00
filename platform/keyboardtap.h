#pragma once

#include <QString>
#include <functional>
#include <memory>

#include "console/input/hookrules.h"

class QWindow;

// Takes the keyboard from the window system while the console is in front, so that its
// shortcuts (application switching, launcher keys) reach the target instead of the desktop.
//
// macOS: a session event tap; events it sees go to the handler, which may swallow them.
// Linux (X11): an active keyboard grab on the console's window; every key then arrives as an
// ordinary key event and the handler is never called. The server may end the grab by itself
// (the window unmapped) and the toolkit's popups replace it, so the tap follows the server's
// focus-grab events rather than remembering what it asked for.
class KeyboardTap
{
public:
    // Returns true to swallow the event.
    using Handler = std::function<bool(HookEventType type, int keyCode, quint64 flags)>;
    // Called on the GUI thread when the tap may have lost or regained the keyboard, or may now
    // take it again (X11: the window mapped again, another client let go). Read isEnabled().
    using ChangeHandler = std::function<void()>;

    virtual ~KeyboardTap() = default;
    // Whether the tap holds the keyboard now, as far as the window system has told.
    virtual bool isEnabled() const = 0;
    // Takes the keyboard (again) or lets it go; the tap stays in place. Taking returns why it
    // failed; letting go returns Success.
    virtual KeyboardGrabStatus setEnabled(bool enabled) = 0;
    // X11: the tap is an active grab of the console's window, which the operator can hand back
    // with the release chord. The toolkit's popups grab on the same connection: their grab
    // replaces the tap's, and ungrabbing while one is open would take it from the popup.
    // Elsewhere false: the system's own shortcuts stay as they are.
    virtual bool isWindowGrab() const { return false; }
    // Counts the keyboard as let go without telling the system: a popup holds it now (see
    // isWindowGrab). Nothing to do elsewhere.
    virtual void yieldToPopup() {}

    void setChangeHandler(ChangeHandler handler) { m_changeHandler = std::move(handler); }

protected:
    void notifyChange() const
    {
        if (m_changeHandler)
            m_changeHandler();
    }

private:
    ChangeHandler m_changeHandler;
};

// Null when the tap cannot be made at all (no X11 display, no window, the system refused);
// `error` then says why. On X11 the tap is made without the keyboard: call setEnabled(true).
// A macOS tap is enabled when made.
std::unique_ptr<KeyboardTap> createKeyboardTap(QWindow *window, KeyboardTap::Handler handler,
                                               QString *error);

// Whether the process may watch the keyboard (macOS accessibility trust; always on Linux).
bool isAccessibilityTrusted();
// Asks the system to show its own trust prompt where it has one; returns the trust state.
bool requestAccessibilityTrust();
