#include "orvimage/PixelFormats.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>

namespace {

/// One PFNC code (release of October 2020, with the codes that only GVSP has, and some makers' own).
struct WireFormat {
    std::uint32_t code;
    const char *name;  ///< null for makers' own codes
    const char *model; ///< row of the pixel-format table that has the same memory layout, null for none
    bool isOwnCode;    ///< the code to write for that row
};

/// A format with a row of its own, which the table may call by another name.
constexpr WireFormat Own(std::uint32_t code, const char *name, const char *model = nullptr)
{
    return {code, name, model == nullptr ? name : model, true};
}

/// A format that is read as the row with the same bytes. Colour spaces other than the row's are shown with the row's
/// weights: slightly off, but seen.
constexpr WireFormat Alias(std::uint32_t code, const char *name, const char *model)
{
    return {code, name, model, false};
}

constexpr WireFormat NameOnly(std::uint32_t code, const char *name)
{
    return {code, name, nullptr, false};
}

constexpr WireFormat kWireFormats[] = {
    NameOnly(0x01010037, "Mono1p"),
    NameOnly(0x010100C5, "Confidence1p"),
    NameOnly(0x01020038, "Mono2p"),
    NameOnly(0x01040039, "Mono4p"),
    NameOnly(0x0104010D, "BayerGR4p"),
    NameOnly(0x0104010E, "BayerRG4p"),
    NameOnly(0x0104010F, "BayerGB4p"),
    NameOnly(0x01040110, "BayerBG4p"),
    Own(0x01080001, "Mono8"),
    NameOnly(0x01080002, "Mono8s"),
    Own(0x01080008, "BayerGR8"),
    Own(0x01080009, "BayerRG8"),
    Own(0x0108000A, "BayerGB8"),
    Own(0x0108000B, "BayerBG8"),
    NameOnly(0x01080067, "SCF1WBWG8"),
    NameOnly(0x0108006E, "SCF1WGWB8"),
    NameOnly(0x01080075, "SCF1WGWR8"),
    NameOnly(0x0108007C, "SCF1WRWG8"),
    Alias(0x010800AF, "Coord3D_A8", "Mono8"),
    Alias(0x010800B0, "Coord3D_B8", "Mono8"),
    Alias(0x010800B1, "Coord3D_C8", "Mono8"),
    NameOnly(0x010800C4, "Confidence1"),
    Alias(0x010800C6, "Confidence8", "Mono8"),
    Alias(0x010800C9, "R8", "Mono8"),
    Alias(0x010800CD, "G8", "Mono8"),
    Alias(0x010800D1, "B8", "Mono8"),
    Alias(0x01080116, "Data8", "Mono8"),
    NameOnly(0x01080117, "Data8s"),
    Own(0x010A0046, "Mono10p"),
    Own(0x010A0052, "BayerBG10p"),
    Own(0x010A0054, "BayerGB10p"),
    Own(0x010A0056, "BayerGR10p"),
    Own(0x010A0058, "BayerRG10p"),
    NameOnly(0x010A0069, "SCF1WBWG10p"),
    NameOnly(0x010A0070, "SCF1WGWB10p"),
    NameOnly(0x010A0077, "SCF1WGWR10p"),
    NameOnly(0x010A007E, "SCF1WRWG10p"),
    NameOnly(0x010A00CA, "R10_Deprecated"),
    NameOnly(0x010A00CE, "G10_Deprecated"),
    NameOnly(0x010A00D2, "B10_Deprecated"),
    Alias(0x010A00D5, "Coord3D_A10p", "Mono10p"),
    Alias(0x010A00D6, "Coord3D_B10p", "Mono10p"),
    Alias(0x010A00D7, "Coord3D_C10p", "Mono10p"),
    Own(0x010C0004, "Mono10Packed"),
    Own(0x010C0006, "Mono12Packed"),
    Own(0x010C0026, "BayerGR10Packed"),
    Own(0x010C0027, "BayerRG10Packed"),
    Own(0x010C0028, "BayerGB10Packed"),
    Own(0x010C0029, "BayerBG10Packed"),
    Own(0x010C002A, "BayerGR12Packed"),
    Own(0x010C002B, "BayerRG12Packed"),
    Own(0x010C002C, "BayerGB12Packed"),
    Own(0x010C002D, "BayerBG12Packed"),
    Own(0x010C0047, "Mono12p"),
    Own(0x010C0053, "BayerBG12p"),
    Own(0x010C0055, "BayerGB12p"),
    Own(0x010C0057, "BayerGR12p"),
    Own(0x010C0059, "BayerRG12p"),
    NameOnly(0x010C006B, "SCF1WBWG12p"),
    NameOnly(0x010C0072, "SCF1WGWB12p"),
    NameOnly(0x010C0079, "SCF1WGWR12p"),
    NameOnly(0x010C0080, "SCF1WRWG12p"),
    NameOnly(0x010C00CB, "R12_Deprecated"),
    NameOnly(0x010C00CF, "G12_Deprecated"),
    NameOnly(0x010C00D3, "B12_Deprecated"),
    Alias(0x010C00D8, "Coord3D_A12p", "Mono12p"),
    Alias(0x010C00D9, "Coord3D_B12p", "Mono12p"),
    Alias(0x010C00DA, "Coord3D_C12p", "Mono12p"),
    NameOnly(0x010E0104, "Mono14p"),
    NameOnly(0x010E0105, "BayerGR14p"),
    NameOnly(0x010E0106, "BayerRG14p"),
    NameOnly(0x010E0107, "BayerGB14p"),
    NameOnly(0x010E0108, "BayerBG14p"),
    Own(0x01100003, "Mono10"),
    Own(0x01100005, "Mono12"),
    Own(0x01100007, "Mono16"),
    Own(0x0110000C, "BayerGR10"),
    Own(0x0110000D, "BayerRG10"),
    Own(0x0110000E, "BayerGB10"),
    Own(0x0110000F, "BayerBG10"),
    Own(0x01100010, "BayerGR12"),
    Own(0x01100011, "BayerRG12"),
    Own(0x01100012, "BayerGB12"),
    Own(0x01100013, "BayerBG12"),
    Own(0x01100025, "Mono14"),
    Own(0x0110002E, "BayerGR16"),
    Own(0x0110002F, "BayerRG16"),
    Own(0x01100030, "BayerGB16"),
    Own(0x01100031, "BayerBG16"),
    NameOnly(0x01100068, "SCF1WBWG10"),
    NameOnly(0x0110006A, "SCF1WBWG12"),
    NameOnly(0x0110006C, "SCF1WBWG14"),
    NameOnly(0x0110006D, "SCF1WBWG16"),
    NameOnly(0x0110006F, "SCF1WGWB10"),
    NameOnly(0x01100071, "SCF1WGWB12"),
    NameOnly(0x01100073, "SCF1WGWB14"),
    NameOnly(0x01100074, "SCF1WGWB16"),
    NameOnly(0x01100076, "SCF1WGWR10"),
    NameOnly(0x01100078, "SCF1WGWR12"),
    NameOnly(0x0110007A, "SCF1WGWR14"),
    NameOnly(0x0110007B, "SCF1WGWR16"),
    NameOnly(0x0110007D, "SCF1WRWG10"),
    NameOnly(0x0110007F, "SCF1WRWG12"),
    NameOnly(0x01100081, "SCF1WRWG14"),
    NameOnly(0x01100082, "SCF1WRWG16"),
    Alias(0x011000B6, "Coord3D_A16", "Mono16"),
    Alias(0x011000B7, "Coord3D_B16", "Mono16"),
    Alias(0x011000B8, "Coord3D_C16", "Mono16"),
    Alias(0x011000C7, "Confidence16", "Mono16"),
    Alias(0x011000CC, "R16", "Mono16"),
    Alias(0x011000D0, "G16", "Mono16"),
    Alias(0x011000D4, "B16", "Mono16"),
    Own(0x01100109, "BayerGR14"),
    Own(0x0110010A, "BayerRG14"),
    Own(0x0110010B, "BayerGB14"),
    Own(0x0110010C, "BayerBG14"),
    Alias(0x01100118, "Data16", "Mono16"),
    NameOnly(0x01100119, "Data16s"),
    Alias(0x01100120, "R10", "Mono10"),
    Alias(0x01100121, "R12", "Mono12"),
    Alias(0x01100122, "G10", "Mono10"),
    Alias(0x01100123, "G12", "Mono12"),
    Alias(0x01100124, "B10", "Mono10"),
    Alias(0x01100125, "B12", "Mono12"),
    NameOnly(0x012000BD, "Coord3D_A32f"),
    NameOnly(0x012000BE, "Coord3D_B32f"),
    NameOnly(0x012000BF, "Coord3D_C32f"),
    NameOnly(0x012000C8, "Confidence32f"),
    NameOnly(0x01200111, "Mono32"),
    NameOnly(0x0120011A, "Data32"),
    NameOnly(0x0120011B, "Data32s"),
    NameOnly(0x0120011C, "Data32f"),
    NameOnly(0x0140011D, "Data64"),
    NameOnly(0x0140011E, "Data64s"),
    NameOnly(0x0140011F, "Data64f"),
    NameOnly(0x020C001E, "YUV411_8_UYYVYY"),
    NameOnly(0x020C003C, "YCbCr411_8_CbYYCrYY"),
    NameOnly(0x020C003F, "YCbCr601_411_8_CbYYCrYY"),
    NameOnly(0x020C0042, "YCbCr709_411_8_CbYYCrYY"),
    NameOnly(0x020C005A, "YCbCr411_8"),
    NameOnly(0x020C00F9, "YCbCr2020_411_8_CbYYCrYY"),
    NameOnly(0x020C0112, "YCbCr420_8_YY_CbCr_Semiplanar"),
    NameOnly(0x020C0114, "YCbCr420_8_YY_CrCb_Semiplanar"),
    Own(0x0210001F, "YUV422_8_UYVY"),
    Own(0x02100032, "YUV422_8"),
    NameOnly(0x02100035, "RGB565p"),
    NameOnly(0x02100036, "BGR565p"),
    Own(0x0210003B, "YCbCr422_8"),
    Alias(0x0210003E, "YCbCr601_422_8", "YCbCr422_8"),
    Alias(0x02100041, "YCbCr709_422_8", "YCbCr422_8"),
    Alias(0x02100043, "YCbCr422_8_CbYCrY", "YUV422_8_UYVY"),
    Alias(0x02100044, "YCbCr601_422_8_CbYCrY", "YUV422_8_UYVY"),
    Alias(0x02100045, "YCbCr709_422_8_CbYCrY", "YUV422_8_UYVY"),
    NameOnly(0x021000A5, "BiColorRGBG8"),
    NameOnly(0x021000A6, "BiColorBGRG8"),
    NameOnly(0x021000B4, "Coord3D_AC8"),
    NameOnly(0x021000B5, "Coord3D_AC8_Planar"),
    Alias(0x021000FA, "YCbCr2020_422_8", "YCbCr422_8"),
    Alias(0x021000FB, "YCbCr2020_422_8_CbYCrY", "YUV422_8_UYVY"),
    NameOnly(0x02100113, "YCbCr422_8_YY_CbCr_Semiplanar"),
    NameOnly(0x02100115, "YCbCr422_8_YY_CrCb_Semiplanar"),
    Own(0x02140087, "YCbCr422_10p", "YUV422_10_PACKED"),
    Alias(0x0214008E, "YCbCr601_422_10p", "YUV422_10_PACKED"),
    Alias(0x02140096, "YCbCr709_422_10p", "YUV422_10_PACKED"),
    NameOnly(0x0214009A, "YCbCr422_10p_CbYCrY"),
    NameOnly(0x0214009E, "YCbCr601_422_10p_CbYCrY"),
    NameOnly(0x021400A2, "YCbCr709_422_10p_CbYCrY"),
    NameOnly(0x021400A8, "BiColorRGBG10p"),
    NameOnly(0x021400AA, "BiColorBGRG10p"),
    NameOnly(0x021400F0, "Coord3D_AC10p"),
    NameOnly(0x021400F1, "Coord3D_AC10p_Planar"),
    Alias(0x021400FE, "YCbCr2020_422_10p", "YUV422_10_PACKED"),
    NameOnly(0x021400FF, "YCbCr2020_422_10p_CbYCrY"),
    Own(0x02180014, "RGB8"),
    Own(0x02180015, "BGR8"),
    Own(0x02180020, "YUV8_UYV", "YUV444_8"),
    NameOnly(0x02180021, "RGB8_Planar"),
    Alias(0x0218003A, "YCbCr8_CbYCr", "YUV444_8"),
    Alias(0x0218003D, "YCbCr601_8_CbYCr", "YUV444_8"),
    Alias(0x02180040, "YCbCr709_8_CbYCr", "YUV444_8"),
    NameOnly(0x0218005B, "YCbCr8"),
    NameOnly(0x02180088, "YCbCr422_12p"),
    NameOnly(0x02180090, "YCbCr601_422_12p"),
    NameOnly(0x02180098, "YCbCr709_422_12p"),
    NameOnly(0x0218009C, "YCbCr422_12p_CbYCrY"),
    NameOnly(0x021800A0, "YCbCr601_422_12p_CbYCrY"),
    NameOnly(0x021800A4, "YCbCr709_422_12p_CbYCrY"),
    NameOnly(0x021800AC, "BiColorRGBG12p"),
    NameOnly(0x021800AE, "BiColorBGRG12p"),
    NameOnly(0x021800B2, "Coord3D_ABC8"),
    NameOnly(0x021800B3, "Coord3D_ABC8_Planar"),
    NameOnly(0x021800F2, "Coord3D_AC12p"),
    NameOnly(0x021800F3, "Coord3D_AC12p_Planar"),
    Alias(0x021800F4, "YCbCr2020_8_CbYCr", "YUV444_8"),
    NameOnly(0x02180102, "YCbCr2020_422_12p"),
    NameOnly(0x02180103, "YCbCr2020_422_12p_CbYCrY"),
    NameOnly(0x021E0048, "BGR10p"),
    Own(0x021E005C, "RGB10p", "RGB10Dense"),
    NameOnly(0x021E0084, "YCbCr10p_CbYCr"),
    NameOnly(0x021E008A, "YCbCr601_10p_CbYCr"),
    NameOnly(0x021E0092, "YCbCr709_10p_CbYCr"),
    NameOnly(0x021E00DB, "Coord3D_ABC10p"),
    NameOnly(0x021E00DC, "Coord3D_ABC10p_Planar"),
    NameOnly(0x021E00F6, "YCbCr2020_10p_CbYCr"),
    Own(0x02200016, "RGBa8"),
    Own(0x02200017, "BGRa8"),
    NameOnly(0x0220001C, "RGB10V1Packed"),
    NameOnly(0x0220001D, "RGB10p32"),
    Own(0x02200065, "YCbCr422_10", "YUV422_10"),
    NameOnly(0x02200066, "YCbCr422_12"),
    Alias(0x0220008D, "YCbCr601_422_10", "YUV422_10"),
    NameOnly(0x0220008F, "YCbCr601_422_12"),
    Alias(0x02200095, "YCbCr709_422_10", "YUV422_10"),
    NameOnly(0x02200097, "YCbCr709_422_12"),
    NameOnly(0x02200099, "YCbCr422_10_CbYCrY"),
    NameOnly(0x0220009B, "YCbCr422_12_CbYCrY"),
    NameOnly(0x0220009D, "YCbCr601_422_10_CbYCrY"),
    NameOnly(0x0220009F, "YCbCr601_422_12_CbYCrY"),
    NameOnly(0x022000A1, "YCbCr709_422_10_CbYCrY"),
    NameOnly(0x022000A3, "YCbCr709_422_12_CbYCrY"),
    NameOnly(0x022000A7, "BiColorRGBG10"),
    NameOnly(0x022000A9, "BiColorBGRG10"),
    NameOnly(0x022000AB, "BiColorRGBG12"),
    NameOnly(0x022000AD, "BiColorBGRG12"),
    NameOnly(0x022000BB, "Coord3D_AC16"),
    NameOnly(0x022000BC, "Coord3D_AC16_Planar"),
    Alias(0x022000FC, "YCbCr2020_422_10", "YUV422_10"),
    NameOnly(0x022000FD, "YCbCr2020_422_10_CbYCrY"),
    NameOnly(0x02200100, "YCbCr2020_422_12"),
    NameOnly(0x02200101, "YCbCr2020_422_12_CbYCrY"),
    NameOnly(0x02240034, "RGB12V1Packed"),
    NameOnly(0x02240049, "BGR12p"),
    Own(0x0224005D, "RGB12p", "RGB12Dense"),
    NameOnly(0x02240086, "YCbCr12p_CbYCr"),
    NameOnly(0x0224008C, "YCbCr601_12p_CbYCr"),
    NameOnly(0x02240094, "YCbCr709_12p_CbYCr"),
    NameOnly(0x022400DE, "Coord3D_ABC12p"),
    NameOnly(0x022400DF, "Coord3D_ABC12p_Planar"),
    NameOnly(0x022400F8, "YCbCr2020_12p_CbYCr"),
    NameOnly(0x0228004D, "BGRa10p"),
    NameOnly(0x02280060, "RGBa10p"),
    Own(0x02300018, "RGB10"),
    Own(0x02300019, "BGR10"),
    Own(0x0230001A, "RGB12"),
    Own(0x0230001B, "BGR12"),
    NameOnly(0x02300022, "RGB10_Planar"),
    NameOnly(0x02300023, "RGB12_Planar"),
    NameOnly(0x02300024, "RGB16_Planar"),
    Own(0x02300033, "RGB16"),
    Own(0x0230004A, "BGR14"),
    Own(0x0230004B, "BGR16"),
    NameOnly(0x0230004F, "BGRa12p"),
    Own(0x0230005E, "RGB14"),
    NameOnly(0x02300062, "RGBa12p"),
    NameOnly(0x02300083, "YCbCr10_CbYCr"),
    NameOnly(0x02300085, "YCbCr12_CbYCr"),
    NameOnly(0x02300089, "YCbCr601_10_CbYCr"),
    NameOnly(0x0230008B, "YCbCr601_12_CbYCr"),
    NameOnly(0x02300091, "YCbCr709_10_CbYCr"),
    NameOnly(0x02300093, "YCbCr709_12_CbYCr"),
    NameOnly(0x023000B9, "Coord3D_ABC16"),
    NameOnly(0x023000BA, "Coord3D_ABC16_Planar"),
    NameOnly(0x023000F5, "YCbCr2020_10_CbYCr"),
    NameOnly(0x023000F7, "YCbCr2020_12_CbYCr"),
    NameOnly(0x0240004C, "BGRa10"),
    NameOnly(0x0240004E, "BGRa12"),
    NameOnly(0x02400050, "BGRa14"),
    NameOnly(0x02400051, "BGRa16"),
    NameOnly(0x0240005F, "RGBa10"),
    NameOnly(0x02400061, "RGBa12"),
    NameOnly(0x02400063, "RGBa14"),
    NameOnly(0x02400064, "RGBa16"),
    NameOnly(0x024000C2, "Coord3D_AC32f"),
    NameOnly(0x024000C3, "Coord3D_AC32f_Planar"),
    NameOnly(0x026000C0, "Coord3D_ABC32f"),
    NameOnly(0x026000C1, "Coord3D_ABC32f_Planar"),
    Alias(0x810C0001, nullptr, "BayerGR12Packed"),
    Alias(0x810C0002, nullptr, "BayerRG12Packed"),
    Alias(0x810C0003, nullptr, "BayerGB12Packed"),
    Alias(0x810C0004, nullptr, "BayerBG12Packed"),
    Alias(0x81100006, nullptr, "BayerGR16"),
    Alias(0x81100007, nullptr, "BayerRG16"),
    Alias(0x81100008, nullptr, "BayerGB16"),
    Alias(0x81100009, nullptr, "BayerBG16"),
    Alias(0x82100005, nullptr, "YUV422_8"),
};

constexpr bool CodesAscend()
{
    for (std::size_t i = 1; i < std::size(kWireFormats); ++i) {
        if (kWireFormats[i - 1].code >= kWireFormats[i].code)
            return false;
    }
    return true;
}

static_assert(CodesAscend(), "searched by bisection");

const WireFormat *FindWireFormat(std::uint32_t code)
{
    const auto *const found =
        std::lower_bound(std::begin(kWireFormats), std::end(kWireFormats), code,
                         [](const WireFormat &format, std::uint32_t wanted) { return format.code < wanted; });
    return found != std::end(kWireFormats) && found->code == code ? found : nullptr;
}

/// Wire code of each row, by row number; 0 for rows that the wire does not have.
std::array<std::uint32_t, ORV_COLOR_MODEL_COUNT + 1> OwnCodesByRow()
{
    std::array<std::uint32_t, ORV_COLOR_MODEL_COUNT + 1> codes{};
    for (const WireFormat &format : kWireFormats) {
        if (format.isOwnCode)
            codes[orv::FindColorModel(format.model)->pixelType & 0xFF] = format.code;
    }
    return codes;
}

} // namespace

namespace orv {

std::uint32_t PixelTypeFromWire(std::uint32_t pfncCode)
{
    const WireFormat *const format = FindWireFormat(pfncCode);
    if (format == nullptr || format->model == nullptr)
        return kPixelTypeNone;
    return FindColorModel(format->model)->pixelType;
}

std::uint32_t WireFromPixelType(std::uint32_t pixelType)
{
    static const auto s_ownCodes = OwnCodesByRow();
    const OrvColorModelDescription *const model = FindColorModel(pixelType);
    return model == nullptr ? 0 : s_ownCodes[model->pixelType & 0xFF];
}

std::string WireFormatName(std::uint32_t pfncCode)
{
    const WireFormat *const format = FindWireFormat(pfncCode);
    if (format != nullptr && format->name != nullptr)
        return format->name;
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", pfncCode);
    return text;
}

} // namespace orv
