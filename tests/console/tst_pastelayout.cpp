// Paste against a simulated target with a German layout that reads its keyboard every 8 ms, as
// real targets do: the paced paste arrives character for character, an unpaced one loses
// characters, and a cancelled one stops at once with every key up.

#include <QApplication>
#include <QCameraDevice>
#include <QClipboard>
#include <QEventLoop>
#include <QMediaDevices>
#include <QMouseEvent>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include "console/input/pasteplan.h"
#include "db/dbmanager.h"
#include "serial/deviceuartmanager.h"
#include "serial/uartmanager.h"
#include "targetscreen.h"
#include "tests/support/consolewithbox.h"
#include "tests/support/tavrovideotestaccess.h"

namespace {

constexpr char kCameraSerial[] = "TKPASTE1";
constexpr int kPasteTimeoutMs = 120000;

QString screenFile()
{
    return QString::fromLocal8Bit(qgetenv("TAVROKVM_VCAM_TARGETS")) + '/' + kCameraSerial +
           ".screen";
}

// 2000 characters: every printable ASCII character in turn, a line break after every 60 and a
// tab after every 97.
QString everyPrintableCharacter()
{
    QString text;
    int next = 0;
    while (text.size() < 2000) {
        if (text.size() % 61 == 60)
            text += '\n';
        else if (text.size() % 98 == 97)
            text += '\t';
        else
            text += QChar(0x20 + next++ % 95);
    }
    return text;
}

// Where two texts part, for a readable failure: index, and a few characters of each from there.
QString whereTheyDiffer(const QString &got, const QString &wanted)
{
    int at = 0;
    while (at < got.size() && at < wanted.size() && got.at(at) == wanted.at(at))
        ++at;
    if (at == got.size() && at == wanted.size())
        return QString();
    return QStringLiteral("from character %1 (of %2, wanted %3): got \"%4\", wanted \"%5\"")
        .arg(at)
        .arg(got.size())
        .arg(wanted.size())
        .arg(got.mid(at, 12), wanted.mid(at, 12));
}

} // namespace

class TestPasteLayout : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void pacedPasteArrivesExactly();
    void unpacedPasteLosesCharacters();
    void cancelStopsTypingAndReleasesEverything();

private:
    targetscreen::State screen();
    QString targetText() { return QString::fromStdString(screen().textString()); }
    // Clears the target's text with Backspace until it is empty.
    void clearTargetText();

    ConsoleWithBox m_console;
    TavroVideo *m_view = nullptr;
    targetscreen::Reader m_reader{screenFile().toStdString()};
};

void TestPasteLayout::initTestCase()
{
    QVERIFY(
        m_console.start({"--screen-file", screenFile(), "--layout", "de", "--hid-poll-ms", "8"}));
    m_view = m_console.view();
    // Paste needs no picture: a small raw format keeps the camera from competing with the box
    // for the processor, so that the reports reach it when they are sent.
    QCameraFormat small;
    for (const QCameraDevice &device : QMediaDevices::videoInputs()) {
        for (const QCameraFormat &format : device.videoFormats()) {
            if (format.resolution() == QSize(640, 480) &&
                format.pixelFormat() == QVideoFrameFormat::Format_YUYV)
                small = format;
        }
    }
    QVERIFY(!small.isNull());
    QVERIFY(TavroVideoTestAccess::restartCameraInFormat(*m_view, small));
    const QString did = m_view->getCurrentDeviceDid();
    QCOMPARE(DBManager::instance()->getDeviceByDid(did).value("keyboard_layout").toString(),
             QStringLiteral("us"));
    QVERIFY(DBManager::instance()->setDeviceKeyboardLayout(did, QStringLiteral("de")));
}

void TestPasteLayout::cleanupTestCase()
{
    m_console.stop();
}

void TestPasteLayout::init()
{
    QVERIFY(DBManager::instance()->setDevicePasteInterval(m_view->getCurrentDeviceDid(),
                                                          kDefaultPasteIntervalMs));
    clearTargetText();
}

targetscreen::State TestPasteLayout::screen()
{
    targetscreen::State state;
    if (!m_reader.read(state, 0))
        qWarning("the box's screen cannot be read");
    return state;
}

void TestPasteLayout::clearTargetText()
{
    // A fresh box is quicker than thousands of Backspaces.
    if (targetText().isEmpty())
        return;
    QVERIFY(
        m_console.box().startReady(m_console.linkPath(), {"--screen-file", screenFile(), "--layout",
                                                          "de", "--hid-poll-ms", "8"}));
    QTRY_VERIFY_WITH_TIMEOUT(targetText().isEmpty(), 10000);
    // The console finds the box again and greets it.
    QVERIFY(!m_console.box().next(QStringLiteral("hello")).isEmpty());
    DeviceUartManager *link =
        UartManager::instance()->getDeviceUartManager(m_view->getCurrentDeviceDid());
    QTRY_VERIFY_WITH_TIMEOUT(link && link->isConnected(), 10000);
}

void TestPasteLayout::pacedPasteArrivesExactly()
{
    const QString text = everyPrintableCharacter();
    QCOMPARE(text.size(), 2000);
    QGuiApplication::clipboard()->setText(text);
    QSignalSpy progress(m_view, &TavroVideo::statusBarMessageRequested);
    const qsizetype eventsBefore = m_console.box().events().size();
    m_view->pasteTextAsKeyEvents();
    QVERIFY(m_view->isPasting());

    // While it types, the mouse still reaches the target and the operator's own key waits.
    QTRY_VERIFY(targetText().size() >= 50);
    const QPoint at = m_view->getActualVideoDisplayRect().center();
    QMouseEvent move(QEvent::MouseMove, at, m_view->mapToGlobal(at), Qt::NoButton, Qt::NoButton,
                     Qt::NoModifier);
    QApplication::sendEvent(m_view, &move);
    QTRY_VERIFY(screen().cursorX > 0);
    QVERIFY(m_view->isPasting());
    QTest::keyClick(m_view, Qt::Key_7);

    // An event loop, not QTRY's polling (which sleeps between looks and so holds back the
    // paste's timer): the paste runs at its own pace.
    QEventLoop untilDone;
    connect(m_view, &TavroVideo::statusBarMessageRequested, &untilDone, [&] {
        if (!m_view->isPasting())
            untilDone.quit();
    });
    QTimer::singleShot(kPasteTimeoutMs, &untilDone, &QEventLoop::quit);
    untilDone.exec();
    QVERIFY(!m_view->isPasting());
    QTRY_COMPARE(whereTheyDiffer(targetText(), text + "7"), QString());
    QTRY_COMPARE(screen().heldKeys, 0u); // the 7's release follows its press an interval later
    // One report lets go of every key before the first character, not two in a row.
    QStringList firstReports;
    for (const QJsonObject &event : m_console.box().events().mid(eventsBefore)) {
        if (event.value("event").toString() == QLatin1String("frame") &&
            event.value("kind").toString() == QLatin1String("keyboard") && firstReports.size() < 2)
            firstReports << event.value("hex").toString();
    }
    QCOMPARE(firstReports, (QStringList{"57 AB 00 02 08 00 00 00 00 00 00 00 00 0C",
                                        "57 AB 00 02 08 00 00 2C 00 00 00 00 00 38"}));
    QCOMPARE(m_console.box().namesSeen().count(QStringLiteral("report_lost")), 0);
    QCOMPARE(progress.last().first().toString(), QStringLiteral("2000 / 2000"));
    QVERIFY(progress.size() > 100); // "n / N" as it goes
}

void TestPasteLayout::unpacedPasteLosesCharacters()
{
    QVERIFY(DBManager::instance()->setDevicePasteInterval(m_view->getCurrentDeviceDid(), 0));
    const QString text = QString("abcdefghij").repeated(50);
    QGuiApplication::clipboard()->setText(text);
    m_view->pasteTextAsKeyEvents();
    QVERIFY(!m_view->isPasting()); // typed at once
    QTest::qWait(500);
    // Reports replaced before the target read them never typed anything.
    const int arrived = targetText().size();
    QVERIFY2(arrived < text.size() / 2, qPrintable(QString::number(arrived)));
    QVERIFY(m_console.box().namesSeen().count(QStringLiteral("report_lost")) > text.size());
}

void TestPasteLayout::cancelStopsTypingAndReleasesEverything()
{
    QGuiApplication::clipboard()->setText(everyPrintableCharacter());
    QString lastProgress;
    // Escape as the hundredth character has left.
    const QMetaObject::Connection cancelAtHundred =
        connect(m_view, &TavroVideo::statusBarMessageRequested, this, [&](const QString &text) {
            lastProgress = text;
            if (text == QLatin1String("100 / 2000"))
                QTest::keyClick(m_view, Qt::Key_Escape);
        });
    m_view->pasteTextAsKeyEvents();
    QTRY_VERIFY_WITH_TIMEOUT(!m_view->isPasting(), 20000);
    disconnect(cancelAtHundred);
    QTest::qWait(100);
    const QString typed = targetText();
    // The hundred characters sent, no more (exact arrival is the paced test's to show).
    QVERIFY2(typed.size() <= 100 && typed.size() > 90, qPrintable(QString::number(typed.size())));
    QTest::qWait(300);
    QCOMPARE(targetText(), typed); // nothing more arrives
    QCOMPARE(screen().heldKeys, 0u);
    QVERIFY2(lastProgress.endsWith(QStringLiteral("100 / 2000")), qPrintable(lastProgress));

    // The toolbar's entry cancels as well.
    m_view->pasteTextAsKeyEvents();
    QVERIFY(m_view->isPasting());
    m_view->pasteTextAsKeyEvents();
    QVERIFY(!m_view->isPasting());
    QTest::qWait(100);
    QCOMPARE(screen().heldKeys, 0u);
}

int main(int argc, char **argv)
{
    qputenv("TAVROKVM_VCAM_DEVICES", QByteArray("box2131:") + kCameraSerial);
    QTemporaryDir targets;
    qputenv("TAVROKVM_VCAM_TARGETS", QFile::encodeName(targets.path()));
    QApplication app(argc, argv);
    TestPasteLayout test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_pastelayout.moc"
