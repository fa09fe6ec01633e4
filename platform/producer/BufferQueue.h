#pragma once

#include "base/FrameMemory.h"
#include "base/Mutex.h"
#include "producer/Event.h"
#include "producer/HandleTable.h"
#include "producer/Status.h"
#include "producer/Transport.h"

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace nuvark {

/// Memory announced for frames, and what is known of the frame in it.
///
/// Idle memory belongs to the consumer, otherwise it belongs to the producer. State changes under the queue's mutex;
/// the frame's facts have a mutex of their own, so that asking about a buffer never waits for the stream.
class Buffer final : public Object {
public:
    static bool IsKind(Kind kind) { return kind == Kind::Buffer; }

    enum class State { Idle, Input, Filling, Output, Revoked };

    Buffer(const void *stream, std::uint8_t *base, std::size_t size, void *userPointer)
        : Object(Kind::Buffer), m_stream(stream), m_base(base), m_size(size), m_userPointer(userPointer)
    {
    }
    /// Memory of the producer's own.
    Buffer(const void *stream, orv::FrameMemory memory, std::size_t size, void *userPointer)
        : Object(Kind::Buffer), m_stream(stream), m_owned(std::move(memory)), m_base(m_owned.get()), m_size(size),
          m_userPointer(userPointer)
    {
    }

    const void *Stream() const { return m_stream; } ///< handle of the stream it was announced to
    std::uint8_t *Base() const { return m_base; }
    std::size_t Size() const { return m_size; }
    void *UserPointer() const { return m_userPointer; }
    bool IsOwned() const { return m_owned != nullptr; }
    State GetState() const { return m_state; }
    bool IsQueued() const { return m_state != State::Idle && m_state != State::Revoked; }

    /// The facts of the frame; null while there is none or it is being replaced.
    std::shared_ptr<const FrameInfo> Frame() const EXCLUDES(m_frameMutex);
    bool HasNewData() const { return Frame() != nullptr; }

private:
    friend class BufferQueue;
    void SetFrame(std::shared_ptr<const FrameInfo> frame) EXCLUDES(m_frameMutex);

    const void *const m_stream;
    const orv::FrameMemory m_owned;
    std::uint8_t *const m_base;
    const std::size_t m_size;
    void *const m_userPointer;
    std::atomic<State> m_state{State::Idle};

    mutable orv::Mutex m_frameMutex;                                   ///< taken last
    std::shared_ptr<const FrameInfo> m_frame GUARDED_BY(m_frameMutex); ///< never changes: many questions, one frame
};

/// The buffers of one stream on their way: input pool, being filled, output queue.
///
/// It is the receiver's sink and, for the new-buffer event, the source. In the output queue nothing is ever
/// overwritten; with the input pool empty the next frame is lost and counted. From the pool the buffer queued last is
/// taken; the standard promises no order there. Threads: any. Lock order: m_mutex, then the handle table's or a
/// buffer's; the notification runs with no lock held.
class BufferQueue final : public FrameSink {
public:
    struct Counts {
        std::uint64_t delivered = 0;  ///< frames fetched since the last start
        std::uint64_t incomplete = 0; ///< of those
        std::uint64_t underruns = 0;  ///< since the stream was opened
        std::uint64_t discarded = 0;  ///< frames that began while a flush ran, since the stream was opened
        std::uint64_t started = 0;    ///< since the stream was opened
        std::size_t announced = 0;
        std::size_t queued = 0; ///< input pool and those being filled
        std::size_t awaiting = 0;
        std::uint64_t fired = 0;
        bool isGrabbing = false;
    };

    /// \param onOutput  called when a buffer has come into the output queue
    /// \param onError   called when a frame did not fit its buffer
    BufferQueue(std::function<void()> onOutput, std::function<void(GC_ERROR, const std::string &)> onError)
        : m_onOutput(std::move(onOutput)), m_onError(std::move(onError))
    {
    }

    Status Announce(const std::shared_ptr<Buffer> &buffer) EXCLUDES(m_mutex);
    Status Queue(const std::shared_ptr<Buffer> &buffer) EXCLUDES(m_mutex);
    Status Revoke(const std::shared_ptr<Buffer> &buffer) EXCLUDES(m_mutex);
    /// Revokes every buffer and takes no more: the stream is being closed.
    void RevokeAll() EXCLUDES(m_mutex);
    /// For the operations that touch buffers being filled, the queue is paused and the receiver has given them back.
    Status Flush(ACQ_QUEUE_TYPE operation) EXCLUDES(m_mutex);
    /// While paused no buffer is taken; frames that begin are lost.
    void Pause(bool paused) EXCLUDES(m_mutex);
    std::shared_ptr<Buffer> At(std::size_t index) const EXCLUDES(m_mutex);
    std::size_t LargestSize() const EXCLUDES(m_mutex);
    Counts GetCounts() const EXCLUDES(m_mutex);

    /// From here on frames are taken; \param count how many to deliver, GENTL_INFINITE for no limit.
    void Begin(std::uint64_t count) EXCLUDES(m_mutex);
    /// As if Begin() had not been: the start has failed.
    void TakeBackBegin() EXCLUDES(m_mutex);
    void End() EXCLUDES(m_mutex);

    // The receiver's side.
    bool TakeBuffer(FrameTarget &target) override EXCLUDES(m_mutex);
    bool WantsFrames() const override EXCLUDES(m_mutex);
    void Deliver(const FrameTarget &target, const FrameInfo &info) override EXCLUDES(m_mutex);
    void GiveBack(const FrameTarget &target) override EXCLUDES(m_mutex);
    std::size_t SpareBuffers() const override EXCLUDES(m_mutex);

    // The new-buffer event's side.
    /// Takes the oldest buffer out of the output queue; null when there is none.
    std::shared_ptr<Buffer> TakeOutput() EXCLUDES(m_mutex);
    void DiscardOutput() EXCLUDES(m_mutex);

private:
    bool IsFull() const REQUIRES(m_mutex) { return !m_grabbing || m_filling.size() >= m_remaining; }
    std::shared_ptr<Buffer> TakeFilling(const FrameTarget &target) REQUIRES(m_mutex);
    void MoveAll(std::deque<std::shared_ptr<Buffer>> &from, Buffer::State state) REQUIRES(m_mutex);

    const std::function<void()> m_onOutput;
    const std::function<void(GC_ERROR, const std::string &)> m_onError;

    mutable orv::Mutex m_mutex;
    std::vector<std::shared_ptr<Buffer>> m_announced GUARDED_BY(m_mutex);
    std::deque<std::shared_ptr<Buffer>> m_input GUARDED_BY(m_mutex);
    std::deque<std::shared_ptr<Buffer>> m_filling GUARDED_BY(m_mutex);
    std::deque<std::shared_ptr<Buffer>> m_output GUARDED_BY(m_mutex);
    bool m_grabbing GUARDED_BY(m_mutex) = false;
    bool m_paused GUARDED_BY(m_mutex) = false;
    bool m_closed GUARDED_BY(m_mutex) = false;
    std::uint64_t m_remaining GUARDED_BY(m_mutex) = 0;
    Counts m_counts GUARDED_BY(m_mutex);       ///< the totals and `fired`; the rest is made up when asked
    Counts m_countsBefore GUARDED_BY(m_mutex); ///< the last Begin()
};

/// The new-buffer event: its queue is the stream's output queue.
class NewBufferEvents final : public EventSource {
public:
    explicit NewBufferEvents(std::shared_ptr<BufferQueue> queue);

    std::size_t Count() const override { return m_queue->GetCounts().awaiting; }
    std::uint64_t Fired() const override { return m_queue->GetCounts().fired - m_firedBefore; }
    Pop TakeOldest(void *buffer, std::size_t *size) override;
    void Clear() override { m_queue->DiscardOutput(); }
    std::size_t MaxSize() const override { return sizeof(EVENT_NEW_BUFFER_DATA); }
    std::size_t MaxValueSize() const override { return sizeof(void *); }
    Result<InfoValue> Decode(orv::ByteSpan data, EVENT_DATA_INFO_CMD command) const override;

private:
    const std::shared_ptr<BufferQueue> m_queue;
    const std::uint64_t m_firedBefore;
};

} // namespace nuvark
