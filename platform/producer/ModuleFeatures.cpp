#include "producer/ModuleFeatures.h"

namespace nuvark {

ModuleFeature TextFeature(std::string name, std::string category, std::string toolTip,
                          std::function<std::string()> value, std::string selector)
{
    ModuleFeature feature;
    feature.name = std::move(name);
    feature.category = std::move(category);
    feature.toolTip = std::move(toolTip);
    feature.text = std::move(value);
    feature.selector = std::move(selector);
    return feature;
}

ModuleFeature NumberFeature(std::string name, std::string category, std::string toolTip,
                            std::function<std::int64_t()> value, std::string selector, std::string representation)
{
    ModuleFeature feature;
    feature.type = ModuleFeature::Type::Integer;
    feature.name = std::move(name);
    feature.category = std::move(category);
    feature.toolTip = std::move(toolTip);
    feature.number = std::move(value);
    feature.selector = std::move(selector);
    feature.representation = std::move(representation);
    return feature;
}

ModuleFeature SettingFeature(std::string name, std::string category, std::string toolTip,
                             std::function<std::int64_t()> value, std::function<Status(std::int64_t)> write,
                             std::function<std::int64_t()> maximum, std::string selector)
{
    ModuleFeature feature =
        NumberFeature(std::move(name), std::move(category), std::move(toolTip), std::move(value), std::move(selector));
    feature.write = std::move(write);
    feature.maximum = std::move(maximum);
    return feature;
}

ModuleFeature SelectorFeature(std::string name, std::string category, std::string toolTip,
                              std::atomic<std::uint32_t> &index, std::function<std::int64_t()> maximum)
{
    const auto write = [&index](std::int64_t value) {
        index = static_cast<std::uint32_t>(value);
        return Status();
    };
    return SettingFeature(
        std::move(name), std::move(category), std::move(toolTip), [&index] { return std::int64_t{index}; }, write,
        std::move(maximum));
}

ModuleFeature CommandFeature(std::string name, std::string category, std::string toolTip,
                             std::function<Status()> command, std::string selector)
{
    ModuleFeature feature;
    feature.selector = std::move(selector);
    feature.type = ModuleFeature::Type::Command;
    feature.name = std::move(name);
    feature.category = std::move(category);
    feature.toolTip = std::move(toolTip);
    feature.write = [command = std::move(command)](std::int64_t) { return command(); };
    return feature;
}

ModuleFeature ChoiceFeature(std::string name, std::string category, std::string toolTip,
                            std::vector<std::pair<std::string, std::int64_t>> entries,
                            std::function<std::int64_t()> value, std::string selector)
{
    ModuleFeature feature =
        NumberFeature(std::move(name), std::move(category), std::move(toolTip), std::move(value), std::move(selector));
    feature.type = ModuleFeature::Type::Enumeration;
    feature.entries = std::move(entries);
    return feature;
}

ModuleFeature YesNoFeature(std::string name, std::string category, std::string toolTip, std::function<bool()> value,
                           std::function<Status(bool)> write)
{
    ModuleFeature feature = NumberFeature(std::move(name), std::move(category), std::move(toolTip),
                                          [value = std::move(value)] { return value() ? 1 : 0; });
    feature.type = ModuleFeature::Type::Boolean;
    if (write != nullptr)
        feature.write = [write = std::move(write)](std::int64_t number) { return write(number != 0); };
    return feature;
}

ModuleFeature TransportTypeFeature(std::string name, std::string category)
{
    return ChoiceFeature(
        std::move(name), std::move(category), "Transport technology",
        {{"Custom", 1}, {"GigEVision", 2}, {"USB3Vision", 3}, {"CameraLink", 4}, {"CameraLinkHS", 5}, {"CoaXPress", 6}},
        [] { return 2; });
}

ModuleFeature AccessStatusFeature(std::string category, std::function<std::int64_t()> value, std::string selector)
{
    return ChoiceFeature("DeviceAccessStatus", std::move(category), "What can be done with the device now",
                         {{"Unknown", DEVICE_ACCESS_STATUS_UNKNOWN},
                          {"ReadWrite", DEVICE_ACCESS_STATUS_READWRITE},
                          {"ReadOnly", DEVICE_ACCESS_STATUS_READONLY},
                          {"NoAccess", DEVICE_ACCESS_STATUS_NOACCESS},
                          {"Busy", DEVICE_ACCESS_STATUS_BUSY},
                          {"OpenReadWrite", DEVICE_ACCESS_STATUS_OPEN_READWRITE},
                          {"OpenReadOnly", DEVICE_ACCESS_STATUS_OPEN_READONLY}},
                         std::move(value), std::move(selector));
}

} // namespace nuvark
