#include "platform/acceleration.h"

PlatformAcceleration platformAcceleration()
{
    return {{},
            QStringLiteral(
                "[HardwareAcceleration] Linux平台：GStreamer后端自行选择硬件解码，无额外变量"),
            QStringLiteral("Linux (GStreamer)")};
}
