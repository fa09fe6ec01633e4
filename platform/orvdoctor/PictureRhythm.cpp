#include "orvdoctor/PictureRhythm.h"

#include "orvdoctor/Symptoms.h"

#include <algorithm>
#include <functional>

namespace orv {
namespace {

constexpr double kLikeness = 1.25; ///< at most so many times as long, or as short
constexpr double kPausesRemembered = 4;
/// A trigger that came late says little of the next; it may have come after an hour.
constexpr double kLongestOfTrigger = 10;

bool IsLike(double pause, double other)
{
    return pause <= other * kLikeness && pause * kLikeness >= other;
}

} // namespace

void PictureRhythm::Note(double pauseSeconds, const Facts &settings)
{
    const bool isFirst = !m_hasPicture;
    m_hasPicture = true;
    if (!isFirst)
        m_pauses.at(m_count++ % kRemembered) = pauseSeconds;
    m_sinceExplained += pauseSeconds;
    const double known = settings.hasTrigger ? std::min(pauseSeconds, kLongestOfTrigger) : pauseSeconds;
    const bool isExplained = IsWithinPicturePeriod(settings, pauseSeconds) || (settings.hasTrigger && !isFirst);
    if ((isExplained && known > m_explained) || IsLike(known, m_explained)) {
        m_explained = known;
        m_sinceExplained = 0;
    } else if (m_sinceExplained > kPausesRemembered * m_explained) {
        m_explained = 0;
    }
}

/// What most of the last pauses lasted at least; it takes two to recur.
double PictureRhythm::Recurring() const
{
    const std::size_t count = std::min(m_count, kRemembered);
    if (count < 2)
        return 0;
    std::array<double, kRemembered> longest = m_pauses; // those not yet taken are 0
    std::sort(longest.begin(), longest.end(), std::greater<>());
    return longest.at(count / 2);
}

double PictureRhythm::UsualPauseSeconds() const
{
    return std::max(Recurring(), m_explained);
}

} // namespace orv
