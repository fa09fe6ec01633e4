#include "simulator/gige/FrameHistory.h"

#include <algorithm>
#include <utility>

namespace orvsim {

void FrameHistory::Add(std::shared_ptr<SentBlock> block)
{
    if (m_capacity == 0)
        return;
    std::shared_ptr<SentBlock> oldest; // freed without the mutex
    const orv::MutexLock lock(m_mutex);
    if (m_blocks.size() == m_capacity) {
        oldest = std::move(m_blocks.front());
        m_blocks.pop_front();
    }
    m_blocks.push_back(std::move(block));
}

std::shared_ptr<SentBlock> FrameHistory::Find(std::uint64_t blockId, bool extendedIds) const
{
    const orv::MutexLock lock(m_mutex);
    const auto found = std::find_if(m_blocks.rbegin(), m_blocks.rend(), [&](const auto &sent) {
        return sent->block.id == blockId && sent->block.extendedIds == extendedIds;
    });
    return found == m_blocks.rend() ? nullptr : *found;
}

void FrameHistory::Remove(const SentBlock &block)
{
    std::shared_ptr<SentBlock> removed; // freed without the mutex
    const orv::MutexLock lock(m_mutex);
    const auto found =
        std::find_if(m_blocks.begin(), m_blocks.end(), [&block](const auto &sent) { return sent.get() == &block; });
    if (found == m_blocks.end())
        return;
    removed = std::move(*found);
    m_blocks.erase(found);
}

void FrameHistory::Clear()
{
    std::deque<std::shared_ptr<SentBlock>> old;
    const orv::MutexLock lock(m_mutex);
    old.swap(m_blocks);
}

} // namespace orvsim
