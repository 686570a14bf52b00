#include "console/input/keyboardlayout.h"

#include <QRegularExpression>
#include <QtDebug>

#include <xkbcommon/xkbcommon.h>

#include <array>
#include <cstdarg>
#include <cstdio>

namespace {

// Linux input codes of the keys typing uses; the keymap's keycodes are these plus 8.
constexpr xkb_keycode_t kEvdevOffset = 8;
constexpr int kEvdevLeftShift = 42;
constexpr int kEvdevRightAlt = 100;
constexpr int kEvdevCapsLock = 58;
constexpr int kEvdevNumLock = 69;

constexpr quint8 kUsageReturn = 0x28;
constexpr quint8 kUsageTab = 0x2B;
constexpr quint8 kUsageSpace = 0x2C;
constexpr quint8 kUsageBackslash = 0x31;
constexpr quint8 kUsageNonUsHash = 0x32;
constexpr quint8 kUsageKeypadFirst = 0x54;
constexpr quint8 kUsageKeypadLast = 0x63;
constexpr quint8 kUsageKeypadEqual = 0x67;

// HID keyboard usage -> Linux input code, as the kernel's HID driver maps them; 0 for keys that
// type nothing.
constexpr int kUsageTableSize = 0x68;
constexpr std::array<quint8, kUsageTableSize> evdevForUsage()
{
    constexpr quint8 letters[26] = {30, 48, 46, 32, 18, 33, 34, 35, 23, 36, 37, 38, 50,
                                    49, 24, 25, 16, 19, 31, 20, 22, 47, 17, 45, 21, 44};
    // 0x28 Return .. 0x38 Slash; 0x31 and 0x32 are both the backslash key.
    constexpr quint8 editingAndPunctuation[17] = {28, 1,  14, 15, 57, 12, 13, 26, 27,
                                                  43, 43, 39, 40, 41, 51, 52, 53};
    // 0x54 keypad slash .. 0x63 keypad point.
    constexpr quint8 keypad[16] = {98, 55, 74, 78, 96, 79, 80, 81, 75, 76, 77, 71, 72, 73, 82, 83};
    std::array<quint8, kUsageTableSize> table = {};
    for (int i = 0; i < 26; ++i)
        table[0x04 + i] = letters[i];
    for (int i = 0; i < 10; ++i)
        table[0x1E + i] = quint8(2 + i); // 1..9, 0
    for (int i = 0; i < 17; ++i)
        table[0x28 + i] = editingAndPunctuation[i];
    for (int i = 0; i < 16; ++i)
        table[0x54 + i] = keypad[i];
    table[0x64] = 86;  // the ISO key beside left Shift
    table[0x67] = 117; // keypad equals
    return table;
}
constexpr std::array<quint8, kUsageTableSize> kEvdevForUsage = evdevForUsage();

// Modifier combinations typing uses, fewest first; the index into the tables.
constexpr int kComboCount = 4;
constexpr bool comboShift(int combo)
{
    return combo & 1;
}
constexpr bool comboAltGr(int combo)
{
    return combo & 2;
}
constexpr quint8 comboBits(int combo)
{
    return (comboShift(combo) ? kHidLeftShift : 0) | (comboAltGr(combo) ? kHidRightAlt : 0);
}

constexpr quint8 kTypingBits = kHidLeftShift | 0x20 | kHidRightAlt;

bool isKeypad(quint8 usage)
{
    return (usage >= kUsageKeypadFirst && usage <= kUsageKeypadLast) || usage == kUsageKeypadEqual;
}

// The spacing form a dead key types before Space. Dead keys with no spacing character of their
// own (dead_belowdot, ...) are left out: they count as typing nothing.
char32_t deadKeySpacing(xkb_keysym_t sym)
{
    switch (sym) {
    case XKB_KEY_dead_grave:
        return U'`';
    case XKB_KEY_dead_acute:
        return U'\u00B4';
    case XKB_KEY_dead_circumflex:
        return U'^';
    case XKB_KEY_dead_tilde:
        return U'~';
    case XKB_KEY_dead_macron:
        return U'\u00AF';
    case XKB_KEY_dead_breve:
        return U'\u02D8';
    case XKB_KEY_dead_abovedot:
        return U'\u02D9';
    case XKB_KEY_dead_diaeresis:
        return U'\u00A8';
    case XKB_KEY_dead_abovering:
        return U'\u02DA';
    case XKB_KEY_dead_doubleacute:
        return U'\u02DD';
    case XKB_KEY_dead_caron:
        return U'\u02C7';
    case XKB_KEY_dead_cedilla:
        return U'\u00B8';
    case XKB_KEY_dead_ogonek:
        return U'\u02DB';
    case XKB_KEY_dead_iota:
        return U'\u037A';
    default:
        return 0;
    }
}

LayoutKeyResult resultForKeysym(xkb_keysym_t sym)
{
    LayoutKeyResult result;
    if (sym == XKB_KEY_NoSymbol)
        return result;
    if (const char32_t spacing = deadKeySpacing(sym)) {
        result.kind = LayoutKeyResult::DeadKey;
        result.character = spacing;
        return result;
    }
    char32_t c = xkb_keysym_to_utf32(sym);
    // Return and keypad Enter start a line; other control characters (Backspace, Escape,
    // Delete) edit rather than type.
    if (c == U'\r')
        c = U'\n';
    if (c == 0 || (c < 0x20 && c != U'\n' && c != U'\t') || (c >= 0x7F && c < 0xA0))
        return result;
    result.kind = LayoutKeyResult::Character;
    result.character = c;
    return result;
}

// The first error libxkbcommon reports while compiling, for the caller's message.
void collectLog(xkb_context *context, xkb_log_level, const char *format, va_list args)
{
    auto *first = static_cast<QString *>(xkb_context_get_user_data(context));
    if (!first || !first->isEmpty())
        return;
    char buffer[512];
    std::vsnprintf(buffer, sizeof buffer, format, args);
    *first = QString::fromUtf8(buffer).trimmed();
}

struct ContextDeleter
{
    void operator()(xkb_context *context) const { xkb_context_unref(context); }
};
struct KeymapDeleter
{
    void operator()(xkb_keymap *keymap) const { xkb_keymap_unref(keymap); }
};
struct StateDeleter
{
    void operator()(xkb_state *state) const { xkb_state_unref(state); }
};
using StatePtr = std::unique_ptr<xkb_state, StateDeleter>;

void tapKey(xkb_state *state, int evdev)
{
    xkb_state_update_key(state, xkb_keycode_t(evdev) + kEvdevOffset, XKB_KEY_DOWN);
    xkb_state_update_key(state, xkb_keycode_t(evdev) + kEvdevOffset, XKB_KEY_UP);
}

// A target's state with the modifier keys of `combo` held, as the target itself would reach it
// from the key presses.
StatePtr stateFor(xkb_keymap *keymap, int combo, bool capsLock, bool numLock)
{
    StatePtr state(xkb_state_new(keymap));
    if (!state)
        return state;
    if (capsLock)
        tapKey(state.get(), kEvdevCapsLock);
    if (numLock)
        tapKey(state.get(), kEvdevNumLock);
    if (comboShift(combo))
        xkb_state_update_key(state.get(), kEvdevLeftShift + kEvdevOffset, XKB_KEY_DOWN);
    if (comboAltGr(combo))
        xkb_state_update_key(state.get(), kEvdevRightAlt + kEvdevOffset, XKB_KEY_DOWN);
    return state;
}

} // namespace

struct KeyboardLayout::Tables
{
    QString code;
    // [usage][modifier combination][Caps Lock]; Num Lock on, as a target usually starts.
    LayoutKeyResult results[256][kComboCount][2];
    QHash<char32_t, QVector<LayoutStroke>> strokes;
};

QStringList KeyboardLayout::knownLayouts()
{
    return {QStringLiteral("us"), QStringLiteral("gb"), QStringLiteral("de"), QStringLiteral("fr"),
            QStringLiteral("ch(de)")};
}

QString KeyboardLayout::displayName(const QString &code)
{
    static const QHash<QString, QString> names = {
        {QStringLiteral("us"), QStringLiteral("English (US)")},
        {QStringLiteral("gb"), QStringLiteral("English (UK)")},
        {QStringLiteral("de"), QStringLiteral("German")},
        {QStringLiteral("fr"), QStringLiteral("French")},
        {QStringLiteral("ch(de)"), QStringLiteral("Swiss German")},
    };
    return names.value(code, code);
}

bool KeyboardLayout::compile(const QString &code, KeyboardLayout &out, QString &error)
{
    static const QRegularExpression pattern(
        QStringLiteral("^([a-z0-9_-]+)(?:\\(([a-z0-9_-]+)\\))?$"),
        QRegularExpression::CaseInsensitiveOption);
    const QRegularExpressionMatch match = pattern.match(code);
    if (!match.hasMatch()) {
        error =
            QStringLiteral("keyboard layout \"%1\": expected layout or layout(variant)").arg(code);
        qWarning().noquote() << error;
        return false;
    }
    const QByteArray layout = match.captured(1).toLatin1();
    const QByteArray variant = match.captured(2).toLatin1();

    // The environment's XKB_DEFAULT_* must not change what a stored code means.
    std::unique_ptr<xkb_context, ContextDeleter> context(
        xkb_context_new(XKB_CONTEXT_NO_ENVIRONMENT_NAMES));
    if (!context) {
        error = QStringLiteral("keyboard layout \"%1\": no XKB context").arg(code);
        qWarning().noquote() << error;
        return false;
    }
    QString xkbMessage;
    xkb_context_set_user_data(context.get(), &xkbMessage);
    xkb_context_set_log_fn(context.get(), collectLog);
    xkb_context_set_log_level(context.get(), XKB_LOG_LEVEL_ERROR);

    xkb_rule_names names = {};
    names.rules = "evdev";
    names.model = "pc105";
    names.layout = layout.constData();
    names.variant = variant.constData();
    names.options = "";
    std::unique_ptr<xkb_keymap, KeymapDeleter> keymap(
        xkb_keymap_new_from_names(context.get(), &names, XKB_KEYMAP_COMPILE_NO_FLAGS));
    xkb_context_set_user_data(context.get(), nullptr);
    if (!keymap) {
        error = QStringLiteral("keyboard layout \"%1\" is not in the XKB data").arg(code);
        if (!xkbMessage.isEmpty())
            error += QStringLiteral(" (%1)").arg(xkbMessage);
        qWarning().noquote() << error;
        return false;
    }

    auto tables = std::make_shared<Tables>();
    tables->code = code;

    // Right Alt is AltGr only where the layout makes it the level-3 shift; elsewhere it is Alt,
    // and Alt with a key is a shortcut.
    bool altGr = false;
    {
        StatePtr plain(xkb_state_new(keymap.get()));
        altGr = plain && xkb_state_key_get_one_sym(plain.get(), kEvdevRightAlt + kEvdevOffset) ==
                             XKB_KEY_ISO_Level3_Shift;
    }
    // Keypad digits type only with Num Lock on; a keypad key joins the inverse only when it
    // types the same either way.
    LayoutKeyResult keypadNumLockOff[kUsageKeypadEqual + 1][kComboCount];
    for (int combo = 0; combo < kComboCount; ++combo) {
        if (comboAltGr(combo) && !altGr)
            continue;
        for (int caps = 0; caps < 2; ++caps) {
            StatePtr state = stateFor(keymap.get(), combo, caps, true);
            StatePtr numLockOff = caps ? StatePtr() : stateFor(keymap.get(), combo, false, false);
            if (!state || (!caps && !numLockOff)) {
                error = QStringLiteral("keyboard layout \"%1\": no XKB state").arg(code);
                qWarning().noquote() << error;
                return false;
            }
            for (std::size_t usage = 0; usage < kEvdevForUsage.size(); ++usage) {
                const int evdev = kEvdevForUsage[usage];
                if (evdev == 0)
                    continue;
                const xkb_keycode_t key = xkb_keycode_t(evdev) + kEvdevOffset;
                tables->results[usage][combo][caps] =
                    resultForKeysym(xkb_state_key_get_one_sym(state.get(), key));
                if (numLockOff && isKeypad(quint8(usage))) {
                    keypadNumLockOff[usage][combo] =
                        resultForKeysym(xkb_state_key_get_one_sym(numLockOff.get(), key));
                }
            }
        }
    }

    // The inverse, for Caps Lock off: main block before keypad, fewest modifiers first. Within
    // one modifier combination punctuation keys come first, then digits, the ISO key and
    // letters: the layouts build on a common base that puts extra level-3 characters on those
    // ('@' on Q, '}' on 0, '|' on the ISO key), where the national charts have them on keys of
    // their own. 0x31
    // and 0x32 are one key to the target; layouts other than the US ones are typed on ISO
    // keyboards, where that key is the one beside Return (0x32).
    const bool iso = !code.startsWith(QLatin1String("us"), Qt::CaseInsensitive);
    QVector<quint8> mainBlock;
    for (int usage = 0x2D; usage <= 0x38; ++usage) {
        if (usage == kUsageBackslash)
            mainBlock << (iso ? kUsageNonUsHash : kUsageBackslash)
                      << (iso ? kUsageBackslash : kUsageNonUsHash);
        else if (usage != kUsageNonUsHash)
            mainBlock << quint8(usage);
    }
    for (int usage = 0x1E; usage <= 0x27; ++usage)
        mainBlock << quint8(usage);
    mainBlock << 0x64;
    for (int usage = 0x04; usage <= 0x1D; ++usage)
        mainBlock << quint8(usage);
    mainBlock << kUsageSpace;
    QVector<quint8> keypad;
    for (int usage = kUsageKeypadFirst; usage <= kUsageKeypadLast; ++usage)
        keypad << quint8(usage);
    keypad << kUsageKeypadEqual;

    auto typesAlike = [&](quint8 usage, int combo) {
        const LayoutKeyResult &on = tables->results[usage][combo][0];
        const LayoutKeyResult &off = keypadNumLockOff[usage][combo];
        return !isKeypad(usage) || (on.kind == off.kind && on.character == off.character);
    };
    auto addStrokes = [&](LayoutKeyResult::Kind kind) {
        for (const QVector<quint8> *block : {&mainBlock, &keypad}) {
            for (int combo = 0; combo < kComboCount; ++combo) {
                for (quint8 usage : *block) {
                    const LayoutKeyResult &result = tables->results[usage][combo][0];
                    if (result.kind != kind || tables->strokes.contains(result.character) ||
                        !typesAlike(usage, combo)) {
                        continue;
                    }
                    QVector<LayoutStroke> strokes = {{usage, comboBits(combo)}};
                    if (kind == LayoutKeyResult::DeadKey)
                        strokes << LayoutStroke{kUsageSpace, 0};
                    tables->strokes.insert(result.character, strokes);
                }
            }
        }
    };
    addStrokes(LayoutKeyResult::Character);
    // Characters only a dead key has: the dead key, then Space for its spacing form.
    addStrokes(LayoutKeyResult::DeadKey);

    out.m_tables = std::move(tables);
    return true;
}

QString KeyboardLayout::code() const
{
    return m_tables ? m_tables->code : QString();
}

bool KeyboardLayout::strokesFor(char32_t c, QVector<LayoutStroke> &out) const
{
    if (!m_tables)
        return false;
    if (c == U'\n' || c == U'\t') {
        out = {{c == U'\n' ? kUsageReturn : kUsageTab, 0}};
        return true;
    }
    const auto it = m_tables->strokes.constFind(c);
    if (it == m_tables->strokes.constEnd())
        return false;
    out = *it;
    return true;
}

LayoutKeyResult KeyboardLayout::keyResult(quint8 usage, quint8 modifiers, bool capsLock) const
{
    // Control, Alt or GUI make the key a shortcut.
    if (!m_tables || (modifiers & ~kTypingBits))
        return {};
    const int combo =
        ((modifiers & (kHidLeftShift | 0x20)) ? 1 : 0) | ((modifiers & kHidRightAlt) ? 2 : 0);
    return m_tables->results[usage][combo][capsLock ? 1 : 0];
}
