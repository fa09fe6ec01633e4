#pragma once

#include "base/Mutex.h"
#include "orvcam/FeatureArrayImp.h"
#include "orvcam/FrameInfo.h"
#include "orvcam/LossFlag.h"
#include "orvcam/OrvCam.h"
#include "orvcam/Producer.h"

#include <atomic>
#include <memory>
#include <unordered_map>
#include <vector>

namespace orv::cam {

/// One announced buffer with its memory. Lent to the user between GetBuffer and QueueBuffer.
class BufferImp final : public OrvCam::Buffer {
public:
    /// \return null when there is not enough memory. Page-aligned and zeroed, so the pages are there before they count.
    static std::unique_ptr<BufferImp> Allocate(std::size_t bytes);
    ~BufferImp();
    BufferImp(const BufferImp &) = delete;
    BufferImp &operator=(const BufferImp &) = delete;

    bool IsIncomplete() override { return m_view.incomplete; }
    std::uint64_t GetTimestamp() override { return m_view.image.timestamp; }
    std::uint64_t GetFrameID() override { return m_view.image.frameId; }
    std::size_t GetBufferSize() override { return m_view.receivedBytes; }
    const _OrvImage *GetImage() override { return &m_view.image; }

    void *Memory() const { return m_memory; }
    std::size_t Bytes() const { return m_bytes; }
    void SetView(const FrameView &view) { m_view = view; }

    BUFFER_HANDLE handle = nullptr;
    bool lent = false; ///< under the stream's mutex

private:
    BufferImp(void *memory, std::size_t bytes) : m_memory(memory), m_bytes(bytes) {}

    void *const m_memory;
    const std::size_t m_bytes;
    FrameView m_view = {};
};

/// One data stream of an opened device.
///
/// Threads: as OrvCam::Stream says. m_mutex guards the buffer table; it is held for the few microseconds in which a
/// frame is fetched or given back, never while waiting for one and never by anything that talks to the camera. Nothing
/// is allocated per frame.
class StreamImp final : public OrvCam::Stream {
public:
    /// \param features  the camera's, for its payload size; may be null. Both borrowed, with `lost`, for the life.
    static std::unique_ptr<StreamImp> Open(const Producer &producer, DEV_HANDLE device, std::uint32_t index,
                                           FeatureArrayImp *features, const LossFlag &lost, std::string *error);
    ~StreamImp();
    StreamImp(const StreamImp &) = delete;
    StreamImp &operator=(const StreamImp &) = delete;

    int AllocBufferQueue(void *owner, unsigned int count) override EXCLUDES(m_mutex);
    int ReleaseBufferQueue() override EXCLUDES(m_mutex);
    int StartAcquisition(std::uint64_t count, unsigned int flags) override EXCLUDES(m_mutex);
    int StopAcquisition(unsigned int flags) override;
    OrvCam::Buffer *GetBuffer(std::uint64_t timeoutMs, int *err) override EXCLUDES(m_mutex);
    int CancelBuffer() override EXCLUDES(m_pauseMutex);
    int QueueBuffer(OrvCam::Buffer *buffer) override EXCLUDES(m_mutex);
    OrvCam::StreamStatistics GetStatistics() override;

    bool IsRunning() const { return m_running; }
    /// Makes the waiting threads look whether the device is lost. Any thread.
    void Wake() EXCLUDES(m_pauseMutex);

private:
    StreamImp(const Producer &producer, DS_HANDLE stream, EVENT_HANDLE newBuffer, FeatureArrayImp *features,
              const LossFlag &lost);

    std::uint64_t StreamInfo(STREAM_INFO_CMD command, std::uint64_t otherwise) const;
    int FindPayloadSize(std::size_t *bytes) const;
    int AnnounceBuffer(std::size_t bytes) REQUIRES(m_mutex);
    void RevokeAll() REQUIRES(m_mutex);
    void ReadConfiguredFormat() EXCLUDES(m_mutex);
    int Log(const char *call, GC_ERROR error) const;

    int WaitForBuffer(std::uint64_t timeoutMs, BufferImp **buffer) EXCLUDES(m_mutex);
    BufferImp *TakeFilled(BUFFER_HANDLE handle) EXCLUDES(m_mutex);
    void PauseAfterFailure() EXCLUDES(m_pauseMutex);

    const gentl::Functions &m_calls;
    const bool m_isOurs; ///< the producer
    const DS_HANDLE m_stream;
    const EVENT_HANDLE m_newBuffer;
    FeatureArrayImp *const m_features;
    const LossFlag &m_lost;
    std::atomic<bool> m_running{false};
    bool m_startedBefore = false; ///< since the buffers were allocated

    std::atomic<std::uint64_t> m_incomplete{0}; ///< fetched since the start
    std::atomic<int> m_waiting{0};              ///< threads in GetBuffer
    std::atomic<bool> m_cancel{false};          ///< the next GetBuffer to see it takes it
    std::atomic<bool> m_closing{false};
    Mutex m_pauseMutex; ///< guards nothing but the wait of m_pauseEnd
    ConditionVariable m_pauseEnd;

    Mutex m_mutex;
    FrameInfoReader m_infoReader GUARDED_BY(m_mutex);
    FrameInfo m_info GUARDED_BY(m_mutex); ///< of the frame being fetched
    ConfiguredFormat m_configured GUARDED_BY(m_mutex);
    std::vector<std::unique_ptr<BufferImp>> m_buffers GUARDED_BY(m_mutex);
    std::unordered_map<BUFFER_HANDLE, BufferImp *> m_byHandle GUARDED_BY(m_mutex);
    std::unordered_map<OrvCam::Buffer *, BufferImp *> m_byBuffer GUARDED_BY(m_mutex);
    std::vector<std::unique_ptr<BufferImp>> m_stuck GUARDED_BY(m_mutex); ///< the producer would not give them back
};

} // namespace orv::cam
