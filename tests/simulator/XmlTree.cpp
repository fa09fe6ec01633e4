#include "tests/simulator/XmlTree.h"

#include <algorithm>
#include <expat.h>
#include <memory>

namespace orvsim {

namespace {

void Start(void *user, const XML_Char *name, const XML_Char **attributes)
{
    auto &open = *static_cast<std::vector<XmlElement> *>(user);
    XmlElement element;
    element.tag = name;
    for (const XML_Char **pair = attributes; *pair != nullptr; pair += 2)
        element.attributes[pair[0]] = pair[1];
    open.push_back(std::move(element));
}

/// The lowest element collects the finished ones.
void End(void *user, const XML_Char *)
{
    auto &open = *static_cast<std::vector<XmlElement> *>(user);
    XmlElement done = std::move(open.back());
    open.pop_back();
    open.back().children.push_back(std::move(done));
}

void Text(void *user, const XML_Char *text, int length)
{
    auto &open = *static_cast<std::vector<XmlElement> *>(user);
    open.back().text.append(text, static_cast<std::size_t>(length));
}

} // namespace

std::string XmlElement::Name() const
{
    const auto found = attributes.find("Name");
    return found == attributes.end() ? std::string() : found->second;
}

std::string XmlElement::TextOf(const std::string &childTag) const
{
    for (const XmlElement &child : children) {
        if (child.tag == childTag)
            return child.text;
    }
    return {};
}

const XmlElement &XmlElement::Named(const std::string &name) const
{
    static const XmlElement kNone;
    const auto found =
        std::find_if(children.begin(), children.end(), [&](const XmlElement &child) { return child.Name() == name; });
    return found == children.end() ? kNone : *found;
}

bool ParseXml(const std::string &xml, XmlElement &root, std::string &error)
{
    const std::unique_ptr<XML_ParserStruct, void (*)(XML_Parser)> parser(XML_ParserCreate(nullptr), XML_ParserFree);
    std::vector<XmlElement> open(1);
    XML_SetUserData(parser.get(), &open);
    XML_SetElementHandler(parser.get(), Start, End);
    XML_SetCharacterDataHandler(parser.get(), Text);
    if (XML_Parse(parser.get(), xml.data(), static_cast<int>(xml.size()), XML_TRUE) != XML_STATUS_OK) {
        error = std::string("not well formed: ") + XML_ErrorString(XML_GetErrorCode(parser.get())) + " in line " +
                std::to_string(XML_GetCurrentLineNumber(parser.get()));
        return false;
    }
    root = std::move(open.front().children.front());
    return true;
}

} // namespace orvsim
