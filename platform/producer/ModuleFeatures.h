#pragma once

#include "producer/RegisterMap.h"

#include <atomic>
#include <functional>
#include <string>

/// Rows for the modules' feature tables.
namespace nuvark {

ModuleFeature TextFeature(std::string name, std::string category, std::string toolTip,
                          std::function<std::string()> value, std::string selector = {});
ModuleFeature NumberFeature(std::string name, std::string category, std::string toolTip,
                            std::function<std::int64_t()> value, std::string selector = {},
                            std::string representation = {});
/// A number from 0 to what `maximum` says that can be written.
ModuleFeature SettingFeature(std::string name, std::string category, std::string toolTip,
                             std::function<std::int64_t()> value, std::function<Status(std::int64_t)> write,
                             std::function<std::int64_t()> maximum, std::string selector = {});
/// An index from 0 to what `maximum` says, kept in `index`.
ModuleFeature SelectorFeature(std::string name, std::string category, std::string toolTip,
                              std::atomic<std::uint32_t> &index, std::function<std::int64_t()> maximum);
ModuleFeature CommandFeature(std::string name, std::string category, std::string toolTip,
                             std::function<Status()> command, std::string selector = {});
ModuleFeature ChoiceFeature(std::string name, std::string category, std::string toolTip,
                            std::vector<std::pair<std::string, std::int64_t>> entries,
                            std::function<std::int64_t()> value, std::string selector = {});

ModuleFeature YesNoFeature(std::string name, std::string category, std::string toolTip, std::function<bool()> value,
                           std::function<Status(bool)> write = {});

/// TLType, InterfaceType, DeviceType and StreamType: always GigE Vision as yet.
ModuleFeature TransportTypeFeature(std::string name, std::string category);
/// DeviceAccessStatus, whose entries are those of DEVICE_ACCESS_STATUS.
ModuleFeature AccessStatusFeature(std::string category, std::function<std::int64_t()> value, std::string selector = {});

} // namespace nuvark
