#include "producer/Event.h"

#include <chrono>
#include <cstdio>

namespace nuvark {

namespace {

/// Beyond this a wait counts as endless: the clock's arithmetic would overflow.
constexpr std::uint64_t kLongestWaitMs = 1000ULL * 3600 * 24 * 365;

Status UnknownDataCommand(EVENT_DATA_INFO_CMD command)
{
    return UnknownCommand("event data", command);
}

} // namespace

void EventQueue::Push(std::vector<std::uint8_t> data)
{
    if (data.size() > m_maxSize)
        data.resize(m_maxSize);
    const orv::MutexLock lock(m_mutex);
    while (!m_entries.empty() && (m_entries.size() >= m_capacity || m_bytes + data.size() > m_maxBytes)) {
        RemoveOldest();
        ++m_dropped;
    }
    m_bytes += data.size();
    m_entries.push_back(std::move(data));
    ++m_fired;
}

void EventQueue::RemoveOldest()
{
    m_bytes -= m_entries.front().size();
    m_entries.pop_front();
}

std::uint64_t EventQueue::Dropped() const
{
    const orv::MutexLock lock(m_mutex);
    return m_dropped;
}

std::size_t EventQueue::Count() const
{
    const orv::MutexLock lock(m_mutex);
    return m_entries.size();
}

std::uint64_t EventQueue::Fired() const
{
    const orv::MutexLock lock(m_mutex);
    return m_fired;
}

EventSource::Pop EventQueue::TakeOldest(void *buffer, std::size_t *size)
{
    const orv::MutexLock lock(m_mutex);
    if (m_entries.empty())
        return Pop::Empty;
    const std::vector<std::uint8_t> &entry = m_entries.front();
    if (buffer != nullptr) {
        if (*size < entry.size())
            return Pop::TooSmall;
        std::memcpy(buffer, entry.data(), entry.size());
    }
    *size = entry.size();
    RemoveOldest();
    return Pop::Done;
}

void EventQueue::Clear()
{
    const orv::MutexLock lock(m_mutex);
    m_entries.clear();
    m_bytes = 0;
}

std::vector<std::uint8_t> ErrorEvents::Encode(GC_ERROR code, const std::string &text)
{
    std::vector<std::uint8_t> data(sizeof code);
    std::memcpy(data.data(), &code, sizeof code);
    const std::string shortText = text.substr(0, 1000);
    data.insert(data.end(), shortText.begin(), shortText.end());
    data.push_back(0);
    return data;
}

Result<InfoValue> ErrorEvents::Decode(orv::ByteSpan data, EVENT_DATA_INFO_CMD command) const
{
    GC_ERROR code = 0;
    if (data.size < sizeof code)
        return Status(GC_ERR_INVALID_PARAMETER, "these are no data of an error event");
    std::memcpy(&code, data.data, sizeof code);
    switch (command) {
    case EVENT_DATA_ID:
        return InfoValue::Int32(code);
    case EVENT_DATA_VALUE:
        return InfoValue::String(orv::ByteReader({data.data + 4, data.size - 4}).Text(data.size - 4));
    case EVENT_DATA_NUMID:
        return InfoValue::UInt64(static_cast<std::uint64_t>(std::int64_t{code}));
    default:
        return UnknownDataCommand(command);
    }
}

std::vector<std::uint8_t> TextEvents::Encode(const std::string &text)
{
    std::vector<std::uint8_t> data(text.begin(), text.begin() + std::min<std::size_t>(text.size(), 1000));
    data.push_back(0);
    return data;
}

Result<InfoValue> TextEvents::Decode(orv::ByteSpan data, EVENT_DATA_INFO_CMD command) const
{
    switch (command) {
    case EVENT_DATA_ID:
        return InfoValue::Int32(m_type);
    case EVENT_DATA_VALUE:
        return InfoValue::String(orv::ByteReader(data).Text(data.size));
    case EVENT_DATA_NUMID:
        return InfoValue::UInt64(static_cast<std::uint64_t>(m_type));
    default:
        return UnknownDataCommand(command);
    }
}

Result<InfoValue> PacketEvents::Decode(orv::ByteSpan data, EVENT_DATA_INFO_CMD command) const
{
    switch (command) {
    case EVENT_DATA_ID:
        return InfoValue::Int32(m_type);
    case EVENT_DATA_VALUE:
        return InfoValue::Bytes(data.data, data.size);
    case EVENT_DATA_NUMID:
        return InfoValue::UInt64(static_cast<std::uint64_t>(m_type));
    default:
        return UnknownDataCommand(command);
    }
}

Result<InfoValue> RemoteEvents::Decode(orv::ByteSpan data, EVENT_DATA_INFO_CMD command) const
{
    constexpr std::size_t kPacketHeader = 8;
    orv::ByteReader in(data);
    in.Skip(kPacketHeader + 2);
    const std::uint16_t id = in.U16();
    if (!in.Ok())
        return Status(GC_ERR_INVALID_PARAMETER, "these are no data of a camera's event");
    char text[8];
    switch (command) {
    case EVENT_DATA_ID:
        std::snprintf(text, sizeof text, "%04X", static_cast<unsigned>(id));
        return InfoValue::String(text);
    case EVENT_DATA_VALUE: // what the event's port addresses, from the item's first byte on
        return InfoValue::Bytes(data.data + kPacketHeader, data.size - kPacketHeader);
    case EVENT_DATA_NUMID:
        return InfoValue::UInt64(id);
    default:
        return UnknownDataCommand(command);
    }
}

std::vector<std::uint8_t> InvalidateEvents::Encode(const std::string &feature)
{
    std::vector<std::uint8_t> data(feature.begin(), feature.end());
    data.push_back(0);
    return data;
}

Result<InfoValue> InvalidateEvents::Decode(orv::ByteSpan data, EVENT_DATA_INFO_CMD command) const
{
    switch (command) {
    case EVENT_DATA_ID:
        return InfoValue::String(orv::ByteReader(data).Text(data.size));
    case EVENT_DATA_VALUE:
    case EVENT_DATA_NUMID:
        return Status(GC_ERR_NOT_AVAILABLE, "the event tells a feature's name and nothing else");
    default:
        return UnknownDataCommand(command);
    }
}

Status Event::GetData(void *buffer, std::size_t *size, std::uint64_t timeoutMs)
{
    const bool endless = timeoutMs > kLongestWaitMs;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(endless ? 0 : timeoutMs);
    const orv::MutexLock lock(m_mutex);
    for (bool timedOut = timeoutMs == 0;;) {
        if (m_closed)
            return {GC_ERR_ABORT, "the event has been unregistered"};
        if (m_kills > 0) {
            --m_kills;
            return {GC_ERR_ABORT, "the wait has been ended by EventKill"};
        }
        const EventSource::Pop pop = m_source->TakeOldest(buffer, size);
        if (pop == EventSource::Pop::Done)
            return {};
        if (pop == EventSource::Pop::TooSmall) {
            m_changed.NotifyOne(); // the data are still there for another waiter, who was not woken for them
            return {GC_ERR_BUFFER_TOO_SMALL, "the event's data do not fit the buffer"};
        }
        if (timedOut)
            return {GC_ERR_TIMEOUT, "no event in time"};
        if (endless)
            m_changed.Wait(m_mutex);
        else
            timedOut = m_changed.WaitUntil(m_mutex, deadline) == std::cv_status::timeout;
    }
}

void Event::Kill()
{
    const orv::MutexLock lock(m_mutex);
    ++m_kills;
    m_changed.NotifyOne();
}

void Event::Notify()
{
    const orv::MutexLock lock(m_mutex);
    m_changed.NotifyOne();
}

void Event::Close()
{
    const orv::MutexLock lock(m_mutex);
    m_closed = true;
    m_changed.NotifyAll();
}

} // namespace nuvark
