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

std::uint32_t BigEndianWord(const std::uint8_t *bytes)
{
    return orv::ByteReader({bytes, 4}).U32();
}

void StoreBigEndian(std::uint32_t value, std::uint8_t *bytes)
{
    for (int i = 0; i < 4; ++i)
        bytes[i] = static_cast<std::uint8_t>(value >> (24 - 8 * i));
}

} // namespace

GigeDevice::GigeDevice(NetworkInterface interface, std::uint32_t address, CameraAccess access, CameraListener &listener,
                       std::unique_ptr<GvcpClient> client)
    : m_interface(std::move(interface)), m_address(address), m_access(access), m_listener(listener),
      m_client(std::move(client))
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
    if (access != CameraAccess::ReadOnly) {
        const Status taken = device->TakeControl();
        if (!taken.Ok())
            return Outward(taken);
    }
    device->ReadFacts();
    device->m_heartbeat =
        std::make_unique<Heartbeat>(*device->m_client, device->HeartbeatSettings(),
                                    [raw = device.get()](const std::string &reason) { raw->OnLost(reason); });
    device->m_heartbeat->Start();
    if (!device->m_client->IsAnswering())
        return Status(GC_ERR_IO, "the camera stopped answering while it was being opened");
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
    m_bigEndian = (ReadOptional(kRegDeviceMode, 0) & kDeviceModeBigEndian) != 0;
    m_hasMessages = IsWritable() && ReadOptional(kRegMessageChannels, 0) != 0;
    EnablePending();
    NoticeLegacyDescription();
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
    const std::chrono::milliseconds timeout(told == 0 ? kDefaultHeartbeatMs
                                                      : std::clamp(told, kMinHeartbeatMs, kMaxHeartbeatMs));
    m_client->SetSilenceLimit(timeout);
    return timeout;
}

void GigeDevice::OnWritten(std::uint64_t address, std::size_t size)
{
    if (address < kRegHeartbeatTimeout + 4 && address + size > kRegHeartbeatTimeout)
        m_heartbeat->SetTimeout(ReadHeartbeatTimeout());
}

void GigeDevice::NoticeLegacyDescription()
{
    constexpr std::size_t kHead = 4 * kMemoryChunk;
    const std::vector<DescriptionUrl> urls = DescriptionUrls();
    if (urls.empty() || urls.front().scheme != URL_SCHEME_LOCAL)
        return;
    SchemaVersion version{urls.front().schemaMajor, urls.front().schemaMinor};
    if (version.major == 0) {
        std::vector<std::uint8_t> head(std::min<std::uint64_t>(kHead, urls.front().size));
        if (!Read(urls.front().address, head.data(), head.size()).Ok())
            return;
        version = FindSchemaVersion({head.data(), head.size()}).value_or(SchemaVersion{1, 1});
    }
    m_legacyDescription = version.major == 1 && version.minor == 0;
    const orv::MutexLock lock(m_urlMutex);
    if (m_urls) {
        m_urls->front().schemaMajor = version.major;
        m_urls->front().schemaMinor = version.minor;
    }
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

Status GigeDevice::Read(std::uint64_t address, void *data, std::size_t size)
{
    const Status connection = CheckConnection();
    if (!connection.Ok() || size == 0)
        return connection;
    if (address + size > (std::uint64_t{1} << 32) || address + size < address)
        return {GC_ERR_INVALID_ADDRESS, "address " + Hex(address) + " is beyond the camera's register space"};
    auto *target = static_cast<std::uint8_t *>(data);
    if (m_legacyDescription && size == 4 && address % 4 == 0) {
        std::uint32_t value = 0;
        const Status status = m_client->ReadRegister(static_cast<std::uint32_t>(address), value);
        StoreBigEndian(value, target);
        return Outward(status);
    }
    std::uint8_t chunk[kMemoryChunk];
    for (std::size_t done = 0; done < size;) {
        const auto aligned = static_cast<std::uint32_t>((address + done) & ~std::uint64_t{3});
        const std::size_t lead = (address + done) - aligned;
        const std::size_t take = std::min(kMemoryChunk - lead, size - done);
        const Status status = m_client->ReadMemory(aligned, chunk, (lead + take + 3) / 4 * 4);
        if (!status.Ok())
            return Outward(status);
        std::memcpy(target + done, chunk + lead, take);
        done += take;
    }
    return {};
}

Status GigeDevice::Write(std::uint64_t address, const void *data, std::size_t size)
{
    const Status connection = CheckConnection();
    if (!connection.Ok() || size == 0)
        return connection;
    if (!IsWritable())
        return {GC_ERR_ACCESS_DENIED, "the camera is open for reading only"};
    if (address + size > (std::uint64_t{1} << 32) || address + size < address)
        return {GC_ERR_INVALID_ADDRESS, "address " + Hex(address) + " is beyond the camera's register space"};
    const auto *source = static_cast<const std::uint8_t *>(data);
    const orv::MutexLock lock(m_writeMutex);
    for (std::size_t done = 0; done < size;) {
        const std::size_t lead = (address + done) % 4;
        const std::size_t take = std::min(kMemoryChunk - lead, size - done);
        const Status status = WriteChunk(address + done, source + done, take);
        if (!status.Ok())
            return Outward(status);
        done += take;
    }
    OnWritten(address, size);
    return {};
}

std::size_t GigeDevice::CountTogether(const std::vector<PortAccess> &accesses, std::size_t first,
                                      std::size_t limit) const
{
    // On others the same four bytes would come in another order than Read() and Write() have them.
    if ((m_capability & kCapabilityConcatenation) == 0 || !(m_bigEndian || m_legacyDescription))
        return 0;
    std::size_t count = 0;
    for (; first + count < accesses.size() && count < limit; ++count) {
        const PortAccess &access = accesses[first + count];
        if (access.size != 4 || access.address % 4 != 0 || access.address > 0xFFFFFFFC)
            break;
    }
    return count;
}

Status GigeDevice::ReadAll(const std::vector<PortAccess> &accesses, std::size_t &done)
{
    for (done = 0; done < accesses.size();) {
        const std::size_t count = CountTogether(accesses, done, kMaxReads);
        if (count > 1 && CheckConnection().Ok() && ReadTogether(accesses, done, count)) {
            done += count;
            continue;
        }
        // What failed together shows one by one where it fails.
        for (const std::size_t end = done + std::max<std::size_t>(count, 1); done < end; ++done) {
            Status status = Read(accesses[done].address, accesses[done].data, accesses[done].size);
            if (!status.Ok())
                return status;
        }
    }
    return {};
}

bool GigeDevice::ReadTogether(const std::vector<PortAccess> &accesses, std::size_t first, std::size_t count)
{
    std::vector<std::uint32_t> addresses;
    for (std::size_t i = first; i < first + count; ++i)
        addresses.push_back(static_cast<std::uint32_t>(accesses[i].address));
    std::vector<std::uint32_t> values;
    if (!m_client->ReadRegisters(addresses, values).Ok())
        return false;
    for (std::size_t i = 0; i < count; ++i)
        StoreBigEndian(values[i], accesses[first + i].data);
    return true;
}

Status GigeDevice::WriteAll(const std::vector<PortAccess> &accesses, std::size_t &done)
{
    for (done = 0; done < accesses.size();) {
        const std::size_t count = CountTogether(accesses, done, kMaxWrites);
        if (count > 1 && CheckConnection().Ok() && IsWritable()) {
            Status status = WriteTogether(accesses, count, done);
            if (!status.Ok())
                return Outward(status);
            continue;
        }
        Status status = Write(accesses[done].address, accesses[done].data, accesses[done].size);
        if (!status.Ok())
            return status;
        ++done;
    }
    return {};
}

Status GigeDevice::WriteTogether(const std::vector<PortAccess> &accesses, std::size_t count, std::size_t &done)
{
    std::vector<RegisterWrite> writes;
    for (std::size_t i = done; i < done + count; ++i)
        writes.push_back({static_cast<std::uint32_t>(accesses[i].address), BigEndianWord(accesses[i].data)});
    std::optional<std::size_t> written;
    Status status;
    {
        const orv::MutexLock lock(m_writeMutex);
        status = m_client->WriteRegisters(writes, written);
    }
    // Where the camera does not say how far it got nothing counts as written, and nothing is written twice.
    for (std::size_t i = 0; i < written.value_or(0); ++i)
        OnWritten(accesses[done + i].address, accesses[done + i].size);
    done += written.value_or(0);
    if (status.Code() != GC_ERR_BUSY || !written || *written >= count)
        return status;
    // The one that it was too busy for may be asked for again, alone.
    status = Write(accesses[done].address, accesses[done].data, accesses[done].size);
    if (status.Ok())
        ++done;
    return status;
}

Status GigeDevice::WriteChunk(std::uint64_t address, const std::uint8_t *data, std::size_t size)
{
    const auto aligned = static_cast<std::uint32_t>(address & ~std::uint64_t{3});
    const std::size_t lead = address - aligned;
    const std::size_t padded = (lead + size + 3) / 4 * 4;
    std::uint8_t chunk[kMemoryChunk];
    // The words at the two ends keep the bytes that are not written.
    if (lead != 0) {
        const Status status = m_client->ReadMemory(aligned, chunk, 4);
        if (!status.Ok())
            return status;
    }
    if (lead + size != padded && (lead == 0 || padded > 4)) {
        const Status status =
            m_client->ReadMemory(static_cast<std::uint32_t>(aligned + padded - 4), chunk + padded - 4, 4);
        if (!status.Ok())
            return status;
    }
    std::memcpy(chunk + lead, data, size);
    return WriteWords(aligned, chunk, padded);
}

Status GigeDevice::WriteWords(std::uint32_t address, const std::uint8_t *data, std::size_t size)
{
    const bool byRegister = (m_capability & kCapabilityWriteMemory) == 0 || (m_legacyDescription && size == 4);
    if (!byRegister)
        return m_client->WriteMemory(address, {data, size});
    for (std::size_t i = 0; i < size; i += 4) {
        Status status = m_client->WriteRegister(static_cast<std::uint32_t>(address + i), BigEndianWord(data + i));
        if (!status.Ok())
            return status;
    }
    return {};
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

void GigeDevice::TellStreamRegistersWritten()
{
    for (const char *feature : {"GevSCPSPacketSize", "GevSCPHostPort", "GevSCDA"})
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
    if (!named.Ok())
        return Outward(named);
    m_messages = std::move(channel.value);
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
