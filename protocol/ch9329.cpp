#include "protocol/ch9329.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr int kKeyShift = 0x01000020;
constexpr int kKeyAlt = 0x01000023;

// Shifted character -> unshifted key, searched in order.
constexpr int shift_keys[22][2] = {
    {0x7E, 0x60}, {0x21, 0x31}, {0x40, 0x32}, {0x23, 0x33},       {0x24, 0x34}, {0x25, 0x35},
    {0x5E, 0x36}, {0x26, 0x37}, {0x2A, 0x38}, {0x28, 0x39},       {0x29, 0x30}, {0x5F, 0x2D},
    {0x2B, 0x3D}, {0x7B, 0x5B}, {0x7D, 0x5D}, {0x7C, 0x5C},       {0x3A, 0x3B}, {0x22, 0x27},
    {0x3C, 0x2C}, {0x3E, 0x2E}, {0x3F, 0x2F}, {0x0A, 0x01000004},
};

} // namespace

// Module state: the report as the target currently sees it.
static uint8_t ch9329_kb_ctl_val = 0;
static uint8_t report_key_data[6] = {};
static uint8_t ch9329_kb_data[kCh9329KeyFrameSize] = {0x57, 0xAB, 0x00, 0x02, 0x08};
static uint16_t ch9329_screen_width = 0;
static uint16_t ch9329_screen_height = 0;

uint8_t ch9329_proto_sum(const uint8_t *buf, int len)
{
    uint8_t sum = 0;
    for (int i = 0; i < len; ++i)
        sum = uint8_t(sum + buf[i]);
    return sum;
}

void ch9329_keyboard_report(uint8_t modifiers, uint8_t usage, uint8_t *out)
{
    const uint8_t frame[kCh9329KeyFrameSize] = {0x57, 0xAB, 0x00, 0x02, 0x08, modifiers, 0, usage};
    for (int i = 0; i < kCh9329KeyFrameSize; ++i)
        out[i] = frame[i];
    out[13] = ch9329_proto_sum(out, 13);
}

int get_shift_origin_val(int key)
{
    for (const auto &pair : shift_keys) {
        if (pair[0] == key)
            return pair[1];
    }
    return -1;
}

int is_control_key(int key)
{
    return key >= kKeyShift && key <= kKeyAlt ? 1 : 0;
}

void ch9329_kb_set_ctrl(int key)
{
    if (!is_control_key(key))
        return;
    ch9329_kb_ctl_val |= uint8_t(0x04010802u >> (8 * (key - kKeyShift)));
}

void ch9329_kb_clr_ctrl(int key)
{
    if (!is_control_key(key))
        return;
    ch9329_kb_ctl_val &= uint8_t(0xFBFEF7FDu >> (8 * (key - kKeyShift)));
}

uint8_t ch9329_kb_hid_mapping(int key)
{
    const int unshifted = get_shift_origin_val(key);
    if (unshifted >= 0)
        key = unshifted;

    if (key >= 0x41 && key <= 0x5A)
        return uint8_t(key - 0x3D);
    if (key >= 0x31 && key <= 0x39)
        return uint8_t(key - 0x13);
    if (key >= 0x01000030 && key <= 0x0100003B) // F1..F12
        return uint8_t(0x3A + (key - 0x01000030));
    if (key >= 0x01000065 && key <= 0x0100006E) // keypad 1..9, keypad 0
        return uint8_t(0x59 + (key - 0x01000065));

    switch (key) {
    case 0x30:
        return 0x27;
    case 0x20:
        return 0x2C;
    case 0x27:
        return 0x34;
    case 0x2C:
        return 0x36;
    case 0x2D:
        return 0x2D;
    case 0x2E:
        return 0x37;
    case 0x2F:
        return 0x38;
    case 0x3B:
        return 0x33;
    case 0x3D:
        return 0x2E;
    case 0x5B:
        return 0x2F;
    case 0x5C:
        return 0x31;
    case 0x5D:
        return 0x30;
    case 0x60:
        return 0x35;
    case 0:
        return 0x47;
    case 0x01000000:
        return 0x29; // Escape
    case 0x01000001:
        return 0x2B; // Tab
    case 0x01000003:
        return 0x2A; // Backspace
    case 0x01000004:
        return 0x28; // Return
    case 0x01000005:
        return 0x58; // Enter: keypad Enter
    case 0x01000006:
        return 0x49; // Insert
    case 0x01000007:
        return 0x4C; // Delete
    case 0x01000008:
        return 0x48; // Pause
    case 0x01000010:
        return 0x4A; // Home
    case 0x01000011:
        return 0x4D; // End
    case 0x01000012:
        return 0x50; // Left
    case 0x01000013:
        return 0x52; // Up
    case 0x01000014:
        return 0x4F; // Right
    case 0x01000015:
        return 0x51; // Down
    case 0x01000016:
        return 0x4B; // PageUp
    case 0x01000017:
        return 0x4E; // PageDown
    case 0x01000024:
        return 0x39; // CapsLock
    case 0x01000025:
        return 0x53; // NumLock
    case 0x01000026:
        return 0x47; // ScrollLock
    case 0x0100003C:
        return 0x46; // F13: PrintScreen
    case 0x01000054:
        return 0x54; // right logo key: keypad /
    case 0x01000055:
        return 0x65; // Menu: Application
    case 0x01000056:
        return 0x56; // Hyper_L: keypad -
    case 0x01000057:
        return 0x57; // Hyper_R: keypad +
    case 0x01000058:
        return 0x49; // Help: Insert
    case 0x01000063:
        return 0x63; // keypad .
    case 0x01000064:
        return 0x55; // keypad *
    case 0xF739:
        return 0x53; // keypad Clear: Num Lock
    default:
        return 0;
    }
}

int ch9329_kb_has_key(int key)
{
    return is_control_key(key) || ch9329_kb_hid_mapping(key) != 0 ? 1 : 0;
}

int ch9329_keypad_key(int key)
{
    if (key >= '1' && key <= '9')
        return kCh9329Keypad1 + (key - '1');
    switch (key) {
    case '0':
        return kCh9329Keypad0;
    case '/':
        return kCh9329KeypadSlash;
    case '*':
        return kCh9329KeypadAsterisk;
    case '-':
        return kCh9329KeypadMinus;
    case '+':
        return kCh9329KeypadPlus;
    case '.':
    case ',': // the decimal key of layouts that write a decimal comma
        return kCh9329KeypadPeriod;
    case kCh9329KeypadEnter:
        return kCh9329KeypadEnter;
    default:
        return 0;
    }
}

int key_convert(int protocol, int key, int action, uint8_t *out)
{
    if (!out)
        return -1;
    if (protocol == kProtocolTkV1)
        return -3;
    if (protocol != kProtocolCh9329)
        return -4;

    if (is_control_key(key)) {
        if (action == 0)
            ch9329_kb_set_ctrl(key);
        else if (action == 1)
            ch9329_kb_clr_ctrl(key);
    } else {
        const uint8_t usage = ch9329_kb_hid_mapping(key);
        if (usage != 0 && action == 0) {
            if (!std::memchr(report_key_data, usage, sizeof report_key_data)) {
                // A seventh key finds no free slot and is dropped.
                if (auto *slot = static_cast<uint8_t *>(
                        std::memchr(report_key_data, 0, sizeof report_key_data)))
                    *slot = usage;
            }
        } else if (usage != 0 && action == 1) {
            if (auto *slot = static_cast<uint8_t *>(
                    std::memchr(report_key_data, usage, sizeof report_key_data)))
                *slot = 0;
        }
    }

    ch9329_kb_data[5] = ch9329_kb_ctl_val;
    ch9329_kb_data[6] = 0;
    std::memcpy(ch9329_kb_data + 7, report_key_data, sizeof report_key_data);
    ch9329_kb_data[13] = ch9329_proto_sum(ch9329_kb_data, 13);
    std::memcpy(out, ch9329_kb_data, kCh9329KeyFrameSize);
    return 0;
}

int coord_convert(int protocol, int coordMode, const uint16_t *screenSize, const uint16_t *point,
                  uint8_t buttons, uint8_t wheel, uint8_t *out)
{
    if (!point || !out)
        return -1;
    if (coordMode == 0) {
        if (screenSize && screenSize[0] != 0 && screenSize[1] != 0) {
            ch9329_screen_width = screenSize[0];
            ch9329_screen_height = screenSize[1];
        }
        if (ch9329_screen_width == 0 || ch9329_screen_height == 0)
            return -2;
    }
    if (protocol == kProtocolTkV1)
        return -3;
    if (protocol != kProtocolCh9329)
        return -4;

    // The box reads positions on a 0..4095 scale; a point on or past the screen's edge (a latched
    // size smaller than the one the point was mapped with) is held at the last position.
    const uint32_t x =
        ch9329_screen_width ? std::min(4095u, uint32_t(point[0]) * 4096u / ch9329_screen_width) : 0;
    const uint32_t y = ch9329_screen_height
                           ? std::min(4095u, uint32_t(point[1]) * 4096u / ch9329_screen_height)
                           : 0;
    out[0] = 0x57;
    out[1] = 0xAB;
    out[2] = 0x00;
    out[3] = 0x04;
    out[4] = 0x07;
    out[5] = 0x02;
    out[6] = buttons;
    out[7] = uint8_t(x & 0xFF);
    out[8] = uint8_t(x >> 8);
    out[9] = uint8_t(y & 0xFF);
    out[10] = uint8_t(y >> 8);
    out[11] = wheel;
    out[12] = ch9329_proto_sum(out, 12);
    return 0;
}

void set_shift_key_side(int) {}
void set_win_key_side(int) {}
void set_alt_key_side(int) {}
void set_ctrl_key_side(int) {}
void uart_print_system_info() {}

void ch9329_release_all_keys()
{
    ch9329_kb_ctl_val = 0;
    std::memset(report_key_data, 0, sizeof report_key_data);
}

void ch9329_reset_state_for_tests()
{
    ch9329_release_all_keys();
    ch9329_screen_width = 0;
    ch9329_screen_height = 0;
}
