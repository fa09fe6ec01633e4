#pragma once

#include "producer/gige/UdpSocket.h"

#include <atomic>

namespace nuvark::gige {

/// How long a camera has not answered, and whether that says anything about the camera.
///
/// By the clock alone it says nothing: a program that was stopped, or had no processor, has not asked meanwhile. What
/// counts are questions that stayed without an answer. Any thread, without locks; times are not before those of
/// earlier calls but for what two threads at the same moment make of it.
class Silence {
public:
    Silence() : m_lastAnswer(Clock::now().time_since_epoch().count()), m_reached(m_lastAnswer.load()) {}

    void OnAsked(TimePoint now);
    void OnHeard(TimePoint now);
    /// The camera may be busy and deaf until then, by its own word. Whatever it answers ends that.
    void Excuse(TimePoint until) { m_excusedUntil = until.time_since_epoch().count(); }

    TimePoint LastAnswer() const { return At(m_lastAnswer); }
    /// For how long it has been asked in vain; 0 after few questions and while it is excused.
    Clock::duration InVain(TimePoint now) const;

    /// The longest time since the last ForgetGaps() that the camera may have heard nothing of us: from a question that
    /// it answered to the answer to the next one. An answer itself may have waited here while this program was stopped.
    Clock::duration LongestGap() const { return Clock::duration(m_longestGap); }
    void ForgetGaps() { m_longestGap = 0; }

private:
    static TimePoint At(Clock::rep ticks) { return TimePoint(Clock::duration(ticks)); }

    std::atomic<Clock::rep> m_lastAnswer;
    std::atomic<Clock::rep> m_reached;          ///< when the last question that was answered was asked
    std::atomic<Clock::rep> m_firstQuestion{0}; ///< since then
    std::atomic<int> m_questions{0};            ///< since then
    std::atomic<Clock::rep> m_excusedUntil{0};
    std::atomic<Clock::rep> m_longestGap{0};
};

} // namespace nuvark::gige
