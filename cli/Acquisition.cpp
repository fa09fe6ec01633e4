#include "cli/Acquisition.h"

namespace orvcli {

Outcome Acquisition::Start(unsigned buffers)
{
    m_stream = m_device.GetStreamByIndex(0);
    if (m_stream == nullptr)
        return FailedWith(ORV_CAM_ERR_NO_STREAM, "stream 0");
    OrvCam::FeatureArray *features = m_device.GetCameraParameters();
    int status = m_stream->AllocBufferQueue(this, buffers);
    if (status != ORV_CAM_OK)
        return FailedWith(status, "buffers");
    if (features != nullptr)
        features->SetIntegerValue("TLParamsLocked", 1); // early cameras have no such feature
    m_isRunning = true;
    status = m_stream->StartAcquisition(OrvCam::kInfinite, 0);
    if (status != ORV_CAM_OK)
        return FailedWith(status, "start of the stream");
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
