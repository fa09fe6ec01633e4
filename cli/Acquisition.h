#pragma once

#include "cli/Outcome.h"
#include "orvcam/OrvCam.h"

namespace orvcli {

/// Stream 0 of a camera while it runs: buffers, the camera's own start and stop, and the lock of what shapes a frame.
/// Ends with the object. One thread.
class Acquisition {
public:
    /// \param device  borrowed, must outlive the object.
    explicit Acquisition(OrvCam::Device &device) : m_device(device) {}
    ~Acquisition() { Stop(); }
    Acquisition(const Acquisition &) = delete;
    Acquisition &operator=(const Acquisition &) = delete;

    Outcome Start(unsigned buffers);
    void Stop();
    OrvCam::Stream &Stream() { return *m_stream; } ///< once started
    /// All zero before the start.
    OrvCam::StreamStatistics Statistics() const
    {
        return m_stream != nullptr ? m_stream->GetStatistics() : OrvCam::StreamStatistics();
    }

private:
    OrvCam::Device &m_device;
    OrvCam::Stream *m_stream = nullptr;
    bool m_isRunning = false;
};

} // namespace orvcli
