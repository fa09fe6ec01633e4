#pragma once

#include "producer/gige/Gvsp.h"
#include "producer/gige/Resend.h"
#include "producer/gige/UdpSocket.h"
#include "producer/Transport.h"

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace nuvark::gige {

inline std::uint64_t PacketsFor(std::uint64_t bytes, std::size_t dataPerPacket)
{
    return bytes / dataPerPacket + (bytes % dataPerPacket != 0 ? 1 : 0);
}

/// Where the data of a block's next packets belongs, were nothing lost: whole ones only, one behind the other.
struct Landing {
    std::uint8_t *begin = nullptr; ///< in the frame's buffer
    std::size_t headerSize = 0;    ///< bytes before the data of each packet
    std::size_t dataSize = 0;      ///< bytes of data in each
    std::size_t packets = 0;       ///< that have room
    bool extendedIds = false;
    std::uint64_t blockId = 0;
    std::uint32_t firstPacket = 0;
};

/// One frame being received: which packets of the block are there, and where their bytes go.
///
/// Numbers of packets: 0 is the leader, then the payload from 1 on, then the trailer. Nothing a packet says is believed
/// beyond what fits the buffer. Content may lie in its place already (NextLanding()); then it is not copied. Two copies
/// of a packet that differ make neither believable: it is missing again, or the block is broken when no third one will
/// come. Parts of a multi-part block lie one behind the
/// other in the buffer. One thread.
class FrameBlock {
public:
    enum class Verdict {
        Taken,
        Duplicate,
        Unusable,    ///< malformed, cut on the way, or not to be placed
        Contradicted ///< differs from the copy that came before; now there is none
    };

    /// What the blocks before were like.
    struct Former {
        std::size_t dataPerPacket = 0;
        std::uint32_t payloadPackets = 0;   ///< of the last one, 0 when not known
        std::vector<PartDescription> parts; ///< of the last leader
    };
    /// \param bits  memory from a former block
    FrameBlock(const StreamPacket &first, const FrameTarget &target, Former former, std::vector<std::uint64_t> bits);

    /// \param gapDue  when packets that this one shows to be missing may be asked for
    Verdict Take(const StreamPacket &packet, TimePoint now, TimePoint gapDue);

    bool Is(const StreamPacket &packet) const { return m_id == packet.blockId && m_extendedIds == packet.extendedIds; }
    std::uint64_t Id() const { return m_id; }
    bool HasExtendedIds() const { return m_extendedIds; }
    const FrameTarget &Target() const { return m_target; }
    TimePoint LastPacket() const { return m_lastPacket; }
    /// Data bytes of a full packet as the packets showed, 0 when they did not.
    std::size_t LearnedSize() const { return m_learnedSize; }
    bool IsFullPayload(const StreamPacket &packet) const;
    bool IsLeaderAlone() const { return m_leader && m_highestPayload == 0 && !m_trailer; }
    bool HasTrailer() const { return m_trailer.has_value(); }
    std::vector<std::uint64_t> GiveBits() { return std::move(m_received); }
    /// What this one was like, as far as it is known.
    void Describe(Former &former) const;
    /// Behind the last packet that came. Until one of them has been taken, anything may be written there.
    std::optional<Landing> NextLanding() const;

    /// All packets are there that the trailer counts.
    bool IsComplete() const;
    /// Complete, undamaged and all of it in the buffer.
    bool IsPerfect() const { return IsComplete() && !IsLargerThanBuffer() && !IsShorterThanTold(); }
    /// Of a length that the leader tells: nothing but the trailer may be missing.
    bool HasAllPayload() const { return IsLengthKnown() && m_receivedCount >= ExpectedPackets(); }
    /// A packet that the camera, as long as no newer block has begun, may not have sent at all.
    bool MayFollow(std::uint32_t id) const { return !m_trailer && id > m_highestPayload && !HasAllPayload(); }
    /// Asking for packets again can still make it complete.
    bool IsCurable() const { return !m_isBroken && !m_isClipped; }
    /// The camera will not send all of it. \param isEnd nor anything more. \return false when that had been said.
    bool NoteCameraLoss(bool isEnd);
    bool HasEnded() const { return m_hasEnded; }
    /// The camera says that it has not sent the block before. \return false when that had been said.
    bool NoteFormerDrop() { return !std::exchange(m_toldOfFormer, true); }
    FrameInfo Describe(bool bigEndianPixels) const;
    /// Leader and trailer, and the packets that can touch the buffer: of those beyond it nobody knows which came.
    std::uint32_t MissingPackets(std::uint64_t dataSize) const;
    void ZeroHoles(std::uint64_t end);

    // What to ask for again. Gaps become holes of the plan as they are seen.
    ResendPlan &Plan() { return m_plan; }
    const ResendPlan &Plan() const { return m_plan; }
    /// Everything behind the last packet is missing, too, unless the trailer has come.
    void NoteTail(TimePoint due);
    /// Nothing comes any more: the same, but only the next packet at first, until it has come. For all that is known
    /// the camera has not sent the rest.
    void NoteSilence(TimePoint due);
    /// Whether NoteSilence() would do something.
    bool MindsSilence() const;
    bool HasPacket(std::uint32_t id) const;
    ResendPlan::Extent GetExtent() const;
    /// A complete block whose last packet was cut: that packet is missing after all. \return whether it was so.
    bool ForgetCutEnd(TimePoint due);

private:
    struct Slot {
        std::uint64_t offset = 0; ///< in the buffer
        std::size_t size = 0;     ///< of a full packet there
    };
    struct Part {
        std::uint32_t firstPacket;
        std::uint32_t packets;
        std::uint64_t begin; ///< in the buffer
        std::uint64_t length;
    };

    Verdict TakeContent(const StreamPacket &packet);
    Verdict TakeLeader(const StreamPacket &packet);
    Verdict TakeTrailer(const StreamPacket &packet);
    Verdict TakePayload(const StreamPacket &packet, orv::ByteSpan data);
    Verdict TakePart(const StreamPacket &packet);
    Verdict TakeAllIn(const StreamPacket &packet);
    Verdict TakeSecondCopy(std::uint32_t id, orv::ByteSpan data);
    void Reach(std::uint32_t id);
    void LayOutParts(const std::vector<PartDescription> &parts);
    void TakeLayout();
    void PlaceAnew();
    void ForgetParts();
    void SetDataSize(std::size_t bytes);
    void LearnPartSize(std::uint32_t id, const PartHeader &header);
    void LearnDataSize(std::uint32_t id, std::size_t size);
    void ShrinkDataSize();
    void Store(const Slot &slot, orv::ByteSpan data);
    void Forget(std::uint32_t id);
    void ForgetShortPacket();
    Slot SlotOf(std::uint32_t id) const;
    std::size_t StoredBytes(std::uint32_t id, const Slot &slot) const;
    bool HasPayload(std::uint32_t id) const { return (m_received[id / 64] >> (id % 64) & 1) != 0; }
    std::uint32_t ExpectedPackets() const;
    bool IsLengthKnown() const;

    bool IsLargerThanBuffer() const;
    bool IsShorterThanTold() const;
    std::uint64_t ExpectedBytes(Leader::Packing packing) const;
    std::uint32_t Lines() const;
    std::size_t ImageOffset() const;
    std::vector<FramePart> DescribeParts() const;

    const std::uint64_t m_id;
    const bool m_extendedIds;
    const FrameTarget m_target;
    Former m_former;
    std::size_t m_dataPerPacket = 0;
    std::size_t m_learnedSize = 0;
    std::vector<std::uint64_t> m_received; ///< bit per payload packet, up to m_maxPayload
    std::uint32_t m_maxPayload = 0;        ///< highest payload packet that can touch the buffer
    std::uint32_t m_receivedCount = 0;     ///< of the bits above
    std::uint32_t m_highestPayload = 0;
    std::uint64_t m_receivedBytes = 0;
    std::uint64_t m_end = 0; ///< of the farthest byte that came, clipped to the buffer
    std::optional<Leader> m_leader;
    std::optional<Trailer> m_trailer;
    std::vector<std::uint8_t> m_leaderBytes; ///< to compare a second copy with
    std::vector<Part> m_parts;
    bool m_partsAreGuessed = false;   ///< as of the block before, the leader not being there
    std::uint32_t m_payloadCount = 0; ///< payload packets of the block, once the trailer told
    std::uint32_t m_shortId = 0;      ///< a payload packet that was not full: right only for the last one
    std::size_t m_shortSize = 0;      ///< bytes of it in the buffer
    bool m_isClipped = false;         ///< bytes came that did not fit
    bool m_isBroken = false;          ///< packets contradict each other
    bool m_hasEnded = false;
    bool m_cameraLoss = false;
    bool m_toldOfFormer = false;
    TimePoint m_lastPacket{};

    ResendPlan m_plan;
    std::uint32_t m_next = 0; ///< below it packets are there or in a hole of the plan
    bool m_tailNoted = false;
    std::uint32_t m_probe = 0; ///< the packet asked for in a silence; it is the one below m_next then
    int m_cutEnds = 0;         ///< times that the last packet was forgotten for being cut
    TimePoint m_gapDue{};
};

} // namespace nuvark::gige
