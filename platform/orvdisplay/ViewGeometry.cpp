#include "orvdisplay/ViewGeometry.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace orv {

namespace {

/// Powers of two and steps between them: all of them turn image pixels into squares of one size from 100 % on but 150
/// %.
constexpr double kScales[] = {1.0 / 64, 1.0 / 48, 1.0 / 32, 1.0 / 24, 1.0 / 16, 1.0 / 12, 1.0 / 8, 1.0 / 6, 1.0 / 4,
                              1.0 / 3,  1.0 / 2,  2.0 / 3,  1,        1.5,      2,        3,       4,       6,
                              8,        12,       16,       24,       32,       48,       64};

constexpr double kSame = 1e-9; // relative; scales closer than that are one step

int Rounded(double value)
{
    constexpr double kLimit = 1e9; // far outside any window
    return static_cast<int>(std::floor(std::clamp(value, -kLimit, kLimit) + 0.5));
}

/// Position of the image's edge along one axis.
double KeptOffset(double offset, double shown, int window)
{
    if (shown <= window)
        return (window - shown) / 2;
    return std::clamp(offset, std::ceil(window - shown), 0.0);
}

} // namespace

void ViewGeometry::SetWindow(int width, int height)
{
    // Free views keep the image point at the centre. Halves are taken of each size, so that growing pixel by pixel adds
    // up.
    m_offsetX += width / 2 - m_windowWidth / 2;
    m_offsetY += height / 2 - m_windowHeight / 2;
    m_windowWidth = width;
    m_windowHeight = height;
    if (m_mustStart)
        ApplyStart();
    else
        ApplyFit();
}

void ViewGeometry::SetImage(int width, int height)
{
    m_imageWidth = width;
    m_imageHeight = height;
    ApplyStart();
}

void ViewGeometry::Start(Fit fit, double atX, double atY)
{
    m_fit = fit;
    m_startX = atX;
    m_startY = atY;
    ApplyStart();
}

void ViewGeometry::ApplyStart()
{
    m_mustStart = !IsComplete();
    if (m_mustStart)
        return;
    if (m_fit == Fit::Actual)
        m_scale = 1;
    m_offsetX = m_windowWidth / 2.0 - m_startX * m_imageWidth * m_scale;
    m_offsetY = m_windowHeight / 2.0 - m_startY * m_imageHeight * m_scale;
    ApplyFit();
}

void ViewGeometry::SetFit(Fit fit)
{
    if (fit == Fit::Actual)
        ZoomTo(1, WindowCentre()); // also while the window is hidden: it is then a window of no size
    m_fit = fit;
    ApplyFit();
}

void ViewGeometry::SetScale(double scale)
{
    ZoomTo(std::clamp(scale, kMinScale, kMaxScale), WindowCentre());
}

void ViewGeometry::ZoomIn(ViewPosition around)
{
    const auto *const next = std::upper_bound(std::begin(kScales), std::end(kScales), m_scale * (1 + kSame));
    ZoomTo(next == std::end(kScales) ? std::max(m_scale, kMaxScale) : *next, around);
}

void ViewGeometry::ZoomOut(ViewPosition around)
{
    const auto *const above = std::lower_bound(std::begin(kScales), std::end(kScales), m_scale * (1 - kSame));
    ZoomTo(above == std::begin(kScales) ? std::min(m_scale, kMinScale) : *(above - 1), around);
}

void ViewGeometry::ZoomTo(double scale, ViewPosition around)
{
    const double ratio = scale / m_scale;
    m_fit = Fit::Free;
    m_scale = scale;
    m_offsetX = around.x - (around.x - m_offsetX) * ratio;
    m_offsetY = around.y - (around.y - m_offsetY) * ratio;
    KeepInWindow();
}

void ViewGeometry::Pan(int dx, int dy)
{
    const ViewGeometry before = *this;
    m_offsetX += dx;
    m_offsetY += dy;
    KeepInWindow();
    if (!ShowsTheSameAs(before))
        m_fit = Fit::Free;
}

void ViewGeometry::CentreImage()
{
    const ViewGeometry before = *this;
    m_offsetX = (m_windowWidth - m_imageWidth * m_scale) / 2;
    m_offsetY = (m_windowHeight - m_imageHeight * m_scale) / 2;
    KeepInWindow();
    if (!ShowsTheSameAs(before))
        m_fit = Fit::Free;
}

void ViewGeometry::ApplyFit()
{
    if (!IsComplete())
        return;
    if (m_fit == Fit::Window || m_fit == Fit::Spread) {
        const double scaleX = static_cast<double>(m_windowWidth) / m_imageWidth;
        const double scaleY = static_cast<double>(m_windowHeight) / m_imageHeight;
        m_scale = m_fit == Fit::Window ? std::min(scaleX, scaleY) : std::max(scaleX, scaleY);
        m_offsetX = (m_windowWidth - m_imageWidth * m_scale) / 2;
        m_offsetY = (m_windowHeight - m_imageHeight * m_scale) / 2;
    }
    KeepInWindow();
}

void ViewGeometry::KeepInWindow()
{
    if (!IsComplete())
        return;
    m_offsetX = KeptOffset(m_offsetX, m_imageWidth * m_scale, m_windowWidth);
    m_offsetY = KeptOffset(m_offsetY, m_imageHeight * m_scale, m_windowHeight);
}

ViewTransform ViewGeometry::Transform() const
{
    return {m_scale, Rounded(m_offsetX), Rounded(m_offsetY)};
}

ViewPoint ViewGeometry::ToImage(ViewPoint window) const
{
    const ViewTransform shown = Transform();
    return {static_cast<int>(std::floor((window.x + 0.5 - shown.offsetX) / shown.scale)),
            static_cast<int>(std::floor((window.y + 0.5 - shown.offsetY) / shown.scale))};
}

ViewPoint ViewGeometry::ToWindow(ViewPoint image) const
{
    const ViewTransform shown = Transform();
    return {static_cast<int>(std::ceil(image.x * shown.scale + shown.offsetX - 0.5)),
            static_cast<int>(std::ceil(image.y * shown.scale + shown.offsetY - 0.5))};
}

bool ViewGeometry::ShowsTheSameAs(const ViewGeometry &other) const
{
    const ViewTransform mine = Transform();
    const ViewTransform others = other.Transform();
    return m_windowWidth == other.m_windowWidth && m_windowHeight == other.m_windowHeight &&
           m_imageWidth == other.m_imageWidth && m_imageHeight == other.m_imageHeight && mine.scale == others.scale &&
           mine.offsetX == others.offsetX && mine.offsetY == others.offsetY;
}

} // namespace orv
