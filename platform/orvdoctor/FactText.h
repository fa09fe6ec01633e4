#pragma once

#include <cstdint>
#include <string>

/// Figures and names in sentences. UTF-8; decimal points under every locale.
namespace orv {

/// "2.4 s", "350 ms", "20 µs"
std::string SecondsText(double seconds);
/// Rounded so that what is not all does not become "100 %".
std::string PercentText(double share);
/// At most four significant digits.
std::string NumberText(double value);
/// "800 bytes", "12 kB", "3.4 MB"; in thousands.
std::string BytesText(std::uint64_t bytes);
/// "1 picture", "12 pictures"
std::string CountText(std::uint64_t count, const char *one, const char *many);

/// A text of the camera's without line breaks and other control characters, cut to a bearable length.
std::string Printable(const std::string &text);
/// The same as one word of a shell's command line, whatever it holds.
std::string ShellWord(const std::string &text);

} // namespace orv
