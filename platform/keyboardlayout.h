#pragma once

#include <Qt>
#include <QtGlobal>

// The report encoder reads key codes as the toolkit reports them on macOS, where the physical
// Control key is Key_Meta and Command is Key_Control. Keys from the local keyboard pass through
// here first, so that each physical key reaches the target as the key it is labelled with.
// `modifiers` are the event's: the keypad modifier tells a keypad key from its twin on the main
// block, and keypad keys become the encoder's keypad codes.
int encoderKeyForPhysicalKey(int key, Qt::KeyboardModifiers modifiers);

// Names the physical key of a key event from its native codes, the same for its press and its
// release whatever the layout makes of them; 0 when the event carries none (synthesized).
quint32 physicalKeyId(quint32 nativeScanCode, quint32 nativeVirtualKey);

// True where the window system reports a held key's auto-repeat as release/press pairs (X11),
// so that a release may turn out to be half of one.
bool keyReleasesMayBeRepeats();
