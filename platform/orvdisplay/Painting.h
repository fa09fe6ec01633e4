#pragma once

#include "orvdisplay/DisplayParams.h"
#include "orvdisplay/Pictures.h"

#include <cstdint>
#include <string>

class QWidget;

namespace orv {

/// Around the image: a middle grey, which misleads the eye least about brightness and colour.
constexpr std::uint32_t kSurround = 0xff808080;

/// What a widget shows.
struct PaintJob {
    const Picture *picture = nullptr; ///< null for none
    MarkedArea marked;
    std::string notice; ///< shown when not empty, and then nothing else
};

/// Paints a widget from within its paint event: copies the picture, one of its pixels to each of the screen's, and
/// draws the marked rectangle's outline over it. GUI thread.
void Paint(QWidget &widget, const PaintJob &job);

/// Screen pixel in the middle of what a widget position covers, and the widget position whose middle is the first at or
/// after a screen pixel's.
int ToScreen(int widgetPosition, double pixelRatio);
int ToWidget(int screenPosition, double pixelRatio);

} // namespace orv
