#include "producer/gige/Heartbeat.h"

#include "producer/gige/Bootstrap.h"
#include "producer/gige/Text.h"
#include "producer/gige/ThreadPriority.h"

#include <algorithm>

namespace nuvark::gige {

namespace {

constexpr std::chrono::milliseconds kLongestPeriod{1000};
constexpr std::chrono::milliseconds kPeriodWhenSilent{50};
/// A beat may take so long with its waiting; what goes beyond is our own standing still.
constexpr std::chrono::milliseconds kLongestBeat{1000};
constexpr int kFewestUnanswered = 2;

} // namespace

Heartbeat::Heartbeat(GvcpClient &client, Settings settings, std::function<void(const std::string &)> onLost)
    : m_client(client), m_settings(settings), m_onLost(std::move(onLost)), m_timeout(settings.timeout)
{
}

void Heartbeat::Start()
{
    ScheduleNextBeat(true);
    m_thread = std::thread([this] { Run(); });
}

void Heartbeat::Stop()
{
    {
        const orv::MutexLock lock(m_mutex);
        m_stopping = true;
        m_changed.NotifyAll();
    }
    if (m_thread.joinable())
        m_thread.join();
}

void Heartbeat::SetTimeout(std::chrono::milliseconds timeout)
{
    const orv::MutexLock lock(m_mutex);
    m_timeout = timeout;
    m_nextBeat = std::min(m_nextBeat, Clock::now() + Period());
    m_changed.NotifyAll();
}

std::chrono::milliseconds Heartbeat::Period() const
{
    return std::min(kLongestPeriod, m_timeout / 3);
}

void Heartbeat::Defer(RegisterWrite write)
{
    const orv::MutexLock lock(m_mutex);
    EraseDeferred(write.address);
    m_deferred.push_back(write);
    m_changed.NotifyAll();
}

void Heartbeat::DropDeferred(std::uint32_t address)
{
    const orv::MutexLock lock(m_mutex);
    while (m_writingDeferred)
        m_changed.Wait(m_mutex);
    EraseDeferred(address);
}

void Heartbeat::EraseDeferred(std::uint32_t address)
{
    m_deferred.erase(std::remove_if(m_deferred.begin(), m_deferred.end(),
                                    [address](const RegisterWrite &write) { return write.address == address; }),
                     m_deferred.end());
}

bool Heartbeat::WaitForNextBeat()
{
    const orv::MutexLock lock(m_mutex);
    // Writes that wait are not for a silent camera: one try after the other would keep everybody else from the channel.
    while (!m_stopping && (m_deferred.empty() || !m_answered || !m_client.IsAnswering()) && Clock::now() < m_nextBeat)
        m_changed.WaitUntil(m_mutex, TimePoint(m_nextBeat));
    return !m_stopping;
}

void Heartbeat::ScheduleNextBeat(bool answered)
{
    const orv::MutexLock lock(m_mutex);
    m_answered = answered;
    m_nextBeat = Clock::now() + (answered ? Period() : kPeriodWhenSilent);
}

void Heartbeat::Run()
{
    RaiseThreadPriority(Urgency::Heartbeat);
    while (WaitForNextBeat()) {
        WriteDeferred();
        bool answered = false;
        const std::string reason = Beat(answered);
        if (!reason.empty()) {
            m_onLost(reason);
            return;
        }
        ScheduleNextBeat(answered);
    }
}

void Heartbeat::WriteDeferred()
{
    std::vector<RegisterWrite> writes;
    {
        const orv::MutexLock lock(m_mutex);
        writes.swap(m_deferred);
        m_writingDeferred = true;
    }
    for (const RegisterWrite &write : writes) {
        const Status status = m_client.WriteRegister(write.address, write.value, Effort::Once);
        if (status.Code() == GC_ERR_TIMEOUT)
            Defer(write);
    }
    const orv::MutexLock lock(m_mutex);
    m_writingDeferred = false;
    m_changed.NotifyAll();
}

std::string Heartbeat::Beat(bool &answered)
{
    std::uint32_t privilege = 0;
    const TimePoint before = m_client.LastAnswer();
    const Status status = m_client.ReadRegister(kRegControlPrivilege, privilege, Effort::Once);
    answered = m_client.LastAnswer() != before;
    if (status.Code() == GC_ERR_ABORT)
        return {};
    if (!answered)
        return JudgeSilence();
    m_unanswered = 0;
    if (m_settings.privilege == 0)
        return {};
    if (status.Code() == GC_ERR_ACCESS_DENIED)
        return "somebody else has taken exclusive control of the camera";
    if (!status.Ok())
        return {}; // an odd answer is an answer, and so is a late one
    if ((privilege & kPrivilegeMask) == 0)
        return JudgeWithdrawal(before);
    if ((privilege & kPrivilegeMask) != m_settings.privilege)
        return "somebody else has taken control of the camera";
    return CheckController();
}

std::string Heartbeat::JudgeSilence()
{
    const orv::MutexLock lock(m_mutex);
    const TimePoint now = Clock::now();
    if (m_unanswered == 0 || m_client.LastAnswer() > m_lastLook) {
        m_silence = {};
        m_unanswered = 0;
        m_lastLook = m_client.LastAnswer();
    }
    ++m_unanswered;
    m_silence += std::min<Clock::duration>(now - m_lastLook, Period() + kLongestBeat);
    m_lastLook = now;
    if (m_silence < m_timeout || m_unanswered < kFewestUnanswered)
        return {};
    const auto silence = std::chrono::duration_cast<std::chrono::milliseconds>(now - m_client.LastAnswer());
    return "the camera has not answered for " + std::to_string(silence.count()) + " ms";
}

std::string Heartbeat::JudgeWithdrawal(TimePoint heard)
{
    const std::string reason = "the camera has withdrawn control, its heartbeat time has run out";
    const auto silence = Clock::now() - heard;
    {
        const orv::MutexLock lock(m_mutex);
        if (silence < m_timeout || m_settings.regain == nullptr)
            return reason; // we had talked to it in time, so it has been switched off and on, or somebody took it
    }
    const std::string problem = m_settings.regain();
    return problem.empty() ? "" : reason + ": " + problem;
}

std::string Heartbeat::CheckController()
{
    std::uint32_t address = 0;
    std::uint32_t port = 0;
    if (!m_settings.watchController || !m_client.ReadRegister(kRegControllerAddress, address, Effort::Once).Ok() ||
        !m_client.ReadRegister(kRegControllerPort, port, Effort::Once).Ok())
        return {};
    if (address == m_settings.controllerAddress && port == m_settings.controllerPort)
        return {};
    return AddressText(address) + " has taken control of the camera";
}

} // namespace nuvark::gige
