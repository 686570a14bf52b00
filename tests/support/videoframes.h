#pragma once

// Frames built in tests, as a capture sink would deliver them. Header-only.

#include <QVideoFrame>

#include <cstring>

// A frame of the given format filled with mid grey (every byte 128: Y, U and V alike).
inline QVideoFrame greyVideoFrame(const QSize &size, QVideoFrameFormat::PixelFormat format)
{
    QVideoFrame frame(QVideoFrameFormat(size, format));
    if (!frame.map(QVideoFrame::WriteOnly))
        return QVideoFrame();
    for (int plane = 0; plane < frame.planeCount(); ++plane)
        memset(frame.bits(plane), 128, size_t(frame.mappedBytes(plane)));
    frame.unmap();
    return frame;
}
