#pragma once

#include <QTimer>

#include "console/tavrovideo.h"

// What tests (and the frame benchmark) may reach inside the console view.
class TavroVideoTestAccess
{
public:
    // Moves the view's clock (frame age, start-up window) forward, so that the time-based rules
    // are reached without waiting.
    static void advanceClock(TavroVideo &view, qint64 ms) { view.m_clockOffsetMs += ms; }
    // Lets frames be handed to the view as if its camera were running.
    static void setCameraActive(TavroVideo &view, bool active) { view.m_cameraActive = active; }
    // Shortens the wait for the box's information reply.
    static void setDeviceInfoTimeout(TavroVideo &view, int ms) { view.m_deviceInfoTimeoutMs = ms; }
    static bool resolutionCheckRunning(const TavroVideo &view)
    {
        return view.m_resolutionCheckTimer->isActive();
    }
};
