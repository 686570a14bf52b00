// Keys typed into the console view reach the simulated target as text: the whole road from the
// key event through the encoder and the serial link to the box's decoder.

#include <QApplication>
#include <QClipboard>
#include <QElapsedTimer>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTest>

#include "console/input/pasteplan.h"
#include "console/input/systemkeyboardhook.h"
#include "db/dbmanager.h"
#include "serial/deviceuartmanager.h"
#include "serial/uartmanager.h"
#include "tests/support/consolewithbox.h"
#include "tests/support/fastlinkwatch.h"
#include "tests/support/typelikeakeyboard.h"

namespace {

// One key event as the window system delivers it: X11 key codes as native scan codes and the
// server's time in milliseconds.
struct KeyStep
{
    bool press = true;
    int key = 0;
    int modifiers = Qt::NoModifier;
    quint32 scanCode = 0;
    QString text;
    quint64 timestamp = 0;
    bool autoRepeat = false;
};

void deliver(QWidget *widget, const QList<KeyStep> &steps)
{
    for (const KeyStep &step : steps) {
        QKeyEvent event(step.press ? QEvent::KeyPress : QEvent::KeyRelease, step.key,
                        Qt::KeyboardModifiers(step.modifiers), step.scanCode, 0, 0, step.text,
                        step.autoRepeat);
        event.setTimestamp(step.timestamp);
        QApplication::sendEvent(widget, &event);
    }
}

} // namespace

Q_DECLARE_METATYPE(QList<KeyStep>)

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
    void physicalControlIsTheTargetsControl();
    void focusLossReleasesHeldKeys();
    void escapeInFullScreen();
    void ctrlAltDelArrivesAsTheSixSteps();
    void softKeyboardTypesOnTheTarget();
    void namedKeysReachTheTarget_data();
    void namedKeysReachTheTarget();
    void pasteTypesTheClipboard_data();
    void pasteTypesTheClipboard();
    void pasteShortcutTypesTheClipboard();
    void pasteLogsAPreview();
    void tabReachesTheTargetNotTheFocusChain();
    void hookFollowsFocusAndLayout();
    void hookForwardsWhatTheTableSays();
    void applicationReturningRestoresTheHookOnce();
    void minimisingStopsTheHook();
    void reopenedLinkLeavesNothingHeld();
    void shiftHeldAcrossAHangUpLeavesNoModifier();
    void keypadAndSpecialKeysReachTheTarget_data();
    void keypadAndSpecialKeysReachTheTarget();
    void keysTheTargetLacksAreLoggedOnce();
    void releaseLetsGoOfWhatThePhysicalKeyPressed_data();
    void releaseLetsGoOfWhatThePhysicalKeyPressed();
    void heldKeyIsOnePressAndOneRelease_data();
    void heldKeyIsOnePressAndOneRelease();
    void shortcutTypedIntoAnotherWidgetReachesTheTarget();

private:
    void stepsReachTheTargetAndLeaveNothingHeld();
    BoxSimProcess &box() { return m_console.box(); }
    // The offscreen platform activates every window it shows, whatever its flags (an X11 window
    // manager leaves a window that takes no focus alone): gives the console its focus back.
    bool refocusConsole()
    {
        m_console.window()->activateWindow();
        if (!QTest::qWaitForWindowActive(m_console.window()))
            return false;
        m_view->setFocus();
        return QTest::qWaitFor([this] { return m_view->isAppReallyInForeground(); });
    }
    // The number of box events once the box has gone quiet: what earlier cases sent is counted.
    int quietEventCount();
    // The box's key events from index `from` on, as "key_down:K" texts.
    QStringList eventsSince(int from);
    // How many of them have arrived so far, without waiting.
    int keyEventCount(int from);
    QString lastTypedText();
    // What the target holds after every frame so far: key names, and the mouse buttons.
    QStringList targetKeysHeld();
    int targetButtonsHeld();

    ConsoleWithBox m_console;
    TavroVideo *m_view = nullptr;
};

void TestTavroVideoKeyboard::initTestCase()
{
    // No heartbeat requests between the cases' frames: the counts of box events stay exact.
    DeviceUartManager::WatchTiming quiet;
    quiet.heartbeatIntervalMs = 3600 * 1000;
    DeviceUartManager::setWatchTiming(quiet);
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

int TestTavroVideoKeyboard::quietEventCount()
{
    int count = box().events().size();
    for (;;) {
        QTest::qWait(100);
        const int now = box().events().size();
        if (now == count)
            return count;
        count = now;
    }
}

QStringList TestTavroVideoKeyboard::eventsSince(int from)
{
    QTest::qWait(300); // what was sent has reached the box
    QStringList out;
    const QList<QJsonObject> events = box().events();
    for (int i = from; i < events.size(); ++i) {
        const QJsonObject &event = events.at(i);
        const QString name = event.value("event").toString();
        if (name == QLatin1String("key_down") || name == QLatin1String("key_up"))
            out << name + ':' + event.value("key").toString();
    }
    return out;
}

int TestTavroVideoKeyboard::keyEventCount(int from)
{
    const QList<QJsonObject> events = box().events();
    int count = 0;
    for (int i = from; i < events.size(); ++i) {
        const QString name = events.at(i).value("event").toString();
        count += name == QLatin1String("key_down") || name == QLatin1String("key_up");
    }
    return count;
}

QString TestTavroVideoKeyboard::lastTypedText()
{
    QTest::qWait(300);
    QString typed;
    for (const QJsonObject &event : box().events()) {
        if (event.value("event").toString() == QLatin1String("text"))
            typed = event.value("text").toString();
    }
    return typed;
}

QStringList TestTavroVideoKeyboard::targetKeysHeld()
{
    QStringList held;
    for (const QJsonObject &event : box().events()) {
        const QString name = event.value("event").toString();
        if (name == QLatin1String("key_down"))
            held << event.value("key").toString();
        else if (name == QLatin1String("key_up"))
            held.removeAll(event.value("key").toString());
    }
    held.sort();
    return held;
}

int TestTavroVideoKeyboard::targetButtonsHeld()
{
    int buttons = 0;
    for (const QJsonObject &event : box().events()) {
        if (event.value("event").toString() == QLatin1String("mouse"))
            buttons = event.value("buttons").toInt();
    }
    return buttons;
}

void TestTavroVideoKeyboard::physicalControlIsTheTargetsControl()
{
    const int from = quietEventCount();
    QTest::keyPress(m_view, Qt::Key_Control, Qt::ControlModifier);
    QTest::keyRelease(m_view, Qt::Key_Control, Qt::NoModifier);
    QCOMPARE(eventsSince(from), QStringList({"key_down:LeftControl", "key_up:LeftControl"}));
}

void TestTavroVideoKeyboard::focusLossReleasesHeldKeys()
{
    const int from = quietEventCount();
    QTest::keyPress(m_view, Qt::Key_Shift, Qt::ShiftModifier);
    QTest::keyPress(m_view, Qt::Key_K, Qt::ShiftModifier);
    QCOMPARE(m_view->heldKeys(), QList<int>({Qt::Key_Shift, Qt::Key_K}));
    // A drag with the left button, too.
    QTRY_VERIFY(!m_view->getActualVideoDisplayRect().isEmpty());
    const QPoint at = m_view->getActualVideoDisplayRect().center();
    QMouseEvent press(QEvent::MouseButtonPress, at, m_view->mapToGlobal(at), Qt::LeftButton,
                      Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(m_view, &press);
    QTRY_COMPARE(targetButtonsHeld(), 1);
    // Another window takes the keyboard and the mouse; the releases go to it, never to the view.
    QFocusEvent out(QEvent::FocusOut, Qt::ActiveWindowFocusReason);
    QApplication::sendEvent(m_view, &out);
    QVERIFY(m_view->heldKeys().isEmpty());
    QCOMPARE(eventsSince(from),
             QStringList({"key_down:LeftShift", "key_down:K", "key_up:K", "key_up:LeftShift"}));
    QCOMPARE(targetButtonsHeld(), 0);
    QFocusEvent in(QEvent::FocusIn, Qt::ActiveWindowFocusReason);
    QApplication::sendEvent(m_view, &in);
}

void TestTavroVideoKeyboard::escapeInFullScreen()
{
    m_view->setFullScreenState(true);
    // With the link open, Escape belongs to the target.
    int from = quietEventCount();
    QTest::keyClick(m_view, Qt::Key_Escape);
    QCOMPARE(eventsSince(from), QStringList({"key_down:Escape", "key_up:Escape"}));

    // Without it, Escape stays with the console.
    DeviceUartManager *link =
        UartManager::instance()->getDeviceUartManager(m_view->getCurrentDeviceDid());
    const QString port = link->portName();
    const int baud = link->baudRate();
    m_view->closeSerialPort();
    from = quietEventCount();
    QTest::ignoreMessage(QtDebugMsg, "  ESC in fullscreen: Passing to base class.");
    QTest::keyClick(m_view, Qt::Key_Escape);
    QVERIFY(eventsSince(from).isEmpty());
    m_view->setFullScreenState(false);
    QVERIFY(m_view->openSerialPort(port, baud));
}

void TestTavroVideoKeyboard::ctrlAltDelArrivesAsTheSixSteps()
{
    const int from = quietEventCount();
    QElapsedTimer clock;
    clock.start();
    m_view->handleKeyboardInput(QStringLiteral("ctrl+alt+del"));
    QVERIFY(clock.elapsed() >= 60); // paced, not a burst
    QCOMPARE(eventsSince(from),
             QStringList({"key_down:LeftControl", "key_down:LeftAlt", "key_down:Delete",
                          "key_up:Delete", "key_up:LeftAlt", "key_up:LeftControl"}));
}

void TestTavroVideoKeyboard::softKeyboardTypesOnTheTarget()
{
    m_view->toggleKeyboard();
    NewSoftKeyboard *keyboard = m_view->softKeyboard();
    QVERIFY(keyboard);
    QVERIFY(keyboard->isVisible());
    QVERIFY(!keyboard->parentWidget()); // a stand-alone tool window once shown
    QVERIFY(keyboard->windowFlags() & Qt::WindowDoesNotAcceptFocus);
    QVERIFY(refocusConsole());
    auto key = [keyboard](const QString &text) {
        for (QPushButton *button : keyboard->findChildren<QPushButton *>()) {
            if (button->text() == text)
                return button;
        }
        return static_cast<QPushButton *>(nullptr);
    };

    int from = quietEventCount();
    QTest::mouseClick(key("CTRL+ALT+DEL"), Qt::LeftButton);
    QCOMPARE(eventsSince(from),
             QStringList({"key_down:LeftControl", "key_down:LeftAlt", "key_down:Delete",
                          "key_up:Delete", "key_up:LeftAlt", "key_up:LeftControl"}));
    from = quietEventCount();
    QTest::mouseClick(key("F5"), Qt::LeftButton);
    QTest::mouseClick(key(QString(QChar(0x2190))), Qt::LeftButton);
    QTest::mouseClick(key("Enter"), Qt::LeftButton);
    QTest::mouseClick(key("Backspace"), Qt::LeftButton);
    QTest::mouseClick(key("Tab"), Qt::LeftButton);
    QCOMPARE(eventsSince(from),
             QStringList({"key_down:F5", "key_up:F5", "key_down:Left", "key_up:Left",
                          "key_down:Enter", "key_up:Enter", "key_down:Backspace",
                          "key_up:Backspace", "key_down:Tab", "key_up:Tab"}));

    m_view->toggleKeyboard();
    QVERIFY(!keyboard->isVisible());
    m_view->toggleKeyboard();
    QCOMPARE(m_view->softKeyboard(), keyboard); // the same instance
    QVERIFY(keyboard->isVisible());
    m_view->toggleKeyboard();
    QVERIFY(refocusConsole());
}

void TestTavroVideoKeyboard::namedKeysReachTheTarget_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("events");

    QTest::newRow("F5") << "F5" << QStringList({"key_down:F5", "key_up:F5"});
    QTest::newRow("ESC") << "ESC" << QStringList({"key_down:Escape", "key_up:Escape"});
    QTest::newRow("UP_ARROW") << "UP_ARROW" << QStringList({"key_down:Up", "key_up:Up"});
    QTest::newRow("Enter") << "Enter" << QStringList({"key_down:Enter", "key_up:Enter"});
    QTest::newRow("fn+esc") << "fn+esc"
                            << QStringList({"key_down:LeftGUI", "key_down:Escape", "key_up:Escape",
                                            "key_up:LeftGUI"});
    QTest::newRow("unhandled CTRL+ALT+DEL") << "CTRL+ALT+DEL" << QStringList();
    QTest::newRow("unhandled POWER") << "POWER" << QStringList();
}

void TestTavroVideoKeyboard::namedKeysReachTheTarget()
{
    QFETCH(QString, name);
    QFETCH(QStringList, events);
    const int from = quietEventCount();
    m_view->handleKeyboardInput(name);
    QCOMPARE(eventsSince(from), events);
}

void TestTavroVideoKeyboard::pasteTypesTheClipboard_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("events");
    QTest::addColumn<QString>("typed");

    QTest::newRow("a, B and 1") << "aB1"
                                << QStringList({"key_down:A", "key_up:A", "key_down:LeftShift",
                                                "key_down:B", "key_up:B", "key_up:LeftShift",
                                                "key_down:1", "key_up:1"})
                                << "aB1";
    // A surrogate pair is two units, both skipped; so are the tab and the e acute.
    QTest::newRow("what cannot be typed is skipped")
        << QStringLiteral("x\ty\u00e9z") + QString::fromUcs4(U"\U0001F600")
        << QStringList(
               {"key_down:X", "key_up:X", "key_down:Y", "key_up:Y", "key_down:Z", "key_up:Z"})
        << "xyz";
    QTest::newRow("minus is not typed") << "-" << QStringList() << "";
    QTest::newRow("shifted punctuation")
        << "~?"
        << QStringList({"key_down:LeftShift", "key_down:Grave", "key_up:Grave", "key_up:LeftShift",
                        "key_down:LeftShift", "key_down:Slash", "key_up:Slash", "key_up:LeftShift"})
        << "~?";
    QTest::newRow("line feed is Shift+Return")
        << "\n"
        << QStringList({"key_down:LeftShift", "key_down:Enter", "key_up:Enter", "key_up:LeftShift"})
        << "\n";
}

void TestTavroVideoKeyboard::pasteTypesTheClipboard()
{
    QFETCH(QString, text);
    QFETCH(QStringList, events);
    QFETCH(QString, typed);
    // The rows are the unpaced path's (an interval of 0): every character at once, US keys
    // through the encoder. The paced path on other layouts is tst_pastelayout's.
    const QString did = m_view->getCurrentDeviceDid();
    QVERIFY(DBManager::instance()->setDevicePasteInterval(did, 0));
    const auto paced = qScopeGuard(
        [did] { DBManager::instance()->setDevicePasteInterval(did, kDefaultPasteIntervalMs); });
    const QString before = lastTypedText();
    QGuiApplication::clipboard()->setText(text);
    const int from = quietEventCount();
    m_view->pasteTextAsKeyEvents();
    QCOMPARE(eventsSince(from), events);
    QCOMPARE(lastTypedText(), before + typed);
    QVERIFY(m_view->heldKeys().isEmpty());
}

void TestTavroVideoKeyboard::pasteShortcutTypesTheClipboard()
{
    QGuiApplication::clipboard()->setText(QStringLiteral("Paste: OK!"));
    QTest::keyClick(m_view, Qt::Key_V, Qt::ControlModifier | Qt::AltModifier);
    QVERIFY(m_view->isPasting());
    QTRY_VERIFY(!m_view->isPasting());
    QVERIFY2(lastTypedText().endsWith(QStringLiteral("Paste: OK!")), qPrintable(lastTypedText()));
    QVERIFY(targetKeysHeld().isEmpty());
}

void TestTavroVideoKeyboard::pasteLogsAPreview()
{
    const QString did = m_view->getCurrentDeviceDid();
    QVERIFY(DBManager::instance()->setDevicePasteInterval(did, 0));
    const auto paced = qScopeGuard(
        [did] { DBManager::instance()->setDevicePasteInterval(did, kDefaultPasteIntervalMs); });
    const QString text = QString(150, QLatin1Char('z'));
    QGuiApplication::clipboard()->setText(text);
    QTest::ignoreMessage(
        QtDebugMsg,
        qPrintable(QStringLiteral("[key_pass] 开始模拟粘贴文本，长度: 150 , 内容预览: ") +
                   text.left(100)));
    m_view->pasteTextAsKeyEvents();

    QGuiApplication::clipboard()->clear();
    QTest::ignoreMessage(QtDebugMsg, "[key_pass] 剪贴板为空，跳过粘贴");
    m_view->pasteTextAsKeyEvents();
}

namespace {

// Counts the log lines that contain a text while it lives; every line still reaches the test log.
class LogCounter
{
public:
    explicit LogCounter(const char *text)
    {
        s_text = text;
        s_count = 0;
        s_previous = qInstallMessageHandler(&LogCounter::handle);
    }
    ~LogCounter() { qInstallMessageHandler(s_previous); }
    int count() const { return s_count; }

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        if (message.contains(QString::fromUtf8(s_text)))
            ++s_count;
        s_previous(type, context, message);
    }
    static inline const char *s_text = nullptr;
    static inline int s_count = 0;
    static inline QtMessageHandler s_previous = nullptr;
};

constexpr const char *kHookStartLine = "[底层键盘钩子] 正在启动系统级键盘钩子...";

} // namespace

void TestTavroVideoKeyboard::tabReachesTheTargetNotTheFocusChain()
{
    // Another focusable widget in the window: Tab would move the focus to it.
    auto *other = new QLineEdit(m_console.window());
    other->show();
    const int from = quietEventCount();
    QTest::keyClick(m_view, Qt::Key_Tab);
    QTest::keyClick(m_view, Qt::Key_Backtab, Qt::ShiftModifier);
    QVERIFY(m_view->hasFocus());
    // Shift+Tab arrives as the Shift key around a Tab.
    QCOMPARE(eventsSince(from), QStringList({"key_down:Tab", "key_up:Tab", "key_down:LeftShift",
                                             "key_down:Tab", "key_up:Tab", "key_up:LeftShift"}));
    delete other;
}

void TestTavroVideoKeyboard::hookFollowsFocusAndLayout()
{
    QVERIFY(m_view->isKeyboardHookActive());
    QCOMPARE(keyboardHookOwner(), m_view);
    // Switching to the preview grid: the flag clears at once.
    m_view->stopKeyboardHookForLayoutSwitch();
    QVERIFY(!m_view->isKeyboardHookActive());

    QFocusEvent in(QEvent::FocusIn, Qt::ActiveWindowFocusReason);
    QApplication::sendEvent(m_view, &in);
    QVERIFY(m_view->isKeyboardHookActive());
    QFocusEvent out(QEvent::FocusOut, Qt::ActiveWindowFocusReason);
    QApplication::sendEvent(m_view, &out);
    QVERIFY(!m_view->isKeyboardHookActive());
    {
        LogCounter starts(kHookStartLine);
        QApplication::sendEvent(m_view, &in);
        QApplication::sendEvent(m_view, &in); // a second focus does not start a second hook
        QCOMPARE(starts.count(), 1);
    }
    QVERIFY(m_view->isKeyboardHookActive());
}

void TestTavroVideoKeyboard::hookForwardsWhatTheTableSays()
{
    QCOMPARE(keyboardHookOwner(), m_view);
    const int from = quietEventCount();
    // Control+Space: the Space goes to the target, the desktop never sees it.
    QVERIFY(keyboardEventCallback(HookEventType::KeyDown, kHookKeySpace, kHookFlagControl));
    QVERIFY(keyboardEventCallback(HookEventType::KeyUp, kHookKeySpace, kHookFlagControl));
    // Command+Space: swallowed, nothing sent.
    QVERIFY(keyboardEventCallback(HookEventType::KeyDown, kHookKeySpace, kHookFlagCommand));
    // Plain Tab in front.
    QVERIFY(keyboardEventCallback(HookEventType::KeyDown, kHookKeyTab, 0));
    QVERIFY(keyboardEventCallback(HookEventType::KeyUp, kHookKeyTab, 0));
    // Modifier changes and other keys pass.
    QVERIFY(!keyboardEventCallback(HookEventType::FlagsChanged, 0, kHookFlagControl));
    QVERIFY(!keyboardEventCallback(HookEventType::KeyDown, 0, 0));
    QCOMPARE(eventsSince(from),
             QStringList({"key_down:Space", "key_up:Space", "key_down:Tab", "key_up:Tab"}));
}

void TestTavroVideoKeyboard::applicationReturningRestoresTheHookOnce()
{
    LogCounter starts(kHookStartLine);
    emit qApp->applicationStateChanged(Qt::ApplicationInactive);
    QVERIFY(!m_view->isKeyboardHookActive());
    emit qApp->applicationStateChanged(Qt::ApplicationActive);
    QVERIFY(!m_view->isKeyboardHookActive()); // the camera permission dialog goes first
    QTRY_VERIFY(m_view->isKeyboardHookActive());
    QCOMPARE(starts.count(), 1);

    // Focus within the delay starts it at once; the delayed restart then does nothing.
    emit qApp->applicationStateChanged(Qt::ApplicationInactive);
    emit qApp->applicationStateChanged(Qt::ApplicationActive);
    QFocusEvent in(QEvent::FocusIn, Qt::ActiveWindowFocusReason);
    QApplication::sendEvent(m_view, &in);
    QVERIFY(m_view->isKeyboardHookActive());
    QTest::qWait(700);
    QCOMPARE(starts.count(), 2);
}

void TestTavroVideoKeyboard::minimisingStopsTheHook()
{
    QVERIFY(m_view->isKeyboardHookActive());
    QTest::ignoreMessage(QtDebugMsg, "[TavroVideo::changeEvent] 最小化时停止键盘钩子");
    m_console.window()->setWindowState(Qt::WindowMinimized);
    QVERIFY(!m_view->isKeyboardHookActive());
    QTest::ignoreMessage(QtDebugMsg, "[TavroVideo::changeEvent] 从最小化恢复时启动键盘钩子");
    m_console.window()->setWindowState(Qt::WindowNoState);
    QVERIFY(m_view->isKeyboardHookActive());
}

void TestTavroVideoKeyboard::reopenedLinkLeavesNothingHeld()
{
    QVERIFY(refocusConsole());
    const FastLinkWatch watch(m_view);
    QVERIFY(watch.reopened());
    DeviceUartManager *link = watch.link();
    QSignalSpy lost(link, &DeviceUartManager::linkLost);
    QSignalSpy opened(link, &DeviceUartManager::linkOpened);

    // Shift+K and the left button down on the target.
    QTest::keyPress(m_view, Qt::Key_Shift, Qt::ShiftModifier);
    QTest::keyPress(m_view, Qt::Key_K, Qt::ShiftModifier);
    QTRY_VERIFY(!m_view->getActualVideoDisplayRect().isEmpty());
    const QPoint at = m_view->getActualVideoDisplayRect().center();
    QMouseEvent press(QEvent::MouseButtonPress, at, m_view->mapToGlobal(at), Qt::LeftButton,
                      Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(m_view, &press);
    QTRY_COMPARE(targetKeysHeld(), QStringList({"K", "LeftShift"}));
    QTRY_COMPARE(targetButtonsHeld(), 1);

    // The box's controller stops answering: the link is lost and reopens by itself.
    QVERIFY(box().toggleReplies());
    QVERIFY(lost.wait(10000));
    QTRY_VERIFY_WITH_TIMEOUT(opened.size() >= 1, 10000);
    QVERIFY(box().toggleReplies());
    QTRY_VERIFY_WITH_TIMEOUT(link->isConnected(), 10000);

    // Whatever the target held before, it holds nothing now; nor does the view think it does.
    QTRY_COMPARE(targetKeysHeld(), QStringList());
    QTRY_COMPARE(targetButtonsHeld(), 0);
    QVERIFY(m_view->heldKeys().isEmpty());
    // The next key is alone in its report: Shift is not still in the encoder.
    const int from = quietEventCount();
    QTest::keyClick(m_view, Qt::Key_J);
    QCOMPARE(eventsSince(from), QStringList({"key_down:J", "key_up:J"}));
    QVERIFY(lastTypedText().endsWith('j'));

    QMouseEvent release(QEvent::MouseButtonRelease, at, m_view->mapToGlobal(at), Qt::LeftButton,
                        Qt::NoButton, Qt::NoModifier);
    QApplication::sendEvent(m_view, &release);
    QTest::keyRelease(m_view, Qt::Key_K, Qt::ShiftModifier);
    QTest::keyRelease(m_view, Qt::Key_Shift, Qt::NoModifier);
}

void TestTavroVideoKeyboard::shiftHeldAcrossAHangUpLeavesNoModifier()
{
    QVERIFY(refocusConsole());
    const DeviceUartManager::WatchTiming saved = DeviceUartManager::watchTiming();
    const auto restore = qScopeGuard([&] { DeviceUartManager::setWatchTiming(saved); });
    DeviceUartManager::WatchTiming fast;
    fast.heartbeatIntervalMs = 3600 * 1000;
    fast.reopenPollMs = 50;
    DeviceUartManager::setWatchTiming(fast);
    DeviceUartManager *link =
        UartManager::instance()->getDeviceUartManager(m_view->getCurrentDeviceDid());
    const QString port = link->portName();
    QSignalSpy lost(link, &DeviceUartManager::linkLost);
    QSignalSpy opened(link, &DeviceUartManager::linkOpened);

    QTest::keyPress(m_view, Qt::Key_Shift, Qt::ShiftModifier);
    QTRY_COMPARE(targetKeysHeld(), QStringList({"LeftShift"}));

    // The box hangs up; Shift goes up while its link is down.
    box().stop();
    QTRY_VERIFY_WITH_TIMEOUT(lost.size() == 1, 10000);
    QTest::keyRelease(m_view, Qt::Key_Shift, Qt::NoModifier);
    // The release could not be sent, yet Shift is up: the view does not count it as held.
    QVERIFY(m_view->heldKeys().isEmpty());
    QVERIFY(box().startReady(port));
    QTRY_VERIFY_WITH_TIMEOUT(opened.size() >= 1 && link->isConnected(), 10000);
    QVERIFY(refocusConsole());

    const int from = quietEventCount();
    QTest::keyClick(m_view, Qt::Key_J);
    QCOMPARE(eventsSince(from), QStringList({"key_down:J", "key_up:J"}));
    QCOMPARE(targetKeysHeld(), QStringList());
    QVERIFY(lastTypedText().endsWith('j'));
    QVERIFY(m_view->heldKeys().isEmpty());
}

void TestTavroVideoKeyboard::keypadAndSpecialKeysReachTheTarget_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<int>("modifiers");
    QTest::addColumn<QString>("targetKey");

    const int keypad = Qt::KeypadModifier;
    QTest::newRow("keypad *") << int(Qt::Key_Asterisk) << keypad << "KeypadAsterisk";
    QTest::newRow("keypad +") << int(Qt::Key_Plus) << keypad << "KeypadPlus";
    QTest::newRow("keypad /") << int(Qt::Key_Slash) << keypad << "KeypadSlash";
    QTest::newRow("keypad -") << int(Qt::Key_Minus) << keypad << "KeypadMinus";
    QTest::newRow("keypad .") << int(Qt::Key_Period) << keypad << "KeypadPeriod";
    QTest::newRow("keypad Enter") << int(Qt::Key_Enter) << keypad << "KeypadEnter";
    QTest::newRow("keypad 0") << int(Qt::Key_0) << keypad << "Keypad0";
    QTest::newRow("keypad 1") << int(Qt::Key_1) << keypad << "Keypad1";
    QTest::newRow("keypad 9") << int(Qt::Key_9) << keypad << "Keypad9";
    // With the operator's Num Lock off the keypad reports navigation; the target's Num Lock
    // decides what its keypad key does.
    QTest::newRow("keypad 7 as Home") << int(Qt::Key_Home) << keypad << "Keypad7";
    QTest::newRow("keypad . as Delete") << int(Qt::Key_Delete) << keypad << "KeypadPeriod";
    QTest::newRow("keypad 5 as Clear") << int(Qt::Key_Clear) << keypad << "Keypad5";
    // Their twins on the main block.
    QTest::newRow("* on the main block is Shift+8's key") << int(Qt::Key_Asterisk) << 0 << "8";
    QTest::newRow("Home") << int(Qt::Key_Home) << 0 << "Home";
    QTest::newRow("Print Screen") << int(Qt::Key_Print) << 0 << "PrintScreen";
    QTest::newRow("Menu") << int(Qt::Key_Menu) << 0 << "Application";
}

void TestTavroVideoKeyboard::keypadAndSpecialKeysReachTheTarget()
{
    QFETCH(int, key);
    QFETCH(int, modifiers);
    QFETCH(QString, targetKey);
    const int from = quietEventCount();
    QTest::keyClick(m_view, Qt::Key(key), Qt::KeyboardModifiers(modifiers));
    QTRY_COMPARE(keyEventCount(from), 2);
    QCOMPARE(eventsSince(from), QStringList({"key_down:" + targetKey, "key_up:" + targetKey}));
}

void TestTavroVideoKeyboard::keysTheTargetLacksAreLoggedOnce()
{
    LogCounter lacking("[键盘] 目标键盘没有此键");
    const int from = quietEventCount();
    QTest::keyClick(m_view, Qt::Key_F14);
    QTest::keyClick(m_view, Qt::Key_F14);
    QTest::keyClick(m_view, Qt::Key_F24);
    QTest::keyClick(m_view, Qt::Key_F24);
    QCOMPARE(lacking.count(), 2);
    QVERIFY(eventsSince(from).isEmpty());
    QVERIFY(m_view->heldKeys().isEmpty());
}

void TestTavroVideoKeyboard::releaseLetsGoOfWhatThePhysicalKeyPressed_data()
{
    QTest::addColumn<QList<KeyStep>>("steps");
    QTest::addColumn<QStringList>("events");

    const int shift = Qt::ShiftModifier;
    // X11 key codes: 50 left Shift, 16 the 7 key, 24 the Q key, 108 AltGr.
    QTest::newRow("German Shift+7 is a slash; Shift goes up first")
        << QList<KeyStep>{{true, Qt::Key_Shift, 0, 50, ""},
                          {true, Qt::Key_Slash, shift, 16, "/"},
                          {false, Qt::Key_Shift, shift, 50, ""},
                          {false, Qt::Key_7, 0, 16, "7"}}
        << QStringList(
               {"key_down:LeftShift", "key_down:Slash", "key_up:LeftShift", "key_up:Slash"});
    QTest::newRow("German AltGr+Q is an at sign; AltGr goes up first")
        << QList<KeyStep>{{true, Qt::Key_AltGr, 0, 108, ""},
                          {true, Qt::Key_At, int(Qt::GroupSwitchModifier), 24, "@"},
                          {false, Qt::Key_AltGr, int(Qt::GroupSwitchModifier), 108, ""},
                          {false, Qt::Key_Q, 0, 24, "q"}}
        << QStringList({"key_down:2", "key_up:2"});
}

void TestTavroVideoKeyboard::releaseLetsGoOfWhatThePhysicalKeyPressed()
{
    stepsReachTheTargetAndLeaveNothingHeld();
}

void TestTavroVideoKeyboard::heldKeyIsOnePressAndOneRelease_data()
{
    QTest::addColumn<QList<KeyStep>>("steps");
    QTest::addColumn<QStringList>("events");

    // The K key (X11 key code 45) held for 1.5 s: the first repeat after 500 ms, then one every
    // 40 ms. X11 reports each repeat as a release and a press with the same timestamp.
    const quint64 start = 5000000;
    auto held = [start](int flaggedPairs) {
        QList<KeyStep> steps{{true, Qt::Key_K, 0, 45, "k", start}};
        int pair = 0;
        for (quint64 t = start + 500; t < start + 1500; t += 40, ++pair) {
            const bool flagged = pair < flaggedPairs;
            steps << KeyStep{false, Qt::Key_K, 0, 45, "k", t, flagged}
                  << KeyStep{true, Qt::Key_K, 0, 45, "k", t, flagged};
        }
        steps << KeyStep{false, Qt::Key_K, 0, 45, "k", start + 1500};
        return steps;
    };
    const QStringList once{"key_down:K", "key_up:K"};
    QTest::newRow("every repeat flagged") << held(1000) << once;
    QTest::newRow("no repeat flagged") << held(0) << once;
    QTest::newRow("only the first repeat flagged") << held(1) << once;
    QList<KeyStep> pressesOnly{{true, Qt::Key_K, 0, 45, "k", start}};
    for (quint64 t = start + 500; t < start + 1500; t += 40)
        pressesOnly << KeyStep{true, Qt::Key_K, 0, 45, "k", t, true};
    pressesOnly << KeyStep{false, Qt::Key_K, 0, 45, "k", start + 1500};
    QTest::newRow("repeats as flagged presses alone") << pressesOnly << once;
    QTest::newRow("two quick taps are two")
        << QList<KeyStep>{{true, Qt::Key_K, 0, 45, "k", start},
                          {false, Qt::Key_K, 0, 45, "k", start + 60},
                          {true, Qt::Key_K, 0, 45, "k", start + 61},
                          {false, Qt::Key_K, 0, 45, "k", start + 120}}
        << QStringList({"key_down:K", "key_up:K", "key_down:K", "key_up:K"});
    QTest::newRow("a repeat pair of another key does not join them")
        << QList<KeyStep>{{true, Qt::Key_K, 0, 45, "k", start},
                          {false, Qt::Key_K, 0, 45, "k", start + 60},
                          {true, Qt::Key_J, 0, 44, "j", start + 60},
                          {false, Qt::Key_J, 0, 44, "j", start + 120}}
        << QStringList({"key_down:K", "key_up:K", "key_down:J", "key_up:J"});
}

void TestTavroVideoKeyboard::heldKeyIsOnePressAndOneRelease()
{
    stepsReachTheTargetAndLeaveNothingHeld();
}

// The row's key steps reach the view; the target sees the row's events and holds nothing after.
void TestTavroVideoKeyboard::stepsReachTheTargetAndLeaveNothingHeld()
{
    QFETCH(QList<KeyStep>, steps);
    QFETCH(QStringList, events);
    const int from = quietEventCount();
    deliver(m_view, steps);
    QTRY_COMPARE(keyEventCount(from), events.size());
    QCOMPARE(eventsSince(from), events);
    QCOMPARE(targetKeysHeld(), QStringList());
    QVERIFY(m_view->heldKeys().isEmpty());
}

void TestTavroVideoKeyboard::shortcutTypedIntoAnotherWidgetReachesTheTarget()
{
    QVERIFY(refocusConsole());
    auto *other = new QLineEdit(m_console.window());
    const auto cleanup = qScopeGuard([&] {
        delete other;
        refocusConsole();
    });
    other->show();
    other->setFocus();
    QTRY_VERIFY(other->hasFocus());
    const int from = quietEventCount();
    // Through the window, as the window system delivers keys: Control and Alt go to the line
    // edit; Delete with them forms a system shortcut, which belongs to the target.
    QTest::keyClick(m_console.window()->windowHandle(), Qt::Key_Delete,
                    Qt::ControlModifier | Qt::AltModifier);
    QVERIFY(m_view->hasFocus());
    QTRY_COMPARE(keyEventCount(from), 6);
    QCOMPARE(eventsSince(from),
             QStringList({"key_down:LeftControl", "key_down:LeftAlt", "key_down:Delete",
                          "key_up:Delete", "key_up:LeftAlt", "key_up:LeftControl"}));

    // Other keys stay with the widget that has the focus.
    other->setFocus();
    QTRY_VERIFY(other->hasFocus());
    const int typed = quietEventCount();
    QTest::keyClick(m_console.window()->windowHandle(), 'a');
    QCOMPARE(other->text(), QStringLiteral("a"));
    QVERIFY(eventsSince(typed).isEmpty());
}

int main(int argc, char **argv)
{
    qputenv("TAVROKVM_VCAM_DEVICES", "box:TKKEYS01");
    QApplication app(argc, argv);
    TestTavroVideoKeyboard test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_tavrovideokeyboard.moc"
