#include "console/input/keysequences.h"

#include <Qt>

namespace {

constexpr int kPastePreviewUnits = 100;

// Shifted character -> the key that types it with Shift, searched in order.
constexpr int kShiftedCharacters[][2] = {
    {0x7E, 0x60}, {0x21, 0x31}, {0x40, 0x32}, {0x23, 0x33},           {0x24, 0x34}, {0x25, 0x35},
    {0x5E, 0x36}, {0x26, 0x37}, {0x2A, 0x38}, {0x28, 0x39},           {0x29, 0x30}, {0x5F, 0x2D},
    {0x2B, 0x3D}, {0x7B, 0x5B}, {0x7D, 0x5D}, {0x7C, 0x5C},           {0x3A, 0x3B}, {0x22, 0x27},
    {0x3C, 0x2C}, {0x3E, 0x2E}, {0x3F, 0x2F}, {0x0A, Qt::Key_Return},
};

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
    if (input.size() == 1)
        return tap(input.at(0).unicode());
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
    for (const auto &entry : kShiftedCharacters) {
        if (entry[0] == unit)
            return {entry[1], true, true};
    }
    for (const char16_t plain : kPlainPunctuation) {
        if (plain == unit)
            return {int(unit), false, true};
    }
    if (unit >= u'0' && unit <= u'9')
        return {int(unit), false, true};
    return {};
}

QList<KeyStroke> pasteStrokes(const QString &text)
{
    QList<KeyStroke> strokes{{Qt::Key_Meta, 1}};
    for (const QChar c : text) {
        const PasteKey paste = classifyPasteCharacter(c.unicode());
        if (!paste.supported)
            continue;
        if (paste.shift)
            strokes.append({Qt::Key_Shift, 0});
        strokes.append(tap(paste.key));
        if (paste.shift)
            strokes.append({Qt::Key_Shift, 1});
    }
    return strokes;
}

QString pastePreview(const QString &text)
{
    return text.left(kPastePreviewUnits);
}
