// macOS asks the user for camera and microphone access through the toolkit's permission API.
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
