#pragma once

// The simulated target computer's screen as the virtual camera shows it: a desktop with a text
// window, a taskbar with the lock keys, the keys held and the frame counter, the cursor and a
// mark where the last click landed, inside the black borders the target asks for.

#include <cstdint>
#include <string>

#include "targetscreen.h"
#include "vcampicture.h"

namespace vcam {

// Draws the whole frame from `state`; the target's screen fills targetscreen::innerRect.
void drawDesktop(Picture &picture, const targetscreen::State &state, const std::string &label,
                 std::uint64_t frame);

// The text window's title bar carries the low 16 bits of `textEdits` as a row of cells (white for a
// set bit, least significant bit first), so that a reader of the picture can tell which text a
// frame shows without recognising letters.
constexpr int kEditCodeBits = 16;

// Centre of cell `bit` in a frame `frameWidth` x `frameHeight` showing `state`'s screen.
void editCodeCellCentre(const targetscreen::State &state, int frameWidth, int frameHeight, int bit,
                        int &x, int &y);

// Reads the cells back from a frame's luma (one byte per pixel, `stride` bytes per row; pass
// the pixel step 2 for packed YUY2 rows). -1 when the picture holds no readable code.
int readEditCode(const targetscreen::State &state, const std::uint8_t *luma, int stride,
                 int pixelStep, int frameWidth, int frameHeight);

} // namespace vcam
