#pragma once

#include <QtGlobal>

#include <vector>

// Packed and planar YUV pictures as the capture pipeline delivers them.
enum class YuvLayout {
    Yuv420p, // Y plane, U plane, V plane (each quarter size)
    Nv12,    // Y plane, interleaved U/V plane
    Nv21,    // Y plane, interleaved V/U plane
    Yuyv,    // Y0 U Y1 V
    Uyvy,    // U Y0 V Y1
};

struct YuvPicture
{
    YuvLayout layout = YuvLayout::Yuv420p;
    int width = 0;
    int height = 0;
    const uchar *planes[3] = {nullptr, nullptr, nullptr};
    int strides[3] = {0, 0, 0};
};

// Converts to 0xffRRGGBB pixels (QImage::Format_RGB32) with the limited-range BT.601 integer
// arithmetic of the toolkit's own CPU conversion, so the picture is the same as the toolkit
// would give; rows [firstRow, endRow) only, so that parts can be converted in parallel.
void convertYuvRows(const YuvPicture &picture, quint32 *destination, int destinationStride,
                    int firstRow, int endRow);

// Where a conversion is cut into an upper and a lower band that can run in parallel: the first
// source row and the first destination row of the lower band. Both are even, so 4:2:0 chroma rows
// stay whole; without a cut (pictures too small to share) both are 0.
struct YuvBandCut
{
    int sourceRow = 0;
    int destinationRow = 0;
};
YuvBandCut yuvBandCut(int sourceHeight, int destinationHeight);

// The rows [firstRow, endRow) of a picture as a picture of their own; firstRow must be even.
YuvPicture yuvRows(const YuvPicture &picture, int firstRow, int endRow);

// Converts the picture to destinationWidth x destinationHeight 0xffRRGGBB pixels. Shrinking, the
// YUV planes are scaled first and only the pixels shown are colour converted: a whole factor in
// both directions averages each block exactly; other sizes halve exactly while they can and filter
// the rest bilinearly. Enlarging converts at the picture's size and scales the RGB bilinearly.
// Limited-range BT.601, within 2 levels of convertYuvRows. scratch holds the intermediate planes
// and is reused from call to call, so a stream of one size allocates once; one call at a time per
// scratch. False, with the destination untouched, when the picture or a size is unusable.
bool convertYuvToSize(const YuvPicture &picture, quint32 *destination, int destinationStride,
                      int destinationWidth, int destinationHeight, std::vector<uchar> &scratch);

// Scales 0xffRRGGBB (or premultiplied ARGB) pixels: exact halves while at least twice the size
// remains, then bilinear.
bool scaleRgb32(const uchar *source, int sourceStride, int sourceWidth, int sourceHeight,
                quint32 *destination, int destinationStride, int destinationWidth,
                int destinationHeight);
