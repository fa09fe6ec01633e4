#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace orvsim {

/// The device's clock: nanoseconds since it was switched on or last reset. Any thread.
class DeviceClock {
public:
    DeviceClock() : m_startNs(HostNs()) {}

    std::uint64_t Now() const { return static_cast<std::uint64_t>(HostNs() - m_startNs.load()); }
    /// \return what the clock showed: earlier times of this clock lie that much lower from now on.
    std::uint64_t Reset()
    {
        const std::int64_t now = HostNs();
        return static_cast<std::uint64_t>(now - m_startNs.exchange(now));
    }
    /// Where a time of this clock lies on the host's steady clock.
    std::chrono::steady_clock::time_point ToHost(std::uint64_t timestampNs) const
    {
        return std::chrono::steady_clock::time_point(
            std::chrono::nanoseconds(m_startNs.load() + static_cast<std::int64_t>(timestampNs)));
    }

private:
    static std::int64_t HostNs()
    {
        const auto sinceEpoch = std::chrono::steady_clock::now().time_since_epoch();
        return std::chrono::duration_cast<std::chrono::nanoseconds>(sinceEpoch).count();
    }

    std::atomic<std::int64_t> m_startNs;
};

} // namespace orvsim
