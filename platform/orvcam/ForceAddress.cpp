#include "orvcam/ForceAddress.h"

#include "orvcam/OrvStatus.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>

namespace orv::cam {

namespace {

constexpr std::int64_t kMostDevices = 4096;

bool ParseAddress(const std::string &text, std::uint32_t *address)
{
    in_addr parsed{};
    if (inet_pton(AF_INET, text.c_str(), &parsed) != 1)
        return false;
    *address = ntohl(parsed.s_addr);
    return true;
}

/// Set bits from the left, and room for more than one host.
bool IsMask(std::uint32_t mask)
{
    const std::uint32_t hosts = ~mask;
    return mask != 0 && (hosts & (hosts + 1)) == 0 && hosts >= 3;
}

bool IsHost(std::uint32_t address, std::uint32_t mask)
{
    const std::uint32_t host = address & ~mask;
    return address >> 24 != 0 && address >> 24 < 224 && host != 0 && host != ~mask;
}

std::string MacText(std::int64_t mac)
{
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", static_cast<unsigned>(mac >> 40 & 0xff),
                  static_cast<unsigned>(mac >> 32 & 0xff), static_cast<unsigned>(mac >> 24 & 0xff),
                  static_cast<unsigned>(mac >> 16 & 0xff), static_cast<unsigned>(mac >> 8 & 0xff),
                  static_cast<unsigned>(mac & 0xff));
    return text;
}

bool IsSelected(OrvCam::FeatureArray &interface, const OrvCam::DeviceDescription &device)
{
    int status = ORV_CAM_OK;
    if (OrvCam::StringNode *id = interface.GetString("DeviceID")) {
        const std::string selected = id->GetValue(&status);
        if (status == ORV_CAM_OK && selected == device.id)
            return true;
    }
    OrvCam::IntegerNode *mac = device.mac.empty() ? nullptr : interface.GetInt("GevDeviceMACAddress");
    if (mac == nullptr)
        return false;
    const std::int64_t selected = mac->GetValue(&status);
    return status == ORV_CAM_OK && MacText(selected) == device.mac;
}

int Select(OrvCam::FeatureArray &interface, const OrvCam::DeviceDescription &device)
{
    OrvCam::IntegerNode *selector = interface.GetInt("DeviceSelector");
    if (selector == nullptr)
        return ORV_CAM_ERR_NOT_IMPLEMENTED;
    int status = ORV_CAM_OK;
    const std::int64_t first = selector->GetMin(&status);
    const std::int64_t last = std::min(selector->GetMax(), first + kMostDevices);
    for (std::int64_t i = first; status == ORV_CAM_OK && i <= last; ++i) {
        // One that cannot be selected is none: with an empty list the selector's only value may mean nothing.
        if (selector->SetValue(i) == ORV_CAM_OK && IsSelected(interface, device))
            return ORV_CAM_OK;
    }
    return status != ORV_CAM_OK ? status : ORV_CAM_ERR_NOT_FOUND;
}

int Write(OrvCam::FeatureArray &interface, const ForcedAddress &address)
{
    const struct {
        const char *name;
        std::uint32_t value;
        bool isNeeded;
    } kSettings[] = {
        {"GevDeviceForceIPAddress", address.address, true},
        {"GevDeviceForceSubnetMask", address.subnetMask, true},
        {"GevDeviceForceGateway", address.gateway, address.gateway != 0},
    };
    for (const auto &row : kSettings) {
        const int status = interface.SetIntegerValue(row.name, row.value);
        if (status != ORV_CAM_OK && (row.isNeeded || status != ORV_CAM_ERR_FEATURE_NOT_PRESENT))
            return status == ORV_CAM_ERR_FEATURE_NOT_PRESENT ? ORV_CAM_ERR_NOT_IMPLEMENTED : status;
    }
    const int status = interface.ExecuteCommand("GevDeviceForceIP");
    return status == ORV_CAM_ERR_FEATURE_NOT_PRESENT ? ORV_CAM_ERR_NOT_IMPLEMENTED : status;
}

} // namespace

bool ParseForcedAddress(const std::string &address, const std::string &subnetMask, const std::string &gateway,
                        ForcedAddress *forced, std::string *error)
{
    if (!ParseAddress(subnetMask, &forced->subnetMask) || !IsMask(forced->subnetMask)) {
        *error = "\"" + subnetMask + "\" is no subnet mask.";
        return false;
    }
    if (!ParseAddress(address, &forced->address) || !IsHost(forced->address, forced->subnetMask)) {
        *error = "\"" + address + "\" is no address that a device can have with the mask " + subnetMask + ".";
        return false;
    }
    forced->gateway = 0;
    const bool isAddress = gateway.empty() || ParseAddress(gateway, &forced->gateway);
    const bool isOutside = ((forced->gateway ^ forced->address) & forced->subnetMask) != 0;
    if (!isAddress || (forced->gateway != 0 && isOutside)) {
        *error = "\"" + gateway + "\" is no gateway in the subnet of " + address + ".";
        return false;
    }
    return true;
}

int ForceAddressThrough(OrvCam::FeatureArray &interface, const OrvCam::DeviceDescription &device,
                        const ForcedAddress &address)
{
    const int status = Select(interface, device);
    return status == ORV_CAM_OK ? Write(interface, address) : status;
}

std::string ForceAddressFailure(const OrvCam::DeviceDescription &device, int status, const std::string &words)
{
    if (status == ORV_CAM_ERR_NOT_IMPLEMENTED)
        return "The GenTL producer " + device.interface.producer + " cannot set addresses.";
    if (status == ORV_CAM_ERR_NOT_FOUND)
        return "The interface " + device.interface.text + " does not see the camera " + device.id + ".";
    if (status == ORV_CAM_ERR_TIMEOUT)
        return "The camera " + device.id +
               " did not confirm its new address; one that a program controls keeps its own.";
    const std::string failure = "The address of the camera " + device.id + " could not be set";
    return words.empty() ? failure + ". " + OrvCam_StatusText(status) : failure + ": " + words + ".";
}

} // namespace orv::cam
