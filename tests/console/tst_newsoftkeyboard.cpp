// The on-screen keyboard: what each key emits, the grid it is laid out in, closing, dragging by
// the title bar, placement over its parent and hiding with it.

#include <QApplication>
#include <QCheckBox>
#include <QGridLayout>
#include <QMouseEvent>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

#include "console/input/newsoftkeyboard.h"

namespace {

const QString kCloseText = QStringLiteral("X");

QWidget *content(NewSoftKeyboard &keyboard)
{
    return keyboard.findChild<QWidget *>(QStringLiteral("contentWidget"));
}

// The key buttons only: the close button lives in the title bar.
QList<QPushButton *> keyButtons(NewSoftKeyboard &keyboard)
{
    return content(keyboard)->findChildren<QPushButton *>();
}

QPushButton *keyButton(NewSoftKeyboard &keyboard, const QString &text)
{
    for (QPushButton *button : keyButtons(keyboard)) {
        if (button->text() == text)
            return button;
    }
    return nullptr;
}

QPushButton *closeButton(NewSoftKeyboard &keyboard)
{
    for (QPushButton *button : keyboard.findChildren<QPushButton *>()) {
        if (button->text() == kCloseText && !content(keyboard)->isAncestorOf(button))
            return button;
    }
    return nullptr;
}

QGridLayout *keyGrid(NewSoftKeyboard &keyboard)
{
    return content(keyboard)->findChild<QGridLayout *>();
}

// Row, column and column span of a key in the grid.
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

// A left-button mouse event at a global position, delivered like a real one (ignored events
// travel to the parents).
bool sendMouse(QWidget *target, QEvent::Type type, const QPoint &global, Qt::MouseButtons held)
{
    QMouseEvent event(type, target->mapFromGlobal(global), global, Qt::LeftButton, held,
                      Qt::NoModifier);
    QApplication::sendEvent(target, &event);
    return event.isAccepted();
}

} // namespace

class TestNewSoftKeyboard : public QObject
{
    Q_OBJECT
private slots:
    void keysEmitTheirNames_data();
    void keysEmitTheirNames();
    void controlAltDeleteIgnoresCase_data();
    void controlAltDeleteIgnoresCase();
    void modifiersDoNotLatch();
    void grid_data();
    void grid();
    void gapBeforeTheFunctionRow();
    void keySizesAndFonts();
    void closeButtonHides();
    void hiddenIsNotEmittedReentrantly();
    void onlyPushButtonsEmit();
    void dragsByTheTitleBar();
    void doesNotDragFromKeysOrContent();
    void doubleClickOnTheTitleBarIsSwallowed();
    void showsBelowTheParentsCentre();
    void showsWithoutAParent();
    void hidesWhenItsParentIsInactive_data();
    void hidesWhenItsParentIsInactive();
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
    QTest::newRow("F1") << "F1"
                        << "F1";
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
    QTest::newRow("0") << "0"
                       << "0";
    QTest::newRow("[") << "["
                       << "[";
    QTest::newRow("backslash") << "\\"
                               << "\\";
    QTest::newRow("apostrophe") << "'"
                                << "'";
    QTest::newRow("back-quote") << "`"
                                << "`";
    QTest::newRow("slash") << "/"
                           << "/";
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

void TestNewSoftKeyboard::controlAltDeleteIgnoresCase_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("emitted");

    QTest::newRow("mixed") << "ctrl+Alt+del"
                           << "ctrl+alt+del";
    QTest::newRow("capitalised") << "Ctrl+Alt+Del"
                                 << "ctrl+alt+del";
    QTest::newRow("lower") << "ctrl+alt+del"
                           << "ctrl+alt+del";
    QTest::newRow("prefix only") << "Ctrl+Alt"
                                 << "Ctrl+Alt";
}

void TestNewSoftKeyboard::controlAltDeleteIgnoresCase()
{
    QFETCH(QString, text);
    QFETCH(QString, emitted);
    QCOMPARE(NewSoftKeyboard::keyNameForButtonText(text), emitted);
}

void TestNewSoftKeyboard::modifiersDoNotLatch()
{
    NewSoftKeyboard keyboard;
    QSignalSpy keys(&keyboard, &NewSoftKeyboard::keyPressed);
    QPushButton *shift = keyButton(keyboard, "Shift");
    QTest::mouseClick(shift, Qt::LeftButton);
    QTest::mouseClick(keyButton(keyboard, "Q"), Qt::LeftButton);
    QTest::mouseClick(shift, Qt::LeftButton);
    QCOMPARE(keys.count(), 3);
    QCOMPARE(keys.at(0).at(0).toString(), QStringLiteral("SHIFT"));
    QCOMPARE(keys.at(1).at(0).toString(), QStringLiteral("Q"));
    QCOMPARE(keys.at(2).at(0).toString(), QStringLiteral("SHIFT"));
    QVERIFY(!shift->isChecked());
}

void TestNewSoftKeyboard::grid_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QList<int>>("cell"); // row, column, span

    QTest::newRow("CTRL+ALT+DEL") << "CTRL+ALT+DEL" << QList<int>{0, 0, 3};
    // Row 2 is the 15 px gap; the function row (14 units) follows it.
    QTest::newRow("ESC") << "ESC" << QList<int>{3, 0, 1};
    QTest::newRow("F1") << "F1" << QList<int>{3, 1, 1};
    QTest::newRow("F12") << "F12" << QList<int>{3, 12, 1};
    QTest::newRow("power") << QString(QChar(0x23FB)) << QList<int>{3, 13, 1};
    QTest::newRow("back-quote") << "`" << QList<int>{4, 0, 1};
    QTest::newRow("Backspace") << "Backspace" << QList<int>{4, 13, 2};
    // A full row of 15 units wraps before its break: an empty row between.
    QTest::newRow("Tab") << "Tab" << QList<int>{6, 0, 2};
    QTest::newRow("Q") << "Q" << QList<int>{6, 2, 1};
    QTest::newRow("backslash") << "\\" << QList<int>{6, 14, 1};
    QTest::newRow("Caps") << "Caps" << QList<int>{8, 0, 2};
    QTest::newRow("apostrophe") << "'" << QList<int>{8, 12, 1};
    QTest::newRow("Enter") << "Enter" << QList<int>{8, 13, 2};
    // The shift row is 14 units: the bottom row follows directly.
    QTest::newRow("Z") << "Z" << QList<int>{10, 2, 1};
    QTest::newRow("up") << QString(QChar(0x2191)) << QList<int>{10, 13, 1};
    QTest::newRow("Fn") << "Fn" << QList<int>{11, 0, 2};
    QTest::newRow("Space") << "Space" << QList<int>{11, 5, 5};
    QTest::newRow("left") << QString(QChar(0x2190)) << QList<int>{11, 12, 1};
    QTest::newRow("right") << QString(QChar(0x2192)) << QList<int>{11, 14, 1};
}

void TestNewSoftKeyboard::grid()
{
    QFETCH(QString, key);
    QFETCH(QList<int>, cell);
    NewSoftKeyboard keyboard;
    QCOMPARE(gridCell(keyboard, key), cell);
}

void TestNewSoftKeyboard::gapBeforeTheFunctionRow()
{
    NewSoftKeyboard keyboard;
    QGridLayout *grid = keyGrid(keyboard);
    QCOMPARE(grid->itemAtPosition(1, 0), nullptr);
    QLayoutItem *gap = grid->itemAtPosition(2, 0);
    QVERIFY(gap && gap->widget());
    QVERIFY(!qobject_cast<QPushButton *>(gap->widget()));
    QCOMPARE(gap->widget()->minimumHeight(), 15);
    QCOMPARE(gap->widget()->maximumHeight(), 15);
}

void TestNewSoftKeyboard::keySizesAndFonts()
{
    NewSoftKeyboard keyboard;
    // Row by row: CTRL+ALT+DEL, function, number, Tab, Caps, Shift and bottom rows.
    QCOMPARE(keyButtons(keyboard).size(), 1 + 14 + 14 + 14 + 13 + 13 + 10);
    QCOMPARE(keyButton(keyboard, "Q")->size(), QSize(32, 35));
    QCOMPARE(keyButton(keyboard, "Backspace")->size(), QSize(64, 35));
    QCOMPARE(keyButton(keyboard, "Space")->size(), QSize(160, 35));
    QCOMPARE(keyButton(keyboard, "CTRL+ALT+DEL")->size(), QSize(96, 35));
    QCOMPARE(keyButton(keyboard, "Q")->font().pointSize(), 10);
    QCOMPARE(keyButton(keyboard, "Backspace")->font().pointSize(), 9);
    QCOMPARE(keyButton(keyboard, "Space")->font().pointSize(), 9);
    // A wide key's 9 points, made 2 points larger.
    QCOMPARE(keyButton(keyboard, "CTRL+ALT+DEL")->font().pointSize(), 11);
}

void TestNewSoftKeyboard::closeButtonHides()
{
    NewSoftKeyboard keyboard;
    QTest::ignoreMessage(QtDebugMsg, "[NewSoftKeyboard] 错误：没有父窗口！");
    keyboard.show();
    QSignalSpy hidden(&keyboard, &NewSoftKeyboard::hidden);
    QSignalSpy keys(&keyboard, &NewSoftKeyboard::keyPressed);
    QPushButton *close = closeButton(keyboard);
    QVERIFY(close);
    QTest::mouseClick(close, Qt::LeftButton);
    QVERIFY(!keyboard.isVisible());
    QCOMPARE(hidden.count(), 1);
    QCOMPARE(keys.count(), 0);
}

void TestNewSoftKeyboard::hiddenIsNotEmittedReentrantly()
{
    NewSoftKeyboard keyboard;
    int emitted = 0;
    // A handler that makes the keyboard see another hide event while `hidden` is being emitted.
    connect(&keyboard, &NewSoftKeyboard::hidden, &keyboard, [&] {
        ++emitted;
        QHideEvent again;
        QApplication::sendEvent(&keyboard, &again);
    });
    keyboard.show();
    keyboard.hide();
    QCOMPARE(emitted, 1);
    // The guard is lifted once the handlers have run.
    keyboard.show();
    keyboard.hide();
    QCOMPARE(emitted, 2);
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

void TestNewSoftKeyboard::dragsByTheTitleBar()
{
    NewSoftKeyboard keyboard;
    keyboard.move(200, 150);
    keyboard.show();
    QVERIFY(QTest::qWaitForWindowExposed(&keyboard));
    const QPoint start = keyboard.pos();
    const QPoint grip = keyboard.mapToGlobal(QPoint(60, 10)); // on the title label

    QVERIFY(sendMouse(&keyboard, QEvent::MouseButtonPress, grip, Qt::LeftButton));
    QCOMPARE(QWidget::mouseGrabber(), &keyboard);
    sendMouse(&keyboard, QEvent::MouseMove, grip + QPoint(40, 30), Qt::LeftButton);
    QCOMPARE(keyboard.pos(), start + QPoint(40, 30));
    sendMouse(&keyboard, QEvent::MouseButtonRelease, grip + QPoint(40, 30), Qt::NoButton);
    QCOMPARE(keyboard.pos(), start + QPoint(40, 30));
    QCOMPARE(QWidget::mouseGrabber(), nullptr);
    QVERIFY(!keyboard.hasMouseTracking());

    // The drag ended with the release.
    sendMouse(&keyboard, QEvent::MouseMove, grip + QPoint(90, 90), Qt::LeftButton);
    QCOMPARE(keyboard.pos(), start + QPoint(40, 30));
}

void TestNewSoftKeyboard::doesNotDragFromKeysOrContent()
{
    NewSoftKeyboard keyboard;
    keyboard.move(200, 150);
    keyboard.show();
    QVERIFY(QTest::qWaitForWindowExposed(&keyboard));
    const QPoint start = keyboard.pos();

    // A key takes the press itself.
    QPushButton *key = keyButton(keyboard, "Q");
    const QPoint onKey = key->mapToGlobal(QPoint(10, 10));
    sendMouse(key, QEvent::MouseButtonPress, onKey, Qt::LeftButton);
    sendMouse(key, QEvent::MouseMove, onKey + QPoint(40, 30), Qt::LeftButton);
    sendMouse(key, QEvent::MouseButtonRelease, onKey + QPoint(40, 30), Qt::NoButton);
    QCOMPARE(keyboard.pos(), start);

    // The content's margin passes the press on to the keyboard, outside the title bar.
    QWidget *area = content(keyboard);
    const QPoint onMargin = area->mapToGlobal(QPoint(2, 2));
    sendMouse(area, QEvent::MouseButtonPress, onMargin, Qt::LeftButton);
    sendMouse(area, QEvent::MouseMove, onMargin + QPoint(40, 30), Qt::LeftButton);
    sendMouse(&keyboard, QEvent::MouseMove, onMargin + QPoint(40, 30), Qt::LeftButton);
    sendMouse(area, QEvent::MouseButtonRelease, onMargin + QPoint(40, 30), Qt::NoButton);
    QCOMPARE(keyboard.pos(), start);
    QCOMPARE(QWidget::mouseGrabber(), nullptr);
}

void TestNewSoftKeyboard::doubleClickOnTheTitleBarIsSwallowed()
{
    NewSoftKeyboard keyboard;
    keyboard.move(200, 150);
    keyboard.show();
    QVERIFY(QTest::qWaitForWindowExposed(&keyboard));
    QSignalSpy keys(&keyboard, &NewSoftKeyboard::keyPressed);
    const QPoint start = keyboard.pos();
    const QPoint grip = keyboard.mapToGlobal(QPoint(60, 10));

    // Treated as a press, a double click would start a drag that the next move follows.
    QVERIFY(sendMouse(&keyboard, QEvent::MouseButtonDblClick, grip, Qt::LeftButton));
    QCOMPARE(QWidget::mouseGrabber(), nullptr);
    sendMouse(&keyboard, QEvent::MouseMove, grip + QPoint(40, 30), Qt::LeftButton);
    sendMouse(&keyboard, QEvent::MouseButtonRelease, grip + QPoint(40, 30), Qt::NoButton);
    QCOMPARE(keyboard.pos(), start);
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
    QVERIFY(keyboard->isWindow());
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

void TestNewSoftKeyboard::hidesWhenItsParentIsInactive_data()
{
    QTest::addColumn<bool>("parentActive");

    QTest::newRow("parent active") << true;
    QTest::newRow("another window active") << false;
}

void TestNewSoftKeyboard::hidesWhenItsParentIsInactive()
{
    QFETCH(bool, parentActive);
    QWidget parent;
    parent.setGeometry(100, 100, 400, 300);
    parent.show();
    QWidget other;
    other.setGeometry(600, 100, 200, 200);
    other.show();
    auto *keyboard = new NewSoftKeyboard(&parent);
    QSignalSpy hidden(keyboard, &NewSoftKeyboard::hidden);
    keyboard->show();

    QWidget *active = parentActive ? &parent : &other;
    active->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(active));
    QVERIFY(!keyboard->isActiveWindow());
    QEvent change(QEvent::ActivationChange);
    QApplication::sendEvent(keyboard, &change);

    QCOMPARE(keyboard->isVisible(), parentActive);
    QCOMPARE(hidden.count(), parentActive ? 0 : 1);
}

QTEST_MAIN(TestNewSoftKeyboard)

#include "tst_newsoftkeyboard.moc"
