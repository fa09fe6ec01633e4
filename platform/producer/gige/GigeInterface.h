#pragma once

#include "producer/gige/Discovery.h"
#include "producer/Transport.h"

#include <memory>
#include <vector>

namespace nuvark::gige {

/// A network interface with GigE Vision cameras on it. Does not change once made.
class GigeInterface final : public HostInterface {
public:
    explicit GigeInterface(NetworkInterface interface);

    const InterfaceRecord &Record() const override { return m_record; }
    std::vector<DeviceRecord> Discover(std::chrono::milliseconds window) override;
    Result<DeviceRecord> Find(const std::string &name) override;
    Status ForceAddress(const DeviceRecord &device, std::uint32_t address, std::uint32_t mask,
                        std::uint32_t gateway) override;
    Result<std::unique_ptr<Camera>> Open(const DeviceRecord &device, CameraAccess access,
                                         CameraListener &listener) override;

private:
    const NetworkInterface m_interface;
    InterfaceRecord m_record;
};

/// One entry per IPv4 address of this host.
std::vector<std::shared_ptr<HostInterface>> ListGigeInterfaces();

/// The list entry for a camera that was found.
DeviceRecord MakeRecord(const FoundDevice &device);

} // namespace nuvark::gige
