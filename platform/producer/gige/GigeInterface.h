#pragma once

#include "base/Mutex.h"
#include "producer/gige/Discovery.h"
#include "producer/Transport.h"

#include <memory>
#include <vector>

namespace nuvark::gige {

/// A network interface with GigE Vision cameras on it.
///
/// It is one link name and one address for its whole life. The rest, above all the system's number of the link, is
/// looked up anew for each search and each opening: an adapter that is plugged in again has got another number.
class GigeInterface final : public HostInterface {
public:
    explicit GigeInterface(NetworkInterface interface);

    InterfaceRecord Record() const override EXCLUDES(m_mutex);
    Result<std::vector<DeviceRecord>> Discover(std::chrono::milliseconds window) override;
    Result<DeviceRecord> Find(const std::string &name) override;
    Status ForceAddress(const DeviceRecord &device, std::uint32_t address, std::uint32_t mask,
                        std::uint32_t gateway) override;
    Result<std::unique_ptr<Camera>> Open(const DeviceRecord &device, CameraAccess access,
                                         CameraListener &listener) override;

private:
    NetworkInterface Known() const EXCLUDES(m_mutex);
    /// As the system has it now; as it was last where the system does not list it.
    NetworkInterface Present(const std::vector<NetworkInterface> &all = ListNetworkInterfaces()) EXCLUDES(m_mutex);

    mutable orv::Mutex m_mutex;
    NetworkInterface m_interface GUARDED_BY(m_mutex);
};

/// One entry per IPv4 address of this host.
std::vector<std::shared_ptr<HostInterface>> ListGigeInterfaces();

/// The list entry for a camera that was found.
DeviceRecord MakeRecord(const FoundDevice &device);

} // namespace nuvark::gige
