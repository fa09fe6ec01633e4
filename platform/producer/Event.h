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
    /// Entries that were lost since nobody fetched in time.
    virtual std::uint64_t Dropped() const { return 0; }
    /// Takes the oldest entry away and copies it; a null buffer throws it away. Nothing is taken when it does not fit.
    virtual Pop TakeOldest(void *buffer, std::size_t *size) = 0;
    virtual void Clear() = 0;
    virtual std::size_t MaxSize() const = 0;      ///< of an entry
    virtual std::size_t MaxValueSize() const = 0; ///< of what Decode gives for EVENT_DATA_VALUE
    /// Takes apart what TakeOldest gave.
    virtual Result<InfoValue> Decode(orv::ByteSpan data, EVENT_DATA_INFO_CMD command) const = 0;
};

/// A bounded queue of byte blocks, for all events that carry no buffer. When it is full the oldest entry is dropped:
/// whoever does not fetch is told the latest. What was dropped is counted.
class EventQueue : public EventSource {
public:
    /// \param capacity entries, \param maxSize bytes of an entry, \param maxBytes of all entries together.
    EventQueue(std::size_t capacity, std::size_t maxSize, std::size_t maxBytes = 1U << 20)
        : m_capacity(capacity), m_maxSize(maxSize), m_maxBytes(maxBytes)
    {
    }

    /// An entry longer than the stated maximum is cut.
    void Push(std::vector<std::uint8_t> data) EXCLUDES(m_mutex);

    std::size_t Count() const override EXCLUDES(m_mutex);
    std::uint64_t Fired() const override EXCLUDES(m_mutex);
    std::uint64_t Dropped() const override EXCLUDES(m_mutex);
    Pop TakeOldest(void *buffer, std::size_t *size) override EXCLUDES(m_mutex);
    void Clear() override EXCLUDES(m_mutex);
    std::size_t MaxSize() const override { return m_maxSize; }
    std::size_t MaxValueSize() const override { return m_maxSize; }

private:
    void RemoveOldest() REQUIRES(m_mutex);

    const std::size_t m_capacity;
    const std::size_t m_maxSize;
    const std::size_t m_maxBytes;
    mutable orv::Mutex m_mutex; ///< taken last
    std::deque<std::vector<std::uint8_t>> m_entries GUARDED_BY(m_mutex);
    std::size_t m_bytes GUARDED_BY(m_mutex) = 0; ///< of all entries
    std::uint64_t m_fired GUARDED_BY(m_mutex) = 0;
    std::uint64_t m_dropped GUARDED_BY(m_mutex) = 0;
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

/// Packets as on the wire, many and fast; the bounds hold a tenth of a second of a fast stream.
class PacketEvents final : public EventQueue {
public:
    static constexpr std::size_t kMaxPackets = 16384;
    static constexpr std::size_t kMaxPacket = 65536;
    static constexpr std::size_t kMaxBytes = 32U << 20;

    explicit PacketEvents(EVENT_TYPE type) : EventQueue(kMaxPackets, kMaxPacket, kMaxBytes), m_type(type) {}
    Result<InfoValue> Decode(orv::ByteSpan data, EVENT_DATA_INFO_CMD command) const override;

private:
    const EVENT_TYPE m_type;
};

/// EVENT_REMOTE_DEVICE: one event of the camera, as the EVENTDATA or EVENT packet that carries nothing else.
class RemoteEvents final : public EventQueue {
public:
    RemoteEvents() : EventQueue(1024, 2048) {}
    Result<InfoValue> Decode(orv::ByteSpan data, EVENT_DATA_INFO_CMD command) const override;
};

/// EVENT_FEATURE_INVALIDATE: the name of a feature to read anew.
class InvalidateEvents final : public EventQueue {
public:
    InvalidateEvents() : EventQueue(64, 256) {}
    static std::vector<std::uint8_t> Encode(const std::string &feature);
    Result<InfoValue> Decode(orv::ByteSpan data, EVENT_DATA_INFO_CMD command) const override;
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
