#include "simulator/gige/BlockSender.h"

#include <algorithm>
#include <cmath>

namespace orvsim {

namespace {

/// Chooses packets that a full link loses: `lost` of `count`, evenly spread, one alone in the middle.
class LinkLoss {
public:
    LinkLoss(double share, std::uint32_t count) : m_count(count)
    {
        if (share > 0)
            m_lost = std::clamp<std::uint64_t>(static_cast<std::uint64_t>(std::llround(share * count)), 1, count);
    }
    bool Takes(std::uint32_t packet) const { return Before(packet + 1) > Before(packet); }

private:
    std::uint64_t Before(std::uint64_t packet) const { return (packet * m_lost + m_count / 2) / m_count; }

    std::uint64_t m_count;
    std::uint64_t m_lost = 0;
};

} // namespace

StreamCounts RunningCounts::Read() const
{
    StreamCounts read;
    read.frames = frames;
    read.packets = packets;
    read.bytes = bytes;
    read.resentPackets = resentPackets;
    read.refusedPackets = refusedPackets;
    read.lostOnLink = lostOnLink;
    read.sendErrors = sendErrors;
    return read;
}

BlockSender::BlockSender(SendPort &port, std::uint64_t seed) : m_port(port), m_batch(port.socket), m_faults(seed) {}

bool BlockSender::Send(SentBlock &sent, const SendOrder &order, const FrameTroubles &troubles)
{
    Begin(order, Sending::First, sent.block.packetCount);
    const bool isSent = SendPackets(sent, order, troubles);
    m_faults.End(*this);
    Flush();
    return isSent && m_port.gate.IsOpen(m_pass);
}

bool BlockSender::SendPackets(SentBlock &sent, const SendOrder &order, const FrameTroubles &troubles)
{
    const Block &block = sent.block;
    const LinkLoss link(troubles.lossShare, block.packetCount);
    const SendPace pace = PaceOf(block, order.packetDelayNs, order.periodNs);
    SendTime start = SendClock::now();
    for (std::uint32_t id = 0; id < block.packetCount; ++id) {
        if (id > 0 && id % pace.groupPackets == 0) {
            Flush();
            if (!m_port.gate.WaitUntil(pace.TargetTime(start, id), m_pass))
                return false;
        }
        if (troubles.stallMs > 0 && id == block.packetCount / 2) {
            const std::chrono::milliseconds stall(troubles.stallMs);
            start += stall;
            Flush();
            if (!m_port.gate.WaitUntil(SendClock::now() + stall, m_pass))
                return false;
        }
        sent.packetsSent = id + 1; // before it can be on the wire: whoever has it may ask for it again
        if (link.Takes(id))
            ++m_port.counts.lostOnLink;
        else
            m_faults.Pass(MakePacket(block, id, Sending::First), id, *this);
    }
    return true;
}

bool BlockSender::SendAgain(SentBlock &sent, std::uint32_t first, std::uint32_t last, const SendOrder &order)
{
    const SendPace pace = PaceOf(sent.block, order.packetDelayNs, order.periodNs);
    const SendTime start = SendClock::now();
    Begin(order, Sending::Again, sent.block.packetCount);
    for (std::uint32_t id = first; id <= last; ++id) {
        if (id > first && (id - first) % pace.groupPackets == 0) {
            Flush();
            if (!m_port.gate.WaitUntil(pace.TargetTime(start, id - first), m_pass))
                return false;
        }
        ++m_port.counts.resentPackets;
        m_faults.Pass(MakePacket(sent.block, id, Sending::Again), id, *this);
    }
    m_faults.End(*this);
    Flush();
    return m_port.gate.IsOpen(m_pass);
}

void BlockSender::SendSingle(const Packet &packet, const SendOrder &order)
{
    Begin(order, Sending::Again, 1);
    m_faults.Pass(packet, 0, *this);
    m_faults.End(*this);
    Flush();
}

void BlockSender::Begin(const SendOrder &order, Sending sending, std::uint32_t packetCount)
{
    m_to = order.to;
    m_pass = order.pass;
    m_batch.SetReceiver(order.to);
    m_batch.AllowSegments(m_port.mayBeSegmented);
    m_faults.Begin(order.faults, sending, packetCount);
}

void BlockSender::Put(const Packet &packet)
{
    const std::uint32_t mtu = m_port.pathMtu;
    if (mtu > 0 && packet.Size() + gvsp::kIpAndUdpBytes > mtu)
        return;
    m_batch.Add(packet);
    if (m_batch.IsFull())
        Flush();
}

void BlockSender::PutForeign(const std::vector<std::uint8_t> &datagram, bool fromAnotherPort)
{
    Flush(); // in its place between the others
    StreamSocket &socket = fromAnotherPort ? m_port.foreignSocket : m_port.socket;
    if (!socket.Send({datagram.data(), datagram.size()}, m_to)) {
        ++m_port.counts.sendErrors;
        return;
    }
    ++m_port.counts.packets;
    m_port.counts.bytes += datagram.size();
}

void BlockSender::Flush()
{
    const PacketBatch::Sent sent = m_batch.Flush(m_port.gate, m_pass);
    m_port.counts.packets += sent.packets;
    m_port.counts.bytes += sent.bytes;
    m_port.counts.sendErrors += sent.errors;
}

} // namespace orvsim
