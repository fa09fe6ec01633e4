#include "cli/Features.h"
#include "cli/Terminal.h"
#include "orvcam/OrvStatus.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <cstdio>

namespace orvcli {

namespace {

using OrvCam::FeatureKind;

bool ParseMac(const std::string &text, std::int64_t &number)
{
    unsigned bytes[6];
    int end = 0;
    const int count = std::sscanf(text.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x%n", &bytes[0], &bytes[1], &bytes[2], &bytes[3],
                                  &bytes[4], &bytes[5], &end);
    if (count != 6 || static_cast<std::size_t>(end) != text.size())
        return false;
    number = 0;
    for (const unsigned byte : bytes)
        number = number << 8 | byte;
    return true;
}

/// Decimal, 0x..., 192.168.10.20 or 02:00:00:ab:cd:ef.
bool ParseInteger(const std::string &text, std::int64_t &number)
{
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) == 1) {
        number = ntohl(address.s_addr);
        return true;
    }
    const bool isHexadecimal = text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0;
    const char *const end = text.data() + text.size();
    std::from_chars_result result{};
    if (isHexadecimal) {
        std::uint64_t bits = 0;
        result = std::from_chars(text.data() + 2, end, bits, 16);
        number = static_cast<std::int64_t>(bits);
    } else {
        result = std::from_chars(text.data(), end, number);
    }
    return (result.ec == std::errc() && result.ptr == end) || ParseMac(text, number);
}

bool ParseFloat(const std::string &text, double &number)
{
    const char *const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end;
}

bool ParseBoolean(const std::string &text, bool &value)
{
    const char *const kYes[] = {"true", "1", "yes", "on"};
    const char *const kNo[] = {"false", "0", "no", "off"};
    const auto isAmong = [&](const auto &words) {
        return std::any_of(std::begin(words), std::end(words), [&](const char *word) { return text == word; });
    };
    value = isAmong(kYes);
    return value || isAmong(kNo);
}

/// \return false when the text is no value of the feature's kind.
bool Write(OrvCam::FeatureArray &features, const OrvCam::FeatureInfo &info, const std::string &text, int &status)
{
    const char *name = info.name.c_str();
    std::int64_t integer = 0;
    double number = 0;
    bool boolean = false;
    switch (info.kind) {
    case FeatureKind::Integer:
        if (!ParseInteger(text, integer))
            return false;
        status = features.SetIntegerValue(name, integer);
        return true;
    case FeatureKind::Float:
        if (!ParseFloat(text, number))
            return false;
        if (OrvCam::FloatNode *node = features.GetFloat(name, &status))
            status = node->SetValue(number);
        return true;
    case FeatureKind::Boolean:
        if (!ParseBoolean(text, boolean))
            return false;
        status = features.SetIntegerValue(name, boolean ? 1 : 0);
        return true;
    case FeatureKind::Enumeration:
        if (OrvCam::EnumerationNode *node = features.GetEnum(name, &status))
            status = node->SetValue(text);
        if (status != ORV_CAM_OK && status != ORV_CAM_ERR_DEVICE_LOST && ParseInteger(text, integer))
            status = features.SetIntegerValue(name, integer);
        return true;
    case FeatureKind::String:
        if (OrvCam::StringNode *node = features.GetString(name, &status))
            status = node->SetValue(text);
        return true;
    default:
        status = ORV_CAM_ERR_WRONG_TYPE;
        return true;
    }
}

/// " (16 to 1280 in steps of 16)", " (Off, On)".
std::string AllowedText(OrvCam::FeatureArray &features, const OrvCam::FeatureInfo &info)
{
    const FeatureState state = ReadState(features, info);
    std::string text;
    for (const std::string &entry : state.entries)
        text += (text.empty() ? "" : ", ") + entry;
    if (!state.minimum.empty() || !state.maximum.empty())
        text = (state.minimum.empty() ? "anything" : state.minimum) + " to " +
               (state.maximum.empty() ? "anything" : state.maximum);
    if (!state.increment.empty())
        text += " in steps of " + state.increment;
    return text.empty() ? text : " (allowed: " + Printable(text) + ")";
}

} // namespace

Outcome WriteValue(OrvCam::FeatureArray &features, const OrvCam::FeatureInfo &info, const std::string &text)
{
    int status = ORV_CAM_OK;
    if (!Write(features, info, text, status))
        return Fail(info.name + ": \"" + text + "\" is no " + KindText(info.kind) + AllowedText(features, info));
    if (status == ORV_CAM_OK)
        return {};
    Outcome outcome = FailedWith(status, info.name + ": \"" + text + "\"");
    if (outcome.code != ExitCode::Lost && status != ORV_CAM_ERR_NOT_WRITABLE)
        outcome.problem += AllowedText(features, info);
    return outcome;
}

} // namespace orvcli
