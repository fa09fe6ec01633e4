#include "producer/BufferQueue.h"

#include <algorithm>

namespace nuvark {

namespace {

/// What waits in the output queue already belongs to the registration that begins now.
std::uint64_t FiredBefore(const BufferQueue::Counts &counts)
{
    return counts.fired - counts.awaiting;
}

} // namespace

std::shared_ptr<const FrameInfo> Buffer::Frame() const
{
    const orv::MutexLock lock(m_frameMutex);
    return m_frame;
}

void Buffer::SetFrame(std::shared_ptr<const FrameInfo> frame)
{
    const orv::MutexLock lock(m_frameMutex);
    m_frame.swap(frame);
}

Status BufferQueue::Announce(const std::shared_ptr<Buffer> &buffer)
{
    const orv::MutexLock lock(m_mutex);
    if (m_closed)
        return {GC_ERR_INVALID_HANDLE, "the stream has been closed"};
    for (const std::shared_ptr<Buffer> &other : m_announced) {
        if (other->Base() == buffer->Base())
            return {GC_ERR_RESOURCE_IN_USE, "this memory is announced already"};
        if (other->IsOwned() != buffer->IsOwned())
            return {GC_ERR_INVALID_PARAMETER, "buffers of the consumer and of the producer cannot be mixed"};
    }
    m_announced.push_back(buffer);
    HandleTable::Instance().Add(buffer);
    return {};
}

Status BufferQueue::Queue(const std::shared_ptr<Buffer> &buffer)
{
    const orv::MutexLock lock(m_mutex);
    if (buffer->m_state == Buffer::State::Revoked)
        return {GC_ERR_INVALID_HANDLE, "the buffer has been revoked"};
    if (buffer->m_state != Buffer::State::Idle)
        return {GC_ERR_RESOURCE_IN_USE, "the buffer is queued already"};
    buffer->SetFrame(nullptr);
    buffer->m_state = Buffer::State::Input;
    m_input.push_back(buffer);
    return {};
}

Status BufferQueue::Revoke(const std::shared_ptr<Buffer> &buffer)
{
    const orv::MutexLock lock(m_mutex);
    if (buffer->m_state == Buffer::State::Revoked)
        return {GC_ERR_INVALID_HANDLE, "the buffer has been revoked"};
    if (buffer->m_state != Buffer::State::Idle)
        return {GC_ERR_BUSY, "the buffer is still queued"};
    buffer->m_state = Buffer::State::Revoked;
    m_announced.erase(std::remove(m_announced.begin(), m_announced.end(), buffer), m_announced.end());
    HandleTable::Instance().Remove(*buffer);
    return {};
}

void BufferQueue::RevokeAll()
{
    const orv::MutexLock lock(m_mutex);
    m_closed = true;
    for (const std::shared_ptr<Buffer> &buffer : m_announced) {
        buffer->m_state = Buffer::State::Revoked;
        HandleTable::Instance().Remove(*buffer);
    }
    m_input.clear();
    m_filling.clear();
    m_output.clear();
    m_announced.clear();
}

void BufferQueue::MoveAll(std::deque<std::shared_ptr<Buffer>> &from, Buffer::State state)
{
    for (const std::shared_ptr<Buffer> &buffer : from) {
        buffer->m_state = state;
        if (state == Buffer::State::Input) {
            buffer->SetFrame(nullptr);
            m_input.push_back(buffer);
        }
    }
    from.clear();
}

Status BufferQueue::Flush(ACQ_QUEUE_TYPE operation)
{
    std::size_t moved = 0;
    {
        const orv::MutexLock lock(m_mutex);
        switch (operation) {
        case ACQ_QUEUE_INPUT_TO_OUTPUT:
            moved = m_input.size();
            for (std::shared_ptr<Buffer> &buffer : m_input) {
                buffer->m_state = Buffer::State::Output;
                m_output.push_back(std::move(buffer));
                ++m_counts.fired;
            }
            m_input.clear();
            break;
        case ACQ_QUEUE_OUTPUT_DISCARD:
            MoveAll(m_output, Buffer::State::Idle);
            break;
        case ACQ_QUEUE_ALL_TO_INPUT:
            MoveAll(m_output, Buffer::State::Input);
            break;
        case ACQ_QUEUE_UNQUEUED_TO_INPUT: {
            std::deque<std::shared_ptr<Buffer>> idle;
            for (const std::shared_ptr<Buffer> &buffer : m_announced) {
                if (buffer->m_state == Buffer::State::Idle)
                    idle.push_back(buffer);
            }
            MoveAll(idle, Buffer::State::Input);
            break;
        }
        case ACQ_QUEUE_ALL_DISCARD:
            MoveAll(m_input, Buffer::State::Idle);
            MoveAll(m_output, Buffer::State::Idle);
            break;
        default:
            return {GC_ERR_NOT_IMPLEMENTED, "there is no queue operation " + std::to_string(operation)};
        }
    }
    for (; moved > 0; --moved)
        m_onOutput(); // each wakes one waiter
    return {};
}

std::shared_ptr<Buffer> BufferQueue::At(std::size_t index) const
{
    const orv::MutexLock lock(m_mutex);
    return index < m_announced.size() ? m_announced[index] : nullptr;
}

std::size_t BufferQueue::LargestSize() const
{
    const orv::MutexLock lock(m_mutex);
    std::size_t largest = 0;
    for (const std::shared_ptr<Buffer> &buffer : m_announced)
        largest = std::max(largest, buffer->Size());
    return largest;
}

BufferQueue::Counts BufferQueue::GetCounts() const
{
    const orv::MutexLock lock(m_mutex);
    Counts counts = m_counts;
    counts.announced = m_announced.size();
    counts.queued = m_input.size() + m_filling.size();
    counts.awaiting = m_output.size();
    counts.isGrabbing = m_grabbing;
    return counts;
}

void BufferQueue::Begin(std::uint64_t count)
{
    const orv::MutexLock lock(m_mutex);
    m_grabbing = true;
    m_remaining = count;
    m_countsBefore = m_counts;
    m_counts.delivered = m_counts.incomplete = 0;
}

void BufferQueue::TakeBackBegin()
{
    const orv::MutexLock lock(m_mutex);
    m_grabbing = false;
    m_counts.delivered = m_countsBefore.delivered;
    m_counts.incomplete = m_countsBefore.incomplete;
}

void BufferQueue::End()
{
    const orv::MutexLock lock(m_mutex);
    m_grabbing = false;
}

void BufferQueue::Pause(bool paused)
{
    const orv::MutexLock lock(m_mutex);
    m_paused = paused;
}

bool BufferQueue::TakeBuffer(FrameTarget &target)
{
    const orv::MutexLock lock(m_mutex);
    if (IsFull())
        return false;
    ++m_counts.started;
    if (m_input.empty() || m_paused) {
        ++(m_paused ? m_counts.discarded : m_counts.underruns);
        return false;
    }
    // The one queued last: while the consumer keeps up, few of the buffers are in use, and those stay in the caches.
    std::shared_ptr<Buffer> buffer = std::move(m_input.back());
    m_input.pop_back();
    buffer->m_state = Buffer::State::Filling;
    target = {buffer->Base(), buffer->Size(), buffer.get()};
    m_filling.push_back(std::move(buffer));
    return true;
}

bool BufferQueue::WantsFrames() const
{
    const orv::MutexLock lock(m_mutex);
    return !IsFull() && !m_paused;
}

std::shared_ptr<Buffer> BufferQueue::TakeFilling(const FrameTarget &target)
{
    for (auto it = m_filling.begin(); it != m_filling.end(); ++it) {
        if (it->get() != target.owner)
            continue;
        std::shared_ptr<Buffer> buffer = std::move(*it);
        m_filling.erase(it);
        return buffer;
    }
    return nullptr;
}

void BufferQueue::Deliver(const FrameTarget &target, const FrameInfo &info)
{
    {
        const orv::MutexLock lock(m_mutex);
        std::shared_ptr<Buffer> buffer = TakeFilling(target);
        if (buffer == nullptr)
            return;
        buffer->SetFrame(std::make_shared<const FrameInfo>(info));
        buffer->m_state = Buffer::State::Output;
        m_output.push_back(std::move(buffer));
        ++m_counts.fired;
        if (m_remaining != GENTL_INFINITE && --m_remaining == 0)
            m_grabbing = false;
    }
    m_onOutput();
    if (info.isLargerThanBuffer) {
        m_onError(GC_ERR_BUFFER_TOO_SMALL, "frame " + std::to_string(info.frameId) + " does not fit a buffer of " +
                                               std::to_string(target.size) + " bytes");
    }
}

void BufferQueue::GiveBack(const FrameTarget &target)
{
    const orv::MutexLock lock(m_mutex);
    std::shared_ptr<Buffer> buffer = TakeFilling(target);
    if (buffer == nullptr)
        return;
    buffer->m_state = Buffer::State::Input;
    m_input.push_back(std::move(buffer));
}

std::size_t BufferQueue::SpareBuffers() const
{
    const orv::MutexLock lock(m_mutex);
    return m_input.size();
}

std::shared_ptr<Buffer> BufferQueue::TakeOutput()
{
    const orv::MutexLock lock(m_mutex);
    if (m_output.empty())
        return nullptr;
    std::shared_ptr<Buffer> buffer = std::move(m_output.front());
    m_output.pop_front();
    buffer->m_state = Buffer::State::Idle;
    const std::shared_ptr<const FrameInfo> frame = buffer->Frame();
    if (frame != nullptr) { // not one that a flush delivered empty
        ++m_counts.delivered;
        m_counts.incomplete += frame->isIncomplete ? 1 : 0;
    }
    return buffer;
}

void BufferQueue::DiscardOutput()
{
    const orv::MutexLock lock(m_mutex);
    MoveAll(m_output, Buffer::State::Idle);
}

NewBufferEvents::NewBufferEvents(std::shared_ptr<BufferQueue> queue)
    : m_queue(std::move(queue)), m_firedBefore(FiredBefore(m_queue->GetCounts()))
{
}

EventSource::Pop NewBufferEvents::TakeOldest(void *buffer, std::size_t *size)
{
    if (buffer != nullptr && *size < sizeof(EVENT_NEW_BUFFER_DATA))
        return m_queue->GetCounts().awaiting != 0 ? Pop::TooSmall : Pop::Empty;
    const std::shared_ptr<Buffer> taken = m_queue->TakeOutput();
    if (taken == nullptr)
        return Pop::Empty;
    const EVENT_NEW_BUFFER_DATA data{taken->Handle(), taken->UserPointer()};
    if (buffer != nullptr)
        std::memcpy(buffer, &data, sizeof data);
    *size = sizeof data;
    return Pop::Done;
}

Result<InfoValue> NewBufferEvents::Decode(orv::ByteSpan data, EVENT_DATA_INFO_CMD command) const
{
    EVENT_NEW_BUFFER_DATA event{};
    if (data.size < sizeof event)
        return Status(GC_ERR_INVALID_PARAMETER, "these are no data of a new-buffer event");
    std::memcpy(&event, data.data, sizeof event);
    switch (command) {
    case EVENT_DATA_ID:
        return InfoValue::Pointer(event.BufferHandle);
    case EVENT_DATA_VALUE:
        return InfoValue::Pointer(event.pUserPointer);
    case EVENT_DATA_NUMID:
        return Status(GC_ERR_NOT_AVAILABLE, "a new-buffer event has no number");
    default:
        return UnknownCommand("event data", command);
    }
}

} // namespace nuvark
