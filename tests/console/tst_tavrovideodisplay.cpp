// Frames on screen: the displayed rectangle and its cache, the aspect-ratio signal, the CPU decode
// path that keeps only the newest frame and converts it at the size shown, which path a frame
// takes, and the conversions against the toolkit's own.

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QPainter>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QVideoFrame>

#include "console/frameimage.h"
#include "console/gl/videoglsurface.h"
#include "console/tavrovideo.h"
#include "console/yuvconvert.h"
#include "db/dbmanager.h"
#include "tests/support/tavrovideotestaccess.h"
#include "tests/support/videoframes.h"

class TestTavroVideoDisplay : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();

    void displayRect_data();
    void displayRect();
    void displayRectFollowsResizeAndFrameSize();
    void mouseMapsThroughTheShownPicture();
    void sizeChangeEmitsAspectRatioOnce();
    void burstDuringDecodeLeavesOneFollowUp();
    void resizeConvertsTheHeldFrameOnceMore();
    void borderCropKeepsTheFramesOwnPixels();
    void resultsStartedBeforeCloseAreDropped();
    void framesTakeTheCpuPathWithoutTheSwitch_data();
    void framesTakeTheCpuPathWithoutTheSwitch();
    void closedViewIgnoresFrames();
    void gpuRequestWithoutOpenGlTakesTheCpuPath();
    void conversionMatchesTheToolkit_data();
    void conversionMatchesTheToolkit();
    void scaledConversionFollowsTheToolkitsSmoothScaling_data();
    void scaledConversionFollowsTheToolkitsSmoothScaling();
    void smallTextLooksAsTheToolkitShowsIt_data();
    void smallTextLooksAsTheToolkitShowsIt();

private:
    QTemporaryDir m_dir;
    TavroVideo *m_view = nullptr;
};

namespace {

// A picture whose planes cannot be mistaken for one another: luma in 48-pixel checks over a ramp,
// U rising from left to right, V from top to bottom.
QVideoFrame patternFrame(const QSize &size, QVideoFrameFormat::PixelFormat format)
{
    QVideoFrame frame(QVideoFrameFormat(size, format));
    if (!frame.map(QVideoFrame::WriteOnly))
        return QVideoFrame();
    const int w = size.width(), h = size.height();
    auto luma = [&](int x, int y) {
        return uchar(((x / 48 + y / 48) % 2 ? 150 : 40) + 60 * x / w);
    };
    auto u = [&](int x) { return uchar(40 + 170 * x / w); };
    auto v = [&](int y) { return uchar(40 + 170 * y / h); };
    for (int y = 0; y < h; ++y) {
        uchar *row = frame.bits(0) + qsizetype(y) * frame.bytesPerLine(0);
        for (int x = 0; x < w; x += 2) {
            switch (format) {
            case QVideoFrameFormat::Format_YUYV:
                row[2 * x] = luma(x, y), row[2 * x + 1] = u(x);
                row[2 * x + 2] = luma(x + 1, y), row[2 * x + 3] = v(y);
                break;
            case QVideoFrameFormat::Format_UYVY:
                row[2 * x] = u(x), row[2 * x + 1] = luma(x, y);
                row[2 * x + 2] = v(y), row[2 * x + 3] = luma(x + 1, y);
                break;
            default:
                row[x] = luma(x, y), row[x + 1] = luma(x + 1, y);
                if (y % 2)
                    break;
                const qsizetype chromaRow = qsizetype(y / 2);
                if (format == QVideoFrameFormat::Format_YUV420P) {
                    frame.bits(1)[chromaRow * frame.bytesPerLine(1) + x / 2] = u(x);
                    frame.bits(2)[chromaRow * frame.bytesPerLine(2) + x / 2] = v(y);
                } else {
                    uchar *pair = frame.bits(1) + chromaRow * frame.bytesPerLine(1) + x;
                    const bool vFirst = format == QVideoFrameFormat::Format_NV21;
                    pair[vFirst ? 1 : 0] = u(x);
                    pair[vFirst ? 0 : 1] = v(y);
                }
            }
        }
    }
    frame.unmap();
    return frame;
}

// Dark text in four small sizes on a light page, as a 4K target shows a terminal or a form; grey
// only (neutral chroma), so the comparison sees the scaling and not the colour conversion.
QVideoFrame textFrame(const QSize &size, QVideoFrameFormat::PixelFormat format)
{
    QImage page(size, QImage::Format_Grayscale8);
    page.fill(235);
    {
        QPainter painter(&page);
        painter.setPen(QColor(30, 30, 30));
        QFont font = painter.font();
        int top = 40;
        for (const int pixels : {22, 27, 33, 42}) {
            font.setPixelSize(pixels);
            painter.setFont(font);
            for (int line = 0; line < 6 && top < size.height() - pixels; ++line, top += pixels + 6)
                painter.drawText(40, top + pixels,
                                 QStringLiteral("root@target:~# journalctl -u sshd --since 09:41 "
                                                "| grep -i 'fail' ; echo $? [%1px] WwMm|lI1 0O"
                                                " {}()<>;:,.-_=+*&^%$#@!")
                                     .arg(pixels));
        }
    }
    QVideoFrame frame(QVideoFrameFormat(size, format));
    if (!frame.map(QVideoFrame::WriteOnly))
        return QVideoFrame();
    const bool packed =
        format == QVideoFrameFormat::Format_YUYV || format == QVideoFrameFormat::Format_UYVY;
    const bool rgb = format == QVideoFrameFormat::Format_XRGB8888;
    const int lumaAt = format == QVideoFrameFormat::Format_UYVY ? 1 : 0;
    for (int plane = 1; plane < frame.planeCount(); ++plane)
        memset(frame.bits(plane), 128, size_t(frame.mappedBytes(plane)));
    for (int y = 0; y < size.height(); ++y) {
        const uchar *grey = page.constScanLine(y);
        uchar *row = frame.bits(0) + qsizetype(y) * frame.bytesPerLine(0);
        for (int x = 0; x < size.width(); ++x) {
            const uchar luma = uchar(16 + grey[x] * 219 / 255);
            if (rgb)
                memset(row + 4 * x, grey[x], 4);
            else if (packed)
                row[2 * x + lumaAt] = luma, row[2 * x + 1 - lumaAt] = 128;
            else
                row[x] = luma;
        }
    }
    frame.unmap();
    return frame;
}

// The frame as the display shows it at `shown`, and as the toolkit's own conversion and smooth
// scaling would.
std::pair<QImage, QImage> shownBothWays(QVideoFrame source, const QSize &shown)
{
    const QImage toolkit = source.toImage()
                               .convertToFormat(QImage::Format_RGB32)
                               .scaled(shown, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    if (!source.map(QVideoFrame::ReadOnly))
        return {};
    FrameScratch scratch;
    const QImage display = displayImageOfMappedFrame(source, shown, scratch);
    source.unmap();
    return {display, toolkit};
}

} // namespace

void TestTavroVideoDisplay::initTestCase()
{
    QVERIFY(m_dir.isValid());
    // The border crop goes under the application data folder.
    qputenv("XDG_DATA_HOME", m_dir.path().toUtf8());
    QVERIFY(DBManager::instance()->initDatabase(m_dir.filePath("display.db")));
    // The grid owns the cameras: the view opens none by itself and only shows what it is given.
    QVERIFY(DBManager::instance()->setAppSetting("multi_same_display", "1"));
    qunsetenv("TAVROKVM_GPU_VIDEO");
}

void TestTavroVideoDisplay::init()
{
    m_view = new TavroVideo;
    TavroVideoTestAccess::setCameraActive(*m_view, true);
}

void TestTavroVideoDisplay::cleanup()
{
    delete m_view;
    m_view = nullptr;
}

void TestTavroVideoDisplay::displayRect_data()
{
    QTest::addColumn<QSize>("view");
    QTest::addColumn<QSize>("picture");
    QTest::addColumn<QRect>("expected");

    QTest::newRow("1280x720 view, 1080p")
        << QSize(1280, 720) << QSize(1920, 1080) << QRect(0, 0, 1280, 720);
    QTest::newRow("1000x1000 view, 1080p")
        << QSize(1000, 1000) << QSize(1920, 1080) << QRect(0, 219, 1000, 562);
    QTest::newRow("wide view, 5:4 picture")
        << QSize(1280, 720) << QSize(1280, 1024) << QRect(190, 0, 900, 720);
}

void TestTavroVideoDisplay::displayRect()
{
    QFETCH(QSize, view);
    QFETCH(QSize, picture);
    QFETCH(QRect, expected);
    m_view->resize(view);
    QCOMPARE(m_view->getActualVideoDisplayRect(), QRect()); // no picture yet
    m_view->processVideoFrame(greyVideoFrame(picture, QVideoFrameFormat::Format_NV12));
    QCOMPARE(m_view->videoContentSizeForLayout(), picture);
    QCOMPARE(m_view->getActualVideoDisplayRect(), expected);
}

void TestTavroVideoDisplay::displayRectFollowsResizeAndFrameSize()
{
    m_view->resize(1280, 720);
    m_view->processVideoFrame(greyVideoFrame({1920, 1080}, QVideoFrameFormat::Format_NV12));
    QCOMPARE(m_view->getActualVideoDisplayRect(), QRect(0, 0, 1280, 720));

    m_view->resize(1000, 1000);
    QCOMPARE(m_view->getActualVideoDisplayRect(), QRect(0, 219, 1000, 562));

    m_view->processVideoFrame(greyVideoFrame({1280, 1024}, QVideoFrameFormat::Format_NV12));
    QCOMPARE(m_view->getActualVideoDisplayRect(), QRect(0, 100, 1000, 800));
}

void TestTavroVideoDisplay::mouseMapsThroughTheShownPicture()
{
    // Capture resolution not negotiated yet: the picture is sized by its frames and the mapping
    // assumes 1920x1080.
    m_view->resize(1280, 800);
    m_view->processVideoFrame(greyVideoFrame({1920, 1080}, QVideoFrameFormat::Format_NV12));
    QCOMPARE(m_view->getActualVideoDisplayRect(), QRect(0, 40, 1280, 720));
    int x = -1, y = -1, width = -1, height = -1;
    QVERIFY(m_view->convertMousePositionToVideoCoordinates({640, 400}, x, y, width, height));
    QCOMPARE(QPoint(x, y), QPoint(960, 540));
    QCOMPARE(QSize(width, height), QSize(1920, 1080));
    QVERIFY(m_view->convertMousePositionToVideoCoordinates({1279, 759}, x, y, width, height));
    QCOMPARE(QPoint(x, y), QPoint(1919, 1079));
    QVERIFY(!m_view->convertMousePositionToVideoCoordinates({640, 39}, x, y, width, height));
    QCOMPARE(QPoint(x, y), QPoint(1919, 1079)); // untouched
}

void TestTavroVideoDisplay::sizeChangeEmitsAspectRatioOnce()
{
    QSignalSpy ratio(m_view, &TavroVideo::aspectRatioChanged);
    for (int i = 0; i < 3; ++i)
        m_view->processVideoFrame(greyVideoFrame({1920, 1080}, QVideoFrameFormat::Format_NV12));
    QCOMPARE(ratio.count(), 1); // the first frame replaces the unknown size
    for (int i = 0; i < 3; ++i)
        m_view->processVideoFrame(greyVideoFrame({1280, 1024}, QVideoFrameFormat::Format_NV12));
    QCOMPARE(ratio.count(), 2);
    QCOMPARE(ratio.at(1).at(0).toDouble(), 1.25);
    QCOMPARE(m_view->negotiatedResolution(), QSize(1280, 1024));
}

void TestTavroVideoDisplay::burstDuringDecodeLeavesOneFollowUp()
{
    m_view->resize(640, 480);
    const QVideoFrame frame = greyVideoFrame({1280, 720}, QVideoFrameFormat::Format_NV12);
    m_view->processVideoFrame(frame);
    QCOMPARE(m_view->decodeJobsStarted(), quint64(1));
    // The event loop does not run during the burst, so the first job cannot have been taken
    // back yet: every later frame only replaces the one waiting.
    for (int i = 0; i < 9; ++i)
        m_view->processVideoFrame(frame);
    QCOMPARE(m_view->decodeJobsStarted(), quint64(1));

    QTRY_COMPARE(m_view->convertedSequence(), qint32(m_view->frameSequence()));
    QTest::qWait(100);
    QCOMPARE(m_view->decodeJobsStarted(), quint64(2));
    // Converted at the size it is shown at, not the frame's.
    QCOMPARE(m_view->getActualVideoDisplayRect(), QRect(0, 60, 640, 360));
    QCOMPARE(m_view->convertedImage().size(), QSize(640, 360));
}

void TestTavroVideoDisplay::resizeConvertsTheHeldFrameOnceMore()
{
    m_view->resize(1280, 720);
    m_view->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_view));
    m_view->processVideoFrame(greyVideoFrame({1920, 1080}, QVideoFrameFormat::Format_NV12));
    QTRY_COMPARE(m_view->convertedImage().size(), QSize(1280, 720));
    QTRY_VERIFY(m_view->decodeJobsStarted() == 1); // and no second one

    // No new frame comes: the held one is converted again at the new size.
    m_view->resize(800, 600);
    QTRY_COMPARE(m_view->convertedImage().size(), QSize(800, 450));
    QTest::qWait(100);
    QCOMPARE(m_view->decodeJobsStarted(), quint64(2));
    QCOMPARE(m_view->convertedSequence(), qint32(1));

    // Two resizes while a conversion runs end in one more, at the last size.
    m_view->resize(640, 480);
    m_view->resize(1000, 1000);
    QTRY_COMPARE(m_view->convertedImage().size(), QSize(1000, 562));
    QTest::qWait(100);
    QVERIFY(m_view->decodeJobsStarted() <= 4);
}

void TestTavroVideoDisplay::borderCropKeepsTheFramesOwnPixels()
{
    // A small view shows the frame at a third of its size; the crop is the frame's own corner.
    m_view->resize(640, 360);
    QVideoFrame frame = greyVideoFrame({1920, 1080}, QVideoFrameFormat::Format_NV12);
    QVERIFY(frame.map(QVideoFrame::WriteOnly));
    for (int y = 100; y < 104; ++y)
        memset(frame.bits(0) + y * frame.bytesPerLine(0) + 200, 235, 4);
    frame.unmap();
    m_view->processVideoFrame(frame);
    QTRY_COMPARE(m_view->convertedImage().size(), QSize(640, 360));

    QFile::remove(TavroVideo::borderCheckImagePath());
    QVERIFY(m_view->saveBlackBorderCheckImage());
    const QImage crop(TavroVideo::borderCheckImagePath());
    QCOMPARE(crop.size(), QSize(256, 128));
    QVERIFY2(qGray(crop.pixel(201, 101)) > 200, qPrintable(QString::number(crop.pixel(201, 101))));
    QVERIFY(qGray(crop.pixel(67, 34)) < 160);
}

void TestTavroVideoDisplay::resultsStartedBeforeCloseAreDropped()
{
    m_view->processVideoFrame(greyVideoFrame({1280, 720}, QVideoFrameFormat::Format_NV12));
    QCOMPARE(m_view->decodeJobsStarted(), quint64(1));
    m_view->closeCamera(false);
    QTest::qWait(300);
    QVERIFY(m_view->convertedImage().isNull());
    QCOMPARE(m_view->convertedSequence(), qint32(-1));
}

void TestTavroVideoDisplay::framesTakeTheCpuPathWithoutTheSwitch_data()
{
    QTest::addColumn<QVideoFrameFormat::PixelFormat>("format");
    QTest::newRow("NV12") << QVideoFrameFormat::Format_NV12;
    QTest::newRow("YUYV") << QVideoFrameFormat::Format_YUYV;
    QTest::newRow("decoded MJPEG (YUV420P)") << QVideoFrameFormat::Format_YUV420P;
}

void TestTavroVideoDisplay::framesTakeTheCpuPathWithoutTheSwitch()
{
    QFETCH(QVideoFrameFormat::PixelFormat, format);
    m_view->processVideoFrame(greyVideoFrame({640, 480}, format));
    QCOMPARE(m_view->decodeJobsStarted(), quint64(1));
    QVERIFY(!m_view->videoGlSurface());
    QTRY_VERIFY(!m_view->convertedImage().isNull());
    // Mid grey stays mid grey through the conversion.
    const QImage shown = m_view->convertedImage();
    const QColor centre = shown.pixelColor(shown.width() / 2, shown.height() / 2);
    QVERIFY2(qAbs(centre.red() - 128) <= 3 && qAbs(centre.green() - 128) <= 3 &&
                 qAbs(centre.blue() - 128) <= 3,
             qPrintable(centre.name()));
}

void TestTavroVideoDisplay::closedViewIgnoresFrames()
{
    TavroVideoTestAccess::setCameraActive(*m_view, false);
    m_view->processVideoFrame(greyVideoFrame({640, 480}, QVideoFrameFormat::Format_NV12));
    TavroVideoTestAccess::setCameraActive(*m_view, true);
    m_view->processVideoFrame(QVideoFrame()); // a sink emits one when it flushes
    QCOMPARE(m_view->frameSequence(), quint32(0));
    QCOMPARE(m_view->decodeJobsStarted(), quint64(0));
    QCOMPARE(m_view->lastFrameTimeMs(), qint64(0));
}

void TestTavroVideoDisplay::gpuRequestWithoutOpenGlTakesTheCpuPath()
{
    qputenv("TAVROKVM_GPU_VIDEO", "1");
    QTest::ignoreMessage(QtWarningMsg, "[TavroVideo] 已设置 TAVROKVM_GPU_VIDEO，但无法创建 "
                                       "OpenGL 3.3 上下文，视频改走 CPU 路径");
    m_view->processVideoFrame(greyVideoFrame({640, 480}, QVideoFrameFormat::Format_NV12));
    m_view->processVideoFrame(greyVideoFrame({640, 480}, QVideoFrameFormat::Format_NV12));
    qunsetenv("TAVROKVM_GPU_VIDEO");
    QVERIFY(!m_view->videoGlSurface());
    QVERIFY(!m_view->isGlSurfaceActive());
    QVERIFY(m_view->decodeJobsStarted() >= 1);
    QTRY_VERIFY(!m_view->convertedImage().isNull());
}

void TestTavroVideoDisplay::conversionMatchesTheToolkit_data()
{
    QTest::addColumn<QVideoFrameFormat::PixelFormat>("format");
    QTest::addColumn<int>("layout");
    QTest::addColumn<QSize>("size");

    QTest::newRow("YUV420P") << QVideoFrameFormat::Format_YUV420P << int(YuvLayout::Yuv420p)
                             << QSize(64, 48);
    QTest::newRow("YUV420P, padded lines")
        << QVideoFrameFormat::Format_YUV420P << int(YuvLayout::Yuv420p) << QSize(70, 36);
    QTest::newRow("NV12") << QVideoFrameFormat::Format_NV12 << int(YuvLayout::Nv12)
                          << QSize(64, 48);
    QTest::newRow("NV21") << QVideoFrameFormat::Format_NV21 << int(YuvLayout::Nv21)
                          << QSize(70, 36);
    QTest::newRow("YUYV") << QVideoFrameFormat::Format_YUYV << int(YuvLayout::Yuyv)
                          << QSize(64, 48);
    QTest::newRow("UYVY") << QVideoFrameFormat::Format_UYVY << int(YuvLayout::Uyvy)
                          << QSize(70, 36);
}

// The view converts YUV frames itself; the picture must be the toolkit's own CPU conversion
// (which the offscreen platform uses), pixel for pixel, over every byte value.
void TestTavroVideoDisplay::conversionMatchesTheToolkit()
{
    QFETCH(QVideoFrameFormat::PixelFormat, format);
    QFETCH(int, layout);
    QFETCH(QSize, size);

    QVideoFrame frame(QVideoFrameFormat(size, format));
    QVERIFY(frame.map(QVideoFrame::WriteOnly));
    quint32 seed = 20261123;
    for (int plane = 0; plane < frame.planeCount(); ++plane) {
        for (int i = 0; i < frame.mappedBytes(plane); ++i) {
            seed = seed * 1664525u + 1013904223u;
            frame.bits(plane)[i] = uchar(seed >> 24);
        }
    }
    frame.unmap();

    const QImage expected = frame.toImage().convertToFormat(QImage::Format_RGB32);
    QVERIFY(frame.map(QVideoFrame::ReadOnly));
    YuvPicture picture;
    picture.layout = YuvLayout(layout);
    picture.width = size.width();
    picture.height = size.height();
    for (int plane = 0; plane < frame.planeCount(); ++plane) {
        picture.planes[plane] = frame.bits(plane);
        picture.strides[plane] = frame.bytesPerLine(plane);
    }
    QImage converted(size, QImage::Format_RGB32);
    convertYuvRows(picture, reinterpret_cast<quint32 *>(converted.bits()),
                   int(converted.bytesPerLine()), 0, size.height() / 2);
    convertYuvRows(picture, reinterpret_cast<quint32 *>(converted.bits()),
                   int(converted.bytesPerLine()), size.height() / 2, size.height());
    // The display's conversion at the frame's own size (another library's integer arithmetic).
    QImage shown(size, QImage::Format_RGB32);
    std::vector<uchar> scratch;
    QVERIFY(convertYuvToSize(picture, reinterpret_cast<quint32 *>(shown.bits()),
                             int(shown.bytesPerLine()), size.width(), size.height(), scratch));
    frame.unmap();
    QCOMPARE(converted.size(), expected.size());
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            if (converted.pixel(x, y) != expected.pixel(x, y))
                QFAIL(qPrintable(QStringLiteral("(%1,%2): %3 instead of %4")
                                     .arg(x)
                                     .arg(y)
                                     .arg(converted.pixel(x, y), 8, 16)
                                     .arg(expected.pixel(x, y), 8, 16)));
            const QRgb a = shown.pixel(x, y), b = expected.pixel(x, y);
            if (qAbs(qRed(a) - qRed(b)) > 2 || qAbs(qGreen(a) - qGreen(b)) > 2 ||
                qAbs(qBlue(a) - qBlue(b)) > 2 || qAlpha(a) != 255)
                QFAIL(qPrintable(QStringLiteral("shown (%1,%2): %3 instead of about %4")
                                     .arg(x)
                                     .arg(y)
                                     .arg(a, 8, 16)
                                     .arg(b, 8, 16)));
        }
    }
}

void TestTavroVideoDisplay::scaledConversionFollowsTheToolkitsSmoothScaling_data()
{
    QTest::addColumn<QVideoFrameFormat::PixelFormat>("format");
    QTest::addColumn<QSize>("frame");
    QTest::addColumn<QSize>("shown");

    QTest::newRow("YUV420P 4K to 1280x720 (whole blocks, strips and bands)")
        << QVideoFrameFormat::Format_YUV420P << QSize(3840, 2160) << QSize(1280, 720);
    QTest::newRow("NV12 4K to 1920x1080 (halved)")
        << QVideoFrameFormat::Format_NV12 << QSize(3840, 2160) << QSize(1920, 1080);
    QTest::newRow("NV21 1080p to 999x561 (odd sizes)")
        << QVideoFrameFormat::Format_NV21 << QSize(1920, 1080) << QSize(999, 561);
    QTest::newRow("NV12 1080p to 900x500 (halves, then bilinear)")
        << QVideoFrameFormat::Format_NV12 << QSize(1920, 1080) << QSize(900, 500);
    QTest::newRow("YUYV 4K to 1280x720")
        << QVideoFrameFormat::Format_YUYV << QSize(3840, 2160) << QSize(1280, 720);
    QTest::newRow("UYVY 1080p to 1280x720 (bilinear)")
        << QVideoFrameFormat::Format_UYVY << QSize(1920, 1080) << QSize(1280, 720);
    QTest::newRow("YUV420P 720p to 1920x1080 (enlarged)")
        << QVideoFrameFormat::Format_YUV420P << QSize(1280, 720) << QSize(1920, 1080);
}

// The filters differ (area boxes and bilinear against the toolkit's own), so pixels on the checks'
// edges may differ; a plane read in the wrong place, a swapped chroma pair or a band out of place
// moves the average far more.
void TestTavroVideoDisplay::scaledConversionFollowsTheToolkitsSmoothScaling()
{
    QFETCH(QVideoFrameFormat::PixelFormat, format);
    QFETCH(QSize, frame);
    QFETCH(QSize, shown);

    const auto [converted, expected] = shownBothWays(patternFrame(frame, format), shown);
    QCOMPARE(converted.size(), shown);

    double difference = 0;
    for (int y = 0; y < shown.height(); ++y) {
        for (int x = 0; x < shown.width(); ++x) {
            const QRgb a = converted.pixel(x, y), b = expected.pixel(x, y);
            difference +=
                qAbs(qRed(a) - qRed(b)) + qAbs(qGreen(a) - qGreen(b)) + qAbs(qBlue(a) - qBlue(b));
        }
    }
    difference /= 3.0 * shown.width() * shown.height();
    QVERIFY2(difference < 3.0, qPrintable(QStringLiteral("mean difference %1").arg(difference)));
}

void TestTavroVideoDisplay::smallTextLooksAsTheToolkitShowsIt_data()
{
    QTest::addColumn<QVideoFrameFormat::PixelFormat>("format");
    QTest::addColumn<QSize>("shown");
    QTest::addColumn<int>("largestDifference");
    QTest::addColumn<double>("largestMean");

    // A third exactly: every shown pixel the mean of its 3x3 block, as the toolkit's area filter.
    QTest::newRow("YUV420P 4K at 1280x720")
        << QVideoFrameFormat::Format_YUV420P << QSize(1280, 720) << 3 << 1.2;
    QTest::newRow("YUYV 4K at 1280x720")
        << QVideoFrameFormat::Format_YUYV << QSize(1280, 720) << 3 << 1.2;
    QTest::newRow("NV12 4K at 1920x1080")
        << QVideoFrameFormat::Format_NV12 << QSize(1920, 1080) << 3 << 1.2;
    // Halves, then bilinear over the last factor of 1.4, where the toolkit weighs fractions of
    // pixels: the edges of strokes differ, the strokes themselves not.
    // Frames the toolkit converts itself, scaled as RGB with the same filters.
    QTest::newRow("XRGB 4K at 1280x720")
        << QVideoFrameFormat::Format_XRGB8888 << QSize(1280, 720) << 3 << 1.2;
    QTest::newRow("XRGB 4K at 1366x768")
        << QVideoFrameFormat::Format_XRGB8888 << QSize(1366, 768) << 96 << 3.0;
    QTest::newRow("UYVY 4K at 1366x768")
        << QVideoFrameFormat::Format_UYVY << QSize(1366, 768) << 96 << 2.0;
}

// Text a target shows at 4K stays as readable as the toolkit's smooth scaling makes it. A filter
// that samples instead of averaging drops or doubles thin strokes; at a third, bilinear from half
// size gives differences of 50 levels on single pixels and a mean of 1.75. The mean includes about
// one level of colour conversion, the libraries rounding differently.
void TestTavroVideoDisplay::smallTextLooksAsTheToolkitShowsIt()
{
    QFETCH(QVideoFrameFormat::PixelFormat, format);
    QFETCH(QSize, shown);
    QFETCH(int, largestDifference);
    QFETCH(double, largestMean);

    const auto [converted, expected] = shownBothWays(textFrame(QSize(3840, 2160), format), shown);
    QCOMPARE(converted.size(), shown);

    int largest = 0;
    double sum = 0;
    for (int y = 0; y < shown.height(); ++y) {
        for (int x = 0; x < shown.width(); ++x) {
            const int difference =
                qAbs(qGreen(converted.pixel(x, y)) - qGreen(expected.pixel(x, y)));
            largest = std::max(largest, difference);
            sum += difference;
        }
    }
    const double mean = sum / (shown.width() * shown.height());
    qInfo("largest difference %d, mean %.2f", largest, mean);
    // Crops of both for a person to compare: TAVROKVM_SCREENSHOT_OUT names a folder.
    const QString out = qEnvironmentVariable("TAVROKVM_SCREENSHOT_OUT");
    if (!out.isEmpty()) {
        const QRect crop(QPoint(0, 0), QSize(shown.width() / 2, shown.height() / 3));
        const QString name = QString::fromLatin1(QTest::currentDataTag()).replace(' ', '-');
        QDir().mkpath(out);
        converted.copy(crop).save(QDir(out).filePath(name + QStringLiteral("-console.png")));
        expected.copy(crop).save(QDir(out).filePath(name + QStringLiteral("-toolkit.png")));
    }
    QVERIFY2(largest <= largestDifference && mean < largestMean,
             qPrintable(QStringLiteral("largest difference %1, mean %2").arg(largest).arg(mean)));
}

int main(int argc, char **argv)
{
    // No OpenGL at all, even where the offscreen platform could reach an X server's.
    qputenv("QT_QPA_OFFSCREEN_NO_GLX", "1");
    qunsetenv("DISPLAY");
    QApplication app(argc, argv);
    TestTavroVideoDisplay test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_tavrovideodisplay.moc"
