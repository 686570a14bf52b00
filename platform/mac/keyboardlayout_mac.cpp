#include "platform/keyboardlayout.h"

#include "protocol/ch9329.h"

// The toolkit's codes are already those the encoder expects, but for the keypad. The keypad
// modifier also comes with the arrow keys here, so only the keypad's own keys are mapped.
int encoderKeyForPhysicalKey(int key, Qt::KeyboardModifiers modifiers)
{
    if (modifiers & Qt::KeypadModifier) {
        if (const int keypad = ch9329_keypad_key(key))
            return keypad;
        if (key == Qt::Key_Clear) // in Num Lock's place
            return kCh9329KeypadClear;
    }
    return key;
}

// Key events carry no scan code here (1 for real ones, 0 for synthesized ones); the virtual key
// code names the physical key, and 0 is a key of its own (A).
quint32 physicalKeyId(quint32 nativeScanCode, quint32 nativeVirtualKey)
{
    return nativeScanCode == 0 ? 0 : nativeVirtualKey | 0x10000;
}

// Held keys repeat as presses flagged as auto-repeat, never as releases.
bool keyReleasesMayBeRepeats()
{
    return false;
}
