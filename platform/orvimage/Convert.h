#pragma once

#include "orvimage/OrvImage.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace orv {

/// Where an image lies in a window: window position = image position * scale + offset.
struct ViewTransform {
    double scale; ///< window pixels per image pixel, above 0
    int offsetX;  ///< window pixels; of the image's upper left corner
    int offsetY;
};

/// A window's picture: lines of 32-bit pixels 0xffRRGGBB (QImage::Format_RGB32).
struct ViewTarget {
    std::uint32_t *pixels;
    int width;
    int height;
    std::ptrdiff_t stride;    ///< pixels from one line's start to the next
    std::uint32_t background; ///< colour around the image
};

/// A colour for each level of a mono image, the levels spread evenly over the entries.
using LevelColours = std::vector<std::uint32_t>;

/// True for the pixel types that the conversions below read: all of the table but those of four-colour sensors.
bool IsDisplayable(std::uint32_t pixelType);

/// Fills a window with an image. Reads only the lines that the window shows at this scale, and computes only the
/// window's pixels.
///
/// Samples of more than 8 bits show their 8 highest significant bits.
/// - From 100 % on every window pixel is the image pixel at its centre, so that enlarged pixels stay squares.
/// - Below 100 % it is the mean of four image pixels, at the quarter points of the area it covers. From 25 % down the
///   four come from one line, in two pairs: half the lines to fetch from memory, which is what the time goes into.
///   Noise and steps are smoothed about as a bilinear reduction does; patterns finer than the window's pixels may show
///   moire, which only the mean of all pixels would avoid, at ten times the time.
/// - Bayer mosaics are demosaiced bilinearly where the window shows them; below 50 % a window pixel takes red, green
///   and blue from the one colour filter cell at its centre, from 25 % down from four cells at the quarter points.
/// A window pixel shows the image when all that it is made of lies inside, else the background. Only where the image is
/// too flat for that, as the few lines of a line-scan camera are when fitted, it still takes one window pixel.
///
/// \param colours  false colours for mono images, null or empty for none; other images ignore them.
/// \return 0; ORV_IMAGE_ERR_INVALID_ARGUMENT, ORV_IMAGE_ERR_UNKNOWN_FORMAT, ORV_IMAGE_ERR_NOT_CONVERTIBLE or
/// ORV_IMAGE_ERR_TOO_SHORT, and the window is left alone.
/// Any thread.
int ConvertView(const _OrvImage *image, const ViewTransform &view, const ViewTarget &target,
                const LevelColours *colours = nullptr);

/// Converts a whole image into the pixel type of a destination of the same size, and hands on timestamp and frame ID.
///
/// Destinations: the source's own type (a copy), Mono8, RGB8, BGR8, RGBa8, BGRa8 (alpha 255). Colours become grey with
/// the BT.601 weights.
/// \return as ConvertView; ORV_IMAGE_ERR_MISMATCH for different sizes, ORV_IMAGE_ERR_NOT_CONVERTIBLE for another
/// destination, ORV_IMAGE_ERR_TOO_SHORT also for a destination without room.
/// Any thread.
int ConvertImage(const _OrvImage *source, _OrvImage *destination);

namespace plain {

/// ConvertView pixel by pixel, without lines, vectors and caches: the reference that ConvertView equals bit for bit.
int ConvertView(const _OrvImage *image, const ViewTransform &view, const ViewTarget &target,
                const LevelColours *colours = nullptr);

} // namespace plain

} // namespace orv
