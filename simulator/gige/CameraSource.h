#pragma once

#include "simulator/gige/FrameSource.h"

namespace orvsim {

/// A camera as the source of a stream's frames. The camera is borrowed.
class CameraSource : public FrameSource {
public:
    explicit CameraSource(Camera &camera) : m_camera(camera) {}
    void SetWireBytes(std::function<std::uint64_t(std::size_t payloadBytes)> wireBytes) override;
    std::optional<FrameJob> WaitForFrame(std::int64_t timeoutMs) override;
    std::shared_ptr<Frame> TakeFrame(const FrameJob &job) override;
    void FrameSent(const FrameJob &job) override;
    Faults CurrentFaults() const override;

private:
    Camera &m_camera;
};

} // namespace orvsim
