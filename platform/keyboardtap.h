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
// ordinary key event and the handler is never called.
class KeyboardTap
{
public:
    // Returns true to swallow the event.
    using Handler = std::function<bool(HookEventType type, int keyCode, quint64 flags)>;

    virtual ~KeyboardTap() = default;
    virtual bool isEnabled() const = 0;
    // Re-enables a tap the system switched off, or pauses one; the tap stays in place.
    virtual void setEnabled(bool enabled) = 0;
};

// Null when the tap cannot be made; `error` then says why.
std::unique_ptr<KeyboardTap> createKeyboardTap(QWindow *window, KeyboardTap::Handler handler,
                                               QString *error);

// Whether the process may watch the keyboard (macOS accessibility trust; always on Linux).
bool isAccessibilityTrusted();
// Asks the system to show its own trust prompt where it has one; returns the trust state.
bool requestAccessibilityTrust();
