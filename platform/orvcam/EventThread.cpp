#include "orvcam/EventThread.h"

#include "orvcam/GenTLInfo.h"
#include "orvcam/Log.h"
#include "orvcam/OrvStatus.h"

#include <algorithm>

namespace orv::cam {

namespace {

constexpr std::size_t kSmallestData = 64;
constexpr std::size_t kUsualData = 64u << 10;
constexpr std::size_t kLargestData = 16u << 20;
/// The wait is cut into pieces, so that a producer that loses the kill only delays the end.
constexpr std::uint64_t kWaitMs = 500;

} // namespace

int EventThread::Start(const gentl::Functions &calls, EVENTSRC_HANDLE module, EVENT_TYPE type, Handler handler,
                       std::unique_ptr<EventThread> *thread)
{
    EVENT_HANDLE event = nullptr;
    const GC_ERROR result = calls.GCRegisterEvent(module, type, &event);
    if (result != GC_ERR_SUCCESS) {
        // Producers answer an event that they do not know in several ways.
        return result == GC_ERR_INVALID_PARAMETER || result == GC_ERR_NOT_AVAILABLE ? ORV_CAM_ERR_NOT_IMPLEMENTED
                                                                                    : StatusFromGenTL(result);
    }
    thread->reset(new EventThread(calls, module, type, event, std::move(handler)));
    return ORV_CAM_OK;
}

EventThread::EventThread(const gentl::Functions &calls, EVENTSRC_HANDLE module, EVENT_TYPE type, EVENT_HANDLE event,
                         Handler handler)
    : m_calls(calls), m_module(module), m_type(type), m_event(event), m_handler(std::move(handler))
{
    std::uint64_t largest = kUsualData;
    QueryNumber(
        [&](INFO_DATATYPE *infoType, void *buffer, std::size_t *size) {
            return m_calls.EventGetInfo(m_event, EVENT_SIZE_MAX, infoType, buffer, size);
        },
        &largest);
    m_data.resize(std::clamp<std::uint64_t>(largest, kSmallestData, kLargestData));
    m_thread = std::thread([this] { Run(); });
}

EventThread::~EventThread()
{
    Stop();
}

void EventThread::Stop()
{
    if (!m_thread.joinable())
        return;
    m_stop = true;
    m_calls.EventKill(m_event);
    m_thread.join();
    m_calls.GCUnregisterEvent(m_module, m_type);
}

void EventThread::Run()
{
    int failures = 0;
    while (!m_stop) {
        std::size_t bytes = m_data.size();
        const GC_ERROR result = m_calls.EventGetData(m_event, m_data.data(), &bytes, kWaitMs);
        if (result == GC_ERR_SUCCESS) {
            failures = 0;
            if (!m_stop)
                m_handler(m_data.data(), std::min(bytes, m_data.size()));
        } else if (result == GC_ERR_TIMEOUT) {
            failures = 0; // it is served: there was nothing to tell
        } else if (result == GC_ERR_BUFFER_TOO_SMALL && m_data.size() < kLargestData) {
            m_data.resize(std::min(m_data.size() * 2, kLargestData));
        } else if (result != GC_ERR_ABORT && ++failures == 2) {
            LogWarning("Event " + std::to_string(m_type) + " is not served any more. " +
                       GenTLErrorText(m_calls, "EventGetData", result));
            return;
        }
    }
}

} // namespace orv::cam
