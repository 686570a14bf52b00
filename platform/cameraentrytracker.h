#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QSet>
#include <QString>

// One entry of the toolkit's camera list.
struct ListedCameraEntry
{
    QByteArray id; // the toolkit's id of the entry
    QString description;
};

// One device a platform provider lists now.
struct LiveCameraDevice
{
    quintptr key = 0; // identifies the device object while the caller keeps it alive
    QString description;
};

// Follows which device each entry of the toolkit's camera list shows.
//
// Qt 6.4's GStreamer back end appends an entry for every device it hears of, and a device present
// when its monitor starts is heard of twice (listed, then announced); on unplug it removes only
// the first entry of that device. So its list can show one device twice, and keep a stale entry
// for a device that is gone while the same box, plugged back, gets a new entry. The tracker
// mirrors those rules: at the first look the entries of a description cycle through its devices
// (listed, then announced); afterwards new entries go first to late announcements of devices
// some entry shows already, then to the devices no entry shows yet, in the provider's order.
class CameraEntryTracker
{
public:
    static constexpr int Hidden = -1;  // a stale entry, or an older entry of a shown device
    static constexpr int Unknown = -2; // no device of its description was ever live

    // Per entry of `listed` (the toolkit's order: oldest first), the index in `live` of the device
    // it shows, Hidden or Unknown. Each live device is shown by at most one entry: the newest.
    QList<int> update(const QList<ListedCameraEntry> &listed, const QList<LiveCameraDevice> &live);

    // Keys the tracker still refers to; the caller keeps those device objects alive, so that a
    // key is never reused by another device while the tracker knows it.
    QSet<quintptr> referencedKeys() const;

private:
    void assignNewEntries(const QList<ListedCameraEntry> &listed,
                          const QList<LiveCameraDevice> &live);

    QHash<QByteArray, quintptr> m_entryDevice; // entry id -> device key; 0: a device gone
    QSet<quintptr> m_seenDevices;              // live at the last update
    QSet<QString> m_descriptionsSeen;          // of any device ever live
    bool m_started = false;
};
