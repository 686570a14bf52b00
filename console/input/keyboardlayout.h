#pragma once

#include <QHash>
#include <QString>
#include <QStringList>
#include <QVector>

#include <memory>

// HID modifier bits of a keyboard report that typing uses.
constexpr quint8 kHidLeftShift = 0x02;
constexpr quint8 kHidRightAlt = 0x40; // AltGr on layouts that have it

// One key of a typed character: a HID keyboard usage pressed with modifier bits held.
struct LayoutStroke
{
    quint8 usage = 0;
    quint8 modifiers = 0;
    bool operator==(const LayoutStroke &other) const
    {
        return usage == other.usage && modifiers == other.modifiers;
    }
};

// What a key does on a target with this layout.
struct LayoutKeyResult
{
    enum Kind { Nothing, Character, DeadKey };
    Kind kind = Nothing;
    char32_t character = 0; // Character: what it types; DeadKey: its spacing form ('^' for
                            // dead circumflex), typed when the next key is Space
};

// A target's keyboard layout compiled from the system's XKB data (libxkbcommon, xkb-data), and
// its inversion: for each character, the key and modifiers that produce it. Plain data once
// compiled; copies share the tables.
class KeyboardLayout
{
public:
    // The layouts a box can be set to, as stored ("us", "gb", "de", "fr", "ch(de)").
    static QStringList knownLayouts();
    // The name shown for a stored layout ("English (US)", "German", ...); the code itself for
    // unknown ones.
    static QString displayName(const QString &code);

    // Compiles "layout" or "layout(variant)" with the pc105 model. False with `error` when the
    // XKB data lacks it; `out` is left unchanged then.
    static bool compile(const QString &code, KeyboardLayout &out, QString &error);

    bool isValid() const { return m_tables != nullptr; }
    QString code() const;

    // The strokes that type `c`: one key, or a dead key followed by Space for a character the
    // layout only has as a dead key. '\n' is Return and '\t' is Tab on every layout. False when
    // the layout cannot type `c`.
    bool strokesFor(char32_t c, QVector<LayoutStroke> &out) const;

    // What pressing `usage` with `modifiers` types (Caps Lock as given); for the simulated
    // target, which decodes on the same layout.
    LayoutKeyResult keyResult(quint8 usage, quint8 modifiers, bool capsLock) const;

private:
    struct Tables;
    std::shared_ptr<const Tables> m_tables;
};
