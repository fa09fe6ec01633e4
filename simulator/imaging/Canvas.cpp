#include "simulator/imaging/Canvas.h"

#include "simulator/imaging/Font.h"

#include <array>

namespace orvsim {

namespace {

constexpr float kLumaOfRed = 0.299F;
constexpr float kLumaOfGreen = 0.587F;
constexpr float kLumaOfBlue = 0.114F;

std::array<float, 256> LightTable()
{
    std::array<float, 256> table{};
    for (std::size_t code = 0; code < table.size(); ++code)
        table[code] = static_cast<float>(code * code) / (255.0F * 255.0F);
    return table;
}

const std::array<float, 256> s_lightOfCode = LightTable();

float Luma(const Light &light)
{
    return kLumaOfRed * light.red + kLumaOfGreen * light.green + kLumaOfBlue * light.blue;
}

} // namespace

std::uint8_t CodeOf(float light)
{
    return static_cast<std::uint8_t>(std::sqrt(std::clamp(light, 0.0F, 1.0F)) * 255.0F + 0.5F);
}

float LightOf(std::uint8_t code)
{
    return s_lightOfCode[code];
}

Ink InkOf(const Light &light)
{
    return {{CodeOf(light.red), CodeOf(light.green), CodeOf(light.blue), CodeOf(Luma(light))}};
}

Sheet::Sheet(int sensorWidth, int sensorHeight)
    : scale(std::min(static_cast<double>(sensorWidth) / kWidth, static_cast<double>(sensorHeight) / kHeight)),
      left((sensorWidth - kWidth * scale) / 2), top((sensorHeight - kHeight * scale) / 2)
{
}

int Sheet::DotSize(double units) const
{
    constexpr double kSmallestSeen = 0.4;
    const double pixels = units * scale;
    return pixels < kSmallestSeen ? 0 : std::max(1, static_cast<int>(std::lround(pixels)));
}

Canvas::Canvas(int width, int height, bool isColour)
    : m_width(width), m_height(height), m_isColour(isColour), m_sheet(width, height)
{
    for (int channel = isColour ? 0 : static_cast<int>(Channel::Luma); channel < kChannels; ++channel)
        Plane(channel).resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
}

const std::uint8_t *Canvas::Line(Channel channel, int y) const
{
    const Channel kept = m_isColour ? channel : Channel::Luma;
    return m_planes[static_cast<std::size_t>(kept)].data() + At(0, y);
}

PixelArea Canvas::AreaOf(const Box &box) const
{
    const auto pixel = [](double at, int limit) { return std::clamp(static_cast<int>(std::floor(at)), 0, limit); };
    return {pixel(m_sheet.PixelX(box.left) - 1, m_width), pixel(m_sheet.PixelY(box.top) - 1, m_height),
            pixel(m_sheet.PixelX(box.Right()) + 2, m_width), pixel(m_sheet.PixelY(box.Bottom()) + 2, m_height)};
}

void Canvas::Lay(int x, int y, const Touch &touch)
{
    if (touch.cover <= 0)
        return;
    const std::size_t at = At(x, y);
    const auto lay = [&](Channel channel, float light) {
        std::uint8_t &code = Plane(static_cast<int>(channel))[at];
        const float below = s_lightOfCode[code];
        code = CodeOf(touch.cover >= 1 ? light : below + (light - below) * touch.cover);
    };
    if (m_isColour) {
        lay(Channel::Red, touch.light.red);
        lay(Channel::Green, touch.light.green);
        lay(Channel::Blue, touch.light.blue);
    }
    lay(Channel::Luma, Luma(touch.light));
}

void Canvas::Put(int x, int y, const Ink &ink)
{
    for (int channel = m_isColour ? 0 : static_cast<int>(Channel::Luma); channel < kChannels; ++channel)
        Plane(channel)[At(x, y)] = ink.codes[channel];
}

void Canvas::FillBox(const Box &box, const Light &light, float cover)
{
    FillRoundBox(box, 0, light, cover);
}

void Canvas::FillRoundBox(const Box &box, double radius, const Light &light, float cover)
{
    Paint(AreaOf(box), [&](double x, double y) {
        return Touch{light, cover * Cover(DistanceToRoundBox(box, radius, x, y))};
    });
}

void Canvas::FillDisc(double x, double y, double radius, const Light &light, float cover)
{
    Paint(AreaOf({x - radius, y - radius, 2 * radius, 2 * radius}), [&](double atX, double atY) {
        return Touch{light, cover * Cover(std::hypot(atX - x, atY - y) - radius)};
    });
}

void Canvas::DrawRing(double x, double y, double radius, double width, const Light &light, float cover)
{
    const double outer = radius + width;
    Paint(AreaOf({x - outer, y - outer, 2 * outer, 2 * outer}), [&](double atX, double atY) {
        return Touch{light, cover * Cover(std::abs(std::hypot(atX - x, atY - y) - radius) - width / 2)};
    });
}

void Canvas::DrawLine(double x0, double y0, double x1, double y1, double width, const Light &light, float cover)
{
    const Box box{std::min(x0, x1) - width, std::min(y0, y1) - width, std::abs(x1 - x0) + 2 * width,
                  std::abs(y1 - y0) + 2 * width};
    Paint(AreaOf(box), [&](double x, double y) {
        return Touch{light, cover * Cover(DistanceToLine(x0, y0, x1, y1, x, y) - width / 2)};
    });
}

void Canvas::FillPixels(const PixelArea &area, const Light &light)
{
    for (int y = std::max(0, area.top); y < std::min(m_height, area.bottom); ++y) {
        for (int x = std::max(0, area.left); x < std::min(m_width, area.right); ++x)
            Lay(x, y, {light, 1});
    }
}

void Canvas::DrawText(double x, double y, double dotUnits, std::string_view text, const Light &light)
{
    const int dot = m_sheet.DotSize(dotUnits);
    int left = static_cast<int>(std::lround(m_sheet.PixelX(x)));
    const int top = static_cast<int>(std::lround(m_sheet.PixelY(y)));
    for (const char character : text) {
        for (int cell = 0; dot > 0 && cell < kGlyphWidth * kGlyphHeight; ++cell) {
            const int column = cell % kGlyphWidth;
            const int row = cell / kGlyphWidth;
            const int dotLeft = left + column * dot;
            const int dotTop = top + row * dot;
            if (HasDot(character, column, row))
                FillPixels({dotLeft, dotTop, dotLeft + dot, dotTop + dot}, light);
        }
        left += kGlyphPitch * dot;
    }
}

double DistanceToRoundBox(const Box &box, double radius, double x, double y)
{
    const double beyondX = std::abs(x - box.CentreX()) - box.width / 2 + radius;
    const double beyondY = std::abs(y - box.CentreY()) - box.height / 2 + radius;
    return std::hypot(std::max(beyondX, 0.0), std::max(beyondY, 0.0)) + std::min(std::max(beyondX, beyondY), 0.0) -
           radius;
}

double DistanceToLine(double x0, double y0, double x1, double y1, double x, double y)
{
    const double alongX = x1 - x0;
    const double alongY = y1 - y0;
    const double length = alongX * alongX + alongY * alongY;
    const double share = length == 0 ? 0 : std::clamp(((x - x0) * alongX + (y - y0) * alongY) / length, 0.0, 1.0);
    return std::hypot(x - x0 - alongX * share, y - y0 - alongY * share);
}

} // namespace orvsim
