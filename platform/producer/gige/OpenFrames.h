#pragma once

#include "producer/gige/BlockNumbers.h"
#include "producer/gige/FrameBlock.h"
#include "producer/gige/MissedBlocks.h"
#include "producer/gige/Resend.h"
#include "producer/gige/UdpSocket.h"
#include "producer/Transport.h"

#include <list>
#include <optional>
#include <vector>

namespace nuvark::gige {

/// Smaller packets no camera sends; with IP header.
constexpr std::size_t kSmallestPacket = 46;

struct AssemblySettings {
    std::size_t packetSize = 1500; ///< IP packet size the camera was told; corrected by what comes
    bool bigEndianPixels = false;
    ResendSettings resend;
};

struct AssemblyCounters {
    std::uint64_t packets = 0;
    std::uint64_t fullPackets = 0; ///< of payload, as long as they are meant to be
    std::uint64_t unusable = 0;    ///< malformed, foreign block or unknown format
    std::uint64_t duplicates = 0;
    std::uint64_t late = 0;            ///< of a block that is through already
    std::uint64_t withoutBuffer = 0;   ///< of a block that was wanted and got no buffer, or had to give it back
    std::uint64_t droppedByCamera = 0; ///< blocks that the camera says it could not send, whole or in part
    std::uint64_t refused = 0;         ///< error status instead of data
    std::uint64_t missing = 0;         ///< not there when their frame was given up, though there was room for them
    std::uint64_t requested = 0;
    std::uint64_t resent = 0;       ///< of those requested, that came
    std::uint64_t missedFrames = 0; ///< ids between two blocks of which nothing came
};

/// The frames that are being received, in the order of their ids: what is asked for again of them, and when each is
/// delivered.
///
/// A frame is delivered when it is complete and all older ones are through. One that nothing is asked for any more (or
/// resending is off) is delivered as incomplete, its holes filled with zeros, as soon as a newer frame has completed or
/// two newer frames have begun; any frame is when no packet of it has come for the retention time (the newest one, as
/// long as the camera may have sent only a part of it: for a second), and when those held back behind it use up the
/// buffers. Blocks of which nothing has come hold up newer frames, too, while MissedBlocks waits for them. One thread.
class OpenFrames {
public:
    /// All of which it refers to outlive it.
    OpenFrames(FrameSink &sink, const AssemblySettings &settings, const BlockNumbers &numbers,
               AssemblyCounters &counters);

    bool IsEmpty() const { return m_blocks.empty(); }
    /// The one that the packet belongs to; null when there is none.
    FrameBlock *Find(const StreamPacket &packet);
    bool IsNewest(const FrameBlock &block) const { return m_numbers.IsNewest(block.Id(), block.HasExtendedIds()); }
    std::optional<Landing> NextLanding() const
    {
        return m_blocks.empty() ? std::nullopt : m_blocks.back().NextLanding();
    }
    std::optional<FrameProgress> NewestProgress() const
    {
        return m_blocks.empty() ? std::nullopt : m_blocks.back().Progress();
    }

    /// A new frame begins: what the older ones have not got by now they may have lost, and the oldest ones go if the
    /// buffers get few.
    void MakeWay(TimePoint now);
    /// Takes a buffer for the packet's block; null when there is none.
    FrameBlock *Open(const StreamPacket &packet, std::size_t dataPerPacket);

    /// Of so many blocks before the newest one nothing came: they are waited for, or counted.
    void WaitForMissed(std::uint64_t count, bool extendedIds, TimePoint now);
    void CountMissed(std::uint64_t blocks);
    bool IsMissed(const StreamPacket &packet) const { return m_missed.Has(packet.blockId, packet.extendedIds); }
    /// Its first packet has come: it takes its place in front of those that wait for it; null without a buffer.
    FrameBlock *OpenMissed(const StreamPacket &packet, std::size_t dataPerPacket);
    /// When that packet has been taken: newer frames have begun, so that the rest follows at once, or is lost, too.
    void NoteLateBeginning(FrameBlock &block, TimePoint now);
    void RefuseMissed(const StreamPacket &packet, TimePoint now);
    void GiveUpMissed();

    void DeliverReady();
    void DeliverAll();
    /// Gives all buffers back. \return the ids of their frames
    std::vector<std::uint64_t> AbandonAll();
    /// As those of FrameAssembler.
    void OnTime(TimePoint now);
    void TakeRequests(std::vector<ResendRequest> &requests, TimePoint now);
    std::optional<TimePoint> NextDeadline() const;
    void NoteArrival(std::size_t bytes, TimePoint now) { m_window.NoteArrival(bytes, now); }

private:
    bool IsWaitingForTrigger(const FrameBlock &block) const;
    bool IsBeingCured(const FrameBlock &block) const;
    bool IsHopeless(const FrameBlock &block) const;
    bool IsHeldBack() const;
    TimePoint GiveUpTime(const FrameBlock &block) const;
    std::chrono::microseconds FirstTimeout() const;
    void DeliverOldest();
    void Deliver(FrameBlock &block);

    FrameSink &m_sink;
    const AssemblySettings &m_settings;
    const BlockNumbers &m_numbers;
    AssemblyCounters &m_counters;
    std::list<FrameBlock> m_blocks; ///< oldest first
    MissedBlocks m_missed;          ///< each older than one of m_blocks
    std::vector<std::uint64_t> m_spareBits;
    FrameBlock::Former m_former;
    ResendWindow m_window;
};

} // namespace nuvark::gige
