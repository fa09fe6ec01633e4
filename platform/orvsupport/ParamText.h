#pragma once

#include <cstdint>
#include <string>

/// Parameter values as text and back, the same under every locale: a decimal point is a point.
///
/// All functions return an OrvParamStatus and write their result only on success (ORV_PARAM_OK or ORV_PARAM_CLAMPED).
/// Any thread.
namespace orv {

// Writing. A null format gives the shortest text that reads back to the same value. Otherwise the format holds exactly
// one printf conversion, with flags, width and precision of up to three digits; a length modifier is accepted and
// ignored, as the value always goes in at full width. ORV_PARAM_INVALID_ARGUMENT for a conversion that does not fit.

/// Conversions d i u o x X of the 64-bit value, and a A e E f F g G of the value as double.
std::uint32_t FormatInt(const char *format, std::int64_t value, std::string *text);
/// Conversions a A e E f F g G.
std::uint32_t FormatFloat(const char *format, double value, std::string *text);
/// Conversion s.
std::uint32_t FormatString(const char *format, const std::string &value, std::string *text);

/// Two lower-case digits per byte.
std::string HexText(const std::string &bytes);

// Reading. The whole text must be one value, without blanks around it; ORV_PARAM_BAD_VALUE otherwise.

/// Decimal. A number beyond 64 bits gives the nearest end of the range and ORV_PARAM_CLAMPED.
std::uint32_t ParseInt(const char *text, std::int64_t *value);
/// Everything strtod takes but not-a-number. A number beyond a double gives infinity.
std::uint32_t ParseFloat(const char *text, double *value);
/// "1", "0", and "true", "false" in any letter case.
std::uint32_t ParseBool(const char *text, bool *value);
/// Hexadecimal digits of either case, two per byte.
std::uint32_t ParseHex(const char *text, std::string *bytes);

} // namespace orv
