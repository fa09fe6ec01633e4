#include "cli/Observation.h"

#include "cli/Terminal.h"

#include <algorithm>
#include <utility>

namespace orvcli {

namespace {

constexpr std::chrono::milliseconds kPause{100}; ///< without a complete frame: later counts are compared with now's
constexpr std::chrono::milliseconds kBetweenLooks{200};

double Seconds(std::chrono::steady_clock::duration time)
{
    return std::chrono::duration<double>(time).count();
}

} // namespace

Observation::Observation(orv::Facts settings) : m_settings(std::move(settings))
{
    m_start.time = m_lastFrame = m_lastComplete = Clock::now();
    m_start.host = orv::ReadHostCounts();
    m_pause = m_end = m_start;
}

Observation::Mark Observation::Now(OrvCam::Stream &stream) const
{
    return {Clock::now(), stream.GetStatistics(), orv::ReadHostCounts()};
}

void Observation::Watch(OrvCam::Stream &stream, double seconds)
{
    Progress progress;
    m_start.time = m_lastFrame = m_lastComplete = m_pause.time = Clock::now();
    m_pauseIsStale = false; // nothing has come yet
    int status = ORV_CAM_OK;
    while (!IsInterrupted() && Seconds(Clock::now() - m_start.time) < seconds && !m_isLost) {
        if (OrvCam::Buffer *buffer = stream.GetBuffer(kPause.count(), &status)) {
            Note(*buffer);
            stream.QueueBuffer(buffer);
        }
        m_isLost = status == ORV_CAM_ERR_DEVICE_LOST;
        if (m_pauseIsStale && Clock::now() - m_lastComplete >= kPause) {
            m_pause = Now(stream);
            m_pauseIsStale = false;
        }
        progress.Show("watching the stream, " + std::to_string(m_seen.completeFrames + m_seen.incompleteFrames) +
                      " frames");
    }
    m_end = Now(stream);
}

void Observation::Note(OrvCam::Buffer &buffer)
{
    const Clock::time_point now = Clock::now();
    if (m_seen.completeFrames + m_seen.incompleteFrames > 0) // the wait for the first is none between frames
        m_seen.longestPauseSeconds = std::max(m_seen.longestPauseSeconds, Seconds(now - m_lastFrame));
    m_lastFrame = now;
    if (buffer.IsIncomplete()) {
        ++m_seen.incompleteFrames;
        return;
    }
    ++m_seen.completeFrames;
    m_rhythm.Note(Seconds(now - m_lastComplete), m_settings);
    m_lastComplete = now;
    m_pauseIsStale = true;
    NotePicture(*buffer.GetImage(), now);
}

/// A dark moment is no dark scene: the least of what was seen counts.
void Observation::NotePicture(const _OrvImage &image, Clock::time_point now)
{
    if (m_seen.hasPicture && now - m_lookedAt < kBetweenLooks)
        return;
    m_lookedAt = now;
    orv::Facts levels;
    orv::GatherPicture(image, levels);
    if (!levels.hasPicture)
        return;
    m_seen.darkShare = m_seen.hasPicture ? std::min(m_seen.darkShare, levels.darkShare) : levels.darkShare;
    m_seen.saturatedShare =
        m_seen.hasPicture ? std::min(m_seen.saturatedShare, levels.saturatedShare) : levels.saturatedShare;
    m_seen.hasPicture = true;
}

void Observation::Tell(orv::Facts &facts) const
{
    facts.isStreaming = true;
    facts.isSilent = facts.isSilent || m_isLost;
    facts.completeFrames = m_seen.completeFrames;
    facts.incompleteFrames = m_seen.incompleteFrames;
    facts.usualPauseSeconds = m_rhythm.UsualPauseSeconds();
    facts.longestPauseSeconds = m_seen.longestPauseSeconds;
    facts.hasPicture = m_seen.hasPicture;
    facts.darkShare = m_seen.darkShare;
    facts.saturatedShare = m_seen.saturatedShare;
    facts.streamingSeconds = Seconds(m_end.time - m_start.time);
    facts.secondsSinceFrame = Seconds(m_end.time - m_lastFrame);
    const bool haveStopped =
        !m_pauseIsStale && Seconds(m_end.time - m_lastComplete) >= orv::PatienceSeconds(m_rhythm.UsualPauseSeconds());
    const Mark &from = haveStopped ? m_pause : m_start;
    facts.stream = orv::Since(from.stream, m_end.stream);
    facts.host = orv::Since(from.host, m_end.host);
    facts.countedSeconds = Seconds(m_end.time - from.time);
}

} // namespace orvcli
