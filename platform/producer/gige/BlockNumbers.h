#pragma once

#include "producer/gige/Gvsp.h"
#include "producer/gige/UdpSocket.h"

#include <chrono>
#include <cstdint>
#include <optional>

namespace nuvark::gige {

/// Where block ids stand in the stream: which one is the newest, and how far others are from it.
///
/// Ids rise by one from block to block; 16-bit ones go from 65535 to 1. A camera may leave some out, and may begin to
/// count anew at any time. One thread.
class BlockNumbers {
public:
    enum class Place {
        Past,   ///< the newest one, or one before it
        Next,   ///< the one behind it
        Strange ///< one farther ahead, or so far behind that the camera may have begun to count anew
    };
    Place PlaceOf(const StreamPacket &packet) const;
    /// From the newest one to `id`, in ids of the newest one's form; below 0 for those before it.
    std::int64_t Distance(std::uint64_t id) const;
    /// Whether a packet is of a block so little ahead that it may open it without a leader.
    bool IsNear(const StreamPacket &packet) const;
    bool IsNewest(std::uint64_t id, bool extendedIds) const { return id == m_newest && extendedIds == m_extended; }
    /// The id that stands so many places before the newest one; 0 when there is none.
    std::uint64_t Before(std::uint64_t places) const;

    struct Step {
        bool isAnew = false;       ///< the camera has begun to count anew, or in the other form
        std::uint64_t leftOut = 0; ///< ids between
    };
    /// The packet's block is the newest one now.
    Step Advance(const StreamPacket &packet, TimePoint now);
    /// Between the beginnings of two blocks, of late.
    std::optional<std::chrono::microseconds> FrameTime() const { return m_frameTime; }

private:
    bool IsAhead(std::int64_t distance, TimePoint now) const;

    bool m_started = false; ///< a first block has been seen
    std::uint64_t m_newest = 0;
    bool m_extended = false;
    TimePoint m_lastBegin{};
    std::optional<std::chrono::microseconds> m_frameTime;
};

} // namespace nuvark::gige
