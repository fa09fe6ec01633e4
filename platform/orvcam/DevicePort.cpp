#include "orvcam/DevicePort.h"

#include "orvcam/GenTLInfo.h"
#include "orvcam/OrvStatus.h"

#include <algorithm>
#include <cstdio>

namespace orv::cam {

template <class Call> GC_ERROR DevicePort::Access(const Call &call)
{
    if (m_contact != nullptr)
        m_contact->Begin();
    const GC_ERROR result = call();
    if (m_contact != nullptr)
        m_contact->End(result == GC_ERR_SUCCESS);
    return result;
}

int DevicePort::Read(std::uint64_t address, void *data, std::size_t bytes, std::string *why)
{
    if (m_lost)
        return Finish("GCReadPort", address, bytes, 0, GC_ERR_IO, why);
    std::size_t done = bytes;
    const GC_ERROR result = Access([&] { return m_calls.GCReadPort(m_port, address, data, &done); });
    return Finish("GCReadPort", address, bytes, done, result, why);
}

int DevicePort::Write(std::uint64_t address, const void *data, std::size_t bytes, std::string *why)
{
    if (m_lost)
        return Finish("GCWritePort", address, bytes, 0, GC_ERR_IO, why);
    std::size_t done = bytes;
    const GC_ERROR result = Access([&] { return m_calls.GCWritePort(m_port, address, data, &done); });
    return Finish("GCWritePort", address, bytes, done, result, why);
}

int DevicePort::Finish(const char *call, std::uint64_t address, std::size_t wanted, std::size_t done, GC_ERROR result,
                       std::string *why) const
{
    if (result == GC_ERR_SUCCESS && done == wanted)
        return ORV_CAM_OK;
    const int status = StatusOfFailure(result, m_lost);
    if (status == ORV_CAM_ERR_DEVICE_LOST) {
        *why = "the connection to the camera was lost";
        return status;
    }
    char place[64];
    std::snprintf(place, sizeof place, "(0x%llx+%zu)", static_cast<unsigned long long>(address), wanted);
    if (result == GC_ERR_SUCCESS) {
        *why = call + std::string(place) + ": only " + std::to_string(done) + " bytes were transferred";
        return ORV_CAM_ERR_IO;
    }
    *why = GenTLErrorText(m_calls, call + std::string(place), result);
    return status;
}

std::vector<std::string> DevicePort::DescriptionUrls() const
{
    constexpr std::uint32_t kMostUrls = 16;
    std::vector<std::string> urls;
    std::uint32_t count = 0;
    if (m_calls.GCGetNumPortURLs != nullptr && m_calls.GCGetPortURLInfo != nullptr &&
        m_calls.GCGetNumPortURLs(m_port, &count) == GC_ERR_SUCCESS) {
        for (std::uint32_t i = 0; i < std::min(count, kMostUrls); ++i) {
            std::string url;
            if (QueryText(
                    [&](INFO_DATATYPE *type, void *buffer, std::size_t *size) {
                        return m_calls.GCGetPortURLInfo(m_port, i, URL_INFO_URL, type, buffer, size);
                    },
                    &url))
                urls.push_back(url);
        }
    }
    if (urls.empty()) {
        // The way of the first version: a list of texts, of which the first is enough.
        const std::string url = TextOrNothing([&](INFO_DATATYPE *, void *buffer, std::size_t *size) {
            return m_calls.GCGetPortURL(m_port, static_cast<char *>(buffer), size);
        });
        if (!url.empty())
            urls.push_back(url);
    }
    return urls;
}

} // namespace orv::cam
