// The capture format a camera is opened with, the fallback chooser, the largest usable
// resolution and the periodic resolution check, each over plain format lists.

#include <QTest>

#include <algorithm>

#include "console/captureformat.h"

Q_DECLARE_METATYPE(QList<CaptureFormatDesc>)

namespace {

using namespace CapturePixelFormat;

CaptureFormatDesc fmt(int pixelFormat, int width, int height, double fps)
{
    return {pixelFormat, width, height, 0, fps};
}

using Formats = QList<CaptureFormatDesc>;

struct LogLine
{
    QtMsgType type;
    QString text;
};

QList<LogLine> g_lines;

void collect(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    g_lines.append({type, message});
}

// Runs `f` with the log lines it writes collected in g_lines.
template<typename F> auto withLog(F f)
{
    g_lines.clear();
    const QtMessageHandler previous = qInstallMessageHandler(collect);
    auto result = f();
    qInstallMessageHandler(previous);
    return result;
}

int countLines(const QString &text, QtMsgType type = QtDebugMsg)
{
    return int(std::count_if(g_lines.cbegin(), g_lines.cend(), [&](const LogLine &line) {
        return line.type == type && line.text == text;
    }));
}

int countLinesStartingWith(const QString &prefix, QtMsgType type = QtDebugMsg)
{
    return int(std::count_if(g_lines.cbegin(), g_lines.cend(), [&](const LogLine &line) {
        return line.type == type && line.text.startsWith(prefix);
    }));
}

int negotiate(const Formats &formats)
{
    return withLog([&] { return negotiateCaptureFormat(formats, QStringLiteral("camera")); });
}

int findBest(const Formats &formats)
{
    return withLog([&] { return bestSupportedFormatIndex(formats, QStringLiteral("camera")); });
}

} // namespace

class TestCaptureFormat : public QObject
{
    Q_OBJECT
private slots:
    void limits_data();
    void limits();
    void negotiation_data();
    void negotiation();
    void negotiationVerdictLine_data();
    void negotiationVerdictLine();
    void negotiationLogsItsCountsAndWarnings();
    void fallback_data();
    void fallback();
    void fallbackLogsItsSteps();
    void maxResolution_data();
    void maxResolution();
    void maxResolutionLogLine();
    void resolutionCheck_data();
    void resolutionCheck();
    void pixelFormatNames_data();
    void pixelFormatNames();
};

void TestCaptureFormat::limits_data()
{
    QTest::addColumn<CaptureFormatDesc>("format");
    QTest::addColumn<bool>("within");

    QTest::newRow("4K at 30") << fmt(Jpeg, 3840, 2160, 30) << true;
    QTest::newRow("4K at 60") << fmt(Jpeg, 3840, 2160, 60) << true;
    QTest::newRow("4096 wide") << fmt(Jpeg, 4096, 2160, 30) << false;
    QTest::newRow("3841 wide") << fmt(Jpeg, 3841, 1080, 30) << false;
    QTest::newRow("2161 high") << fmt(Jpeg, 1920, 2161, 30) << false;
    QTest::newRow("portrait 2160x3840 too tall") << fmt(Jpeg, 2160, 3840, 30) << false;
    QTest::newRow("60.4 fps rounds to 60") << fmt(Jpeg, 3840, 2160, 60.4) << true;
    QTest::newRow("60.5 fps rounds to 61") << fmt(Jpeg, 3840, 2160, 60.5) << false;
    QTest::newRow("120 fps") << fmt(Jpeg, 1280, 720, 120) << false;
    QTest::newRow("small") << fmt(YUYV, 640, 480, 30) << true;
}

void TestCaptureFormat::limits()
{
    QFETCH(CaptureFormatDesc, format);
    QFETCH(bool, within);
    QCOMPARE(isWithinCaptureLimits(format), within);
}

void TestCaptureFormat::negotiation_data()
{
    QTest::addColumn<Formats>("formats");
    QTest::addColumn<int>("expected");

    QTest::newRow("MJPEG beats NV12, size before rate")
        << Formats{fmt(Jpeg, 3840, 2160, 30), fmt(Jpeg, 1920, 1080, 60), fmt(NV12, 3840, 2160, 60)}
        << 0;
    QTest::newRow("the virtual camera's formats")
        << Formats{fmt(Jpeg, 1920, 1080, 60), fmt(Jpeg, 1280, 720, 30), fmt(Jpeg, 3840, 2160, 30),
                   fmt(NV12, 1920, 1080, 60), fmt(YUYV, 640, 480, 30)}
        << 2;
    QTest::newRow("rate breaks a size tie")
        << Formats{fmt(Jpeg, 1920, 1080, 30), fmt(Jpeg, 1920, 1080, 60)} << 1;
    QTest::newRow("4096 wide rejected")
        << Formats{fmt(Jpeg, 4096, 2160, 30), fmt(Jpeg, 1920, 1080, 30)} << 1;
    QTest::newRow("60.4 accepted")
        << Formats{fmt(Jpeg, 1920, 1080, 30), fmt(Jpeg, 3840, 2160, 60.4)} << 1;
    QTest::newRow("60.5 rejected")
        << Formats{fmt(Jpeg, 1920, 1080, 30), fmt(Jpeg, 3840, 2160, 60.5)} << 0;
    QTest::newRow("landscape before a larger portrait")
        << Formats{fmt(Jpeg, 1080, 1920, 30), fmt(Jpeg, 1280, 720, 30)} << 1;
    QTest::newRow("portrait only: the largest portrait")
        << Formats{fmt(Jpeg, 720, 1280, 30), fmt(Jpeg, 1080, 1920, 30), fmt(Jpeg, 1080, 1080, 30)}
        << 1;
    QTest::newRow("NV12 tiers: 4K30 beats 1080p60 and 1440p60")
        << Formats{fmt(NV12, 1920, 1080, 60), fmt(NV12, 2560, 1440, 60), fmt(NV12, 3840, 2160, 30)}
        << 2;
    QTest::newRow("NV12 tiers: 4K60 beats all")
        << Formats{fmt(NV12, 1920, 1080, 60), fmt(NV12, 3840, 2160, 30), fmt(NV12, 2560, 1440, 60),
                   fmt(NV12, 3840, 2160, 60)}
        << 3;
    QTest::newRow("NV12 tiers: 1080p60 beats a larger 1440p")
        << Formats{fmt(NV12, 2560, 1440, 60), fmt(NV12, 1920, 1080, 60)} << 1;
    QTest::newRow("NV12 tiers: 1080p30 beats a larger 1440p")
        << Formats{fmt(NV12, 2560, 1440, 30), fmt(NV12, 1920, 1080, 30)} << 1;
    // Tiers look at the long and the short side, so a portrait 1080x1920 is a 1080p format.
    QTest::newRow("NV12 portrait only: tier by long and short side")
        << Formats{fmt(NV12, 1440, 2160, 30), fmt(NV12, 1080, 1920, 30)} << 1;
    QTest::newRow("NV12 landscape before a better tier in portrait")
        << Formats{fmt(NV12, 1080, 1920, 60), fmt(NV12, 1280, 720, 30)} << 1;
    QTest::newRow("NV12 over YUY2")
        << Formats{fmt(YUYV, 1920, 1080, 60), fmt(NV12, 1280, 720, 30)} << 1;
    QTest::newRow("YUY2 only") << Formats{fmt(YUYV, 640, 480, 30), fmt(YUYV, 1920, 1080, 5)} << 1;
    QTest::newRow("MJPEG over limits falls to NV12")
        << Formats{fmt(Jpeg, 4096, 2160, 30), fmt(NV12, 1920, 1080, 30)} << 1;
    QTest::newRow("NV12 over limits falls to YUY2")
        << Formats{fmt(NV12, 3840, 2160, 120), fmt(YUYV, 1280, 720, 30)} << 1;
    QTest::newRow("BGRA only: largest landscape at 15 fps or more")
        << Formats{fmt(BGRA8888, 3840, 2160, 10), fmt(BGRA8888, 1280, 720, 30),
                   fmt(BGRA8888, 1920, 1080, 30), fmt(BGRA8888, 1080, 1920, 30)}
        << 2;
    // Nothing within limits: the fallback ignores the limits and ranks MJPEG above BGRA.
    QTest::newRow("MJPEG over limits taken by the fallback")
        << Formats{fmt(BGRA8888, 1920, 1080, 30), fmt(Jpeg, 4096, 2160, 30)} << 1;
    QTest::newRow("nothing") << Formats{} << -1;
    QTest::newRow("nothing fast enough") << Formats{fmt(BGRA8888, 1920, 1080, 5)} << -1;
}

void TestCaptureFormat::negotiation()
{
    QFETCH(Formats, formats);
    QFETCH(int, expected);
    QCOMPARE(negotiate(formats), expected);
}

void TestCaptureFormat::negotiationVerdictLine_data()
{
    QTest::addColumn<Formats>("formats");
    QTest::addColumn<QString>("line");
    QTest::addColumn<bool>("warning");

    QTest::newRow("landscape MJPEG")
        << Formats{fmt(Jpeg, 1280, 720, 30)}
        << "[openCamera] ✓✓✓ 选择横屏MJPEG格式（优先横屏、高分辨率、60fps）:" << false;
    QTest::newRow("portrait MJPEG")
        << Formats{fmt(Jpeg, 720, 1280, 30)}
        << "[openCamera] ⚠⚠⚠ 未找到横屏MJPEG格式，使用竖屏格式:" << true;
    QTest::newRow("no MJPEG") << Formats{fmt(NV12, 1280, 720, 30)}
                              << "[openCamera] ⚠⚠⚠ 未发现符合限制的MJPEG格式（≤3840x2160, "
                                 "≤60FPS），按优先级选择：NV12 > YUY2 ⚠⚠⚠"
                              << true;
    QTest::newRow("NV12 count") << Formats{fmt(NV12, 1280, 720, 30), fmt(NV12, 640, 480, 30),
                                           fmt(NV12, 640, 480, 90)}
                                << "[openCamera] ✓ 发现2个符合条件的NV12格式（≤3840x2160, ≤60FPS）"
                                << false;
    QTest::newRow("NV12 result") << Formats{fmt(NV12, 1280, 720, 30)}
                                 << "[openCamera] ✓✓✓ NV12协商结果（4K60>4K>1080P60>1080P）:"
                                 << false;
    QTest::newRow("YUY2 count") << Formats{fmt(YUYV, 1280, 720, 30)}
                                << "[openCamera] ✓ 发现1个符合条件的YUY2格式（≤3840x2160, ≤60FPS）"
                                << false;
    QTest::newRow("YUY2 result") << Formats{fmt(YUYV, 1280, 720, 30)}
                                 << "[openCamera] ✓✓✓ YUY2协商结果（4K60>4K>1080P60>1080P）:"
                                 << false;
    QTest::newRow("other formats only")
        << Formats{fmt(BGRA8888, 1920, 1080, 30)}
        << "[openCamera] ⚠⚠⚠⚠⚠ 严重警告：设备不支持MJPEG、NV12或YUY2格式！⚠⚠⚠⚠⚠" << true;
    QTest::newRow("fallback is called")
        << Formats{fmt(BGRA8888, 1920, 1080, 30)}
        << "[openCamera] 调用findBestSupportedFormat查找最佳格式..." << false;
    QTest::newRow("fallback picks neither MJPEG, NV12 nor YUY2")
        << Formats{fmt(BGRA8888, 1920, 1080, 30)}
        << "[openCamera] ⚠ 警告：选择的格式不是MJPEG/NV12/YUY2，而是 BGRA8888" << true;
}

// The line that tells the operator which way the choice went: exact text up to the format.
void TestCaptureFormat::negotiationVerdictLine()
{
    QFETCH(Formats, formats);
    QFETCH(QString, line);
    QFETCH(bool, warning);
    negotiate(formats);
    QCOMPARE(countLinesStartingWith(line, warning ? QtWarningMsg : QtDebugMsg), 1);
}

void TestCaptureFormat::negotiationLogsItsCountsAndWarnings()
{
    const Formats box{fmt(Jpeg, 1920, 1080, 60), fmt(Jpeg, 4096, 2160, 30),
                      fmt(NV12, 1920, 1080, 60), fmt(YUYV, 640, 480, 30)};
    negotiate(box);
    QCOMPARE(countLines("[openCamera] ========== 设备格式分析开始 =========="), 1);
    QCOMPARE(countLines("[openCamera] 格式统计 - MJPEG:2个, NV12:1个, YUYV:1个"), 1);
    QCOMPARE(countLines("[openCamera] MJPEG格式统计: 总计2个, 符合条件1个, 过滤1个"), 1);
    QCOMPARE(countLines("[openCamera] 限制条件: 宽度≤3840, 高度≤2160, 像素≤8294400, 帧率≤60FPS"),
             1);
    QCOMPARE(countLinesStartingWith("[openCamera] ✓ 接受MJPEG格式:"), 1);
    QCOMPARE(countLinesStartingWith("[openCamera] ✗ 跳过MJPEG格式（超过限制）:"), 1);
    QCOMPARE(countLinesStartingWith("[openCamera] ✓✓✓ 最终选择MJPEG格式:"), 1);
    QCOMPARE(countLines("[openCamera] ✓✓✓ 发现1个符合条件的MJPEG格式（≤3840x2160, "
                        "≤60FPS），优先选择分辨率最大的 ✓✓✓"),
             1);

    // The fallback took an MJPEG format (over the limits): no warning about the pixel format.
    negotiate({fmt(Jpeg, 4096, 2160, 30)});
    QCOMPARE(
        countLinesStartingWith("[openCamera] ⚠ 警告：选择的格式不是MJPEG/NV12/YUY2", QtWarningMsg),
        0);
}

void TestCaptureFormat::fallback_data()
{
    QTest::addColumn<Formats>("formats");
    QTest::addColumn<int>("expected");

    QTest::newRow("YUV420P before RGBX before unlisted")
        << Formats{fmt(BGRA8888, 3840, 2160, 30), fmt(RGBX8888, 1920, 1080, 30),
                   fmt(YUV420P, 1280, 720, 30)}
        << 2;
    QTest::newRow("RGBX before unlisted")
        << Formats{fmt(BGRA8888, 3840, 2160, 30), fmt(RGBX8888, 1280, 720, 30)} << 1;
    QTest::newRow("NV21 before UYVY")
        << Formats{fmt(UYVY, 3840, 2160, 30), fmt(NV21, 1280, 720, 30)} << 1;
    QTest::newRow("60 fps before 30 at the same size")
        << Formats{fmt(BGRA8888, 1920, 1080, 30), fmt(BGRA8888, 1920, 1080, 60)} << 1;
    QTest::newRow("larger before faster")
        << Formats{fmt(BGRA8888, 1280, 720, 60), fmt(BGRA8888, 1920, 1080, 30)} << 1;
    QTest::newRow("portrait only is allowed on the second pass")
        << Formats{fmt(BGRA8888, 720, 1280, 30), fmt(BGRA8888, 1080, 1920, 30)} << 1;
    QTest::newRow("square counts as portrait")
        << Formats{fmt(BGRA8888, 1080, 1080, 30), fmt(BGRA8888, 640, 480, 15)} << 1;
    QTest::newRow("MJPEG within limits first")
        << Formats{fmt(NV12, 3840, 2160, 60), fmt(Jpeg, 640, 480, 30)} << 1;
    QTest::newRow("portrait MJPEG when no landscape one")
        << Formats{fmt(NV12, 3840, 2160, 60), fmt(Jpeg, 480, 640, 30)} << 1;
    QTest::newRow("NV12 landscape first, by size")
        << Formats{fmt(NV12, 1080, 1920, 30), fmt(NV12, 1280, 720, 30), fmt(NV12, 1920, 1080, 30)}
        << 2;
    // Here 1080p60 is not preferred over a larger size: that ranking belongs to the open only.
    QTest::newRow("NV12 by size, not by tier")
        << Formats{fmt(NV12, 1920, 1080, 60), fmt(NV12, 2560, 1440, 30)} << 1;
    QTest::newRow("YUY2 when no NV12")
        << Formats{fmt(BGRA8888, 1920, 1080, 30), fmt(YUYV, 640, 480, 30)} << 1;
    QTest::newRow("too slow everywhere") << Formats{fmt(BGRA8888, 1920, 1080, 14.9)} << -1;
    QTest::newRow("empty") << Formats{} << -1;
}

void TestCaptureFormat::fallback()
{
    QFETCH(Formats, formats);
    QFETCH(int, expected);
    QCOMPARE(findBest(formats), expected);
}

void TestCaptureFormat::fallbackLogsItsSteps()
{
    findBest({});
    QCOMPARE(countLines("[TavroVideo::findBestSupportedFormat] No supported formats reported by "
                        "the device!"),
             1);

    findBest({fmt(BGRA8888, -1, -1, 30), fmt(BGRA8888, 480, 640, 30)});
    QCOMPARE(countLines("  -> 被拒绝: FPS=30, 有效=false, 宽高比=N/A"), 1);
    QCOMPARE(countLines("[TavroVideo::findBestSupportedFormat] Fallback: No landscape formats "
                        "found. Relaxing constraints to allow any valid resolution."),
             1);
    QCOMPARE(countLines("[TavroVideo::findBestSupportedFormat] Sorted suitable formats. Best is: "
                        "480x640 @ 30 FPS, PixelFormat: BGRA8888"),
             1);

    findBest({fmt(BGRA8888, 1920, 1080, 10)});
    QCOMPARE(countLines("[TavroVideo::findBestSupportedFormat] Fallback failed: Still no suitable "
                        "formats found."),
             1);
}

void TestCaptureFormat::maxResolution_data()
{
    QTest::addColumn<Formats>("formats");
    QTest::addColumn<QSize>("expected");

    QTest::newRow("largest usable MJPEG")
        << Formats{fmt(Jpeg, 1920, 1080, 60), fmt(Jpeg, 3840, 2160, 30), fmt(NV12, 3840, 2160, 60)}
        << QSize(3840, 2160);
    QTest::newRow("MJPEG over limits skipped")
        << Formats{fmt(Jpeg, 4096, 2160, 30), fmt(Jpeg, 1920, 1080, 30)} << QSize(1920, 1080);
    QTest::newRow("MJPEG too slow, NV12 decides")
        << Formats{fmt(Jpeg, 3840, 2160, 10), fmt(NV12, 1920, 1080, 30)} << QSize(1920, 1080);
    QTest::newRow("NV12 before a larger YUY2")
        << Formats{fmt(YUYV, 3840, 2160, 30), fmt(NV12, 1280, 720, 30)} << QSize(1280, 720);
    QTest::newRow("YUY2 when nothing before it")
        << Formats{fmt(BGRA8888, 3840, 2160, 30), fmt(YUYV, 1280, 720, 30)} << QSize(1280, 720);
    QTest::newRow("landscape before larger portrait")
        << Formats{fmt(Jpeg, 1080, 1920, 30), fmt(Jpeg, 1280, 720, 30)} << QSize(1280, 720);
    QTest::newRow("equal pixels: the first found")
        << Formats{fmt(Jpeg, 2560, 1080, 30), fmt(Jpeg, 1920, 1440, 30)} << QSize(2560, 1080);
    QTest::newRow("equal pixels, other order: the first found")
        << Formats{fmt(Jpeg, 1920, 1440, 30), fmt(Jpeg, 2560, 1080, 30)} << QSize(1920, 1440);
    QTest::newRow("portrait when nothing else")
        << Formats{fmt(YUYV, 480, 640, 30), fmt(YUYV, 720, 1280, 30)} << QSize(720, 1280);
    QTest::newRow("any format as a last resort")
        << Formats{fmt(BGRA8888, 640, 480, 5), fmt(BGRA8888, 800, 600, 5)} << QSize(800, 600);
    QTest::newRow("nothing") << Formats{} << QSize();
}

void TestCaptureFormat::maxResolution()
{
    QFETCH(Formats, formats);
    QFETCH(QSize, expected);
    QCOMPARE(withLog([&] { return maxSupportedResolution(formats); }), expected);
}

void TestCaptureFormat::maxResolutionLogLine()
{
    withLog([] { return maxSupportedResolution({fmt(Jpeg, 3840, 2160, 30)}); });
    QCOMPARE(countLines("[获取最大分辨率] 最大支持分辨率: 3840x2160 像素数: 8294400"), 1);
    withLog([] { return maxSupportedResolution({}); });
    QCOMPARE(countLines("[获取最大分辨率] 未找到有效的最大分辨率"), 1);
}

void TestCaptureFormat::resolutionCheck_data()
{
    QTest::addColumn<QSize>("current");
    QTest::addColumn<QSize>("maximum");
    QTest::addColumn<bool>("switchWanted");
    QTest::addColumn<QString>("gain");
    QTest::addColumn<bool>("extend");

    QTest::newRow("1080p with 4K available")
        << QSize(1920, 1080) << QSize(3840, 2160) << true << "300.0" << false;
    QTest::newRow("720p with 1080p available")
        << QSize(1280, 720) << QSize(1920, 1080) << true << "125.0" << false;
    QTest::newRow("already the largest")
        << QSize(3840, 2160) << QSize(3840, 2160) << false << "" << true;
    QTest::newRow("larger than the maximum")
        << QSize(3840, 2160) << QSize(1920, 1080) << false << "" << true;
    QTest::newRow("between 0.95 and 1.2")
        << QSize(1920, 1080) << QSize(2048, 1152) << false << "" << false;
    QTest::newRow("exactly 1.2 times: no switch")
        << QSize(1000, 1000) << QSize(1200, 1000) << false << "" << false;
    QTest::newRow("exactly 0.95: extended")
        << QSize(950, 1000) << QSize(1000, 1000) << false << "" << true;
    QTest::newRow("just above 0.95")
        << QSize(1920, 1080) << QSize(1960, 1080) << false << "" << true;
    QTest::newRow("nothing negotiated yet")
        << QSize(-1, -1) << QSize(1920, 1080) << true << "0.0" << false;
    QTest::newRow("no maximum known") << QSize(1920, 1080) << QSize() << false << "" << false;
}

void TestCaptureFormat::resolutionCheck()
{
    QFETCH(QSize, current);
    QFETCH(QSize, maximum);
    QFETCH(bool, switchWanted);
    QFETCH(QString, gain);
    QFETCH(bool, extend);
    const ResolutionCheckVerdict verdict = judgeResolutionCheck(current, maximum);
    QCOMPARE(verdict.switchWanted, switchWanted);
    QCOMPARE(verdict.extendInterval, extend);
    if (switchWanted)
        QCOMPARE(QString::number(verdict.gainPercent, 'f', 1), gain);
}

void TestCaptureFormat::pixelFormatNames_data()
{
    QTest::addColumn<int>("value");
    QTest::addColumn<QString>("name");

    const QList<QPair<int, const char *>> named{{0, "Invalid"},  {1, "ARGB8888"},
                                                {4, "BGRA8888"}, {5, "BGRA8888_Premultiplied"},
                                                {6, "BGRX8888"}, {7, "ABGR8888"},
                                                {9, "RGBA8888"}, {10, "RGBX8888"},
                                                {11, "AYUV"},    {12, "AYUV_Premultiplied"},
                                                {13, "YUV420P"}, {14, "YUV422P"},
                                                {15, "YV12"},    {16, "UYVY"},
                                                {17, "YUYV"},    {18, "NV12"},
                                                {19, "NV21"},    {20, "IMC1"},
                                                {21, "IMC2"},    {22, "IMC3"},
                                                {23, "IMC4"},    {24, "Y8"},
                                                {25, "Y16"},     {29, "Jpeg"}};
    for (const auto &[value, name] : named)
        QTest::addRow("%d", value) << value << QString::fromLatin1(name);
    for (int value : {-1, 2, 3, 8, 26, 27, 28, 30, 255})
        QTest::addRow("%d has no name", value) << value << QStringLiteral("Unknown(%1)").arg(value);
}

void TestCaptureFormat::pixelFormatNames()
{
    QFETCH(int, value);
    QFETCH(QString, name);
    QCOMPARE(pixelFormatName(value), name);
}

QTEST_APPLESS_MAIN(TestCaptureFormat)
#include "tst_captureformat.moc"
