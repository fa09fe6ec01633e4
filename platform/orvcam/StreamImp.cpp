#include "orvcam/StreamImp.h"

#include "gentl/NuvarkCustom.h"
#include "orvcam/GenTLInfo.h"
#include "orvcam/Log.h"
#include "orvcam/OrvStatus.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <unistd.h>

namespace orv::cam {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kPageBytes = 4096;
constexpr std::uint64_t kMostBuffers = 65536;
/// Waits are cut into pieces of this length, so that a producer that loses a kill only delays the answer.
constexpr std::uint64_t kWaitPieceMs = 200;
constexpr auto kFailurePause = std::chrono::milliseconds(10);

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

std::uint64_t MemoryBytes()
{
    const long pages = sysconf(_SC_PHYS_PAGES);
    const long size = sysconf(_SC_PAGE_SIZE);
    return pages > 0 && size > 0 ? static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(size) : ~0ull;
}

} // namespace

std::unique_ptr<BufferImp> BufferImp::Allocate(std::size_t bytes)
{
    void *memory = nullptr;
    if (posix_memalign(&memory, kPageBytes, bytes) != 0)
        return nullptr;
    std::memset(memory, 0, bytes);
    return std::unique_ptr<BufferImp>(new BufferImp(memory, bytes));
}

BufferImp::~BufferImp()
{
    std::free(m_memory);
}

std::unique_ptr<StreamImp> StreamImp::Open(const Producer &producer, DEV_HANDLE device, std::uint32_t index,
                                           FeatureArrayImp *features, const LossFlag &lost, std::string *error)
{
    const gentl::Functions &calls = producer.Calls();
    std::string id;
    QueryText(
        [&](INFO_DATATYPE *, void *buffer, std::size_t *size) {
            return calls.DevGetDataStreamID(device, index, static_cast<char *>(buffer), size);
        },
        &id);
    DS_HANDLE stream = nullptr;
    GC_ERROR result = calls.DevOpenDataStream(device, id.c_str(), &stream);
    if (result != GC_ERR_SUCCESS || stream == nullptr) {
        *error = GenTLErrorText(calls, "DevOpenDataStream", result);
        return nullptr;
    }
    // Registered as long as the stream is open, so that no frame falls between a start and a registration.
    EVENT_HANDLE newBuffer = nullptr;
    result = calls.GCRegisterEvent(stream, EVENT_NEW_BUFFER, &newBuffer);
    if (result != GC_ERR_SUCCESS) {
        *error = GenTLErrorText(calls, "GCRegisterEvent", result);
        calls.DSClose(stream);
        return nullptr;
    }
    return std::unique_ptr<StreamImp>(new StreamImp(producer, stream, newBuffer, features, lost));
}

StreamImp::StreamImp(const Producer &producer, DS_HANDLE stream, EVENT_HANDLE newBuffer, FeatureArrayImp *features,
                     const LossFlag &lost)
    : m_calls(producer.Calls()), m_isOurs(producer.IsOurs()), m_stream(stream), m_newBuffer(newBuffer),
      m_features(features), m_lost(lost), m_infoReader(m_calls, stream)
{
}

StreamImp::~StreamImp()
{
    m_closing = true;
    if (m_running)
        StopAcquisition(ACQ_STOP_FLAGS_KILL);
    // Nobody should be waiting any more; who is, is sent home before the ground goes.
    while (m_waiting > 0) {
        Wake();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    m_calls.GCUnregisterEvent(m_stream, EVENT_NEW_BUFFER);
    ReleaseBufferQueue();
    m_calls.DSClose(m_stream);
}

int StreamImp::Log(const char *call, GC_ERROR error) const
{
    LogWarning(GenTLErrorText(m_calls, call, error));
    return m_lost ? ORV_CAM_ERR_DEVICE_LOST : StatusFromGenTL(error);
}

std::uint64_t StreamImp::StreamInfo(STREAM_INFO_CMD command, std::uint64_t otherwise) const
{
    std::uint64_t value = otherwise;
    QueryNumber([&](INFO_DATATYPE *type, void *buffer,
                    std::size_t *size) { return m_calls.DSGetInfo(m_stream, command, type, buffer, size); },
                &value);
    return value;
}

int StreamImp::FindPayloadSize(std::size_t *bytes) const
{
    std::uint64_t size = 0;
    int status = ORV_CAM_OK; // of the read; a camera need not have the feature
    if (StreamInfo(STREAM_INFO_DEFINES_PAYLOADSIZE, 0) != 0)
        size = StreamInfo(STREAM_INFO_PAYLOAD_SIZE, 0);
    if (size == 0 && m_features != nullptr) {
        if (OrvCam::IntegerNode *payload = m_features->GetInt("PayloadSize"))
            size = static_cast<std::uint64_t>(payload->GetValue(&status));
    }
    if (status == ORV_CAM_ERR_DEVICE_LOST)
        return status;
    if (size == 0)
        size = StreamInfo(STREAM_INFO_PAYLOAD_SIZE, 0);
    *bytes = size;
    if (size != 0)
        return ORV_CAM_OK;
    return status != ORV_CAM_OK ? status : ORV_CAM_ERR_NO_PAYLOAD_SIZE;
}

int StreamImp::AllocBufferQueue(void *, unsigned int count)
{
    if (count == 0)
        return ORV_CAM_ERR_INVALID_PARAMETER;
    if (m_running)
        return ORV_CAM_ERR_INVALID_STATE;
    ReleaseBufferQueue();
    std::size_t bytes = 0;
    const int status = FindPayloadSize(&bytes);
    if (status != ORV_CAM_OK)
        return status;
    const std::uint64_t least = std::min(StreamInfo(STREAM_INFO_BUF_ANNOUNCE_MIN, 1), kMostBuffers);
    const std::uint64_t buffers = std::max<std::uint64_t>(count, least);
    const std::uint64_t limit = MemoryBytes() / 4 * 3;
    if (bytes > limit || buffers > limit / bytes) {
        LogWarning(std::to_string(buffers) + " buffers of " + std::to_string(bytes) +
                   " bytes each are more than this computer's memory holds.");
        return ORV_CAM_ERR_OUT_OF_MEMORY;
    }
    MutexLock lock(m_mutex);
    for (std::uint64_t i = 0; i < buffers; ++i) {
        const int announced = AnnounceBuffer(bytes);
        if (announced != ORV_CAM_OK) {
            RevokeAll();
            return announced;
        }
    }
    return ORV_CAM_OK;
}

int StreamImp::AnnounceBuffer(std::size_t bytes)
{
    std::unique_ptr<BufferImp> buffer = BufferImp::Allocate(bytes);
    if (!buffer)
        return ORV_CAM_ERR_OUT_OF_MEMORY;
    GC_ERROR result = m_calls.DSAnnounceBuffer(m_stream, buffer->Memory(), bytes, buffer.get(), &buffer->handle);
    if (result != GC_ERR_SUCCESS)
        return Log("DSAnnounceBuffer", result);
    BufferImp *announced = buffer.get();
    m_buffers.push_back(std::move(buffer));
    m_byHandle[announced->handle] = announced;
    m_byBuffer[announced] = announced;
    result = m_calls.DSQueueBuffer(m_stream, announced->handle);
    return result == GC_ERR_SUCCESS ? ORV_CAM_OK : Log("DSQueueBuffer", result);
}

int StreamImp::ReleaseBufferQueue()
{
    if (m_running)
        StopAcquisition(ACQ_STOP_FLAGS_KILL);
    MutexLock lock(m_mutex);
    RevokeAll();
    return ORV_CAM_OK;
}

void StreamImp::RevokeAll()
{
    m_startedBefore = false;
    if (m_buffers.empty())
        return;
    m_calls.DSFlushQueue(m_stream, ACQ_QUEUE_ALL_DISCARD);
    m_byHandle.clear();
    m_byBuffer.clear();
    for (std::unique_ptr<BufferImp> &buffer : m_buffers) {
        const GC_ERROR result = m_calls.DSRevokeBuffer(m_stream, buffer->handle, nullptr, nullptr);
        // One that stays with the producer may still be written to, so its memory stays until the stream is closed.
        if (result != GC_ERR_SUCCESS && result != GC_ERR_INVALID_HANDLE) {
            Log("DSRevokeBuffer", result);
            m_stuck.push_back(std::move(buffer));
        }
    }
    m_buffers.clear();
}

void StreamImp::ReadConfiguredFormat()
{
    ConfiguredFormat format;
    if (m_features != nullptr) {
        if (OrvCam::IntegerNode *width = m_features->GetInt("Width"))
            format.width = static_cast<std::uint64_t>(width->GetValue());
        if (OrvCam::IntegerNode *height = m_features->GetInt("Height"))
            format.height = static_cast<std::uint64_t>(height->GetValue());
        if (OrvCam::EnumerationNode *pixels = m_features->GetEnum("PixelFormat"))
            format.pixelFormat = static_cast<std::uint64_t>(pixels->GetIntValue());
    }
    MutexLock lock(m_mutex);
    m_configured = format;
}

int StreamImp::StartAcquisition(std::uint64_t count, unsigned int)
{
    if (count == 0)
        return ORV_CAM_ERR_INVALID_PARAMETER;
    if (m_lost)
        return ORV_CAM_ERR_DEVICE_LOST;
    {
        MutexLock lock(m_mutex);
        if (m_running || m_buffers.empty())
            return ORV_CAM_ERR_INVALID_STATE;
    }
    ReadConfiguredFormat();
    m_incomplete = 0;
    if (m_startedBefore)
        m_calls.DSFlushQueue(m_stream, ACQ_QUEUE_ALL_TO_INPUT); // frames of the run before
    const GC_ERROR result = m_calls.DSStartAcquisition(m_stream, ACQ_START_FLAGS_DEFAULT, count);
    if (result != GC_ERR_SUCCESS)
        return Log("DSStartAcquisition", result);
    m_startedBefore = true;
    m_running = true;
    return ORV_CAM_OK;
}

int StreamImp::StopAcquisition(unsigned int flags)
{
    if (!m_running.exchange(false))
        return ORV_CAM_ERR_INVALID_STATE;
    const GC_ERROR result =
        m_calls.DSStopAcquisition(m_stream, flags == 1 ? ACQ_STOP_FLAGS_KILL : ACQ_STOP_FLAGS_DEFAULT);
    // One that has stopped by itself, at its count or with its device, is stopped.
    if (result == GC_ERR_SUCCESS || result == GC_ERR_RESOURCE_IN_USE || m_lost.IsOrWillBeSet())
        return ORV_CAM_OK;
    return Log("DSStopAcquisition", result);
}

OrvCam::Buffer *StreamImp::GetBuffer(std::uint64_t timeoutMs, int *err)
{
    const Presence presence(m_waiting);
    BufferImp *buffer = nullptr;
    const int status = WaitForBuffer(timeoutMs, &buffer);
    if (status != ORV_CAM_OK && status != ORV_CAM_ERR_TIMEOUT && status != ORV_CAM_ERR_ABORTED)
        PauseAfterFailure();
    if (err != nullptr)
        *err = status;
    return buffer;
}

int StreamImp::WaitForBuffer(std::uint64_t timeoutMs, BufferImp **buffer)
{
    constexpr int kMostIdleTurns = 100; // a broken producer may answer without end and without a frame
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
        const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
        const std::uint64_t spent = static_cast<std::uint64_t>(passed.count());
        const std::uint64_t left = forever ? kWaitPieceMs : timeoutMs - std::min(timeoutMs, spent);
        EVENT_NEW_BUFFER_DATA data = {};
        std::size_t size = sizeof data;
        const GC_ERROR result = m_calls.EventGetData(m_newBuffer, &data, &size, std::min(left, kWaitPieceMs));
        if (result == GC_ERR_SUCCESS) {
            *buffer = TakeFilled(data.BufferHandle);
            if (*buffer != nullptr)
                return ORV_CAM_OK;
        } else if (result != GC_ERR_TIMEOUT && result != GC_ERR_ABORT) {
            return m_lost ? ORV_CAM_ERR_DEVICE_LOST : StatusFromGenTL(result);
        }
        if (left <= kWaitPieceMs && !forever && result == GC_ERR_TIMEOUT)
            return ORV_CAM_ERR_TIMEOUT;
        idleTurns = result == GC_ERR_TIMEOUT ? 0 : idleTurns + 1;
        if (idleTurns > kMostIdleTurns)
            return ORV_CAM_ERR_PRODUCER;
    }
}

/// \return null for a handle that is not ours: the buffers may have been released since the event was fired.
BufferImp *StreamImp::TakeFilled(BUFFER_HANDLE handle)
{
    MutexLock lock(m_mutex);
    const auto entry = m_byHandle.find(handle);
    if (entry == m_byHandle.end() || entry->second->lent)
        return nullptr;
    BufferImp *buffer = entry->second;
    m_infoReader.Read(handle, buffer->Memory(), &m_info);
    buffer->SetView(ViewOf(m_info, m_configured, buffer->Memory(), buffer->Bytes()));
    buffer->lent = true;
    m_incomplete += buffer->IsIncomplete() ? 1 : 0;
    return buffer;
}

void StreamImp::PauseAfterFailure()
{
    const Clock::time_point end = Clock::now() + kFailurePause;
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
    for (int waiting = m_waiting; waiting > 0; --waiting)
        m_calls.EventKill(m_newBuffer);
    MutexLock lock(m_pauseMutex);
    m_pauseEnd.NotifyAll();
}

int StreamImp::QueueBuffer(OrvCam::Buffer *buffer)
{
    MutexLock lock(m_mutex);
    const auto entry = m_byBuffer.find(buffer);
    if (entry == m_byBuffer.end())
        return ORV_CAM_ERR_INVALID_PARAMETER;
    if (!entry->second->lent)
        return ORV_CAM_ERR_INVALID_STATE;
    entry->second->lent = false;
    const GC_ERROR result = m_calls.DSQueueBuffer(m_stream, entry->second->handle);
    return result == GC_ERR_SUCCESS ? ORV_CAM_OK : m_lost ? ORV_CAM_ERR_DEVICE_LOST : StatusFromGenTL(result);
}

OrvCam::StreamStatistics StreamImp::GetStatistics()
{
    using Statistics = OrvCam::StreamStatistics;
    struct Row {
        STREAM_INFO_CMD command;
        std::uint64_t Statistics::*figure;
    };
    constexpr Row kStandard[] = {{STREAM_INFO_NUM_DELIVERED, &Statistics::delivered},
                                 {STREAM_INFO_NUM_UNDERRUN, &Statistics::underruns},
                                 {STREAM_INFO_NUM_STARTED, &Statistics::started}};
    constexpr Row kOurs[] = {{NUVARK_STREAM_INFO_NUM_INCOMPLETE, &Statistics::incomplete},
                             {NUVARK_STREAM_INFO_NUM_PACKETS, &Statistics::packets},
                             {NUVARK_STREAM_INFO_NUM_FULL, &Statistics::fullPackets},
                             {NUVARK_STREAM_INFO_NUM_WITHOUT_BUFFER, &Statistics::withoutBuffer},
                             {NUVARK_STREAM_INFO_NUM_DROPPED_BY_CAMERA, &Statistics::droppedByCamera},
                             {NUVARK_STREAM_INFO_NUM_REQUESTED, &Statistics::requested},
                             {NUVARK_STREAM_INFO_NUM_RESENT, &Statistics::resent},
                             {NUVARK_STREAM_INFO_NUM_MISSING, &Statistics::missing},
                             {NUVARK_STREAM_INFO_NUM_DUPLICATES, &Statistics::duplicates},
                             {NUVARK_STREAM_INFO_NUM_LATE, &Statistics::late},
                             {NUVARK_STREAM_INFO_NUM_REFUSED, &Statistics::refused},
                             {NUVARK_STREAM_INFO_NUM_UNUSABLE, &Statistics::unusable},
                             {NUVARK_STREAM_INFO_NUM_OVERSIZED, &Statistics::oversized},
                             {NUVARK_STREAM_INFO_KERNEL_DROPS, &Statistics::kernelDrops},
                             {NUVARK_STREAM_INFO_RECEIVE_BUFFER, &Statistics::receiveBuffer},
                             {NUVARK_STREAM_INFO_WANTED_BUFFER, &Statistics::wantedReceiveBuffer},
                             {NUVARK_STREAM_INFO_PACKET_SIZE, &Statistics::packetSize}};
    Statistics statistics;
    statistics.incomplete = m_incomplete; // what we have seen ourselves, where the producer does not tell
    const auto take = [&](const Row &row) { statistics.*row.figure = StreamInfo(row.command, statistics.*row.figure); };
    // A part before its whole, so that it is never more than that.
    if (m_isOurs)
        std::for_each(std::begin(kOurs), std::end(kOurs), take);
    std::for_each(std::begin(kStandard), std::end(kStandard), take);
    return statistics;
}

} // namespace orv::cam
