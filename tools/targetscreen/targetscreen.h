#pragma once

// The simulated target computer's screen as the simulated box leaves it for the virtual camera:
// a fixed-size block in a shared file that the box rewrites on every change and the camera reads
// for every frame. Plain C++ without Qt or GStreamer, so both sides (and tests) use it.
//
// The block is a sequence lock: the writer makes the sequence odd, writes, makes it even; a
// reader copies the state and retries while the sequence was odd or moved. A read never waits
// on the writer, so the channel adds no delay beyond a memory copy.

#include <cstdint>
#include <string>

namespace targetscreen {

constexpr std::uint32_t kMagic = 0x5453'4B54; // "TKST" in a little-endian dump
constexpr std::uint32_t kVersion = 1;
constexpr int kTextCapacity = 4096; // the end of the text area, in bytes
constexpr int kMaxScreenSide = 8192;

// How the target's picture sits in the captured frame.
enum class BorderMode : std::uint32_t {
    None = 0,
    Margins = 1,     // `borderLeft` columns on both sides, `borderTop` rows above and below
    FourByThree = 2, // a 4:3 picture centred in the frame (columns or rows of black)
};

// Everything the camera draws, in the target's own pixels.
struct State
{
    std::uint32_t width = 1920; // the target's screen
    std::uint32_t height = 1080;
    std::int32_t cursorX = 0;
    std::int32_t cursorY = 0;
    std::uint32_t buttons = 0; // report bits: 1 left, 2 right, 4 middle
    std::int32_t clickX = -1;  // where the last button press landed; -1 before the first
    std::int32_t clickY = -1;
    std::uint32_t clicks = 0;   // button presses so far
    std::uint32_t heldKeys = 0; // keys and modifier keys held now
    std::uint32_t capsLock = 0;
    std::uint32_t numLock = 0;
    BorderMode borderMode = BorderMode::None;
    std::uint32_t borderLeft = 0;
    std::uint32_t borderTop = 0;
    std::uint32_t textEdits = 0; // characters typed or erased so far
    std::uint64_t changedNs = 0; // CLOCK_MONOTONIC of the last change of any kind
    std::uint64_t textChangedNs = 0;
    std::uint32_t textLength = 0;  // bytes used in `text`
    char text[kTextCapacity] = {}; // the text area's last bytes (ASCII, '\n' and '\t')

    std::string textString() const { return std::string(text, textLength); }
    // Keeps the last kTextCapacity bytes of `value`.
    void setText(const std::string &value);
};

// Whether two states show the same screen (their times aside).
bool sameScreen(const State &a, const State &b);

// The current time as `changedNs` counts it.
std::uint64_t monotonicNs();

// Where a picture `frameWidth` x `frameHeight` shows the target's screen, less its borders.
struct Rect
{
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};
Rect innerRect(const State &state, int frameWidth, int frameHeight);

// The box's end: creates (or reuses) the file and publishes states into it.
class Writer
{
public:
    Writer() = default;
    ~Writer();
    Writer(const Writer &) = delete;
    Writer &operator=(const Writer &) = delete;

    // False with `error` when the file cannot be made or mapped. An existing block is taken
    // over, so a camera that maps it keeps seeing the box after a restart.
    bool open(const std::string &path, std::string &error);
    void publish(const State &state);
    bool isOpen() const { return m_block != nullptr; }

private:
    struct Block *m_block = nullptr;
};

// The camera's end: maps the file when it appears, notices when it is replaced, and reads.
class Reader
{
public:
    explicit Reader(std::string path);
    ~Reader();
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    // The latest state; false while there is no valid block (no box yet, or a foreign file).
    // Looks for a new or replaced file at most every `recheckMs` milliseconds.
    bool read(State &state, int recheckMs = 250);

private:
    void remap();
    void unmap();

    std::string m_path;
    const struct Block *m_block = nullptr;
    std::uint64_t m_inode = 0;
    std::uint64_t m_checkedNs = 0;
    bool m_checked = false;
};

} // namespace targetscreen
