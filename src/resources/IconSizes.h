#pragma once

/// The icons as they stand in the resource system. Drawn as SVG on a grid of 24 units, baked to PNG when the program
/// is built: ":/OrvPlayer/<name>.png" has 24 pixels, ":/OrvPlayer/<size>/<name>.png" every other size.
namespace orv {

constexpr char kIconFolder[] = ":/OrvPlayer/";

/// Below that folder: the same in all sizes with a light rim, for the entry of a menu under the mouse, which has the
/// theme's highlight colour as its background.
constexpr char kActiveIcons[] = "active/";

/// Units on each side of a drawing.
constexpr int kIconGridUnits = 24;

/// Pixels of ":/OrvPlayer/<name>.png".
constexpr int kIconBaseSizePx = 24;

/// All baked sizes in pixels: 16, 24, 32, 48 and 64 logical pixels on screens with a scale of 1, 1.25, 1.5 and 2, as
/// far as they differ.
constexpr int kIconSizesPx[] = {16, 20, 24, 30, 32, 36, 40, 48, 60, 64, 72, 80, 96, 128};

} // namespace orv
