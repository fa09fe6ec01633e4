#include "cli/FrameGaps.h"

#include <algorithm>

namespace orvcli {

namespace {

constexpr std::int64_t kShortIds = 65535;
constexpr std::int64_t kNear = 1000; ///< frames that one may be overtaken by

} // namespace

/// Frames from the newest one on, below 0 before it.
std::int64_t FrameGaps::StepTo(std::uint64_t id) const
{
    const auto step = static_cast<std::int64_t>(id - m_newestId);
    const bool areShort = id > 0 && std::max(id, m_newestId) <= kShortIds;
    if (areShort && step < 0 && step + kShortIds <= kNear)
        return step + kShortIds;
    if (areShort && step > 0 && step - kShortIds >= -kNear)
        return step - kShortIds;
    return step;
}

void FrameGaps::Take(std::uint64_t id)
{
    const std::int64_t step = m_hasBegun ? StepTo(id) : 1;
    m_hasBegun = true;
    if (step > 0)
        Advance(step);
    else if (m_awaited.erase(m_newest + step) > 0)
        --m_lost; // it was overtaken
    if (step > 0 || step < -kNear)
        m_newestId = id;
}

void FrameGaps::Advance(std::int64_t frames)
{
    m_lost += static_cast<std::uint64_t>(frames - 1);
    m_newest += frames;
    for (std::int64_t left = std::max(m_newest - frames + 1, m_newest - kNear); left < m_newest; ++left)
        m_awaited.insert(left);
    m_awaited.erase(m_awaited.begin(), m_awaited.lower_bound(m_newest - kNear));
}

} // namespace orvcli
