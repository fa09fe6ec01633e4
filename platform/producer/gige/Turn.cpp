#include "producer/gige/Turn.h"

namespace nuvark::gige {

void Turn::Take(Rank rank)
{
    const orv::MutexLock lock(m_mutex);
    const bool isUrgent = rank == Rank::Urgent;
    m_urgent += isUrgent ? 1 : 0;
    while (m_isTaken || (!isUrgent && m_urgent > 0))
        m_free.Wait(m_mutex);
    m_urgent -= isUrgent ? 1 : 0;
    m_isTaken = true;
}

bool Turn::TakeUntil(std::chrono::steady_clock::time_point deadline)
{
    const orv::MutexLock lock(m_mutex);
    ++m_urgent;
    while (m_isTaken && m_free.WaitUntil(m_mutex, deadline) != std::cv_status::timeout) {
    }
    --m_urgent;
    if (m_isTaken) {
        m_free.NotifyAll(); // those that let this one go first
        return false;
    }
    m_isTaken = true;
    return true;
}

bool Turn::TakeAtOnce()
{
    const orv::MutexLock lock(m_mutex);
    if (m_isTaken || m_urgent > 0)
        return false;
    m_isTaken = true;
    return true;
}

void Turn::GiveBack()
{
    const orv::MutexLock lock(m_mutex);
    m_isTaken = false;
    m_free.NotifyAll();
}

} // namespace nuvark::gige
