// What the system keyboard tap does with each key event it sees: swallow it, forward a key to the
// target, or let it through.

#include <QTest>

#include "console/input/hookrules.h"

Q_DECLARE_METATYPE(HookEventType)

class TestHookRules : public QObject
{
    Q_OBJECT
private slots:
    void decisions_data();
    void decisions();
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

QTEST_APPLESS_MAIN(TestHookRules)

#include "tst_hookrules.moc"
