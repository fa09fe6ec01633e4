#pragma once

#include "orvcam/OrvFeatures.h"
#include "orvcam/OrvStatus.h"
#include "orvimage/OrvImage.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// The camera library: cameras behind any GenTL producer, as systems, interfaces, devices, streams and buffers.
///
/// The classes are interfaces; objects are made by OrvCam_GetSystem and OrvCam_CreateDevice. All of it may be called
/// from any thread unless a call says otherwise.
namespace OrvCam {

/// Waits without limit.
constexpr std::uint64_t kInfinite = ~std::uint64_t{0};

enum InterfaceType : int { ORV_INTERFACE_OTHER = 0, ORV_INTERFACE_U3V = 1, ORV_INTERFACE_GEV = 2 };

/// What is known of the host's interface that a device was found on.
struct InterfaceDescription {
    InterfaceType type = ORV_INTERFACE_OTHER;
    std::string id;       ///< the producer's identifier
    std::string text;     ///< for people: "lo (127.0.0.1)"
    std::string producer; ///< file name of the .cti it came from
    /// In an InterfaceList, why the search through it failed, in the producer's words; "" when it did not.
    std::string searchFailure = "";
};

enum class DeviceState {
    Unknown,
    Free,        ///< can be opened for control
    ReadOnly,    ///< can only be looked at
    Unreachable, ///< seen, but its address does not fit the interface
    Busy,        ///< held by another program
    OpenHere     ///< open in this process
};

/// What discovery tells of one device. A copy: valid without the list it came from.
struct DeviceDescription {
    std::string id; ///< unique within its interface, stable between sessions
    std::string vendor;
    std::string model;
    std::string serial;
    std::string userName;
    std::string version;
    std::string address; ///< IP address for GigE Vision, else ""; so are the next two
    std::string subnetMask;
    std::string mac;
    std::string holder; ///< "192.168.10.1:50123" of the program that controls it; "" when free or not told
    DeviceState state = DeviceState::Unknown;
    InterfaceDescription interface;
};

/// Walks the devices of one interface, or the interfaces of the system; see InterfaceList.
class DeviceList {
public:
    /// First and next entry; null at the end. An entry is owned by the list.
    virtual const DeviceDescription *First() = 0;
    virtual const DeviceDescription *Next() = 0;
    virtual const InterfaceDescription &Interface() const = 0;

protected:
    ~DeviceList() = default;
};

/// A snapshot of all interfaces and their devices. Release it after use.
class InterfaceList {
public:
    virtual DeviceList *First() = 0;
    virtual DeviceList *Next() = 0;
    virtual void Release() = 0;

protected:
    ~InterfaceList() = default;
};

/// One filled frame, lent by a stream from GetBuffer until QueueBuffer. One thread at a time.
class Buffer {
public:
    virtual bool IsIncomplete() = 0;
    virtual std::uint64_t GetTimestamp() = 0; ///< camera ticks
    virtual std::uint64_t GetFrameID() = 0;
    virtual std::size_t GetBufferSize() = 0; ///< bytes of payload received
    /// The frame as an image record that points into the buffer. Never null; an unknown pixel format has pixelType 0
    /// and the bits per pixel of its wire code, a payload without an image has width and height 0.
    virtual const _OrvImage *GetImage() = 0;

protected:
    ~Buffer() = default;
};

/// Figures of a stream since its last start; zero where the producer does not tell. Their names: NamedFigures().
struct StreamStatistics {
    // frames
    std::uint64_t delivered = 0;       ///< fetched, complete or not
    std::uint64_t incomplete = 0;      ///< of those
    std::uint64_t missed = 0;          ///< numbers between two frames of which no packet came
    std::uint64_t underruns = 0;       ///< lost because no buffer was queued, since the stream was opened
    std::uint64_t started = 0;         ///< since the stream was opened
    std::uint64_t droppedByCamera = 0; ///< that the camera says it could not send, whole or in part
    // packets
    std::uint64_t packets = 0;     ///< received, all kinds
    std::uint64_t fullPackets = 0; ///< of payload, at full length: zero where the path lets none of that length through
    std::uint64_t requested = 0;   ///< asked for again
    std::uint64_t resent = 0;      ///< that came after they had been asked for
    std::uint64_t missing = 0;     ///< that never came
    std::uint64_t duplicates = 0;
    std::uint64_t late = 0;          ///< of a frame that was through already
    std::uint64_t withoutBuffer = 0; ///< of a frame for which no buffer was queued
    std::uint64_t refused = 0;       ///< that the camera said it cannot send
    std::uint64_t unusable = 0;      ///< malformed, or of no stream of ours
    std::uint64_t oversized = 0;     ///< longer than the packet size in use allows
    std::uint64_t kernelDrops = 0;   ///< messages, each of one or more packets, that this host's kernel threw away: the
                                     ///< socket's buffer was full
    // transport
    std::uint64_t receiveBuffer = 0;       ///< bytes that the kernel granted the socket
    std::uint64_t wantedReceiveBuffer = 0; ///< bytes that were asked for
    std::uint64_t packetSize = 0;          ///< IP packet size in use
};

/// One figure with the name that people and scripts know it by.
struct NamedFigure {
    const char *name; ///< as the member's
    const char *unit; ///< "frames", "packets", "messages" or "bytes"
    /// Whether it counts; one that does not is a state, and has no difference.
    bool isCount;
    std::uint64_t StreamStatistics::*member;
};
/// All figures of a stream, in the order of StreamStatistics.
const std::vector<NamedFigure> &NamedFigures();

/// One data stream of a device. GetBuffer and QueueBuffer from any threads; the others from one thread at a time.
class Stream {
public:
    /// Announces and queues `count` buffers of the device's payload size. Buffers that were allocated before are
    /// released first. \param owner kept for diagnosis only.
    virtual int AllocBufferQueue(void *owner, unsigned int count) = 0;
    /// Takes all buffers back; those lent out become invalid. A running acquisition is stopped first; where that fails,
    /// its status is returned, and the buffers stay.
    virtual int ReleaseBufferQueue() = 0;
    /// \param count frames to deliver, kInfinite for no limit. Opens the stream channel towards this host.
    virtual int StartAcquisition(std::uint64_t count, unsigned int flags) = 0;
    /// \param flags 1 ends at once, 0 lets the frame that is being received finish. After a failure the acquisition
    /// counts as running, and may be stopped again.
    virtual int StopAcquisition(unsigned int flags) = 0;
    /// Waits for the next filled buffer. \param timeoutMs milliseconds, kInfinite for no limit, 0 polls.
    /// \return null with ORV_CAM_ERR_TIMEOUT, ORV_CAM_ERR_ABORTED (after CancelBuffer) or another status. A failing
    ///         stream answers after a short pause, so a caller in a loop does not spin.
    virtual Buffer *GetBuffer(std::uint64_t timeoutMs, int *err) = 0;
    /// Ends a pending GetBuffer, or the next one of this acquisition when none is pending. Any thread.
    virtual int CancelBuffer() = 0;
    /// Gives a buffer back for filling. Never blocks on the camera. One that the producer refuses is not lent any more
    /// either: the next GetBuffer or QueueBuffer offers it again.
    virtual int QueueBuffer(Buffer *buffer) = 0;
    virtual StreamStatistics GetStatistics() = 0;
    /// The producer's own features of this stream (resend settings, packet size); null when it describes none.
    virtual FeatureArray *GetParameters() { return nullptr; }

protected:
    ~Stream() = default;
};

/// An event of the camera, each told once however often the camera sends it. The data are the producer's; of a GigE
/// Vision camera a packet EVENT_CMD or EVENTDATA_CMD with this event alone.
constexpr int kEventRemoteDevice = 4;
/// Device events. Traffic: one call per packet with its bytes as on the wire; nothing is captured while nobody has
/// registered. Control traffic comes from both directions.
constexpr int kEventControlTraffic = 1000;
constexpr int kEventStreamTraffic = 1001;
constexpr int kEventEventTraffic = 1002; ///< the message channel
constexpr int kEventDeviceLost = 1004;   ///< the connection was lost; data: the reason as text
/// How an event was served since it was registered.
struct EventFigures {
    std::uint64_t fired = 0;   ///< calls of the callback
    std::uint64_t dropped = 0; ///< that the producer threw away because the callback was slower than they came
};
/// Data and size are valid during the call. Runs on a thread of the library, one per registered event.
using EventCallback = void (*)(const void *data, unsigned long size, void *context);

/// One opened camera.
class Device {
public:
    virtual const DeviceDescription &GetDescription() const = 0;
    /// The camera's features; null when its description could not be loaded. \param index 0: the camera itself.
    virtual FeatureArray *GetCameraParameters(int index = 0) = 0;
    /// The features of the host's interface that the device was found on; null when its producer describes none.
    virtual FeatureArray *GetInterfaceParameters() { return nullptr; }
    /// Reads the camera's GenICam description anew, unpacked and otherwise as it came. Many register round trips.
    virtual int FetchDescriptionXml(std::string * /*xml*/) { return ORV_CAM_ERR_NOT_IMPLEMENTED; }
    virtual unsigned int GetStreamCount() = 0;
    /// Null when the device has no such stream. Owned by the device.
    virtual Stream *GetStreamByIndex(unsigned int index) = 0;
    /// One callback per event type. \return ORV_CAM_ERR_NOT_IMPLEMENTED when the producer has no such event.
    /// Device-lost fires once per registration; registered after the loss, it fires at once. While an earlier
    /// registration of the type is being ended by another thread, its end is waited for.
    virtual int RegisterEvent(int eventType, EventCallback callback, void *context) = 0;
    /// After it returns the callback does not run any more. From the callback itself: after that call has ended. Two
    /// callbacks that end each other's registration wait for each other for ever.
    virtual int UnregisterEvent(int eventType, EventCallback callback, void *context) = 0;
    /// Zero for an event that is not registered.
    virtual EventFigures GetEventFigures(int /*eventType*/) { return {}; }
    /// Writes the camera's settings to a configuration file; `path` is UTF-8.
    virtual int SaveFeatures(const char *path) = 0;
    virtual int LoadFeatures(const char *path) = 0;
    /// Stops, closes and deletes the device; streams, buffers and features end with it.
    virtual void Release() = 0;

protected:
    ~Device() = default;
};

/// All producers of this process.
class System {
public:
    /// Looks the file up beside the executable, in the installed library folder and along GENICAM_GENTL64_PATH, and
    /// opens it. A producer that is open already counts as success; one that takes longer than some seconds is waited
    /// for no more (ORV_CAM_ERR_TIMEOUT) and can be used once it is done.
    virtual int LoadProducer(const char *fileName) = 0;
    /// Searches the network anew. \param mask bit per InterfaceType; 255 for all. \return null without a producer.
    /// Blocks for the discovery window (about a second).
    virtual InterfaceList *GetInterfaceList(unsigned int mask) = 0;
    /// Opens the camera that a configuration file describes and applies the file. `path` is UTF-8. Of several ways to
    /// it, and of several cameras that the file fits, the most usable one. Where a camera is returned that did not take
    /// all of the file, LastError says so.
    virtual Device *CreateDeviceFromConfiguration(const char *path, int flags) = 0;
    /// Gives a GigE Vision device another address until it is switched off (FORCEIP), for one that no connection can
    /// reach. All three as "192.168.10.20"; the gateway may be "0.0.0.0". Blocks for the device's answer. \return
    /// ORV_CAM_ERR_NOT_IMPLEMENTED when the producer has no such feature, ORV_CAM_ERR_TIMEOUT without an answer,
    /// ORV_CAM_ERR_IO or another at once when the system does not let the command out.
    virtual int ForceAddress(const DeviceDescription &device, const std::string &address, const std::string &subnetMask,
                             const std::string &gateway) = 0;
    /// Why the last call of this thread that opens, lists or loads something or forces an address failed: a sentence
    /// for a person, and the status; ORV_CAM_OK after a success. A device whose description is unusable opens without
    /// features: that is ORV_CAM_ERR_XML, with the reason.
    virtual int LastError(std::string *text) = 0;

protected:
    ~System() = default;
};

enum DeviceAccess : int { ORV_ACCESS_READ_ONLY = 1, ORV_ACCESS_CONTROL = 2, ORV_ACCESS_EXCLUSIVE = 3 };

} // namespace OrvCam

/// The one system of the process, made on the first call; null when no producer can be loaded at all. Producers whose
/// file names stand in the environment variable ORV_SKIP_PRODUCERS, separated by colons, are left out.
OrvCam::System *OrvCam_GetSystem();
/// Opens a device. \param access an OrvCam::DeviceAccess. \return null on failure, see System::LastError.
OrvCam::Device *OrvCam_CreateDevice(const OrvCam::DeviceDescription *description, int access, int flags);
