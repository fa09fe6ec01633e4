#pragma once

#include <QByteArray>
#include <QString>

namespace orv {

/// Rewrites an icon so that it is sharp when it is drawn `sizePx` pixels wide and high.
///
/// The icon is an SVG on the grid of kIconGridUnits with one stroke width. Scaling alone would put most edges between
/// two pixels; here the stroke becomes a whole number of pixels and edges that run along an axis move to the nearest
/// pixel boundary. Fitted: `rect`, `circle`, `line`, `polyline`, `polygon`. A `path` is for free curves and is only
/// scaled. Everything else (`svg`, `g`, colours) passes through; other shapes and transforms are refused.
///
/// \return the rewritten SVG; empty, with `error` set, for anything that is not such an icon. Any thread.
QByteArray FitToPixels(const QByteArray &svg, int sizePx, QString *error);

} // namespace orv
