// Camera identity on Linux. Qt's GStreamer back end lists the devices of its own device monitor
// and numbers them; the device providers behind it are shared by the whole process, so asking
// them here gives the same device objects. Qt's list and ours are paired by display
// name, in the order the devices appeared, and each device's identity comes from its USB facts.
#include <QDebug>
#include <QMediaDevices>
#include <QSet>

#include <gst/gst.h>

#include "platform/cameraidentity.h"
#include "platform/usbidentity.h"

namespace {

struct KnownDevice
{
    GstDevice *device = nullptr; // holds a reference
    QString description;
    QByteArray identity; // empty when the device carries no USB facts
};

QString propertyText(const GstStructure *properties, const char *name)
{
    const gchar *value = properties ? gst_structure_get_string(properties, name) : nullptr;
    return value ? QString::fromUtf8(value) : QString();
}

QByteArray identityOf(GstDevice *device)
{
    GstStructure *properties = gst_device_get_properties(device);
    if (!properties)
        return QByteArray();
    UsbCameraFacts facts;
    const QString path = propertyText(properties, "device.path");
    if (path.startsWith(QLatin1String("/dev/video")))
        facts = usbFactsFromSysfs(path);
    if (facts.vendorId.isEmpty()) {
        facts.vendorId = propertyText(properties, "device.vendor.id").toLower();
        facts.productId = propertyText(properties, "device.product.id").toLower();
        facts.serial = propertyText(properties, "device.serial");
        facts.port = propertyText(properties, "device.bus_path");
    }
    gst_structure_free(properties);
    return usbIdentityText(facts);
}

// The video device providers' devices, in the order they appeared.
class DeviceRegistry
{
public:
    static DeviceRegistry &instance()
    {
        static DeviceRegistry registry;
        return registry;
    }

    // Brings the known list up to date with the providers and returns it.
    const QList<KnownDevice> &refresh()
    {
        if (!m_ready)
            return m_known;
        QList<GstDevice *> current = currentDevices();
        for (int i = m_known.size() - 1; i >= 0; --i) {
            if (!current.contains(m_known[i].device)) {
                gst_object_unref(m_known[i].device);
                m_known.removeAt(i);
            }
        }
        for (GstDevice *device : std::as_const(current)) {
            const bool seen =
                std::any_of(m_known.cbegin(), m_known.cend(),
                            [device](const KnownDevice &k) { return k.device == device; });
            if (seen) {
                gst_object_unref(device);
                continue;
            }
            KnownDevice known;
            known.device = device; // keeps the reference taken by the provider's list
            gchar *name = gst_device_get_display_name(device);
            known.description = QString::fromUtf8(name);
            g_free(name);
            known.identity = identityOf(device);
            qDebug().noquote() << "[CameraIdentity] 摄像头标识:" << known.description << "->"
                               << QString::fromUtf8(known.identity);
            m_known.append(known);
        }
        return m_known;
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

    // The devices of every video source provider, each with a reference. The providers are
    // process-wide, and Qt's device monitor has started them, so these are the very device
    // objects Qt lists. (A monitor of our own must not be started: on GStreamer 1.22 that
    // stops Qt's monitor from hearing about cameras plugged in later.)
    static QList<GstDevice *> currentDevices()
    {
        QList<GstDevice *> devices;
        GList *factories = gst_device_provider_factory_list_get_device_providers(GST_RANK_NONE);
        for (GList *item = factories; item; item = item->next) {
            auto *factory = GST_DEVICE_PROVIDER_FACTORY(item->data);
            if (!gst_device_provider_factory_has_classes(factory, "Video/Source"))
                continue;
            GstDeviceProvider *provider = gst_device_provider_factory_get(factory);
            if (!provider)
                continue;
            GList *list = gst_device_provider_get_devices(provider);
            for (GList *d = list; d; d = d->next) {
                auto *device = GST_DEVICE(d->data);
                if (gst_device_has_classes(device, "Video/Source"))
                    devices.append(device);
                else
                    gst_object_unref(device);
            }
            g_list_free(list);
            gst_object_unref(provider);
        }
        gst_plugin_feature_list_free(factories);
        return devices;
    }

    bool m_ready = false;
    QList<KnownDevice> m_known;
};

} // namespace

QList<IdentifiedCamera> identifiedVideoInputs()
{
    const QList<QCameraDevice> devices = QMediaDevices::videoInputs();
    const QList<KnownDevice> &known = DeviceRegistry::instance().refresh();

    QStringList listed;
    for (const QCameraDevice &device : devices)
        listed.append(device.description());
    QStringList knownDescriptions;
    for (const KnownDevice &k : known)
        knownDescriptions.append(k.description);
    const QList<int> matches = matchCamerasByDescription(listed, knownDescriptions);

    static QSet<QByteArray> reportedFallbacks;
    QList<IdentifiedCamera> cameras;
    for (int i = 0; i < devices.size(); ++i) {
        QByteArray identity = matches[i] >= 0 ? known[matches[i]].identity : QByteArray();
        if (identity.isEmpty()) {
            identity = fallbackIdentityText(devices[i].description(), i);
            if (!reportedFallbacks.contains(identity)) {
                reportedFallbacks.insert(identity);
                qWarning().noquote() << "[CameraIdentity] 无法确定摄像头的USB标识，改用名称与序号:"
                                     << QString::fromUtf8(identity);
            }
        }
        cameras.append({devices[i], identity});
    }
    return cameras;
}

QByteArray cameraIdentity(const QCameraDevice &device)
{
    const QList<IdentifiedCamera> cameras = identifiedVideoInputs();
    for (const IdentifiedCamera &camera : cameras) {
        if (camera.device == device)
            return camera.identity;
    }
    return QByteArray();
}

QCameraDevice findCameraByIdentity(const QByteArray &identity)
{
    if (identity.isEmpty())
        return QCameraDevice();
    const QList<IdentifiedCamera> cameras = identifiedVideoInputs();
    for (const IdentifiedCamera &camera : cameras) {
        if (camera.identity == identity)
            return camera.device;
    }
    return QCameraDevice();
}
