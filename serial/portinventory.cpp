#include "serial/portinventory.h"

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
    ports.append(declaredSerialPorts());
    return ports;
}

bool isValidSerialPortNameHere(const QString &name)
{
    return isValidPortText(name, currentPortPlatform(), declaredSerialPorts());
}
