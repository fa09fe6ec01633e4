#pragma once

#include "base/Mutex.h"
#include "simulator/imaging/FrameRenderer.h"

#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

namespace orvsim {

/// A frame ready to be sent. Whoever holds the pointer may read it; its memory is used again when nobody does.
struct Frame {
    std::vector<std::uint8_t> payload; ///< image, then chunks where asked for
    std::size_t imageBytes = 0;
    FrameSettings settings;
    std::uint64_t number = 0; ///< from 0 at the start of the acquisition
    std::uint64_t timestampNs = 0;
    bool hasChunks = false;
};

/// Prepares frames ahead, so that handing one out costs no more than stamping its number.
///
/// A loop of rendered scene phases is kept, as many as fit the memory limit, at least four and at most all; fewer step
/// through the phases evenly. Frame number n shows place n modulo the loop's length. After a change of settings the
/// next frame is rendered at once (the caller waits for that one) and a thread of the store's own renders the rest;
/// until it is through, frames that are not ready are replaced by the next ones that are. Frames of old settings are
/// never handed out. Without the thread, between Stop() and Start(), each missing frame is rendered when it is taken.
///
/// A frame that somebody holds is never touched. When all of the loop are held the next one is rendered into new
/// memory, which then belongs to the loop: whoever holds many frames makes it grow beyond the limit.
///
/// Threads: Take() from one thread; the rest from any. Frames may be released on any thread, after the store's end too.
class FrameStore {
public:
    FrameStore(const SensorTraits &sensor, std::uint64_t seed, std::size_t memoryLimitBytes);
    ~FrameStore();

    /// A stamped frame without chunks. The caller may change it while it holds it.
    std::shared_ptr<Frame> Take(const FrameSettings &settings, std::uint64_t number, std::uint64_t timestampNs);

    /// The store's thread runs only between these; Stop() waits for the frame that it is at.
    void Start();
    void Stop();

private:
    struct Parts;
    std::unique_ptr<Parts> m_parts;
};

} // namespace orvsim
