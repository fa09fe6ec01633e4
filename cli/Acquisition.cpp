#include "cli/Acquisition.h"

#include "cli/Cameras.h"

namespace orvcli {

namespace {

/// Without its features a camera may stream all the same. Where it does not, that is the reason.
Outcome NotStarted(OrvCam::Device &device, int status, const char *what)
{
    Outcome outcome = FailedWith(status, what);
    const Outcome description = CheckDescription(device);
    if (!description.IsOk())
        outcome.problem += " " + description.problem;
    return outcome;
}

} // namespace

Outcome Acquisition::Start(unsigned buffers)
{
    m_stream = m_device.GetStreamByIndex(0);
    if (m_stream == nullptr)
        return FailedWith(ORV_CAM_ERR_NO_STREAM, "stream 0");
    OrvCam::FeatureArray *features = m_device.GetCameraParameters();
    int status = m_stream->AllocBufferQueue(this, buffers);
    if (status != ORV_CAM_OK)
        return NotStarted(m_device, status, "buffers");
    if (features != nullptr)
        features->SetIntegerValue("TLParamsLocked", 1); // early cameras have no such feature
    m_isRunning = true;
    status = m_stream->StartAcquisition(OrvCam::kInfinite, 0);
    if (status != ORV_CAM_OK)
        return NotStarted(m_device, status, "start of the stream");
    if (features == nullptr)
        return {}; // it may stream without being told
    status = features->ExecuteCommand("AcquisitionStart");
    return status == ORV_CAM_OK ? Outcome() : FailedWith(status, "AcquisitionStart");
}

void Acquisition::Stop()
{
    if (m_isRunning) {
        m_isRunning = false;
        OrvCam::FeatureArray *features = m_device.GetCameraParameters();
        if (features != nullptr)
            features->ExecuteCommand("AcquisitionStop");
        m_stream->StopAcquisition(1);
        if (features != nullptr)
            features->SetIntegerValue("TLParamsLocked", 0);
    }
    if (m_stream != nullptr)
        m_stream->ReleaseBufferQueue();
}

} // namespace orvcli
