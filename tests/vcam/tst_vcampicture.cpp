#include <QPoint>
#include <QTest>

#include <algorithm>
#include <cstdio>
#include <vector>

#include <jpeglib.h>

#include "targetscreen.h"
#include "vcamdesktop.h"
#include "vcamjpeg.h"
#include "vcampicture.h"

using namespace vcam;

namespace {

// A picture with its own planes, filled with one grey (luma 100, chroma 60).
struct OwnedPicture
{
    Picture picture;
    std::vector<std::uint8_t> planes[3];

    OwnedPicture(const OwnedPicture &) = delete;
    OwnedPicture &operator=(const OwnedPicture &) = delete;
    // `padded`: I420 rows as wide as the JPEG encoder reads them.
    OwnedPicture(Picture::Layout layout, int width, int height, bool padded = false)
    {
        picture.layout = layout;
        picture.width = width;
        picture.height = height;
        const int cw = (width + 1) / 2;
        const int ch = (height + 1) / 2;
        switch (layout) {
        case Picture::I420:
            allocate(0, padded ? jpegLumaStride(width) : width, height, 100);
            allocate(1, padded ? jpegChromaStride(width) : cw, ch, 60);
            allocate(2, padded ? jpegChromaStride(width) : cw, ch, 60);
            break;
        case Picture::Nv12:
            allocate(0, width, height, 100);
            allocate(1, cw * 2, ch, 60);
            break;
        case Picture::Yuy2:
            allocate(0, cw * 4, height, 0);
            for (int i = 0; i < cw * 4 * height; ++i)
                picture.planes[0][i] = i % 2 ? 60 : 100;
            break;
        }
    }

    static constexpr std::size_t kGuard = 64;
    static constexpr std::uint8_t kGuardByte = 0xA5;

    // Exactly the bytes the layout needs, between guard bytes that must stay as they are.
    void allocate(int plane, int stride, int rows, std::uint8_t value)
    {
        planes[plane].assign(kGuard + std::size_t(stride) * std::size_t(rows) + kGuard, kGuardByte);
        std::fill(planes[plane].begin() + kGuard, planes[plane].end() - kGuard, value);
        picture.planes[plane] = planes[plane].data() + kGuard;
        picture.strides[plane] = stride;
    }

    // Every sample of the picture (not the guards) set to `value`.
    void clear(std::uint8_t value)
    {
        for (auto &plane : planes) {
            if (!plane.empty())
                std::fill(plane.begin() + kGuard, plane.end() - kGuard, value);
        }
    }

    bool guardsIntact() const
    {
        for (const auto &plane : planes) {
            if (plane.empty())
                continue;
            const auto untouched = [](std::uint8_t b) { return b == kGuardByte; };
            if (!std::all_of(plane.begin(), plane.begin() + kGuard, untouched) ||
                !std::all_of(plane.end() - kGuard, plane.end(), untouched))
                return false;
        }
        return true;
    }

    std::uint8_t luma(int x, int y) const
    {
        if (picture.layout == Picture::Yuy2)
            return picture.planes[0][y * picture.strides[0] + x * 2];
        return picture.planes[0][y * picture.strides[0] + x];
    }

    // The U sample covering pixel (x, y).
    std::uint8_t chromaU(int x, int y) const
    {
        switch (picture.layout) {
        case Picture::I420:
            return picture.planes[1][(y / 2) * picture.strides[1] + x / 2];
        case Picture::Nv12:
            return picture.planes[1][(y / 2) * picture.strides[1] + (x / 2) * 2];
        case Picture::Yuy2:
            return picture.planes[0][y * picture.strides[0] + (x / 2) * 4 + 1];
        }
        return 0;
    }

    bool operator==(const OwnedPicture &other) const
    {
        return planes[0] == other.planes[0] && planes[1] == other.planes[1] &&
               planes[2] == other.planes[2];
    }
};

// What libjpeg reads back from an encoded frame: size, components and the luma plane.
struct Decoded
{
    bool ok = false;
    int width = 0;
    int height = 0;
    int components = 0;
    std::vector<std::uint8_t> luma;

    std::uint8_t at(int x, int y) const { return luma[std::size_t(y * width + x)]; }
};

Decoded decode(const std::vector<std::uint8_t> &jpeg)
{
    Decoded out;
    jpeg_decompress_struct cinfo;
    jpeg_error_mgr err;
    cinfo.err = jpeg_std_error(&err);
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, jpeg.data(), static_cast<unsigned long>(jpeg.size()));
    if (jpeg_read_header(&cinfo, TRUE) == JPEG_HEADER_OK) {
        cinfo.out_color_space = JCS_YCbCr;
        jpeg_start_decompress(&cinfo);
        out.width = int(cinfo.output_width);
        out.height = int(cinfo.output_height);
        out.components = cinfo.output_components;
        std::vector<std::uint8_t> row(std::size_t(out.width) * std::size_t(out.components));
        while (cinfo.output_scanline < cinfo.output_height) {
            JSAMPROW rows[1] = {row.data()};
            jpeg_read_scanlines(&cinfo, rows, 1);
            for (int x = 0; x < out.width; ++x)
                out.luma.push_back(row[std::size_t(x * out.components)]);
        }
        jpeg_finish_decompress(&cinfo);
        out.ok = true;
    }
    jpeg_destroy_decompress(&cinfo);
    return out;
}

} // namespace

class TestVcamPicture : public QObject
{
    Q_OBJECT
private slots:
    void patternCoversThePicture_data();
    void patternCoversThePicture();
    void barsInStandardOrder();
    void barsMoveRampStays_data();
    void barsMoveRampStays();
    void overlayDrawsInItsCorner_data();
    void overlayDrawsInItsCorner();
    void overlayChangesWithTheFrame_data();
    void overlayChangesWithTheFrame();
    void overlayClipsToSmallPictures_data();
    void overlayClipsToSmallPictures();
    void jpegDecodesBack_data();
    void jpegDecodesBack();
    void jpegRefusesOtherPictures();
    void bordersParse_data();
    void bordersParse();
    void bordersFrameThePicture_data();
    void bordersFrameThePicture();
    void desktopShowsTheTarget_data();
    void desktopShowsTheTarget();
};

void TestVcamPicture::patternCoversThePicture_data()
{
    QTest::addColumn<int>("layout");
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::newRow("I420 640x480") << int(Picture::I420) << 640 << 480;
    QTest::newRow("NV12 1920x1080") << int(Picture::Nv12) << 1920 << 1080;
    QTest::newRow("YUY2 640x480") << int(Picture::Yuy2) << 640 << 480;
    QTest::newRow("I420 odd size") << int(Picture::I420) << 33 << 17;
    QTest::newRow("NV12 odd size") << int(Picture::Nv12) << 7 << 5;
    QTest::newRow("YUY2 narrow") << int(Picture::Yuy2) << 2 << 3;
}

void TestVcamPicture::patternCoversThePicture()
{
    QFETCH(int, layout);
    QFETCH(int, width);
    QFETCH(int, height);
    OwnedPicture pic(Picture::Layout(layout), width, height);
    // Zero is outside the pattern's range: any zero left over is a sample not drawn.
    pic.clear(0);
    drawTestPattern(pic.picture, 5);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            QVERIFY2(pic.luma(x, y) >= 16 && pic.luma(x, y) <= 235,
                     qPrintable(QStringLiteral("luma at %1,%2").arg(x).arg(y)));
            QVERIFY2(pic.chromaU(x, y) >= 16,
                     qPrintable(QStringLiteral("chroma at %1,%2").arg(x).arg(y)));
        }
    }
    QVERIFY(pic.guardsIntact());
}

void TestVcamPicture::barsInStandardOrder()
{
    // 75 % colour bars, BT.601 luma: white, yellow, cyan, green, magenta, red, blue, black.
    const int width = 800;
    OwnedPicture pic(Picture::I420, width, 600);
    drawTestPattern(pic.picture, 0);
    const int expected[8] = {180, 162, 131, 112, 84, 65, 35, 16};
    for (int bar = 0; bar < 8; ++bar) {
        const int x = bar * width / 8 + width / 16;
        QCOMPARE(int(pic.luma(x, 300)), expected[bar]);
    }
    // Black and white bars carry no colour; the others do.
    QCOMPARE(int(pic.chromaU(width / 16, 300)), 128);
    QVERIFY(pic.chromaU(width / 8 + width / 16, 300) != 128);
}

void TestVcamPicture::barsMoveRampStays_data()
{
    QTest::addColumn<int>("layout");
    QTest::newRow("I420") << int(Picture::I420);
    QTest::newRow("NV12") << int(Picture::Nv12);
    QTest::newRow("YUY2") << int(Picture::Yuy2);
}

void TestVcamPicture::barsMoveRampStays()
{
    QFETCH(int, layout);
    const int width = 640;
    const int height = 480;
    OwnedPicture first(Picture::Layout(layout), width, height);
    OwnedPicture next(Picture::Layout(layout), width, height);
    drawTestPattern(first.picture, 10);
    drawTestPattern(next.picture, 11);

    int movedRows = 0;
    for (int y = 0; y < height * 3 / 4; ++y) {
        for (int x = 0; x < width; ++x) {
            if (first.luma(x, y) != next.luma(x, y)) {
                ++movedRows;
                break;
            }
        }
    }
    QCOMPARE(movedRows, height * 3 / 4);
    for (int y = height * 3 / 4; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            QCOMPARE(first.luma(x, y), next.luma(x, y));
    }
    // The ramp goes from black to white.
    QCOMPARE(int(first.luma(0, height - 1)), 16);
    QCOMPARE(int(first.luma(width - 1, height - 1)), 235);
}

void TestVcamPicture::overlayDrawsInItsCorner_data()
{
    QTest::addColumn<int>("layout");
    QTest::newRow("I420") << int(Picture::I420);
    QTest::newRow("NV12") << int(Picture::Nv12);
    QTest::newRow("YUY2") << int(Picture::Yuy2);
}

void TestVcamPicture::overlayDrawsInItsCorner()
{
    QFETCH(int, layout);
    const int width = 640;
    const int height = 480;
    OwnedPicture pic(Picture::Layout(layout), width, height);
    drawOverlay(pic.picture, "AB", 7);

    const int scale = overlayScale(height);
    // The text sits inside its black box: white dots, black around them, grey chroma.
    int white = 0;
    int black = 0;
    for (int y = 0; y < 20 * scale; ++y) {
        for (int x = 0; x < 14 * scale; ++x) {
            white += pic.luma(x, y) == 235;
            black += pic.luma(x, y) == 16;
        }
    }
    QVERIFY(white > 0);
    QVERIFY(black > white);
    QCOMPARE(pic.chromaU(2 * scale, 2 * scale), std::uint8_t(128));

    // The middle of the picture and its right edge above the marker are untouched.
    for (int y = height / 4; y < height / 2; y += 7) {
        for (int x = width / 4; x < width; x += 5) {
            QCOMPARE(pic.luma(x, y), std::uint8_t(100));
            QCOMPARE(pic.chromaU(x, y), std::uint8_t(60));
        }
    }

    // The marker is on the bottom band.
    int markerWhite = 0;
    for (int y = height - 8 * scale; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            markerWhite += pic.luma(x, y) == 235;
    }
    QVERIFY(markerWhite > 0);
    QVERIFY(pic.guardsIntact());
}

void TestVcamPicture::overlayChangesWithTheFrame_data()
{
    overlayDrawsInItsCorner_data();
}

void TestVcamPicture::overlayChangesWithTheFrame()
{
    QFETCH(int, layout);
    OwnedPicture first(Picture::Layout(layout), 320, 240);
    OwnedPicture second(Picture::Layout(layout), 320, 240);
    OwnedPicture again(Picture::Layout(layout), 320, 240);
    drawOverlay(first.picture, "TK3V0001", 41);
    drawOverlay(second.picture, "TK3V0001", 42);
    drawOverlay(again.picture, "TK3V0001", 41);
    QVERIFY(!(first == second));
    QVERIFY(first == again);
}

void TestVcamPicture::overlayClipsToSmallPictures_data()
{
    QTest::addColumn<int>("layout");
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::newRow("I420 odd size") << int(Picture::I420) << 7 << 5;
    QTest::newRow("NV12 odd size") << int(Picture::Nv12) << 7 << 5;
    QTest::newRow("YUY2 tiny") << int(Picture::Yuy2) << 6 << 4;
    QTest::newRow("NV12 one pixel") << int(Picture::Nv12) << 1 << 1;
    QTest::newRow("I420 narrow") << int(Picture::I420) << 2 << 300;
}

void TestVcamPicture::overlayClipsToSmallPictures()
{
    QFETCH(int, layout);
    QFETCH(int, width);
    QFETCH(int, height);
    OwnedPicture pic(Picture::Layout(layout), width, height);
    // Every frame number moves the marker somewhere else; none may write outside the planes.
    for (std::uint64_t frame = 0; frame < 50; ++frame)
        drawOverlay(pic.picture, "A LONG LABEL THAT DOES NOT FIT", frame);
    QVERIFY(pic.guardsIntact());
}

void TestVcamPicture::jpegDecodesBack_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::newRow("1280x720") << 1280 << 720;
    QTest::newRow("1920x1080, height not a multiple of 16") << 1920 << 1080;
    QTest::newRow("640x480") << 640 << 480;
    QTest::newRow("odd size") << 33 << 17;
}

void TestVcamPicture::jpegDecodesBack()
{
    QFETCH(int, width);
    QFETCH(int, height);
    OwnedPicture pic(Picture::I420, width, height, true);
    drawTestPattern(pic.picture, 3);
    drawOverlay(pic.picture, "TK3V0001", 3);

    std::vector<std::uint8_t> jpeg;
    std::string error;
    QVERIFY2(encodeJpeg(pic.picture, 80, jpeg, error), error.c_str());
    QVERIFY(pic.guardsIntact());
    QVERIFY(jpeg.size() > 4);
    QCOMPARE(int(jpeg[0]), 0xFF);
    QCOMPARE(int(jpeg[1]), 0xD8);
    QCOMPARE(int(jpeg[jpeg.size() - 2]), 0xFF);
    QCOMPARE(int(jpeg[jpeg.size() - 1]), 0xD9);

    const Decoded decoded = decode(jpeg);
    QVERIFY(decoded.ok);
    QCOMPARE(decoded.width, width);
    QCOMPARE(decoded.height, height);
    QCOMPARE(decoded.components, 3);
    // Lossy, but every pixel stays near what was drawn, the bottom rows included.
    int worst = 0;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            worst = std::max(worst, std::abs(int(decoded.at(x, y)) - int(pic.luma(x, y))));
    }
    QVERIFY2(worst <= 64, qPrintable(QString::number(worst)));
    int near = 0;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x)
            near += std::abs(int(decoded.at(x, y)) - int(pic.luma(x, y))) <= 8;
    }
    QVERIFY(near > width * height * 3 / 4);
}

void TestVcamPicture::jpegRefusesOtherPictures()
{
    std::vector<std::uint8_t> jpeg{1, 2, 3};
    std::string error;

    OwnedPicture nv12(Picture::Nv12, 64, 48);
    QVERIFY(!encodeJpeg(nv12.picture, 80, jpeg, error));
    QVERIFY(!error.empty());
    QVERIFY(jpeg.empty());

    // Rows narrower than the encoder reads them would be read past their end.
    OwnedPicture narrow(Picture::I420, 40, 40);
    error.clear();
    QVERIFY(!encodeJpeg(narrow.picture, 80, jpeg, error));
    QVERIFY(!error.empty());

    OwnedPicture empty(Picture::I420, 0, 0, true);
    QVERIFY(!encodeJpeg(empty.picture, 80, jpeg, error));
}

void TestVcamPicture::bordersParse_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("left");
    QTest::addColumn<int>("top");
    QTest::newRow("both") << QByteArray("208,112") << 208 << 112;
    QTest::newRow("odd values made even") << QByteArray("7,9") << 6 << 8;
    QTest::newRow("columns only") << QByteArray("240,0") << 240 << 0;
    QTest::newRow("one number") << QByteArray("240") << 0 << 0;
    QTest::newRow("negative") << QByteArray("-2,4") << 0 << 0;
    QTest::newRow("too wide") << QByteArray("2000,0") << 0 << 0;
    QTest::newRow("trailing text") << QByteArray("8,8px") << 0 << 0;
    QTest::newRow("unset") << QByteArray() << 0 << 0;
}

void TestVcamPicture::bordersParse()
{
    QFETCH(QByteArray, text);
    QFETCH(int, left);
    QFETCH(int, top);
    const Borders borders = parseBorders(text.isNull() ? nullptr : text.constData());
    QCOMPARE(borders.left, left);
    QCOMPARE(borders.top, top);
}

void TestVcamPicture::bordersFrameThePicture_data()
{
    QTest::addColumn<int>("layout");
    QTest::newRow("I420") << int(Picture::I420);
    QTest::newRow("NV12") << int(Picture::Nv12);
    QTest::newRow("YUY2") << int(Picture::Yuy2);
}

void TestVcamPicture::bordersFrameThePicture()
{
    QFETCH(int, layout);
    OwnedPicture owned(Picture::Layout(layout), 320, 240);
    drawFrame(owned.picture, Borders{40, 20}, "TK0001", 7);
    QVERIFY(owned.guardsIntact());
    // Margins black and colourless on all four sides.
    for (const QPoint p : {QPoint(0, 0), QPoint(39, 120), QPoint(280, 120), QPoint(319, 239),
                           QPoint(160, 19), QPoint(160, 220)}) {
        QCOMPARE(int(owned.luma(p.x(), p.y())), 16);
        QCOMPARE(int(owned.chromaU(p.x(), p.y())), 128);
    }
    // The picture starts right at the borders with its light edge.
    for (const QPoint p : {QPoint(40, 120), QPoint(279, 120), QPoint(160, 20), QPoint(160, 219)})
        QVERIFY2(owned.luma(p.x(), p.y()) > 150, qPrintable(QString::number(p.x())));

    // Borders that leave too little picture are dropped: the pattern fills the frame.
    OwnedPicture small(Picture::Layout(layout), 120, 100);
    drawFrame(small.picture, Borders{40, 20}, "TK0001", 7);
    QVERIFY(small.luma(0, 30) != 16);
}

void TestVcamPicture::desktopShowsTheTarget_data()
{
    QTest::addColumn<int>("layout");
    QTest::addColumn<QSize>("frame");
    QTest::addColumn<int>("borderMode");
    QTest::addColumn<QSize>("target");
    QTest::addColumn<QRect>("inner"); // where the target's screen lies in the frame

    const int none = int(targetscreen::BorderMode::None);
    const int fourByThree = int(targetscreen::BorderMode::FourByThree);
    const int margins = int(targetscreen::BorderMode::Margins); // 100 columns, 60 rows
    QTest::newRow("NV12 1080p, 1080p target") << int(Picture::Nv12) << QSize(1920, 1080) << none
                                              << QSize(1920, 1080) << QRect(0, 0, 1920, 1080);
    QTest::newRow("I420 720p, 1080p target") << int(Picture::I420) << QSize(1280, 720) << none
                                             << QSize(1920, 1080) << QRect(0, 0, 1280, 720);
    QTest::newRow("YUY2 1080p, 4:3 target")
        << int(Picture::Yuy2) << QSize(1920, 1080) << fourByThree << QSize(1024, 768)
        << QRect(240, 0, 1440, 1080);
    QTest::newRow("I420 720p, 4:3 target") << int(Picture::I420) << QSize(1280, 720) << fourByThree
                                           << QSize(1440, 1080) << QRect(160, 0, 960, 720);
    QTest::newRow("NV12 1080p, margins") << int(Picture::Nv12) << QSize(1920, 1080) << margins
                                         << QSize(1920, 1080) << QRect(100, 60, 1720, 960);
}

void TestVcamPicture::desktopShowsTheTarget()
{
    QFETCH(int, layout);
    QFETCH(QSize, frame);
    QFETCH(int, borderMode);
    QFETCH(QSize, target);
    QFETCH(QRect, inner);

    targetscreen::State state;
    state.width = std::uint32_t(target.width());
    state.height = std::uint32_t(target.height());
    state.borderMode = targetscreen::BorderMode(borderMode);
    state.borderLeft = 100;
    state.borderTop = 60;
    state.cursorX = target.width() / 3;
    state.cursorY = target.height() / 4;
    state.textEdits = 0xA5C3;
    state.setText("The quick brown fox\n\tjumps");
    OwnedPicture owned(Picture::Layout(layout), frame.width(), frame.height());
    drawDesktop(owned.picture, state, "TK3V0001", 42);
    QVERIFY(owned.guardsIntact());

    const targetscreen::Rect rect = targetscreen::innerRect(state, frame.width(), frame.height());
    QCOMPARE(QRect(rect.x, rect.y, rect.width, rect.height), inner);
    // Outside the target's screen everything is black and colourless; inside, nothing is.
    QVector<QPoint> outside;
    if (inner.x() > 0)
        outside << QPoint(0, 0) << QPoint(inner.x() - 1, frame.height() / 2)
                << QPoint(inner.right() + 1, frame.height() - 1);
    if (inner.y() > 0)
        outside << QPoint(frame.width() / 2, inner.y() - 1)
                << QPoint(frame.width() / 2, inner.bottom() + 1);
    for (const QPoint p : outside) {
        QCOMPARE(int(owned.luma(p.x(), p.y())), 16);
        QCOMPARE(int(owned.chromaU(p.x(), p.y())), 128);
    }
    for (const QPoint p : {inner.topLeft(), inner.bottomRight(), inner.topRight()})
        QVERIFY2(owned.luma(p.x(), p.y()) > 30,
                 qPrintable(QStringLiteral("%1,%2").arg(p.x()).arg(p.y())));

    // The cursor's tip is the pixel the target's position maps to.
    const int tipX = inner.x() + int(state.cursorX) * inner.width() / target.width();
    const int tipY = inner.y() + int(state.cursorY) * inner.height() / target.height();
    QCOMPARE(int(owned.luma(tipX, tipY)), 16);
    QVERIFY(owned.luma(tipX - 1, tipY) > 30);
    QVERIFY(owned.luma(tipX, tipY - 1) > 30);

    // The edit counter reads back from the luma; a picture without it reads as none.
    const int step = layout == Picture::Yuy2 ? 2 : 1;
    QCOMPARE(readEditCode(state, owned.picture.planes[0], owned.picture.strides[0], step,
                          frame.width(), frame.height()),
             0xA5C3);
    drawTestPattern(owned.picture, 3);
    QCOMPARE(readEditCode(state, owned.picture.planes[0], owned.picture.strides[0], step,
                          frame.width(), frame.height()),
             -1);
}

QTEST_APPLESS_MAIN(TestVcamPicture)
#include "tst_vcampicture.moc"
