#include "simulator/imaging/ConfidencePlane.h"

#include <algorithm>

namespace orvsim {

namespace {

constexpr std::int64_t kMost = 255;
constexpr std::int64_t kFall = 192; ///< from the middle to a corner

void AppendCounter(std::vector<std::uint8_t> &payload, const FrameSettings &settings, std::uint64_t frameNumber)
{
    const auto first = static_cast<std::uint8_t>(frameNumber);
    for (int y = 0; y < settings.height; ++y) {
        for (int x = 0; x < settings.width; ++x)
            payload.push_back(static_cast<std::uint8_t>(kMost - (x + y + first)));
    }
}

} // namespace

std::size_t ConfidencePlane::Bytes(const FrameSettings &settings)
{
    return static_cast<std::size_t>(settings.width) * static_cast<std::size_t>(settings.height);
}

void ConfidencePlane::AppendTo(std::vector<std::uint8_t> &payload, const FrameSettings &settings,
                               std::uint64_t frameNumber)
{
    if (settings.testPattern == TestPattern::FrameCounter) {
        payload.reserve(payload.size() + Bytes(settings));
        AppendCounter(payload, settings, frameNumber);
        return;
    }
    if (settings.width != m_width || settings.height != m_height)
        Draw(settings.width, settings.height);
    payload.insert(payload.end(), m_plane.begin(), m_plane.end());
}

void ConfidencePlane::Draw(int width, int height)
{
    m_width = width;
    m_height = height;
    m_plane.clear();
    // Distances count in half pixels, from the middle of the region.
    const auto square = [](std::int64_t length) { return length * length; };
    const std::int64_t farthest = std::max<std::int64_t>(square(width - 1) + square(height - 1), 1);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const std::int64_t distance = square(2 * x - (width - 1)) + square(2 * y - (height - 1));
            m_plane.push_back(static_cast<std::uint8_t>(kMost - kFall * distance / farthest));
        }
    }
}

} // namespace orvsim
