#pragma once

#include "producer/gige/UdpSocket.h"
#include "producer/Transport.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

/// Asking for packets again: which and when (pure logic), and the wire form of the request.
namespace nuvark::gige {

/// As the last packet of a request: up to the end of the block, whatever its number is.
constexpr std::uint32_t kToTheEnd = 0xFFFFFFFF;

/// Packets of one block to be sent again, first and last included.
struct ResendRequest {
    std::uint64_t blockId = 0;
    bool extendedIds = false;
    std::uint32_t first = 0;
    std::uint32_t last = 0;
};
/// PACKETRESEND as a datagram, in the form of the block's ids; asks for no acknowledge, since that would come among the
/// stream's packets.
std::vector<std::uint8_t> MakeResendCommand(std::uint16_t requestId, std::uint16_t channel,
                                            const ResendRequest &request);

/// Limits how many packets may be asked for at once, over all blocks: answers share the line with live packets.
///
/// In each millisecond half of what the stream brings in one, and as much as a quarter of a gigabit line carries where
/// it brings little. One thread.
class ResendWindow {
public:
    explicit ResendWindow(std::size_t packetSize) : m_packetSize(packetSize) {}

    void NoteArrival(std::size_t bytes, TimePoint now);
    /// \return how many of `wanted` may be asked for now.
    std::uint32_t Take(std::uint32_t wanted, TimePoint now);

private:
    const std::size_t m_packetSize;
    std::optional<TimePoint> m_begin;
    std::uint32_t m_left = 0;
    TimePoint m_spanBegin{}; ///< of the arrivals that are being counted
    std::uint64_t m_spanBytes = 0;
    std::uint64_t m_bytesPerMs = 0;
};

/// The holes of one block, and what has been asked to fill them.
///
/// A gap becomes a hole as soon as it is seen and is asked for when it has not closed by itself within the initial
/// timeout; after that again and again, each time after twice as long, up to the packet timeout. It ends for good when
/// the camera refuses, a hole has been asked for too often, or more is missing than may be asked for: then nothing is.
/// What has come is the owner's to know: holes may contain packets that are there meanwhile. One thread.
class ResendPlan {
public:
    using Has = std::function<bool(std::uint32_t)>;

    /// Replaces what was planned for these packets.
    void AddHole(std::uint32_t first, std::uint32_t last, TimePoint due);
    /// How far a block reaches.
    struct Extent {
        std::uint32_t lastId;       ///< of the trailer; while that is not known the last one that there is room for
        bool open;                  ///< the trailer has not come: the last range then goes to the end
        bool isKnown;               ///< lastId is no guess
        std::uint32_t likelyLastId; ///< of a block like the one before
    };
    struct Timing {
        const ResendSettings &settings;
        std::chrono::microseconds firstTimeout; ///< between the first two requests for the same packet
        TimePoint now;
    };
    /// What a block still lacks and is due, in order, neighbours merged.
    void Collect(const Timing &timing, const Extent &extent, const Has &has, ResendWindow &window,
                 std::vector<ResendRequest> &out);

    /// Whether that packet has been asked for.
    bool WasRequested(std::uint32_t id) const;
    /// How many of those up to `last` have been.
    std::uint32_t CountRequested(std::uint32_t first, std::uint32_t last) const;
    /// The camera has the packet not yet.
    void Postpone(std::uint32_t id, TimePoint due);
    /// Nothing more is asked for.
    void Stop() { m_stopped = true; }
    bool IsStopped() const { return m_stopped; }
    std::optional<TimePoint> NextDue() const;
    std::uint64_t Requested() const { return m_requested; } ///< packets, each time counted

private:
    struct Hole {
        std::uint32_t first;
        std::uint32_t last;
        TimePoint due;
        std::uint32_t tries;
        bool isUnanswered; ///< asked for, and not told since to wait
    };
    const Hole *Find(std::uint32_t id) const;
    bool HasRoomFor(const ResendSettings &settings, const Extent &extent, const Has &has) const;
    bool IsOutOfTries(const Timing &timing, const Extent &extent, const Has &has) const;
    struct Round {
        const Timing &timing;
        const Extent &extent;
        const Has &has;
        ResendWindow &window;
        std::vector<ResendRequest> &out;
        std::size_t begin; ///< of this block's requests in `out`
    };
    void Ask(const Hole &hole, const Round &round);
    std::uint32_t AskForRun(std::uint32_t first, std::uint32_t last, const Round &round);

    std::vector<Hole> m_holes; ///< in order, apart from each other
    std::vector<Hole> m_former;
    std::optional<TimePoint> m_nextDue; ///< of any hole, or earlier
    std::uint64_t m_requested = 0;
    bool m_stopped = false;
};

} // namespace nuvark::gige
