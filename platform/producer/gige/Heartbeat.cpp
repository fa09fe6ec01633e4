#include "producer/gige/Heartbeat.h"

#include "producer/gige/Bootstrap.h"
#include "producer/gige/Text.h"
#include "producer/gige/ThreadPriority.h"

#include <algorithm>

namespace nuvark::gige {

namespace {

constexpr std::chrono::milliseconds kLongestPeriod{1000};
constexpr std::chrono::milliseconds kPeriodWhenSilent{50};
constexpr std::chrono::milliseconds kLongestMargin{500};

/// Silence of the camera after which it is lost.
std::chrono::milliseconds SilenceLimit(std::chrono::milliseconds timeout)
{
    return timeout - std::min(kLongestMargin, timeout / 6);
}

} // namespace

Heartbeat::Heartbeat(GvcpClient &client, Settings settings, std::function<void(const std::string &)> onLost)
    : m_client(client), m_settings(settings), m_onLost(std::move(onLost)), m_timeout(settings.timeout)
{
    m_client.SetSilenceLimit(SilenceLimit(settings.timeout));
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
    m_client.SetSilenceLimit(SilenceLimit(timeout));
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
    m_hasNewDeferred = true;
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
    // Nothing for a camera that is silent or busy: one try after the other would keep everybody else from the channel.
    while (!m_stopping && !(m_hasNewDeferred && m_answered && m_client.IsAnswering()) && Clock::now() < m_nextBeat)
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
        m_hasNewDeferred = false;
        m_writingDeferred = true;
    }
    std::vector<RegisterWrite> failed;
    for (const RegisterWrite &write : writes) {
        const Status status = m_client.WriteRegister(write.address, write.value, Effort::Beat);
        if (status.Code() == GC_ERR_TIMEOUT || status.Code() == GC_ERR_BUSY)
            failed.push_back(write);
    }
    const orv::MutexLock lock(m_mutex);
    for (const RegisterWrite &write : failed)
        PutBack(write);
    m_writingDeferred = false;
    m_changed.NotifyAll();
}

void Heartbeat::PutBack(const RegisterWrite &write)
{
    const bool isReplaced = std::any_of(m_deferred.begin(), m_deferred.end(),
                                        [&](const RegisterWrite &later) { return later.address == write.address; });
    if (!isReplaced)
        m_deferred.push_back(write);
}

Status Heartbeat::ReadState(std::vector<std::uint32_t> &values)
{
    std::vector<std::uint32_t> addresses = {kRegControlPrivilege};
    if (m_settings.watchController)
        addresses.insert(addresses.end(), {kRegControllerAddress, kRegControllerPort});
    if (m_settings.concatenates) {
        Status status = m_client.ReadRegisters(addresses, values, Effort::Beat);
        if (status.Ok() || status.Code() == GC_ERR_TIMEOUT || status.Code() == GC_ERR_BUSY)
            return status;
    }
    for (std::uint32_t address : addresses) {
        std::uint32_t value = 0;
        Status status = m_client.ReadRegister(address, value, Effort::Beat);
        if (!status.Ok())
            return status;
        values.push_back(value);
    }
    return {};
}

std::string Heartbeat::Beat(bool &answered)
{
    std::vector<std::uint32_t> values;
    const TimePoint before = m_client.LastAnswer();
    const Status status = ReadState(values);
    answered = m_client.LastAnswer() != before;
    if (status.Code() == GC_ERR_ABORT)
        return {};
    if (!answered)
        return JudgeSilence();
    if (m_settings.privilege == 0)
        return {};
    if (values.empty()) { // an odd answer is an answer, and so is a late one
        const bool isDenied = status.Code() == GC_ERR_ACCESS_DENIED;
        return isDenied ? "somebody else has taken exclusive control of the camera" : "";
    }
    const std::uint32_t privilege = values[0] & kPrivilegeMask;
    if (privilege == 0)
        return JudgeWithdrawal();
    if (privilege != m_settings.privilege)
        return "somebody else has taken control of the camera";
    m_client.ForgetGaps();
    return values.size() == 3 ? CheckController(values[1], values[2]) : "";
}

std::string Heartbeat::JudgeSilence()
{
    const orv::MutexLock lock(m_mutex);
    const auto silence = Clock::now() - m_client.LastAnswer();
    if (silence < SilenceLimit(m_timeout) || m_client.AskedInVain() < m_timeout / 2)
        return {};
    return "the camera has not answered for " +
           std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(silence).count()) + " ms";
}

std::string Heartbeat::JudgeWithdrawal()
{
    const std::string reason = "the camera has withdrawn control, its heartbeat time has run out";
    {
        const orv::MutexLock lock(m_mutex);
        if (m_client.LongestGap() < m_timeout || m_settings.regain == nullptr)
            return reason; // we had talked to it in time, so it has been switched off and on, or somebody took it
    }
    m_client.ForgetGaps();
    const std::string problem = m_settings.regain();
    return problem.empty() ? "" : reason + ": " + problem;
}

std::string Heartbeat::CheckController(std::uint32_t address, std::uint32_t port) const
{
    if (address == m_settings.controllerAddress && port == m_settings.controllerPort)
        return {};
    return AddressText(address) + " has taken control of the camera";
}

} // namespace nuvark::gige
