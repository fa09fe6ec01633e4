#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace orvsim {

/// Light from a point of the scene; 1 is a white surface.
struct Light {
    float red;
    float green;
    float blue;
};

constexpr Light Grey(float level)
{
    return {level, level, level};
}

constexpr Light Mix(const Light &a, const Light &b, float share)
{
    return {a.red + (b.red - a.red) * share, a.green + (b.green - a.green) * share, a.blue + (b.blue - a.blue) * share};
}

/// What a sensor's pixel may look through; Luma is the sum with the BT.601 weights.
enum class Channel { Red, Green, Blue, Luma };
constexpr int kChannels = 4;

/// Light is kept as 255 times its square root: a step of the code is then smaller than the shot noise at every level.
std::uint8_t CodeOf(float light);
float LightOf(std::uint8_t code);

/// The codes of one light in all channels.
struct Ink {
    std::uint8_t codes[kChannels];
};
Ink InkOf(const Light &light);

/// Where things of the scene lie on a sensor: drawn on a sheet of 1280 x 1024 units, which is scaled to fit the sensor
/// and centred.
struct Sheet {
    static constexpr int kWidth = 1280;
    static constexpr int kHeight = 1024;

    Sheet(int sensorWidth, int sensorHeight);

    double scale; ///< pixels per unit
    double left;  ///< pixels
    double top;

    double PixelX(double x) const { return left + x * scale; }
    double PixelY(double y) const { return top + y * scale; }
    /// Pixels of a dot of text, 0 when it would be too small to see.
    int DotSize(double units) const;
};

/// A part of the sheet, units.
struct Box {
    double left;
    double top;
    double width;
    double height;
    double Right() const { return left + width; }
    double Bottom() const { return top + height; }
    double CentreX() const { return left + width / 2; }
    double CentreY() const { return top + height / 2; }
    Box Inset(double by) const { return {left + by, top + by, width - 2 * by, height - 2 * by}; }
};

/// A part of the sensor, pixels.
struct PixelArea {
    int left = 0;
    int top = 0;
    int right = 0; ///< one past the last
    int bottom = 0;
    bool IsEmpty() const { return left >= right || top >= bottom; }
    bool HasLine(int y) const { return y >= top && y < bottom; }
};

/// What a shape puts on one pixel.
struct Touch {
    Light light;
    float cover = 1; ///< share of the pixel, 0 to 1
};

/// The scene at rest, in sensor pixels. Sensors without colour keep luma only.
///
/// Shapes are given in units of the sheet; what lies outside the sensor is cut off.
class Canvas {
public:
    Canvas(int width, int height, bool isColour);

    int Width() const { return m_width; }
    int Height() const { return m_height; }
    bool IsColour() const { return m_isColour; }
    const Sheet &Layout() const { return m_sheet; }
    /// Codes of a line. Channels that the canvas does not keep are luma.
    const std::uint8_t *Line(Channel channel, int y) const;

    /// The pixels that a box covers, with one pixel around it for soft edges.
    PixelArea AreaOf(const Box &box) const;
    /// Everything, beyond the sheet too.
    PixelArea WholeArea() const { return {0, 0, m_width, m_height}; }
    /// Calls shade(x, y) with each pixel's centre in units and lays the Touch that it returns over the pixel.
    template <class Shade> void Paint(const PixelArea &area, const Shade &shade)
    {
        for (int y = area.top; y < area.bottom; ++y) {
            const double sheetY = (y + 0.5 - m_sheet.top) / m_sheet.scale;
            for (int x = area.left; x < area.right; ++x)
                Lay(x, y, shade((x + 0.5 - m_sheet.left) / m_sheet.scale, sheetY));
        }
    }
    /// Share of a pixel inside an edge.
    /// \param distance  units from the edge to the pixel's centre, negative inside
    float Cover(double distance) const
    {
        return static_cast<float>(std::clamp(0.5 - distance * m_sheet.scale, 0.0, 1.0));
    }

    void FillBox(const Box &box, const Light &light, float cover = 1);
    void FillRoundBox(const Box &box, double radius, const Light &light, float cover = 1);
    void FillDisc(double x, double y, double radius, const Light &light, float cover = 1);
    /// \param width  of the line, units
    void DrawRing(double x, double y, double radius, double width, const Light &light, float cover = 1);
    void DrawLine(double x0, double y0, double x1, double y1, double width, const Light &light, float cover = 1);
    /// Text from its upper left corner. Nothing when dots would be too small to see.
    void DrawText(double x, double y, double dotUnits, std::string_view text, const Light &light);
    /// One pixel of the sensor, which must be on it.
    void Put(int x, int y, const Ink &ink);
    /// Pixels of the sensor, for what must not be scaled.
    void FillPixels(const PixelArea &area, const Light &light);

private:
    void Lay(int x, int y, const Touch &touch);
    std::vector<std::uint8_t> &Plane(int channel) { return m_planes[static_cast<std::size_t>(channel)]; }
    std::size_t At(int x, int y) const
    {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(m_width) + static_cast<std::size_t>(x);
    }

    const int m_width;
    const int m_height;
    const bool m_isColour;
    const Sheet m_sheet;
    std::vector<std::uint8_t> m_planes[kChannels];
};

/// Distance to a box with round corners, negative inside.
double DistanceToRoundBox(const Box &box, double radius, double x, double y);
/// Distance to the straight line between two points.
double DistanceToLine(double x0, double y0, double x1, double y1, double x, double y);

} // namespace orvsim
