#pragma once

#include "base/Mutex.h"
#include "orvcam/DeviceEvents.h"
#include "orvcam/DevicePort.h"
#include "orvcam/EventThread.h"
#include "orvcam/FeatureArrayImp.h"
#include "orvcam/LossWatch.h"
#include "orvcam/OrvCam.h"
#include "orvcam/Producer.h"
#include "orvcam/SettingsGate.h"
#include "orvcam/StreamImp.h"

#include <memory>
#include <string>
#include <vector>

namespace orv::cam {

/// A device's handle, closed with its owner.
class DeviceHandle {
public:
    DeviceHandle(const gentl::Functions &calls, DEV_HANDLE handle) : m_calls(&calls), m_handle(handle) {}
    ~DeviceHandle()
    {
        if (m_handle != nullptr)
            m_calls->DevClose(m_handle);
    }
    DeviceHandle(DeviceHandle &&other) noexcept : m_calls(other.m_calls), m_handle(other.m_handle)
    {
        other.m_handle = nullptr;
    }
    DeviceHandle &operator=(DeviceHandle &&) = delete;
    operator DEV_HANDLE() const { return m_handle; }

private:
    const gentl::Functions *m_calls;
    DEV_HANDLE m_handle;
};

/// One opened camera. Deletes itself in Release().
///
/// Threads: any; Release() last and alone, and from none of the callbacks. The lock here is held for bookkeeping and
/// for opening a stream only; none while a callback runs or a thread is waited for.
class DeviceImp final : public OrvCam::Device {
public:
    /// Loads the camera's description, which takes some round trips; without a usable one there are no features, and
    /// `*error` tells why. \return null, with `*error`, when the camera was lost meanwhile. Throws where there is no
    /// memory or no thread.
    static DeviceImp *Open(std::shared_ptr<Interface> interface, DeviceHandle handle,
                           OrvCam::DeviceDescription description, std::string *error);

    const OrvCam::DeviceDescription &GetDescription() const override { return m_description; }
    OrvCam::FeatureArray *GetCameraParameters(int index = 0) override;
    OrvCam::FeatureArray *GetInterfaceParameters() override;
    int FetchDescriptionXml(std::string *xml) override;
    unsigned int GetStreamCount() override;
    OrvCam::Stream *GetStreamByIndex(unsigned int index) override EXCLUDES(m_streamsMutex);
    int RegisterEvent(int eventType, OrvCam::EventCallback callback, void *context) override;
    int UnregisterEvent(int eventType, OrvCam::EventCallback callback, void *context) override;
    OrvCam::EventFigures GetEventFigures(int eventType) override;
    int SaveFeatures(const char *path) override;
    int LoadFeatures(const char *path) override;
    void Release() override { delete this; }

private:
    DeviceImp(std::shared_ptr<Interface> interface, DeviceHandle handle, OrvCam::DeviceDescription description);
    ~DeviceImp();
    void WatchForLoss();
    void LoadDescription(std::string *error);
    LossWatch::Answer AskCamera() EXCLUDES(m_streamsMutex);
    void OnLost(const std::string &reason) EXCLUDES(m_streamsMutex);

    const std::shared_ptr<Interface> m_interface;
    const gentl::Functions &m_calls;
    const DeviceHandle m_handle;
    const OrvCam::DeviceDescription m_description;
    const std::string m_name; ///< for the log
    LossFlag m_lost;
    Contact m_contact;              ///< of everybody's register accesses
    LossWatch m_watch;              ///< stopped before anything else ends; called to the last
    std::uint64_t m_framesSeen = 0; ///< of AskCamera
    SettingsGate m_gate;
    std::unique_ptr<DevicePort> m_port; ///< null where the producer gives none
    std::unique_ptr<FeatureArrayImp> m_features;

    Mutex m_streamsMutex;
    std::vector<std::unique_ptr<StreamImp>> m_streams GUARDED_BY(m_streamsMutex);

    DeviceEvents m_events;
    std::unique_ptr<EventThread> m_lostEvent; ///< where the producer tells of a loss
};

} // namespace orv::cam
