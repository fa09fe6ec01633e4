#pragma once

#include "base/Mutex.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

/// A worker with one thread of its own, which waits parked until it is started and then calls Work() again and again.
///
/// Parked -> Start() -> running -> Stop() -> parked, any number of times on the same thread; Terminate() ends it from
/// either state. The thread exists from construction on, but nothing of a subclass runs before Start().
///
/// Threads: Start(), Stop() and Terminate() from the owner's thread only, never from within Work(). Work() runs on the
/// worker's thread.
///
/// Ending: a subclass must be ended while it is still whole, because Work() and its Stop() use its members. So every
/// subclass whose Work() may be running calls Terminate() first thing in its own destructor; called again by the base
/// destructor it does nothing. A parked worker needs no such care.
///
/// Overriding Stop(): a subclass whose Work() can block wakes it between the two halves of stopping:
///
///     if (!IsStarted()) { ... return false; }
///     RequestPark();      // clears m_bStart: Work() is not called again
///     ...                 // wake a Work() in progress
///     WaitUntilParked();  // or its own loop over m_stoppedCondition and ConsumeStopped()
///     return true;
class WorkingThread {
public:
    WorkingThread() : WorkingThread("Nameless") {}
    explicit WorkingThread(const std::string &name);
    virtual ~WorkingThread();
    WorkingThread(const WorkingThread &) = delete;
    WorkingThread &operator=(const WorkingThread &) = delete;

    /// Lets the thread loop over Work(); does not wait until it does. False, and logged, when it is started already or
    /// terminated.
    bool Start() EXCLUDES(m_startMutex);
    /// Returns once the Work() in progress is done and the thread is parked again. False, and logged, when it was not
    /// started.
    virtual bool Stop() EXCLUDES(m_startMutex, m_stoppedMutex);
    /// Stops the worker if it is started, through the virtual Stop(), and joins its thread. Idempotent.
    void Terminate() EXCLUDES(m_startMutex, m_stoppedMutex);

    /// One unit of the job: one buffer, one frame. Returns within bounded time, or is woken by the subclass's Stop().
    /// An exception is logged and the loop goes on with the next unit.
    virtual void Work() = 0;

    bool IsStarted() const { return m_bStart; }
    const std::string &GetName() const { return m_name; }

protected:
    /// First half of stopping: clears the start flag and tells the thread.
    void RequestPark() EXCLUDES(m_startMutex);
    /// Second half: blocks until the thread has left its loop.
    void WaitUntilParked() EXCLUDES(m_stoppedMutex);
    /// Whether the thread has left the loop of the last Start(). True once for each.
    bool ConsumeStopped() REQUIRES(m_stoppedMutex);

    // The two mutexes are never held together.

    orv::ConditionVariable m_startCondition; ///< the start flag changed
    orv::Mutex m_startMutex;
    /// Written under the start mutex; read without it between calls of Work(). Work() may clear it to park itself.
    std::atomic<bool> m_bStart{false};

    orv::ConditionVariable m_stoppedCondition; ///< the thread left its loop
    orv::Mutex m_stoppedMutex;

private:
    /// Runs are numbered, so that a start or a report of an earlier run is never taken for that of the present one: a
    /// Stop() may come before the thread has seen the Start(), and a worker that parked itself reports unasked.
    using Run = std::uint64_t;

    void DoWork() EXCLUDES(m_startMutex, m_stoppedMutex); // body of the thread
    Run WaitForStart(Run lastRun) EXCLUDES(m_startMutex);
    void WorkOnce();
    void ReportStopped(Run run) EXCLUDES(m_stoppedMutex);

    std::atomic<Run> m_startedRun{0};                ///< counts the starts; written by the owner under the start mutex
    Run m_stoppedRun GUARDED_BY(m_stoppedMutex) = 0; ///< last run that ended; 0 when that was consumed
    std::atomic<bool> m_bTerminate{false};
    std::string m_name;
    std::unique_ptr<std::thread> m_thread; // last: it uses all of the above
};
