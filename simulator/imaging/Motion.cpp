#include "simulator/imaging/Motion.h"

#include "simulator/imaging/Chart.h"
#include "simulator/imaging/Font.h"
#include "simulator/imaging/FrameRenderer.h"

#include <array>

namespace orvsim {

namespace {

constexpr double kPi = 3.14159265358979323846;

/// Inks of one wave, by the place in its period.
using Wave = std::array<Ink, 256>;

Wave SineWave(const Light &trough, const Light &crest)
{
    Wave wave{};
    for (std::size_t i = 0; i < wave.size(); ++i) {
        const double level = 0.5 - 0.5 * std::cos(2 * kPi * static_cast<double>(i) / static_cast<double>(wave.size()));
        wave[i] = InkOf(Mix(trough, crest, static_cast<float>(level)));
    }
    return wave;
}

/// Waves that travel: each pixel has its place in the wave's period, and the wave moves by one period per round.
class WaveField : public MovingPart {
public:
    /// \param place  of (x, y) in units: periods, any real number
    /// \param cover  of (x, y): 0 to 1
    template <class Place, class Cover>
    WaveField(const Canvas &canvas, const Box &box, const Wave &wave, const Place &place, const Cover &cover)
        : m_area(canvas.AreaOf(box)), m_wave(wave)
    {
        const Sheet &sheet = canvas.Layout();
        for (int y = m_area.top; y < m_area.bottom; ++y) {
            for (int x = m_area.left; x < m_area.right; ++x) {
                const double sheetX = (x + 0.5 - sheet.left) / sheet.scale;
                const double sheetY = (y + 0.5 - sheet.top) / sheet.scale;
                const double periods = place(sheetX, sheetY);
                m_places.push_back(static_cast<std::uint8_t>(static_cast<int>((periods - std::floor(periods)) * 256)));
                m_covers.push_back(static_cast<std::uint8_t>(cover(sheetX, sheetY) * 255));
            }
        }
    }

    PixelArea Area(int) const override { return m_area; }

    void Draw(int y, int phase, SceneLine &line) const override
    {
        const auto width = static_cast<std::size_t>(m_area.right - m_area.left);
        const std::size_t first = static_cast<std::size_t>(y - m_area.top) * width;
        const auto shift = static_cast<unsigned>(256 - phase * 256 / kScenePhases);
        for (std::size_t i = 0; i < width; ++i) {
            const int cover = m_covers[first + i];
            if (cover != 0)
                line.Lay(m_area.left + static_cast<int>(i), m_wave[(m_places[first + i] + shift) & 0xff], cover);
        }
    }

private:
    const PixelArea m_area;
    const Wave m_wave;
    std::vector<std::uint8_t> m_places; // 256ths of a period
    std::vector<std::uint8_t> m_covers;
};

/// Rings whose frequency grows with the radius, up to 0.8 of what the sensor can resolve at the rim.
std::unique_ptr<MovingPart> MakeZonePlate(const Canvas &canvas)
{
    constexpr double kRimFrequency = 0.4; // periods per pixel
    const double radius = chart::kZoneRadius;
    const double growth = kRimFrequency * canvas.Layout().scale / (2 * radius);
    const auto distance = [](double x, double y) { return std::hypot(x - chart::kDialX, y - chart::kDialY); };
    return std::make_unique<WaveField>(
        canvas, Box{chart::kDialX - radius, chart::kDialY - radius, 2 * radius, 2 * radius},
        SineWave(Grey(0.03F), Grey(0.95F)),
        [=](double x, double y) { return growth * distance(x, y) * distance(x, y) + 0.5; },
        [=, &canvas](double x, double y) { return canvas.Cover(distance(x, y) - radius); });
}

/// Spokes that turn by one of them per round; the middle, where they would run together, is left out.
std::unique_ptr<MovingPart> MakeStar(const Canvas &canvas)
{
    constexpr double kSpokes = 36;
    const double radius = chart::kStarRadius;
    const double hole = std::max(9.0, kSpokes * 2.4 / (2 * kPi) / canvas.Layout().scale);
    return std::make_unique<WaveField>(
        canvas, Box{chart::kStarX - radius, chart::kStarY - radius, 2 * radius, 2 * radius},
        SineWave(Grey(0.04F), {0.97F, 0.95F, 0.90F}),
        [](double x, double y) { return std::atan2(y - chart::kStarY, x - chart::kStarX) / (2 * kPi) * kSpokes; },
        [=, &canvas](double x, double y) {
            const double distance = std::hypot(x - chart::kStarX, y - chart::kStarY);
            return std::min(canvas.Cover(distance - radius), canvas.Cover(hole - distance));
        });
}

/// Waves that get finer from left to right, up to 0.45 periods per pixel.
std::unique_ptr<MovingPart> MakeSweep(const Canvas &canvas, int band, const Wave &wave)
{
    const Box box = chart::SweepBand(band);
    const double scale = canvas.Layout().scale;
    const double slowest = 0.015 * scale;
    const double growth = (0.45 * scale - slowest) / (2 * box.width);
    return std::make_unique<WaveField>(
        canvas, box, wave,
        [=](double x, double) {
            const double along = x - box.left;
            return along * slowest + along * along * growth;
        },
        [=, &canvas](double x, double y) { return canvas.Cover(DistanceToRoundBox(box, 3, x, y)); });
}

/// The hand of the dial: one tick per phase, so that a lost frame shows as a skipped tick.
class Pointer : public MovingPart {
public:
    explicit Pointer(const Canvas &canvas) : m_canvas(canvas), m_ink(InkOf(chart::kAccent)) {}

    PixelArea Area(int phase) const override
    {
        const Ends ends = EndsAt(phase);
        return m_canvas.AreaOf({std::min(ends.x0, ends.x1) - kWidth, std::min(ends.y0, ends.y1) - kWidth,
                                std::abs(ends.x1 - ends.x0) + 2 * kWidth, std::abs(ends.y1 - ends.y0) + 2 * kWidth});
    }

    void Draw(int y, int phase, SceneLine &line) const override
    {
        const Sheet &sheet = m_canvas.Layout();
        const PixelArea area = Area(phase);
        const Ends ends = EndsAt(phase);
        const double sheetY = (y + 0.5 - sheet.top) / sheet.scale;
        for (int x = area.left; x < area.right; ++x) {
            const double sheetX = (x + 0.5 - sheet.left) / sheet.scale;
            const double distance = DistanceToLine(ends.x0, ends.y0, ends.x1, ends.y1, sheetX, sheetY) - kWidth / 2;
            line.Lay(x, m_ink, static_cast<int>(m_canvas.Cover(distance) * 255));
        }
    }

private:
    static constexpr double kWidth = 8;
    struct Ends {
        double x0, y0, x1, y1;
    };
    static Ends EndsAt(int phase)
    {
        const double angle = -kPi / 2 + 2 * kPi * phase / kScenePhases;
        const double inner = chart::kDialInner + 4;
        const double outer = chart::kDialOuter - 2;
        return {chart::kDialX + inner * std::cos(angle), chart::kDialY + inner * std::sin(angle),
                chart::kDialX + outer * std::cos(angle), chart::kDialY + outer * std::sin(angle)};
    }

    const Canvas &m_canvas;
    const Ink m_ink;
};

/// A ball on a slanted orbit around the dial: before it half of the time, behind it the other half.
class Ball : public MovingPart {
public:
    explicit Ball(const Canvas &canvas) : m_canvas(canvas)
    {
        for (std::size_t i = 0; i < m_shades.size(); ++i) {
            const float lit = static_cast<float>(i) / static_cast<float>(m_shades.size() - 1);
            const Light body = Mix({0.05F, 0.10F, 0.16F}, {0.16F, 0.62F, 0.86F}, std::min(1.0F, lit * 1.25F));
            m_shades[i] = InkOf(Mix(body, Grey(1), lit * lit * lit * lit * lit * lit * lit * lit * lit * 0.9F));
        }
    }

    PixelArea Area(int phase) const override
    {
        const Place at = PlaceAt(phase);
        return m_canvas.AreaOf({at.x - at.radius, at.y - at.radius, 2 * at.radius, 2 * at.radius});
    }

    void Draw(int y, int phase, SceneLine &line) const override
    {
        const Sheet &sheet = m_canvas.Layout();
        const PixelArea area = Area(phase);
        const Place at = PlaceAt(phase);
        const double sheetY = (y + 0.5 - sheet.top) / sheet.scale;
        for (int x = area.left; x < area.right; ++x)
            DrawPixel(at, (x + 0.5 - sheet.left) / sheet.scale, sheetY, x, line);
    }

private:
    struct Place {
        double x;
        double y;
        double radius;
        bool isBehind;
    };

    static Place PlaceAt(int phase)
    {
        constexpr double kTilt = -18 * kPi / 180;
        const double angle = 2 * kPi * phase / kScenePhases;
        const double along = 222 * std::cos(angle);
        const double across = 64 * std::sin(angle);
        return {chart::kDialX + along * std::cos(kTilt) - across * std::sin(kTilt),
                chart::kDialY + along * std::sin(kTilt) + across * std::cos(kTilt), 20 + 5 * std::sin(angle),
                std::sin(angle) < 0};
    }

    void DrawPixel(const Place &at, double sheetX, double sheetY, int x, SceneLine &line) const
    {
        const double fromX = (sheetX - at.x) / at.radius;
        const double fromY = (sheetY - at.y) / at.radius;
        const double distance = std::hypot(fromX, fromY);
        float cover = m_canvas.Cover((distance - 1) * at.radius);
        if (at.isBehind)
            cover = std::min(cover, m_canvas.Cover(chart::kDialOuter + 9 -
                                                   std::hypot(sheetX - chart::kDialX, sheetY - chart::kDialY)));
        if (cover <= 0)
            return;
        const double towards = std::sqrt(std::max(0.0, 1 - distance * distance));
        const double lit = std::clamp(-0.48 * fromX - 0.60 * fromY + 0.64 * towards, 0.0, 1.0);
        line.Lay(x, m_shades[static_cast<std::size_t>(lit * (m_shades.size() - 1))], static_cast<int>(cover * 255));
    }

    const Canvas &m_canvas;
    std::array<Ink, 256> m_shades;
};

/// A line of text that runs from right to left; it repeats itself, so that it is back where it was after one round.
class Ticker : public MovingPart {
public:
    explicit Ticker(const Canvas &canvas)
        : m_area(canvas.AreaOf(chart::kTicker.Inset(4))), m_dot(canvas.Layout().DotSize(2)),
          m_ink(InkOf({0.98F, 0.76F, 0.34F}))
    {
        const int needed = kGlyphPitch * static_cast<int>(kText.size()) * m_dot;
        m_period = std::max(1, (needed + kScenePhases - 1) / kScenePhases) * kScenePhases;
        m_top = (m_area.top + m_area.bottom - kGlyphHeight * m_dot) / 2;
    }

    PixelArea Area(int) const override { return m_area; }

    void Draw(int y, int phase, SceneLine &line) const override
    {
        const int row = m_dot == 0 || y < m_top ? -1 : (y - m_top) / m_dot;
        if (row < 0 || row >= kGlyphHeight)
            return;
        for (int x = m_area.left; x < m_area.right; ++x) {
            const int column = (x - m_area.left + phase * (m_period / kScenePhases)) % m_period / m_dot;
            const auto place = static_cast<std::size_t>(column / kGlyphPitch);
            if (place < kText.size() && HasDot(kText[place], column % kGlyphPitch, row))
                line.Lay(x, m_ink, 255);
        }
    }

private:
    static constexpr std::string_view kText = "ORVSIM  *  NO PHOTON WAS HARMED  *  ";

    const PixelArea m_area;
    const int m_dot;
    const Ink m_ink;
    int m_period = kScenePhases; // pixels
    int m_top = 0;
};

} // namespace

std::vector<std::unique_ptr<MovingPart>> MakeMovingParts(const Canvas &canvas)
{
    std::vector<std::unique_ptr<MovingPart>> parts;
    parts.push_back(MakeZonePlate(canvas));
    parts.push_back(MakeStar(canvas));
    parts.push_back(MakeSweep(canvas, 0, SineWave(Grey(0.04F), Grey(0.95F))));
    parts.push_back(MakeSweep(canvas, 1, SineWave({0.86F, 0.16F, 0.12F}, {0.10F, 0.42F, 0.92F})));
    parts.push_back(std::make_unique<Pointer>(canvas));
    parts.push_back(std::make_unique<Ball>(canvas));
    parts.push_back(std::make_unique<Ticker>(canvas));
    return parts;
}

} // namespace orvsim
