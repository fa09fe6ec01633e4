#pragma once

#include "orvcam/OrvCam.h"

#include <vector>

namespace orv::cam {

/// The devices that one interface found.
struct InterfaceDevices {
    OrvCam::InterfaceDescription interface;
    bool isOurs = false; ///< found by our own producer
    std::vector<OrvCam::DeviceDescription> devices;
};

/// Takes out the devices that another producer offers as well, known by serial number, vendor and model: ours stays,
/// else the first. Devices without a serial number, and those that one producer sees twice, all stay.
void RemoveDoubles(std::vector<InterfaceDevices> *found);

class DeviceListImp final : public OrvCam::DeviceList {
public:
    explicit DeviceListImp(InterfaceDevices found) : m_found(std::move(found)) {}
    const OrvCam::DeviceDescription *First() override;
    const OrvCam::DeviceDescription *Next() override;
    const OrvCam::InterfaceDescription &Interface() const override { return m_found.interface; }

private:
    InterfaceDevices m_found;
    std::size_t m_at = 0;
};

/// Deletes itself in Release(). Threads: one at a time.
class InterfaceListImp final : public OrvCam::InterfaceList {
public:
    explicit InterfaceListImp(std::vector<InterfaceDevices> found);
    OrvCam::DeviceList *First() override;
    OrvCam::DeviceList *Next() override;
    void Release() override { delete this; }

private:
    ~InterfaceListImp() = default;

    std::vector<DeviceListImp> m_lists;
    std::size_t m_at = 0;
};

} // namespace orv::cam
