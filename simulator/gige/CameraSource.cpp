#include "simulator/gige/CameraSource.h"

#include "simulator/gige/StreamSender.h"

#include <utility>

namespace orvsim {

StreamSender::StreamSender(Camera &camera, int historyFrames)
    : StreamSender(std::make_shared<CameraSource>(camera), camera.Options().seed, historyFrames)
{
}

void CameraSource::SetWireBytes(std::function<std::uint64_t(std::size_t payloadBytes)> wireBytes)
{
    m_camera.SetWireBytes(std::move(wireBytes));
}

std::optional<FrameJob> CameraSource::WaitForFrame(std::int64_t timeoutMs)
{
    return m_camera.WaitForFrame(timeoutMs);
}

std::shared_ptr<Frame> CameraSource::TakeFrame(const FrameJob &job)
{
    return m_camera.TakeFrame(job);
}

void CameraSource::FrameSent(const FrameJob &job)
{
    m_camera.FrameSent(job);
}

Faults CameraSource::CurrentFaults() const
{
    return m_camera.CurrentFaults();
}

} // namespace orvsim
