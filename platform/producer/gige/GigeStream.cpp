#include "producer/gige/GigeStream.h"

#include "producer/gige/Bootstrap.h"
#include "producer/gige/GigeDevice.h"
#include "producer/gige/PacketSize.h"
#include "producer/Rollback.h"

namespace nuvark::gige {

namespace {

constexpr std::size_t kMinReceiveBuffer = 16 * 1024 * 1024;
constexpr std::size_t kMaxReceiveBuffer = 256 * 1024 * 1024;
constexpr std::uint32_t kMulticastPrefix = 0xE; ///< the first four bits of such an address
constexpr std::uint32_t kLoopbackNetwork = 127;

} // namespace

Status GigeStream::Start(FrameSink &sink, std::size_t payloadSize)
{
    const Status connection = m_device.CheckConnection();
    if (!connection.Ok())
        return connection;
    Result<UdpSocket> socket = OpenSocket();
    if (!socket.Ok())
        return socket.status;
    StreamReceiver::Settings settings;
    StreamCounters &known = settings.known;
    known.wantedReceiveBuffer = std::min(kMaxReceiveBuffer, std::max(2 * payloadSize, kMinReceiveBuffer));
    known.receiveBuffer = socket.value.SetReceiveBuffer(known.wantedReceiveBuffer);
    Rollback closeChannel([this] { CloseChannel(); });
    const Status opened = OpenChannel(socket.value);
    if (!opened.Ok())
        return opened;
    settings.way = Way({m_device.Address(), SourcePort()});
    settings.way.Keep(socket.value, Clock::now()); // test packets are to get through as well
    const Result<std::uint32_t> packetSize = ChoosePacketSize(socket.value);
    if (!packetSize.Ok())
        return packetSize.status;
    known.packetSize = packetSize.value & kPacketSizeMask;
    settings.cameraAddress = m_device.Address();
    settings.channel = static_cast<std::uint16_t>(m_index);
    settings.tap = &m_device.Traffic().stream;
    settings.controlTap = &m_device.Traffic().control;
    settings.assembly.packetSize = known.packetSize;
    settings.assembly.bigEndianPixels = (packetSize.value & kPacketSizeBigEndian) != 0;
    settings.assembly.resend = Resend();
    settings.assembly.resend.enabled = PrepareResend() && settings.assembly.resend.enabled;
    known.resendEnabled = settings.assembly.resend.enabled;
    (void)m_device.Client().ReadRegister(StreamRegister(m_index, kStreamPacketDelay), known.packetDelay);
    auto receiver = std::make_shared<StreamReceiver>(sink, std::move(socket.value), settings);
    Status started = receiver->Start();
    if (!started.Ok())
        return started;
    closeChannel.Dismiss();
    if (m_device.IsWritable())
        m_device.TellWritten({"GevSCPSPacketSize", "GevSCPHostPort", "GevSCDA"});
    const orv::MutexLock lock(m_mutex);
    m_receiver = std::move(receiver);
    return {};
}

Result<UdpSocket> GigeStream::OpenSocket()
{
    return m_device.IsWritable() ? UdpSocket::Open(m_device.Interface().address) : JoinGroup();
}

/// A camera sends to one host, which its controller names, or to a group that everybody may join.
Result<UdpSocket> GigeStream::JoinGroup()
{
    std::uint32_t target = 0;
    std::uint32_t port = 0;
    Status read = m_device.Client().ReadRegister(StreamRegister(m_index, kStreamAddress), target);
    if (read.Ok())
        read = m_device.Client().ReadRegister(StreamRegister(m_index, kStreamPort), port);
    if (!read.Ok())
        return read;
    if (target >> 28 != kMulticastPrefix)
        return Status(GC_ERR_ACCESS_DENIED, "the camera is open for reading only, and its stream goes to another host");
    if ((port & kPortMask) == 0)
        return Status(GC_ERR_ACCESS_DENIED,
                      "the camera is open for reading only, and its controller has not opened the stream yet");
    return UdpSocket::OpenGroup(target, static_cast<std::uint16_t>(port & kPortMask), m_device.Interface().index);
}

Status GigeStream::OpenChannel(UdpSocket &socket)
{
    if (!m_device.IsWritable())
        return {};
    const std::uint32_t portRegister = StreamRegister(m_index, kStreamPort);
    m_device.ForgetPendingWrite(portRegister);
    GvcpClient &client = m_device.Client();
    // The address first: with the port the camera may begin to send.
    Status status = client.WriteRegister(StreamRegister(m_index, kStreamAddress), m_device.Interface().address);
    if (status.Ok())
        status = client.WriteRegister(portRegister, socket.LocalPort());
    return status;
}

/// The port that the camera sends from, 0 when it does not say.
std::uint16_t GigeStream::SourcePort()
{
    GvcpClient &client = m_device.Client();
    std::uint32_t capability = 0;
    std::uint32_t port = 0;
    if (!client.ReadRegister(kRegStreamCapability, capability).Ok() || (capability & kCapabilitySourcePort) == 0 ||
        !client.ReadRegister(StreamRegister(m_index, kStreamSource), port).Ok())
        return 0;
    return static_cast<std::uint16_t>(port & kPortMask);
}

/// \return whether the camera can send packets again. One that can tell why it does not is told to.
bool GigeStream::PrepareResend()
{
    GvcpClient &client = m_device.Client();
    std::uint32_t capability = 0;
    std::uint32_t configuration = 0;
    if (!client.ReadRegister(kRegCapability, capability).Ok() || (capability & kCapabilityResend) == 0)
        return false;
    const std::uint32_t wanted = ((capability & kCapabilityStatusCodes1) != 0 ? kConfigurationStatusCodes1 : 0) |
                                 ((capability & kCapabilityStatusCodes2) != 0 ? kConfigurationStatusCodes2 : 0);
    if (wanted != 0 && m_device.IsWritable() && client.ReadRegister(kRegConfiguration, configuration).Ok() &&
        (configuration & wanted) != wanted)
        (void)client.WriteRegister(kRegConfiguration, configuration | wanted);
    return true;
}

ResendSettings GigeStream::Resend() const
{
    const orv::MutexLock lock(m_mutex);
    return m_resend;
}

void GigeStream::SetResend(const ResendSettings &settings)
{
    const orv::MutexLock lock(m_mutex);
    m_resend = settings;
}

void GigeStream::CloseChannel()
{
    m_device.WriteWithoutWaiting({StreamRegister(m_index, kStreamPort), 0});
}

Result<std::uint32_t> GigeStream::ChoosePacketSize(UdpSocket &socket)
{
    if (m_device.IsWritable()) {
        // Each time: the path may have become narrower, or a firewall may have been opened. Cheap as long as it works.
        // The largest once; after that the size is the one in use. On loopback there is no network to save packets on.
        const bool isLocal = m_device.Address() >> 24 == kLoopbackNetwork;
        const SizeWish wish{m_sendsTests, !m_isSizeSettled && !isLocal && !m_device.IsPacketSizeChosen()};
        const auto size = NegotiatePacketSize(m_device, m_index, socket, wish);
        if (!size.Ok())
            return size.status;
        m_sendsTests = size.value.isVerified;
        m_isSizeSettled = true;
    }
    std::uint32_t sizeRegister = 0;
    const Status read = m_device.Client().ReadRegister(StreamRegister(m_index, kStreamPacketSize), sizeRegister);
    if (!read.Ok())
        return read;
    return sizeRegister;
}

void GigeStream::StopReceiving(Stop how)
{
    std::shared_ptr<StreamReceiver> receiver;
    {
        const orv::MutexLock lock(m_mutex);
        receiver = m_receiver;
    }
    if (receiver == nullptr)
        return;
    receiver->Stop(how); // until then its frames can be abandoned and its counters be asked
    {
        const orv::MutexLock lock(m_mutex);
        m_last = receiver->Counters();
        m_receiver.reset();
    }
    CloseChannel();
}

void GigeStream::AbandonFrames()
{
    const orv::MutexLock lock(m_mutex);
    if (m_receiver != nullptr)
        m_receiver->AbandonFrames();
}

StreamCounters GigeStream::Counters() const
{
    const orv::MutexLock lock(m_mutex);
    return m_receiver != nullptr ? m_receiver->Counters() : m_last;
}

bool GigeStream::IsReceiving() const
{
    const orv::MutexLock lock(m_mutex);
    return m_receiver != nullptr;
}

PacketSettings GigeStream::Packets() const
{
    const StreamCounters known = Counters();
    PacketSettings packets{known.packetSize, known.packetDelay};
    if (IsReceiving() || !m_device.CheckConnection().Ok())
        return packets;
    std::uint32_t size = 0;
    if (m_device.Client().ReadRegister(StreamRegister(m_index, kStreamPacketSize), size).Ok())
        packets.size = size & kPacketSizeMask;
    (void)m_device.Client().ReadRegister(StreamRegister(m_index, kStreamPacketDelay), packets.delay);
    return packets;
}

Status GigeStream::SetPacketSize(std::uint32_t size)
{
    Status written = m_device.CheckWritable();
    if (written.Ok())
        written = m_device.Told(WritePacketSize(m_device, m_index, size));
    if (written.Ok())
        m_device.TellWritten({"GevSCPSPacketSize"});
    return written;
}

Status GigeStream::SetPacketDelay(std::uint32_t ticks)
{
    Status written = m_device.CheckWritable();
    if (written.Ok())
        written = m_device.Told(m_device.Client().WriteRegister(StreamRegister(m_index, kStreamPacketDelay), ticks));
    if (written.Ok())
        m_device.TellWritten({"GevSCPD"});
    return written;
}

} // namespace nuvark::gige
