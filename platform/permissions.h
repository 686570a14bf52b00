#pragma once

#include <QObject>
#include <functional>

// Camera and microphone permission. Systems that ask the user (macOS) go through the toolkit's
// permission interface; systems without such permissions (Linux) report Granted.
enum class MediaPermission { Camera, Microphone };
enum class MediaPermissionStatus { Undetermined, Granted, Denied };

MediaPermissionStatus mediaPermissionStatus(MediaPermission permission);

// Asks the user when the status is undetermined; `done` runs later on `context`'s thread with the
// outcome (never synchronously inside this call).
void requestMediaPermission(MediaPermission permission, QObject *context,
                            std::function<void(MediaPermissionStatus)> done);
