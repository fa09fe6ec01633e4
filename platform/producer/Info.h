#pragma once

#include "producer/Status.h"

#include <cstdint>
#include <string>

namespace nuvark {

/// The answer to one info command: its GenTL type and its bytes.
class InfoValue {
public:
    InfoValue() = default;

    static InfoValue String(std::string text);
    static InfoValue Int32(std::int32_t value) { return Scalar(INFO_DATATYPE_INT32, value, 4); }
    static InfoValue UInt32(std::uint32_t value) { return Scalar(INFO_DATATYPE_UINT32, value, 4); }
    static InfoValue UInt64(std::uint64_t value) { return Scalar(INFO_DATATYPE_UINT64, value, 8); }
    static InfoValue Bool(bool value) { return Scalar(INFO_DATATYPE_BOOL8, value ? 1 : 0, 1); }
    static InfoValue Size(std::size_t value) { return Scalar(INFO_DATATYPE_SIZET, value, sizeof(std::size_t)); }
    static InfoValue Pointer(const void *value);
    static InfoValue Bytes(const std::uint8_t *data, std::size_t size); ///< a BUFFER

    INFO_DATATYPE Type() const { return m_type; }
    const void *Data() const;
    std::size_t Size() const { return m_size; }

private:
    static InfoValue Scalar(INFO_DATATYPE type, std::uint64_t value, std::size_t size);

    INFO_DATATYPE m_type = INFO_DATATYPE_UNKNOWN;
    std::size_t m_size = 0;
    std::uint64_t m_scalar = 0; ///< little-endian host: the low bytes come first
    std::string m_text;
};

/// Null or all bits set: what the standard calls an invalid pointer.
bool IsInvalidPointer(const void *pointer);

/// Answers by the size-query idiom: a null buffer asks for the size; a buffer that is too small is left untouched.
/// `piType` may be null.
Status GiveInfo(const InfoValue &value, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize);
Status GiveInfo(const Result<InfoValue> &value, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize);
Status GiveString(const std::string &text, char *pBuffer, size_t *piSize);

/// The status for an info command that does not exist here.
Status UnknownCommand(const char *what, std::int32_t command);

} // namespace nuvark
