#include "tests/simulator/DescriptionChecks.h"

#include "tests/simulator/XmlTree.h"

#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <sstream>

namespace orvsim {

namespace {

using Problems = std::vector<std::string>;

// The schema's order of what descriptions here are made of; whatever else it knows is added with its first use.
// a|b: one of them, *: any number, !: at least one.
const std::string kHead =
    "ToolTip Description DisplayName Visibility EventID pIsImplemented pIsAvailable pIsLocked ImposedAccessMode ";
const std::string kNode = kHead + "pInvalidator* ";
const std::string kRegister = kHead + "Streamable Address|pAddress*! Length! AccessMode! pPort! Cachable PollingTime "
                                      "pInvalidator* ";
const std::string kLimits = "Min|pMin Max|pMax Inc|pInc Unit Representation ";
const std::string kLook = "Unit Representation DisplayNotation DisplayPrecision ";

const std::map<std::string, std::string> kOrders = {
    {"Category", kNode + "pFeature*"},
    {"Integer", kNode + "Streamable pValue! " + kLimits + "pSelected*"},
    {"Float", kNode + "Streamable pValue! " + kLimits},
    {"Boolean", kNode + "Streamable pValue! OnValue OffValue"},
    {"Enumeration", kNode + "Streamable EnumEntry*! pValue! pSelected* PollingTime"},
    {"EnumEntry", kNode + "Value!"},
    {"Command", kNode + "pValue! CommandValue! PollingTime"},
    {"IntReg", kRegister + "Sign Endianess! Unit Representation"},
    {"MaskedIntReg", kRegister + "Bit|LSB! MSB Sign Endianess! Unit Representation"},
    {"FloatReg", kRegister + "Endianess! " + kLook},
    {"StringReg", kRegister},
    {"Converter", kNode + "Streamable pVariable* FormulaTo! FormulaFrom! pValue! " + kLook + "Slope"},
    {"SwissKnife", kNode + "pVariable* Formula! " + kLook},
    {"IntSwissKnife", kNode + "pVariable* Formula! Unit Representation"},
    {"Port", kNode + "ChunkID SwapEndianess CacheChunkData"},
};

const std::map<std::string, std::string> kSpellings = {
    {"Visibility", "Beginner Expert Guru Invisible"},
    {"AccessMode", "RO RW WO"},
    {"Cachable", "NoCache WriteThrough WriteAround"},
    {"Sign", "Signed Unsigned"},
    {"Endianess", "BigEndian LittleEndian"},
    {"Streamable", "Yes No"},
    {"Representation", "Linear Logarithmic Boolean PureNumber HexNumber IPV4Address MACAddress"},
    {"OnValue", "1"},
    {"OffValue", "0"},
};

std::set<std::string> Split(const std::string &text)
{
    std::istringstream words(text);
    return {std::istream_iterator<std::string>(words), {}};
}

/// What the tags of a node's children, each with a blank behind it, must match.
std::regex OrderOf(const std::string &nodeTag)
{
    std::string form;
    std::istringstream words(kOrders.at(nodeTag));
    for (std::string word; words >> word;) {
        const bool isRequired = word.back() == '!';
        word.erase(word.find_last_not_of('!') + 1);
        const bool isRepeatable = word.back() == '*';
        word.erase(word.find_last_not_of('*') + 1);
        form += "(?:(?:" + word + ") )" + (isRequired ? (isRepeatable ? "+" : "") : (isRepeatable ? "*" : "?"));
    }
    return std::regex(form);
}

void CheckOrder(const XmlElement &node, Problems &problems)
{
    std::string tags;
    for (const XmlElement &child : node.children)
        tags += child.tag + " ";
    if (!std::regex_match(tags, OrderOf(node.tag)))
        problems.push_back(node.Name() + ": something is missing or not at its place: " + tags);
}

void CheckSpelling(const XmlElement &node, Problems &problems)
{
    for (const XmlElement &child : node.children) {
        const auto allowed = kSpellings.find(child.tag);
        if (allowed != kSpellings.end() && Split(allowed->second).count(child.text) == 0)
            problems.push_back(node.Name() + ": <" + child.tag + "> says '" + child.text + "'");
    }
}

constexpr const char *kNameSpace = "http://www.genicam.org/GenApi/Version_1_1";

void CheckRoot(const XmlElement &root, Problems &problems)
{
    const std::pair<const char *, const char *> fixed[] = {{"SchemaMajorVersion", "1"},
                                                           {"SchemaMinorVersion", "1"},
                                                           {"SchemaSubMinorVersion", "0"},
                                                           {"xmlns", kNameSpace}};
    const auto textOf = [&](const std::string &name) {
        const auto found = root.attributes.find(name);
        return found == root.attributes.end() ? std::string() : found->second;
    };
    for (const auto &[name, value] : fixed) {
        if (textOf(name) != value)
            problems.push_back(std::string("root: ") + name + " is '" + textOf(name) + "'");
    }
    for (const char *name : {"ModelName", "VendorName", "StandardNameSpace", "MajorVersion", "MinorVersion",
                             "SubMinorVersion", "ProductGuid", "VersionGuid"}) {
        if (textOf(name).empty())
            problems.push_back(std::string("root: lacks ") + name);
    }
}

/// Nodes of unknown kind, without a name or with one that was there before are left out.
std::map<std::string, const XmlElement *> NodesOf(const XmlElement &root, Problems &problems)
{
    std::map<std::string, const XmlElement *> nodes;
    for (const XmlElement &child : root.children) {
        if (kOrders.count(child.tag) == 0)
            problems.push_back(child.Name() + ": <" + child.tag + "> is no node");
        else if (child.Name().empty())
            problems.push_back("<" + child.tag + "> has no name");
        else if (!nodes.emplace(child.Name(), &child).second)
            problems.push_back(child.Name() + ": the name is there twice");
    }
    return nodes;
}

void CheckReferences(const std::map<std::string, const XmlElement *> &nodes, const XmlElement &node, Problems &problems)
{
    for (const XmlElement &child : node.children) {
        if (child.tag[0] != 'p')
            continue;
        const auto target = nodes.find(child.text);
        const std::string where = node.Name() + ": <" + child.tag + "> ";
        if (target == nodes.end())
            problems.push_back(where + "refers to '" + child.text + "', which does not exist");
        else if ((child.tag == "pPort") != (target->second->tag == "Port"))
            problems.push_back(where + "refers to a " + target->second->tag);
    }
}

/// Whether the parentheses, worked out one by one, leave one value, each with one of the standard's operations between
/// two numbers or declared names: such a formula is read alike by every consumer.
bool IsPlainFormula(std::string formula, const std::set<std::string> &names, bool isInteger)
{
    std::string operand = isInteger ? "\\d+" : "\\d+(?:\\.\\d+)?";
    for (const std::string &name : names)
        operand += "|" + name;
    const std::string sign = "[-+*/%&|^=<>]|\\*\\*|<<|>>|<>|<=|>=|&&|\\|\\|";
    const std::regex operation("\\((?:" + operand + ") (?:" + sign + ") (?:" + operand + ")\\)");
    for (std::string rest; (rest = std::regex_replace(formula, operation, "0")) != formula;)
        formula = rest;
    return std::regex_match(formula, std::regex(operand));
}

void CheckFormulas(const XmlElement &node, Problems &problems)
{
    static const std::regex kReserved("SGN|NEG|ROUND|TRUNC|FLOOR|CEIL|ABS|SQRT|A?(SIN|COS|TAN)|EXP|LN|LG|E|PI");
    std::set<std::string> names;
    for (const XmlElement &child : node.children) {
        if (child.tag != "pVariable")
            continue;
        names.insert(child.Name());
        if (!std::regex_match(child.Name(), std::regex("[A-Za-z]\\w*")) || std::regex_match(child.Name(), kReserved))
            problems.push_back(node.Name() + ": a formula's variable cannot be called '" + child.Name() + "'");
    }
    const bool isInteger = node.tag == "IntSwissKnife";
    for (const XmlElement &child : node.children) {
        if (child.tag.compare(0, 7, "Formula") != 0)
            continue;
        std::set<std::string> known = names;
        if (child.tag != "Formula")
            known.insert(child.tag == "FormulaTo" ? "FROM" : "TO");
        if (!IsPlainFormula(child.text, known, isInteger))
            problems.push_back(node.Name() + ": <" + child.tag + "> " + child.text + " is not read alike everywhere");
    }
}

void CheckNode(const std::map<std::string, const XmlElement *> &nodes, const XmlElement &node, Problems &problems)
{
    CheckOrder(node, problems);
    CheckSpelling(node, problems);
    CheckReferences(nodes, node, problems);
    CheckFormulas(node, problems);
    for (const XmlElement &child : node.children) {
        if (child.tag == "EnumEntry")
            CheckNode(nodes, child, problems);
    }
}

} // namespace

std::vector<std::string> DescriptionProblems(const std::string &xml)
{
    XmlElement root;
    std::string error;
    if (!ParseXml(xml, root, error))
        return {error};
    if (root.tag != "RegisterDescription")
        return {"root: the element is <" + root.tag + ">"};
    Problems problems;
    CheckRoot(root, problems);
    const auto nodes = NodesOf(root, problems);
    for (const auto &[name, node] : nodes)
        CheckNode(nodes, *node, problems);
    if (nodes.count("Root") == 0 || nodes.at("Root")->tag != "Category")
        problems.emplace_back("Root: there is no such category");
    return problems;
}

} // namespace orvsim
