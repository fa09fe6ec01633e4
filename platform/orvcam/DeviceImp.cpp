#include "orvcam/DeviceImp.h"

#include "gentl/NuvarkCustom.h"
#include "orvcam/DescriptionSource.h"
#include "orvcam/FeatureFile.h"
#include "orvcam/GenTLInfo.h"
#include "orvcam/Log.h"
#include "orvcam/OrvStatus.h"

#include <algorithm>

namespace orv::cam {

static_assert(OrvCam::kEventDeviceLost == NUVARK_EVENT_DEVICE_LOST, "one number for the event on both sides");

DeviceImp::DeviceImp(std::shared_ptr<Interface> interface, DEV_HANDLE handle, OrvCam::DeviceDescription description)
    : m_interface(std::move(interface)), m_calls(m_interface->Calls()), m_handle(handle),
      m_description(std::move(description))
{
    m_description.state = OrvCam::DeviceState::OpenHere;
    std::uint32_t streams = 0;
    if (m_calls.DevGetNumDataStreams(m_handle, &streams) == GC_ERR_SUCCESS)
        m_streams.resize(std::min<std::uint32_t>(streams, 64));
    WatchForLoss();
    LoadDescription();
}

/// Events first, so that no callback meets a device half gone; then the streams, which the features' port may serve;
/// the handle last.
DeviceImp::~DeviceImp()
{
    m_lostWatch.reset();
    m_lostNotice.reset();
    std::map<int, Registration> events;
    {
        MutexLock lock(m_eventsMutex);
        events.swap(m_events);
    }
    events.clear();
    m_endedEvents.clear();
    m_streams.clear();
    m_features.reset();
    m_port.reset();
    m_calls.DevClose(m_handle);
}

void DeviceImp::LoadDescription()
{
    PORT_HANDLE port = nullptr;
    const GC_ERROR result = m_calls.DevGetPort(m_handle, &port);
    if (result != GC_ERR_SUCCESS || port == nullptr) {
        LogWarning(m_description.model + ": " + GenTLErrorText(m_calls, "DevGetPort", result));
        return;
    }
    m_port = std::make_unique<DevicePort>(m_calls, port, m_lost);
    std::string xml;
    std::string error;
    if (FetchDescription(m_port->DescriptionUrls(), *m_port, &xml, &error))
        m_features = FeatureArrayImp::Create(xml, *m_port, &error);
    if (!m_features)
        LogWarning("The features of " + m_description.vendor + " " + m_description.model + " cannot be used: " + error);
}

void DeviceImp::WatchForLoss()
{
    if (!m_interface->Owner().IsOurs())
        return; // the number means something else with other producers
    const auto onLost = [this](const void *data, std::size_t bytes) {
        const auto *text = static_cast<const char *>(data);
        OnLost(std::string(text, std::find(text, text + bytes, '\0')));
    };
    m_lostNotice = std::make_unique<LostNotice>();
    const int status = EventThread::Start(m_calls, m_handle, NUVARK_EVENT_DEVICE_LOST, onLost, &m_lostWatch);
    if (status == ORV_CAM_OK)
        m_lost.ExpectNews();
    else
        m_lostNotice.reset();
}

void DeviceImp::OnLost(const std::string &reason)
{
    LogWarning("The connection to " + m_description.vendor + " " + m_description.model + " was lost: " + reason);
    m_lost.Set();
    {
        MutexLock lock(m_streamsMutex);
        for (const auto &stream : m_streams) {
            if (stream)
                stream->Wake();
        }
    }
    m_lostNotice->Report(reason);
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
    LogWarning("The description of " + m_description.model + " cannot be read: " + error);
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
        m_streams[index] = StreamImp::Open(m_interface->Owner(), m_handle, index, m_features.get(), m_lost, &error);
        if (!m_streams[index])
            LogWarning("Stream " + std::to_string(index) + " of " + m_description.model +
                       " cannot be opened: " + error);
    }
    return m_streams[index].get();
}

bool DeviceImp::IsStreaming()
{
    MutexLock lock(m_streamsMutex);
    return std::any_of(m_streams.begin(), m_streams.end(),
                       [](const auto &stream) { return stream && stream->IsRunning(); });
}

int DeviceImp::RegisterEvent(int eventType, OrvCam::EventCallback callback, void *context)
{
    if (callback == nullptr)
        return ORV_CAM_ERR_INVALID_PARAMETER;
    if (eventType == OrvCam::kEventDeviceLost)
        return m_lostNotice ? m_lostNotice->Set(callback, context) : ORV_CAM_ERR_NOT_IMPLEMENTED;
    if (eventType >= EVENT_CUSTOM_ID && !m_interface->Owner().IsOurs())
        return ORV_CAM_ERR_NOT_IMPLEMENTED;
    MutexLock lock(m_eventsMutex);
    if (m_events.count(eventType) != 0)
        return ORV_CAM_ERR_INVALID_STATE;
    std::unique_ptr<EventThread> thread;
    const int status = EventThread::Start(
        m_calls, m_handle, eventType,
        [callback, context](const void *data, std::size_t bytes) {
            callback(data, static_cast<unsigned long>(bytes), context);
        },
        &thread);
    if (status == ORV_CAM_OK)
        m_events[eventType] = {callback, context, std::move(thread)};
    return status;
}

int DeviceImp::UnregisterEvent(int eventType, OrvCam::EventCallback callback, void *context)
{
    if (eventType == OrvCam::kEventDeviceLost)
        return m_lostNotice ? m_lostNotice->Clear(callback, context) : ORV_CAM_ERR_NOT_IMPLEMENTED;
    std::unique_ptr<EventThread> thread;
    {
        MutexLock lock(m_eventsMutex);
        const auto entry = m_events.find(eventType);
        if (entry == m_events.end() || entry->second.callback != callback || entry->second.context != context)
            return ORV_CAM_ERR_INVALID_PARAMETER;
        thread = std::move(entry->second.thread);
        m_events.erase(entry);
        if (thread->IsThisThread()) {
            thread->StopFromHandler();
            m_endedEvents.push_back(std::move(thread));
            return ORV_CAM_OK;
        }
    }
    thread->Stop(); // without the lock: the callback that it waits for may need it
    return ORV_CAM_OK;
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
    if (IsStreaming())
        return ORV_CAM_ERR_INVALID_STATE;
    return file.Apply(*m_features);
}

} // namespace orv::cam
