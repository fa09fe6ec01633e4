#pragma once

#include "base/Bytes.h"
#include "base/Mutex.h"
#include "simulator/core/Camera.h"
#include "simulator/gige/BootstrapState.h"
#include "simulator/gige/Reply.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

namespace orvsim {

struct MessageCounts {
    std::uint64_t sent = 0; ///< events, each counted once
    std::uint64_t repeated = 0;
    std::uint64_t unanswered = 0; ///< given up after all repeats
    std::uint64_t dropped = 0;    ///< the queue was full
};

/// The device's message channel: events wait in a queue and go out one at a time, each repeated under its request id
/// until the host acknowledges it or the repeats are used up. No sockets: Tick() says what has to be sent.
///
/// Threads: every function from any thread. Full: Push() drops the new event and counts it. Closed: nothing is queued.
class MessageChannel {
public:
    explicit MessageChannel(std::size_t capacity = 64) : m_capacity(capacity) {}

    /// A change of destination forgets what was queued for the last one.
    void SetTarget(const MessageTarget &target) EXCLUDES(m_mutex);
    /// \return false when it was not queued.
    bool Push(const DeviceEvent &event, std::uint64_t blockId) EXCLUDES(m_mutex);
    /// A datagram that came to the message socket.
    void Receive(const Endpoint &from, orv::ByteSpan datagram) EXCLUDES(m_mutex);
    /// What has to be sent now.
    std::vector<Reply> Tick(TimePoint now) EXCLUDES(m_mutex);
    MessageCounts Counts() const EXCLUDES(m_mutex);

private:
    struct Queued {
        DeviceEvent event;
        std::uint64_t blockId;
    };
    struct Outstanding {
        Datagram bytes;
        std::uint16_t requestId;
        std::uint16_t commandCode;
        std::uint32_t repeats;
        TimePoint deadline;
    };
    /// True while the message under way keeps the next from going.
    bool IsWaiting(TimePoint now, std::vector<Reply> &out) REQUIRES(m_mutex);
    void SendNext(TimePoint now, std::vector<Reply> &out) REQUIRES(m_mutex);

    const std::size_t m_capacity;
    mutable orv::Mutex m_mutex;
    MessageTarget m_target GUARDED_BY(m_mutex);
    std::deque<Queued> m_queue GUARDED_BY(m_mutex);
    std::optional<Outstanding> m_outstanding GUARDED_BY(m_mutex);
    std::uint16_t m_lastRequestId GUARDED_BY(m_mutex) = 0;
    MessageCounts m_counts GUARDED_BY(m_mutex);
};

} // namespace orvsim
