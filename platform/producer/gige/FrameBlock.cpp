#include "producer/gige/FrameBlock.h"

#include <algorithm>

/// Receiving; FrameOutcome.cpp holds what is said of a frame in the end.
namespace nuvark::gige {

namespace {

constexpr int kMostCutEnds = 3;
/// Of a block that is larger than its buffer the first packet beyond may be lost with some others.
constexpr std::uint32_t kMostBeyond = 64;
/// Fewer bytes of data no packet has that is meant to be full.
constexpr std::size_t kLeastData = 10;

} // namespace

FrameBlock::FrameBlock(const StreamPacket &first, const FrameTarget &target, Former former,
                       std::vector<std::uint64_t> bits)
    : m_id(first.blockId), m_extendedIds(first.extendedIds), m_former(std::move(former)),
      m_places(target, m_former.dataPerPacket, std::move(bits))
{
}

void FrameBlock::Describe(Former &former) const
{
    if (m_trailer)
        former.payloadPackets = m_payloadCount;
    if (m_leader)
        former.parts = m_leader->parts;
}

FrameBlock::Verdict FrameBlock::Take(const StreamPacket &packet, TimePoint now, TimePoint gapDue)
{
    m_lastPacket = now;
    m_gaps.SetDue(gapDue);
    const Verdict verdict = TakeContent(packet);
    if (verdict == Verdict::Taken)
        Reach(packet.packetId);
    else if (verdict == Verdict::Contradicted)
        Plan().AddHole(packet.packetId, packet.packetId, now);
    return verdict;
}

/// Nothing of them is there yet, none of them is short, and the trailer has not come.
void FrameBlock::TakeLanded(std::uint32_t first, std::uint32_t packets, TimePoint now, TimePoint gapDue)
{
    m_lastPacket = now;
    m_gaps.SetDue(gapDue);
    m_highestPayload = std::max(m_highestPayload, first + packets - 1);
    if (first > m_places.ShortId())
        ForgetShortPacket();
    m_largestData = std::max(m_largestData, m_places.DataPerPacket());
    m_places.NoteLanded(first, packets);
    m_gaps.Pass(packets);
}

FrameBlock::Verdict FrameBlock::TakeContent(const StreamPacket &packet)
{
    switch (static_cast<PacketFormat>(packet.format)) {
    case PacketFormat::Leader:
        return TakeLeader(packet);
    case PacketFormat::Trailer:
        return TakeTrailer(packet);
    case PacketFormat::Payload:
        return m_places.HasParts() ? Verdict::Unusable : TakePayload(packet, packet.content);
    case PacketFormat::AllIn:
        return TakeAllIn(packet);
    case PacketFormat::MultiPart:
        return TakePart(packet);
    default:
        return Verdict::Unusable;
    }
}

bool FrameBlock::IsFullPayload(const StreamPacket &packet) const
{
    const auto format = static_cast<PacketFormat>(packet.format);
    return (format == PacketFormat::Payload || format == PacketFormat::MultiPart) &&
           packet.content.size >= m_places.DataPerPacket();
}

void FrameBlock::Reach(std::uint32_t id)
{
    if (id <= m_places.Most() + 1)
        m_gaps.Reach(id);
}

FrameBlock::Verdict FrameBlock::TakeLeader(const StreamPacket &packet)
{
    std::optional<Leader> leader = ParseLeader(packet.content, packet.partCount);
    if (!leader || packet.packetId != 0)
        return Verdict::Unusable;
    const std::uint8_t *begin = packet.content.data;
    if (m_leader) {
        if (std::equal(m_leaderBytes.begin(), m_leaderBytes.end(), begin, begin + packet.content.size))
            return Verdict::Duplicate;
        if (m_highestPayload != 0)
            return Verdict::Unusable; // another frame with the same number; the packets lie as the first one said
        ForgetParts();
        m_leader.reset();
        return Verdict::Contradicted;
    }
    m_leaderBytes.assign(begin, begin + packet.content.size);
    m_leader = std::move(leader);
    TakeLayout();
    return Verdict::Taken;
}

/// As the leader that has come tells it.
void FrameBlock::TakeLayout()
{
    if (m_leader->IsMultiPart() && m_partsAreGuessed && m_leader->parts != m_former.parts)
        PlaceAnew();
    else if (m_leader->IsMultiPart() && !m_places.HasParts() && m_places.Count() == 0)
        m_places.LayOutParts(m_leader->parts, m_places.DataPerPacket());
    else if (m_leader->IsMultiPart() != m_places.HasParts())
        m_isBroken = true; // what came before it was of the other kind
    m_partsAreGuessed = false;
    if (m_trailer)
        Reach(m_payloadCount + 1); // which was beyond what there seemed to be room for
}

/// Packets lie where parts of another size would have had them: they are missing again.
void FrameBlock::PlaceAnew()
{
    ForgetParts();
    m_places.LayOutParts(m_leader->parts, m_places.DataPerPacket());
    if (m_gaps.Next() > 1)
        m_gaps.Add(1, m_gaps.Next() - 1);
}

void FrameBlock::ForgetParts()
{
    m_places.ForgetParts();
    m_partsAreGuessed = false;
}

FrameBlock::Verdict FrameBlock::TakeTrailer(const StreamPacket &packet)
{
    const std::optional<Trailer> trailer = ParseTrailer(packet.content);
    if (!trailer || packet.packetId == 0)
        return Verdict::Unusable;
    if (m_trailer)
        return m_payloadCount == packet.packetId - 1 ? Verdict::Duplicate : Verdict::Unusable;
    m_trailer = trailer;
    m_payloadCount = packet.packetId - 1;
    if (m_payloadCount < m_highestPayload)
        m_isBroken = true;
    LearnForTheNext();
    if (m_payloadCount > m_places.ShortId())
        ForgetShortPacket();
    return Verdict::Taken;
}

FrameBlock::Verdict FrameBlock::TakePayload(const StreamPacket &packet, orv::ByteSpan data)
{
    const std::uint32_t id = packet.packetId;
    const std::uint64_t announced = ExpectedBytes(Leader::Packing::PerLine);
    const bool fits = announced != 0 && announced <= Target().size && !m_leader->CarriesChunks();
    const bool isBeyond = id > m_places.Most() && fits && m_places.Count() != 0;
    if (id == 0 || (isBeyond && !(id == 2 && ShowsFirstIsFull(data.size))))
        return Verdict::Unusable;
    const std::uint32_t likely = std::max(m_places.Most(), m_highestPayload);
    if (id > likely && id - likely > kMostBeyond)
        return Verdict::Unusable;
    m_highestPayload = std::max(m_highestPayload, id);
    if (m_trailer && id > m_payloadCount)
        m_isBroken = true;
    LearnDataSize(id, data.size);
    if (id > m_places.ShortId())
        ForgetShortPacket();
    if (data.size < m_places.DataPerPacket() && id < std::max(m_highestPayload, m_payloadCount))
        return Verdict::Unusable; // cut on the way; the hole stays open for a better copy
    if (id > m_places.Most()) {
        m_places.NoteClipped();
        return Verdict::Taken;
    }
    return Place(id, data);
}

/// Where it belongs, unless it is there.
FrameBlock::Verdict FrameBlock::Place(std::uint32_t id, orv::ByteSpan data)
{
    if (m_places.Has(id))
        return TakeSecondCopy(id, data);
    m_places.Store(id, data);
    return Verdict::Taken;
}

FrameBlock::Verdict FrameBlock::TakeSecondCopy(std::uint32_t id, orv::ByteSpan data)
{
    const orv::ByteSpan stored = m_places.Stored(id);
    if (data.size < stored.size)
        return Verdict::Unusable;
    if (std::equal(stored.data, stored.data + stored.size, data.data))
        return Verdict::Duplicate;
    if (Plan().IsStopped() || !IsCurable()) {
        m_isBroken = true; // no third one will tell which of them is right; the first one stays
        return Verdict::Unusable;
    }
    m_places.Forget(id);
    return Verdict::Contradicted;
}

/// It is right only for the last one.
void FrameBlock::ForgetShortPacket()
{
    const std::uint32_t id = m_places.ShortId();
    if (id == 0)
        return;
    m_gaps.Add(id, id);
    m_places.Forget(id);
}

FrameBlock::Verdict FrameBlock::TakePart(const StreamPacket &packet)
{
    const std::optional<PartHeader> header = ParsePartHeader(packet.content);
    const std::uint32_t id = packet.packetId;
    if (header && !m_places.HasParts() && !m_leader && m_places.Count() == 0 && !m_former.parts.empty()) {
        m_places.LayOutParts(m_former.parts, m_places.DataPerPacket());
        m_partsAreGuessed = true;
    }
    if (!m_places.HasParts() && m_gaps.Next() == 0) { // without its leader nobody can say where it belongs
        m_gaps.Add(0, 0);
        m_gaps.Reach(0);
    }
    if (!header || !m_places.HasParts() || id == 0)
        return Verdict::Unusable;
    if (m_places.Count() == 0 && header->part == 0 && !m_isBroken)
        LearnPartSize(id, *header);
    const std::optional<std::size_t> full = m_places.BytesInPart(id, *header);
    if (!full || header->data.size < *full)
        return Verdict::Unusable;
    m_highestPayload = std::max(m_highestPayload, id);
    if (m_trailer && id > m_payloadCount)
        m_isBroken = true;
    return Place(id, {header->data.data, *full});
}

/// Of the packets of a multi-part block, before any has been placed: each tells how much is before it.
void FrameBlock::LearnPartSize(std::uint32_t id, const PartHeader &header)
{
    const std::size_t told = m_places.DataPerPacket();
    // The first one shows only what it has itself; when that is less than told it may have been cut on the way.
    const std::uint64_t size = id == 1 ? std::max(header.data.size, told) : header.offset / (id - 1);
    const bool isEven = id == 1 || header.offset % (id - 1) == 0;
    if (!isEven || size == told || size < kLeastData || size >= m_places.FirstPartLength())
        return;
    m_learnedSize = size + kPartHeaderSize;
    m_places.LayOutParts(m_leader ? m_leader->parts : m_former.parts, m_learnedSize);
}

FrameBlock::Verdict FrameBlock::TakeAllIn(const StreamPacket &packet)
{
    if (m_leader && m_trailer)
        return Verdict::Duplicate;
    const std::optional<AllInContent> content = SplitAllIn(packet.content);
    if (!content || packet.packetId != 0 || m_leader || m_trailer || m_places.Count() != 0)
        return Verdict::Unusable;
    m_leader = ParseLeader(content->leader);
    m_trailer = ParseTrailer(content->trailer);
    const bool isCut = m_leader && m_trailer && content->data.size < ExpectedBytes(Leader::Packing::Continuous);
    if (!m_leader || !m_trailer || (isCut && !Plan().IsStopped())) {
        m_leader.reset();
        m_trailer.reset();
        return Verdict::Unusable;
    }
    m_leaderBytes.assign(content->leader.data, content->leader.data + content->leader.size);
    ForgetParts();
    if (content->data.size == 0)
        return Verdict::Taken;
    m_places.SetDataPerPacket(content->data.size);
    m_payloadCount = m_highestPayload = 1;
    if (m_places.Most() != 0)
        m_places.Store(1, content->data);
    return Verdict::Taken;
}

void FrameBlock::LearnDataSize(std::uint32_t id, std::size_t size)
{
    m_largestData = std::max(m_largestData, size);
    if (id == 1)
        m_firstData = std::max(m_firstData, size);
    if (id == 2 && ShowsFirstIsFull(size)) {
        m_learnedSize = m_places.ShortSize();
        m_places.ShrinkToFirst();
        return;
    }
    if (size < kLeastData || size <= m_places.DataPerPacket()) {
        if (m_learnedSize != 0) // a fuller copy shows that the first one was cut after all
            m_learnedSize = std::max(m_learnedSize, size);
        return;
    }
    m_learnedSize = size;
    if (m_places.Count() == 0)
        m_places.SetDataPerPacket(size);
    else
        m_isBroken = true; // packets have been placed by the wrong size already; the next frame will be right
}

/// None of several packets was as large as told. The first one may have been cut, but then that of the next block shows
/// it, before it is too late unless it is lost or overtaken.
void FrameBlock::LearnForTheNext()
{
    if (m_learnedSize == 0 && m_payloadCount >= 2 && m_firstData >= kLeastData && m_firstData == m_largestData &&
        m_firstData < m_places.DataPerPacket())
        m_learnedSize = m_firstData;
}

/// Of the second packet, the first one being short of what was told. By itself that one may have been cut on the way;
/// but two alike are not the last ones both, and two that make up the image have lost nothing. Behind one that is the
/// whole image nothing can follow.
bool FrameBlock::ShowsFirstIsFull(std::size_t size) const
{
    const std::size_t first = m_places.ShortSize();
    if (m_places.ShortId() != 1 || m_places.Count() != 1 || first < kLeastData)
        return false;
    const std::uint64_t whole = ExpectedBytes(Leader::Packing::Continuous);
    if (whole != 0 && !m_leader->CarriesChunks() && first >= whole)
        return false;
    return size == first || (size < first && first + size == whole);
}

std::optional<Landing> FrameBlock::NextLanding() const
{
    // The parts of a multi-part block do not follow each other without gaps.
    if (m_trailer || m_gaps.Next() == 0 || m_places.HasParts() || m_isBroken)
        return std::nullopt;
    const std::uint64_t image = m_leader && m_leader->CarriesChunks() ? 0 : ExpectedBytes(Leader::Packing::PerLine);
    const std::uint64_t end = image != 0 ? std::min<std::uint64_t>(image, Target().size) : Target().size;
    const std::size_t data = m_places.DataPerPacket();
    const std::uint64_t offset = std::uint64_t{m_gaps.Next() - 1} * data;
    if (offset + data > end)
        return std::nullopt;
    Landing landing;
    landing.begin = Target().data + offset;
    landing.headerSize = m_extendedIds ? kExtendedHeaderSize : kStandardHeaderSize;
    landing.dataSize = data;
    landing.packets = (end - offset) / data;
    landing.extendedIds = m_extendedIds;
    landing.blockId = m_id;
    landing.firstPacket = m_gaps.Next();
    return landing;
}

std::optional<FrameProgress> FrameBlock::Progress() const
{
    const std::uint32_t last = IsLengthKnown() ? ExpectedPackets() : std::min(m_former.payloadPackets, m_places.Most());
    if (m_trailer || m_gaps.Next() > last)
        return std::nullopt;
    return FrameProgress{m_id, last + 1 - std::max(m_gaps.Next(), 1U)};
}

bool FrameBlock::HasPacket(std::uint32_t id) const
{
    if (id == 0)
        return m_leader.has_value();
    if (m_trailer && id > m_payloadCount)
        return true;
    return id <= m_places.Most() && m_places.Has(id);
}

ResendPlan::Extent FrameBlock::GetExtent() const
{
    if (m_trailer)
        return {std::min(m_payloadCount, m_places.Most()) + 1, false, true, 0};
    const std::uint32_t highest = std::min(m_highestPayload, m_places.Most());
    const std::uint32_t likely = m_former.payloadPackets != 0 ? m_former.payloadPackets : m_places.Most();
    return {std::max(ExpectedPackets(), highest) + 1, true, IsLengthKnown(),
            std::clamp(likely, highest, m_places.Most()) + 1};
}

/// In packets, before the trailer has told.
bool FrameBlock::IsLengthKnown() const
{
    return m_places.HasParts() || (ExpectedBytes(Leader::Packing::PerLine) != 0 && !m_leader->CarriesChunks());
}

/// Payload packets, as far as leader and buffer tell.
std::uint32_t FrameBlock::ExpectedPackets() const
{
    if (m_places.HasParts() || !IsLengthKnown())
        return m_places.Most();
    const std::uint64_t bytes = ExpectedBytes(Leader::Packing::PerLine);
    return static_cast<std::uint32_t>(
        std::min<std::uint64_t>(PacketsFor(bytes, m_places.DataPerPacket()), m_places.Most()));
}

bool FrameBlock::MindsSilence() const
{
    const std::uint32_t probe = m_gaps.Probe();
    return !m_gaps.IsTailNoted() && !m_trailer && (probe == 0 || HasPacket(probe));
}

void FrameBlock::NoteSilence(TimePoint due)
{
    // The trailer is asked for as the end: its number some cameras refuse.
    const ResendPlan::Extent extent = GetExtent();
    if (MindsSilence())
        m_gaps.NoteSilence(extent.isKnown ? extent.lastId : extent.likelyLastId, due);
}

bool FrameBlock::NoteCameraLoss(bool isEnd)
{
    Plan().Stop();
    m_hasEnded = m_hasEnded || isEnd;
    return !std::exchange(m_cameraLoss, true);
}

bool FrameBlock::ForgetCutEnd(TimePoint due)
{
    if (Plan().IsStopped() || m_places.ShortId() == 0 || m_cutEnds >= kMostCutEnds || !IsComplete() ||
        !IsShorterThanTold())
        return false;
    ++m_cutEnds;
    m_gaps.SetDue(due);
    ForgetShortPacket();
    return true;
}

} // namespace nuvark::gige
