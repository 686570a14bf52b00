#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

#include "console/input/keyboardlayout.h"

// What the target computer noticed from one report.
struct HidEvent
{
    enum Kind { KeyDown, KeyUp, Modifiers, Text, Mouse };

    Kind kind = KeyDown;
    int usage = 0;    // KeyDown, KeyUp: HID keyboard usage
    QString key;      // KeyDown, KeyUp: US-layout key name
    QStringList held; // Modifiers: names of the held modifier keys, in bit order
    QString text;     // Text: everything typed so far
    int x = 0;        // Mouse: absolute position 0..4096
    int y = 0;
    int buttons = 0; // Mouse: button bits of the report
    int wheel = 0;   // Mouse: signed wheel delta of the report
};

// The target computer behind the box's keyboard-and-mouse chip, as far as the reports tell:
// held modifiers and keys, the text they type on its keyboard layout (US unless set), the cursor
// on the target's screen and the buttons. It decodes CH9329 keyboard (0x02), absolute mouse (0x04)
// and relative mouse (0x05) frames on its own, straight from the HID usage tables, so that it
// checks the console's encoder rather than repeating it.
class HidTarget
{
public:
    static constexpr quint8 kCmdKeyboard = 0x02;
    static constexpr quint8 kCmdMouseAbs = 0x04;
    static constexpr quint8 kCmdMouseRel = 0x05;
    static constexpr int kMaxCoordinate = 4096;

    // "keyboard", "mouse_abs", "mouse_rel" or "other".
    static QString frameKind(quint8 command);

    // Applies one frame whose checksum was already verified. Frames of other commands change
    // nothing and succeed. Returns false with `reason` ("length", "format", "range") when the
    // data do not fit the command; the state is left untouched then.
    bool applyFrame(quint8 command, const QByteArray &data, QVector<HidEvent> &events,
                    QString &reason);

    // Name of a keyboard usage on a US layout ("A", "1", "Enter", "LeftShift", "F1");
    // "Usage0xNN" for usages without a name.
    static QString usageName(int usage);
    // Character a key types on a US layout; a null QChar when it types none.
    static QChar usageCharacter(int usage, bool shift, bool capsLock, bool numLock);
    // Names of the modifier bits set in `bits`, in bit order (LeftControl first).
    static QStringList modifierNames(quint8 bits);

    // The chip restarted: nothing is held any more (no events; the text stays).
    void releaseAll();

    // Types on `layout` from now on; an uncompiled layout is the target's own US table. Right Alt
    // is AltGr then where the layout has it, and dead keys wait for the next key.
    void setLayout(const KeyboardLayout &layout);

    // The target's screen in pixels (1920x1080 unless set); the cursor stays on it.
    void setScreenSize(int width, int height);
    // Pixel of a screen `size` pixels wide that an absolute coordinate (0..4096) points at.
    static int coordinateToPixel(int coordinate, int size);

    quint8 modifiers() const { return m_modifiers; }
    QVector<int> heldKeys() const { return m_keys; }
    QString text() const { return m_text; }
    bool capsLock() const { return m_capsLock; }
    bool numLock() const { return m_numLock; }
    int x() const { return m_x; }
    int y() const { return m_y; }
    int buttons() const { return m_buttons; }
    int wheelTotal() const { return m_wheelTotal; }
    int screenWidth() const { return m_screenWidth; }
    int screenHeight() const { return m_screenHeight; }
    // The cursor on the target's screen, in pixels.
    int cursorX() const { return m_cursorX; }
    int cursorY() const { return m_cursorY; }
    // Where the last button press landed (-1 before the first) and how many there were.
    int clickX() const { return m_clickX; }
    int clickY() const { return m_clickY; }
    int clicks() const { return m_clicks; }
    // Characters typed into or erased from the text so far.
    int textEdits() const { return m_textEdits; }
    // Keys and modifier keys held now.
    int heldCount() const;

private:
    bool applyKeyboard(const QByteArray &data, QVector<HidEvent> &events, QString &reason);
    bool applyMouse(const QByteArray &data, QVector<HidEvent> &events, QString &reason);
    bool applyRelativeMouse(const QByteArray &data, QVector<HidEvent> &events, QString &reason);
    void setButtons(int buttons);
    void pressKey(int usage, QVector<HidEvent> &events);
    void typeOnLayout(int usage);
    void typeCharacter(char32_t c);

    quint8 m_modifiers = 0;
    QVector<int> m_keys; // held key usages, in the order they were pressed
    QString m_text;
    bool m_capsLock = false;
    bool m_numLock = true; // the usual state of a freshly started target
    int m_x = 0;
    int m_y = 0;
    int m_buttons = 0;
    int m_wheelTotal = 0;
    int m_screenWidth = 1920;
    int m_screenHeight = 1080;
    int m_cursorX = 0;
    int m_cursorY = 0;
    int m_clickX = -1;
    int m_clickY = -1;
    int m_clicks = 0;
    int m_textEdits = 0;
    KeyboardLayout m_layout;
    char32_t m_deadKey = 0; // spacing form of a dead key pressed last, waiting for the next key
};
