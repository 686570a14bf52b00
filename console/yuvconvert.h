#pragma once

#include <QtGlobal>

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
