// Which audio input carries a box's sound: the binding, the two name rules, and identical boxes
// paired by the order of their ids.

#include <QTest>

#include "console/audiopairing.h"

namespace {

const CameraText kTkBox{"TK USB3 Video", "vid_a5c0&pid_2132&sn_A"};
const CameraText kOtherStick{"USB Video", "vid_534d&pid_2109&sn_C"};
const AudioInputText kTkAudio{"TK USB3 Audio", "tkaudio1"};
const AudioInputText kMacMic{"MacBook Microphone", "builtin"};
const AudioInputText kUsbAudioDevice{"USB Audio Device", "usbaudio"};
const AudioInputText kUsbAudio{"USB Audio", "usbaudio2"};

} // namespace

Q_DECLARE_METATYPE(CameraText)
Q_DECLARE_METATYPE(AudioInputText)

class TestAudioPairing : public QObject
{
    Q_OBJECT
private slots:
    void pairs_data();
    void pairs();
    void identicalBoxesPairByIdOrder();
    void uacInputs();
};

void TestAudioPairing::pairs_data()
{
    QTest::addColumn<CameraText>("camera");
    QTest::addColumn<QList<AudioInputText>>("inputs");
    QTest::addColumn<QByteArray>("bound");
    QTest::addColumn<int>("chosen");
    QTest::addColumn<int>("rule");
    QTest::addColumn<bool>("boundMissing");

    QTest::newRow("the box takes its own input")
        << kTkBox << QList<AudioInputText>{kTkAudio, kMacMic} << QByteArray() << 0
        << int(AudioPairing::TkUsb3) << false;
    QTest::newRow("the box with only a generic USB input: video only")
        << kTkBox << QList<AudioInputText>{kUsbAudioDevice} << QByteArray() << -1
        << int(AudioPairing::TkUsb3) << false;
    QTest::newRow("another stick never takes the box's input")
        << kOtherStick << QList<AudioInputText>{kTkAudio, kUsbAudio} << QByteArray() << 1
        << int(AudioPairing::UsbVideo) << false;
    QTest::newRow("a built-in camera pairs with nothing")
        << CameraText{"Integrated Camera", "vid_04f2&pid_b6dd&sn_IC"}
        << QList<AudioInputText>{kTkAudio, kUsbAudio} << QByteArray() << -1
        << int(AudioPairing::NoRule) << false;
    QTest::newRow("a stored binding wins over the rules")
        << kTkBox << QList<AudioInputText>{kTkAudio, kMacMic} << QByteArray("builtin") << 1
        << int(AudioPairing::Bound) << false;
    QTest::newRow("a bound input that is gone: the rules choose")
        << kTkBox << QList<AudioInputText>{kMacMic, kTkAudio} << QByteArray("unplugged") << 1
        << int(AudioPairing::TkUsb3) << true;
    // "__audio_auto__" read as hexadecimal: a short id that names no input.
    QTest::newRow("the automatic marker")
        << kTkBox << QList<AudioInputText>{kMacMic, kTkAudio}
        << QByteArray::fromHex("__audio_auto__") << 1 << int(AudioPairing::TkUsb3) << true;
}

void TestAudioPairing::pairs()
{
    QFETCH(CameraText, camera);
    QFETCH(QList<AudioInputText>, inputs);
    QFETCH(QByteArray, bound);
    QFETCH(int, chosen);
    QFETCH(int, rule);
    QFETCH(bool, boundMissing);
    const AudioPairing pairing = pairAudioInput(camera, {camera}, inputs, bound);
    QCOMPARE(pairing.chosen, chosen);
    QCOMPARE(int(pairing.rule), rule);
    QCOMPARE(pairing.boundInputMissing, boundMissing);
}

void TestAudioPairing::identicalBoxesPairByIdOrder()
{
    const CameraText boxA{"TK USB3 Video", "vid_a5c0&pid_2132&sn_A"};
    const CameraText boxB{"TK USB3 Video", "vid_a5c0&pid_2132&sn_B"};
    // Listed in the other order than their ids sort.
    const QList<AudioInputText> inputs{{"TK USB3 Audio", "tkaudio_y"},
                                       {"TK USB3 Audio", "tkaudio_x"}};
    const QList<CameraText> cameras{boxB, boxA};
    AudioPairing b = pairAudioInput(boxB, cameras, inputs, QByteArray());
    QVERIFY(b.mappedByOrder);
    QCOMPARE(b.videoIndex, 1);
    QCOMPARE(inputs[b.chosen].id, QByteArray("tkaudio_y"));
    AudioPairing a = pairAudioInput(boxA, cameras, inputs, QByteArray());
    QCOMPARE(inputs[a.chosen].id, QByteArray("tkaudio_x"));
    // A third box wraps around to the first input by id.
    const CameraText boxC{"TK USB3 Video", "vid_a5c0&pid_2132&sn_C"};
    AudioPairing c = pairAudioInput(boxC, {boxA, boxB, boxC}, inputs, QByteArray());
    QCOMPARE(inputs[c.chosen].id, QByteArray("tkaudio_x"));
    // Something stored (even an input that is gone) turns the ordering off.
    AudioPairing stored = pairAudioInput(boxB, cameras, inputs, QByteArray("gone"));
    QVERIFY(!stored.mappedByOrder);
    QCOMPARE(stored.chosen, 0);
}

void TestAudioPairing::uacInputs()
{
    QVERIFY(isLikelyUsbUacAudioInput({"USB Audio Device", "x"}));
    QVERIFY(isLikelyUsbUacAudioInput({"Capture", "alsa_input.usb-TK_Audio"}));
    QVERIFY(!isLikelyUsbUacAudioInput({"MacBook Microphone", "builtin"}));
}

QTEST_APPLESS_MAIN(TestAudioPairing)
#include "tst_audiopairing.moc"
