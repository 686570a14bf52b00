#include "serial/portrules.h"

#include <QDebug>
#include <QStringList>

PortPlatform currentPortPlatform()
{
#ifdef Q_OS_MACOS
    return PortPlatform::MacOS;
#else
    return PortPlatform::Linux;
#endif
}

bool portNameQualifies(const QString &name, PortPlatform platform)
{
    if (platform == PortPlatform::MacOS) {
        const bool prefix =
            name.startsWith(QLatin1String("tty.")) || name.startsWith(QLatin1String("cu."));
        return prefix && (name.contains(QLatin1String("usbserial")) ||
                          name.contains(QLatin1String("usbmodem")));
    }
    return name.startsWith(QLatin1String("ttyACM")) || name.startsWith(QLatin1String("ttyUSB"));
}

bool isPortListPlaceholder(const QString &text)
{
    static const QStringList placeholders = {
        QStringLiteral("No COM ports with SERIAL found"),
        QStringLiteral("No serial ports available"),
        QStringLiteral("Error: Serial port enumeration timeout"),
        QStringLiteral("Error: Failed to get serial ports"),
        QStringLiteral("Error: Unknown error getting serial ports"),
        QStringLiteral("正在搜索串口..."),
        QStringLiteral("未找到COM串口设备"),
        QStringLiteral("未找到tty串口设备"),
        QStringLiteral("未找到串口设备"),
        QStringLiteral("获取串口列表失败"),
        QStringLiteral("获取串口列表时发生未知错误"),
        QStringLiteral("请选择串口"),
        QStringLiteral("串口已断开"),
    };
    return placeholders.contains(text);
}

bool isValidPortText(const QString &text, PortPlatform platform,
                     const QList<SerialPortEntry> &declared)
{
    if (text.isEmpty() || isPortListPlaceholder(text))
        return false;
    const int cut = text.indexOf(QLatin1String(" ("));
    const QString name = cut >= 1 ? text.left(cut) : text;
    if (portNameQualifies(name, platform))
        return true;
    for (const SerialPortEntry &port : declared) {
        if (port.name == name)
            return true;
    }
    return false;
}

namespace {

bool carriesTkCdcMarker(const QString &text)
{
    return text.contains(QLatin1String("TK CDC"), Qt::CaseInsensitive);
}

// On Linux the description is the USB product string; a box may carry the marker only in its
// CDC interface's own name, which is then what the lists show and the search finds.
QString shownDescription(const SerialPortEntry &port)
{
    if (!carriesTkCdcMarker(port.description) && carriesTkCdcMarker(port.interfaceName))
        return port.interfaceName;
    return port.description;
}

} // namespace

QString formatPortDisplayItem(const SerialPortEntry &port)
{
    const QString description = shownDescription(port);
    if (description.isEmpty())
        return port.name;
    QString item = port.name + QStringLiteral(" (") + description;
    if (!port.manufacturer.isEmpty())
        item += QStringLiteral(" - ") + port.manufacturer;
    if (!port.serialNumber.isEmpty())
        item += QStringLiteral(" - ") + port.serialNumber;
    return item + QLatin1Char(')');
}

QString purePortNameFromDisplayItem(const QString &item)
{
    const int cut = item.indexOf(QLatin1String(" ("));
    return (cut >= 1 ? item.left(cut) : item).trimmed();
}

QString firstTkCdcPortName(const QStringList &displayItems)
{
    for (const QString &item : displayItems) {
        if (carriesTkCdcMarker(item))
            return purePortNameFromDisplayItem(item);
    }
    return QString();
}

QList<SerialPortEntry> parseDeclaredSerialPorts(const QString &value)
{
    QList<SerialPortEntry> ports;
    const QStringList entries = value.split(QLatin1Char(';'), Qt::SkipEmptyParts);
    for (const QString &entry : entries) {
        if (entry.trimmed().isEmpty())
            continue;
        const int eq = entry.indexOf(QLatin1Char('='));
        SerialPortEntry port;
        port.name = (eq < 0 ? entry : entry.left(eq)).trimmed();
        port.description = eq < 0 ? QString() : entry.mid(eq + 1).trimmed();
        port.declared = true;
        if (port.name.isEmpty()) {
            qWarning().noquote() << "[UartManager] 忽略无效的串口声明(缺少路径):" << entry;
            continue;
        }
        ports.append(port);
    }
    return ports;
}
