#pragma once

#include <cstddef>
#include <cstdint>

namespace orvsim {

/// What does not change while a camera lives.
struct SensorTraits {
    int width = 1280; ///< pixels
    int height = 1024;
    bool isColour = true;    ///< colour filter RG/GB from the sensor's first pixel on
    int bits = 12;           ///< of the converter
    double fullWell = 10000; ///< electrons
    double readNoise = 6;    ///< electrons, rms
    double darkCurrent = 20; ///< electrons per second
    /// Electrons per microsecond for a white surface of the scene: 10 ms of exposure bring white to 80 % of full well.
    double sensitivity = 0.8;
};

enum class TestPattern { Off, Black, White, GreyHorizontalRamp, GreyVerticalRamp, ColourBar, FrameCounter };
enum class BinningMode { Sum, Average };

/// How one frame is taken: a copy of the camera's settings at the start of its exposure.
struct FrameSettings {
    int offsetX = 0; ///< output pixels, after binning and decimation
    int offsetY = 0;
    int width = 0;
    int height = 0;
    int binningX = 1; ///< sensor pixels per output pixel; colour sensors bin pixels of the same colour
    int binningY = 1;
    BinningMode binningModeX = BinningMode::Average;
    BinningMode binningModeY = BinningMode::Average;
    int decimationX = 1;
    int decimationY = 1;
    bool reverseX = false; ///< the picture is mirrored before the colour filter, so the filter's order stays
    bool reverseY = false;
    std::uint32_t pixelType = 0; ///< the application's code, see orvimage/PixelFormats.h
    double exposureUs = 10000;
    double gainDb = 0;
    double blackLevel = 64; ///< of the converter's levels
    double gamma = 1;
    double balanceRed = 1; ///< white balance, colour only
    double balanceGreen = 1;
    double balanceBlue = 1;
    TestPattern testPattern = TestPattern::Off;

    bool operator==(const FrameSettings &other) const;
    bool operator!=(const FrameSettings &other) const { return !(*this == other); }
};

/// Bytes of an image without padding; packed formats count the whole image's bits, rounded up.
std::size_t ImageBytes(const FrameSettings &settings);

} // namespace orvsim
