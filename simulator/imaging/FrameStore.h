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
    std::vector<std::uint8_t> payload; ///< image, then chunks or a second picture where asked for
    std::size_t imageBytes = 0;
    FrameSettings settings;
    std::uint64_t number = 0; ///< from 0 at the start of the acquisition
    std::uint64_t timestampNs = 0;
    bool hasChunks = false;
    std::size_t confidenceBytes = 0; ///< of the second picture, see ConfidencePlane; 0: there is none
};

/// Prepares frames ahead, so that handing one out costs no more than stamping its number.
///
/// A loop of rendered scene phases is kept, as many as fit the memory limit, at least four and at most all; fewer step
/// through the phases evenly. Frame number n shows place n modulo the loop's length. After a change of settings the
/// next frame is rendered at once (the caller waits for that one) and a thread of the store's own renders the rest;
/// until it is through, frames that are not ready are replaced by the next ones that are, and by copies of the last one
/// while all of these are out. Frames of old settings are never handed out. While nothing is prepared, each missing
/// frame is rendered when it is taken.
///
/// A frame that somebody holds is never touched. When all of the loop are held the next one is rendered into new
/// memory, which then belongs to the loop: whoever holds many frames makes it grow beyond the limit.
///
/// Threads: Take() from one thread; the rest from any. Frames may be released on any thread, after the store's end too.
class FrameStore {
public:
    FrameStore(const SensorTraits &sensor, std::uint64_t seed, std::size_t memoryLimitBytes);
    ~FrameStore();

    /// A stamped frame, the image alone. The caller may change it until it takes the next one.
    std::shared_ptr<Frame> Take(const FrameSettings &settings, std::uint64_t number, std::uint64_t timestampNs);

    /// From now on the store's thread, at a lower priority than its user's, prepares frames. It idles when all are
    /// ready.
    void Start();
    /// Prepares no more and frees what nobody holds; the rest goes when its holders let go. Waits for nothing. A frame
    /// that is taken later is rendered for that once. Start() goes on.
    void Release();
    /// Like Release(), but waits for the frame that the thread is at, and keeps what there is for the next frames.
    void Stop();

    /// Bytes of the frames that nobody holds.
    std::size_t PreparedBytes() const;

private:
    struct Parts;
    std::unique_ptr<Parts> m_parts;
};

} // namespace orvsim
