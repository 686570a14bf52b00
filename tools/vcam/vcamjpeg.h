#pragma once

// Baseline JPEG (4:2:0) from an I420 picture, as a UVC camera sends MJPEG frames.

#include <cstdint>
#include <string>
#include <vector>

#include "vcampicture.h"

namespace vcam {

// Rows of an I420 picture that the encoder may read whole: luma rows padded to a multiple of 16
// pixels, chroma rows to a multiple of 8. Pictures given to encodeJpeg need strides at least
// this wide.
int jpegLumaStride(int width);
int jpegChromaStride(int width);

// Encodes `picture` (layout I420, strides as above) at `quality` (1..100) into `out`, replacing
// its content. Returns false with `error` set when the encoder fails; `out` is then empty.
bool encodeJpeg(const Picture &picture, int quality, std::vector<std::uint8_t> &out,
                std::string &error);

} // namespace vcam
