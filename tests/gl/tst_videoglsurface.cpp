// The GPU surface against a real OpenGL context: colour bars in NV12, YUYV and UYVY come out as the
// full-range BT.601 colours, upright, letterboxed into black margins; frames the shaders cannot
// convert leave the surface black. Without OpenGL (offscreen platform, no display) the drawing
// tests skip.

#include <QApplication>
#include <QImage>
#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <QTest>
#include <QVideoFrame>
#include <QVideoFrameFormat>
#include <QWidget>
#include <algorithm>
#include <cmath>
#include <cstring>

#include "console/gl/videoglsurface.h"

Q_DECLARE_METATYPE(QVideoFrameFormat::PixelFormat)

namespace {

struct Rgb
{
    double r, g, b;
};

struct Yuv
{
    int y, u, v;
};

// Per-channel tolerance between the expected colour and the read-back pixel.
constexpr int kTolerance = 6;

// Vertical bars, left to right.
const Rgb kBarColours[] = {
    {255, 255, 255}, // white
    {255, 255, 0},   // yellow
    {0, 255, 255},   // cyan
    {0, 255, 0},     // green
    {255, 0, 255},   // magenta
    {255, 0, 0},     // red
    {0, 0, 255},     // blue
    {0, 0, 0},       // black
};
constexpr int kBarCount = int(sizeof(kBarColours) / sizeof(kBarColours[0]));

// The top quarter of the picture: a colour that occurs nowhere else.
const Rgb kTopMarker = {255, 128, 0};

// The bottom quarter: grey columns whose luma alternates with the column parity.
constexpr int kStripeEvenY = 40;
constexpr int kStripeOddY = 210;

int clampByte(double value)
{
    return std::clamp(int(std::lround(value)), 0, 255);
}

// Full-range BT.601, the inverse of rgbFromYuv.
Yuv yuvFromRgb(const Rgb &c)
{
    const double y = 0.299 * c.r + 0.587 * c.g + 0.114 * c.b;
    return {clampByte(y), clampByte(127.5 + (c.b - y) / 1.772),
            clampByte(127.5 + (c.r - y) / 1.402)};
}

// Full-range BT.601 in byte units: no offset on Y, chroma centred on 127.5 (0.5 normalised).
Rgb rgbFromYuv(double y, double u, double v)
{
    const double cu = u - 127.5;
    const double cv = v - 127.5;
    auto channel = [](double value) { return std::clamp(value, 0.0, 255.0); };
    return {channel(y + 1.402 * cv), channel(y - 0.344136 * cu - 0.714136 * cv),
            channel(y + 1.772 * cu)};
}

// Rows [0, markerEnd) carry the top marker, [markerEnd, barsEnd) the bars, [barsEnd, height) the
// stripes. The boundaries are even so that no NV12 chroma row straddles two regions.
struct TestPicture
{
    int width = 0;
    int height = 0;
    int markerEnd = 0;
    int barsEnd = 0;

    explicit TestPicture(QSize size)
        : width(size.width()), height(size.height()), markerEnd((size.height() / 4) & ~1),
          barsEnd((size.height() - markerEnd) & ~1)
    {}

    int barAt(int x) const { return x * kBarCount / width; }

    Yuv pixel(int x, int y) const
    {
        if (y < markerEnd)
            return yuvFromRgb(kTopMarker);
        if (y < barsEnd)
            return yuvFromRgb(kBarColours[barAt(x)]);
        return {(x % 2 == 0) ? kStripeEvenY : kStripeOddY, 128, 128};
    }
};

// Bytes no correct upload reads: the padding at the end of each line.
constexpr uchar kPaddingByte = 0xEE;

QVideoFrame makePictureFrame(QVideoFrameFormat::PixelFormat format, QSize size)
{
    QVideoFrame frame(QVideoFrameFormat(size, format));
    if (!frame.map(QVideoFrame::WriteOnly))
        return {};
    const TestPicture picture(size);
    const int w = size.width();
    const int h = size.height();
    for (int plane = 0; plane < frame.planeCount(); ++plane)
        std::memset(frame.bits(plane), kPaddingByte, size_t(frame.mappedBytes(plane)));

    if (format == QVideoFrameFormat::Format_NV12) {
        uchar *luma = frame.bits(0);
        const int lumaStride = frame.bytesPerLine(0);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                luma[y * lumaStride + x] = uchar(picture.pixel(x, y).y);
        uchar *chroma = frame.bits(1);
        const int chromaStride = frame.bytesPerLine(1);
        for (int cy = 0; cy < h / 2; ++cy) {
            for (int cx = 0; cx < w / 2; ++cx) {
                const Yuv yuv = picture.pixel(2 * cx, 2 * cy);
                chroma[cy * chromaStride + 2 * cx] = uchar(yuv.u);
                chroma[cy * chromaStride + 2 * cx + 1] = uchar(yuv.v);
            }
        }
    } else if (format == QVideoFrameFormat::Format_YUYV ||
               format == QVideoFrameFormat::Format_UYVY) {
        uchar *bytes = frame.bits(0);
        const int stride = frame.bytesPerLine(0);
        const bool yuyv = format == QVideoFrameFormat::Format_YUYV;
        for (int y = 0; y < h; ++y) {
            for (int pair = 0; pair < w / 2; ++pair) {
                const Yuv left = picture.pixel(2 * pair, y);
                const Yuv right = picture.pixel(2 * pair + 1, y);
                uchar *texel = bytes + y * stride + 4 * pair;
                const uchar yuyvOrder[4] = {uchar(left.y), uchar(left.u), uchar(right.y),
                                            uchar(left.v)};
                const uchar uyvyOrder[4] = {uchar(left.u), uchar(left.y), uchar(left.v),
                                            uchar(right.y)};
                std::memcpy(texel, yuyv ? yuyvOrder : uyvyOrder, 4);
            }
        }
    }
    frame.unmap();
    return frame;
}

// A frame whose every byte is `value`: a bright picture in any format.
QVideoFrame makeFilledFrame(QVideoFrameFormat::PixelFormat format, QSize size, uchar value)
{
    QVideoFrame frame(QVideoFrameFormat(size, format));
    if (!frame.map(QVideoFrame::WriteOnly))
        return {};
    for (int plane = 0; plane < frame.planeCount(); ++plane)
        std::memset(frame.bits(plane), value, size_t(frame.mappedBytes(plane)));
    frame.unmap();
    return frame;
}

// Where the picture lands in a view: the centred rectangle of the picture's aspect ratio.
struct Placement
{
    double left, top, width, height;

    Placement(QSize view, QSize picture)
    {
        const double scale = std::min(double(view.width()) / picture.width(),
                                      double(view.height()) / picture.height());
        width = picture.width() * scale;
        height = picture.height() * scale;
        left = (view.width() - width) / 2;
        top = (view.height() - height) / 2;
    }
};

QString describe(const QColor &c)
{
    return QStringLiteral("(%1, %2, %3)").arg(c.red()).arg(c.green()).arg(c.blue());
}

bool near(const QColor &actual, const Rgb &expected)
{
    return std::abs(actual.red() - expected.r) <= kTolerance &&
           std::abs(actual.green() - expected.g) <= kTolerance &&
           std::abs(actual.blue() - expected.b) <= kTolerance;
}

QString mismatch(const char *what, QPoint at, const QColor &actual, const Rgb &expected)
{
    return QStringLiteral("%1 at (%2, %3): got %4, expected (%5, %6, %7) +-%8")
        .arg(QLatin1String(what))
        .arg(at.x())
        .arg(at.y())
        .arg(describe(actual))
        .arg(expected.r, 0, 'f', 1)
        .arg(expected.g, 0, 'f', 1)
        .arg(expected.b, 0, 'f', 1)
        .arg(kTolerance);
}

// First pixel of the image that is not pure black, or (-1, -1).
QPoint firstNonBlack(const QImage &image, const QRect &area)
{
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x)
            if ((image.pixel(x, y) & 0x00ffffffu) != 0)
                return {x, y};
    return {-1, -1};
}

// A top-level window showing the surface over its whole area, as the console view does.
struct SurfaceWindow
{
    QWidget host;
    VideoGlSurface *surface = nullptr;

    explicit SurfaceWindow(QSize size)
    {
        host.setWindowTitle(QStringLiteral("tst_videoglsurface"));
        host.resize(size);
        surface = new VideoGlSurface(&host);
        surface->setGeometry(QRect(QPoint(0, 0), size));
    }
};

} // namespace

class TestVideoGlSurface : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void canFastUpload_data();
    void canFastUpload();
    void construction();
    void drawsUprightLetterboxedBars_data();
    void drawsUprightLetterboxedBars();
    void framesWithoutPictureClearIt_data();
    void framesWithoutPictureClearIt();

private:
    bool m_openGl = false;
    QByteArray m_noOpenGlReason;
};

#define REQUIRE_OPENGL()                                                                           \
    do {                                                                                           \
        if (!m_openGl)                                                                             \
            QSKIP(m_noOpenGlReason.constData());                                                   \
    } while (false)

void TestVideoGlSurface::initTestCase()
{
    const QString platform = QGuiApplication::platformName();
    if (platform == QLatin1String("offscreen") || platform == QLatin1String("minimal")) {
        m_noOpenGlReason = "no OpenGL on the " + platform.toUtf8() + " platform; run on xcb";
        return;
    }
    QSurfaceFormat wanted;
    wanted.setVersion(3, 3);
    wanted.setProfile(QSurfaceFormat::CoreProfile);
    QOpenGLContext probe;
    probe.setFormat(wanted);
    if (!probe.create()) {
        m_noOpenGlReason = "cannot create an OpenGL 3.3 core context";
        return;
    }
    QOffscreenSurface surface;
    surface.setFormat(probe.format());
    surface.create();
    if (!probe.makeCurrent(&surface)) {
        m_noOpenGlReason = "cannot make an OpenGL context current";
        return;
    }
    const QSurfaceFormat got = probe.format();
    probe.doneCurrent();
    if (got.version() < qMakePair(3, 3) || probe.isOpenGLES()) {
        m_noOpenGlReason = QByteArray("OpenGL 3.3 unavailable, got ") +
                           QByteArray::number(got.majorVersion()) + '.' +
                           QByteArray::number(got.minorVersion());
        return;
    }
    m_openGl = true;
}

void TestVideoGlSurface::canFastUpload_data()
{
    QTest::addColumn<QVideoFrameFormat::PixelFormat>("format");
    QTest::addColumn<bool>("fast");

    for (int value = 0; value < QVideoFrameFormat::NPixelFormats; ++value) {
        const auto format = QVideoFrameFormat::PixelFormat(value);
        const bool fast = format == QVideoFrameFormat::Format_UYVY ||
                          format == QVideoFrameFormat::Format_YUYV ||
                          format == QVideoFrameFormat::Format_NV12;
        QTest::addRow("%d %s", value, qPrintable(QVideoFrameFormat::pixelFormatToString(format)))
            << format << fast;
    }
}

void TestVideoGlSurface::canFastUpload()
{
    QFETCH(QVideoFrameFormat::PixelFormat, format);
    QFETCH(bool, fast);
    QCOMPARE(VideoGlSurface::canFastUpload(format), fast);
}

void TestVideoGlSurface::construction()
{
    // Only properties here: nothing needs a context until the widget is shown.
    SurfaceWindow window(QSize(320, 180));
    VideoGlSurface *surface = window.surface;
    QVERIFY(surface->testAttribute(Qt::WA_TransparentForMouseEvents));
    QCOMPARE(surface->updateBehavior(), QOpenGLWidget::NoPartialUpdate);
    QCOMPARE(surface->format().majorVersion(), 3);
    QCOMPARE(surface->format().minorVersion(), 3);
    QCOMPARE(surface->format().profile(), QSurfaceFormat::CoreProfile);
    // Mouse events over the picture reach the view underneath.
    QCOMPARE(window.host.childAt(160, 90), nullptr);
}

void TestVideoGlSurface::drawsUprightLetterboxedBars_data()
{
    QTest::addColumn<QVideoFrameFormat::PixelFormat>("format");
    QTest::addColumn<QSize>("pictureSize");
    QTest::addColumn<QSize>("viewSize");

    const struct
    {
        QVideoFrameFormat::PixelFormat format;
        const char *name;
    } formats[] = {
        {QVideoFrameFormat::Format_NV12, "NV12"},
        {QVideoFrameFormat::Format_YUYV, "YUYV"},
        {QVideoFrameFormat::Format_UYVY, "UYVY"},
    };
    // 356 pixels is no multiple of 16: every plane's lines carry padding.
    const struct
    {
        const char *name;
        QSize picture;
        QSize view;
    } layouts[] = {
        {"16:9 fills the view", QSize(320, 180), QSize(640, 360)},
        {"pillarbox", QSize(320, 180), QSize(800, 360)},
        {"letterbox", QSize(320, 180), QSize(640, 480)},
        {"padded lines, fractional scale", QSize(356, 200), QSize(1000, 1000)},
    };
    for (const auto &f : formats)
        for (const auto &l : layouts)
            QTest::addRow("%s, %s", f.name, l.name) << f.format << l.picture << l.view;
}

void TestVideoGlSurface::drawsUprightLetterboxedBars()
{
    REQUIRE_OPENGL();
    QFETCH(QVideoFrameFormat::PixelFormat, format);
    QFETCH(QSize, pictureSize);
    QFETCH(QSize, viewSize);

    const QVideoFrame frame = makePictureFrame(format, pictureSize);
    QVERIFY(frame.isValid());
    if (pictureSize.width() % 16 != 0) {
        QVideoFrame mapped(frame);
        QVERIFY(mapped.map(QVideoFrame::ReadOnly));
        const int stride = mapped.bytesPerLine(0);
        mapped.unmap();
        const int rowBytes = format == QVideoFrameFormat::Format_NV12 ? pictureSize.width()
                                                                      : 2 * pictureSize.width();
        QVERIFY2(stride > rowBytes, "the frame was meant to have padded lines");
    }

    SurfaceWindow window(viewSize);
    window.surface->setVideoFrame(frame);
    window.host.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window.host));
    const QImage image = window.surface->grabFramebuffer().convertToFormat(QImage::Format_RGB32);
    QVERIFY2(window.surface->isValid(), "the surface got no OpenGL context");
    const QSurfaceFormat contextFormat = window.surface->context()->format();
    QVERIFY(contextFormat.version() >= qMakePair(3, 3));
    QCOMPARE(contextFormat.profile(), QSurfaceFormat::CoreProfile);
    QCOMPARE(image.size(), viewSize);

    const TestPicture picture(pictureSize);
    const Placement placed(viewSize, pictureSize);
    const double w = pictureSize.width();
    const double h = pictureSize.height();
    auto toView = [&](double sx, double sy) {
        return QPoint(int(std::floor(placed.left + sx / w * placed.width)),
                      int(std::floor(placed.top + sy / h * placed.height)));
    };
    auto sourceX = [&](int px) { return (px + 0.5 - placed.left) / placed.width * w; };
    auto check = [&](const char *what, QPoint at, const Rgb &expected) {
        const QColor actual = image.pixelColor(at);
        if (!near(actual, expected))
            QTest::qFail(qPrintable(mismatch(what, at, actual, expected)), __FILE__, __LINE__);
        return near(actual, expected);
    };
    auto expectedFor = [](const Rgb &rgb) {
        const Yuv yuv = yuvFromRgb(rgb);
        return rgbFromYuv(yuv.y, yuv.u, yuv.v);
    };

    // The bars, left to right, across the middle of the picture.
    const double barsRow = (picture.markerEnd + picture.barsEnd) / 2.0;
    for (int bar = 0; bar < kBarCount; ++bar) {
        const QPoint at = toView((bar + 0.5) * w / kBarCount, barsRow);
        if (!check("bar centre", at, expectedFor(kBarColours[bar])))
            return;
    }

    // Upright: the marker is at the top, across the whole width.
    for (double fraction : {0.02, 0.5, 0.98}) {
        const QPoint at = toView(fraction * w, picture.markerEnd / 2.0);
        if (!check("top marker", at, expectedFor(kTopMarker)))
            return;
    }

    // Full horizontal resolution of luma, and for the packed formats the column parity: even
    // columns take the first luma of their pair, odd columns the second.
    const int stripesRow = toView(0, (picture.barsEnd + h) / 2.0).y();
    auto stripeLuma = [&](int column) {
        column = std::clamp(column, 0, pictureSize.width() - 1);
        return column % 2 == 0 ? kStripeEvenY : kStripeOddY;
    };
    int checkedEven = 0;
    int checkedOdd = 0;
    for (double fraction : {0.1, 0.5, 0.9}) {
        const int start = toView(fraction * w, 0).x();
        for (int px = start; px < start + 12; ++px) {
            const double sx = sourceX(px);
            const double within = sx - std::floor(sx);
            if (within < 0.2 || within > 0.8)
                continue; // too close to a column edge to tell which column was sampled
            const int column = int(std::floor(sx));
            double luma = stripeLuma(column);
            if (format == QVideoFrameFormat::Format_NV12) {
                // One luma per pixel, filtered linearly between neighbouring columns.
                const double s = sx - 0.5;
                const int i = int(std::floor(s));
                const double f = s - i;
                luma = (1 - f) * stripeLuma(i) + f * stripeLuma(i + 1);
            }
            if (!check("stripe", QPoint(px, stripesRow), rgbFromYuv(luma, 128, 128)))
                return;
            ++(column % 2 == 0 ? checkedEven : checkedOdd);
        }
    }
    QVERIFY(checkedEven >= 3);
    QVERIFY(checkedOdd >= 3);

    // The picture reaches the edges of its rectangle...
    const int insideLeft = int(std::ceil(placed.left)) + 2;
    const int insideRight = int(std::floor(placed.left + placed.width)) - 3;
    const int insideTop = int(std::ceil(placed.top)) + 2;
    const int insideBottom = int(std::floor(placed.top + placed.height)) - 3;
    for (QPoint at : {QPoint(insideLeft, insideTop), QPoint(insideRight, insideTop)})
        if (!check("top corner", at, expectedFor(kTopMarker)))
            return;
    QVERIFY2(firstNonBlack(image, QRect(QPoint(insideLeft, insideBottom),
                                        QPoint(insideRight, insideBottom))) != QPoint(-1, -1),
             "the bottom row of the picture is black");

    // ...and everything outside it is black.
    const int marginLeft = int(std::floor(placed.left)) - 1;
    const int marginRight = int(std::ceil(placed.left + placed.width)) + 1;
    const int marginTop = int(std::floor(placed.top)) - 1;
    const int marginBottom = int(std::ceil(placed.top + placed.height)) + 1;
    const QRect all(QPoint(0, 0), viewSize);
    const QRect margins[] = {
        QRect(QPoint(0, 0), QPoint(marginLeft - 1, viewSize.height() - 1)),
        QRect(QPoint(marginRight, 0), QPoint(viewSize.width() - 1, viewSize.height() - 1)),
        QRect(QPoint(0, 0), QPoint(viewSize.width() - 1, marginTop - 1)),
        QRect(QPoint(0, marginBottom), QPoint(viewSize.width() - 1, viewSize.height() - 1)),
    };
    int checkedMargins = 0;
    for (const QRect &margin : margins) {
        const QRect area = margin.intersected(all);
        if (area.isEmpty())
            continue;
        const QPoint lit = firstNonBlack(image, area);
        if (lit != QPoint(-1, -1))
            QFAIL(qPrintable(QStringLiteral("margin pixel (%1, %2) is %3, expected black")
                                 .arg(lit.x())
                                 .arg(lit.y())
                                 .arg(describe(image.pixelColor(lit)))));
        ++checkedMargins;
    }
    const bool boxed = placed.left >= 3 || placed.top >= 3;
    QCOMPARE(checkedMargins, boxed ? 2 : 0);
}

void TestVideoGlSurface::framesWithoutPictureClearIt_data()
{
    QTest::addColumn<QVideoFrame>("replacement");

    const QSize size(320, 180);
    QTest::newRow("invalid frame") << QVideoFrame();
    QTest::newRow("RGBA8888 frame")
        << makeFilledFrame(QVideoFrameFormat::Format_RGBA8888, size, 0xFF);
    QTest::newRow("YUV420P frame")
        << makeFilledFrame(QVideoFrameFormat::Format_YUV420P, size, 0xC0);
    QTest::newRow("NV21 frame") << makeFilledFrame(QVideoFrameFormat::Format_NV21, size, 0xC0);
}

void TestVideoGlSurface::framesWithoutPictureClearIt()
{
    REQUIRE_OPENGL();
    QFETCH(QVideoFrame, replacement);

    SurfaceWindow window(QSize(640, 360));
    window.host.show();
    QVERIFY(QTest::qWaitForWindowExposed(&window.host));
    const QRect all(0, 0, 640, 360);

    window.surface->setVideoFrame(makePictureFrame(QVideoFrameFormat::Format_NV12, {320, 180}));
    const QImage before = window.surface->grabFramebuffer().convertToFormat(QImage::Format_RGB32);
    QVERIFY2(window.surface->isValid(), "the surface got no OpenGL context");
    QVERIFY2(firstNonBlack(before, all) != QPoint(-1, -1), "the first picture was not drawn");

    window.surface->setVideoFrame(replacement);
    const QImage after = window.surface->grabFramebuffer().convertToFormat(QImage::Format_RGB32);
    QCOMPARE(after.size(), all.size());
    const QPoint lit = firstNonBlack(after, all);
    if (lit != QPoint(-1, -1))
        QFAIL(qPrintable(QStringLiteral("pixel (%1, %2) is %3, expected black")
                             .arg(lit.x())
                             .arg(lit.y())
                             .arg(describe(after.pixelColor(lit)))));
}

int main(int argc, char **argv)
{
    // The xcb platform aborts without an X display; offscreen has no OpenGL, so the drawing tests
    // then skip instead.
    const QByteArray platform = qgetenv("QT_QPA_PLATFORM");
    if ((platform.isEmpty() || platform == "xcb") && qEnvironmentVariableIsEmpty("DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    TestVideoGlSurface test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_videoglsurface.moc"
