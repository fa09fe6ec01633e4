#include "producer/gige/FrameBlock.h"

#include <algorithm>

/// What is said of a frame in the end; FrameBlock.cpp holds the receiving.
namespace nuvark::gige {

std::uint32_t FrameBlock::Lines() const
{
    const std::uint32_t announced = m_leader->height;
    const std::uint32_t sent = m_trailer ? m_trailer->height.value_or(0) : 0;
    return sent != 0 ? std::min(announced, sent) : announced; // 0: the camera does not tell
}

std::uint64_t FrameBlock::ExpectedBytes(Leader::Packing packing) const
{
    if (!m_leader)
        return 0;
    if (m_leader->IsMultiPart()) {
        std::uint64_t bytes = 0;
        for (const PartDescription &part : m_leader->parts)
            bytes += part.length; // of 48 bits each, so that no sum of 255 wraps
        return bytes;             // chunks are a part, too, or within one
    }
    if (m_leader->CarriesChunks() && m_trailer && m_trailer->chunkSize != 0)
        return m_trailer->chunkSize;
    if (m_leader->hasImage)
        return m_leader->ImageBytes(Lines(), packing);
    return m_leader->size;
}

bool FrameBlock::IsLargerThanBuffer() const
{
    // Packets that were placed by a size that is not theirs do not tell.
    const bool isMisplaced = m_learnedSize != 0 && m_learnedSize < m_places.DataPerPacket();
    if (m_payloadCount > (isMisplaced ? PacketsFor(Target().size, m_learnedSize) : m_places.Most()))
        return true;
    const std::uint64_t expected = ExpectedBytes(Leader::Packing::Continuous);
    if (expected != 0 && !m_leader->CarriesChunks())
        return expected > Target().size; // a last packet padded to full size does not count
    return (m_places.IsClipped() && !isMisplaced) || expected > Target().size;
}

/// Other sizes than those of images and parts may only say how much there can be.
bool FrameBlock::IsShorterThanTold() const
{
    return m_leader && (m_leader->hasImage || m_leader->IsMultiPart()) &&
           m_places.End() < ExpectedBytes(Leader::Packing::Continuous);
}

std::size_t FrameBlock::ImageOffset() const
{
    return m_places.PartBegin(m_leader->imagePart);
}

bool FrameBlock::IsComplete() const
{
    return m_leader && m_trailer && m_places.Count() >= std::min(m_payloadCount, m_places.Most()) && !m_isBroken;
}

std::uint32_t FrameBlock::MissingPackets(std::uint64_t dataSize) const
{
    const std::uint64_t inData = PacketsFor(dataSize, m_places.DataPerPacket());
    const std::uint64_t told = std::max<std::uint64_t>(m_payloadCount, inData);
    const auto expected = static_cast<std::uint32_t>(std::min<std::uint64_t>(told, m_places.Most()));
    return (m_leader ? 0 : 1) + (m_trailer ? 0 : 1) + expected - m_places.CountUpTo(expected);
}

/// One behind the other in the buffer. Chunks are no part towards the outside.
std::vector<FramePart> FrameBlock::DescribeParts() const
{
    std::vector<FramePart> parts;
    std::uint64_t begin = 0;
    for (const PartDescription &told : m_leader->parts) {
        FramePart part;
        part.begin = std::min<std::uint64_t>(begin, Target().size);
        part.size = std::min<std::uint64_t>(told.length, Target().size - part.begin);
        part.dataType = GenTLPartType(told.dataType);
        part.pixelFormat = told.pixelFormat;
        part.width = told.width;
        part.height = told.height;
        part.xOffset = told.offsetX;
        part.yOffset = told.offsetY;
        part.xPadding = told.paddingX;
        part.sourceId = told.sourceId;
        part.purposeId = told.purposeId;
        part.regionId = told.regionId;
        if (told.dataType != kPartOfChunks)
            parts.push_back(part);
        begin += told.length;
    }
    return parts;
}

FrameInfo FrameBlock::Describe(bool bigEndianPixels) const
{
    const bool complete = IsPerfect();
    FrameInfo info;
    info.frameId = m_id;
    info.isIncomplete = !complete;
    info.isLargerThanBuffer = IsLargerThanBuffer();
    info.bigEndianPixels = bigEndianPixels;
    std::uint64_t expected = std::max(m_places.End(), std::uint64_t{m_payloadCount} * m_places.DataPerPacket());
    if (m_leader) {
        const Leader &leader = *m_leader;
        info.payloadType = GenTLPayloadType(leader.payloadType);
        info.parts = DescribeParts();
        info.imageOffset = leader.hasImage && m_places.HasParts() ? ImageOffset() : 0;
        info.timestamp = leader.timestamp;
        info.fileName = leader.fileName;
        info.hasImage = leader.hasImage;
        info.pixelFormat = leader.pixelFormat;
        info.width = leader.width;
        info.height = leader.height;
        info.deliveredHeight = Lines();
        info.xOffset = leader.offsetX;
        info.yOffset = leader.offsetY;
        info.xPadding = leader.paddingX;
        info.yPadding = leader.paddingY;
        if (!info.parts.empty())
            info.imageBytes = info.parts.back().begin + info.parts.back().size;
        else if (leader.hasImage)
            info.imageBytes = leader.ImageBytes(Lines(), Leader::Packing::Continuous);
        const std::uint64_t told = ExpectedBytes(Leader::Packing::PerLine);
        // Some trailers do not tell how long the chunks are behind the image, or say 0: then that is what came.
        const bool isAtLeast = leader.CarriesChunks() && m_trailer && m_trailer->chunkSize == 0;
        // A complete frame ends where its data ends, except that the last packet may have been padded.
        if (complete)
            expected = told != 0 && !isAtLeast ? std::min(m_places.End(), told) : m_places.End();
        else if (told != 0 || leader.IsMultiPart())
            expected = told;
    } else if (m_trailer) {
        info.payloadType = GenTLPayloadType(m_trailer->payloadType);
    }
    info.dataSize = std::min<std::uint64_t>(expected, Target().size);
    info.sizeFilled = std::min<std::uint64_t>(m_places.Bytes(), info.dataSize);
    // With holes nobody can say where the chunks begin.
    if (complete && m_leader->CarriesChunks()) {
        info.hasChunks = true;
        info.chunkPayloadSize = std::min<std::uint64_t>(m_trailer->chunkSize, info.sizeFilled);
        if (info.chunkPayloadSize == 0)
            info.chunkPayloadSize = info.sizeFilled;
        info.chunkLayoutId = m_trailer->chunkLayoutId;
    }
    return info;
}

} // namespace nuvark::gige
