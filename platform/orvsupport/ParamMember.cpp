#include "orvsupport/ParamMember.h"

#include "orvsupport/OrvParamStorage.h"
#include "orvsupport/ParamRange.h"
#include "orvsupport/ParamText.h"

#include <cmath>
#include <cstring>

namespace orv {
namespace {

bool IsSoundValuePart(const _OrvStParam &param)
{
    switch (param.type) {
    case ORV_PARAM_INT:
        return param.asInt.value != nullptr && IsSoundRange(param.asInt);
    case ORV_PARAM_FLOAT:
        return param.asFloat.value != nullptr && IsSoundRange(param.asFloat);
    case ORV_PARAM_BOOL:
        return param.asBool.value != nullptr;
    case ORV_PARAM_STRING:
        return param.asString.value != nullptr && param.asString.capacity > 0;
    case ORV_PARAM_ARRAY:
        return param.asArray.value != nullptr && param.asArray.size > 0;
    case ORV_PARAM_COMMAND:
        return param.asCommand.run != nullptr;
    default:
        return false;
    }
}

} // namespace

bool IsSoundDeclaration(const _OrvStParam &param)
{
    const std::size_t nameLength = strnlen(param.name, sizeof param.name);
    return nameLength > 0 && nameLength < sizeof param.name && IsSoundValuePart(param);
}

bool TookPlace(std::uint32_t status)
{
    return status == ORV_PARAM_OK || status == ORV_PARAM_CLAMPED;
}

std::uint32_t WriteInt(const _OrvStParam &param, std::int64_t value)
{
    const std::int64_t allowed = NearestAllowed(param.asInt, value);
    *param.asInt.value = allowed;
    return allowed == value ? ORV_PARAM_OK : ORV_PARAM_CLAMPED;
}

std::uint32_t WriteFloat(const _OrvStParam &param, double value)
{
    if (std::isnan(value))
        return ORV_PARAM_BAD_VALUE;
    const double allowed = NearestAllowed(param.asFloat, value);
    *param.asFloat.value = allowed;
    return allowed == value ? ORV_PARAM_OK : ORV_PARAM_CLAMPED;
}

std::uint32_t WriteString(const _OrvStParam &param, const char *text)
{
    const auto capacity = static_cast<std::size_t>(param.asString.capacity);
    const std::size_t length = strnlen(text, capacity);
    if (length == capacity)
        return ORV_PARAM_BUFFER_TOO_SMALL;
    std::memmove(param.asString.value, text, length); // the text may lie in the member itself
    param.asString.value[length] = '\0';
    return ORV_PARAM_OK;
}

std::uint32_t WriteArray(const _OrvStParam &param, const void *data, std::size_t sizeBytes)
{
    const auto size = static_cast<std::size_t>(param.asArray.size);
    if (sizeBytes != size)
        return sizeBytes > size ? ORV_PARAM_BUFFER_TOO_SMALL : ORV_PARAM_BAD_VALUE;
    std::memmove(param.asArray.value, data, size);
    return ORV_PARAM_OK;
}

std::string_view ReadString(const _OrvStParam &param)
{
    const auto capacity = static_cast<std::size_t>(param.asString.capacity);
    return {param.asString.value, strnlen(param.asString.value, capacity)};
}

std::string_view ReadArray(const _OrvStParam &param)
{
    return {static_cast<const char *>(param.asArray.value), static_cast<std::size_t>(param.asArray.size)};
}

namespace {

std::uint32_t WriteIntText(const _OrvStParam &param, const char *text)
{
    std::int64_t value = 0;
    const std::uint32_t parsed = ParseInt(text, &value);
    if (!TookPlace(parsed))
        return parsed;
    const std::uint32_t written = WriteInt(param, value);
    return parsed == ORV_PARAM_OK ? written : parsed;
}

} // namespace

std::uint32_t WriteText(const _OrvStParam &param, const char *text)
{
    std::uint32_t status = ORV_PARAM_OK;
    switch (param.type) {
    case ORV_PARAM_INT:
        return WriteIntText(param, text);
    case ORV_PARAM_FLOAT: {
        double value = 0;
        status = ParseFloat(text, &value);
        return status == ORV_PARAM_OK ? WriteFloat(param, value) : status;
    }
    case ORV_PARAM_BOOL:
        return ParseBool(text, param.asBool.value);
    case ORV_PARAM_STRING:
        return WriteString(param, text);
    case ORV_PARAM_ARRAY: {
        std::string bytes;
        status = ParseHex(text, &bytes);
        return status == ORV_PARAM_OK ? WriteArray(param, bytes.data(), bytes.size()) : status;
    }
    default: // a command has no value: its empty text goes back in without effect, so that saved settings load
        return *text == '\0' ? ORV_PARAM_OK : ORV_PARAM_BAD_VALUE;
    }
}

ParamReading ReadAny(const _OrvStParam &param)
{
    ParamReading reading;
    reading.type = param.type;
    if (param.type == ORV_PARAM_INT)
        reading.integer = *param.asInt.value;
    else if (param.type == ORV_PARAM_BOOL)
        reading.integer = *param.asBool.value ? 1 : 0;
    else if (param.type == ORV_PARAM_FLOAT)
        reading.number = *param.asFloat.value;
    else if (param.type == ORV_PARAM_STRING)
        reading.bytes = ReadString(param);
    else if (param.type == ORV_PARAM_ARRAY)
        reading.bytes = ReadArray(param);
    return reading;
}

std::uint32_t FormatReading(const ParamReading &reading, const char *format, std::string *text)
{
    switch (reading.type) {
    case ORV_PARAM_INT:
    case ORV_PARAM_BOOL:
        return FormatInt(format, reading.integer, text);
    case ORV_PARAM_FLOAT:
        return FormatFloat(format, reading.number, text);
    case ORV_PARAM_ARRAY:
        return FormatString(format, HexText(reading.bytes), text);
    default: // strings, and commands with their empty text
        return FormatString(format, reading.bytes, text);
    }
}

} // namespace orv
