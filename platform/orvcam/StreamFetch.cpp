#include "orvcam/GenTLInfo.h"
#include "orvcam/OrvStatus.h"
#include "orvcam/StreamImp.h"

#include <algorithm>
#include <chrono>
#include <thread>

// The way of the frames: fetched from the producer, lent to the user, given back.
namespace orv::cam {

namespace {

using Clock = std::chrono::steady_clock;

/// Waits are cut into pieces of this length, so that a producer that loses a kill only delays the answer.
constexpr std::uint64_t kWaitPieceMs = 200;
constexpr std::uint64_t kFailurePauseMs = 10;
constexpr std::chrono::milliseconds kRestartPiece{1};

/// Counts a thread in and out.
class Presence {
public:
    explicit Presence(std::atomic<int> &count) : m_count(count) { ++m_count; }
    ~Presence() { --m_count; }
    Presence(const Presence &) = delete;
    Presence &operator=(const Presence &) = delete;

private:
    std::atomic<int> &m_count;
};

std::uint64_t MillisecondsSince(Clock::time_point start)
{
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

} // namespace

OrvCam::Buffer *StreamImp::GetBuffer(std::uint64_t timeoutMs, int *err)
{
    const Presence presence(m_waiting);
    BufferImp *buffer = nullptr;
    const int status = WaitForBuffer(timeoutMs, &buffer);
    if (status != ORV_CAM_OK && status != ORV_CAM_ERR_TIMEOUT && status != ORV_CAM_ERR_ABORTED)
        Pause(kFailurePauseMs);
    if (err != nullptr)
        *err = status;
    return buffer;
}

int StreamImp::WaitForBuffer(std::uint64_t timeoutMs, BufferImp **buffer)
{
    // A broken producer may answer without end and without a frame, or end its waits at once.
    constexpr int kMostIdleTurns = 40;
    constexpr int kTurnsWithoutPause = 4;
    const bool forever = timeoutMs == OrvCam::kInfinite;
    int idleTurns = 0;
    const Clock::time_point start = Clock::now();
    for (;;) {
        // The kill only wakes; what it was for stands in the flags. One that comes late then does no harm.
        if (m_cancel.exchange(false))
            return ORV_CAM_ERR_ABORTED;
        if (m_lost)
            return ORV_CAM_ERR_DEVICE_LOST;
        if (m_closing)
            return ORV_CAM_ERR_INVALID_STATE;
        if (m_ofNobody > 0)
            QueueThoseOfNobody();
        const EVENT_HANDLE newBuffer = m_newBuffer;
        if (newBuffer == nullptr) // the stream could not be opened again
            return ORV_CAM_ERR_INVALID_STATE;
        const std::uint64_t left = forever ? kWaitPieceMs : timeoutMs - std::min(timeoutMs, MillisecondsSince(start));
        const std::uint64_t wait = std::min(left, kWaitPieceMs);
        const Clock::time_point turn = Clock::now();
        const GC_ERROR result = Fetch(newBuffer, wait, buffer);
        if (*buffer != nullptr)
            return ORV_CAM_OK;
        if (result != GC_ERR_SUCCESS && result != GC_ERR_TIMEOUT && result != GC_ERR_ABORT)
            return StatusOfFailure(result, m_lost);
        if (result == GC_ERR_TIMEOUT && !forever && MillisecondsSince(start) >= timeoutMs)
            return ORV_CAM_ERR_TIMEOUT;
        const bool hasWaited = result == GC_ERR_TIMEOUT && MillisecondsSince(turn) >= wait / 2;
        idleTurns = hasWaited ? 0 : idleTurns + 1;
        if (idleTurns > kMostIdleTurns && result != GC_ERR_TIMEOUT)
            return ORV_CAM_ERR_PRODUCER;
        if (idleTurns > kTurnsWithoutPause && result != GC_ERR_SUCCESS)
            Pause(std::min(left, kFailurePauseMs));
    }
}

/// A time-out while the stream is being restarted.
GC_ERROR StreamImp::Fetch(EVENT_HANDLE newBuffer, std::uint64_t waitMs, BufferImp **buffer)
{
    {
        const Presence fetching(m_fetching);
        if (!m_isRestarting) {
            EVENT_NEW_BUFFER_DATA data = {};
            std::size_t size = sizeof data;
            const GC_ERROR result = m_calls.EventGetData(newBuffer, &data, &size, waitMs);
            if (result == GC_ERR_SUCCESS)
                *buffer = TakeFilled(data.BufferHandle);
            return result;
        }
    }
    std::this_thread::sleep_for(kRestartPiece);
    return GC_ERR_TIMEOUT;
}

/// \return null for a handle that is not ours: the buffers may have been released since the event was fired.
BufferImp *StreamImp::TakeFilled(BUFFER_HANDLE handle)
{
    MutexLock read(m_readMutex);
    BufferImp *buffer = nullptr;
    {
        MutexLock lock(m_mutex);
        const auto entry = m_byHandle.find(handle);
        if (entry == m_byHandle.end() || entry->second->place != BufferImp::Place::Producer)
            return nullptr;
        buffer = entry->second;
        buffer->place = BufferImp::Place::User;
    }
    m_infoReader->Read(handle, buffer->Memory(), &m_info);
    buffer->SetView(ViewOf(m_info, m_configured, buffer->Memory(), buffer->Bytes()));
    ++m_fetched;
    m_incomplete += buffer->IsIncomplete() ? 1 : 0;
    return buffer;
}

void StreamImp::Pause(std::uint64_t milliseconds)
{
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(milliseconds);
    MutexLock lock(m_pauseMutex);
    while (!m_cancel && !m_closing) {
        if (m_pauseEnd.WaitUntil(m_pauseMutex, end) == std::cv_status::timeout)
            return;
    }
}

int StreamImp::CancelBuffer()
{
    m_cancel = true;
    Wake();
    return ORV_CAM_OK;
}

void StreamImp::Wake()
{
    const EVENT_HANDLE newBuffer = m_newBuffer;
    for (int waiting = m_waiting; waiting > 0 && newBuffer != nullptr; --waiting)
        m_calls.EventKill(newBuffer);
    MutexLock lock(m_pauseMutex);
    m_pauseEnd.NotifyAll();
}

/// With m_closing set: none comes after the last.
void StreamImp::SendWaitersHome()
{
    while (m_waiting > 0) {
        Wake();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

int StreamImp::QueueBuffer(OrvCam::Buffer *buffer)
{
    MutexLock lock(m_mutex);
    const auto entry = m_byBuffer.find(buffer);
    if (entry == m_byBuffer.end())
        return ORV_CAM_ERR_INVALID_PARAMETER;
    if (entry->second->place == BufferImp::Place::Producer)
        return ORV_CAM_ERR_INVALID_STATE;
    const GC_ERROR result = Queue(entry->second);
    if (result != GC_ERR_SUCCESS)
        return m_lost ? ORV_CAM_ERR_DEVICE_LOST : StatusFromGenTL(result);
    lock.Unlock();
    if (m_ofNobody > 0)
        QueueThoseOfNobody();
    return ORV_CAM_OK;
}

GC_ERROR StreamImp::Queue(BufferImp *buffer)
{
    using Place = BufferImp::Place;
    const GC_ERROR result = m_calls.DSQueueBuffer(m_stream, buffer->handle);
    const bool isTaken = result == GC_ERR_SUCCESS || result == GC_ERR_RESOURCE_IN_USE; // or it was there already
    m_ofNobody += (isTaken ? 0 : 1) - (buffer->place == Place::Nobody ? 1 : 0);
    buffer->place = isTaken ? Place::Producer : Place::Nobody;
    return isTaken ? GC_ERR_SUCCESS : result;
}

void StreamImp::QueueThoseOfNobody()
{
    MutexLock lock(m_mutex);
    for (const std::unique_ptr<BufferImp> &buffer : m_buffers) {
        if (buffer->place == BufferImp::Place::Nobody && Queue(buffer.get()) != GC_ERR_SUCCESS)
            return; // nor will it take the next
    }
}

/// Frames of the run before are not those of the next one, and neither is their announcement. Those that are lent stay
/// so, which the flush of everything into the input would not keep to.
void StreamImp::ForgetTheRunBefore()
{
    using Place = BufferImp::Place;
    // A thread that has been told of a frame already would lend it while it is being filled anew.
    m_isRestarting = true;
    for (; m_fetching > 0; std::this_thread::sleep_for(kRestartPiece))
        m_calls.EventKill(m_newBuffer);
    MutexLock lock(m_mutex);
    const bool isAnyLent =
        std::any_of(m_buffers.begin(), m_buffers.end(), [](const auto &each) { return each->place == Place::User; });
    if (!isAnyLent && m_calls.DSFlushQueue(m_stream, ACQ_QUEUE_ALL_TO_INPUT) == GC_ERR_SUCCESS) {
        for (const std::unique_ptr<BufferImp> &buffer : m_buffers)
            buffer->place = Place::Producer;
        m_ofNobody = 0;
    } else {
        m_calls.DSFlushQueue(m_stream, ACQ_QUEUE_OUTPUT_DISCARD);
        for (const std::unique_ptr<BufferImp> &buffer : m_buffers) {
            if (buffer->place == Place::User)
                continue;
            if (!IsQueued(*buffer)) { // not twice: what a producer makes of that is its own affair
                Queue(buffer.get());
                continue;
            }
            m_ofNobody -= buffer->place == Place::Nobody ? 1 : 0;
            buffer->place = Place::Producer;
        }
    }
    m_calls.EventFlush(m_newBuffer);
    m_isRestarting = false;
}

/// Of a producer that does not tell: false.
bool StreamImp::IsQueued(const BufferImp &buffer) const
{
    std::uint64_t isQueued = 0;
    const auto query = [&](INFO_DATATYPE *type, void *bytes, std::size_t *size) {
        return m_calls.DSGetBufferInfo(m_stream, buffer.handle, BUFFER_INFO_IS_QUEUED, type, bytes, size);
    };
    return QueryNumber(query, &isQueued) && isQueued != 0;
}

} // namespace orv::cam
