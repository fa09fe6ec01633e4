#include "orvcam/DeviceImp.h"

#include "gentl/NuvarkCustom.h"
#include "orvcam/DescriptionSource.h"
#include "orvcam/FeatureFile.h"
#include "orvcam/GenTLInfo.h"
#include "orvcam/Log.h"
#include "orvcam/OrvStatus.h"

#include <algorithm>
#include <utility>

namespace orv::cam {

static_assert(OrvCam::kEventDeviceLost == NUVARK_EVENT_DEVICE_LOST, "one number for the event on both sides");

namespace {

OrvCam::DeviceDescription Opened(OrvCam::DeviceDescription description)
{
    description.state = OrvCam::DeviceState::OpenHere;
    return description;
}

} // namespace

DeviceImp *DeviceImp::Open(std::shared_ptr<Interface> interface, DeviceHandle handle,
                           OrvCam::DeviceDescription description, std::string *error)
{
    struct Close {
        void operator()(DeviceImp *device) const { device->Release(); }
    };
    std::unique_ptr<DeviceImp, Close> device(
        new DeviceImp(std::move(interface), std::move(handle), std::move(description)));
    std::uint32_t streams = 0;
    if (device->m_calls.DevGetNumDataStreams(device->m_handle, &streams) == GC_ERR_SUCCESS) {
        MutexLock lock(device->m_streamsMutex);
        device->m_streams.resize(std::min<std::uint32_t>(streams, 64));
    }
    device->WatchForLoss();
    device->LoadDescription(error);
    return device->m_lost ? nullptr : device.release();
}

DeviceImp::DeviceImp(std::shared_ptr<Interface> interface, DeviceHandle handle, OrvCam::DeviceDescription description)
    : m_interface(std::move(interface)), m_calls(m_interface->Calls()), m_handle(std::move(handle)),
      m_description(Opened(std::move(description))),
      m_name(m_description.vendor + " " + m_description.model + " " + m_description.serial),
      m_watch(m_contact, [this](const std::string &reason) { OnLost(reason); }),
      m_events(m_calls, m_handle, m_interface->Owner().IsOurs(), m_name)
{
}

/// First the threads that look at the streams. Then the members from the last to the first: the events before what
/// their callbacks may use, the streams before the port that they may use, the handle last.
DeviceImp::~DeviceImp()
{
    m_lostEvent.reset();
    m_watch.Stop();
}

void DeviceImp::LoadDescription(std::string *error)
{
    PORT_HANDLE port = nullptr;
    const GC_ERROR result = m_calls.DevGetPort(m_handle, &port);
    if (result != GC_ERR_SUCCESS || port == nullptr) {
        *error = GenTLErrorText(m_calls, "DevGetPort", result);
    } else {
        m_port = std::make_unique<DevicePort>(m_calls, port, m_lost, &m_contact);
        std::string xml;
        if (FetchDescription(m_port->DescriptionUrls(), *m_port, &xml, error))
            m_features = FeatureArrayImp::Create(xml, *m_port, error);
    }
    if (!m_features)
        LogWarning("The features of " + m_name + " cannot be used: " + *error);
}

void DeviceImp::WatchForLoss()
{
    const auto ask = [this] { return AskCamera(); };
    EventThread::Handlers handlers;
    handlers.onData = [this](const void *data, std::size_t bytes) {
        const auto *text = static_cast<const char *>(data);
        OnLost(std::string(text, std::find(text, text + bytes, '\0')));
    };
    handlers.onEnd = [this, ask](bool) { m_watch.StartAsking(ask, true); };
    // With other producers the event's number means something else.
    const bool isTold =
        m_interface->Owner().IsOurs() && EventThread::Start(m_calls, m_handle, NUVARK_EVENT_DEVICE_LOST, m_name,
                                                            std::move(handlers), &m_lostEvent) == ORV_CAM_OK;
    m_lost.Watch([this] { m_watch.AskNow(); });
    if (!isTold)
        m_watch.StartAsking(ask, ask() == LossWatch::Answer::There);
}

/// A register that every camera has: the bootstrap registers of all transports begin at 0. What the camera refuses, it
/// has answered. While somebody else waits for an answer, how long it takes is the camera's business: some write their
/// memory or find their focus for seconds, deaf to everything. By one thread at a time: the one that opens the device,
/// then the watch's.
LossWatch::Answer DeviceImp::AskCamera()
{
    std::uint64_t frames = 0;
    {
        MutexLock lock(m_streamsMutex);
        for (const auto &stream : m_streams)
            frames += stream ? stream->FramesFetched() : 0;
    }
    LossWatch::Answer answer = LossWatch::Answer::There;
    const bool framesCome = frames != std::exchange(m_framesSeen, frames); // those need no question
    if (!framesCome && m_contact.IsUnderWay())
        return LossWatch::Answer::Awaited;
    if (!framesCome) {
        PORT_HANDLE port = nullptr;
        unsigned char bytes[4] = {};
        std::size_t size = sizeof bytes;
        GC_ERROR result = m_calls.DevGetPort(m_handle, &port);
        if (result == GC_ERR_SUCCESS)
            result = m_calls.GCReadPort(port, 0, bytes, &size);
        if (result == GC_ERR_INVALID_HANDLE || result == GC_ERR_NOT_INITIALIZED)
            answer = LossWatch::Answer::Gone;
        else if (result == GC_ERR_IO || result == GC_ERR_TIMEOUT || result == GC_ERR_ERROR)
            answer = LossWatch::Answer::Silent;
    }
    if (answer == LossWatch::Answer::There)
        m_lost.Answered();
    return answer;
}

void DeviceImp::OnLost(const std::string &reason)
{
    if (m_lost)
        return;
    LogWarning("The connection to " + m_name + " was lost: " + reason);
    m_lost.Set();
    {
        MutexLock lock(m_streamsMutex);
        for (const auto &stream : m_streams) {
            if (stream)
                stream->Wake();
        }
    }
    m_watch.Report(reason);
}

OrvCam::FeatureArray *DeviceImp::GetCameraParameters(int index)
{
    return index == 0 ? m_features.get() : nullptr;
}

OrvCam::FeatureArray *DeviceImp::GetInterfaceParameters()
{
    return m_interface->Features();
}

int DeviceImp::FetchDescriptionXml(std::string *xml)
{
    if (m_lost)
        return ORV_CAM_ERR_DEVICE_LOST;
    std::string error = "there is no port";
    if (m_port && FetchDescription(m_port->DescriptionUrls(), *m_port, xml, &error))
        return ORV_CAM_OK;
    LogWarning("The description of " + m_name + " cannot be read: " + error);
    return m_lost ? ORV_CAM_ERR_DEVICE_LOST : ORV_CAM_ERR_XML;
}

unsigned int DeviceImp::GetStreamCount()
{
    MutexLock lock(m_streamsMutex);
    return static_cast<unsigned int>(m_streams.size());
}

OrvCam::Stream *DeviceImp::GetStreamByIndex(unsigned int index)
{
    MutexLock lock(m_streamsMutex);
    if (index >= m_streams.size())
        return nullptr;
    if (!m_streams[index]) {
        std::string error;
        m_streams[index] =
            StreamImp::Open({m_interface->Owner(), m_handle, index, m_features.get(), m_lost, m_gate, m_name}, &error);
        if (!m_streams[index])
            LogWarning("Stream " + std::to_string(index) + " of " + m_name + " cannot be opened: " + error);
    }
    return m_streams[index].get();
}

int DeviceImp::RegisterEvent(int eventType, OrvCam::EventCallback callback, void *context)
{
    if (callback == nullptr)
        return ORV_CAM_ERR_INVALID_PARAMETER;
    if (eventType == OrvCam::kEventDeviceLost)
        return m_watch.Set(callback, context);
    if (eventType >= EVENT_CUSTOM_ID && !m_interface->Owner().IsOurs())
        return ORV_CAM_ERR_NOT_IMPLEMENTED; // the number means something else with other producers
    return m_events.Register(eventType, callback, context);
}

int DeviceImp::UnregisterEvent(int eventType, OrvCam::EventCallback callback, void *context)
{
    if (eventType == OrvCam::kEventDeviceLost)
        return m_watch.Clear(callback, context);
    return m_events.Unregister(eventType, callback, context);
}

OrvCam::EventFigures DeviceImp::GetEventFigures(int eventType)
{
    if (eventType != OrvCam::kEventDeviceLost)
        return m_events.Figures(eventType);
    OrvCam::EventFigures figures;
    figures.fired = m_watch.HasTold() ? 1 : 0;
    return figures;
}

int DeviceImp::SaveFeatures(const char *path)
{
    if (path == nullptr)
        return ORV_CAM_ERR_INVALID_PARAMETER;
    if (!m_features)
        return ORV_CAM_ERR_XML;
    return SaveFeatureFile(path, *m_features, m_description);
}

int DeviceImp::LoadFeatures(const char *path)
{
    if (path == nullptr)
        return ORV_CAM_ERR_INVALID_PARAMETER;
    FeatureFile file;
    std::string error;
    if (!file.Read(path, &error)) {
        LogWarning(error);
        return ORV_CAM_ERR_FILE;
    }
    if (!m_features)
        return ORV_CAM_ERR_XML;
    const SettingsGate::Loading loading(m_gate);
    return loading ? file.Apply(*m_features) : ORV_CAM_ERR_INVALID_STATE;
}

} // namespace orv::cam
