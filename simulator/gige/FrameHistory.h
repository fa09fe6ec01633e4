#pragma once

#include "base/Mutex.h"
#include "simulator/gige/GvspPackets.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>

namespace orvsim {

/// A block that was sent or is on its way.
struct SentBlock {
    Block block;
    /// The link has no room for all of its packets, and so none for packets that are sent again.
    bool isLinkFull = false;
    std::atomic<std::uint32_t> packetsSent{0}; ///< ids below it are on the network or about to be
};

/// The last blocks, for packets that are asked for again. The oldest makes room for a new one. Any thread.
class FrameHistory {
public:
    explicit FrameHistory(std::size_t capacity) : m_capacity(capacity) {}

    void Add(std::shared_ptr<SentBlock> block) EXCLUDES(m_mutex);
    /// The newest block with that id, asked for in the form it was sent in; null when it is gone.
    std::shared_ptr<SentBlock> Find(std::uint64_t blockId, bool extendedIds) const EXCLUDES(m_mutex);
    void Remove(const SentBlock &block) EXCLUDES(m_mutex);
    void Clear() EXCLUDES(m_mutex);

private:
    const std::size_t m_capacity;
    mutable orv::Mutex m_mutex;
    std::deque<std::shared_ptr<SentBlock>> m_blocks GUARDED_BY(m_mutex); // oldest first
};

} // namespace orvsim
