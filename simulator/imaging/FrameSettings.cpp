#include "simulator/imaging/FrameSettings.h"

#include "orvimage/PixelFormats.h"

#include <tuple>

namespace orvsim {

namespace {

auto Tied(const FrameSettings &s)
{
    return std::tie(s.offsetX, s.offsetY, s.width, s.height, s.binningX, s.binningY, s.binningModeX, s.binningModeY,
                    s.decimationX, s.decimationY, s.reverseX, s.reverseY, s.pixelType, s.exposureUs, s.gainDb,
                    s.blackLevel, s.gamma, s.balanceRed, s.balanceGreen, s.balanceBlue, s.testPattern);
}

} // namespace

bool FrameSettings::operator==(const FrameSettings &other) const
{
    return Tied(*this) == Tied(other);
}

std::size_t ImageBytes(const FrameSettings &settings)
{
    const std::size_t pixels = static_cast<std::size_t>(settings.width) * static_cast<std::size_t>(settings.height);
    return (pixels * orv::BitsPerPixel(settings.pixelType) + 7) / 8;
}

} // namespace orvsim
