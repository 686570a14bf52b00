#pragma once

#include <QImage>
#include <QVideoFrame>

#include <vector>

// The picture of a frame mapped for reading at its own size, converted on the CPU (YUV layouts in
// two halves on two pool threads, the same pixels as the toolkit's own conversion); a null image
// when the frame cannot be converted. Screenshots and the border measurement take this one.
QImage imageOfMappedFrame(const QVideoFrame &frame);

// Buffers a display conversion reuses from frame to frame; one conversion at a time each.
struct FrameScratch
{
    std::vector<uchar> upper, lower;
};

// The picture of a frame mapped for reading, scaled and converted in one go to size (device
// pixels), in two bands on two pool threads; the frame's own size when size is empty. A null
// image when the frame cannot be converted.
QImage displayImageOfMappedFrame(const QVideoFrame &frame, const QSize &size,
                                 FrameScratch &scratch);
