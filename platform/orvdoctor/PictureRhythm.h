#pragma once

#include "orvdoctor/Facts.h"

#include <array>

namespace orv {

/// Learns which pauses between a stream's complete frames are usual, so that none of these is complained of again and
/// again, while a fault does not make the next one wait longer. Times in seconds. One thread.
///
/// A pause is usual when most of the last five were as long, or when the camera's settings explain it: a trigger, a
/// long exposure, a low frame rate. One that was explained is forgotten once four times its length have passed without
/// another like it.
class PictureRhythm {
public:
    /// A complete frame has come.
    /// \param pauseSeconds  since the last one; for the first since the start, which is no pause unless explained by
    ///                      exposure or frame rate
    /// \param settings      of the camera during the pause; as constructed when they are not known
    void Note(double pauseSeconds, const Facts &settings);
    /// 0 while nothing is known.
    double UsualPauseSeconds() const;

private:
    double Recurring() const;

    static constexpr std::size_t kRemembered = 5;
    std::array<double, kRemembered> m_pauses{}; ///< the last ones, as in a ring
    std::size_t m_count = 0;                    ///< of pauses ever
    bool m_hasPicture = false;
    double m_explained = 0;      ///< the pause that settings explained; 0: none is remembered
    double m_sinceExplained = 0; ///< time since one like it
};

} // namespace orv
