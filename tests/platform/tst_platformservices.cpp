// Operating-system services on this system: permissions, the camera inventory, settings panes.

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include "platform/camerainventory.h"
#include "platform/permissions.h"
#include "platform/systemsettings.h"

class TestPlatformServices : public QObject
{
    Q_OBJECT
private slots:
    void permissionsAreGrantedWithoutAsking();
    void permissionAnswerComesLaterAndOnce();
    void noAnswerAfterTheAskerIsGone();
    void inventoryOfFoldersWithoutCameras();
    void inventoryOfThisMachine();
    void settingsPanesAreNotOpened();
};

void TestPlatformServices::permissionsAreGrantedWithoutAsking()
{
    QCOMPARE(mediaPermissionStatus(MediaPermission::Camera), MediaPermissionStatus::Granted);
    QCOMPARE(mediaPermissionStatus(MediaPermission::Microphone), MediaPermissionStatus::Granted);
}

void TestPlatformServices::permissionAnswerComesLaterAndOnce()
{
    QObject context;
    QList<MediaPermissionStatus> answers;
    requestMediaPermission(MediaPermission::Camera, &context,
                           [&answers](MediaPermissionStatus s) { answers.append(s); });
    QVERIFY(answers.isEmpty()); // never inside the call
    QTRY_COMPARE(answers.size(), 1);
    QTest::qWait(50);
    QCOMPARE(answers, QList<MediaPermissionStatus>{MediaPermissionStatus::Granted});
}

void TestPlatformServices::noAnswerAfterTheAskerIsGone()
{
    int answers = 0;
    auto *context = new QObject;
    requestMediaPermission(MediaPermission::Microphone, context,
                           [&answers](MediaPermissionStatus) { ++answers; });
    delete context;
    requestMediaPermission(MediaPermission::Camera, nullptr,
                           [&answers](MediaPermissionStatus) { ++answers; });
    QTest::qWait(50);
    QCOMPARE(answers, 0);
}

void TestPlatformServices::inventoryOfFoldersWithoutCameras()
{
    QTemporaryDir empty;
    QVERIFY(empty.isValid());
    QVERIFY(systemCameraInventoryIn(empty.path()).isEmpty());

    // A sysfs tree: a camera's capture node, its metadata node, a node without a name, and a
    // second camera; listed by node number, named without opening anything.
    QTemporaryDir fake;
    const auto node = [&fake](const QString &name, const QByteArray &card,
                              const QByteArray &index) {
        const QString dir = fake.filePath("class/video4linux/" + name);
        QVERIFY(QDir().mkpath(dir));
        for (const auto &[file, text] :
             {std::pair{QStringLiteral("name"), card}, std::pair{QStringLiteral("index"), index}}) {
            if (text.isNull())
                continue;
            QFile attribute(dir + "/" + file);
            QVERIFY(attribute.open(QIODevice::WriteOnly));
            attribute.write(text + "\n");
        }
    };
    node("video10", "TK USB3 Video", "0");
    node("video11", "TK USB3 Video", "1");
    node("video2", "Integrated Camera", QByteArray());
    node("video3", QByteArray(), "0");
    const QList<SystemCamera> cameras = systemCameraInventoryIn(fake.path());
    QCOMPARE(cameras.size(), 2);
    QCOMPARE(cameras[0].name, QStringLiteral("Integrated Camera"));
    QCOMPARE(cameras[0].uniqueId, QStringLiteral("/dev/video2"));
    QCOMPARE(cameras[1].name, QStringLiteral("TK USB3 Video"));
    QCOMPARE(cameras[1].uniqueId, QStringLiteral("/dev/video10"));
    QVERIFY(systemCameraInventoryIn(fake.filePath("missing")).isEmpty());
}

void TestPlatformServices::inventoryOfThisMachine()
{
    // Machines without cameras list none; any listed camera names its node.
    const QList<SystemCamera> cameras = systemCameraInventory();
    for (const SystemCamera &camera : cameras)
        QVERIFY(camera.uniqueId.startsWith(QLatin1String("/dev/video")));
}

void TestPlatformServices::settingsPanesAreNotOpened()
{
    QTest::ignoreMessage(QtDebugMsg, "[Platform] 本系统无需打开系统设置（无隐私授权面板）: camera");
    QVERIFY(!openSystemSettingsPane(SystemSettingsPane::CameraPrivacy));
    QTest::ignoreMessage(QtDebugMsg,
                         "[Platform] 本系统无需打开系统设置（无隐私授权面板）: accessibility");
    QVERIFY(!openSystemSettingsPane(SystemSettingsPane::AccessibilityPrivacy));
}

QTEST_GUILESS_MAIN(TestPlatformServices)
#include "tst_platformservices.moc"
