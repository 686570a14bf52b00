// Camera identity on Linux. Qt's GStreamer back end lists the devices of its own device monitor
// and numbers them; the device providers behind it are shared by the whole process, so asking
// them here gives the same device objects. Which device each of Qt's entries shows is followed
// by CameraEntryTracker (Qt may list a device twice and keep entries of devices that are gone);
// each device's identity comes from its USB facts, read once per device.
#include <QDebug>
#include <QMediaDevices>
#include <QSet>

#include <gst/gst.h>

#include <algorithm>
#include <climits>

#include "platform/cameraentrytracker.h"
#include "platform/cameraidentity.h"
#include "platform/usbidentity.h"

namespace {

struct KnownDevice
{
    GstDevice *device = nullptr; // holds a reference
    QString description;
    UsbCameraFacts facts; // empty when the device carries no USB facts
};

QString propertyText(const GstStructure *properties, const char *name)
{
    if (!properties || !gst_structure_has_field(properties, name))
        return QString();
    if (const gchar *value = gst_structure_get_string(properties, name))
        return QString::fromUtf8(value);
    // Some providers give ids as numbers.
    int number = 0;
    if (gst_structure_get_int(properties, name, &number))
        return QString::number(number, 16);
    guint unsignedNumber = 0;
    if (gst_structure_get_uint(properties, name, &unsignedNumber))
        return QString::number(unsignedNumber, 16);
    return QString();
}

UsbCameraFacts factsOf(GstDevice *device)
{
    GstStructure *properties = gst_device_get_properties(device);
    if (!properties)
        return {};
    UsbCameraFacts facts;
    const QString path = propertyText(properties, "device.path");
    if (path.startsWith(QLatin1String("/dev/video")))
        facts = usbFactsFromSysfs(path);
    if (facts.vendorId.isEmpty()) {
        facts.vendorId = normalizedUsbId(propertyText(properties, "device.vendor.id"));
        facts.productId = normalizedUsbId(propertyText(properties, "device.product.id"));
        facts.serial = propertyText(properties, "device.serial");
        facts.port = propertyText(properties, "device.bus_path");
    }
    gst_structure_free(properties);
    return facts;
}

// The video device providers' devices, and which of Qt's entries shows which.
class DeviceRegistry
{
public:
    static DeviceRegistry &instance()
    {
        static DeviceRegistry registry;
        return registry;
    }

    QList<IdentifiedCamera> identify()
    {
        const QList<QCameraDevice> entries = QMediaDevices::videoInputs();
        const QList<GstDevice *> current = m_ready ? currentDevices() : QList<GstDevice *>();
        QList<LiveCameraDevice> live;
        for (GstDevice *device : current) {
            const auto key = quintptr(device);
            if (m_known.contains(key)) {
                gst_object_unref(device);
            } else {
                KnownDevice known;
                known.device = device; // keeps the reference taken by the provider's list
                gchar *name = gst_device_get_display_name(device);
                known.description = QString::fromUtf8(name);
                g_free(name);
                known.facts = factsOf(device);
                qDebug().noquote() << "[CameraIdentity] 摄像头标识:" << known.description << "->"
                                   << QString::fromUtf8(usbIdentityText(known.facts));
                m_known.insert(key, known);
            }
            live.append({key, m_known.value(key).description});
        }

        QList<ListedCameraEntry> listed;
        for (const QCameraDevice &entry : entries)
            listed.append({entry.id(), entry.description()});
        const QList<int> shown = m_tracker.update(listed, live);
        forgetUnreferencedDevices();

        // In the providers' order, not Qt's: Qt appends a late announcement of a device it
        // listed already, which would move that camera behind the others between two calls.
        QList<int> order;
        for (int i = 0; i < entries.size(); ++i) {
            if (shown[i] == CameraEntryTracker::Hidden)
                reportHiddenOnce(entries[i]);
            else
                order.append(i);
        }
        std::stable_sort(order.begin(), order.end(), [&shown](int a, int b) {
            const auto rank = [](int device) { return device >= 0 ? device : INT_MAX; };
            return rank(shown[a]) < rank(shown[b]);
        });
        QList<QCameraDevice> devices;
        QList<UsbCameraFacts> facts;
        for (int i : order) {
            devices.append(entries[i]);
            facts.append(shown[i] >= 0 ? m_known.value(live[shown[i]].key).facts
                                       : UsbCameraFacts());
        }
        const QList<QByteArray> identities = usbIdentityTexts(facts);
        QHash<QString, int> fallbackCounters;
        QList<IdentifiedCamera> cameras;
        for (int i = 0; i < devices.size(); ++i) {
            QByteArray identity = identities[i];
            if (identity.isEmpty()) {
                const QString description = devices[i].description();
                identity = fallbackIdentityText(description, fallbackCounters[description]++);
                reportFallbackOnce(identity);
            }
            cameras.append({devices[i], identity});
        }
        return cameras;
    }

private:
    DeviceRegistry()
    {
        GError *error = nullptr;
        m_ready = gst_init_check(nullptr, nullptr, &error);
        if (!m_ready) {
            qWarning().noquote() << "[CameraIdentity] GStreamer 初始化失败:"
                                 << (error ? error->message : "");
            g_clear_error(&error);
        }
    }

    void forgetUnreferencedDevices()
    {
        const QSet<quintptr> referenced = m_tracker.referencedKeys();
        for (auto it = m_known.begin(); it != m_known.end();) {
            if (referenced.contains(it.key())) {
                ++it;
                continue;
            }
            gst_object_unref(it.value().device);
            it = m_known.erase(it);
        }
    }

    void reportHiddenOnce(const QCameraDevice &entry)
    {
        if (m_reportedHidden.contains(entry.id()))
            return;
        m_reportedHidden.insert(entry.id());
        qDebug().noquote() << "[CameraIdentity] 忽略重复或已拔出设备的摄像头条目:"
                           << entry.description() << "ID:" << QString::fromUtf8(entry.id());
    }

    void reportFallbackOnce(const QByteArray &identity)
    {
        if (m_reportedFallbacks.contains(identity))
            return;
        m_reportedFallbacks.insert(identity);
        qWarning().noquote() << "[CameraIdentity] 无法确定摄像头的USB标识，改用名称与序号:"
                             << QString::fromUtf8(identity);
    }

    // The devices of every video source provider, each with a reference, leaving out providers
    // that another one hides (as a device monitor does: PipeWire's hides V4L2's). The providers
    // are process-wide, and Qt's device monitor has started them, so these are the very device
    // objects Qt lists. (A monitor of our own must not be started: on GStreamer 1.22 that stops
    // Qt's monitor from hearing about cameras plugged in later.)
    static QList<GstDevice *> currentDevices()
    {
        QList<GstDeviceProvider *> providers;
        QSet<QString> hidden;
        GList *factories = gst_device_provider_factory_list_get_device_providers(GST_RANK_NONE);
        for (GList *item = factories; item; item = item->next) {
            auto *factory = GST_DEVICE_PROVIDER_FACTORY(item->data);
            if (!gst_device_provider_factory_has_classes(factory, "Video/Source"))
                continue;
            GstDeviceProvider *provider = gst_device_provider_factory_get(factory);
            if (!provider)
                continue;
            providers.append(provider);
            gchar **names = gst_device_provider_get_hidden_providers(provider);
            for (gchar **name = names; name && *name; ++name)
                hidden.insert(QString::fromUtf8(*name));
            g_strfreev(names);
        }
        gst_plugin_feature_list_free(factories);

        QList<GstDevice *> devices;
        for (GstDeviceProvider *provider : std::as_const(providers)) {
            GstDeviceProviderFactory *factory = gst_device_provider_get_factory(provider);
            const bool isHidden =
                factory && hidden.contains(QString::fromUtf8(GST_OBJECT_NAME(factory)));
            if (!isHidden) {
                GList *list = gst_device_provider_get_devices(provider);
                for (GList *d = list; d; d = d->next) {
                    auto *device = GST_DEVICE(d->data);
                    if (gst_device_has_classes(device, "Video/Source"))
                        devices.append(device);
                    else
                        gst_object_unref(device);
                }
                g_list_free(list);
            }
            gst_object_unref(provider);
        }
        return devices;
    }

    bool m_ready = false;
    QHash<quintptr, KnownDevice> m_known; // live devices and those the tracker still refers to
    CameraEntryTracker m_tracker;
    QSet<QByteArray> m_reportedHidden;
    QSet<QByteArray> m_reportedFallbacks;
};

} // namespace

QList<IdentifiedCamera> identifiedVideoInputs()
{
    return DeviceRegistry::instance().identify();
}

QByteArray cameraIdentity(const QCameraDevice &device)
{
    return identityIn(identifiedVideoInputs(), device);
}

QCameraDevice findCameraByIdentity(const QByteArray &identity)
{
    return identity.isEmpty() ? QCameraDevice()
                              : cameraWithIdentity(identifiedVideoInputs(), identity);
}
