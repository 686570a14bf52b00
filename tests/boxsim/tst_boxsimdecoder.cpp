#include <QCommandLineParser>
#include <QTest>

#include "boxoptions.h"
#include "boxsimulator.h"
#include "hidtarget.h"
#include "protocol/ch9329.h"
#include "protocol/tkprotocol.h"

Q_DECLARE_METATYPE(BoxOptions)

namespace {

QByteArray hex(const char *text)
{
    return QByteArray::fromHex(QByteArray(text)); // blanks are skipped
}

QString hexText(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.toHex(' ').toUpper());
}

// A CH9329 frame written out field by field, independent of the console's encoder.
QByteArray frame(quint8 command, const QByteArray &data)
{
    QByteArray bytes = hex("57 AB 00");
    bytes += char(command);
    bytes += char(data.size());
    bytes += data;
    quint8 sum = 0;
    for (char byte : bytes)
        sum = quint8(sum + quint8(byte));
    return bytes + char(sum);
}

QByteArray keyboardFrame(quint8 modifiers, const QByteArray &keys = QByteArray())
{
    QByteArray data(8, '\0');
    data[0] = char(modifiers);
    for (int i = 0; i < keys.size() && i < 6; ++i)
        data[2 + i] = keys.at(i);
    return frame(0x02, data);
}

QByteArray relativeFrame(quint8 buttons, qint8 dx, qint8 dy)
{
    QByteArray data;
    data += char(0x01);
    data += char(buttons);
    data += char(dx);
    data += char(dy);
    data += char(0);
    return frame(0x05, data);
}

QByteArray mouseFrame(quint8 buttons, int x, int y, quint8 wheel, quint8 report = 0x02)
{
    QByteArray data;
    data += char(report);
    data += char(buttons);
    data += char(x & 0xFF);
    data += char(x >> 8);
    data += char(y & 0xFF);
    data += char(y >> 8);
    data += char(wheel);
    return frame(0x04, data);
}

BoxOptions testOptions()
{
    BoxOptions options;
    options.link = QStringLiteral("/tmp/tk-test");
    options.seed = 7;
    return options;
}

// The event lines of the outputs; "frame" lines only when asked for.
QStringList eventLines(const QVector<BoxOutput> &outputs, bool withFrames = false)
{
    QStringList lines;
    for (const BoxOutput &output : outputs) {
        if (output.kind != BoxOutput::Event)
            continue;
        const QString line = QString::fromUtf8(output.line).trimmed();
        if (withFrames || !line.startsWith(QLatin1String("{\"event\":\"frame\"")))
            lines << line;
    }
    return lines;
}

QStringList eventNames(const QVector<BoxOutput> &outputs)
{
    QStringList names;
    for (const BoxOutput &output : outputs) {
        const QByteArray line = output.line;
        const int start = line.indexOf(":\"") + 2;
        names << QString::fromUtf8(line.mid(start, line.indexOf('"', start) - start));
    }
    return names;
}

QVector<QByteArray> sentBytes(const QVector<BoxOutput> &outputs)
{
    QVector<QByteArray> sent;
    for (const BoxOutput &output : outputs) {
        if (output.kind == BoxOutput::Send)
            sent << output.bytes;
    }
    return sent;
}

struct KeyStep
{
    int key;
    int action; // 0 press, 1 release
};

QVector<KeyStep> tap(int key)
{
    return {{key, 0}, {key, 1}};
}

// Keys the console sends to type `text` on a US layout: letters by their upper-case code,
// shifted characters as Shift plus their unshifted key, a line feed as Shift+Return.
QVector<KeyStep> typed(const QString &text)
{
    static const QString shifted = QStringLiteral("~!@#$%^&*()_+{}|:\"<>?\n");
    static const QVector<int> unshifted = {'`', '1',  '2', '3', '4', '5',           '6', '7',
                                           '8', '9',  '0', '-', '=', '[',           ']', '\\',
                                           ';', '\'', ',', '.', '/', Qt::Key_Return};
    QVector<KeyStep> steps;
    for (const QChar c : text) {
        int key = c.unicode();
        bool shift = false;
        if (c >= QLatin1Char('a') && c <= QLatin1Char('z')) {
            key = c.unicode() - 0x20;
        } else if (c >= QLatin1Char('A') && c <= QLatin1Char('Z')) {
            shift = true;
        } else if (shifted.contains(c)) {
            key = unshifted.at(shifted.indexOf(c));
            shift = true;
        }
        if (shift)
            steps << KeyStep{Qt::Key_Shift, 0};
        steps << tap(key);
        if (shift)
            steps << KeyStep{Qt::Key_Shift, 1};
    }
    return steps;
}

} // namespace

class TestBoxSimDecoder : public QObject
{
    Q_OBJECT
private slots:
    void encoderKeyboardFrames_data();
    void encoderKeyboardFrames();
    void handWrittenKeyboardFrames_data();
    void handWrittenKeyboardFrames();
    void mouseFrames_data();
    void mouseFrames();
    void encoderMouseFrames_data();
    void encoderMouseFrames();
    void badChecksumIsRejected();
    void splitReads_data();
    void splitReads();
    void garbageBetweenFrames_data();
    void garbageBetweenFrames();
    void mixedVendorPacketsAndFrames();
    void vendorCommands_data();
    void vendorCommands();
    void corruptChecksums();
    void garbageAroundReplies();
    void lineDropForgetsPartialInputAndKeys();
    void hungControllerAnswersNothingButPassesFrames();
    void options_data();
    void options();
    void encodedPixelLandsOnItsTargetPixel_data();
    void encodedPixelLandsOnItsTargetPixel();
    void targetScreen_data();
    void targetScreen();
    void pollingLosesReplacedReports();
    void typingOnLayouts_data();
    void typingOnLayouts();
};

void TestBoxSimDecoder::encoderKeyboardFrames_data()
{
    QTest::addColumn<QVector<KeyStep>>("steps");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("keysDown");

    const QVector<KeyStep> shiftA = {
        {Qt::Key_Shift, 0}, {Qt::Key_A, 0}, {Qt::Key_A, 1}, {Qt::Key_Shift, 1}};
    QTest::newRow("shift+a") << shiftA << "A" << QStringList{"LeftShift", "A"};
    QTest::newRow("Hello, World!")
        << typed("Hello, World!") << "Hello, World!"
        << QStringList{"LeftShift", "H", "E", "L", "L", "O", "Comma",     "Space",
                       "LeftShift", "W", "O", "R", "L", "D", "LeftShift", "1"};
    QTest::newRow("punctuation") << typed("a-b=c`~_+[]{};:'\"<>?/\\|")
                                 << "a-b=c`~_+[]{};:'\"<>?/\\|" << QStringList();
    QTest::newRow("line feed is shift+return") << typed("ab\ncd") << "ab\ncd" << QStringList();
    QTest::newRow("backspace") << typed("abc") + tap(Qt::Key_Backspace) << "ab" << QStringList();
    QTest::newRow("command key types nothing") << QVector<KeyStep>{{Qt::Key_Control, 0},
                                                                   {Qt::Key_C, 0},
                                                                   {Qt::Key_C, 1},
                                                                   {Qt::Key_Control, 1}}
                                               << "" << QStringList{"LeftGUI", "C"};
    QTest::newRow("ctrl+alt+del") << QVector<KeyStep>{{Qt::Key_Meta, 0},   {Qt::Key_Alt, 0},
                                                      {Qt::Key_Delete, 0}, {Qt::Key_Delete, 1},
                                                      {Qt::Key_Alt, 1},    {Qt::Key_Meta, 1}}
                                  << "" << QStringList{"LeftControl", "LeftAlt", "Delete"};
    QTest::newRow("function and editing keys")
        << tap(Qt::Key_F1) + tap(Qt::Key_F12) + tap(Qt::Key_Escape) + tap(Qt::Key_Up) +
               tap(Qt::Key_PageDown) + tap(Qt::Key_Enter)
        << "\n"
        << QStringList{"F1", "F12", "Escape", "Up", "PageDown", "KeypadEnter"};
    QTest::newRow("keypad keys") << tap(0x01000065) + tap(0x01000064) + tap(0x0100006E) << "1*0"
                                 << QStringList{"Keypad1", "KeypadAsterisk", "Keypad0"};
}

void TestBoxSimDecoder::encoderKeyboardFrames()
{
    QFETCH(QVector<KeyStep>, steps);
    QFETCH(QString, text);
    QFETCH(QStringList, keysDown);

    BoxSimulator box(testOptions());
    QStringList downs;
    for (const KeyStep &step : steps) {
        uint8_t out[14] = {};
        QCOMPARE(key_convert(0, step.key, step.action, out), 0);
        const QVector<BoxOutput> outputs =
            box.receive(QByteArray(reinterpret_cast<const char *>(out), 14));
        QVERIFY2(!eventLines(outputs).join(' ').contains("bad_frame"),
                 qPrintable(eventLines(outputs).join(' ')));
        for (const BoxOutput &output : outputs) {
            const QByteArray prefix = "{\"event\":\"key_down\",\"key\":\"";
            if (output.line.startsWith(prefix)) {
                const int end = output.line.indexOf('"', prefix.size());
                downs << QString::fromUtf8(output.line.mid(prefix.size(), end - prefix.size()));
            }
        }
    }
    QCOMPARE(box.target().text(), text);
    if (!keysDown.isEmpty())
        QCOMPARE(downs, keysDown);
    // Every row releases what it pressed; the encoder's state is process-wide.
    QVERIFY(box.target().heldKeys().isEmpty());
    QCOMPARE(box.target().modifiers(), quint8(0));
}

void TestBoxSimDecoder::handWrittenKeyboardFrames_data()
{
    QTest::addColumn<QByteArray>("stream");
    QTest::addColumn<QStringList>("lines");

    // Shift down, A down, all up.
    QTest::newRow("shift, A, release all")
        << hex("57 AB 00 02 08 02 00 00 00 00 00 00 00 0E"
               "57 AB 00 02 08 02 00 04 00 00 00 00 00 12"
               "57 AB 00 02 08 00 00 00 00 00 00 00 00 0C")
        << QStringList{R"({"event":"key_down","key":"LeftShift","usage":225})",
                       R"({"event":"modifiers","held":["LeftShift"]})",
                       R"({"event":"key_down","key":"A","usage":4})",
                       R"({"event":"text","text":"A"})",
                       R"({"event":"key_up","key":"LeftShift","usage":225})",
                       R"({"event":"modifiers","held":[]})",
                       R"({"event":"key_up","key":"A","usage":4})"};
    QTest::newRow("right shift types shifted digit")
        << keyboardFrame(0x20, hex("1E")) + keyboardFrame(0)
        << QStringList{R"({"event":"key_down","key":"RightShift","usage":229})",
                       R"({"event":"modifiers","held":["RightShift"]})",
                       R"({"event":"key_down","key":"1","usage":30})",
                       R"({"event":"text","text":"!"})",
                       R"({"event":"key_up","key":"RightShift","usage":229})",
                       R"({"event":"modifiers","held":[]})",
                       R"({"event":"key_up","key":"1","usage":30})"};
    QTest::newRow("two keys in one report, one text line")
        << keyboardFrame(0, hex("05 06"))
        << QStringList{R"({"event":"key_down","key":"B","usage":5})",
                       R"({"event":"key_down","key":"C","usage":6})",
                       R"({"event":"text","text":"bc"})"};
    QTest::newRow("caps lock") << keyboardFrame(0, hex("39")) + keyboardFrame(0, hex("04"))
                               << QStringList{R"({"event":"key_down","key":"CapsLock","usage":57})",
                                              R"({"event":"key_up","key":"CapsLock","usage":57})",
                                              R"({"event":"key_down","key":"A","usage":4})",
                                              R"({"event":"text","text":"A"})"};
    QTest::newRow("backspace on empty text changes nothing")
        << keyboardFrame(0, hex("2A"))
        << QStringList{R"({"event":"key_down","key":"Backspace","usage":42})"};
    QTest::newRow("roll-over report keeps the held keys")
        << keyboardFrame(0, hex("04")) + keyboardFrame(0, hex("01 01 01 01 01 01")) +
               keyboardFrame(0)
        << QStringList{R"({"event":"key_down","key":"A","usage":4})",
                       R"({"event":"text","text":"a"})",
                       R"({"event":"key_up","key":"A","usage":4})"};
    QTest::newRow("keys without a name")
        << keyboardFrame(0, hex("A5 E7"))
        << QStringList{R"({"event":"key_down","key":"Usage0xA5","usage":165})",
                       R"({"event":"key_down","key":"RightGUI","usage":231})"};
}

void TestBoxSimDecoder::handWrittenKeyboardFrames()
{
    QFETCH(QByteArray, stream);
    QFETCH(QStringList, lines);

    BoxSimulator box(testOptions());
    QCOMPARE(eventLines(box.receive(stream)), lines);
}

void TestBoxSimDecoder::mouseFrames_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("line"); // after the "frame" line when the frame is taken

    QTest::newRow("reference press")
        << hex("57AB0004070201400115020068")
        << R"({"event":"mouse","x":320,"y":533,"buttons":1,"wheel":0})";
    QTest::newRow("reference release2")
        << hex("57AB0004070200190C6B0A00A9")
        << R"({"event":"mouse","x":3097,"y":2667,"buttons":0,"wheel":0})";
    QTest::newRow("wheel down is negative")
        << mouseFrame(0, 100, 200, 0xFF)
        << R"({"event":"mouse","x":100,"y":200,"buttons":0,"wheel":-1})";
    QTest::newRow("bottom-right edge, right button, wheel up")
        << mouseFrame(2, 4096, 4096, 3)
        << R"({"event":"mouse","x":4096,"y":4096,"buttons":2,"wheel":3})";
    const auto bad = [](const char *reason, const QByteArray &bytes) {
        return QStringLiteral("{\"event\":\"bad_frame\",\"reason\":\"%1\",\"hex\":\"%2\","
                              "\"kind\":\"mouse_abs\"}")
            .arg(QLatin1String(reason), hexText(bytes));
    };
    const QByteArray outside = mouseFrame(0, 0, 4097, 0);
    QTest::newRow("y beyond 4096") << outside << bad("range", outside);
    const QByteArray relative = mouseFrame(0, 10, 10, 0, 0x01);
    QTest::newRow("not an absolute report") << relative << bad("format", relative);
    const QByteArray shortFrame = frame(0x04, hex("02 00 00 00 00 00"));
    QTest::newRow("six data bytes") << shortFrame << bad("length", shortFrame);
}

void TestBoxSimDecoder::mouseFrames()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, line);

    BoxSimulator box(testOptions());
    QStringList expected;
    if (!line.contains(QLatin1String("bad_frame")))
        expected << "{\"event\":\"frame\",\"kind\":\"mouse_abs\",\"hex\":\"" + hexText(bytes) +
                        "\"}";
    expected << line;
    QCOMPARE(eventLines(box.receive(bytes), true), expected);
    if (line.contains(QLatin1String("bad_frame"))) {
        QCOMPARE(box.target().x(), 0);
        QCOMPARE(box.target().y(), 0);
    }
}

void TestBoxSimDecoder::encoderMouseFrames_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<int>("px");
    QTest::addColumn<int>("py");
    QTest::addColumn<int>("buttons");
    QTest::addColumn<int>("wheel");
    QTest::addColumn<QString>("line");

    QTest::newRow("centre of 1920x1080")
        << 1920 << 1080 << 960 << 540 << 0 << 0
        << R"({"event":"mouse","x":2048,"y":2048,"buttons":0,"wheel":0})";
    QTest::newRow("origin, left button")
        << 1920 << 1080 << 0 << 0 << 1 << 0
        << R"({"event":"mouse","x":0,"y":0,"buttons":1,"wheel":0})";
    QTest::newRow("last pixel, wheel down")
        << 1920 << 1080 << 1919 << 1079 << 0 << 0xFE
        << R"({"event":"mouse","x":4093,"y":4092,"buttons":0,"wheel":-2})";
}

void TestBoxSimDecoder::encoderMouseFrames()
{
    QFETCH(int, width);
    QFETCH(int, height);
    QFETCH(int, px);
    QFETCH(int, py);
    QFETCH(int, buttons);
    QFETCH(int, wheel);
    QFETCH(QString, line);

    const uint16_t size[2] = {uint16_t(width), uint16_t(height)};
    const uint16_t point[2] = {uint16_t(px), uint16_t(py)};
    uint8_t out[13] = {};
    QCOMPARE(coord_convert(0, 0, size, point, uint8_t(buttons), uint8_t(wheel), out), 0);
    BoxSimulator box(testOptions());
    const QStringList lines =
        eventLines(box.receive(QByteArray(reinterpret_cast<const char *>(out), 13)));
    QCOMPARE(lines, QStringList{line});
}

void TestBoxSimDecoder::badChecksumIsRejected()
{
    // Any command with a good checksum is a frame, even one the target ignores.
    const QByteArray media = frame(0x03, hex("02 00 00 00"));
    BoxSimulator quiet(testOptions());
    QCOMPARE(
        eventLines(quiet.receive(media), true),
        QStringList{"{\"event\":\"frame\",\"kind\":\"other\",\"hex\":\"" + hexText(media) + "\"}"});

    QByteArray broken = keyboardFrame(0, hex("04"));
    broken[13] = char(broken.at(13) + 1);
    BoxSimulator box(testOptions());
    QCOMPARE(eventLines(box.receive(broken)),
             QStringList{"{\"event\":\"bad_frame\",\"reason\":\"checksum\",\"hex\":\"" +
                         hexText(broken) + "\",\"kind\":\"keyboard\"}"});
    QVERIFY(box.target().heldKeys().isEmpty());
    QVERIFY(box.target().text().isEmpty());

    // The next good frame is taken as usual.
    QCOMPARE(eventLines(box.receive(keyboardFrame(0, hex("05")))),
             (QStringList{R"({"event":"key_down","key":"B","usage":5})",
                          R"({"event":"text","text":"b"})"}));

    QByteArray brokenPacket = TkProtocol::createDeviceInfoQueryPacket(0);
    brokenPacket[17] = char(brokenPacket.at(17) ^ 1);
    const QVector<BoxOutput> outputs = box.receive(brokenPacket);
    QCOMPARE(eventLines(outputs),
             QStringList{"{\"event\":\"bad_frame\",\"reason\":\"checksum\",\"hex\":\"" +
                         hexText(brokenPacket) + "\",\"kind\":\"vendor\"}"});
    QVERIFY(sentBytes(outputs).isEmpty());
}

namespace {

// Keyboard and mouse frames, "hello" and vendor packets back to back.
QByteArray mixedStream()
{
    return QByteArray("hello") + keyboardFrame(0x02, hex("0B")) + keyboardFrame(0) +
           hex("57 AB 01 00 00 00 00 06 00 00 00 01 00 00 00 00 00 44 01 00 00") +
           mouseFrame(1, 2048, 1024, 0) +
           hex("57 AB 01 00 00 00 00 07 00 00 00 03 00 01 00 00 00 02 96 01 00 00") +
           keyboardFrame(0, hex("08")) + mouseFrame(0, 2048, 1024, 0x01) + QByteArray("hello");
}

} // namespace

void TestBoxSimDecoder::splitReads_data()
{
    QTest::addColumn<int>("chunk");
    for (int chunk : {1, 2, 3, 5, 7, 16, 21, 64})
        QTest::addRow("%d-byte reads", chunk) << chunk;
}

void TestBoxSimDecoder::splitReads()
{
    QFETCH(int, chunk);
    const QByteArray stream = mixedStream();

    BoxSimulator whole(testOptions());
    const QVector<BoxOutput> expected = whole.receive(stream);
    QCOMPARE(eventNames(expected),
             (QStringList{"hello", "frame",  "key_down",  "modifiers", "key_down", "text",
                          "frame", "key_up", "modifiers", "key_up",    "command",  "reply",
                          "frame", "mouse",  "command",   "reply",     "frame",    "key_down",
                          "text",  "frame",  "mouse",     "hello"}));

    BoxSimulator pieces(testOptions());
    QVector<BoxOutput> got;
    for (int at = 0; at < stream.size(); at += chunk)
        got += pieces.receive(stream.mid(at, chunk));
    QCOMPARE(eventLines(got, true), eventLines(expected, true));
    QCOMPARE(sentBytes(got), sentBytes(expected));
    QCOMPARE(pieces.target().text(), QStringLiteral("He"));
    QCOMPARE(pieces.splitter().buffered(), 0);
}

void TestBoxSimDecoder::garbageBetweenFrames_data()
{
    QTest::addColumn<QByteArray>("garbage");
    QTest::addColumn<int>("badFrames");

    // The garbage goes before, between and after five frames: six times.
    QTest::newRow("noise") << hex("00 FF 13 AB 00 02 68 65 6C 6C") << 0;
    QTest::newRow("lone first magic byte") << hex("57 00 57") << 0;
    QTest::newRow("magic with another address") << hex("57 AB 05 02 08") << 0;
    QTest::newRow("half a hello") << QByteArray("hel") << 0;
    QTest::newRow("frame length above 64") << hex("57 AB 00 02 FF") << 6;
    // Five fail their checksum with the next frame's bytes; the last one stays incomplete.
    QTest::newRow("cut-off keyboard frame") << hex("57 AB 00 02 08 02") << 6;
    QTest::newRow("vendor header with wrong body length")
        << hex("57 AB 01 00 00 00 00 09 00 00 00 01 00 00 00 00 00") << 6;
    QTest::newRow("vendor header announcing 1 MB")
        << hex("57 AB 01 00 00 00 00 06 00 10 00 01 00 00 00 10 00") << 6;
    // Plausible, so the splitter waits for 61 bytes, finds the checksum wrong and resumes; the
    // last two never get their 61 bytes and go when the line falls quiet.
    QTest::newRow("vendor header announcing 40 bytes")
        << hex("57 AB 01 00 00 00 00 2E 00 00 00 01 00 28 00 00 00") << 6;
}

void TestBoxSimDecoder::garbageBetweenFrames()
{
    QFETCH(QByteArray, garbage);
    QFETCH(int, badFrames);

    const QByteArray frames[] = {keyboardFrame(0, hex("04")), keyboardFrame(0),
                                 keyboardFrame(0, hex("05")), keyboardFrame(0),
                                 mouseFrame(0, 10, 20, 0)};
    QByteArray clean;
    QByteArray dirty = garbage;
    for (const QByteArray &bytes : frames) {
        clean += bytes;
        dirty += bytes + garbage;
    }

    BoxSimulator reference(testOptions());
    const QStringList expected = eventLines(reference.receive(clean), true);
    BoxSimulator box(testOptions());
    QVector<BoxOutput> outputs = box.receive(dirty);
    outputs += box.flushIncomplete();
    QStringList got = eventLines(outputs, true);
    const int rejected = int(got.removeIf(
        [](const QString &line) { return line.contains(QLatin1String("bad_frame")); }));

    QCOMPARE(got, expected);
    QCOMPARE(rejected, badFrames);
    QCOMPARE(box.target().text(), QStringLiteral("ab"));
    QCOMPARE(box.splitter().buffered(), 0);
}

void TestBoxSimDecoder::mixedVendorPacketsAndFrames()
{
    BoxSimulator box(testOptions());
    const QVector<BoxOutput> outputs = box.receive(mixedStream());

    const QVector<QByteArray> sent = sentBytes(outputs);
    QCOMPARE(sent.size(), 2);
    QByteArray buffer = sent.at(0) + sent.at(1);
    TkPacket packet;
    QVERIFY(TkProtocol::tryConsumeOnePacket(buffer, packet));
    QCOMPARE(packet.command, quint16(0x81));
    QCOMPARE(packet.payload.size(), 134);
    QVERIFY(packet.payload.startsWith("TK0000000001"));
    QVERIFY(TkProtocol::tryConsumeOnePacket(buffer, packet));
    QCOMPARE(packet.command, quint16(0));
    QCOMPARE(packet.payload, hex("00"));
    QVERIFY(buffer.isEmpty());

    QCOMPARE(box.udiskDir(), quint8(2));
    QCOMPARE(box.target().x(), 2048);
    QCOMPARE(box.target().y(), 1024);
    QCOMPARE(box.target().wheelTotal(), 1);
    QCOMPARE(box.target().heldKeys(), QVector<int>{0x08});
}

void TestBoxSimDecoder::vendorCommands_data()
{
    QTest::addColumn<BoxOptions>("options");
    QTest::addColumn<QByteArray>("packet");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("replyCommand"); // -1: no reply
    QTest::addColumn<QByteArray>("replyPayload");
    QTest::addColumn<bool>("restarts");
    QTest::addColumn<int>("udiskDir");
    QTest::addColumn<bool>("autoMove");

    const BoxOptions plain = testOptions();
    BoxOptions refusing = plain;
    refusing.replyCode = 3;
    BoxOptions silent = plain;
    silent.noReplies = true;

    const QByteArray query = hex("57 AB 01 00 00 00 00 06 00 00 00 01 00 00 00 00 00 44 01 00 00");
    const QByteArray toHost =
        hex("57 AB 01 00 00 00 00 07 00 00 00 03 00 01 00 00 00 02 96 01 00 00");
    const QByteArray autoMoveOn =
        hex("57 AB 01 00 00 00 00 07 00 00 00 0B 00 01 00 00 00 01 8C 01 00 00");
    const QByteArray restart =
        hex("57 AB 01 00 00 00 00 0A 00 00 00 0A 00 04 00 00 00 01 00 00 00 8A 01 00 00");

    QTest::newRow("information query")
        << plain << query << "device_info_query" << 0x81 << QByteArray() << false << 1 << false;
    QTest::newRow("USB disk to the host")
        << plain << toHost << "udisk_set" << 0 << hex("00") << false << 2 << false;
    QTest::newRow("USB disk refused")
        << refusing << toHost << "udisk_set" << 0 << hex("03") << false << 1 << false;
    QTest::newRow("auto-move on") << plain << autoMoveOn << "mouse_auto_move_set" << 0 << hex("00")
                                  << false << 1 << true;
    QTest::newRow("restart") << plain << restart << "restart" << 0 << hex("00") << true << 1
                             << false;
    QTest::newRow("restart refused")
        << refusing << restart << "restart" << 0 << hex("03") << false << 1 << false;
    QTest::newRow("ATX power") << plain << TkProtocol::createAtxPowerPacket(1, 0) << "atx_power"
                               << 0 << hex("00") << false << 1 << false;
    QTest::newRow("unknown command") << plain << TkProtocol::buildPacket(0x22, hex("01"), 0)
                                     << "unknown" << -1 << QByteArray() << false << 1 << false;
    QTest::newRow("no replies, state still changes")
        << silent << toHost << "udisk_set" << -1 << QByteArray() << false << 2 << false;
}

void TestBoxSimDecoder::vendorCommands()
{
    QFETCH(BoxOptions, options);
    QFETCH(QByteArray, packet);
    QFETCH(QString, name);
    QFETCH(int, replyCommand);
    QFETCH(QByteArray, replyPayload);
    QFETCH(bool, restarts);
    QFETCH(int, udiskDir);
    QFETCH(bool, autoMove);

    BoxSimulator box(options);
    const QVector<BoxOutput> outputs = box.receive(packet);
    QVERIFY(!outputs.isEmpty());
    const quint16 command = quint16(packet.at(11));
    QCOMPARE(QString::fromUtf8(outputs.first().line),
             QStringLiteral("{\"event\":\"command\",\"command\":%1,\"name\":\"%2\"}\n")
                 .arg(command)
                 .arg(name));

    const QVector<QByteArray> sent = sentBytes(outputs);
    if (replyCommand < 0) {
        QVERIFY(sent.isEmpty());
    } else {
        QCOMPARE(sent.size(), 1);
        QByteArray buffer = sent.first();
        TkPacket reply;
        QVERIFY(TkProtocol::tryConsumeOnePacket(buffer, reply));
        QVERIFY(buffer.isEmpty());
        QCOMPARE(reply.channel, quint8(1));
        QCOMPARE(int(reply.command), replyCommand);
        if (replyCommand == 0) {
            QCOMPARE(reply.payload, replyPayload);
            QCOMPARE(outputs.at(1).line,
                     QByteArray("{\"event\":\"reply\",\"command\":0,\"code\":") +
                         QByteArray::number(quint8(replyPayload.at(0))) + "}\n");
        } else {
            QCOMPARE(reply.payload, box.deviceInfoRecord());
            QCOMPARE(outputs.at(1).line,
                     QByteArray("{\"event\":\"reply\",\"command\":129,\"length\":134}\n"));
        }
    }
    const bool restarted = std::any_of(outputs.begin(), outputs.end(), [](const BoxOutput &o) {
        return o.kind == BoxOutput::Restart;
    });
    QCOMPARE(restarted, restarts);
    if (restarts) {
        QCOMPARE(outputs.last().kind, BoxOutput::Restart); // after the reply
        QCOMPARE(outputs.last().downTimeMs, 500);
        QCOMPARE(outputs.last().line, QByteArray("{\"event\":\"restart\",\"downtime_ms\":500}\n"));
    }
    QCOMPARE(int(box.udiskDir()), udiskDir);
    QCOMPARE(box.mouseAutoMove(), autoMove);
    QCOMPARE(TkProtocol::udiskDirFromPayload(box.deviceInfoRecord()), udiskDir);
    QCOMPARE(TkProtocol::mouseAutoMoveFromPayload(box.deviceInfoRecord()), autoMove ? 1 : 0);
}

void TestBoxSimDecoder::corruptChecksums()
{
    BoxOptions options = testOptions();
    options.corruptChecksums = true;
    BoxSimulator box(options);
    const QVector<BoxOutput> outputs = box.receive(TkProtocol::createDeviceInfoQueryPacket(0) +
                                                   TkProtocol::createUdiskSetPacket(2, 0));
    const QVector<QByteArray> sent = sentBytes(outputs);
    QCOMPARE(sent.size(), 2);
    for (QByteArray buffer : sent) {
        TkPacket packet;
        QVERIFY(!TkProtocol::tryConsumeOnePacket(buffer, packet));
    }
    // Still reported as sent: the box believes it answered.
    QCOMPARE(eventNames(outputs), (QStringList{"command", "reply", "command", "reply"}));
}

void TestBoxSimDecoder::garbageAroundReplies()
{
    for (quint32 seed = 1; seed <= 50; ++seed) {
        BoxOptions options = testOptions();
        options.garbageBetween = true;
        options.seed = seed;
        BoxSimulator box(options);
        const QByteArray expected = TkProtocol::buildPacket(0, hex("00"), 0);
        const QVector<QByteArray> sent =
            sentBytes(box.receive(TkProtocol::createMouseAutoMoveSetPacket(true, 0)));
        QCOMPARE(sent.size(), 1);
        const QByteArray bytes = sent.first();
        const int at = int(bytes.indexOf(expected));
        QVERIFY2(at > 0, "garbage before the packet");
        QVERIFY2(at + expected.size() < bytes.size(), "garbage after the packet");
        const QByteArray garbage = bytes.left(at) + bytes.mid(at + expected.size());
        QVERIFY2(!garbage.contains(char(0x57)), "garbage never starts a magic");

        QByteArray buffer = bytes;
        TkPacket packet;
        QVERIFY(TkProtocol::tryConsumeOnePacket(buffer, packet));
        QCOMPARE(packet.payload, hex("00"));
    }
}

void TestBoxSimDecoder::lineDropForgetsPartialInputAndKeys()
{
    BoxSimulator box(testOptions());
    box.receive(keyboardFrame(0x02, hex("04")) + QByteArray("hel"));
    QCOMPARE(box.target().modifiers(), quint8(0x02));
    box.lineDropped();
    QVERIFY(box.target().heldKeys().isEmpty());
    QCOMPARE(box.target().modifiers(), quint8(0));
    QCOMPARE(box.target().text(), QStringLiteral("A"));
    // "lo" alone after the drop is no greeting.
    QVERIFY(eventLines(box.receive("lo")).isEmpty());
    QCOMPARE(eventLines(box.receive("hello")), QStringList{R"({"event":"hello"})"});
}

void TestBoxSimDecoder::hungControllerAnswersNothingButPassesFrames()
{
    BoxSimulator box(testOptions());
    box.setAnswering(false);
    QVector<BoxOutput> outputs =
        box.receive(TkProtocol::createDeviceInfoQueryPacket(0) +
                    TkProtocol::createUdiskSetPacket(2, 0) + keyboardFrame(0x02, hex("04")));
    QVERIFY(sentBytes(outputs).isEmpty());
    QCOMPARE(eventNames(outputs).count("command"), 2);
    QCOMPARE(box.target().heldKeys(), QVector<int>({0x04}));
    QCOMPARE(box.udiskDir(), quint8(2)); // received and applied, only not answered

    box.setAnswering(true);
    outputs = box.receive(TkProtocol::createDeviceInfoQueryPacket(0));
    QCOMPARE(sentBytes(outputs).size(), 1);
}

void TestBoxSimDecoder::options_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<QStringList>("lines"); // in the text of the record the box sends
    QTest::addColumn<int>("recordSize");

    const QString serial =
        QString::fromLatin1(QByteArray("TK0000000001").leftJustified(16, '\0').toHex());
    QTest::newRow("defaults") << QStringList{"--link", "l"} << true
                              << QStringList{"序列号(hex): " + serial, "MCU温度: 42.0°C",
                                             "U盘方向: Target/目标机 (1)", "鼠标微动: 禁用 (0)"}
                              << 134;
    QTest::newRow("values") << QStringList{"--link",
                                           "l",
                                           "--temperature",
                                           "36.6",
                                           "--udisk-dir",
                                           "2",
                                           "--mouse-auto-move",
                                           "1",
                                           "--firmware-version",
                                           "1215",
                                           "--build-time",
                                           "2025-01-02 03:04",
                                           "--image-crc",
                                           "0xDEADBEEF"}
                            << true
                            << QStringList{"MCU温度: 36.6°C",
                                           "U盘方向: Host/主机 (2)",
                                           "鼠标微动: 启用 (1)",
                                           "固件版本: 1.2.15 (原始值: 1215)",
                                           "编译时间: 2025-01-02 03:04",
                                           "CRC=0xdeadbeef"}
                            << 134;
    // A longer record keeps its fields where they are; the rest is zero.
    QTest::newRow("record of 600 bytes")
        << QStringList{"--link", "l", "--record-size", "600", "--udisk-dir", "2"} << true
        << QStringList{"U盘方向: Host/主机 (2)", "原始数据长度: 600 字节"} << 600;
    QTest::newRow("record of 4096 bytes")
        << QStringList{"--link", "l", "--record-size", "4096"} << true << QStringList() << 4096;
    const QStringList none;
    QTest::newRow("no link") << QStringList{"--serial", "X"} << false << none << 0;
    QTest::newRow("direction above a byte")
        << QStringList{"--link", "l", "--udisk-dir", "256"} << false << none << 0;
    QTest::newRow("auto-move 2") << QStringList{"--link", "l", "--mouse-auto-move", "2"} << false
                                 << none << 0;
    QTest::newRow("serial of 17 bytes")
        << QStringList{"--link", "l", "--serial", QString(17, 'S')} << false << none << 0;
    QTest::newRow("negative temperature")
        << QStringList{"--link", "l", "--temperature", "-1"} << false << none << 0;
    QTest::newRow("delay not a number")
        << QStringList{"--link", "l", "--reply-delay-ms", "soon"} << false << none << 0;
    QTest::newRow("record shorter than the fields")
        << QStringList{"--link", "l", "--record-size", "133"} << false << none << 0;
    QTest::newRow("record above 4096 bytes")
        << QStringList{"--link", "l", "--record-size", "4097"} << false << none << 0;
    QTest::newRow("target options")
        << QStringList{"--link",        "l", "--screen",           "1024x768", "--borders", "4:3",
                       "--hid-poll-ms", "8", "--capture-delay-ms", "40"}
        << true << QStringList() << 134;
    QTest::newRow("screen without height")
        << QStringList{"--link", "l", "--screen", "1024"} << false << none << 0;
    QTest::newRow("screen too small")
        << QStringList{"--link", "l", "--screen", "32x32"} << false << none << 0;
    QTest::newRow("borders neither 4:3 nor margins")
        << QStringList{"--link", "l", "--borders", "16:10"} << false << none << 0;
    QTest::newRow("negative margins")
        << QStringList{"--link", "l", "--borders", "-2,0"} << false << none << 0;
    QTest::newRow("poll slower than a second")
        << QStringList{"--link", "l", "--hid-poll-ms", "1001"} << false << none << 0;
    QTest::newRow("layout de") << QStringList{"--link", "l", "--layout", "de"} << true
                               << QStringList() << 134;
    QTest::newRow("layout with variant")
        << QStringList{"--link", "l", "--layout", "ch(de)"} << true << QStringList() << 134;
    QTest::newRow("unknown layout")
        << QStringList{"--link", "l", "--layout", "xx"} << false << none << 0;
    QTest::newRow("layout in capitals")
        << QStringList{"--link", "l", "--layout", "DE"} << false << none << 0;
    QTest::newRow("empty layout") << QStringList{"--link", "l", "--layout", ""} << false << none
                                  << 0;
}

void TestBoxSimDecoder::options()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, valid);
    QFETCH(QStringList, lines);
    QFETCH(int, recordSize);

    QCommandLineParser parser;
    addBoxOptions(parser);
    QVERIFY(parser.parse(QStringList{"tavrokvm-boxsim"} + arguments));
    BoxOptions options;
    QString error;
    QCOMPARE(readBoxOptions(parser, options, error), valid);
    QCOMPARE(error.isEmpty(), valid);
    if (!valid)
        return;
    const QByteArray record = BoxSimulator(options).deviceInfoRecord();
    QCOMPARE(record.size(), recordSize);
    QVERIFY(record.mid(134).count('\0') == record.size() - 134);
    const QStringList text = TkProtocol::formatDeviceInfoPayload(record).split('\n');
    for (const QString &line : lines)
        QVERIFY2(std::any_of(text.begin(), text.end(),
                             [&](const QString &got) {
                                 return got.startsWith(line) || got.endsWith(line);
                             }),
                 qPrintable(line + " not in\n" + text.join('\n')));
}

void TestBoxSimDecoder::encodedPixelLandsOnItsTargetPixel_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");

    QTest::newRow("1920x1080") << 1920 << 1080;
    QTest::newRow("1280x720") << 1280 << 720;
    QTest::newRow("1024x768") << 1024 << 768;
    QTest::newRow("1440x1080") << 1440 << 1080;
    QTest::newRow("3840x2160") << 3840 << 2160;
}

void TestBoxSimDecoder::encodedPixelLandsOnItsTargetPixel()
{
    QFETCH(int, width);
    QFETCH(int, height);

    // Every pixel of a row and of a column, through the console's encoder: the target puts its
    // cursor on that pixel.
    BoxOptions options = testOptions();
    options.screenWidth = width;
    options.screenHeight = height;
    BoxSimulator box(options);
    const uint16_t size[2] = {uint16_t(width), uint16_t(height)};
    int worst = 0;
    for (int i = 0; i < qMax(width, height); ++i) {
        const uint16_t point[2] = {uint16_t(qMin(i, width - 1)), uint16_t(qMin(i, height - 1))};
        uint8_t out[13] = {};
        QCOMPARE(coord_convert(0, 0, size, point, 0, 0, out), 0);
        box.receive(QByteArray(reinterpret_cast<const char *>(out), 13));
        worst = qMax(worst, qAbs(box.target().cursorX() - point[0]));
        worst = qMax(worst, qAbs(box.target().cursorY() - point[1]));
    }
    // Above 2048 pixels a report step is more than half a pixel: the nearest may be the next.
    QCOMPARE(worst, width > 2048 ? 1 : 0);
}

void TestBoxSimDecoder::targetScreen_data()
{
    QTest::addColumn<QByteArray>("stream");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("textEdits");
    QTest::addColumn<int>("held");
    QTest::addColumn<QPoint>("cursor");
    QTest::addColumn<QPoint>("click");
    QTest::addColumn<int>("clicks");
    QTest::addColumn<bool>("capsLock");

    const QPoint none(-1, -1);
    const QByteArray up = keyboardFrame(0);
    // Return, Tab and Backspace act on the text; Backspace on nothing changes nothing.
    QTest::newRow("editing keys") << keyboardFrame(0, hex("2A")) + up +
                                         keyboardFrame(0, hex("04")) + up +
                                         keyboardFrame(0, hex("05")) + up +
                                         keyboardFrame(0, hex("2A")) + up +
                                         keyboardFrame(0, hex("2B")) + up +
                                         keyboardFrame(0, hex("28")) + up +
                                         keyboardFrame(0x02, hex("06")) + up
                                  << "a\t\nC" << 6 << 0 << QPoint(0, 0) << none << 0 << false;
    QTest::newRow("held shift and key")
        << keyboardFrame(0x02, hex("04")) << "A" << 1 << 2 << QPoint(0, 0) << none << 0 << false;
    QTest::newRow("caps lock") << keyboardFrame(0, hex("39")) + up + keyboardFrame(0, hex("04")) +
                                      up
                               << "A" << 1 << 0 << QPoint(0, 0) << none << 0 << true;
    // The press lands where the cursor is; moving with the button held is not another click.
    QTest::newRow("click, drag, click")
        << mouseFrame(0, 2048, 1024, 0) + mouseFrame(1, 2048, 1024, 0) +
               mouseFrame(1, 2500, 1500, 0) + mouseFrame(0, 2500, 1500, 0) +
               mouseFrame(2, 2500, 1500, 0)
        << "" << 0 << 0 << QPoint(1172, 396) << QPoint(1172, 396) << 2 << false;
    // Relative steps move from where the cursor is and stop at the screen's edges.
    QTest::newRow("relative steps")
        << mouseFrame(0, 2048, 2048, 0) + relativeFrame(0, 10, -5) + relativeFrame(1, 0, 0) << ""
        << 0 << 0 << QPoint(970, 535) << QPoint(970, 535) << 1 << false;
    QTest::newRow("relative past the edge")
        << relativeFrame(0, -100, -100) + relativeFrame(0, 127, 127) << "" << 0 << 0
        << QPoint(127, 127) << none << 0 << false;
}

void TestBoxSimDecoder::targetScreen()
{
    QFETCH(QByteArray, stream);
    QFETCH(QString, text);
    QFETCH(int, textEdits);
    QFETCH(int, held);
    QFETCH(QPoint, cursor);
    QFETCH(QPoint, click);
    QFETCH(int, clicks);
    QFETCH(bool, capsLock);

    BoxSimulator box(testOptions());
    box.receive(stream);
    const targetscreen::State state = box.screenState();
    QCOMPARE(QString::fromStdString(state.textString()), text);
    QCOMPARE(int(state.textEdits), textEdits);
    QCOMPARE(int(state.heldKeys), held);
    QCOMPARE(QPoint(state.cursorX, state.cursorY), cursor);
    QCOMPARE(QPoint(state.clickX, state.clickY), click);
    QCOMPARE(int(state.clicks), clicks);
    QCOMPARE(state.capsLock != 0, capsLock);
    QCOMPARE(QSize(int(state.width), int(state.height)), QSize(1920, 1080));
}

void TestBoxSimDecoder::pollingLosesReplacedReports()
{
    BoxOptions options = testOptions();
    options.hidPollMs = 8;
    BoxSimulator box(options);
    const QByteArray press = keyboardFrame(0, hex("04"));
    const QByteArray release = keyboardFrame(0);
    constexpr qint64 ms = 1000000;

    // Press and release between two samples: the target never sees the key.
    box.setArrivalTime(1 * ms);
    QCOMPARE(eventNames(box.receive(press + release + mouseFrame(1, 100, 100, 0))),
             (QStringList{"frame", "frame", "frame"}));
    QCOMPARE(box.target().text(), QString());
    QVector<BoxOutput> outputs = box.pollTarget(8 * ms); // the first sample
    QCOMPARE(eventNames(outputs), (QStringList{"report_lost", "mouse"}));
    QVERIFY(eventLines(outputs).at(0).contains(hexText(press)));
    QCOMPARE(box.target().text(), QString());
    QCOMPARE(box.target().clicks(), 1);

    // Reports 10 ms apart are each seen by a sample every 8 ms, even when the samples are
    // taken late in one go.
    for (int i = 0; i < 6; ++i) {
        box.setArrivalTime((10 + 10 * i) * ms);
        box.receive(i % 2 ? release : press);
    }
    outputs = box.pollTarget(100 * ms);
    QCOMPARE(eventNames(outputs).count("report_lost"), 0);
    QCOMPARE(box.target().text(), QString("aaa"));

    // 6 ms apart, one in four is replaced before a sample reads it.
    for (int i = 0; i < 8; ++i) {
        box.setArrivalTime((101 + 6 * i) * ms);
        box.receive(i % 2 ? release : press);
    }
    outputs = box.pollTarget(200 * ms);
    QCOMPARE(eventNames(outputs).count("report_lost"), 2);
    QVERIFY(box.pollTarget(300 * ms).isEmpty());

    // A line drop loses what was not sampled.
    const QString typed = box.target().text();
    box.setArrivalTime(301 * ms);
    box.receive(press);
    box.lineDropped();
    box.pollTarget(400 * ms);
    QCOMPARE(box.target().text(), typed);
}

void TestBoxSimDecoder::typingOnLayouts_data()
{
    QTest::addColumn<QString>("layout");
    QTest::addColumn<QByteArray>("stream");
    QTest::addColumn<QString>("text");

    const QByteArray up = keyboardFrame(0);
    auto key = [&](quint8 modifiers, const char *usage) {
        return keyboardFrame(modifiers, hex(usage)) + up;
    };
    const quint8 shift = 0x02;
    const quint8 altGr = 0x40;
    // The US table stays as it was: Y is Y, and right Alt is Alt.
    QTest::newRow("us y") << "us" << key(0, "1C") << "y";
    QTest::newRow("us right alt q") << "us" << key(altGr, "14") << "";
    QTest::newRow("de z and y") << "de" << key(0, "1C") + key(0, "1D") << "zy";
    QTest::newRow("de AltGr q") << "de" << key(altGr, "14") << "@";
    QTest::newRow("de Shift AltGr 3") << "de" << key(shift | altGr, "20") << "£";
    QTest::newRow("de right shift minus") << "de" << key(0x20, "38") << "_";
    QTest::newRow("de caps lock umlaut") << "de" << key(0, "39") + key(0, "33") << "Ö";
    QTest::newRow("de control z is a shortcut") << "de" << key(0x01, "1C") << "";
    QTest::newRow("de control AltGr q is a shortcut") << "de" << key(0x01 | altGr, "14") << "";
    QTest::newRow("de dead circumflex, space") << "de" << key(0, "35") + key(0, "2C") << "^";
    QTest::newRow("de dead grave, space") << "de" << key(shift, "2E") + key(0, "2C") << "`";
    QTest::newRow("de dead key alone") << "de" << key(0, "35") << "";
    QTest::newRow("de dead circumflex, a") << "de" << key(0, "35") + key(0, "04") << "^a";
    QTest::newRow("de two dead keys, space")
        << "de" << key(0, "35") + key(0, "2E") + key(0, "2C") << "^´";
    QTest::newRow("de dead key, Return") << "de" << key(0, "35") + key(0, "28") << "^\n";
    QTest::newRow("de dead key, Tab") << "de" << key(0, "35") + key(0, "2B") << "^\t";
    // Backspace cancels a waiting dead key; otherwise it erases as always.
    QTest::newRow("de dead key, Backspace")
        << "de" << key(0, "1B") + key(0, "35") + key(0, "2A") + key(0, "04") << "xa";
    QTest::newRow("de Backspace") << "de" << key(0, "04") + key(0, "05") + key(0, "2A") << "a";
    QTest::newRow("de keypad comma") << "de" << key(0, "63") << ",";
    QTest::newRow("de keypad with Num Lock off") << "de" << key(0, "53") + key(0, "59") << "";
    QTest::newRow("fr a, ampersand, 1")
        << "fr" << key(0, "14") + key(0, "1E") + key(shift, "1E") << "a&1";
    QTest::newRow("fr AltGr 0") << "fr" << key(altGr, "27") << "@";
    QTest::newRow("gb at, hash, backslash")
        << "gb" << key(shift, "34") + key(0, "32") + key(0, "64") << "@#\\";
    QTest::newRow("ch(de) z, AltGr 2") << "ch(de)" << key(0, "1C") + key(altGr, "1F") << "z@";
    QTest::newRow("ch(de) dead tilde, space") << "ch(de)" << key(altGr, "2E") + key(0, "2C") << "~";
}

void TestBoxSimDecoder::typingOnLayouts()
{
    QFETCH(QString, layout);
    QFETCH(QByteArray, stream);
    QFETCH(QString, text);

    QCommandLineParser parser;
    addBoxOptions(parser);
    QVERIFY(parser.parse({"tavrokvm-boxsim", "--link", "l", "--layout", layout}));
    BoxOptions options = testOptions();
    QString error;
    QVERIFY2(readBoxOptions(parser, options, error), qPrintable(error));
    BoxSimulator box(options);
    box.receive(stream);
    QCOMPARE(box.target().text(), text);
    QCOMPARE(box.target().heldCount(), 0);
}

QTEST_APPLESS_MAIN(TestBoxSimDecoder)
#include "tst_boxsimdecoder.moc"
