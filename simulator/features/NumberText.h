#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// Numbers as text, the same under every locale.
namespace orvsim {

std::string TextOf(std::int64_t value);
/// The shortest text that reads back as the same number; a point where there is a fraction.
std::string TextOf(double value);

/// Decimal, or hexadecimal behind "0x". Nothing when that is not all of the text.
std::optional<std::int64_t> IntegerFrom(const std::string &text);
/// A finite number. Nothing when that is not all of the text.
std::optional<double> FloatFrom(const std::string &text);

} // namespace orvsim
