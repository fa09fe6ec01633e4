#pragma once

#include "base/Mutex.h"
#include "orvcam/EventThread.h"
#include "orvcam/OrvCam.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace orv::cam {

/// The registered events of one device, one callback each.
///
/// Threads: any. The lock is for bookkeeping; none is held while the producer registers an event, a callback runs or a
/// thread is waited for. The destructor is no callback's.
class DeviceEvents {
public:
    DeviceEvents(const gentl::Functions &calls, EVENTSRC_HANDLE module, bool isOurs, std::string camera);
    ~DeviceEvents();
    DeviceEvents(const DeviceEvents &) = delete;
    DeviceEvents &operator=(const DeviceEvents &) = delete;

    /// See OrvCam::Device. Both wait for another thread that is just registering or ending the same type.
    int Register(int type, OrvCam::EventCallback callback, void *context) EXCLUDES(m_mutex);
    int Unregister(int type, OrvCam::EventCallback callback, void *context) EXCLUDES(m_mutex);
    OrvCam::EventFigures Figures(int type) EXCLUDES(m_mutex);

private:
    enum class Phase { Starting, Active, Ending };
    struct Entry {
        Phase phase = Phase::Starting;
        OrvCam::EventCallback callback = nullptr;
        void *context = nullptr;
        std::shared_ptr<EventThread> thread; ///< from Active on
    };
    using Entries = std::map<int, Entry>;

    int Begin(int type, OrvCam::EventCallback callback, void *context) EXCLUDES(m_mutex);
    void Remove(int type) EXCLUDES(m_mutex);
    /// Joins the threads that have ended by themselves.
    void Reap() EXCLUDES(m_mutex);

    const gentl::Functions &m_calls;
    const EVENTSRC_HANDLE m_module;
    const bool m_isOurs;
    const std::string m_camera;
    Mutex m_mutex;
    ConditionVariable m_changed;
    Entries m_entries GUARDED_BY(m_mutex);
    std::vector<std::shared_ptr<EventThread>> m_ended GUARDED_BY(m_mutex);
};

} // namespace orv::cam
