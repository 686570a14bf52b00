// Mouse events on the console view reach the simulated target as absolute reports: positions
// through the shown picture, button bits, wheel steps and the coalescing of moves.

#include <QApplication>
#include <QMouseEvent>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTest>
#include <QWheelEvent>

#include "tests/support/consolewithbox.h"

namespace {

// The box camera opens at its largest format.
constexpr int kCaptureWidth = 3840;
constexpr int kCaptureHeight = 2160;
// The box reports positions on a 12-bit scale.
constexpr int kBoxScale = 4096;
// Long enough for a report that would be sent to reach the box.
constexpr int kSettleMs = 300;

} // namespace

class TestTavroVideoMouse : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();

    void clickReachesTheTargetAtTheMappedPosition();
    void letterboxClickSendsNothing();
    void rightWhileLeftHeld();
    void wheelSendsOneStepPerEvent_data();
    void wheelSendsOneStepPerEvent();
    void burstOfMovesSendsOnlyTheNewest();
    void pressFlushesThePendingMoveFirst();
    void statusTextFollowsTheBurst();
    void bordersShiftAndClampTheMapping();
    void backgroundSendsNothing();
    void disablingTheThrottleSendsThePendingMove();
    void dragReleasedWithinTheThrottleEndsWithTheButtonUp();
    void dragReleasedOnTheLetterboxBarLetsGo();
    void noPositionBeyondTheScaleAfterClose();

private:
    BoxSimProcess &box() { return m_console.box(); }
    QRect picture() const { return m_view->getActualVideoDisplayRect(); }
    // The device page fits the view to the picture; a view taller than the picture shows bars
    // above and below it until the returned guard goes.
    auto withLetterboxBar()
    {
        const QRect fitted = m_view->geometry();
        m_view->setGeometry(fitted.adjusted(0, 0, 0, 80));
        return qScopeGuard([this, fitted] { m_view->setGeometry(fitted); });
    }
    void send(QEvent::Type type, QPoint pos, Qt::MouseButton button, Qt::MouseButtons held);
    void wheel(QPoint pos, QPoint angleDelta);
    int mouseReports() { return box().namesSeen().count(QStringLiteral("mouse")); }
    QJsonObject nextReport() { return box().next(QStringLiteral("mouse")); }
    // Position a report carries for a mapped position on a target of the given size.
    static QPoint onBoxScale(QPoint mapped, int width = kCaptureWidth, int height = kCaptureHeight)
    {
        return {mapped.x() * kBoxScale / width, mapped.y() * kBoxScale / height};
    }
    static QPoint reportPosition(const QJsonObject &report)
    {
        return {report.value("x").toInt(), report.value("y").toInt()};
    }

    ConsoleWithBox m_console;
    TavroVideo *m_view = nullptr;
};

void TestTavroVideoMouse::initTestCase()
{
    QVERIFY(m_console.start());
    m_view = m_console.view();
    QCOMPARE(m_view->negotiatedResolution(), QSize(kCaptureWidth, kCaptureHeight));
    QTRY_VERIFY(!picture().isNull());
}

void TestTavroVideoMouse::cleanupTestCase()
{
    m_console.stop();
}

void TestTavroVideoMouse::send(QEvent::Type type, QPoint pos, Qt::MouseButton button,
                               Qt::MouseButtons held)
{
    QMouseEvent event(type, pos, m_view->mapToGlobal(pos), button, held, Qt::NoModifier);
    QApplication::sendEvent(m_view, &event);
}

void TestTavroVideoMouse::wheel(QPoint pos, QPoint angleDelta)
{
    QWheelEvent event(pos, m_view->mapToGlobal(pos), QPoint(), angleDelta, Qt::NoButton,
                      Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(m_view, &event);
}

void TestTavroVideoMouse::clickReachesTheTargetAtTheMappedPosition()
{
    const QRect r = picture();
    const QPoint at(r.left() + r.width() / 4, r.top() + r.height() / 2);
    send(QEvent::MouseButtonPress, at, Qt::LeftButton, Qt::LeftButton);
    const QPoint mapped = m_view->lastMousePos();
    QCOMPARE(mapped.x(), int((at.x() - r.left()) * (kCaptureWidth - 1.0) / (r.width() - 1) + 0.5));
    QCOMPARE(mapped.y(), int((at.y() - r.top()) * (kCaptureHeight - 1.0) / (r.height() - 1) + 0.5));
    QJsonObject report = nextReport();
    QCOMPARE(reportPosition(report), onBoxScale(mapped));
    QCOMPARE(report.value("buttons").toInt(), 0x01);

    send(QEvent::MouseButtonRelease, at, Qt::LeftButton, Qt::NoButton);
    report = nextReport();
    QCOMPARE(reportPosition(report), onBoxScale(mapped));
    QCOMPARE(report.value("buttons").toInt(), 0x00);

    // The picture's last column is the target's last column, never one past it.
    send(QEvent::MouseButtonPress, r.bottomRight(), Qt::LeftButton, Qt::LeftButton);
    send(QEvent::MouseButtonRelease, r.bottomRight(), Qt::LeftButton, Qt::NoButton);
    QCOMPARE(m_view->lastMousePos(), QPoint(kCaptureWidth - 1, kCaptureHeight - 1));
    QCOMPARE(reportPosition(nextReport()), onBoxScale(m_view->lastMousePos()));
    nextReport();
}

void TestTavroVideoMouse::letterboxClickSendsNothing()
{
    const auto restore = withLetterboxBar();
    const QRect r = picture();
    QVERIFY2(r.top() > 0 || r.left() > 0, "the window shows no letterbox bar");
    const QPoint bar =
        r.top() > 0 ? QPoint(r.center().x(), r.top() - 1) : QPoint(r.left() - 1, r.center().y());
    const QPoint before = m_view->lastMousePos();
    const int reports = mouseReports();
    send(QEvent::MouseButtonPress, bar, Qt::LeftButton, Qt::LeftButton);
    send(QEvent::MouseMove, bar, Qt::NoButton, Qt::LeftButton);
    send(QEvent::MouseButtonRelease, bar, Qt::LeftButton, Qt::NoButton);
    wheel(bar, QPoint(0, 120));
    QTest::qWait(kSettleMs);
    QCOMPARE(mouseReports(), reports);
    QCOMPARE(m_view->lastMousePos(), before);
}

void TestTavroVideoMouse::rightWhileLeftHeld()
{
    const QPoint at = picture().center();
    send(QEvent::MouseButtonPress, at, Qt::LeftButton, Qt::LeftButton);
    QCOMPARE(nextReport().value("buttons").toInt(), 0x01);
    send(QEvent::MouseButtonPress, at, Qt::RightButton, Qt::LeftButton | Qt::RightButton);
    QCOMPARE(nextReport().value("buttons").toInt(), 0x03);
    send(QEvent::MouseButtonRelease, at, Qt::LeftButton, Qt::RightButton);
    QCOMPARE(nextReport().value("buttons").toInt(), 0x02);
    send(QEvent::MouseButtonRelease, at, Qt::RightButton, Qt::NoButton);
    QCOMPARE(nextReport().value("buttons").toInt(), 0x00);
}

void TestTavroVideoMouse::wheelSendsOneStepPerEvent_data()
{
    QTest::addColumn<QPoint>("delta");
    QTest::addColumn<int>("value"); // 0: nothing is sent

    QTest::newRow("+120") << QPoint(0, 120) << 1;
    QTest::newRow("+480") << QPoint(0, 480) << 1;
    QTest::newRow("-120") << QPoint(0, -120) << -1;
    QTest::newRow("horizontal only") << QPoint(120, 0) << 0;
}

void TestTavroVideoMouse::wheelSendsOneStepPerEvent()
{
    QFETCH(QPoint, delta);
    QFETCH(int, value);
    const int reports = mouseReports();
    wheel(picture().center(), delta);
    if (value == 0) {
        QTest::qWait(kSettleMs);
        QCOMPARE(mouseReports(), reports);
        return;
    }
    const QJsonObject report = nextReport();
    QCOMPARE(report.value("wheel").toInt(), value);
    QCOMPARE(report.value("buttons").toInt(), 0);
}

void TestTavroVideoMouse::burstOfMovesSendsOnlyTheNewest()
{
    const QRect r = picture();
    const int reports = mouseReports();
    // Delivered back to back, with no pass of the event loop between them: well inside 1 ms of
    // the throttle's view.
    QPoint at;
    for (int i = 0; i < 200; ++i) {
        at = QPoint(r.left() + 10 + i * 2, r.top() + 10 + i);
        send(QEvent::MouseMove, at, Qt::NoButton, Qt::NoButton);
    }
    const QJsonObject report = nextReport();
    QCOMPARE(reportPosition(report), onBoxScale(m_view->lastMousePos()));
    QCOMPARE(m_view->pendingMousePos(), QPoint(-1, -1));
    QTest::qWait(kSettleMs);
    QCOMPARE(mouseReports(), reports + 1);
}

void TestTavroVideoMouse::pressFlushesThePendingMoveFirst()
{
    const QRect r = picture();
    const QPoint moved(r.left() + 100, r.top() + 100);
    const QPoint pressed(r.left() + 300, r.top() + 200);
    send(QEvent::MouseMove, moved, Qt::NoButton, Qt::NoButton);
    const QPoint movedMapped = m_view->lastMousePos();
    send(QEvent::MouseButtonPress, pressed, Qt::LeftButton, Qt::LeftButton);
    const QPoint pressedMapped = m_view->lastMousePos();
    send(QEvent::MouseButtonRelease, pressed, Qt::LeftButton, Qt::NoButton);

    QJsonObject report = nextReport();
    QCOMPARE(reportPosition(report), onBoxScale(movedMapped));
    QCOMPARE(report.value("buttons").toInt(), 0);
    report = nextReport();
    QCOMPARE(reportPosition(report), onBoxScale(pressedMapped));
    QCOMPARE(report.value("buttons").toInt(), 0x01);
    QCOMPARE(nextReport().value("buttons").toInt(), 0x00);
}

void TestTavroVideoMouse::statusTextFollowsTheBurst()
{
    QSignalSpy status(m_view, &TavroVideo::mouseChanged);
    const QRect r = picture();
    for (int i = 0; i < 20; ++i)
        send(QEvent::MouseMove, QPoint(r.left() + 50 + i, r.top() + 60), Qt::NoButton,
             Qt::NoButton);
    const QPoint last = m_view->lastMousePos();
    QVERIFY(status.wait());
    QCOMPARE(status.count(), 1);
    QCOMPARE(status.at(0).at(0).toString(), QStringLiteral("%1,%2").arg(last.x()).arg(last.y()));
    nextReport();
}

void TestTavroVideoMouse::bordersShiftAndClampTheMapping()
{
    // A 2880x1620 target centred in the 3840x2160 frame.
    image_blank_info borders;
    borders.left = borders.right = 480;
    borders.top = borders.bottom = 270;
    m_view->setBlackBorderInfo(borders);
    const QRect r = picture();

    const QPoint onBorder(r.left() + 2, r.top() + 2);
    send(QEvent::MouseButtonPress, onBorder, Qt::LeftButton, Qt::LeftButton);
    send(QEvent::MouseButtonRelease, onBorder, Qt::LeftButton, Qt::NoButton);
    QCOMPARE(m_view->lastMousePos(), QPoint(0, 0));
    QCOMPARE(reportPosition(nextReport()), QPoint(0, 0));
    nextReport();

    const QPoint inside(r.left() + r.width() * 3 / 4, r.top() + r.height() * 3 / 4);
    send(QEvent::MouseButtonPress, inside, Qt::LeftButton, Qt::LeftButton);
    send(QEvent::MouseButtonRelease, inside, Qt::LeftButton, Qt::NoButton);
    const QPoint mapped = m_view->lastMousePos();
    QCOMPARE(mapped.x(),
             int((inside.x() - r.left()) * (kCaptureWidth - 1.0) / (r.width() - 1) + 0.5) -
                 borders.left);
    QCOMPARE(reportPosition(nextReport()), onBoxScale(mapped, 2880, 1620));
    nextReport();

    m_view->setBlackBorderInfo(image_blank_info());
}

void TestTavroVideoMouse::backgroundSendsNothing()
{
    const int reports = mouseReports();
    QFocusEvent out(QEvent::FocusOut, Qt::ActiveWindowFocusReason);
    QApplication::sendEvent(m_view, &out);
    const QPoint at = picture().center();
    QTest::ignoreMessage(QtDebugMsg, "[鼠标事件] 应用在后台，跳过鼠标按下处理");
    send(QEvent::MouseButtonPress, at, Qt::LeftButton, Qt::LeftButton);
    QTest::ignoreMessage(QtDebugMsg, "[鼠标事件] 应用在后台，跳过鼠标释放处理");
    send(QEvent::MouseButtonRelease, at, Qt::LeftButton, Qt::NoButton);
    send(QEvent::MouseMove, at + QPoint(5, 5), Qt::NoButton, Qt::NoButton);
    QTest::ignoreMessage(QtDebugMsg, "[滚轮事件] 应用在后台，跳过滚轮处理");
    wheel(at, QPoint(0, 120));
    QTest::qWait(kSettleMs);
    QCOMPARE(mouseReports(), reports);

    QFocusEvent in(QEvent::FocusIn, Qt::ActiveWindowFocusReason);
    QApplication::sendEvent(m_view, &in);
}

void TestTavroVideoMouse::disablingTheThrottleSendsThePendingMove()
{
    const QRect r = picture();
    send(QEvent::MouseMove, QPoint(r.left() + 40, r.top() + 40), Qt::NoButton, Qt::NoButton);
    const QPoint mapped = m_view->lastMousePos();
    QTest::ignoreMessage(QtDebugMsg, "[鼠标节流] 已禁用");
    m_view->enableMouseThrottle(false);
    QCOMPARE(m_view->pendingMousePos(), QPoint(-1, -1));
    QCOMPARE(reportPosition(nextReport()), onBoxScale(mapped));
    m_view->resetMouseThrottleSettings();
    QVERIFY(m_view->isMouseThrottleEnabled());

    QTest::ignoreMessage(QtDebugMsg, "[鼠标节流] 更新设置 - 间隔:1ms, 最小距离:0像素");
    m_view->updateMouseThrottleSettings(0, -5);
    QCOMPARE(m_view->mouseThrottleIntervalMs(), 1);
    QCOMPARE(m_view->mouseMinDistance(), 0);
}

void TestTavroVideoMouse::dragReleasedWithinTheThrottleEndsWithTheButtonUp()
{
    const QRect r = picture();
    const QPoint from(r.left() + 50, r.top() + 50);
    const QPoint to(r.left() + 400, r.top() + 300);
    send(QEvent::MouseButtonPress, from, Qt::LeftButton, Qt::LeftButton);
    QCOMPARE(nextReport().value("buttons").toInt(), 0x01);
    // The release follows the last move within the same pass of the event loop.
    send(QEvent::MouseMove, to, Qt::NoButton, Qt::LeftButton);
    send(QEvent::MouseButtonRelease, to, Qt::LeftButton, Qt::NoButton);
    QJsonObject report = nextReport();
    QCOMPARE(reportPosition(report), onBoxScale(m_view->lastMousePos()));
    QCOMPARE(report.value("buttons").toInt(), 0x01);
    QCOMPARE(nextReport().value("buttons").toInt(), 0x00);
    const int reports = mouseReports();
    QTest::qWait(kSettleMs);
    QCOMPARE(mouseReports(), reports);
}

void TestTavroVideoMouse::dragReleasedOnTheLetterboxBarLetsGo()
{
    const auto restore = withLetterboxBar();
    const QRect r = picture();
    QVERIFY2(r.top() > 0 || r.left() > 0, "the window shows no letterbox bar");
    const QPoint bar =
        r.top() > 0 ? QPoint(r.center().x(), r.top() - 1) : QPoint(r.left() - 1, r.center().y());
    const QPoint lastOnPicture =
        r.top() > 0 ? QPoint(r.center().x(), r.top()) : QPoint(r.left(), r.center().y());
    send(QEvent::MouseButtonPress, r.center(), Qt::LeftButton, Qt::LeftButton);
    QCOMPARE(nextReport().value("buttons").toInt(), 0x01);
    send(QEvent::MouseMove, lastOnPicture, Qt::NoButton, Qt::LeftButton);
    const QPoint mapped = m_view->lastMousePos();
    QCOMPARE(nextReport().value("buttons").toInt(), 0x01);
    send(QEvent::MouseMove, bar, Qt::NoButton, Qt::LeftButton);
    send(QEvent::MouseButtonRelease, bar, Qt::LeftButton, Qt::NoButton);
    const QJsonObject report = nextReport();
    QVERIFY(!report.isEmpty());
    QCOMPARE(report.value("buttons").toInt(), 0x00);
    QCOMPARE(reportPosition(report), onBoxScale(mapped));
}

void TestTavroVideoMouse::noPositionBeyondTheScaleAfterClose()
{
    // A 1280x720 target in the frame: the encoder keeps that size for later reports.
    image_blank_info borders;
    borders.left = borders.right = 1280;
    borders.top = borders.bottom = 720;
    m_view->setBlackBorderInfo(borders);
    const QRect r = picture();
    send(QEvent::MouseButtonPress, r.center(), Qt::LeftButton, Qt::LeftButton);
    send(QEvent::MouseButtonRelease, r.center(), Qt::LeftButton, Qt::NoButton);
    nextReport();
    nextReport();
    m_view->setBlackBorderInfo(image_blank_info());

    // The camera closes (the link stays): the capture size is unknown now.
    m_view->closeCamera(false);
    const int reports = mouseReports();
    send(QEvent::MouseButtonPress, r.bottomRight(), Qt::LeftButton, Qt::LeftButton);
    send(QEvent::MouseButtonRelease, r.bottomRight(), Qt::LeftButton, Qt::NoButton);
    QTest::qWait(kSettleMs);
    const QList<QJsonObject> events = box().events();
    int seen = 0;
    for (const QJsonObject &event : events) {
        if (event.value("event").toString() != QLatin1String("mouse") || seen++ < reports)
            continue;
        QVERIFY2(event.value("x").toInt() < kBoxScale && event.value("y").toInt() < kBoxScale,
                 qPrintable(QString::number(event.value("x").toInt())));
    }
}

int main(int argc, char **argv)
{
    qputenv("TAVROKVM_VCAM_DEVICES", "box:TKMOUSE1");
    QApplication app(argc, argv);
    TestTavroVideoMouse test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_tavrovideomouse.moc"
