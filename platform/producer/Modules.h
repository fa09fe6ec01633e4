#pragma once

#include "producer/BufferQueue.h"
#include "producer/ListSelection.h"
#include "producer/Module.h"
#include "producer/RegisterMap.h"

#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// The GenTL modules. Each owns its open children; closing one closes everything below it, with calls under way and
/// waits ended by code. See Module for threads and locks.
namespace nuvark {

class InterfaceModule;
class DeviceModule;
class StreamModule;

/// Facts about this producer, the same for GCGetInfo and TLGetInfo.
Result<InfoValue> ProducerInfo(TL_INFO_CMD command);
Result<InfoValue> InterfaceInfo(const InterfaceRecord &record, INTERFACE_INFO_CMD command);
Result<InfoValue> DeviceInfo(const DeviceRecord &record, DEVICE_INFO_CMD command);

class SystemModule final : public Module, public std::enable_shared_from_this<SystemModule> {
public:
    static bool IsKind(Kind kind) { return kind == Kind::System; }
    SystemModule();

    PortFacts Facts() override;

    /// \return whether the list has changed.
    bool UpdateInterfaces() EXCLUDES(m_mutex);
    std::vector<InterfaceRecord> Interfaces() const EXCLUDES(m_mutex);
    Result<InterfaceRecord> FindInterface(const std::string &id) EXCLUDES(m_mutex);
    Result<std::shared_ptr<InterfaceModule>> OpenInterface(const std::string &id) EXCLUDES(m_mutex);
    void Forget(const std::string &interfaceId) EXCLUDES(m_mutex);
    void Close() EXCLUDES(m_mutex);

private:
    const RegisterMap *Registers() const override { return &m_registers; }
    std::vector<ModuleFeature> Features();
    void Select(std::int64_t index) EXCLUDES(m_mutex);
    std::int64_t SelectedIndex() const EXCLUDES(m_mutex);
    InterfaceRecord Selected() const EXCLUDES(m_mutex);
    std::shared_ptr<HostInterface> Lookup(const std::string &id) EXCLUDES(m_mutex);

    mutable orv::Mutex m_mutex;
    std::vector<std::shared_ptr<HostInterface>> m_interfaces GUARDED_BY(m_mutex);
    std::map<std::string, std::shared_ptr<InterfaceModule>> m_open GUARDED_BY(m_mutex);
    bool m_closed GUARDED_BY(m_mutex) = false;
    ListSelection m_selection GUARDED_BY(m_mutex);
    const RegisterMap m_registers;
};

class InterfaceModule final : public Module, public std::enable_shared_from_this<InterfaceModule> {
public:
    static bool IsKind(Kind kind) { return kind == Kind::Interface; }
    InterfaceModule(std::shared_ptr<SystemModule> parent, std::shared_ptr<HostInterface> host);

    PortFacts Facts() override;
    InterfaceRecord Record() const { return m_host->Record(); }
    const std::shared_ptr<SystemModule> &Parent() const { return m_parent; }

    /// Blocks for the time given, at most two seconds. \return whether the list has changed. After a search that could
    /// not be made the list is empty.
    Result<bool> UpdateDevices(std::uint64_t timeoutMs) EXCLUDES(m_updateMutex, m_mutex);
    /// With the access status as it is now, devices opened here included.
    std::vector<DeviceRecord> Devices() const EXCLUDES(m_mutex);
    /// By identifier, address or MAC, else by a serial number or user name that only one camera has.
    Result<DeviceRecord> FindDevice(const std::string &name) EXCLUDES(m_mutex);
    /// Blocks for the camera's answers.
    Result<std::shared_ptr<DeviceModule>> OpenDevice(const std::string &name, CameraAccess access) EXCLUDES(m_mutex);
    void Forget(const std::string &deviceId) EXCLUDES(m_mutex);
    /// The list's entry of a camera as the last look found it.
    std::optional<DeviceRecord> Listed(const std::string &deviceId) const EXCLUDES(m_mutex);
    /// Waits for openings under way, so that nothing of them comes after it.
    void Close() EXCLUDES(m_closeMutex, m_mutex);

private:
    const RegisterMap *Registers() const override { return &m_registers; }
    std::vector<ModuleFeature> Features();
    std::vector<ModuleFeature> SelectedDeviceFeatures(const std::string &category);
    std::vector<ModuleFeature> ForceAddressFeatures(const std::string &category);
    /// What GevDeviceForceIP gives a camera, IPv4 in host byte order.
    struct ForcedAddress {
        std::uint32_t address = 0;
        std::uint32_t mask = 0;
        std::uint32_t gateway = 0;
    };
    void Select(std::int64_t index) EXCLUDES(m_mutex);
    std::int64_t SelectedIndex() const EXCLUDES(m_mutex);
    DeviceRecord Selected() const EXCLUDES(m_mutex);
    ForcedAddress Forced() const EXCLUDES(m_mutex);
    void SetForced(std::uint32_t ForcedAddress::*field, std::int64_t value) EXCLUDES(m_mutex);
    Status ForceAddress() EXCLUDES(m_mutex);
    std::vector<std::string> ListedIds() const REQUIRES(m_mutex);
    Result<std::shared_ptr<DeviceModule>> OpenFound(DeviceRecord record, CameraAccess access) EXCLUDES(m_mutex);
    /// Replaces the list's entry of that camera, if it has one.
    void Refresh(const DeviceRecord &record) EXCLUDES(m_mutex);
    void EndOpening() EXCLUDES(m_mutex);
    DeviceRecord WithStatus(DeviceRecord record) const REQUIRES(m_mutex);
    /// Those listed and those open.
    std::vector<DeviceRecord> KnownDevices() const EXCLUDES(m_mutex);

    const std::shared_ptr<SystemModule> m_parent;
    const std::shared_ptr<HostInterface> m_host;
    orv::Mutex m_closeMutex;  ///< a second closing waits for the first; taken before all others
    orv::Mutex m_updateMutex; ///< one discovery at a time; held for its window, before m_mutex
    mutable orv::Mutex m_mutex;
    std::vector<DeviceRecord> m_devices GUARDED_BY(m_mutex);
    /// A null entry stands for a device that is being opened.
    std::map<std::string, std::shared_ptr<DeviceModule>> m_open GUARDED_BY(m_mutex);
    int m_opening GUARDED_BY(m_mutex) = 0; ///< calls of OpenDevice() that have a place in m_open
    orv::ConditionVariable m_openingDone;
    bool m_closed GUARDED_BY(m_mutex) = false;
    ListSelection m_selection GUARDED_BY(m_mutex);
    std::map<std::string, ForcedAddress> m_forced GUARDED_BY(m_mutex); ///< by camera
    std::atomic<std::uint32_t> m_subnetSelector{0};
    std::atomic<std::uint32_t> m_gatewaySelector{0};
    const RegisterMap m_registers;
};

/// The camera's own registers, as the handle that DevGetPort gives.
class RemotePort final : public Module {
public:
    static bool IsKind(Kind kind) { return kind == Kind::RemotePort; }
    explicit RemotePort(std::shared_ptr<DeviceModule> device) : Module(Kind::RemotePort), m_device(std::move(device)) {}

    Status ReadPort(std::uint64_t address, void *data, std::size_t size) override;
    Status WritePort(std::uint64_t address, const void *data, std::size_t size) override;
    Status ReadPorts(const std::vector<PortAccess> &accesses, std::size_t &done) override;
    Status WritePorts(const std::vector<PortAccess> &accesses, std::size_t &done) override;
    PortFacts Facts() override;
    Result<std::vector<DescriptionUrl>> Urls() override;
    void End() { EndHandle(); }

private:
    const std::shared_ptr<DeviceModule> m_device;
};

class DeviceModule final : public Module, public CameraListener, public std::enable_shared_from_this<DeviceModule> {
public:
    static bool IsKind(Kind kind) { return kind == Kind::Device; }
    DeviceModule(std::shared_ptr<InterfaceModule> parent, DeviceRecord record, CameraAccess access);

    /// Opens the camera; once, before the module is shown to anybody.
    Status Connect(HostInterface &host);

    PortFacts Facts() override;
    /// As the interface's list has it by now, else as it was when it was opened.
    DeviceRecord Record() const;
    /// The record it was opened by, with what only the opening tells.
    DeviceRecord Opened() const { return WithOpening(m_record); }
    DeviceRecord WithOpening(DeviceRecord record) const;
    bool IsLost() const EXCLUDES(m_lossMutex);
    const std::shared_ptr<InterfaceModule> &Parent() const { return m_parent; }
    Camera &GetCamera() const { return *m_camera; }
    std::shared_ptr<RemotePort> GetRemotePort() EXCLUDES(m_mutex);
    std::string StreamId(std::uint32_t index) const;
    Result<std::shared_ptr<StreamModule>> OpenStream(const std::string &id) EXCLUDES(m_mutex);
    void Forget(const std::string &streamId) EXCLUDES(m_mutex);
    void Close() EXCLUDES(m_closeMutex, m_mutex);

    void OnCameraLost(const std::string &reason) override EXCLUDES(m_lossMutex, m_mutex);
    void OnCameraEvent(std::vector<std::uint8_t> packet) override;
    void OnFeatureInvalid(const std::string &feature) override;

private:
    const RegisterMap *Registers() const override { return &m_registers; }
    std::vector<ModuleFeature> Features();
    std::shared_ptr<EventSource> MakeEventSource(EVENT_TYPE type) override;
    Status OnEventRegistered(EVENT_TYPE type, EventSource &source) override EXCLUDES(m_lossMutex, m_followMutex);
    void OnEventUnregistered(EVENT_TYPE type) override EXCLUDES(m_followMutex);
    void ListenToTraffic();
    /// Captures, and asks the camera for events, just as long as somebody is registered for them.
    Status FollowRegistrations() EXCLUDES(m_followMutex, m_lossMutex);

    const std::shared_ptr<InterfaceModule> m_parent;
    const DeviceRecord m_record;
    const CameraAccess m_access;
    std::unique_ptr<Camera> m_camera; ///< set in Connect(), then constant
    orv::Mutex m_closeMutex;          ///< a second closing waits for the first; held while the camera is asked
    orv::Mutex m_mutex;
    std::shared_ptr<RemotePort> m_remotePort GUARDED_BY(m_mutex);
    std::map<std::string, std::shared_ptr<StreamModule>> m_open GUARDED_BY(m_mutex);
    bool m_closed GUARDED_BY(m_mutex) = false;
    /// Makes telling the loss and registering for it exclude each other, so that it is told exactly once; taken before
    /// m_eventMutex.
    mutable orv::Mutex m_lossMutex;
    orv::Mutex m_followMutex; ///< one look at the registrations at a time; held while the camera is told
    std::optional<std::string> m_lossReason GUARDED_BY(m_lossMutex);
    std::atomic<std::uint32_t> m_selector{0};
    const RegisterMap m_registers;
};

class StreamModule final : public Module, public std::enable_shared_from_this<StreamModule> {
public:
    static bool IsKind(Kind kind) { return kind == Kind::Stream; }
    StreamModule(std::shared_ptr<DeviceModule> parent, std::string id, std::uint32_t index);

    PortFacts Facts() override;
    const std::string &Id() const { return m_id; }
    const std::shared_ptr<DeviceModule> &Parent() const { return m_parent; }
    BufferQueue &Buffers() { return *m_queue; }
    Result<InfoValue> Info(STREAM_INFO_CMD command);
    Result<InfoValue> BufferInfo(const Buffer &buffer, BUFFER_INFO_CMD command);
    Result<InfoValue> BufferInfo(const Buffer &buffer, const FrameInfo *frame, BUFFER_INFO_CMD command);

    Status Start(std::uint64_t count) EXCLUDES(m_controlMutex);
    Status Stop(StreamChannel::Stop how) EXCLUDES(m_controlMutex);
    Status Flush(ACQ_QUEUE_TYPE operation) EXCLUDES(m_controlMutex);
    void Close() EXCLUDES(m_controlMutex);
    void OnCameraLost(const std::string &text) { TellError(GC_ERR_IO, text); }

private:
    static constexpr std::size_t kMinimumBuffers = 1;
    static constexpr std::size_t kBufferAlignment = 1;

    const RegisterMap *Registers() const override { return &m_registers; }
    std::vector<ModuleFeature> Features();
    std::vector<ModuleFeature> PacketFeatures();
    std::vector<ModuleFeature> ResendFeatures();
    /// Changes how the camera cuts its frames into packets: only while none come.
    Status SetPackets(Status (StreamChannel::*set)(std::uint32_t), std::int64_t value) EXCLUDES(m_controlMutex);
    void WarnOfSmallBuffer() REQUIRES(m_controlMutex);
    /// Fires an error; with nobody registered, as soon as somebody is.
    void TellError(GC_ERROR code, std::string text) EXCLUDES(m_errorMutex);
    std::shared_ptr<EventSource> MakeEventSource(EVENT_TYPE type) override;
    Status OnEventRegistered(EVENT_TYPE type, EventSource &source) override EXCLUDES(m_errorMutex);

    const std::shared_ptr<DeviceModule> m_parent;
    const std::string m_id;
    const std::shared_ptr<BufferQueue> m_queue;
    const std::unique_ptr<StreamChannel> m_channel;
    orv::Mutex m_controlMutex; ///< one start, stop, flush of what is being filled, packet setting, or close at a time;
                               ///< held while the camera is asked
    bool m_running GUARDED_BY(m_controlMutex) = false;
    bool m_warned GUARDED_BY(m_controlMutex) = false;
    bool m_closed GUARDED_BY(m_controlMutex) = false;
    orv::Mutex m_settingsMutex; ///< makes reading and writing back the resend settings one step
    /// Makes telling an error and registering for it exclude each other; taken before m_eventMutex.
    orv::Mutex m_errorMutex;
    std::vector<std::pair<GC_ERROR, std::string>> m_untold GUARDED_BY(m_errorMutex);
    const RegisterMap m_registers;
};

} // namespace nuvark
