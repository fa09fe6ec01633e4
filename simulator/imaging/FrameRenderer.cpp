#include "simulator/imaging/FrameRenderer.h"

#include "simulator/imaging/PixelPacking.h"
#include "simulator/imaging/Readout.h"
#include "simulator/imaging/Scene.h"
#include "simulator/imaging/SensorModel.h"
#include "simulator/imaging/TestPatterns.h"

#include "orvimage/PixelLayout.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace orvsim {

namespace {

/// The channels behind one component of the format: a colour filter has two per line.
struct Pass {
    Channel even;
    Channel odd;
};

/// The colour filter of the pattern whose first red lies at layout.redX, layout.redY.
Pass FilterOfLine(const orv::PixelLayout &layout, int y)
{
    const bool isRedLine = (y & 1) == layout.redY;
    const Channel site = isRedLine ? Channel::Red : Channel::Blue;
    const bool isSiteEven = (layout.redX == 0) == isRedLine;
    return isSiteEven ? Pass{site, Channel::Green} : Pass{Channel::Green, site};
}

std::vector<Pass> PassesOf(const orv::PixelLayout &layout, bool isColour, int y)
{
    if (layout.family == orv::PixelFamily::Mono || (!isColour && layout.family == orv::PixelFamily::Bayer))
        return {{Channel::Luma, Channel::Luma}};
    if (layout.family == orv::PixelFamily::Bayer)
        return {FilterOfLine(layout, y)};
    if (!isColour)
        return std::vector<Pass>(3, {Channel::Luma, Channel::Luma});
    return {{Channel::Red, Channel::Red}, {Channel::Green, Channel::Green}, {Channel::Blue, Channel::Blue}};
}

/// Part of a line of the frame, and what its noise depends on.
struct LinePart {
    int y;
    int begin; ///< columns, even
    int end;
    std::uint64_t noiseKey;
};

} // namespace

struct FrameRenderer::Parts {
    Parts(const SensorTraits &traits, std::uint64_t noiseSeed, std::shared_ptr<const Scene> shared)
        : sensor(traits), seed(noiseSeed), scene(std::move(shared)), noise(noiseSeed, traits.width)
    {
    }

    /// Makes the tables of new settings. \return false for settings that cannot be rendered.
    bool Prepare(const FrameSettings &wanted);
    /// \param read  void(int sensorLine, SceneLine &line)
    template <class Read> void DrawPart(const LinePart &part, const Read &read, std::uint8_t *payload);
    void Encode(const LinePart &part, std::uint8_t *payload);

    const SensorTraits sensor;
    const std::uint64_t seed;
    const std::shared_ptr<const Scene> scene;
    const NoiseTable noise;

    FrameSettings settings; ///< that the rest belongs to
    orv::PixelLayout layout;
    Readout readout;
    SensorModel model;
    std::vector<SceneLine> lines;           ///< of the sensor, as many as are binned
    std::vector<std::uint16_t> channels[3]; ///< samples of one line by pass
    std::vector<std::uint16_t> samples;     ///< of one line in the format's order
};

bool FrameRenderer::Parts::Prepare(const FrameSettings &wanted)
{
    if (wanted == settings && layout.bitsPerPixel != 0)
        return layout.family != orv::PixelFamily::Unknown;
    settings = wanted;
    layout = orv::LayoutOf(wanted.pixelType);
    if (wanted.width < 1 || wanted.height < 1 || wanted.width > sensor.width)
        layout.family = orv::PixelFamily::Unknown;
    if (layout.family == orv::PixelFamily::Unknown)
        return false;
    readout = Readout(sensor, wanted, layout.family == orv::PixelFamily::Bayer);
    model = SensorModel(sensor, wanted, layout.bits);

    SceneLine line;
    const auto width = static_cast<std::size_t>(sensor.width);
    const bool isLuma = !sensor.isColour || layout.family == orv::PixelFamily::Mono;
    for (int channel = 0; channel < kChannels; ++channel) {
        if ((static_cast<Channel>(channel) == Channel::Luma) == isLuma)
            line.planes[channel].resize(width);
    }
    lines.assign(static_cast<std::size_t>(readout.down.count), line);
    for (auto &channel : channels)
        channel.resize(static_cast<std::size_t>(wanted.width));
    samples.resize(static_cast<std::size_t>(wanted.width * layout.samplesPerPixel));
    return true;
}

template <class Read> void FrameRenderer::Parts::DrawPart(const LinePart &part, const Read &read, std::uint8_t *payload)
{
    const bool isScene = settings.testPattern == TestPattern::Off;
    const int firstLine = readout.down.first[static_cast<std::size_t>(part.y)];
    for (std::size_t i = 0; isScene && i < lines.size(); ++i)
        read(firstLine + static_cast<int>(i) * readout.down.step, lines[i]);

    std::size_t pass = 0;
    for (const Pass &filter : PassesOf(layout, sensor.isColour, part.y)) {
        std::uint16_t *const out = channels[pass].data();
        if (isScene)
            model.Sense({lines.data(), readout.down.count, &readout.across, filter.even, filter.odd}, part.begin,
                        part.end, noise.Run(part.noiseKey + pass), out);
        else
            DrawPattern({settings.testPattern, layout.bits, filter.even, filter.odd}, readout, part.y, part.begin,
                        part.end, out);
        ++pass;
    }
    Encode(part, payload);
}

void FrameRenderer::Parts::Encode(const LinePart &part, std::uint8_t *payload)
{
    const int pixels = part.end - part.begin;
    const ColourSamples colours{channels[0].data(), channels[1].data(), channels[2].data()};
    const std::uint16_t *encoded = samples.data();
    if (layout.family == orv::PixelFamily::Rgb)
        InterleaveRgb(layout, colours, pixels, samples.data());
    else if (layout.family == orv::PixelFamily::Yuv422 || layout.family == orv::PixelFamily::Yuv444)
        EncodeYuv(layout, colours, pixels, samples.data());
    else
        encoded = channels[0].data();
    const auto pixelsBefore =
        static_cast<std::uint64_t>(part.y) * static_cast<unsigned>(settings.width) + static_cast<unsigned>(part.begin);
    PackSamples(payload, layout, pixelsBefore * static_cast<unsigned>(layout.samplesPerPixel),
                pixels * layout.samplesPerPixel, encoded);
}

FrameRenderer::FrameRenderer(const SensorTraits &sensor, std::uint64_t seed)
    : m_parts(std::make_unique<Parts>(sensor, seed, std::make_shared<const Scene>(sensor)))
{
}

FrameRenderer::FrameRenderer(const FrameRenderer &other)
    : m_parts(std::make_unique<Parts>(other.m_parts->sensor, other.m_parts->seed, other.m_parts->scene))
{
}

FrameRenderer::~FrameRenderer() = default;

void FrameRenderer::Render(const FrameSettings &settings, int phase, std::uint8_t *payload)
{
    Parts &parts = *m_parts;
    const bool isKnown = parts.Prepare(settings);
    const bool isPacked =
        parts.layout.packing != orv::SamplePacking::Bytes && parts.layout.packing != orv::SamplePacking::Words;
    // Samples that are stored one by one leave the bits beside them alone: no bytes of an older frame may show there.
    if (!isKnown || (isPacked && settings.width * parts.layout.samplesPerPixel % 4 != 0))
        std::memset(payload, 0, ImageBytes(settings));
    if (!isKnown)
        return;
    if (settings.testPattern == TestPattern::FrameCounter)
        return FillFrameCounter(settings, parts.layout, static_cast<unsigned>(phase), payload);

    const auto columns = parts.readout.across.Needed(0, settings.width);
    const auto read = [&](int sensorLine, SceneLine &line) {
        parts.scene->ReadLine(sensorLine, phase, columns.begin, columns.end, line);
    };
    for (int y = 0; y < settings.height; ++y) {
        const auto key = (static_cast<std::uint64_t>(phase) << 32) + 4 * static_cast<std::uint64_t>(y);
        parts.DrawPart({y, 0, settings.width, key}, read, payload);
    }
}

void FrameRenderer::Stamp(const FrameSettings &settings, std::uint64_t frameNumber, std::uint64_t timestampNs,
                          std::uint8_t *payload)
{
    Parts &parts = *m_parts;
    if (!parts.Prepare(settings))
        return;
    if (settings.testPattern == TestPattern::FrameCounter)
        return FillFrameCounter(settings, parts.layout, frameNumber, payload);
    if (settings.testPattern != TestPattern::Off)
        return;

    const PixelArea clock = parts.scene->ClockArea();
    const auto rows = parts.readout.down.Seeing(clock.top, clock.bottom);
    const auto seen = parts.readout.across.Seeing(clock.left, clock.right);
    const int begin = seen.begin / 2 * 2; // pairs share their chroma
    const int end = std::min(settings.width, (seen.end + 1) / 2 * 2);
    const auto columns = parts.readout.across.Needed(begin, end);
    const ClockWindow::Text text = ClockWindow::TextOf(frameNumber, timestampNs);
    const auto read = [&](int sensorLine, SceneLine &line) {
        parts.scene->ReadClockLine(sensorLine, text, columns.begin, columns.end, line);
    };
    for (int y = rows.begin; y < rows.end && begin < end; ++y) {
        const auto key = (1ULL << 63) + (frameNumber << 20) + 4 * static_cast<std::uint64_t>(y);
        parts.DrawPart({y, begin, end, key}, read, payload);
    }
}

} // namespace orvsim
