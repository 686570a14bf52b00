#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include "serial/portinventory.h"
#include "serial/portrules.h"
#include "serial/uartmanager.h"

Q_DECLARE_METATYPE(PortPlatform)

class TestPortRules : public QObject
{
    Q_OBJECT
private slots:
    void displayItems_data();
    void displayItems();
    void pureNames_data();
    void pureNames();
    void qualifyingRules_data();
    void qualifyingRules();
    void validPortTexts_data();
    void validPortTexts();
    void declaredPorts_data();
    void declaredPorts();
    void qualifyingItemsKeepEnumerationOrder();
    void interfaceNameFromSysfs_data();
    void interfaceNameFromSysfs();
    void boxNamingOnlyItsInterfaceIsFound();
    void declaredPortsAreEnumeratedWhilePresent();
};

namespace {

// Writes <root>/class/tty/<port>/device/interface as the kernel shows a USB interface string.
bool writeInterfaceFile(const QString &root, const QString &port, const QByteArray &content)
{
    const QString dir = root + "/class/tty/" + port + "/device";
    if (!QDir().mkpath(dir))
        return false;
    QFile file(dir + "/interface");
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

} // namespace

void TestPortRules::displayItems_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("description");
    QTest::addColumn<QString>("manufacturer");
    QTest::addColumn<QString>("serial");
    QTest::addColumn<QString>("interface");
    QTest::addColumn<QString>("item");
    QTest::newRow("all fields") << "cu.usbmodem1101"
                                << "TK CDC"
                                << "Acme"
                                << "0001"
                                << ""
                                << "cu.usbmodem1101 (TK CDC - Acme - 0001)";
    QTest::newRow("no manufacturer") << "ttyACM0"
                                     << "TK CDC"
                                     << ""
                                     << "0001"
                                     << ""
                                     << "ttyACM0 (TK CDC - 0001)";
    QTest::newRow("description only") << "ttyUSB0"
                                      << "USB Serial"
                                      << ""
                                      << ""
                                      << ""
                                      << "ttyUSB0 (USB Serial)";
    QTest::newRow("no description hides the rest") << "ttyACM1"
                                                   << ""
                                                   << "Acme"
                                                   << "0001"
                                                   << ""
                                                   << "ttyACM1";
    // Linux describes a port by its USB product; the box may name only its CDC interface.
    QTest::newRow("marker on the interface only") << "ttyACM0"
                                                  << "TK KVM Box"
                                                  << "Tavro"
                                                  << "0001"
                                                  << "TK CDC"
                                                  << "ttyACM0 (TK CDC - Tavro - 0001)";
    QTest::newRow("marker on the interface, lower case") << "ttyACM0"
                                                         << "KVM"
                                                         << ""
                                                         << ""
                                                         << "tk cdc 2"
                                                         << "ttyACM0 (tk cdc 2)";
    QTest::newRow("marker on the interface, no description") << "ttyACM0"
                                                             << ""
                                                             << "Tavro"
                                                             << ""
                                                             << "TK CDC"
                                                             << "ttyACM0 (TK CDC - Tavro)";
    QTest::newRow("marker on the description wins") << "ttyACM0"
                                                    << "TK CDC"
                                                    << ""
                                                    << ""
                                                    << "TK CDC Data"
                                                    << "ttyACM0 (TK CDC)";
    QTest::newRow("interface without the marker is not shown") << "ttyACM0"
                                                               << "USB Serial"
                                                               << ""
                                                               << ""
                                                               << "CDC ACM Control"
                                                               << "ttyACM0 (USB Serial)";
    QTest::newRow("interface without the marker, no description") << "ttyACM3"
                                                                  << ""
                                                                  << "Acme"
                                                                  << ""
                                                                  << "CDC ACM Control"
                                                                  << "ttyACM3";
}

void TestPortRules::displayItems()
{
    QFETCH(QString, name);
    QFETCH(QString, description);
    QFETCH(QString, manufacturer);
    QFETCH(QString, serial);
    QFETCH(QString, interface);
    QFETCH(QString, item);
    SerialPortEntry port;
    port.name = name;
    port.description = description;
    port.manufacturer = manufacturer;
    port.serialNumber = serial;
    port.interfaceName = interface;
    QCOMPARE(formatPortDisplayItem(port), item);
}

void TestPortRules::pureNames_data()
{
    QTest::addColumn<QString>("item");
    QTest::addColumn<QString>("name");
    QTest::newRow("item") << "cu.usbmodem1101 (TK CDC - Acme - 0001)"
                          << "cu.usbmodem1101";
    QTest::newRow("bare name with blanks") << "  ttyACM0  "
                                           << "ttyACM0";
    QTest::newRow("separator at position 0") << " (TK CDC) "
                                             << "(TK CDC)";
    QTest::newRow("first separator counts") << "a (b) (c)"
                                            << "a";
    QTest::newRow("no blank before parenthesis") << "ttyACM0(x)"
                                                 << "ttyACM0(x)";
    QTest::newRow("empty") << ""
                           << "";
    QTest::newRow("declared path") << "/tmp/tk-box (TK CDC)"
                                   << "/tmp/tk-box";
}

void TestPortRules::pureNames()
{
    QFETCH(QString, item);
    QFETCH(QString, name);
    QCOMPARE(purePortNameFromDisplayItem(item), name);
    QCOMPARE(UartManager::purePortNameFromDisplayItem(item), name);
}

void TestPortRules::qualifyingRules_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("onMac");
    QTest::addColumn<bool>("onLinux");
    QTest::newRow("cu.usbmodem1101") << "cu.usbmodem1101" << true << false;
    QTest::newRow("tty.usbserial-110") << "tty.usbserial-110" << true << false;
    QTest::newRow("cu.Bluetooth-Incoming-Port") << "cu.Bluetooth-Incoming-Port" << false << false;
    QTest::newRow("tty.debug-console") << "tty.debug-console" << false << false;
    QTest::newRow("ttyUSB0") << "ttyUSB0" << false << true;
    QTest::newRow("ttyACM12") << "ttyACM12" << false << true;
    QTest::newRow("ttyS0") << "ttyS0" << false << false;
    QTest::newRow("COM3") << "COM3" << false << false;
    QTest::newRow("case matters on mac") << "CU.usbmodem1" << false << false;
    QTest::newRow("case matters on linux") << "ttyacm0" << false << false;
    QTest::newRow("USBMODEM upper") << "cu.USBMODEM1" << false << false;
}

void TestPortRules::qualifyingRules()
{
    QFETCH(QString, name);
    QFETCH(bool, onMac);
    QFETCH(bool, onLinux);
    QCOMPARE(portNameQualifies(name, PortPlatform::MacOS), onMac);
    QCOMPARE(portNameQualifies(name, PortPlatform::Linux), onLinux);
}

void TestPortRules::validPortTexts_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<PortPlatform>("platform");
    QTest::addColumn<bool>("valid");
    const QStringList placeholders = {"No COM ports with SERIAL found",
                                      "No serial ports available",
                                      "Error: Serial port enumeration timeout",
                                      "Error: Failed to get serial ports",
                                      "Error: Unknown error getting serial ports",
                                      "正在搜索串口...",
                                      "未找到COM串口设备",
                                      "未找到tty串口设备",
                                      "未找到串口设备",
                                      "获取串口列表失败",
                                      "获取串口列表时发生未知错误",
                                      "请选择串口",
                                      "串口已断开"};
    for (const QString &text : placeholders) {
        QTest::addRow("placeholder %s mac", qPrintable(text))
            << text << PortPlatform::MacOS << false;
        QTest::addRow("placeholder %s linux", qPrintable(text))
            << text << PortPlatform::Linux << false;
    }
    QTest::newRow("mac display item")
        << "cu.usbserial-110 (USB Serial)" << PortPlatform::MacOS << true;
    QTest::newRow("linux display item") << "ttyACM0 (TK CDC - Acme)" << PortPlatform::Linux << true;
    QTest::newRow("COM3") << "COM3" << PortPlatform::MacOS << false;
    QTest::newRow("empty") << "" << PortPlatform::Linux << false;
    QTest::newRow("no trimming") << " ttyACM0" << PortPlatform::Linux << false;
    QTest::newRow("separator at 0") << " (ttyACM0)" << PortPlatform::Linux << false;
    QTest::newRow("declared path") << "/tmp/tk-box" << PortPlatform::Linux << true;
    QTest::newRow("declared path item") << "/tmp/tk-box (TK CDC)" << PortPlatform::MacOS << true;
    QTest::newRow("undeclared path") << "/tmp/other" << PortPlatform::Linux << false;
}

void TestPortRules::validPortTexts()
{
    QFETCH(QString, text);
    QFETCH(PortPlatform, platform);
    QFETCH(bool, valid);
    SerialPortEntry declared;
    declared.name = "/tmp/tk-box";
    declared.declared = true;
    QCOMPARE(isValidPortText(text, platform, {declared}), valid);
}

void TestPortRules::declaredPorts_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<QStringList>("descriptions");
    QTest::newRow("one") << "/tmp/x=TK CDC" << QStringList{"/tmp/x"} << QStringList{"TK CDC"};
    QTest::newRow("several with blanks")
        << " /tmp/a = TK CDC ; /dev/pts/7=Lab adapter;" << QStringList{"/tmp/a", "/dev/pts/7"}
        << QStringList{"TK CDC", "Lab adapter"};
    QTest::newRow("no description") << "/tmp/b" << QStringList{"/tmp/b"} << QStringList{""};
    QTest::newRow("description holds =")
        << "/tmp/c=a=b" << QStringList{"/tmp/c"} << QStringList{"a=b"};
    QTest::newRow("missing path skipped")
        << "=TK CDC;/tmp/d=X" << QStringList{"/tmp/d"} << QStringList{"X"};
    QTest::newRow("empty") << "" << QStringList{} << QStringList{};
    QTest::newRow("only separators") << ";; ;" << QStringList{} << QStringList{};
}

void TestPortRules::declaredPorts()
{
    QFETCH(QString, value);
    QFETCH(QStringList, names);
    QFETCH(QStringList, descriptions);
    if (value.startsWith('='))
        QTest::ignoreMessage(QtWarningMsg, "[UartManager] 忽略无效的串口声明(缺少路径): =TK CDC");
    const QList<SerialPortEntry> ports = parseDeclaredSerialPorts(value);
    QStringList gotNames, gotDescriptions;
    for (const SerialPortEntry &port : ports) {
        QVERIFY(port.declared);
        gotNames << port.name;
        gotDescriptions << port.description;
    }
    QCOMPARE(gotNames, names);
    QCOMPARE(gotDescriptions, descriptions);
}

void TestPortRules::qualifyingItemsKeepEnumerationOrder()
{
    auto port = [](const char *name, const char *description, bool declared = false) {
        SerialPortEntry entry;
        entry.name = name;
        entry.description = description;
        entry.declared = declared;
        return entry;
    };
    const QList<SerialPortEntry> ports = {
        port("ttyS0", "", false), port("cu.usbmodem1101", "TK CDC"),
        port("tty.usbmodem1101", "TK CDC"), port("ttyACM0", "tk cdc"),
        port("/tmp/box", "Simulated", true)};
    QCOMPARE(UartManager::qualifyingDisplayItems(ports, PortPlatform::MacOS),
             QStringList({"cu.usbmodem1101 (TK CDC)", "tty.usbmodem1101 (TK CDC)",
                          "/tmp/box (Simulated)"}));
    QCOMPARE(UartManager::qualifyingDisplayItems(ports, PortPlatform::Linux),
             QStringList({"ttyACM0 (tk cdc)", "/tmp/box (Simulated)"}));
    QCOMPARE(UartManager::qualifyingDisplayItems({port("ttyS1", "")}, PortPlatform::Linux),
             QStringList());
}

void TestPortRules::interfaceNameFromSysfs_data()
{
    QTest::addColumn<QString>("port");
    QTest::addColumn<QByteArray>("content"); // null: no file
    QTest::addColumn<QString>("name");
    QTest::newRow("interface string") << "ttyACM0" << QByteArray("TK CDC\n") << "TK CDC";
    QTest::newRow("blanks around") << "ttyACM0" << QByteArray("  TK CDC \n\n") << "TK CDC";
    QTest::newRow("UTF-8") << "ttyACM0" << QByteArray("TK CDC \xe4\xb8\xb2\xe5\x8f\xa3\n")
                           << "TK CDC 串口";
    QTest::newRow("empty file") << "ttyACM0" << QByteArray("") << "";
    QTest::newRow("no interface string") << "ttyACM0" << QByteArray() << "";
    // The file exists where the name leads, outside class/tty.
    QTest::newRow("not a port name") << "../ttyACM0" << QByteArray("TK CDC\n") << "";
    QTest::newRow("empty port name") << "" << QByteArray("TK CDC\n") << "";
}

void TestPortRules::interfaceNameFromSysfs()
{
    QFETCH(QString, port);
    QFETCH(QByteArray, content);
    QFETCH(QString, name);
    QTemporaryDir root;
    QVERIFY(root.isValid());
    if (!content.isNull())
        QVERIFY(writeInterfaceFile(root.path(), port.isEmpty() ? "x" : port, content));
    QCOMPARE(ttyInterfaceName(root.path(), port), name);
}

void TestPortRules::boxNamingOnlyItsInterfaceIsFound()
{
    QTemporaryDir root;
    QVERIFY(root.isValid());
    QVERIFY(writeInterfaceFile(root.path(), "ttyACM0", "CDC Abstract Control Model\n"));
    QVERIFY(writeInterfaceFile(root.path(), "ttyACM1", "TK CDC\n"));
    auto port = [](const char *name, const char *description, bool declared = false) {
        SerialPortEntry entry;
        entry.name = name;
        entry.description = description;
        entry.manufacturer = declared ? "" : "Tavro";
        entry.declared = declared;
        return entry;
    };
    QList<SerialPortEntry> ports = {port("ttyACM0", "Other Device"), port("ttyACM1", "TK KVM Box"),
                                    port("ttyACM2", "No Interface String"),
                                    port("/tmp/box", "Simulated", true)};
    addInterfaceNames(ports, root.path());
    QCOMPARE(ports.at(0).interfaceName, QString("CDC Abstract Control Model"));
    QCOMPARE(ports.at(1).interfaceName, QString("TK CDC"));
    QCOMPARE(ports.at(2).interfaceName, QString());
    QCOMPARE(ports.at(3).interfaceName, QString()); // declared ports are not looked up
    const QStringList items = UartManager::qualifyingDisplayItems(ports, PortPlatform::Linux);
    QCOMPARE(items, QStringList({"ttyACM0 (Other Device - Tavro)", "ttyACM1 (TK CDC - Tavro)",
                                 "ttyACM2 (No Interface String - Tavro)", "/tmp/box (Simulated)"}));
    QCOMPARE(firstTkCdcPortName(items), QString("ttyACM1"));
    QCOMPARE(firstTkCdcPortName({"ttyACM0 (Other)", "/tmp/box (tk cdc)"}), QString("/tmp/box"));
    QCOMPARE(firstTkCdcPortName({"ttyACM0 (Other)"}), QString());
}

void TestPortRules::declaredPortsAreEnumeratedWhilePresent()
{
    // A declared port that vanishes is gone from the enumeration, like an unplugged one, so a
    // link waiting for it sees when it is back.
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString present = dir.filePath("present");
    const QString dangling = dir.filePath("dangling");
    QVERIFY(QFile(present).open(QIODevice::WriteOnly));
    QVERIFY(QFile::link(dir.filePath("nothing"), dangling));
    qputenv("TAVROKVM_EXTRA_SERIAL_PORTS",
            (present + "=A;" + dir.filePath("absent") + "=B;" + dangling + "=C;null=D").toUtf8());
    QStringList declared;
    for (const SerialPortEntry &port : enumerateSerialPorts()) {
        if (port.declared)
            declared << port.name;
    }
    // "null" is a name under /dev.
    QCOMPARE(declared, QStringList({present, "null"}));
    // Still valid names to store and choose, present or not.
    QVERIFY(isValidSerialPortNameHere(dir.filePath("absent")));
    qunsetenv("TAVROKVM_EXTRA_SERIAL_PORTS");
}

QTEST_GUILESS_MAIN(TestPortRules)
#include "tst_portrules.moc"
