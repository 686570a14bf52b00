#include "console/input/hookrules.h"

#include <Qt>

HookDecision decideHookEvent(HookEventType type, int keyCode, quint64 flags, bool foreground)
{
    HookDecision decision;
    // Modifier changes and anything that is not a key reach the toolkit as they are.
    if (type != HookEventType::KeyDown && type != HookEventType::KeyUp)
        return decision;
    decision.action = type == HookEventType::KeyDown ? 0 : 1;

    const bool fn = flags & kHookFlagFn;
    const bool control = flags & kHookFlagControl;
    const bool option = flags & kHookFlagOption;
    const bool command = flags & kHookFlagCommand;
    auto decide = [&decision](int rule, bool swallow, int key) {
        decision.rule = rule;
        decision.swallow = swallow;
        decision.forwardKey = key;
        return decision;
    };

    if (fn && keyCode == kHookKeySpace)
        return decide(1, true, Qt::Key_Space);
    if (fn && keyCode == kHookKeyEscape)
        return decide(2, true, kHookFnEscapeKey);
    if (control && keyCode == kHookKeySpace)
        return decide(3, true, Qt::Key_Space);
    if (command && keyCode == kHookKeySpace)
        return decide(4, true, 0);
    if (option && keyCode == kHookKeyTab)
        return decide(5, true, 0);
    if (keyCode == kHookKeyTab && !control && !option && !command && foreground)
        return decide(6, true, Qt::Key_Tab);
    return decide(7, false, 0);
}

KeyboardGrabStatus keyboardGrabStatusFromX11(int status)
{
    switch (status) {
    case 0:
        return KeyboardGrabStatus::Success;
    case 1:
        return KeyboardGrabStatus::AlreadyGrabbed;
    case 2:
        return KeyboardGrabStatus::InvalidTime;
    case 3:
        return KeyboardGrabStatus::NotViewable;
    case 4:
        return KeyboardGrabStatus::Frozen;
    default:
        return KeyboardGrabStatus::Unavailable;
    }
}

const char *keyboardGrabStatusName(KeyboardGrabStatus status)
{
    switch (status) {
    case KeyboardGrabStatus::Success:
        return "Success";
    case KeyboardGrabStatus::AlreadyGrabbed:
        return "AlreadyGrabbed";
    case KeyboardGrabStatus::InvalidTime:
        return "GrabInvalidTime";
    case KeyboardGrabStatus::NotViewable:
        return "GrabNotViewable";
    case KeyboardGrabStatus::Frozen:
        return "GrabFrozen";
    case KeyboardGrabStatus::Unavailable:
        break;
    }
    return "Unavailable";
}

bool keyboardHeldAfterFocusEvent(bool held, bool focusIn, FocusEventMode mode)
{
    switch (mode) {
    case FocusEventMode::Grab:
        return focusIn;
    case FocusEventMode::Ungrab:
        return false;
    case FocusEventMode::Normal:
    case FocusEventMode::WhileGrabbed:
        break;
    }
    return held;
}

bool isGrabReleaseChord(int key, Qt::KeyboardModifiers modifiers)
{
    const Qt::KeyboardModifiers held =
        modifiers & (Qt::ShiftModifier | Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier);
    return key == Qt::Key_Escape &&
           held == (Qt::ShiftModifier | Qt::ControlModifier | Qt::AltModifier);
}
