#pragma once

// The virtual camera's 5x7 dot font: every printable ASCII character.

#include <cstdint>

namespace vcam {

constexpr int kGlyphColumns = 5;
constexpr int kGlyphRows = 7;

// Seven rows of dots for `c`, leftmost dot in bit 4; '?' for characters outside 0x20..0x7E.
const std::uint8_t *glyphRows(char c);

} // namespace vcam
