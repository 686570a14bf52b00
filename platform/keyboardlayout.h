#pragma once

// The report encoder reads key codes as the toolkit reports them on macOS, where the physical
// Control key is Key_Meta and Command is Key_Control. Keys from the local keyboard pass through
// here first, so that each physical key reaches the target as the key it is labelled with.
int encoderKeyForPhysicalKey(int key);
