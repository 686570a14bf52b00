#include <QTest>

#include <vector>

#include "vcamscene.h"

using namespace vcam;

namespace {

// "kind:serial", plus "@port" when the entry names one.
QStringList describe(const std::vector<DeviceSpec> &devices)
{
    QStringList out;
    for (const DeviceSpec &d : devices) {
        QString text =
            QString::fromLatin1(kindInfo(d.kind).word) + ':' + QString::fromStdString(d.serial);
        if (d.port > 0)
            text += '@' + QString::number(d.port);
        out << text;
    }
    return out;
}

// "kind:serial@port", "<-N" when it is the current camera N, "new" when newly plugged.
QStringList describe(const std::vector<Placement> &placements)
{
    QStringList out;
    for (const Placement &p : placements) {
        out << QStringLiteral("%1:%2@%3 %4")
                   .arg(kindInfo(p.device.spec.kind).word)
                   .arg(QString::fromStdString(p.device.spec.serial))
                   .arg(p.device.port)
                   .arg(p.previous < 0 ? QStringLiteral("new")
                                       : QStringLiteral("<-%1").arg(p.previous));
    }
    return out;
}

// Current cameras from "kind:serial@port" texts.
std::vector<PlacedDevice> plugged(const QStringList &texts)
{
    std::vector<PlacedDevice> out;
    for (const QString &text : texts) {
        const QStringList kindRest = text.split(':');
        const QStringList serialPort = kindRest.at(1).split('@');
        PlacedDevice d;
        d.spec.kind = findKind(kindRest.at(0).toStdString())->kind;
        d.spec.serial = serialPort.at(0).toStdString();
        d.port = serialPort.at(1).toInt();
        out.push_back(d);
    }
    return out;
}

} // namespace

class TestVcamScene : public QObject
{
    Q_OBJECT
private slots:
    void parse_data();
    void parse();
    void defaultIsOneBox();
    void place_data();
    void place();
    void paths();
};

void TestVcamScene::parse_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QStringList>("devices");

    QTest::newRow("one box") << "box" << true << QStringList{"box:TK3V0001"};
    QTest::newRow("nothing") << "" << true << QStringList{};
    QTest::newRow("only blanks and comments") << "  # unplugged\n\n \t\n" << true << QStringList{};
    QTest::newRow("every kind in order")
        << "box:S1,box2131:S2,builtin,usbvideo" << true
        << QStringList{"box:S1", "box2131:S2", "builtin:IC0001", "usbvideo:UV0001"};
    QTest::newRow("default serials count per kind")
        << "box, builtin ,box" << true
        << QStringList{"box:TK3V0001", "builtin:IC0001", "box:TK3V0002"};
    QTest::newRow("lines, comments and CRLF")
        << "box:A  # the first\r\n  builtin \r\n\nusbvideo@7\n"
        << true << QStringList{"box:A", "builtin:IC0001", "usbvideo:UV0001@7"};
    QTest::newRow("trailing comma") << "box," << true << QStringList{"box:TK3V0001"};
    QTest::newRow("serial characters and ports")
        << "box:Tk-3.v_9@3,box:B@99" << true << QStringList{"box:Tk-3.v_9@3", "box:B@99"};
    QTest::newRow("longest serial")
        << "box:" + QString(64, 'x') << true << QStringList{"box:" + QString(64, 'x')};

    QTest::newRow("unknown kind") << "box,camera" << false << QStringList{};
    QTest::newRow("kind in capitals") << "Box" << false << QStringList{};
    QTest::newRow("empty entry") << "box,,builtin" << false << QStringList{};
    QTest::newRow("leading comma") << ",box" << false << QStringList{};
    QTest::newRow("empty serial") << "box:" << false << QStringList{};
    QTest::newRow("blank in serial") << "box:A B" << false << QStringList{};
    QTest::newRow("serial too long") << "box:" + QString(65, 'x') << false << QStringList{};
    QTest::newRow("port zero") << "box@0" << false << QStringList{};
    QTest::newRow("port too large") << "box@100" << false << QStringList{};
    QTest::newRow("port not a number") << "box@x1" << false << QStringList{};
    QTest::newRow("signed port") << "box@+1" << false << QStringList{};
    QTest::newRow("one serial on two ports")
        << "box:A@1,box:A@2" << true << QStringList{"box:A@1", "box:A@2"};
    QTest::newRow("same camera twice") << "box:A,box:A" << false << QStringList{};
    QTest::newRow("one serial, one without a port") << "box:A@1,box:A" << false << QStringList{};
    QTest::newRow("named like a default serial") << "box,box:TK3V0001" << false << QStringList{};
    QTest::newRow("two cameras on one port") << "box:A@2,builtin@2" << false << QStringList{};
}

void TestVcamScene::parse()
{
    QFETCH(QString, text);
    QFETCH(bool, ok);
    QFETCH(QStringList, devices);
    const SceneParse result = parseScene(text.toStdString());
    QCOMPARE(result.ok, ok);
    if (ok)
        QCOMPARE(describe(result.devices), devices);
    else
        QVERIFY(!result.error.empty());
}

void TestVcamScene::defaultIsOneBox()
{
    QCOMPARE(describe(defaultScene()), QStringList{"box:TK3V0001"});
}

void TestVcamScene::place_data()
{
    QTest::addColumn<QStringList>("current");
    QTest::addColumn<QString>("scene");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("fresh scene fills ports from one")
        << QStringList{} << "box,builtin,usbvideo"
        << QStringList{"box:TK3V0001@1 new", "builtin:IC0001@2 new", "usbvideo:UV0001@3 new"};
    QTest::newRow("reordered cameras stay where they are")
        << QStringList{"box:A@1", "builtin:IC0001@2"} << "builtin,box:A"
        << QStringList{"builtin:IC0001@2 <-1", "box:A@1 <-0"};
    QTest::newRow("a new camera takes the lowest free port")
        << QStringList{"box:A@1", "box:B@3"} << "box:A,box:C,box:B"
        << QStringList{"box:A@1 <-0", "box:C@2 new", "box:B@3 <-1"};
    QTest::newRow("an unplugged camera frees its port")
        << QStringList{"box:A@1", "box:B@2"} << "box:B,box:C"
        << QStringList{"box:B@2 <-1", "box:C@1 new"};
    QTest::newRow("another port is a replug")
        << QStringList{"box:A@1"} << "box:A@4" << QStringList{"box:A@4 new"};
    QTest::newRow("the same port is no change")
        << QStringList{"box:A@4"} << "box:A@4" << QStringList{"box:A@4 <-0"};
    QTest::newRow("a port asked for elsewhere moves its holder")
        << QStringList{"box:A@1"} << "box:A,builtin@1"
        << QStringList{"box:A@2 new", "builtin:IC0001@1 new"};
    QTest::newRow("another serial is another camera")
        << QStringList{"box:A@1"} << "box:B" << QStringList{"box:B@1 new"};
    QTest::newRow("another kind is another camera")
        << QStringList{"box:A@1"} << "box2131:A" << QStringList{"box2131:A@1 new"};
    QTest::newRow("everything unplugged")
        << QStringList{"box:A@1", "builtin:IC0001@2"} << "" << QStringList{};
}

void TestVcamScene::place()
{
    QFETCH(QStringList, current);
    QFETCH(QString, scene);
    QFETCH(QStringList, expected);
    const SceneParse parse = parseScene(scene.toStdString());
    QVERIFY(parse.ok);
    QCOMPARE(describe(placeDevices(plugged(current), parse.devices)), expected);
}

void TestVcamScene::paths()
{
    QCOMPARE(QString::fromStdString(busPath(3)), QStringLiteral("usb-0000:00:14.0-3"));
    QVERIFY(busPath(1) != busPath(11));

    DeviceSpec a{Kind::Box, "A", 0};
    DeviceSpec aElsewhere{Kind::Box, "A", 5};
    DeviceSpec b{Kind::Box, "B", 0};
    DeviceSpec other{Kind::Box2131, "A", 0};
    QCOMPARE(devicePath(a), devicePath(aElsewhere));
    QVERIFY(devicePath(a) != devicePath(b));
    QVERIFY(devicePath(a) != devicePath(other));
    QVERIFY(QString::fromStdString(devicePath(a)).startsWith("/dev/v4l/by-id/usb-"));
}

QTEST_APPLESS_MAIN(TestVcamScene)
#include "tst_vcamscene.moc"
