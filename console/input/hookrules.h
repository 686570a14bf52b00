#pragma once

#include <QtGlobal>
#include <qnamespace.h>

// What the system keyboard tap reports. Key codes and flag bits are the macOS virtual key codes
// and event flags the tap reads; elsewhere the window system's keys reach the console as
// ordinary key events and no event is judged here.
enum class HookEventType {
    KeyDown,
    KeyUp,
    FlagsChanged,
    DisabledByTimeout,
    DisabledByUserInput,
    Other
};

constexpr int kHookKeyTab = 48;    // 0x30
constexpr int kHookKeySpace = 49;  // 0x31
constexpr int kHookKeyEscape = 53; // 0x35

constexpr quint64 kHookFlagControl = 0x40000;
constexpr quint64 kHookFlagOption = 0x80000;
constexpr quint64 kHookFlagCommand = 0x100000;
constexpr quint64 kHookFlagFn = 0x800000;

// Key code forwarded for Fn+Escape.
constexpr int kHookFnEscapeKey = 0x7C;

struct HookDecision
{
    bool swallow = false; // keep the event from the window system
    int forwardKey = 0;   // toolkit key sent to the target, 0 for none
    int action = 0;       // 0 press (key down), 1 release (key up)
    int rule = 0;         // the table row that decided: 1..7, 0 when the event is not a key
};

// The tap's decision for one event. `foreground` is the application being active and the owning
// view counting itself in front; only plain Tab depends on it.
HookDecision decideHookEvent(HookEventType type, int keyCode, quint64 flags, bool foreground);

// How an attempt to take the keyboard ended. On X11 the values are the grab statuses of the
// protocol; Unavailable is a tap the system would not give at all.
enum class KeyboardGrabStatus {
    Success = 0,
    AlreadyGrabbed = 1, // another client holds the keyboard
    InvalidTime = 2,    // the grab's time is before the last grab or after the server's now
    NotViewable = 3,    // the window is not mapped (hidden, minimised, on its way out)
    Frozen = 4,         // another client's grab froze the keyboard
    Unavailable = 5
};

// The X11 reply status as a grab status; anything unknown is Unavailable.
KeyboardGrabStatus keyboardGrabStatusFromX11(int status);
// The status by its protocol name ("AlreadyGrabbed", "GrabNotViewable", ...), as logged.
const char *keyboardGrabStatusName(KeyboardGrabStatus status);

// X11 focus events carry the mode of the focus change; Grab and Ungrab are the ones a keyboard
// grab causes. Values as in the protocol.
enum class FocusEventMode { Normal = 0, Grab = 1, Ungrab = 2, WhileGrabbed = 3 };

// Whether the console still holds its keyboard grab after a FocusIn (`focusIn`) or FocusOut on
// its own window. A grab that becomes active moves the focus out of the old window and into the
// grab window with mode Grab; the end of a grab moves it back with mode Ungrab. Taking the grab
// makes the window's FocusIn/Grab the last of those; any other client's grab, a popup's grab on
// the same connection, an ungrab and the server dropping the grab of an unmapped window end with
// a different one. Focus moves in the other modes leave the grab as it was.
bool keyboardHeldAfterFocusEvent(bool held, bool focusIn, FocusEventMode mode);

// The chord that lets the keyboard go back to the desktop while the console is in front:
// Ctrl+Alt+Shift+Escape (the logo key not held). Keypad and group-switch states do not matter.
bool isGrabReleaseChord(int key, Qt::KeyboardModifiers modifiers);
