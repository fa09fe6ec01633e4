#pragma once

#include "orvsupport/OrvParam.h"

#include <string>
#include <string_view>

/// Reading and writing the member that a parameter record points to.
///
/// The caller holds the store's lock; the Write and Read functions of one type also need the record to be of that type.
/// All statuses are OrvParamStatus.
namespace orv {

/// Whether a store can take the record: name, type, member, range and default.
bool IsSoundDeclaration(const _OrvStParam &param);

/// Whether a write with this status changed the member.
bool TookPlace(std::uint32_t status);

std::uint32_t WriteInt(const _OrvStParam &param, std::int64_t value);
std::uint32_t WriteFloat(const _OrvStParam &param, double value);
std::uint32_t WriteString(const _OrvStParam &param, const char *text);
std::uint32_t WriteArray(const _OrvStParam &param, const void *data, std::size_t sizeBytes);
/// Any type.
std::uint32_t WriteText(const _OrvStParam &param, const char *text);

// The views point into the member.
std::string_view ReadString(const _OrvStParam &param);
std::string_view ReadArray(const _OrvStParam &param);

/// A value taken out of its member, to be turned into text without the lock.
struct ParamReading {
    std::uint32_t type = ORV_PARAM_COMMAND;
    std::int64_t integer = 0; ///< integers and booleans
    double number = 0;
    std::string bytes; ///< strings and arrays
};

/// Any type; a command has the empty text.
ParamReading ReadAny(const _OrvStParam &param);
std::uint32_t FormatReading(const ParamReading &reading, const char *format, std::string *text);

} // namespace orv
