#include <QMetaObject>

#include "platform/permissions.h"

// Linux has no camera or microphone privacy permission: access is governed by device file
// permissions, which opening the device reports by itself.
MediaPermissionStatus mediaPermissionStatus(MediaPermission)
{
    return MediaPermissionStatus::Granted;
}

void requestMediaPermission(MediaPermission, QObject *context,
                            std::function<void(MediaPermissionStatus)> done)
{
    if (!context || !done)
        return;
    QMetaObject::invokeMethod(
        context, [done = std::move(done)] { done(MediaPermissionStatus::Granted); },
        Qt::QueuedConnection);
}
