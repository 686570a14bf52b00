// macOS asks the user for camera and microphone access through the toolkit's permission API.
#include <QCoreApplication>
#include <QPermissions>

#include "platform/permissions.h"

namespace {

MediaPermissionStatus fromQt(Qt::PermissionStatus status)
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

} // namespace

MediaPermissionStatus mediaPermissionStatus(MediaPermission permission)
{
    if (permission == MediaPermission::Camera)
        return fromQt(qApp->checkPermission(QCameraPermission{}));
    return fromQt(qApp->checkPermission(QMicrophonePermission{}));
}

void requestMediaPermission(MediaPermission permission, QObject *context,
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
