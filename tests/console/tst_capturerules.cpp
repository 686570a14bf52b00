// Small rules of the console view: when frames count as flowing, the stored port name, and the
// letterboxed picture rectangle.

#include <QTest>

#include "console/capturerules.h"
#include "console/input/bordercheck.h"

class TestCaptureRules : public QObject
{
    Q_OBJECT
private slots:
    void framesFlowing_data();
    void framesFlowing();
    void bareStoredPortName_data();
    void bareStoredPortName();
    void letterbox_data();
    void letterbox();
    void borderCheckCadence_data();
    void borderCheckCadence();
    void uartStatus_data();
    void uartStatus();
};

void TestCaptureRules::framesFlowing_data()
{
    QTest::addColumn<qint64>("lastFrameMs");
    QTest::addColumn<qint64>("nowMs");
    QTest::addColumn<bool>("flowing");
    QTest::addColumn<qint64>("agoMs");

    const qint64 now = 1'700'000'000'000;
    QTest::newRow("frame just now") << now << now << true << qint64(0);
    QTest::newRow("1800 ms old") << now - 1800 << now << true << qint64(1800);
    QTest::newRow("1801 ms old") << now - 1801 << now << false << qint64(1801);
    QTest::newRow("no frame ever") << qint64(0) << now << false << qint64(-1);
}

void TestCaptureRules::framesFlowing()
{
    QFETCH(qint64, lastFrameMs);
    QFETCH(qint64, nowMs);
    QFETCH(bool, flowing);
    QFETCH(qint64, agoMs);
    QCOMPARE(framesAreFlowing(lastFrameMs, nowMs), flowing);
    QCOMPARE(lastFrameAgoMs(lastFrameMs, nowMs), agoMs);
}

void TestCaptureRules::bareStoredPortName_data()
{
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QString>("bare");

    QTest::newRow("plain") << "/dev/ttyACM0"
                           << "/dev/ttyACM0";
    QTest::newRow("display suffix") << "/dev/ttyACM0 (TK CDC)"
                                    << "/dev/ttyACM0";
    QTest::newRow("first of two suffixes") << "COM3 (a) (b)"
                                           << "COM3";
    QTest::newRow("starts with the suffix") << " (TK CDC)"
                                            << " (TK CDC)";
    QTest::newRow("one character before") << "x (y)"
                                          << "x";
    QTest::newRow("parenthesis without blank") << "/dev/tty(1)"
                                               << "/dev/tty(1)";
    QTest::newRow("empty") << ""
                           << "";
}

void TestCaptureRules::bareStoredPortName()
{
    QFETCH(QString, stored);
    QFETCH(QString, bare);
    QCOMPARE(::bareStoredPortName(stored), bare);
}

void TestCaptureRules::letterbox_data()
{
    QTest::addColumn<QSize>("view");
    QTest::addColumn<QSize>("picture");
    QTest::addColumn<QRect>("expected");

    QTest::newRow("same aspect") << QSize(1280, 720) << QSize(1920, 1080) << QRect(0, 0, 1280, 720);
    QTest::newRow("square view") << QSize(1000, 1000) << QSize(1920, 1080)
                                 << QRect(0, 219, 1000, 562);
    QTest::newRow("pillarbox") << QSize(1280, 720) << QSize(1280, 1024) << QRect(190, 0, 900, 720);
    QTest::newRow("odd remainder rounds down")
        << QSize(1001, 600) << QSize(800, 600) << QRect(100, 0, 800, 600);
    QTest::newRow("upscale") << QSize(1920, 1080) << QSize(640, 480) << QRect(240, 0, 1440, 1080);
    QTest::newRow("no picture") << QSize(800, 600) << QSize(-1, -1) << QRect();
    QTest::newRow("empty view") << QSize(0, 600) << QSize(1920, 1080) << QRect();
}

void TestCaptureRules::letterbox()
{
    QFETCH(QSize, view);
    QFETCH(QSize, picture);
    QFETCH(QRect, expected);
    const QRect rect = letterboxRect(view, picture);
    QCOMPARE(rect, expected);
    if (!rect.isNull()) {
        QVERIFY(QRect(QPoint(0, 0), view).contains(rect));
        // Centred: the margins differ by at most one pixel.
        QVERIFY(qAbs(rect.left() - (view.width() - rect.right() - 1)) <= 1);
        QVERIFY(qAbs(rect.top() - (view.height() - rect.bottom() - 1)) <= 1);
    }
}

void TestCaptureRules::borderCheckCadence_data()
{
    QTest::addColumn<bool>("bordersKnown");
    QTest::addColumn<QList<quint64>>("dueAmongFirst4000");

    // Frames are counted from 0; the first one and then every 90th (1800th) are measured.
    QTest::newRow("no border yet")
        << false
        << QList<quint64>{0,    89,   179,  269,  359,  449,  539,  629,  719,  809,  899,  989,
                          1079, 1169, 1259, 1349, 1439, 1529, 1619, 1709, 1799, 1889, 1979, 2069,
                          2159, 2249, 2339, 2429, 2519, 2609, 2699, 2789, 2879, 2969, 3059, 3149,
                          3239, 3329, 3419, 3509, 3599, 3689, 3779, 3869, 3959};
    QTest::newRow("a border is known") << true << QList<quint64>{0, 1799, 3599};
}

void TestCaptureRules::borderCheckCadence()
{
    QFETCH(bool, bordersKnown);
    QFETCH(QList<quint64>, dueAmongFirst4000);
    image_blank_info borders;
    borders.left = bordersKnown ? 1 : 0;
    QList<quint64> due;
    for (quint64 n = 0; n < 4000; ++n) {
        if (borderCheckDue(n, borders))
            due.append(n);
    }
    QCOMPARE(due, dueAmongFirst4000);
}

void TestCaptureRules::uartStatus_data()
{
    QTest::addColumn<bool>("open");
    QTest::addColumn<QString>("port");
    QTest::addColumn<QString>("text");
    QTest::newRow("open") << true << "/dev/ttyACM0"
                          << "/dev/ttyACM0: connected";
    QTest::newRow("display suffix cut") << true << "/dev/ttyACM0 (TK CDC)"
                                        << "/dev/ttyACM0: connected";
    QTest::newRow("open, no name") << true << ""
                                   << "UART: connected";
    QTest::newRow("closed") << false << "/dev/ttyACM0"
                            << "UART: disconnected";
}

void TestCaptureRules::uartStatus()
{
    QFETCH(bool, open);
    QFETCH(QString, port);
    QFETCH(QString, text);
    QCOMPARE(uartStatusText(open, port), text);
}

QTEST_APPLESS_MAIN(TestCaptureRules)
#include "tst_capturerules.moc"
