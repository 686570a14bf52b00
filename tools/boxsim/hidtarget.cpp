#include "hidtarget.h"

#include <utility>

namespace {

// Keyboard/Keypad page (0x07), usages 0x28..0xA4. Letters, digits and modifiers are
// handled by range below.
// clang-format off
const char *const kNames28[] = {
    /* 0x28 */ "Enter", "Escape", "Backspace", "Tab",
    /* 0x2C */ "Space", "Minus", "Equal", "LeftBracket",
    /* 0x30 */ "RightBracket", "Backslash", "NonUSHash", "Semicolon",
    /* 0x34 */ "Apostrophe", "Grave", "Comma", "Period",
    /* 0x38 */ "Slash", "CapsLock", "F1", "F2",
    /* 0x3C */ "F3", "F4", "F5", "F6",
    /* 0x40 */ "F7", "F8", "F9", "F10",
    /* 0x44 */ "F11", "F12", "PrintScreen", "ScrollLock",
    /* 0x48 */ "Pause", "Insert", "Home", "PageUp",
    /* 0x4C */ "Delete", "End", "PageDown", "Right",
    /* 0x50 */ "Left", "Down", "Up", "NumLock",
    /* 0x54 */ "KeypadSlash", "KeypadAsterisk", "KeypadMinus", "KeypadPlus",
    /* 0x58 */ "KeypadEnter", "Keypad1", "Keypad2", "Keypad3",
    /* 0x5C */ "Keypad4", "Keypad5", "Keypad6", "Keypad7",
    /* 0x60 */ "Keypad8", "Keypad9", "Keypad0", "KeypadPeriod",
    /* 0x64 */ "NonUSBackslash", "Application", "Power", "KeypadEqual",
    /* 0x68 */ "F13", "F14", "F15", "F16",
    /* 0x6C */ "F17", "F18", "F19", "F20",
    /* 0x70 */ "F21", "F22", "F23", "F24",
    /* 0x74 */ "Execute", "Help", "Menu", "Select",
    /* 0x78 */ "Stop", "Again", "Undo", "Cut",
    /* 0x7C */ "Copy", "Paste", "Find", "Mute",
    /* 0x80 */ "VolumeUp", "VolumeDown", "LockingCapsLock", "LockingNumLock",
    /* 0x84 */ "LockingScrollLock", "KeypadComma", "KeypadEqualSign", "International1",
    /* 0x88 */ "International2", "International3", "International4", "International5",
    /* 0x8C */ "International6", "International7", "International8", "International9",
    /* 0x90 */ "Lang1", "Lang2", "Lang3", "Lang4",
    /* 0x94 */ "Lang5", "Lang6", "Lang7", "Lang8",
    /* 0x98 */ "Lang9", "AlternateErase", "SysReq", "Cancel",
    /* 0x9C */ "Clear", "Prior", "Return", "Separator",
    /* 0xA0 */ "Out", "Oper", "ClearAgain", "CrSel",
    /* 0xA4 */ "ExSel",
};
// clang-format on
constexpr int kNamedFirst = 0x28;
constexpr int kNamedLast = 0xA4;
static_assert(sizeof(kNames28) / sizeof(kNames28[0]) == kNamedLast - kNamedFirst + 1,
              "one name per usage");

const char *const kModifierNames[] = {"LeftControl",  "LeftShift",  "LeftAlt",  "LeftGUI",
                                      "RightControl", "RightShift", "RightAlt", "RightGUI"};
constexpr int kFirstModifierUsage = 0xE0;

// Unshifted and shifted characters of the punctuation keys 0x2D..0x38 on a US layout.
// 0x32 (non-US #) sits where a US keyboard has its backslash key and types the same.
const char kPunctuation[][2] = {
    {'-', '_'}, {'=', '+'},  {'[', '{'}, {']', '}'}, {'\\', '|'}, {'\\', '|'},
    {';', ':'}, {'\'', '"'}, {'`', '~'}, {',', '<'}, {'.', '>'},  {'/', '?'},
};

constexpr quint8 kShiftBits = 0x02 | 0x20;
// Control, Alt or GUI turn a key into a command; it types nothing then.
constexpr quint8 kCommandBits = 0x01 | 0x04 | 0x08 | 0x10 | 0x40 | 0x80;

constexpr int kUsageErrorRollOver = 0x01;
constexpr int kUsageErrorUndefined = 0x03;
constexpr int kUsageCapsLock = 0x39;
constexpr int kUsageNumLock = 0x53;
constexpr int kUsageBackspace = 0x2A;
constexpr int kUsageReturn = 0x28;
constexpr int kUsageTab = 0x2B;
constexpr int kUsageKeypadEnter = 0x58;
constexpr int kUsageKeypad1 = 0x59;
constexpr int kUsageKeypadPoint = 0x63;
constexpr quint8 kRightAltBit = 0x40;

} // namespace

QString HidTarget::frameKind(quint8 command)
{
    switch (command) {
    case kCmdKeyboard:
        return QStringLiteral("keyboard");
    case kCmdMouseAbs:
        return QStringLiteral("mouse_abs");
    case kCmdMouseRel:
        return QStringLiteral("mouse_rel");
    default:
        return QStringLiteral("other");
    }
}

QString HidTarget::usageName(int usage)
{
    if (usage >= 0x04 && usage <= 0x1D)
        return QString(QChar('A' + usage - 0x04));
    if (usage >= 0x1E && usage <= 0x26)
        return QString(QChar('1' + usage - 0x1E));
    if (usage == 0x27)
        return QStringLiteral("0");
    if (usage >= kNamedFirst && usage <= kNamedLast)
        return QString::fromLatin1(kNames28[usage - kNamedFirst]);
    if (usage >= kFirstModifierUsage && usage < kFirstModifierUsage + 8)
        return QString::fromLatin1(kModifierNames[usage - kFirstModifierUsage]);
    return QStringLiteral("Usage0x") +
           QString::number(usage & 0xFF, 16).toUpper().rightJustified(2, QChar('0'));
}

QChar HidTarget::usageCharacter(int usage, bool shift, bool capsLock, bool numLock)
{
    if (usage >= 0x04 && usage <= 0x1D) {
        const bool upper = shift != capsLock;
        return QChar((upper ? 'A' : 'a') + usage - 0x04);
    }
    if (usage >= 0x1E && usage <= 0x27) {
        static const char unshifted[] = "1234567890";
        static const char shifted[] = "!@#$%^&*()";
        return QChar((shift ? shifted : unshifted)[usage - 0x1E]);
    }
    if (usage >= 0x2D && usage <= 0x38)
        return QChar(kPunctuation[usage - 0x2D][shift ? 1 : 0]);
    switch (usage) {
    case 0x28: // Enter
    case 0x58: // keypad Enter
        return QChar('\n');
    case 0x2B:
        return QChar('\t');
    case 0x2C:
        return QChar(' ');
    case 0x54:
        return QChar('/');
    case 0x55:
        return QChar('*');
    case 0x56:
        return QChar('-');
    case 0x57:
        return QChar('+');
    case 0x67:
        return QChar('=');
    default:
        break;
    }
    // Keypad digits and point type only with Num Lock on; otherwise they navigate.
    if (numLock && usage >= 0x59 && usage <= 0x63) {
        static const char keypad[] = "1234567890.";
        return QChar(keypad[usage - 0x59]);
    }
    return QChar();
}

QStringList HidTarget::modifierNames(quint8 bits)
{
    QStringList names;
    for (int bit = 0; bit < 8; ++bit) {
        if (bits & (1u << bit))
            names << QString::fromLatin1(kModifierNames[bit]);
    }
    return names;
}

void HidTarget::setLayout(const KeyboardLayout &layout)
{
    m_layout = layout;
    m_deadKey = 0;
}

void HidTarget::setScreenSize(int width, int height)
{
    m_screenWidth = qMax(1, width);
    m_screenHeight = qMax(1, height);
    m_cursorX = qMin(m_cursorX, m_screenWidth - 1);
    m_cursorY = qMin(m_cursorY, m_screenHeight - 1);
}

int HidTarget::coordinateToPixel(int coordinate, int size)
{
    // The nearest pixel: an encoder that truncates pixel * 4096 / size lands back on its pixel.
    return qBound(0, int((qint64(coordinate) * size + kMaxCoordinate / 2) / kMaxCoordinate),
                  size - 1);
}

int HidTarget::heldCount() const
{
    int count = int(m_keys.size());
    for (int bit = 0; bit < 8; ++bit)
        count += (m_modifiers >> bit) & 1;
    return count;
}

void HidTarget::setButtons(int buttons)
{
    if (buttons & ~m_buttons) {
        m_clickX = m_cursorX;
        m_clickY = m_cursorY;
        ++m_clicks;
    }
    m_buttons = buttons;
}

void HidTarget::releaseAll()
{
    m_modifiers = 0;
    m_keys.clear();
    m_buttons = 0;
}

bool HidTarget::applyFrame(quint8 command, const QByteArray &data, QVector<HidEvent> &events,
                           QString &reason)
{
    switch (command) {
    case kCmdKeyboard:
        return applyKeyboard(data, events, reason);
    case kCmdMouseAbs:
        return applyMouse(data, events, reason);
    case kCmdMouseRel:
        return applyRelativeMouse(data, events, reason);
    default:
        return true;
    }
}

bool HidTarget::applyKeyboard(const QByteArray &data, QVector<HidEvent> &events, QString &reason)
{
    // modifier byte, reserved byte, six key slots
    if (data.size() != 8) {
        reason = QStringLiteral("length");
        return false;
    }
    const quint8 modifiers = quint8(data.at(0));
    QVector<int> keys;
    bool rollOver = false;
    for (int i = 2; i < 8; ++i) {
        const int usage = quint8(data.at(i));
        if (usage >= kUsageErrorRollOver && usage <= kUsageErrorUndefined)
            rollOver = true;
        else if (usage != 0 && !keys.contains(usage))
            keys << usage;
    }

    if (modifiers != m_modifiers) {
        const quint8 released = m_modifiers & ~modifiers;
        const quint8 pressed = modifiers & ~m_modifiers;
        for (int bit = 0; bit < 8; ++bit) {
            if (released & (1u << bit)) {
                HidEvent event;
                event.kind = HidEvent::KeyUp;
                event.usage = kFirstModifierUsage + bit;
                event.key = usageName(event.usage);
                events << event;
            }
        }
        for (int bit = 0; bit < 8; ++bit) {
            if (pressed & (1u << bit)) {
                HidEvent event;
                event.kind = HidEvent::KeyDown;
                event.usage = kFirstModifierUsage + bit;
                event.key = usageName(event.usage);
                events << event;
            }
        }
        m_modifiers = modifiers;
        HidEvent event;
        event.kind = HidEvent::Modifiers;
        event.held = modifierNames(modifiers);
        events << event;
    }

    // Too many keys at once: the keyboard cannot tell which, so the host keeps the old set.
    if (rollOver)
        return true;

    const QString textBefore = m_text;
    const QVector<int> previous = m_keys;
    for (int usage : previous) {
        if (!keys.contains(usage)) {
            m_keys.removeOne(usage);
            HidEvent event;
            event.kind = HidEvent::KeyUp;
            event.usage = usage;
            event.key = usageName(usage);
            events << event;
        }
    }
    for (int usage : keys) {
        if (!m_keys.contains(usage))
            pressKey(usage, events);
    }
    if (m_text != textBefore) {
        HidEvent event;
        event.kind = HidEvent::Text;
        event.text = m_text;
        events << event;
    }
    return true;
}

void HidTarget::pressKey(int usage, QVector<HidEvent> &events)
{
    m_keys << usage;
    HidEvent event;
    event.kind = HidEvent::KeyDown;
    event.usage = usage;
    event.key = usageName(usage);
    events << event;

    if (usage == kUsageCapsLock) {
        m_capsLock = !m_capsLock;
        return;
    }
    if (usage == kUsageNumLock) {
        m_numLock = !m_numLock;
        return;
    }
    if (m_layout.isValid()) {
        typeOnLayout(usage);
        return;
    }
    if (m_modifiers & kCommandBits)
        return;
    if (usage == kUsageBackspace) {
        if (!m_text.isEmpty()) {
            m_text.chop(1);
            ++m_textEdits;
        }
        return;
    }
    const QChar typed = usageCharacter(usage, m_modifiers & kShiftBits, m_capsLock, m_numLock);
    if (!typed.isNull()) {
        m_text += typed;
        ++m_textEdits;
    }
}

void HidTarget::typeCharacter(char32_t c)
{
    m_text += QString::fromUcs4(&c, 1);
    ++m_textEdits;
}

void HidTarget::typeOnLayout(int usage)
{
    // Right Alt is AltGr here: only Control, Alt and GUI make a shortcut.
    if (m_modifiers & kCommandBits & ~kRightAltBit)
        return;
    if (usage == kUsageBackspace) {
        // Backspace after a dead key cancels it: the dead key has typed nothing yet.
        if (m_deadKey != 0) {
            m_deadKey = 0;
        } else if (!m_text.isEmpty()) {
            m_text.chop(1);
            ++m_textEdits;
        }
        return;
    }
    LayoutKeyResult result;
    if (usage == kUsageReturn || usage == kUsageKeypadEnter || usage == kUsageTab) {
        result.kind = LayoutKeyResult::Character;
        result.character = usage == kUsageTab ? U'\t' : U'\n';
    } else if (usage >= kUsageKeypad1 && usage <= kUsageKeypadPoint && !m_numLock) {
        return; // navigation keys with Num Lock off
    } else {
        result = m_layout.keyResult(quint8(usage), m_modifiers, m_capsLock);
    }
    if (result.kind == LayoutKeyResult::Nothing)
        return;
    // A dead key followed by Space types its spacing form; followed by any other key, the
    // spacing form and then that key's own character.
    const char32_t pending = std::exchange(m_deadKey, 0);
    if (pending != 0)
        typeCharacter(pending);
    if (result.kind == LayoutKeyResult::DeadKey)
        m_deadKey = result.character;
    else if (pending == 0 || result.character != U' ')
        typeCharacter(result.character);
}

bool HidTarget::applyMouse(const QByteArray &data, QVector<HidEvent> &events, QString &reason)
{
    // 0x02 (absolute report), buttons, X low/high, Y low/high, wheel
    if (data.size() != 7) {
        reason = QStringLiteral("length");
        return false;
    }
    if (quint8(data.at(0)) != 0x02) {
        reason = QStringLiteral("format");
        return false;
    }
    const int x = quint8(data.at(2)) | (quint8(data.at(3)) << 8);
    const int y = quint8(data.at(4)) | (quint8(data.at(5)) << 8);
    if (x > kMaxCoordinate || y > kMaxCoordinate) {
        reason = QStringLiteral("range");
        return false;
    }
    m_x = x;
    m_y = y;
    m_cursorX = coordinateToPixel(x, m_screenWidth);
    m_cursorY = coordinateToPixel(y, m_screenHeight);
    setButtons(quint8(data.at(1)));
    const int wheel = qint8(data.at(6));
    m_wheelTotal += wheel;

    HidEvent event;
    event.kind = HidEvent::Mouse;
    event.x = x;
    event.y = y;
    event.buttons = m_buttons;
    event.wheel = wheel;
    events << event;
    return true;
}

bool HidTarget::applyRelativeMouse(const QByteArray &data, QVector<HidEvent> &events,
                                   QString &reason)
{
    // 0x01 (relative report), buttons, signed X and Y steps, wheel
    if (data.size() != 5) {
        reason = QStringLiteral("length");
        return false;
    }
    if (quint8(data.at(0)) != 0x01) {
        reason = QStringLiteral("format");
        return false;
    }
    // One pixel per step: a target without pointer acceleration.
    m_cursorX = qBound(0, m_cursorX + qint8(data.at(2)), m_screenWidth - 1);
    m_cursorY = qBound(0, m_cursorY + qint8(data.at(3)), m_screenHeight - 1);
    m_x = int(qint64(m_cursorX) * kMaxCoordinate / m_screenWidth);
    m_y = int(qint64(m_cursorY) * kMaxCoordinate / m_screenHeight);
    setButtons(quint8(data.at(1)));
    const int wheel = qint8(data.at(4));
    m_wheelTotal += wheel;

    HidEvent event;
    event.kind = HidEvent::Mouse;
    event.x = m_x;
    event.y = m_y;
    event.buttons = m_buttons;
    event.wheel = wheel;
    events << event;
    return true;
}
