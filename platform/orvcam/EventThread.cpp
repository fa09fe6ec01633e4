#include "orvcam/EventThread.h"

#include "gentl/NuvarkCustom.h"
#include "orvcam/GenTLInfo.h"
#include "orvcam/Log.h"
#include "orvcam/OrvStatus.h"

#include <algorithm>
#include <chrono>

namespace orv::cam {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kSmallestData = 64;
constexpr std::size_t kUsualData = 64u << 10;
constexpr std::size_t kLargestData = 16u << 20;
/// The wait is cut into pieces, so that a producer that loses the kill only delays the end.
constexpr std::uint64_t kWaitMs = 500;
/// After a wait that came back at once though nothing was there.
constexpr auto kPause = std::chrono::milliseconds(10);

thread_local const EventThread *t_current = nullptr;

} // namespace

int EventThread::Start(const gentl::Functions &calls, EVENTSRC_HANDLE module, EVENT_TYPE type,
                       const std::string &camera, Handlers handlers, std::unique_ptr<EventThread> *thread)
{
    EVENT_HANDLE event = nullptr;
    const GC_ERROR result = calls.GCRegisterEvent(module, type, &event);
    if (result != GC_ERR_SUCCESS) {
        // Producers answer an event that they do not know in several ways.
        return result == GC_ERR_INVALID_PARAMETER || result == GC_ERR_NOT_AVAILABLE ? ORV_CAM_ERR_NOT_IMPLEMENTED
                                                                                    : StatusFromGenTL(result);
    }
    try {
        thread->reset(new EventThread(calls, module, type, event, camera, std::move(handlers)));
    } catch (const std::exception &error) { // no memory, or no more threads
        calls.GCUnregisterEvent(module, type);
        LogWarning(camera + ": event " + std::to_string(type) + " cannot be served: " + error.what());
        return ORV_CAM_ERR_OUT_OF_MEMORY;
    }
    return ORV_CAM_OK;
}

EventThread::EventThread(const gentl::Functions &calls, EVENTSRC_HANDLE module, EVENT_TYPE type, EVENT_HANDLE event,
                         const std::string &camera, Handlers handlers)
    : m_calls(calls), m_module(module), m_type(type), m_event(event), m_camera(camera), m_handlers(std::move(handlers))
{
    m_data.resize(std::clamp<std::uint64_t>(Info(EVENT_SIZE_MAX, kUsualData), kSmallestData, kLargestData));
    m_thread = std::thread([this] { Run(); });
}

EventThread::~EventThread()
{
    Stop();
}

std::uint64_t EventThread::Info(EVENT_INFO_CMD command, std::uint64_t otherwise) const
{
    std::uint64_t value = otherwise;
    QueryNumber([&](INFO_DATATYPE *type, void *buffer,
                    std::size_t *size) { return m_calls.EventGetInfo(m_event, command, type, buffer, size); },
                &value);
    return value;
}

void EventThread::Unregister()
{
    if (m_registered.exchange(false))
        m_calls.GCUnregisterEvent(m_module, m_type);
}

void EventThread::Stop()
{
    if (!m_thread.joinable())
        return;
    m_stop = true;
    if (m_registered)
        m_calls.EventKill(m_event);
    m_thread.join();
    Unregister();
}

void EventThread::StopFromHandler()
{
    m_endsItself = true;
    m_stop = true;
}

bool EventThread::IsThisThread() const
{
    return t_current == this;
}

OrvCam::EventFigures EventThread::Figures(bool isOurs) const
{
    OrvCam::EventFigures figures;
    figures.fired = m_fired;
    if (isOurs && m_registered)
        figures.dropped = Info(NUVARK_EVENT_INFO_NUM_DROPPED, 0);
    return figures;
}

void EventThread::Run()
{
    t_current = this;
    const bool failed = !Serve();
    if (m_endsItself)
        Unregister();
    if ((failed || m_endsItself) && m_handlers.onEnd)
        m_handlers.onEnd(failed);
}

/// \return false when the producer does not serve the event any more.
bool EventThread::Serve()
{
    int failures = 0;
    while (!m_stop) {
        std::size_t bytes = m_data.size();
        const Clock::time_point start = Clock::now();
        const GC_ERROR result = m_calls.EventGetData(m_event, m_data.data(), &bytes, kWaitMs);
        if (result == GC_ERR_SUCCESS) {
            failures = 0;
            if (m_stop)
                break;
            ++m_fired;
            m_handlers.onData(m_data.data(), std::min(bytes, m_data.size()));
        } else if (result == GC_ERR_TIMEOUT || result == GC_ERR_ABORT) {
            failures = result == GC_ERR_TIMEOUT ? 0 : failures; // it is served: there was nothing to tell
            if (!m_stop && Clock::now() - start < std::chrono::milliseconds(kWaitMs) / 2)
                std::this_thread::sleep_for(kPause);
        } else if (result == GC_ERR_BUFFER_TOO_SMALL && m_data.size() < kLargestData) {
            m_data.resize(std::min(m_data.size() * 2, kLargestData));
        } else if (++failures == 2) {
            if (!m_stop)
                LogWarning(m_camera + ": event " + std::to_string(m_type) + " is not served any more. " +
                           GenTLErrorText(m_calls, "EventGetData", result));
            return m_stop;
        }
    }
    return true;
}

} // namespace orv::cam
