#include "core/WorkingThread.h"

#include "core/DiagnosticLog.h"

#include <chrono>
#include <exception>
#include <pthread.h>

namespace {

/// Keeps a worker whose every unit fails from spinning and from flooding the log.
constexpr std::chrono::milliseconds kPauseAfterFailure{10};

void NameThisThread(const std::string &name)
{
    constexpr std::size_t kKernelLimit = 15; // characters
    pthread_setname_np(pthread_self(), name.substr(0, kKernelLimit).c_str());
}

} // namespace

WorkingThread::WorkingThread(const std::string &name) : m_name(name)
{
    m_thread = std::make_unique<std::thread>(&WorkingThread::DoWork, this);
}

WorkingThread::~WorkingThread()
{
    Terminate();
}

bool WorkingThread::Start()
{
    if (m_bStart) {
        OrvLog4Cpp_Error(kLogCategory, 0, "WorkingThread::Start: Invalid state: m_bStart==true");
        return false;
    }
    if (!m_thread->joinable()) {
        OrvLog4Cpp_Error(kLogCategory, 0, "WorkingThread::Start: Invalid state: terminated");
        return false;
    }
    {
        const orv::MutexLock lock(m_startMutex);
        m_bStart = true;
        ++m_startedRun;
    }
    m_startCondition.NotifyAll();
    return true;
}

bool WorkingThread::Stop()
{
    if (!m_bStart) {
        OrvLog4Cpp_Error(kLogCategory, 0, "WorkingThread::Start: Invalid state: m_bStart==false");
        return false;
    }
    RequestPark();
    WaitUntilParked();
    return true;
}

void WorkingThread::Terminate()
{
    if (!m_thread->joinable())
        return;
    m_bTerminate = true;
    if (m_bStart)
        Stop();
    else
        Start(); // wakes the parked thread, which then finds the terminate flag
    m_thread->join();
    m_bStart = false;
}

void WorkingThread::RequestPark()
{
    {
        const orv::MutexLock lock(m_startMutex);
        m_bStart = false;
    }
    m_startCondition.NotifyAll();
}

void WorkingThread::WaitUntilParked()
{
    const orv::MutexLock lock(m_stoppedMutex);
    while (!ConsumeStopped())
        m_stoppedCondition.Wait(m_stoppedMutex);
}

bool WorkingThread::ConsumeStopped()
{
    if (m_stoppedRun != m_startedRun)
        return false;
    m_stoppedRun = 0;
    return true;
}

void WorkingThread::DoWork()
{
    NameThisThread(m_name);
    Run run = 0;
    for (;;) {
        run = WaitForStart(run);
        while (!m_bTerminate && m_bStart)
            WorkOnce();
        // Read before the report: what is set after it belongs to the next pass.
        const bool isLastPass = m_bTerminate;
        ReportStopped(run);
        if (isLastPass)
            return;
    }
}

WorkingThread::Run WorkingThread::WaitForStart(Run lastRun)
{
    const orv::MutexLock lock(m_startMutex);
    while (m_startedRun == lastRun)
        m_startCondition.Wait(m_startMutex);
    return m_startedRun;
}

void WorkingThread::WorkOnce()
{
    try {
        Work();
        return;
    } catch (const std::exception &error) {
        LogFormatted(LogLevel::Error, 0, "WorkingThread::DoWork: %s: Work() failed: %s", m_name.c_str(), error.what());
    } catch (...) {
        LogFormatted(LogLevel::Error, 0, "WorkingThread::DoWork: %s: Work() failed", m_name.c_str());
    }
    std::this_thread::sleep_for(kPauseAfterFailure);
}

void WorkingThread::ReportStopped(Run run)
{
    {
        const orv::MutexLock lock(m_stoppedMutex);
        m_stoppedRun = run;
    }
    m_stoppedCondition.NotifyAll();
}
