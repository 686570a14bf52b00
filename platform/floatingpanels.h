#pragma once

#include <Qt>

// Floating panels over the console (the soft keyboard) must not take the keyboard from the
// console view: the view counts itself in the background when it loses the focus and stops
// sending keys.

// Window flags the panels add to their own.
Qt::WindowFlags floatingPanelExtraFlags();
// Whether a panel is activated when shown (macOS tool windows do not take the key focus from the
// application's main window; X11 window managers would hand it to them).
bool floatingPanelsAreActivated();
