#pragma once

// The virtual camera's picture: colour bars that scroll with the frame number over a still grey
// ramp, and over them the camera's label, the frame number and a marker moving along the bottom
// edge, so that a frozen or repeated frame shows at a glance. Cheap enough for 4K at 30 fps.

#include <cstdint>
#include <string>

namespace vcam {

// A raw picture in one of the layouts the camera produces, planes and strides as GStreamer maps
// them (I420: Y, U, V; NV12: Y, UV; YUY2: one packed plane).
struct Picture
{
    enum Layout { I420, Nv12, Yuy2 };
    Layout layout = I420;
    int width = 0;
    int height = 0;
    std::uint8_t *planes[3] = {nullptr, nullptr, nullptr};
    int strides[3] = {0, 0, 0};
};

// Fills the whole picture: the top three quarters with eight 75 % colour bars shifted left by
// `frame` times 1/240 of the width, the bottom quarter with a still luma ramp.
void drawTestPattern(Picture &picture, std::uint64_t frame);

// Pixel size of one font dot for a picture of this height (at least 2).
int overlayScale(int height);

// Draws `label` (in capitals; characters outside printable ASCII as '?') and `frame` in the
// top-left corner, white on a black box, and the moving marker. Everything is clipped to the
// picture.
void drawOverlay(Picture &picture, const std::string &label, std::uint64_t frame);

// Black margins around the target's picture, as a target with another aspect ratio shows inside
// the captured frame (a 4:3 desktop in a 16:9 signal has columns on both sides).
struct Borders
{
    int left = 0; // columns at the left, and as many at the right
    int top = 0;  // rows at the top, and as many at the bottom
};

// "L,T" (pixels, even, at most a quarter of a 4K frame) as borders; none for anything else.
Borders parseBorders(const char *text);

// Draws the test pattern and overlay inside the borders, framed by a light edge, and blacks out
// the margins. Margins that would leave less than 64x64 pixels of picture are dropped.
void drawFrame(Picture &picture, const Borders &borders, const std::string &label,
               std::uint64_t frame);

} // namespace vcam
