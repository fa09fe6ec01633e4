#include "orvcam/StreamImp.h"

#include "orvcam/DescriptionSource.h"
#include "orvcam/Figures.h"
#include "orvcam/GenTLInfo.h"
#include "orvcam/Log.h"
#include "orvcam/OrvStatus.h"

#include <chrono>
#include <thread>

namespace orv::cam {

std::unique_ptr<StreamImp> StreamImp::Open(const StreamOrigin &origin, std::string *error)
{
    std::unique_ptr<StreamImp> stream(new StreamImp(origin));
    return stream->OpenStream(error) == ORV_CAM_OK ? std::move(stream) : nullptr;
}

StreamImp::StreamImp(const StreamOrigin &origin)
    : m_origin(origin), m_calls(m_origin.producer.Calls()), m_lost(m_origin.lost)
{
}

StreamImp::~StreamImp()
{
    m_closing = true;
    if (m_running)
        StopAcquisition(ACQ_STOP_FLAGS_KILL);
    SendWaitersHome(); // nobody should be waiting any more
    {
        MutexLock read(m_readMutex);
        MutexLock lock(m_mutex);
        RevokeAll();
    }
    if (!CloseStream())
        LeaveStuckBuffers();
}

int StreamImp::OpenStream(std::string *error)
{
    std::string id;
    QueryText(
        [&](INFO_DATATYPE *, void *buffer, std::size_t *size) {
            return m_calls.DevGetDataStreamID(m_origin.device, m_origin.index, static_cast<char *>(buffer), size);
        },
        &id);
    DS_HANDLE stream = nullptr;
    GC_ERROR result = m_calls.DevOpenDataStream(m_origin.device, id.c_str(), &stream);
    if (result != GC_ERR_SUCCESS || stream == nullptr) {
        *error = GenTLErrorText(m_calls, "DevOpenDataStream", result);
        return result != GC_ERR_SUCCESS ? StatusOfFailure(result, m_lost) : ORV_CAM_ERR_PRODUCER;
    }
    // Registered as long as the stream is open, so that no frame falls between a start and a registration.
    EVENT_HANDLE newBuffer = nullptr;
    result = m_calls.GCRegisterEvent(stream, EVENT_NEW_BUFFER, &newBuffer);
    if (result != GC_ERR_SUCCESS) {
        *error = GenTLErrorText(m_calls, "GCRegisterEvent", result);
        m_calls.DSClose(stream);
        return StatusOfFailure(result, m_lost);
    }
    m_stream = stream;
    m_newBuffer = newBuffer;
    {
        MutexLock lock(m_readMutex);
        m_infoReader = std::make_unique<FrameInfoReader>(m_calls, stream);
    }
    MutexLock lock(m_parametersMutex);
    if (m_port)
        m_port->Rebind(stream);
    return ORV_CAM_OK;
}

/// Where that fails the handle stays, so that it can be tried again, but no frame is told of any more.
bool StreamImp::CloseStream()
{
    const DS_HANDLE stream = m_stream.exchange(nullptr);
    m_newBuffer = nullptr;
    if (stream == nullptr)
        return true;
    m_calls.GCUnregisterEvent(stream, EVENT_NEW_BUFFER);
    const GC_ERROR result = m_calls.DSClose(stream);
    if (result == GC_ERR_SUCCESS || result == GC_ERR_INVALID_HANDLE)
        return true;
    Log("DSClose", result);
    m_stream = stream; // it is still there, with its buffers
    return false;
}

int StreamImp::Log(const char *call, GC_ERROR error) const
{
    LogWarning(m_origin.camera + ": " + GenTLErrorText(m_calls, call, error));
    return StatusOfFailure(error, m_lost);
}

std::uint64_t StreamImp::StreamInfo(STREAM_INFO_CMD command, std::uint64_t otherwise) const
{
    std::uint64_t value = otherwise;
    QueryNumber([&](INFO_DATATYPE *type, void *buffer,
                    std::size_t *size) { return m_calls.DSGetInfo(m_stream, command, type, buffer, size); },
                &value);
    return value;
}

void StreamImp::ReadConfiguredFormat()
{
    ConfiguredFormat format;
    if (m_origin.features != nullptr) {
        if (OrvCam::IntegerNode *width = m_origin.features->GetInt("Width"))
            format.width = static_cast<std::uint64_t>(width->GetValue());
        if (OrvCam::IntegerNode *height = m_origin.features->GetInt("Height"))
            format.height = static_cast<std::uint64_t>(height->GetValue());
        if (OrvCam::EnumerationNode *pixels = m_origin.features->GetEnum("PixelFormat"))
            format.pixelFormat = static_cast<std::uint64_t>(pixels->GetIntValue());
        if (OrvCam::IntegerNode *ticks = m_origin.features->GetInt("GevTimestampTickFrequency"))
            format.ticksPerSecond = static_cast<std::uint64_t>(ticks->GetValue());
    }
    MutexLock lock(m_readMutex);
    m_configured = format;
}

int StreamImp::StartAcquisition(std::uint64_t count, unsigned int)
{
    if (count == 0)
        return ORV_CAM_ERR_INVALID_PARAMETER;
    if (m_lost)
        return ORV_CAM_ERR_DEVICE_LOST;
    if (m_stopFailed)
        StopAcquisition(ACQ_STOP_FLAGS_KILL);
    {
        MutexLock lock(m_mutex);
        if (m_running || m_buffers.empty())
            return ORV_CAM_ERR_INVALID_STATE;
    }
    if (!m_origin.gate.BeginStream())
        return ORV_CAM_ERR_INVALID_STATE;
    ReadConfiguredFormat();
    m_fetchedBefore = m_fetched.load();
    m_incompleteBefore = m_incomplete.load();
    m_cancel = false; // of the run before
    if (m_startedBefore)
        ForgetTheRunBefore();
    const GC_ERROR result = m_calls.DSStartAcquisition(m_stream, ACQ_START_FLAGS_DEFAULT, count);
    if (result != GC_ERR_SUCCESS) {
        m_origin.gate.EndStream();
        return Log("DSStartAcquisition", result);
    }
    m_startedBefore = true;
    m_running = true;
    return ORV_CAM_OK;
}

int StreamImp::StopAcquisition(unsigned int flags)
{
    if (!m_running)
        return ORV_CAM_ERR_INVALID_STATE;
    const GC_ERROR result =
        m_calls.DSStopAcquisition(m_stream, flags == 1 ? ACQ_STOP_FLAGS_KILL : ACQ_STOP_FLAGS_DEFAULT);
    // One that has stopped by itself, at its count or with its device, is stopped.
    const bool hasStopped = result == GC_ERR_SUCCESS || result == GC_ERR_RESOURCE_IN_USE;
    if (!hasStopped && StatusOfFailure(result, m_lost) != ORV_CAM_ERR_DEVICE_LOST) {
        m_stopFailed = true;
        return Log("DSStopAcquisition", result);
    }
    m_stopFailed = false;
    m_running = false;
    m_origin.gate.EndStream();
    return ORV_CAM_OK;
}

OrvCam::StreamStatistics StreamImp::GetStatistics()
{
    OrvCam::StreamStatistics statistics;
    // What we have seen ourselves, where the producer does not tell.
    statistics.incomplete = m_incomplete - m_incompleteBefore;
    statistics.delivered = m_fetched - m_fetchedBefore;
    ReadFigures([this](STREAM_INFO_CMD command, std::uint64_t otherwise) { return StreamInfo(command, otherwise); },
                m_origin.producer.IsOurs(), &statistics);
    return statistics;
}

OrvCam::FeatureArray *StreamImp::GetParameters()
{
    MutexLock lock(m_parametersMutex);
    if (m_parameters || m_hasNoDescription || m_stream == nullptr)
        return m_parameters.get();
    // The module's handle is that of its port as well.
    if (!m_port)
        m_port = std::make_unique<DevicePort>(m_calls, m_stream, m_lost);
    const std::vector<std::string> urls = m_port->DescriptionUrls();
    m_hasNoDescription = urls.empty(); // any other failure may pass
    std::string xml;
    std::string error;
    if (FetchDescription(urls, *m_port, &xml, &error))
        m_parameters = FeatureArrayImp::Create(xml, *m_port, &error);
    if (!m_parameters)
        LogInfo("The stream of " + m_origin.camera + " has no usable features: " + error);
    return m_parameters.get();
}

} // namespace orv::cam
