#pragma once

#include <QtGlobal>

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
