#include "orvcam/GenTLInfo.h"
#include "orvcam/Log.h"
#include "orvcam/OrvStatus.h"
#include "orvcam/StreamImp.h"

#include <algorithm>
#include <unistd.h>

// The buffers of a stream: from their allocation to the day when the producer gives them back.
namespace orv::cam {

namespace {

constexpr std::uint64_t kMostBuffers = 65536;

std::uint64_t MemoryBytes()
{
    const long pages = sysconf(_SC_PHYS_PAGES);
    const long size = sysconf(_SC_PAGE_SIZE);
    return pages > 0 && size > 0 ? static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(size) : ~0ull;
}

} // namespace

std::unique_ptr<BufferImp> BufferImp::Allocate(std::size_t bytes)
{
    FrameMemory memory = AllocateFrame(bytes);
    return memory ? std::unique_ptr<BufferImp>(new BufferImp(std::move(memory), bytes)) : nullptr;
}

int StreamImp::FindPayloadSize(std::size_t *bytes) const
{
    std::uint64_t size = 0;
    int status = ORV_CAM_OK; // of the read; a camera need not have the feature
    if (StreamInfo(STREAM_INFO_DEFINES_PAYLOADSIZE, 0) != 0)
        size = StreamInfo(STREAM_INFO_PAYLOAD_SIZE, 0);
    if (size == 0 && m_origin.features != nullptr) {
        if (OrvCam::IntegerNode *payload = m_origin.features->GetInt("PayloadSize"))
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

int StreamImp::AllocateBuffers(unsigned int count, std::size_t bytes, Buffers *buffers) const
{
    const std::uint64_t least = std::min(StreamInfo(STREAM_INFO_BUF_ANNOUNCE_MIN, 1), kMostBuffers);
    const std::uint64_t wanted = std::max<std::uint64_t>(count, least);
    const std::uint64_t limit = MemoryBytes() / 4 * 3;
    if (bytes > limit || wanted > limit / bytes) {
        LogWarning(std::to_string(wanted) + " buffers of " + std::to_string(bytes) +
                   " bytes each are more than this computer's memory holds.");
        return ORV_CAM_ERR_OUT_OF_MEMORY;
    }
    for (std::uint64_t i = 0; i < wanted; ++i) {
        buffers->push_back(BufferImp::Allocate(bytes));
        if (!buffers->back())
            return ORV_CAM_ERR_OUT_OF_MEMORY;
    }
    return ORV_CAM_OK;
}

int StreamImp::AllocBufferQueue(void *, unsigned int count)
{
    if (count == 0)
        return ORV_CAM_ERR_INVALID_PARAMETER;
    if (m_running && !m_stopFailed)
        return ORV_CAM_ERR_INVALID_STATE;
    int status = ReleaseBufferQueue();
    std::size_t bytes = 0;
    if (status == ORV_CAM_OK)
        status = FindPayloadSize(&bytes);
    Buffers buffers; // allocated without the lock: gigabytes take their time
    if (status == ORV_CAM_OK)
        status = AllocateBuffers(count, bytes, &buffers);
    if (status != ORV_CAM_OK)
        return status;
    MutexLock read(m_readMutex);
    MutexLock lock(m_mutex);
    for (std::unique_ptr<BufferImp> &buffer : buffers) {
        status = AnnounceBuffer(std::move(buffer));
        if (status != ORV_CAM_OK) {
            RevokeAll();
            return status;
        }
    }
    return ORV_CAM_OK;
}

int StreamImp::AnnounceBuffer(std::unique_ptr<BufferImp> buffer)
{
    GC_ERROR result =
        m_calls.DSAnnounceBuffer(m_stream, buffer->Memory(), buffer->Bytes(), buffer.get(), &buffer->handle);
    if (result != GC_ERR_SUCCESS)
        return Log("DSAnnounceBuffer", result);
    BufferImp *announced = buffer.get();
    m_buffers.push_back(std::move(buffer));
    m_byHandle[announced->handle] = announced;
    m_byBuffer[announced] = announced;
    result = Queue(announced);
    return result == GC_ERR_SUCCESS ? ORV_CAM_OK : Log("DSQueueBuffer", result);
}

int StreamImp::ReleaseBufferQueue()
{
    if (m_running) {
        const bool isLastTry = m_stopFailed;
        const int status = StopAcquisition(ACQ_STOP_FLAGS_KILL);
        if (status != ORV_CAM_OK)
            return isLastTry ? OpenAnew() : status;
    }
    bool isStuck = false;
    {
        MutexLock read(m_readMutex);
        MutexLock lock(m_mutex);
        RevokeAll();
        isStuck = !m_stuck.empty();
    }
    return isStuck || m_newBuffer == nullptr ? OpenAnew() : ORV_CAM_OK;
}

void StreamImp::RevokeAll()
{
    m_startedBefore = false;
    if (m_buffers.empty() && m_stuck.empty())
        return;
    m_calls.DSFlushQueue(m_stream, ACQ_QUEUE_ALL_DISCARD);
    if (m_newBuffer != nullptr)
        m_calls.EventFlush(m_newBuffer); // what it tells of would be taken for the buffers to come
    ForgetBuffers();
    // One that stays with the producer may still be written to, so its memory stays as well.
    const auto isFree = [this](const std::unique_ptr<BufferImp> &buffer) {
        const GC_ERROR result = m_calls.DSRevokeBuffer(m_stream, buffer->handle, nullptr, nullptr);
        if (result != GC_ERR_SUCCESS && result != GC_ERR_INVALID_HANDLE)
            LogWarning(m_origin.camera + ": " + GenTLErrorText(m_calls, "DSRevokeBuffer", result));
        return result == GC_ERR_SUCCESS || result == GC_ERR_INVALID_HANDLE;
    };
    m_stuck.erase(std::remove_if(m_stuck.begin(), m_stuck.end(), isFree), m_stuck.end());
}

/// Nobody is lent them any more; they stay until the producer has given them back.
void StreamImp::ForgetBuffers()
{
    m_byHandle.clear();
    m_byBuffer.clear();
    m_ofNobody = 0;
    std::move(m_buffers.begin(), m_buffers.end(), std::back_inserter(m_stuck));
    m_buffers.clear();
}

/// The stream would not close, so the producer may write into them to the end of the process.
void StreamImp::LeaveStuckBuffers()
{
    static Mutex mutex;
    static auto *left = new Buffers;
    MutexLock lock(m_mutex);
    MutexLock lockOfAll(mutex);
    std::move(m_stuck.begin(), m_stuck.end(), std::back_inserter(*left));
    m_stuck.clear();
}

/// A stream that is closed holds no buffers, and does not run.
int StreamImp::OpenAnew()
{
    if (m_lost)
        return ORV_CAM_OK; // nothing is written any more, and there is nothing to open
    m_closing = true;
    SendWaitersHome();
    std::string error = "the stream cannot be closed";
    int status = ORV_CAM_ERR_PRODUCER;
    {
        MutexLock read(m_readMutex);
        MutexLock lock(m_mutex);
        ForgetBuffers();
    }
    if (CloseStream()) {
        if (m_running.exchange(false))
            m_origin.gate.EndStream();
        m_stopFailed = false;
        {
            MutexLock lock(m_mutex);
            m_stuck.clear();
        }
        status = OpenStream(&error);
    }
    m_closing = false;
    LogWarning("The stream of " + m_origin.camera +
               (status == ORV_CAM_OK ? " was opened anew: it would not stop, or not give its buffers back."
                                     : " cannot be opened anew: " + error));
    return status;
}

} // namespace orv::cam
