#pragma once

#include <QCamera>
#include <QTimer>
#include <QVideoSink>

#include "devices/tavrovideopreview.h"

// What tests may reach inside a preview tile: its clock, its flash steps, its camera's format,
// and the road from its sink (so that frames can be handed to it one by one). Header-only.
class TavroVideoPreviewTestAccess
{
public:
    static void advanceClock(TavroVideoPreview &tile, qint64 ms) { tile.m_clockOffsetMs += ms; }
    static void flashTick(TavroVideoPreview &tile) { tile.onFlashTick(); }
    static bool flashRunning(const TavroVideoPreview &tile)
    {
        return tile.m_flashTimer->isActive();
    }
    static int flashInterval(const TavroVideoPreview &tile)
    {
        return tile.m_flashTimer->interval();
    }
    static QCameraFormat cameraFormat(const TavroVideoPreview &tile)
    {
        return tile.m_camera ? tile.m_camera->cameraFormat() : QCameraFormat();
    }
    // Stops (or restores) the camera's frames reaching the tile; the camera keeps running.
    static void setSinkConnected(TavroVideoPreview &tile, bool connected)
    {
        QObject::disconnect(tile.m_sink, nullptr, &tile, nullptr);
        if (connected)
            QObject::connect(tile.m_sink, &QVideoSink::videoFrameChanged, &tile,
                             &TavroVideoPreview::onPreviewVideoFrame);
    }
};
