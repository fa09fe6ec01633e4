#pragma once

#include "producer/gige/UdpSocket.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace nuvark::gige {

/// How far the newest frame has come.
struct FrameProgress {
    std::uint64_t blockId = 0;
    std::uint32_t toCome = 0; ///< payload packets, by the leader's word or as many as the frame before had
};

/// How long the receiving thread may sleep instead of being woken for each packet, which costs as much as taking
/// several of them: until the running frame is through, by the pace of its packets since the last look, and never until
/// the socket's buffer may be half full, whatever comes.
///
/// A frame that is through when its nap ends has lain there, and nobody knows for how long. The pace is then taken for
/// a little quicker, the more so the more often that happens in a row, until a nap ends before its frame and the pace
/// is measured anew. So naps end about when frames do, once before and a few times shortly after. One thread.
class Naps {
public:
    /// \param receiveBuffer  bytes of the socket's
    explicit Naps(std::size_t receiveBuffer);

    /// When everything that had come was read. \return zero: better wait for packets
    std::chrono::nanoseconds Next(const std::optional<FrameProgress> &progress, TimePoint now);

private:
    bool Look(const FrameProgress &progress, TimePoint now);
    void BeginFrame(const FrameProgress &progress, TimePoint now);
    bool MayMeasure(std::chrono::nanoseconds since) const;

    const std::chrono::nanoseconds m_longest;
    std::uint64_t m_blockId = 0;
    std::uint32_t m_toCome = 0; ///< at the last look
    bool m_hasData = false;     ///< of this frame some had come then: before the first of it there may be any pause
    std::uint32_t m_toComeFirst = 0; ///< at the look that the pace is measured from
    TimePoint m_first{};
    std::chrono::nanoseconds m_pace{0}; ///< per packet; at a frame's beginning the former frame's
    std::chrono::nanoseconds m_nap{0};  ///< begun at the last look
    int m_overslept = 0;                ///< frames in a row
};

} // namespace nuvark::gige
