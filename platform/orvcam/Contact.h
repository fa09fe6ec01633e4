#pragma once

#include <atomic>
#include <chrono>

namespace orv::cam {

/// When a camera last answered anybody, and whether somebody is waiting for its answer just now. Threads: any.
class Contact {
public:
    using Clock = std::chrono::steady_clock;

    void Begin() { ++m_underWay; }
    void End(bool hasAnswered)
    {
        if (hasAnswered)
            NoteAnswer();
        --m_underWay;
    }
    void NoteAnswer() { m_lastAnswer = Clock::now().time_since_epoch(); }

    bool IsUnderWay() const { return m_underWay > 0; }
    Clock::time_point LastAnswer() const { return Clock::time_point(m_lastAnswer.load()); }

private:
    std::atomic<int> m_underWay{0};
    std::atomic<Clock::duration> m_lastAnswer{Clock::duration::zero()};
};

} // namespace orv::cam
