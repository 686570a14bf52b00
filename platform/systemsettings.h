#pragma once

// Panes of the system settings the console sends the operator to.
enum class SystemSettingsPane { CameraPrivacy, MicrophonePrivacy, AccessibilityPrivacy };

// Opens the pane (macOS); where the system has no such pane (Linux) logs that there is nothing to
// open. Returns whether something was opened.
bool openSystemSettingsPane(SystemSettingsPane pane);
