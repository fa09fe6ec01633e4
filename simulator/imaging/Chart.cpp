#include "simulator/imaging/Chart.h"

#include "simulator/imaging/Font.h"

#include <array>

namespace orvsim {

namespace {

constexpr double kPi = 3.14159265358979323846;

/// Spot light from above the middle on a bluish grey wall, with a faint grid of 64 units.
///
/// The light falls off alike across and down, so that a column's and a line's share multiply; and a grain of about a
/// code keeps the wide shallow gradient from showing bands.
class Studio {
public:
    explicit Studio(Canvas &canvas) : m_canvas(canvas)
    {
        for (std::size_t i = 0; i < m_inks.size(); ++i) {
            const float grey = kBrightest * static_cast<float>(i) / static_cast<float>(m_inks.size() - 1);
            m_inks[i] = InkOf({grey * 0.80F, grey * 0.95F, grey * 1.22F});
        }
        for (int x = 0; x < canvas.Width(); ++x)
            m_columns.push_back(PlaceAt((x + 0.5 - canvas.Layout().left) / canvas.Layout().scale - 640, 0, 900));
    }

    void Draw()
    {
        std::uint32_t random = 1;
        for (int y = 0; y < m_canvas.Height(); ++y) {
            const double sheetY = (y + 0.5 - m_canvas.Layout().top) / m_canvas.Layout().scale;
            const Place line = PlaceAt(sheetY - 512, -82, 700);
            for (int x = 0; x < m_canvas.Width(); ++x) {
                const Place &column = m_columns[static_cast<std::size_t>(x)];
                random = random * 1664525U + 1013904223U;
                const float grain = 0.0018F * (static_cast<float>(random >> 16) / 65536.0F - 0.5F);
                const float level =
                    0.045F + 0.135F * column.lit * line.lit + 0.028F * std::max(column.grid, line.grid) + grain;
                m_canvas.Put(x, y, m_inks[static_cast<std::size_t>(level * kInksPerLight)]);
            }
        }
    }

private:
    static constexpr float kBrightest = 0.25F;
    static constexpr std::size_t kInks = 4096;
    static constexpr float kInksPerLight = (kInks - 1) / kBrightest;

    struct Place {
        float lit;
        float grid; ///< cover of the grid's line
    };
    /// \param brightest, reach  units: where the light is strongest, and how far it goes
    Place PlaceAt(double fromMiddle, double brightest, double reach) const
    {
        const double fall = (fromMiddle - brightest) / reach;
        return {static_cast<float>(std::exp(-1.9 * fall * fall)),
                m_canvas.Cover(std::abs(std::remainder(fromMiddle, 64)) - 0.5)};
    }

    Canvas &m_canvas;
    std::array<Ink, kInks> m_inks;
    std::vector<Place> m_columns;
};

/// A pool of shadow, the card, a light rim along its upper edge, and its title.
void DrawCard(Canvas &canvas, const Box &box, const char *title)
{
    constexpr double kRadius = 10;
    constexpr double kShadow = 14;
    canvas.Paint(canvas.AreaOf(box.Inset(-kShadow)), [&](double x, double y) {
        const double distance = DistanceToRoundBox(box, kRadius, x, y - 4);
        const double depth = std::clamp(1 - distance / kShadow, 0.0, 1.0);
        return Touch{Grey(0.01F), static_cast<float>(0.55 * depth * depth)};
    });
    canvas.FillRoundBox(box, kRadius, {0.27F, 0.31F, 0.37F});
    canvas.Paint(canvas.AreaOf(box), [&](double x, double y) {
        const auto down = static_cast<float>((y - box.top) / box.height);
        return Touch{Mix({0.125F, 0.140F, 0.165F}, {0.072F, 0.082F, 0.100F}, down),
                     canvas.Cover(DistanceToRoundBox(box.Inset(1.4), kRadius - 1.4, x, y))};
    });
    if (*title == '\0')
        return;
    canvas.FillBox({box.left + 14, box.top + 12, 4, 14}, chart::kAccent);
    canvas.DrawText(box.left + 26, box.top + 12, 2, title, chart::kLabel);
}

void DrawHead(Canvas &canvas, const std::string &caption)
{
    canvas.DrawText(48, 46, 6, "ORVSIM", chart::kBright);
    canvas.DrawText(50, 104, 2, "SOFTWARE CAMERA TEST CHART", chart::kLabel);
    const int dot = canvas.Layout().DotSize(2);
    const double width = TextWidth(caption) * dot / canvas.Layout().scale;
    canvas.DrawText(1232 - width, 104, 2, caption, chart::kLabel);
    canvas.FillBox({48, 130, 1184, 1.5}, {0.34F, 0.38F, 0.44F});
    canvas.FillBox({48, 128.5, 206, 4}, chart::kAccent);
}

/// Marks in the sheet's corners and at the middles of its sides: framing and focus at a glance.
void DrawFraming(Canvas &canvas)
{
    const Light light = {0.42F, 0.47F, 0.54F};
    for (const int x : {16, 1264}) {
        for (const int y : {16, 1008}) {
            const int inX = x < 640 ? 1 : -1;
            const int inY = y < 512 ? 1 : -1;
            canvas.DrawLine(x, y, x + 26 * inX, y, 2, light);
            canvas.DrawLine(x, y, x, y + 26 * inY, 2, light);
        }
        canvas.DrawLine(x, 500, x, 524, 2, light);
    }
    canvas.DrawLine(628, 16, 652, 16, 2, light);
    canvas.DrawLine(628, 1016, 652, 1016, 2, light);
}

/// Three lamps whose light adds up.
void DrawLamps(Canvas &canvas)
{
    constexpr std::array<Light, 3> kLamps = {Light{0.92F, 0.06F, 0.05F}, {0.05F, 0.80F, 0.10F}, {0.06F, 0.14F, 0.95F}};
    constexpr double kRadius = 41;
    constexpr double kSpread = 26;
    const Box area{540, 132, 200, 130};
    canvas.Paint(canvas.AreaOf(area), [&](double x, double y) {
        Light sum{0, 0, 0};
        float cover = 0;
        for (std::size_t i = 0; i < kLamps.size(); ++i) {
            const double angle = -kPi / 2 + 2 * kPi * static_cast<double>(i) / 3;
            const double distance =
                std::hypot(x - 640 - kSpread * std::cos(angle), y - 205 - kSpread * std::sin(angle));
            const float lit = canvas.Cover(distance - kRadius);
            sum = {sum.red + lit * kLamps[i].red, sum.green + lit * kLamps[i].green, sum.blue + lit * kLamps[i].blue};
            cover = std::max(cover, lit);
        }
        const float strength = cover > 0 ? 1 / std::max(cover, 0.01F) : 0; // edges thin out, they do not darken
        return Touch{{sum.red * strength, sum.green * strength, sum.blue * strength}, cover};
    });
}

void DrawColours(Canvas &canvas)
{
    constexpr std::array<Light, 24> kPatches = {
        Light{0.43F, 0.30F, 0.23F}, {0.80F, 0.61F, 0.52F}, {0.38F, 0.52F, 0.68F}, {0.34F, 0.44F, 0.22F},
        {0.55F, 0.50F, 0.74F},      {0.42F, 0.78F, 0.70F}, {0.90F, 0.48F, 0.14F}, {0.26F, 0.36F, 0.70F},
        {0.80F, 0.32F, 0.38F},      {0.36F, 0.20F, 0.42F}, {0.64F, 0.78F, 0.22F}, {0.94F, 0.68F, 0.14F},
        {0.12F, 0.20F, 0.66F},      {0.20F, 0.60F, 0.26F}, {0.76F, 0.14F, 0.16F}, {0.96F, 0.84F, 0.10F},
        {0.78F, 0.28F, 0.62F},      {0.06F, 0.56F, 0.68F}, {0.96F, 0.96F, 0.96F}, {0.76F, 0.76F, 0.76F},
        {0.56F, 0.56F, 0.56F},      {0.38F, 0.38F, 0.38F}, {0.22F, 0.22F, 0.22F}, {0.06F, 0.06F, 0.06F}};
    DrawCard(canvas, chart::kColours, "COLOUR");
    for (std::size_t i = 0; i < kPatches.size(); ++i) {
        const double x = chart::kColours.left + 14 + 51 * static_cast<double>(i % 6);
        const double y = chart::kColours.top + 40 + 54 * static_cast<double>(i / 6);
        canvas.FillRoundBox({x, y, 47, 49}, 4, kPatches[i]);
    }
}

/// Five bars of so many pixels each, upright, and below them five that lie.
void DrawBars(Canvas &canvas, int left, int top, int length, int pixels)
{
    const int below = top + length + std::max(4, length / 4);
    for (int bar = 0; bar < 5; ++bar) {
        const int at = 2 * bar * pixels;
        canvas.FillPixels({left + at, top, left + at + pixels, top + length}, chart::kBright);
        canvas.FillPixels({left, below + at, left + length, below + at + pixels}, chart::kBright);
    }
}

/// Bars as wide as the sensor's own pixels, from one on, as many as there is room for.
void DrawLinePairs(Canvas &canvas)
{
    constexpr double kLength = 48;
    constexpr double kGap = 13;
    DrawCard(canvas, chart::kLinePairs, "LINE PAIRS / PX");
    const Sheet &sheet = canvas.Layout();
    const int times = std::max(1, static_cast<int>(sheet.scale));
    const int length = static_cast<int>(kLength * sheet.scale);
    const int top = static_cast<int>(sheet.PixelY(chart::kLinePairs.top + 40));
    const auto right = static_cast<int>(sheet.PixelX(chart::kLinePairs.Right() - kGap));
    int left = static_cast<int>(sheet.PixelX(chart::kLinePairs.left + kGap));
    for (int pixels = times; pixels <= 5 * times; pixels += times) {
        const int width = std::max(length, 9 * pixels);
        if (left + width > right || 9 * pixels > length * 3 / 2)
            return;
        DrawBars(canvas, left, top, length, pixels);
        canvas.DrawText((left - sheet.left) / sheet.scale, chart::kLinePairs.Bottom() - 26, 2, std::to_string(pixels),
                        chart::kLabel);
        left += width + static_cast<int>(kGap * sheet.scale);
    }
}

/// A square turned by a few degrees: edges at a slant for measuring sharpness.
void DrawSlanted(Canvas &canvas, double x, double y, const Light &field, const Light &square, double degrees)
{
    const Box box{x, y, 92, 96};
    canvas.FillRoundBox(box, 3, field);
    const double c = std::cos(degrees * kPi / 180);
    const double s = std::sin(degrees * kPi / 180);
    canvas.Paint(canvas.AreaOf(box), [&](double atX, double atY) {
        const double fromX = atX - box.CentreX();
        const double fromY = atY - box.CentreY();
        const double distance = std::max(std::abs(fromX * c + fromY * s), std::abs(fromY * c - fromX * s)) - 28;
        return Touch{square, canvas.Cover(distance)};
    });
}

void DrawEdges(Canvas &canvas)
{
    DrawCard(canvas, chart::kEdges, "SLANTED EDGES");
    const double y = chart::kEdges.top + 38;
    DrawSlanted(canvas, chart::kEdges.left + 14, y, Grey(0.92F), Grey(0.04F), 5);
    DrawSlanted(canvas, chart::kEdges.left + 119, y, Grey(0.42F), Grey(0.58F), 5);
    DrawSlanted(canvas, chart::kEdges.left + 224, y, {0.80F, 0.16F, 0.14F}, {0.10F, 0.34F, 0.74F}, 12);
}

void DrawFineText(Canvas &canvas)
{
    struct Row {
        double y;
        double dot;
        Light light;
        const char *text;
    };
    const Row rows[] = {
        {38, 3, chart::kBright, "SHARP TO THE END"},
        {68, 2, chart::kBright, "PACK MY BOX WITH 5 JUGS"},
        {90, 2, {0.98F, 0.72F, 0.30F}, "0123456789 +-*/=%#&()!?"},
        {112, 2, Grey(0.30F), "LOW CONTRAST, LOW LIGHT"},
        {136, 1, chart::kBright, "ONE PIXEL PER STROKE: A QUICK BROWN FOX JUMPS"},
        {148, 1, {0.95F, 0.30F, 0.26F}, "RED FINE PRINT 0.1 0.2 0.4 0.8 1.6 3.2 6.4 (MM)"},
        {160, 1, {0.35F, 0.88F, 0.42F}, "GREEN FINE PRINT: TWELVE LAZY DOGS, 3/4 ASLEEP"},
        {172, 1, {0.42F, 0.60F, 1.0F}, "BLUE FINE PRINT; VEXED FLY, QUIZ THE JAMB"},
        {184, 1, Grey(0.24F), "CAN YOU STILL READ THIS LINE? IT IS RATHER DARK."},
    };
    DrawCard(canvas, chart::kFineText, "FINE TEXT");
    const Sheet &sheet = canvas.Layout();
    for (const Row &row : rows) {
        double dot = row.dot;
        if (dot * sheet.scale < 0.9 && dot < 2) // the strokes would run together
            continue;
        if (TextWidth(row.text) * sheet.DotSize(dot) > (chart::kFineText.width - 28) * sheet.scale)
            dot = std::floor(dot * sheet.scale) / sheet.scale;
        canvas.DrawText(chart::kFineText.left + 14, chart::kFineText.top + row.y, dot, row.text, row.light);
    }
}

/// Colour of a hue, 0 to 1 around the circle.
Light Hue(double hue)
{
    const auto part = [&](double shift) {
        const double at = std::fmod(hue + shift, 1.0) * 6;
        return static_cast<float>(std::clamp(std::abs(at - 3) - 1, 0.0, 1.0));
    };
    return {part(0), part(2.0 / 3), part(1.0 / 3)};
}

/// One band of the card of tones: its light as a function of the place, 0 to 1, along it.
template <class Tone> void DrawBand(Canvas &canvas, double top, double height, const Tone &tone)
{
    const Box band{chart::kTones.left + 14, chart::kTones.top + top, chart::kTones.width - 28, height};
    canvas.Paint(canvas.AreaOf(band), [&](double x, double y) {
        const double along = std::clamp((x - band.left) / band.width, 0.0, 0.999999);
        return Touch{tone(along), canvas.Cover(DistanceToRoundBox(band, 3, x, y))};
    });
}

void DrawTones(Canvas &canvas)
{
    DrawCard(canvas, chart::kTones, "");
    DrawBand(canvas, 12, 30, [](double at) { return Grey(static_cast<float>(std::floor(at * 21) / 20)); });
    DrawBand(canvas, 46, 26, [](double at) { return Grey(static_cast<float>(at)); });
    DrawBand(canvas, 78, 30, [](double at) { return Hue(at); });
    DrawBand(canvas, 112, 8, [](double at) { return Light{static_cast<float>(at), 0.02F, 0.02F}; });
    DrawBand(canvas, 122, 8, [](double at) { return Light{0.02F, static_cast<float>(at), 0.02F}; });
    DrawBand(canvas, 132, 8, [](double at) { return Light{0.02F, 0.02F, static_cast<float>(at)}; });
}

/// A scale of 64 ticks around the zone plate, and the dotted path of what circles it.
void DrawDial(Canvas &canvas)
{
    constexpr int kTicks = 64;
    canvas.FillDisc(chart::kDialX, chart::kDialY, chart::kDialOuter + 14, Grey(0.02F), 0.5F);
    canvas.FillDisc(chart::kDialX, chart::kDialY, chart::kDialOuter + 8, {0.09F, 0.10F, 0.12F});
    canvas.DrawRing(chart::kDialX, chart::kDialY, chart::kDialOuter + 8, 1.6, {0.30F, 0.34F, 0.40F});
    canvas.DrawRing(chart::kDialX, chart::kDialY, chart::kZoneRadius + 2, 4, {0.36F, 0.40F, 0.46F});
    for (int tick = 0; tick < kTicks; ++tick) {
        const double angle = -kPi / 2 + 2 * kPi * tick / kTicks;
        const double outer = chart::kDialOuter;
        const double inner = outer - (tick % 8 == 0 ? 18 : 9);
        const Light light = tick % 8 == 0 ? chart::kBright : Light{0.45F, 0.50F, 0.56F};
        canvas.DrawLine(chart::kDialX + inner * std::cos(angle), chart::kDialY + inner * std::sin(angle),
                        chart::kDialX + outer * std::cos(angle), chart::kDialY + outer * std::sin(angle),
                        tick % 8 == 0 ? 3 : 1.6, light);
    }
}

} // namespace

void DrawChart(Canvas &canvas, const std::string &caption)
{
    Studio(canvas).Draw();
    DrawFraming(canvas);
    DrawHead(canvas, caption);
    DrawLamps(canvas);
    DrawColours(canvas);
    DrawLinePairs(canvas);
    DrawEdges(canvas);
    DrawCard(canvas, chart::kStar, "SIEMENS STAR");
    DrawFineText(canvas);
    DrawCard(canvas, chart::kSweeps, "SWEEP");
    DrawTones(canvas);
    DrawDial(canvas);
    canvas.FillRoundBox(chart::kTicker, 4, {0.03F, 0.035F, 0.045F});
}

} // namespace orvsim
