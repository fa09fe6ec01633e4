#pragma once

#include <functional>
#include <future>
#include <memory>
#include <type_traits>
#include <utility>

namespace orv {

/// Runs slow work (a camera command, opening a device) on a helper thread and waits for it without freezing the window.
///
/// On the GUI thread: work that is done within a few milliseconds costs just that. Otherwise the wait cursor is shown
/// and the event loop goes on painting, ticking timers and delivering queued calls; mouse and keyboard wait until the
/// work is done. The caller must therefore be ready for queued slots to run while it waits, above all for being told to
/// go away: see BesideCount(). On any other thread, without an application object,
/// or when the system has no thread left, the work simply runs in place.
void WaitBeside(std::function<void()> work);

/// How many waits are under way on the GUI thread. An object that must not be destroyed under a waiting caller is
/// destroyed only when this is 0. GUI thread.
int BesideCount();

namespace detail {
/// The waiting itself; the work must not throw.
void WaitBeside(const std::function<void()> &work);
} // namespace detail

// An exception of the work reaches the caller.
template <class Work> auto RunBeside(Work &&work) -> std::invoke_result_t<Work>
{
    using Result = std::invoke_result_t<Work>;
    std::packaged_task<Result()> task(std::forward<Work>(work));
    std::future<Result> result = task.get_future();
    detail::WaitBeside([&task] { task(); });
    return result.get();
}

} // namespace orv
