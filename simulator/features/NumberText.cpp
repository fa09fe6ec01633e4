#include "simulator/features/NumberText.h"

#include <charconv>
#include <cmath>

namespace orvsim {

std::string TextOf(std::int64_t value)
{
    return std::to_string(value);
}

std::string TextOf(double value)
{
    const double size = std::fabs(value);
    const bool isPlain = size == 0 || (size >= 1e-6 && size < 1e15);
    char text[64];
    const std::to_chars_result result = isPlain
                                            ? std::to_chars(text, text + sizeof text, value, std::chars_format::fixed)
                                            : std::to_chars(text, text + sizeof text, value);
    return std::string(text, result.ptr);
}

std::optional<std::int64_t> IntegerFrom(const std::string &text)
{
    const char *end = text.data() + text.size();
    if (text.compare(0, 2, "0x") == 0 || text.compare(0, 2, "0X") == 0) {
        std::uint64_t bits = 0;
        const std::from_chars_result result = std::from_chars(text.data() + 2, end, bits, 16);
        if (result.ec != std::errc() || result.ptr != end)
            return std::nullopt;
        return static_cast<std::int64_t>(bits);
    }
    std::int64_t value = 0;
    const std::from_chars_result result = std::from_chars(text.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end)
        return std::nullopt;
    return value;
}

std::optional<double> FloatFrom(const std::string &text)
{
    const char *end = text.data() + text.size();
    double value = 0;
    const std::from_chars_result result = std::from_chars(text.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end || !std::isfinite(value))
        return std::nullopt;
    return value;
}

} // namespace orvsim
