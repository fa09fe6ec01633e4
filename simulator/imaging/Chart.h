#pragma once

#include "simulator/imaging/Canvas.h"

#include <string>

namespace orvsim {

/// Where the parts of the test chart lie on the sheet; what moves takes its place from here too.
namespace chart {

constexpr Box kColours = {48, 150, 330, 262};
constexpr Box kLinePairs = {48, 430, 330, 200};
constexpr Box kEdges = {48, 648, 330, 150};
constexpr Box kStar = {902, 150, 330, 262};
constexpr Box kFineText = {902, 430, 330, 200};
constexpr Box kSweeps = {902, 648, 330, 150};
constexpr Box kTones = {48, 816, 1184, 152};
constexpr Box kClock = {438, 278, 404, 100};
constexpr Box kTicker = {56, 980, 1168, 28};

constexpr double kDialX = 640;
constexpr double kDialY = 590;
constexpr double kZoneRadius = 148;
constexpr double kDialInner = 158;
constexpr double kDialOuter = 186;

constexpr double kStarX = kStar.left + kStar.width / 2;
constexpr double kStarY = kStar.top + 144;
constexpr double kStarRadius = 102;

constexpr Light kLabel = {0.60F, 0.66F, 0.74F};
constexpr Light kAccent = {0.98F, 0.56F, 0.16F};
constexpr Light kBright = {0.94F, 0.95F, 0.97F};

/// The two bands of the sweeps' card, from the top.
constexpr Box SweepBand(int band)
{
    return {kSweeps.left + 14, kSweeps.top + 36 + band * 52.0, kSweeps.width - 28, 46};
}

} // namespace chart

/// Draws all that does not move: the studio, the cards and what is on them.
/// \param caption  what the sensor is, for the head line
void DrawChart(Canvas &canvas, const std::string &caption);

} // namespace orvsim
