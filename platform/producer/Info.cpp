#include "producer/Info.h"

#include <cstring>

namespace nuvark {

InfoValue InfoValue::String(std::string text)
{
    InfoValue value;
    value.m_type = INFO_DATATYPE_STRING;
    value.m_text = std::move(text);
    value.m_size = value.m_text.size() + 1;
    return value;
}

InfoValue InfoValue::Scalar(INFO_DATATYPE type, std::uint64_t number, std::size_t size)
{
    InfoValue value;
    value.m_type = type;
    value.m_scalar = number;
    value.m_size = size;
    return value;
}

InfoValue InfoValue::Pointer(const void *pointer)
{
    return Scalar(INFO_DATATYPE_PTR, reinterpret_cast<std::uintptr_t>(pointer), sizeof(void *));
}

InfoValue InfoValue::Bytes(const std::uint8_t *data, std::size_t size)
{
    InfoValue value;
    value.m_type = INFO_DATATYPE_BUFFER;
    value.m_text.assign(data, data + size);
    value.m_size = size;
    return value;
}

const void *InfoValue::Data() const
{
    const bool isText = m_type == INFO_DATATYPE_STRING || m_type == INFO_DATATYPE_BUFFER;
    return isText ? static_cast<const void *>(m_text.c_str()) : &m_scalar;
}

bool IsInvalidPointer(const void *pointer)
{
    return pointer == nullptr || pointer == reinterpret_cast<const void *>(~std::uintptr_t{0});
}

Status GiveInfo(const InfoValue &value, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize)
{
    if (IsInvalidPointer(piSize) || (pBuffer != nullptr && IsInvalidPointer(pBuffer)))
        return {GC_ERR_INVALID_PARAMETER, "a pointer is invalid"};
    if (pBuffer != nullptr && *piSize < value.Size()) {
        return {GC_ERR_BUFFER_TOO_SMALL,
                "the answer has " + std::to_string(value.Size()) + " bytes, the buffer " + std::to_string(*piSize)};
    }
    if (pBuffer != nullptr)
        std::memcpy(pBuffer, value.Data(), value.Size());
    *piSize = value.Size();
    if (!IsInvalidPointer(piType))
        *piType = value.Type();
    return {};
}

Status GiveInfo(const Result<InfoValue> &value, INFO_DATATYPE *piType, void *pBuffer, size_t *piSize)
{
    return value.Ok() ? GiveInfo(value.value, piType, pBuffer, piSize) : value.status;
}

Status GiveString(const std::string &text, char *pBuffer, size_t *piSize)
{
    return GiveInfo(InfoValue::String(text), nullptr, pBuffer, piSize);
}

Status UnknownCommand(const char *what, std::int32_t command)
{
    return {GC_ERR_NOT_IMPLEMENTED, std::string("there is no ") + what + " info " + std::to_string(command)};
}

} // namespace nuvark
