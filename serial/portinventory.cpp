#include "serial/portinventory.h"

#include <QFile>
#include <QFileInfo>
#include <QSerialPortInfo>

QList<SerialPortEntry> declaredSerialPorts()
{
    return parseDeclaredSerialPorts(qEnvironmentVariable("TAVROKVM_EXTRA_SERIAL_PORTS"));
}

QList<SerialPortEntry> enumerateSerialPorts()
{
    QList<SerialPortEntry> ports;
    const QList<QSerialPortInfo> infos = QSerialPortInfo::availablePorts();
    for (const QSerialPortInfo &info : infos) {
        SerialPortEntry port;
        port.name = info.portName();
        port.description = info.description();
        port.manufacturer = info.manufacturer();
        port.serialNumber = info.serialNumber();
        ports.append(port);
    }
    // The description is the USB product; the interface names itself only in sysfs.
    if (currentPortPlatform() == PortPlatform::Linux)
        addInterfaceNames(ports, QStringLiteral("/sys"));
    // A declared port is listed while its device exists, as a USB port is while plugged in.
    const QList<SerialPortEntry> declared = declaredSerialPorts();
    for (const SerialPortEntry &port : declared) {
        const QString path = port.name.startsWith(QLatin1Char('/'))
                                 ? port.name
                                 : QStringLiteral("/dev/") + port.name;
        if (QFileInfo::exists(path))
            ports.append(port);
    }
    return ports;
}

bool isValidSerialPortNameHere(const QString &name)
{
    return isValidPortText(name, currentPortPlatform(), declaredSerialPorts());
}

QString ttyInterfaceName(const QString &sysfsRoot, const QString &portName)
{
    if (portName.isEmpty() || portName.contains(QLatin1Char('/')) ||
        portName == QLatin1String(".") || portName == QLatin1String(".."))
        return QString();
    QFile file(sysfsRoot + QStringLiteral("/class/tty/") + portName +
               QStringLiteral("/device/interface"));
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    // A USB string descriptor holds at most 126 UTF-16 units, 378 bytes as UTF-8.
    return QString::fromUtf8(file.read(512)).trimmed();
}

void addInterfaceNames(QList<SerialPortEntry> &ports, const QString &sysfsRoot)
{
    for (SerialPortEntry &port : ports) {
        if (!port.declared)
            port.interfaceName = ttyInterfaceName(sysfsRoot, port.name);
    }
}
