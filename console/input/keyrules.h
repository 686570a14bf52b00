#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <Qt>

#include "console/input/keysequences.h"

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

// The toolkit keys of the modifiers an event says are held, in the order Shift, Control, Alt,
// Meta (before the platform's mapping).
QList<int> modifierKeysHeld(Qt::KeyboardModifiers modifiers);

// Who a key event is from, across its press and release: the platform's physical key when the
// event names one, else its toolkit key (synthesized events).
quint64 physicalKeyOf(quint32 platformKeyId, int toolkitKey);

// The operator's key events as the target should see them: one press and one release for each
// time a physical key goes down, whatever the toolkit reports in between.
// - A release lets go of what the same physical key's press sent, not of its own key code (with
//   Shift let go first, a non-US layout names the key differently on its release).
// - Repeats send nothing; the target repeats a held key by itself. Repeats are presses flagged
//   as auto-repeat, presses of a key already down, and the release/press pairs of one
//   timestamp that X11 makes of them, flagged or not. Where releases may be such a half
//   (deferReleases), a release with a timestamp is held back until the next event or flush().
class OperatorKeys
{
public:
    struct Event
    {
        bool press = true;
        quint64 physicalKey = 0;
        int key = 0;           // the encoder's key code for this event
        quint64 timestamp = 0; // ms; 0 when unknown, and then never half of a pair
        bool autoRepeat = false;
    };

    explicit OperatorKeys(bool deferReleases = false) : m_deferReleases(deferReleases) {}

    // The strokes to send for `event` now, in order.
    QList<KeyStroke> handle(const Event &event);
    // The release held back, now that no press of the same instant followed; empty when none.
    QList<KeyStroke> flush();
    bool hasPendingRelease() const { return m_pending.physicalKey != 0; }
    // Forgets every key; letting go of them on the target is the caller's business.
    void clear();

private:
    struct Down
    {
        quint64 physicalKey = 0;
        int key = 0;
    };
    struct Pending
    {
        quint64 physicalKey = 0; // 0: nothing held back
        quint64 timestamp = 0;
    };
    int indexOf(quint64 physicalKey) const;

    bool m_deferReleases;
    QList<Down> m_down; // in the order they went down
    Pending m_pending;  // its key is still in m_down
};
