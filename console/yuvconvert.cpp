#include "console/yuvconvert.h"

#include <libyuv/convert_argb.h>
#include <libyuv/planar_functions.h>
#include <libyuv/scale.h>
#include <libyuv/scale_argb.h>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace {

// Chroma terms of one U/V pair, in 1/256 units.
struct Chroma
{
    int rv, guv, bu;
};

inline Chroma chroma(int u, int v)
{
    const int uu = u - 128, vv = v - 128;
    return {409 * vv + 128, 100 * uu + 208 * vv + 128, 516 * uu + 128};
}

inline quint32 clamp8(int value)
{
    return quint32(std::clamp(value >> 8, 0, 255));
}

inline quint32 rgb(int y, const Chroma &c)
{
    const int yy = (y - 16) * 298;
    return 0xff000000u | clamp8(yy + c.rv) << 16 | clamp8(yy - c.guv) << 8 | clamp8(yy + c.bu);
}

void planarRow(const YuvPicture &p, int row, quint32 *out)
{
    const uchar *y = p.planes[0] + qsizetype(row) * p.strides[0];
    const int chromaRow = row / 2;
    const uchar *u = nullptr, *v = nullptr, *uv = nullptr;
    if (p.layout == YuvLayout::Yuv420p) {
        u = p.planes[1] + qsizetype(chromaRow) * p.strides[1];
        v = p.planes[2] + qsizetype(chromaRow) * p.strides[2];
    } else {
        uv = p.planes[1] + qsizetype(chromaRow) * p.strides[1];
    }
    const bool swapped = p.layout == YuvLayout::Nv21;
    for (int x = 0; x < p.width; x += 2) {
        const int i = x / 2;
        const Chroma c =
            uv ? (swapped ? chroma(uv[2 * i + 1], uv[2 * i]) : chroma(uv[2 * i], uv[2 * i + 1]))
               : chroma(u[i], v[i]);
        out[x] = rgb(y[x], c);
        if (x + 1 < p.width)
            out[x + 1] = rgb(y[x + 1], c);
    }
}

void packedRow(const YuvPicture &p, int row, quint32 *out)
{
    const uchar *in = p.planes[0] + qsizetype(row) * p.strides[0];
    const bool yFirst = p.layout == YuvLayout::Yuyv;
    for (int x = 0; x < p.width; x += 2) {
        const uchar *pair = in + 2 * x;
        const int y0 = yFirst ? pair[0] : pair[1];
        const int y1 = yFirst ? pair[2] : pair[3];
        const Chroma c = yFirst ? chroma(pair[1], pair[3]) : chroma(pair[0], pair[2]);
        out[x] = rgb(y0, c);
        if (x + 1 < p.width)
            out[x + 1] = rgb(y1, c);
    }
}

int planeCount(YuvLayout layout)
{
    switch (layout) {
    case YuvLayout::Yuv420p:
        return 3;
    case YuvLayout::Nv12:
    case YuvLayout::Nv21:
        return 2;
    case YuvLayout::Yuyv:
    case YuvLayout::Uyvy:
        return 1;
    }
    return 0;
}

bool isPacked(YuvLayout layout)
{
    return layout == YuvLayout::Yuyv || layout == YuvLayout::Uyvy;
}

bool usable(const YuvPicture &p)
{
    if (p.width < 1 || p.height < 1)
        return false;
    for (int i = 0; i < planeCount(p.layout); ++i) {
        if (!p.planes[i] || p.strides[i] < 1)
            return false;
    }
    return true;
}

uchar *reserve(std::vector<uchar> &scratch, size_t bytes)
{
    if (scratch.size() < bytes)
        scratch.resize(bytes);
    return scratch.data();
}

// Same size: colour conversion only.
bool convertDirect(const YuvPicture &p, uint8_t *out, int outStride)
{
    const uint8_t *const *in = p.planes;
    const int *s = p.strides;
    switch (p.layout) {
    case YuvLayout::Yuv420p:
        return libyuv::I420ToARGB(in[0], s[0], in[1], s[1], in[2], s[2], out, outStride, p.width,
                                  p.height) == 0;
    case YuvLayout::Nv12:
        return libyuv::NV12ToARGB(in[0], s[0], in[1], s[1], out, outStride, p.width, p.height) == 0;
    case YuvLayout::Nv21:
        return libyuv::NV21ToARGB(in[0], s[0], in[1], s[1], out, outStride, p.width, p.height) == 0;
    case YuvLayout::Yuyv:
        return libyuv::YUY2ToARGB(in[0], s[0], out, outStride, p.width, p.height) == 0;
    case YuvLayout::Uyvy:
        return libyuv::UYVYToARGB(in[0], s[0], out, outStride, p.width, p.height) == 0;
    }
    return false;
}

} // namespace

void convertYuvRows(const YuvPicture &picture, quint32 *destination, int destinationStride,
                    int firstRow, int endRow)
{
    const bool packed = picture.layout == YuvLayout::Yuyv || picture.layout == YuvLayout::Uyvy;
    for (int row = std::max(0, firstRow); row < std::min(endRow, picture.height); ++row) {
        quint32 *out = reinterpret_cast<quint32 *>(reinterpret_cast<uchar *>(destination) +
                                                   qsizetype(row) * destinationStride);
        if (packed)
            packedRow(picture, row, out);
        else
            planarRow(picture, row, out);
    }
}

YuvBandCut yuvBandCut(int sourceHeight, int destinationHeight)
{
    // Below this many rows a second thread costs more than it saves.
    constexpr int kRowsWorthABand = 64;
    if (sourceHeight < kRowsWorthABand || destinationHeight < kRowsWorthABand)
        return {};
    const int destinationRow = (destinationHeight / 2) & ~1;
    const int sourceRow =
        int(std::lround(double(destinationRow) * sourceHeight / destinationHeight)) & ~1;
    if (sourceRow <= 0 || sourceRow >= sourceHeight)
        return {};
    return {sourceRow, destinationRow};
}

YuvPicture yuvRows(const YuvPicture &picture, int firstRow, int endRow)
{
    YuvPicture rows = picture;
    firstRow = std::clamp(firstRow & ~1, 0, picture.height);
    endRow = std::clamp(endRow, firstRow, picture.height);
    rows.height = endRow - firstRow;
    if (!picture.planes[0])
        return rows;
    rows.planes[0] += qsizetype(firstRow) * picture.strides[0];
    if (!isPacked(picture.layout)) {
        for (int i = 1; i < planeCount(picture.layout); ++i)
            rows.planes[i] += qsizetype(firstRow / 2) * picture.strides[i];
    }
    return rows;
}

// The averaging loops below are plain C++ that the compiler vectorizes; on x86-64 it also builds an
// AVX2 version of each, chosen at load time.
#if defined(__x86_64__) && defined(__has_attribute)
#if __has_attribute(target_clones)
#define TAVRO_VECTOR_CLONES __attribute__((target_clones("avx2", "default")))
#endif
#endif
#ifndef TAVRO_VECTOR_CLONES
#define TAVRO_VECTOR_CLONES
#endif

namespace {

constexpr int kLargestWholeFactor = 6;

// The factor by which a picture shrinks to the destination in both directions alike, when it is a
// whole number; 0 otherwise.
int wholeFactor(int width, int height, int destinationWidth, int destinationHeight)
{
    if (destinationWidth < 1 || destinationHeight < 1 || width % destinationWidth != 0)
        return 0;
    const int factor = width / destinationWidth;
    return height == factor * destinationHeight ? factor : 0;
}

// Column sums of `rows` consecutive rows of `bytes` bytes, in 16 bits.
TAVRO_VECTOR_CLONES void sumRows(const uint8_t *first, int stride, int rows, int bytes,
                                 uint16_t *sums)
{
    for (int x = 0; x < bytes; ++x)
        sums[x] = first[x];
    for (int r = 1; r < rows; ++r) {
        const uint8_t *row = first + qsizetype(r) * stride;
        for (int x = 0; x < bytes; ++x)
            sums[x] = uint16_t(sums[x] + row[x]);
    }
}

// Each output sample is the mean of Factor neighbouring column sums of its channel; scale is
// 65536 / (Factor * Factor), so a sum of Factor x Factor samples comes back to 8 bits.
template<int Factor, int Channels>
inline void averageColumns(const uint16_t *sums, int outputs, uint32_t scale, uint8_t *out)
{
    for (int x = 0; x < outputs; ++x) {
        for (int c = 0; c < Channels; ++c) {
            uint32_t sum = 0;
            for (int i = 0; i < Factor; ++i)
                sum += sums[(x * Factor + i) * Channels + c];
            out[x * Channels + c] = uint8_t((sum * scale + 0x8000u) >> 16);
        }
    }
}

using AverageColumns = void (*)(const uint16_t *, int, uint32_t, uint8_t *);

#define TAVRO_AVERAGE_COLUMNS(factor, channels)                                                    \
    TAVRO_VECTOR_CLONES void averageColumns##factor##x##channels(                                  \
        const uint16_t *sums, int outputs, uint32_t scale, uint8_t *out)                           \
    {                                                                                              \
        averageColumns<factor, channels>(sums, outputs, scale, out);                               \
    }
TAVRO_AVERAGE_COLUMNS(3, 1)
TAVRO_AVERAGE_COLUMNS(4, 1)
TAVRO_AVERAGE_COLUMNS(5, 1)
TAVRO_AVERAGE_COLUMNS(6, 1)
TAVRO_AVERAGE_COLUMNS(3, 2)
TAVRO_AVERAGE_COLUMNS(4, 2)
TAVRO_AVERAGE_COLUMNS(5, 2)
TAVRO_AVERAGE_COLUMNS(6, 2)
TAVRO_AVERAGE_COLUMNS(3, 4)
TAVRO_AVERAGE_COLUMNS(4, 4)
TAVRO_AVERAGE_COLUMNS(5, 4)
TAVRO_AVERAGE_COLUMNS(6, 4)
#undef TAVRO_AVERAGE_COLUMNS

// Channels: 1 for a plane, 2 for interleaved U/V, 4 for RGB pixels.
AverageColumns averageColumnsFor(int factor, int channels)
{
    static const AverageColumns table[3][4] = {
        {averageColumns3x1, averageColumns4x1, averageColumns5x1, averageColumns6x1},
        {averageColumns3x2, averageColumns4x2, averageColumns5x2, averageColumns6x2},
        {averageColumns3x4, averageColumns4x4, averageColumns5x4, averageColumns6x4}};
    if (factor < 3 || factor > kLargestWholeFactor ||
        (channels != 1 && channels != 2 && channels != 4))
        return nullptr;
    return table[channels == 4 ? 2 : channels - 1][factor - 3];
}

// A shrink by the same whole factor (3 to 6) in both directions, each output sample the exact mean
// of its factor x factor block: the library's box filter gives the same picture, but sums its
// columns one sample at a time, which made it the largest cost of showing a 4K picture at
// 1280x720. sums must hold a source row's samples. False, touching nothing, for other sizes (the
// library's own filters take those; it halves with vector code already).
bool shrinkByWholeFactor(const uint8_t *source, int stride, int width, int height, int channels,
                         uint8_t *destination, int destinationStride, int destinationWidth,
                         int destinationHeight, uint16_t *sums)
{
    const int factor = wholeFactor(width, height, destinationWidth, destinationHeight);
    const AverageColumns average = averageColumnsFor(factor, channels);
    if (!average)
        return false;
    const uint32_t scale = uint32_t(std::lround(65536.0 / (factor * factor)));
    for (int row = 0; row < destinationHeight; ++row) {
        sumRows(source + qsizetype(row) * factor * stride, stride, factor, width * channels, sums);
        average(sums, destinationWidth, scale, destination + qsizetype(row) * destinationStride);
    }
    return true;
}

// Converts at the picture's own size into scratch, then scales the RGB bilinearly: for enlarging,
// where the source is the smaller picture, and for packed layouts shrunk by less than half, where
// the library's packed-to-RGB pass is cheaper than splitting the planes first.
bool convertThenScaleRgb(const YuvPicture &picture, uint8_t *out, int destinationStride,
                         int destinationWidth, int destinationHeight, std::vector<uchar> &scratch)
{
    const int stride = picture.width * 4;
    uchar *rgb = reserve(scratch, size_t(stride) * picture.height);
    return convertDirect(picture, rgb, stride) &&
           libyuv::ARGBScale(rgb, stride, picture.width, picture.height, out, destinationStride,
                             destinationWidth, destinationHeight, libyuv::kFilterBilinear) == 0;
}

// A plane is averaged over whole blocks where the size allows; else it is shrunk by exact halves
// (2x2 averages, the library's fastest filter) while at least twice the wanted size remains, then
// bilinearly over the last factor below two. Against the toolkit's area filter this stays within
// the edges of strokes, closer than the library's own box filter at such sizes, whose boxes of
// whole pixels shift strokes by a fraction of a pixel. spare must hold a quarter and a sixteenth
// of the plane.
void shrinkPlane(const uint8_t *source, int stride, int width, int height, uint8_t *destination,
                 int destinationStride, int destinationWidth, int destinationHeight, uint8_t *spare,
                 uint16_t *sums)
{
    if (shrinkByWholeFactor(source, stride, width, height, 1, destination, destinationStride,
                            destinationWidth, destinationHeight, sums))
        return;
    uint8_t *halves[2] = {spare, spare + size_t(width / 2) * (height / 2)};
    int next = 0;
    while (width >= 2 * destinationWidth && height >= 2 * destinationHeight &&
           (width > 2 * destinationWidth || height > 2 * destinationHeight)) {
        const int halfWidth = width / 2, halfHeight = height / 2;
        libyuv::ScalePlane(source, stride, width, height, halves[next], halfWidth, halfWidth,
                           halfHeight, libyuv::kFilterBox);
        source = halves[next];
        stride = halfWidth;
        width = halfWidth;
        height = halfHeight;
        next ^= 1;
    }
    libyuv::ScalePlane(source, stride, width, height, destination, destinationStride,
                       destinationWidth, destinationHeight, libyuv::kFilterBox);
}

// Every plane is shrunk as above, so small text stays as readable as the toolkit's smooth scaling
// makes it. Packed layouts shrunk to half or less are first split to Y and 4:2:0 U/V (chroma rows
// averaged in pairs, which the shrink would average anyway).
bool convertWhole(const YuvPicture &picture, uint8_t *out, int destinationStride,
                  int destinationWidth, int destinationHeight, std::vector<uchar> &scratch)
{
    const int w = picture.width, h = picture.height;
    const int dw = destinationWidth, dh = destinationHeight;
    if (dw == w && dh == h)
        return convertDirect(picture, out, destinationStride);
    const bool packed = isPacked(picture.layout);
    if ((dw >= w && dh >= h) || (packed && dh * 2 > h))
        return convertThenScaleRgb(picture, out, destinationStride, dw, dh, scratch);

    const int cw = (w + 1) / 2, ch = (h + 1) / 2;
    const int dcw = (dw + 1) / 2, dch = (dh + 1) / 2;
    const size_t chromaBytes = size_t(cw) * ch;
    const size_t packedBytes = packed ? size_t(w) * h + 2 * chromaBytes : 0;
    const size_t scaledBytes = size_t(dw) * dh + 2 * size_t(dcw) * dch;
    // Interleaved chroma split to planes, the halves of one plane (luma's the largest), and 16-bit
    // row sums (of the widest row, interleaved chroma included), kept aligned.
    const size_t spareBytes = 2 * chromaBytes + size_t(w / 2) * (h / 2) + size_t(w / 4) * (h / 4);
    const size_t sumsOffset = (packedBytes + scaledBytes + spareBytes + 15) & ~size_t(15);
    uchar *base = reserve(scratch, sumsOffset + size_t(std::max(w, 2 * cw)) * sizeof(uint16_t));
    uchar *dy = base + packedBytes, *du = dy + size_t(dw) * dh, *dv = du + size_t(dcw) * dch;
    uchar *splitU = dv + size_t(dcw) * dch, *splitV = splitU + chromaBytes;
    uchar *halves = splitV + chromaBytes;
    auto *sums = reinterpret_cast<uint16_t *>(base + sumsOffset);

    const uint8_t *const *in = picture.planes;
    const int *s = picture.strides;
    const uint8_t *y = in[0], *u = in[1], *v = in[2];
    int yStride = s[0], uStride = s[1], vStride = s[2];
    if (packed) {
        // To Y, U and V planes, then as 4:2:0 frames.
        uchar *splitY = base, *splitUPlane = base + size_t(w) * h;
        uchar *splitVPlane = splitUPlane + chromaBytes;
        const int rc =
            picture.layout == YuvLayout::Yuyv
                ? libyuv::YUY2ToI420(in[0], s[0], splitY, w, splitUPlane, cw, splitVPlane, cw, w, h)
                : libyuv::UYVYToI420(in[0], s[0], splitY, w, splitUPlane, cw, splitVPlane, cw, w,
                                     h);
        if (rc != 0)
            return false;
        y = splitY, u = splitUPlane, v = splitVPlane;
        yStride = w, uStride = vStride = cw;
    }
    shrinkPlane(y, yStride, w, h, dy, dw, dw, dh, halves, sums);

    if (picture.layout == YuvLayout::Nv12 || picture.layout == YuvLayout::Nv21) {
        // Interleaved U/V: averaged as pairs over whole blocks, else split into planes (the
        // library's bilinear filter for pairs comes out about two levels darker).
        const bool swapped = picture.layout == YuvLayout::Nv21;
        if (shrinkByWholeFactor(u, uStride, cw, ch, 2, du, dcw * 2, dcw, dch, sums)) {
            return swapped
                       ? libyuv::NV21ToARGB(dy, dw, du, dcw * 2, out, destinationStride, dw, dh) ==
                             0
                       : libyuv::NV12ToARGB(dy, dw, du, dcw * 2, out, destinationStride, dw, dh) ==
                             0;
        }
        libyuv::SplitUVPlane(u, uStride, splitU, cw, splitV, cw, cw, ch);
        u = swapped ? splitV : splitU;
        v = swapped ? splitU : splitV;
        uStride = vStride = cw;
    }
    shrinkPlane(u, uStride, cw, ch, du, dcw, dcw, dch, halves, sums);
    shrinkPlane(v, vStride, cw, ch, dv, dcw, dcw, dch, halves, sums);
    return libyuv::I420ToARGB(dy, dw, du, dcw, dv, dcw, out, destinationStride, dw, dh) == 0;
}

// Destination rows per strip when a shrink to half or less is cut into strips: a whole number of
// source rows each, so no box straddles two strips, even, and source rows a multiple of four so
// that the 4:2:0 chroma halves exactly; 0 when no cut
// fits.
int stripRows(int sourceHeight, int destinationHeight)
{
    // About 16 destination rows keep a 4K strip's planes in the second-level cache.
    constexpr int kTargetRows = 16;
    int rows = destinationHeight / std::gcd(sourceHeight, destinationHeight);
    while (rows % 2 != 0 || qint64(rows) * sourceHeight / destinationHeight % 4 != 0)
        rows *= 2;
    rows *= (kTargetRows + rows - 1) / rows;
    return rows * 2 <= destinationHeight ? rows : 0;
}

} // namespace

// A shrink by a whole factor goes strip by strip, so the split and scaled planes stay in cache and
// the source is read once; other sizes convert in one piece (bilinear filtering would show seams
// between strips).
bool convertYuvToSize(const YuvPicture &picture, quint32 *destination, int destinationStride,
                      int destinationWidth, int destinationHeight, std::vector<uchar> &scratch)
{
    if (!usable(picture) || !destination || destinationWidth < 1 || destinationHeight < 1)
        return false;
    auto *out = reinterpret_cast<uint8_t *>(destination);
    const int w = picture.width, h = picture.height;
    const int dw = destinationWidth, dh = destinationHeight;
    const int factor = wholeFactor(w, h, dw, dh);
    const int strip = factor >= 2 && factor <= kLargestWholeFactor ? stripRows(h, dh) : 0;
    if (strip == 0)
        return convertWhole(picture, out, destinationStride, dw, dh, scratch);
    for (int first = 0; first < dh; first += strip) {
        const int end = std::min(dh, first + strip);
        const int sourceFirst = int(qint64(first) * h / dh);
        const int sourceEnd = end == dh ? h : int(qint64(end) * h / dh);
        if (!convertWhole(yuvRows(picture, sourceFirst, sourceEnd),
                          out + qsizetype(first) * destinationStride, destinationStride, dw,
                          end - first, scratch))
            return false;
    }
    return true;
}

bool scaleRgb32(const uchar *source, int sourceStride, int sourceWidth, int sourceHeight,
                quint32 *destination, int destinationStride, int destinationWidth,
                int destinationHeight)
{
    if (!source || !destination || sourceWidth < 1 || sourceHeight < 1 || destinationWidth < 1 ||
        destinationHeight < 1)
        return false;
    // As the planes: whole blocks, or exact halves while at least twice the size remains, then
    // bilinear (the library's box filter for RGB samples rows instead of averaging them at a
    // third and below).
    std::vector<uint16_t> sums(size_t(sourceWidth) * 4);
    if (shrinkByWholeFactor(source, sourceStride, sourceWidth, sourceHeight, 4,
                            reinterpret_cast<uint8_t *>(destination), destinationStride,
                            destinationWidth, destinationHeight, sums.data()))
        return true;
    std::vector<uchar> halves[2];
    int next = 0;
    while (sourceWidth >= 2 * destinationWidth && sourceHeight >= 2 * destinationHeight &&
           (sourceWidth > 2 * destinationWidth || sourceHeight > 2 * destinationHeight)) {
        const int halfWidth = sourceWidth / 2, halfHeight = sourceHeight / 2;
        halves[next].resize(size_t(halfWidth) * halfHeight * 4);
        if (libyuv::ARGBScale(source, sourceStride, sourceWidth, sourceHeight, halves[next].data(),
                              halfWidth * 4, halfWidth, halfHeight, libyuv::kFilterBox) != 0)
            return false;
        source = halves[next].data();
        sourceStride = halfWidth * 4;
        sourceWidth = halfWidth;
        sourceHeight = halfHeight;
        next ^= 1;
    }
    return libyuv::ARGBScale(source, sourceStride, sourceWidth, sourceHeight,
                             reinterpret_cast<uint8_t *>(destination), destinationStride,
                             destinationWidth, destinationHeight, libyuv::kFilterBox) == 0;
}
