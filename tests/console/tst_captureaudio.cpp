// The box's sound against a private sound server and the virtual camera: the box's input is
// found and attached to the session, its tone reaches the speaker while frames flow, stalled
// frames silence it, recordings carry it, and without a speaker the input still serves them.

#include <QAudioDevice>
#include <QAudioInput>
#include <QMediaDevices>
#include <QScopeGuard>
#include <QTest>
#include <QTimer>

#include <functional>

#include "db/dbmanager.h"
#include "tests/support/consolewithbox.h"
#include "tests/support/mediafacts.h"
#include "tests/support/modalcatcher.h"
#include "tests/support/tavrovideotestaccess.h"
#include "tests/support/virtualaudio.h"

namespace {

VirtualAudio &virtualAudio()
{
    static VirtualAudio audio;
    return audio;
}
bool g_audioStarted = false;

constexpr double kToneHz = 440;

} // namespace

class TestCaptureAudio : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void boxInputIsAttachedAndBound();
    void toneReachesTheSpeakerWhileFramesFlow();
    void stalledFramesSilenceIt();
    void recordingsCarryTheSound();
    void withoutASpeakerTheInputStillServesRecordings();
    // Last: holding the tone back stops the input's pipe, and a sound stream opened on it
    // afterwards has been seen to wait for ever inside the sound library.
    void recordingStoppedBeforeTheSoundBeganCarriesIt();

private:
    void record(const QString &path, int labelSeconds,
                const std::function<void()> &beforeStop = {});
    void verifyRecordingWithSound(const QString &path);

    ConsoleWithBox m_console;
    TavroVideo *m_view = nullptr;
};

void TestCaptureAudio::initTestCase()
{
    if (!g_audioStarted)
        QSKIP("no sound server (pulseaudio) on this machine");
    QVERIFY(m_console.start());
    m_view = m_console.view();
}

void TestCaptureAudio::cleanupTestCase()
{
    m_console.stop();
}

void TestCaptureAudio::boxInputIsAttachedAndBound()
{
    QAudioInput *input = m_view->sessionAudioInput();
    QVERIFY(input);
    QCOMPARE(input->device().description(), QStringLiteral("TK USB3 Audio"));
    // The choice is kept as the box's binding, as hexadecimal of the input's id.
    const QVariantMap record = DBManager::instance()->getDeviceByDid(m_view->getCurrentDeviceDid());
    QCOMPARE(record.value("audio_input_device_id").toString(),
             QString::fromLatin1(input->device().id().toHex()));
    QCOMPARE(m_view->savedAudioInputDeviceIdFromDb(), input->device().id());
}

void TestCaptureAudio::toneReachesTheSpeakerWhileFramesFlow()
{
    QTRY_VERIFY(m_view->isAudioPassthroughOn());
    QVERIFY(m_view->isAudioMonitorPlaying());
    // The speaker plays the box's tone; a few tries, as the sound takes a moment to settle.
    double share = 0;
    for (int attempt = 0; attempt < 12 && share <= 0.5; ++attempt)
        share = VirtualAudio::toneShare(virtualAudio().recordSpeaker(600), kToneHz);
    QVERIFY2(share > 0.5, qPrintable(QString::number(share)));
    QVERIFY2(VirtualAudio::toneShare(virtualAudio().recordSpeaker(400), 2 * kToneHz) < 0.1,
             "the second box's tone is not this box's");
}

void TestCaptureAudio::stalledFramesSilenceIt()
{
    // Frames the view ignores count as frames that stopped coming.
    TavroVideoTestAccess::setCameraActive(*m_view, false);
    QTRY_VERIFY(!m_view->isAudioPassthroughOn());
    // Attached anew while no frame comes: it stays silent.
    m_view->reapplyUvcAudioForCurrentCamera();
    QTest::qWait(300);
    QVERIFY(!m_view->isAudioPassthroughOn());
    TavroVideoTestAccess::setCameraActive(*m_view, true);
    QTRY_VERIFY(m_view->isAudioPassthroughOn());
}

// A recording of `seconds` (as the elapsed label counts) saved at `path`; `beforeStop` runs just
// before the stop is asked for.
void TestCaptureAudio::record(const QString &path, int labelSeconds,
                              const std::function<void()> &beforeStop)
{
    ModalCatcher catcher;
    m_view->setSavePathChooser(
        [&](const QString &, const QString &, const QString &) { return path; });
    m_view->onBtnRecordClicked();
    QVERIFY(m_view->isRecording());
    QTRY_COMPARE_WITH_TIMEOUT(m_view->recordElapsedSeconds(), labelSeconds, 15000);
    if (beforeStop)
        beforeStop();
    m_view->onBtnRecordClicked();
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(path) && !m_view->isRecording(), 15000);
    QTRY_COMPARE(catcher.count(QStringLiteral("录屏"), QStringLiteral("视频已保存")), 1);
    m_view->setSavePathChooser({});
}

// An H.264 4:2:0 picture with AAC sound that players open.
void TestCaptureAudio::verifyRecordingWithSound(const QString &path)
{
    const MediaFacts facts = discoverMedia(path);
    QVERIFY2(facts.read, qPrintable(path));
    QCOMPARE(facts.videoStreams, 1);
    QCOMPARE(facts.videoCodec, QStringLiteral("video/x-h264"));
    QCOMPARE(facts.chromaFormat, QStringLiteral("4:2:0"));
    QCOMPARE(facts.audioStreams, 1);
    QCOMPARE(facts.audioCodec, QStringLiteral("audio/mpeg"));
    QCOMPARE(facts.audioMpegVersion, 4);
    QVERIFY2(facts.seconds > 1.0 && facts.seconds < 6.0,
             qPrintable(QString::number(facts.seconds)));
}

// Video with sound has been seen to give an unreadable MP4 now and then: several in a row.
void TestCaptureAudio::recordingsCarryTheSound()
{
    QTemporaryDir saved;
    QVERIFY(saved.isValid());
    for (int round = 1; round <= 3; ++round) {
        const QString path = saved.filePath(QStringLiteral("sound-%1.mp4").arg(round));
        record(path, 3);
        verifyRecordingWithSound(path);
        if (QTest::currentTestFailed())
            return;
    }
}

// The box's sound stalls (as on a busy machine, or a box whose sound starts late): a recording
// stopped before any sound came waits for it, rather than writing an empty sound track.
void TestCaptureAudio::recordingStoppedBeforeTheSoundBeganCarriesIt()
{
    QTemporaryDir saved;
    QVERIFY(saved.isValid());
    QVERIFY(virtualAudio().holdTone(1, true));
    auto resume = qScopeGuard([] { virtualAudio().holdTone(1, false); });
    QTest::qWait(400); // what was on its way has arrived
    const QString path = saved.filePath(QStringLiteral("late.mp4"));
    record(path, 2,
           [] { QTimer::singleShot(800, [] { QVERIFY(virtualAudio().holdTone(1, false)); }); });
    verifyRecordingWithSound(path);
}

void TestCaptureAudio::withoutASpeakerTheInputStillServesRecordings()
{
    // The only output goes away; the box's input is attached anew.
    // The console lets go of its sound first: a playing stream whose speaker is unloaded has
    // made the next stream's start wait for ever inside Qt's sound backend (sanitized runs).
    m_view->releaseCaptureAudio();
    QVERIFY(virtualAudio().removeSpeaker());
    QTRY_VERIFY(QMediaDevices::defaultAudioOutput().isNull());
    m_view->reapplyUvcAudioForCurrentCamera();
    QVERIFY(m_view->sessionAudioInput());
    QVERIFY(!m_view->isAudioMonitorPlaying());
}

int main(int argc, char **argv)
{
    // Two boxes' inputs: this box pairs with one of them, and hears only its own tone.
    g_audioStarted = virtualAudio().start(2);
    // A box whose largest picture is 1080p: the sound, not the picture, is under test here.
    qputenv("TAVROKVM_VCAM_DEVICES", "box2131:TKAUDIO1");
    QApplication app(argc, argv);
    TestCaptureAudio test;
    const int result = QTest::qExec(&test, argc, argv);
    virtualAudio().stop();
    return result;
}

#include "tst_captureaudio.moc"
