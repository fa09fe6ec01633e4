#include "producer/gige/Silence.h"

#include <algorithm>

namespace nuvark::gige {

namespace {

/// Some may get lost, and some may have been asked just before this program was stopped.
constexpr int kFewestQuestions = 4;

} // namespace

void Silence::OnAsked(TimePoint now)
{
    if (m_questions++ == 0)
        m_firstQuestion = now.time_since_epoch().count();
}

void Silence::OnHeard(TimePoint now)
{
    const Clock::rep ticks = now.time_since_epoch().count();
    m_lastAnswer = ticks;
    m_longestGap = std::max<Clock::rep>(m_longestGap, ticks - m_reached);
    if (m_questions.exchange(0) != 0)
        m_reached = m_firstQuestion.load();
    m_excusedUntil = 0;
}

Clock::duration Silence::InVain(TimePoint now) const
{
    if (m_questions < kFewestQuestions || now < At(m_excusedUntil))
        return {};
    return now - At(m_firstQuestion);
}

} // namespace nuvark::gige
