#pragma once

#include <cstddef>
#include <cstdint>

/// How the lines of an image lie in memory.
enum OrvLineLayout : std::uint32_t {
    /// Every line starts linePitch bytes after the one before.
    ORV_LINES_PITCHED = 0,
    /// Packed lines follow each other without a gap, so a line may start inside a byte; linePitch is the size of a line
    /// rounded down to whole bytes.
    ORV_LINES_CONTINUOUS = 1
};

/// One image: what its pixels mean, how they lie in memory, where and when they came from.
///
/// A record made by OrvCreateImage owns its pixels; a header, or a record that a stream buffer hands out, does not.
/// No locking: one writer, or readers only.
struct _OrvImage {
    std::uint32_t pixelType;       ///< the application's own code, see orvimage/PixelFormats.h
    std::uint32_t wireFormat;      ///< PFNC code as the camera sent it, 0 when the image came another way
    std::uint32_t significantBits; ///< of one channel: 8, 10, 12, 14 or 16
    std::uint32_t bitsPerPixel;    ///< occupied in memory, all channels and padding
    std::uint32_t width;           ///< pixels
    std::uint32_t height;          ///< lines
    OrvLineLayout lineLayout;
    std::uint32_t linePitch; ///< bytes from one line's start to the next
    std::uint64_t timestamp; ///< camera ticks
    std::uint64_t frameId;
    std::size_t dataSize; ///< bytes at data, 0 for a header without pixels
    void *data;
    bool ownsData; ///< set by OrvCreateImage
};

/// Status of the image functions; 0 is success.
enum OrvImageStatus : int {
    ORV_IMAGE_OK = 0,
    ORV_IMAGE_ERR_INVALID_ARGUMENT = -41001, ///< null pointer, or a size of zero or beyond 65535
    ORV_IMAGE_ERR_UNKNOWN_FORMAT = -41002,   ///< a pixel type that the format table lacks
    ORV_IMAGE_ERR_OUT_OF_MEMORY = -41003,
    ORV_IMAGE_ERR_MISMATCH = -41004,       ///< source and destination differ in size or pixel type
    ORV_IMAGE_ERR_TOO_SHORT = -41005,      ///< fewer bytes than the geometry asks for
    ORV_IMAGE_ERR_NOT_CONVERTIBLE = -41006 ///< no conversion between the two pixel types
};

/// Makes an image with zeroed pixels and the tightest line pitch.
int OrvCreateImage(_OrvImage **image, std::uint32_t width, std::uint32_t height, std::uint32_t pixelType);
/// Makes a record that describes pixels owned by somebody else, or none.
/// \param linePitch  bytes; 0 for the tightest.
int OrvCreateImageHeader(_OrvImage **header, std::uint32_t width, std::uint32_t height, std::uint32_t pixelType,
                         void *data, std::size_t dataSize, std::uint32_t linePitch);
/// Copies pixels, significant bits, wire format, timestamp and frame ID into an image of the same width, height and
/// pixel type. The destination keeps its own line pitch and layout. Lines that the source lacks bytes for are left as
/// they are and the status says so.
int OrvCopyImage(_OrvImage *destination, const _OrvImage *source);
/// Both set the pointer to null; a null pointer, or a pointer to one, is allowed.
int OrvReleaseImage(_OrvImage **image);
int OrvReleaseImageHeader(_OrvImage **header);
