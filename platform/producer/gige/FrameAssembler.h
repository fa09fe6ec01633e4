#pragma once

#include "producer/gige/BlockNumbers.h"
#include "producer/gige/FrameBlock.h"
#include "producer/gige/Gvsp.h"
#include "producer/gige/MissedBlocks.h"
#include "producer/gige/Resend.h"
#include "producer/gige/UdpSocket.h"
#include "producer/Transport.h"

#include <array>
#include <list>
#include <optional>
#include <vector>

namespace nuvark::gige {

/// Puts stream packets together to frames: pure logic, fed with datagrams and the time.
///
/// Packets of a block may come in any order. Frames are delivered in the order of their block ids. What is missing is
/// asked for again: TakeRequests() tells which packets. A frame that nothing is asked for any more (or resending is
/// off), is delivered as incomplete, its holes filled with zeros, as soon as a newer frame has completed or two newer
/// frames have begun; any frame is when no packet of it has come for the retention time (the newest one, as long
/// as the camera may have sent only a part of it: for a second), and when those held back behind it use up the buffers.
/// Nothing a packet says is believed beyond what fits.
///
/// With resending on, blocks of which nothing has come hold up the newer ones, too, while MissedBlocks waits for them;
/// they get a buffer when their first packet comes.
///
/// A block that does not follow the newest one directly opens with its second packet: a single one may be a stray.
/// Not thread-safe: one thread at a time. Memory is taken when a larger buffer than before comes along, not per packet.
class FrameAssembler {
public:
    struct Settings {
        std::size_t packetSize = 1500; ///< IP packet size the camera was told; corrected by what comes
        bool bigEndianPixels = false;
        ResendSettings resend;
    };
    struct Counters {
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

    FrameAssembler(FrameSink &sink, Settings settings);

    void OnPacket(orv::ByteSpan datagram, TimePoint now);
    /// Where the packets that come next belong, if nothing of the running frame is lost; good until the next call.
    std::optional<Landing> NextLanding() const;
    /// A packet whose content is in the place that NextLanding() told.
    void OnLandedPacket(orv::ByteSpan header, orv::ByteSpan content, TimePoint now);
    /// Delivers what has waited too long. Only when everything that has come was handed over: what waits in the socket
    /// is no silence.
    void OnTime(TimePoint now);
    /// Adds what is to be asked for again now.
    void TakeRequests(std::vector<ResendRequest> &requests, TimePoint now);
    /// When OnTime() and TakeRequests() have something to do at the earliest; nothing while no frame is open.
    std::optional<TimePoint> NextDeadline() const;

    bool HasOpenFrames() const { return !m_open.empty(); }
    /// Delivers all open frames, as incomplete where something is missing.
    void DeliverAll();
    /// Gives the buffers of all open frames back; the rest of their packets is dropped as late.
    void AbandonAll();
    /// No frame is begun from now on; open ones go on.
    void RefuseNewFrames();

    const Counters &Count() const { return m_counters; }

private:
    enum class Kind {
        Open,   ///< of a block that is being received
        Late,   ///< of one that is through
        Missed, ///< of one that is waited for, the first packet of it
        New,    ///< of the next one
        Strange ///< of one that may begin elsewhere
    };
    Kind Classify(const StreamPacket &packet, FrameBlock *&block);
    void NoteBufferless(std::uint64_t id, bool isMissed);
    void CountLate(std::uint64_t id);
    void Sort(const StreamPacket &packet, orv::ByteSpan datagram, TimePoint now);
    bool IsOfKeptBlock(std::uint64_t id, bool extendedIds) const;
    void Keep(const StreamPacket &packet, orv::ByteSpan datagram);
    void TakeKept(FrameBlock &block, TimePoint now);
    FrameBlock *Begin(const StreamPacket &packet, TimePoint now);
    void WaitForMissed(std::uint64_t count, bool extendedIds, TimePoint now);
    FrameBlock *BeginMissed(const StreamPacket &packet);
    FrameBlock *Open(const StreamPacket &packet, std::list<FrameBlock>::iterator next);
    void OnNewFrame(TimePoint now);
    void Take(FrameBlock &block, const StreamPacket &packet, TimePoint now);
    void OnError(Kind kind, FrameBlock *block, const StreamPacket &packet, TimePoint now);
    void OnRefusal(FrameBlock &block, const StreamPacket &packet, TimePoint now);

    bool IsWaitingForTrigger(const FrameBlock &block) const;
    bool IsBeingCured(const FrameBlock &block) const;
    bool IsHopeless(const FrameBlock &block) const;
    bool IsNewest(const FrameBlock &block) const;
    TimePoint GiveUpTime(const FrameBlock &block) const;
    std::chrono::microseconds FirstTimeout() const;
    bool IsHeldBack() const;
    void DeliverReady();
    void DeliverOldest();
    void Deliver(FrameBlock &block);

    FrameSink &m_sink;
    const Settings m_settings;
    Counters m_counters;

    std::list<FrameBlock> m_open; ///< oldest first
    MissedBlocks m_missed;        ///< each older than a block of m_open
    std::vector<std::uint64_t> m_spareBits;
    FrameBlock::Former m_former;
    ResendWindow m_window;
    BlockNumbers m_numbers;
    bool m_refuseNew = false;
    struct Bufferless {
        std::uint64_t id = 0;
        bool isMissed = false; ///< it was wanted
    };
    std::array<Bufferless, 128> m_bufferless{}; ///< blocks that have no buffer, each where its id leads
    std::size_t m_learned[2] = {0, 0}; ///< data bytes per full packet, for standard and extended ids; 0: as told
    std::vector<std::uint8_t> m_kept;  ///< a packet that waits for another one of its block; empty: none
    std::size_t m_keptAge = 0;         ///< packets since then
};

} // namespace nuvark::gige
