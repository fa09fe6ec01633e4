#include "simulator/imaging/SensorModel.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace orvsim {

namespace {

constexpr double kPi = 3.14159265358979323846;

/// Spreads neighbouring keys over the whole range (the finaliser of the SplitMix64 generator).
std::uint64_t Scatter(std::uint64_t key)
{
    key += 0x9e3779b97f4a7c15U;
    key = (key ^ key >> 30) * 0xbf58476d1ce4e5b9U;
    key = (key ^ key >> 27) * 0x94d049bb133111ebU;
    return key ^ key >> 31;
}

/// Exactly mean 0 and variance 1, so that what is measured in a picture does not depend on the seed's luck.
void Normalise(std::vector<float> &values)
{
    double sum = 0;
    double squares = 0;
    for (const float value : values) {
        sum += value;
        squares += static_cast<double>(value) * value;
    }
    const auto count = static_cast<double>(values.size());
    const double mean = sum / count;
    const double deviation = std::sqrt(squares / count - mean * mean);
    for (float &value : values)
        value = static_cast<float>((value - mean) / deviation);
}

} // namespace

NoiseTable::NoiseTable(std::uint64_t seed, int longestRun) : m_seed(Scatter(seed))
{
    std::mt19937_64 random(seed);
    const auto uniform = [&] { return (static_cast<double>(random() >> 11) + 0.5) / 9007199254740992.0; };
    const std::size_t size = kStarts + static_cast<std::size_t>(longestRun);
    m_values.reserve(kStarts);
    while (m_values.size() < kStarts) { // Box and Muller's pairs
        const double radius = std::sqrt(-2 * std::log(uniform()));
        const double angle = 2 * kPi * uniform();
        m_values.push_back(static_cast<float>(radius * std::cos(angle)));
        m_values.push_back(static_cast<float>(radius * std::sin(angle)));
    }
    Normalise(m_values);
    m_values.reserve(size);
    for (std::size_t i = 0; m_values.size() < size; ++i)
        m_values.push_back(m_values[i]);
}

const float *NoiseTable::Run(std::uint64_t key) const
{
    return m_values.data() + Scatter(m_seed ^ Scatter(key)) % kStarts;
}

SensorModel::SensorModel(const SensorTraits &sensor, const FrameSettings &settings, int sampleBits)
    : m_black(static_cast<float>(settings.blackLevel)), m_highest(static_cast<float>((1 << sensor.bits) - 1)),
      m_isSumX(settings.binningModeX == BinningMode::Sum), m_isSumY(settings.binningModeY == BinningMode::Sum)
{
    const double balance[kChannels] = {settings.balanceRed, settings.balanceGreen, settings.balanceBlue, 1};
    for (std::size_t channel = 0; channel < kChannels; ++channel)
        m_channels[channel] = ResponseOf(sensor, settings, balance[channel]);
    const int levels = 1 << sensor.bits;
    for (int level = 0; level < levels; ++level) {
        double value = level;
        if (settings.gamma != 1)
            value = std::round(std::pow(value / (levels - 1), settings.gamma) * (levels - 1));
        const auto whole = static_cast<unsigned>(value);
        m_samples.push_back(static_cast<std::uint16_t>(sampleBits < sensor.bits ? whole >> (sensor.bits - sampleBits)
                                                                                : whole << (sampleBits - sensor.bits)));
    }
}

SensorModel::ChannelResponse SensorModel::ResponseOf(const SensorTraits &sensor, const FrameSettings &settings,
                                                     double balance) const
{
    const double levelsPerElectron = m_highest / sensor.fullWell * std::pow(10, settings.gainDb / 20) * balance;
    ChannelResponse response;
    response.ceiling = static_cast<float>(sensor.fullWell * levelsPerElectron);
    for (int code = 0; code < 256; ++code) {
        const double light = LightOf(static_cast<std::uint8_t>(code));
        const double electrons =
            light * sensor.sensitivity * settings.exposureUs + sensor.darkCurrent * settings.exposureUs / 1e6;
        const double variance =
            (electrons + sensor.readNoise * sensor.readNoise) * levelsPerElectron * levelsPerElectron;
        response.byCode[static_cast<std::size_t>(code)] = {static_cast<float>(electrons * levelsPerElectron),
                                                           static_cast<float>(std::sqrt(variance)),
                                                           static_cast<float>(variance)};
    }
    return response;
}

void SensorModel::Sense(const Sites &sites, int begin, int end, const float *noise, std::uint16_t *samples) const
{
    const Channel channels[2] = {sites.even, sites.odd};
    for (int parity = 0; parity < 2; ++parity) {
        const int first = begin + ((begin ^ parity) & 1);
        const Columns columns{sites, channels[parity], first, end, first - begin};
        if (sites.lineCount == 1 && sites.columns->count == 1)
            SensePlain(columns, noise, samples);
        else
            SenseBinned(columns, noise, samples);
    }
}

void SensorModel::SensePlain(const Columns &columns, const float *noise, std::uint16_t *samples) const
{
    const ChannelResponse &response = Of(columns.channel);
    const std::uint8_t *const codes = columns.sites.lines->Plane(columns.channel);
    const int *const places = columns.sites.columns->first.data();
    const float ceiling = response.ceiling;
    for (int x = columns.begin, i = columns.firstOutput; x < columns.end; x += 2, i += 2) {
        const Response &seen = response.byCode[codes[places[x]]];
        samples[i] = SampleOf(std::min(seen.mean + seen.deviation * noise[i], ceiling) + m_black);
    }
}

void SensorModel::SenseBinned(const Columns &columns, const float *noise, std::uint16_t *samples) const
{
    const ChannelResponse &response = Of(columns.channel);
    const Readout::Axis &axis = *columns.sites.columns;
    const int added = (m_isSumX ? axis.count : 1) * (m_isSumY ? columns.sites.lineCount : 1);
    const float share = static_cast<float>(added) / static_cast<float>(columns.sites.lineCount * axis.count);
    const float ceiling = response.ceiling * static_cast<float>(added);
    for (int x = columns.begin, i = columns.firstOutput; x < columns.end; x += 2, i += 2) {
        float mean = 0;
        float variance = 0;
        for (int line = 0; line < columns.sites.lineCount; ++line) {
            const std::uint8_t *codes =
                columns.sites.lines[line].Plane(columns.channel) + axis.first[static_cast<std::size_t>(x)];
            for (int k = 0; k < axis.count; ++k, codes += axis.step) {
                const Response &seen = response.byCode[*codes];
                mean += seen.mean;
                variance += seen.variance;
            }
        }
        const float level = (mean + std::sqrt(variance) * noise[i]) * share;
        samples[i] = SampleOf(std::min(level, ceiling) + m_black);
    }
}

} // namespace orvsim
