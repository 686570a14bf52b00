// The identity text of a USB camera, its facts read from a sysfs tree, and the pairing of the
// toolkit's camera list with the devices the platform knows.

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include "platform/usbidentity.h"

class TestUsbIdentity : public QObject
{
    Q_OBJECT
private slots:
    void identityText_data();
    void identityText();
    void sysfs_data();
    void sysfs();
    void fallbackText();
    void matching_data();
    void matching();
};

void TestUsbIdentity::identityText_data()
{
    QTest::addColumn<QString>("vendor");
    QTest::addColumn<QString>("product");
    QTest::addColumn<QString>("serial");
    QTest::addColumn<QString>("port");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("serial wins over port") << "a5c0"
                                           << "2132"
                                           << "TK3V0001"
                                           << "1-2" << QByteArray("vid_a5c0&pid_2132&sn_TK3V0001");
    QTest::newRow("upper-case ids are lowered") << "A5C0"
                                                << "2131"
                                                << "x"
                                                << "" << QByteArray("vid_a5c0&pid_2131&sn_x");
    QTest::newRow("no serial: the port") << "a5c0"
                                         << "2132"
                                         << ""
                                         << "3-1.4" << QByteArray("vid_a5c0&pid_2132&port_3-1.4");
    QTest::newRow("topology path loses its bus word")
        << "a5c0"
        << "2132"
        << ""
        << "usb-0000:00:14.0-2" << QByteArray("vid_a5c0&pid_2132&port_0000:00:14.0-2");
    QTest::newRow("neither serial nor port") << "a5c0"
                                             << "2132"
                                             << ""
                                             << "" << QByteArray("vid_a5c0&pid_2132");
    QTest::newRow("no vendor") << ""
                               << "2132"
                               << "s"
                               << "1-1" << QByteArray();
    QTest::newRow("no product") << "a5c0"
                                << ""
                                << "s"
                                << "1-1" << QByteArray();
}

void TestUsbIdentity::identityText()
{
    QFETCH(QString, vendor);
    QFETCH(QString, product);
    QFETCH(QString, serial);
    QFETCH(QString, port);
    QFETCH(QByteArray, expected);
    const QByteArray text = usbIdentityText({vendor, product, serial, port});
    QCOMPARE(text, expected);
    // Generic-device rules look for these words; the identity must not bring them in.
    for (const char *word : {"usb", "video", "camera"})
        QVERIFY(serial.contains(QLatin1String(word)) || !text.toLower().contains(word));
}

namespace {

bool writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

// A sysfs-like tree: class/video4linux/<node>/device -> the USB interface folder inside the USB
// device folder `port`, which holds idVendor, idProduct and (optionally) serial.
bool makeUsbNode(const QString &root, const QString &node, const QString &port,
                 const QByteArray &vendor, const QByteArray &product, const QByteArray &serial)
{
    const QString device = root + "/devices/pci0000:00/0000:00:14.0/usb1/" + port;
    const QString interface = device + "/" + port + ":1.0";
    const QString classNode = root + "/class/video4linux/" + node;
    if (!QDir().mkpath(interface + "/video4linux/" + node) || !QDir().mkpath(classNode))
        return false;
    if (!writeFile(device + "/idVendor", vendor + "\n") ||
        !writeFile(device + "/idProduct", product + "\n"))
        return false;
    if (!serial.isNull() && !writeFile(device + "/serial", serial + "\n"))
        return false;
    return QFile::link(interface, classNode + "/device");
}

} // namespace

void TestUsbIdentity::sysfs_data()
{
    QTest::addColumn<QString>("node");
    QTest::addColumn<QString>("vendor");
    QTest::addColumn<QString>("product");
    QTest::addColumn<QString>("serial");
    QTest::addColumn<QString>("port");

    QTest::newRow("box with serial") << "/dev/video0"
                                     << "a5c0"
                                     << "2132"
                                     << "TK3V0001"
                                     << "1-2";
    QTest::newRow("box without serial") << "/dev/video2"
                                        << "a5c0"
                                        << "2132"
                                        << ""
                                        << "1-3.1";
    QTest::newRow("platform camera") << "/dev/video4"
                                     << ""
                                     << ""
                                     << ""
                                     << "";
    QTest::newRow("missing node") << "/dev/video9"
                                  << ""
                                  << ""
                                  << ""
                                  << "";
    QTest::newRow("not a node name") << ""
                                     << ""
                                     << ""
                                     << ""
                                     << "";
}

void TestUsbIdentity::sysfs()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString root = dir.path();
    QVERIFY(makeUsbNode(root, "video0", "1-2", "a5c0", "2132", "TK3V0001"));
    QVERIFY(makeUsbNode(root, "video2", "1-3.1", "A5C0", "2132", QByteArray()));
    // A camera of the platform bus: no USB device folder above it.
    QVERIFY(QDir().mkpath(root + "/devices/platform/camera0"));
    QVERIFY(QDir().mkpath(root + "/class/video4linux/video4"));
    QVERIFY(
        QFile::link(root + "/devices/platform/camera0", root + "/class/video4linux/video4/device"));

    QFETCH(QString, node);
    QFETCH(QString, vendor);
    QFETCH(QString, product);
    QFETCH(QString, serial);
    QFETCH(QString, port);
    const UsbCameraFacts facts = usbFactsFromSysfs(node, root);
    QCOMPARE(facts.vendorId, vendor);
    QCOMPARE(facts.productId, product);
    QCOMPARE(facts.serial, serial);
    QCOMPARE(facts.port, port);
}

void TestUsbIdentity::fallbackText()
{
    QCOMPARE(fallbackIdentityText("TK USB3 Video", 2), QByteArray("TK USB3 Video#2"));
    QVERIFY(fallbackIdentityText("A", 0) != fallbackIdentityText("A", 1));
}

void TestUsbIdentity::matching_data()
{
    QTest::addColumn<QStringList>("listed");
    QTest::addColumn<QStringList>("known");
    QTest::addColumn<QList<int>>("expected");

    QTest::newRow("same order") << QStringList{"A", "B"} << QStringList{"A", "B"}
                                << QList<int>{0, 1};
    QTest::newRow("different order")
        << QStringList{"B", "A"} << QStringList{"A", "B"} << QList<int>{1, 0};
    QTest::newRow("two identical boxes keep their order")
        << QStringList{"Cam", "Box", "Box"} << QStringList{"Box", "Cam", "Box"}
        << QList<int>{1, 0, 2};
    QTest::newRow("a device listed twice wraps around")
        << QStringList{"Box", "Cam", "Box", "Cam"} << QStringList{"Box", "Cam"}
        << QList<int>{0, 1, 0, 1};
    QTest::newRow("unknown description")
        << QStringList{"A", "X"} << QStringList{"A"} << QList<int>{0, -1};
    QTest::newRow("nothing known") << QStringList{"A"} << QStringList{} << QList<int>{-1};
    QTest::newRow("nothing listed") << QStringList{} << QStringList{"A"} << QList<int>{};
}

void TestUsbIdentity::matching()
{
    QFETCH(QStringList, listed);
    QFETCH(QStringList, known);
    QFETCH(QList<int>, expected);
    QCOMPARE(matchCamerasByDescription(listed, known), expected);
}

QTEST_APPLESS_MAIN(TestUsbIdentity)
#include "tst_usbidentity.moc"
