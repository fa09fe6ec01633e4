#pragma once

#include "gentl/GenTL.h"
#include "gentl/Library.h"
#include "orvcam/LossFlag.h"

#include <cstddef>
#include <cstdint>
#include <string>

/// Reading what a producer answers, whatever type it gives its answers.
namespace orv::cam {

int StatusFromGenTL(GC_ERROR error);
/// As StatusFromGenTL, of a failed access to a camera or its stream: ORV_CAM_ERR_DEVICE_LOST where that is the cause. A
/// handle that is no longer valid is a camera that has gone. May wait 50 ms for the news.
int StatusOfFailure(GC_ERROR error, const LossFlag &lost);

/// The producer's own words for the failure of a call, without its name. Same thread as the call.
std::string GenTLErrorWords(const gentl::Functions &calls, const std::string &call, GC_ERROR error);
/// Its words for the last failure of this thread, where `status` came of that; else "".
std::string LastGenTLWords(const gentl::Functions &calls, const std::string &call, int status);
/// "GCReadPort: the camera refused (-1005)": the call, the producer's own words, and its code. Same thread as the call.
std::string GenTLErrorText(const gentl::Functions &calls, const std::string &call, GC_ERROR error);

/// The bytes of one answer that is no text.
struct InfoBytes {
    alignas(8) unsigned char bytes[16] = {};
    std::size_t size = sizeof bytes;
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
};

/// A number of any of the number types; one of unknown type is judged by its size.
bool DecodeNumber(const InfoBytes &info, std::uint64_t *number);

/// \param query  (INFO_DATATYPE *type, void *buffer, size_t *size) -> GC_ERROR
template <class Query> bool QueryNumber(Query query, std::uint64_t *number)
{
    InfoBytes info;
    return query(&info.type, info.bytes, &info.size) == GC_ERR_SUCCESS && DecodeNumber(info, number);
}

/// A text as UTF-8, cut at its end mark. Answers of another type, and those over 64 KiB, are refused.
template <class Query> bool QueryText(Query query, std::string *text);

/// As QueryText, "" where there is no answer.
template <class Query> std::string TextOrNothing(Query query)
{
    std::string text;
    return QueryText(query, &text) ? text : std::string();
}

constexpr std::size_t kMaxInfoBytes = 64u << 10;
void FinishText(std::string *text);

template <class Query> bool QueryText(Query query, std::string *text)
{
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    std::size_t size = 0;
    if (query(&type, nullptr, &size) != GC_ERR_SUCCESS || size > kMaxInfoBytes)
        return false;
    if (type != INFO_DATATYPE_STRING && type != INFO_DATATYPE_STRINGLIST && type != INFO_DATATYPE_UNKNOWN)
        return false;
    // One more than asked for: a producer that forgets to count its end mark still fits.
    std::string bytes(size + 1, '\0');
    size = bytes.size();
    if (query(&type, &bytes[0], &size) != GC_ERR_SUCCESS)
        return false;
    FinishText(&bytes);
    *text = std::move(bytes);
    return true;
}

} // namespace orv::cam
