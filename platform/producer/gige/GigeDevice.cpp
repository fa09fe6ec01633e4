#include "producer/gige/GigeDevice.h"

#include "producer/gige/Bootstrap.h"
#include "producer/gige/GigeStream.h"
#include "producer/gige/Text.h"
#include "producer/gige/XmlUrl.h"

namespace nuvark::gige {

namespace {

constexpr std::uint32_t kDefaultHeartbeatMs = 3000;
constexpr std::uint32_t kMinHeartbeatMs = 500;
/// A register that was set for debugging, or switched off, must not hide that the cable was pulled.
constexpr std::uint32_t kMaxHeartbeatMs = 5000;
constexpr std::uint32_t kMaxStreams = 512;
constexpr std::uint32_t kMessageTimeoutMs = 200;
constexpr std::uint32_t kMessageRepeats = 3;

} // namespace

GigeDevice::GigeDevice(NetworkInterface interface, std::uint32_t address, CameraAccess access, CameraListener &listener,
                       std::unique_ptr<GvcpClient> client)
    : m_interface(std::move(interface)), m_address(address), m_access(access), m_listener(listener),
      m_client(std::move(client)),
      m_registers(*m_client, [this](std::uint64_t written, std::size_t size) { OnWritten(written, size); })
{
    m_client->SetTap(&m_traffic.control);
}

Result<std::unique_ptr<Camera>> GigeDevice::Open(const NetworkInterface &interface, std::uint32_t address,
                                                 CameraAccess access, CameraListener &listener)
{
    auto client = GvcpClient::Open(interface.address, address);
    if (!client.Ok())
        return client.status;
    std::unique_ptr<GigeDevice> device(new GigeDevice(interface, address, access, listener, std::move(client.value)));
    const Status admitted = access == CameraAccess::ReadOnly ? device->CheckReadable() : device->TakeControl();
    if (!admitted.Ok())
        return admitted;
    device->ReadFacts();
    device->m_heartbeat =
        std::make_unique<Heartbeat>(*device->m_client, device->HeartbeatSettings(),
                                    [raw = device.get()](const std::string &reason) { raw->OnLost(reason); });
    device->m_heartbeat->Start();
    if (!device->m_client->IsAnswering())
        return Status(GC_ERR_TIMEOUT, "the camera stopped answering while it was being opened");
    return std::unique_ptr<Camera>(std::move(device));
}

Status GigeDevice::TakeControl()
{
    std::uint32_t present = 0;
    const Status read = m_client->ReadRegister(kRegControlPrivilege, present);
    // Looked at first, because some cameras do not answer a refused request at all.
    if (read.Code() == GC_ERR_ACCESS_DENIED || (read.Ok() && (present & kPrivilegeMask) != 0))
        return RefuseBecauseHeld();
    if (!read.Ok())
        return read;
    const std::uint32_t wanted = m_access == CameraAccess::Exclusive ? kPrivilegeExclusive : kPrivilegeControl;
    const Status written = m_client->WriteRegister(kRegControlPrivilege, wanted);
    if (written.Code() == GC_ERR_ACCESS_DENIED)
        return RefuseBecauseHeld();
    if (!written.Ok())
        return written;
    m_privilege = wanted;
    return {};
}

/// Under exclusive control of somebody else not even reading is allowed.
Status GigeDevice::CheckReadable()
{
    std::uint32_t present = 0;
    Status read = m_client->ReadRegister(kRegControlPrivilege, present);
    // Some cameras let this one register be read all the same.
    if (read.Code() == GC_ERR_ACCESS_DENIED || (read.Ok() && (present & kPrivilegeExclusive) != 0))
        return RefuseBecauseHeld();
    return read;
}

Status GigeDevice::RefuseBecauseHeld()
{
    const std::uint32_t holder = ReadOptional(kRegControllerAddress, 0);
    std::string text = "the camera is held by another program";
    if (holder != 0) {
        const std::uint32_t port = ReadOptional(kRegControllerPort, 0) & 0xFFFF;
        text += " at " + AddressText(holder) + ":" + std::to_string(port);
    }
    return {GC_ERR_ACCESS_DENIED, text};
}

std::uint32_t GigeDevice::ReadOptional(std::uint32_t address, std::uint32_t fallback)
{
    std::uint32_t value = 0;
    return m_client->ReadRegister(address, value).Ok() ? value : fallback;
}

void GigeDevice::ReadFacts()
{
    m_capability = ReadOptional(kRegCapability, 0);
    m_client->SetPendingTimeout(std::chrono::milliseconds(ReadOptional(kRegPendingTimeout, 0)));
    const std::uint64_t high = ReadOptional(kRegTickFrequencyHigh, 0);
    m_tickFrequency = high << 32 | ReadOptional(kRegTickFrequencyLow, 0);
    m_streamCount = std::min(ReadOptional(kRegStreamChannels, 1), kMaxStreams);
    RegisterAccess::Facts facts;
    facts.writesMemory = (m_capability & kCapabilityWriteMemory) != 0;
    facts.concatenates = (m_capability & kCapabilityConcatenation) != 0;
    facts.bigEndian = (ReadOptional(kRegDeviceMode, 0) & kDeviceModeBigEndian) != 0;
    m_registers.Learn(facts);
    m_hasMessages = IsWritable() && ReadOptional(kRegMessageChannels, 0) != 0;
    EnablePending();
    facts.legacyDescription = HasLegacyDescription();
    m_registers.Learn(facts);
}

void GigeDevice::EnablePending()
{
    if ((m_capability & kCapabilityPending) == 0 || m_privilege == 0)
        return;
    const std::uint32_t configuration = ReadOptional(kRegConfiguration, 0);
    // Without it the camera is merely slow where it could have said so.
    (void)m_client->WriteRegister(kRegConfiguration, configuration | kConfigurationPending);
}

Heartbeat::Settings GigeDevice::HeartbeatSettings()
{
    Heartbeat::Settings settings;
    settings.privilege = m_privilege;
    settings.timeout = ReadHeartbeatTimeout();
    settings.regain = [this] { return RegainControl(); };
    settings.concatenates = (m_capability & kCapabilityConcatenation) != 0;
    if (m_privilege != 0 && (m_capability & kCapabilityController) != 0) {
        // Compared with what the camera shows now, not with our own address: there may be a translator in between.
        settings.controllerAddress = ReadOptional(kRegControllerAddress, 0);
        settings.controllerPort = ReadOptional(kRegControllerPort, 0);
        settings.watchController = settings.controllerAddress != 0;
    }
    return settings;
}

std::chrono::milliseconds GigeDevice::ReadHeartbeatTimeout()
{
    const std::uint32_t told = ReadOptional(kRegHeartbeatTimeout, kDefaultHeartbeatMs);
    return std::chrono::milliseconds(told == 0 ? kDefaultHeartbeatMs
                                               : std::clamp(told, kMinHeartbeatMs, kMaxHeartbeatMs));
}

void GigeDevice::OnWritten(std::uint64_t address, std::size_t size)
{
    if (address < kRegHeartbeatTimeout + 4 && address + size > kRegHeartbeatTimeout)
        m_heartbeat->SetTimeout(ReadHeartbeatTimeout());
    for (std::uint32_t channel = 0; channel < m_streamCount; ++channel) {
        const std::uint32_t packetSize = StreamRegister(channel, kStreamPacketSize);
        if (address < packetSize + 4 && address + size > packetSize)
            m_isPacketSizeChosen = true;
    }
}

bool GigeDevice::HasLegacyDescription()
{
    constexpr std::size_t kHead = 4 * kMemoryChunk;
    const std::vector<DescriptionUrl> urls = DescriptionUrls();
    if (urls.empty() || urls.front().scheme != URL_SCHEME_LOCAL)
        return false;
    SchemaVersion version{urls.front().schemaMajor, urls.front().schemaMinor};
    if (version.major == 0) {
        std::vector<std::uint8_t> head(std::min<std::uint64_t>(kHead, urls.front().size));
        if (!Read(urls.front().address, head.data(), head.size()).Ok())
            return false;
        version = FindSchemaVersion({head.data(), head.size()}).value_or(SchemaVersion{1, 1});
    }
    const orv::MutexLock lock(m_urlMutex);
    if (m_urls) {
        m_urls->front().schemaMajor = version.major;
        m_urls->front().schemaMinor = version.minor;
    }
    return version.major == 1 && version.minor == 0;
}

std::vector<DescriptionUrl> GigeDevice::DescriptionUrls()
{
    const orv::MutexLock lock(m_urlMutex);
    if (!m_urls) {
        std::vector<DescriptionUrl> urls = ReadUrls();
        if (urls.empty())
            return urls; // asked again next time: the camera may just not have answered
        m_urls = std::move(urls);
    }
    return *m_urls;
}

std::vector<DescriptionUrl> GigeDevice::ReadUrls()
{
    std::vector<DescriptionUrl> urls;
    for (std::uint32_t reg : {kRegFirstUrl, kRegSecondUrl}) {
        std::string text(kUrlSize, '\0');
        if (!Read(reg, text.data(), text.size()).Ok())
            continue;
        std::optional<DescriptionUrl> url = ParseDescriptionUrl(text);
        if (url && (urls.empty() || urls.front().url != url->url))
            urls.push_back(std::move(*url));
    }
    return urls;
}

Status GigeDevice::CheckConnection() const
{
    if (m_closed)
        return {GC_ERR_INVALID_HANDLE, "the camera has been closed"};
    if (m_lost)
        return {GC_ERR_IO, "the connection to the camera is lost"};
    return {};
}

Status GigeDevice::CheckWritable() const
{
    Status connection = CheckConnection();
    if (connection.Ok() && !IsWritable())
        return {GC_ERR_ACCESS_DENIED, "the camera is open for reading only"};
    return connection;
}

Status GigeDevice::Told(Status status) const
{
    if (status.Code() == GC_ERR_ABORT && m_lost)
        return CheckConnection();
    return status;
}

Status GigeDevice::Read(std::uint64_t address, void *data, std::size_t size)
{
    Status connection = CheckConnection();
    return connection.Ok() ? Told(m_registers.Read(address, data, size)) : connection;
}

Status GigeDevice::Write(std::uint64_t address, const void *data, std::size_t size)
{
    Status writable = CheckWritable();
    return writable.Ok() ? Told(m_registers.Write(address, data, size)) : writable;
}

Status GigeDevice::ReadAll(const std::vector<PortAccess> &accesses, std::size_t &done)
{
    done = 0;
    Status connection = CheckConnection();
    return connection.Ok() ? Told(m_registers.ReadAll(accesses, done)) : connection;
}

Status GigeDevice::WriteAll(const std::vector<PortAccess> &accesses, std::size_t &done)
{
    done = 0;
    Status writable = CheckWritable();
    return writable.Ok() ? Told(m_registers.WriteAll(accesses, done)) : writable;
}

std::unique_ptr<StreamChannel> GigeDevice::MakeStream(std::uint32_t index)
{
    return std::make_unique<GigeStream>(*this, index);
}

void GigeDevice::WriteWithoutWaiting(RegisterWrite write)
{
    {
        const orv::MutexLock lock(m_channelMutex);
        m_openStreams.erase(write.address);
    }
    if (!CheckConnection().Ok() || !IsWritable())
        return;
    if (m_client->IsAnswering() && m_client->WriteRegister(write.address, write.value, Effort::Quick).Ok())
        return;
    m_heartbeat->Defer(write);
}

void GigeDevice::ForgetPendingWrite(std::uint32_t address)
{
    m_heartbeat->DropDeferred(address);
    if (address == kRegMessagePort)
        return;
    const orv::MutexLock lock(m_channelMutex);
    m_openStreams.insert(address);
}

void GigeDevice::TellWritten(std::initializer_list<const char *> features)
{
    for (const char *feature : features)
        m_listener.OnFeatureInvalid(feature);
}

std::string GigeDevice::RegainControl()
{
    {
        const orv::MutexLock lock(m_channelMutex);
        if (!m_openStreams.empty())
            return "with it the stream has ended";
    }
    const Status taken = m_client->WriteRegister(kRegControlPrivilege, m_privilege);
    if (!taken.Ok())
        return taken.Text();
    EnablePending();
    const orv::MutexLock lock(m_messageMutex);
    if (m_messages != nullptr)
        (void)NameMessagePort(m_messages->Port());
    return {};
}

Status GigeDevice::ListenToMessages(bool wanted)
{
    const orv::MutexLock lock(m_messageMutex);
    if (wanted == (m_messages != nullptr))
        return {};
    if (wanted)
        return OpenMessages();
    m_messages.reset();
    WriteWithoutWaiting({kRegMessagePort, 0});
    return {};
}

Status GigeDevice::OpenMessages()
{
    const Status connection = CheckConnection();
    if (!connection.Ok())
        return connection;
    auto channel = MessageChannel::Open(m_interface, m_address, m_traffic.messages,
                                        [this](Datagram event) { m_listener.OnCameraEvent(std::move(event)); });
    if (!channel.Ok())
        return channel.status;
    ForgetPendingWrite(kRegMessagePort);
    const Status named = NameMessagePort(channel.value->Port());
    if (!named.Ok()) {
        // Some of it may have got through, with the acknowledge lost.
        WriteWithoutWaiting({kRegMessagePort, 0});
        return named;
    }
    m_messages = std::move(channel.value);
    if ((ReadOptional(kRegMessageCapability, 0) & kCapabilitySourcePort) != 0)
        m_messages->SetSource(static_cast<std::uint16_t>(ReadOptional(kRegMessageSource, 0) & kPortMask));
    return {};
}

Status GigeDevice::NameMessagePort(std::uint16_t port)
{
    Status status = m_client->WriteRegister(kRegMessageAddress, m_interface.address);
    if (!status.Ok())
        return status;
    // Without these two it repeats as it likes.
    (void)m_client->WriteRegister(kRegMessageTimeout, kMessageTimeoutMs);
    (void)m_client->WriteRegister(kRegMessageRepeats, kMessageRepeats);
    // With the port the camera may begin to send, so it comes last.
    return m_client->WriteRegister(kRegMessagePort, port);
}

void GigeDevice::OnLost(const std::string &reason)
{
    m_lost = true;
    m_client->Interrupt();
    m_listener.OnCameraLost(reason);
}

void GigeDevice::Close()
{
    if (m_closed.exchange(true))
        return;
    m_client->Interrupt();
    if (m_heartbeat != nullptr)
        m_heartbeat->Stop();
    if (!m_lost && m_privilege != 0) // a camera that does not hear it takes control back itself after a while
        (void)m_client->WriteRegister(kRegControlPrivilege, 0, Effort::Last);
    const orv::MutexLock lock(m_messageMutex); // without a controller the camera has closed its end
    m_messages.reset();
}

} // namespace nuvark::gige
