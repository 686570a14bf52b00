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

constexpr quint64 kBorderCheckIntervalUnknown = 90;
constexpr quint64 kBorderCheckIntervalKnown = 1800;

// Whether the landscape frame that finds `landscapeFramesBefore` landscape frames before it is
// measured: the first one, then every 90th while no margin is known, every 1800th once one is.
bool borderCheckDue(quint64 landscapeFramesBefore, const image_blank_info &borders);
