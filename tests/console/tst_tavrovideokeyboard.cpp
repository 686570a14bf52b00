// Keys typed into the console view reach the simulated target as text: the whole road from the
// key event through the encoder and the serial link to the box's decoder.

#include <QApplication>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include "tests/support/consolewithbox.h"

namespace {

// Presses and releases keys as a US keyboard would for `text`: Shift around capitals and the
// shifted punctuation, one key event per key.
void typeLikeAKeyboard(QWidget *widget, const QString &text)
{
    static const QString shiftedPunctuation = QStringLiteral("!@#$%^&*()_+{}|:\"<>?~");
    for (const QChar c : text) {
        const bool shifted = c.isUpper() || shiftedPunctuation.contains(c);
        const Qt::KeyboardModifiers modifiers = shifted ? Qt::ShiftModifier : Qt::NoModifier;
        if (shifted)
            QTest::keyPress(widget, Qt::Key_Shift, Qt::ShiftModifier);
        const int key = c.isLetter() ? Qt::Key_A + (c.toUpper().unicode() - 'A') : c.unicode();
        QTest::keyClick(widget, Qt::Key(key), modifiers);
        if (shifted)
            QTest::keyRelease(widget, Qt::Key_Shift, Qt::NoModifier);
    }
}

} // namespace

class TestTavroVideoKeyboard : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();

    void typedTextArrivesAsText();
    void autoRepeatSendsNothing();
    void backgroundSendsNothing();
    void refusedKeyPutsNoBytesOnTheLine();
    void protocolSwitch();

private:
    BoxSimProcess &box() { return m_console.box(); }

    ConsoleWithBox m_console;
    TavroVideo *m_view = nullptr;
};

void TestTavroVideoKeyboard::initTestCase()
{
    QVERIFY(m_console.start());
    m_view = m_console.view();
}

void TestTavroVideoKeyboard::cleanupTestCase()
{
    m_console.stop();
}

void TestTavroVideoKeyboard::typedTextArrivesAsText()
{
    typeLikeAKeyboard(m_view, QStringLiteral("Hello, World!"));
    QString typed;
    for (;;) {
        const QJsonObject event = box().next("text");
        if (event.isEmpty())
            break;
        typed = event.value("text").toString();
        if (typed.endsWith('!'))
            break;
    }
    QCOMPARE(typed, QStringLiteral("Hello, World!"));
}

void TestTavroVideoKeyboard::autoRepeatSendsNothing()
{
    QKeyEvent first(QEvent::KeyPress, Qt::Key_X, Qt::NoModifier, "x", false);
    QKeyEvent repeat(QEvent::KeyPress, Qt::Key_X, Qt::NoModifier, "x", true);
    QKeyEvent release(QEvent::KeyRelease, Qt::Key_X, Qt::NoModifier, "x", false);
    QApplication::sendEvent(m_view, &first);
    for (int i = 0; i < 5; ++i)
        QApplication::sendEvent(m_view, &repeat);
    QApplication::sendEvent(m_view, &release);
    // One press and one release reach the target: "x" is typed once.
    QJsonObject event;
    QString typed;
    while (!(event = box().next("text")).isEmpty()) {
        typed = event.value("text").toString();
        if (typed.endsWith('x'))
            break;
    }
    QVERIFY2(typed.endsWith("!x"), qPrintable(typed));
}

void TestTavroVideoKeyboard::backgroundSendsNothing()
{
    const int before = box().namesSeen().count("key_down");
    QFocusEvent out(QEvent::FocusOut, Qt::ActiveWindowFocusReason);
    QApplication::sendEvent(m_view, &out); // the view now counts as in the background
    QVERIFY(!m_view->isAppReallyInForeground());
    QVERIFY(!m_view->sendKeyValue(Qt::Key_Y, 0));
    QKeyEvent press(QEvent::KeyPress, Qt::Key_Y, Qt::NoModifier, "y");
    QApplication::sendEvent(m_view, &press);
    QTest::qWait(300);
    QCOMPARE(box().namesSeen().count("key_down"), before);

    QFocusEvent in(QEvent::FocusIn, Qt::ActiveWindowFocusReason);
    QApplication::sendEvent(m_view, &in);
    QVERIFY(m_view->isAppReallyInForeground());
}

void TestTavroVideoKeyboard::refusedKeyPutsNoBytesOnTheLine()
{
    const int before = box().namesSeen().size();
    // The encoder writes no keyboard frames for the vendor protocol: the key is dropped with the
    // encoder's code and nothing is written.
    m_view->setUartProtocol(1);
    QTest::ignoreMessage(QtDebugMsg,
                         QRegularExpression("^\\[UART\\] 键值转换失败 - keyVal: 90 \\(0x5a\\) "
                                            "action: PRESS protocol: 1 错误码: -3$"));
    QVERIFY(!m_view->sendKeyValue(Qt::Key_Z, 0));
    m_view->setUartProtocol(0);
    QTest::qWait(300);
    QCOMPARE(box().namesSeen().size(), before);
}

void TestTavroVideoKeyboard::protocolSwitch()
{
    QSignalSpy status(m_view, &TavroVideo::statusBarMessageRequested);
    m_view->setUartProtocol(2);
    QCOMPARE(m_view->uartProtocol(), 0);
    QCOMPARE(status.count(), 0);
    m_view->setUartProtocol(1);
    QCOMPARE(m_view->uartProtocol(), 1);
    QCOMPARE(status.takeFirst().at(0).toString(), QStringLiteral("UART 协议: TavroKVM (TK)"));
    m_view->setUartProtocol(0);
    QCOMPARE(status.takeFirst().at(0).toString(), QStringLiteral("UART 协议: CH9329"));
}

int main(int argc, char **argv)
{
    qputenv("TAVROKVM_VCAM_DEVICES", "box:TKKEYS01");
    QApplication app(argc, argv);
    TestTavroVideoKeyboard test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_tavrovideokeyboard.moc"
