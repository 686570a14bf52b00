// Which key combinations count as system shortcuts, how keys are classed in the log, and the
// hex dump of outgoing frames.

#include <QTest>

#include "console/input/keyrules.h"

namespace {

// One step for OperatorKeys: an event, or a flush when `flush` is set.
struct Step
{
    bool press = true;
    quint64 physicalKey = 0;
    int key = 0;
    quint64 timestamp = 0;
    bool autoRepeat = false;
    bool flush = false;
};

Step flushStep()
{
    Step step;
    step.flush = true;
    return step;
}

QString strokesText(const QList<KeyStroke> &strokes)
{
    QStringList parts;
    for (const KeyStroke &stroke : strokes)
        parts << QString::number(stroke.key, 16) + (stroke.action == 0 ? "v" : "^");
    return parts.join(' ');
}

} // namespace

Q_DECLARE_METATYPE(QList<Step>)

class TestKeyRules : public QObject
{
    Q_OBJECT
private slots:
    void shortcuts_data();
    void shortcuts();
    void keyClasses_data();
    void keyClasses();
    void modifierNames();
    void hexDump();
    void pasteShortcut_data();
    void pasteShortcut();
    void modifierKeys();
    void operatorKeys_data();
    void operatorKeys();
};

void TestKeyRules::pasteShortcut_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<int>("modifiers");
    QTest::addColumn<bool>("paste");

    const int ctrl = Qt::ControlModifier, alt = Qt::AltModifier;
    QTest::newRow("Ctrl+Alt+V") << int(Qt::Key_V) << (ctrl | alt) << true;
    QTest::newRow("keypad does not matter")
        << int(Qt::Key_V) << (ctrl | alt | int(Qt::KeypadModifier)) << true;
    QTest::newRow("Ctrl+V is the target's") << int(Qt::Key_V) << ctrl << false;
    QTest::newRow("Ctrl+Shift+Alt+V")
        << int(Qt::Key_V) << (ctrl | alt | int(Qt::ShiftModifier)) << false;
    QTest::newRow("Ctrl+Alt+Meta+V")
        << int(Qt::Key_V) << (ctrl | alt | int(Qt::MetaModifier)) << false;
    QTest::newRow("Ctrl+Alt+C") << int(Qt::Key_C) << (ctrl | alt) << false;
}

void TestKeyRules::pasteShortcut()
{
    QFETCH(int, key);
    QFETCH(int, modifiers);
    QFETCH(bool, paste);
    QCOMPARE(isPasteShortcut(key, Qt::KeyboardModifiers(modifiers)), paste);
}

void TestKeyRules::shortcuts_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<int>("modifiers");
    QTest::addColumn<QString>("name");

    const int ctrl = Qt::ControlModifier, alt = Qt::AltModifier, meta = Qt::MetaModifier;
    QTest::newRow("Ctrl+Space") << int(Qt::Key_Space) << ctrl << "Ctrl+Space";
    QTest::newRow("Ctrl+Meta+Space: control first")
        << int(Qt::Key_Space) << (ctrl | meta) << "Ctrl+Space";
    QTest::newRow("Cmd+Space") << int(Qt::Key_Space) << meta << "Cmd+Space";
    QTest::newRow("Alt+Tab") << int(Qt::Key_Tab) << alt << "Alt+Tab";
    QTest::newRow("Ctrl+Alt+Delete") << int(Qt::Key_Delete) << (ctrl | alt) << "Ctrl+Alt+Delete";
    QTest::newRow("Ctrl+Alt+Meta") << int(Qt::Key_Meta) << (ctrl | alt) << "Windows/Cmd Key";
    QTest::newRow("Ctrl+Alt+left logo") << 0x01000053 << (ctrl | alt) << "Windows/Cmd Key";
    QTest::newRow("Ctrl+Alt+other key: none") << int(Qt::Key_A) << (ctrl | alt) << "";
    QTest::newRow("Ctrl+Alt+Tab: Alt+Tab first") << int(Qt::Key_Tab) << (ctrl | alt) << "Alt+Tab";
    QTest::newRow("Meta alone") << int(Qt::Key_Meta) << 0 << "Windows/Cmd Key";
    QTest::newRow("right logo alone") << 0x01000054 << 0 << "Windows/Cmd Key";
    QTest::newRow("Delete alone") << int(Qt::Key_Delete) << 0 << "";
    QTest::newRow("Space alone") << int(Qt::Key_Space) << 0 << "";
    QTest::newRow("Shift+Tab") << int(Qt::Key_Tab) << int(Qt::ShiftModifier) << "";
}

void TestKeyRules::shortcuts()
{
    QFETCH(int, key);
    QFETCH(int, modifiers);
    QFETCH(QString, name);
    QCOMPARE(recognizeSystemShortcut(key, Qt::KeyboardModifiers(modifiers)), name);
}

void TestKeyRules::keyClasses_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<bool>("shortcut");
    QTest::addColumn<QString>("name");

    QTest::newRow("F1") << int(Qt::Key_F1) << false << "功能键";
    QTest::newRow("F35") << int(Qt::Key_F35) << false << "功能键";
    QTest::newRow("first multimedia") << 0x01000061 << false << "多媒体键";
    QTest::newRow("last multimedia") << 0x0100011D << false << "多媒体键";
    QTest::newRow("dead grave") << 0x01001250 << false << "Dead键";
    QTest::newRow("Shift") << int(Qt::Key_Shift) << false << "修饰键";
    QTest::newRow("Meta forming a shortcut is a modifier") << int(Qt::Key_Meta) << true << "修饰键";
    QTest::newRow("AltGr") << int(Qt::Key_AltGr) << false << "修饰键";
    QTest::newRow("Alt is not in the modifier range") << int(Qt::Key_Alt) << false << "";
    QTest::newRow("Delete in a shortcut") << int(Qt::Key_Delete) << true << "系统快捷键";
    QTest::newRow("plain letter") << int(Qt::Key_A) << false << "";
}

void TestKeyRules::keyClasses()
{
    QFETCH(int, key);
    QFETCH(bool, shortcut);
    QFETCH(QString, name);
    QCOMPARE(keyClassForLog(key, shortcut), name);
}

void TestKeyRules::modifierNames()
{
    QCOMPARE(modifierNamesForLog(Qt::NoModifier), QString());
    QCOMPARE(modifierNamesForLog(Qt::MetaModifier | Qt::ShiftModifier | Qt::AltModifier |
                                 Qt::ControlModifier),
             QStringLiteral("Shift+Control+Alt+Meta/Command"));
    QCOMPARE(modifierNamesForLog(Qt::KeypadModifier), QString());
}

void TestKeyRules::hexDump()
{
    QCOMPARE(hexBytesForLog(QByteArray::fromHex("57ab000208")), QStringLiteral("57 AB 00 02 08"));
    QCOMPARE(hexBytesForLog(QByteArray()), QString());
}

void TestKeyRules::modifierKeys()
{
    QCOMPARE(modifierKeysHeld(Qt::NoModifier), QList<int>());
    QCOMPARE(modifierKeysHeld(Qt::KeypadModifier | Qt::GroupSwitchModifier), QList<int>());
    QCOMPARE(modifierKeysHeld(Qt::MetaModifier | Qt::AltModifier | Qt::ControlModifier |
                              Qt::ShiftModifier),
             QList<int>({Qt::Key_Shift, Qt::Key_Control, Qt::Key_Alt, Qt::Key_Meta}));
}

void TestKeyRules::operatorKeys_data()
{
    QTest::addColumn<bool>("deferReleases");
    QTest::addColumn<QList<Step>>("steps");
    QTest::addColumn<QString>("strokes");

    // Physical keys 16 and 50; encoder keys 0x2f ('/'), 0x37 ('7'), 0x1000020 (Shift).
    QTest::newRow("release sends what the press sent") << false
                                                       << QList<Step>{{true, 50, Qt::Key_Shift},
                                                                      {true, 16, '/'},
                                                                      {false, 50, Qt::Key_Shift},
                                                                      {false, 16, '7'}}
                                                       << "1000020v 2fv 1000020^ 2f^";
    QTest::newRow("release of a key never pressed names its own key")
        << false << QList<Step>{{false, 16, '7'}} << "37^";
    QTest::newRow("flagged repeats send nothing") << false
                                                  << QList<Step>{{true, 16, '7', 100},
                                                                 {false, 16, '7', 600, true},
                                                                 {true, 16, '7', 600, true},
                                                                 {true, 16, '7', 640, true},
                                                                 {false, 16, '7', 700}}
                                                  << "37v 37^";
    QTest::newRow("a press of a key already down sends nothing")
        << false << QList<Step>{{true, 16, '7', 100}, {true, 16, '7', 600}, {false, 16, '7', 700}}
        << "37v 37^";
    QTest::newRow("an unflagged pair of one timestamp is a repeat")
        << true << QList<Step>{{true, 16, '7', 100}, {false, 16, '7', 600},
                               {true, 16, '7', 600}, {false, 16, '7', 640},
                               {true, 16, '7', 640}, {false, 16, '7', 700},
                               flushStep()}
        << "37v 37^";
    QTest::newRow("a later press ends the pair window")
        << true << QList<Step>{{true, 16, '7', 100}, {false, 16, '7', 600}, {true, 16, '7', 601}}
        << "37v 37^ 37v";
    QTest::newRow("another key's press sends the held-back release first")
        << true
        << QList<Step>{{true, 16, '7', 100}, {false, 16, '7', 600}, {true, 50, Qt::Key_Shift, 600}}
        << "37v 37^ 1000020v";
    QTest::newRow("without timestamps nothing is held back")
        << true << QList<Step>{{true, 16, '7'}, {false, 16, '7'}, {true, 16, '7'}} << "37v 37^ 37v";
    QTest::newRow("without deferring, the same timestamp is two presses")
        << false << QList<Step>{{true, 16, '7', 100}, {false, 16, '7', 600}, {true, 16, '7', 600}}
        << "37v 37^ 37v";
    QTest::newRow("flush without a held-back release sends nothing")
        << true << QList<Step>{{true, 16, '7', 100}, flushStep()} << "37v";
}

void TestKeyRules::operatorKeys()
{
    QFETCH(bool, deferReleases);
    QFETCH(QList<Step>, steps);
    QFETCH(QString, strokes);
    OperatorKeys keys(deferReleases);
    QList<KeyStroke> sent;
    for (const Step &step : steps) {
        if (step.flush) {
            sent += keys.flush();
            continue;
        }
        OperatorKeys::Event event;
        event.press = step.press;
        event.physicalKey = step.physicalKey;
        event.key = step.key;
        event.timestamp = step.timestamp;
        event.autoRepeat = step.autoRepeat;
        sent += keys.handle(event);
    }
    QCOMPARE(strokesText(sent), strokes);
}

QTEST_APPLESS_MAIN(TestKeyRules)
#include "tst_keyrules.moc"
