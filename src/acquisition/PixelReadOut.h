#pragma once

#include "orvimage/OrvImage.h"

/// One pixel as the status bar shows it: r, g, b of a colour format; the value alone in c1 of a monochrome one; -1 for
/// a channel that is not there.
struct PixelValue {
    int c0 = -1;
    int c1 = -1;
    int c2 = -1;
};

/// Reads the pixel at an image position without converting it. \return false outside the image. Formats whose pixels
/// cannot be read on their own (packed ones) give -1 in all channels, and so does a pixel the data does not reach.
bool ReadPixel(const _OrvImage &image, int x, int y, PixelValue *value);
