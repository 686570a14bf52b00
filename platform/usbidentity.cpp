#include "platform/usbidentity.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>

namespace {

QString readSysfsValue(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromUtf8(file.readAll()).trimmed();
}

QString portText(const QString &port)
{
    // Topology paths start with the bus name; the camera rules must not read it as a name.
    return port.startsWith(QLatin1String("usb-")) ? port.mid(4) : port;
}

QByteArray identityText(const UsbCameraFacts &facts, bool withPort)
{
    const QString vendor = normalizedUsbId(facts.vendorId);
    const QString product = normalizedUsbId(facts.productId);
    if (vendor.isEmpty() || product.isEmpty())
        return QByteArray();
    QString text = QStringLiteral("vid_%1&pid_%2").arg(vendor, product);
    if (!facts.serial.isEmpty())
        text += QStringLiteral("&sn_") + facts.serial;
    if ((withPort || facts.serial.isEmpty()) && !facts.port.isEmpty())
        text += QStringLiteral("&port_") + portText(facts.port);
    return text.toUtf8();
}

} // namespace

QByteArray usbIdentityText(const UsbCameraFacts &facts)
{
    return identityText(facts, false);
}

QList<QByteArray> usbIdentityTexts(const QList<UsbCameraFacts> &cameras)
{
    QList<QByteArray> identities;
    QHash<QByteArray, int> uses;
    for (const UsbCameraFacts &facts : cameras) {
        identities.append(identityText(facts, false));
        if (!identities.last().isEmpty())
            ++uses[identities.last()];
    }
    for (int i = 0; i < cameras.size(); ++i) {
        if (uses.value(identities[i]) > 1)
            identities[i] = identityText(cameras[i], true);
    }
    return identities;
}

QString normalizedUsbId(const QString &text)
{
    QString id = text.trimmed().toLower();
    if (id.startsWith(QLatin1String("0x")))
        id.remove(0, 2);
    if (id.isEmpty() || id.size() > 4)
        return QString();
    for (const QChar c : std::as_const(id)) {
        if (!c.isDigit() && (c < QLatin1Char('a') || c > QLatin1Char('f')))
            return QString();
    }
    return id.rightJustified(4, QLatin1Char('0'));
}

UsbCameraFacts usbFactsFromSysfs(const QString &deviceNode, const QString &sysRoot)
{
    const QString node = QFileInfo(deviceNode).fileName();
    if (node.isEmpty())
        return {};
    const QString link =
        sysRoot + QStringLiteral("/class/video4linux/") + node + QStringLiteral("/device");
    QString dir = QFileInfo(link).canonicalFilePath();
    const QString root = QFileInfo(sysRoot).canonicalFilePath();
    // The link names the USB interface; its parent directories lead to the USB device, which
    // is the first one holding idVendor and idProduct.
    while (!dir.isEmpty() && dir != root && dir != QLatin1String("/")) {
        if (QFileInfo::exists(dir + QStringLiteral("/idVendor")) &&
            QFileInfo::exists(dir + QStringLiteral("/idProduct"))) {
            UsbCameraFacts facts;
            facts.vendorId = readSysfsValue(dir + QStringLiteral("/idVendor")).toLower();
            facts.productId = readSysfsValue(dir + QStringLiteral("/idProduct")).toLower();
            facts.serial = readSysfsValue(dir + QStringLiteral("/serial"));
            facts.port = QFileInfo(dir).fileName();
            if (facts.vendorId.isEmpty() || facts.productId.isEmpty())
                return {};
            return facts;
        }
        dir = QFileInfo(dir).path();
    }
    return {};
}

QByteArray fallbackIdentityText(const QString &description, int counter)
{
    return (description + QLatin1Char('#') + QString::number(counter)).toUtf8();
}
