#include "orvcam/LostNotice.h"

#include "orvcam/OrvStatus.h"

namespace orv::cam {

LostNotice::LostNotice() : m_thread([this] { Run(); }) {}

LostNotice::~LostNotice()
{
    {
        MutexLock lock(m_mutex);
        m_stop = true;
    }
    m_changed.NotifyAll();
    m_thread.join();
}

void LostNotice::Report(const std::string &reason)
{
    MutexLock lock(m_mutex);
    if (m_lost)
        return;
    m_lost = true;
    m_reason = reason;
    m_changed.NotifyAll();
}

int LostNotice::Set(OrvCam::EventCallback callback, void *context)
{
    if (callback == nullptr)
        return ORV_CAM_ERR_INVALID_PARAMETER;
    MutexLock lock(m_mutex);
    if (m_callback != nullptr)
        return ORV_CAM_ERR_INVALID_STATE;
    m_callback = callback;
    m_context = context;
    m_changed.NotifyAll();
    return ORV_CAM_OK;
}

int LostNotice::Clear(OrvCam::EventCallback callback, void *context)
{
    MutexLock lock(m_mutex);
    if (m_callback == nullptr || m_callback != callback || m_context != context)
        return ORV_CAM_ERR_INVALID_PARAMETER;
    m_callback = nullptr;
    while (m_running && std::this_thread::get_id() != m_thread.get_id())
        m_changed.Wait(m_mutex);
    return ORV_CAM_OK;
}

void LostNotice::Run()
{
    MutexLock lock(m_mutex);
    while (!m_stop && !(m_lost && m_callback != nullptr))
        m_changed.Wait(m_mutex);
    if (m_stop)
        return;
    const OrvCam::EventCallback callback = m_callback;
    void *const context = m_context;
    const std::string reason = m_reason;
    m_running = true;
    lock.Unlock();
    callback(reason.c_str(), static_cast<unsigned long>(reason.size() + 1), context);
    lock.Lock();
    m_running = false;
    m_changed.NotifyAll();
}

} // namespace orv::cam
