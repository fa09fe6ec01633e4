#include "orvimage/Colour.h"
#include "orvimage/Convert.h"
#include "orvimage/LineReader.h"
#include "orvimage/PixelFormats.h"

namespace orv {

namespace {

using StoreLine = void (*)(const std::uint32_t *colours, int pixels, std::uint8_t *bytes);

void StoreMono8(const std::uint32_t *colours, int pixels, std::uint8_t *bytes)
{
    for (int i = 0; i < pixels; ++i)
        bytes[i] = LumaOf(colours[i]);
}

template <int kRed, int kBlue, int kSize>
void StoreColour(const std::uint32_t *colours, int pixels, std::uint8_t *bytes)
{
    for (int i = 0; i < pixels; ++i, bytes += kSize) {
        bytes[kRed] = static_cast<std::uint8_t>(colours[i] >> 16);
        bytes[1] = static_cast<std::uint8_t>(colours[i] >> 8);
        bytes[kBlue] = static_cast<std::uint8_t>(colours[i]);
        if (kSize == 4)
            bytes[3] = 255;
    }
}

struct Destination {
    std::uint32_t pixelType;
    StoreLine store;
};

constexpr Destination kDestinations[] = {
    {kMono8, StoreMono8},           {kRGB8, StoreColour<0, 2, 3>},  {kBGR8, StoreColour<2, 0, 3>},
    {kRGBa8, StoreColour<0, 2, 4>}, {kBGRa8, StoreColour<2, 0, 4>},
};

StoreLine StoreFor(std::uint32_t pixelType)
{
    for (const Destination &destination : kDestinations) {
        if (destination.pixelType == pixelType)
            return destination.store;
    }
    return nullptr;
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

    ColourReader reader(from, 0, from.width, {});
    std::vector<std::uint32_t> colours(static_cast<std::size_t>(from.width));
    auto *line = static_cast<std::uint8_t *>(destination->data);
    for (int y = 0; y < from.height; ++y) {
        reader.PickAll(y, colours.data());
        store(colours.data(), from.width, line);
        line += to.isContinuous ? LineBytes(to.layout, destination->width) : to.pitch;
    }
    destination->timestamp = source->timestamp;
    destination->frameId = source->frameId;
    return ORV_IMAGE_OK;
}

} // namespace orv
