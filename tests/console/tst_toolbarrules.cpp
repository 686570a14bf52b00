// Where the tool switch, the toolbar and its popups go, and what the watermark says.

#include <QTest>

#include "ui/toolbarrules.h"

class TestToolbarRules : public QObject
{
    Q_OBJECT
private slots:
    void toolSwitchPlaces_data();
    void toolSwitchPlaces();
    void flowPanelFollowsTheSwitch_data();
    void flowPanelFollowsTheSwitch();
    void popupStaysOnItsScreen_data();
    void popupStaysOnItsScreen();
    void dragStartsAtTheDistance_data();
    void dragStartsAtTheDistance();
    void watermarkLine_data();
    void watermarkLine();
};

void TestToolbarRules::toolSwitchPlaces_data()
{
    QTest::addColumn<QSize>("view");
    QTest::addColumn<bool>("custom");
    QTest::addColumn<QPointF>("relative");
    QTest::addColumn<QPoint>("expected");

    const QPointF none;
    QTest::newRow("default: centred, 4 px down")
        << QSize(800, 600) << false << none << QPoint(384, 4);
    QTest::newRow("default in a view lower than the switch")
        << QSize(800, 20) << false << none << QPoint(384, 0);
    QTest::newRow("default in a view narrower than the switch")
        << QSize(20, 600) << false << none << QPoint(0, 4);
    QTest::newRow("stored 0.95/0.95 on a smaller view stays inside")
        << QSize(400, 300) << true << QPointF(0.95, 0.95) << QPoint(368, 268);
    QTest::newRow("stored 0.25/0.5")
        << QSize(800, 600) << true << QPointF(0.25, 0.5) << QPoint(200, 300);
    QTest::newRow("stored fractions are truncated")
        << QSize(333, 333) << true << QPointF(0.5, 0.5) << QPoint(166, 166);
    QTest::newRow("negative fractions clamp to the corner")
        << QSize(800, 600) << true << QPointF(-0.2, -1.0) << QPoint(0, 0);
}

void TestToolbarRules::toolSwitchPlaces()
{
    QFETCH(QSize, view);
    QFETCH(bool, custom);
    QFETCH(QPointF, relative);
    QFETCH(QPoint, expected);
    const QSize toolSwitch(32, 32);
    const QPoint place =
        custom ? relativeToolSwitchPosition(view, toolSwitch, relative.x(), relative.y())
               : defaultToolSwitchPosition(view, toolSwitch);
    QCOMPARE(place, expected);
}

void TestToolbarRules::flowPanelFollowsTheSwitch_data()
{
    QTest::addColumn<QPoint>("anchor");
    QTest::addColumn<QPoint>("panelTopLeft");

    // An 800×600 view, a 32 px switch and a 400 px toolbar.
    QTest::newRow("centred switch") << QPoint(384, 4) << QPoint(200, 4);
    QTest::newRow("switch at the left edge") << QPoint(0, 100) << QPoint(-184, 100);
    QTest::newRow("switch at the bottom right") << QPoint(768, 568) << QPoint(584, 568);
}

void TestToolbarRules::flowPanelFollowsTheSwitch()
{
    QFETCH(QPoint, anchor);
    QFETCH(QPoint, panelTopLeft);
    const QSize view(800, 600);
    QCOMPARE(flowPanelTopLeftAtAnchor(anchor, 32, 400), panelTopLeft);
    // Clamped into the view, then dragged back to where the switch is found again.
    const QPoint placed = clampTopLeftInto(panelTopLeft, QSize(400, 30), view);
    QVERIFY(placed.x() >= 0 && placed.x() + 400 <= view.width());
    const QPointF relative = relativeAnchorOfFlowPanel(placed, 400, 32, view);
    const QPoint back = relativeToolSwitchPosition(view, QSize(32, 32), relative.x(), relative.y());
    // The switch sits under the toolbar's centre.
    QCOMPARE(back.x() + 16, placed.x() + 200);
    QCOMPARE(back.y(), placed.y());
}

void TestToolbarRules::popupStaysOnItsScreen_data()
{
    QTest::addColumn<QRect>("screen");
    QTest::addColumn<QPoint>("anchor");
    QTest::addColumn<QPoint>("expected");

    const QRect primary(0, 0, 1920, 1080);
    const QRect right(1920, 0, 1280, 1024);
    QTest::newRow("in the middle: centred under the anchor")
        << primary << QPoint(960, 100) << QPoint(760, 100);
    QTest::newRow("near the left edge") << primary << QPoint(50, 100) << QPoint(0, 100);
    QTest::newRow("near the right edge") << primary << QPoint(1900, 100) << QPoint(1520, 100);
    QTest::newRow("near the bottom") << primary << QPoint(960, 1000) << QPoint(760, 780);
    QTest::newRow("second screen's left edge") << right << QPoint(1930, 10) << QPoint(1920, 10);
    QTest::newRow("second screen's bottom right")
        << right << QPoint(3190, 1020) << QPoint(2800, 724);
}

void TestToolbarRules::popupStaysOnItsScreen()
{
    QFETCH(QRect, screen);
    QFETCH(QPoint, anchor);
    QFETCH(QPoint, expected);
    const QSize popup(400, 300);
    const QPoint placed = popupTopLeftUnderAnchor(anchor, popup, screen);
    QCOMPARE(placed, expected);
    QVERIFY(screen.contains(QRect(placed, popup)));
}

void TestToolbarRules::dragStartsAtTheDistance_data()
{
    QTest::addColumn<QPoint>("to");
    QTest::addColumn<bool>("drag");
    QTest::newRow("still") << QPoint(100, 100) << false;
    QTest::newRow("one short") << QPoint(105, 103) << false;
    QTest::newRow("exactly the distance, summed over both axes") << QPoint(106, 104) << true;
    QTest::newRow("backwards") << QPoint(90, 100) << true;
}

void TestToolbarRules::dragStartsAtTheDistance()
{
    QFETCH(QPoint, to);
    QFETCH(bool, drag);
    QCOMPARE(reachedDragDistance(QPoint(100, 100), to, 10), drag);
}

void TestToolbarRules::watermarkLine_data()
{
    QTest::addColumn<int>("top");
    QTest::addColumn<int>("left");
    QTest::addColumn<int>("bottom");
    QTest::addColumn<int>("right");
    QTest::addColumn<QString>("uart");
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("calc");

    QTest::newRow("no borders measured")
        << 0 << 0 << 0 << 0 << "UART: disconnected"
        << "Borders: T0 L0 B0 R0 | Calc: 1920x1080[1.78] | Resolution: 1920x1080 | Mouse: 10,20 | "
           "UART: disconnected"
        << "1920x1080";
    QTest::newRow("pillar box of a 4:3 picture")
        << 0 << 240 << 0 << 240 << "tk-box: connected"
        << "Borders: T0 L240 B0 R240 | Calc: 1440x1080[1.33] | Resolution: 1920x1080 | Mouse: "
           "10,20 | tk-box: connected"
        << "1440x1080";
    QTest::newRow("borders wider than the picture")
        << 600 << 1000 << 600 << 1000 << ""
        << "Borders: T600 L1000 B600 R1000 | Calc: 0x0[0.00] | Resolution: 1920x1080 | Mouse: "
           "10,20"
        << "0x0";
}

void TestToolbarRules::watermarkLine()
{
    QFETCH(int, top);
    QFETCH(int, left);
    QFETCH(int, bottom);
    QFETCH(int, right);
    QFETCH(QString, uart);
    QFETCH(QString, line);
    QFETCH(QString, calc);
    image_blank_info borders;
    borders.top = top;
    borders.left = left;
    borders.bottom = bottom;
    borders.right = right;
    const WatermarkFacts facts = watermarkFacts(borders, QSize(1920, 1080), QPoint(10, 20), uart);
    QCOMPARE(facts.line, line);
    QCOMPARE(facts.calcText, calc);
    QCOMPARE(facts.mouseText, QStringLiteral("10,20"));
}

QTEST_APPLESS_MAIN(TestToolbarRules)
#include "tst_toolbarrules.moc"
