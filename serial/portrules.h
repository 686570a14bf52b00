#pragma once

#include <QList>
#include <QString>
#include <QStringList>

// One serial port as the inventory sees it: enumerated by the system, or declared by the user.
struct SerialPortEntry
{
    QString name;        // what is shown, stored and opened ("ttyACM0", or a declared path)
    QString description; // USB product text; carries "TK CDC" for the box
    QString manufacturer;
    QString serialNumber;
    QString interfaceName; // the USB interface's own string (Linux: from sysfs); may be empty
    bool declared = false; // from TAVROKVM_EXTRA_SERIAL_PORTS: always qualifies
};

// Whose naming rule decides which ports can be a box: macOS lists "tty."/"cu." nodes of USB
// modems and serial adapters, Linux lists USB ACM and USB-serial nodes.
enum class PortPlatform { MacOS, Linux };

PortPlatform currentPortPlatform();

// Whether a bare port name can be a box's port on `platform`.
bool portNameQualifies(const QString &name, PortPlatform platform);

// Placeholder and status texts of port lists; never port names.
bool isPortListPlaceholder(const QString &text);

// Whether a pure name or display item names a qualifying port: not a placeholder, and the text
// before " (" (when it stands at position 1 or later) qualifies by `platform` or is declared.
bool isValidPortText(const QString &text, PortPlatform platform,
                     const QList<SerialPortEntry> &declared);

// "name (description - manufacturer - serial)"; a port without description shows its name.
// The interface name stands in for the description when only it carries "TK CDC".
QString formatPortDisplayItem(const SerialPortEntry &port);

// Text before the first " (", trimmed; the whole item trimmed when " (" is absent or first.
QString purePortNameFromDisplayItem(const QString &item);

// Pure name of the first display item that contains "TK CDC" in any letter case, or "".
QString firstTkCdcPortName(const QStringList &displayItems);

// Parses "PATH=DESCRIPTION;PATH=DESCRIPTION". Entries without a path are skipped with a
// warning; an entry without "=" is a path with no description.
QList<SerialPortEntry> parseDeclaredSerialPorts(const QString &value);
