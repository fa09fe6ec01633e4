#include "cli/Features.h"

#include "orvcam/OrvStatus.h"

#include <cstdio>
#include <limits>

namespace orvcli {

namespace {

using OrvCam::FeatureArray;
using OrvCam::FeatureInfo;
using OrvCam::FeatureKind;
using OrvCam::Representation;

std::string Formatted(std::int64_t number, Representation representation)
{
    const auto byte = [number](int index) { return static_cast<unsigned>(number >> (8 * index) & 0xff); };
    char text[32];
    switch (representation) {
    case Representation::Hexadecimal:
        std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(number));
        return text;
    case Representation::IpAddress:
        std::snprintf(text, sizeof text, "%u.%u.%u.%u", byte(3), byte(2), byte(1), byte(0));
        return text;
    case Representation::MacAddress:
        std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", byte(5), byte(4), byte(3), byte(2), byte(1),
                      byte(0));
        return text;
    default:
        return std::to_string(number);
    }
}

/// Limits as wide as their type say nothing.
void TakeLimits(OrvCam::IntegerNode &node, FeatureState &state)
{
    int status = ORV_CAM_OK;
    const std::int64_t minimum = node.GetMin(&status);
    const std::int64_t maximum = status == ORV_CAM_OK ? node.GetMax(&status) : 0;
    if (status != ORV_CAM_OK)
        return;
    if (minimum != std::numeric_limits<std::int64_t>::min())
        state.minimum = std::to_string(minimum);
    if (maximum != std::numeric_limits<std::int64_t>::max())
        state.maximum = std::to_string(maximum);
    const std::int64_t increment = node.GetIncrement(&status);
    if (status == ORV_CAM_OK && increment > 1)
        state.increment = std::to_string(increment);
}

void TakeLimits(OrvCam::FloatNode &node, FeatureState &state)
{
    int status = ORV_CAM_OK;
    const double minimum = node.GetMin(&status);
    const double maximum = status == ORV_CAM_OK ? node.GetMax(&status) : 0;
    if (status != ORV_CAM_OK)
        return;
    if (minimum > std::numeric_limits<double>::lowest())
        state.minimum = NumberText(minimum);
    if (maximum < std::numeric_limits<double>::max())
        state.maximum = NumberText(maximum);
}

FeatureState Read(FeatureArray &features, const FeatureInfo &info, bool withLimits)
{
    FeatureState state;
    const char *name = info.name.c_str();
    state.access = features.GetAccess(name);
    const bool isReadable = state.access == OrvCam::Access::ReadOnly || state.access == OrvCam::Access::ReadWrite;
    const bool isPresent = isReadable || state.access == OrvCam::Access::WriteOnly;
    state.status = isReadable ? ORV_CAM_OK : ORV_CAM_ERR_NOT_READABLE;
    if (!isPresent) {
        const bool isThere = state.access == OrvCam::Access::NotAvailable;
        state.status = isThere ? ORV_CAM_ERR_NOT_AVAILABLE : ORV_CAM_ERR_FEATURE_NOT_PRESENT;
        return state;
    }
    // The text is made last: a value that could not be read has none.
    const auto take = [&](const auto &text) {
        if (state.status == ORV_CAM_OK)
            state.value = text;
    };
    int *const status = &state.status;
    if (auto *integer = info.kind == FeatureKind::Integer ? features.GetInt(name) : nullptr) {
        if (isReadable)
            take(Formatted(integer->GetValue(status), info.representation));
        if (withLimits && info.representation == Representation::Plain)
            TakeLimits(*integer, state);
    } else if (auto *number = info.kind == FeatureKind::Float ? features.GetFloat(name) : nullptr) {
        if (isReadable)
            take(NumberText(number->GetValue(status)));
        if (withLimits)
            TakeLimits(*number, state);
    } else if (auto *boolean = info.kind == FeatureKind::Boolean ? features.GetBool(name) : nullptr) {
        if (isReadable)
            take(boolean->GetValue(status) ? "true" : "false");
    } else if (auto *choice = info.kind == FeatureKind::Enumeration ? features.GetEnum(name) : nullptr) {
        if (isReadable)
            take(choice->GetValue(status));
        if (withLimits)
            state.entries = choice->GetEntries();
    } else if (auto *text = info.kind == FeatureKind::String ? features.GetString(name) : nullptr) {
        if (isReadable)
            take(text->GetValue(status));
    } else {
        state.status = ORV_CAM_ERR_NOT_READABLE;
    }
    return state;
}

} // namespace

bool FindFeature(FeatureArray &features, const std::string &name, FeatureInfo &info)
{
    for (const FeatureInfo &listed : features.FeatureTree()) {
        if (listed.name == name) {
            info = listed;
            return true;
        }
    }
    info = FeatureInfo();
    info.name = name;
    const char *const text = name.c_str();
    int status = ORV_CAM_OK;
    const auto isKind = [&](FeatureKind kind, const void *node) {
        info.kind = kind;
        return node != nullptr || status == ORV_CAM_ERR_FEATURE_NOT_PRESENT;
    };
    if (isKind(FeatureKind::Integer, features.GetInt(text, &status)) ||
        isKind(FeatureKind::Float, features.GetFloat(text, &status)) ||
        isKind(FeatureKind::Boolean, features.GetBool(text, &status)) ||
        isKind(FeatureKind::Enumeration, features.GetEnum(text, &status)) ||
        isKind(FeatureKind::String, features.GetString(text, &status)))
        return status != ORV_CAM_ERR_FEATURE_NOT_PRESENT;
    info.kind = FeatureKind::Command; // or nothing that has a value; running it tells
    return true;
}

FeatureState ReadValue(FeatureArray &features, const FeatureInfo &info)
{
    return Read(features, info, false);
}

FeatureState ReadState(FeatureArray &features, const FeatureInfo &info)
{
    return Read(features, info, true);
}

void WriteJsonValue(Json &json, const FeatureInfo &info, const FeatureState &state)
{
    const bool isHexadecimal = info.representation == Representation::Hexadecimal;
    const bool isPlainInteger = info.kind == FeatureKind::Integer && info.representation == Representation::Plain;
    if (state.status != ORV_CAM_OK)
        json.Null();
    else if (info.kind == FeatureKind::Integer && isHexadecimal)
        json.Raw(std::to_string(static_cast<std::int64_t>(std::stoull(state.value, nullptr, 16))));
    else if (isPlainInteger || info.kind == FeatureKind::Boolean)
        json.Raw(state.value);
    else if (info.kind == FeatureKind::Float)
        state.value.find_first_of("in") == std::string::npos ? json.Raw(state.value) : json.Null();
    else
        json.Value(state.value);
}

const char *KindText(FeatureKind kind)
{
    const char *const kNames[] = {"category",    "integer", "float",   "boolean",
                                  "enumeration", "string",  "command", "register"};
    return kNames[static_cast<int>(kind)];
}

const char *AccessText(OrvCam::Access access)
{
    const char *const kNames[] = {"NI", "NA", "RO", "WO", "RW"};
    return kNames[static_cast<int>(access)];
}

} // namespace orvcli
