#pragma once

#include "orvimage/OrvImage.h"

#include <cstddef>
#include <cstdint>

namespace orv {

/// What the samples of a pixel mean.
enum class PixelFamily {
    Unknown, ///< no such pixel type, or a four-colour sensor, whose colours nobody has described to us
    Mono,
    Bayer,
    Rgb,    ///< three or four samples per pixel
    Yuv422, ///< two samples per pixel: its luma and one of the two chroma samples that it shares with its neighbour
    Yuv444
};

/// How samples become bytes.
enum class SamplePacking {
    Bytes,     ///< 8 bits
    Words,     ///< 16 bits little-endian, value in the low bits
    BitString, ///< n bits each without gaps, least significant bit first
    Grouped10, ///< two samples in three bytes, the low bits of both in the middle one (the old GigE Vision packing)
    Grouped12
};

/// Memory layout of one pixel type, taken from its row of the format table.
struct PixelLayout {
    PixelFamily family = PixelFamily::Unknown;
    SamplePacking packing = SamplePacking::Bytes;
    int bits = 0; ///< of one sample
    int samplesPerPixel = 1;
    int bitsPerPixel = 0; ///< in memory
    /// Rgb, Yuv444: place of red (luma), green (U) and blue (V) within a pixel. Yuv422: place of the first luma, U and
    /// V within the four samples of two pixels; the second luma comes two after the first.
    int place[3] = {0, 0, 0};
    int redX = 0; ///< Bayer: column and line of red within the 2 x 2 cell; blue lies on the opposite corner
    int redY = 0;
};

/// Family Unknown for a code that the table lacks or whose samples cannot be interpreted; bitsPerPixel is right for
/// every code of the table and 0 for others.
PixelLayout LayoutOf(std::uint32_t pixelType);

/// Bytes of one line without padding.
std::size_t LineBytes(const PixelLayout &layout, std::uint32_t width);

/// Consecutive samples in memory: a line of an image, which with continuous lines may start inside a byte.
struct SampleRun {
    const std::uint8_t *origin; ///< where sample 0 of the numbering lies
    const std::uint8_t *end;    ///< one past the last byte that may be read
    std::uint64_t first;        ///< number of the run's first sample
};

/// An image record whose geometry was checked against the bytes it has: every sample of every line can be read.
///
/// Borrows the record's pixels. Copies may be used from several threads.
struct PixelSource {
    PixelLayout layout;
    const std::uint8_t *data = nullptr;
    std::size_t dataSize = 0; ///< bytes
    int width = 0;            ///< pixels
    int height = 0;
    std::size_t pitch = 0; ///< bytes
    bool isContinuous = false;
    int significantBits = 8; ///< of a sample, at least 8

    /// \param y  within the height.
    SampleRun Line(int y) const;
    int SamplesPerLine() const { return width * layout.samplesPerPixel; }
    /// Right shift that brings a sample to 8 bits.
    int ShiftToEight() const { return significantBits - 8; }
};

/// \return 0; ORV_IMAGE_ERR_INVALID_ARGUMENT (no record, no pixels, a size or a pitch that cannot be),
/// ORV_IMAGE_ERR_UNKNOWN_FORMAT, ORV_IMAGE_ERR_NOT_CONVERTIBLE (family Unknown), ORV_IMAGE_ERR_TOO_SHORT.
int OpenPixelSource(const _OrvImage *image, PixelSource &source);

} // namespace orv
