#pragma once

#include "simulator/imaging/Canvas.h"
#include "simulator/imaging/ClockWindow.h"
#include "simulator/imaging/FrameSettings.h"
#include "simulator/imaging/Motion.h"

#include <memory>
#include <vector>

namespace orvsim {

/// What the sensor looks at: the chart, its moving parts and the clock, in sensor pixels.
///
/// Drawn when it is made, constant afterwards: any thread.
class Scene {
public:
    explicit Scene(const SensorTraits &sensor);

    int Width() const { return m_canvas.Width(); }
    int Height() const { return m_canvas.Height(); }

    /// Pixels that only the clock changes.
    PixelArea ClockArea() const { return m_clock.Area(); }

    /// The columns of a line in the channels for which `line` has planes; the clock is dark.
    void ReadLine(int y, int phase, int begin, int end, SceneLine &line) const;
    /// The same within the clock's area, with the clock.
    void ReadClockLine(int y, const ClockWindow::Text &text, int begin, int end, SceneLine &line) const;

private:
    void ReadChart(int y, int begin, int end, SceneLine &line) const;

    Canvas m_canvas;
    ClockWindow m_clock;
    std::vector<std::unique_ptr<MovingPart>> m_parts;
};

} // namespace orvsim
