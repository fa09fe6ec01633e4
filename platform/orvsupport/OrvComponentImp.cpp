#include "orvsupport/OrvComponentImp.h"

#include <cstring>

namespace {

/// Where a component's type identifier stands in its status codes.
constexpr unsigned kComponentShift = 16;

} // namespace

OrvComponentImp::OrvComponentImp(std::uint8_t componentTypeId) : m_params(0), m_componentTypeId(componentTypeId) {}

OrvComponentImp::~OrvComponentImp() = default;

std::uint8_t OrvComponentImp::GetComponentTypeID()
{
    return m_componentTypeId;
}

std::uint32_t OrvComponentImp::GetParamCount()
{
    return m_params.GetParamCount();
}

std::uint32_t OrvComponentImp::GetParamName(unsigned int index, char *buffer, unsigned int *length)
{
    _OrvStParam param{};
    param.access = ORV_PARAM_ACCESS_RW;
    m_params.GetParamByIdx(index, &param); // an index out of range leaves the name empty
    const auto needed = static_cast<unsigned int>(std::strlen(param.name) + 1);
    if (needed > *length) {
        *length = needed;
        return ORV_PARAM_BUFFER_TOO_SMALL | std::uint32_t{m_componentTypeId} << kComponentShift;
    }
    std::strncpy(buffer, param.name, *length); // pads with zeros to the end of the buffer
    return ORV_PARAM_OK;
}

std::uint32_t OrvComponentImp::GetParamAsString(char *name, char *buffer, unsigned int *length, const char *format)
{
    return m_params.GetParamAsString(name, buffer, length, format);
}

std::uint32_t OrvComponentImp::SetParamAsString(char *name, char *text)
{
    return m_params.SetParamAsString(name, text, true);
}

std::uint32_t OrvComponentImp::SetParamBool(char *name, bool value)
{
    return m_params.SetParamBool(name, value, true);
}

std::uint32_t OrvComponentImp::SetParamInt(char *name, long value)
{
    return m_params.SetParamInt(name, value, true);
}

std::uint32_t OrvComponentImp::SetParamFloat(char *name, double value)
{
    return m_params.SetParamFloat(name, value, true);
}

std::uint32_t OrvComponentImp::SetParamString(char *name, char *text)
{
    return m_params.SetParamString(name, text, true);
}

std::uint32_t OrvComponentImp::SetParamArray(char *name, void *data, unsigned int sizeBytes)
{
    return m_params.SetParamArray(name, data, sizeBytes, true);
}

std::uint32_t OrvComponentImp::GetParamBool(char *name, bool *value)
{
    return m_params.GetParamBool(name, value);
}

std::uint32_t OrvComponentImp::GetParamInt(char *name, long *value)
{
    return m_params.GetParamInt(name, value);
}

std::uint32_t OrvComponentImp::GetParamFloat(char *name, double *value)
{
    return m_params.GetParamFloat(name, value);
}

std::uint32_t OrvComponentImp::GetParamString(char *name, char *buffer, unsigned int *length)
{
    return m_params.GetParamString(name, buffer, length);
}

std::uint32_t OrvComponentImp::GetParamArray(char *name, void *buffer, unsigned int *sizeBytes)
{
    return m_params.GetParamArray(name, buffer, sizeBytes);
}

std::uint32_t OrvComponentImp::RunCommand(char *name)
{
    return m_params.RunCommand(name);
}
