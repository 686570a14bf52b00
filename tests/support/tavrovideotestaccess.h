#pragma once

#include <QCamera>
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
    // Shortens the time limit of a recording.
    static void setRecordingLimit(TavroVideo &view, int ms) { view.m_recordingLimitMs = ms; }
    // Where the running recording is written; empty when none.
    static QString recordingTempPath(const TavroVideo &view) { return view.m_recordingTempPath; }
    // Restarts the running camera in another of the formats it offers (the view opens a camera in
    // the format it negotiates). False when the camera does not run in that format afterwards.
    static bool restartCameraInFormat(TavroVideo &view, const QCameraFormat &format)
    {
        QCamera *camera = view.m_camera;
        if (!camera)
            return false;
        camera->setActive(false);
        camera->setCameraFormat(format);
        camera->setActive(true);
        return camera->isActive() && camera->cameraFormat() == format;
    }
};
