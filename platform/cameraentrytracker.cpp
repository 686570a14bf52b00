#include "platform/cameraentrytracker.h"

#include <algorithm>

QList<int> CameraEntryTracker::update(const QList<ListedCameraEntry> &listed,
                                      const QList<LiveCameraDevice> &live)
{
    QSet<QByteArray> listedIds;
    for (const ListedCameraEntry &entry : listed)
        listedIds.insert(entry.id);
    for (auto it = m_entryDevice.begin(); it != m_entryDevice.end();) {
        if (listedIds.contains(it.key()))
            ++it;
        else
            it = m_entryDevice.erase(it);
    }
    assignNewEntries(listed, live);
    m_seenDevices.clear();
    for (const LiveCameraDevice &device : live) {
        m_seenDevices.insert(device.key);
        m_descriptionsSeen.insert(device.description);
    }
    m_started = true;

    QHash<quintptr, int> liveIndex;
    for (int i = 0; i < live.size(); ++i)
        liveIndex.insert(live[i].key, i);
    QList<int> shown(listed.size(), Unknown);
    QHash<int, int> shownByEntry; // live index -> position in `listed` of the newest entry
    for (int i = 0; i < listed.size(); ++i) {
        const auto assigned = m_entryDevice.constFind(listed[i].id);
        if (assigned == m_entryDevice.cend())
            continue;
        const int device = liveIndex.value(assigned.value(), -1);
        if (device < 0) {
            shown[i] = Hidden;
            continue;
        }
        if (shownByEntry.contains(device))
            shown[shownByEntry.value(device)] = Hidden;
        shownByEntry.insert(device, i);
        shown[i] = device;
    }
    return shown;
}

void CameraEntryTracker::assignNewEntries(const QList<ListedCameraEntry> &listed,
                                          const QList<LiveCameraDevice> &live)
{
    QSet<quintptr> listedDevices; // devices some entry already shows
    for (const quintptr key : std::as_const(m_entryDevice))
        listedDevices.insert(key);
    QHash<QString, QList<quintptr>> all, shown, unlisted;
    for (const LiveCameraDevice &device : live) {
        all[device.description].append(device.key);
        (listedDevices.contains(device.key) ? shown : unlisted)[device.description].append(
            device.key);
    }
    QHash<QString, QList<QByteArray>> newEntries; // per description, in list order
    QStringList descriptions;                     // in order of first new entry
    for (const ListedCameraEntry &entry : listed) {
        if (m_entryDevice.contains(entry.id))
            continue;
        if (!newEntries.contains(entry.description))
            descriptions.append(entry.description);
        newEntries[entry.description].append(entry.id);
    }
    for (const QString &description : std::as_const(descriptions)) {
        const QList<QByteArray> &ids = newEntries[description];
        const QList<quintptr> devices = all.value(description);
        if (devices.isEmpty()) {
            // A device of a description seen before that is gone already; of a description
            // never seen, the entry stays unknown.
            if (m_descriptionsSeen.contains(description)) {
                for (const QByteArray &id : ids)
                    m_entryDevice.insert(id, 0);
            }
            continue;
        }
        if (!m_started) {
            // The monitor's list, then the announcements of the same devices.
            for (int j = 0; j < ids.size(); ++j)
                m_entryDevice.insert(ids[j], devices[j % devices.size()]);
            continue;
        }
        // Late announcements of devices listed already come first, then one entry per device
        // that appeared since (a provider lists a device before the toolkit hears of it).
        const QList<quintptr> waiting = unlisted.value(description);
        const QList<quintptr> announced = shown.value(description);
        const int lateAnnouncements = std::max(0, int(ids.size() - waiting.size()));
        for (int j = 0; j < ids.size(); ++j) {
            if (j >= lateAnnouncements)
                m_entryDevice.insert(ids[j], waiting[j - lateAnnouncements]);
            else
                m_entryDevice.insert(ids[j],
                                     announced.isEmpty() ? 0 : announced[j % announced.size()]);
        }
    }
}

QSet<quintptr> CameraEntryTracker::referencedKeys() const
{
    QSet<quintptr> keys = m_seenDevices;
    for (const quintptr key : m_entryDevice) {
        if (key != 0)
            keys.insert(key);
    }
    return keys;
}
