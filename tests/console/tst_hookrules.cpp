// What the system keyboard tap does with each key event it sees: swallow it, forward a key to the
// target, or let it through. How the X11 grab's state follows the server's focus events, the
// grab statuses as logged, and the chord that lets the keyboard go.

#include <QTest>

#include "console/input/hookrules.h"

Q_DECLARE_METATYPE(HookEventType)

class TestHookRules : public QObject
{
    Q_OBJECT
private slots:
    void decisions_data();
    void decisions();
    void grabStatusNames_data();
    void grabStatusNames();
    void grabFollowsFocusEvents_data();
    void grabFollowsFocusEvents();
    void releaseChord_data();
    void releaseChord();
};

void TestHookRules::decisions_data()
{
    QTest::addColumn<HookEventType>("type");
    QTest::addColumn<int>("keyCode");
    QTest::addColumn<quint64>("flags");
    QTest::addColumn<bool>("foreground");
    QTest::addColumn<int>("rule");
    QTest::addColumn<bool>("swallow");
    QTest::addColumn<int>("forward");
    QTest::addColumn<int>("action");

    const auto down = HookEventType::KeyDown, up = HookEventType::KeyUp;
    const quint64 fn = kHookFlagFn, ctrl = kHookFlagControl, opt = kHookFlagOption,
                  cmd = kHookFlagCommand, shift = 0x20000, none = 0;
    const int space = kHookKeySpace, esc = kHookKeyEscape, tab = kHookKeyTab, letterA = 0;

    QTest::newRow("1 Fn+Space down")
        << down << space << fn << true << 1 << true << int(Qt::Key_Space) << 0;
    QTest::newRow("1 Fn+Space up is the release")
        << up << space << fn << true << 1 << true << int(Qt::Key_Space) << 1;
    QTest::newRow("1 before 3: Fn+Ctrl+Space")
        << down << space << (fn | ctrl) << true << 1 << true << int(Qt::Key_Space) << 0;
    QTest::newRow("1 in the background too")
        << down << space << fn << false << 1 << true << int(Qt::Key_Space) << 0;
    QTest::newRow("2 Fn+Escape sends 0x7C") << down << esc << fn << true << 2 << true << 0x7C << 0;
    QTest::newRow("3 Ctrl+Space") << down << space << ctrl << true << 3 << true
                                  << int(Qt::Key_Space) << 0;
    QTest::newRow("3 before 4: Ctrl+Cmd+Space")
        << up << space << (ctrl | cmd) << true << 3 << true << int(Qt::Key_Space) << 1;
    QTest::newRow("4 Cmd+Space swallowed, nothing sent")
        << down << space << cmd << true << 4 << true << 0 << 0;
    QTest::newRow("5 Option+Tab swallowed") << down << tab << opt << true << 5 << true << 0 << 0;
    QTest::newRow("5 before 6: Option+Shift+Tab")
        << down << tab << (opt | shift) << true << 5 << true << 0 << 0;
    QTest::newRow("6 Tab in front")
        << down << tab << none << true << 6 << true << int(Qt::Key_Tab) << 0;
    QTest::newRow("6 Shift+Tab is Tab")
        << up << tab << shift << true << 6 << true << int(Qt::Key_Tab) << 1;
    QTest::newRow("6 Fn+Tab") << down << tab << fn << true << 6 << true << int(Qt::Key_Tab) << 0;
    QTest::newRow("7 Tab in the background passes")
        << down << tab << none << false << 7 << false << 0 << 0;
    QTest::newRow("7 Ctrl+Tab passes") << down << tab << ctrl << true << 7 << false << 0 << 0;
    QTest::newRow("7 Cmd+Tab passes") << down << tab << cmd << true << 7 << false << 0 << 0;
    QTest::newRow("7 Space alone") << down << space << none << true << 7 << false << 0 << 0;
    QTest::newRow("7 Option+Space") << down << space << opt << true << 7 << false << 0 << 0;
    QTest::newRow("7 Escape alone") << down << esc << none << true << 7 << false << 0 << 0;
    QTest::newRow("7 Fn+A") << down << letterA << fn << true << 7 << false << 0 << 0;
    QTest::newRow("flags changed passes untouched")
        << HookEventType::FlagsChanged << space << fn << true << 0 << false << 0 << 0;
    QTest::newRow("disabled by timeout")
        << HookEventType::DisabledByTimeout << space << fn << true << 0 << false << 0 << 0;
    QTest::newRow("other events") << HookEventType::Other << tab << none << true << 0 << false << 0
                                  << 0;
}

void TestHookRules::decisions()
{
    QFETCH(HookEventType, type);
    QFETCH(int, keyCode);
    QFETCH(quint64, flags);
    QFETCH(bool, foreground);
    QFETCH(int, rule);
    QFETCH(bool, swallow);
    QFETCH(int, forward);
    QFETCH(int, action);

    const HookDecision decision = decideHookEvent(type, keyCode, flags, foreground);
    QCOMPARE(decision.rule, rule);
    QCOMPARE(decision.swallow, swallow);
    QCOMPARE(decision.forwardKey, forward);
    if (forward != 0)
        QCOMPARE(decision.action, action);
}

void TestHookRules::grabStatusNames_data()
{
    QTest::addColumn<int>("x11Status");
    QTest::addColumn<QString>("name");
    QTest::newRow("0") << 0 << "Success";
    QTest::newRow("1") << 1 << "AlreadyGrabbed";
    QTest::newRow("2") << 2 << "GrabInvalidTime";
    QTest::newRow("3") << 3 << "GrabNotViewable";
    QTest::newRow("4") << 4 << "GrabFrozen";
    QTest::newRow("5 is no status of the protocol") << 5 << "Unavailable";
    QTest::newRow("-1 no reply") << -1 << "Unavailable";
}

void TestHookRules::grabStatusNames()
{
    QFETCH(int, x11Status);
    QFETCH(QString, name);
    QCOMPARE(QString::fromLatin1(keyboardGrabStatusName(keyboardGrabStatusFromX11(x11Status))),
             name);
}

// Rows are the focus events the X server sends to the console's window, in order, as
// "in|out:mode"; taken from what Xvfb sends in each situation.
void TestHookRules::grabFollowsFocusEvents_data()
{
    QTest::addColumn<bool>("heldBefore");
    QTest::addColumn<QString>("events");
    QTest::addColumn<bool>("heldAfter");

    QTest::newRow("the console grabs") << false << "out:grab in:grab" << true;
    QTest::newRow("grabbing again while holding sends nothing") << true << "" << true;
    QTest::newRow("the console ungrabs") << true << "out:ungrab in:ungrab" << false;
    QTest::newRow("unmapped: the server drops the grab, the focus reverts")
        << true << "out:ungrab in:ungrab out:normal" << false;
    QTest::newRow("a popup of the same connection grabs") << true << "out:grab" << false;
    QTest::newRow("the popup ungrabs") << false << "in:ungrab" << false;
    QTest::newRow("focus given back while another client holds the keyboard")
        << false << "in:whilegrabbed" << false;
    QTest::newRow("another client lets go") << false << "in:ungrab" << false;
    QTest::newRow("focus moves away and back while holding")
        << true << "out:whilegrabbed in:whilegrabbed" << true;
    QTest::newRow("plain focus in without a grab") << false << "in:normal" << false;
    QTest::newRow("grab, then a popup, then the popup's ungrab")
        << false << "out:grab in:grab out:grab in:ungrab" << false;
    QTest::newRow("ungrab then grab again, both seen")
        << true << "out:ungrab in:ungrab out:grab in:grab" << true;
}

void TestHookRules::grabFollowsFocusEvents()
{
    QFETCH(bool, heldBefore);
    QFETCH(QString, events);
    QFETCH(bool, heldAfter);

    const QHash<QString, FocusEventMode> modes{{"normal", FocusEventMode::Normal},
                                               {"grab", FocusEventMode::Grab},
                                               {"ungrab", FocusEventMode::Ungrab},
                                               {"whilegrabbed", FocusEventMode::WhileGrabbed}};
    bool held = heldBefore;
    for (const QString &event : events.split(' ', Qt::SkipEmptyParts)) {
        const QStringList parts = event.split(':');
        QVERIFY(parts.size() == 2 && modes.contains(parts[1]));
        held = keyboardHeldAfterFocusEvent(held, parts[0] == "in", modes.value(parts[1]));
    }
    QCOMPARE(held, heldAfter);
}

void TestHookRules::releaseChord_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<Qt::KeyboardModifiers>("modifiers");
    QTest::addColumn<bool>("chord");

    const Qt::KeyboardModifiers ctrlAltShift =
        Qt::ControlModifier | Qt::AltModifier | Qt::ShiftModifier;
    QTest::newRow("Ctrl+Alt+Shift+Escape") << int(Qt::Key_Escape) << ctrlAltShift << true;
    QTest::newRow("on the keypad side too")
        << int(Qt::Key_Escape) << (ctrlAltShift | Qt::KeypadModifier) << true;
    QTest::newRow("with the logo key: the target's")
        << int(Qt::Key_Escape) << (ctrlAltShift | Qt::MetaModifier) << false;
    QTest::newRow("Ctrl+Shift+Escape: the target's task manager")
        << int(Qt::Key_Escape) << (Qt::ControlModifier | Qt::ShiftModifier) << false;
    QTest::newRow("Ctrl+Alt+Escape")
        << int(Qt::Key_Escape) << (Qt::ControlModifier | Qt::AltModifier) << false;
    QTest::newRow("Escape alone") << int(Qt::Key_Escape) << Qt::KeyboardModifiers() << false;
    QTest::newRow("Ctrl+Alt+Shift+Delete") << int(Qt::Key_Delete) << ctrlAltShift << false;
    QTest::newRow("the Shift press of the chord") << int(Qt::Key_Shift) << ctrlAltShift << false;
}

void TestHookRules::releaseChord()
{
    QFETCH(int, key);
    QFETCH(Qt::KeyboardModifiers, modifiers);
    QFETCH(bool, chord);
    QCOMPARE(isGrabReleaseChord(key, modifiers), chord);
}

QTEST_APPLESS_MAIN(TestHookRules)

#include "tst_hookrules.moc"
