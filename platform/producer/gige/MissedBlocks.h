#pragma once

#include "producer/gige/Gvsp.h"
#include "producer/gige/Resend.h"
#include "producer/gige/UdpSocket.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

namespace nuvark::gige {

/// Blocks of which nothing has come although a newer one has begun: small frames lost as a whole, or numbers that the
/// camera has left out.
///
/// Which of both nobody knows, so that only their first packet is asked for, and they have no buffer: what comes of it
/// tells whether there is a frame to receive. A block waits until a packet of it comes, the camera refuses, it has been
/// asked for too often, or the retention time is over since it was missed. Newer frames wait for it meanwhile. When
/// nothing is said to the requests for three gaps in a row, the camera leaves out numbers and does not answer: from
/// then on no block is waited for. It stays so, since nothing would show any more that the camera has changed its ways,
/// and each attempt would hold up the frames behind it; without waiting no more is lost than was lost already.
/// One thread.
class MissedBlocks {
public:
    explicit MissedBlocks(const ResendSettings &settings) : m_settings(settings) {}

    /// Whether to wait for a gap of so many blocks. All or none: of many in a row the camera has the first ones no
    /// more. \param spareBuffers  free ones, which these blocks and the frames that wait behind them may need
    bool IsWorthWaiting(std::uint64_t count, std::size_t spareBuffers) const;
    /// In the order of their ids. \param isLast  no more follow in this gap
    void Add(std::uint64_t id, bool extendedIds, bool isLast, TimePoint now);

    bool IsEmpty() const { return m_blocks.empty(); }
    std::size_t Count() const { return m_blocks.size(); }
    std::uint64_t OldestId() const { return m_blocks.front().id; }
    bool Has(std::uint64_t id, bool extendedIds) const;
    /// A packet of that block has come: it is missed no more. \return what has been asked for of it
    ResendPlan Take(std::uint64_t id);

    // The following return how many blocks are given up for it.
    std::size_t OnRefusal(const StreamPacket &packet, TimePoint now);
    std::size_t OnTime(TimePoint now);
    /// Adds what is to be asked for now, and its number to `asked`.
    std::size_t TakeRequests(const ResendPlan::Timing &timing, ResendWindow &window,
                             std::vector<ResendRequest> &requests, std::uint64_t &asked);
    std::size_t GiveUpOldest();
    std::size_t GiveUpAll();

    /// When OnTime() or TakeRequests() have something to do; nothing while no block is missed.
    std::optional<TimePoint> NextDeadline() const;

private:
    struct Missed {
        std::uint64_t id;
        bool extendedIds;
        bool isLast; ///< of its gap, and so the likeliest that the camera still has
        TimePoint since;
        ResendPlan plan;
    };
    std::deque<Missed>::iterator Find(std::uint64_t id);

    const ResendSettings &m_settings;
    std::deque<Missed> m_blocks; ///< oldest first
    int m_unanswered = 0;        ///< gaps in a row
};

} // namespace nuvark::gige
