#include "core/RunBeside.h"

#include <QCoreApplication>
#include <QCursor>
#include <QEventLoop>
#include <QGuiApplication>
#include <QThread>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace orv {
namespace {

// Healthy cameras answer well within this; no cursor flickers for them and no event is handled in between.
constexpr std::chrono::milliseconds kQuietWait{40};

int s_besideCount = 0; // GUI thread only

/// Tells the waiting thread that the work is done, by flag and by waking its event loop.
class Completion {
public:
    void Finish()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_done = true;
        m_condition.notify_all();
        // Under the lock: the loop cannot be taken away while its quit() is being posted.
        if (m_loop)
            QMetaObject::invokeMethod(m_loop, &QEventLoop::quit, Qt::QueuedConnection);
    }
    bool WaitQuietly()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_condition.wait_for(lock, kQuietWait, [this] { return m_done; });
    }
    /// False when the work is done already and the loop need not run.
    bool Attach(QEventLoop *loop)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_loop = loop;
        return !m_done;
    }
    void Wait()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_condition.wait(lock, [this] { return m_done; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_condition;
    bool m_done = false;
    QEventLoop *m_loop = nullptr;
};

void WaitInEventLoop(Completion &completion)
{
    const bool hasCursor = qobject_cast<QGuiApplication *>(QCoreApplication::instance()) != nullptr;
    if (hasCursor)
        QGuiApplication::setOverrideCursor(QCursor(Qt::WaitCursor));
    {
        QEventLoop loop;
        if (completion.Attach(&loop))
            loop.exec(QEventLoop::ExcludeUserInputEvents);
        completion.Attach(nullptr);
    }
    // A quitting application ends every event loop; the work still has to be waited for.
    completion.Wait();
    if (hasCursor)
        QGuiApplication::restoreOverrideCursor();
}

} // namespace

int BesideCount()
{
    return s_besideCount;
}

void WaitBeside(std::function<void()> work)
{
    const QCoreApplication *application = QCoreApplication::instance();
    if (!application || QThread::currentThread() != application->thread()) {
        work();
        return;
    }
    Completion completion;
    std::thread thread([&] {
        work();
        completion.Finish();
    });
    if (!completion.WaitQuietly()) {
        ++s_besideCount;
        WaitInEventLoop(completion);
        --s_besideCount;
    }
    thread.join();
}

} // namespace orv
