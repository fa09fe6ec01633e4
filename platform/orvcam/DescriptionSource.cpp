#include "orvcam/DescriptionSource.h"

#include "orvcam/Description.h"
#include "orvcam/OrvStatus.h"
#include "orvcam/ZipReader.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <filesystem>
#include <fstream>

namespace orv::cam {

namespace {

std::string WithoutBlanks(std::string text)
{
    text.erase(std::remove_if(text.begin(), text.end(), [](unsigned char c) { return std::isspace(c) != 0; }),
               text.end());
    return text;
}

bool ParseHex(std::string text, std::uint64_t *value)
{
    text = WithoutBlanks(text);
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X'))
        text.erase(0, 2);
    const auto result = std::from_chars(text.data(), text.data() + text.size(), *value, 16);
    return result.ec == std::errc() && result.ptr == text.data() + text.size();
}

/// Replaces "%20" and the like.
std::string Unescaped(const std::string &text)
{
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        unsigned value = 0;
        const char *digits = text.data() + i + 1;
        if (text[i] == '%' && i + 2 < text.size() && std::from_chars(digits, digits + 2, value, 16).ptr == digits + 2) {
            plain += static_cast<char>(value);
            i += 2;
        } else {
            plain += text[i];
        }
    }
    return plain;
}

bool ReadFromPort(const DescriptionUrl &url, PortIo &port, std::string *bytes, std::string *why)
{
    // In pieces: a camera that has gone is noticed after one of them, not after a megabyte of time-outs.
    constexpr std::size_t kPieceBytes = 8192;
    bytes->clear();
    while (bytes->size() < url.bytes) {
        const std::size_t at = bytes->size();
        const std::size_t count = std::min<std::size_t>(kPieceBytes, url.bytes - at);
        bytes->resize(at + count);
        if (port.Read(url.address + at, &(*bytes)[at], count, why) != ORV_CAM_OK)
            return false;
    }
    return true;
}

bool ReadFromFile(const std::string &path, std::string *bytes, std::string *why)
{
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) {
        *why = "there is no such file";
        return false;
    }
    if (std::filesystem::file_size(path, error) > kMaxDescriptionBytes || error) {
        *why = "the file is larger than 64 MiB";
        return false;
    }
    std::ifstream file(path, std::ios::binary);
    bytes->assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    if (file.bad() || bytes->empty()) {
        *why = "the file cannot be read";
        return false;
    }
    return true;
}

bool Fetch(const std::string &text, PortIo &port, std::string *xml, std::string *why)
{
    DescriptionUrl url;
    if (!ParseDescriptionUrl(text, &url)) {
        *why = "this kind of address is not understood";
        return false;
    }
    const bool read = url.scheme == DescriptionUrl::Scheme::Local ? ReadFromPort(url, port, xml, why)
                                                                  : ReadFromFile(url.path, xml, why);
    if (!read || !LooksLikeZip(*xml))
        return read;
    std::string unpacked;
    if (!UnzipDescription(*xml, kMaxDescriptionBytes, &unpacked, why))
        return false;
    *xml = std::move(unpacked);
    return true;
}

} // namespace

bool ParseDescriptionUrl(const std::string &text, DescriptionUrl *url)
{
    const std::string clean = text.substr(0, text.find('\0'));
    const std::size_t colon = clean.find(':');
    if (colon == std::string::npos)
        return false;
    std::string scheme = WithoutBlanks(clean.substr(0, colon));
    std::transform(scheme.begin(), scheme.end(), scheme.begin(), [](unsigned char c) { return std::tolower(c); });
    std::string rest = clean.substr(colon + 1, clean.find('?') - colon - 1);
    std::size_t slashes = 0;
    while (slashes < 3 && slashes < rest.size() && rest[slashes] == '/')
        ++slashes;
    rest.erase(0, slashes);
    if (scheme == "file" && !rest.empty()) {
        url->scheme = DescriptionUrl::Scheme::File;
        url->path = (slashes > 0 ? "/" : "") + Unescaped(rest);
        return true;
    }
    const std::size_t first = rest.find(';');
    const std::size_t second = first == std::string::npos ? first : rest.find(';', first + 1);
    if (scheme != "local" || second == std::string::npos)
        return false;
    url->scheme = DescriptionUrl::Scheme::Local;
    url->path = rest.substr(0, first);
    return ParseHex(rest.substr(first + 1, second - first - 1), &url->address) &&
           ParseHex(rest.substr(second + 1), &url->bytes) && url->bytes > 0 && url->bytes <= kMaxDescriptionBytes;
}

bool FetchDescription(const std::vector<std::string> &urls, PortIo &port, std::string *xml, std::string *error)
{
    if (urls.empty()) {
        *error = "the camera does not say where its description is";
        return false;
    }
    error->clear();
    for (const std::string &url : urls) {
        std::string why;
        if (Fetch(url, port, xml, &why))
            return true;
        *error += (error->empty() ? "" : "; ") + ("\"" + url.substr(0, url.find('\0')) + "\": ") + why;
    }
    return false;
}

} // namespace orv::cam
