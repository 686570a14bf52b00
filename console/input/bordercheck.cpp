#include "console/input/bordercheck.h"

#include <QDebug>

#include <csetjmp>
#include <cstdio>
#include <functional>
#include <vector>

#include <jpeglib.h>

namespace {

// A pixel counts as lit when R + G + B exceeds this.
constexpr int kDarkSum = 30;
// A dark band is accepted when its width held for this many scan lines before the last one.
constexpr int kStableLines = 9;

struct CheckErrorManager
{
    jpeg_error_mgr standard; // first: libjpeg hands the handler a pointer to it
    std::jmp_buf jumpBack;
};

// Sum of R + G + B per pixel, row-major.
class SumTable
{
public:
    void reset(int width, int height)
    {
        m_width = width;
        m_sums.assign(std::size_t(width) * std::size_t(height), 0);
    }
    quint16 *row(int y) { return m_sums.data() + std::size_t(y) * std::size_t(m_width); }
    int at(int x, int y) const { return m_sums[std::size_t(y) * std::size_t(m_width) + x]; }

private:
    int m_width = 0;
    std::vector<quint16> m_sums; // 765 at most: 16 bits are enough
};

// The width of the dark band along one side: over `lines` scan lines, the first lit sample among
// the first `depth` (depth when none). Accepted only when the narrowest band was found at least
// kStableLines lines before the last one and the last line did not narrow it.
int stableDarkBand(int lines, int depth, const std::function<bool(int line, int pos)> &lit,
                   const char *changedLog, const char *resultLog)
{
    int narrowest = depth;
    int sameCount = 0;
    bool lastLineNarrowed = false;
    int countBeforeLast = 0;
    for (int line = 0; line < lines; ++line) {
        int first = depth;
        for (int pos = 0; pos < depth; ++pos) {
            if (lit(line, pos)) {
                first = pos;
                break;
            }
        }
        if (line == lines - 1)
            countBeforeLast = sameCount;
        if (first < narrowest) {
            narrowest = first;
            sameCount = 1;
            lastLineNarrowed = line == lines - 1;
            qDebug() << changedLog << narrowest;
        } else {
            ++sameCount;
        }
    }
    const int band = (!lastLineNarrowed && countBeforeLast >= kStableLines) ? narrowest : 0;
    qDebug().nospace() << resultLog << " " << band << ",same cnt: " << sameCount;
    return band;
}

// Whether every pixel of the rectangle is dark.
bool allDark(const SumTable &sums, int x0, int y0, int x1, int y1)
{
    for (int y = y0; y < y1; ++y) {
        for (int x = x0; x < x1; ++x) {
            if (sums.at(x, y) > kDarkSum)
                return false;
        }
    }
    return true;
}

} // namespace

extern "C" void error_exit(j_common_ptr info)
{
    auto *manager = reinterpret_cast<CheckErrorManager *>(info->err);
    (*info->err->output_message)(info);
    std::longjmp(manager->jumpBack, 1);
}

int jpeg_check(const char *path, image_blank_info *info)
{
    std::FILE *file = std::fopen(path, "rb");
    if (!file) {
        std::fprintf(stderr, "Can't open %s\n", path);
        return 1;
    }
    // Everything that owns memory exists before the jump point: a long jump back skips no
    // destructor.
    jpeg_decompress_struct decoder;
    CheckErrorManager errors;
    SumTable sums;
    std::vector<JSAMPLE> line;
    decoder.err = jpeg_std_error(&errors.standard);
    errors.standard.error_exit = error_exit;
    if (setjmp(errors.jumpBack)) {
        jpeg_destroy_decompress(&decoder);
        std::fclose(file);
        return 1;
    }
    jpeg_create_decompress(&decoder);
    jpeg_stdio_src(&decoder, file);
    jpeg_read_header(&decoder, TRUE);
    decoder.out_color_space = JCS_RGB;
    jpeg_start_decompress(&decoder);

    const int width = int(decoder.output_width);
    const int height = int(decoder.output_height);
    info->width = width;
    info->height = height;
    qDebug() << "Resolution:" << width << "x" << height;
    // The scan reads a 256 x 128 corner at each side: a smaller picture has none to measure.
    if (width < kBorderScanColumns || height < kBorderScanRows || decoder.output_components != 3) {
        qDebug() << "picture smaller than the scanned corner, no margins measured";
        jpeg_abort_decompress(&decoder);
        jpeg_destroy_decompress(&decoder);
        std::fclose(file);
        return 1;
    }

    sums.reset(width, height);
    line.resize(std::size_t(width) * 3);
    JSAMPROW rows[1] = {line.data()};
    while (decoder.output_scanline < decoder.output_height) {
        const int y = int(decoder.output_scanline);
        jpeg_read_scanlines(&decoder, rows, 1);
        quint16 *out = sums.row(y);
        for (int x = 0; x < width; ++x)
            out[x] = quint16(line[x * 3] + line[x * 3 + 1] + line[x * 3 + 2]);
    }
    // A truncated or damaged stream decodes with warnings and made-up pixels: measure nothing.
    if (errors.standard.num_warnings > 0) {
        qDebug() << "picture damaged, no margins measured";
        jpeg_abort_decompress(&decoder);
        jpeg_destroy_decompress(&decoder);
        std::fclose(file);
        return 1;
    }

    qDebug() << "start vertical blank arear check";
    info->left = stableDarkBand(
        kBorderScanRows, kBorderScanColumns,
        [&sums](int row, int column) { return sums.at(column, row) > kDarkSum; },
        "vert scan len changed:", "left blank:");
    qDebug() << "check right arear check";
    if (info->left >= 1 &&
        !allDark(sums, width - info->left, height - kBorderScanRows, width, height)) {
        info->left = 0;
        info->right = 0;
        qDebug() << "right check failed";
    } else {
        info->right = info->left;
        qDebug() << "right check success, blank left:" << info->left << ", right:" << info->right;
    }

    qDebug() << "start horizon blank arear check";
    info->top = stableDarkBand(
        kBorderScanColumns, kBorderScanRows,
        [&sums](int column, int row) { return sums.at(column, row) > kDarkSum; },
        "hori scan len changed:", "top blank:");
    qDebug() << "check bottom arear check";
    if (info->top >= 1 &&
        !allDark(sums, width - kBorderScanColumns, height - info->top, width, height)) {
        info->top = 0;
        info->bottom = 0;
        qDebug() << "bottom check failed";
    } else {
        info->bottom = info->top;
        qDebug() << "bottom check success, blank top:" << info->top << ", bottom:" << info->bottom;
    }
    qDebug() << "final blank:" << info->top << info->left << info->bottom << info->right;

    jpeg_finish_decompress(&decoder);
    jpeg_destroy_decompress(&decoder);
    std::fclose(file);
    return 0;
}

bool borderCheckDue(quint64 landscapeFramesBefore, const image_blank_info &borders)
{
    const bool known =
        borders.top >= 1 || borders.left >= 1 || borders.bottom >= 1 || borders.right >= 1;
    const quint64 interval = known ? kBorderCheckIntervalKnown : kBorderCheckIntervalUnknown;
    return landscapeFramesBefore == 0 || (landscapeFramesBefore + 1) % interval == 0;
}
