// The closed loop in simulation: keys and clicks given to the console view reach the simulated
// box, whose target computer's screen the virtual camera shows. The test reads the screen the
// camera draws (the box's published state, and the text edit cells in the painted picture).

#include <QApplication>
#include <QClipboard>
#include <QMouseEvent>
#include <QSignalSpy>
#include <QTest>

#include "serial/deviceuartmanager.h"
#include "serial/uartmanager.h"
#include "targetscreen.h"
#include "tests/support/consolewithbox.h"
#include "tests/support/fastlinkwatch.h"
#include "tests/support/typelikeakeyboard.h"
#include "vcamdesktop.h"

namespace {

constexpr char kCameraSerial[] = "TKLOOP01";
constexpr int kLinkTimeoutMs = 10000;
// The camera offers 1920x1080 at most.
constexpr int kFrameWidth = 1920;
constexpr int kFrameHeight = 1080;

QString targetsFolder()
{
    return QString::fromLocal8Bit(qgetenv("TAVROKVM_VCAM_TARGETS"));
}

QString screenFile()
{
    return targetsFolder() + '/' + kCameraSerial + ".screen";
}

} // namespace

class TestTargetLoop : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void typedTextShowsOnTheTarget();
    void clickLandsWhereThePictureShowsIt_data();
    void clickLandsWhereThePictureShowsIt();
    void nothingStaysHeld_data();
    void nothingStaysHeld();

private:
    targetscreen::State screen();
    // The text edit count that the painted picture shows; -1 when it cannot be read.
    int paintedEditCode();
    bool restartBox(const QStringList &arguments);
    bool linkConnected() const;
    bool refocusConsole();

    ConsoleWithBox m_console;
    TavroVideo *m_view = nullptr;
    targetscreen::Reader m_reader{screenFile().toStdString()};
    QStringList m_boxArguments;
};

void TestTargetLoop::initTestCase()
{
    QVERIFY(m_console.start({"--screen-file", screenFile()}));
    m_view = m_console.view();
    QCOMPARE(m_view->negotiatedResolution(), QSize(kFrameWidth, kFrameHeight));
    QTRY_VERIFY(!m_view->getActualVideoDisplayRect().isEmpty());
}

void TestTargetLoop::cleanupTestCase()
{
    m_console.stop();
}

targetscreen::State TestTargetLoop::screen()
{
    targetscreen::State state;
    if (!m_reader.read(state, 0))
        qWarning("the box's screen cannot be read");
    return state;
}

int TestTargetLoop::paintedEditCode()
{
    const targetscreen::State state = screen();
    const QImage painted = m_view->grab().toImage();
    const QRect shown = m_view->getActualVideoDisplayRect();
    int code = 0;
    for (int bit = 0; bit < vcam::kEditCodeBits; ++bit) {
        int x = 0;
        int y = 0;
        vcam::editCodeCellCentre(state, kFrameWidth, kFrameHeight, bit, x, y);
        const QPoint at(shown.left() + x * (shown.width() - 1) / (kFrameWidth - 1),
                        shown.top() + y * (shown.height() - 1) / (kFrameHeight - 1));
        const int grey = qGray(painted.pixel(at * painted.devicePixelRatio()));
        if (grey > 170)
            code |= 1 << bit;
        else if (grey >= 80)
            return -1;
    }
    return code;
}

bool TestTargetLoop::linkConnected() const
{
    DeviceUartManager *link =
        UartManager::instance()->getDeviceUartManager(m_view->getCurrentDeviceDid());
    return link && link->isConnected();
}

bool TestTargetLoop::restartBox(const QStringList &arguments)
{
    if (arguments == m_boxArguments)
        return true;
    m_boxArguments = arguments;
    if (!m_console.box().startReady(m_console.linkPath(),
                                    QStringList{"--screen-file", screenFile()} + arguments))
        return false;
    return QTest::qWaitFor([this] { return linkConnected(); }, kLinkTimeoutMs);
}

bool TestTargetLoop::refocusConsole()
{
    m_console.window()->activateWindow();
    if (!QTest::qWaitForWindowActive(m_console.window()))
        return false;
    m_view->setFocus();
    return QTest::qWaitFor([this] { return m_view->isAppReallyInForeground(); });
}

void TestTargetLoop::typedTextShowsOnTheTarget()
{
    const quint32 editsBefore = screen().textEdits;
    typeLikeAKeyboard(m_view, QStringLiteral("The quick brown fox"));
    QTRY_COMPARE(QString::fromStdString(screen().textString()),
                 QStringLiteral("The quick brown fox"));
    QCOMPARE(screen().textEdits, editsBefore + 19);
    QCOMPARE(screen().heldKeys, 0u);
    // The picture on the console's screen shows that text, not an older one.
    QTRY_COMPARE(paintedEditCode(), int(screen().textEdits & 0xFFFF));

    // Backspace, Return and Tab act on the target's text.
    QTest::keyClick(m_view, Qt::Key_Backspace);
    QTest::keyClick(m_view, Qt::Key_Return);
    QTest::keyClick(m_view, Qt::Key_Tab);
    typeLikeAKeyboard(m_view, QStringLiteral("jumps"));
    QTRY_COMPARE(QString::fromStdString(screen().textString()),
                 QStringLiteral("The quick brown fo\n\tjumps"));
    QTRY_COMPARE(paintedEditCode(), int(screen().textEdits & 0xFFFF));
}

void TestTargetLoop::clickLandsWhereThePictureShowsIt_data()
{
    QTest::addColumn<QStringList>("boxArguments");
    QTest::addColumn<bool>("correction");
    QTest::addColumn<QSize>("window");
    QTest::addColumn<int>("borderColumns"); // what the console must measure

    // Rows that share a box follow each other: the box restarts only between them.
    const QStringList plain;
    QTest::newRow("full frame, 1280x800 window") << plain << false << QSize(1280, 800) << 0;
    QTest::newRow("full frame, tall 900x900 window") << plain << false << QSize(900, 900) << 0;
    QTest::newRow("full frame, wide 1800x700 window") << plain << false << QSize(1800, 700) << 0;
    QTest::newRow("full frame, correction on") << plain << true << QSize(1280, 800) << 0;
    const QStringList small{"--screen", "1280x720"};
    QTest::newRow("720p target in the frame, 1100x760 window")
        << small << false << QSize(1100, 760) << 0;
    // A 4:3 target inside the 16:9 frame: only with cursor correction do clicks land.
    const QStringList fourByThree{"--screen", "1024x768", "--borders", "4:3"};
    QTest::newRow("4:3 in borders, correction on, 1280x800 window")
        << fourByThree << true << QSize(1280, 800) << 240;
    QTest::newRow("4:3 in borders, correction on, 1600x1000 window")
        << fourByThree << true << QSize(1600, 1000) << 240;
}

void TestTargetLoop::clickLandsWhereThePictureShowsIt()
{
    QFETCH(QStringList, boxArguments);
    QFETCH(bool, correction);
    QFETCH(QSize, window);
    QFETCH(int, borderColumns);

    QVERIFY(restartBox(boxArguments));
    QVERIFY(refocusConsole());
    m_console.window()->resize(window);
    // The camera shows the box's screen before the borders are measured.
    const QString expectedSize = boxArguments.contains("--screen")
                                     ? boxArguments.at(boxArguments.indexOf("--screen") + 1)
                                     : QStringLiteral("1920x1080");
    QTRY_COMPARE(QStringLiteral("%1x%2").arg(screen().width).arg(screen().height), expectedSize);
    QTest::qWait(300);
    m_view->setCursorCorrectionEnabled(false);
    m_view->setCursorCorrectionEnabled(correction);
    QTRY_COMPARE_WITH_TIMEOUT(m_view->blackBorderInfo().left, borderColumns, 15000);

    // The picture is letterboxed into the view: its aspect kept, centred.
    QSize fitted(kFrameWidth, kFrameHeight);
    fitted.scale(m_view->size(), Qt::KeepAspectRatio);
    const QRect letterbox(
        QPoint((m_view->width() - fitted.width()) / 2, (m_view->height() - fitted.height()) / 2),
        fitted);
    QTRY_VERIFY2(qAbs(m_view->getActualVideoDisplayRect().left() - letterbox.left()) <= 1 &&
                     qAbs(m_view->getActualVideoDisplayRect().top() - letterbox.top()) <= 1 &&
                     qAbs(m_view->getActualVideoDisplayRect().width() - letterbox.width()) <= 1 &&
                     qAbs(m_view->getActualVideoDisplayRect().height() - letterbox.height()) <= 1,
                 qPrintable(QStringLiteral("shown %1,%2 %3x%4, letterbox %5,%6 %7x%8")
                                .arg(m_view->getActualVideoDisplayRect().left())
                                .arg(m_view->getActualVideoDisplayRect().top())
                                .arg(m_view->getActualVideoDisplayRect().width())
                                .arg(m_view->getActualVideoDisplayRect().height())
                                .arg(letterbox.left())
                                .arg(letterbox.top())
                                .arg(letterbox.width())
                                .arg(letterbox.height())));
    const QRect shown = m_view->getActualVideoDisplayRect();

    const targetscreen::State state = screen();
    const targetscreen::Rect inner = targetscreen::innerRect(state, kFrameWidth, kFrameHeight);
    const int targetWidth = int(state.width);
    const int targetHeight = int(state.height);
    const QList<QPoint> targets = {{40, 40},
                                   {targetWidth / 2, targetHeight / 2},
                                   {targetWidth / 3, targetHeight * 2 / 3},
                                   {targetWidth - 41, targetHeight - 41}};
    for (const QPoint target : targets) {
        // The view's pixel that shows this target pixel...
        const double frameX = inner.x + (target.x() + 0.5) * inner.width / targetWidth;
        const double frameY = inner.y + (target.y() + 0.5) * inner.height / targetHeight;
        const QPoint at(shown.left() + qRound(frameX * (shown.width() - 1) / (kFrameWidth - 1)),
                        shown.top() + qRound(frameY * (shown.height() - 1) / (kFrameHeight - 1)));
        // ...and the target pixel that the letterbox mapping gives for that view pixel: the
        // picture's first and last pixels are the frame's, the borders are not the target's.
        const double mappedX =
            (at.x() - shown.left()) * double(kFrameWidth - 1) / (shown.width() - 1);
        const double mappedY =
            (at.y() - shown.top()) * double(kFrameHeight - 1) / (shown.height() - 1);
        const double expectedX = (mappedX - inner.x) * targetWidth / inner.width;
        const double expectedY = (mappedY - inner.y) * targetHeight / inner.height;

        const quint32 clicksBefore = screen().clicks;
        for (auto [type, held] : {std::pair{QEvent::MouseButtonPress, Qt::LeftButton},
                                  std::pair{QEvent::MouseButtonRelease, Qt::NoButton}}) {
            QMouseEvent event(type, at, m_view->mapToGlobal(at), Qt::LeftButton, held,
                              Qt::NoModifier);
            QApplication::sendEvent(m_view, &event);
        }
        QTRY_COMPARE(screen().clicks, clicksBefore + 1);
        QTRY_COMPARE(screen().buttons, 0u); // the release follows the press
        const targetscreen::State after = screen();
        const QString where = QStringLiteral("target %1,%2: cursor %3,%4, expected %5,%6")
                                  .arg(target.x())
                                  .arg(target.y())
                                  .arg(after.clickX)
                                  .arg(after.clickY)
                                  .arg(expectedX, 0, 'f', 1)
                                  .arg(expectedY, 0, 'f', 1);
        QVERIFY2(qAbs(after.clickX - expectedX) <= 1.0 && qAbs(after.clickY - expectedY) <= 1.0,
                 qPrintable(where));
        QVERIFY2(qAbs(after.clickX - target.x()) <= 2 && qAbs(after.clickY - target.y()) <= 2,
                 qPrintable(where));
    }
}

void TestTargetLoop::nothingStaysHeld_data()
{
    QTest::addColumn<QString>("cause");
    QTest::newRow("focus goes to another window") << "focus";
    QTest::newRow("a paste") << "paste";
    QTest::newRow("the link drops and comes back") << "link";
}

void TestTargetLoop::nothingStaysHeld()
{
    QFETCH(QString, cause);
    QVERIFY(restartBox({}));
    QVERIFY(refocusConsole());

    if (cause == QLatin1String("paste")) {
        QGuiApplication::clipboard()->setText(QStringLiteral("Paste: OK! ~_+{}\n"));
        const QString before = QString::fromStdString(screen().textString());
        m_view->pasteTextAsKeyEvents();
        QTRY_COMPARE(QString::fromStdString(screen().textString()),
                     before + QStringLiteral("Paste: OK! ~_+{}\n"));
        QTRY_VERIFY(!m_view->isPasting()); // the last key's release leaves an interval later
        QTRY_COMPARE(screen().heldKeys, 0u);
        return;
    }

    // Shift+K held, and the left button in a drag.
    QTest::keyPress(m_view, Qt::Key_Shift, Qt::ShiftModifier);
    QTest::keyPress(m_view, Qt::Key_K, Qt::ShiftModifier);
    const QPoint at = m_view->getActualVideoDisplayRect().center();
    QMouseEvent press(QEvent::MouseButtonPress, at, m_view->mapToGlobal(at), Qt::LeftButton,
                      Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(m_view, &press);
    QTRY_COMPARE(screen().heldKeys, 2u);
    QTRY_COMPARE(screen().buttons, 1u);

    if (cause == QLatin1String("focus")) {
        // Another window of the operator's takes the keyboard: its key releases never reach
        // the view.
        QWidget other;
        other.resize(200, 100);
        other.show();
        other.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&other));
        QTRY_COMPARE(screen().heldKeys, 0u);
        QTRY_COMPARE(screen().buttons, 0u);
        return;
    }

    // The controller stops answering: the console loses the link and reopens it.
    const FastLinkWatch watch(m_view);
    QVERIFY(watch.reopened());
    DeviceUartManager *link = watch.link();
    QSignalSpy lost(link, &DeviceUartManager::linkLost);
    QVERIFY(m_console.box().toggleReplies());
    QVERIFY(lost.wait(kLinkTimeoutMs));
    QVERIFY(m_console.box().toggleReplies());
    QTRY_VERIFY_WITH_TIMEOUT(link->isConnected(), kLinkTimeoutMs);
    QTRY_COMPARE(screen().heldKeys, 0u);
    QTRY_COMPARE(screen().buttons, 0u);

    QMouseEvent release(QEvent::MouseButtonRelease, at, m_view->mapToGlobal(at), Qt::LeftButton,
                        Qt::NoButton, Qt::NoModifier);
    QApplication::sendEvent(m_view, &release);
    QTest::keyRelease(m_view, Qt::Key_K, Qt::ShiftModifier);
    QTest::keyRelease(m_view, Qt::Key_Shift, Qt::NoModifier);
    QCOMPARE(screen().heldKeys, 0u);
}

int main(int argc, char **argv)
{
    qputenv("TAVROKVM_VCAM_DEVICES", QByteArray("box2131:") + kCameraSerial);
    // The camera reads the box's screen from here; each run has its own.
    QTemporaryDir targets;
    qputenv("TAVROKVM_VCAM_TARGETS", QFile::encodeName(targets.path()));
    QTemporaryDir data;
    qputenv("XDG_DATA_HOME", QFile::encodeName(data.path()));
    QApplication app(argc, argv);
    TestTargetLoop test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_targetloop.moc"
