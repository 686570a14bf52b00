// With TAVROKVM_GPU_VIDEO set, the formats the shaders convert go to the GPU surface and every
// other frame still takes the CPU path; a full close releases the surface.

#include <QApplication>
#include <QTemporaryDir>
#include <QTest>
#include <QVideoFrame>

#include "console/gl/videoglsurface.h"
#include "console/tavrovideo.h"
#include "db/dbmanager.h"
#include "tests/support/tavrovideotestaccess.h"
#include "tests/support/videoframes.h"

namespace {

QStringList g_lines;

void recordLine(QtMsgType, const QMessageLogContext &, const QString &message)
{
    g_lines.append(message);
}

} // namespace

class TestTavroVideoGpuPath : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void pathFollowsTheFormat();

private:
    QTemporaryDir m_dir;
};

void TestTavroVideoGpuPath::initTestCase()
{
    const QString platform = QGuiApplication::platformName();
    if (platform != QLatin1String("xcb"))
        QSKIP("the GPU surface needs OpenGL; run on xcb");
    QVERIFY(m_dir.isValid());
    QVERIFY(DBManager::instance()->initDatabase(m_dir.filePath("gpu.db")));
    QVERIFY(DBManager::instance()->setAppSetting("multi_same_display", "1"));
    qputenv("TAVROKVM_GPU_VIDEO", "1");
}

void TestTavroVideoGpuPath::pathFollowsTheFormat()
{
    TavroVideo view;
    view.resize(800, 450);
    view.show();
    QVERIFY(QTest::qWaitForWindowExposed(&view));
    TavroVideoTestAccess::setCameraActive(view, true);

    // Decoded MJPEG arrives as YUV420P: no shader for it, so the CPU path draws it.
    view.processVideoFrame(greyVideoFrame({640, 360}, QVideoFrameFormat::Format_YUV420P));
    QCOMPARE(view.decodeJobsStarted(), quint64(1));
    QVERIFY(!view.videoGlSurface());

    view.processVideoFrame(greyVideoFrame({640, 360}, QVideoFrameFormat::Format_NV12));
    QCOMPARE(view.decodeJobsStarted(), quint64(1));
    VideoGlSurface *surface = view.videoGlSurface();
    QVERIFY(surface);
    QVERIFY(view.isGlSurfaceActive());
    QVERIFY(surface->isVisible());
    QCOMPARE(surface->geometry(), view.rect());
    // Mouse events reach the view through the surface.
    QCOMPARE(view.childAt(400, 225), nullptr);

    view.resize(1000, 500);
    QTRY_COMPARE(surface->geometry(), view.rect());

    // The rate report names the path the pictures take.
    g_lines.clear();
    const QtMessageHandler previous = qInstallMessageHandler(recordLine);
    for (int second = 0; second < 61; ++second) {
        TavroVideoTestAccess::advanceClock(view, 1000);
        view.processVideoFrame(greyVideoFrame({640, 360}, QVideoFrameFormat::Format_NV12));
    }
    qInstallMessageHandler(previous);
    QVERIFY2(g_lines.contains(QStringLiteral("  渲染路径: GPU着色器(VideoGlSurface)")),
             qPrintable(g_lines.join('\n')));

    // The stream changes to a format the shaders do not convert, without a close: the surface
    // steps aside for the CPU path.
    view.processVideoFrame(greyVideoFrame({640, 360}, QVideoFrameFormat::Format_YUV420P));
    QVERIFY(!view.isGlSurfaceActive());
    QVERIFY(!surface->isVisible());
    QTRY_COMPARE(view.decodeJobsStarted(), quint64(2));
    view.processVideoFrame(greyVideoFrame({640, 360}, QVideoFrameFormat::Format_NV12));
    QVERIFY(surface->isVisible());

    QPointer<VideoGlSurface> watched(surface);
    view.closeCamera(true);
    QTRY_VERIFY(!view.videoGlSurface());
    QTRY_VERIFY(watched.isNull());
    QVERIFY(!view.isGlSurfaceActive());
}

int main(int argc, char **argv)
{
    // Without an X display xcb would end the process; offscreen has no OpenGL and skips.
    const QByteArray platform = qgetenv("QT_QPA_PLATFORM");
    if ((platform.isEmpty() || platform == "xcb") && qEnvironmentVariableIsEmpty("DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    TestTavroVideoGpuPath test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_tavrovideogpupath.moc"
