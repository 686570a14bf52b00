#pragma once

#include <QImage>
#include <QVideoFrame>

// The picture of a frame mapped for reading, converted on the CPU (YUV layouts in two halves on
// two pool threads); a null image when the frame cannot be converted.
QImage imageOfMappedFrame(const QVideoFrame &frame);
