#pragma once

// Camera and microphone permission through the toolkit's permission interface (Qt 6.5 and
// later). Included by the implementations of the systems that use it.

#include <QCoreApplication>
#include <QPermissions>

#include "platform/permissions.h"

namespace qtpermissions {

inline MediaPermissionStatus fromQt(Qt::PermissionStatus status)
{
    switch (status) {
    case Qt::PermissionStatus::Granted:
        return MediaPermissionStatus::Granted;
    case Qt::PermissionStatus::Denied:
        return MediaPermissionStatus::Denied;
    case Qt::PermissionStatus::Undetermined:
        break;
    }
    return MediaPermissionStatus::Undetermined;
}

inline MediaPermissionStatus status(MediaPermission permission)
{
    if (permission == MediaPermission::Camera)
        return fromQt(qApp->checkPermission(QCameraPermission{}));
    return fromQt(qApp->checkPermission(QMicrophonePermission{}));
}

inline void request(MediaPermission permission, QObject *context,
                    std::function<void(MediaPermissionStatus)> done)
{
    if (!context || !done)
        return;
    const auto callback = [done = std::move(done)](const QPermission &result) {
        done(fromQt(result.status()));
    };
    if (permission == MediaPermission::Camera)
        qApp->requestPermission(QCameraPermission{}, context, callback);
    else
        qApp->requestPermission(QMicrophonePermission{}, context, callback);
}

} // namespace qtpermissions
