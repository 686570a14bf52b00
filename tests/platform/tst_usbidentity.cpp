// The identity text of a USB camera, its facts read from a sysfs tree, and which device each
// entry of the toolkit's camera list shows.

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include "platform/cameraentrytracker.h"
#include "platform/usbidentity.h"

Q_DECLARE_METATYPE(UsbCameraFacts)

class TestUsbIdentity : public QObject
{
    Q_OBJECT
private slots:
    void identityText_data();
    void identityText();
    void sysfs_data();
    void sysfs();
    void fallbackText();
    void normalizedIds_data();
    void normalizedIds();
    void camerasPresentTogether_data();
    void camerasPresentTogether();
    void entryTracking_data();
    void entryTracking();
    void goneDevicesAreForgotten();
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

void TestUsbIdentity::normalizedIds_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");
    QTest::newRow("plain") << "a5c0"
                           << "a5c0";
    QTest::newRow("upper case") << "A5C0"
                                << "a5c0";
    QTest::newRow("0x prefix (PipeWire, libcamera)") << "0xa5c0"
                                                     << "a5c0";
    QTest::newRow("0X and blanks") << " 0XA5C0\n"
                                   << "a5c0";
    QTest::newRow("short form is padded") << "0x46d"
                                          << "046d";
    QTest::newRow("too long") << "0x1a5c0" << QString();
    QTest::newRow("not hex") << "a5g0" << QString();
    QTest::newRow("prefix alone") << "0x" << QString();
    QTest::newRow("empty") << "" << QString();
}

void TestUsbIdentity::normalizedIds()
{
    QFETCH(QString, text);
    QFETCH(QString, expected);
    QCOMPARE(normalizedUsbId(text), expected);
    // Any form of the box's ids gives the text the box rules look for.
    if (!expected.isEmpty())
        QCOMPARE(usbIdentityText({text, "0x2132", "S", ""}),
                 QByteArray("vid_") + expected.toLatin1() + "&pid_2132&sn_S");
}

void TestUsbIdentity::camerasPresentTogether_data()
{
    QTest::addColumn<QList<UsbCameraFacts>>("cameras");
    QTest::addColumn<QByteArrayList>("expected");

    const UsbCameraFacts boxOnPort1{"a5c0", "2132", "TK1", "1-1"};
    const UsbCameraFacts boxOnPort2{"a5c0", "2132", "TK1", "1-2"};
    const UsbCameraFacts otherBox{"a5c0", "2132", "TK2", "1-3"};
    QTest::newRow("a box alone keeps its serial identity")
        << QList<UsbCameraFacts>{boxOnPort2} << QByteArrayList{"vid_a5c0&pid_2132&sn_TK1"};
    QTest::newRow("two boxes with one serial are told apart by port")
        << QList<UsbCameraFacts>{boxOnPort1, otherBox, boxOnPort2}
        << QByteArrayList{"vid_a5c0&pid_2132&sn_TK1&port_1-1", "vid_a5c0&pid_2132&sn_TK2",
                          "vid_a5c0&pid_2132&sn_TK1&port_1-2"};
    QTest::newRow("unknown cameras stay empty")
        << QList<UsbCameraFacts>{{}, {}} << QByteArrayList{QByteArray(), QByteArray()};
}

void TestUsbIdentity::camerasPresentTogether()
{
    QFETCH(QList<UsbCameraFacts>, cameras);
    QFETCH(QByteArrayList, expected);
    QCOMPARE(usbIdentityTexts(cameras), expected);
}

namespace {

// "0=T 1=T" -> entries with ids and descriptions.
QList<ListedCameraEntry> entriesOf(const QString &text)
{
    QList<ListedCameraEntry> entries;
    for (const QString &item : text.split(' ', Qt::SkipEmptyParts)) {
        const QStringList parts = item.split('=');
        entries.append({parts[0].toLatin1(), parts[1]});
    }
    return entries;
}

// "A=T B=T" -> devices whose keys are the letters.
QList<LiveCameraDevice> devicesOf(const QString &text)
{
    QList<LiveCameraDevice> devices;
    for (const QString &item : text.split(' ', Qt::SkipEmptyParts)) {
        const QStringList parts = item.split('=');
        devices.append({quintptr(parts[0].at(0).unicode()), parts[1]});
    }
    return devices;
}

// Per entry, the letter of the device it shows, "-" hidden, "?" unknown.
QString shownText(const QList<int> &shown, const QList<LiveCameraDevice> &devices)
{
    QStringList words;
    for (int index : shown) {
        if (index == CameraEntryTracker::Hidden)
            words << "-";
        else if (index == CameraEntryTracker::Unknown)
            words << "?";
        else
            words << QString(QChar(char16_t(devices[index].key)));
    }
    return words.join(' ');
}

} // namespace

void TestUsbIdentity::entryTracking_data()
{
    // Each step: the toolkit's entries (id=description, oldest first) | the live devices
    // (key=description, provider order) | which device each entry shows.
    QTest::addColumn<QStringList>("steps");

    QTest::newRow("two boxes at start, the first unplugged and plugged back")
        << QStringList{"0=T 1=T 2=T 3=T | A=T B=T | - - A B", "1=T 2=T 3=T | B=T | - - B",
                       "1=T 2=T 3=T 4=T | B=T C=T | - - B C"};
    QTest::newRow("two boxes at start, the second unplugged and plugged back")
        << QStringList{"0=T 1=T 2=T 3=T | A=T B=T | - - A B", "0=T 2=T 3=T | A=T | - A -",
                       "0=T 2=T 3=T 4=T | A=T C=T | - A - C"};
    QTest::newRow("announcements heard after the first look")
        << QStringList{"0=T 1=T | A=T B=T | A B", "0=T 1=T 2=T 3=T | A=T B=T | - - A B",
                       "1=T 2=T 3=T | B=T | - - B"};
    QTest::newRow("a box plugged in later is listed once") << QStringList{
        "0=T 1=T | A=T | - A", "0=T 1=T 2=T | A=T B=T | - A B", "0=T 1=T | A=T | - A"};
    QTest::newRow("two boxes plugged in between looks")
        << QStringList{"0=T | A=T | A", "0=T 1=T 2=T | A=T B=T C=T | A B C"};
    QTest::newRow("descriptions are followed apart")
        << QStringList{"0=I 1=T 2=I 3=T | X=I A=T | - - X A", "0=I 2=I 3=T | X=I | - X -"};
    QTest::newRow("a camera no provider knows")
        << QStringList{"0=W 1=T | A=T | ? A", "0=W 1=T | A=T | ? A"};
    QTest::newRow("a provider lists a box before the toolkit hears of it") << QStringList{
        "0=T 1=T | A=T | - A", "0=T 1=T | A=T B=T | - A", "0=T 1=T 2=T | A=T B=T | - A B"};
    QTest::newRow("a late announcement and a new box at one look")
        << QStringList{"0=T | A=T | A", "0=T 1=T 2=T | A=T B=T | - A B"};
    QTest::newRow("a late announcement of a box already gone")
        << QStringList{"0=T | A=T | A", "1=T | | -"};
    QTest::newRow("nothing at all") << QStringList{" | | "};
}

void TestUsbIdentity::entryTracking()
{
    QFETCH(QStringList, steps);
    CameraEntryTracker tracker;
    for (const QString &step : std::as_const(steps)) {
        const QStringList parts = step.split('|');
        const QList<LiveCameraDevice> devices = devicesOf(parts[1]);
        const QString shown = shownText(tracker.update(entriesOf(parts[0]), devices), devices);
        QCOMPARE(shown, parts[2].trimmed());
    }
}

void TestUsbIdentity::goneDevicesAreForgotten()
{
    CameraEntryTracker tracker;
    tracker.update(entriesOf("0=T 1=T 2=T 3=T"), devicesOf("A=T B=T"));
    // A is gone but its stale entry 2 still refers to it: its key must not be reused yet.
    tracker.update(entriesOf("1=T 2=T 3=T"), devicesOf("B=T"));
    QVERIFY(tracker.referencedKeys().contains('A'));
    tracker.update(entriesOf("1=T 3=T"), devicesOf("B=T"));
    QCOMPARE(tracker.referencedKeys(), QSet<quintptr>{'B'});
}

QTEST_APPLESS_MAIN(TestUsbIdentity)
#include "tst_usbidentity.moc"
