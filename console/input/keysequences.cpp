#include "console/input/keysequences.h"

#include <Qt>

#include "protocol/ch9329.h"

namespace {

constexpr int kPastePreviewUnits = 100;

// [ ] \ ; ' , . / and blank type themselves without Shift.
constexpr char16_t kPlainPunctuation[] = {0x5B, 0x5D, 0x5C, 0x3B, 0x27, 0x2C, 0x2E, 0x2F, 0x20};

QList<KeyStroke> tap(int key)
{
    return {{key, 0}, {key, 1}};
}

// Soft keyboard names with no character of their own, typed as the key they are labelled with.
int keyForSoftKeyName(const QString &name)
{
    static const struct
    {
        const char *name;
        int key;
    } names[] = {
        {"ESC", Qt::Key_Escape},      {"CAPS_LOCK", Qt::Key_CapsLock},
        {"UP_ARROW", Qt::Key_Up},     {"DOWN_ARROW", Qt::Key_Down},
        {"LEFT_ARROW", Qt::Key_Left}, {"RIGHT_ARROW", Qt::Key_Right},
    };
    for (const auto &entry : names) {
        if (name == QLatin1String(entry.name))
            return entry.key;
    }
    if (name.size() >= 2 && name.size() <= 3 && name.startsWith(QLatin1Char('F'))) {
        bool ok = false;
        const int number = name.mid(1).toInt(&ok);
        if (ok && number >= 1 && number <= 12 && !name.mid(1).startsWith(QLatin1Char('0')))
            return Qt::Key_F1 + number - 1;
    }
    return 0;
}

} // namespace

QList<KeyStroke> namedInputStrokes(const QString &input)
{
    if (input.size() == 1) {
        // The soft keyboard's Backspace and Tab buttons emit their control characters, which
        // name no key of their own.
        switch (input.at(0).unicode()) {
        case u'\b':
            return tap(Qt::Key_Backspace);
        case u'\t':
            return tap(Qt::Key_Tab);
        default:
            return tap(input.at(0).unicode());
        }
    }
    if (input == QLatin1String("Enter"))
        return tap(Qt::Key_Return);
    if (input == QLatin1String("Space"))
        return tap(Qt::Key_Space);
    if (input == QLatin1String("Backspace"))
        return tap(Qt::Key_Backspace);
    if (input == QLatin1String("Tab"))
        return tap(Qt::Key_Tab);
    if (input == QLatin1String("fn+esc"))
        return {
            {Qt::Key_Control, 0}, {Qt::Key_Escape, 0}, {Qt::Key_Escape, 1}, {Qt::Key_Control, 1}};
    if (const int key = keyForSoftKeyName(input))
        return tap(key);
    return {};
}

const QList<PacedKeyStep> &ctrlAltDelSequence()
{
    static const QList<PacedKeyStep> steps = {
        {"[Keyboard] Step 1: Ctrl按下", {Qt::Key_Meta, 0}, 10},
        {"[Keyboard] Step 2: Alt按下", {Qt::Key_Alt, 0}, 10},
        {"[Keyboard] Step 3: Del按下", {Qt::Key_Delete, 0}, 20},
        {"[Keyboard] Step 4: Del释放", {Qt::Key_Delete, 1}, 10},
        {"[Keyboard] Step 5: Alt释放", {Qt::Key_Alt, 1}, 10},
        {"[Keyboard] Step 6: Ctrl释放（全部clear）", {Qt::Key_Meta, 1}, 0},
    };
    return steps;
}

PasteKey classifyPasteCharacter(char16_t unit)
{
    if (unit >= u'a' && unit <= u'z')
        return {int(unit) - 0x20, false, true};
    if (unit >= u'A' && unit <= u'Z')
        return {int(unit), true, true};
    // The encoder's own table of shifted characters (US layout): the key typed with Shift.
    const int unshifted = get_shift_origin_val(unit);
    if (unshifted >= 0)
        return {unshifted, true, true};
    for (const char16_t plain : kPlainPunctuation) {
        if (plain == unit)
            return {int(unit), false, true};
    }
    if (unit >= u'0' && unit <= u'9')
        return {int(unit), false, true};
    return {};
}

QString pastePreview(const QString &text)
{
    return text.left(kPastePreviewUnits);
}
