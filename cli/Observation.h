#pragma once

#include "orvdoctor/Diagnosis.h"
#include "orvdoctor/PictureRhythm.h"

#include <chrono>

namespace orvcli {

/// Watches a stream for the doctor: what came when, and what was counted since pictures last came. One thread.
class Observation {
public:
    /// To be made before the stream is started, for the first time since the camera was opened. Nothing is asked of the
    /// stream before Watch().
    /// \param settings  of the camera, as far as they are known: they explain pauses
    explicit Observation(orv::Facts settings = {});

    /// Takes frames for so many seconds, until the connection is lost or somebody interrupts.
    void Watch(OrvCam::Stream &stream, double seconds);
    /// What was seen, as far as it concerns the stream.
    void Tell(orv::Facts &facts) const;

private:
    using Clock = std::chrono::steady_clock;
    /// What had been counted up to a time.
    struct Mark {
        Clock::time_point time;
        OrvCam::StreamStatistics stream;
        orv::HostCounts host;
    };

    Mark Now(OrvCam::Stream &stream) const;
    void Note(OrvCam::Buffer &buffer);
    void NotePicture(const _OrvImage &image, Clock::time_point now);

    Mark m_start; ///< the stream's own counts begin at zero when it is opened
    Mark m_pause; ///< when complete frames had just stopped to come; they may have come again
    Mark m_end;
    bool m_pauseIsStale = true; ///< a complete frame has come since
    Clock::time_point m_lastFrame, m_lastComplete, m_lookedAt;
    bool m_isLost = false;
    orv::Facts m_settings;
    orv::PictureRhythm m_rhythm;
    orv::Facts m_seen; ///< counts of frames, the longest pause, levels
};

} // namespace orvcli
