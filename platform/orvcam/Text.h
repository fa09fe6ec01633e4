#pragma once

#include <cstddef>
#include <string>

namespace orv::cam {

/// Bytes of the character at `at`: 0 for what is no UTF-8 (RFC 3629, section 4) or no character of XML 1.0. ASCII is
/// not looked at.
std::size_t CharacterBytes(const std::string &text, std::size_t at);
/// Whether the bytes are UTF-8 whose characters above ASCII may all stand in XML. ASCII is not looked at.
bool IsUtf8(const std::string &bytes);
/// The same text as UTF-8: text that is not UTF-8 yet is taken for Latin-1.
std::string ToUtf8(const std::string &bytes);
/// Without blanks and line ends at both ends.
std::string Trimmed(const std::string &text);
/// With & < > and " written as XML entities.
std::string XmlEscaped(const std::string &text);

/// Shortest decimal text that reads back as the same number; a decimal point under every locale.
std::string FormatDouble(double value);
/// Whole text or nothing. Any locale.
bool ParseDouble(const std::string &text, double *value);
bool ParseInteger(const std::string &text, long long *value);

} // namespace orv::cam
