#pragma once

#include "producer/Status.h"

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace nuvark {

/// One feature of a module: a row of its register map and of its description.
struct ModuleFeature {
    enum class Type { String, Integer, Boolean, Enumeration, Command };

    std::string name;
    std::string category;
    Type type = Type::String;
    std::string toolTip;
    std::function<std::string()> text = {};         ///< value of a String
    std::function<std::int64_t()> number = {};      ///< value of any other but a Command
    std::function<Status(std::int64_t)> write = {}; ///< null: read-only; for a Command what it does
    std::function<std::int64_t()> maximum = {};     ///< of an Integer that can be written
    std::function<bool()> locked = {};              ///< of one that can be written only at times: whether not now
    std::vector<std::pair<std::string, std::int64_t>> entries = {}; ///< of an Enumeration
    std::string selector = {}; ///< name of the Integer that chooses what this one shows
    std::string representation = {};
};

/// A module's own register space with the GenICam description of it, both made from one table of features.
///
/// Each feature has a slot of its own; numbers are 8 bytes, little-endian, strings are padded with zeros. The
/// description is a file in the same space. Does not change once made; the features' functions say which threads may
/// call them.
class RegisterMap {
public:
    /// \param module "system", \param portName "TLPort"
    RegisterMap(const std::string &module, std::string portName, std::vector<ModuleFeature> features);

    Status Read(std::uint64_t address, void *data, std::size_t size) const;
    Status Write(std::uint64_t address, const void *data, std::size_t size) const;

    const std::string &Description() const { return m_description; }
    std::string DescriptionFileName() const { return m_fileName; }
    static constexpr std::uint64_t kDescriptionAddress = 0x1000000;
    static constexpr int kDescriptionMajor = 1; ///< version of the file, 1.0.0

private:
    const std::string m_portName;
    const std::string m_fileName;
    const std::vector<ModuleFeature> m_features;
    std::string m_description;
};

} // namespace nuvark
