#include "producer/gige/GigeStream.h"

#include "producer/gige/Bootstrap.h"
#include "producer/gige/GigeDevice.h"
#include "producer/gige/PacketSize.h"

namespace nuvark::gige {

namespace {

constexpr std::size_t kMinReceiveBuffer = 8 * 1024 * 1024;
constexpr std::size_t kMaxReceiveBuffer = 256 * 1024 * 1024;

} // namespace

Status GigeStream::Start(FrameSink &sink, std::size_t payloadSize)
{
    const Status connection = m_device.CheckConnection();
    if (!connection.Ok())
        return connection;
    Result<UdpSocket> socket = UdpSocket::Open(m_device.Interface().address);
    if (!socket.Ok())
        return socket.status;
    StreamReceiver::Settings settings;
    const std::size_t wanted = std::min(kMaxReceiveBuffer, std::max(2 * payloadSize, kMinReceiveBuffer));
    settings.receiveBuffer = socket.value.SetReceiveBuffer(wanted);
    Result<std::uint32_t> packetSize = OpenChannel(socket.value);
    if (!packetSize.Ok())
        return Outward(packetSize.status);
    settings.cameraAddress = m_device.Address();
    settings.assembly.packetSize = packetSize.value & kPacketSizeMask;
    settings.assembly.bigEndianPixels = (packetSize.value & kPacketSizeBigEndian) != 0;
    auto receiver = std::make_shared<StreamReceiver>(sink, std::move(socket.value), settings);
    receiver->Start();
    const orv::MutexLock lock(m_mutex);
    m_receiver = std::move(receiver);
    return {};
}

/// \return the packet size register as it is in the end.
Result<std::uint32_t> GigeStream::OpenChannel(UdpSocket &socket)
{
    std::uint32_t sizeRegister = 0;
    GvcpClient &client = m_device.Client();
    if (m_device.IsWritable()) {
        const std::uint32_t portRegister = StreamRegister(m_index, kStreamPort);
        m_device.ForgetPendingWrite(portRegister);
        // The address first: with the port the camera may begin to send.
        Status status = client.WriteRegister(StreamRegister(m_index, kStreamAddress), m_device.Interface().address);
        if (status.Ok())
            status = client.WriteRegister(portRegister, socket.LocalPort());
        if (!status.Ok())
            return status;
        const Result<std::uint32_t> size = ChoosePacketSize(socket);
        if (!size.Ok())
            return size.status;
    }
    const Status read = client.ReadRegister(StreamRegister(m_index, kStreamPacketSize), sizeRegister);
    if (!read.Ok())
        return read;
    return sizeRegister;
}

Result<std::uint32_t> GigeStream::ChoosePacketSize(UdpSocket &socket)
{
    std::uint32_t present = 0;
    const Status read = m_device.Client().ReadRegister(StreamRegister(m_index, kStreamPacketSize), present);
    if (!read.Ok())
        return read;
    if ((present & kPacketSizeMask) == m_verifiedPacketSize && (present & kPacketSizeFireTest) == 0)
        return m_verifiedPacketSize;
    Result<std::uint32_t> size = NegotiatePacketSize(m_device, m_index, socket);
    if (size.Ok())
        m_verifiedPacketSize = size.value;
    return size;
}

void GigeStream::StopReceiving(Stop how)
{
    std::shared_ptr<StreamReceiver> receiver;
    {
        const orv::MutexLock lock(m_mutex);
        receiver.swap(m_receiver);
    }
    if (receiver == nullptr)
        return;
    receiver->Stop(how);
    m_device.WriteWithoutWaiting({StreamRegister(m_index, kStreamPort), 0});
    const orv::MutexLock lock(m_mutex);
    m_last = receiver->Counters();
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

} // namespace nuvark::gige
