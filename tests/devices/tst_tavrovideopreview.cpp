// A preview tile against the virtual camera: the format it asks for, its stream and health, the
// paint spacing, giving the camera up and taking it back, the placeholder, the border flash and
// the zoom request.

#include <QApplication>
#include <QFile>
#include <QFrame>
#include <QLabel>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include "devices/tavrovideopreview.h"
#include "platform/cameraidentity.h"
#include "tests/support/previewtestaccess.h"
#include "tests/support/vcamholders.h"
#include "tests/support/videoframes.h"

namespace {

constexpr int kTimeoutMs = 20000;
constexpr qint64 kHealthAgeMs = 8000;

QTemporaryDir &workDir()
{
    static QTemporaryDir dir;
    return dir;
}

QString holdersFile()
{
    return workDir().filePath(QStringLiteral("holders.txt"));
}

QByteArray identityOfSerial(const QString &serial)
{
    for (const IdentifiedCamera &camera : identifiedVideoInputs()) {
        if (camera.identity.endsWith(serial.toUtf8()))
            return camera.identity;
    }
    return QByteArray();
}

// Opens of a camera by the tile, from its log.
int g_opens = 0;
QtMessageHandler g_previousHandler = nullptr;

void countingHandler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (message.startsWith(QStringLiteral("[TavroVideoPreview] 槽位")) &&
        message.contains(QStringLiteral("打开预览")))
        ++g_opens;
    g_previousHandler(type, context, message);
}

VcamHolders holders(const QString &serial)
{
    return vcamHoldersOf(holdersFile(), serial);
}

} // namespace

class TestTavroVideoPreview : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void opensSmallSlowFormatAndStreams();
    void paintsOneFrameIn100MsAndCountsEveryFrame();
    void reopenRules();
    void detachedCameraStopsAndComesBack();
    void unknownCameraClosesTheTile();
    void placeholderCoversTheSurface();
    void flashBlinksThreeTimesAndRestarts();
    void doubleClickAsksForZoom();

private:
    bool highlighted() const
    {
        return m_tile->findChild<QFrame *>("preview_surface_5")->styleSheet().contains("#00c853");
    }

    TavroVideoPreview *m_tile = nullptr;
    QByteArray m_first;
    QByteArray m_second;
};

void TestTavroVideoPreview::initTestCase()
{
    g_previousHandler = qInstallMessageHandler(countingHandler);
    QTRY_VERIFY_WITH_TIMEOUT(!identityOfSerial("TKTILE02").isEmpty(), kTimeoutMs);
    m_first = identityOfSerial("TKTILE01");
    m_second = identityOfSerial("TKTILE02");
    QVERIFY(!m_first.isEmpty());
    m_tile = new TavroVideoPreview(5);
    m_tile->resize(400, 240);
    m_tile->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_tile));
}

void TestTavroVideoPreview::cleanupTestCase()
{
    delete m_tile;
    // Never two streams on one camera, whatever the tile did.
    QCOMPARE(vcamPeakHolders(holdersFile()), 1);
    QCOMPARE(holders("TKTILE01").streaming, 0);
    QCOMPARE(holders("TKTILE02").streaming, 0);
    qInstallMessageHandler(g_previousHandler);
}

void TestTavroVideoPreview::opensSmallSlowFormatAndStreams()
{
    m_tile->openCamera(m_first, false);
    QCOMPARE(m_tile->boundId(), m_first);
    QVERIFY(m_tile->isPreviewStreaming());
    // No frame yet: not healthy.
    QVERIFY(!m_tile->isPreviewStreamHealthy(kHealthAgeMs));
    const QCameraFormat format = TavroVideoPreviewTestAccess::cameraFormat(*m_tile);
    QCOMPARE(format.resolution(), QSize(320, 240));
    QCOMPARE(format.pixelFormat(), QVideoFrameFormat::Format_YUYV);
    QCOMPARE(qRound(format.maxFrameRate()), 10);

    QTRY_VERIFY_WITH_TIMEOUT(m_tile->isPreviewStreamHealthy(kHealthAgeMs), kTimeoutMs);
    QTRY_VERIFY(m_tile->paintedFrameCount() >= 2);
    QLabel *label = m_tile->videoInteractionTarget();
    QVERIFY(label->isVisible());
    // Scaled into the label, keeping the picture's 4:3.
    QCOMPARE(label->pixmap().size(), QSize(320, 240).scaled(label->size(), Qt::KeepAspectRatio));
    QTRY_COMPARE(holders("TKTILE01").streaming, 1);
}

void TestTavroVideoPreview::paintsOneFrameIn100MsAndCountsEveryFrame()
{
    // The camera keeps running; its frames stop reaching the tile, which gets them by hand.
    TavroVideoPreviewTestAccess::setSinkConnected(*m_tile, false);
    QTest::qWait(150); // frames already on their way arrive and are done with
    const QVideoFrame frame = greyVideoFrame({320, 240}, QVideoFrameFormat::Format_YUYV);
    TavroVideoPreviewTestAccess::advanceClock(*m_tile, 1000);
    QList<bool> painted;
    qint64 previous = m_tile->lastFrameTimeMs();
    for (int i = 0; i < 6; ++i) {
        const quint64 before = m_tile->paintedFrameCount();
        m_tile->onPreviewVideoFrame(frame);
        painted << (m_tile->paintedFrameCount() > before);
        // Every frame counts as received.
        QVERIFY(m_tile->lastFrameTimeMs() >= previous + 50);
        previous = m_tile->lastFrameTimeMs();
        TavroVideoPreviewTestAccess::advanceClock(*m_tile, 50);
    }
    QCOMPARE(painted, QList<bool>({true, false, true, false, true, false}));
    // An invalid frame (the sink's flush) is nothing.
    const qint64 last = m_tile->lastFrameTimeMs();
    TavroVideoPreviewTestAccess::advanceClock(*m_tile, 500);
    m_tile->onPreviewVideoFrame(QVideoFrame());
    QCOMPARE(m_tile->lastFrameTimeMs(), last);
    // Health follows the last frame received, not the last painted.
    TavroVideoPreviewTestAccess::advanceClock(*m_tile, kHealthAgeMs);
    QVERIFY(!m_tile->isPreviewStreamHealthy(kHealthAgeMs));
    TavroVideoPreviewTestAccess::setSinkConnected(*m_tile, true);
    QTRY_VERIFY_WITH_TIMEOUT(m_tile->isPreviewStreamHealthy(kHealthAgeMs), kTimeoutMs);
}

void TestTavroVideoPreview::reopenRules()
{
    g_opens = 0;
    // Already running that camera: left alone.
    m_tile->openCamera(m_first, false);
    QCOMPARE(g_opens, 0);
    QVERIFY(m_tile->isPreviewStreaming());

    // Forced: closed and opened again.
    m_tile->openCamera(m_first, true);
    QCOMPARE(g_opens, 1);
    QTRY_VERIFY_WITH_TIMEOUT(m_tile->isPreviewStreamHealthy(kHealthAgeMs), kTimeoutMs);

    // Another camera: the first one is let go.
    m_tile->openCamera(findCameraByIdentity(m_second), false);
    QCOMPARE(g_opens, 2);
    QCOMPARE(m_tile->boundId(), m_second);
    QTRY_COMPARE(holders("TKTILE01").streaming, 0);
    QTRY_COMPARE_WITH_TIMEOUT(holders("TKTILE02").streaming, 1, kTimeoutMs);
    QTRY_VERIFY_WITH_TIMEOUT(m_tile->isPreviewStreamHealthy(kHealthAgeMs), kTimeoutMs);
}

void TestTavroVideoPreview::detachedCameraStopsAndComesBack()
{
    m_tile->detachPreviewSession();
    QTRY_COMPARE_WITH_TIMEOUT(holders("TKTILE02").streaming, 0, kTimeoutMs);
    QCOMPARE(m_tile->boundId(), m_second); // the binding stays
    m_tile->suspendVideoSurface();
    QVERIFY(m_tile->videoInteractionTarget()->isHidden());

    const quint64 painted = m_tile->paintedFrameCount();
    m_tile->attachPreviewSession();
    QTRY_COMPARE_WITH_TIMEOUT(holders("TKTILE02").streaming, 1, kTimeoutMs);
    QTRY_VERIFY_WITH_TIMEOUT(m_tile->paintedFrameCount() > painted, kTimeoutMs);
    QVERIFY(m_tile->videoInteractionTarget()->isVisible());
}

void TestTavroVideoPreview::unknownCameraClosesTheTile()
{
    const QByteArray gone("vid_a5c0&pid_2132&sn_GONE");
    QTest::ignoreMessage(QtWarningMsg,
                         "[TavroVideoPreview] UVC not found: vid_a5c0&pid_2132&sn_GONE");
    m_tile->openCamera(gone, false);
    QVERIFY(m_tile->boundId().isEmpty());
    QVERIFY(!m_tile->isPreviewStreaming());
    QVERIFY(!m_tile->isPreviewStreamHealthy(kHealthAgeMs));
    QVERIFY(m_tile->videoInteractionTarget()->isHidden());
    QTRY_COMPARE(holders("TKTILE02").streaming, 0);
    m_tile->openCamera(m_first, false);
    QTRY_VERIFY_WITH_TIMEOUT(m_tile->isPreviewStreamHealthy(kHealthAgeMs), kTimeoutMs);
}

void TestTavroVideoPreview::placeholderCoversTheSurface()
{
    auto *surface = m_tile->findChild<QFrame *>("preview_surface_5");
    QLabel *placeholder = nullptr;
    for (QLabel *label : surface->findChildren<QLabel *>()) {
        if (label->text() == QStringLiteral("主画面占用该设备"))
            placeholder = label;
    }
    QVERIFY(placeholder);
    m_tile->setMainOccupiedPlaceholder(true);
    QVERIFY(m_tile->isMainOccupiedPlaceholderShown());
    QVERIFY(placeholder->isVisible());
    QVERIFY(m_tile->videoInteractionTarget()->isHidden());
    QCOMPARE(placeholder->geometry(), surface->rect());
    m_tile->resize(300, 200);
    QTRY_COMPARE(placeholder->geometry(), surface->rect());
    m_tile->setMainOccupiedPlaceholder(false);
    QVERIFY(!placeholder->isVisible());
    m_tile->resize(400, 240);
}

void TestTavroVideoPreview::flashBlinksThreeTimesAndRestarts()
{
    QVERIFY(!highlighted());
    m_tile->flashGreenBorderHint();
    QVERIFY(highlighted());
    QCOMPARE(TavroVideoPreviewTestAccess::flashInterval(*m_tile), 90);
    // The timer's ticks at 90, 180, ... 540 ms, stepped by hand.
    QList<bool> sequence;
    for (int tick = 0; tick < 6; ++tick) {
        TavroVideoPreviewTestAccess::flashTick(*m_tile);
        sequence << highlighted();
    }
    QCOMPARE(sequence, QList<bool>({false, true, false, true, false, false}));
    QVERIFY(!TavroVideoPreviewTestAccess::flashRunning(*m_tile));

    // A second flash during the first starts over.
    m_tile->flashGreenBorderHint();
    TavroVideoPreviewTestAccess::flashTick(*m_tile);
    TavroVideoPreviewTestAccess::flashTick(*m_tile);
    TavroVideoPreviewTestAccess::flashTick(*m_tile);
    QVERIFY(!highlighted());
    m_tile->flashGreenBorderHint();
    QVERIFY(highlighted());
    TavroVideoPreviewTestAccess::flashTick(*m_tile);
    QVERIFY(!highlighted());
    TavroVideoPreviewTestAccess::flashTick(*m_tile);
    QVERIFY(highlighted());
    // Left to its own timer it ends normal and stops.
    QTRY_VERIFY(!TavroVideoPreviewTestAccess::flashRunning(*m_tile));
    QVERIFY(!highlighted());
}

void TestTavroVideoPreview::doubleClickAsksForZoom()
{
    QSignalSpy zoom(m_tile, &TavroVideoPreview::zoomRequested);
    QTRY_VERIFY(m_tile->videoInteractionTarget()->isVisible());
    QTest::mouseDClick(m_tile->videoInteractionTarget(), Qt::LeftButton);
    QCOMPARE(zoom.count(), 1);
    QCOMPARE(zoom.at(0).at(0).toInt(), 5);

    // A tile without a picture asks too.
    m_tile->closeCamera();
    QTRY_COMPARE(holders("TKTILE01").streaming, 0);
    QTest::mouseDClick(m_tile, Qt::LeftButton);
    QCOMPARE(zoom.count(), 2);
}

int main(int argc, char **argv)
{
    if (!workDir().isValid())
        return 1;
    QFile scene(workDir().filePath(QStringLiteral("scene.txt")));
    if (!scene.open(QIODevice::WriteOnly) || scene.write("box:TKTILE01,box:TKTILE02\n") < 0)
        return 1;
    scene.close();
    qputenv("TAVROKVM_VCAM_SCENE", scene.fileName().toUtf8());
    qputenv("TAVROKVM_VCAM_HOLDERS", holdersFile().toUtf8());
    QApplication app(argc, argv);
    TestTavroVideoPreview test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_tavrovideopreview.moc"
