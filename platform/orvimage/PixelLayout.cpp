#include "orvimage/PixelLayout.h"

#include "orvimage/PixelFormats.h"

#include <string_view>

namespace orv {

namespace {

bool EndsWith(std::string_view text, std::string_view ending)
{
    return text.size() >= ending.size() && text.substr(text.size() - ending.size()) == ending;
}

SamplePacking PackingOf(const OrvColorModelDescription &model)
{
    const std::string_view name = model.name;
    if (model.bitsPerChannel == 8)
        return SamplePacking::Bytes;
    if (EndsWith(name, "Packed"))
        return model.bitsPerChannel == 10 ? SamplePacking::Grouped10 : SamplePacking::Grouped12;
    if (EndsWith(name, "p") || EndsWith(name, "Dense") || EndsWith(name, "_PACKED"))
        return SamplePacking::BitString;
    return SamplePacking::Words;
}

/// The first line of a cell is the first two letters of the name's phase: "BayerRG12" has red at 0, 0.
void SetBayerPhase(std::string_view phase, PixelLayout &layout)
{
    layout.redX = phase == "GR" || phase == "BG" ? 1 : 0;
    layout.redY = phase == "GB" || phase == "BG" ? 1 : 0;
}

void SetYuvPlaces(const OrvColorModelDescription &model, PixelLayout &layout)
{
    const std::string_view name = model.name;
    const bool isChromaFirst = name == "YUV422_8_UYVY" || name == "YUV444_8";
    layout.family = name == "YUV444_8" ? PixelFamily::Yuv444 : PixelFamily::Yuv422;
    layout.samplesPerPixel = layout.family == PixelFamily::Yuv444 ? 3 : 2;
    layout.place[0] = isChromaFirst ? 1 : 0;
    layout.place[1] = isChromaFirst ? 0 : 1;
    layout.place[2] = layout.family == PixelFamily::Yuv444 || isChromaFirst ? 2 : 3;
}

void SetColours(const OrvColorModelDescription &model, PixelLayout &layout)
{
    switch (model.pixelType >> 24) {
    case 1:
        layout.family = PixelFamily::Mono;
        break;
    case 2:
        layout.family = PixelFamily::Rgb;
        layout.samplesPerPixel = model.channelCount;
        layout.place[0] = model.channelIndex('R');
        layout.place[1] = model.channelIndex('G');
        layout.place[2] = model.channelIndex('B');
        break;
    case 3:
        layout.family = PixelFamily::Bayer;
        SetBayerPhase(std::string_view(model.name).substr(5, 2), layout);
        break;
    case 5:
        SetYuvPlaces(model, layout);
        break;
    default:
        break;
    }
}

} // namespace

PixelLayout LayoutOf(std::uint32_t pixelType)
{
    PixelLayout layout;
    const OrvColorModelDescription *const model = FindColorModel(pixelType);
    if (model == nullptr)
        return layout;
    layout.bits = model->bitsPerChannel;
    layout.bitsPerPixel = static_cast<int>(BitsPerPixel(pixelType));
    layout.packing = PackingOf(*model);
    SetColours(*model, layout);
    return layout;
}

std::size_t LineBytes(const PixelLayout &layout, std::uint32_t width)
{
    return (std::size_t{width} * static_cast<std::size_t>(layout.bitsPerPixel) + 7) / 8;
}

SampleRun PixelSource::Line(int y) const
{
    const auto line = static_cast<std::size_t>(y);
    const std::uint8_t *const end = data + dataSize;
    if (isContinuous)
        return {data, end, std::uint64_t{line} * static_cast<std::uint64_t>(SamplesPerLine())};
    return {data + line * pitch, end, 0};
}

int OpenPixelSource(const _OrvImage *image, PixelSource &source)
{
    constexpr std::uint32_t kMaxSize = 65535;
    if (image == nullptr || image->data == nullptr || image->width == 0 || image->height == 0 ||
        image->width > kMaxSize || image->height > kMaxSize)
        return ORV_IMAGE_ERR_INVALID_ARGUMENT;
    const PixelLayout layout = LayoutOf(image->pixelType);
    if (layout.bitsPerPixel == 0)
        return ORV_IMAGE_ERR_UNKNOWN_FORMAT;
    if (layout.family == PixelFamily::Unknown)
        return ORV_IMAGE_ERR_NOT_CONVERTIBLE;

    const std::size_t lineBytes = LineBytes(layout, image->width);
    const bool isContinuous = image->lineLayout == ORV_LINES_CONTINUOUS;
    if (!isContinuous && image->linePitch < lineBytes)
        return ORV_IMAGE_ERR_INVALID_ARGUMENT;
    const std::size_t pixels = std::size_t{image->width} * image->height;
    const std::size_t needed = isContinuous ? (pixels * static_cast<std::size_t>(layout.bitsPerPixel) + 7) / 8
                                            : (std::size_t{image->height} - 1) * image->linePitch + lineBytes;
    if (image->dataSize < needed)
        return ORV_IMAGE_ERR_TOO_SHORT;

    source.layout = layout;
    source.data = static_cast<const std::uint8_t *>(image->data);
    source.dataSize = image->dataSize;
    source.width = static_cast<int>(image->width);
    source.height = static_cast<int>(image->height);
    source.pitch = image->linePitch;
    source.isContinuous = isContinuous;
    // A 16-bit format may carry fewer bits than its name says; never more than a sample has room for.
    const int room = layout.packing == SamplePacking::Words ? 16 : layout.bits;
    const auto claimed = static_cast<int>(image->significantBits);
    source.significantBits = claimed >= 8 && claimed <= room ? claimed : layout.bits;
    return ORV_IMAGE_OK;
}

} // namespace orv
