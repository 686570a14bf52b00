#include <QTest>

#include "protocol/ch9329.h"

namespace {

using Step = QPair<int, int>; // key code, action (0 press, 1 release)

QByteArray hex(const char *text)
{
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

QByteArray keyFrame(int key, int action, int protocol = kProtocolCh9329, int *result = nullptr)
{
    uint8_t out[kCh9329KeyFrameSize] = {};
    const int rc = key_convert(protocol, key, action, out);
    if (result)
        *result = rc;
    return QByteArray(reinterpret_cast<const char *>(out), sizeof out);
}

QByteArray mouseFrame(int rc, const uint8_t *out)
{
    return rc == 0 ? QByteArray(reinterpret_cast<const char *>(out), kCh9329MouseFrameSize)
                   : QByteArray();
}

} // namespace

class TestCh9329 : public QObject
{
    Q_OBJECT
private slots:
    void init() { ch9329_reset_state_for_tests(); }

    void keySequences_data();
    void keySequences();
    void hidMapping_data();
    void hidMapping();
    void shiftPartners();
    void keypadKeys_data();
    void keypadKeys();
    void refusedKeyCallsLeaveStateAndOutput();
    void modifierHelpersIgnoreOtherKeys();
    void absoluteFrames_data();
    void absoluteFrames();
    void sizeLatch();
    void releaseAllKeysKeepsTheSize();
    void referenceMouseFramesHaveValidChecksums_data();
    void referenceMouseFramesHaveValidChecksums();
};

void TestCh9329::keySequences_data()
{
    QTest::addColumn<QList<Step>>("steps");
    QTest::addColumn<QByteArray>("lastFrame");

    // Frame: header 57 AB | address 00 | command 02 | length 08 | modifiers | 00 |
    //        six key slots | checksum.
    QTest::newRow("Shift pressed")
        << QList<Step>{{Qt::Key_Shift, 0}} << hex("57AB 00 02 08 02 00 000000000000 0E");
    QTest::newRow("Shift then A") << QList<Step>{{Qt::Key_Shift, 0}, {Qt::Key_A, 0}}
                                  << hex("57AB 00 02 08 02 00 040000000000 12");
    QTest::newRow("release all") << QList<Step>{{Qt::Key_Shift, 0},
                                                {Qt::Key_A, 0},
                                                {Qt::Key_A, 1},
                                                {Qt::Key_Shift, 1}}
                                 << hex("57AB 00 02 08 00 00 000000000000 0C");
    QTest::newRow("! like 1, modifiers untouched")
        << QList<Step>{{Qt::Key_Exclam, 0}} << hex("57AB 00 02 08 00 00 1E0000000000 2A");
    QTest::newRow("! released by 1") << QList<Step>{{Qt::Key_Exclam, 0}, {Qt::Key_1, 1}}
                                     << hex("57AB 00 02 08 00 00 000000000000 0C");
    QTest::newRow("seventh key ignored")
        << QList<Step>{{Qt::Key_A, 0}, {Qt::Key_B, 0}, {Qt::Key_C, 0}, {Qt::Key_D, 0},
                       {Qt::Key_E, 0}, {Qt::Key_F, 0}, {Qt::Key_G, 0}}
        << hex("57AB 00 02 08 00 00 040506070809 33");
    QTest::newRow("released slot takes the next key")
        << QList<Step>{{Qt::Key_A, 0}, {Qt::Key_B, 0}, {Qt::Key_C, 0},
                       {Qt::Key_D, 0}, {Qt::Key_E, 0}, {Qt::Key_F, 0},
                       {Qt::Key_G, 0}, {Qt::Key_C, 1}, {Qt::Key_G, 0}}
        << hex("57AB 00 02 08 00 00 04050A070809 37");
    QTest::newRow("same key twice takes one slot") << QList<Step>{{Qt::Key_A, 0}, {Qt::Key_A, 0}}
                                                   << hex("57AB 00 02 08 00 00 040000000000 10");
    QTest::newRow("one release frees a doubled key")
        << QList<Step>{{Qt::Key_A, 0}, {Qt::Key_A, 0}, {Qt::Key_A, 1}}
        << hex("57AB 00 02 08 00 00 000000000000 0C");
    QTest::newRow("Command is left GUI")
        << QList<Step>{{Qt::Key_Control, 0}} << hex("57AB 00 02 08 08 00 000000000000 14");
    QTest::newRow("Control is left Control")
        << QList<Step>{{Qt::Key_Meta, 0}} << hex("57AB 00 02 08 01 00 000000000000 0D");
    QTest::newRow("Option is left Alt")
        << QList<Step>{{Qt::Key_Alt, 0}} << hex("57AB 00 02 08 04 00 000000000000 10");
    QTest::newRow("all four modifiers, one released") << QList<Step>{{Qt::Key_Shift, 0},
                                                                     {Qt::Key_Control, 0},
                                                                     {Qt::Key_Meta, 0},
                                                                     {Qt::Key_Alt, 0},
                                                                     {Qt::Key_Control, 1}}
                                                      << hex("57AB 00 02 08 07 00 000000000000 13");
    QTest::newRow("unmapped key changes nothing") << QList<Step>{{Qt::Key_A, 0}, {Qt::Key_Print, 0}}
                                                  << hex("57AB 00 02 08 00 00 040000000000 10");
    QTest::newRow("other action re-emits the state")
        << QList<Step>{{Qt::Key_Shift, 0}, {Qt::Key_B, 0}, {Qt::Key_C, 2}, {Qt::Key_Shift, 7}}
        << hex("57AB 00 02 08 02 00 050000000000 13");
    QTest::newRow("release of a key never pressed") << QList<Step>{{Qt::Key_A, 0}, {Qt::Key_B, 1}}
                                                    << hex("57AB 00 02 08 00 00 040000000000 10");
}

void TestCh9329::keySequences()
{
    QFETCH(QList<Step>, steps);
    QFETCH(QByteArray, lastFrame);
    QByteArray frame;
    for (const Step &step : steps) {
        int rc = -99;
        frame = keyFrame(step.first, step.second, kProtocolCh9329, &rc);
        QCOMPARE(rc, 0);
    }
    QCOMPARE(frame.toHex(' '), lastFrame.toHex(' '));
}

void TestCh9329::hidMapping_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<int>("usage");

    for (int c = 'A'; c <= 'Z'; ++c)
        QTest::addRow("%c", c) << c << 0x04 + (c - 'A');
    for (int c = '1'; c <= '9'; ++c)
        QTest::addRow("%c", c) << c << 0x1E + (c - '1');
    const QList<QPair<int, int>> fixed = {{'0', 0x27},
                                          {' ', 0x2C},
                                          {'\'', 0x34},
                                          {',', 0x36},
                                          {'-', 0x2D},
                                          {'.', 0x37},
                                          {'/', 0x38},
                                          {';', 0x33},
                                          {'=', 0x2E},
                                          {'[', 0x2F},
                                          {'\\', 0x31},
                                          {']', 0x30},
                                          {'`', 0x35},
                                          {0, 0x47},
                                          {Qt::Key_Escape, 0x29},
                                          {Qt::Key_Tab, 0x2B},
                                          {Qt::Key_Backspace, 0x2A},
                                          {Qt::Key_Return, 0x28},
                                          {Qt::Key_Enter, 0x58},
                                          {Qt::Key_Insert, 0x49},
                                          {Qt::Key_Delete, 0x4C},
                                          {Qt::Key_Pause, 0x48},
                                          {Qt::Key_Home, 0x4A},
                                          {Qt::Key_End, 0x4D},
                                          {Qt::Key_Left, 0x50},
                                          {Qt::Key_Up, 0x52},
                                          {Qt::Key_Right, 0x4F},
                                          {Qt::Key_Down, 0x51},
                                          {Qt::Key_PageUp, 0x4B},
                                          {Qt::Key_PageDown, 0x4E},
                                          {Qt::Key_CapsLock, 0x39},
                                          {Qt::Key_NumLock, 0x53},
                                          {Qt::Key_ScrollLock, 0x47},
                                          {Qt::Key_F13, 0x46},
                                          {0x01000054, 0x54},
                                          {Qt::Key_Menu, 0x65},
                                          {Qt::Key_Hyper_L, 0x56},
                                          {Qt::Key_Hyper_R, 0x57},
                                          {Qt::Key_Help, 0x49},
                                          {0x01000063, 0x63},
                                          {0x01000064, 0x55},
                                          {0xF739, 0x53},
                                          // Shifted characters map like their unshifted key.
                                          {'~', 0x35},
                                          {'!', 0x1E},
                                          {'@', 0x1F},
                                          {'#', 0x20},
                                          {'$', 0x21},
                                          {'%', 0x22},
                                          {'^', 0x23},
                                          {'&', 0x24},
                                          {'*', 0x25},
                                          {'(', 0x26},
                                          {')', 0x27},
                                          {'_', 0x2D},
                                          {'+', 0x2E},
                                          {'{', 0x2F},
                                          {'}', 0x30},
                                          {'|', 0x31},
                                          {':', 0x33},
                                          {'"', 0x34},
                                          {'<', 0x36},
                                          {'>', 0x37},
                                          {'?', 0x38},
                                          {'\n', 0x28},
                                          // No usage.
                                          {Qt::Key_Backtab, 0},
                                          {Qt::Key_Print, 0},
                                          {Qt::Key_SysReq, 0},
                                          {Qt::Key_Clear, 0},
                                          {Qt::Key_Shift, 0},
                                          {Qt::Key_Control, 0},
                                          {Qt::Key_Meta, 0},
                                          {Qt::Key_Alt, 0},
                                          {Qt::Key_F14, 0},
                                          {Qt::Key_F35, 0},
                                          {0x01000053, 0},
                                          {'a', 0},
                                          {'z', 0},
                                          {0x01000062, 0},
                                          {0x0100006F, 0},
                                          {-1, 0}};
    for (const auto &row : fixed)
        QTest::addRow("0x%x", row.first) << row.first << row.second;
    for (int i = 0; i < 12; ++i)
        QTest::addRow("F%d", i + 1) << Qt::Key_F1 + i << 0x3A + i;
    for (int i = 0; i < 10; ++i)
        QTest::addRow("keypad private 0x%x", 0x01000065 + i) << 0x01000065 + i << 0x59 + i;
}

void TestCh9329::hidMapping()
{
    QFETCH(int, key);
    QFETCH(int, usage);
    QCOMPARE(int(ch9329_kb_hid_mapping(key)), usage);
}

void TestCh9329::shiftPartners()
{
    QCOMPARE(get_shift_origin_val('!'), int('1'));
    QCOMPARE(get_shift_origin_val('\n'), int(Qt::Key_Return));
    QCOMPARE(get_shift_origin_val('1'), -1);
    QCOMPARE(get_shift_origin_val('A'), -1);
    QCOMPARE(is_control_key(Qt::Key_Shift), 1);
    QCOMPARE(is_control_key(Qt::Key_Alt), 1);
    QCOMPARE(is_control_key(Qt::Key_CapsLock), 0);
    QCOMPARE(is_control_key(Qt::Key_Escape), 0);
}

void TestCh9329::keypadKeys_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<int>("usage"); // of the keypad code; 0 when the keypad has no such key

    QTest::newRow("/") << int('/') << 0x54;
    QTest::newRow("*") << int('*') << 0x55;
    QTest::newRow("-") << int('-') << 0x56;
    QTest::newRow("+") << int('+') << 0x57;
    QTest::newRow("Enter") << int(Qt::Key_Enter) << 0x58;
    QTest::newRow("1") << int('1') << 0x59;
    QTest::newRow("9") << int('9') << 0x61;
    QTest::newRow("0") << int('0') << 0x62;
    QTest::newRow(".") << int('.') << 0x63;
    QTest::newRow("decimal comma") << int(',') << 0x63;
    QTest::newRow("=") << int('=') << 0;
    QTest::newRow("Return") << int(Qt::Key_Return) << 0;
    QTest::newRow("A") << int('A') << 0;
}

void TestCh9329::keypadKeys()
{
    QFETCH(int, key);
    QFETCH(int, usage);
    const int code = ch9329_keypad_key(key);
    QCOMPARE(code != 0, usage != 0);
    if (usage) {
        QCOMPARE(int(ch9329_kb_hid_mapping(code)), usage);
        QCOMPARE(ch9329_kb_has_key(code), 1);
    }
}

void TestCh9329::refusedKeyCallsLeaveStateAndOutput()
{
    keyFrame(Qt::Key_Shift, 0);
    keyFrame(Qt::Key_A, 0);

    uint8_t out[kCh9329KeyFrameSize];
    std::memset(out, 0xEE, sizeof out);
    QCOMPARE(key_convert(kProtocolTkV1, Qt::Key_B, 0, out), -3);
    QCOMPARE(key_convert(2, Qt::Key_Shift, 1, out), -4);
    QCOMPARE(key_convert(-1, Qt::Key_A, 1, out), -4);
    QCOMPARE(key_convert(kProtocolCh9329, Qt::Key_C, 0, nullptr), -1);
    for (uint8_t byte : out)
        QCOMPARE(byte, uint8_t(0xEE));

    // Shift and A are still held, B and C never arrived.
    QCOMPARE(keyFrame(Qt::Key_D, 3).toHex(' '),
             hex("57AB 00 02 08 02 00 040000000000 12").toHex(' '));
}

void TestCh9329::modifierHelpersIgnoreOtherKeys()
{
    ch9329_kb_set_ctrl(Qt::Key_CapsLock);
    ch9329_kb_set_ctrl(0x0100001F);
    ch9329_kb_set_ctrl(0x01000024);
    QCOMPARE(keyFrame(0, 2).at(5), char(0));
    ch9329_kb_set_ctrl(Qt::Key_Alt);
    ch9329_kb_set_ctrl(Qt::Key_Shift);
    ch9329_kb_clr_ctrl(Qt::Key_A);
    ch9329_kb_clr_ctrl(Qt::Key_Shift);
    QCOMPARE(keyFrame(0, 2).at(5), char(0x04));
    // The side setters change nothing.
    set_shift_key_side(1);
    set_win_key_side(1);
    set_alt_key_side(1);
    set_ctrl_key_side(1);
    uart_print_system_info();
    QCOMPARE(keyFrame(0, 2).at(5), char(0x04));
    QCOMPARE(int(ch9329_proto_sum(nullptr, 0)), 0);
    const uint8_t bytes[] = {0xFF, 0x02, 0x7F};
    QCOMPARE(int(ch9329_proto_sum(bytes, 3)), 0x80);
    QCOMPARE(int(ch9329_proto_sum(bytes, -5)), 0);
}

void TestCh9329::absoluteFrames_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<int>("x");
    QTest::addColumn<int>("y");
    QTest::addColumn<int>("buttons");
    QTest::addColumn<int>("wheel");
    QTest::addColumn<QByteArray>("frame");

    // Frame: 57 AB | 00 | command 04 | length 07 | 02 | buttons | X lo hi | Y lo hi | wheel | sum
    QTest::newRow("1920x1080 centre")
        << 1920 << 1080 << 960 << 540 << 0 << 0 << hex("57AB 00 04 07 02 00 0008 0008 00 1F");
    QTest::newRow("origin, left button")
        << 1920 << 1080 << 0 << 0 << 1 << 0 << hex("57AB 00 04 07 02 01 0000 0000 00 10");
    QTest::newRow("last pixel of 1920x1080")
        << 1920 << 1080 << 1919 << 1079 << 0 << 0 << hex("57AB 00 04 07 02 00 FD0F FC0F 00 26");
    QTest::newRow("past the last pixel is held at 4095")
        << 1920 << 1080 << 1920 << 1080 << 0 << 0 << hex("57AB 00 04 07 02 00 FF0F FF0F 00 2B");
    QTest::newRow("a point mapped on a larger screen is held at 4095")
        << 1280 << 720 << 1919 << 1079 << 0 << 0 << hex("57AB 00 04 07 02 00 FF0F FF0F 00 2B");
    QTest::newRow("buttons and wheel as passed")
        << 1280 << 720 << 640 << 360 << 0x07 << 0xFF << hex("57AB 00 04 07 02 07 0008 0008 FF 25");
    QTest::newRow("largest values do not overflow") << 65535 << 65535 << 65535 << 32768 << 0 << 0x01
                                                    << hex("57AB 00 04 07 02 00 FF0F 0008 01 26");
}

void TestCh9329::absoluteFrames()
{
    QFETCH(int, width);
    QFETCH(int, height);
    QFETCH(int, x);
    QFETCH(int, y);
    QFETCH(int, buttons);
    QFETCH(int, wheel);
    QFETCH(QByteArray, frame);
    const uint16_t size[2] = {uint16_t(width), uint16_t(height)};
    const uint16_t point[2] = {uint16_t(x), uint16_t(y)};
    uint8_t out[kCh9329MouseFrameSize] = {};
    const int rc = coord_convert(0, 0, size, point, uint8_t(buttons), uint8_t(wheel), out);
    QCOMPARE(mouseFrame(rc, out).toHex(' '), frame.toHex(' '));
}

void TestCh9329::sizeLatch()
{
    const uint16_t point[2] = {10, 10};
    const uint16_t size[2] = {1920, 1080};
    const uint16_t zeroWidth[2] = {0, 1080};
    uint8_t out[kCh9329MouseFrameSize] = {};

    // Relative mode before any latch: succeeds with X = Y = 0.
    QCOMPARE(coord_convert(0, 1, nullptr, point, 0, 0, out), 0);
    QCOMPARE(mouseFrame(0, out).toHex(' '), hex("57AB 00 04 07 02 00 0000 0000 00 0F").toHex(' '));

    // Absolute mode without a size ever latched.
    QCOMPARE(coord_convert(0, 0, nullptr, point, 0, 0, out), -2);
    QCOMPARE(coord_convert(0, 0, zeroWidth, point, 0, 0, out), -2);
    QCOMPARE(coord_convert(0, 0, size, nullptr, 0, 0, out), -1);
    QCOMPARE(coord_convert(0, 0, size, point, 0, 0, nullptr), -1);

    // A refused protocol still latches the size.
    QCOMPARE(coord_convert(kProtocolTkV1, 0, size, point, 0, 0, out), -3);
    QCOMPARE(coord_convert(5, 0, size, point, 0, 0, out), -4);
    const uint16_t centre[2] = {960, 540};
    QCOMPARE(coord_convert(0, 0, nullptr, centre, 0, 0, out), 0);
    QCOMPARE(mouseFrame(0, out).toHex(' '), hex("57AB 00 04 07 02 00 0008 0008 00 1F").toHex(' '));

    // A zero size does not replace the latch; relative mode keeps it too.
    const uint16_t other[2] = {1280, 720};
    QCOMPARE(coord_convert(0, 0, zeroWidth, centre, 0, 0, out), 0);
    QCOMPARE(mouseFrame(0, out).toHex(' '), hex("57AB 00 04 07 02 00 0008 0008 00 1F").toHex(' '));
    QCOMPARE(coord_convert(0, 1, other, centre, 0, 0, out), 0);
    QCOMPARE(mouseFrame(0, out).toHex(' '), hex("57AB 00 04 07 02 00 0008 0008 00 1F").toHex(' '));
}

void TestCh9329::releaseAllKeysKeepsTheSize()
{
    keyFrame(Qt::Key_Shift, 0);
    keyFrame(Qt::Key_Control, 0);
    keyFrame(Qt::Key_A, 0);
    QCOMPARE(keyFrame(Qt::Key_B, 0), hex("57AB 00 02 08 0A 00 040500000000 1F"));
    const uint16_t size[2] = {1920, 1080};
    const uint16_t centre[2] = {960, 540};
    uint8_t out[kCh9329MouseFrameSize] = {};
    QCOMPARE(coord_convert(0, 0, size, centre, 0, 0, out), 0);

    ch9329_release_all_keys();
    // An action other than press or release re-emits the report: nothing held.
    QCOMPARE(keyFrame(0, 2), hex("57AB 00 02 08 00 00 000000000000 0C"));
    // The next key is alone in the report.
    QCOMPARE(keyFrame(Qt::Key_C, 0), hex("57AB 00 02 08 00 00 060000000000 12"));
    // The picture size stays latched for relative mode.
    QCOMPARE(coord_convert(0, 1, nullptr, centre, 0, 0, out), 0);
    QCOMPARE(mouseFrame(0, out).toHex(' '), hex("57AB 00 04 07 02 00 0008 0008 00 1F").toHex(' '));
}

void TestCh9329::referenceMouseFramesHaveValidChecksums_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<int>("buttons");
    QTest::addColumn<int>("x");
    QTest::addColumn<int>("y");
    QTest::newRow("press") << hex("57AB0004070201400115020068") << 1 << 320 << 533;
    QTest::newRow("release") << hex("57AB0004070200400115020067") << 0 << 320 << 533;
    QTest::newRow("press2") << hex("57AB0004070201190C6B0A00AA") << 1 << 3097 << 2667;
    QTest::newRow("release2") << hex("57AB0004070200190C6B0A00A9") << 0 << 3097 << 2667;
}

void TestCh9329::referenceMouseFramesHaveValidChecksums()
{
    QFETCH(QByteArray, frame);
    QFETCH(int, buttons);
    QFETCH(int, x);
    QFETCH(int, y);
    const auto *bytes = reinterpret_cast<const uint8_t *>(frame.constData());
    QCOMPARE(frame.size(), kCh9329MouseFrameSize);
    QCOMPARE(ch9329_proto_sum(bytes, 12), bytes[12]);
    // Encoding the same content on a 4096x4096 area gives back the identical frame.
    const uint16_t size[2] = {4096, 4096};
    const uint16_t point[2] = {uint16_t(x), uint16_t(y)};
    uint8_t out[kCh9329MouseFrameSize] = {};
    QCOMPARE(coord_convert(0, 0, size, point, uint8_t(buttons), 0, out), 0);
    QCOMPARE(mouseFrame(0, out).toHex(' '), frame.toHex(' '));
}

QTEST_APPLESS_MAIN(TestCh9329)
#include "tst_ch9329.moc"
