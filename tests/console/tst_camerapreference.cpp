// Which camera is the box, which is a generic capture device, and which one opens first.

#include <QTest>

#include "console/camerapreference.h"

Q_DECLARE_METATYPE(QList<CameraText>)

namespace {

const CameraText kBuiltin{"FaceTime HD Camera", "0x8020000005ac8514"};
const CameraText kBuiltinLinux{"Integrated Camera", "vid_04f2&pid_b6dd&sn_IC0001"};
// Known by its name alone: the id carries no USB ids.
const CameraText kBoxByName{"TK USB3 Video", "0x1400000a5c02132"};
// Known by its USB ids alone: the name says nothing.
const CameraText kBoxByIds{"Capture", "vid_a5c0&pid_2132&sn_TK3V0001"};
const CameraText kOtherUsbVideo{"USB Video", "vid_534d&pid_2109&sn_MS0001"};
const CameraText kOtherUsbVideo2{"USB3 Video", "vid_345f&pid_2130&sn_EZ0001"};
// No "tk" anywhere: the serial must not make it the box by name.
const CameraText kBox2131{"USB Video", "vid_a5c0&pid_2131&sn_20240002"};
const CameraText kBox2131b{"USB Video", "vid_a5c0&pid_2131&sn_20240003"};
// The 2131 ids on a device that is not USB-video-like: never a candidate.
const CameraText k2131NotUsbVideo{"Capture", "vid_a5c0&pid_2131&sn_20240004"};

} // namespace

class TestCameraPreference : public QObject
{
    Q_OBJECT
private slots:
    void boxRecognition_data();
    void boxRecognition();
    void usbVideoLike_data();
    void usbVideoLike();
    void preferredCamera_data();
    void preferredCamera();
};

void TestCameraPreference::boxRecognition_data()
{
    QTest::addColumn<QString>("description");
    QTest::addColumn<QByteArray>("id");
    QTest::addColumn<bool>("box");
    QTest::addColumn<bool>("model2131");

    QTest::newRow("ids only, name says nothing")
        << "Capture" << QByteArray("vid_a5c0&pid_2132&sn_1") << true << false;
    QTest::newRow("ids in upper case")
        << "Capture" << QByteArray("USB#VID_A5C0&PID_2132&MI_00") << true << false;
    QTest::newRow("name only") << "TK USB3 Video" << QByteArray("3") << true << false;
    QTest::newRow("name words split between name and id")
        << "TK Capture" << QByteArray("usb-video-0") << true << false;
    QTest::newRow("vendor without product")
        << "Capture" << QByteArray("vid_a5c0&pid_9999") << false << false;
    QTest::newRow("product of another vendor")
        << "Capture" << QByteArray("vid_1234&pid_2132") << false << false;
    QTest::newRow("second model") << "Capture" << QByteArray("vid_a5c0&pid_2131&sn_2") << false
                                  << true;
    QTest::newRow("name lacks tk") << "USB3 Video" << QByteArray("7") << false << false;
}

void TestCameraPreference::boxRecognition()
{
    QFETCH(QString, description);
    QFETCH(QByteArray, id);
    QFETCH(bool, box);
    QFETCH(bool, model2131);
    QCOMPARE(isTkUsbVideoDevice({description, id}), box);
    QCOMPARE(isTkUsb2131Device({description, id}), model2131);
}

void TestCameraPreference::usbVideoLike_data()
{
    QTest::addColumn<QString>("description");
    QTest::addColumn<QByteArray>("id");
    QTest::addColumn<bool>("expected");

    const QByteArray plainId("0x1234");
    QTest::newRow("USB Video") << "USB Video" << plainId << true;
    QTest::newRow("USB3 Video") << "USB3 Video" << plainId << true;
    QTest::newRow("UVC in the name") << "UVC Capture" << plainId << true;
    QTest::newRow("webcam: USB Camera Webcam") << "USB Camera Webcam" << plainId << false;
    QTest::newRow("webcam saying USB 3: USB 3 Camera Webcam")
        << "USB 3 Camera Webcam" << plainId << true;
    QTest::newRow("USB Webcam matches no rule") << "USB Webcam" << plainId << false;
    // After an expression matches, "usb video" excuses a webcam; the last rule alone would not.
    QTest::newRow("webcam saying USB video") << "USB Video Webcam" << plainId << true;
    QTest::newRow("webcam saying UVC") << "UVC Webcam" << plainId << false;
    QTest::newRow("webcam saying USB3 in the id")
        << "Webcam Camera" << QByteArray("usb3-0000:00:14.0-2") << true;
    QTest::newRow("words apart: Video Grabber USB") << "Video Grabber USB" << plainId << true;
    QTest::newRow("usb only in the id") << "Camera" << QByteArray("usb-0000:00:14.0-1") << true;
    QTest::newRow("built-in camera") << "FaceTime HD Camera" << plainId << false;
    QTest::newRow("interface path with video word")
        << "Capture Device" << QByteArray("\\\\?\\usb#vid_1234&mi_00#video") << true;
    // The interface path decides before any webcam rule is asked.
    QTest::newRow("interface path of a webcam")
        << "Webcam Video" << QByteArray("usb#vid_1234&mi_00") << true;
    // "usb#vid_" and "&mi_" without "video" or "camera" anywhere: the first rule does not decide
    // and no later rule finds both words.
    QTest::newRow("interface path falls through")
        << "Capture" << QByteArray("usb#vid_1234&mi_00") << false;
    QTest::newRow("empty") << "" << QByteArray() << false;
}

void TestCameraPreference::usbVideoLike()
{
    QFETCH(QString, description);
    QFETCH(QByteArray, id);
    QFETCH(bool, expected);
    QCOMPARE(looksLikeUsbVideo({description, id}), expected);
}

void TestCameraPreference::preferredCamera_data()
{
    QTest::addColumn<QList<CameraText>>("cameras");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("built-in then TK USB3 Video")
        << QList<CameraText>{kBuiltin, kBoxByName} << kBoxByName.id;
    QTest::newRow("box by ids after generic USB video")
        << QList<CameraText>{kBuiltinLinux, kOtherUsbVideo, kBoxByIds} << kBoxByIds.id;
    QTest::newRow("box before a 2131 model")
        << QList<CameraText>{kBox2131, kBoxByIds} << kBoxByIds.id;
    QTest::newRow("built-in, other USB video, 2131 model")
        << QList<CameraText>{kBuiltin, kOtherUsbVideo, kBox2131} << kBox2131.id;
    QTest::newRow("2131 model first keeps its place")
        << QList<CameraText>{kBox2131, kOtherUsbVideo} << kBox2131.id;
    QTest::newRow("first 2131 model of two")
        << QList<CameraText>{kOtherUsbVideo, kBox2131, kBox2131b} << kBox2131.id;
    QTest::newRow("2131 ids on a device that is not USB video")
        << QList<CameraText>{kOtherUsbVideo, k2131NotUsbVideo} << kOtherUsbVideo.id;
    QTest::newRow("generic USB video over built-in")
        << QList<CameraText>{kBuiltin, kOtherUsbVideo} << kOtherUsbVideo.id;
    QTest::newRow("first of two generic USB video")
        << QList<CameraText>{kBuiltin, kOtherUsbVideo, kOtherUsbVideo2} << kOtherUsbVideo.id;
    QTest::newRow("first box of two") << QList<CameraText>{kBoxByName, kBoxByIds} << kBoxByName.id;
    QTest::newRow("nothing recognised: the first")
        << QList<CameraText>{kBuiltin, kBuiltinLinux} << kBuiltin.id;
    QTest::newRow("built-in alone") << QList<CameraText>{kBuiltin} << kBuiltin.id;
    QTest::newRow("empty list") << QList<CameraText>{} << QByteArray();
}

void TestCameraPreference::preferredCamera()
{
    QFETCH(QList<CameraText>, cameras);
    QFETCH(QByteArray, expected);
    QCOMPARE(preferredInitialCameraId(cameras), expected);
}

QTEST_APPLESS_MAIN(TestCameraPreference)
#include "tst_camerapreference.moc"
