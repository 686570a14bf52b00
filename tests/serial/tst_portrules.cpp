#include <QTest>

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
};

void TestPortRules::displayItems_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("description");
    QTest::addColumn<QString>("manufacturer");
    QTest::addColumn<QString>("serial");
    QTest::addColumn<QString>("item");
    QTest::newRow("all fields") << "cu.usbmodem1101"
                                << "TK CDC"
                                << "Acme"
                                << "0001"
                                << "cu.usbmodem1101 (TK CDC - Acme - 0001)";
    QTest::newRow("no manufacturer") << "ttyACM0"
                                     << "TK CDC"
                                     << ""
                                     << "0001"
                                     << "ttyACM0 (TK CDC - 0001)";
    QTest::newRow("description only") << "ttyUSB0"
                                      << "USB Serial"
                                      << ""
                                      << ""
                                      << "ttyUSB0 (USB Serial)";
    QTest::newRow("no description hides the rest") << "ttyACM1"
                                                   << ""
                                                   << "Acme"
                                                   << "0001"
                                                   << "ttyACM1";
}

void TestPortRules::displayItems()
{
    QFETCH(QString, name);
    QFETCH(QString, description);
    QFETCH(QString, manufacturer);
    QFETCH(QString, serial);
    QFETCH(QString, item);
    SerialPortEntry port;
    port.name = name;
    port.description = description;
    port.manufacturer = manufacturer;
    port.serialNumber = serial;
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

QTEST_GUILESS_MAIN(TestPortRules)
#include "tst_portrules.moc"
