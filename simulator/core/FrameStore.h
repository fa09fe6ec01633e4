#pragma once

#include "base/Mutex.h"
#include "simulator/core/FrameRenderer.h"

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
/// A loop of rendered scene phases is kept, as many as fit the memory limit, at least four. After a change of settings
/// the next frame is rendered at once (the caller waits for that one) and a thread of the store's own renders the rest;
/// frames of old settings are never handed out.
///
/// Threads: Take() from one thread; the rest from any.
class FrameStore {
public:
    FrameStore(const SensorTraits &sensor, std::uint64_t seed, std::size_t memoryLimitBytes);
    ~FrameStore();

    /// A stamped frame without chunks. Memory that was handed out and given back is used again; the frames of the last
    /// `held` calls may be held by the caller.
    std::shared_ptr<Frame> Take(const FrameSettings &settings, std::uint64_t number, std::uint64_t timestampNs);

    /// The renderer's thread goes on only between these.
    void Start();
    void Stop();

private:
    struct Parts;
    std::unique_ptr<Parts> m_parts;
};

} // namespace orvsim
