#pragma once

#include <string>
#include <utility>
#include <vector>

namespace orvsim {

/// Writes XML, one element per line, escaped and indented.
class XmlWriter {
public:
    using Attributes = std::vector<std::pair<std::string, std::string>>;

    XmlWriter() : m_text("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n") {}

    void Open(const std::string &tag, const Attributes &attributes = {});
    void Close();
    void Leaf(const std::string &tag, const std::string &text, const Attributes &attributes = {});
    /// Nothing for an empty text.
    void OptionalLeaf(const std::string &tag, const std::string &text);
    /// One element per text.
    void Leaves(const std::string &tag, const std::vector<std::string> &texts);

    std::string Take() { return std::move(m_text); }

private:
    void StartTag(const std::string &tag, const Attributes &attributes);

    std::string m_text;
    std::vector<std::string> m_open;
};

} // namespace orvsim
