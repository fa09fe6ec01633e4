#include "simulator/features/XmlWriter.h"

namespace orvsim {

namespace {

std::string Escaped(const std::string &text)
{
    std::string escaped;
    for (const char c : text) {
        switch (c) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

} // namespace

void XmlWriter::StartTag(const std::string &tag, const Attributes &attributes)
{
    m_text.append(2 * m_open.size(), ' ');
    m_text += "<" + tag;
    for (const auto &[name, value] : attributes)
        m_text += " " + name + "=\"" + Escaped(value) + "\"";
    m_text += ">";
}

void XmlWriter::Open(const std::string &tag, const Attributes &attributes)
{
    StartTag(tag, attributes);
    m_text += "\n";
    m_open.push_back(tag);
}

void XmlWriter::Close()
{
    const std::string tag = m_open.back();
    m_open.pop_back();
    m_text.append(2 * m_open.size(), ' ');
    m_text += "</" + tag + ">\n";
}

void XmlWriter::Leaf(const std::string &tag, const std::string &text, const Attributes &attributes)
{
    StartTag(tag, attributes);
    m_text += Escaped(text) + "</" + tag + ">\n";
}

void XmlWriter::OptionalLeaf(const std::string &tag, const std::string &text)
{
    if (!text.empty())
        Leaf(tag, text);
}

void XmlWriter::Leaves(const std::string &tag, const std::vector<std::string> &texts)
{
    for (const std::string &text : texts)
        Leaf(tag, text);
}

} // namespace orvsim
