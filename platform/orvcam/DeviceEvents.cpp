#include "orvcam/DeviceEvents.h"

#include "orvcam/OrvStatus.h"

#include <utility>

namespace orv::cam {

DeviceEvents::DeviceEvents(const gentl::Functions &calls, EVENTSRC_HANDLE module, bool isOurs, std::string camera)
    : m_calls(calls), m_module(module), m_isOurs(isOurs), m_camera(std::move(camera))
{
}

DeviceEvents::~DeviceEvents()
{
    Entries entries;
    {
        MutexLock lock(m_mutex);
        entries.swap(m_entries);
    }
    for (auto &[type, entry] : entries) {
        if (entry.thread)
            entry.thread->Stop();
    }
    Reap();
}

void DeviceEvents::Reap()
{
    std::vector<std::shared_ptr<EventThread>> ended; // joined without the lock: their last call may need it
    MutexLock lock(m_mutex);
    ended.swap(m_ended);
}

/// Takes the place of the type for the caller.
int DeviceEvents::Begin(int type, OrvCam::EventCallback callback, void *context)
{
    MutexLock lock(m_mutex);
    for (;;) {
        const auto entry = m_entries.find(type);
        if (entry == m_entries.end())
            break;
        const bool isEnding = entry->second.phase == Phase::Ending;
        if (!isEnding || entry->second.thread->IsThisThread())
            return ORV_CAM_ERR_INVALID_STATE;
        m_changed.Wait(m_mutex);
    }
    m_entries[type] = {Phase::Starting, callback, context, nullptr};
    return ORV_CAM_OK;
}

void DeviceEvents::Remove(int type)
{
    MutexLock lock(m_mutex);
    m_entries.erase(type);
    m_changed.NotifyAll();
}

int DeviceEvents::Register(int type, OrvCam::EventCallback callback, void *context)
{
    int status = Begin(type, callback, context);
    if (status != ORV_CAM_OK)
        return status;
    Reap();
    EventThread::Handlers handlers;
    handlers.onData = [callback, context](const void *data, std::size_t bytes) {
        callback(data, static_cast<unsigned long>(bytes), context);
    };
    handlers.onEnd = [this, type](bool failed) {
        if (failed)
            return; // stays registered until its user ends it
        MutexLock lock(m_mutex);
        const auto entry = m_entries.find(type);
        if (entry == m_entries.end())
            return;
        m_ended.push_back(std::move(entry->second.thread));
        m_entries.erase(entry);
        m_changed.NotifyAll();
    };
    std::unique_ptr<EventThread> thread;
    status = EventThread::Start(m_calls, m_module, type, m_camera, std::move(handlers), &thread);
    if (status != ORV_CAM_OK) {
        Remove(type);
        return status;
    }
    MutexLock lock(m_mutex);
    Entry &entry = m_entries[type];
    entry.thread = std::move(thread);
    entry.phase = Phase::Active;
    m_changed.NotifyAll();
    return ORV_CAM_OK;
}

int DeviceEvents::Unregister(int type, OrvCam::EventCallback callback, void *context)
{
    std::shared_ptr<EventThread> thread;
    {
        MutexLock lock(m_mutex);
        auto entry = m_entries.find(type);
        const auto isChanging = [&] {
            const bool isEnding = entry->second.phase == Phase::Ending && !entry->second.thread->IsThisThread();
            return entry->second.phase == Phase::Starting || isEnding; // by another: the callback may still run
        };
        while (entry != m_entries.end() && isChanging()) {
            m_changed.Wait(m_mutex);
            entry = m_entries.find(type);
        }
        if (entry == m_entries.end() || entry->second.phase != Phase::Active || entry->second.callback != callback ||
            entry->second.context != context)
            return ORV_CAM_ERR_INVALID_PARAMETER;
        entry->second.phase = Phase::Ending;
        thread = entry->second.thread;
        if (thread->IsThisThread()) {
            thread->StopFromHandler(); // the rest when its handler is through
            return ORV_CAM_OK;
        }
    }
    thread->Stop(); // without the lock: the callback that it waits for may need it
    Remove(type);
    Reap();
    return ORV_CAM_OK;
}

OrvCam::EventFigures DeviceEvents::Figures(int type)
{
    std::shared_ptr<EventThread> thread;
    {
        MutexLock lock(m_mutex);
        const auto entry = m_entries.find(type);
        if (entry == m_entries.end() || entry->second.phase != Phase::Active)
            return {};
        thread = entry->second.thread;
    }
    return thread->Figures(m_isOurs);
}

} // namespace orv::cam
