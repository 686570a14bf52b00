#include "vcampicture.h"

#include "vcamfont.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

namespace vcam {

namespace {

constexpr std::uint8_t kWhite = 235;
constexpr std::uint8_t kBlack = 16;
constexpr std::uint8_t kNeutral = 128;
constexpr std::uint8_t kEdgeLuma = 180;

// Fills a rectangle with one luma value and neutral chroma. Edges are widened to even
// coordinates so that chroma samples shared with pixels outside never keep a colour.
void fillRect(Picture &p, int x, int y, int w, int h, std::uint8_t luma)
{
    int x0 = std::max(0, x) & ~1;
    int y0 = std::max(0, y) & ~1;
    int x1 = std::min(p.width, (x + w + 1) & ~1);
    int y1 = std::min(p.height, (y + h + 1) & ~1);
    if (x0 >= x1 || y0 >= y1)
        return;
    switch (p.layout) {
    case Picture::I420:
        for (int row = y0; row < y1; ++row)
            std::memset(p.planes[0] + row * p.strides[0] + x0, luma, x1 - x0);
        for (int row = y0 / 2; row < (y1 + 1) / 2; ++row) {
            std::memset(p.planes[1] + row * p.strides[1] + x0 / 2, kNeutral, (x1 - x0 + 1) / 2);
            std::memset(p.planes[2] + row * p.strides[2] + x0 / 2, kNeutral, (x1 - x0 + 1) / 2);
        }
        break;
    case Picture::Nv12:
        for (int row = y0; row < y1; ++row)
            std::memset(p.planes[0] + row * p.strides[0] + x0, luma, x1 - x0);
        for (int row = y0 / 2; row < (y1 + 1) / 2; ++row)
            std::memset(p.planes[1] + row * p.strides[1] + x0, kNeutral, ((x1 - x0 + 1) / 2) * 2);
        break;
    case Picture::Yuy2:
        for (int row = y0; row < y1; ++row) {
            std::uint8_t *line = p.planes[0] + row * p.strides[0];
            for (int col = x0; col < x1; ++col) {
                line[col * 2] = luma;
                line[col * 2 + 1] = kNeutral;
            }
        }
        break;
    }
}

// Draws a line of text with its top-left corner at (x, y); returns its width in pixels.
int drawText(Picture &p, int x, int y, int scale, const std::string &text)
{
    const int advance = 6 * scale;
    fillRect(p, x - scale, y - scale, int(text.size()) * advance + scale, 9 * scale, kBlack);
    for (std::size_t i = 0; i < text.size(); ++i) {
        // The overlay's labels read in capitals, as the camera has always shown them.
        const char c = text[i] >= 'a' && text[i] <= 'z' ? char(text[i] - 'a' + 'A') : text[i];
        const std::uint8_t *rows = glyphRows(c);
        const int left = x + int(i) * advance;
        for (int row = 0; row < kGlyphRows; ++row) {
            for (int col = 0; col < kGlyphColumns; ++col) {
                if (rows[row] & (0x10 >> col))
                    fillRect(p, left + col * scale, y + row * scale, scale, scale, kWhite);
            }
        }
    }
    return int(text.size()) * advance;
}

struct Yuv
{
    std::uint8_t y, u, v;
};

// 75 % bars in BT.601 limited range: white, yellow, cyan, green, magenta, red, blue, black.
constexpr Yuv kBars[8] = {{180, 128, 128}, {162, 44, 142}, {131, 156, 44}, {112, 72, 58},
                          {84, 184, 198},  {65, 100, 212}, {35, 212, 114}, {16, 128, 128}};

// One line of bars for a picture `width` wide, scrolled by `shift` pixels: luma per pixel and
// the bar's chroma per pixel pair.
void barLine(int width, int shift, std::uint8_t *luma, std::uint8_t *u, std::uint8_t *v)
{
    for (int x = 0; x < width; ++x) {
        const Yuv &bar = kBars[((x + shift) % width) * 8 / width];
        luma[x] = bar.y;
        if (x % 2 == 0) {
            u[x / 2] = bar.u;
            v[x / 2] = bar.v;
        }
    }
}

} // namespace

void drawTestPattern(Picture &p, std::uint64_t frame)
{
    if (p.width <= 0 || p.height <= 0 || !p.planes[0])
        return;
    const int w = p.width;
    const int cw = (w + 1) / 2;
    const int shift = int((frame * std::uint64_t(std::max(1, w / 240))) % std::uint64_t(w));
    // Even, so that the rows sharing a chroma row belong to the same band.
    const int barRows = (p.height * 3 / 4) & ~1;

    // Each band is a few lines computed once and copied to every row: cheap even at 4K.
    const auto lumaBytes = static_cast<std::size_t>(w);
    const auto chromaBytes = static_cast<std::size_t>(cw);
    std::vector<std::uint8_t> barLuma(lumaBytes), rampLuma(lumaBytes);
    std::vector<std::uint8_t> barU(chromaBytes), barV(chromaBytes);
    barLine(w, shift, barLuma.data(), barU.data(), barV.data());
    for (int x = 0; x < w; ++x)
        rampLuma[std::size_t(x)] = std::uint8_t(16 + (219 * x) / std::max(1, w - 1));

    if (p.layout == Picture::Yuy2) {
        std::vector<std::uint8_t> barPacked(chromaBytes * 4), rampPacked(chromaBytes * 4);
        for (int x = 0; x < w; ++x) {
            barPacked[std::size_t(x) * 2] = barLuma[std::size_t(x)];
            barPacked[std::size_t(x) * 2 + 1] =
                x % 2 ? barV[std::size_t(x / 2)] : barU[std::size_t(x / 2)];
            rampPacked[std::size_t(x) * 2] = rampLuma[std::size_t(x)];
            rampPacked[std::size_t(x) * 2 + 1] = kNeutral;
        }
        for (int y = 0; y < p.height; ++y) {
            std::memcpy(p.planes[0] + y * p.strides[0],
                        (y < barRows ? barPacked : rampPacked).data(), std::size_t(w) * 2);
        }
        return;
    }

    for (int y = 0; y < p.height; ++y) {
        std::memcpy(p.planes[0] + y * p.strides[0], (y < barRows ? barLuma : rampLuma).data(),
                    std::size_t(w));
    }
    const std::vector<std::uint8_t> neutral(chromaBytes * 2, kNeutral);
    std::vector<std::uint8_t> barUv(chromaBytes * 2);
    for (int cx = 0; cx < cw; ++cx) {
        barUv[std::size_t(cx) * 2] = barU[std::size_t(cx)];
        barUv[std::size_t(cx) * 2 + 1] = barV[std::size_t(cx)];
    }
    for (int cy = 0; cy < (p.height + 1) / 2; ++cy) {
        const bool bars = cy * 2 < barRows;
        if (p.layout == Picture::I420) {
            std::memcpy(p.planes[1] + cy * p.strides[1], (bars ? barU : neutral).data(),
                        std::size_t(cw));
            std::memcpy(p.planes[2] + cy * p.strides[2], (bars ? barV : neutral).data(),
                        std::size_t(cw));
        } else {
            std::memcpy(p.planes[1] + cy * p.strides[1], (bars ? barUv : neutral).data(),
                        std::size_t(cw) * 2);
        }
    }
}

int overlayScale(int height)
{
    return std::max(2, height / 108);
}

void drawOverlay(Picture &picture, const std::string &label, std::uint64_t frame)
{
    if (picture.width <= 0 || picture.height <= 0 || !picture.planes[0])
        return;
    const int scale = overlayScale(picture.height);
    const int margin = 2 * scale;
    if (!label.empty())
        drawText(picture, margin, margin, scale, label);
    drawText(picture, margin, margin + 10 * scale, scale, std::to_string(frame));

    // The marker advances two dots per frame and wraps at the right edge.
    const int size = 4 * scale;
    const int track = std::max(1, picture.width - size);
    const int x = int((frame * std::uint64_t(2 * scale)) % std::uint64_t(track));
    const int y = picture.height - size - margin;
    fillRect(picture, x - scale, y - scale, size + 2 * scale, size + 2 * scale, kBlack);
    fillRect(picture, x, y, size, size, kWhite);
}

Borders parseBorders(const char *text)
{
    Borders borders;
    if (!text)
        return borders;
    int left = 0;
    int top = 0;
    char tail = 0;
    if (std::sscanf(text, "%d,%d%c", &left, &top, &tail) != 2)
        return borders;
    if (left < 0 || top < 0 || left > 960 || top > 540)
        return borders;
    borders.left = left & ~1;
    borders.top = top & ~1;
    return borders;
}

void drawFrame(Picture &picture, const Borders &borders, const std::string &label,
               std::uint64_t frame)
{
    const int innerWidth = picture.width - 2 * borders.left;
    const int innerHeight = picture.height - 2 * borders.top;
    if ((borders.left == 0 && borders.top == 0) || innerWidth < 64 || innerHeight < 64) {
        drawTestPattern(picture, frame);
        drawOverlay(picture, label, frame);
        return;
    }
    fillRect(picture, 0, 0, picture.width, picture.height, kBlack);
    // The inner picture is a view into the same planes: its origin moves by the borders (both
    // even, so chroma samples stay aligned).
    Picture inner = picture;
    inner.width = innerWidth;
    inner.height = innerHeight;
    const int x = borders.left;
    const int y = borders.top;
    switch (picture.layout) {
    case Picture::I420:
        inner.planes[0] += y * picture.strides[0] + x;
        inner.planes[1] += (y / 2) * picture.strides[1] + x / 2;
        inner.planes[2] += (y / 2) * picture.strides[2] + x / 2;
        break;
    case Picture::Nv12:
        inner.planes[0] += y * picture.strides[0] + x;
        inner.planes[1] += (y / 2) * picture.strides[1] + x;
        break;
    case Picture::Yuy2:
        inner.planes[0] += y * picture.strides[0] + x * 2;
        break;
    }
    drawTestPattern(inner, frame);
    drawOverlay(inner, label, frame);
    // A light frame along the picture's edges, as a desktop's edge: the first lit column and row
    // are exactly the borders, whatever the pattern shows there.
    constexpr int kEdge = 2;
    fillRect(inner, 0, 0, innerWidth, kEdge, kEdgeLuma);
    fillRect(inner, 0, innerHeight - kEdge, innerWidth, kEdge, kEdgeLuma);
    fillRect(inner, 0, 0, kEdge, innerHeight, kEdgeLuma);
    fillRect(inner, innerWidth - kEdge, 0, kEdge, innerHeight, kEdgeLuma);
}

} // namespace vcam
