#include "orvimage/OrvImage.h"

#include "orvimage/CopySamples.h"
#include "orvimage/PixelFormats.h"
#include "orvimage/PixelLayout.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

namespace {

using orv::LineBytes;
using orv::PixelLayout;
using orv::SamplePacking;

constexpr std::uint32_t kMaxSize = 65535; // pixels or lines

/// A record without pixels; linePitch 0 asks for the tightest.
int MakeRecord(_OrvImage **image, std::uint32_t width, std::uint32_t height, std::uint32_t pixelType,
               std::uint32_t linePitch)
{
    if (image == nullptr)
        return ORV_IMAGE_ERR_INVALID_ARGUMENT;
    *image = nullptr;
    if (width == 0 || height == 0 || width > kMaxSize || height > kMaxSize)
        return ORV_IMAGE_ERR_INVALID_ARGUMENT;
    const OrvColorModelDescription *const model = orv::FindColorModel(pixelType);
    if (model == nullptr)
        return ORV_IMAGE_ERR_UNKNOWN_FORMAT;
    const std::size_t tight = LineBytes(orv::LayoutOf(pixelType), width);
    if (linePitch != 0 && linePitch < tight)
        return ORV_IMAGE_ERR_INVALID_ARGUMENT;

    auto *const record = new (std::nothrow) _OrvImage{};
    if (record == nullptr)
        return ORV_IMAGE_ERR_OUT_OF_MEMORY;
    record->pixelType = pixelType;
    record->significantBits = static_cast<std::uint32_t>(model->bitsPerChannel);
    record->bitsPerPixel = orv::BitsPerPixel(pixelType);
    record->width = width;
    record->height = height;
    record->lineLayout = ORV_LINES_PITCHED;
    record->linePitch = linePitch != 0 ? linePitch : static_cast<std::uint32_t>(tight);
    *image = record;
    return ORV_IMAGE_OK;
}

/// Lines start at whole bytes, one pitch apart; continuous lines do so when every line fills its bytes.
struct LineGrid {
    bool isBytewise;
    std::size_t pitch;
};

LineGrid GridOf(const _OrvImage &image, const PixelLayout &layout)
{
    if (image.lineLayout != ORV_LINES_CONTINUOUS)
        return {true, image.linePitch};
    const bool isGrouped = layout.packing == SamplePacking::Grouped10 || layout.packing == SamplePacking::Grouped12;
    const bool fillsBytes = std::uint64_t{image.width} * static_cast<std::uint64_t>(layout.bitsPerPixel) % 8 == 0;
    return {fillsBytes && !(isGrouped && image.width % 2 != 0), LineBytes(layout, image.width)};
}

/// How many whole lines the record has bytes for.
std::uint32_t LinesPresent(const _OrvImage &image, const PixelLayout &layout)
{
    if (image.data == nullptr)
        return 0;
    if (image.lineLayout == ORV_LINES_CONTINUOUS) {
        const std::uint64_t lineBits = std::uint64_t{image.width} * static_cast<std::uint64_t>(layout.bitsPerPixel);
        return static_cast<std::uint32_t>(std::min<std::uint64_t>(image.height, image.dataSize * 8 / lineBits));
    }
    const std::size_t lineBytes = LineBytes(layout, image.width);
    if (image.dataSize < lineBytes || image.linePitch < lineBytes)
        return 0;
    return static_cast<std::uint32_t>(
        std::min<std::size_t>(image.height, (image.dataSize - lineBytes) / image.linePitch + 1));
}

void CopyBytewise(const LineGrid &to, _OrvImage &destination, const LineGrid &from, const _OrvImage &source,
                  std::size_t lineBytes, std::uint32_t lines)
{
    auto *const target = static_cast<std::uint8_t *>(destination.data);
    const auto *const origin = static_cast<const std::uint8_t *>(source.data);
    if (to.pitch == lineBytes && from.pitch == lineBytes) {
        std::memcpy(target, origin, lineBytes * lines);
        return;
    }
    for (std::size_t y = 0; y < lines; ++y)
        std::memcpy(target + y * to.pitch, origin + y * from.pitch, lineBytes);
}

/// For packed formats of odd width, where a line may start inside a byte on one side only.
void CopyPacked(const PixelLayout &layout, _OrvImage &destination, const _OrvImage &source, std::uint32_t lines)
{
    const std::uint64_t perLine = std::uint64_t{source.width} * static_cast<std::uint64_t>(layout.samplesPerPixel);
    const bool toContinuous = destination.lineLayout == ORV_LINES_CONTINUOUS;
    const bool fromContinuous = source.lineLayout == ORV_LINES_CONTINUOUS;
    auto *const target = static_cast<std::uint8_t *>(destination.data);
    const auto *const bytes = static_cast<const std::uint8_t *>(source.data);
    const std::uint8_t *const end = bytes + source.dataSize;
    if (toContinuous && fromContinuous) {
        orv::CopyPackedSamples(layout, {bytes, end, 0}, {target, 0}, lines * perLine);
        return;
    }
    for (std::size_t y = 0; y < lines; ++y) {
        const orv::SampleRun from{bytes + (fromContinuous ? 0 : y * source.linePitch), end,
                                  fromContinuous ? y * perLine : 0};
        const orv::SampleTarget to{target + (toContinuous ? 0 : y * destination.linePitch),
                                   toContinuous ? y * perLine : 0};
        orv::CopyPackedSamples(layout, from, to, perLine);
    }
}

} // namespace

int OrvCreateImage(_OrvImage **image, std::uint32_t width, std::uint32_t height, std::uint32_t pixelType)
{
    const int status = MakeRecord(image, width, height, pixelType, 0);
    if (status != ORV_IMAGE_OK)
        return status;
    _OrvImage &record = **image;
    record.dataSize = std::size_t{record.linePitch} * height;
    record.data = std::calloc(record.dataSize, 1);
    record.ownsData = true;
    if (record.data != nullptr)
        return ORV_IMAGE_OK;
    OrvReleaseImage(image);
    return ORV_IMAGE_ERR_OUT_OF_MEMORY;
}

int OrvCreateImageHeader(_OrvImage **header, std::uint32_t width, std::uint32_t height, std::uint32_t pixelType,
                         void *data, std::size_t dataSize, std::uint32_t linePitch)
{
    const int status = MakeRecord(header, width, height, pixelType, linePitch);
    if (status != ORV_IMAGE_OK)
        return status;
    (*header)->data = data;
    (*header)->dataSize = data != nullptr ? dataSize : 0;
    return ORV_IMAGE_OK;
}

int OrvCopyImage(_OrvImage *destination, const _OrvImage *source)
{
    if (destination == nullptr || source == nullptr)
        return ORV_IMAGE_ERR_INVALID_ARGUMENT;
    if (destination->width != source->width || destination->height != source->height ||
        destination->pixelType != source->pixelType)
        return ORV_IMAGE_ERR_MISMATCH;
    const PixelLayout layout = orv::LayoutOf(source->pixelType);
    if (layout.bitsPerPixel == 0)
        return ORV_IMAGE_ERR_UNKNOWN_FORMAT;
    if (source->width == 0 || source->height == 0)
        return ORV_IMAGE_ERR_INVALID_ARGUMENT;
    destination->timestamp = source->timestamp;
    destination->frameId = source->frameId;
    destination->significantBits = source->significantBits;
    destination->wireFormat = source->wireFormat;
    if (destination == source || (source->data != nullptr && destination->data == source->data))
        return ORV_IMAGE_OK;

    const std::uint32_t lines = std::min(LinesPresent(*source, layout), LinesPresent(*destination, layout));
    const LineGrid to = GridOf(*destination, layout);
    const LineGrid from = GridOf(*source, layout);
    if (lines > 0 && to.isBytewise && from.isBytewise)
        CopyBytewise(to, *destination, from, *source, LineBytes(layout, source->width), lines);
    else if (lines > 0)
        CopyPacked(layout, *destination, *source, lines);
    return lines == source->height ? ORV_IMAGE_OK : ORV_IMAGE_ERR_TOO_SHORT;
}

int OrvReleaseImage(_OrvImage **image)
{
    if (image == nullptr || *image == nullptr)
        return ORV_IMAGE_OK;
    if ((*image)->ownsData)
        std::free((*image)->data);
    return OrvReleaseImageHeader(image);
}

int OrvReleaseImageHeader(_OrvImage **header)
{
    if (header == nullptr)
        return ORV_IMAGE_OK;
    delete *header;
    *header = nullptr;
    return ORV_IMAGE_OK;
}
