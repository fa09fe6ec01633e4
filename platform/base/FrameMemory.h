#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <sys/mman.h>

namespace orv {

struct FreeMemory {
    void operator()(std::uint8_t *memory) const { std::free(memory); }
};
using FrameMemory = std::unique_ptr<std::uint8_t[], FreeMemory>;

/// Zeroed memory for one frame, null when there is none. It begins on a page, as zero-copy transports want it; from
/// 2 MiB on it asks for huge pages: while a frame comes in, its memory is touched once every few milliseconds, and
/// then finding each 4 KiB page anew is a good part of what the copy into it costs.
inline FrameMemory AllocateFrame(std::size_t bytes)
{
    constexpr std::size_t kPage = 4096;
    constexpr std::size_t kHugePage = 2 << 20;
    const bool isHuge = bytes >= kHugePage;
    void *memory = nullptr;
    if (posix_memalign(&memory, isHuge ? kHugePage : kPage, bytes) != 0)
        return nullptr;
    if (isHuge) // a wish: without it the memory is as good, only slower
        (void)madvise(memory, bytes / kHugePage * kHugePage, MADV_HUGEPAGE);
    std::memset(memory, 0, bytes);
    return FrameMemory(static_cast<std::uint8_t *>(memory));
}

} // namespace orv
