#pragma once

#include "base/Mutex.h"
#include "simulator/core/Faults.h"

#include <cstdint>
#include <deque>
#include <utility>

namespace orvsim {

/// Numbers the blocks of an acquisition: one after another from Faults::firstBlockId, but for the ids that a fault
/// repeats or leaves out. Counts go beyond 16 bits; BlockIdOnWire() gives what is sent.
///
/// Threads: Next() from the stream's; CountOf() from any.
class BlockIds {
public:
    /// The count of the next block. A frame number that is not above the last one begins a new acquisition.
    std::uint64_t Next(std::uint64_t frameNumber, const Faults &faults, FaultDice &dice) EXCLUDES(m_mutex);
    /// True when a frame of that number would begin a new acquisition.
    bool BeginsAnew(std::uint64_t frameNumber) const EXCLUDES(m_mutex);
    /// What the frame of that number got, or gets when nothing comes between.
    std::uint64_t CountOf(std::uint64_t frameNumber, std::int64_t firstBlockId) const EXCLUDES(m_mutex);

private:
    mutable orv::Mutex m_mutex;
    std::deque<std::pair<std::uint64_t, std::uint64_t>> m_last GUARDED_BY(m_mutex); // frame number, count
};

} // namespace orvsim
