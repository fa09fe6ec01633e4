#include "producer/ModuleFeatures.h"
#include "producer/Modules.h"

#include "gentl/NuvarkCustom.h"

namespace nuvark {

namespace {

std::string LossText(const std::string &reason)
{
    return "connection lost: " + reason;
}

} // namespace

DeviceModule::DeviceModule(std::shared_ptr<InterfaceModule> parent, DeviceRecord record, CameraAccess access)
    : Module(Kind::Device), m_parent(std::move(parent)), m_record(std::move(record)), m_access(access),
      m_registers("device", "DevicePort", Features())
{
}

Status DeviceModule::Connect(HostInterface &host)
{
    Result<std::unique_ptr<Camera>> camera = host.Open(m_record, m_access, *this);
    if (!camera.Ok())
        return camera.status;
    m_camera = std::move(camera.value);
    ListenToTraffic();
    return {};
}

void DeviceModule::ListenToTraffic()
{
    const auto listen = [this](TrafficTap &tap, EVENT_TYPE type) {
        tap.SetReceiver([this, type](orv::ByteSpan packet) {
            Fire(type, std::vector<std::uint8_t>(packet.data, packet.data + packet.size));
        });
    };
    listen(m_camera->Traffic().control, NUVARK_EVENT_CONTROL_TRAFFIC);
    listen(m_camera->Traffic().stream, NUVARK_EVENT_STREAM_TRAFFIC);
    listen(m_camera->Traffic().messages, NUVARK_EVENT_EVENT_TRAFFIC);
}

PortFacts DeviceModule::Facts()
{
    PortFacts facts;
    facts.id = m_record.id;
    facts.vendor = NUVARK_VENDOR;
    facts.model = NUVARK_MODEL;
    facts.tlType = TLTypeGEVName;
    facts.module = "TLDevice";
    facts.portName = "DevicePort";
    facts.version = NUVARK_VERSION;
    return facts;
}

DeviceRecord DeviceModule::Record() const
{
    return WithOpening(m_parent->Listed(m_record.id).value_or(m_record));
}

DeviceRecord DeviceModule::WithOpening(DeviceRecord record) const
{
    record.accessStatus =
        m_access == CameraAccess::ReadOnly ? DEVICE_ACCESS_STATUS_OPEN_READONLY : DEVICE_ACCESS_STATUS_OPEN_READWRITE;
    if (m_camera != nullptr && m_camera->TickFrequency() != 0)
        record.tickFrequency = m_camera->TickFrequency();
    return record;
}

std::vector<ModuleFeature> DeviceModule::Features()
{
    const std::string about = "DeviceInformation";
    const std::string streams = "StreamEnumeration";
    const std::string by = "StreamSelector";
    const auto last = [this] { return std::max<std::int64_t>(1, m_camera->StreamCount()) - 1; };
    const auto text = [&](const char *name, const char *toolTip, std::string DeviceRecord::*field) {
        return TextFeature(name, about, toolTip, [this, field] { return Record().*field; });
    };
    return {
        text("DeviceID", "Identifier of the camera", &DeviceRecord::id),
        text("DeviceVendorName", "Maker of the camera", &DeviceRecord::vendor),
        text("DeviceModelName", "Model of the camera", &DeviceRecord::model),
        text("DeviceVersion", "Version of the camera", &DeviceRecord::version),
        text("DeviceManufacturerInfo", "What the maker says about the camera", &DeviceRecord::manufacturerInfo),
        text("DeviceSerialNumber", "Serial number of the camera", &DeviceRecord::serial),
        text("DeviceUserID", "Name the user gave the camera", &DeviceRecord::userName),
        text("DeviceDisplayName", "Name of the camera for people", &DeviceRecord::displayName),
        TransportTypeFeature("DeviceType", about),
        AccessStatusFeature(about, [this] { return Record().accessStatus; }),
        NumberFeature("DeviceTimestampFrequency", about, "Ticks per second of the camera's clock",
                      [this] { return std::int64_t(m_camera->TickFrequency()); }),
        ChoiceFeature("DeviceEndianessMechanism", about, "How the camera's registers are read",
                      {{"Legacy", 0}, {"Standard", 1}}, [] { return 1; }),
        NumberFeature(
            "GevDeviceIPAddress", about, "IP address of the camera", [this] { return Record().address; }, {},
            "IPV4Address"),
        NumberFeature(
            "GevDeviceSubnetMask", about, "Subnet mask of the camera", [this] { return Record().mask; }, {},
            "IPV4Address"),
        NumberFeature(
            "GevDeviceGateway", about, "Gateway of the camera", [this] { return Record().gateway; }, {}, "IPV4Address"),
        NumberFeature(
            "GevDeviceMACAddress", about, "MAC address of the camera", [this] { return Record().mac; }, {},
            "MACAddress"),
        SelectorFeature(by, streams, "Stream that the following features tell about", m_selector, last),
        TextFeature(
            "StreamID", streams, "Identifier of the stream", [this] { return StreamId(m_selector); }, by),
    };
}

std::string DeviceModule::StreamId(std::uint32_t index) const
{
    return m_record.id + "/stream" + std::to_string(index);
}

std::shared_ptr<RemotePort> DeviceModule::GetRemotePort()
{
    const orv::MutexLock lock(m_mutex);
    if (m_closed)
        return nullptr;
    if (m_remotePort == nullptr) {
        m_remotePort = std::make_shared<RemotePort>(shared_from_this());
        HandleTable::Instance().Add(m_remotePort);
    }
    return m_remotePort;
}

Result<std::shared_ptr<StreamModule>> DeviceModule::OpenStream(const std::string &id)
{
    if (m_camera->StreamCount() == 0)
        return Status(GC_ERR_NOT_IMPLEMENTED, "the camera has no stream");
    std::uint32_t index = 0;
    while (index < m_camera->StreamCount() && StreamId(index) != id)
        ++index;
    if (index == m_camera->StreamCount())
        return Status(GC_ERR_INVALID_ID, "the camera has no stream \"" + id + "\"");
    auto module = std::make_shared<StreamModule>(shared_from_this(), id, index);
    const orv::MutexLock lock(m_mutex);
    if (m_closed)
        return Status(GC_ERR_INVALID_HANDLE, "the camera has been closed");
    if (!m_open.emplace(id, module).second)
        return Status(GC_ERR_RESOURCE_IN_USE, "the stream \"" + id + "\" is open already");
    HandleTable::Instance().Add(module);
    return module;
}

void DeviceModule::Forget(const std::string &streamId)
{
    const orv::MutexLock lock(m_mutex);
    m_open.erase(streamId);
}

void DeviceModule::Close()
{
    const orv::MutexLock closing(m_closeMutex);
    std::map<std::string, std::shared_ptr<StreamModule>> open;
    std::shared_ptr<RemotePort> remotePort;
    {
        const orv::MutexLock lock(m_mutex);
        if (m_closed)
            return;
        m_closed = true;
        open.swap(m_open);
        remotePort.swap(m_remotePort);
    }
    EndHandle();
    if (remotePort != nullptr)
        remotePort->End();
    // The camera first: whatever waits for its answer leaves at once, and without a controller it stops sending.
    if (m_camera != nullptr)
        m_camera->Close();
    for (auto &[id, stream] : open)
        stream->Close();
    m_parent->Forget(m_record.id);
}

std::shared_ptr<EventSource> DeviceModule::MakeEventSource(EVENT_TYPE type)
{
    switch (type) {
    case NUVARK_EVENT_DEVICE_LOST:
        return std::make_shared<TextEvents>(type);
    case NUVARK_EVENT_CONTROL_TRAFFIC:
    case NUVARK_EVENT_STREAM_TRAFFIC:
        return std::make_shared<PacketEvents>(type);
    case NUVARK_EVENT_EVENT_TRAFFIC:
        return m_camera->HasMessages() ? std::make_shared<PacketEvents>(type) : nullptr;
    case EVENT_REMOTE_DEVICE:
        return m_camera->HasMessages() ? std::make_shared<RemoteEvents>() : nullptr;
    case EVENT_FEATURE_INVALIDATE:
        return std::make_shared<InvalidateEvents>();
    default:
        return Module::MakeEventSource(type);
    }
}

Status DeviceModule::OnEventRegistered(EVENT_TYPE type, EventSource &source)
{
    if (type != NUVARK_EVENT_DEVICE_LOST && type != EVENT_ERROR)
        return FollowRegistrations();
    const orv::MutexLock lock(m_lossMutex);
    if (!m_lossReason || source.Fired() != 0)
        return {};
    if (type == EVENT_ERROR)
        FireError(GC_ERR_IO, LossText(*m_lossReason));
    else
        Fire(type, TextEvents::Encode(*m_lossReason));
    return {};
}

void DeviceModule::OnEventUnregistered(EVENT_TYPE)
{
    (void)FollowRegistrations(); // a camera that cannot be told stops by itself when it gets no answers
}

Status DeviceModule::FollowRegistrations()
{
    const orv::MutexLock lock(m_followMutex);
    CameraTraffic &traffic = m_camera->Traffic();
    traffic.control.Switch(IsRegistered(NUVARK_EVENT_CONTROL_TRAFFIC));
    traffic.stream.Switch(IsRegistered(NUVARK_EVENT_STREAM_TRAFFIC));
    traffic.messages.Switch(IsRegistered(NUVARK_EVENT_EVENT_TRAFFIC));
    Status listens =
        m_camera->ListenToMessages(IsRegistered(NUVARK_EVENT_EVENT_TRAFFIC) || IsRegistered(EVENT_REMOTE_DEVICE));
    if (listens.Ok() || listens.Code() == GC_ERR_INVALID_HANDLE || listens.Code() == GC_ERR_ABORT || IsLost())
        return listens;
    // To the consumer it is a camera without events: that it can live with, unlike with any other failure.
    return {GC_ERR_NOT_IMPLEMENTED, "the camera does not open its message channel: " + listens.Text()};
}

void DeviceModule::OnCameraEvent(std::vector<std::uint8_t> packet)
{
    Fire(EVENT_REMOTE_DEVICE, std::move(packet));
}

void DeviceModule::OnFeatureInvalid(const std::string &feature)
{
    Fire(EVENT_FEATURE_INVALIDATE, InvalidateEvents::Encode(feature));
}

void DeviceModule::OnCameraLost(const std::string &reason)
{
    {
        const orv::MutexLock lock(m_lossMutex);
        m_lossReason = reason;
        Fire(NUVARK_EVENT_DEVICE_LOST, TextEvents::Encode(reason));
        FireError(GC_ERR_IO, LossText(reason));
    }
    std::map<std::string, std::shared_ptr<StreamModule>> open;
    {
        const orv::MutexLock lock(m_mutex);
        open = m_open;
    }
    for (const auto &[id, stream] : open)
        stream->OnCameraLost(LossText(reason));
}

bool DeviceModule::IsLost() const
{
    const orv::MutexLock lock(m_lossMutex);
    return m_lossReason.has_value();
}

} // namespace nuvark
