#pragma once

#include "orvimage/Convert.h"

namespace orv {

/// How the image follows the window; the values of the parameter "display.fit".
enum class Fit {
    Free = 0,   ///< stays as the user left it
    Window = 1, ///< the whole image, as large as the window allows
    Spread = 2, ///< no background: the image fills the window and may stick out on two sides
    Actual = 3  ///< 100 %, then as Free
};

/// A point in image or window pixels.
struct ViewPoint {
    int x;
    int y;

    bool operator==(const ViewPoint &other) const { return x == other.x && y == other.y; }
};

/// A place between window pixels; the middle of pixel 3 is at 3.5.
struct ViewPosition {
    double x;
    double y;
};

/// Where the image lies in the window: scale and position, and how both follow the user and the window's size.
///
/// Window sizes and positions are screen pixels. The image is shown at whole screen pixels, so that at 100 % and more
/// its pixels begin and end where the screen's do; the exact position is kept, so that zooming in and out again comes
/// back to the same place. An image smaller than the window is centred, a larger one
/// leaves no gap at the window's edges. No locking.
class ViewGeometry {
public:
    /// Smallest and largest scale that zooming reaches; a fit may go beyond.
    static constexpr double kMinScale = 1.0 / 64;
    static constexpr double kMaxScale = 64;

    void SetWindow(int width, int height);
    /// An image of a new size: starts over as set by Start.
    void SetImage(int width, int height);
    /// First view of the image. The point (0 to 1 of the image's size) comes to the window's centre when the image
    /// sticks out there.
    void Start(Fit fit, double atX, double atY);

    void SetFit(Fit fit);
    /// Around the window's centre; the user's own scale, so the fit ends.
    void SetScale(double scale);
    /// The next larger or smaller of the fixed scales; the place keeps its image point. Where a fit went beyond the
    /// last of them the scale stays.
    void ZoomIn(ViewPosition around);
    void ZoomOut(ViewPosition around);
    void Pan(int dx, int dy);
    /// The image's centre to the window's centre.
    void CentreImage();

    /// The image pixel shown at a window position; beyond the image it lies outside its size.
    ViewPoint ToImage(ViewPoint window) const;
    /// The first window position, from the left and from above, that shows the image pixel or lies within it.
    ViewPoint ToWindow(ViewPoint image) const;

    bool IsComplete() const { return m_windowWidth > 0 && m_windowHeight > 0 && m_imageWidth > 0; }
    ViewPosition WindowCentre() const { return {m_windowWidth / 2.0, m_windowHeight / 2.0}; }
    int WindowWidth() const { return m_windowWidth; }
    int WindowHeight() const { return m_windowHeight; }
    int ImageWidth() const { return m_imageWidth; }
    int ImageHeight() const { return m_imageHeight; }
    Fit CurrentFit() const { return m_fit; }
    double Scale() const { return m_scale; }
    ViewTransform Transform() const;
    /// The same picture, whatever the fit.
    bool ShowsTheSameAs(const ViewGeometry &other) const;

private:
    void ZoomTo(double scale, ViewPosition around);
    void ApplyFit();
    void ApplyStart();
    void KeepInWindow();

    int m_windowWidth = 0;
    int m_windowHeight = 0;
    int m_imageWidth = 0; // 0: none yet
    int m_imageHeight = 0;
    Fit m_fit = Fit::Window;
    double m_scale = 1;
    double m_offsetX = 0; // window position of the image's upper left corner, before rounding
    double m_offsetY = 0;
    double m_startX = 0.5;
    double m_startY = 0.5;
    bool m_mustStart = false; // Start was called before window and image were known
};

} // namespace orv
