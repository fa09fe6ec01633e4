#pragma once

#include "base/Mutex.h"
#include "simulator/core/CameraOptions.h"
#include "simulator/features/FeatureTable.h"
#include "simulator/features/RegisterSpace.h"
#include "simulator/imaging/FrameStore.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvsim {

/// One frame that is due: the camera's settings at the start of its exposure.
struct FrameJob {
    FrameSettings settings;
    std::uint64_t acquisition = 0; ///< counts them; 0: unknown
    std::uint64_t number = 0;      ///< from 0 at the start of the acquisition
    std::uint64_t timestampNs = 0; ///< device clock
    bool withChunks = false;
    bool withConfidence = false; ///< a second picture, instead of chunks
    double lossShare = 0;        ///< share of the packets that the link cannot carry, 0 to below 1
    double periodNs = 0;         ///< until the next frame is due at the earliest
};

/// Something a client may want to hear of.
struct DeviceEvent {
    std::uint16_t id = 0; ///< 0x9001 and up: named in the description
    std::uint64_t timestampNs = 0;
    std::uint64_t frameNumber = 0;  ///< of the acquisition, as in FrameJob
    std::vector<std::uint8_t> data; ///< the frame number, 8 bytes; empty when it is tied to none
    bool isTied = true;             ///< to that frame; events of the acquisition or of the device are not
};

struct WriteResult {
    Outcome outcome = Outcome::Ok;
    std::int64_t busyMs = 0; ///< the command needs this long: the transport says so and answers afterwards
};

/// A camera without a transport: features, registers, clock, acquisition and its frames.
///
/// A transport adds its own features and registers between construction and Finish(), then serves Read() and Write() to
/// its clients and runs one stream thread that takes frame after frame. Features behave as on a device: limits follow
/// from region, format and clock; geometry is locked while TLParamsLocked is not 0.
///
/// Threads: after Finish() every function from any thread. The callbacks run on the thread that caused them, without
/// the camera's mutex, and must not block.
class Camera {
public:
    explicit Camera(const CameraOptions &options);
    ~Camera();

    // Before Finish() only.
    FeatureTable &Features();
    RegisterSpace &Registers();
    /// Places the registers, makes the description, applies the options' features.
    /// \return what could not be applied; empty when all went well.
    std::string Finish();

    const CameraOptions &Options() const;
    /// The GenICam description, and where it lies zipped ("Local:..." is the transport's business).
    const std::string &DescriptionXml() const;

    WriteResult Write(std::uint32_t address, std::uint32_t size, const std::uint8_t *bytes);
    Outcome Read(std::uint32_t address, std::uint32_t size, std::uint8_t *bytes);
    std::string GetFeature(const std::string &name);
    Outcome SetFeature(const std::string &name, const std::string &text, std::string &problem);

    /// Nanoseconds of the device clock; a reset starts it anew. An acquisition goes on across it.
    std::uint64_t Now() const;
    void ResetClock();

    Faults CurrentFaults() const;
    /// Bytes of the frame that the current settings give: what "PayloadSize" says, without the lie.
    std::size_t PayloadSize();

    /// What a payload costs on the wire, all packets' overhead included. The link's load follows from it.
    void SetWireBytes(std::function<std::uint64_t(std::size_t payloadBytes)> wireBytes);
    /// Whether the transport sends a second picture behind each image: the confidence plane, see ConfidencePlane.
    /// Chunks do not go with it. Runs with the camera's mutex held.
    void SetConfidenceQuestion(std::function<bool()> sendsConfidence);
    void SetEventSink(std::function<void(const DeviceEvent &)> sink);
    /// Called when the device resets itself by its feature: the transport drops its connections.
    void SetResetHandler(std::function<void()> handler);
    /// Called when what is left of earlier acquisitions is not wanted any more, because it was aborted or the next one
    /// has begun: the transport gives up frames of acquisitions before `first`.
    void SetLeftoverHandler(std::function<void(std::uint64_t first)> handler);

    /// As after switching on, for a device that was away. The reset handler is not called.
    void Reset();
    /// Ends an acquisition as AcquisitionStop and clears the lock: the client is gone.
    void StopAcquisition();
    bool IsAcquiring() const;

    /// Waits until the next frame's exposure is over and it may be sent. Skips frames when the caller is late.
    /// \return nothing when no frame came due within the time, or after Close().
    std::optional<FrameJob> WaitForFrame(std::int64_t timeoutMs);
    /// The picture of a job, stamped, with chunks where asked for.
    std::shared_ptr<Frame> TakeFrame(const FrameJob &job);
    /// Tells the camera that a frame has left, for counters and events.
    void FrameSent(const FrameJob &job);
    /// Wakes and ends every WaitForFrame() from now on.
    void Close();

private:
    struct Parts;
    std::unique_ptr<Parts> m_parts;
};

} // namespace orvsim
