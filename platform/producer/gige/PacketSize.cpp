#include "producer/gige/PacketSize.h"

#include "producer/gige/Bootstrap.h"
#include "producer/gige/Text.h"

#include <algorithm>
#include <vector>

namespace nuvark::gige {

namespace {

constexpr std::uint32_t kSmallest = 576;
constexpr std::uint32_t kUsual = 1500;
constexpr std::uint32_t kLargest = 65000;
constexpr std::uint32_t kStep = 4;
constexpr int kShots = 3;
constexpr std::chrono::milliseconds kTestWait{50};

class Negotiation {
public:
    Negotiation(GigeDevice &device, std::uint32_t streamIndex, UdpSocket &socket)
        : m_client(device.Client()), m_register(StreamRegister(streamIndex, kStreamPacketSize)), m_socket(socket),
          m_tap(device.Traffic().stream), m_limit(std::min(device.Interface().mtu & ~(kStep - 1), kLargest)),
          m_buffer(65536)
    {
    }

    Result<std::uint32_t> Run()
    {
        const Status read = m_client.ReadRegister(m_register, m_initial);
        if (!read.Ok())
            return read;
        m_flags = m_initial & (kPacketSizeBigEndian | kPacketSizeDoNotFragment);
        const std::uint32_t present = m_initial & kPacketSizeMask;
        if (present != 0 && present <= m_limit && Test(present) == present)
            return Settle(present);
        const std::uint32_t usual = std::min(kUsual, m_limit);
        // One probe that any network passes: without an answer the camera sends no test packets.
        if (m_client.IsAnswering() && Test(std::min(kSmallest, m_limit)) == 0)
            return Settle(present != 0 && present <= m_limit ? present : usual);
        const std::uint32_t found =
            FindLargestSize(kSmallest, m_limit, kStep, [this](std::uint32_t size) { return Test(size); });
        return Settle(found != 0 ? found : usual);
    }

private:
    /// \return the size that the camera made of `size` when its test packet came, else 0.
    std::uint32_t Test(std::uint32_t size)
    {
        for (int shot = 0; shot < kShots; ++shot) {
            ForgetLatePackets();
            const std::uint32_t command =
                kPacketSizeFireTest | kPacketSizeDoNotFragment | (m_flags & kPacketSizeBigEndian) | size;
            std::uint32_t actual = 0;
            if (!m_client.WriteRegister(m_register, command).Ok() || !m_client.ReadRegister(m_register, actual).Ok())
                return 0; // some cameras refuse sizes that they cannot do
            actual &= kPacketSizeMask;
            if (actual > m_limit)
                return 0; // it would come in fragments
            if (Arrives(actual))
                return actual;
        }
        return 0;
    }

    /// Test packets of an earlier size. By the clock: a camera that goes on streaming sends without end.
    void ForgetLatePackets()
    {
        const TimePoint deadline = Clock::now() + kTestWait;
        while (Receive() != 0 && Clock::now() < deadline) {
        }
    }

    std::size_t Receive()
    {
        const std::size_t size = m_socket.Receive(m_buffer.data(), m_buffer.size());
        if (size != 0)
            m_tap.Push({m_buffer.data(), size});
        return size;
    }

    bool Arrives(std::uint32_t size)
    {
        const TimePoint deadline = Clock::now() + kTestWait;
        while (m_socket.WaitReadable(deadline, nullptr) == UdpSocket::Wait::Readable && Clock::now() < deadline) {
            if (Receive() + kIpUdpHeaders == size)
                return true;
        }
        return false;
    }

    Result<std::uint32_t> Settle(std::uint32_t size)
    {
        // Also takes the fire bit back on cameras that leave it standing.
        const Status written = m_client.WriteRegister(m_register, m_flags | size);
        if (!written.Ok())
            return written;
        std::uint32_t actual = 0;
        const Status read = m_client.ReadRegister(m_register, actual);
        if (!read.Ok())
            return read;
        return actual & kPacketSizeMask;
    }

    GvcpClient &m_client;
    const std::uint32_t m_register;
    UdpSocket &m_socket;
    const TrafficTap &m_tap;
    const std::uint32_t m_limit;
    std::vector<std::uint8_t> m_buffer;
    std::uint32_t m_initial = 0;
    std::uint32_t m_flags = 0;
};

} // namespace

Result<std::uint32_t> NegotiatePacketSize(GigeDevice &device, std::uint32_t streamIndex, UdpSocket &socket)
{
    return Negotiation(device, streamIndex, socket).Run();
}

} // namespace nuvark::gige
