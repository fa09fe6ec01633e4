#pragma once

#include <cstdint>
#include <set>

namespace orvcli {

/// Counts the frames whose numbers never came, though some before and behind them did. One thread.
///
/// Frames may overtake each other. Short numbers go from 65535 to 1. A number that leads far back is a camera that
/// counts anew, not a gap, and the gaps before it stay counted.
class FrameGaps {
public:
    void Take(std::uint64_t id);
    std::uint64_t Lost() const { return m_lost; }

private:
    std::int64_t StepTo(std::uint64_t id) const;
    void Advance(std::int64_t frames);

    bool m_hasBegun = false;
    std::uint64_t m_newestId = 0;
    std::int64_t m_newest = 0; ///< counted from the first frame, across the end of the short numbers
    std::uint64_t m_lost = 0;
    std::set<std::int64_t> m_awaited; ///< of the lost ones those that may still come
};

} // namespace orvcli
