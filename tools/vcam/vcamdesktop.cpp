#include "vcamdesktop.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <string_view>
#include <vector>

#include "vcamfont.h"

namespace vcam {

namespace {

struct Yuv
{
    std::uint8_t y, u, v;
};

// BT.601 limited range, as the camera's formats carry it.
constexpr Yuv rgb(int r, int g, int b)
{
    return Yuv{std::uint8_t(16 + (65481 * r + 128553 * g + 24966 * b) / 255000),
               std::uint8_t(128 + (-37797 * r - 74203 * g + 112000 * b) / 255000),
               std::uint8_t(128 + (112000 * r - 93786 * g - 18214 * b) / 255000)};
}

constexpr Yuv kBlack = rgb(0, 0, 0);
constexpr Yuv kDesktop = rgb(38, 92, 128);
constexpr Yuv kTaskbar = rgb(28, 30, 36);
constexpr Yuv kTitle = rgb(52, 84, 140);
constexpr Yuv kPaper = rgb(250, 250, 250);
constexpr Yuv kFrameLine = rgb(120, 120, 130);
constexpr Yuv kLockOn = rgb(70, 190, 80);
constexpr Yuv kLockOff = rgb(68, 70, 80);
constexpr Yuv kClickMark = rgb(235, 40, 40);
constexpr Yuv kCursorEdge = rgb(0, 0, 0);
constexpr Yuv kCursorBody = rgb(255, 255, 255);
constexpr std::uint8_t kInk = 16;
constexpr std::uint8_t kLight = 235;
constexpr std::uint8_t kDim = 120;

// Target-screen layout, in the target's pixels.
constexpr int kTaskbarHeight = 40;
constexpr int kTitleHeight = 32;
constexpr int kTextMargin = 12;
constexpr int kTextDot = 2; // one font dot of the title and taskbar: 2x2 target pixels
constexpr int kBodyDot = 3; // the text area's font, large enough to read in a preview
constexpr int kCellSize = 10;
constexpr int kCellPitch = 14;
constexpr int kCursorRows = 22;
constexpr int kClickArm = 12;

struct Bounds
{
    int x0, y0, x1, y1; // [x0, x1) x [y0, y1); empty when x0 >= x1 or y0 >= y1
};

// The rectangle's part inside the picture.
Bounds clipped(const Picture &p, int x, int y, int w, int h)
{
    return {std::max(0, x), std::max(0, y), std::min(p.width, x + w), std::min(p.height, y + h)};
}

// Fills a clipped rectangle: luma exactly, chroma for every sample the rectangle touches.
void fill(Picture &p, int x, int y, int w, int h, Yuv c)
{
    const auto [x0, y0, x1, y1] = clipped(p, x, y, w, h);
    if (x0 >= x1 || y0 >= y1)
        return;
    if (p.layout == Picture::Yuy2) {
        std::vector<std::uint8_t> row(std::size_t(x1 - x0) * 2);
        for (int col = x0; col < x1; ++col) {
            row[std::size_t(col - x0) * 2] = c.y;
            row[std::size_t(col - x0) * 2 + 1] = col % 2 ? c.v : c.u;
        }
        for (int r = y0; r < y1; ++r)
            std::memcpy(p.planes[0] + r * p.strides[0] + x0 * 2, row.data(), row.size());
        return;
    }
    for (int r = y0; r < y1; ++r)
        std::memset(p.planes[0] + r * p.strides[0] + x0, c.y, std::size_t(x1 - x0));
    const int cx0 = x0 / 2;
    const int cx1 = (x1 + 1) / 2;
    for (int cr = y0 / 2; cr < (y1 + 1) / 2; ++cr) {
        if (p.layout == Picture::I420) {
            std::memset(p.planes[1] + cr * p.strides[1] + cx0, c.u, std::size_t(cx1 - cx0));
            std::memset(p.planes[2] + cr * p.strides[2] + cx0, c.v, std::size_t(cx1 - cx0));
        } else {
            std::uint8_t *uv = p.planes[1] + cr * p.strides[1];
            for (int cx = cx0; cx < cx1; ++cx) {
                uv[cx * 2] = c.u;
                uv[cx * 2 + 1] = c.v;
            }
        }
    }
}

// Sets luma only, so text takes the colour of what it is written on.
void fillLuma(Picture &p, int x, int y, int w, int h, std::uint8_t luma)
{
    const auto [x0, y0, x1, y1] = clipped(p, x, y, w, h);
    if (x0 >= x1 || y0 >= y1)
        return;
    for (int r = y0; r < y1; ++r) {
        std::uint8_t *line = p.planes[0] + r * p.strides[0];
        if (p.layout == Picture::Yuy2) {
            for (int col = x0; col < x1; ++col)
                line[col * 2] = luma;
        } else {
            std::memset(line + x0, luma, std::size_t(x1 - x0));
        }
    }
}

int drawString(Picture &p, int x, int y, int dot, std::string_view text, std::uint8_t luma)
{
    const int advance = (kGlyphColumns + 1) * dot;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const std::uint8_t *rows = glyphRows(text[i]);
        const int left = x + int(i) * advance;
        for (int row = 0; row < kGlyphRows; ++row) {
            for (int col = 0; col < kGlyphColumns; ++col) {
                if (rows[row] & (0x10 >> col))
                    fillLuma(p, left + col * dot, y + row * dot, dot, dot, luma);
            }
        }
    }
    return int(text.size()) * advance;
}

// Maps the target's pixels into the frame.
struct Mapping
{
    targetscreen::Rect inner;
    int width = 1; // the target's screen
    int height = 1;

    int x(int tx) const { return inner.x + int(std::int64_t(tx) * inner.width / width); }
    int y(int ty) const { return inner.y + int(std::int64_t(ty) * inner.height / height); }
    int w(int tw) const { return std::max(1, int(std::int64_t(tw) * inner.width / width)); }
    int h(int th) const { return std::max(1, int(std::int64_t(th) * inner.height / height)); }
    // Frame pixels per font dot of `targetDot` target pixels.
    int dot(int targetDot) const
    {
        return std::max(1, int((std::int64_t(targetDot) * inner.height * 2 + height) /
                               (2 * std::int64_t(height))));
    }
};

Mapping mappingFor(const targetscreen::State &state, int frameWidth, int frameHeight)
{
    Mapping m;
    m.inner = targetscreen::innerRect(state, frameWidth, frameHeight);
    m.width = int(std::max<std::uint32_t>(1, state.width));
    m.height = int(std::max<std::uint32_t>(1, state.height));
    return m;
}

void fillTarget(Picture &p, const Mapping &m, int tx, int ty, int tw, int th, Yuv c)
{
    fill(p, m.x(tx), m.y(ty), m.x(tx + tw) - m.x(tx), m.y(ty + th) - m.y(ty), c);
}

// The text window: the last lines of the text that fit, wrapped, with a caret after the end.
void drawTextWindow(Picture &p, const Mapping &m, const targetscreen::State &state)
{
    const int tx = m.width / 10;
    const int ty = m.height / 12;
    const int tw = m.width * 6 / 10;
    const int th = m.height * 6 / 10;
    fillTarget(p, m, tx - 1, ty - 1, tw + 2, th + 2, kFrameLine);
    fillTarget(p, m, tx, ty, tw, kTitleHeight, kTitle);
    fillTarget(p, m, tx, ty + kTitleHeight, tw, th - kTitleHeight, kPaper);
    const int titleDot = m.dot(kTextDot);
    drawString(p, m.x(tx + kTextMargin), m.y(ty) + (m.h(kTitleHeight) - 7 * titleDot) / 2, titleDot,
               "Notes - type here", kLight);
    for (int bit = 0; bit < kEditCodeBits; ++bit) {
        int cx = 0;
        int cy = 0;
        editCodeCellCentre(state, p.width, p.height, bit, cx, cy);
        const int size = std::max(2, m.w(kCellSize));
        fill(p, cx - size / 2, cy - size / 2, size, size,
             (state.textEdits >> bit) & 1u ? rgb(255, 255, 255) : kBlack);
    }

    const int dot = m.dot(kBodyDot);
    const int left = m.x(tx + kTextMargin);
    const int top = m.y(ty + kTitleHeight + kTextMargin);
    const int right = m.x(tx + tw - kTextMargin);
    const int bottom = m.y(ty + th - kTextMargin);
    const int advance = (kGlyphColumns + 1) * dot;
    const int lineHeight = (kGlyphRows + 3) * dot;
    const int columns = std::max(1, (right - left) / advance);
    const int rows = std::max(1, (bottom - top) / lineHeight);

    std::deque<std::string> lines(1);
    const auto newLine = [&] {
        lines.emplace_back();
        if (int(lines.size()) > rows)
            lines.pop_front();
    };
    for (const char c : std::string_view(state.text, state.textLength)) {
        if (c == '\n') {
            newLine();
            continue;
        }
        if (c == '\t') {
            do {
                if (int(lines.back().size()) == columns)
                    newLine();
                lines.back() += ' ';
            } while (lines.back().size() % 8 != 0);
            continue;
        }
        if (int(lines.back().size()) == columns)
            newLine();
        lines.back() += c;
    }
    for (std::size_t i = 0; i < lines.size(); ++i)
        drawString(p, left, top + int(i) * lineHeight, dot, lines[i], kInk);
    const int caretX = left + int(lines.back().size()) * advance;
    fillLuma(p, caretX, top + int(lines.size() - 1) * lineHeight - dot, dot, 9 * dot, kInk);
}

void drawIndicator(Picture &p, const Mapping &m, int tx, const char *text, bool on)
{
    const int tw = 84;
    fillTarget(p, m, tx, m.height - kTaskbarHeight + 8, tw, kTaskbarHeight - 16,
               on ? kLockOn : kLockOff);
    const int dot = m.dot(kTextDot);
    drawString(p, m.x(tx + 10),
               m.y(m.height - kTaskbarHeight) + (m.h(kTaskbarHeight) - 7 * dot) / 2, dot, text,
               on ? kInk : kDim);
}

void drawTaskbar(Picture &p, const Mapping &m, const targetscreen::State &state,
                 const std::string &label, std::uint64_t frame)
{
    const int top = m.height - kTaskbarHeight;
    fillTarget(p, m, 0, top, m.width, kTaskbarHeight, kTaskbar);
    const int dot = m.dot(kTextDot);
    const int textY = m.y(top) + (m.h(kTaskbarHeight) - 7 * dot) / 2;
    drawString(p, m.x(12), textY, dot, label, kLight);
    const int locks = m.width * 30 / 100;
    drawIndicator(p, m, locks, "CAPS", state.capsLock != 0);
    drawIndicator(p, m, locks + 96, "NUM", state.numLock != 0);
    drawString(p, m.x(locks + 200), textY, dot, "keys held " + std::to_string(state.heldKeys),
               kLight);
    const std::string counter = "frame " + std::to_string(frame);
    drawString(p, m.x(m.width - 12) - int(counter.size()) * 6 * dot, textY, dot, counter, kLight);
}

void drawClickMark(Picture &p, const Mapping &m, const targetscreen::State &state)
{
    if (state.clickX < 0 || state.clickY < 0)
        return;
    const int cx = m.x(state.clickX);
    const int cy = m.y(state.clickY);
    const int arm = std::max(4, m.w(kClickArm));
    const int thick = std::max(2, m.w(2));
    const int gap = std::max(2, m.w(3));
    fill(p, cx - arm, cy - thick / 2, arm - gap, thick, kClickMark);
    fill(p, cx + gap + 1, cy - thick / 2, arm - gap, thick, kClickMark);
    fill(p, cx - thick / 2, cy - arm, thick, arm - gap, kClickMark);
    fill(p, cx - thick / 2, cy + gap + 1, thick, arm - gap, kClickMark);
}

// An arrow whose tip is the cursor's pixel: a wedge outlined in black.
void drawCursor(Picture &p, const Mapping &m, const targetscreen::State &state)
{
    const int tipX = m.x(state.cursorX);
    const int tipY = m.y(state.cursorY);
    const int unit = std::max(1, m.dot(1));
    for (int row = 0; row < kCursorRows; ++row) {
        const int width = row * 2 / 3 + 1;
        const int y = tipY + row * unit;
        fill(p, tipX, y, width * unit, unit, kCursorEdge);
        if (width > 2 && row < kCursorRows - 1)
            fill(p, tipX + unit, y, (width - 2) * unit, unit, kCursorBody);
    }
}

} // namespace

void editCodeCellCentre(const targetscreen::State &state, int frameWidth, int frameHeight, int bit,
                        int &x, int &y)
{
    // At the right end of the text window's title bar, clear of the title and the taskbar.
    const Mapping m = mappingFor(state, frameWidth, frameHeight);
    const int windowRight = m.width / 10 + m.width * 6 / 10;
    const int tx = windowRight - kTextMargin - (kEditCodeBits - bit) * kCellPitch + kCellSize / 2;
    const int ty = m.height / 12 + kTitleHeight / 2;
    x = m.x(tx);
    y = m.y(ty);
}

int readEditCode(const targetscreen::State &state, const std::uint8_t *luma, int stride,
                 int pixelStep, int frameWidth, int frameHeight)
{
    if (!luma || frameWidth <= 0 || frameHeight <= 0)
        return -1;
    int code = 0;
    for (int bit = 0; bit < kEditCodeBits; ++bit) {
        int x = 0;
        int y = 0;
        editCodeCellCentre(state, frameWidth, frameHeight, bit, x, y);
        if (x < 0 || y < 0 || x >= frameWidth || y >= frameHeight)
            return -1;
        const int value = luma[std::size_t(y) * std::size_t(stride) + std::size_t(x * pixelStep)];
        if (value > 170)
            code |= 1 << bit;
        else if (value >= 80)
            return -1; // neither a set nor a clear cell: not this picture
    }
    return code;
}

void drawDesktop(Picture &picture, const targetscreen::State &state, const std::string &label,
                 std::uint64_t frame)
{
    if (picture.width <= 0 || picture.height <= 0 || !picture.planes[0])
        return;
    const Mapping m = mappingFor(state, picture.width, picture.height);
    if (m.inner.x > 0 || m.inner.y > 0)
        fill(picture, 0, 0, picture.width, picture.height, kBlack);
    fill(picture, m.inner.x, m.inner.y, m.inner.width, m.inner.height, kDesktop);
    drawTextWindow(picture, m, state);
    drawTaskbar(picture, m, state, label, frame);
    drawClickMark(picture, m, state);
    drawCursor(picture, m, state);
}

} // namespace vcam
