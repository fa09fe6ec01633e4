#include "simulator/imaging/Scene.h"

#include "simulator/imaging/Chart.h"

#include <algorithm>
#include <string>

namespace orvsim {

namespace {

std::string Caption(const SensorTraits &sensor)
{
    return std::to_string(sensor.width) + " X " + std::to_string(sensor.height) +
           (sensor.isColour ? "  COLOUR  " : "  MONO  ") + std::to_string(sensor.bits) + " BIT";
}

Canvas DrawnChart(const SensorTraits &sensor)
{
    Canvas canvas(sensor.width, sensor.height, sensor.isColour);
    DrawChart(canvas, Caption(sensor));
    return canvas;
}

} // namespace

Scene::Scene(const SensorTraits &sensor)
    : m_canvas(DrawnChart(sensor)), m_clock(m_canvas), m_parts(MakeMovingParts(m_canvas))
{
}

void Scene::ReadChart(int y, int begin, int end, SceneLine &line) const
{
    for (int channel = 0; channel < kChannels; ++channel) {
        std::vector<std::uint8_t> &plane = line.planes[channel];
        if (!plane.empty())
            std::copy_n(m_canvas.Line(static_cast<Channel>(channel), y) + begin, end - begin, plane.data() + begin);
    }
}

void Scene::ReadLine(int y, int phase, int begin, int end, SceneLine &line) const
{
    ReadChart(y, begin, end, line);
    for (const auto &part : m_parts) {
        if (part->Area(phase).HasLine(y))
            part->Draw(y, phase, line);
    }
}

void Scene::ReadClockLine(int y, const ClockWindow::Text &text, int begin, int end, SceneLine &line) const
{
    ReadChart(y, begin, end, line);
    m_clock.Draw(y, text, line);
}

} // namespace orvsim
