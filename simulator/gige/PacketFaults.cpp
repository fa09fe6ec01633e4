#include "simulator/gige/PacketFaults.h"

#include <algorithm>
#include <utility>

namespace orvsim {

namespace {

constexpr std::uint32_t kLongestForeign = 256;
constexpr std::uint32_t kMostFlippedBits = 4;

bool ConcernsPackets(const Faults &faults)
{
    const double rates[] = {faults.dropRate,    faults.reorderRate, faults.duplicateRate,  faults.truncateRate,
                            faults.corruptRate, faults.foreignRate, faults.dropLeaderRate, faults.dropTrailerRate};
    return faults.dropPacket >= 0 || faults.partTable != 0 ||
           std::any_of(std::begin(rates), std::end(rates), [](double rate) { return rate > 0; });
}

} // namespace

void PacketFaults::Begin(const Faults &faults, Sending sending, std::uint32_t packetCount)
{
    m_faults = faults;
    m_isIdle = !ConcernsPackets(faults);
    m_isFirstSending = sending == Sending::First;
    m_packetCount = packetCount;
    m_dropsLeader = m_isFirstSending && m_dice.Falls(faults.dropLeaderRate);
    m_dropsTrailer = m_isFirstSending && m_dice.Falls(faults.dropTrailerRate);
    m_overtaken.reset();
}

void PacketFaults::Pass(const Packet &packet, std::uint32_t packetId, PacketSink &sink)
{
    if (m_isIdle) {
        sink.Put(packet);
        return;
    }
    if (m_dice.Falls(m_faults.foreignRate))
        PutForeign(sink);
    // The overtaken packet goes out behind this one, or in its place.
    const std::optional<Packet> overtaken = std::exchange(m_overtaken, std::nullopt);
    if (!IsDropped(packetId)) {
        Packet changed = packet;
        LieAboutParts(changed);
        if (m_dice.Falls(m_faults.corruptRate))
            Corrupt(changed);
        if (m_dice.Falls(m_faults.truncateRate))
            Truncate(changed);
        const bool isTwice = m_dice.Falls(m_faults.duplicateRate);
        if (m_dice.Falls(m_faults.reorderRate) && !overtaken.has_value())
            m_overtaken = changed;
        else
            sink.Put(changed);
        if (isTwice)
            sink.Put(changed);
    }
    if (overtaken.has_value())
        sink.Put(*overtaken);
}

void PacketFaults::End(PacketSink &sink)
{
    if (m_overtaken.has_value())
        sink.Put(*m_overtaken);
    m_overtaken.reset();
}

bool PacketFaults::IsDropped(std::uint32_t packetId)
{
    const bool isInBurst = m_burstLeft > 0;
    const bool byChance = isInBurst || m_dice.Falls(m_faults.dropRate);
    if (byChance)
        m_burstLeft = isInBurst ? m_burstLeft - 1 : m_faults.dropBurst;
    const bool isLeader = packetId == 0 && m_packetCount > 1;
    const bool isTrailer = packetId > 0 && packetId + 1 == m_packetCount;
    const bool byNumber = m_isFirstSending && m_faults.dropPacket == static_cast<std::int64_t>(packetId);
    return byChance || byNumber || (isLeader && m_dropsLeader) || (isTrailer && m_dropsTrailer);
}

void PacketFaults::PutForeign(PacketSink &sink)
{
    const bool fromAnotherPort = m_dice.Number(2) == 1;
    std::vector<std::uint8_t> datagram(1 + m_dice.Number(kLongestForeign));
    for (std::uint8_t &byte : datagram)
        byte = static_cast<std::uint8_t>(m_dice.Number(256));
    sink.PutForeign(datagram, fromAnotherPort);
}

void PacketFaults::Corrupt(Packet &packet)
{
    const bool isExtended = (packet.head[4] & 0x80) != 0;
    const auto bits = static_cast<std::uint32_t>(8 * gvsp::HeaderBytes(isExtended));
    // From the first bit on distinct ones, so that no flip undoes another.
    const std::uint32_t first = m_dice.Number(bits);
    const std::uint32_t count = 1 + m_dice.Number(kMostFlippedBits);
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint32_t bit = (first + i * 11) % bits;
        packet.head[bit / 8] ^= static_cast<std::uint8_t>(1U << (bit % 8));
    }
}

/// Layout of GigE Vision 2.1: parts counted in byte 7 of the header; each described by 48 bytes behind the leader's
/// first 12, of which bytes 2 to 7 are its length.
void PacketFaults::LieAboutParts(Packet &packet) const
{
    constexpr std::size_t kCount = 7;
    constexpr std::size_t kLength = gvsp::kExtendedHeaderBytes + gvsp::kPartLeaderBytes + 2;
    const bool isMultiPart =
        packet.head[4] == (0x80 | static_cast<int>(gvsp::Format::Leader)) && packet.head[kCount] > 0;
    if (!isMultiPart)
        return;
    switch (static_cast<PartTableLie>(m_faults.partTable)) {
    case PartTableLie::None:
        break;
    case PartTableLie::Cut:
        packet.headBytes -= gvsp::kPartEntryBytes / 2;
        break;
    case PartTableLie::PartTooMany:
        ++packet.head[kCount];
        break;
    case PartTableLie::LongPart:
        ++packet.head[kLength];
        break;
    case PartTableLie::ShortPart:
        for (std::size_t i = kLength + 5; i > kLength; --i)
            packet.head[i] = static_cast<std::uint8_t>(packet.head[i] >> 1 | packet.head[i - 1] << 7);
        packet.head[kLength] >>= 1;
        break;
    }
}

void PacketFaults::Truncate(Packet &packet)
{
    const std::size_t lost = 1 + m_dice.Number(static_cast<std::uint32_t>(packet.Size() - 1));
    const std::size_t lostBody = std::min(lost, packet.body.size);
    packet.body.size -= lostBody;
    packet.headBytes -= lost - lostBody;
}

} // namespace orvsim
