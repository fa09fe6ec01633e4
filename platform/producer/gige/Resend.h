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
class ResendWindow {
public:
    /// \return how many of `wanted` may be asked for now.
    std::uint32_t Take(std::uint32_t wanted, TimePoint now);

private:
    std::optional<TimePoint> m_begin;
    std::uint32_t m_left = 0;
};

/// The holes of one block, and what has been asked to fill them.
///
/// A gap becomes a hole as soon as it is seen and is asked for when it has not closed by itself within the initial
/// timeout; after that again each packet timeout. It ends for good when the camera refuses, the share of packets that
/// may be asked for is used up, or a hole has been asked for too often. What has come is the owner's to know: holes may
/// contain packets that are there meanwhile. One thread.
class ResendPlan {
public:
    using Has = std::function<bool(std::uint32_t)>;

    void AddHole(std::uint32_t first, std::uint32_t last, TimePoint due) { m_holes.push_back({first, last, due, 0}); }
    /// What a block of `lastId` as its trailer still lacks and is due, in order, neighbours merged.
    /// \param open  the trailer has not come: the last range then goes to the end
    struct Extent {
        std::uint32_t lastId;
        bool open;
    };
    void Collect(const ResendSettings &settings, const Extent &extent, const Has &has, TimePoint now,
                 ResendWindow &window, std::vector<ResendRequest> &out);

    /// Whether that packet has been asked for.
    bool WasRequested(std::uint32_t id) const;
    /// The camera has the packet not yet.
    void Postpone(std::uint32_t id, TimePoint due);
    /// Nothing more is asked for.
    void Stop() { m_stopped = true; }
    bool IsStopped() const { return m_stopped; }
    std::optional<TimePoint> NextDue() const;
    std::uint64_t Requested() const { return m_requested; }

private:
    struct Hole {
        std::uint32_t first;
        std::uint32_t last;
        TimePoint due;
        std::uint32_t tries;
    };
    Hole *Find(std::uint32_t id);
    /// \return whether anything of it is still missing.
    bool Ask(Hole &hole, const ResendSettings &settings, const Extent &extent, const Has &has, TimePoint now,
             ResendWindow &window, std::vector<ResendRequest> &out);

    std::vector<Hole> m_holes;
    std::uint64_t m_requested = 0;
    bool m_stopped = false;
};

} // namespace nuvark::gige
