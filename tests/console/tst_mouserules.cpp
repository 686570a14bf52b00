// Where a click inside the shown picture lands on the target's screen, and the button and wheel
// fields of the reports.

#include <QTest>

#include "console/input/mouserules.h"

Q_DECLARE_METATYPE(image_blank_info)

namespace {

image_blank_info borders(int top, int left, int bottom, int right)
{
    image_blank_info info;
    info.top = top;
    info.left = left;
    info.bottom = bottom;
    info.right = right;
    return info;
}

} // namespace

class TestMouseRules : public QObject
{
    Q_OBJECT
private slots:
    void mapping_data();
    void mapping();
    void reportSize_data();
    void reportSize();
    void pressButtons_data();
    void pressButtons();
    void releaseButtons_data();
    void releaseButtons();
    void wheel_data();
    void wheel();
    void buttonNames();
};

void TestMouseRules::mapping_data()
{
    QTest::addColumn<QPoint>("pos");
    QTest::addColumn<QRect>("picture");
    QTest::addColumn<QSize>("capture");
    QTest::addColumn<image_blank_info>("borders");
    QTest::addColumn<bool>("inside");
    QTest::addColumn<QPoint>("mapped");
    QTest::addColumn<QSize>("target");

    // A 1280x800 view showing 1920x1080: the picture is 0..1279 x 40..759.
    const QRect wide(0, 40, 1280, 720);
    const QSize fullHd(1920, 1080);
    const image_blank_info none;
    QTest::newRow("centre of a 1280x800 view")
        << QPoint(640, 400) << wide << fullHd << none << true << QPoint(960, 540) << fullHd;
    QTest::newRow("top-left corner")
        << QPoint(0, 40) << wide << fullHd << none << true << QPoint(0, 0) << fullHd;
    // Shown smaller than captured, the last shown column still reaches the last target column.
    QTest::newRow("last column and row reach the target's last")
        << QPoint(1279, 759) << wide << fullHd << none << true << QPoint(1919, 1079) << fullHd;
    QTest::newRow("letterbox bar above")
        << QPoint(640, 39) << wide << fullHd << none << false << QPoint() << QSize();
    QTest::newRow("letterbox bar below")
        << QPoint(640, 760) << wide << fullHd << none << false << QPoint() << QSize();
    QTest::newRow("no picture yet")
        << QPoint(10, 10) << QRect() << fullHd << none << false << QPoint() << QSize();
    // One view pixel is about 1.5 frame pixels: the nearest frame pixel.
    QTest::newRow("nearest frame pixel")
        << QPoint(3, 41) << wide << fullHd << none << true << QPoint(5, 2) << fullHd;
    QTest::newRow("unknown resolution falls back to 1920x1080")
        << QPoint(640, 400) << wide << QSize(-1, -1) << none << true << QPoint(960, 540) << fullHd;
    QTest::newRow("zero resolution falls back too")
        << QPoint(640, 400) << wide << QSize(0, 1080) << none << true << QPoint(960, 540) << fullHd;
    QTest::newRow("4K capture in a 1920x1080 picture")
        << QPoint(1919, 1079) << QRect(0, 0, 1920, 1080) << QSize(3840, 2160) << none << true
        << QPoint(3839, 2159) << QSize(3840, 2160);
    QTest::newRow("720p capture shown larger")
        << QPoint(1919, 1079) << QRect(0, 0, 1920, 1080) << QSize(1280, 720) << none << true
        << QPoint(1279, 719) << QSize(1280, 720);
    // A 1280x720 target inside a 1920x1080 frame, with 320 black columns each side and 180 rows.
    const image_blank_info pillar = borders(180, 320, 180, 320);
    QTest::newRow("borders shift the origin") << QPoint(640, 400) << wide << fullHd << pillar
                                              << true << QPoint(640, 360) << QSize(1280, 720);
    QTest::newRow("on the left border clamps to 0")
        << QPoint(10, 50) << wide << fullHd << pillar << true << QPoint(0, 0) << QSize(1280, 720);
    QTest::newRow("on the right border clamps to width-1")
        << QPoint(1270, 750) << wide << fullHd << pillar << true << QPoint(1279, 719)
        << QSize(1280, 720);
    QTest::newRow("uneven borders") << QPoint(640, 400) << wide << fullHd << borders(0, 100, 80, 0)
                                    << true << QPoint(860, 540) << QSize(1820, 1000);
}

void TestMouseRules::mapping()
{
    QFETCH(QPoint, pos);
    QFETCH(QRect, picture);
    QFETCH(QSize, capture);
    QFETCH(image_blank_info, borders);
    QFETCH(bool, inside);
    QFETCH(QPoint, mapped);
    QFETCH(QSize, target);

    TargetPoint point{-7, -7, -7, -7};
    QCOMPARE(mapWidgetToTarget(pos, picture, capture, borders, point), inside);
    if (!inside) {
        QCOMPARE(point.x, -7); // outputs untouched
        return;
    }
    QCOMPARE(QPoint(point.x, point.y), mapped);
    QCOMPARE(QSize(point.width, point.height), target);
    // Scaled against the report's size, as the encoder does, the position stays on the wire's
    // 0..4095 scale.
    quint16 size[2];
    mouseReportSize(capture, borders, size);
    QCOMPARE(QSize(size[0], size[1]), target);
    QVERIFY(point.x * 4096 / size[0] <= 4095);
    QVERIFY(point.y * 4096 / size[1] <= 4095);
}

void TestMouseRules::reportSize_data()
{
    QTest::addColumn<QSize>("capture");
    QTest::addColumn<image_blank_info>("borders");
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");

    QTest::newRow("plain") << QSize(1920, 1080) << image_blank_info() << 1920 << 1080;
    QTest::newRow("less borders") << QSize(1920, 1080) << borders(180, 320, 180, 320) << 1280
                                  << 720;
    // The mapping's own fallback: a position mapped against 1920x1080 is scaled against it too.
    QTest::newRow("unknown is the mapping's fallback")
        << QSize(-1, -1) << image_blank_info() << 1920 << 1080;
}

void TestMouseRules::reportSize()
{
    QFETCH(QSize, capture);
    QFETCH(image_blank_info, borders);
    QFETCH(int, width);
    QFETCH(int, height);
    quint16 size[2] = {1, 1};
    mouseReportSize(capture, borders, size);
    QCOMPARE(int(size[0]), width);
    QCOMPARE(int(size[1]), height);
}

void TestMouseRules::pressButtons_data()
{
    QTest::addColumn<int>("pressed");
    QTest::addColumn<int>("held");
    QTest::addColumn<int>("bits");

    QTest::newRow("left") << int(Qt::LeftButton) << int(Qt::LeftButton) << 0x01;
    QTest::newRow("right while left held")
        << int(Qt::RightButton) << int(Qt::LeftButton | Qt::RightButton) << 0x03;
    QTest::newRow("middle") << int(Qt::MiddleButton) << int(Qt::MiddleButton) << 0x04;
    QTest::newRow("back") << int(Qt::BackButton) << int(Qt::BackButton) << 0x08;
    QTest::newRow("forward") << int(Qt::ForwardButton) << int(Qt::ForwardButton) << 0x10;
    QTest::newRow("extra button: 0x20") << int(Qt::ExtraButton3) << int(Qt::ExtraButton3) << 0x20;
    QTest::newRow("extra button with left held")
        << int(Qt::ExtraButton3) << int(Qt::ExtraButton3 | Qt::LeftButton) << 0x21;
}

void TestMouseRules::pressButtons()
{
    QFETCH(int, pressed);
    QFETCH(int, held);
    QFETCH(int, bits);
    QCOMPARE(int(pressReportButtons(Qt::MouseButton(pressed), Qt::MouseButtons(held))), bits);
}

void TestMouseRules::releaseButtons_data()
{
    QTest::addColumn<int>("released");
    QTest::addColumn<int>("stillHeld");
    QTest::addColumn<int>("bits");

    QTest::newRow("left, right still held") << int(Qt::LeftButton) << int(Qt::RightButton) << 0x02;
    QTest::newRow("last button") << int(Qt::RightButton) << 0 << 0x00;
    // Even if the toolkit still lists the released button, the report drops it.
    QTest::newRow("left listed as held")
        << int(Qt::LeftButton) << int(Qt::LeftButton | Qt::MiddleButton) << 0x04;
    QTest::newRow("middle") << int(Qt::MiddleButton) << int(Qt::MiddleButton | Qt::BackButton)
                            << 0x08;
    QTest::newRow("back") << int(Qt::BackButton) << int(Qt::BackButton | Qt::ForwardButton) << 0x10;
    QTest::newRow("forward") << int(Qt::ForwardButton) << int(Qt::ForwardButton | Qt::LeftButton)
                             << 0x01;
    QTest::newRow("extra releases all") << int(Qt::ExtraButton3) << int(Qt::LeftButton) << 0x00;
}

void TestMouseRules::releaseButtons()
{
    QFETCH(int, released);
    QFETCH(int, stillHeld);
    QFETCH(int, bits);
    QCOMPARE(int(releaseReportButtons(Qt::MouseButton(released), Qt::MouseButtons(stillHeld))),
             bits);
}

void TestMouseRules::wheel_data()
{
    QTest::addColumn<int>("delta");
    QTest::addColumn<int>("step");
    QTest::addColumn<int>("value");

    QTest::newRow("+120") << 120 << 1 << 1;
    QTest::newRow("+480 is still one step") << 480 << 1 << 1;
    QTest::newRow("-120") << -120 << 1 << -1;
    QTest::newRow("high-resolution +8") << 8 << 1 << 1;
    QTest::newRow("none") << 0 << 1 << 0;
    QTest::newRow("larger step") << -240 << 3 << -3;
}

void TestMouseRules::wheel()
{
    QFETCH(int, delta);
    QFETCH(int, step);
    QFETCH(int, value);
    QCOMPARE(int(wheelReportValue(delta, qint8(step))), value);
}

void TestMouseRules::buttonNames()
{
    QCOMPARE(mouseButtonNameForLog(Qt::LeftButton), QStringLiteral("左键"));
    QCOMPARE(mouseButtonNameForLog(Qt::BackButton), QStringLiteral("侧键1(后退)"));
    QCOMPARE(mouseButtonNameForLog(Qt::ExtraButton5), QStringLiteral("侧键2(前进)"));
}

QTEST_APPLESS_MAIN(TestMouseRules)

#include "tst_mouserules.moc"
