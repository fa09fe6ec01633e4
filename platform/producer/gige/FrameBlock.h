#pragma once

#include "producer/gige/BlockGaps.h"
#include "producer/gige/Gvsp.h"
#include "producer/gige/Naps.h"
#include "producer/gige/PacketPlaces.h"
#include "producer/gige/Resend.h"
#include "producer/gige/UdpSocket.h"
#include "producer/Transport.h"

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace nuvark::gige {

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
/// beyond what fits the buffer. Two copies of a packet that differ make neither believable: it is missing again, or the
/// block is broken when no third one will come. One thread.
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
    /// Packets from where NextLanding() began, whose content is in its place.
    void TakeLanded(std::uint32_t first, std::uint32_t packets, TimePoint now, TimePoint gapDue);

    bool Is(const StreamPacket &packet) const { return m_id == packet.blockId && m_extendedIds == packet.extendedIds; }
    std::uint64_t Id() const { return m_id; }
    bool HasExtendedIds() const { return m_extendedIds; }
    const FrameTarget &Target() const { return m_places.Target(); }
    TimePoint LastPacket() const { return m_lastPacket; }
    std::size_t DataPerPacket() const { return m_places.DataPerPacket(); }
    /// Data bytes of a full packet as the packets showed, 0 when they did not.
    std::size_t LearnedSize() const { return m_learnedSize; }
    bool IsFullPayload(const StreamPacket &packet) const;
    bool IsLeaderAlone() const { return m_leader && m_highestPayload == 0 && !m_trailer; }
    bool HasTrailer() const { return m_trailer.has_value(); }
    std::vector<std::uint64_t> GiveBits() { return m_places.GiveBits(); }
    /// What this one was like, as far as it is known.
    void Describe(Former &former) const;
    /// Behind the last packet that came. Until one of them has been taken, anything may be written there.
    std::optional<Landing> NextLanding() const;
    /// Nothing when the trailer has come, or nobody knows how much is to come.
    std::optional<FrameProgress> Progress() const;

    /// All packets are there that the trailer counts.
    bool IsComplete() const;
    /// Complete, undamaged and all of it in the buffer.
    bool IsPerfect() const { return IsComplete() && !IsLargerThanBuffer() && !IsShorterThanTold(); }
    /// Of a length that the leader tells: nothing but the trailer may be missing.
    bool HasAllPayload() const { return IsLengthKnown() && m_places.Count() >= ExpectedPackets(); }
    /// A packet that the camera, as long as no newer block has begun, may not have sent at all.
    bool MayFollow(std::uint32_t id) const { return !m_trailer && id > m_highestPayload && !HasAllPayload(); }
    /// Asking for packets again can still make it complete.
    bool IsCurable() const { return !m_isBroken && !m_places.IsClipped(); }
    /// The camera will not send all of it. \param isEnd nor anything more. \return false when that had been said.
    bool NoteCameraLoss(bool isEnd);
    bool HasEnded() const { return m_hasEnded; }
    /// The camera says that it has not sent the block before. \return false when that had been said.
    bool NoteFormerDrop() { return !std::exchange(m_toldOfFormer, true); }
    FrameInfo Describe(bool bigEndianPixels) const;
    /// Leader and trailer, and the packets that can touch the buffer: of those beyond it nobody knows which came.
    std::uint32_t MissingPackets(std::uint64_t dataSize) const;
    void ZeroHoles(std::uint64_t end) { m_places.ZeroHoles(end); }

    // What to ask for again. Gaps become holes of the plan as they are seen.
    ResendPlan &Plan() { return m_gaps.Plan(); }
    const ResendPlan &Plan() const { return m_gaps.Plan(); }
    /// Everything behind the last packet is missing, too, unless the trailer has come.
    void NoteTail(TimePoint due)
    {
        if (!m_trailer)
            m_gaps.NoteTail(due);
    }
    /// Nothing comes any more.
    void NoteSilence(TimePoint due);
    /// Whether NoteSilence() would do something.
    bool MindsSilence() const;
    bool HasPacket(std::uint32_t id) const;
    ResendPlan::Extent GetExtent() const;
    /// A complete block whose last packet was cut: that packet is missing after all. \return whether it was so.
    bool ForgetCutEnd(TimePoint due);

private:
    Verdict TakeContent(const StreamPacket &packet);
    Verdict TakeLeader(const StreamPacket &packet);
    Verdict TakeTrailer(const StreamPacket &packet);
    Verdict TakePayload(const StreamPacket &packet, orv::ByteSpan data);
    Verdict TakePart(const StreamPacket &packet);
    Verdict TakeAllIn(const StreamPacket &packet);
    Verdict Place(std::uint32_t id, orv::ByteSpan data);
    Verdict TakeSecondCopy(std::uint32_t id, orv::ByteSpan data);
    void Reach(std::uint32_t id);
    void TakeLayout();
    void PlaceAnew();
    void ForgetParts();
    void LearnPartSize(std::uint32_t id, const PartHeader &header);
    void LearnDataSize(std::uint32_t id, std::size_t size);
    bool ShowsFirstIsFull(std::size_t size) const;
    void LearnForTheNext();
    void ForgetShortPacket();
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
    const Former m_former;
    PacketPlaces m_places;
    std::size_t m_learnedSize = 0;
    std::size_t m_largestData = 0; ///< bytes of data in a packet that came; not of multi-part blocks
    std::size_t m_firstData = 0;   ///< in the first packet
    std::uint32_t m_highestPayload = 0;
    std::optional<Leader> m_leader;
    std::optional<Trailer> m_trailer;
    std::vector<std::uint8_t> m_leaderBytes; ///< to compare a second copy with
    bool m_partsAreGuessed = false;          ///< as of the block before, the leader not being there
    std::uint32_t m_payloadCount = 0;        ///< payload packets of the block, once the trailer told
    bool m_isBroken = false;                 ///< packets contradict each other
    bool m_hasEnded = false;
    bool m_cameraLoss = false;
    bool m_toldOfFormer = false;
    TimePoint m_lastPacket{};

    BlockGaps m_gaps;
    int m_cutEnds = 0; ///< times that the last packet was forgotten for being cut
};

} // namespace nuvark::gige
