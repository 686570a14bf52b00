// The frameless window's rules: which edges a point grabs, the cursor that shows it, how a drag
// resizes within the minimum size, and when centring moves the window.

#include <QTest>

#include "ui/windowrules.h"

Q_DECLARE_METATYPE(Qt::Edges)
Q_DECLARE_METATYPE(Qt::CursorShape)

class TestWindowRules : public QObject
{
    Q_OBJECT
private slots:
    void edgesAndCursors_data();
    void edgesAndCursors();
    void resizeKeepsTheMinimum_data();
    void resizeKeepsTheMinimum();
    void centring_data();
    void centring();
    void badgeSitsInTheTopRightCorner();
};

namespace {
const QSize kWindow(1500, 800);
const QRect kTitleBar(0, 0, 1500, 35);
} // namespace

void TestWindowRules::edgesAndCursors_data()
{
    QTest::addColumn<QPoint>("pos");
    QTest::addColumn<bool>("titleVisible");
    QTest::addColumn<Qt::Edges>("edges");
    QTest::addColumn<Qt::CursorShape>("cursor");
    const Qt::Edges none;
    QTest::newRow("middle") << QPoint(700, 400) << true << none << Qt::ArrowCursor;
    QTest::newRow("left edge") << QPoint(5, 400) << true << Qt::Edges(Qt::LeftEdge)
                               << Qt::SizeHorCursor;
    QTest::newRow("just inside left") << QPoint(6, 400) << true << none << Qt::ArrowCursor;
    QTest::newRow("right edge") << QPoint(1495, 400) << true << Qt::Edges(Qt::RightEdge)
                                << Qt::SizeHorCursor;
    QTest::newRow("just inside right") << QPoint(1494, 400) << true << none << Qt::ArrowCursor;
    QTest::newRow("bottom edge") << QPoint(700, 795) << true << Qt::Edges(Qt::BottomEdge)
                                 << Qt::SizeVerCursor;
    QTest::newRow("top edge in the title bar's top rows")
        << QPoint(700, 3) << true << Qt::Edges(Qt::TopEdge) << Qt::SizeVerCursor;
    // Below its top 5 rows the title bar drags the window instead.
    QTest::newRow("title bar row 6") << QPoint(700, 6) << true << none << Qt::ArrowCursor;
    QTest::newRow("title bar at the left edge") << QPoint(2, 20) << true << none << Qt::ArrowCursor;
    QTest::newRow("hidden title bar: left edge")
        << QPoint(2, 20) << false << Qt::Edges(Qt::LeftEdge) << Qt::SizeHorCursor;
    QTest::newRow("top left") << QPoint(0, 0) << true << (Qt::TopEdge | Qt::LeftEdge)
                              << Qt::SizeFDiagCursor;
    QTest::newRow("top right") << QPoint(1499, 2) << true << (Qt::TopEdge | Qt::RightEdge)
                               << Qt::SizeBDiagCursor;
    QTest::newRow("bottom left") << QPoint(3, 797) << true << (Qt::BottomEdge | Qt::LeftEdge)
                                 << Qt::SizeBDiagCursor;
    QTest::newRow("bottom right") << QPoint(1499, 799) << true << (Qt::BottomEdge | Qt::RightEdge)
                                  << Qt::SizeFDiagCursor;
}

void TestWindowRules::edgesAndCursors()
{
    QFETCH(QPoint, pos);
    QFETCH(bool, titleVisible);
    QFETCH(Qt::Edges, edges);
    QFETCH(Qt::CursorShape, cursor);
    QCOMPARE(frameResizeEdges(pos, kWindow, kTitleBar, titleVisible), edges);
    QCOMPARE(cursorForEdges(edges), cursor);
}

void TestWindowRules::resizeKeepsTheMinimum_data()
{
    QTest::addColumn<Qt::Edges>("edges");
    QTest::addColumn<QPoint>("delta");
    QTest::addColumn<QRect>("geometry");
    QTest::newRow("right grows") << Qt::Edges(Qt::RightEdge) << QPoint(50, 9)
                                 << QRect(100, 100, 1050, 600);
    QTest::newRow("left grows, moving the left edge")
        << Qt::Edges(Qt::LeftEdge) << QPoint(-40, 0) << QRect(60, 100, 1040, 600);
    QTest::newRow("left below the minimum stays put")
        << Qt::Edges(Qt::LeftEdge) << QPoint(300, 0) << QRect(100, 100, 1000, 600);
    QTest::newRow("left down to the minimum")
        << Qt::Edges(Qt::LeftEdge) << QPoint(200, 0) << QRect(300, 100, 800, 600);
    QTest::newRow("top shrinks") << Qt::Edges(Qt::TopEdge) << QPoint(0, 50)
                                 << QRect(100, 150, 1000, 550);
    QTest::newRow("bottom below the minimum stays put")
        << Qt::Edges(Qt::BottomEdge) << QPoint(0, -200) << QRect(100, 100, 1000, 600);
    QTest::newRow("corner: width kept, height changed")
        << (Qt::LeftEdge | Qt::BottomEdge) << QPoint(500, 30) << QRect(100, 100, 1000, 630);
}

void TestWindowRules::resizeKeepsTheMinimum()
{
    QFETCH(Qt::Edges, edges);
    QFETCH(QPoint, delta);
    QFETCH(QRect, geometry);
    QCOMPARE(resizedGeometry(QRect(100, 100, 1000, 600), edges, delta, QSize(800, 500)), geometry);
}

void TestWindowRules::centring_data()
{
    QTest::addColumn<QRect>("screen");
    QTest::addColumn<QPoint>("current");
    QTest::addColumn<QPoint>("target");
    QTest::addColumn<bool>("move");
    const QRect fullHd(0, 0, 1920, 1080);
    QTest::newRow("far away") << fullHd << QPoint(0, 0) << QPoint(210, 140) << true;
    QTest::newRow("5 px off on both axes")
        << fullHd << QPoint(215, 135) << QPoint(210, 140) << false;
    QTest::newRow("6 px off") << fullHd << QPoint(216, 140) << QPoint(210, 140) << true;
    QTest::newRow("screen smaller than the window")
        << QRect(0, 0, 1280, 720) << QPoint(30, 30) << QPoint(0, 0) << true;
    QTest::newRow("second screen to the right")
        << QRect(1920, 0, 1920, 1080) << QPoint(0, 0) << QPoint(2130, 140) << true;
}

void TestWindowRules::centring()
{
    QFETCH(QRect, screen);
    QFETCH(QPoint, current);
    QFETCH(QPoint, target);
    QFETCH(bool, move);
    const CentredPlacement placement = centredPlacement(screen, kWindow, current);
    QCOMPARE(placement.target, target);
    QCOMPARE(placement.move, move);
}

void TestWindowRules::badgeSitsInTheTopRightCorner()
{
    QCOMPARE(settingBadgePosition(32, 12), QPoint(15, 5));
    // A badge as wide as the button still starts inside it.
    QCOMPARE(settingBadgePosition(12, 12), QPoint(0, 5));
}

QTEST_GUILESS_MAIN(TestWindowRules)
#include "tst_windowrules.moc"
