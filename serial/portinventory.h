#pragma once

#include <QList>

#include "serial/portrules.h"

// Every serial enumeration of the program goes through here: the system's ports in the order
// the serial module lists them, then the ports declared in TAVROKVM_EXTRA_SERIAL_PORTS whose
// device exists (a path, or a name under /dev).
// Synchronous; GUI thread.
QList<SerialPortEntry> enumerateSerialPorts();

// The ports declared in TAVROKVM_EXTRA_SERIAL_PORTS (read anew on every call).
QList<SerialPortEntry> declaredSerialPorts();

// Whether a name (or display item) names a port that can be a box on this system.
bool isValidSerialPortNameHere(const QString &name);

// The USB interface string of a tty node, read from
// <sysfsRoot>/class/tty/<portName>/device/interface and trimmed; "" when there is none or the
// name is not a bare node name.
QString ttyInterfaceName(const QString &sysfsRoot, const QString &portName);
// Fills the interface name of every enumerated (not declared) port from `sysfsRoot`.
void addInterfaceNames(QList<SerialPortEntry> &ports, const QString &sysfsRoot);
