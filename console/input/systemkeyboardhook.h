#pragma once

#include "console/input/hookrules.h"

class TavroVideo;

// The process-wide system keyboard hook: one per process, owned by the console view that
// started it. GUI thread only.

// Whether the process may take the keyboard from the window system.
bool checkAccessibilityPermission();
// Shows the system's own trust prompt where there is one; returns the trust state.
bool requestAccessibilityPermission();
// The console's explanation of the permission, once at a time.
void showAccessibilityPermissionDialog();
// Every 5 s while the hook runs: takes the keyboard again when the tap lost it while the console
// should hold it (a grab that failed, one the system ended).
void monitorHookStatus();
// The tap's handler: forwards what the decision table says to the owner; true swallows.
bool keyboardEventCallback(HookEventType type, int keyCode, quint64 flags);

TavroVideo *keyboardHookOwner();
bool isKeyboardTapPresent();
