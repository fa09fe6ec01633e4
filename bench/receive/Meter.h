#pragma once

#include "receive/Receivers.h"

#include <chrono>
#include <vector>

namespace receivebench {

/// Counts while a receiver runs, and knows when its time is over. Measured is what comes after a warm-up. One thread.
class Meter {
public:
    explicit Meter(std::size_t payload);

    /// \param timestampNs  of the frame, by the camera's clock
    void Frame(bool isComplete, std::uint64_t timestampNs);
    bool IsOver() const;
    Figures Result();

private:
    using Clock = std::chrono::steady_clock;

    const std::size_t m_payload;
    const Clock::time_point m_created = Clock::now();
    Clock::time_point m_begin = m_created;
    double m_cpu = 0; ///< s that the process had used at the beginning
    std::uint64_t m_complete = 0;
    std::uint64_t m_damaged = 0;
    std::vector<std::int64_t> m_ages; ///< of complete frames, ns
    bool m_isMeasuring = false;
};

} // namespace receivebench
