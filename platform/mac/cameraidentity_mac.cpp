// On macOS the camera id already carries the USB identity ("vid_a5c0", "pid_2132") and is stable.
#include <QMediaDevices>

#include "platform/cameraidentity.h"

QList<IdentifiedCamera> identifiedVideoInputs()
{
    QList<IdentifiedCamera> cameras;
    const QList<QCameraDevice> devices = QMediaDevices::videoInputs();
    for (const QCameraDevice &device : devices)
        cameras.append({device, device.id()});
    return cameras;
}

QByteArray cameraIdentity(const QCameraDevice &device)
{
    return device.id();
}

QCameraDevice findCameraByIdentity(const QByteArray &identity)
{
    return cameraWithIdentity(identifiedVideoInputs(), identity);
}
