#include "producer/gige/XmlUrl.h"

#include <cctype>
#include <cstdlib>

#include <zlib.h>

namespace nuvark::gige {

namespace {

constexpr std::uint64_t kMinSize = 64;
constexpr std::uint64_t kMaxSize = 64 * 1024 * 1024;
constexpr std::size_t kHeadSize = 4096;

std::string Trim(const std::string &text)
{
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

std::string Lower(std::string text)
{
    for (char &c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

/// A hexadecimal number with or without 0x, nothing else around it.
std::optional<std::uint64_t> ParseHex(const std::string &text)
{
    const std::string digits = Trim(text);
    char *end = nullptr;
    const std::uint64_t value = std::strtoull(digits.c_str(), &end, 16);
    if (digits.empty() || !std::isxdigit(static_cast<unsigned char>(digits[0])) || *end != '\0')
        return std::nullopt;
    return value;
}

std::string HexDigits(std::uint64_t value)
{
    std::string digits;
    do {
        digits.insert(digits.begin(), "0123456789abcdef"[value % 16]);
        value /= 16;
    } while (value != 0);
    return digits;
}

/// Cuts "?SchemaVersion=1.1.0" off and takes its numbers.
void CutQuery(std::string &text, DescriptionUrl &url)
{
    const auto mark = text.find('?');
    if (mark == std::string::npos)
        return;
    const auto equals = text.find('=', mark);
    if (equals != std::string::npos && Lower(text.substr(mark, equals - mark)) == "?schemaversion") {
        char *end = nullptr;
        url.schemaMajor = static_cast<int>(std::strtol(text.c_str() + equals + 1, &end, 10));
        url.schemaMinor = *end == '.' ? static_cast<int>(std::strtol(end + 1, nullptr, 10)) : 0;
    }
    text.resize(mark);
}

std::optional<DescriptionUrl> ParseLocal(const std::string &rest, DescriptionUrl url)
{
    const auto first = rest.find(';');
    const auto second = first == std::string::npos ? first : rest.find(';', first + 1);
    if (second == std::string::npos)
        return std::nullopt;
    const auto address = ParseHex(rest.substr(first + 1, second - first - 1));
    const auto size = ParseHex(rest.substr(second + 1));
    url.fileName = Trim(rest.substr(0, first));
    if (!address || !size || url.fileName.empty() || *size < kMinSize || *size > kMaxSize)
        return std::nullopt;
    url.scheme = URL_SCHEME_LOCAL;
    url.address = *address;
    url.size = *size;
    url.url = "local:" + url.fileName + ";" + HexDigits(url.address) + ";" + HexDigits(url.size);
    return url;
}

/// The start of the first file in a zip archive, unpacked; empty when it is none.
std::string UnpackHead(orv::ByteSpan zip)
{
    constexpr std::size_t kLocalHeader = 30;
    if (zip.size < kLocalHeader || std::memcmp(zip.data, "PK\3\4", 4) != 0)
        return {};
    const auto u16 = [&](std::size_t at) { return std::size_t(zip.data[at] | zip.data[at + 1] << 8); };
    const std::size_t start = kLocalHeader + u16(26) + u16(28);
    if (start >= zip.size)
        return {};
    if (u16(8) == 0) // stored
        return std::string(zip.data + start, zip.data + zip.size);
    std::string head(kHeadSize, '\0');
    z_stream stream{};
    if (inflateInit2(&stream, -MAX_WBITS) != Z_OK)
        return {};
    stream.next_in = const_cast<Bytef *>(zip.data + start);
    stream.avail_in = static_cast<uInt>(zip.size - start);
    stream.next_out = reinterpret_cast<Bytef *>(head.data());
    stream.avail_out = static_cast<uInt>(head.size());
    // Any outcome is fine: what came out before the input ended is what we look at.
    (void)inflate(&stream, Z_SYNC_FLUSH);
    head.resize(head.size() - stream.avail_out);
    inflateEnd(&stream);
    return head;
}

std::optional<int> Attribute(const std::string &xml, const std::string &name)
{
    const auto at = xml.find(name + "=");
    if (at == std::string::npos || at + name.size() + 2 > xml.size())
        return std::nullopt;
    return static_cast<int>(std::strtol(xml.c_str() + at + name.size() + 2, nullptr, 10));
}

} // namespace

std::optional<DescriptionUrl> ParseDescriptionUrl(const std::string &text)
{
    std::string cleaned = Trim(text.substr(0, text.find('\0')));
    DescriptionUrl url;
    CutQuery(cleaned, url);
    const auto colon = cleaned.find(':');
    if (colon == std::string::npos)
        return std::nullopt;
    const std::string scheme = Lower(cleaned.substr(0, colon));
    std::string rest = cleaned.substr(colon + 1);
    if (scheme == "local") {
        for (int i = 0; i < 3 && !rest.empty() && rest[0] == '/'; ++i)
            rest.erase(0, 1);
        return ParseLocal(rest, url);
    }
    if (scheme != "file" && scheme != "http")
        return std::nullopt;
    url.scheme = scheme == "file" ? URL_SCHEME_FILE : URL_SCHEME_HTTP;
    url.url = scheme + ":" + rest;
    url.fileName = rest.substr(rest.find_last_of("/\\") + 1);
    return url;
}

std::optional<SchemaVersion> FindSchemaVersion(orv::ByteSpan bytes)
{
    std::string head = UnpackHead(bytes);
    if (head.empty())
        head.assign(bytes.data, bytes.data + std::min(bytes.size, kHeadSize));
    const auto major = Attribute(head, "SchemaMajorVersion");
    const auto minor = Attribute(head, "SchemaMinorVersion");
    if (!major || !minor)
        return std::nullopt;
    return SchemaVersion{*major, *minor};
}

} // namespace nuvark::gige
