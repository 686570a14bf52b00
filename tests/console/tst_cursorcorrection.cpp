// Cursor correction end to end: the virtual camera shows the target's picture inside black
// borders, the console measures them and leaves them out of the mouse mapping, the simulated box
// reads the positions back, and the switch is kept per box across a restart.

#include <QApplication>
#include <QFile>
#include <QMouseEvent>
#include <QTest>

#include "db/dbmanager.h"
#include "tests/support/consolewithbox.h"

namespace {

constexpr int kCaptureWidth = 3840;
constexpr int kCaptureHeight = 2160;
// What the virtual camera draws: 16-pixel aligned, so that JPEG blocks never straddle an edge.
constexpr int kBorderLeft = 208;
constexpr int kBorderTop = 112;
constexpr int kMeasureTimeoutMs = 15000;

} // namespace

class TestCursorCorrection : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void switchingOnMeasuresTheBorders();
    void clickInTheBorderReachesTheActiveAreasCorner();
    void switchingOffRestoresTheFullFrame();
    void settingSurvivesARestart();
    void diagnosticCropIsWritten();

private:
    // The press and release of a left click at a frame pixel; the report's position.
    QPoint clickAtFramePixel(QPoint pixel);
    QPoint widgetPointOf(QPoint pixel) const
    {
        const QRect r = m_view->getActualVideoDisplayRect();
        return {r.left() + pixel.x() * (r.width() - 1) / (kCaptureWidth - 1),
                r.top() + pixel.y() * (r.height() - 1) / (kCaptureHeight - 1)};
    }

    ConsoleWithBox m_console;
    TavroVideo *m_view = nullptr;
};

void TestCursorCorrection::initTestCase()
{
    QVERIFY(m_console.start());
    m_view = m_console.view();
    QCOMPARE(m_view->negotiatedResolution(), QSize(kCaptureWidth, kCaptureHeight));
    QTRY_VERIFY(!m_view->getActualVideoDisplayRect().isNull());
    QVERIFY(!m_view->isCursorCorrectionEnabled());
}

void TestCursorCorrection::cleanupTestCase()
{
    m_console.stop();
}

QPoint TestCursorCorrection::clickAtFramePixel(QPoint pixel)
{
    const QPoint at = widgetPointOf(pixel);
    for (auto [type, held] : {std::pair{QEvent::MouseButtonPress, Qt::LeftButton},
                              std::pair{QEvent::MouseButtonRelease, Qt::NoButton}}) {
        QMouseEvent event(type, at, m_view->mapToGlobal(at), Qt::LeftButton, held, Qt::NoModifier);
        QApplication::sendEvent(m_view, &event);
    }
    const QJsonObject press = m_console.box().next(QStringLiteral("mouse"));
    m_console.box().next(QStringLiteral("mouse"));
    return {press.value("x").toInt(), press.value("y").toInt()};
}

void TestCursorCorrection::switchingOnMeasuresTheBorders()
{
    m_view->setCursorCorrectionEnabled(true);
    QTRY_VERIFY_WITH_TIMEOUT(m_view->blackBorderInfo().left != 0, kMeasureTimeoutMs);
    const image_blank_info borders = m_view->blackBorderInfo();
    QCOMPARE(borders.left, kBorderLeft);
    QCOMPARE(borders.right, kBorderLeft);
    QCOMPARE(borders.top, kBorderTop);
    QCOMPARE(borders.bottom, kBorderTop);
    QCOMPARE(borders.width, kCaptureWidth);
    QVERIFY(QFile::exists(TavroVideo::borderCheckFramePath()));
}

void TestCursorCorrection::clickInTheBorderReachesTheActiveAreasCorner()
{
    // Inside the black border at the top left: the target's own corner.
    QCOMPARE(clickAtFramePixel({kBorderLeft / 2, kBorderTop / 2}), QPoint(0, 0));
    // The bottom-right corner of the frame is the last pixel of the active area, on the box's
    // 12-bit scale of that area.
    const int activeWidth = kCaptureWidth - 2 * kBorderLeft;
    const int activeHeight = kCaptureHeight - 2 * kBorderTop;
    QCOMPARE(
        clickAtFramePixel({kCaptureWidth - 1, kCaptureHeight - 1}),
        QPoint((activeWidth - 1) * 4096 / activeWidth, (activeHeight - 1) * 4096 / activeHeight));
    // The middle of the frame is the middle of the active area.
    const QPoint middle = clickAtFramePixel({kCaptureWidth / 2, kCaptureHeight / 2});
    // One pixel of the view is about three of the frame: a few units of the box's scale.
    QVERIFY2(qAbs(middle.x() - 2048) <= 12 && qAbs(middle.y() - 2048) <= 12,
             qPrintable(QStringLiteral("%1,%2").arg(middle.x()).arg(middle.y())));
}

void TestCursorCorrection::switchingOffRestoresTheFullFrame()
{
    m_view->setCursorCorrectionEnabled(false);
    QCOMPARE(m_view->blackBorderInfo().left, 0);
    QCOMPARE(m_view->blackBorderInfo().top, 0);
    // The same click in the border is now a position in the full frame.
    const QPoint report = clickAtFramePixel({kBorderLeft / 2, kBorderTop / 2});
    QVERIFY(report.x() > 0 && report.y() > 0);
    QVERIFY(qAbs(report.x() - kBorderLeft / 2 * 4096 / kCaptureWidth) <= 12);
}

void TestCursorCorrection::settingSurvivesARestart()
{
    const QString did = m_view->getCurrentDeviceDid();
    m_view->setCursorCorrectionEnabled(true);
    QCOMPARE(DBManager::instance()->getDeviceByDid(did).value("cursor_correction_enabled").toInt(),
             1);
    // A new console for the same box: the switch comes back from the database and measures.
    m_console.stop();
    QVERIFY(m_console.start());
    m_view = m_console.view();
    QCOMPARE(m_view->getCurrentDeviceDid(), did);
    QVERIFY(m_view->isCursorCorrectionEnabled());
    QTRY_COMPARE_WITH_TIMEOUT(m_view->blackBorderInfo().left, kBorderLeft, kMeasureTimeoutMs);
}

void TestCursorCorrection::diagnosticCropIsWritten()
{
    QFile::remove(TavroVideo::borderCheckImagePath());
    QVERIFY(m_view->saveBlackBorderCheckImage());
    QImage crop(TavroVideo::borderCheckImagePath());
    QCOMPARE(crop.size(), QSize(256, 128));
    // The crop shows the border's corner: black.
    QVERIFY(qGray(crop.pixel(10, 10)) < 16);
}

int main(int argc, char **argv)
{
    qputenv("TAVROKVM_VCAM_DEVICES", "box:TKCORR01");
    qputenv("TAVROKVM_VCAM_BORDERS",
            QByteArray::number(kBorderLeft) + ',' + QByteArray::number(kBorderTop));
    // The measured frame and the crop go under a private application data folder.
    QTemporaryDir data;
    qputenv("XDG_DATA_HOME", data.path().toUtf8());
    QApplication app(argc, argv);
    TestCursorCorrection test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_cursorcorrection.moc"
