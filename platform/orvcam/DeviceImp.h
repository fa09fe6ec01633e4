#pragma once

#include "base/Mutex.h"
#include "orvcam/DevicePort.h"
#include "orvcam/EventThread.h"
#include "orvcam/FeatureArrayImp.h"
#include "orvcam/LostNotice.h"
#include "orvcam/OrvCam.h"
#include "orvcam/Producer.h"
#include "orvcam/StreamImp.h"

#include <map>
#include <memory>
#include <vector>

namespace orv::cam {

/// One opened camera. Deletes itself in Release().
///
/// Threads: any; Release() last and alone, and from none of the callbacks. The locks here are held for bookkeeping and
/// for opening a stream only; none while a callback runs or a thread is waited for.
class DeviceImp final : public OrvCam::Device {
public:
    /// Takes over the handle. Loads the camera's description, which takes some round trips.
    DeviceImp(std::shared_ptr<Interface> interface, DEV_HANDLE handle, OrvCam::DeviceDescription description);

    const OrvCam::DeviceDescription &GetDescription() const override { return m_description; }
    OrvCam::FeatureArray *GetCameraParameters(int index = 0) override;
    OrvCam::FeatureArray *GetInterfaceParameters() override;
    int FetchDescriptionXml(std::string *xml) override;
    unsigned int GetStreamCount() override;
    OrvCam::Stream *GetStreamByIndex(unsigned int index) override EXCLUDES(m_streamsMutex);
    int RegisterEvent(int eventType, OrvCam::EventCallback callback, void *context) override EXCLUDES(m_eventsMutex);
    int UnregisterEvent(int eventType, OrvCam::EventCallback callback, void *context) override EXCLUDES(m_eventsMutex);
    int SaveFeatures(const char *path) override;
    int LoadFeatures(const char *path) override EXCLUDES(m_streamsMutex);
    void Release() override { delete this; }

private:
    struct Registration {
        OrvCam::EventCallback callback = nullptr;
        void *context = nullptr;
        std::unique_ptr<EventThread> thread;
    };

    ~DeviceImp();
    void LoadDescription();
    void WatchForLoss();
    void OnLost(const std::string &reason) EXCLUDES(m_streamsMutex);
    bool IsStreaming() EXCLUDES(m_streamsMutex);

    const std::shared_ptr<Interface> m_interface;
    const gentl::Functions &m_calls;
    const DEV_HANDLE m_handle;
    OrvCam::DeviceDescription m_description;
    LossFlag m_lost;
    std::unique_ptr<DevicePort> m_port;
    std::unique_ptr<FeatureArrayImp> m_features;

    Mutex m_streamsMutex;
    std::vector<std::unique_ptr<StreamImp>> m_streams GUARDED_BY(m_streamsMutex);

    Mutex m_eventsMutex;
    std::map<int, Registration> m_events GUARDED_BY(m_eventsMutex);
    std::vector<std::unique_ptr<EventThread>> m_endedEvents GUARDED_BY(m_eventsMutex); ///< ended by their own handler

    std::unique_ptr<LostNotice> m_lostNotice; ///< null when the producer cannot tell
    std::unique_ptr<EventThread> m_lostWatch;
};

} // namespace orv::cam
