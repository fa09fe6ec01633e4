#pragma once

#include "simulator/core/CameraState.h"

#include <cstdint>
#include <optional>

namespace orvsim {

/// Decides when frames are taken: free running, at a set rate, or on triggers. Pure arithmetic on device time, so that
/// a test needs no waiting; the camera's mutex guards it.
class FrameClock {
public:
    struct Pace {
        double periodNs = 0; ///< from one frame's start to the next
        double exposureNs = 0;
        bool isTriggered = false;
        bool isTimer = false; ///< triggers come from the timer
        double timerNs = 0;
        double delayNs = 0; ///< from trigger to start
    };

    void Start(std::uint64_t nowNs);
    void Stop() { m_isRunning = false; }
    bool IsRunning() const { return m_isRunning; }
    /// The device's clock was set back by that much: what is planned moves with it.
    void SetBack(std::uint64_t elapsedNs);
    /// Number of the next frame that is taken.
    std::uint64_t NextNumber() const { return m_number; }

    /// \return false: the trigger came before the sensor was ready, or before an earlier one was used up, and is lost.
    bool Trigger(std::uint64_t nowNs, const Pace &pace);

    /// When the next frame's exposure is over; nothing while it waits for a trigger.
    std::optional<std::uint64_t> NextDue(std::uint64_t nowNs, const Pace &pace);
    /// When the next frame's exposure begins; nothing as well when Begin() has told of it.
    std::optional<std::uint64_t> NextStart(std::uint64_t nowNs, const Pace &pace);
    /// When the next frame's exposure began: once for each frame, from then on.
    std::optional<std::uint64_t> Begin(std::uint64_t nowNs, const Pace &pace);

    struct Taken {
        std::uint64_t number; ///< counts the frames of this acquisition
        std::uint64_t startNs;
        std::uint64_t skipped; ///< frames that were due before and could not be taken
        bool isToldOf;         ///< Begin() gave this start
        double sinceLastNs;    ///< from the start of the frame before; infinite for an acquisition's first
    };
    /// Takes the frame that is due at `nowNs`.
    Taken Take(std::uint64_t nowNs, const Pace &pace);

private:
    /// Start of the next frame's exposure; nothing while it waits for a trigger.
    std::optional<double> PlannedStart(std::uint64_t nowNs, const Pace &pace);

    bool m_isRunning = false;
    std::uint64_t m_number = 0;
    double m_earliestNs = 0; ///< start of the next frame
    std::optional<double> m_triggeredNs;
    std::optional<double> m_toldNs; ///< start that Begin() told of
    std::optional<double> m_lastNs; ///< start of the frame before
    double m_timerNs = 0;
};

} // namespace orvsim
