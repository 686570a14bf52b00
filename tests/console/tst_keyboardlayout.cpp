// Target keyboard layouts compiled from the XKB data: which keys type a character, and what a key
// types. Expected keys come from the layouts' printed charts.

#include <QTest>

#include "console/input/keyboardlayout.h"

namespace {

constexpr quint8 S = kHidLeftShift;
constexpr quint8 G = kHidRightAlt;
constexpr quint8 kSpace = 0x2C;

QString strokesText(const QVector<LayoutStroke> &strokes)
{
    QStringList parts;
    for (const LayoutStroke &stroke : strokes) {
        QString part;
        if (stroke.modifiers & S)
            part += QStringLiteral("Shift+");
        if (stroke.modifiers & G)
            part += QStringLiteral("AltGr+");
        if (stroke.modifiers & ~(S | G))
            part += QStringLiteral("0x%1+").arg(stroke.modifiers, 2, 16, QLatin1Char('0'));
        parts << part + QStringLiteral("0x%1").arg(stroke.usage, 2, 16, QLatin1Char('0'));
    }
    return parts.join(QLatin1Char(' '));
}

QString characterText(char32_t c)
{
    if (c < 0x20 || c == 0x7F)
        return QStringLiteral("U+%1").arg(quint32(c), 4, 16, QLatin1Char('0'));
    return QString::fromUcs4(&c, 1);
}

// Compiled once per code: every test uses the same few layouts.
const KeyboardLayout &layout(const QString &code)
{
    static QHash<QString, KeyboardLayout> compiled;
    auto it = compiled.find(code);
    if (it == compiled.end()) {
        KeyboardLayout result;
        QString error;
        if (!KeyboardLayout::compile(code, result, error))
            qWarning() << error;
        it = compiled.insert(code, result);
    }
    return *it;
}

// What typing `strokes` on the layout's target gives, a dead key followed by Space being its
// spacing form; the reason it does not type one character otherwise.
bool typeBack(const KeyboardLayout &layout, const QVector<LayoutStroke> &strokes, char32_t &typed,
              QString &why)
{
    if (strokes.isEmpty() || strokes.size() > 2) {
        why = QStringLiteral("%1 strokes").arg(strokes.size());
        return false;
    }
    const LayoutKeyResult first =
        layout.keyResult(strokes.at(0).usage, strokes.at(0).modifiers, false);
    if (strokes.size() == 1) {
        typed = first.character;
        why = QStringLiteral("one stroke of kind %1").arg(first.kind);
        return first.kind == LayoutKeyResult::Character;
    }
    const LayoutKeyResult second =
        layout.keyResult(strokes.at(1).usage, strokes.at(1).modifiers, false);
    typed = first.character;
    why = QStringLiteral("two strokes of kinds %1 and %2").arg(first.kind).arg(second.kind);
    return first.kind == LayoutKeyResult::DeadKey && second.kind == LayoutKeyResult::Character &&
           second.character == U' ';
}

} // namespace

Q_DECLARE_METATYPE(LayoutStroke)
Q_DECLARE_METATYPE(LayoutKeyResult::Kind)

class TestKeyboardLayout : public QObject
{
    Q_OBJECT
private slots:
    void knownLayoutsCompile_data();
    void knownLayoutsCompile();
    void compileFailures_data();
    void compileFailures();
    void uncompiledLayoutTypesNothing();
    void strokes_data();
    void strokes();
    void notTypeable_data();
    void notTypeable();
    void asciiTypeable_data();
    void asciiTypeable();
    void keyResults_data();
    void keyResults();

private:
    void perLayoutRows();
};

void TestKeyboardLayout::perLayoutRows()
{
    QTest::addColumn<QString>("code");
    for (const QString &code : KeyboardLayout::knownLayouts())
        QTest::newRow(qPrintable(code)) << code;
}

void TestKeyboardLayout::knownLayoutsCompile_data()
{
    QTest::addColumn<QString>("code");
    QTest::addColumn<QString>("name");
    QTest::newRow("us") << "us"
                        << "English (US)";
    QTest::newRow("gb") << "gb"
                        << "English (UK)";
    QTest::newRow("de") << "de"
                        << "German";
    QTest::newRow("fr") << "fr"
                        << "French";
    QTest::newRow("ch(de)") << "ch(de)"
                            << "Swiss German";
}

void TestKeyboardLayout::knownLayoutsCompile()
{
    QFETCH(QString, code);
    QFETCH(QString, name);

    QVERIFY(KeyboardLayout::knownLayouts().contains(code));
    QCOMPARE(KeyboardLayout::displayName(code), name);
    KeyboardLayout compiled;
    QString error;
    QVERIFY2(KeyboardLayout::compile(code, compiled, error), qPrintable(error));
    QVERIFY(compiled.isValid());
    QCOMPARE(compiled.code(), code);
    QCOMPARE(KeyboardLayout::knownLayouts().size(), 5);
}

void TestKeyboardLayout::compileFailures_data()
{
    QTest::addColumn<QString>("code");
    QTest::newRow("unknown layout") << "xx";
    QTest::newRow("unknown variant") << "de(nosuchvariant)";
    QTest::newRow("empty") << "";
    QTest::newRow("unclosed variant") << "ch(de";
    QTest::newRow("two layouts") << "us,de";
    QTest::newRow("path") << "../de";
}

void TestKeyboardLayout::compileFailures()
{
    QFETCH(QString, code);

    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QRegularExpression::escape(code)));
    KeyboardLayout compiled = layout(QStringLiteral("us"));
    QString error;
    QVERIFY(!KeyboardLayout::compile(code, compiled, error));
    QVERIFY(error.contains(code));
    // The layout given stays as it was.
    QCOMPARE(compiled.code(), QStringLiteral("us"));
    QVERIFY(compiled.keyResult(0x04, 0, false).kind == LayoutKeyResult::Character);
    QCOMPARE(KeyboardLayout::displayName(code), code);
}

void TestKeyboardLayout::uncompiledLayoutTypesNothing()
{
    const KeyboardLayout none;
    QVERIFY(!none.isValid());
    QVERIFY(none.code().isEmpty());
    QVector<LayoutStroke> strokes;
    QVERIFY(!none.strokesFor(U'a', strokes));
    QVERIFY(!none.strokesFor(U'\n', strokes));
    QVERIFY(none.keyResult(0x04, 0, false).kind == LayoutKeyResult::Nothing);
}

void TestKeyboardLayout::strokes_data()
{
    QTest::addColumn<QString>("code");
    QTest::addColumn<QString>("character");
    QTest::addColumn<QVector<LayoutStroke>>("expected");

    struct Row
    {
        const char *code;
        const char *character; // UTF-8
        QVector<LayoutStroke> strokes;
    };
    // clang-format off
    const Row rows[] = {
        // US (ANSI): backslash is the key above Return.
        {"us", "a", {{0x04, 0}}},
        {"us", "A", {{0x04, S}}},
        {"us", "-", {{0x2D, 0}}},
        {"us", "=", {{0x2E, 0}}},
        {"us", "`", {{0x35, 0}}},
        {"us", "~", {{0x35, S}}},
        {"us", "@", {{0x1F, S}}},
        {"us", "\\", {{0x31, 0}}},
        {"us", "|", {{0x31, S}}},
        {"us", "\"", {{0x34, S}}},
        {"us", " ", {{kSpace, 0}}},
        {"us", "\n", {{0x28, 0}}},
        {"us", "\t", {{0x2B, 0}}},
        // UK
        {"gb", "@", {{0x34, S}}},
        {"gb", "\"", {{0x1F, S}}},
        {"gb", "#", {{0x32, 0}}},
        {"gb", "~", {{0x32, S}}},
        {"gb", "\\", {{0x64, 0}}},
        {"gb", "|", {{0x64, S}}},
        {"gb", "£", {{0x20, S}}},
        {"gb", "¬", {{0x35, S}}},
        {"gb", "`", {{0x35, 0}}},
        {"gb", "€", {{0x21, G}}},
        {"gb", "\n", {{0x28, 0}}},
        // German: Y and Z swapped, dead accents, AltGr for the programming characters.
        {"de", "z", {{0x1C, 0}}},
        {"de", "Z", {{0x1C, S}}},
        {"de", "y", {{0x1D, 0}}},
        {"de", "@", {{0x14, G}}},
        {"de", "€", {{0x08, G}}},
        {"de", "-", {{0x38, 0}}},
        {"de", "_", {{0x38, S}}},
        {"de", "#", {{0x32, 0}}},
        {"de", "'", {{0x32, S}}},
        {"de", "+", {{0x30, 0}}},
        {"de", "*", {{0x30, S}}},
        {"de", "~", {{0x30, G}}},
        {"de", "<", {{0x64, 0}}},
        {"de", ">", {{0x64, S}}},
        {"de", "|", {{0x64, G}}},
        {"de", "ß", {{0x2D, 0}}},
        {"de", "?", {{0x2D, S}}},
        {"de", "\\", {{0x2D, G}}},
        {"de", "\"", {{0x1F, S}}},
        {"de", "§", {{0x20, S}}},
        {"de", "&", {{0x23, S}}},
        {"de", "/", {{0x24, S}}},
        {"de", "(", {{0x25, S}}},
        {"de", ")", {{0x26, S}}},
        {"de", "=", {{0x27, S}}},
        {"de", "{", {{0x24, G}}},
        {"de", "[", {{0x25, G}}},
        {"de", "]", {{0x26, G}}},
        {"de", "}", {{0x27, G}}},
        {"de", ";", {{0x36, S}}},
        {"de", ":", {{0x37, S}}},
        {"de", "ü", {{0x2F, 0}}},
        {"de", "ö", {{0x33, 0}}},
        {"de", "ä", {{0x34, 0}}},
        {"de", "Ä", {{0x34, S}}},
        {"de", "°", {{0x35, S}}},
        {"de", "µ", {{0x10, G}}},
        {"de", "^", {{0x35, 0}, {kSpace, 0}}},
        {"de", "´", {{0x2E, 0}, {kSpace, 0}}},
        {"de", "`", {{0x2E, S}, {kSpace, 0}}},
        {"de", "\t", {{0x2B, 0}}},
        // French AZERTY: digits on Shift, A/Q and Z/W swapped, M beside L.
        {"fr", "a", {{0x14, 0}}},
        {"fr", "q", {{0x04, 0}}},
        {"fr", "z", {{0x1A, 0}}},
        {"fr", "w", {{0x1D, 0}}},
        {"fr", "m", {{0x33, 0}}},
        {"fr", ",", {{0x10, 0}}},
        {"fr", "?", {{0x10, S}}},
        {"fr", "1", {{0x1E, S}}},
        {"fr", "0", {{0x27, S}}},
        {"fr", "&", {{0x1E, 0}}},
        {"fr", "é", {{0x1F, 0}}},
        {"fr", "\"", {{0x20, 0}}},
        {"fr", "'", {{0x21, 0}}},
        {"fr", "(", {{0x22, 0}}},
        {"fr", "-", {{0x23, 0}}},
        {"fr", "è", {{0x24, 0}}},
        {"fr", "_", {{0x25, 0}}},
        {"fr", "ç", {{0x26, 0}}},
        {"fr", "à", {{0x27, 0}}},
        {"fr", ")", {{0x2D, 0}}},
        {"fr", "=", {{0x2E, 0}}},
        {"fr", "+", {{0x2E, S}}},
        {"fr", "$", {{0x30, 0}}},
        {"fr", "*", {{0x32, 0}}},
        {"fr", "ù", {{0x34, 0}}},
        {"fr", "%", {{0x34, S}}},
        {"fr", ";", {{0x36, 0}}},
        {"fr", ".", {{0x36, S}}},
        {"fr", ":", {{0x37, 0}}},
        {"fr", "/", {{0x37, S}}},
        {"fr", "!", {{0x38, 0}}},
        {"fr", "§", {{0x38, S}}},
        {"fr", "<", {{0x64, 0}}},
        {"fr", ">", {{0x64, S}}},
        {"fr", "²", {{0x35, 0}}},
        {"fr", "#", {{0x20, G}}},
        {"fr", "{", {{0x21, G}}},
        {"fr", "[", {{0x22, G}}},
        {"fr", "|", {{0x23, G}}},
        {"fr", "`", {{0x24, G}}},
        {"fr", "\\", {{0x25, G}}},
        {"fr", "^", {{0x26, G}}}, // a plain key, before the dead circumflex
        {"fr", "@", {{0x27, G}}},
        {"fr", "]", {{0x2D, G}}},
        {"fr", "}", {{0x2E, G}}},
        {"fr", "¨", {{0x2F, S}, {kSpace, 0}}},
        // Swiss German: Y and Z swapped, accents dead, AltGr on the digits.
        {"ch(de)", "z", {{0x1C, 0}}},
        {"ch(de)", "y", {{0x1D, 0}}},
        {"ch(de)", "@", {{0x1F, G}}},
        {"ch(de)", "#", {{0x20, G}}},
        {"ch(de)", "\"", {{0x1F, S}}},
        {"ch(de)", "*", {{0x20, S}}},
        {"ch(de)", "ç", {{0x21, S}}},
        {"ch(de)", "+", {{0x1E, S}}},
        {"ch(de)", "'", {{0x2D, 0}}},
        {"ch(de)", "?", {{0x2D, S}}},
        {"ch(de)", "$", {{0x32, 0}}},
        {"ch(de)", "£", {{0x32, S}}},
        {"ch(de)", "}", {{0x32, G}}},
        {"ch(de)", "ü", {{0x2F, 0}}},
        {"ch(de)", "è", {{0x2F, S}}},
        {"ch(de)", "[", {{0x2F, G}}},
        {"ch(de)", "!", {{0x30, S}}},
        {"ch(de)", "]", {{0x30, G}}},
        {"ch(de)", "é", {{0x33, S}}},
        {"ch(de)", "{", {{0x34, G}}},
        {"ch(de)", "§", {{0x35, 0}}},
        {"ch(de)", "-", {{0x38, 0}}},
        {"ch(de)", "\\", {{0x64, G}}},
        {"ch(de)", "^", {{0x2E, 0}, {kSpace, 0}}},
        {"ch(de)", "`", {{0x2E, S}, {kSpace, 0}}},
        {"ch(de)", "~", {{0x2E, G}, {kSpace, 0}}},
        {"ch(de)", "´", {{0x2D, G}, {kSpace, 0}}},
        {"ch(de)", "¨", {{0x30, 0}, {kSpace, 0}}},
    };
    // clang-format on
    QHash<QString, int> seen;
    for (const Row &row : rows) {
        const QString character = QString::fromUtf8(row.character);
        const QString name =
            QStringLiteral("%1 %2 #%3")
                .arg(QLatin1String(row.code), characterText(character.toUcs4().value(0)))
                .arg(++seen[QLatin1String(row.code)]);
        QTest::newRow(qPrintable(name))
            << QString::fromLatin1(row.code) << character << row.strokes;
    }
}

void TestKeyboardLayout::strokes()
{
    QFETCH(QString, code);
    QFETCH(QString, character);
    QFETCH(QVector<LayoutStroke>, expected);

    const KeyboardLayout &target = layout(code);
    QVERIFY(target.isValid());
    const QList<uint> units = character.toUcs4();
    QCOMPARE(units.size(), 1);
    QVector<LayoutStroke> got;
    QVERIFY(target.strokesFor(units.at(0), got));
    QCOMPARE(strokesText(got), strokesText(expected));
}

void TestKeyboardLayout::notTypeable_data()
{
    QTest::addColumn<QString>("code");
    QTest::addColumn<QString>("character");

    for (const QString &code : KeyboardLayout::knownLayouts()) {
        QTest::addRow("%s CJK", qPrintable(code)) << code << QStringLiteral("中");
        QTest::addRow("%s emoji", qPrintable(code)) << code << QStringLiteral("😀");
        QTest::addRow("%s Cyrillic", qPrintable(code)) << code << QStringLiteral("ж");
        // Keys that edit rather than type.
        QTest::addRow("%s backspace", qPrintable(code)) << code << QStringLiteral("\b");
        QTest::addRow("%s delete", qPrintable(code)) << code << QStringLiteral("\x7F");
        QTest::addRow("%s escape", qPrintable(code)) << code << QStringLiteral("\x1B");
        QTest::addRow("%s carriage return", qPrintable(code)) << code << QStringLiteral("\r");
        QTest::addRow("%s NUL", qPrintable(code)) << code << QString(QChar(0));
    }
    QTest::newRow("us e acute") << "us"
                                << "é";
    QTest::newRow("us a umlaut") << "us"
                                 << "ä";
    QTest::newRow("us pound") << "us"
                              << "£";
    QTest::newRow("us euro") << "us"
                             << "€";
    // An accented letter a dead key would compose is not typed that way.
    QTest::newRow("de e acute") << "de"
                                << "é";
}

void TestKeyboardLayout::notTypeable()
{
    QFETCH(QString, code);
    QFETCH(QString, character);

    const QList<uint> units = character.toUcs4();
    QCOMPARE(units.size(), 1);
    QVector<LayoutStroke> strokes = {{0x99, 0x99}};
    QVERIFY(!layout(code).strokesFor(units.at(0), strokes));
    QCOMPARE(strokes, (QVector<LayoutStroke>{{0x99, 0x99}}));
}

void TestKeyboardLayout::asciiTypeable_data()
{
    perLayoutRows();
}

void TestKeyboardLayout::asciiTypeable()
{
    QFETCH(QString, code);

    // Every printable ASCII character, Tab and line feed, on every layout; typed back on the
    // same layout's target each gives itself.
    const KeyboardLayout &target = layout(code);
    QVERIFY(target.isValid());
    QVector<char32_t> characters = {U'\t', U'\n'};
    for (char32_t c = 0x20; c <= 0x7E; ++c)
        characters << c;
    for (char32_t c : characters) {
        QVector<LayoutStroke> strokes;
        QVERIFY2(target.strokesFor(c, strokes),
                 qPrintable(characterText(c) + QStringLiteral(" not typeable")));
        char32_t typed = 0;
        QString why;
        QVERIFY2(typeBack(target, strokes, typed, why),
                 qPrintable(characterText(c) + ": " + strokesText(strokes) + ": " + why));
        QVERIFY2(typed == c, qPrintable(characterText(c) + ": " + strokesText(strokes) + " types " +
                                        characterText(typed)));
    }
}

void TestKeyboardLayout::keyResults_data()
{
    QTest::addColumn<QString>("code");
    QTest::addColumn<int>("usage");
    QTest::addColumn<int>("modifiers");
    QTest::addColumn<bool>("capsLock");
    QTest::addColumn<LayoutKeyResult::Kind>("kind");
    QTest::addColumn<QString>("character");

    const auto C = LayoutKeyResult::Character;
    const auto D = LayoutKeyResult::DeadKey;
    const auto N = LayoutKeyResult::Nothing;
    // Caps Lock capitalises letters only, and Shift undoes it.
    QTest::newRow("us caps a") << "us" << 0x04 << 0 << true << C << "A";
    QTest::newRow("us caps shift a") << "us" << 0x04 << int(S) << true << C << "a";
    QTest::newRow("us caps 1") << "us" << 0x1E << 0 << true << C << "1";
    QTest::newRow("us caps minus") << "us" << 0x2D << 0 << true << C << "-";
    QTest::newRow("us right shift") << "us" << 0x1F << 0x20 << false << C << "@";
    QTest::newRow("de caps o umlaut") << "de" << 0x33 << 0 << true << C << "Ö";
    QTest::newRow("de caps z") << "de" << 0x1C << 0 << true << C << "Z";
    QTest::newRow("de caps 2") << "de" << 0x1F << 0 << true << C << "2";
    QTest::newRow("ch(de) caps a umlaut") << "ch(de)" << 0x34 << 0 << true << C << "Ä";
    QTest::newRow("fr caps a") << "fr" << 0x14 << 0 << true << C << "A";
    // AltGr levels, with Shift too.
    QTest::newRow("de AltGr q") << "de" << 0x14 << int(G) << false << C << "@";
    QTest::newRow("de AltGr caps q") << "de" << 0x14 << int(G) << true << C << "@";
    QTest::newRow("de AltGr e") << "de" << 0x08 << int(G) << false << C << "€";
    QTest::newRow("de Shift AltGr 3") << "de" << 0x20 << int(S | G) << false << C << "£";
    QTest::newRow("gb AltGr 4") << "gb" << 0x21 << int(G) << false << C << "€";
    QTest::newRow("ch(de) AltGr 2") << "ch(de)" << 0x1F << int(G) << false << C << "@";
    QTest::newRow("fr AltGr 0") << "fr" << 0x27 << int(G) << false << C << "@";
    // Right Alt on the US layout is Alt, so the key is a shortcut.
    QTest::newRow("us right alt a") << "us" << 0x04 << int(G) << false << N << "";
    QTest::newRow("us shift right alt a") << "us" << 0x04 << int(S | G) << false << N << "";
    // Control, Alt and GUI make shortcuts on every layout.
    QTest::newRow("de ctrl z") << "de" << 0x1C << 0x01 << false << N << "";
    QTest::newRow("de alt z") << "de" << 0x1C << 0x04 << false << N << "";
    QTest::newRow("de gui z") << "de" << 0x1C << 0x08 << false << N << "";
    QTest::newRow("de right ctrl AltGr q") << "de" << 0x14 << 0x50 << false << N << "";
    QTest::newRow("fr right gui a") << "fr" << 0x14 << 0x80 << false << N << "";
    // Dead keys report their spacing form.
    QTest::newRow("de dead circumflex") << "de" << 0x35 << 0 << false << D << "^";
    QTest::newRow("de dead acute") << "de" << 0x2E << 0 << false << D << "´";
    QTest::newRow("de dead grave") << "de" << 0x2E << int(S) << false << D << "`";
    QTest::newRow("fr dead circumflex") << "fr" << 0x2F << 0 << false << D << "^";
    QTest::newRow("fr dead diaeresis") << "fr" << 0x2F << int(S) << false << D << "¨";
    QTest::newRow("ch(de) dead tilde") << "ch(de)" << 0x2E << int(G) << false << D << "~";
    QTest::newRow("us grave is plain") << "us" << 0x35 << 0 << false << C << "`";
    // Editing keys and keys without characters.
    QTest::newRow("de return") << "de" << 0x28 << 0 << false << C << "\n";
    QTest::newRow("de keypad enter") << "de" << 0x58 << 0 << false << C << "\n";
    QTest::newRow("de tab") << "de" << 0x2B << 0 << false << C << "\t";
    QTest::newRow("de space") << "de" << 0x2C << 0 << false << C << " ";
    QTest::newRow("de backspace") << "de" << 0x2A << 0 << false << N << "";
    QTest::newRow("de escape") << "de" << 0x29 << 0 << false << N << "";
    QTest::newRow("de caps lock") << "de" << 0x39 << 0 << false << N << "";
    QTest::newRow("de F1") << "de" << 0x3A << 0 << false << N << "";
    QTest::newRow("de delete") << "de" << 0x4C << 0 << false << N << "";
    QTest::newRow("de no key") << "de" << 0x00 << 0 << false << N << "";
    QTest::newRow("de usage 0xFF") << "de" << 0xFF << 0 << false << N << "";
    QTest::newRow("de left shift key") << "de" << 0xE1 << 0 << false << N << "";
    // The keypad with Num Lock on; the German keypad has a decimal comma.
    QTest::newRow("us keypad 1") << "us" << 0x59 << 0 << false << C << "1";
    QTest::newRow("us keypad point") << "us" << 0x63 << 0 << false << C << ".";
    QTest::newRow("de keypad comma") << "de" << 0x63 << 0 << false << C << ",";
    QTest::newRow("fr keypad slash") << "fr" << 0x54 << 0 << false << C << "/";
    QTest::newRow("gb keypad plus") << "gb" << 0x57 << 0 << false << C << "+";
    // The key between left Shift and Z on ISO keyboards.
    QTest::newRow("de non-US backslash") << "de" << 0x64 << 0 << false << C << "<";
    QTest::newRow("gb non-US backslash") << "gb" << 0x64 << 0 << false << C << "\\";
    // 0x31 and 0x32 reach the same key.
    QTest::newRow("de backslash usage") << "de" << 0x31 << 0 << false << C << "#";
    QTest::newRow("us non-US hash") << "us" << 0x32 << 0 << false << C << "\\";
}

void TestKeyboardLayout::keyResults()
{
    QFETCH(QString, code);
    QFETCH(int, usage);
    QFETCH(int, modifiers);
    QFETCH(bool, capsLock);
    QFETCH(LayoutKeyResult::Kind, kind);
    QFETCH(QString, character);

    const LayoutKeyResult result =
        layout(code).keyResult(quint8(usage), quint8(modifiers), capsLock);
    QCOMPARE(int(result.kind), int(kind));
    if (kind == LayoutKeyResult::Nothing)
        return;
    QCOMPARE(characterText(result.character), characterText(character.toUcs4().value(0)));
}

QTEST_APPLESS_MAIN(TestKeyboardLayout)
#include "tst_keyboardlayout.moc"
