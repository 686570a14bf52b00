#pragma once

#include <QtGlobal>

// Margins of the captured frame that lie outside the target's picture, as measured from a frame.
struct image_blank_info
{
    qint32 width = 0;  // decoded picture width in pixels
    qint32 height = 0; // decoded picture height in pixels
    qint32 top = 0;    // black rows at the top
    qint32 left = 0;   // black columns at the left
    qint32 bottom = 0; // black rows at the bottom
    qint32 right = 0;  // black columns at the right
};

// The measurement looks at this corner (and its mirror at the opposite corner).
constexpr int kBorderScanColumns = 256;
constexpr int kBorderScanRows = 128;

// Measures the black margins of the JPEG picture at `path`: fills width and height, and sets the
// four margins when the top-left corner's dark band is stable and the opposite corner confirms it
// (the margins are assumed symmetric). 0 when the file was decoded, 1 when it could not be read,
// was not a JPEG, or is smaller than the scanned corner. The caller zeroes `info` first.
int jpeg_check(const char *path, image_blank_info *info);

// Margins a measurement may report at most; anything else is discarded.
inline bool blankInfoWithinLimits(const image_blank_info &info)
{
    return info.top <= kBorderScanRows && info.left <= kBorderScanColumns &&
           info.bottom <= kBorderScanRows && info.right <= kBorderScanColumns;
}

constexpr quint64 kBorderCheckIntervalUnknown = 90;
constexpr quint64 kBorderCheckIntervalKnown = 1800;

// Whether the landscape frame that finds `landscapeFramesBefore` landscape frames before it is
// measured: the first one, then every 90th while no margin is known, every 1800th once one is.
bool borderCheckDue(quint64 landscapeFramesBefore, const image_blank_info &borders);
