#pragma once

#include "producer/gige/Gvsp.h"
#include "producer/gige/UdpSocket.h"
#include "producer/Transport.h"

#include <deque>
#include <memory>
#include <optional>
#include <vector>

namespace nuvark::gige {

/// Puts stream packets together to frames: pure logic, fed with datagrams and the time.
///
/// Packets of a block may come in any order. Frames are delivered in the order of their block ids. A frame with holes
/// is delivered as incomplete, its holes filled with zeros, as soon as a newer frame has completed, two newer frames
/// have begun, or no packet of it has come for the retention time. Nothing a packet says is believed beyond what fits.
/// Not thread-safe: one thread at a time. Memory is taken when a larger buffer than before comes along, not per packet.
class FrameAssembler {
public:
    struct Settings {
        std::size_t packetSize = 1500; ///< IP packet size the camera was told; corrected by what comes
        std::chrono::milliseconds retention{100};
        bool bigEndianPixels = false;
    };
    struct Counters {
        std::uint64_t packets = 0;
        std::uint64_t unusable = 0; ///< malformed, foreign block or unknown format
        std::uint64_t duplicates = 0;
        std::uint64_t late = 0;    ///< of a block that is through already
        std::uint64_t refused = 0; ///< error status instead of data
        std::uint64_t missing = 0; ///< not there when their frame was given up, though there was room for them
        std::uint64_t incompleteFrames = 0;
    };

    FrameAssembler(FrameSink &sink, Settings settings);

    void OnPacket(orv::ByteSpan datagram, TimePoint now);
    /// Delivers what has waited too long.
    void OnTime(TimePoint now);
    /// When OnTime() has something to do at the earliest; nothing while no frame is open.
    std::optional<TimePoint> NextDeadline() const;

    bool HasOpenFrames() const { return !m_open.empty(); }
    /// Delivers all open frames, as incomplete where something is missing.
    void DeliverAll();
    /// Gives the buffers of all open frames back; the rest of their packets is dropped as late.
    void AbandonAll();
    /// No frame is begun from now on; open ones go on.
    void RefuseNewFrames() { m_refuseNew = true; }

    const Counters &Count() const { return m_counters; }

private:
    /// One frame being received.
    struct Block {
        std::uint64_t id = 0;
        bool extendedIds = false;
        FrameTarget target;
        std::size_t dataPerPacket = 0;
        std::vector<std::uint64_t> received; ///< bit per payload packet id, up to maxPayload
        std::uint32_t maxPayload = 0;        ///< highest payload packet id that can touch the buffer
        std::uint32_t receivedCount = 0;     ///< of the bits above
        std::uint32_t highestPayload = 0;
        std::uint64_t receivedBytes = 0;
        std::uint64_t end = 0; ///< of the farthest byte that came, clipped to the buffer
        std::optional<Leader> leader;
        std::optional<Trailer> trailer;
        std::uint32_t payloadCount = 0; ///< payload packets of the block, once the trailer told
        std::uint32_t shortId = 0;      ///< a payload packet that was not full: right only for the last one
        std::size_t shortSize = 0;      ///< bytes of it in the buffer
        bool isClipped = false;         ///< bytes came that did not fit
        bool isBroken = false;          ///< packets contradict each other
        TimePoint lastPacket{};
    };

    enum class Kind { Open, Late, New, Junk };
    Kind Classify(const StreamPacket &packet, Block *&block);
    std::int64_t Distance(const StreamPacket &packet) const;
    Block *Begin(const StreamPacket &packet);
    void Recycle(Block &block);

    void OnLeader(Block &block, const StreamPacket &packet);
    void OnTrailer(Block &block, const StreamPacket &packet);
    void OnPayload(Block &block, const StreamPacket &packet);
    void LearnDataSize(Block &block, const StreamPacket &packet);
    void SetDataSize(Block &block, std::size_t bytes);
    void ShrinkDataSize(Block &block);
    /// \return the bytes of the packet that the buffer had room for.
    std::size_t Store(Block &block, const StreamPacket &packet);
    void ForgetShortPacket(Block &block);

    bool IsComplete(const Block &block) const;
    bool IsLargerThanBuffer(const Block &block) const;
    bool IsShortOfImage(const Block &block) const;
    bool IsWaitingForTrigger(const Block &block) const;
    bool HasWaitedLongEnough(std::size_t index, TimePoint now) const;
    void DeliverReady(TimePoint now);
    void Deliver(Block &block);
    static bool HasPacket(const Block &block, std::uint32_t id);
    static std::uint32_t MissingPackets(const Block &block, std::uint64_t dataSize);
    static void ZeroHoles(const Block &block, std::uint64_t end);
    FrameInfo Describe(const Block &block, bool complete) const;
    std::uint64_t ExpectedBytes(const Block &block, Leader::Packing packing) const;
    static std::uint32_t Lines(const Block &block);

    FrameSink &m_sink;
    const Settings m_settings;
    Counters m_counters;

    std::deque<Block> m_open; ///< oldest first
    std::vector<std::uint64_t> m_spareBits;
    bool m_started = false; ///< a first block has been seen
    bool m_refuseNew = false;
    std::uint64_t m_newestId = 0;
    bool m_newestExtended = false;
    std::size_t m_learned[2] = {0, 0}; ///< data bytes per full packet, for standard and extended ids; 0: as told
};

} // namespace nuvark::gige
