#pragma once

#include <QByteArray>
#include <QString>
#include <Qt>

// Names of the system shortcuts the console takes from the local window system and hands to the
// target; empty when the key and modifiers form none. Press and release are judged alike.
QString recognizeSystemShortcut(int key, Qt::KeyboardModifiers modifiers);

// The class a key is logged under ("功能键", "多媒体键", "Dead键", "修饰键", or "系统快捷键" when
// it formed a shortcut); empty when none applies.
QString keyClassForLog(int key, bool formedShortcut);

// Set modifiers joined by "+": "Shift", "Control", "Alt", "Meta/Command"; empty when none.
QString modifierNamesForLog(Qt::KeyboardModifiers modifiers);

// "57 AB 00 02": every byte as two upper-case hex digits, separated by one blank.
QString hexBytesForLog(const QByteArray &data);

// The console's own paste command, Ctrl+Alt+V (Command+Option+V on macOS): it types the
// clipboard on the target instead of reaching it as keys.
bool isPasteShortcut(int key, Qt::KeyboardModifiers modifiers);
