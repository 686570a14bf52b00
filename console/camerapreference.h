#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

// What the preference rules see of one camera: its description and the identity text that
// stands for its id (on Linux the stable identity, see platform/cameraidentity.h).
struct CameraText
{
    QString description;
    QByteArray id;
};

// The box's own capture function: id carries "vid_a5c0" and "pid_2132", or the description and
// id together mention "tk", "usb" and "video".
bool isTkUsbVideoDevice(const CameraText &camera);
// The second box model: id carries "vid_a5c0" and "pid_2131".
bool isTkUsb2131Device(const CameraText &camera);
// A generic USB capture device (not a webcam unless it says USB 3 / USB video).
bool looksLikeUsbVideo(const CameraText &camera);
// A camera the device list shows: the box (either model) or another USB capture device.
bool isBoxLikeCamera(const CameraText &camera);
// The camera to open first: the box, else a USB video device (the 2131 model preferred), else
// the first one; empty for an empty list.
QByteArray preferredInitialCameraId(const QList<CameraText> &cameras);
