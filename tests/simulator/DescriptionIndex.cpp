#include "tests/simulator/DescriptionIndex.h"

#include "tests/simulator/SchemaOrder.h"

#include <algorithm>
#include <cctype>

namespace orvsim {

namespace {

bool IsReferenceTag(const std::string &tag)
{
    return tag.size() > 1 && tag[0] == 'p' && std::isupper(static_cast<unsigned char>(tag[1])) != 0;
}

/// Whether reading the node's value, limits or access reads the other.
bool IsRead(const std::string &tag)
{
    static const std::set<std::string> kNamesOnly = {"pSelected", "pInvalidator", "pFeature", "pError",
                                                     "pAlias",    "pCastAlias",   "pPort"};
    return kNamesOnly.count(tag) == 0;
}

} // namespace

DescriptionIndex::DescriptionIndex(const XmlElement &root, std::vector<std::string> &problems)
{
    Collect(root, problems);
}

void DescriptionIndex::Collect(const XmlElement &parent, std::vector<std::string> &problems)
{
    for (const XmlElement &child : parent.children) {
        if (child.tag == "Group") {
            Collect(child, problems);
        } else if (!IsNodeTag(child.tag)) {
            problems.push_back(child.Name() + ": <" + child.tag + "> is no node");
        } else if (child.Name().empty()) {
            problems.push_back("<" + child.tag + "> has no name");
        } else if (!m_byName.emplace(child.Name(), &child).second) {
            problems.push_back(child.Name() + ": the name is there twice");
        } else {
            m_nodes.push_back(&child);
            for (const XmlElement &part : child.children) {
                if (part.tag == "EnumEntry")
                    m_entries.push_back(&part);
            }
        }
    }
}

const XmlElement *DescriptionIndex::Find(const std::string &name) const
{
    const auto found = m_byName.find(name);
    return found == m_byName.end() ? nullptr : found->second;
}

std::vector<DescriptionIndex::Reference> DescriptionIndex::ReferencesOf(const XmlElement &node)
{
    std::vector<Reference> references;
    for (const XmlElement &child : node.children) {
        if (IsReferenceTag(child.tag))
            references.push_back({child.tag, child.text});
        if (const auto offset = child.attributes.find("pOffset"); offset != child.attributes.end())
            references.push_back({"pOffset", offset->second});
    }
    return references;
}

std::vector<DescriptionIndex::Reference> DescriptionIndex::AllReferencesOf(const XmlElement &node) const
{
    std::vector<Reference> references = ReferencesOf(node);
    for (const XmlElement &child : node.children) {
        if (child.tag != "EnumEntry")
            continue;
        const std::vector<Reference> more = ReferencesOf(child);
        references.insert(references.end(), more.begin(), more.end());
    }
    return references;
}

bool DescriptionIndex::IsRegister(const XmlElement &node)
{
    return (node.tag.size() > 3 && node.tag.compare(node.tag.size() - 3, 3, "Reg") == 0) || node.tag == "Register";
}

bool DescriptionIndex::IsIntegerLike(const XmlElement &node)
{
    static const std::set<std::string> kTags = {"Integer",      "IntReg",        "MaskedIntReg",
                                                "IntConverter", "IntSwissKnife", "StructEntry"};
    return kTags.count(node.tag) != 0;
}

void DescriptionIndex::Walk(const XmlElement &node, std::vector<std::string> &path, std::set<std::string> &done,
                            std::vector<std::string> &loops) const
{
    const auto onPath = std::find(path.begin(), path.end(), node.Name());
    if (onPath != path.end()) {
        std::string loop;
        for (auto it = onPath; it != path.end(); ++it)
            loop += *it + " -> ";
        loops.push_back(loop + node.Name() + ": a loop of values");
        return;
    }
    if (done.count(node.Name()) != 0)
        return;
    path.push_back(node.Name());
    for (const Reference &reference : AllReferencesOf(node)) {
        const XmlElement *target = Find(reference.target);
        if (target != nullptr && IsRead(reference.tag))
            Walk(*target, path, done, loops);
    }
    path.pop_back();
    done.insert(node.Name());
}

std::vector<std::string> DescriptionIndex::Loops() const
{
    std::vector<std::string> loops;
    std::set<std::string> done;
    std::vector<std::string> path;
    for (const XmlElement *node : m_nodes)
        Walk(*node, path, done, loops);
    return loops;
}

std::set<std::string> DescriptionIndex::ReachedFrom(const std::string &name) const
{
    std::set<std::string> reached = {name};
    std::vector<std::string> open = {name};
    while (!open.empty()) {
        const XmlElement *node = Find(open.back());
        open.pop_back();
        if (node == nullptr)
            continue;
        for (const Reference &reference : AllReferencesOf(*node)) {
            if (reached.insert(reference.target).second)
                open.push_back(reference.target);
        }
    }
    return reached;
}

} // namespace orvsim
