#include "orvcam/LossWatch.h"

#include "orvcam/OrvStatus.h"

namespace orv::cam {

namespace {

constexpr auto kProbePeriod = std::chrono::seconds(1);

} // namespace

LossWatch::LossWatch(std::function<void(const std::string &)> onFound)
    : m_onFound(std::move(onFound)), m_thread([this] { Run(); })
{
}

LossWatch::~LossWatch()
{
    Stop();
}

void LossWatch::Stop()
{
    {
        MutexLock lock(m_mutex);
        m_stop = true;
    }
    m_changed.NotifyAll();
    if (m_thread.joinable())
        m_thread.join();
}

void LossWatch::StartAsking(std::function<Answer()> probe, bool silenceCounts)
{
    MutexLock lock(m_mutex);
    m_silenceCounts = silenceCounts;
    m_probe = std::move(probe);
    m_nextProbe = Clock::now();
    m_changed.NotifyAll();
}

void LossWatch::AskNow()
{
    MutexLock lock(m_mutex);
    // A silent camera gets its second chance in its own time.
    if (m_silences == 0)
        m_nextProbe = Clock::now();
    m_changed.NotifyAll();
}

void LossWatch::Report(const std::string &reason)
{
    MutexLock lock(m_mutex);
    if (m_lost)
        return;
    m_lost = true;
    m_reason = reason;
    m_changed.NotifyAll();
}

int LossWatch::Set(OrvCam::EventCallback callback, void *context)
{
    if (callback == nullptr)
        return ORV_CAM_ERR_INVALID_PARAMETER;
    MutexLock lock(m_mutex);
    if (m_callback != nullptr)
        return ORV_CAM_ERR_INVALID_STATE;
    m_callback = callback;
    m_context = context;
    m_told = false;
    m_changed.NotifyAll();
    return ORV_CAM_OK;
}

int LossWatch::Clear(OrvCam::EventCallback callback, void *context)
{
    MutexLock lock(m_mutex);
    if (m_callback == nullptr || m_callback != callback || m_context != context)
        return ORV_CAM_ERR_INVALID_PARAMETER;
    m_callback = nullptr;
    while (m_running && std::this_thread::get_id() != m_thread.get_id())
        m_changed.Wait(m_mutex);
    return ORV_CAM_OK;
}

bool LossWatch::HasTold()
{
    MutexLock lock(m_mutex);
    return m_callback != nullptr && m_told;
}

void LossWatch::Run()
{
    MutexLock lock(m_mutex);
    while (!m_stop) {
        const bool mayAsk = m_probe && !m_lost;
        if (m_lost && m_callback != nullptr && !m_told) {
            lock.Unlock();
            Tell();
            lock.Lock();
        } else if (mayAsk && Clock::now() >= m_nextProbe) {
            lock.Unlock();
            Ask();
            lock.Lock();
        } else if (mayAsk) {
            m_changed.WaitUntil(m_mutex, m_nextProbe);
        } else {
            m_changed.Wait(m_mutex);
        }
    }
}

void LossWatch::Ask()
{
    std::function<Answer()> probe;
    {
        MutexLock lock(m_mutex);
        probe = m_probe;
    }
    const Answer answer = probe();
    bool isLost = answer == Answer::Gone;
    {
        MutexLock lock(m_mutex);
        m_silences = answer == Answer::Silent && m_silenceCounts ? m_silences + 1 : 0;
        isLost = isLost || m_silences > 1;
        m_nextProbe = Clock::now() + kProbePeriod;
    }
    if (isLost)
        m_onFound(answer == Answer::Gone ? "the camera is not there any more" : "the camera does not answer any more");
}

void LossWatch::Tell()
{
    MutexLock lock(m_mutex);
    const OrvCam::EventCallback callback = m_callback;
    void *const context = m_context;
    const std::string reason = m_reason;
    if (callback == nullptr || m_told) // ended or replaced since
        return;
    m_told = true;
    m_running = true;
    lock.Unlock();
    callback(reason.c_str(), static_cast<unsigned long>(reason.size() + 1), context);
    lock.Lock();
    m_running = false;
    m_changed.NotifyAll();
}

} // namespace orv::cam
