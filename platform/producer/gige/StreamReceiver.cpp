#include "producer/gige/StreamReceiver.h"

#include "producer/gige/Bootstrap.h"

#include <array>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>

namespace nuvark::gige {

namespace {

constexpr std::size_t kBatch = 64;
constexpr std::size_t kLargestDatagram = 65536;
constexpr std::chrono::milliseconds kIdleWait{1000};
constexpr std::chrono::milliseconds kDrainLimit{60};
constexpr std::chrono::milliseconds kDrainQuiet{15};
constexpr int kRealTimePriority = 10;

/// Receiving must not wait for the picture to be painted. Without the permission it simply stays an ordinary thread.
void RaisePriority()
{
    sched_param parameter{};
    parameter.sched_priority = kRealTimePriority;
    (void)pthread_setschedparam(pthread_self(), SCHED_RR, &parameter);
}

} // namespace

/// Slots and headers for one recvmmsg call.
struct StreamReceiver::Ring {
    explicit Ring(std::size_t slotBytes) : slotSize(slotBytes), memory(slotBytes * kBatch)
    {
        for (std::size_t i = 0; i < kBatch; ++i) {
            parts[i] = {memory.data() + i * slotSize, slotSize};
            msghdr &header = messages[i].msg_hdr;
            header.msg_name = &senders[i];
            header.msg_iov = &parts[i];
            header.msg_iovlen = 1;
            header.msg_control = &controls[i];
        }
    }

    int Receive(int fd)
    {
        for (std::size_t i = 0; i < kBatch; ++i) {
            messages[i].msg_hdr.msg_namelen = sizeof(sockaddr_in);
            messages[i].msg_hdr.msg_controllen = sizeof(Control);
        }
        return recvmmsg(fd, messages.data(), kBatch, MSG_DONTWAIT, nullptr);
    }

    orv::ByteSpan Datagram(std::size_t index) const
    {
        return {memory.data() + index * slotSize, std::min<std::size_t>(messages[index].msg_len, slotSize)};
    }
    bool IsCut(std::size_t index) const { return (messages[index].msg_hdr.msg_flags & MSG_TRUNC) != 0; }
    std::uint32_t Sender(std::size_t index) const { return ntohl(senders[index].sin_addr.s_addr); }

    /// The kernel's count of packets it had no room for, 0 while there are none.
    std::uint32_t KernelDrops(std::size_t index)
    {
        std::uint32_t drops = 0;
        msghdr &header = messages[index].msg_hdr;
        for (cmsghdr *c = CMSG_FIRSTHDR(&header); c != nullptr; c = CMSG_NXTHDR(&header, c)) {
            if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SO_RXQ_OVFL)
                std::memcpy(&drops, CMSG_DATA(c), sizeof drops);
        }
        return drops;
    }

    struct Control {
        alignas(cmsghdr) char bytes[CMSG_SPACE(sizeof(std::uint32_t))];
    };
    const std::size_t slotSize;
    std::vector<std::uint8_t> memory;
    std::array<mmsghdr, kBatch> messages{};
    std::array<iovec, kBatch> parts{};
    std::array<sockaddr_in, kBatch> senders{};
    std::array<Control, kBatch> controls{};
};

StreamReceiver::StreamReceiver(FrameSink &sink, UdpSocket socket, const Settings &settings)
    : m_settings(settings), m_socket(std::move(socket)), m_assembler(sink, settings.assembly)
{
    // Twice the size that was agreed on: the packets that really come may be larger.
    const std::size_t slot = std::min(kLargestDatagram, 2 * std::max<std::size_t>(settings.assembly.packetSize, 1500));
    m_ring = std::make_unique<Ring>(slot);
    const int on = 1;
    setsockopt(m_socket.Fd(), SOL_SOCKET, SO_RXQ_OVFL, &on, sizeof on);
}

StreamReceiver::~StreamReceiver()
{
    Stop(StreamChannel::Stop::AtOnce);
}

Status StreamReceiver::Start()
{
    if (!m_stop.IsOpen())
        return {GC_ERR_IO, "the process has no file descriptor left for the stream"};
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
    RaisePriority();
    for (;;) {
        const UdpSocket::Wait wait = m_socket.WaitReadable(NextWake(), &m_stop);
        if (wait == UdpSocket::Wait::Interrupted)
            break;
        if (wait == UdpSocket::Wait::Readable)
            TakeBatch();
        const orv::MutexLock lock(m_mutex);
        m_assembler.OnTime(Clock::now());
    }
    if (m_how == StreamChannel::Stop::Finish)
        Drain();
}

TimePoint StreamReceiver::NextWake()
{
    const orv::MutexLock lock(m_mutex);
    return m_assembler.NextDeadline().value_or(Clock::now() + kIdleWait);
}

bool StreamReceiver::TakeBatch()
{
    const int count = m_ring->Receive(m_socket.Fd());
    if (count <= 0)
        return false;
    const TimePoint now = Clock::now();
    std::uint64_t oversized = 0;
    const orv::MutexLock lock(m_mutex);
    for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
        if (m_ring->Sender(i) != m_settings.cameraAddress)
            continue;
        if (m_ring->IsCut(i))
            ++oversized; // its rest is gone, and its length would teach a wrong packet size
        else
            m_assembler.OnPacket(m_ring->Datagram(i), now);
    }
    const std::uint32_t drops = m_ring->KernelDrops(static_cast<std::size_t>(count) - 1);
    if (drops != 0)
        m_kernelDrops = drops;
    m_oversized += oversized;
    if (oversized != 0)
        m_ring = std::make_unique<Ring>(kLargestDatagram);
    return true;
}

void StreamReceiver::Drain()
{
    const TimePoint limit = Clock::now() + kDrainLimit;
    {
        const orv::MutexLock lock(m_mutex);
        m_assembler.RefuseNewFrames();
    }
    for (;;) {
        {
            const orv::MutexLock lock(m_mutex);
            if (!m_assembler.HasOpenFrames())
                return;
        }
        const TimePoint quiet = std::min(limit, Clock::now() + kDrainQuiet);
        if (m_socket.WaitReadable(quiet, nullptr) != UdpSocket::Wait::Readable || Clock::now() >= limit)
            return;
        TakeBatch();
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
    StreamCounters counters;
    counters.packets = m_assembler.Count().packets;
    counters.missingPackets = m_assembler.Count().missing;
    counters.incompleteFrames = m_assembler.Count().incompleteFrames;
    counters.kernelDrops = m_kernelDrops;
    counters.oversizedPackets = m_oversized;
    counters.receiveBuffer = m_settings.receiveBuffer;
    counters.packetSize = m_settings.assembly.packetSize;
    return counters;
}

} // namespace nuvark::gige
