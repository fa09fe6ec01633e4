#pragma once

#include "producer/Status.h"
#include "producer/TrafficTap.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// What a transport (GigE Vision now) offers to the GenTL modules. The modules know no protocol, the transports no
/// GenTL handles.
namespace nuvark {

/// One host interface as the interface list shows it.
struct InterfaceRecord {
    std::string id;          ///< stable between sessions
    std::string displayName; ///< "lo (127.0.0.1)"
    std::string tlType;
    std::uint64_t mac = 0;
    std::uint32_t address = 0; ///< IPv4 in host byte order, 0 where there is none
    std::uint32_t mask = 0;
    std::uint32_t gateway = 0; ///< of the default route through it, 0 where there is none
};

/// One camera as the device list shows it; a copy that needs neither list nor camera.
struct DeviceRecord {
    std::string id; ///< unique within the interface, stable between sessions
    std::string vendor;
    std::string model;
    std::string version;
    std::string manufacturerInfo;
    std::string serial;
    std::string userName;
    std::string displayName;
    DEVICE_ACCESS_STATUS accessStatus = DEVICE_ACCESS_STATUS_UNKNOWN;
    std::optional<std::uint64_t> tickFrequency;
    std::string addressText; ///< "192.168.10.20"; "" where there is none
    std::string maskText;
    std::string macText;
    std::string holder;             ///< "192.168.10.1:50123" of who controls it, "" when unknown
    std::uint16_t versionMajor = 0; ///< of the transport's standard, as the camera tells it
    std::uint16_t versionMinor = 0;
    std::uint64_t mac = 0;
    std::uint32_t address = 0;
    std::uint32_t mask = 0;
    std::uint32_t gateway = 0;
};

/// An XML description that the camera offers.
struct DescriptionUrl {
    std::string url;      ///< cleaned: "local:camera.xml;10000;3e67"
    std::string fileName; ///< "camera.xml"
    URL_SCHEME_ID scheme = URL_SCHEME_LOCAL;
    std::uint64_t address = 0; ///< only for URL_SCHEME_LOCAL
    std::uint64_t size = 0;    ///< only for URL_SCHEME_LOCAL
    int schemaMajor = 0;       ///< 0 when not known
    int schemaMinor = 0;
    int fileMajor = 0; ///< 0 when not known
    int fileMinor = 0;
    int fileSubMinor = 0;
};

/// One part of a multi-part frame. Sizes in bytes, dimensions in pixels and lines.
struct FramePart {
    std::size_t begin = 0; ///< from the beginning of the buffer
    std::size_t size = 0;  ///< as far as the buffer holds it
    PARTDATATYPE_ID dataType = PART_DATATYPE_UNKNOWN;
    std::uint64_t pixelFormat = 0;
    std::size_t width = 0;
    std::size_t height = 0;
    std::size_t xOffset = 0;
    std::size_t yOffset = 0;
    std::size_t xPadding = 0;
    std::uint8_t sourceId = 0;
    std::uint16_t purposeId = 0;
    std::uint16_t regionId = 0;
};

/// What is known of a frame when it is delivered. Sizes in bytes, dimensions in pixels and lines.
struct FrameInfo {
    std::uint64_t frameId = 0;
    std::uint64_t timestamp = 0; ///< camera ticks
    bool isIncomplete = false;
    bool isLargerThanBuffer = false;
    std::size_t sizeFilled = 0; ///< bytes received
    std::size_t dataSize = 0;   ///< bytes that were meant to come, at most the buffer's size
    PAYLOADTYPE_INFO_ID payloadType = PAYLOAD_TYPE_UNKNOWN;
    bool hasImage = false; ///< the fields down to yPadding hold something
    std::uint64_t pixelFormat = 0;
    std::size_t width = 0;
    std::size_t height = 0;
    std::size_t deliveredHeight = 0;
    std::size_t xOffset = 0;
    std::size_t yOffset = 0;
    std::size_t imageOffset = 0; ///< bytes from the beginning of the buffer
    std::size_t xPadding = 0;
    std::size_t yPadding = 0;
    bool bigEndianPixels = false;
    bool hasChunks = false;
    std::size_t chunkPayloadSize = 0;
    std::uint64_t chunkLayoutId = 0;
    std::size_t imageBytes = 0;   ///< of image or parts in front of the chunks, at least; 0 without
    std::string fileName;         ///< only for PAYLOAD_TYPE_FILE
    std::vector<FramePart> parts; ///< only for PAYLOAD_TYPE_MULTI_PART; the image fields are those of the first image
};

/// Memory to receive one frame into; `owner` is the sink's own mark.
struct FrameTarget {
    std::uint8_t *data = nullptr;
    std::size_t size = 0;
    void *owner = nullptr;
};

/// Where a stream channel gets its buffers from and brings them to. Called on the receiver's thread; must not block.
class FrameSink {
public:
    virtual ~FrameSink() = default;
    /// A buffer to fill. False when none is queued (the frame is lost, which the sink counts), or when the engine does
    /// not want any more frames.
    virtual bool TakeBuffer(FrameTarget &target) = 0;
    /// False after the last frame that was asked for and during a flush: those that begin now nobody misses.
    virtual bool WantsFrames() const { return true; }
    virtual void Deliver(const FrameTarget &target, const FrameInfo &info) = 0;
    /// Gives an unfinished buffer back to be filled later.
    virtual void GiveBack(const FrameTarget &target) = 0;
    /// Buffers that wait to be filled: how long complete frames may be held back depends on it.
    virtual std::size_t SpareBuffers() const { return 1000; }
};

/// Counts since the last start, for diagnosis.
struct StreamCounters {
    std::uint64_t packets = 0;
    std::uint64_t fullPackets = 0;      ///< of payload, as long as they are meant to be
    std::uint64_t missingPackets = 0;   ///< that never came
    std::uint64_t missedFrames = 0;     ///< numbers between two frames of which no packet came
    std::uint64_t requestedPackets = 0; ///< asked for again, each time counted
    std::uint64_t resentPackets = 0;    ///< of those, that came
    std::uint64_t duplicatePackets = 0;
    std::uint64_t latePackets = 0;       ///< of frames that were through already
    std::uint64_t withoutBuffer = 0;     ///< packets of frames that got no buffer, or had to give theirs back
    std::uint64_t droppedByCamera = 0;   ///< frames that the camera says it could not send, whole or in part
    std::uint64_t refusedPackets = 0;    ///< that the camera said it cannot send
    std::uint64_t unusablePackets = 0;   ///< malformed, foreign, or contradicting others
    std::uint64_t kernelDrops = 0;       ///< messages of one or more packets; the socket's buffer was full
    std::uint64_t oversizedPackets = 0;  ///< dropped, since much longer than the packet size in use
    std::size_t receiveBuffer = 0;       ///< bytes granted by the kernel
    std::size_t wantedReceiveBuffer = 0; ///< bytes asked for
    std::size_t packetSize = 0;          ///< IP packet size in use
    std::uint32_t packetDelay = 0;       ///< between packets, in ticks of the camera's clock, as the stream began
    bool resendEnabled = false;          ///< wanted and the camera can
    bool realTime = false;               ///< the receiving thread got its priority
};

/// How a camera cuts its frames into packets.
struct PacketSettings {
    static constexpr std::uint32_t kMaxSize = 0xFFFF; ///< of an IP packet
    static constexpr std::uint32_t kMaxDelay = 0xFFFFFFFF;

    std::size_t size = 0;    ///< bytes of an IP packet
    std::uint32_t delay = 0; ///< between packets, in ticks of the camera's clock
};

/// When missing packets are asked for again, and for how long a frame is waited for.
struct ResendSettings {
    bool enabled = true;
    std::chrono::microseconds initialTimeout{1000}; ///< packets may come out of order for so long
    std::chrono::microseconds packetTimeout{20000}; ///< at most between two requests for the same packet
    /// Since a frame's last packet, until it is given up; one that the camera may not have sent completely yet stays a
    /// second at least.
    std::chrono::microseconds retention{100000};
    std::uint32_t requestPercent = 100; ///< of a frame's packets that may be asked for; few always may
    std::uint32_t tries = 8;            ///< requests for the same packet
};

/// One stream of a camera. One thread at a time, except for AbandonFrames(), Counters() and what follows: any thread.
class StreamChannel {
public:
    enum class Stop {
        Finish, ///< what is being received gets a moment to complete
        AtOnce  ///< what is being received is delivered as incomplete
    };

    virtual ~StreamChannel() = default;
    /// Opens the channel towards this host. \param payloadSize bytes of the largest buffer. The sink must outlive the
    /// channel. Blocks for register round trips.
    virtual Status Start(FrameSink &sink, std::size_t payloadSize) = 0;
    /// After it returns the sink is not called any more. Short even when the camera is gone.
    virtual void StopReceiving(Stop how) = 0;
    /// Gives all unfinished buffers back to the sink at once.
    virtual void AbandonFrames() = 0;
    virtual StreamCounters Counters() const = 0;
    /// As the running stream began; without one the camera is asked, which blocks for register round trips. What was
    /// known last where it does not answer.
    virtual PacketSettings Packets() const = 0;
    /// While stopped, in the thread of Start(): writes the camera's setting, which may round it. Blocks for register
    /// round trips. \param size bytes, at most PacketSettings::kMaxSize; one so written counts as the application's own
    /// choice. What the camera refuses fails as it says; GC_ERR_INVALID_VALUE for a size that it makes another one of,
    /// whose setting then stays.
    virtual Status SetPacketSize(std::uint32_t size) = 0;
    /// Likewise. \param ticks of the camera's clock.
    virtual Status SetPacketDelay(std::uint32_t ticks) = 0;
    /// Any thread; what is set counts from the next start on.
    virtual ResendSettings Resend() const = 0;
    virtual void SetResend(const ResendSettings &settings) = 0;
};

/// Told by a camera on a thread of its own.
class CameraListener {
public:
    virtual ~CameraListener() = default;
    /// The connection is lost; called once at most.
    virtual void OnCameraLost(const std::string &reason) = 0;
    /// The camera has told an event. \param packet as the transport's standard carries it, with one event in it.
    virtual void OnCameraEvent(std::vector<std::uint8_t> /*packet*/) {}
    /// The transport has written a register that stands behind this feature of the camera.
    virtual void OnFeatureInvalid(const std::string & /*feature*/) {}
};

/// One access of several that are asked for together.
struct PortAccess {
    std::uint64_t address = 0;
    std::uint8_t *data = nullptr;
    std::size_t size = 0;
};

/// An opened camera. Any thread.
class Camera {
public:
    virtual ~Camera() = default;
    /// All or nothing; any length and alignment.
    virtual Status Read(std::uint64_t address, void *data, std::size_t size) = 0;
    virtual Status Write(std::uint64_t address, const void *data, std::size_t size) = 0;
    /// One after the other, until one fails. \param done how many succeeded.
    virtual Status ReadAll(const std::vector<PortAccess> &accesses, std::size_t &done) = 0;
    virtual Status WriteAll(const std::vector<PortAccess> &accesses, std::size_t &done) = 0;
    virtual std::vector<DescriptionUrl> DescriptionUrls() = 0;
    virtual bool IsLittleEndian() const = 0;
    virtual bool IsWritable() const = 0;
    virtual std::uint64_t TickFrequency() const = 0; ///< ticks per second, 0 when it has no clock
    virtual std::uint32_t StreamCount() const = 0;
    /// The channel may be used as long as the camera lives.
    virtual std::unique_ptr<StreamChannel> MakeStream(std::uint32_t index) = 0;
    virtual CameraTraffic &Traffic() = 0;
    /// Whether the camera can tell events to who has opened it in this way.
    virtual bool HasMessages() const = 0;
    /// Begins or ends to ask the camera for its events. Blocks for register round trips.
    virtual Status ListenToMessages(bool wanted) = 0;
    /// Gives up control and ends all threads; calls under way end with GC_ERR_ABORT. Short even when the camera is
    /// gone.
    virtual void Close() = 0;
};

enum class CameraAccess { ReadOnly, Control, Exclusive };

/// One host interface with cameras on it. Any thread.
class HostInterface {
public:
    virtual ~HostInterface() = default;
    /// As it was at the last search or opening; the identifier stays.
    virtual InterfaceRecord Record() const = 0;
    /// Blocks for the window. Finding none is a success; not having been able to ask is none.
    virtual Result<std::vector<DeviceRecord>> Discover(std::chrono::milliseconds window) = 0;
    /// Looks for one camera by its identifier, address, MAC, serial number or user name, without any list.
    virtual Result<DeviceRecord> Find(const std::string &name) = 0;
    /// Gives a camera that was found another address until it is switched off, also one that cannot be reached. All in
    /// host byte order; address 0 lets it find one by itself. Blocks for the camera's answer. GC_ERR_TIMEOUT without
    /// one, and at once the system's failure when it does not let the command out.
    virtual Status ForceAddress(const DeviceRecord &device, std::uint32_t address, std::uint32_t mask,
                                std::uint32_t gateway) = 0;
    /// The listener must outlive the camera.
    virtual Result<std::unique_ptr<Camera>> Open(const DeviceRecord &device, CameraAccess access,
                                                 CameraListener &listener) = 0;
};

} // namespace nuvark
