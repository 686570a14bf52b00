#include "platform/keyboardlayout.h"

#include "protocol/ch9329.h"

namespace {

// X11 reports the keypad with Num Lock off as navigation keys; the keypad key itself goes to the
// target, whose own Num Lock decides what it does.
int keypadKeyForNavigation(int key)
{
    switch (key) {
    case Qt::Key_Insert:
        return kCh9329Keypad0;
    case Qt::Key_End:
        return kCh9329Keypad1;
    case Qt::Key_Down:
        return kCh9329Keypad1 + 1;
    case Qt::Key_PageDown:
        return kCh9329Keypad1 + 2;
    case Qt::Key_Left:
        return kCh9329Keypad1 + 3;
    case Qt::Key_Clear: // keypad 5
        return kCh9329Keypad1 + 4;
    case Qt::Key_Right:
        return kCh9329Keypad1 + 5;
    case Qt::Key_Home:
        return kCh9329Keypad1 + 6;
    case Qt::Key_Up:
        return kCh9329Keypad1 + 7;
    case Qt::Key_PageUp:
        return kCh9329Keypad1 + 8;
    case Qt::Key_Delete:
        return kCh9329KeypadPeriod;
    default:
        return 0;
    }
}

} // namespace

// Here the toolkit reports Ctrl as Key_Control and the logo keys as Key_Meta or Key_Super_L/R,
// turns Shift+Tab into Key_Backtab, and sets the keypad modifier only for keypad keys.
int encoderKeyForPhysicalKey(int key, Qt::KeyboardModifiers modifiers)
{
    if (modifiers & Qt::KeypadModifier) {
        if (const int keypad = ch9329_keypad_key(key))
            return keypad;
        if (const int keypad = keypadKeyForNavigation(key))
            return keypad;
    }
    switch (key) {
    case Qt::Key_Control:
        return Qt::Key_Meta;
    case Qt::Key_Meta:
    case Qt::Key_Super_L:
    case Qt::Key_Super_R:
        return Qt::Key_Control;
    case Qt::Key_Backtab: // Shift+Tab: the Shift press went to the target on its own
        return Qt::Key_Tab;
    case Qt::Key_Print:
        return kCh9329PrintScreen;
    default:
        return key;
    }
}

// The X11 key code: one per physical key, whatever the layout.
quint32 physicalKeyId(quint32 nativeScanCode, quint32)
{
    return nativeScanCode;
}

bool keyReleasesMayBeRepeats()
{
    return true;
}
