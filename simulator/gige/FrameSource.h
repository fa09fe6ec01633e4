#pragma once

#include "simulator/core/Camera.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace orvsim {

/// Where the stream gets its frames: the camera, or something simpler in its place. See Camera for the functions.
///
/// Threads: SetWireBytes() once, before the stream begins; CurrentFaults() from any; the rest from the stream's thread.
class FrameSource {
public:
    virtual ~FrameSource() = default;
    virtual void SetWireBytes(std::function<std::uint64_t(std::size_t payloadBytes)> wireBytes) = 0;
    virtual std::optional<FrameJob> WaitForFrame(std::int64_t timeoutMs) = 0;
    virtual std::shared_ptr<Frame> TakeFrame(const FrameJob &job) = 0;
    virtual void FrameSent(const FrameJob &job) = 0;
    virtual Faults CurrentFaults() const = 0;
};

} // namespace orvsim
