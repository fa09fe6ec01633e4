#pragma once

#include "orvimage/OrvImage.h"

#include <string>

namespace orv {

/// Says that an image's format cannot be displayed, by the name and the code that the camera's documents use; by the
/// application's own where the camera sent none. Any thread.
std::string FormatNotice(const _OrvImage &image);

} // namespace orv
