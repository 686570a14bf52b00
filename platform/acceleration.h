#pragma once

#include <QByteArrayList>
#include <QString>

// Multimedia acceleration switches specific to the running system.
struct PlatformAcceleration
{
    QByteArrayList variables; // environment variables to set to "1"
    QString logLine;          // what the start-up log says about them
    QString platformName;     // the platform line of the acceleration status text
};

// macOS: the VideoToolbox/AVFoundation switches. Linux: none (the GStreamer back end picks
// its decoders itself); the log line says so.
PlatformAcceleration platformAcceleration();
