#pragma once

#include "producer/gige/BlockNumbers.h"
#include "producer/gige/FrameBlock.h"
#include "producer/gige/Gvsp.h"
#include "producer/gige/OpenFrames.h"
#include "producer/gige/UdpSocket.h"
#include "producer/Transport.h"

#include <array>
#include <optional>
#include <vector>

namespace nuvark::gige {

/// Puts stream packets together to frames: pure logic, fed with datagrams and the time.
///
/// Packets of a block may come in any order. Frames are delivered in the order of their block ids, as OpenFrames says;
/// what is missing is asked for again: TakeRequests() tells which packets. Nothing a packet says is believed beyond
/// what fits.
///
/// A block that does not follow the newest one directly opens with its second packet: a single one may be a stray.
/// Not thread-safe: one thread at a time. Memory is taken when a larger buffer than before comes along, not per packet.
class FrameAssembler {
public:
    using Settings = AssemblySettings;
    using Counters = AssemblyCounters;

    FrameAssembler(FrameSink &sink, Settings settings);
    FrameAssembler(const FrameAssembler &) = delete;
    FrameAssembler &operator=(const FrameAssembler &) = delete;

    void OnPacket(orv::ByteSpan datagram, TimePoint now);
    /// Where the packets that come next belong, if nothing of the running frame is lost; good until the next call.
    std::optional<Landing> NextLanding() const { return m_frames.NextLanding(); }
    /// Of the frame begun last; nothing when it is not known how much of it is to come.
    std::optional<FrameProgress> NewestProgress() const { return m_frames.NewestProgress(); }
    /// So many of them, whose content is in its place already. \param header  of the first
    void OnLanded(orv::ByteSpan header, std::uint32_t packets, TimePoint now);
    /// Delivers what has waited too long. Only when everything that has come was handed over: what waits in the socket
    /// is no silence.
    void OnTime(TimePoint now) { m_frames.OnTime(now); }
    /// Adds what is to be asked for again now.
    void TakeRequests(std::vector<ResendRequest> &requests, TimePoint now) { m_frames.TakeRequests(requests, now); }
    /// When OnTime() and TakeRequests() have something to do at the earliest; nothing while no frame is open.
    std::optional<TimePoint> NextDeadline() const { return m_frames.NextDeadline(); }

    bool HasOpenFrames() const { return !m_frames.IsEmpty(); }
    /// Delivers all open frames, as incomplete where something is missing.
    void DeliverAll() { m_frames.DeliverAll(); }
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
    void AgeKept(std::size_t packets);
    void TakeKept(FrameBlock &block, TimePoint now);
    FrameBlock *Begin(const StreamPacket &packet, TimePoint now);
    std::size_t DataPerPacket(const StreamPacket &packet) const;
    void Take(FrameBlock &block, const StreamPacket &packet, TimePoint now);
    void OnError(Kind kind, FrameBlock *block, const StreamPacket &packet, TimePoint now);
    void OnRefusal(FrameBlock &block, const StreamPacket &packet, TimePoint now);

    FrameSink &m_sink;
    const Settings m_settings;
    Counters m_counters;

    BlockNumbers m_numbers;
    OpenFrames m_frames; ///< refers to the members above
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
