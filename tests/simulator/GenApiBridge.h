#pragma once

#include "simulator/features/Feature.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace orvsim {

/// A description as somebody else's GenApi (libaravis) sees it, over registers that the test provides.
///
///     GenApiBridge bridge(camera.DescriptionXml(), read, write);
///     for (const std::string &name : bridge.Features())
///         EXPECT_EQ(bridge.Get(name), camera.GetFeature(name)) << name << bridge.Error();
///
/// Texts are those of FeatureTable::GetText. A call that fails returns an empty text, false or zeros, and Error() says
/// why until the next call. Own thread only.
class GenApiBridge {
public:
    using Read = std::function<Outcome(std::uint32_t address, std::uint32_t size, std::uint8_t *bytes)>;
    using Write = std::function<Outcome(std::uint32_t address, std::uint32_t size, const std::uint8_t *bytes)>;

    GenApiBridge(const std::string &xml, Read read, Write write);
    ~GenApiBridge();
    /// False when the library did not take the description, or finds no category "Root" in it.
    bool IsOpen() const;
    /// From now on registers are read anew only when the description says that they may have changed.
    void CacheRegisters();

    /// All that the categories list, in the order of the tree, each once.
    std::vector<std::string> Features() const;
    /// "Integer", "Float", "Enumeration", "Boolean", "Command", "String", "Category", "Other"; empty: no such node.
    std::string KindOf(const std::string &name) const;
    std::string Get(const std::string &name);
    /// By text; a command is run whatever the text. The library checks limits and access first, not lock and
    /// availability: those the registers themselves must refuse.
    bool Set(const std::string &name, const std::string &text);

    IntegerRange IntegerRangeOf(const std::string &name);
    FloatRange FloatRangeOf(const std::string &name);
    bool IsAvailable(const std::string &name);
    bool IsLocked(const std::string &name);
    /// "RO", "RW", "WO"
    std::string AccessOf(const std::string &name);

    const std::string &Error() const;

private:
    struct Parts;
    std::unique_ptr<Parts> m_parts;
};

} // namespace orvsim
