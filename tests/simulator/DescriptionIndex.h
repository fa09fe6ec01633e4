#pragma once

#include "tests/simulator/XmlTree.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace orvsim {

/// The nodes of a description and what refers to what. Refers to the tree it was made of.
class DescriptionIndex {
public:
    struct Reference {
        std::string tag;
        std::string target;
    };

    /// Nodes of unknown kind, without a name or with one that was there before are added to `problems` and left out.
    DescriptionIndex(const XmlElement &root, std::vector<std::string> &problems);

    const std::vector<const XmlElement *> &Nodes() const { return m_nodes; }
    /// The enumerations' entries: their names count within their enumeration only.
    const std::vector<const XmlElement *> &Entries() const { return m_entries; }
    const XmlElement *Find(const std::string &name) const;

    static std::vector<Reference> ReferencesOf(const XmlElement &node);
    static bool IsRegister(const XmlElement &node);
    static bool IsIntegerLike(const XmlElement &node);

    /// Values that are read for their own reading: "A -> B -> A", each loop once.
    std::vector<std::string> Loops() const;
    /// Names of all nodes that the references from a node on lead to, itself included.
    std::set<std::string> ReachedFrom(const std::string &name) const;

private:
    void Collect(const XmlElement &parent, std::vector<std::string> &problems);
    std::vector<Reference> AllReferencesOf(const XmlElement &node) const;
    void Walk(const XmlElement &node, std::vector<std::string> &path, std::set<std::string> &done,
              std::vector<std::string> &loops) const;

    std::vector<const XmlElement *> m_nodes;
    std::vector<const XmlElement *> m_entries;
    std::map<std::string, const XmlElement *> m_byName;
};

} // namespace orvsim
