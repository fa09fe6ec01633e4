#include "base/FrameMemory.h"
#include "receive/Meter.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include <arpa/inet.h>
#include <netinet/udp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace receivebench {

namespace {

void PutBigEndian(std::uint8_t *to, std::uint32_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        to[i] = static_cast<std::uint8_t>(value >> 8 * (bytes - 1 - i));
}

std::uint64_t BigEndian(const std::uint8_t *from, int bytes)
{
    std::uint64_t value = 0;
    for (int i = 0; i < bytes; ++i)
        value = value << 8 | from[i];
    return value;
}

/// Just enough of the control protocol to open the stream channel.
void WriteRegister(int fd, std::uint32_t address, std::uint32_t value)
{
    static std::uint16_t id = 0;
    ++id;
    std::array<std::uint8_t, 16> command{0x42, 0x01, 0x00, 0x82, 0x00, 0x08};
    PutBigEndian(command.data() + 6, id, 2);
    PutBigEndian(command.data() + 8, address, 4);
    PutBigEndian(command.data() + 12, value, 4);
    for (int attempt = 0; attempt < 20; ++attempt) {
        send(fd, command.data(), command.size(), 0);
        pollfd readable{fd, POLLIN, 0};
        std::array<std::uint8_t, 64> answer{};
        if (poll(&readable, 1, 200) == 1 && recv(fd, answer.data(), answer.size(), 0) >= 8 && answer[0] == 0)
            return;
    }
    Fail("the camera does not answer");
}

/// The bare loop's socket, and the camera's channel to it.
class BareChannel {
public:
    BareChannel(const Stream &sent, bool manyAtOnce)
    {
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_addr.s_addr = htonl(0x7f000001);
        sockaddr_in camera = local;
        camera.sin_addr.s_addr = htonl(kCameraAddress);
        camera.sin_port = htons(3956);
        socklen_t length = sizeof local;
        const int wanted = sent.SocketBuffer();
        const int on = 1;
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &wanted, sizeof wanted);
        setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &wanted, sizeof wanted);
        if (manyAtOnce)
            setsockopt(fd, SOL_UDP, UDP_GRO, &on, sizeof on);
        if (bind(fd, reinterpret_cast<sockaddr *>(&local), length) != 0 ||
            getsockname(fd, reinterpret_cast<sockaddr *>(&local), &length) != 0 ||
            connect(m_control, reinterpret_cast<sockaddr *>(&camera), sizeof camera) != 0)
            Fail("no socket to receive with");
        WriteRegister(m_control, 0x0a00, 2);         // control
        WriteRegister(m_control, 0x0938, 3'600'000); // heartbeat: none is sent
        WriteRegister(m_control, 0x0d18, 0x7f000001);
        WriteRegister(m_control, 0x0d04, sent.packetSize);
        WriteRegister(m_control, 0x0d00, ntohs(local.sin_port));
    }
    ~BareChannel()
    {
        WriteRegister(m_control, 0x0d00, 0);
        WriteRegister(m_control, 0x0a00, 0);
        close(fd);
        close(m_control);
    }
    BareChannel(const BareChannel &) = delete;
    BareChannel &operator=(const BareChannel &) = delete;

    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);

private:
    const int m_control = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

/// Copies payload to its place and counts it; packets in order and of standard ids.
class BareFrames {
public:
    explicit BareFrames(const Stream &sent)
        : m_payload(sent.Payload()), m_data(sent.packetSize - 28 - kHeader), m_meter(sent.Payload())
    {
        for (int i = 0; i < kBuffers; ++i)
            m_frames.push_back(orv::AllocateFrame(m_payload));
    }

    void Take(const std::uint8_t *packet, std::size_t size)
    {
        enum { kLeader = 1, kTrailer = 2, kData = 3 };
        const std::size_t offset = (BigEndian(packet + 5, 3) - 1) * m_data;
        if (packet[4] == kData && offset < m_payload) {
            const std::size_t bytes = std::min(size - kHeader, m_payload - offset);
            std::memcpy(m_frames[m_frame].get() + offset, packet + kHeader, bytes);
            m_got += bytes;
        } else if (packet[4] == kLeader) {
            m_timestamp = BigEndian(packet + kHeader + 4, 8);
        } else if (packet[4] == kTrailer) {
            m_meter.Frame(m_got == m_payload, m_timestamp);
            m_frame = (m_frame + 1) % kBuffers;
            m_got = 0;
        }
    }
    bool IsOver() const { return m_meter.IsOver(); }
    Figures Result() { return m_meter.Result(); }

private:
    static constexpr std::size_t kHeader = 8;

    const std::size_t m_payload;
    const std::size_t m_data; ///< bytes in a packet
    std::vector<orv::FrameMemory> m_frames;
    Meter m_meter;
    std::size_t m_frame = 0;
    std::size_t m_got = 0;
    std::uint64_t m_timestamp = 0;
};

} // namespace

Figures ReceiveBare(const Stream &sent, bool manyAtOnce)
{
    const BareChannel channel(sent, manyAtOnce);
    const std::size_t slots = manyAtOnce ? 32 : 128;
    const std::size_t slotBytes = manyAtOnce ? 65536 : 9216;
    const std::size_t full = sent.packetSize - 28;
    std::vector<std::uint8_t> memory(slots * slotBytes);
    std::vector<iovec> pieces(slots);
    std::vector<mmsghdr> messages(slots);
    for (std::size_t i = 0; i < slots; ++i) {
        pieces[i] = {memory.data() + i * slotBytes, slotBytes};
        messages[i].msg_hdr.msg_iov = &pieces[i];
        messages[i].msg_hdr.msg_iovlen = 1;
    }
    BareFrames frames(sent);
    while (!frames.IsOver()) {
        pollfd readable{channel.fd, POLLIN, 0};
        if (poll(&readable, 1, 100) != 1)
            continue;
        const int count = recvmmsg(channel.fd, messages.data(), static_cast<unsigned>(slots), MSG_DONTWAIT, nullptr);
        for (int i = 0; i < count; ++i) {
            const std::uint8_t *message = memory.data() + static_cast<std::size_t>(i) * slotBytes;
            const std::size_t size = messages[static_cast<std::size_t>(i)].msg_len;
            // Leaders and trailers are never sent together with others of another length before them.
            for (std::size_t at = 0; at < size; at += full)
                frames.Take(message + at, std::min(full, size - at));
        }
    }
    return frames.Result();
}

} // namespace receivebench
