// Opening the virtual cameras the way the console does: a capture session with its video sink
// set first, the camera's format chosen before it starts, frames counted at the sink.

#include <QCamera>
#include <QCameraDevice>
#include <QGuiApplication>
#include <QMediaCaptureSession>
#include <QMediaDevices>
#include <QTest>
#include <QVideoFrame>
#include <QVideoSink>

#include <memory>

namespace {

constexpr int kFrames = 10;
constexpr int kFrameWaitMs = 30000;

QByteArray firstPlane(QVideoFrame frame)
{
    if (!frame.map(QVideoFrame::ReadOnly))
        return {};
    const QByteArray bytes(reinterpret_cast<const char *>(frame.bits(0)), frame.mappedBytes(0));
    frame.unmap();
    return bytes;
}

QCameraFormat findFormat(const QCameraDevice &device, QVideoFrameFormat::PixelFormat pixelFormat,
                         QSize size)
{
    for (const QCameraFormat &f : device.videoFormats()) {
        if (f.pixelFormat() == pixelFormat && f.resolution() == size)
            return f;
    }
    return {};
}

QCameraDevice findCamera(const QString &description, int index = 0)
{
    for (const QCameraDevice &c : QMediaDevices::videoInputs()) {
        if (c.description() == description && index-- == 0)
            return c;
    }
    return {};
}

// One camera in its own capture session, counting the valid frames that reach the sink. The sink
// goes in before the camera. `format`, when given, is applied before the camera joins the
// session: Qt 6.4 runs an attached camera before start(), and changing the format of a running
// camera makes the GUI thread wait for its streaming thread, which in turn may wait for the GUI
// thread to set up the sink (Qt then warns "main thread blocked" and shows the old format).
class Capture : public QObject
{
public:
    explicit Capture(const QCameraDevice &device, const QCameraFormat &format = {})
        : m_camera(device)
    {
        if (!format.isNull())
            m_camera.setCameraFormat(format);
        m_session.setVideoSink(&m_sink);
        m_session.setCamera(&m_camera);
        connect(&m_sink, &QVideoSink::videoFrameChanged, this, &Capture::onFrame);
        connect(&m_camera, &QCamera::errorOccurred, this,
                [this](QCamera::Error, const QString &text) { m_errors << text; });
    }

    ~Capture() override
    {
        // The sink sends an invalid frame while it is torn down.
        disconnect(&m_sink, nullptr, this, nullptr);
        m_camera.stop();
    }

    QCamera &camera() { return m_camera; }
    int frames() const { return m_frames; }
    QStringList errors() const { return m_errors; }
    QList<QSize> sizes() const { return m_sizes; }
    QList<QVideoFrameFormat::PixelFormat> pixelFormats() const { return m_pixelFormats; }
    QVideoFrame last() const { return m_last; }
    QVideoFrame previous() const { return m_previous; }

    void reset()
    {
        m_frames = 0;
        m_sizes.clear();
        m_pixelFormats.clear();
    }

private:
    void onFrame(const QVideoFrame &frame)
    {
        if (!frame.isValid())
            return;
        ++m_frames;
        if (!m_sizes.contains(frame.size()))
            m_sizes << frame.size();
        if (!m_pixelFormats.contains(frame.pixelFormat()))
            m_pixelFormats << frame.pixelFormat();
        m_previous = m_last;
        m_last = frame;
    }

    // Declared so that the session goes first, before the camera and sink it refers to.
    QVideoSink m_sink;
    QCamera m_camera;
    QMediaCaptureSession m_session;
    int m_frames = 0;
    QStringList m_errors;
    QList<QSize> m_sizes;
    QList<QVideoFrameFormat::PixelFormat> m_pixelFormats;
    QVideoFrame m_last;
    QVideoFrame m_previous;
};

} // namespace

class TestVcamCapture : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void framesInTheChosenFormat_data();
    void framesInTheChosenFormat();
    void formatChangesWhileAttached();
    void restartDeliversAgain();
    void twoCamerasAtOnce();
};

void TestVcamCapture::initTestCase()
{
    // Read once, when Qt first asks for cameras.
    qunsetenv("TAVROKVM_VCAM_SCENE");
    qputenv("TAVROKVM_VCAM_DEVICES", "box:CAPTURE1,box2131:CAPTURE2");
    QVERIFY(findCamera("TK USB3 Video").isNull() == false);
    QVERIFY(findCamera("TK USB Video").isNull() == false);
}

void TestVcamCapture::framesInTheChosenFormat_data()
{
    QTest::addColumn<int>("pixelFormat");
    QTest::addColumn<QSize>("size");
    QTest::addColumn<int>("delivered"); // what reaches the sink: JPEG arrives decoded

    QTest::newRow("MJPEG 1280x720") << int(QVideoFrameFormat::Format_Jpeg) << QSize(1280, 720)
                                    << int(QVideoFrameFormat::Format_YUV420P);
    QTest::newRow("YUY2 640x480") << int(QVideoFrameFormat::Format_YUYV) << QSize(640, 480)
                                  << int(QVideoFrameFormat::Format_YUYV);
    QTest::newRow("NV12 1920x1080") << int(QVideoFrameFormat::Format_NV12) << QSize(1920, 1080)
                                    << int(QVideoFrameFormat::Format_NV12);
    QTest::newRow("MJPEG 3840x2160") << int(QVideoFrameFormat::Format_Jpeg) << QSize(3840, 2160)
                                     << int(QVideoFrameFormat::Format_YUV420P);
}

void TestVcamCapture::framesInTheChosenFormat()
{
    QFETCH(int, pixelFormat);
    QFETCH(QSize, size);
    QFETCH(int, delivered);

    const QCameraDevice box = findCamera("TK USB3 Video");
    const QCameraFormat format = findFormat(box, QVideoFrameFormat::PixelFormat(pixelFormat), size);
    QVERIFY(!format.isNull());

    Capture capture(box, format);
    QCOMPARE(capture.camera().cameraFormat(), format);
    capture.camera().start();
    QTRY_VERIFY_WITH_TIMEOUT(capture.frames() >= kFrames, kFrameWaitMs);
    capture.camera().stop();

    QCOMPARE(capture.errors(), QStringList());
    QCOMPARE(capture.sizes(), QList<QSize>{size});
    QCOMPARE(capture.pixelFormats(),
             QList<QVideoFrameFormat::PixelFormat>{QVideoFrameFormat::PixelFormat(delivered)});

    // A moving picture: two frames in a row are never the same.
    const QByteArray previous = firstPlane(capture.previous());
    const QByteArray last = firstPlane(capture.last());
    QVERIFY(!previous.isEmpty());
    QCOMPARE(previous.size(), last.size());
    QVERIFY(previous != last);
}

void TestVcamCapture::formatChangesWhileAttached()
{
    // The console's order: the camera joins the session, then gets its format, then starts. The
    // camera already runs on its first format by then, so each choice relinks a running camera,
    // and the camera has to follow. Frames of an earlier format may reach the sink while Qt
    // relinks (see Capture), so only the settled format is checked.
    const QCameraDevice box = findCamera("TK USB3 Video");
    const QCameraFormat jpeg = findFormat(box, QVideoFrameFormat::Format_Jpeg, {1280, 720});
    const QCameraFormat yuyv = findFormat(box, QVideoFrameFormat::Format_YUYV, {640, 480});

    Capture capture(box);
    capture.camera().setCameraFormat(jpeg);
    capture.camera().setCameraFormat(yuyv);
    capture.camera().start();
    QTRY_VERIFY_WITH_TIMEOUT(
        capture.frames() >= kFrames && capture.last().size() == QSize(640, 480), kFrameWaitMs);
    QCOMPARE(capture.errors(), QStringList());
    QCOMPARE(capture.last().pixelFormat(), QVideoFrameFormat::Format_YUYV);

    // And back to JPEG while frames flow.
    capture.camera().setCameraFormat(jpeg);
    QTRY_VERIFY_WITH_TIMEOUT(capture.last().size() == QSize(1280, 720), kFrameWaitMs);
    QCOMPARE(capture.errors(), QStringList());
}

void TestVcamCapture::restartDeliversAgain()
{
    const QCameraDevice box = findCamera("TK USB3 Video");
    Capture capture(box, findFormat(box, QVideoFrameFormat::Format_Jpeg, {1280, 720}));
    for (int round = 0; round < 2; ++round) {
        capture.reset();
        capture.camera().start();
        QTRY_VERIFY_WITH_TIMEOUT(capture.frames() >= kFrames, kFrameWaitMs);
        capture.camera().stop();
        QTRY_VERIFY(!capture.camera().isActive());
    }
    QCOMPARE(capture.errors(), QStringList());
    QCOMPARE(capture.sizes(), QList<QSize>{QSize(1280, 720)});
}

void TestVcamCapture::twoCamerasAtOnce()
{
    const QCameraDevice box = findCamera("TK USB3 Video");
    const QCameraDevice second = findCamera("TK USB Video");
    auto first =
        std::make_unique<Capture>(box, findFormat(box, QVideoFrameFormat::Format_YUYV, {640, 480}));
    auto other = std::make_unique<Capture>(
        second, findFormat(second, QVideoFrameFormat::Format_Jpeg, {1280, 720}));
    first->camera().start();
    other->camera().start();
    QTRY_VERIFY_WITH_TIMEOUT(first->frames() >= kFrames && other->frames() >= kFrames,
                             kFrameWaitMs);
    QCOMPARE(first->errors(), QStringList());
    QCOMPARE(other->errors(), QStringList());
    QCOMPARE(first->sizes(), QList<QSize>{QSize(640, 480)});
    QCOMPARE(other->sizes(), QList<QSize>{QSize(1280, 720)});
}

QTEST_MAIN(TestVcamCapture)
#include "tst_vcamcapture.moc"
