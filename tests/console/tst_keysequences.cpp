// Keys the console sends without a physical key: named inputs, the paced Control+Alt+Delete
// sequence and pasted text typed on a US layout.

#include <QTest>

#include "console/input/keysequences.h"
#include "console/input/pasteplan.h"

Q_DECLARE_METATYPE(QList<KeyStroke>)

namespace {

QList<KeyStroke> tap(int key)
{
    return {{key, 0}, {key, 1}};
}

char *toString(const QList<KeyStroke> &strokes)
{
    QByteArray text;
    for (const KeyStroke &stroke : strokes)
        text += QByteArray::number(stroke.key, 16) + (stroke.action == 0 ? "v " : "^ ");
    return qstrdup(text.constData());
}

} // namespace

namespace QTest {
template<> char *toString(const QList<KeyStroke> &strokes)
{
    return ::toString(strokes);
}
} // namespace QTest

class TestKeySequences : public QObject
{
    Q_OBJECT
private slots:
    void namedInputs_data();
    void namedInputs();
    void ctrlAltDel();
    void pasteClassification_data();
    void pasteClassification();
    void pastePreview();
    void pastePlan_data();
    void pastePlan();
};

void TestKeySequences::namedInputs_data()
{
    QTest::addColumn<QString>("input");
    QTest::addColumn<QList<KeyStroke>>("strokes");

    // A single character is its own key code, letters included: only paste maps case.
    QTest::newRow("q stays 0x71") << "q" << tap(0x71);
    QTest::newRow("Q") << "Q" << tap(Qt::Key_Q);
    QTest::newRow("line feed from the Enter button") << "\n" << tap(0x0A);
    QTest::newRow("backspace character from the Backspace button")
        << "\b" << tap(Qt::Key_Backspace);
    QTest::newRow("tab character from the Tab button") << "\t" << tap(Qt::Key_Tab);
    QTest::newRow("blank from the Space button") << " " << tap(Qt::Key_Space);
    QTest::newRow("Enter") << "Enter" << tap(Qt::Key_Return);
    QTest::newRow("Space") << "Space" << tap(Qt::Key_Space);
    QTest::newRow("Backspace") << "Backspace" << tap(Qt::Key_Backspace);
    QTest::newRow("Tab") << "Tab" << tap(Qt::Key_Tab);
    QTest::newRow("fn+esc") << "fn+esc"
                            << QList<KeyStroke>{{Qt::Key_Control, 0},
                                                {Qt::Key_Escape, 0},
                                                {Qt::Key_Escape, 1},
                                                {Qt::Key_Control, 1}};
    QTest::newRow("ESC") << "ESC" << tap(Qt::Key_Escape);
    QTest::newRow("F1") << "F1" << tap(Qt::Key_F1);
    QTest::newRow("F12") << "F12" << tap(Qt::Key_F12);
    QTest::newRow("CAPS_LOCK") << "CAPS_LOCK" << tap(Qt::Key_CapsLock);
    QTest::newRow("UP_ARROW") << "UP_ARROW" << tap(Qt::Key_Up);
    QTest::newRow("DOWN_ARROW") << "DOWN_ARROW" << tap(Qt::Key_Down);
    QTest::newRow("LEFT_ARROW") << "LEFT_ARROW" << tap(Qt::Key_Left);
    QTest::newRow("RIGHT_ARROW") << "RIGHT_ARROW" << tap(Qt::Key_Right);
    QTest::newRow("F13: none") << "F13" << QList<KeyStroke>();
    QTest::newRow("F0: none") << "F0" << QList<KeyStroke>();
    QTest::newRow("F01: none") << "F01" << QList<KeyStroke>();
    QTest::newRow("enter: case matters") << "enter" << QList<KeyStroke>();
    QTest::newRow("CTRL+ALT+DEL: case matters") << "CTRL+ALT+DEL" << QList<KeyStroke>();
    QTest::newRow("ctrl+alt+del is paced elsewhere") << "ctrl+alt+del" << QList<KeyStroke>();
    QTest::newRow("POWER") << "POWER" << QList<KeyStroke>();
    QTest::newRow("SHIFT does not latch") << "SHIFT" << QList<KeyStroke>();
    QTest::newRow("empty") << "" << QList<KeyStroke>();
}

void TestKeySequences::namedInputs()
{
    QFETCH(QString, input);
    QFETCH(QList<KeyStroke>, strokes);
    QCOMPARE(namedInputStrokes(input), strokes);
}

void TestKeySequences::ctrlAltDel()
{
    const QList<PacedKeyStep> &steps = ctrlAltDelSequence();
    QList<KeyStroke> strokes;
    QList<int> pauses;
    for (const PacedKeyStep &step : steps) {
        strokes << step.stroke;
        pauses << step.pauseAfterMs;
    }
    // Meta is the target's Control.
    QCOMPARE(strokes, (QList<KeyStroke>{{Qt::Key_Meta, 0},
                                        {Qt::Key_Alt, 0},
                                        {Qt::Key_Delete, 0},
                                        {Qt::Key_Delete, 1},
                                        {Qt::Key_Alt, 1},
                                        {Qt::Key_Meta, 1}}));
    QCOMPARE(pauses, (QList<int>{10, 10, 20, 10, 10, 0}));
    QCOMPARE(QByteArray(steps.first().log), QByteArray("[Keyboard] Step 1: Ctrl按下"));
    QCOMPARE(QByteArray(steps.last().log), QByteArray("[Keyboard] Step 6: Ctrl释放（全部clear）"));
}

void TestKeySequences::pasteClassification_data()
{
    QTest::addColumn<int>("unit");
    QTest::addColumn<int>("key");
    QTest::addColumn<bool>("shift");
    QTest::addColumn<bool>("supported");

    QTest::newRow("a") << int('a') << int(Qt::Key_A) << false << true;
    QTest::newRow("z") << int('z') << int(Qt::Key_Z) << false << true;
    QTest::newRow("A") << int('A') << int(Qt::Key_A) << true << true;
    QTest::newRow("~") << int('~') << 0x60 << true << true;
    QTest::newRow("!") << int('!') << int(Qt::Key_1) << true << true;
    QTest::newRow(")") << int(')') << int(Qt::Key_0) << true << true;
    QTest::newRow("_") << int('_') << 0x2D << true << true;
    QTest::newRow("\"") << int('"') << 0x27 << true << true;
    QTest::newRow("?") << int('?') << 0x2F << true << true;
    QTest::newRow("line feed is Shift+Return") << 0x0A << int(Qt::Key_Return) << true << true;
    QTest::newRow("[") << int('[') << int('[') << false << true;
    QTest::newRow("blank") << int(' ') << int(' ') << false << true;
    QTest::newRow("/") << int('/') << int('/') << false << true;
    QTest::newRow("0") << int('0') << int('0') << false << true;
    QTest::newRow("9") << int('9') << int('9') << false << true;
    QTest::newRow("tab") << 0x09 << 0 << false << false;
    QTest::newRow("carriage return") << 0x0D << 0 << false << false;
    QTest::newRow("minus is not in the plain list") << int('-') << 0 << false << false;
    QTest::newRow("equals") << int('=') << 0 << false << false;
    QTest::newRow("back-quote") << int('`') << 0 << false << false;
    QTest::newRow("e acute") << 0xE9 << 0 << false << false;
    QTest::newRow("euro") << 0x20AC << 0 << false << false;
}

void TestKeySequences::pasteClassification()
{
    QFETCH(int, unit);
    QFETCH(int, key);
    QFETCH(bool, shift);
    QFETCH(bool, supported);
    const PasteKey paste = classifyPasteCharacter(char16_t(unit));
    QCOMPARE(paste.supported, supported);
    if (!supported)
        return;
    QCOMPARE(paste.key, key);
    QCOMPARE(paste.shift, shift);
}

void TestKeySequences::pastePreview()
{
    const QString longText = QString(100, 'a') + QString(50, 'b');
    QCOMPARE(::pastePreview(longText), QString(100, 'a'));
    QCOMPARE(::pastePreview(QStringLiteral("short")), QStringLiteral("short"));
}

void TestKeySequences::pastePlan_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("layout");
    // Reports as "modifiers:usage" in hex; "0:0" is every key up.
    QTest::addColumn<QStringList>("reports");
    QTest::addColumn<int>("characters");
    QTest::addColumn<int>("skipped");

    // A repeated character is two presses with a release between them.
    QTest::newRow("aA on us") << "aaA"
                              << "us" << QStringList{"0:4", "0:0", "0:4", "0:0", "2:4", "0:0"} << 3
                              << 0;
    // Windows and old Mac line breaks are one Return each.
    QTest::newRow("line breaks") << "a\r\nb\rc\n"
                                 << "us" << QStringList{"0:4",  "0:0", "0:28", "0:0", "0:5",  "0:0",
                                                        "0:28", "0:0", "0:6",  "0:0", "0:28", "0:0"}
                                 << 6 << 0;
    // What the layout cannot type is skipped and counted; the rest goes on.
    QTest::newRow("skipped") << QStringLiteral("x\u00e9\u4e2dy\u00e9") << "us"
                             << QStringList{"0:1b", "0:0", "0:1c", "0:0"} << 5 << 3;
    // On a German target: z is the key a US keyboard calls Y, @ is AltGr+Q, ^ a dead key and
    // Space.
    QTest::newRow("de") << "z@^"
                        << "de"
                        << QStringList{"0:1c", "0:0", "40:14", "0:0", "0:35", "0:0", "0:2c", "0:0"}
                        << 3 << 0;
}

void TestKeySequences::pastePlan()
{
    QFETCH(QString, text);
    QFETCH(QString, layout);
    QFETCH(QStringList, reports);
    QFETCH(int, characters);
    QFETCH(int, skipped);

    KeyboardLayout compiled;
    QString error;
    QVERIFY2(KeyboardLayout::compile(layout, compiled, error), qPrintable(error));
    const PastePlan plan = planPaste(text, compiled);
    QStringList got;
    for (const PastePlan::Report &report : plan.reports)
        got << QStringLiteral("%1:%2").arg(report.modifiers, 0, 16).arg(report.usage, 0, 16);
    QCOMPARE(got, reports);
    QCOMPARE(plan.characters, characters);
    QCOMPARE(plan.skipped, skipped);
    // Progress only grows, and the last report finishes the text.
    for (int i = 1; i < plan.reports.size(); ++i)
        QVERIFY(plan.reports.at(i).character >= plan.reports.at(i - 1).character);
    if (!plan.reports.isEmpty())
        QCOMPARE(plan.reports.last().character, characters);
}

QTEST_APPLESS_MAIN(TestKeySequences)

#include "tst_keysequences.moc"
