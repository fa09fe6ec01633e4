#include "orvcam/GenTLInfo.h"

#include "orvcam/OrvStatus.h"
#include "orvcam/Text.h"

#include <cstring>

namespace orv::cam {

namespace {

struct StatusRow {
    GC_ERROR error;
    int status;
};

constexpr StatusRow kStatuses[] = {
    {GC_ERR_SUCCESS, ORV_CAM_OK},
    {GC_ERR_NOT_IMPLEMENTED, ORV_CAM_ERR_NOT_IMPLEMENTED},
    {GC_ERR_RESOURCE_IN_USE, ORV_CAM_ERR_INVALID_STATE},
    {GC_ERR_ACCESS_DENIED, ORV_CAM_ERR_ACCESS_DENIED},
    {GC_ERR_INVALID_ID, ORV_CAM_ERR_NOT_FOUND},
    {GC_ERR_NO_DATA, ORV_CAM_ERR_NOT_AVAILABLE},
    {GC_ERR_INVALID_PARAMETER, ORV_CAM_ERR_INVALID_PARAMETER},
    {GC_ERR_IO, ORV_CAM_ERR_IO},
    {GC_ERR_TIMEOUT, ORV_CAM_ERR_TIMEOUT},
    {GC_ERR_ABORT, ORV_CAM_ERR_ABORTED},
    {GC_ERR_INVALID_BUFFER, ORV_CAM_ERR_INVALID_STATE},
    {GC_ERR_NOT_AVAILABLE, ORV_CAM_ERR_NOT_AVAILABLE},
    {GC_ERR_INVALID_ADDRESS, ORV_CAM_ERR_IO},
    {GC_ERR_BUFFER_TOO_SMALL, ORV_CAM_ERR_BUFFER_TOO_SMALL},
    {GC_ERR_INVALID_VALUE, ORV_CAM_ERR_OUT_OF_RANGE},
    {GC_ERR_RESOURCE_EXHAUSTED, ORV_CAM_ERR_OUT_OF_MEMORY},
    {GC_ERR_OUT_OF_MEMORY, ORV_CAM_ERR_OUT_OF_MEMORY},
    {GC_ERR_BUSY, ORV_CAM_ERR_BUSY},
};

template <class Number> bool Take(const InfoBytes &info, std::uint64_t *number)
{
    if (info.size < sizeof(Number))
        return false;
    Number value;
    std::memcpy(&value, info.bytes, sizeof value);
    *number = static_cast<std::uint64_t>(value);
    return true;
}

struct LastError {
    GC_ERROR code = GC_ERR_SUCCESS; ///< success: the producer does not tell
    std::string words;
};

/// Of this thread's last call that failed. \param call  whose name is not repeated, as many producers do
LastError AskLastError(const gentl::Functions &calls, const std::string &call)
{
    LastError last;
    char text[512] = "";
    std::size_t size = sizeof text;
    if (calls.GCGetLastError(&last.code, text, &size) != GC_ERR_SUCCESS)
        return {};
    text[sizeof text - 1] = '\0';
    last.words = ToUtf8(text);
    const std::string function = call.substr(0, call.find('(')) + ": ";
    if (last.words.rfind(function, 0) == 0)
        last.words.erase(0, function.size());
    return last;
}

} // namespace

int StatusFromGenTL(GC_ERROR error)
{
    for (const StatusRow &row : kStatuses) {
        if (row.error == error)
            return row.status;
    }
    return ORV_CAM_ERR_PRODUCER;
}

int StatusOfFailure(GC_ERROR error, const LossFlag &lost)
{
    // A handle that is not valid any more tells of a loss nearly for sure, so its news are worth a longer wait.
    const bool isGone = error == GC_ERR_INVALID_HANDLE;
    const bool mayBeLost = isGone || error == GC_ERR_IO || error == GC_ERR_TIMEOUT;
    if (lost || (mayBeLost && lost.IsOrWillBeSet(std::chrono::milliseconds(isGone ? 1000 : 50))))
        return ORV_CAM_ERR_DEVICE_LOST;
    return StatusFromGenTL(error);
}

std::string GenTLErrorWords(const gentl::Functions &calls, const std::string &call, GC_ERROR error)
{
    const LastError last = AskLastError(calls, call);
    return last.code == error && !last.words.empty() ? last.words : "failed";
}

std::string LastGenTLWords(const gentl::Functions &calls, const std::string &call, int status)
{
    const LastError last = AskLastError(calls, call);
    return StatusFromGenTL(last.code) == status ? last.words : "";
}

std::string GenTLErrorText(const gentl::Functions &calls, const std::string &call, GC_ERROR error)
{
    return call + ": " + GenTLErrorWords(calls, call, error) + " (" + std::to_string(error) + ")";
}

bool DecodeNumber(const InfoBytes &info, std::uint64_t *number)
{
    switch (info.type) {
    case INFO_DATATYPE_BOOL8:
        return Take<std::uint8_t>(info, number);
    case INFO_DATATYPE_INT16:
        return Take<std::int16_t>(info, number);
    case INFO_DATATYPE_UINT16:
        return Take<std::uint16_t>(info, number);
    case INFO_DATATYPE_INT32:
        return Take<std::int32_t>(info, number);
    case INFO_DATATYPE_UINT32:
        return Take<std::uint32_t>(info, number);
    case INFO_DATATYPE_INT64:
    case INFO_DATATYPE_UINT64:
        return Take<std::uint64_t>(info, number);
    case INFO_DATATYPE_PTR:
    case INFO_DATATYPE_SIZET:
    case INFO_DATATYPE_PTRDIFF:
        return Take<std::size_t>(info, number);
    case INFO_DATATYPE_FLOAT64: {
        double value = 0;
        std::memcpy(&value, info.bytes, sizeof value);
        if (info.size < sizeof value || !(value >= 0 && value < 18446744073709551615.0))
            return false;
        *number = static_cast<std::uint64_t>(value);
        return true;
    }
    case INFO_DATATYPE_STRING:
    case INFO_DATATYPE_STRINGLIST:
        return false;
    default:
        break;
    }
    switch (info.size) {
    case 1:
        return Take<std::uint8_t>(info, number);
    case 2:
        return Take<std::uint16_t>(info, number);
    case 4:
        return Take<std::uint32_t>(info, number);
    case 8:
        return Take<std::uint64_t>(info, number);
    default:
        return false;
    }
}

void FinishText(std::string *text)
{
    text->resize(text->find('\0') == std::string::npos ? text->size() : text->find('\0'));
    *text = ToUtf8(*text);
}

} // namespace orv::cam
