#include "acquisition/FalseColour.h"

#include <QByteArray>

#include <array>

namespace {

using Rgb = std::array<double, 3>;

Rgb ColourOf(long level, long first, long last, long levels)
{
    if (level <= first)
        return {0.0, 0.0, 1.0};
    if (level > last)
        return {1.0, 0.0, 0.0};
    const double grey = static_cast<double>(level) / static_cast<double>(levels - 1);
    return {grey, grey, grey};
}

} // namespace

std::string FalseColourMap(long first, long last, long levels)
{
    const int decimals = levels > 256 ? 6 : 4;
    std::string text;
    text.reserve(static_cast<std::size_t>(levels) * 3 * static_cast<std::size_t>(decimals + 3));
    for (long level = 0; level < levels; ++level) {
        char separator = ';';
        for (const double value : ColourOf(level, first, last, levels)) {
            if (!text.empty())
                text += separator;
            text += QByteArray::number(value, 'f', decimals).constData();
            separator = ',';
        }
    }
    return text;
}
