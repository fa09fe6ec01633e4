#pragma once

#include "simulator/imaging/Canvas.h"
#include "simulator/imaging/FrameSettings.h"
#include "simulator/imaging/Motion.h"
#include "simulator/imaging/Readout.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

namespace orvsim {

/// Normally distributed numbers, mean 0 and variance 1: a table is a hundred times cheaper than a fresh number per
/// pixel, and with another start in each line its repetition cannot be seen.
class NoiseTable {
public:
    NoiseTable(std::uint64_t seed, int longestRun);
    /// At least longestRun numbers; the same key gives the same ones.
    const float *Run(std::uint64_t key) const;

private:
    static constexpr std::size_t kStarts = 1 << 16;
    std::uint64_t m_seed;
    std::vector<float> m_values;
};

/// From light to samples, as one set of settings does it.
///
/// A pixel collects light x sensitivity x exposure plus dark current in electrons. Noise is normal with the variance of
/// the shot noise (the electrons) plus the read noise squared. What exceeds the full well is lost. At 0 dB a full well
/// fills the converter's range; gain and white balance multiply, the black level is added, the converter clips.
/// Gamma: output = range x (input / range) ^ gamma. A sample is the converter's value moved to the format's depth:
/// its upper bits, or all of it left-justified.
/// Binning adds or averages the pixels' signals before the black level, each with its own noise.
class SensorModel {
public:
    SensorModel() = default;
    SensorModel(const SensorTraits &sensor, const FrameSettings &settings, int sampleBits);

    /// Where the samples of a line come from.
    struct Sites {
        const SceneLine *lines; ///< one per sensor line that is binned
        int lineCount;
        const Readout::Axis *columns;
        Channel even; ///< of the frame's even columns
        Channel odd;
    };

    /// Samples of the frame's columns begin .. end - 1.
    /// \param noise  a number for each of them
    void Sense(const Sites &sites, int begin, int end, const float *noise, std::uint16_t *samples) const;

private:
    /// To light of one code in one channel, in the converter's levels above black.
    struct Response {
        float mean;
        float deviation;
        float variance;
    };
    struct ChannelResponse {
        std::array<Response, 256> byCode;
        float ceiling; ///< a full well's level
    };

    ChannelResponse ResponseOf(const SensorTraits &sensor, const FrameSettings &settings, double balance) const;
    const ChannelResponse &Of(Channel channel) const { return m_channels[static_cast<std::size_t>(channel)]; }
    std::uint16_t SampleOf(float level) const
    {
        return m_samples[static_cast<std::size_t>(std::min(std::max(level, 0.0F), m_highest) + 0.5F)];
    }
    /// Every second column of a line: those behind one colour.
    struct Columns {
        const Sites &sites;
        Channel channel;
        int begin; ///< column of the frame
        int end;
        int firstOutput; ///< place of `begin` among the noise and the samples
    };
    void SensePlain(const Columns &columns, const float *noise, std::uint16_t *samples) const;
    void SenseBinned(const Columns &columns, const float *noise, std::uint16_t *samples) const;

    std::array<ChannelResponse, kChannels> m_channels{};
    std::vector<std::uint16_t> m_samples; ///< by the converter's level: gamma and depth
    float m_black = 0;
    float m_highest = 0;   ///< level
    bool m_isSumX = false; ///< of binned columns, else their mean
    bool m_isSumY = false;
};

} // namespace orvsim
