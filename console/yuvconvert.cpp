#include "console/yuvconvert.h"

#include <algorithm>

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
