#include "orvcam/InterfaceListImp.h"

#include <algorithm>
#include <map>

namespace orv::cam {

namespace {

std::string KeyOf(const OrvCam::DeviceDescription &device)
{
    return device.serial + '\n' + device.vendor + '\n' + device.model;
}

} // namespace

void RemoveDoubles(std::vector<InterfaceDevices> *found)
{
    struct Owner {
        std::string producer;
        bool isOurs = false;
    };
    std::map<std::string, Owner> owners;
    for (const InterfaceDevices &list : *found) {
        for (const OrvCam::DeviceDescription &device : list.devices) {
            Owner &owner = owners[KeyOf(device)];
            if (owner.producer.empty() || (list.isOurs && !owner.isOurs))
                owner = {list.interface.producer, list.isOurs};
        }
    }
    for (InterfaceDevices &list : *found) {
        const auto isDouble = [&](const OrvCam::DeviceDescription &device) {
            return !device.serial.empty() && owners[KeyOf(device)].producer != list.interface.producer;
        };
        list.devices.erase(std::remove_if(list.devices.begin(), list.devices.end(), isDouble), list.devices.end());
    }
}

const OrvCam::DeviceDescription *DeviceListImp::First()
{
    m_at = 0;
    return Next();
}

const OrvCam::DeviceDescription *DeviceListImp::Next()
{
    return m_at < m_found.devices.size() ? &m_found.devices[m_at++] : nullptr;
}

InterfaceListImp::InterfaceListImp(std::vector<InterfaceDevices> found)
{
    for (InterfaceDevices &list : found)
        m_lists.emplace_back(std::move(list));
}

OrvCam::DeviceList *InterfaceListImp::First()
{
    m_at = 0;
    return Next();
}

OrvCam::DeviceList *InterfaceListImp::Next()
{
    return m_at < m_lists.size() ? &m_lists[m_at++] : nullptr;
}

} // namespace orv::cam
