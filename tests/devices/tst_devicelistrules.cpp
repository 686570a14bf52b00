// The device list's rules: the DID every part keys a box by, the record of a new box, the
// throttles, the console view's fit, the device menu's texts and the status dot's blink.

#include <QTest>

#include "console/camerapreference.h"
#include "devices/devicelistrules.h"

class TestDeviceListRules : public QObject
{
    Q_OBJECT
private slots:
    void didIsTheMd5OfTheCameraId_data();
    void didIsTheMd5OfTheCameraId();
    void newRecordCarriesEveryField();
    void throttles_data();
    void throttles();
    void consoleViewFitsTheArea_data();
    void consoleViewFitsTheArea();
    void menuTexts_data();
    void menuTexts();
    void currentRowBlinksOthersStayGreen();
    void boxLikeCameras_data();
    void boxLikeCameras();
};

void TestDeviceListRules::didIsTheMd5OfTheCameraId_data()
{
    QTest::addColumn<QByteArray>("id");
    QTest::addColumn<QString>("did");
    QTest::newRow("box identity") << QByteArray("vid_a5c0&pid_2132&sn_TK0001")
                                  << QStringLiteral("c8ea6f9d375c4943cc093d9ec9104af2");
    // Qt's own counter id would give this: the list must never use it.
    QTest::newRow("counter id") << QByteArray("0")
                                << QStringLiteral("cfcd208495d565ef66e7dff9f98764da");
    QTest::newRow("no camera") << QByteArray() << QString();
}

void TestDeviceListRules::didIsTheMd5OfTheCameraId()
{
    QFETCH(QByteArray, id);
    QFETCH(QString, did);
    QCOMPARE(deviceDidForCameraId(id), did);
}

void TestDeviceListRules::newRecordCarriesEveryField()
{
    const QByteArray id("vid_a5c0&pid_2132&sn_TK0001");
    QVariantMap record = newDeviceRecord(id, QStringLiteral("TK USB3 Video"), QString());
    const QVariantMap expected{
        {"did", QStringLiteral("c8ea6f9d375c4943cc093d9ec9104af2")},
        {"device_name", QStringLiteral("USB video")},
        {"sys_desc_name", QStringLiteral("TK USB3 Video")},
        {"device_id", QString::fromUtf8(id)},
        {"uart_port", QString()},
        {"baud_rate", 2000000},
        {"protocol", QString()},
        {"coord_mode", QString()},
        {"audio_input_device_id", QString()},
        {"cursor_correction_enabled", 0},
    };
    QCOMPARE(record, expected);
    record = newDeviceRecord(id, QStringLiteral("TK USB3 Video"), QStringLiteral("机房 A"));
    QCOMPARE(record.value("device_name").toString(), QStringLiteral("机房 A"));
}

void TestDeviceListRules::throttles_data()
{
    QTest::addColumn<qint64>("last");
    QTest::addColumn<qint64>("now");
    QTest::addColumn<qint64>("window");
    QTest::addColumn<bool>("inclusive");
    QTest::addColumn<bool>("throttled");
    const qint64 t = 1'700'000'000'000;
    QTest::newRow("never before") << qint64(0) << t << qint64(999) << true << false;
    QTest::newRow("row action at 999 ms") << t << t + 999 << qint64(999) << true << true;
    QTest::newRow("row action at 1000 ms") << t << t + 1000 << qint64(999) << true << false;
    QTest::newRow("refresh at 799 ms") << t << t + 799 << qint64(800) << false << true;
    QTest::newRow("refresh at 800 ms") << t << t + 800 << qint64(800) << false << false;
    QTest::newRow("clock went back") << t << t - 5 << qint64(800) << false << true;
}

void TestDeviceListRules::throttles()
{
    QFETCH(qint64, last);
    QFETCH(qint64, now);
    QFETCH(qint64, window);
    QFETCH(bool, inclusive);
    QFETCH(bool, throttled);
    QCOMPARE(isThrottled(last, now, window, inclusive), throttled);
}

void TestDeviceListRules::consoleViewFitsTheArea_data()
{
    QTest::addColumn<QSize>("area");
    QTest::addColumn<double>("ratio");
    QTest::addColumn<QRect>("fitted");
    QTest::newRow("wide area: full height, centred")
        << QSize(1600, 600) << 16.0 / 9.0 << QRect(266, 0, 1067, 600);
    QTest::newRow("tall area: full width, centred")
        << QSize(1160, 900) << 16.0 / 9.0 << QRect(0, 123, 1160, 653);
    QTest::newRow("exact fit") << QSize(1280, 720) << 16.0 / 9.0 << QRect(0, 0, 1280, 720);
    QTest::newRow("4:3 picture") << QSize(1000, 600) << 4.0 / 3.0 << QRect(100, 0, 800, 600);
    // 1001 / 2 = 500.5 rounds away from zero.
    QTest::newRow("half rounds up") << QSize(1001, 800) << 2.0 << QRect(0, 149, 1001, 501);
    QTest::newRow("empty area") << QSize(0, 600) << 16.0 / 9.0 << QRect();
    QTest::newRow("no ratio") << QSize(800, 600) << 0.0 << QRect();
}

void TestDeviceListRules::consoleViewFitsTheArea()
{
    QFETCH(QSize, area);
    QFETCH(double, ratio);
    QFETCH(QRect, fitted);
    QCOMPARE(fitAspectRect(area, ratio), fitted);
}

void TestDeviceListRules::menuTexts_data()
{
    QTest::addColumn<QStringList>("labels");
    QTest::addColumn<QStringList>("texts");
    QTest::newRow("none") << QStringList() << QStringList();
    QTest::newRow("trimmed") << QStringList{"  TK USB3 Video "} << QStringList{"TK USB3 Video"};
    // Blank rows are named by their own row number, not by a count of blank rows.
    QTest::newRow("rows 1 and 3 blank")
        << QStringList{"", "TK USB3 Video", "   "}
        << QStringList{QStringLiteral("设备 1"), "TK USB3 Video", QStringLiteral("设备 3")};
}

void TestDeviceListRules::menuTexts()
{
    QFETCH(QStringList, labels);
    QFETCH(QStringList, texts);
    QCOMPARE(deviceMenuItemTexts(labels), texts);
}

void TestDeviceListRules::currentRowBlinksOthersStayGreen()
{
    QVERIFY(statusDotIsGreen(0, 1, false));
    QVERIFY(statusDotIsGreen(0, 1, true));
    QVERIFY(statusDotIsGreen(1, 1, true));
    QVERIFY(!statusDotIsGreen(1, 1, false));
    QVERIFY(statusDotIsGreen(2, -1, false)); // nothing open: nothing blinks
}

void TestDeviceListRules::boxLikeCameras_data()
{
    QTest::addColumn<QString>("description");
    QTest::addColumn<QByteArray>("id");
    QTest::addColumn<bool>("listed");
    QTest::newRow("the box") << "TK USB3 Video" << QByteArray("vid_a5c0&pid_2132&sn_A") << true;
    QTest::newRow("the second model by id")
        << "Capture" << QByteArray("vid_a5c0&pid_2131&sn_B") << true;
    QTest::newRow("another USB capture stick")
        << "USB Video" << QByteArray("vid_534d&pid_2109&sn_C") << true;
    QTest::newRow("built-in camera")
        << "Integrated Camera" << QByteArray("vid_04f2&pid_b6dd&sn_IC") << false;
    QTest::newRow("webcam") << "HD Webcam" << QByteArray("vid_046d&pid_0825&sn_W") << false;
}

void TestDeviceListRules::boxLikeCameras()
{
    QFETCH(QString, description);
    QFETCH(QByteArray, id);
    QFETCH(bool, listed);
    QCOMPARE(isBoxLikeCamera({description, id}), listed);
}

QTEST_GUILESS_MAIN(TestDeviceListRules)
#include "tst_devicelistrules.moc"
