#include <QMetaObject>
#include <QtGlobal>

#include "platform/permissions.h"

// Linux has no camera or microphone privacy permission: access follows the device files'
// permissions, which opening the device reports by itself. Where the toolkit has a permission
// interface it is asked anyway, so that a sandbox adding one is honoured.

#if QT_VERSION >= QT_VERSION_CHECK(6, 5, 0)

#include "platform/qtpermissions_p.h"

MediaPermissionStatus mediaPermissionStatus(MediaPermission permission)
{
    return qtpermissions::status(permission);
}

void requestMediaPermission(MediaPermission permission, QObject *context,
                            std::function<void(MediaPermissionStatus)> done)
{
    qtpermissions::request(permission, context, std::move(done));
}

#else

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

#endif
