#pragma once

#include "simulator/imaging/Canvas.h"
#include "simulator/imaging/Motion.h"

#include <cstdint>
#include <string>
#include <vector>

namespace orvsim {

/// The window with the frame number (its last eight digits) and the time (HH:MM:SS.mmm of the device's clock, a day at
/// most): two lines of dots like lamps, in the upper middle of the chart.
///
/// Constant once made: any thread.
class ClockWindow {
public:
    struct Text {
        std::string number;
        std::string time;
    };
    static Text TextOf(std::uint64_t frameNumber, std::uint64_t timestampNs);

    /// Draws the window's frame and its lamps, all dark.
    explicit ClockWindow(Canvas &canvas);

    /// What Draw() may change.
    PixelArea Area() const;
    /// Lights the lamps of one line of the sensor.
    void Draw(int y, const Text &text, SceneLine &line) const;

private:
    /// A row of characters.
    struct Row {
        int left = 0; ///< pixels
        int top = 0;
        int dot = 0; ///< 0: the row is not shown
        Ink lit{};
        std::vector<std::uint8_t> shape; ///< cover of a dot's pixels

        PixelArea Area(std::size_t characters) const;
        void Draw(int y, const std::string &text, SceneLine &line) const;
    };

    Row MakeRow(const Canvas &canvas, double top, double dotUnits, std::size_t characters, const Light &light) const;
    static void DrawDark(Canvas &canvas, const Row &row, std::size_t characters);

    Row m_number;
    Row m_time;
};

} // namespace orvsim
