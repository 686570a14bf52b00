// The preview grid's rules: the tile's capture format, the paint spacing and health, the border
// flash, and what a slot does at a sync.

#include <QTest>

#include "devices/previewrules.h"

namespace {

using Formats = QList<CaptureFormatDesc>;
constexpr int Jpeg = CapturePixelFormat::Jpeg;
constexpr int YUYV = CapturePixelFormat::YUYV;
constexpr int NV12 = CapturePixelFormat::NV12;

CaptureFormatDesc fmt(int pixelFormat, int width, int height, double fps)
{
    return {pixelFormat, width, height, 0, fps};
}

} // namespace

Q_DECLARE_METATYPE(PreviewSlotAction)

class TestPreviewRules : public QObject
{
    Q_OBJECT
private slots:
    void formatChoice_data();
    void formatChoice();
    void paintSpacingAndHealth_data();
    void paintSpacingAndHealth();
    void flashSteps();
    void slotDecision_data();
    void slotDecision();
};

void TestPreviewRules::formatChoice_data()
{
    QTest::addColumn<Formats>("formats");
    QTest::addColumn<int>("chosen"); // -1: the camera keeps its default format

    QTest::newRow("only 1080p: none")
        << Formats{fmt(Jpeg, 1920, 1080, 30), fmt(NV12, 1920, 1080, 60)} << -1;
    QTest::newRow("640x480 at 30 and at 10: the 10 fps one")
        << Formats{fmt(YUYV, 640, 480, 30), fmt(YUYV, 640, 480, 10)} << 1;
    // The MJPEG format scores lower (smaller) but uncompressed wins within the pass.
    QTest::newRow("YUYV before a lower-scoring MJPEG")
        << Formats{fmt(Jpeg, 320, 240, 10), fmt(YUYV, 640, 480, 10)} << 1;
    QTest::newRow("MJPEG when the pass has nothing else")
        << Formats{fmt(YUYV, 1920, 1080, 10), fmt(Jpeg, 960, 540, 10)} << 1;
    QTest::newRow("smaller scores lower")
        << Formats{fmt(YUYV, 640, 360, 10), fmt(YUYV, 320, 240, 10), fmt(Jpeg, 960, 540, 10)} << 1;
    QTest::newRow("rate away from 10 costs 100000 per fps")
        << Formats{fmt(YUYV, 320, 240, 5), fmt(YUYV, 320, 240, 10)} << 1;
    QTest::newRow("equal scores: the first")
        << Formats{fmt(YUYV, 640, 360, 10), fmt(NV12, 640, 360, 10)} << 0;
    QTest::newRow("9.5 fps rounds to 10")
        << Formats{fmt(YUYV, 640, 480, 12), fmt(YUYV, 640, 480, 9.5)} << 1;
    QTest::newRow("10.5 fps rounds to 11: pass 2")
        << Formats{fmt(YUYV, 640, 480, 10.5), fmt(Jpeg, 1280, 720, 10)} << 0;
    QTest::newRow("pass 3 (15 fps) before pass 4 (720p)")
        << Formats{fmt(Jpeg, 1280, 720, 10), fmt(YUYV, 640, 480, 15)} << 1;
    QTest::newRow("pass 4: 720p at 10")
        << Formats{fmt(Jpeg, 1280, 720, 10), fmt(YUYV, 640, 480, 30)} << 0;
    QTest::newRow("pass 5: 720p at 15")
        << Formats{fmt(Jpeg, 1280, 720, 15), fmt(YUYV, 640, 480, 30)} << 0;
    QTest::newRow("portrait sides count as long and short")
        << Formats{fmt(YUYV, 540, 960, 10)} << 0;
    QTest::newRow("below 320x240 no pass takes it")
        << Formats{fmt(YUYV, 320, 200, 10), fmt(YUYV, 640, 480, 15)} << 1;
    QTest::newRow("fallback: the smallest up to 1280x720 at 15")
        << Formats{fmt(YUYV, 640, 480, 30), fmt(YUYV, 176, 144, 15), fmt(YUYV, 160, 120, 15),
                   fmt(Jpeg, 1280, 720, 30)}
        << 2;
    QTest::newRow("fallback: at least 160 wide and 120 high")
        << Formats{fmt(YUYV, 120, 200, 15), fmt(NV12, 200, 100, 15), fmt(YUYV, 320, 200, 30)} << -1;
    QTest::newRow("fallback ties") << Formats{fmt(YUYV, 200, 150, 15), fmt(NV12, 200, 150, 5)} << 0;
    QTest::newRow("invalid resolutions never pass")
        << Formats{fmt(YUYV, -1, -1, 10), fmt(YUYV, 0, 480, 10), fmt(Jpeg, 640, 0, 10)} << -1;
    QTest::newRow("invalid before a valid one")
        << Formats{fmt(YUYV, -1, -1, 10), fmt(Jpeg, 960, 540, 10)} << 1;
    QTest::newRow("no formats") << Formats{} << -1;
    // The virtual box: its preview formats follow the full-size ones.
    QTest::newRow("virtual box") << Formats{fmt(Jpeg, 1920, 1080, 60), fmt(Jpeg, 1280, 720, 30),
                                            fmt(Jpeg, 3840, 2160, 30), fmt(NV12, 1920, 1080, 60),
                                            fmt(YUYV, 640, 480, 30),   fmt(YUYV, 640, 360, 10),
                                            fmt(YUYV, 320, 240, 10),   fmt(Jpeg, 960, 540, 10)}
                                 << 6;
}

void TestPreviewRules::formatChoice()
{
    QFETCH(Formats, formats);
    QFETCH(int, chosen);
    QCOMPARE(choosePreviewFormat(formats), chosen);
}

void TestPreviewRules::paintSpacingAndHealth_data()
{
    QTest::addColumn<QList<qint64>>("arrivals");   // ms since the first frame arrived
    QTest::addColumn<QList<qint64>>("frameTimes"); // capture times, -1: not stamped
    QTest::addColumn<QList<bool>>("painted");

    const QList<qint64> unstamped{-1, -1, -1, -1, -1, -1};
    QTest::newRow("50 ms apart: every second one")
        << QList<qint64>{0, 50, 100, 150, 200, 250} << unstamped
        << QList<bool>{true, false, true, false, true, false};
    QTest::newRow("99 ms is too soon, 100 is not")
        << QList<qint64>{0, 99, 100, 199, 201} << unstamped
        << QList<bool>{true, false, true, false, true};
    QTest::newRow("a late frame is painted at once")
        << QList<qint64>{0, 30, 500, 520} << unstamped << QList<bool>{true, false, true, false};
    // A 10 fps camera: stamped 100 ms apart, arriving a little early or late.
    QTest::newRow("stamped 100 ms apart, arriving with jitter")
        << QList<qint64>{0, 97, 204, 296, 401} << QList<qint64>{5, 105, 205, 305, 405}
        << QList<bool>{true, true, true, true, true};
    QTest::newRow("stamped 50 ms apart, arriving 100 ms apart")
        << QList<qint64>{0, 100, 200, 300} << QList<qint64>{0, 50, 100, 150}
        << QList<bool>{true, false, true, false};
    QTest::newRow("the same frame twice")
        << QList<qint64>{0, 1, 100} << QList<qint64>{5, 5, 105} << QList<bool>{true, false, true};
    QTest::newRow("stream started again: times restart")
        << QList<qint64>{0, 100, 150} << QList<qint64>{900, 1000, 3}
        << QList<bool>{true, true, true};
    QTest::newRow("a stamp after unstamped frames: arrival decides")
        << QList<qint64>{0, 60, 100} << QList<qint64>{-1, 60, 100}
        << QList<bool>{true, false, true};
}

void TestPreviewRules::paintSpacingAndHealth()
{
    QFETCH(QList<qint64>, arrivals);
    QFETCH(QList<qint64>, frameTimes);
    QFETCH(QList<bool>, painted);
    const qint64 epoch = 1700000000000;
    PreviewPaintClock clock;
    qint64 lastFrame = 0;
    QVERIFY(!previewStreamHealthy(true, lastFrame, epoch, 8000)); // no frame yet
    for (int i = 0; i < arrivals.size(); ++i) {
        const qint64 now = epoch + arrivals[i];
        lastFrame = now; // every frame counts for health, painted or not
        const bool paint = previewFrameIsPainted(clock, now, frameTimes[i]);
        QCOMPARE(paint, painted[i]);
        if (paint)
            clock = {now, frameTimes[i]};
        QVERIFY(previewStreamHealthy(true, lastFrame, now, 8000));
    }
    QVERIFY(previewStreamHealthy(true, lastFrame, lastFrame + 8000, 8000));
    QVERIFY(!previewStreamHealthy(true, lastFrame, lastFrame + 8001, 8000));
    QVERIFY(!previewStreamHealthy(false, lastFrame, lastFrame, 8000));
}

void TestPreviewRules::flashSteps()
{
    // Ticks every 90 ms after the start (green): normal, green, normal, green, normal, over.
    const QList<bool> highlighted{false, true, false, true, false, false};
    for (int counter = 0; counter < highlighted.size(); ++counter) {
        const PreviewFlashStep step = previewFlashStep(counter);
        QCOMPARE(step.highlighted, highlighted[counter]);
        QCOMPARE(step.finished, counter == 5);
    }
}

void TestPreviewRules::slotDecision_data()
{
    QTest::addColumn<int>("slot");
    QTest::addColumn<int>("cameraCount");
    QTest::addColumn<QByteArray>("boundId");
    QTest::addColumn<QByteArray>("mainId");
    QTest::addColumn<bool>("mainHolds");
    QTest::addColumn<bool>("suppressed");
    QTest::addColumn<bool>("streaming");
    QTest::addColumn<bool>("force");
    QTest::addColumn<PreviewSlotAction>("action");
    QTest::addColumn<bool>("reopen");
    QTest::addColumn<bool>("changed");
    QTest::addColumn<bool>("newlySuppressed");
    QTest::addColumn<bool>("lifted");

    const QByteArray a("vid_a5c0&pid_2132&sn_A"), b("vid_a5c0&pid_2132&sn_B");
    using A = PreviewSlotAction;
    // Camera of the slot: `a` whenever the slot has one.
    QTest::newRow("beyond the cameras") << 3 << 3 << a << QByteArray() << false << true << true
                                        << false << A::Close << false << false << false << false;
    QTest::newRow("closed tile opens")
        << 0 << 1 << QByteArray() << QByteArray() << false << false << false << false << A::Open
        << false << false << false << false;
    QTest::newRow("streaming, unforced: kept")
        << 0 << 1 << a << QByteArray() << false << false << true << false << A::Keep << false
        << false << false << false;
    QTest::newRow("streaming, forced: re-opened")
        << 0 << 1 << a << QByteArray() << false << false << true << true << A::Open << true << false
        << false << false;
    QTest::newRow("bound to another camera: re-opened")
        << 0 << 1 << b << QByteArray() << false << false << true << false << A::Open << true << true
        << false << false;
    QTest::newRow("console holds it: placeholder")
        << 0 << 1 << a << a << true << false << true << false << A::Suppress << false << false
        << true << false;
    QTest::newRow("console holds it, already shown")
        << 0 << 1 << QByteArray() << a << true << true << false << true << A::Suppress << false
        << false << false << false;
    QTest::newRow("console's id but its camera stopped: lifted and opened")
        << 0 << 1 << QByteArray() << a << false << true << false << false << A::Open << false
        << false << false << true;
    QTest::newRow("console holds another camera")
        << 0 << 1 << a << b << false << false << true << false << A::Keep << false << false << false
        << false;
    // A staggered sync remembers the console's camera when it began.
    QTest::newRow("no console camera when the sync began")
        << 0 << 1 << a << QByteArray() << true << false << true << false << A::Keep << false
        << false << false << false;
}

void TestPreviewRules::slotDecision()
{
    QFETCH(int, slot);
    QFETCH(int, cameraCount);
    QFETCH(QByteArray, boundId);
    QFETCH(QByteArray, mainId);
    QFETCH(bool, mainHolds);
    QFETCH(bool, suppressed);
    QFETCH(bool, streaming);
    QFETCH(bool, force);
    PreviewSlotState state;
    state.slot = slot;
    state.cameraCount = cameraCount;
    state.cameraId = slot < cameraCount ? QByteArray("vid_a5c0&pid_2132&sn_A") : QByteArray();
    state.boundId = boundId;
    state.mainId = mainId;
    state.mainHoldsCamera = mainHolds;
    state.suppressed = suppressed;
    state.streaming = streaming;
    state.force = force;
    const PreviewSlotDecision decision = decidePreviewSlot(state);
    QTEST(decision.action, "action");
    QTEST(decision.reopen, "reopen");
    QTEST(decision.changed, "changed");
    QTEST(decision.newlySuppressed, "newlySuppressed");
    QTEST(decision.suppressionLifted, "lifted");
}

QTEST_APPLESS_MAIN(TestPreviewRules)

#include "tst_previewrules.moc"
