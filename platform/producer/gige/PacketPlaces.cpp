#include "producer/gige/PacketPlaces.h"

#include <algorithm>
#include <bitset>
#include <iterator>
#include <utility>

namespace nuvark::gige {

namespace {

constexpr std::uint64_t kMostPackets = 0xFFFFFFF0;

} // namespace

PacketPlaces::PacketPlaces(const FrameTarget &target, std::size_t dataPerPacket, std::vector<std::uint64_t> bits)
    : m_target(target), m_received(std::move(bits))
{
    SetDataPerPacket(dataPerPacket);
}

void PacketPlaces::SetDataPerPacket(std::size_t bytes)
{
    m_dataPerPacket = bytes;
    Clear(PacketsFor(m_target.size, bytes));
}

/// Room for so many packets, none of which is there.
void PacketPlaces::Clear(std::uint64_t packets)
{
    m_most = static_cast<std::uint32_t>(std::min(packets, kMostPackets));
    m_received.assign(m_most / 64 + 1, 0);
    m_count = 0;
}

void PacketPlaces::ShrinkToFirst()
{
    SetDataPerPacket(m_shortSize); // it is in place by either size
    m_received[0] = 1U << 1;
    m_count = 1;
    m_shortId = 0;
}

void PacketPlaces::LayOutParts(const std::vector<PartDescription> &parts, std::size_t dataPerPacket)
{
    m_dataPerPacket = std::max(dataPerPacket, kPartHeaderSize + 1) - kPartHeaderSize;
    m_parts.clear();
    std::uint64_t begin = 0;
    std::uint64_t packets = 0;
    for (const PartDescription &part : parts) {
        const std::uint64_t length = std::min<std::uint64_t>(part.length, m_target.size - begin);
        const std::uint64_t count = PacketsFor(length, m_dataPerPacket);
        m_parts.push_back({static_cast<std::uint32_t>(packets + 1), static_cast<std::uint32_t>(count), begin, length});
        packets += count;
        if (part.length > length) {
            m_isClipped = true;
            break;
        }
        begin += length;
    }
    Clear(packets);
}

void PacketPlaces::ForgetParts()
{
    if (m_parts.empty())
        return;
    m_parts.clear();
    SetDataPerPacket(m_dataPerPacket + kPartHeaderSize);
    m_bytes = m_end = 0;
    m_isClipped = false;
}

std::uint64_t PacketPlaces::PartBegin(std::size_t part) const
{
    return part < m_parts.size() ? m_parts[part].begin : m_target.size;
}

std::optional<std::size_t> PacketPlaces::BytesInPart(std::uint32_t id, const PartHeader &header) const
{
    if (header.part >= m_parts.size())
        return std::nullopt;
    const Part &part = m_parts[header.part];
    if (id < part.firstPacket || id - part.firstPacket >= part.packets)
        return std::nullopt;
    const std::uint64_t inPart = std::uint64_t{id - part.firstPacket} * m_dataPerPacket;
    if (header.offset != inPart && header.offset != part.begin + inPart) // cameras differ
        return std::nullopt;
    return std::min<std::uint64_t>(m_dataPerPacket, part.length - inPart);
}

PacketPlaces::Place PacketPlaces::PlaceOf(std::uint32_t id) const
{
    if (m_parts.empty())
        return {std::uint64_t{id - 1} * m_dataPerPacket, m_dataPerPacket};
    // The last one that begins there is not empty.
    const auto isBefore = [](std::uint32_t packet, const Part &part) { return packet < part.firstPacket; };
    const Part &part = *std::prev(std::upper_bound(m_parts.begin(), m_parts.end(), id, isBefore));
    const std::uint64_t inPart = std::uint64_t{id - part.firstPacket} * m_dataPerPacket;
    return {part.begin + inPart, std::min<std::uint64_t>(m_dataPerPacket, part.length - inPart)};
}

std::size_t PacketPlaces::RoomAt(std::uint64_t offset) const
{
    return offset < m_target.size ? m_target.size - offset : 0;
}

std::uint32_t PacketPlaces::CountUpTo(std::uint32_t id) const
{
    std::size_t count = 0;
    for (std::uint32_t word = 0; word <= id / 64; ++word) {
        const std::uint64_t counted = word < id / 64 ? ~std::uint64_t{0} : ~(~std::uint64_t{1} << (id % 64));
        count += std::bitset<64>(m_received[word] & counted).count();
    }
    return static_cast<std::uint32_t>(count);
}

void PacketPlaces::Store(std::uint32_t id, orv::ByteSpan data)
{
    const Place place = PlaceOf(id);
    const std::size_t room = RoomAt(place.offset);
    const std::size_t size = std::min({data.size, place.size, room});
    m_isClipped = m_isClipped || data.size > room;
    std::copy_n(data.data, size, m_target.data + place.offset);
    m_bytes += size;
    m_end = std::max(m_end, place.offset + size);
    m_received[id / 64] |= std::uint64_t{1} << (id % 64);
    ++m_count;
    if (data.size < place.size) {
        m_shortId = id;
        m_shortSize = size;
    }
}

void PacketPlaces::NoteLanded(std::uint32_t first, std::uint32_t packets)
{
    for (std::uint32_t id = first; id < first + packets; ++id)
        m_received[id / 64] |= std::uint64_t{1} << (id % 64);
    m_count += packets;
    m_bytes += std::uint64_t{packets} * m_dataPerPacket;
    m_end = std::max(m_end, std::uint64_t{first + packets - 1} * m_dataPerPacket);
}

void PacketPlaces::Forget(std::uint32_t id)
{
    m_bytes -= Stored(id).size;
    m_received[id / 64] &= ~(std::uint64_t{1} << (id % 64));
    --m_count;
    if (id == m_shortId)
        m_shortId = 0;
}

orv::ByteSpan PacketPlaces::Stored(std::uint32_t id) const
{
    const Place place = PlaceOf(id);
    const std::size_t size = id == m_shortId ? m_shortSize : place.size;
    return {m_target.data + place.offset, std::min(size, RoomAt(place.offset))};
}

/// Only packets that came are looked at, since a small packet size makes many places in a large buffer.
void PacketPlaces::ZeroHoles(std::uint64_t end)
{
    std::uint64_t filled = 0; // up to there
    const auto zeroUpTo = [&](std::uint64_t to) {
        if (filled < std::min(to, end))
            std::fill(m_target.data + filled, m_target.data + std::min(to, end), 0);
    };
    for (std::size_t word = 0; word < m_received.size(); ++word) {
        for (std::uint64_t bits = m_received[word]; bits != 0; bits &= bits - 1) {
            const orv::ByteSpan stored = Stored(static_cast<std::uint32_t>(64 * word + __builtin_ctzll(bits)));
            const auto offset = static_cast<std::uint64_t>(stored.data - m_target.data);
            zeroUpTo(offset);
            filled = offset + stored.size;
        }
    }
    zeroUpTo(end);
}

} // namespace nuvark::gige
