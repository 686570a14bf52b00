#include "console/input/keyrules.h"

#include <QStringList>

namespace {

// The two system-logo keys the toolkit reports besides Key_Meta.
constexpr int kKeySuperLeft = 0x01000053;
constexpr int kKeySuperRight = 0x01000054;

bool isLogoKey(int key)
{
    return key == Qt::Key_Meta || key == kKeySuperLeft || key == kKeySuperRight;
}

} // namespace

QString recognizeSystemShortcut(int key, Qt::KeyboardModifiers modifiers)
{
    const bool control = modifiers & Qt::ControlModifier;
    const bool alt = modifiers & Qt::AltModifier;
    if (control && key == Qt::Key_Space)
        return QStringLiteral("Ctrl+Space");
    if ((modifiers & Qt::MetaModifier) && key == Qt::Key_Space)
        return QStringLiteral("Cmd+Space");
    if (alt && key == Qt::Key_Tab)
        return QStringLiteral("Alt+Tab");
    if (control && alt) {
        if (isLogoKey(key))
            return QStringLiteral("Windows/Cmd Key");
        if (key == Qt::Key_Delete)
            return QStringLiteral("Ctrl+Alt+Delete");
        return QString();
    }
    if (isLogoKey(key))
        return QStringLiteral("Windows/Cmd Key");
    return QString();
}

QString keyClassForLog(int key, bool formedShortcut)
{
    if (key >= Qt::Key_F1 && key <= Qt::Key_F35)
        return QStringLiteral("功能键");
    if (key >= 0x01000061 && key <= 0x0100011D)
        return QStringLiteral("多媒体键");
    if (key >= 0x01001250 && key <= 0x01001262)
        return QStringLiteral("Dead键");
    if ((key >= Qt::Key_Shift && key <= Qt::Key_Meta) || key == Qt::Key_AltGr)
        return QStringLiteral("修饰键");
    if (formedShortcut)
        return QStringLiteral("系统快捷键");
    return QString();
}

QString modifierNamesForLog(Qt::KeyboardModifiers modifiers)
{
    QStringList names;
    if (modifiers & Qt::ShiftModifier)
        names << QStringLiteral("Shift");
    if (modifiers & Qt::ControlModifier)
        names << QStringLiteral("Control");
    if (modifiers & Qt::AltModifier)
        names << QStringLiteral("Alt");
    if (modifiers & Qt::MetaModifier)
        names << QStringLiteral("Meta/Command");
    return names.join(QLatin1Char('+'));
}

QString hexBytesForLog(const QByteArray &data)
{
    return QString::fromLatin1(data.toHex(' ').toUpper());
}

bool isPasteShortcut(int key, Qt::KeyboardModifiers modifiers)
{
    const Qt::KeyboardModifiers chord = Qt::ControlModifier | Qt::AltModifier;
    const Qt::KeyboardModifiers considered = chord | Qt::ShiftModifier | Qt::MetaModifier;
    return key == Qt::Key_V && (modifiers & considered) == chord;
}

QList<int> modifierKeysHeld(Qt::KeyboardModifiers modifiers)
{
    QList<int> keys;
    if (modifiers & Qt::ShiftModifier)
        keys << Qt::Key_Shift;
    if (modifiers & Qt::ControlModifier)
        keys << Qt::Key_Control;
    if (modifiers & Qt::AltModifier)
        keys << Qt::Key_Alt;
    if (modifiers & Qt::MetaModifier)
        keys << Qt::Key_Meta;
    return keys;
}

quint64 physicalKeyOf(quint32 platformKeyId, int toolkitKey)
{
    // Toolkit keys live above every platform id.
    return platformKeyId != 0 ? platformKeyId : (quint64(1) << 32) | quint32(toolkitKey);
}

int OperatorKeys::indexOf(quint64 physicalKey) const
{
    for (int i = 0; i < m_down.size(); ++i) {
        if (m_down.at(i).physicalKey == physicalKey)
            return i;
    }
    return -1;
}

QList<KeyStroke> OperatorKeys::handle(const Event &event)
{
    if (hasPendingRelease() && event.press && event.physicalKey == m_pending.physicalKey &&
        event.timestamp == m_pending.timestamp) {
        m_pending = {}; // the pair's press: the key never went up
        return {};
    }
    QList<KeyStroke> strokes = flush();
    const int down = indexOf(event.physicalKey);
    if (event.press) {
        if (event.autoRepeat || down >= 0)
            return strokes;
        m_down.append({event.physicalKey, event.key});
        strokes.append({event.key, 0});
        return strokes;
    }
    if (event.autoRepeat)
        return strokes; // its press follows
    if (down < 0) {
        // Pressed before the view had the keyboard, or never sent: let go of what it names.
        strokes.append({event.key, 1});
        return strokes;
    }
    if (m_deferReleases && event.timestamp != 0) {
        m_pending = {event.physicalKey, event.timestamp};
        return strokes;
    }
    strokes.append({m_down.takeAt(down).key, 1});
    return strokes;
}

QList<KeyStroke> OperatorKeys::flush()
{
    if (!hasPendingRelease())
        return {};
    const int down = indexOf(m_pending.physicalKey);
    m_pending = {};
    if (down < 0)
        return {};
    return {{m_down.takeAt(down).key, 1}};
}

void OperatorKeys::clear()
{
    m_down.clear();
    m_pending = {};
}
