#pragma once

#include <condition_variable>
#include <mutex>

/// Mutex, scoped lock and condition variable that clang's -Wthread-safety can follow.
///
/// Write beside each guarded member which mutex guards it (GUARDED_BY) and on each function what it needs
/// (REQUIRES, EXCLUDES). Under other compilers the annotations vanish and the types are plain std::mutex.
#if defined(__clang__)
#define ORV_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define ORV_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(x) ORV_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY ORV_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) ORV_THREAD_ANNOTATION(guarded_by(x))
#define PT_GUARDED_BY(x) ORV_THREAD_ANNOTATION(pt_guarded_by(x))
#define ACQUIRED_BEFORE(...) ORV_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
#define REQUIRES(...) ORV_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) ORV_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) ORV_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) ORV_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define EXCLUDES(...) ORV_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS ORV_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace orv {

class CAPABILITY("mutex") Mutex {
public:
    void lock() ACQUIRE() { m_mutex.lock(); }
    void unlock() RELEASE() { m_mutex.unlock(); }
    bool try_lock() TRY_ACQUIRE(true) { return m_mutex.try_lock(); }

private:
    std::mutex m_mutex;
};

/// Holds a Mutex for a scope; can be given up and retaken inside it.
class SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(Mutex &mutex) ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.lock(); }
    ~MutexLock() RELEASE()
    {
        if (m_held)
            m_mutex.unlock();
    }
    MutexLock(const MutexLock &) = delete;
    MutexLock &operator=(const MutexLock &) = delete;

    void Unlock() RELEASE()
    {
        m_mutex.unlock();
        m_held = false;
    }
    void Lock() ACQUIRE()
    {
        m_mutex.lock();
        m_held = true;
    }

private:
    Mutex &m_mutex;
    bool m_held = true;
};

/// Condition variable over Mutex. Write the condition as a loop around Wait(): the analysis cannot see into predicates.
class ConditionVariable {
public:
    void Wait(Mutex &mutex) REQUIRES(mutex) { m_condition.wait(mutex); }

    /// \param deadline  a copy: the library looks at it again after it has let go of the mutex that may guard it.
    template <class Clock, class Duration>
    std::cv_status WaitUntil(Mutex &mutex, std::chrono::time_point<Clock, Duration> deadline) REQUIRES(mutex)
    {
        return m_condition.wait_until(mutex, deadline);
    }

    void NotifyOne() { m_condition.notify_one(); }
    void NotifyAll() { m_condition.notify_all(); }

private:
    std::condition_variable_any m_condition;
};

} // namespace orv
