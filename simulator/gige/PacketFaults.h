#pragma once

#include "simulator/core/Faults.h"
#include "simulator/gige/GvspPackets.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace orvsim {

/// Takes packets in the order in which they go out.
class PacketSink {
public:
    virtual ~PacketSink() = default;
    /// The body stays readable until the frame is given up.
    virtual void Put(const Packet &packet) = 0;
    /// A datagram that belongs to no block.
    virtual void PutForeign(const std::vector<std::uint8_t> &datagram, bool fromAnotherPort) = 0;
};

/// What the network, or a camera's defect, does to packets. Each fault draws from one sequence of chances, so the same
/// seed and the same packets give the same faults.
///
/// One thread.
class PacketFaults {
public:
    explicit PacketFaults(std::uint64_t seed) : m_seed(seed), m_dice(seed) {}

    /// The sequence of chances begins anew.
    void Restart()
    {
        m_dice = FaultDice(m_seed);
        m_burstLeft = 0;
    }
    FaultDice &Dice() { return m_dice; }

    /// Before the packets of a block, or a run of them that is sent again.
    void Begin(const Faults &faults, Sending sending, std::uint32_t packetCount);
    void Pass(const Packet &packet, std::uint32_t packetId, PacketSink &sink);
    /// A packet that waits for its successor goes out after all.
    void End(PacketSink &sink);

private:
    bool IsDropped(std::uint32_t packetId);
    void PutForeign(PacketSink &sink);
    void LieAboutParts(Packet &packet) const;
    void Corrupt(Packet &packet);
    void Truncate(Packet &packet);

    const std::uint64_t m_seed;
    FaultDice m_dice;
    Faults m_faults;
    bool m_isIdle = true; ///< no fault concerns this block
    bool m_isFirstSending = true;
    bool m_dropsLeader = false;
    bool m_dropsTrailer = false;
    std::uint32_t m_packetCount = 0;
    std::int64_t m_burstLeft = 0;      ///< packets that are still lost with one that was dropped
    std::optional<Packet> m_overtaken; ///< goes out behind its successor
};

} // namespace orvsim
