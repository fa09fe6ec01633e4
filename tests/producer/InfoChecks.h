#pragma once

#include "gentl/GenTL.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

constexpr INFO_DATATYPE kText = INFO_DATATYPE_STRING;
constexpr INFO_DATATYPE kBool = INFO_DATATYPE_BOOL8;
constexpr INFO_DATATYPE kInt32 = INFO_DATATYPE_INT32;
constexpr INFO_DATATYPE kUInt32 = INFO_DATATYPE_UINT32;
constexpr INFO_DATATYPE kUInt64 = INFO_DATATYPE_UINT64;
constexpr INFO_DATATYPE kSize = INFO_DATATYPE_SIZET;
constexpr INFO_DATATYPE kPointer = INFO_DATATYPE_PTR;

/// What one info command has to answer.
struct InfoRow {
    std::int32_t command;
    INFO_DATATYPE type; ///< of the answer
    const char *value;  ///< a text or a decimal number; null when the test cannot know it
    GC_ERROR expected = GC_ERR_SUCCESS;
};
/// A command that does not exist.
constexpr InfoRow Unknown(std::int32_t command)
{
    return {command, 0, nullptr, GC_ERR_NOT_IMPLEMENTED};
}

/// Asks for one command in the size-query idiom.
using Query = std::function<GC_ERROR(std::int32_t, INFO_DATATYPE *, void *, size_t *)>;

/// An answer as InfoRow::value has it.
std::string Readable(INFO_DATATYPE type, const std::vector<std::uint8_t> &bytes, size_t size);
/// The whole size-query idiom: asking for the size, a buffer that is too small or none, what is left untouched.
void CheckAnswer(const std::string &what, const InfoRow &row, const Query &query);
void CheckAll(const std::string &function, const std::vector<InfoRow> &rows, const Query &query);
