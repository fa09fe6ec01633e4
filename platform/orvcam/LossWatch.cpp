#include "orvcam/LossWatch.h"

#include "orvcam/OrvStatus.h"

#include <algorithm>

namespace orv::cam {

namespace {

constexpr std::chrono::milliseconds kProbePeriod{1000};
constexpr std::chrono::milliseconds kAwaitedPeriod{100};   ///< while somebody else waits for an answer
constexpr std::chrono::milliseconds kLongestSilence{3000}; ///< the heartbeat's time-out that cameras begin with

} // namespace

LossWatch::LossWatch(Contact &contact, std::function<void(const std::string &)> onFound)
    : m_contact(contact), m_onFound(std::move(onFound)), m_thread([this] { Run(); })
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
    m_contact.NoteAnswer(); // silence begins now at the earliest
    MutexLock lock(m_mutex);
    m_silenceCounts = silenceCounts;
    m_probe = std::move(probe);
    m_nextProbe = Clock::now();
    m_changed.NotifyAll();
}

void LossWatch::AskNow()
{
    MutexLock lock(m_mutex);
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
    if (IsLoss(answer))
        m_onFound(answer == Answer::Gone ? "the camera is not there any more" : "the camera does not answer any more");
}

bool LossWatch::IsLoss(Answer answer)
{
    const Clock::time_point now = Clock::now();
    if (answer == Answer::There)
        m_contact.NoteAnswer();
    MutexLock lock(m_mutex);
    m_nextProbe = now + (answer == Answer::Awaited ? kAwaitedPeriod : kProbePeriod);
    if (answer == Answer::Awaited)
        return false;
    m_silences = answer == Answer::Silent && m_silenceCounts ? m_silences + 1 : 0;
    if (m_silences == 0)
        return answer == Answer::Gone;
    const Clock::time_point end = m_contact.LastAnswer() + kLongestSilence;
    m_nextProbe = std::min(m_nextProbe, std::max(end, now));
    return now >= end && m_silences > 1;
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
