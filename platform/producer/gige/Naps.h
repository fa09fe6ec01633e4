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
/// several of them: until the running frame is through, by the quicker of the paces since the last look and since the
/// frame's beginning (too early costs a wake-up, too late a frame's age), and never until the socket's buffer may be
/// half full, whatever comes.
///
/// A frame's first nap goes by the usual pace. A frame that is through when it ends has lain there, and nobody knows
/// for how long; then the usual pace is taken for a little quicker, the more so the more often that happens in a row,
/// until a nap ends before its frame and the pace is measured anew. So naps end about when frames do, once before and a
/// few times shortly after. One thread.
class Naps {
public:
    /// \param receiveBuffer  bytes of the socket's
    explicit Naps(std::size_t receiveBuffer);

    /// When everything that had come was read. \param until  when something else is due: no nap lasts beyond
    /// \return zero: better wait for packets
    std::chrono::nanoseconds Next(const std::optional<FrameProgress> &progress, TimePoint now, TimePoint until);

private:
    struct Mark {
        TimePoint at;
        std::uint32_t toCome = 0;
    };

    bool Look(const FrameProgress &progress, TimePoint now);
    void BeginFrame(const FrameProgress &progress, TimePoint now);
    bool MayMeasure(TimePoint now) const;
    std::chrono::nanoseconds PaceSince(const Mark &mark, TimePoint now) const;

    const std::chrono::nanoseconds m_longest;
    std::uint64_t m_blockId = 0;
    std::uint32_t m_toCome = 0; ///< at the last look
    bool m_hasData = false;     ///< of this frame some had come then: before the first of it there may be any pause
    Mark m_beginning;           ///< the frame's first look with data
    Mark m_last;                ///< the look before, if it was not too short ago
    std::chrono::nanoseconds m_pace{0}; ///< per packet, of this frame; at its beginning the usual one
    std::chrono::nanoseconds m_usualPace{0};
    std::chrono::nanoseconds m_paceBefore{0}; ///< the usual one at the frame's beginning
    std::chrono::nanoseconds m_nap{0};        ///< begun at the last look
    int m_overslept = 0;                      ///< frames in a row
};

} // namespace nuvark::gige
