#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include "targetscreen.h"

using namespace targetscreen;

class TestTargetScreen : public QObject
{
    Q_OBJECT
private slots:
    void readerFollowsTheBox();
    void foreignFilesAreNotRead_data();
    void foreignFilesAreNotRead();
};

void TestTargetScreen::readerFollowsTheBox()
{
    QTemporaryDir dir;
    const std::string path = dir.filePath("TK3V0001.screen").toStdString();
    Reader reader(path);
    State seen;
    QVERIFY(!reader.read(seen, 0)); // no box yet: the camera shows its test pattern

    State state;
    state.cursorX = 700;
    state.textEdits = 3;
    state.setText(std::string(5000, 'x') + "end");
    {
        Writer box;
        std::string error;
        QVERIFY2(box.open(path, error), error.c_str());
        box.publish(state);
        QVERIFY(reader.read(seen, 0));
        QCOMPARE(seen.cursorX, 700);
        QCOMPARE(int(seen.textLength), kTextCapacity); // the text's end is kept
        QVERIFY(QByteArray(seen.text, int(seen.textLength)).endsWith("xend"));
        QVERIFY(sameScreen(seen, state));
    }

    // A box started again takes the block over: the camera keeps its mapping and reads on.
    Writer again;
    std::string error;
    QVERIFY(again.open(path, error));
    QVERIFY(reader.read(seen, 60000));
    QCOMPARE(seen.cursorX, 700);
    state.cursorX = 5;
    again.publish(state);
    QVERIFY(reader.read(seen, 60000));
    QCOMPARE(seen.cursorX, 5);

    // A file put in its place (a box with a fresh folder) is found at the next check.
    QVERIFY(QFile::remove(QString::fromStdString(path)));
    Writer fresh;
    QVERIFY(fresh.open(path, error));
    state.cursorX = 9;
    fresh.publish(state);
    QVERIFY(reader.read(seen, 0));
    QCOMPARE(seen.cursorX, 9);
}

void TestTargetScreen::foreignFilesAreNotRead_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("short") << QByteArray("TKST");
    QTest::newRow("noise of a block's size") << QByteArray(int(sizeof(State)) + 16, '\x5A');
}

void TestTargetScreen::foreignFilesAreNotRead()
{
    QFETCH(QByteArray, content);
    QTemporaryDir dir;
    QFile file(dir.filePath("x.screen"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content);
    file.close();
    Reader reader(file.fileName().toStdString());
    State seen;
    QVERIFY(!reader.read(seen, 0));
}

QTEST_APPLESS_MAIN(TestTargetScreen)
#include "tst_targetscreen.moc"
