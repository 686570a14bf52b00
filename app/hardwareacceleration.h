#pragma once

#include <QDebug>
#include <QList>
#include <QVideoFrameFormat>

#include "console/captureformat.h"
#include "platform/acceleration.h"

// Sets the multimedia back end's acceleration switches before any multimedia object exists,
// and names the pixel formats that decode and render without a CPU conversion.
class HardwareAcceleration
{
public:
    HardwareAcceleration() = delete;

    // The format rules' list, as the multimedia module's pixel formats.
    inline static const QList<QVideoFrameFormat::PixelFormat> HARDWARE_ACCELERATED_FORMATS = [] {
        QList<QVideoFrameFormat::PixelFormat> formats;
        for (int format : kHardwareAcceleratedPixelFormats)
            formats.append(QVideoFrameFormat::PixelFormat(format));
        return formats;
    }();

    // Safe to call again later: the same values are set once more.
    static void forceEnableHardwareAcceleration()
    {
        qDebug() << "[HardwareAcceleration] === 强制启用硬件加速 ===";
        for (const char *name :
             {"QT_MULTIMEDIA_HARDWARE_ACCELERATION", "QT_MULTIMEDIA_USE_HARDWARE_DECODER",
              "QT_MULTIMEDIA_USE_HARDWARE_ENCODER", "QT_MULTIMEDIA_USE_HARDWARE_RENDERER"})
            qputenv(name, "1");
        setPlatformSpecificAcceleration();
        qDebug() << "[HardwareAcceleration] 硬件加速已强制启用";
        qDebug() << "==========================================";
    }

    // The lines the console view logs after setting its own switches.
    static QString getHardwareAccelerationStatus()
    {
        return QStringLiteral("硬件加速状态:\n- 环境变量已设置\n- 支持的硬件格式: %1种\n- 平台: %2")
            .arg(HARDWARE_ACCELERATED_FORMATS.size())
            .arg(platformAcceleration().platformName);
    }

    static void setPlatformSpecificAcceleration()
    {
        const PlatformAcceleration platform = platformAcceleration();
        for (const QByteArray &name : platform.variables)
            qputenv(name.constData(), "1");
        qDebug().noquote() << platform.logLine;
    }
};
