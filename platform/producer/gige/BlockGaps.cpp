#include "producer/gige/BlockGaps.h"

namespace nuvark::gige {

void BlockGaps::NoteTail(TimePoint due)
{
    if (m_isTailNoted)
        return;
    m_isTailNoted = true;
    m_plan.AddHole(m_next, kToTheEnd, due);
}

void BlockGaps::NoteSilence(std::uint32_t end, TimePoint due)
{
    if (Probe() != 0 || m_next == 0 || m_next >= end) {
        NoteTail(due);
        return;
    }
    m_probe = m_next++;
    m_plan.AddHole(m_probe, m_probe, due);
}

} // namespace nuvark::gige
