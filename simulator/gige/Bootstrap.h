#pragma once

#include "base/Mutex.h"
#include "simulator/core/CameraOptions.h"
#include "simulator/features/RegisterSpace.h"
#include "simulator/gige/BootstrapState.h"
#include "simulator/gige/GigeCamera.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace orvsim {

/// The user defined name is a feature of the camera; its register shows the same text.
struct UserName {
    std::function<std::string()> get;
    std::function<Outcome(const std::string &)> set;
};

/// The GigE Vision bootstrap registers (0x0000 to 0x9FFF) of a camera: identification, network, control, channels.
///
/// Writing a register changes the state and notes what has to happen because of it; whoever wrote asks TakeChanges()
/// and acts on it outside the camera's mutex.
///
/// Threads: AddTo() before the camera serves anybody; the rest from any thread. The registers' functions run with the
/// camera's mutex held, take this object's own for a moment and call nobody while they hold it.
class Bootstrap {
public:
    Bootstrap(const CameraOptions &camera, const GigeOptions &gige);

    void AddTo(RegisterSpace &space, const UserName &userName);
    /// Where the description lies: "Local:name.zip;ADDRESS;LENGTH".
    void SetUrl(const std::string &url) EXCLUDES(m_mutex);
    void SetSourcePorts(std::uint16_t messages, std::uint16_t stream) EXCLUDES(m_mutex);

    std::uint64_t Mac() const { return m_mac; }
    bool IsLegacy() const { return m_isLegacy; }
    BootstrapState State() const EXCLUDES(m_mutex);
    /// Change bits since the last call.
    std::uint32_t TakeChanges() EXCLUDES(m_mutex);
    /// Adds Change bits, for features that are commands.
    void Request(std::uint32_t changes) EXCLUDES(m_mutex);

    /// Whose writes follow: CCP takes the controller's identity from it.
    void SetCaller(const std::optional<Endpoint> &caller) EXCLUDES(m_mutex);
    void ReleaseControl() EXCLUDES(m_mutex);
    /// As after switching on. What lasts beyond it stays: the configuration of the network; its present address, which
    /// is the device's to change.
    void ResetState() EXCLUDES(m_mutex);
    void SetLatchedTimestamp(std::uint64_t ticks) EXCLUDES(m_mutex);
    void SetNetwork(const NetworkAddress &network) EXCLUDES(m_mutex);
    /// What the device configures by itself: the persistent address where that is switched on, else the first one.
    NetworkAddress ConfiguredNetwork() const EXCLUDES(m_mutex);

private:
    void AddIdentity(RegisterSpace &space, const UserName &userName);
    void AddConstants(RegisterSpace &space);
    void AddWords(RegisterSpace &space);

    const CameraOptions m_camera;
    const NetworkAddress m_firstNetwork;
    const std::uint32_t m_firstPacketSize;
    const std::uint64_t m_mac;
    const bool m_isLegacy;
    const bool m_hasParts;
    mutable orv::Mutex m_mutex;
    std::string m_url GUARDED_BY(m_mutex);
    BootstrapState m_state GUARDED_BY(m_mutex);
};

} // namespace orvsim
