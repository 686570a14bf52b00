// The on-screen keyboard: what each key emits, the grid it is laid out in, closing, dragging by
// the title bar and placement over its parent.

#include <QApplication>
#include <QCheckBox>
#include <QGridLayout>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

#include "console/input/newsoftkeyboard.h"

namespace {

QPushButton *keyButton(NewSoftKeyboard &keyboard, const QString &text)
{
    for (QPushButton *button : keyboard.findChildren<QPushButton *>()) {
        if (button->text() == text && button->text() != QLatin1String("X"))
            return button;
    }
    return nullptr;
}

QGridLayout *keyGrid(NewSoftKeyboard &keyboard)
{
    return keyboard.findChild<QWidget *>("contentWidget")->findChild<QGridLayout *>();
}

// Row, column and span of a key in the grid.
QList<int> gridCell(NewSoftKeyboard &keyboard, const QString &text)
{
    QGridLayout *grid = keyGrid(keyboard);
    const int index = grid->indexOf(keyButton(keyboard, text));
    if (index < 0)
        return {};
    int row = 0, column = 0, rowSpan = 0, columnSpan = 0;
    grid->getItemPosition(index, &row, &column, &rowSpan, &columnSpan);
    return {row, column, columnSpan};
}

} // namespace

class TestNewSoftKeyboard : public QObject
{
    Q_OBJECT
private slots:
    void keysEmitTheirNames_data();
    void keysEmitTheirNames();
    void grid_data();
    void grid();
    void keySizesAndFonts();
    void closeButtonHides();
    void onlyPushButtonsEmit();
    void dragsByTheTitleBarOnly();
    void doubleClickOnTheTitleBarDoesNothing();
    void showsBelowTheParentsCentre();
    void showsWithoutAParent();
};

void TestNewSoftKeyboard::keysEmitTheirNames_data()
{
    QTest::addColumn<QString>("button");
    QTest::addColumn<QString>("emitted");

    QTest::newRow("Space") << "Space"
                           << " ";
    QTest::newRow("Enter") << "Enter"
                           << "\n";
    QTest::newRow("Backspace") << "Backspace" << QString(QChar(0x08));
    QTest::newRow("Tab") << "Tab"
                         << "\t";
    QTest::newRow("ESC") << "ESC"
                         << "ESC";
    QTest::newRow("F5") << "F5"
                        << "F5";
    QTest::newRow("F12") << "F12"
                         << "F12";
    QTest::newRow("power") << QString(QChar(0x23FB)) << "POWER";
    QTest::newRow("Caps") << "Caps"
                          << "CAPS_LOCK";
    QTest::newRow("Shift") << "Shift"
                           << "SHIFT";
    QTest::newRow("Ctrl") << "Ctrl"
                          << "CTRL";
    QTest::newRow("Alt") << "Alt"
                         << "ALT";
    QTest::newRow("Cmd") << "Cmd"
                         << "CMD";
    QTest::newRow("Fn") << "Fn"
                        << "FN";
    QTest::newRow("CTRL+ALT+DEL") << "CTRL+ALT+DEL"
                                  << "ctrl+alt+del";
    QTest::newRow("up") << QString(QChar(0x2191)) << "UP_ARROW";
    QTest::newRow("down") << QString(QChar(0x2193)) << "DOWN_ARROW";
    QTest::newRow("left") << QString(QChar(0x2190)) << "LEFT_ARROW";
    QTest::newRow("right") << QString(QChar(0x2192)) << "RIGHT_ARROW";
    QTest::newRow("Q") << "Q"
                       << "Q";
    QTest::newRow("1") << "1"
                       << "1";
    QTest::newRow("[") << "["
                       << "[";
    QTest::newRow("backslash") << "\\"
                               << "\\";
    QTest::newRow("apostrophe") << "'"
                                << "'";
    QTest::newRow("back-quote") << "`"
                                << "`";
}

void TestNewSoftKeyboard::keysEmitTheirNames()
{
    QFETCH(QString, button);
    QFETCH(QString, emitted);
    NewSoftKeyboard keyboard;
    QSignalSpy keys(&keyboard, &NewSoftKeyboard::keyPressed);
    QPushButton *key = keyButton(keyboard, button);
    QVERIFY(key);
    QTest::mouseClick(key, Qt::LeftButton);
    QCOMPARE(keys.count(), 1);
    QCOMPARE(keys.at(0).at(0).toString(), emitted);
}

void TestNewSoftKeyboard::grid_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QList<int>>("cell"); // row, column, span

    QTest::newRow("CTRL+ALT+DEL") << "CTRL+ALT+DEL" << QList<int>{0, 0, 3};
    // Row 2 is the 15 px gap; the function row follows it.
    QTest::newRow("ESC") << "ESC" << QList<int>{3, 0, 1};
    QTest::newRow("power") << QString(QChar(0x23FB)) << QList<int>{3, 13, 1};
    QTest::newRow("back-quote") << "`" << QList<int>{4, 0, 1};
    QTest::newRow("Backspace") << "Backspace" << QList<int>{4, 13, 2};
    // A full row of 15 units wraps before its break: an empty row between.
    QTest::newRow("Tab") << "Tab" << QList<int>{6, 0, 2};
    QTest::newRow("backslash") << "\\" << QList<int>{6, 14, 1};
    QTest::newRow("Caps") << "Caps" << QList<int>{8, 0, 2};
    QTest::newRow("Enter") << "Enter" << QList<int>{8, 13, 2};
    QTest::newRow("Z") << "Z" << QList<int>{10, 2, 1};
    QTest::newRow("up") << QString(QChar(0x2191)) << QList<int>{10, 13, 1};
    QTest::newRow("Fn") << "Fn" << QList<int>{11, 0, 2};
    QTest::newRow("Space") << "Space" << QList<int>{11, 5, 5};
    QTest::newRow("right") << QString(QChar(0x2192)) << QList<int>{11, 14, 1};
}

void TestNewSoftKeyboard::grid()
{
    QFETCH(QString, key);
    QFETCH(QList<int>, cell);
    NewSoftKeyboard keyboard;
    QCOMPARE(gridCell(keyboard, key), cell);
}

void TestNewSoftKeyboard::keySizesAndFonts()
{
    NewSoftKeyboard keyboard;
    // The close button, then the keys row by row.
    QCOMPARE(keyboard.findChildren<QPushButton *>().size(), 1 + (1 + 14 + 14 + 14 + 13 + 13 + 10));
    QCOMPARE(keyButton(keyboard, "Q")->size(), QSize(32, 35));
    QCOMPARE(keyButton(keyboard, "Backspace")->size(), QSize(64, 35));
    QCOMPARE(keyButton(keyboard, "Space")->size(), QSize(160, 35));
    QCOMPARE(keyButton(keyboard, "Q")->font().pointSize(), 10);
    QCOMPARE(keyButton(keyboard, "Backspace")->font().pointSize(), 9);
    QCOMPARE(keyButton(keyboard, "CTRL+ALT+DEL")->font().pointSize(), 11);
}

void TestNewSoftKeyboard::closeButtonHides()
{
    NewSoftKeyboard keyboard;
    keyboard.show();
    QSignalSpy hidden(&keyboard, &NewSoftKeyboard::hidden);
    QSignalSpy keys(&keyboard, &NewSoftKeyboard::keyPressed);
    auto buttons = keyboard.findChildren<QPushButton *>();
    auto close = std::find_if(buttons.begin(), buttons.end(),
                              [](QPushButton *b) { return b->text() == QLatin1String("X"); });
    QVERIFY(close != buttons.end());
    QTest::mouseClick(*close, Qt::LeftButton);
    QVERIFY(!keyboard.isVisible());
    QCOMPARE(hidden.count(), 1);
    QCOMPARE(keys.count(), 0);
}

void TestNewSoftKeyboard::onlyPushButtonsEmit()
{
    NewSoftKeyboard keyboard;
    QSignalSpy keys(&keyboard, &NewSoftKeyboard::keyPressed);
    QCheckBox notAKey(QStringLiteral("Q"));
    connect(&notAKey, &QCheckBox::clicked, &keyboard, &NewSoftKeyboard::buttonClicked);
    notAKey.click();
    QCOMPARE(keys.count(), 0);
}

void TestNewSoftKeyboard::dragsByTheTitleBarOnly()
{
    NewSoftKeyboard keyboard;
    keyboard.move(200, 150);
    keyboard.show();
    QVERIFY(QTest::qWaitForWindowExposed(&keyboard));
    const QPoint start = keyboard.pos();

    const QPoint grip(60, 10); // on the title label
    auto press = [&](QPoint at, QEvent::Type type, Qt::MouseButtons held) {
        QMouseEvent event(type, at, keyboard.mapToGlobal(at), Qt::LeftButton, held, Qt::NoModifier);
        QApplication::sendEvent(&keyboard, &event);
    };
    press(grip, QEvent::MouseButtonPress, Qt::LeftButton);
    press(grip + QPoint(40, 30), QEvent::MouseMove, Qt::LeftButton);
    QCOMPARE(keyboard.pos(), start + QPoint(40, 30));
    press(keyboard.mapFromGlobal(keyboard.mapToGlobal(grip)), QEvent::MouseButtonRelease,
          Qt::NoButton);

    // From a key: the key is pressed, the window stays.
    const QPoint moved = keyboard.pos();
    QPushButton *key = keyButton(keyboard, "Q");
    QTest::mousePress(key, Qt::LeftButton);
    QTest::mouseMove(key, QPoint(30, 30));
    QTest::mouseRelease(key, Qt::LeftButton);
    QCOMPARE(keyboard.pos(), moved);
}

void TestNewSoftKeyboard::doubleClickOnTheTitleBarDoesNothing()
{
    NewSoftKeyboard keyboard;
    keyboard.show();
    QSignalSpy keys(&keyboard, &NewSoftKeyboard::keyPressed);
    const QPoint before = keyboard.pos();
    QTest::mouseDClick(&keyboard, Qt::LeftButton, Qt::NoModifier, QPoint(60, 10));
    QCOMPARE(keyboard.pos(), before);
    QVERIFY(keyboard.isVisible());
    QCOMPARE(keys.count(), 0);
}

void TestNewSoftKeyboard::showsBelowTheParentsCentre()
{
    QWidget parent;
    parent.setGeometry(100, 100, 800, 600);
    parent.show();
    QVERIFY(QTest::qWaitForWindowExposed(&parent));
    auto *keyboard = new NewSoftKeyboard(&parent);
    keyboard->adjustSize();
    keyboard->show();
    const QPoint centre = parent.mapToGlobal(QPoint(400, 300));
    QCOMPARE(keyboard->pos(),
             QPoint(centre.x() - keyboard->width() / 2, centre.y() + 50 - keyboard->height() / 2));
}

void TestNewSoftKeyboard::showsWithoutAParent()
{
    NewSoftKeyboard keyboard;
    QTest::ignoreMessage(QtDebugMsg, "[NewSoftKeyboard] 错误：没有父窗口！");
    keyboard.show();
    QVERIFY(keyboard.isVisible());
}

QTEST_MAIN(TestNewSoftKeyboard)

#include "tst_newsoftkeyboard.moc"
