// Camera identities against the virtual camera: each box keeps its identity across runs, scene
// orders and re-plugs, and two identical boxes never share one.

#include <QCryptographicHash>
#include <QFile>
#include <QGuiApplication>
#include <QMediaDevices>
#include <QProcess>
#include <QSaveFile>
#include <QTemporaryDir>
#include <QTest>

#include <QCamera>
#include <QMediaCaptureSession>
#include <QVideoSink>

#include "platform/cameraidentity.h"

namespace {

constexpr int kPlugWaitMs = 10000;
const char kListArgument[] = "--list-identities";

QString did(const QByteArray &identity)
{
    return QString::fromLatin1(QCryptographicHash::hash(identity, QCryptographicHash::Md5).toHex());
}

// Child mode: the cameras of TAVROKVM_VCAM_DEVICES, one "description<TAB>identity" per line.
int listIdentities()
{
    const QList<IdentifiedCamera> cameras = identifiedVideoInputs();
    QTextStream out(stdout);
    for (const IdentifiedCamera &camera : cameras)
        out << camera.device.description() << '\t' << camera.identity << '\n';
    return 0;
}

QByteArrayList identities(const QList<IdentifiedCamera> &cameras)
{
    QByteArrayList ids;
    for (const IdentifiedCamera &camera : cameras)
        ids.append(camera.identity);
    return ids;
}

QByteArrayList currentIdentities()
{
    return identities(identifiedVideoInputs());
}

const QByteArray kBoxA = "vid_a5c0&pid_2132&sn_TKA0001";
const QByteArray kBoxB = "vid_a5c0&pid_2132&sn_TKB0002";

// Whether the camera delivers pictures: an entry of a camera that is gone never does.
bool delivers(const QCameraDevice &device)
{
    if (device.isNull())
        return false;
    QMediaCaptureSession session;
    QVideoSink sink;
    int frames = 0;
    QObject::connect(&sink, &QVideoSink::videoFrameChanged, [&frames](const QVideoFrame &frame) {
        if (frame.isValid())
            ++frames;
    });
    QCamera camera(device);
    for (const QCameraFormat &format : device.videoFormats()) {
        if (format.resolution() == QSize(640, 480))
            camera.setCameraFormat(format);
    }
    session.setVideoSink(&sink);
    session.setCamera(&camera);
    camera.start();
    const bool delivered = QTest::qWaitFor([&frames] { return frames >= 3; }, kPlugWaitMs);
    camera.stop();
    return delivered;
}

} // namespace

class TestCameraIdentity : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void everyKindHasItsOwnUsbIdentity();
    void identitiesSurviveANewProcessAndAnotherOrder();
    void duplicateAndStaleEntriesTakeNoIdentity();
    void identitiesFollowPlugAndUnplug();
    void boxesSharingASerialAreToldApartByPort();
    void boxesWithoutSerialAreToldApartByPort();
    void lookupByIdentity();

private:
    // Runs this test program as a child that lists the identities of `scene`.
    QList<QPair<QString, QByteArray>> listInChild(const QByteArray &scene);
    bool writeScene(const QByteArray &scene);

    QTemporaryDir m_dir;
    QString m_scenePath;
};

void TestCameraIdentity::initTestCase()
{
    QVERIFY(m_dir.isValid());
    m_scenePath = m_dir.filePath("scene");
    // Both boxes are plugged in when the toolkit starts listing cameras: like V4L2's, the virtual
    // camera's provider announces them as well as listing them.
    QVERIFY(writeScene("box:TKA0001\nbox:TKB0002\n"));
    qputenv("TAVROKVM_VCAM_SCENE", m_scenePath.toLocal8Bit());
}

bool TestCameraIdentity::writeScene(const QByteArray &scene)
{
    QSaveFile file(m_scenePath);
    return file.open(QIODevice::WriteOnly) && file.write(scene) == scene.size() && file.commit();
}

QList<QPair<QString, QByteArray>> TestCameraIdentity::listInChild(const QByteArray &scene)
{
    QProcess child;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove("TAVROKVM_VCAM_SCENE");
    env.insert("TAVROKVM_VCAM_DEVICES", QString::fromUtf8(scene));
    child.setProcessEnvironment(env);
    child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    child.start(QCoreApplication::applicationFilePath(), {kListArgument});
    QList<QPair<QString, QByteArray>> cameras;
    if (!child.waitForFinished(30000) || child.exitCode() != 0)
        return cameras;
    const QList<QByteArray> lines = child.readAllStandardOutput().split('\n');
    for (const QByteArray &line : lines) {
        const int tab = line.indexOf('\t');
        if (tab > 0)
            cameras.append({QString::fromUtf8(line.left(tab)), line.mid(tab + 1)});
    }
    return cameras;
}

void TestCameraIdentity::everyKindHasItsOwnUsbIdentity()
{
    const auto cameras = listInChild("box:TKA0001,box:TKB0002,builtin,usbvideo,box2131:TKC0003");
    QCOMPARE(cameras.size(), 5);
    QSet<QByteArray> seen;
    for (const auto &camera : cameras)
        seen.insert(camera.second);
    QCOMPARE(seen.size(), 5);

    QCOMPARE(cameras[0].first, QStringLiteral("TK USB3 Video"));
    QCOMPARE(cameras[0].second, QByteArray("vid_a5c0&pid_2132&sn_TKA0001"));
    QCOMPARE(cameras[1].second, QByteArray("vid_a5c0&pid_2132&sn_TKB0002"));
    QVERIFY(cameras[2].second.startsWith("vid_04f2&pid_b6dd&"));
    QVERIFY(cameras[3].second.startsWith("vid_534d&pid_2109&"));
    QCOMPARE(cameras[4].second, QByteArray("vid_a5c0&pid_2131&sn_TKC0003"));
    QVERIFY(did(cameras[0].second) != did(cameras[1].second));
}

void TestCameraIdentity::identitiesSurviveANewProcessAndAnotherOrder()
{
    const auto first = listInChild("box:TKA0001,box:TKB0002");
    const auto again = listInChild("box:TKA0001,box:TKB0002");
    const auto swapped = listInChild("box:TKB0002,box:TKA0001");
    QCOMPARE(first.size(), 2);
    QCOMPARE(again, first);
    QCOMPARE(swapped.size(), 2);
    // The same two boxes, each under its own identity whatever order they enumerate in.
    QCOMPARE(swapped[0].second, first[1].second);
    QCOMPARE(swapped[1].second, first[0].second);
}

void TestCameraIdentity::duplicateAndStaleEntriesTakeNoIdentity()
{
    // Qt 6.4 lists each box present at start twice.
    QTRY_COMPARE_WITH_TIMEOUT(QMediaDevices::videoInputs().size(), 4, kPlugWaitMs);
    QCOMPARE(currentIdentities(), (QByteArrayList{kBoxA, kBoxB}));

    // Unplugged, box A leaves a stale entry behind; no entry shows A, and B is shown once.
    QVERIFY(writeScene("box:TKB0002\n"));
    QTRY_COMPARE_WITH_TIMEOUT(QMediaDevices::videoInputs().size(), 3, kPlugWaitMs);
    QCOMPARE(currentIdentities(), QByteArrayList{kBoxB});
    QVERIFY(findCameraByIdentity(kBoxA).isNull());

    // Plugged back, A's identity opens its new entry, which delivers pictures; the stale entry
    // would not.
    QVERIFY(writeScene("box:TKA0001\nbox:TKB0002\n"));
    QTRY_COMPARE_WITH_TIMEOUT(QMediaDevices::videoInputs().size(), 4, kPlugWaitMs);
    QCOMPARE(currentIdentities(), (QByteArrayList{kBoxB, kBoxA}));
    const QCameraDevice boxA = findCameraByIdentity(kBoxA);
    QCOMPARE(boxA.id(), QMediaDevices::videoInputs().last().id());
    QVERIFY(delivers(boxA));
    QVERIFY(delivers(findCameraByIdentity(kBoxB)));
}

void TestCameraIdentity::identitiesFollowPlugAndUnplug()
{
    // Unplugging the first box leaves the second under its own identity, not the first's.
    QVERIFY(writeScene("box:TKB0002\n"));
    QTRY_COMPARE_WITH_TIMEOUT(currentIdentities(), QByteArrayList{kBoxB}, kPlugWaitMs);

    // Other kinds join with their own identities; no identity is taken twice.
    QVERIFY(writeScene("box:TKA0001\nbox:TKB0002\nbuiltin\nbox2131:TKC0003\n"));
    QTRY_COMPARE_WITH_TIMEOUT(currentIdentities().size(), 4, kPlugWaitMs);
    const QByteArrayList ids = currentIdentities();
    QCOMPARE(QSet<QByteArray>(ids.begin(), ids.end()).size(), 4);
    QVERIFY(ids.contains("vid_a5c0&pid_2131&sn_TKC0003"));
    QVERIFY(ids.contains(kBoxA));
    QVERIFY(ids.contains(kBoxB));
}

void TestCameraIdentity::boxesSharingASerialAreToldApartByPort()
{
    const QByteArray onPort1 = "vid_a5c0&pid_2132&sn_TKS0001&port_0000:00:14.0-1";
    const QByteArray onPort2 = "vid_a5c0&pid_2132&sn_TKS0001&port_0000:00:14.0-2";
    QVERIFY(writeScene("box:TKS0001@1\nbox:TKS0001@2\n"));
    QTRY_COMPARE_WITH_TIMEOUT(currentIdentities(), (QByteArrayList{onPort1, onPort2}), kPlugWaitMs);
    QVERIFY(delivers(findCameraByIdentity(onPort2)));

    // Alone, the box is known by its serial wherever it is plugged.
    QVERIFY(writeScene("box:TKS0001@2\n"));
    QTRY_COMPARE_WITH_TIMEOUT(currentIdentities(), QByteArrayList{"vid_a5c0&pid_2132&sn_TKS0001"},
                              kPlugWaitMs);
}

void TestCameraIdentity::boxesWithoutSerialAreToldApartByPort()
{
    const auto cameras = listInChild("box:-@3,box:-@4");
    QCOMPARE(cameras.size(), 2);
    QCOMPARE(cameras[0].second, QByteArray("vid_a5c0&pid_2132&port_0000:00:14.0-3"));
    QCOMPARE(cameras[1].second, QByteArray("vid_a5c0&pid_2132&port_0000:00:14.0-4"));
}

void TestCameraIdentity::lookupByIdentity()
{
    QVERIFY(writeScene("builtin\nbox:TKA0001\n"));
    QTRY_COMPARE_WITH_TIMEOUT(currentIdentities().size(), 2, kPlugWaitMs);
    const QCameraDevice box = findCameraByIdentity("vid_a5c0&pid_2132&sn_TKA0001");
    QVERIFY(!box.isNull());
    QCOMPARE(box.description(), QStringLiteral("TK USB3 Video"));
    QCOMPARE(cameraIdentity(box), QByteArray("vid_a5c0&pid_2132&sn_TKA0001"));
    QVERIFY(findCameraByIdentity("vid_a5c0&pid_2132&sn_NOPE").isNull());
    QVERIFY(findCameraByIdentity(QByteArray()).isNull());
    QVERIFY(cameraIdentity(QCameraDevice()).isEmpty());
}

int main(int argc, char **argv)
{
    QGuiApplication app(argc, argv);
    if (argc > 1 && qstrcmp(argv[1], kListArgument) == 0)
        return listIdentities();
    TestCameraIdentity test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_cameraidentity.moc"
