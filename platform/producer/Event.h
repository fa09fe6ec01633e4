#pragma once

#include "base/Bytes.h"
#include "base/Mutex.h"
#include "producer/HandleTable.h"
#include "producer/Info.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

namespace nuvark {

/// Where a registered event takes its data from. Any thread.
class EventSource {
public:
    enum class Pop { Done, Empty, TooSmall };

    virtual ~EventSource() = default;
    virtual std::size_t Count() const = 0;
    virtual std::uint64_t Fired() const = 0;
    /// Takes the oldest entry away and copies it; a null buffer throws it away. Nothing is taken when it does not fit.
    virtual Pop TakeOldest(void *buffer, std::size_t *size) = 0;
    virtual void Clear() = 0;
    virtual std::size_t MaxSize() const = 0;      ///< of an entry
    virtual std::size_t MaxValueSize() const = 0; ///< of what Decode gives for EVENT_DATA_VALUE
    /// Takes apart what TakeOldest gave.
    virtual Result<InfoValue> Decode(orv::ByteSpan data, EVENT_DATA_INFO_CMD command) const = 0;
};

/// A bounded queue of byte blocks, for all events that carry no buffer. When it is full the oldest entry is dropped:
/// whoever does not fetch is told the latest.
class EventQueue : public EventSource {
public:
    EventQueue(std::size_t capacity, std::size_t maxSize) : m_capacity(capacity), m_maxSize(maxSize) {}

    /// An entry longer than the stated maximum is cut.
    void Push(std::vector<std::uint8_t> data) EXCLUDES(m_mutex);

    std::size_t Count() const override EXCLUDES(m_mutex);
    std::uint64_t Fired() const override EXCLUDES(m_mutex);
    Pop TakeOldest(void *buffer, std::size_t *size) override EXCLUDES(m_mutex);
    void Clear() override EXCLUDES(m_mutex);
    std::size_t MaxSize() const override { return m_maxSize; }
    std::size_t MaxValueSize() const override { return m_maxSize; }

private:
    const std::size_t m_capacity;
    const std::size_t m_maxSize;
    mutable orv::Mutex m_mutex; ///< taken last
    std::deque<std::vector<std::uint8_t>> m_entries GUARDED_BY(m_mutex);
    std::uint64_t m_fired GUARDED_BY(m_mutex) = 0;
};

/// EVENT_ERROR: a status code and a text.
class ErrorEvents final : public EventQueue {
public:
    ErrorEvents() : EventQueue(32, 4 + 1024) {}
    static std::vector<std::uint8_t> Encode(GC_ERROR code, const std::string &text);
    Result<InfoValue> Decode(orv::ByteSpan data, EVENT_DATA_INFO_CMD command) const override;
};

/// An event of our own whose data is a text.
class TextEvents final : public EventQueue {
public:
    explicit TextEvents(EVENT_TYPE type) : EventQueue(8, 1024), m_type(type) {}
    static std::vector<std::uint8_t> Encode(const std::string &text);
    Result<InfoValue> Decode(orv::ByteSpan data, EVENT_DATA_INFO_CMD command) const override;

private:
    const EVENT_TYPE m_type;
};

/// One registered event: waiting, killing and ending, around a source of data.
///
/// A kill ends exactly one wait, or the next one when nobody waits. Close() ends all waits.
/// Threads: any. Lock order: m_mutex before the source's own mutex; producers of data push into the source first, with
/// this one not held, and call Notify() then.
class Event final : public Object {
public:
    static bool IsKind(Kind kind) { return kind == Kind::Event; }

    Event(EVENT_TYPE type, std::shared_ptr<EventSource> source)
        : Object(Kind::Event), m_type(type), m_source(std::move(source))
    {
    }

    EVENT_TYPE Type() const { return m_type; }
    EventSource &Source() { return *m_source; }

    /// \param timeoutMs GENTL_INFINITE waits without limit, 0 never waits.
    Status GetData(void *buffer, std::size_t *size, std::uint64_t timeoutMs) EXCLUDES(m_mutex);
    void Kill() EXCLUDES(m_mutex);
    void Notify() EXCLUDES(m_mutex);
    void Close() EXCLUDES(m_mutex);

private:
    const EVENT_TYPE m_type;
    const std::shared_ptr<EventSource> m_source;
    orv::Mutex m_mutex;
    orv::ConditionVariable m_changed;
    std::uint32_t m_kills GUARDED_BY(m_mutex) = 0;
    bool m_closed GUARDED_BY(m_mutex) = false;
};

} // namespace nuvark
