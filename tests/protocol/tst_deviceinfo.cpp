// Device information record: its text form, short records, and the encoder the simulated box
// uses.
#include <QRegularExpression>
#include <QTest>

#include "protocol/deviceinfo.h"
#include "protocol/tkprotocol.h"

namespace {

void put(QByteArray &record, int offset, const QByteArray &bytes)
{
    record.replace(offset, bytes.size(), bytes);
}

QByteArray hex(const char *text)
{
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

// The example record, laid out byte by byte.
QByteArray exampleRecord()
{
    QByteArray r(134, '\0');
    put(r, 0, hex("0102030405060708090a0b0c0d0e0f10")); // serial number
    put(r, 16, hex("B304"));                            // firmware 1203
    put(r, 18, hex("1B29"));                            // hardware 10523
    put(r, 20, hex("BF04"));                            // bootloader 1215
    put(r, 22, hex("800D"));                            // temperature 3456
    put(r, 24, hex("01 02 00 05"));        // USB disk to target, absolute, wheel up, sensitivity 5
    put(r, 28, hex("FFFFFFFF 861A 2375")); // target side: no baud rate, 1a86:7523
    put(r, 68, hex("03"));                 // application running
    put(r, 69, hex("00000000 0000 0000")); // host side: nothing
    put(r, 77, QByteArray("2026-05-28 20:52"));
    put(r, 109, hex("01"));                // auto-move on
    put(r, 110, hex("0200"));              // two applications
    put(r, 126, hex("40E20100 EFCDAB00")); // 123456 bytes, CRC 0x00abcdef
    return r;
}

QStringList linesOf(const QByteArray &record)
{
    return TkProtocol::formatDeviceInfoPayload(record).split(QLatin1Char('\n'));
}

// The line that starts with `label`, or an empty string.
QString lineStarting(const QStringList &lines, const QString &label)
{
    for (const QString &line : lines) {
        if (line.startsWith(label))
            return line;
    }
    return QString();
}

} // namespace

class TestDeviceInfo : public QObject
{
    Q_OBJECT

private slots:
    void fullRecord();
    void emptyRecord();
    void serialText_data();
    void serialText();
    void versionText_data();
    void versionText();
    void temperatureText_data();
    void temperatureText();
    void valueTexts_data();
    void valueTexts();
    void shortRecords_data();
    void shortRecords();
    void buildTimeText_data();
    void buildTimeText();
    void encodeThenFormat();
    void encodeCutsAndPads();
};

void TestDeviceInfo::fullRecord()
{
    const QString text = TkProtocol::formatDeviceInfoPayload(exampleRecord());
    QVERIFY(!text.endsWith(QLatin1Char('\n')));
    const QStringList lines = text.split(QLatin1Char('\n'));
    QCOMPARE(lines.size(), 15);

    static const QRegularExpression updateTime(
        QStringLiteral("^更新时间: \\d{4}-\\d{2}-\\d{2} \\d{2}:\\d{2}:\\d{2}$"));
    QVERIFY2(updateTime.match(lines.at(0)).hasMatch(), qPrintable(lines.at(0)));

    const QStringList expected = {
        QStringLiteral("序列号(hex): 0102030405060708090a0b0c0d0e0f10"),
        QStringLiteral("固件版本: 1.2.3 (原始值: 1203)"),
        QStringLiteral("硬件版本: 10.5.23 (原始值: 10523)"),
        QStringLiteral("Bootloader版本: 1.2.15 (原始值: 1215)"),
        QStringLiteral("MCU温度: 34.6°C (原始值: 3456)"),
        QStringLiteral("鼠标: 模式=绝对坐标 (2), 滚轮方向=向上 (0), 灵敏度=5"),
        QStringLiteral("U盘方向: Target/目标机 (1)"),
        QStringLiteral("USB(目标): 波特率=N/A, VID=0X1A86, PID=0X7523"),
        QStringLiteral("USB(主机): 波特率=N/A, VID=0X0000, PID=0X0000"),
        QStringLiteral("运行状态: app (原始值: 3)"),
        QStringLiteral("编译时间: 2026-05-28 20:52"),
        QStringLiteral("鼠标微动: 启用 (1)"),
        QStringLiteral("UVM32: app数=2, 总大小=123456, CRC=0x00abcdef"),
        QStringLiteral("原始数据长度: 134 字节"),
    };
    QCOMPARE(lines.mid(1), expected);
}

void TestDeviceInfo::emptyRecord()
{
    QCOMPARE(TkProtocol::formatDeviceInfoPayload(QByteArray()), QStringLiteral("(无数据)"));
}

void TestDeviceInfo::serialText_data()
{
    QTest::addColumn<QByteArray>("serial");
    QTest::addColumn<QString>("text");

    QTest::newRow("sixteen FF") << QByteArray(16, '\xFF') << QStringLiteral("(无效)");
    QTest::newRow("sixteen 00") << QByteArray(16, '\0') << QString(32, QLatin1Char('0'));
    QTest::newRow("FF F0 then zeros")
        << hex("FFF0") + QByteArray(14, '\0') << QStringLiteral("(无效)");
    QTest::newRow("0F then FF") << hex("0F") + QByteArray(15, '\xFF')
                                << QStringLiteral("0f") + QString(30, QLatin1Char('f'));
    QTest::newRow("FF then 01") << QByteArray(15, '\xFF') + hex("01")
                                << QString(30, QLatin1Char('f')) + QStringLiteral("01");
    QTest::newRow("FF 0F 00...") << hex("FF0F") + QByteArray(14, '\0')
                                 << QStringLiteral("ff0f") + QString(28, QLatin1Char('0'));
    QTest::newRow("uppercase source, lowercase text")
        << hex("ABCDEF") + QByteArray(13, '\x11')
        << QStringLiteral("abcdef") + QStringLiteral("11").repeated(13);
}

void TestDeviceInfo::serialText()
{
    QFETCH(QByteArray, serial);
    QFETCH(QString, text);
    QByteArray record = exampleRecord();
    put(record, 0, serial);
    QCOMPARE(lineStarting(linesOf(record), QStringLiteral("序列号(hex): ")),
             QStringLiteral("序列号(hex): ") + text);
}

void TestDeviceInfo::versionText_data()
{
    QTest::addColumn<QByteArray>("raw");
    QTest::addColumn<QString>("text");

    QTest::newRow("1203") << hex("B304") << QStringLiteral("1.2.3 (原始值: 1203)");
    QTest::newRow("1215") << hex("BF04") << QStringLiteral("1.2.15 (原始值: 1215)");
    QTest::newRow("10523") << hex("1B29") << QStringLiteral("10.5.23 (原始值: 10523)");
    QTest::newRow("1099") << hex("4B04") << QStringLiteral("1.0.99 (原始值: 1099)");
    QTest::newRow("0") << hex("0000") << QStringLiteral("0.0.0 (原始值: 0)");
    QTest::newRow("65535") << hex("FFFF") << QStringLiteral("65.5.35 (原始值: 65535)");
}

void TestDeviceInfo::versionText()
{
    QFETCH(QByteArray, raw);
    QFETCH(QString, text);
    QByteArray record = exampleRecord();
    put(record, 16, raw);
    put(record, 18, raw);
    put(record, 20, raw);
    const QStringList lines = linesOf(record);
    QCOMPARE(lines.at(2), QStringLiteral("固件版本: ") + text);
    QCOMPARE(lines.at(3), QStringLiteral("硬件版本: ") + text);
    QCOMPARE(lines.at(4), QStringLiteral("Bootloader版本: ") + text);
}

void TestDeviceInfo::temperatureText_data()
{
    QTest::addColumn<QByteArray>("raw");
    QTest::addColumn<QString>("line");

    QTest::newRow("3456") << hex("800D") << QStringLiteral("MCU温度: 34.6°C (原始值: 3456)");
    QTest::newRow("3449") << hex("790D") << QStringLiteral("MCU温度: 34.5°C (原始值: 3449)");
    QTest::newRow("0") << hex("0000") << QStringLiteral("MCU温度: 0.0°C (原始值: 0)");
    QTest::newRow("7") << hex("0700") << QStringLiteral("MCU温度: 0.1°C (原始值: 7)");
    QTest::newRow("65535") << hex("FFFF") << QStringLiteral("MCU温度: 655.4°C (原始值: 65535)");
    // Halves round up on the exact decimal value.
    QTest::newRow("15") << hex("0F00") << QStringLiteral("MCU温度: 0.2°C (原始值: 15)");
    QTest::newRow("3425") << hex("610D") << QStringLiteral("MCU温度: 34.3°C (原始值: 3425)");
    QTest::newRow("3444") << hex("740D") << QStringLiteral("MCU温度: 34.4°C (原始值: 3444)");
    QTest::newRow("995") << hex("E303") << QStringLiteral("MCU温度: 10.0°C (原始值: 995)");
}

void TestDeviceInfo::temperatureText()
{
    QFETCH(QByteArray, raw);
    QFETCH(QString, line);
    QByteArray record = exampleRecord();
    put(record, 22, raw);
    QCOMPARE(linesOf(record).at(5), line);
}

void TestDeviceInfo::valueTexts_data()
{
    QTest::addColumn<int>("offset");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("line");

    const QString mouse = QStringLiteral("鼠标: 模式=%1, 滚轮方向=%2, 灵敏度=%3");
    QTest::newRow("relative, down, 200")
        << 25 << hex("01 01 C8")
        << mouse.arg(QStringLiteral("相对坐标 (1)"), QStringLiteral("向下 (1)"), "200");
    QTest::newRow("mode 0, wheel 2")
        << 25 << hex("00 02 00")
        << mouse.arg(QStringLiteral("未知 (0)"), QStringLiteral("未知 (2)"), "0");
    QTest::newRow("mode FF") << 25 << hex("FF 00 01")
                             << mouse.arg(QStringLiteral("未知 (255)"), QStringLiteral("向上 (0)"),
                                          "1");

    QTest::newRow("direction 0") << 24 << hex("00") << QStringLiteral("U盘方向: 未知(0) (0)");
    QTest::newRow("direction 2") << 24 << hex("02") << QStringLiteral("U盘方向: Host/主机 (2)");
    QTest::newRow("direction 3") << 24 << hex("03") << QStringLiteral("U盘方向: N/A (3)");
    QTest::newRow("direction FF") << 24 << hex("FF") << QStringLiteral("U盘方向: N/A (255)");

    QTest::newRow("target baud 115200")
        << 28 << hex("00C20100 0000 FFFF")
        << QStringLiteral("USB(目标): 波特率=115200, VID=0X0000, PID=0XFFFF");
    QTest::newRow("target baud 0") << 28 << hex("00000000 0a0b c0d0")
                                   << QStringLiteral("USB(目标): 波特率=0, VID=0X0B0A, PID=0XD0C0");
    QTest::newRow("host baud 2000000")
        << 69 << hex("80841E00 C0A5 3221")
        << QStringLiteral("USB(主机): 波特率=2000000, VID=0XA5C0, PID=0X2132");
    QTest::newRow("host baud FFFFFFFF")
        << 69 << hex("FFFFFFFF 0100 0200")
        << QStringLiteral("USB(主机): 波特率=4294967295, VID=0X0001, PID=0X0002");

    QTest::newRow("bootloader") << 68 << hex("02")
                                << QStringLiteral("运行状态: bootloader (原始值: 2)");
    QTest::newRow("run state 1") << 68 << hex("01") << QStringLiteral("运行状态: 未知 (原始值: 1)");

    QTest::newRow("auto-move 0") << 109 << hex("00") << QStringLiteral("鼠标微动: 禁用 (0)");
    QTest::newRow("auto-move 2") << 109 << hex("02") << QStringLiteral("鼠标微动: 禁用 (2)");

    QTest::newRow("image FFFF, max size, CRC 0")
        << 110 << hex("FFFF") + QByteArray(14, '\x77') + hex("FFFFFFFF 00000000")
        << QStringLiteral("UVM32: app数=65535, 总大小=4294967295, CRC=0x00000000");
}

void TestDeviceInfo::valueTexts()
{
    QFETCH(int, offset);
    QFETCH(QByteArray, bytes);
    QFETCH(QString, line);
    QByteArray record = exampleRecord();
    put(record, offset, bytes);
    const QStringList lines = linesOf(record);
    QVERIFY2(lines.contains(line), qPrintable(lines.join(QLatin1Char('\n'))));
}

void TestDeviceInfo::shortRecords_data()
{
    QTest::addColumn<int>("length");
    QTest::addColumn<QStringList>("expectedLines");
    QTest::addColumn<bool>("hasImageLine");

    // Records cut from the example at `length` bytes.
    QTest::newRow("1 byte") << 1
                            << QStringList{
                                   QStringLiteral("序列号(hex): 01"),
                                   QStringLiteral("固件版本: 0.0.0 (原始值: 0)"),
                                   QStringLiteral("MCU温度: 0.0°C (原始值: 0)"),
                                   QStringLiteral("鼠标: 模式=未知 (0), 滚轮方向=未知 (0), 灵敏度=0"),
                                   QStringLiteral("U盘方向: N/A (0)"),
                                   QStringLiteral("USB(目标): 波特率=0, VID=0X0000, PID=0X0000"),
                                   QStringLiteral("原始数据长度: 1 字节"),
                               } << false;
    QTest::newRow("17 bytes: firmware cut")
        << 17
        << QStringList{
               QStringLiteral("序列号(hex): 0102030405060708090a0b0c0d0e0f10"),
               QStringLiteral("固件版本: 0.1.79 (原始值: 179)"), // low byte B3 only
           }
        << false;
    QTest::newRow("24 bytes")
        << 24
        << QStringList{
               QStringLiteral("MCU温度: 34.6°C (原始值: 3456)"),
               QStringLiteral("鼠标: 模式=未知 (0), 滚轮方向=未知 (0), 灵敏度=0"),
               QStringLiteral("U盘方向: N/A (0)"),
               QStringLiteral("运行状态: 未知 (原始值: 0)"),
               QStringLiteral("编译时间: N/A"),
               QStringLiteral("鼠标微动: N/A (-1)"),
               QStringLiteral("原始数据长度: 24 字节"),
           }
        << false;
    QTest::newRow("25 bytes")
        << 25
        << QStringList{
               QStringLiteral("鼠标: 模式=未知 (0), 滚轮方向=未知 (0), 灵敏度=0"),
               QStringLiteral("U盘方向: Target/目标机 (1)"),
           }
        << false;
    QTest::newRow("30 bytes: target baud cut")
        << 30
        << QStringList{
               QStringLiteral("鼠标: 模式=绝对坐标 (2), 滚轮方向=向上 (0), 灵敏度=5"),
               QStringLiteral("USB(目标): 波特率=65535, VID=0X0000, PID=0X0000"),
           }
        << false;
    QTest::newRow("68 bytes")
        << 68
        << QStringList{
               QStringLiteral("USB(目标): 波特率=N/A, VID=0X1A86, PID=0X7523"),
               QStringLiteral("运行状态: 未知 (原始值: 0)"),
           }
        << false;
    QTest::newRow("77 bytes")
        << 77
        << QStringList{
               QStringLiteral("运行状态: app (原始值: 3)"),
               QStringLiteral("USB(主机): 波特率=N/A, VID=0X0000, PID=0X0000"),
               QStringLiteral("编译时间: N/A"),
           }
        << false;
    QTest::newRow("82 bytes: build time cut")
        << 82 << QStringList{QStringLiteral("编译时间: 2026-")} << false;
    QTest::newRow("109 bytes")
        << 109
        << QStringList{
               QStringLiteral("编译时间: 2026-05-28 20:52"),
               QStringLiteral("鼠标微动: N/A (-1)"),
           }
        << false;
    QTest::newRow("110 bytes")
        << 110
        << QStringList{
               QStringLiteral("鼠标微动: 启用 (1)"),
               QStringLiteral("原始数据长度: 110 字节"),
           }
        << false;
    QTest::newRow("133 bytes")
        << 133
        << QStringList{
               QStringLiteral("鼠标微动: 启用 (1)"),
               QStringLiteral("原始数据长度: 133 字节"),
           }
        << false;
    QTest::newRow("134 bytes") << 134
                               << QStringList{
                                      QStringLiteral("UVM32: app数=2, 总大小=123456, CRC=0x00abcdef"),
                                      QStringLiteral("原始数据长度: 134 字节"),
                                  }
                               << true;
}

void TestDeviceInfo::shortRecords()
{
    QFETCH(int, length);
    QFETCH(QStringList, expectedLines);
    QFETCH(bool, hasImageLine);

    const QStringList lines = linesOf(exampleRecord().left(length));
    const QString all = lines.join(QLatin1Char('\n'));
    QCOMPARE(lines.size(), hasImageLine ? 15 : 14);
    QCOMPARE(lines.last(), QStringLiteral("原始数据长度: %1 字节").arg(length));
    for (const QString &line : expectedLines)
        QVERIFY2(lines.contains(line), qPrintable(line + QStringLiteral("\n--- not in:\n") + all));
}

void TestDeviceInfo::buildTimeText_data()
{
    QTest::addColumn<QByteArray>("field"); // up to 32 bytes at offset 77
    QTest::addColumn<QString>("text");

    QTest::newRow("padded with spaces")
        << QByteArray("  v1 build \t") << QStringLiteral("v1 build");
    QTest::newRow("white space only") << QByteArray("   ") << QStringLiteral("N/A");
    QTest::newRow("all zero") << QByteArray() << QStringLiteral("N/A");
    QTest::newRow("text after the zero is ignored")
        << QByteArray("abc\0def", 7) << QStringLiteral("abc");
    QTest::newRow("32 bytes, no zero") << QByteArray("0123456789abcdef0123456789ABCDEF")
                                       << QStringLiteral("0123456789abcdef0123456789ABCDEF");
    QTest::newRow("UTF-8") << QStringLiteral("构建 %1 %2").toUtf8()
                           << QStringLiteral("构建 %1 %2"); // not taken as placeholders
}

void TestDeviceInfo::buildTimeText()
{
    QFETCH(QByteArray, field);
    QFETCH(QString, text);
    QByteArray record = exampleRecord();
    put(record, 77, QByteArray(32, '\0'));
    put(record, 77, field);
    QCOMPARE(linesOf(record).at(11), QStringLiteral("编译时间: ") + text);
}

void TestDeviceInfo::encodeThenFormat()
{
    DeviceInfoRecord r;
    r.serialNumber = hex("a1a2a3a4a5a6a7a8a9aaabacadaeafb0");
    r.firmwareVersion = 2107;
    r.hardwareVersion = 300;
    r.bootloaderVersion = 1;
    r.mcuTemperature = 4012;
    r.udiskDirection = 2;
    r.mouseMode = 1;
    r.wheelDirection = 1;
    r.mouseSensitivity = 9;
    r.targetUsbBaud = 9600;
    r.targetUsbVid = 0x1234;
    r.targetUsbPid = 0xabcd;
    r.runState = 2;
    r.hostUsbBaud = 2000000;
    r.hostUsbVid = 0xa5c0;
    r.hostUsbPid = 0x2132;
    r.buildTime = QStringLiteral("Jan  2 2026 03:04:05");
    r.mouseAutoMove = 1;
    r.imageAppCount = 3;
    r.imageTotalSize = 65536;
    r.imageCrc = 0xdeadbeef;

    const QByteArray record = encodeDeviceInfoRecord(r);
    QCOMPARE(record.size(), 134);
    const QStringList lines = linesOf(record);
    const QStringList expected = {
        QStringLiteral("序列号(hex): a1a2a3a4a5a6a7a8a9aaabacadaeafb0"),
        QStringLiteral("固件版本: 2.1.7 (原始值: 2107)"),
        QStringLiteral("硬件版本: 0.3.0 (原始值: 300)"),
        QStringLiteral("Bootloader版本: 0.0.1 (原始值: 1)"),
        QStringLiteral("MCU温度: 40.1°C (原始值: 4012)"),
        QStringLiteral("鼠标: 模式=相对坐标 (1), 滚轮方向=向下 (1), 灵敏度=9"),
        QStringLiteral("U盘方向: Host/主机 (2)"),
        QStringLiteral("USB(目标): 波特率=9600, VID=0X1234, PID=0XABCD"),
        QStringLiteral("USB(主机): 波特率=2000000, VID=0XA5C0, PID=0X2132"),
        QStringLiteral("运行状态: bootloader (原始值: 2)"),
        QStringLiteral("编译时间: Jan  2 2026 03:04:05"),
        QStringLiteral("鼠标微动: 启用 (1)"),
        QStringLiteral("UVM32: app数=3, 总大小=65536, CRC=0xdeadbeef"),
        QStringLiteral("原始数据长度: 134 字节"),
    };
    QCOMPARE(lines.mid(1), expected);
    QCOMPARE(TkProtocol::udiskDirFromPayload(record), 2);
    QCOMPARE(TkProtocol::mouseAutoMoveFromPayload(record), 1);

    // The defaults alone give the example record, byte for byte.
    DeviceInfoRecord example;
    example.hardwareVersion = 10523;
    example.bootloaderVersion = 1215;
    example.mouseAutoMove = 1;
    QCOMPARE(encodeDeviceInfoRecord(example).toHex(' '), exampleRecord().toHex(' '));
}

void TestDeviceInfo::encodeCutsAndPads()
{
    DeviceInfoRecord r;
    r.serialNumber = hex("0102");
    // 31 ASCII bytes and a three-byte character: the character does not fit and is dropped
    // whole instead of leaving a broken sequence in the field.
    r.buildTime = QString(31, QLatin1Char('x')) + QStringLiteral("时");
    QByteArray record = encodeDeviceInfoRecord(r);
    QCOMPARE(record.size(), 134);
    QCOMPARE(record.left(16), hex("0102") + QByteArray(14, '\0'));
    QCOMPARE(record.mid(77, 32), QByteArray(31, 'x') + QByteArray(1, '\0'));
    QCOMPARE(record.mid(36, 32), QByteArray(32, '\0'));
    QCOMPARE(record.mid(112, 14), QByteArray(14, '\0'));

    r.serialNumber = QByteArray(20, '\x33');
    r.buildTime = QString(40, QLatin1Char('y'));
    record = encodeDeviceInfoRecord(r);
    QCOMPARE(record.size(), 134);
    QCOMPARE(record.left(16), QByteArray(16, '\x33'));
    QCOMPARE(record.mid(77, 32), QByteArray(32, 'y'));
    QCOMPARE(record.at(109), '\0'); // auto-move untouched by the long text
}

QTEST_APPLESS_MAIN(TestDeviceInfo)
#include "tst_deviceinfo.moc"
