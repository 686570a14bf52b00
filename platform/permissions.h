#pragma once

#include <QObject>
#include <functional>

// Camera and microphone permission. Systems that ask the user (macOS) go through the toolkit's
// permission interface; systems without such permissions (Linux) report Granted.
enum class MediaPermission { Camera, Microphone };
enum class MediaPermissionStatus { Undetermined, Granted, Denied };

MediaPermissionStatus mediaPermissionStatus(MediaPermission permission);

// How the log names a status: "已授予", "被拒绝", "未确定".
inline const char *permissionStatusText(MediaPermissionStatus status)
{
    switch (status) {
    case MediaPermissionStatus::Granted:
        return "已授予";
    case MediaPermissionStatus::Denied:
        return "被拒绝";
    case MediaPermissionStatus::Undetermined:
        break;
    }
    return "未确定";
}

// Asks the user when the status is undetermined; `done` runs later on `context`'s thread with the
// outcome (never synchronously inside this call).
void requestMediaPermission(MediaPermission permission, QObject *context,
                            std::function<void(MediaPermissionStatus)> done);
