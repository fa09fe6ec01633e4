#pragma once

#include "cli/FrameGaps.h"
#include "cli/Json.h"
#include "orvcam/OrvCam.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace orvcli {

/// What one acquisition brought. One thread.
class StreamFigures {
public:
    using Clock = std::chrono::steady_clock;

    /// Reads clock and processor time; without it all figures are zero.
    void Start();
    void Take(OrvCam::Buffer &buffer);
    /// Reads the clock of the processor; call it when the last frame has come.
    void Finish();

    std::uint64_t Frames() const { return m_frames; }
    std::uint64_t Incomplete() const { return m_incomplete; }
    /// Frames whose numbers were left out between the first and the last that came.
    std::uint64_t Lost() const { return m_gaps.Lost(); }
    /// Frames, and megabytes (10^6) of payload, per second between the first and the last frame.
    double Fps() const;
    double MbPerSecond() const;

    /// "120 frames, 30.00 fps, 39.3 MB/s, 0 incomplete, 0 lost"
    std::string Text() const;
    /// Members of an object that is open.
    void Write(Json &json) const;

private:
    Clock::time_point m_start;
    Clock::time_point m_first;
    Clock::time_point m_last;
    double m_cpuSeconds = 0; ///< of this process: at the start, then since it
    FrameGaps m_gaps;
    std::uint64_t m_frames = 0;
    std::uint64_t m_incomplete = 0;
    std::uint64_t m_bytes = 0;
    std::uint64_t m_firstBytes = 0; ///< of the first frame, which began before its time was taken
};

/// All of the stream's own figures, as one object.
void WriteStatistics(Json &json, const OrvCam::StreamStatistics &statistics);

} // namespace orvcli
