// The capture format a camera is opened with, the fallback chooser, the largest usable
// resolution and the periodic resolution check, each over plain format lists.

#include <QTest>

#include "console/captureformat.h"

Q_DECLARE_METATYPE(QList<CaptureFormatDesc>)

namespace {

using namespace CapturePixelFormat;

CaptureFormatDesc fmt(int pixelFormat, int width, int height, double fps)
{
    return {pixelFormat, width, height, 0, fps};
}

using Formats = QList<CaptureFormatDesc>;

QStringList g_lines;
QtMessageHandler g_previous = nullptr;

void collect(QtMsgType, const QMessageLogContext &, const QString &message)
{
    g_lines.append(message);
}

// Runs `f` with the log lines it writes collected.
template<typename F> auto withLog(F f)
{
    g_lines.clear();
    g_previous = qInstallMessageHandler(collect);
    auto result = f();
    qInstallMessageHandler(g_previous);
    return result;
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
    void negotiationLogsItsCountsAndWarnings();
    void fallback_data();
    void fallback();
    void maxResolution_data();
    void maxResolution();
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
    QTest::newRow("4096 wide") << fmt(Jpeg, 4096, 2160, 30) << false;
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
    QTest::newRow("the simulated box")
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
    QTest::newRow("NV12 tiers: 4K60 beats 4K30")
        << Formats{fmt(NV12, 1920, 1080, 60), fmt(NV12, 3840, 2160, 30), fmt(NV12, 2560, 1440, 60),
                   fmt(NV12, 3840, 2160, 60)}
        << 3;
    QTest::newRow("NV12 tiers: 1080p60 beats a larger 1440p")
        << Formats{fmt(NV12, 2560, 1440, 60), fmt(NV12, 1920, 1080, 60)} << 1;
    QTest::newRow("NV12 over YUY2")
        << Formats{fmt(YUYV, 1920, 1080, 60), fmt(NV12, 1280, 720, 30)} << 1;
    QTest::newRow("YUY2 only") << Formats{fmt(YUYV, 640, 480, 30), fmt(YUYV, 1920, 1080, 5)} << 1;
    QTest::newRow("MJPEG over limits falls to NV12")
        << Formats{fmt(Jpeg, 4096, 2160, 30), fmt(NV12, 1920, 1080, 30)} << 1;
    QTest::newRow("BGRA only: largest landscape at 15 fps or more")
        << Formats{fmt(BGRA8888, 3840, 2160, 10), fmt(BGRA8888, 1280, 720, 30),
                   fmt(BGRA8888, 1920, 1080, 30), fmt(BGRA8888, 1080, 1920, 30)}
        << 2;
    QTest::newRow("nothing") << Formats{} << -1;
    QTest::newRow("nothing fast enough") << Formats{fmt(BGRA8888, 1920, 1080, 5)} << -1;
}

void TestCaptureFormat::negotiation()
{
    QFETCH(Formats, formats);
    QFETCH(int, expected);
    QCOMPARE(withLog([&] { return negotiateCaptureFormat(formats, QStringLiteral("camera")); }),
             expected);
}

void TestCaptureFormat::negotiationLogsItsCountsAndWarnings()
{
    const Formats box{fmt(Jpeg, 1920, 1080, 60), fmt(Jpeg, 4096, 2160, 30),
                      fmt(NV12, 1920, 1080, 60), fmt(YUYV, 640, 480, 30)};
    withLog([&] { return negotiateCaptureFormat(box, QStringLiteral("camera")); });
    QVERIFY(g_lines.contains("[openCamera] 格式统计 - MJPEG:2个, NV12:1个, YUYV:1个"));
    QVERIFY(g_lines.contains("[openCamera] MJPEG格式统计: 总计2个, 符合条件1个, 过滤1个"));
    QVERIFY(
        g_lines.contains("[openCamera] 限制条件: 宽度≤3840, 高度≤2160, 像素≤8294400, 帧率≤60FPS"));

    const Formats bgra{fmt(BGRA8888, 1920, 1080, 30)};
    withLog([&] { return negotiateCaptureFormat(bgra, QStringLiteral("camera")); });
    QVERIFY(
        g_lines.contains("[openCamera] ⚠⚠⚠⚠⚠ 严重警告：设备不支持MJPEG、NV12或YUY2格式！⚠⚠⚠⚠⚠"));
    QVERIFY(g_lines.contains("[openCamera] ⚠ 警告：选择的格式不是MJPEG/NV12/YUY2，而是 BGRA8888"));

    const Formats portrait{fmt(Jpeg, 1080, 1920, 30)};
    withLog([&] { return negotiateCaptureFormat(portrait, QStringLiteral("camera")); });
    QCOMPARE(g_lines.filter("[openCamera] ⚠⚠⚠ 未找到横屏MJPEG格式，使用竖屏格式:").size(), 1);
}

void TestCaptureFormat::fallback_data()
{
    QTest::addColumn<Formats>("formats");
    QTest::addColumn<int>("expected");

    QTest::newRow("YUV420P before RGBX before unlisted")
        << Formats{fmt(BGRA8888, 3840, 2160, 30), fmt(RGBX8888, 1920, 1080, 30),
                   fmt(YUV420P, 1280, 720, 30)}
        << 2;
    QTest::newRow("60 fps before 30 at the same size")
        << Formats{fmt(BGRA8888, 1920, 1080, 30), fmt(BGRA8888, 1920, 1080, 60)} << 1;
    QTest::newRow("portrait only is allowed on the second pass")
        << Formats{fmt(BGRA8888, 720, 1280, 30), fmt(BGRA8888, 1080, 1920, 30)} << 1;
    QTest::newRow("square counts as portrait")
        << Formats{fmt(BGRA8888, 1080, 1080, 30), fmt(BGRA8888, 640, 480, 15)} << 1;
    QTest::newRow("MJPEG within limits first")
        << Formats{fmt(NV12, 3840, 2160, 60), fmt(Jpeg, 640, 480, 30)} << 1;
    QTest::newRow("NV12 landscape first, by size")
        << Formats{fmt(NV12, 1080, 1920, 30), fmt(NV12, 1280, 720, 30), fmt(NV12, 1920, 1080, 30)}
        << 2;
    QTest::newRow("too slow everywhere") << Formats{fmt(BGRA8888, 1920, 1080, 14.9)} << -1;
    QTest::newRow("empty") << Formats{} << -1;
}

void TestCaptureFormat::fallback()
{
    QFETCH(Formats, formats);
    QFETCH(int, expected);
    QCOMPARE(withLog([&] { return findBestSupportedFormat(formats, QStringLiteral("camera")); }),
             expected);
}

void TestCaptureFormat::maxResolution_data()
{
    QTest::addColumn<Formats>("formats");
    QTest::addColumn<QSize>("expected");

    QTest::newRow("largest usable MJPEG")
        << Formats{fmt(Jpeg, 1920, 1080, 60), fmt(Jpeg, 3840, 2160, 30), fmt(NV12, 3840, 2160, 60)}
        << QSize(3840, 2160);
    QTest::newRow("MJPEG too slow, NV12 decides")
        << Formats{fmt(Jpeg, 3840, 2160, 10), fmt(NV12, 1920, 1080, 30)} << QSize(1920, 1080);
    QTest::newRow("landscape before larger portrait")
        << Formats{fmt(Jpeg, 1080, 1920, 30), fmt(Jpeg, 1280, 720, 30)} << QSize(1280, 720);
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

void TestCaptureFormat::resolutionCheck_data()
{
    QTest::addColumn<QSize>("current");
    QTest::addColumn<QSize>("maximum");
    QTest::addColumn<bool>("switchWanted");
    QTest::addColumn<QString>("gain");
    QTest::addColumn<bool>("extend");

    QTest::newRow("1080p with 4K available")
        << QSize(1920, 1080) << QSize(3840, 2160) << true << "300.0" << false;
    QTest::newRow("already the largest")
        << QSize(3840, 2160) << QSize(3840, 2160) << false << "" << true;
    QTest::newRow("between 0.95 and 1.2")
        << QSize(1920, 1080) << QSize(2048, 1152) << false << "" << false;
    QTest::newRow("just above 0.95")
        << QSize(1920, 1080) << QSize(1960, 1080) << false << "" << true;
    QTest::newRow("nothing negotiated yet")
        << QSize(-1, -1) << QSize(1920, 1080) << true << "0.0" << false;
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

    QTest::newRow("0") << 0 << "Invalid";
    QTest::newRow("4") << 4 << "BGRA8888";
    QTest::newRow("5") << 5 << "BGRA8888_Premultiplied";
    QTest::newRow("13") << 13 << "YUV420P";
    QTest::newRow("16") << 16 << "UYVY";
    QTest::newRow("17") << 17 << "YUYV";
    QTest::newRow("18") << 18 << "NV12";
    QTest::newRow("25") << 25 << "Y16";
    QTest::newRow("29") << 29 << "Jpeg";
    QTest::newRow("2 has no name") << 2 << "Unknown(2)";
    QTest::newRow("26 has no name") << 26 << "Unknown(26)";
    QTest::newRow("negative") << -1 << "Unknown(-1)";
}

void TestCaptureFormat::pixelFormatNames()
{
    QFETCH(int, value);
    QFETCH(QString, name);
    QCOMPARE(pixelFormatName(value), name);
}

QTEST_APPLESS_MAIN(TestCaptureFormat)
#include "tst_captureformat.moc"
