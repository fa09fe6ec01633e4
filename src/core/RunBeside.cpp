#include "core/RunBeside.h"

#include "base/Mutex.h"
#include "core/DiagnosticLog.h"
#include "core/WaitCursor.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QGuiApplication>
#include <QThread>

#include <algorithm>
#include <chrono>
#include <optional>
#include <system_error>
#include <thread>

namespace orv {
namespace {

using Clock = std::chrono::steady_clock;

// Healthy cameras answer well within this; no cursor flickers for them and no event is handled in between. All waits of
// one turn of the event loop share it, so that a row of commands cannot add up to a freeze.
constexpr std::chrono::milliseconds kQuietBudget{40};

// GUI thread only.
int s_besideCount = 0;
Clock::duration s_quietLeft = kQuietBudget;
bool s_refillPosted = false;

/// Fills the budget up again as soon as the event loop turns.
void RefillLater()
{
    if (s_refillPosted)
        return;
    s_refillPosted = true;
    QMetaObject::invokeMethod(
        QCoreApplication::instance(),
        [] {
            s_quietLeft = kQuietBudget;
            s_refillPosted = false;
        },
        Qt::QueuedConnection);
}

/// Tells the waiting thread that the work is done, by flag and by waking its event loop.
class Completion {
public:
    void Finish() EXCLUDES(m_mutex)
    {
        const MutexLock lock(m_mutex);
        m_done = true;
        m_condition.NotifyAll();
        // Under the lock: the loop cannot be taken away while its quit() is being posted.
        if (m_loop)
            QMetaObject::invokeMethod(m_loop, &QEventLoop::quit, Qt::QueuedConnection);
    }
    bool WaitUntil(Clock::time_point deadline) EXCLUDES(m_mutex)
    {
        const MutexLock lock(m_mutex);
        while (!m_done && m_condition.WaitUntil(m_mutex, deadline) == std::cv_status::no_timeout) {
        }
        return m_done;
    }
    /// False when the work is done already and the loop need not run.
    bool Attach(QEventLoop *loop) EXCLUDES(m_mutex)
    {
        const MutexLock lock(m_mutex);
        m_loop = loop;
        return !m_done;
    }
    void Wait() EXCLUDES(m_mutex)
    {
        const MutexLock lock(m_mutex);
        while (!m_done)
            m_condition.Wait(m_mutex);
    }

private:
    Mutex m_mutex;
    ConditionVariable m_condition;
    bool m_done GUARDED_BY(m_mutex) = false;
    QEventLoop *m_loop GUARDED_BY(m_mutex) = nullptr;
};

bool WaitQuietly(Completion &completion)
{
    RefillLater();
    const Clock::time_point start = Clock::now();
    const bool done = completion.WaitUntil(start + s_quietLeft);
    s_quietLeft = std::max(Clock::duration::zero(), s_quietLeft - (Clock::now() - start));
    return done;
}

void WaitInEventLoop(Completion &completion)
{
    std::optional<WaitCursor> cursor;
    if (qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        cursor.emplace();
    {
        QEventLoop loop;
        if (completion.Attach(&loop))
            loop.exec(QEventLoop::ExcludeUserInputEvents);
        completion.Attach(nullptr);
    }
    // A quitting application ends every event loop; the work still has to be waited for.
    completion.Wait();
}

} // namespace

int BesideCount()
{
    return s_besideCount;
}

void detail::WaitBeside(const std::function<void()> &work)
{
    const QCoreApplication *application = QCoreApplication::instance();
    if (!application || QThread::currentThread() != application->thread()) {
        work();
        return;
    }
    Completion completion;
    std::thread thread;
    try {
        thread = std::thread([&] {
            work();
            completion.Finish();
        });
    } catch (const std::system_error &error) {
        // A window that stands still for a while is better than a camera that is not stopped.
        LogFormatted(LogLevel::Warning, LogCode(error.code().value()), "WaitBeside: no thread left, waiting in place");
        work();
        return;
    }
    if (!WaitQuietly(completion)) {
        ++s_besideCount;
        WaitInEventLoop(completion);
        --s_besideCount;
    }
    thread.join();
}

} // namespace orv
