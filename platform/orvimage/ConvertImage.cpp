#include "orvimage/Colour.h"
#include "orvimage/Convert.h"
#include "orvimage/Kernels.h"
#include "orvimage/LineReader.h"
#include "orvimage/PixelFormats.h"

#include <cstring>
#include <numeric>

namespace orv {

namespace {

using StoreLine = void (*)(const std::uint32_t *colours, int pixels, std::uint8_t *bytes);

void StoreMono8(const std::uint32_t *colours, int pixels, std::uint8_t *bytes)
{
    for (int i = 0; i < pixels; ++i)
        bytes[i] = LumaOf(colours[i]);
}

void StoreRgba8(const std::uint32_t *colours, int pixels, std::uint8_t *bytes)
{
    for (int i = 0; i < pixels; ++i, bytes += 4) {
        bytes[0] = static_cast<std::uint8_t>(colours[i] >> 16);
        bytes[1] = static_cast<std::uint8_t>(colours[i] >> 8);
        bytes[2] = static_cast<std::uint8_t>(colours[i]);
        bytes[3] = 255;
    }
}

/// What the colours are in memory already.
void StoreBgra8(const std::uint32_t *colours, int pixels, std::uint8_t *bytes)
{
    std::memcpy(bytes, colours, static_cast<std::size_t>(pixels) * sizeof *colours);
}

struct Destination {
    std::uint32_t pixelType;
    StoreLine store;
};

constexpr Destination kDestinations[] = {
    {kMono8, StoreMono8}, {kRGB8, ColoursToRgb}, {kBGR8, ColoursToBgr}, {kRGBa8, StoreRgba8}, {kBGRa8, StoreBgra8},
};

StoreLine StoreFor(std::uint32_t pixelType)
{
    for (const Destination &destination : kDestinations) {
        if (destination.pixelType == pixelType)
            return destination.store;
    }
    return nullptr;
}

std::uint8_t *LineOf(_OrvImage &image, const PixelSource &layout, int y)
{
    const std::size_t pitch = layout.isContinuous ? LineBytes(layout.layout, image.width) : layout.pitch;
    return static_cast<std::uint8_t *>(image.data) + static_cast<std::size_t>(y) * pitch;
}

/// Grey stays grey: the samples brought to 8 bits, without a way over colours.
void ConvertMono(const PixelSource &from, _OrvImage &destination, const PixelSource &to)
{
    LineReader lines(from, 0, from.width);
    for (int y = 0; y < from.height; ++y)
        std::memcpy(LineOf(destination, to, y), lines.Line(y), static_cast<std::size_t>(from.width));
}

void ConvertColours(const PixelSource &from, _OrvImage &destination, const PixelSource &to, StoreLine store)
{
    PixelPicker picker(from, 0, from.width, {});
    std::vector<int> columns(static_cast<std::size_t>(from.width));
    std::iota(columns.begin(), columns.end(), 0);
    std::vector<std::uint32_t> colours(columns.size());
    for (int y = 0; y < from.height; ++y) {
        picker.Pick(y, columns, colours.data());
        picker.ToColours(from.width, colours.data());
        store(colours.data(), from.width, LineOf(destination, to, y));
    }
}

} // namespace

int ConvertImage(const _OrvImage *source, _OrvImage *destination)
{
    if (source == nullptr || destination == nullptr)
        return ORV_IMAGE_ERR_INVALID_ARGUMENT;
    if (source->width != destination->width || source->height != destination->height)
        return ORV_IMAGE_ERR_MISMATCH;
    if (source->pixelType == destination->pixelType)
        return OrvCopyImage(destination, source);
    PixelSource from;
    int status = OpenPixelSource(source, from);
    if (status != ORV_IMAGE_OK)
        return status;
    const StoreLine store = StoreFor(destination->pixelType);
    if (store == nullptr)
        return ORV_IMAGE_ERR_NOT_CONVERTIBLE;
    PixelSource to; // checks the destination's room
    status = OpenPixelSource(destination, to);
    if (status != ORV_IMAGE_OK)
        return status;

    if (from.layout.family == PixelFamily::Mono && destination->pixelType == kMono8)
        ConvertMono(from, *destination, to);
    else
        ConvertColours(from, *destination, to, store);
    destination->timestamp = source->timestamp;
    destination->frameId = source->frameId;
    return ORV_IMAGE_OK;
}

} // namespace orv
