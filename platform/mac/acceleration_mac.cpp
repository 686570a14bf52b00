#include "platform/acceleration.h"

PlatformAcceleration platformAcceleration()
{
    return {
        {"QT_MULTIMEDIA_USE_VT", "QT_MULTIMEDIA_USE_VIDEOTOOLBOX", "QT_MULTIMEDIA_USE_AVFOUNDATION",
         "QT_MULTIMEDIA_USE_COREVIDEO"},
        QStringLiteral("[HardwareAcceleration] macOS平台：VideoToolbox/AVFoundation硬件加速已启用"),
        QStringLiteral("macOS (VideoToolbox/AVFoundation)")};
}
