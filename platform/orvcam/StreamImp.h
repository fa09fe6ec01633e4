#pragma once

#include "base/FrameMemory.h"
#include "base/Mutex.h"
#include "orvcam/DevicePort.h"
#include "orvcam/FeatureArrayImp.h"
#include "orvcam/FrameInfo.h"
#include "orvcam/LossFlag.h"
#include "orvcam/OrvCam.h"
#include "orvcam/Producer.h"
#include "orvcam/SettingsGate.h"

#include <atomic>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace orv::cam {

/// One announced buffer with its memory. Lent to the user between GetBuffer and QueueBuffer.
class BufferImp final : public OrvCam::Buffer {
public:
    /// \return null when there is not enough memory. Page-aligned and zeroed, so the pages are there before they count.
    static std::unique_ptr<BufferImp> Allocate(std::size_t bytes);

    bool IsIncomplete() override { return m_view.incomplete; }
    std::uint64_t GetTimestamp() override { return m_view.image.timestamp; }
    std::uint64_t GetFrameID() override { return m_view.image.frameId; }
    std::size_t GetBufferSize() override { return m_view.receivedBytes; }
    const _OrvImage *GetImage() override { return &m_view.image; }

    void *Memory() const { return m_memory.get(); }
    std::size_t Bytes() const { return m_bytes; }
    void SetView(const FrameView &view) { m_view = view; }

    BUFFER_HANDLE handle = nullptr;
    /// Who has it; under the stream's mutex.
    enum class Place {
        Producer, ///< to be filled, or filled and not fetched yet
        User,     ///< lent
        Nobody    ///< given back, but the producer would not take it
    } place = Place::Producer;

private:
    BufferImp(FrameMemory memory, std::size_t bytes) : m_memory(std::move(memory)), m_bytes(bytes) {}

    const FrameMemory m_memory;
    const std::size_t m_bytes;
    FrameView m_view = {};
};

/// What a stream belongs to; all of it outlives the stream.
struct StreamOrigin {
    const Producer &producer;
    DEV_HANDLE device;
    std::uint32_t index;
    FeatureArrayImp *features; ///< the camera's, for its payload size; may be null
    const LossFlag &lost;
    SettingsGate &gate;
    std::string camera; ///< its name, for the log
};

/// One data stream of an opened device.
///
/// Threads: as OrvCam::Stream says. m_mutex guards the buffer table; it is held for a look into it and for giving a
/// buffer back, m_readMutex while a fetched frame's infos are read. Neither is held while waiting for a frame, and none
/// by anything that our own producer asks the camera for. Nothing is allocated per frame.
class StreamImp final : public OrvCam::Stream {
public:
    static std::unique_ptr<StreamImp> Open(const StreamOrigin &origin, std::string *error);
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
    OrvCam::FeatureArray *GetParameters() override EXCLUDES(m_parametersMutex);

    /// Since the stream was opened.
    std::uint64_t FramesFetched() const { return m_fetched; }
    /// Makes the waiting threads look whether the device is lost. Any thread.
    void Wake() EXCLUDES(m_pauseMutex);

private:
    using Buffers = std::vector<std::unique_ptr<BufferImp>>;

    explicit StreamImp(const StreamOrigin &origin);

    int OpenStream(std::string *error) EXCLUDES(m_readMutex);
    bool CloseStream();
    void LeaveStuckBuffers() EXCLUDES(m_mutex);
    std::uint64_t StreamInfo(STREAM_INFO_CMD command, std::uint64_t otherwise) const;
    int FindPayloadSize(std::size_t *bytes) const;
    int AllocateBuffers(unsigned int count, std::size_t bytes, Buffers *buffers) const;
    int AnnounceBuffer(std::unique_ptr<BufferImp> buffer) REQUIRES(m_mutex);
    void RevokeAll() REQUIRES(m_mutex, m_readMutex);
    void ForgetBuffers() REQUIRES(m_mutex, m_readMutex);
    int OpenAnew() EXCLUDES(m_mutex);
    void SendWaitersHome() EXCLUDES(m_pauseMutex);
    void ReadConfiguredFormat() EXCLUDES(m_readMutex);
    void ForgetTheRunBefore() EXCLUDES(m_mutex);
    int Log(const char *call, GC_ERROR error) const;

    int WaitForBuffer(std::uint64_t timeoutMs, BufferImp **buffer) EXCLUDES(m_mutex);
    GC_ERROR Fetch(EVENT_HANDLE newBuffer, std::uint64_t waitMs, BufferImp **buffer) EXCLUDES(m_mutex, m_readMutex);
    BufferImp *TakeFilled(BUFFER_HANDLE handle) EXCLUDES(m_mutex, m_readMutex);
    GC_ERROR Queue(BufferImp *buffer) REQUIRES(m_mutex);
    bool IsQueued(const BufferImp &buffer) const;
    void QueueThoseOfNobody() EXCLUDES(m_mutex);
    void Pause(std::uint64_t milliseconds) EXCLUDES(m_pauseMutex);

    const StreamOrigin m_origin;
    const gentl::Functions &m_calls;
    const LossFlag &m_lost;
    std::atomic<DS_HANDLE> m_stream{nullptr}; ///< null when it could not be opened again: then no buffer is announced
    std::atomic<EVENT_HANDLE> m_newBuffer{nullptr}; ///< null without a stream that is of use
    std::atomic<bool> m_running{false};
    bool m_stopFailed = false;    ///< it runs although it was to stop
    bool m_startedBefore = false; ///< since the buffers were allocated

    std::atomic<std::uint64_t> m_fetched{0}; ///< since it was opened, as the next
    std::atomic<std::uint64_t> m_incomplete{0};
    std::atomic<std::uint64_t> m_fetchedBefore{0}; ///< the last start, as the next
    std::atomic<std::uint64_t> m_incompleteBefore{0};
    std::atomic<int> m_waiting{0};     ///< threads in GetBuffer
    std::atomic<bool> m_cancel{false}; ///< the next GetBuffer to see it takes it
    std::atomic<bool> m_closing{false};
    std::atomic<int> m_fetching{0}; ///< of those in GetBuffer, the ones that may be told of a frame
    std::atomic<bool> m_isRestarting{false};
    Mutex m_pauseMutex; ///< guards nothing but the wait of m_pauseEnd
    ConditionVariable m_pauseEnd;

    Mutex m_readMutex;
    std::unique_ptr<FrameInfoReader> m_infoReader GUARDED_BY(m_readMutex);
    FrameInfo m_info GUARDED_BY(m_readMutex); ///< of the frame being fetched
    ConfiguredFormat m_configured GUARDED_BY(m_readMutex);

    Mutex m_mutex;
    Buffers m_buffers GUARDED_BY(m_mutex);
    std::unordered_map<BUFFER_HANDLE, BufferImp *> m_byHandle GUARDED_BY(m_mutex);
    std::unordered_map<OrvCam::Buffer *, BufferImp *> m_byBuffer GUARDED_BY(m_mutex);
    std::atomic<int> m_ofNobody{0};      ///< buffers; changes under the mutex
    Buffers m_stuck GUARDED_BY(m_mutex); ///< the producer would not give them back

    Mutex m_parametersMutex;
    bool m_hasNoDescription GUARDED_BY(m_parametersMutex) = false;
    std::unique_ptr<DevicePort> m_port GUARDED_BY(m_parametersMutex);
    std::unique_ptr<FeatureArrayImp> m_parameters GUARDED_BY(m_parametersMutex);
};

} // namespace orv::cam
