#pragma once

#include <QList>
#include <QString>

// One key frame: a toolkit key code and 0 for a press, 1 for a release.
struct KeyStroke
{
    int key = 0;
    int action = 0;
    bool operator==(const KeyStroke &other) const
    {
        return key == other.key && action == other.action;
    }
};

// The keys a named input (a soft keyboard button, a menu command) stands for, pressed and
// released in order. Empty when the name is not handled. "ctrl+alt+del" is not among them: it is
// paced (ctrlAltDelSequence).
QList<KeyStroke> namedInputStrokes(const QString &input);

// One step of the Control+Alt+Delete sequence: logged, sent, then followed by a pause. The
// encoder turns Meta into the target's Control.
struct PacedKeyStep
{
    const char *log;
    KeyStroke stroke;
    int pauseAfterMs;
};
const QList<PacedKeyStep> &ctrlAltDelSequence();

// How one UTF-16 unit of pasted text is typed: the key to press and whether Shift goes around
// it (US layout, the encoder's shifted-character table). `supported` is false for characters that
// cannot be typed (tab, non-ASCII...).
struct PasteKey
{
    int key = 0;
    bool shift = false;
    bool supported = false;
};
PasteKey classifyPasteCharacter(char16_t unit);

// Pasted text as the paste log previews it: its first 100 UTF-16 units.
QString pastePreview(const QString &text);
