#include "cli/StreamFigures.h"

#include "cli/Terminal.h"

#include <sys/resource.h>

namespace orvcli {

namespace {

double CpuSeconds()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval &time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double Seconds(StreamFigures::Clock::duration duration)
{
    return std::chrono::duration<double>(duration).count();
}

} // namespace

void StreamFigures::Start()
{
    m_start = Clock::now();
    m_cpuSeconds = CpuSeconds();
}

void StreamFigures::Take(OrvCam::Buffer &buffer)
{
    m_last = Clock::now();
    if (m_frames == 0) {
        m_first = m_last;
        m_firstBytes = buffer.GetBufferSize();
    }
    m_gaps.Take(buffer.GetFrameID());
    m_bytes += buffer.GetBufferSize();
    ++m_frames;
    m_incomplete += buffer.IsIncomplete() ? 1 : 0;
}

void StreamFigures::Finish()
{
    m_cpuSeconds = CpuSeconds() - m_cpuSeconds;
}

double StreamFigures::Fps() const
{
    const double seconds = Seconds(m_last - m_first);
    return seconds > 0 ? static_cast<double>(m_frames - 1) / seconds : 0;
}

double StreamFigures::MbPerSecond() const
{
    const double seconds = Seconds(m_last - m_first);
    return seconds > 0 ? static_cast<double>(m_bytes - m_firstBytes) / seconds / 1e6 : 0;
}

std::string StreamFigures::Text() const
{
    return std::to_string(m_frames) + " frames, " + Fixed(Fps(), 2) + " fps, " + Fixed(MbPerSecond(), 1) + " MB/s, " +
           std::to_string(m_incomplete) + " incomplete, " + std::to_string(Lost()) + " lost";
}

void StreamFigures::Write(Json &json) const
{
    const double seconds = m_frames > 0 ? Seconds(m_last - m_start) : 0;
    json.Member("frames", m_frames).Member("incomplete", m_incomplete).Member("lost", Lost());
    json.Member("fps", Fps()).Member("mbPerSecond", MbPerSecond()).Member("cpuSeconds", m_cpuSeconds);
    json.Member("seconds", seconds).Member("bytes", m_bytes);
}

void WriteStatistics(Json &json, const OrvCam::StreamStatistics &statistics)
{
    json.Open('{');
    for (const OrvCam::NamedFigure &figure : OrvCam::NamedFigures())
        json.Member(figure.name, statistics.*figure.member);
    json.Close('}');
}

} // namespace orvcli
