#include "simulator/imaging/ClockWindow.h"

#include "simulator/imaging/Chart.h"
#include "simulator/imaging/Font.h"

#include <cinttypes>
#include <cstdio>

namespace orvsim {

namespace {

constexpr std::size_t kNumberLength = 8;
constexpr std::size_t kTimeLength = 12;
constexpr Light kWindow = {0.020F, 0.022F, 0.026F};
constexpr Light kDarkLamp = {0.052F, 0.050F, 0.050F};

/// Cover of a round dot; square where it is too small to look round.
std::vector<std::uint8_t> DotShape(int size)
{
    std::vector<std::uint8_t> shape;
    const double radius = size * 0.46;
    for (int i = 0; i < size * size; ++i) {
        const double distance = std::hypot(i % size + 0.5 - size / 2.0, i / size + 0.5 - size / 2.0);
        const double cover = size < 4 ? 1 : std::clamp(radius - distance + 0.5, 0.0, 1.0);
        shape.push_back(static_cast<std::uint8_t>(cover * 255));
    }
    return shape;
}

} // namespace

ClockWindow::Text ClockWindow::TextOf(std::uint64_t frameNumber, std::uint64_t timestampNs)
{
    const std::uint64_t ms = timestampNs / 1'000'000;
    char number[32];
    char time[64];
    std::snprintf(number, sizeof number, "%08" PRIu64, frameNumber % 100'000'000);
    std::snprintf(time, sizeof time, "%02" PRIu64 ":%02" PRIu64 ":%02" PRIu64 ".%03" PRIu64, ms / 3'600'000 % 24,
                  ms / 60'000 % 60, ms / 1000 % 60, ms % 1000);
    return {number, time};
}

ClockWindow::ClockWindow(Canvas &canvas)
{
    canvas.FillRoundBox(chart::kClock.Inset(-3), 9, {0.30F, 0.34F, 0.40F});
    canvas.FillRoundBox(chart::kClock.Inset(-1), 7, Grey(0.05F));
    canvas.FillRoundBox(chart::kClock, 6, kWindow);
    canvas.DrawText(chart::kClock.left + 14, chart::kClock.top + 25, 2, "FRAME", chart::kLabel);
    canvas.DrawText(chart::kClock.left + 14, chart::kClock.top + 69, 2, "TIME", chart::kLabel);
    m_number = MakeRow(canvas, chart::kClock.top + 11, 6, kNumberLength, {1.0F, 0.62F, 0.18F});
    m_time = MakeRow(canvas, chart::kClock.top + 62, 4, kTimeLength, {0.36F, 0.90F, 0.62F});
    DrawDark(canvas, m_number, kNumberLength);
    DrawDark(canvas, m_time, kTimeLength);
}

ClockWindow::Row ClockWindow::MakeRow(const Canvas &canvas, double top, double dotUnits, std::size_t characters,
                                      const Light &light) const
{
    const Sheet &sheet = canvas.Layout();
    Row row;
    row.dot = std::max(1, sheet.DotSize(dotUnits));
    const int width = (static_cast<int>(characters) * kGlyphPitch - 1) * row.dot;
    if (width > canvas.Width() || kGlyphHeight * row.dot > canvas.Height() / 4)
        row.dot = 0;
    row.left =
        std::clamp(static_cast<int>(sheet.PixelX(chart::kClock.left + 96)), 0, std::max(0, canvas.Width() - width));
    row.top = static_cast<int>(sheet.PixelY(top));
    row.lit = InkOf(light);
    row.shape = DotShape(row.dot);
    return row;
}

void ClockWindow::DrawDark(Canvas &canvas, const Row &row, std::size_t characters)
{
    const PixelArea area = row.Area(characters);
    canvas.FillPixels(area, kWindow);
    for (int y = area.top; y < area.bottom && row.dot >= 4; y += row.dot) {
        for (int x = area.left; x < area.right; x += row.dot) {
            const double scale = canvas.Layout().scale;
            if ((x - area.left) / row.dot % kGlyphPitch < kGlyphWidth)
                canvas.FillDisc((x + row.dot / 2.0 - canvas.Layout().left) / scale,
                                (y + row.dot / 2.0 - canvas.Layout().top) / scale, row.dot * 0.36 / scale, kDarkLamp);
        }
    }
}

PixelArea ClockWindow::Row::Area(std::size_t characters) const
{
    return {left, top, left + (static_cast<int>(characters) * kGlyphPitch - 1) * dot, top + kGlyphHeight * dot};
}

void ClockWindow::Row::Draw(int y, const std::string &text, SceneLine &line) const
{
    const int row = dot == 0 || y < top ? kGlyphHeight : (y - top) / dot;
    if (row >= kGlyphHeight)
        return;
    const std::uint8_t *const covers = shape.data() + (y - top) % dot * dot;
    int x = left;
    for (const char character : text) {
        for (int column = 0; column < kGlyphWidth; ++column, x += dot) {
            for (int i = 0; i < dot && HasDot(character, column, row); ++i)
                line.Lay(x + i, lit, covers[i]);
        }
        x += (kGlyphPitch - kGlyphWidth) * dot;
    }
}

PixelArea ClockWindow::Area() const
{
    const PixelArea number = m_number.Area(kNumberLength);
    const PixelArea time = m_time.Area(kTimeLength);
    if (m_number.dot == 0)
        return {};
    if (m_time.dot == 0)
        return number;
    return {std::min(number.left, time.left), std::min(number.top, time.top), std::max(number.right, time.right),
            std::max(number.bottom, time.bottom)};
}

void ClockWindow::Draw(int y, const Text &text, SceneLine &line) const
{
    m_number.Draw(y, text.number, line);
    m_time.Draw(y, text.time, line);
}

} // namespace orvsim
