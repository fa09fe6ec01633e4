#include "producer/gige/StreamReceiver.h"

#include "producer/gige/Gvcp.h"

#include "producer/gige/ThreadPriority.h"

#include <algorithm>
#include <vector>

#include <netinet/in.h>
#include <netinet/udp.h>
#include <sys/socket.h>

namespace nuvark::gige {

namespace {

constexpr std::size_t kLargestDatagram = 65536;
/// Requests for missing packets and the stop must not wait longer for a stream that never pauses.
constexpr int kBatchesAtOnce = 16;
constexpr std::chrono::milliseconds kIdleWait{1000};
constexpr std::chrono::milliseconds kDrainLimit{60};
constexpr std::chrono::milliseconds kDrainQuiet{15};

} // namespace

StreamReceiver::StreamReceiver(FrameSink &sink, UdpSocket socket, const Settings &settings)
    : m_settings(settings), m_socket(std::move(socket)), m_batch(m_socket.Fd(), settings.cameraAddress),
      m_way(settings.way), m_naps(settings.known.receiveBuffer), m_assembler(sink, settings.assembly)
{
    // Twice the size that was agreed on: the packets that really come may be larger.
    m_longest = std::min(kLargestDatagram, 2 * std::max<std::size_t>(settings.assembly.packetSize, 1500));
    const int on = 1;
    // Kernels before 5.0 do not know it; they hand out packet by packet.
    setsockopt(m_socket.Fd(), SOL_UDP, UDP_GRO, &on, sizeof on);
}

StreamReceiver::~StreamReceiver()
{
    Stop(StreamChannel::Stop::AtOnce);
}

Status StreamReceiver::Start()
{
    if (!m_stop.IsOpen())
        return {GC_ERR_RESOURCE_EXHAUSTED, "the process has no file descriptor left for the stream"};
    m_thread = std::thread([this] { Run(); });
    return {};
}

void StreamReceiver::Stop(StreamChannel::Stop how)
{
    if (!m_thread.joinable())
        return;
    m_how = how;
    m_stop.Set();
    m_thread.join();
    const orv::MutexLock lock(m_mutex);
    m_assembler.DeliverAll();
}

void StreamReceiver::Run()
{
    m_realTime = RaiseThreadPriority(Urgency::Receiving);
    TimePoint wake = Clock::now() + kIdleWait;
    bool hasNapped = false; // something has come meanwhile, most likely
    while (hasNapped || m_socket.WaitReadable(wake, &m_stop) != UdpSocket::Wait::Interrupted) {
        PacketBatch::Found found = PacketBatch::Found::Some;
        for (int i = 0; i < kBatchesAtOnce && found == PacketBatch::Found::Some; ++i)
            found = TakeBatch();
        const bool isAllRead = found != PacketBatch::Found::Some;
        wake = OnTime(isAllRead);
        const std::optional<TimePoint> nap = isAllRead ? EndOfNap(wake) : std::nullopt;
        hasNapped = nap.has_value();
        if (hasNapped && m_stop.WaitUntil(*nap))
            break;
    }
    if (m_how == StreamChannel::Stop::Finish)
        Drain();
}

std::optional<TimePoint> StreamReceiver::EndOfNap(TimePoint wake)
{
    const TimePoint now = Clock::now();
    std::chrono::nanoseconds nap{0};
    {
        const orv::MutexLock lock(m_mutex);
        nap = m_naps.Next(m_assembler.NewestProgress(), now, wake);
    }
    return nap.count() != 0 ? std::optional<TimePoint>(now + nap) : std::nullopt;
}

PacketBatch::Found StreamReceiver::TakeBatch()
{
    const orv::MutexLock lock(m_mutex);
    // Who listens wants each packet in one piece.
    const bool mayLand = m_settings.tap == nullptr || !m_settings.tap->IsOn();
    const PacketBatch::Found found = m_batch.Read(mayLand ? m_assembler.NextLanding() : std::nullopt);
    if (found == PacketBatch::Found::Nothing)
        return found;
    const TimePoint now = Clock::now();
    const std::uint64_t oversized = m_oversized;
    for (const PacketBatch::Packet &packet : m_batch.Packets())
        TakePacket(packet, now);
    if (m_oversized != oversized)
        m_longest = kLargestDatagram;
    m_oversized += m_batch.Cut();
    return found;
}

void StreamReceiver::TakePacket(const PacketBatch::Packet &packet, TimePoint now)
{
    if (packet.landed != 0) {
        m_assembler.OnLanded(packet.bytes, packet.landed, now);
        return;
    }
    if (m_settings.tap != nullptr)
        m_settings.tap->Push(packet.bytes);
    if (packet.isJunk)
        return;
    if (packet.bytes.size > m_longest)
        ++m_oversized;
    else
        m_assembler.OnPacket(packet.bytes, now);
}

TimePoint StreamReceiver::OnTime(bool isAllRead)
{
    TimePoint next;
    {
        const orv::MutexLock lock(m_mutex);
        const TimePoint now = Clock::now();
        if (isAllRead)
            m_assembler.OnTime(now);
        m_assembler.TakeRequests(m_requests, now);
        m_way.Keep(m_socket, now);
        next = m_assembler.NextDeadline().value_or(now + kIdleWait);
    }
    SendRequests();
    return next;
}

void StreamReceiver::SendRequests()
{
    for (const ResendRequest &request : m_requests) {
        m_requestId = m_requestId == 0xFFFF ? 1 : m_requestId + 1;
        const std::vector<std::uint8_t> command = MakeResendCommand(m_requestId, m_settings.channel, request);
        if (m_settings.controlTap != nullptr)
            m_settings.controlTap->Push({command.data(), command.size()});
        // What cannot be sent is asked for again with the next packet timeout.
        (void)m_socket.SendTo({m_settings.cameraAddress, kControlPort}, {command.data(), command.size()});
    }
    m_requests.clear();
}

void StreamReceiver::Drain()
{
    const TimePoint limit = Clock::now() + kDrainLimit;
    TimePoint quiet = std::min(limit, Clock::now() + kDrainQuiet);
    {
        const orv::MutexLock lock(m_mutex);
        m_assembler.RefuseNewFrames();
    }
    for (;;) {
        TimePoint wake = m_settings.assembly.resend.enabled ? limit : quiet;
        const TimePoint end = wake;
        {
            const orv::MutexLock lock(m_mutex);
            if (!m_assembler.HasOpenFrames())
                return;
            wake = std::min(wake, m_assembler.NextDeadline().value_or(wake));
        }
        (void)m_socket.WaitReadable(wake, nullptr);
        const bool wasAny = TakeBatch() != PacketBatch::Found::Nothing;
        if (wasAny)
            quiet = std::min(limit, Clock::now() + kDrainQuiet);
        (void)OnTime(!wasAny);
        if (Clock::now() >= end)
            return;
    }
}

void StreamReceiver::AbandonFrames()
{
    const orv::MutexLock lock(m_mutex);
    m_assembler.AbandonAll();
}

StreamCounters StreamReceiver::Counters() const
{
    const orv::MutexLock lock(m_mutex);
    const FrameAssembler::Counters &count = m_assembler.Count();
    StreamCounters counters = m_settings.known;
    counters.packets = count.packets;
    counters.missingPackets = count.missing;
    counters.fullPackets = count.fullPackets;
    counters.withoutBuffer = count.withoutBuffer;
    counters.droppedByCamera = count.droppedByCamera;
    counters.missedFrames = count.missedFrames;
    counters.requestedPackets = count.requested;
    counters.resentPackets = count.resent;
    counters.duplicatePackets = count.duplicates;
    counters.latePackets = count.late;
    counters.refusedPackets = count.refused;
    counters.unusablePackets = count.unusable;
    counters.kernelDrops = m_socket.Drops();
    counters.oversizedPackets = m_oversized;
    counters.realTime = m_realTime;
    return counters;
}

} // namespace nuvark::gige
