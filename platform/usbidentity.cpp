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

} // namespace

QByteArray usbIdentityText(const UsbCameraFacts &facts)
{
    if (facts.vendorId.isEmpty() || facts.productId.isEmpty())
        return QByteArray();
    QString text =
        QStringLiteral("vid_%1&pid_%2").arg(facts.vendorId.toLower(), facts.productId.toLower());
    if (!facts.serial.isEmpty()) {
        text += QStringLiteral("&sn_") + facts.serial;
    } else if (!facts.port.isEmpty()) {
        QString port = facts.port;
        // Topology paths start with the bus name; the camera rules must not read it as a name.
        if (port.startsWith(QLatin1String("usb-")))
            port.remove(0, 4);
        text += QStringLiteral("&port_") + port;
    }
    return text.toUtf8();
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

QList<int> matchCamerasByDescription(const QStringList &listed, const QStringList &known)
{
    QHash<QString, QList<int>> knownByDescription;
    for (int i = 0; i < known.size(); ++i)
        knownByDescription[known[i]].append(i);
    QHash<QString, int> taken;
    QList<int> matches;
    matches.reserve(listed.size());
    for (const QString &description : listed) {
        const QList<int> candidates = knownByDescription.value(description);
        if (candidates.isEmpty()) {
            matches.append(-1);
            continue;
        }
        int &n = taken[description];
        matches.append(candidates[n % candidates.size()]);
        ++n;
    }
    return matches;
}
