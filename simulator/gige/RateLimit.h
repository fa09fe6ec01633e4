#pragma once

#include "simulator/gige/Reply.h"

#include <algorithm>

namespace orvsim {

/// A budget that fills up at a steady rate and never beyond its size. One thread.
class RateLimit {
public:
    RateLimit(double perSecond, double size) : m_perSecond(perSecond), m_size(size), m_left(size) {}

    /// \return false when the budget does not hold that much; nothing is taken then. More than the whole budget costs
    ///         just that.
    bool Take(double amount, TimePoint now)
    {
        const double seconds = std::chrono::duration<double>(now - m_filledAt).count();
        m_left = std::min(m_size, m_left + std::max(0.0, seconds) * m_perSecond);
        m_filledAt = now;
        amount = std::min(amount, m_size);
        if (amount > m_left)
            return false;
        m_left -= amount;
        return true;
    }

private:
    const double m_perSecond;
    const double m_size;
    double m_left;
    TimePoint m_filledAt{};
};

} // namespace orvsim
