#pragma once

#include "producer/gige/Gvsp.h"
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

/// Where the data of a block's payload packets lies in the frame's buffer, and of which packets it is there.
///
/// Packets are counted from 1. All hold the same number of bytes, but for the last one. Parts of a multi-part block lie
/// one behind the other, each beginning with a packet of its own, so that each part's last one may be shorter. What is
/// beyond the buffer has no place. One thread.
class PacketPlaces {
public:
    /// \param bits  memory from a former block
    PacketPlaces(const FrameTarget &target, std::size_t dataPerPacket, std::vector<std::uint64_t> bits);

    const FrameTarget &Target() const { return m_target; }
    std::size_t DataPerPacket() const { return m_dataPerPacket; }
    /// Forgets which packets are there.
    void SetDataPerPacket(std::size_t bytes);
    /// The first packet is the only one, short, and holds what the others will: it is there and full from now on.
    void ShrinkToFirst();

    bool HasParts() const { return !m_parts.empty(); }
    /// Forgets which packets are there. \param dataPerPacket  with the header that each packet of a part begins with
    void LayOutParts(const std::vector<PartDescription> &parts, std::size_t dataPerPacket);
    /// Also what was placed in them.
    void ForgetParts();
    /// Bytes of the first part, as far as there is room for it.
    std::uint64_t FirstPartLength() const { return m_parts[0].length; }
    /// From the beginning of the buffer, where that part begins, or the buffer's end when it has no place.
    std::uint64_t PartBegin(std::size_t part) const;
    /// How much data packet `id` brings, whose header tells its place; nothing when that is not its place.
    std::optional<std::size_t> BytesInPart(std::uint32_t id, const PartHeader &header) const;

    std::uint32_t Most() const { return m_most; }       ///< the highest packet that can touch the buffer
    std::uint32_t Count() const { return m_count; }     ///< packets that are there, of those
    std::uint64_t Bytes() const { return m_bytes; }     ///< of them
    std::uint64_t End() const { return m_end; }         ///< of the farthest byte that came
    std::uint32_t ShortId() const { return m_shortId; } ///< of the one packet that is not full, 0 when there is none
    std::size_t ShortSize() const { return m_shortSize; }
    bool IsClipped() const { return m_isClipped; } ///< bytes came, or parts are told, that have no place
    void NoteClipped() { m_isClipped = true; }

    bool Has(std::uint32_t id) const { return (m_received[id / 64] >> (id % 64) & 1) != 0; }
    /// Packets that are there, up to that one.
    std::uint32_t CountUpTo(std::uint32_t id) const;
    void Store(std::uint32_t id, orv::ByteSpan data);
    /// Full packets whose content lies in its place already.
    void NoteLanded(std::uint32_t first, std::uint32_t packets);
    void Forget(std::uint32_t id);
    /// What packet `id` has left in the buffer.
    orv::ByteSpan Stored(std::uint32_t id) const;
    /// All that no packet has filled, be it a packet's place or behind the last of them, up to `end`.
    void ZeroHoles(std::uint64_t end);
    std::vector<std::uint64_t> GiveBits() { return std::move(m_received); }

private:
    struct Place {
        std::uint64_t offset; ///< in the buffer
        std::size_t size;     ///< of a full packet there
    };
    struct Part {
        std::uint32_t firstPacket;
        std::uint32_t packets;
        std::uint64_t begin; ///< in the buffer
        std::uint64_t length;
    };
    Place PlaceOf(std::uint32_t id) const;
    std::size_t RoomAt(std::uint64_t offset) const;
    void Clear(std::uint64_t packets);

    const FrameTarget m_target;
    std::size_t m_dataPerPacket = 0;
    std::vector<std::uint64_t> m_received; ///< bit per packet, up to m_most
    std::uint32_t m_most = 0;
    std::uint32_t m_count = 0;
    std::uint64_t m_bytes = 0;
    std::uint64_t m_end = 0;
    std::vector<Part> m_parts;
    std::uint32_t m_shortId = 0;
    std::size_t m_shortSize = 0; ///< bytes of it in the buffer
    bool m_isClipped = false;
};

} // namespace nuvark::gige
