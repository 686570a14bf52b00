#pragma once

#include <cstdint>

// Encoder of the keyboard-and-mouse chip's serial frames: the general keyboard frame
// (command 0x02, 14 bytes) and the absolute mouse frame (command 0x04, 13 bytes).
// The held-keys report and the latched picture size are process-wide state shared by every
// box and keyboard source. GUI thread only; no allocation.

// Protocol codes: only 0 is encoded; 1 (vendor protocol) gives -3, anything else -4.
inline constexpr int kProtocolCh9329 = 0;
inline constexpr int kProtocolTkV1 = 1;

// Codes the mapping reads as keypad keys; the toolkit names the keypad's keys like their twins on
// the main block and tells them apart only by its keypad modifier.
inline constexpr int kCh9329KeypadSlash = 0x01000054;
inline constexpr int kCh9329KeypadAsterisk = 0x01000064;
inline constexpr int kCh9329KeypadMinus = 0x01000056;
inline constexpr int kCh9329KeypadPlus = 0x01000057;
inline constexpr int kCh9329KeypadPeriod = 0x01000063;
inline constexpr int kCh9329Keypad1 = 0x01000065; // keypad 2..9 follow, then keypad 0
inline constexpr int kCh9329Keypad0 = 0x0100006E;
inline constexpr int kCh9329KeypadEnter = 0x01000005; // the toolkit's Key_Enter
inline constexpr int kCh9329KeypadClear = 0xF739;     // a Mac keypad's Clear, sent as Num Lock
// The Print Screen usage's code (F13's, the key in Print Screen's place on a Mac keyboard).
inline constexpr int kCh9329PrintScreen = 0x0100003C;

inline constexpr int kCh9329KeyFrameSize = 14;
inline constexpr int kCh9329MouseFrameSize = 13;

// Updates the held keys for one event (action 0 press, 1 release; other values only re-emit)
// and writes the 14-byte keyboard frame to `out`. Returns 0, -1 for a null `out`, -3 / -4 for
// a refused protocol; on a negative result neither the state nor `out` changes.
int key_convert(int protocol, int key, int action, uint8_t *out);

// Writes the 13-byte absolute mouse frame for `point` {x, y} inside `screenSize` {w, h}.
// Mode 0 latches a non-zero size; other modes scale by the size latched earlier (0 when none).
// Returns 0, -1 for a null `point`/`out`, -2 in mode 0 without any latched size, -3 / -4 for a
// refused protocol (a size latched in the same call stays latched).
int coord_convert(int protocol, int coordMode, const uint16_t *screenSize, const uint16_t *point,
                  uint8_t buttons, uint8_t wheel, uint8_t *out);

// Writes a 14-byte keyboard frame holding exactly `modifiers` and the one key `usage` (0: none),
// without touching the held-keys report: for typing that bypasses the operator's keys.
void ch9329_keyboard_report(uint8_t modifiers, uint8_t usage, uint8_t *out);

// HID usage of a key code (shifted characters first become their unshifted key); 0 for none.
uint8_t ch9329_kb_hid_mapping(int key);
// 1 when a key reaches the target: a modifier or a key with a usage; else 0.
int ch9329_kb_has_key(int key);
// The encoder's code for a key typed on the keypad, given the toolkit's code for it (Key_Asterisk,
// Key_7, Key_Enter...); 0 for keys the keypad does not have.
int ch9329_keypad_key(int key);
// Unshifted partner of a shifted character ("!" -> "1"), or -1 when it has none.
int get_shift_origin_val(int key);
// 1 for Shift, Control, Meta and Alt key codes, else 0.
int is_control_key(int key);
void ch9329_kb_set_ctrl(int key);
void ch9329_kb_clr_ctrl(int key);
// Sum of `len` bytes modulo 256; 0 when `len` < 1.
uint8_t ch9329_proto_sum(const uint8_t *buf, int len);

// The chip always reports left-side modifiers; these entry points exist and do nothing.
void set_shift_key_side(int side);
void set_win_key_side(int side);
void set_alt_key_side(int side);
void set_ctrl_key_side(int side);
void uart_print_system_info();

// No modifiers and no keys held in the report any more; the latched size stays. For a target
// that was reset or lost track: the next frame carries only what is pressed from then on.
void ch9329_release_all_keys();

// Back to the state of a fresh process: no modifiers, no keys, no latched size.
// Only for tests, which need each case to start from a known report.
void ch9329_reset_state_for_tests();
