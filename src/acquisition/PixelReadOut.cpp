#include "acquisition/PixelReadOut.h"

#include "orvimage/PixelFormats.h"

#include <cstdint>
#include <cstring>

namespace {

bool IsInterleaved8(std::uint32_t pixelType)
{
    return pixelType == orv::kRGB8 || pixelType == orv::kBGR8 || pixelType == orv::kRGBa8 || pixelType == orv::kBGRa8;
}

int Word(const std::uint8_t *bytes)
{
    std::uint16_t word = 0; // pixels lie little-endian, as the host does
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

} // namespace

bool ReadPixel(const _OrvImage &image, int x, int y, PixelValue *value)
{
    if (x < 0 || y < 0 || static_cast<std::uint32_t>(x) >= image.width || static_cast<std::uint32_t>(y) >= image.height)
        return false;
    *value = PixelValue{};
    const std::size_t bytesPerPixel = image.bitsPerPixel / 8;
    const std::size_t offset =
        static_cast<std::size_t>(y) * image.linePitch + bytesPerPixel * static_cast<std::size_t>(x);
    if (!image.data || offset + bytesPerPixel > image.dataSize)
        return true;
    const std::uint8_t *p = static_cast<const std::uint8_t *>(image.data) + offset;

    if (IsInterleaved8(image.pixelType)) {
        const OrvColorModelDescription *model = orv::FindColorModel(image.pixelType);
        const bool rgbOrder = model && std::strstr(model->name, "RGB") != nullptr;
        *value = rgbOrder ? PixelValue{p[0], p[1], p[2]} : PixelValue{p[2], p[1], p[0]};
    } else if (image.pixelType == orv::kMono8) {
        value->c1 = p[0];
    } else if (image.bitsPerPixel == 16) {
        value->c1 = Word(p);
    } else if (image.bitsPerPixel == 48) {
        *value = PixelValue{Word(p), Word(p + 2), Word(p + 4)};
    }
    return true;
}
