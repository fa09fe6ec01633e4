#pragma once

#include "simulator/gige/FrameHistory.h"
#include "simulator/gige/PacketBatch.h"
#include "simulator/gige/PacketFaults.h"
#include "simulator/gige/SendGate.h"
#include "simulator/gige/SendPace.h"
#include "simulator/gige/StreamTypes.h"

#include <atomic>
#include <cstdint>

namespace orvsim {

/// StreamCounts while they grow. Any thread.
struct RunningCounts {
    std::atomic<std::uint64_t> frames{0};
    std::atomic<std::uint64_t> packets{0};
    std::atomic<std::uint64_t> bytes{0};
    std::atomic<std::uint64_t> resentPackets{0};
    std::atomic<std::uint64_t> refusedPackets{0};
    std::atomic<std::uint64_t> lostOnLink{0};
    std::atomic<std::uint64_t> sendErrors{0};

    StreamCounts Read() const;
};

/// What the threads that send share; it outlives them.
struct SendPort {
    StreamSocket socket;
    StreamSocket foreignSocket; ///< for packets that come from elsewhere
    SendGate gate;
    RunningCounts counts;
    std::atomic<std::uint32_t> pathMtu{0};  ///< bytes of an IP packet; 0: no limit
    std::atomic<bool> mayBeSegmented{true}; ///< by the kernel, see PacketBatch
};

/// Where and how packets go.
struct SendOrder {
    Endpoint to;
    SendGate::Pass pass = 0;
    Faults faults;
    std::uint64_t packetDelayNs = 0;
    std::uint64_t periodNs = 0; ///< until the next frame; 0: at once
    bool extendedStatus = true; ///< see StreamTarget
};

/// Puts a block's packets on the wire: paced, through the faults, many with one system call.
///
/// One thread each; several may share a port.
class BlockSender : private PacketSink {
public:
    BlockSender(SendPort &port, std::uint64_t seed);

    /// Chances of the faults begin anew.
    void Restart() { m_faults.Restart(); }
    FaultDice &Dice() { return m_faults.Dice(); }

    struct FrameTroubles {
        double lossShare = 0;     ///< of the packets, evenly spread; above 0 at least one is lost
        std::int64_t stallMs = 0; ///< pause in the middle
    };
    /// Sends a block for the first time.
    /// \return false when the gate was shut meanwhile.
    bool Send(SentBlock &sent, const SendOrder &order, const FrameTroubles &troubles);
    /// Sends packets `first` to `last` of a block again; both are below its packet count.
    bool SendAgain(SentBlock &sent, std::uint32_t first, std::uint32_t last, const SendOrder &order);
    /// Sends one packet that was made for the occasion.
    void SendSingle(const Packet &packet, const SendOrder &order);

private:
    void Put(const Packet &packet) override;
    void PutForeign(const std::vector<std::uint8_t> &datagram, bool fromAnotherPort) override;
    bool SendPackets(SentBlock &sent, const SendOrder &order, const FrameTroubles &troubles);
    void Begin(const SendOrder &order, Sending sending, std::uint32_t packetCount);
    void Flush();

    SendPort &m_port;
    PacketBatch m_batch;
    PacketFaults m_faults;
    Endpoint m_to;
    SendGate::Pass m_pass = 0;
};

} // namespace orvsim
