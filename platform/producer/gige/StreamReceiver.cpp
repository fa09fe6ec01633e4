#include "producer/gige/StreamReceiver.h"

#include "producer/gige/Gvcp.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/udp.h>
#include <pthread.h>
#include <sys/socket.h>

namespace nuvark::gige {

namespace {

constexpr std::size_t kBatch = 128;    ///< messages of one packet each
constexpr std::size_t kLongBatch = 32; ///< messages of many packets
constexpr std::size_t kLargestDatagram = 65536;
constexpr std::chrono::milliseconds kIdleWait{1000};
constexpr std::chrono::milliseconds kDrainLimit{60};
constexpr std::chrono::milliseconds kDrainQuiet{15};
constexpr int kRealTimePriority = 10;

/// Receiving must not wait for the picture to be painted. Without the permission it simply stays an ordinary thread.
bool RaisePriority()
{
    sched_param parameter{};
    parameter.sched_priority = kRealTimePriority;
    return pthread_setschedparam(pthread_self(), SCHED_RR, &parameter) == 0;
}

} // namespace

/// Slots and headers for one recvmmsg call.
struct StreamReceiver::Ring {
    Ring(std::size_t slots, std::size_t slotBytes)
        : slotSize(slotBytes), memory(slotBytes * slots), messages(slots), parts(slots), senders(slots), controls(slots)
    {
        for (std::size_t i = 0; i < slots; ++i) {
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
        // The kernel has shortened what it used of them.
        for (std::size_t i = 0; i < used; ++i) {
            messages[i].msg_hdr.msg_namelen = sizeof(sockaddr_in);
            messages[i].msg_hdr.msg_controllen = sizeof(Control);
        }
        const int count = recvmmsg(fd, messages.data(), static_cast<unsigned>(messages.size()), MSG_DONTWAIT, nullptr);
        used = count > 0 ? static_cast<std::size_t>(count) : 0;
        return count;
    }

    orv::ByteSpan Bytes(std::size_t index) const
    {
        return {memory.data() + index * slotSize, std::min<std::size_t>(messages[index].msg_len, slotSize)};
    }
    bool IsCut(std::size_t index) const { return (messages[index].msg_hdr.msg_flags & MSG_TRUNC) != 0; }
    std::uint32_t Sender(std::size_t index) const { return ntohl(senders[index].sin_addr.s_addr); }

    struct Notes {
        std::uint32_t kernelDrops = 0; ///< the kernel's count of packets it had no room for
        std::size_t packetBytes = 0;   ///< of each but the last of the packets in this message; 0: there is one only
    };
    Notes ReadNotes(std::size_t index)
    {
        Notes notes;
        msghdr &header = messages[index].msg_hdr;
        for (cmsghdr *c = CMSG_FIRSTHDR(&header); c != nullptr; c = CMSG_NXTHDR(&header, c)) {
            if (c->cmsg_level == SOL_SOCKET && c->cmsg_type == SO_RXQ_OVFL) {
                std::memcpy(&notes.kernelDrops, CMSG_DATA(c), sizeof notes.kernelDrops);
            } else if (c->cmsg_level == SOL_UDP && c->cmsg_type == UDP_GRO) {
                int bytes = 0;
                std::memcpy(&bytes, CMSG_DATA(c), sizeof bytes);
                notes.packetBytes = bytes > 0 ? static_cast<std::size_t>(bytes) : 0;
            }
        }
        return notes;
    }

    struct Control {
        alignas(cmsghdr) char bytes[CMSG_SPACE(sizeof(std::uint32_t)) + CMSG_SPACE(sizeof(int))];
    };
    const std::size_t slotSize;
    std::vector<std::uint8_t> memory;
    std::vector<mmsghdr> messages;
    std::vector<iovec> parts;
    std::vector<sockaddr_in> senders;
    std::vector<Control> controls;
    std::size_t used = messages.size();
};

StreamReceiver::StreamReceiver(FrameSink &sink, UdpSocket socket, const Settings &settings)
    : m_settings(settings), m_socket(std::move(socket)), m_assembler(sink, settings.assembly)
{
    // Twice the size that was agreed on: the packets that really come may be larger.
    m_longest = std::min(kLargestDatagram, 2 * std::max<std::size_t>(settings.assembly.packetSize, 1500));
    const int on = 1;
    setsockopt(m_socket.Fd(), SOL_SOCKET, SO_RXQ_OVFL, &on, sizeof on);
    const bool manyAtOnce = setsockopt(m_socket.Fd(), SOL_UDP, UDP_GRO, &on, sizeof on) == 0;
    m_ring =
        manyAtOnce ? std::make_unique<Ring>(kLongBatch, kLargestDatagram) : std::make_unique<Ring>(kBatch, m_longest);
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
    m_realTime = RaisePriority();
    for (;;) {
        const UdpSocket::Wait wait = m_socket.WaitReadable(NextWake(), &m_stop);
        if (wait == UdpSocket::Wait::Interrupted)
            break;
        if (wait == UdpSocket::Wait::Readable)
            TakeBatch();
        OnTime();
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
    const orv::MutexLock lock(m_mutex);
    const std::uint64_t oversized = m_oversized;
    for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i)
        TakeMessage(i, now);
    if (m_oversized != oversized && m_longest < kLargestDatagram) {
        m_longest = kLargestDatagram;
        if (m_ring->slotSize < kLargestDatagram)
            m_ring = std::make_unique<Ring>(kLongBatch, kLargestDatagram);
    }
    return true;
}

void StreamReceiver::TakeMessage(std::size_t index, TimePoint now)
{
    const Ring::Notes notes = m_ring->ReadNotes(index);
    if (notes.kernelDrops != 0)
        m_kernelDrops = notes.kernelDrops;
    if (m_ring->Sender(index) != m_settings.cameraAddress)
        return;
    const orv::ByteSpan bytes = m_ring->Bytes(index);
    if (m_ring->IsCut(index)) {
        ++m_oversized; // its rest is gone, and its length would teach a wrong packet size
        return;
    }
    if (notes.packetBytes == 0) {
        TakeDatagram(bytes, now);
        return;
    }
    for (std::size_t begin = 0; begin < bytes.size; begin += notes.packetBytes)
        TakeDatagram({bytes.data + begin, std::min(notes.packetBytes, bytes.size - begin)}, now);
}

void StreamReceiver::TakeDatagram(orv::ByteSpan datagram, TimePoint now)
{
    if (m_settings.tap != nullptr)
        m_settings.tap->Push(datagram);
    if (datagram.size > m_longest)
        ++m_oversized;
    else
        m_assembler.OnPacket(datagram, now);
}

void StreamReceiver::OnTime()
{
    {
        const orv::MutexLock lock(m_mutex);
        const TimePoint now = Clock::now();
        m_assembler.OnTime(now);
        m_assembler.TakeRequests(m_requests, now);
    }
    SendRequests();
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
        if (m_socket.WaitReadable(wake, nullptr) == UdpSocket::Wait::Readable && TakeBatch())
            quiet = std::min(limit, Clock::now() + kDrainQuiet);
        OnTime();
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
    counters.incompleteFrames = count.incompleteFrames;
    counters.missedFrames = count.missedFrames;
    counters.requestedPackets = count.requested;
    counters.resentPackets = count.resent;
    counters.duplicatePackets = count.duplicates;
    counters.latePackets = count.late;
    counters.refusedPackets = count.refused;
    counters.unusablePackets = count.unusable;
    counters.kernelDrops = m_kernelDrops;
    counters.oversizedPackets = m_oversized;
    counters.realTime = m_realTime;
    return counters;
}

} // namespace nuvark::gige
