#pragma once

#include <map>
#include <string>
#include <vector>

namespace orvsim {

struct XmlElement {
    std::string tag;
    std::map<std::string, std::string> attributes;
    std::string text; ///< directly inside, as it stands
    std::vector<XmlElement> children;

    std::string Name() const;
    /// Text of the first child of that tag; empty without one.
    std::string TextOf(const std::string &childTag) const;
    /// The first child with that attribute "Name"; an element without anything when there is none.
    const XmlElement &Named(const std::string &name) const;
};

/// \return false with the reason when the text is not well formed.
bool ParseXml(const std::string &xml, XmlElement &root, std::string &error);

} // namespace orvsim
