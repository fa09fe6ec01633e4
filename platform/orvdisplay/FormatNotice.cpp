#include "orvdisplay/FormatNotice.h"

#include "orvimage/PixelFormats.h"

#include <cstdio>

namespace orv {

namespace {

std::string Hex(std::uint32_t code)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", code);
    return text;
}

/// Empty when nothing is known of the format.
std::string FormatText(const _OrvImage &image)
{
    if (image.wireFormat != 0) {
        const std::string code = Hex(image.wireFormat);
        const std::string name = WireFormatName(image.wireFormat);
        return name == code ? code : name + " (" + code + ")";
    }
    if (const OrvColorModelDescription *const model = FindColorModel(image.pixelType))
        return model->name;
    return image.pixelType != kPixelTypeNone ? Hex(image.pixelType) : "";
}

} // namespace

std::string FormatNotice(const _OrvImage &image)
{
    const std::string format = FormatText(image);
    return format.empty() ? "The camera's pixel format cannot be displayed"
                          : "Pixel format " + format + " cannot be displayed";
}

} // namespace orv
