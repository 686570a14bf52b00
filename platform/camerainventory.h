#pragma once

#include <QList>
#include <QString>

// The system's own list of capture cameras, for the log only.
struct SystemCamera
{
    QString name;     // localised name (macOS) or V4L2 card name (Linux)
    QString uniqueId; // unique id (macOS) or device node "/dev/videoN" (Linux)
};

// macOS: AVFoundation video devices. Linux: the first V4L2 node of each device (the one that
// captures), named from sysfs without opening it.
QList<SystemCamera> systemCameraInventory();

// The same over another system folder (Linux: a sysfs root), so that tests can point it at one
// they made.
QList<SystemCamera> systemCameraInventoryIn(const QString &systemDir);
