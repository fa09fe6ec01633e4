#pragma once

#include "gentl/Library.h"
#include "orvimage/OrvImage.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace orv::cam {

/// What a producer tells of one filled buffer. Each item may be missing.
enum class FrameItem {
    PayloadType,
    Incomplete,
    Timestamp,
    TimestampNs, ///< for a producer that tells no ticks
    FrameId,
    SizeFilled,
    DataSize,
    Width,
    Height,
    DeliveredHeight,
    XPadding,
    ImageOffset,
    ImagePresent,
    PixelFormat,
    PixelFormatNamespace,
    LargerThanBuffer,
    Count
};

class FrameInfo {
public:
    void Clear() { *this = FrameInfo(); }
    void Set(FrameItem item, std::uint64_t value)
    {
        m_values[static_cast<std::size_t>(item)] = value;
        m_known |= 1u << static_cast<unsigned>(item);
    }
    bool Has(FrameItem item) const { return (m_known >> static_cast<unsigned>(item) & 1u) != 0; }
    std::uint64_t Get(FrameItem item, std::uint64_t otherwise = 0) const
    {
        return Has(item) ? m_values[static_cast<std::size_t>(item)] : otherwise;
    }

private:
    std::array<std::uint64_t, static_cast<std::size_t>(FrameItem::Count)> m_values = {};
    std::uint32_t m_known = 0;
};

/// What the camera is set to: stands in for items that the producer does not tell.
struct ConfiguredFormat {
    std::uint64_t width = 0;
    std::uint64_t height = 0;
    std::uint64_t pixelFormat = 0;
    std::uint64_t ticksPerSecond = 0; ///< of its clock
};

/// Fetches a FrameInfo in one call where the producer can, else item by item. Allocates nothing.
/// Threads: one at a time.
class FrameInfoReader {
public:
    FrameInfoReader(const gentl::Functions &calls, DS_HANDLE stream);
    /// \param memory  the buffer's memory, to place the image part of a buffer with several parts.
    void Read(BUFFER_HANDLE buffer, const void *memory, FrameInfo *info);

private:
    bool ReadStacked(BUFFER_HANDLE buffer, std::size_t items, FrameInfo *info);
    void ReadSingly(BUFFER_HANDLE buffer, std::size_t items, FrameInfo *info);
    void ReadImagePart(BUFFER_HANDLE buffer, const void *memory, FrameInfo *info);

    const gentl::Functions &m_calls;
    const DS_HANDLE m_stream;
    bool m_tellsTicks = false; ///< of the last frame
    static constexpr int kStackedTries = 3;
    int m_stackedTries; ///< left before the stacked call is given up: a success brings all of them back
};

/// A frame as it may safely be looked at.
struct FrameView {
    _OrvImage image;
    std::size_t receivedBytes;
    bool incomplete;
};

/// Puts a buffer's infos together. Whatever they claim, the image never reaches beyond the buffer, and one that needs
/// more bytes than came is marked incomplete. In a format whose pixels have no known size, that cannot be told: the
/// image has its sides but no pitch, and no pixel type.
FrameView ViewOf(const FrameInfo &info, const ConfiguredFormat &configured, void *memory, std::size_t memoryBytes);

} // namespace orv::cam
