#include "producer/gige/PacketSize.h"

#include "producer/gige/Bootstrap.h"

#include <algorithm>
#include <vector>

namespace nuvark::gige {

namespace {

constexpr std::uint32_t kUsual = 1500;
/// Sizes that a network passes, the most cautious first; a camera may refuse what is below its own least.
constexpr std::uint32_t kProbes[] = {576, 1024, kUsual};
constexpr std::uint32_t kLargest = 65000;
constexpr std::uint32_t kStep = 4;
/// What sizes are multiples of in cameras that refuse others.
constexpr std::uint32_t kSteps[] = {kStep, 8, 16, 32};
constexpr std::uint32_t kLargestStep = 32;
constexpr std::chrono::milliseconds kTestWait{50};
constexpr int kShots = 3; ///< per size: datagrams get lost

bool IsRefusal(const Status &status)
{
    return !status.Ok() && status.Code() != GC_ERR_TIMEOUT && status.Code() != GC_ERR_ABORT;
}

class Negotiation {
public:
    Negotiation(GigeDevice &device, std::uint32_t streamIndex, UdpSocket &socket, SizeWish wish)
        : m_client(device.Client()), m_camera(device.Address()),
          m_register(StreamRegister(streamIndex, kStreamPacketSize)), m_socket(socket), m_tap(device.Traffic().stream),
          m_sendsTests(wish.sendsTests), m_wantsLargest(wish.isLargest),
          m_limit(std::min(PresentMtu(device.Interface()) & ~(kStep - 1), kLargest)), m_buffer(65536)
    {
    }

    Result<NegotiatedSize> Run()
    {
        std::uint32_t initial = 0;
        const Status read = m_client.ReadRegister(m_register, initial);
        if (!read.Ok())
            return read;
        m_flags = initial & (kPacketSizeBigEndian | kPacketSizeDoNotFragment);
        const std::uint32_t present = initial & kPacketSizeMask;
        if (present != 0 && present <= m_limit && Test(present).ArrivedAs() == present)
            return Settle(m_wantsLargest && present < m_limit ? std::max(present, Test(m_limit).ArrivedAs()) : present);
        const std::uint32_t usual = std::min(kUsual, m_limit);
        const std::uint32_t low = Probe();
        if (low == 0) // the camera sends no test packets
            return Settle(present != 0 && present <= m_limit ? present : usual);
        return Settle(FindLargestSize(low, m_limit, kStep, [this](auto size) { return Test(size).ArrivedAs(); }));
    }

private:
    struct Tested {
        std::uint32_t size = 0; ///< what the camera made of it; 0 when it has refused it
        bool hasArrived = false;

        std::uint32_t ArrivedAs() const { return hasArrived ? size : 0; }
    };

    /// \return the least size whose test packet arrives, 0 when none does.
    std::uint32_t Probe()
    {
        for (std::uint32_t size : kProbes) {
            if (!m_client.IsAnswering())
                return 0;
            const Tested tested = Test(std::min(size, m_limit));
            if (tested.size != 0)
                return tested.ArrivedAs();
        }
        return 0;
    }

    Tested Test(std::uint32_t size)
    {
        Tested tested;
        for (int shot = 0; shot < (m_sendsTests ? kShots : 1); ++shot) {
            ForgetLatePackets();
            tested.size = Fire(size);
            if (tested.size == 0 || tested.size > m_limit)
                return tested; // beyond the limit it would come in fragments
            ++m_fired;
            if (Arrives(tested.size)) {
                ++m_arrived;
                m_lastArrived = tested.size;
                tested.hasArrived = m_sendsTests = true;
                return tested;
            }
        }
        return tested;
    }

    /// \return the size that the camera made of it, or 0.
    std::uint32_t Fire(std::uint32_t size)
    {
        std::uint32_t last = 0;
        for (std::uint32_t step : kSteps) {
            const std::uint32_t candidate = size / step * step;
            if (candidate == last)
                continue;
            last = candidate;
            const Status written = m_client.WriteRegister(m_register, kPacketSizeFireTest | kPacketSizeDoNotFragment |
                                                                          (m_flags & kPacketSizeBigEndian) | candidate);
            if (IsRefusal(written))
                continue;
            std::uint32_t actual = 0;
            if (!written.Ok() || !m_client.ReadRegister(m_register, actual).Ok())
                return 0;
            return actual & kPacketSizeMask;
        }
        return 0;
    }

    /// Test packets of an earlier size. By the clock: a camera that goes on streaming sends without end.
    void ForgetLatePackets()
    {
        const TimePoint deadline = Clock::now() + kTestWait;
        Endpoint sender;
        while (Receive(sender) != 0 && Clock::now() < deadline) {
        }
    }

    std::size_t Receive(Endpoint &sender)
    {
        const std::size_t size = m_socket.Receive(m_buffer.data(), m_buffer.size(), &sender);
        if (size != 0)
            m_tap.Push({m_buffer.data(), size});
        return size;
    }

    bool Arrives(std::uint32_t size)
    {
        const TimePoint deadline = Clock::now() + kTestWait;
        while (m_socket.WaitReadable(deadline, nullptr) == UdpSocket::Wait::Readable && Clock::now() < deadline) {
            Endpoint sender;
            if (Receive(sender) + kIpUdpHeaders == size && sender.address == m_camera)
                return true;
        }
        return false;
    }

    Result<NegotiatedSize> Settle(std::uint32_t size)
    {
        // Also takes the fire bit back on cameras that leave it standing.
        const Status written = m_client.WriteRegister(m_register, m_flags | size);
        if (!written.Ok() && !IsRefusal(written))
            return written;
        std::uint32_t actual = 0;
        const Status read = m_client.ReadRegister(m_register, actual);
        if (!read.Ok())
            return read;
        // A test packet that is taken for one of the stream would begin a frame.
        if (m_fired != m_arrived)
            (void)m_socket.WaitReadable(Clock::now() + kTestWait, nullptr);
        ForgetLatePackets();
        return NegotiatedSize{actual & kPacketSizeMask, m_arrived != 0 && (actual & kPacketSizeMask) == m_lastArrived};
    }

    GvcpClient &m_client;
    const std::uint32_t m_camera;
    const std::uint32_t m_register;
    UdpSocket &m_socket;
    const TrafficTap &m_tap;
    bool m_sendsTests;
    const bool m_wantsLargest;
    const std::uint32_t m_limit;
    std::vector<std::uint8_t> m_buffer;
    std::uint32_t m_flags = 0;
    int m_fired = 0;
    int m_arrived = 0;
    std::uint32_t m_lastArrived = 0; ///< size
};

} // namespace

Result<NegotiatedSize> NegotiatePacketSize(GigeDevice &device, std::uint32_t streamIndex, UdpSocket &socket,
                                           SizeWish wish)
{
    return Negotiation(device, streamIndex, socket, wish).Run();
}

Status WritePacketSize(GigeDevice &device, std::uint32_t streamIndex, std::uint32_t size)
{
    GvcpClient &client = device.Client();
    const std::uint32_t address = StreamRegister(streamIndex, kStreamPacketSize);
    std::uint32_t before = 0;
    std::uint32_t after = 0;
    Status status = client.ReadRegister(address, before);
    before &= ~kPacketSizeFireTest; // some cameras leave it standing
    if (status.Ok())
        status = client.WriteRegister(address, (before & ~kPacketSizeMask) | size);
    if (status.Ok())
        status = client.ReadRegister(address, after);
    if (!status.Ok())
        return {status.Code(),
                "the camera does not take packets of " + std::to_string(size) + " bytes: " + status.Text()};
    after &= kPacketSizeMask;
    if (std::max(size, after) - std::min(size, after) >= kLargestStep) {
        (void)client.WriteRegister(address, before);
        return {GC_ERR_INVALID_VALUE, "the camera makes " + std::to_string(after) + " of a packet size of " +
                                          std::to_string(size) + " bytes"};
    }
    device.OnWritten(address, sizeof after);
    return {};
}

} // namespace nuvark::gige
