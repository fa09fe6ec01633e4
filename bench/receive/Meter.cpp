#include "receive/Meter.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include <sys/resource.h>

namespace receivebench {

namespace {

constexpr std::chrono::seconds kWarmUp{2};
constexpr std::chrono::seconds kMeasured{4};
constexpr std::size_t kMostFrames = 100000; ///< so that no memory is asked for while it is measured

/// User and system time of this process.
double CpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval &t) { return double(t.tv_sec) + double(t.tv_usec) * 1e-6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

} // namespace

Meter::Meter(std::size_t payload) : m_payload(payload)
{
    m_ages.reserve(kMostFrames);
}

void Meter::Frame(bool isComplete, std::uint64_t timestampNs)
{
    const Clock::time_point now = Clock::now();
    ++(isComplete ? m_complete : m_damaged);
    if (isComplete)
        m_ages.push_back(std::chrono::nanoseconds(now.time_since_epoch()).count() -
                         static_cast<std::int64_t>(timestampNs));
    if (m_isMeasuring || now - m_created < kWarmUp)
        return;
    m_isMeasuring = true;
    m_begin = now;
    m_cpu = CpuSeconds();
    m_complete = m_damaged = 0;
    m_ages.clear();
}

bool Meter::IsOver() const
{
    return Clock::now() - m_created >= kWarmUp + kMeasured;
}

Figures Meter::Result()
{
    Figures figures;
    const double gigabytes = double(m_complete) * double(m_payload) / 1e9;
    const double seconds = std::chrono::duration<double>(Clock::now() - m_begin).count();
    figures.cpuPerGigabyte = (CpuSeconds() - m_cpu) / std::max(gigabytes, 1e-9);
    figures.megabytesPerSecond = gigabytes * 1e3 / seconds;
    figures.complete = m_complete;
    figures.damaged = m_damaged;
    std::sort(m_ages.begin(), m_ages.end());
    if (!m_ages.empty()) {
        figures.medianAge = m_ages[m_ages.size() / 2];
        figures.longAge = m_ages[m_ages.size() * 99 / 100];
    }
    return figures;
}

int Stream::SocketBuffer() const
{
    return static_cast<int>(std::max<std::size_t>(2 * Payload(), 16 << 20));
}

void Fail(const char *what)
{
    std::fprintf(stderr, "bench_receive: %s\n", what);
    std::exit(1);
}

} // namespace receivebench
