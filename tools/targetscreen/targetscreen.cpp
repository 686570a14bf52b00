#include "targetscreen.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace targetscreen {

struct Block
{
    std::uint32_t magic;
    std::uint32_t version;
    std::uint32_t size; // of the whole block, so another layout is never misread
    std::uint32_t sequence;
    State state;
};

namespace {

std::string systemError(const char *what, const std::string &path)
{
    return std::string(what) + " " + path + ": " + std::strerror(errno);
}

bool plausible(const State &state)
{
    return state.width > 0 && state.height > 0 && state.width <= kMaxScreenSide &&
           state.height <= kMaxScreenSide && state.textLength <= std::uint32_t(kTextCapacity);
}

} // namespace

void State::setText(const std::string &value)
{
    const std::size_t kept = std::min(value.size(), std::size_t(kTextCapacity));
    std::memcpy(text, value.data() + (value.size() - kept), kept);
    textLength = std::uint32_t(kept);
}

bool sameScreen(const State &a, const State &b)
{
    return a.width == b.width && a.height == b.height && a.cursorX == b.cursorX &&
           a.cursorY == b.cursorY && a.buttons == b.buttons && a.clickX == b.clickX &&
           a.clickY == b.clickY && a.clicks == b.clicks && a.heldKeys == b.heldKeys &&
           a.capsLock == b.capsLock && a.numLock == b.numLock && a.borderMode == b.borderMode &&
           a.borderLeft == b.borderLeft && a.borderTop == b.borderTop &&
           a.textEdits == b.textEdits && a.textLength == b.textLength &&
           std::memcmp(a.text, b.text, a.textLength) == 0;
}

std::uint64_t monotonicNs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::uint64_t(now.tv_sec) * 1000000000u + std::uint64_t(now.tv_nsec);
}

Rect innerRect(const State &state, int frameWidth, int frameHeight)
{
    Rect rect{0, 0, frameWidth, frameHeight};
    switch (state.borderMode) {
    case BorderMode::None:
        break;
    case BorderMode::Margins:
        rect.x = int(std::min<std::uint32_t>(state.borderLeft, std::uint32_t(frameWidth / 4)));
        rect.y = int(std::min<std::uint32_t>(state.borderTop, std::uint32_t(frameHeight / 4)));
        break;
    case BorderMode::FourByThree:
        // Columns when the frame is wider than 4:3, rows when it is narrower.
        if (std::int64_t(frameWidth) * 3 > std::int64_t(frameHeight) * 4)
            rect.x = (frameWidth - frameHeight * 4 / 3) / 2;
        else
            rect.y = (frameHeight - frameWidth * 3 / 4) / 2;
        break;
    }
    // Even, so that chroma samples shared by two pixels stay on one side of the edge.
    rect.x &= ~1;
    rect.y &= ~1;
    rect.width = frameWidth - 2 * rect.x;
    rect.height = frameHeight - 2 * rect.y;
    return rect;
}

Writer::~Writer()
{
    if (m_block)
        ::munmap(m_block, sizeof(Block));
}

bool Writer::open(const std::string &path, std::string &error)
{
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        error = systemError("cannot open", path);
        return false;
    }
    if (::ftruncate(fd, off_t(sizeof(Block))) != 0) {
        error = systemError("cannot size", path);
        ::close(fd);
        return false;
    }
    void *mapped = ::mmap(nullptr, sizeof(Block), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ::close(fd);
    if (mapped == MAP_FAILED) {
        error = systemError("cannot map", path);
        return false;
    }
    m_block = static_cast<Block *>(mapped);
    if (m_block->magic != kMagic || m_block->version != kVersion ||
        m_block->size != sizeof(Block)) {
        // A new file, or another layout: start over, and only then say what the block is.
        __atomic_store_n(&m_block->magic, 0u, __ATOMIC_RELEASE);
        m_block->sequence = 0;
        new (&m_block->state) State;
        m_block->version = kVersion;
        m_block->size = sizeof(Block);
        __atomic_store_n(&m_block->magic, kMagic, __ATOMIC_RELEASE);
    }
    return true;
}

void Writer::publish(const State &state)
{
    if (!m_block)
        return;
    const std::uint32_t sequence = __atomic_load_n(&m_block->sequence, __ATOMIC_RELAXED);
    __atomic_store_n(&m_block->sequence, sequence | 1u, __ATOMIC_RELAXED);
    __atomic_thread_fence(__ATOMIC_RELEASE);
    std::memcpy(static_cast<void *>(&m_block->state), &state, sizeof(State));
    __atomic_store_n(&m_block->sequence, (sequence | 1u) + 1u, __ATOMIC_RELEASE);
}

Reader::Reader(std::string path) : m_path(std::move(path)) {}

Reader::~Reader()
{
    unmap();
}

void Reader::unmap()
{
    if (m_block)
        ::munmap(const_cast<Block *>(m_block), sizeof(Block));
    m_block = nullptr;
    m_inode = 0;
}

void Reader::remap()
{
    struct stat info
    {
    };
    if (::stat(m_path.c_str(), &info) != 0) {
        unmap();
        return;
    }
    if (m_block && std::uint64_t(info.st_ino) == m_inode)
        return;
    unmap();
    if (info.st_size < off_t(sizeof(Block)))
        return;
    const int fd = ::open(m_path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return;
    void *mapped = ::mmap(nullptr, sizeof(Block), PROT_READ, MAP_SHARED, fd, 0);
    ::close(fd);
    if (mapped == MAP_FAILED)
        return;
    m_block = static_cast<const Block *>(mapped);
    m_inode = std::uint64_t(info.st_ino);
}

bool Reader::read(State &state, int recheckMs)
{
    const std::uint64_t now = monotonicNs();
    if (!m_checked || now - m_checkedNs >= std::uint64_t(std::max(0, recheckMs)) * 1000000u) {
        m_checked = true;
        m_checkedNs = now;
        remap();
    }
    if (!m_block || __atomic_load_n(&m_block->magic, __ATOMIC_ACQUIRE) != kMagic ||
        m_block->version != kVersion || m_block->size != sizeof(Block))
        return false;
    // The writer holds the sequence odd for a memory copy only; a few retries always do.
    for (int attempt = 0; attempt < 1000; ++attempt) {
        const std::uint32_t before = __atomic_load_n(&m_block->sequence, __ATOMIC_ACQUIRE);
        if (before & 1u)
            continue;
        std::memcpy(static_cast<void *>(&state), &m_block->state, sizeof(State));
        __atomic_thread_fence(__ATOMIC_ACQUIRE);
        if (__atomic_load_n(&m_block->sequence, __ATOMIC_RELAXED) == before)
            return plausible(state);
    }
    return false;
}

} // namespace targetscreen
