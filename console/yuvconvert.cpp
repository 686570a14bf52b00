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

struct Planes
{
    const uint8_t *y, *u, *v;
    int yStride, uStride, vStride;
};

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

namespace {

// Every layout is brought to separate Y, U and V planes (4:2:0, or 4:2:2 for the packed ones),
// scaled plane by plane, then converted at the destination size. The box filter works on whole
// planes; the interleaved scalers of the library only filter bilinearly.
bool convertWhole(const YuvPicture &picture, uint8_t *out, int destinationStride,
                  int destinationWidth, int destinationHeight, std::vector<uchar> &scratch)
{
    const int w = picture.width, h = picture.height;
    const int dw = destinationWidth, dh = destinationHeight;
    if (dw == w && dh == h)
        return convertDirect(picture, out, destinationStride);

    const bool packed = isPacked(picture.layout);
    const int cw = (w + 1) / 2, ch = packed ? h : (h + 1) / 2;
    const int dcw = (dw + 1) / 2, dch = packed ? dh : (dh + 1) / 2;
    // Source planes that need splitting first, then the scaled planes.
    const size_t splitBytes = picture.layout == YuvLayout::Yuv420p ? 0
                              : packed ? size_t(w) * h + 2 * size_t(cw) * ch
                                       : 2 * size_t(cw) * ch;
    const size_t scaledBytes = size_t(dw) * dh + 2 * size_t(dcw) * dch;
    uchar *base = reserve(scratch, splitBytes + scaledBytes);

    const uint8_t *const *in = picture.planes;
    const int *s = picture.strides;
    Planes src{};
    uchar *split = base;
    switch (picture.layout) {
    case YuvLayout::Yuv420p:
        src = {in[0], in[1], in[2], s[0], s[1], s[2]};
        break;
    case YuvLayout::Nv12:
    case YuvLayout::Nv21: {
        uchar *first = split, *second = split + size_t(cw) * ch;
        libyuv::SplitUVPlane(in[1], s[1], first, cw, second, cw, cw, ch);
        if (picture.layout == YuvLayout::Nv21)
            std::swap(first, second);
        src = {in[0], first, second, s[0], cw, cw};
        break;
    }
    case YuvLayout::Yuyv:
    case YuvLayout::Uyvy: {
        uchar *y = split, *u = y + size_t(w) * h, *v = u + size_t(cw) * ch;
        const int rc = picture.layout == YuvLayout::Yuyv
                           ? libyuv::YUY2ToI422(in[0], s[0], y, w, u, cw, v, cw, w, h)
                           : libyuv::UYVYToI422(in[0], s[0], y, w, u, cw, v, cw, w, h);
        if (rc != 0)
            return false;
        src = {y, u, v, w, cw, cw};
        break;
    }
    }

    uchar *dy = base + splitBytes, *du = dy + size_t(dw) * dh, *dv = du + size_t(dcw) * dch;
    libyuv::ScalePlane(src.y, src.yStride, w, h, dy, dw, dw, dh, libyuv::kFilterBox);
    libyuv::ScalePlane(src.u, src.uStride, cw, ch, du, dcw, dcw, dch, libyuv::kFilterBox);
    libyuv::ScalePlane(src.v, src.vStride, cw, ch, dv, dcw, dcw, dch, libyuv::kFilterBox);
    const int rc =
        packed ? libyuv::I422ToARGB(dy, dw, du, dcw, dv, dcw, out, destinationStride, dw, dh)
               : libyuv::I420ToARGB(dy, dw, du, dcw, dv, dcw, out, destinationStride, dw, dh);
    return rc == 0;
}

// Destination rows per strip when a shrink to half or less is cut into strips: a whole number of
// source rows each, so no box straddles two strips, both even for 4:2:0 chroma; 0 when no cut
// fits.
int stripRows(int sourceHeight, int destinationHeight)
{
    // About 16 destination rows keep a 4K strip's planes in the second-level cache.
    constexpr int kTargetRows = 16;
    int rows = destinationHeight / std::gcd(sourceHeight, destinationHeight);
    while (rows % 2 != 0 || qint64(rows) * sourceHeight / destinationHeight % 2 != 0)
        rows *= 2;
    rows *= (kTargetRows + rows - 1) / rows;
    return rows * 2 <= destinationHeight ? rows : 0;
}

} // namespace

// A shrink to half or less goes strip by strip, so the split and scaled planes stay in cache and
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
    // The library averages boxes below half size and 2x2 blocks at exactly half; anything else
    // it filters bilinearly.
    const bool boxes = (dw * 2 < w && dh * 2 < h) || (dw * 2 == w && dh * 2 == h);
    const int strip = boxes ? stripRows(h, dh) : 0;
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
    return libyuv::ARGBScale(source, sourceStride, sourceWidth, sourceHeight,
                             reinterpret_cast<uint8_t *>(destination), destinationStride,
                             destinationWidth, destinationHeight, libyuv::kFilterBox) == 0;
}
