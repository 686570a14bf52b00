// The serial settings' rules without a window: which port item a stored port selects, the rate
// an item stands for, when closing the panel reopens the link, how protocol and coordinate mode
// are stored, and the device settings' connection hint.

#include <QTest>

#include "ui/serialpanelrules.h"

Q_DECLARE_METATYPE(QList<PortListItem>)

class TestSerialPanelRules : public QObject
{
    Q_OBJECT
private slots:
    void portMatching_data();
    void portMatching();
    void baudFromItemData_data();
    void baudFromItemData();
    void reopenDecision_data();
    void reopenDecision();
    void storedModes_data();
    void storedModes();
    void storedModesRoundTrip();
    void connectionHint_data();
    void connectionHint();
};

namespace {
const QList<PortListItem> kPorts = {
    {"ttyACM0 (USB Serial)", "ttyACM0"},
    {"/tmp/box-a (TK CDC)", "/tmp/box-a"},
    {"/tmp/box-ab (TK CDC)", "/tmp/box-ab"},
    {"ttyUSB1", "ttyUSB1"},
};
} // namespace

void TestSerialPanelRules::portMatching_data()
{
    QTest::addColumn<QList<PortListItem>>("items");
    QTest::addColumn<QString>("port");
    QTest::addColumn<int>("index");
    QTest::addColumn<bool>("exact");

    QTest::newRow("exact by item data") << kPorts << "/tmp/box-ab" << 2 << true;
    QTest::newRow("bare item without description") << kPorts << "ttyUSB1" << 3 << true;
    // A prefix of a longer name does not win over the item that is exactly it.
    QTest::newRow("exact beats an earlier prefix") << kPorts << "/tmp/box-a" << 1 << true;
    QTest::newRow("empty port selects nothing") << kPorts << "" << -1 << false;
    QTest::newRow("no such port") << kPorts << "ttyACM9" << -1 << false;
    QTest::newRow("empty list") << QList<PortListItem>() << "ttyACM0" << -1 << false;
    QTest::newRow("case differs: no match") << kPorts << "TTYACM0" << -1 << false;

    // Item data that is not the bare name (an older list, or a display item as data).
    const QList<PortListItem> oddData = {
        {"ttyACM0 (USB Serial)", "ttyACM0 (USB Serial)"},
        {"/dev/ttyACM3 (TK CDC - Tavro - 0001)", ""},
    };
    QTest::newRow("partial: name before \" (\"") << oddData << "/dev/ttyACM3" << 1 << false;
    QTest::newRow("partial: first such item") << oddData << "ttyACM0" << 0 << false;
    // A stored display item (an older build kept the whole text) selects its item by prefix.
    QTest::newRow("partial: stored display item") << kPorts << "/tmp/box-a (TK CDC)" << 1 << false;
    QTest::newRow("partial: stored prefix of a longer name") << kPorts << "ttyUSB" << 3 << false;
    QTest::newRow("partial: description differs") << kPorts << "/tmp/box-a (old)" << -1 << false;
}

void TestSerialPanelRules::portMatching()
{
    QFETCH(QList<PortListItem>, items);
    QFETCH(QString, port);
    QFETCH(int, index);
    QFETCH(bool, exact);
    const PortItemMatch match = matchPortItem(items, port);
    QCOMPARE(match.index, index);
    QCOMPARE(match.exact, exact);
}

void TestSerialPanelRules::baudFromItemData_data()
{
    QTest::addColumn<QVariant>("data");
    QTest::addColumn<int>("baud");
    QTest::addColumn<bool>("fellBack");
    QTest::newRow("int 115200") << QVariant(115200) << 115200 << false;
    QTest::newRow("text 9600") << QVariant(QStringLiteral("9600")) << 9600 << false;
    QTest::newRow("text with blanks") << QVariant(QStringLiteral(" 57600 ")) << 57600 << false;
    QTest::newRow("1") << QVariant(1) << 1 << false;
    QTest::newRow("word") << QVariant(QStringLiteral("fast")) << 2000000 << true;
    QTest::newRow("number then word") << QVariant(QStringLiteral("9600baud")) << 2000000 << true;
    QTest::newRow("zero") << QVariant(0) << 2000000 << true;
    QTest::newRow("negative") << QVariant(-9600) << 2000000 << true;
    QTest::newRow("null") << QVariant() << 2000000 << true;
    QTest::newRow("empty text") << QVariant(QString()) << 2000000 << true;
    QTest::newRow("beyond int") << QVariant(QStringLiteral("3000000000")) << 2000000 << true;
}

void TestSerialPanelRules::baudFromItemData()
{
    QFETCH(QVariant, data);
    QFETCH(int, baud);
    QFETCH(bool, fellBack);
    bool fell = !fellBack;
    QCOMPARE(baudRateFromItemData(data, &fell), baud);
    QCOMPARE(fell, fellBack);
    QCOMPARE(baudRateFromItemData(data), baud);
}

void TestSerialPanelRules::reopenDecision_data()
{
    QTest::addColumn<QString>("prevPort");
    QTest::addColumn<int>("prevBaud");
    QTest::addColumn<QString>("newPort");
    QTest::addColumn<int>("newBaud");
    QTest::addColumn<bool>("reopen");
    QTest::newRow("unchanged") << "ttyACM0" << 2000000 << "ttyACM0" << 2000000 << false;
    QTest::newRow("rate only") << "ttyACM0" << 2000000 << "ttyACM0" << 115200 << true;
    QTest::newRow("port only") << "ttyACM0" << 2000000 << "ttyACM1" << 2000000 << true;
    QTest::newRow("both") << "ttyACM0" << 9600 << "ttyACM1" << 2000000 << true;
    QTest::newRow("first port chosen") << "" << 2000000 << "ttyACM0" << 2000000 << true;
    QTest::newRow("nothing before or after") << "" << 2000000 << "" << 2000000 << false;
    QTest::newRow("case counts") << "ttyACM0" << 2000000 << "TTYACM0" << 2000000 << true;
}

void TestSerialPanelRules::reopenDecision()
{
    QFETCH(QString, prevPort);
    QFETCH(int, prevBaud);
    QFETCH(QString, newPort);
    QFETCH(int, newBaud);
    QFETCH(bool, reopen);
    QCOMPARE(serialLinkNeedsReopen(prevPort, prevBaud, newPort, newBaud), reopen);
}

void TestSerialPanelRules::storedModes_data()
{
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<int>("protocol");
    QTest::addColumn<int>("coordMode");
    QTest::newRow("null") << QVariant() << 0 << 0;
    QTest::newRow("empty") << QVariant(QString()) << 0 << 0;
    QTest::newRow("CH9329") << QVariant(QStringLiteral("CH9329")) << 0 << 0;
    QTest::newRow("TK_V1") << QVariant(QStringLiteral("TK_V1")) << 1 << 0;
    QTest::newRow("tk_v1") << QVariant(QStringLiteral("tk_v1")) << 1 << 0;
    QTest::newRow("0") << QVariant(QStringLiteral("0")) << 0 << 0;
    QTest::newRow("1") << QVariant(QStringLiteral("1")) << 1 << 1;
    QTest::newRow("int 1") << QVariant(1) << 1 << 1;
    QTest::newRow("relative") << QVariant(QStringLiteral("relative")) << 0 << 1;
    QTest::newRow("absolute") << QVariant(QStringLiteral("absolute")) << 0 << 0;
    QTest::newRow("2 is relative, not a protocol") << QVariant(QStringLiteral("2")) << 0 << 1;
    QTest::newRow("garbage") << QVariant(QStringLiteral("x")) << 0 << 0;
}

void TestSerialPanelRules::storedModes()
{
    QFETCH(QVariant, stored);
    QFETCH(int, protocol);
    QFETCH(int, coordMode);
    QCOMPARE(protocolFromStored(stored), protocol);
    QCOMPARE(coordModeFromStored(stored), coordMode);
}

void TestSerialPanelRules::storedModesRoundTrip()
{
    QCOMPARE(storedProtocolText(0), QStringLiteral("CH9329"));
    QCOMPARE(storedProtocolText(1), QStringLiteral("TK_V1"));
    QCOMPARE(storedCoordModeText(0), QStringLiteral("0"));
    QCOMPARE(storedCoordModeText(1), QStringLiteral("1"));
    for (int value : {0, 1}) {
        QCOMPARE(protocolFromStored(storedProtocolText(value)), value);
        QCOMPARE(coordModeFromStored(storedCoordModeText(value)), value);
    }
}

void TestSerialPanelRules::connectionHint_data()
{
    QTest::addColumn<bool>("hasView");
    QTest::addColumn<bool>("hasDevice");
    QTest::addColumn<QByteArray>("bound");
    QTest::addColumn<bool>("portOpen");
    QTest::addColumn<QString>("port");
    QTest::addColumn<int>("baud");
    QTest::addColumn<QString>("hint");

    QTest::newRow("no view") << false << true << QByteArray("x") << true << "ttyACM0" << 2000000
                             << "内部错误：未绑定视频模块。";
    QTest::newRow("no box") << true << false << QByteArray("x") << true << "ttyACM0" << 2000000
                            << "提示：请先选择 UVC 视频设备，以便关联输入音频与 UART。";
    QTest::newRow("automatic, open") << true << true << QByteArray() << true << "ttyACM0" << 2000000
                                     << "输入音频：顺序自动配对。串口：ttyACM0，波特率 2000000";
    QTest::newRow("bound, open at 115200")
        << true << true << QByteArray("tk_audio_2.monitor") << true << "/tmp/tk-box" << 115200
        << "输入音频：已手动绑定 id tk_audio_2.monitor。串口：/tmp/tk-box，波特率 115200";
    QTest::newRow("automatic, closed")
        << true << true << QByteArray() << false << "ttyACM0" << 2000000
        << "输入音频：顺序自动配对。串口未连接，请在「串口设备列表」中选端口。";
    QTest::newRow("bound, closed, no port")
        << true << true << QByteArray("a%1b") << false << "" << 2000000
        << "输入音频：已手动绑定 id a%1b。串口未连接，请在「串口设备列表」中选端口。";
    // An id that looks like a placeholder is shown as it is.
    QTest::newRow("bound id with %1, open")
        << true << true << QByteArray("a%1b") << true << "ttyACM0" << 9600
        << "输入音频：已手动绑定 id a%1b。串口：ttyACM0，波特率 9600";
}

void TestSerialPanelRules::connectionHint()
{
    QFETCH(bool, hasView);
    QFETCH(bool, hasDevice);
    QFETCH(QByteArray, bound);
    QFETCH(bool, portOpen);
    QFETCH(QString, port);
    QFETCH(int, baud);
    QFETCH(QString, hint);
    ConnectionHintFacts facts;
    facts.hasView = hasView;
    facts.hasDevice = hasDevice;
    facts.boundAudioId = bound;
    facts.portOpen = portOpen;
    facts.port = port;
    facts.baud = baud;
    QCOMPARE(connectionHintText(facts), hint);
}

QTEST_APPLESS_MAIN(TestSerialPanelRules)
#include "tst_serialpanelrules.moc"
