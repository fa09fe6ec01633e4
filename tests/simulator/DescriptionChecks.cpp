#include "tests/simulator/DescriptionChecks.h"

#include "simulator/features/NumberText.h"
#include "tests/simulator/SchemaOrder.h"
#include "tests/simulator/XmlTree.h"

#include <map>
#include <optional>
#include <regex>
#include <set>

namespace orvsim {

namespace {

using Problems = std::vector<std::string>;
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
        if (!IsNodeTag(child.tag))
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
        if (child.tag == "pSelected" && node.tag == "Boolean")
            problems.push_back(where + "makes a selector of a Boolean");
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

void CheckEnumeration(const XmlElement &node, Problems &problems)
{
    std::set<std::string> names;
    std::set<std::string> values;
    for (const XmlElement &child : node.children) {
        if (child.tag != "EnumEntry")
            continue;
        if (!names.insert(child.Name()).second)
            problems.push_back(node.Name() + ": two entries are called " + child.Name());
        if (!values.insert(child.TextOf("Value")).second)
            problems.push_back(node.Name() + ": two entries have the value " + child.TextOf("Value"));
        if (!IntegerFrom(child.TextOf("Value")).has_value())
            problems.push_back(node.Name() + ": entry " + child.Name() + " has no whole number");
    }
}

void CheckBits(const XmlElement &node, std::int64_t bits, Problems &problems)
{
    const bool isSingle = node.Has("Bit");
    const std::int64_t lsb = IntegerFrom(node.TextOf(isSingle ? "Bit" : "LSB")).value_or(-1);
    const std::int64_t msb = IntegerFrom(node.TextOf(isSingle ? "Bit" : "MSB")).value_or(-1);
    const bool isBigEndian = node.TextOf("Endianess") == "BigEndian";
    if (lsb < 0 || msb < 0 || lsb >= bits || msb >= bits || (isBigEndian ? msb > lsb : msb < lsb))
        problems.push_back(node.Name() + ": the bits do not lie within the register, highest first as its byte order "
                                         "counts them");
}

void CheckRegister(const XmlElement &node, Problems &problems)
{
    const std::int64_t length = IntegerFrom(node.TextOf("Length")).value_or(0);
    const bool isNumber = node.tag != "StringReg";
    if (length <= 0 || (isNumber && length > 8) || (node.tag == "FloatReg" && length != 4 && length != 8))
        problems.push_back(node.Name() + ": a " + node.tag + " of " + node.TextOf("Length") + " bytes");
    if (node.Has("Address") && IntegerFrom(node.TextOf("Address")).value_or(-1) < 0)
        problems.push_back(node.Name() + ": the address is not below 2^63");
    if (node.tag == "MaskedIntReg")
        CheckBits(node, 8 * length, problems);
}

template <class Parse> void CheckLimits(const XmlElement &node, Parse parse, Problems &problems)
{
    for (const char *tag : {"Min", "Max", "Inc"}) {
        if (node.Has(tag) && !parse(node.TextOf(tag)).has_value())
            problems.push_back(node.Name() + ": <" + tag + "> is no number");
    }
    const auto minimum = parse(node.TextOf("Min"));
    const auto maximum = parse(node.TextOf("Max"));
    if (minimum.has_value() && maximum.has_value() && *minimum > *maximum)
        problems.push_back(node.Name() + ": the minimum is above the maximum");
}

void CheckIncrement(const XmlElement &node, Problems &problems)
{
    const std::int64_t increment = IntegerFrom(node.TextOf("Inc")).value_or(1);
    const auto minimum = IntegerFrom(node.TextOf("Min"));
    const auto maximum = IntegerFrom(node.TextOf("Max"));
    if (increment <= 0)
        problems.push_back(node.Name() + ": the increment is not positive");
    else if (minimum.has_value() && maximum.has_value() && (*maximum - *minimum) % increment != 0)
        problems.push_back(node.Name() + ": the increment does not lead from minimum to maximum");
}

void CheckPort(const XmlElement &node, Problems &problems)
{
    for (const char *tag : {"ChunkID", "EventID"}) {
        const std::string id = node.TextOf(tag);
        if (node.Has(tag) && (id.empty() || id.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos))
            problems.push_back(node.Name() + ": <" + tag + "> is not hexadecimal without prefix");
    }
}

void CheckNode(const std::map<std::string, const XmlElement *> &nodes, const XmlElement &node, Problems &problems)
{
    for (const std::string &problem : OrderProblems(node))
        problems.push_back(node.Name() + ": " + problem);
    for (const std::string &problem : SpellingProblems(node))
        problems.push_back(node.Name() + ": " + problem);
    CheckReferences(nodes, node, problems);
    CheckFormulas(node, problems);
    CheckPort(node, problems);
    if (node.Has("Length"))
        CheckRegister(node, problems);
    if (node.tag == "Enumeration")
        CheckEnumeration(node, problems);
    if (node.tag == "Integer") {
        CheckLimits(node, IntegerFrom, problems);
        CheckIncrement(node, problems);
    }
    if (node.tag == "Float")
        CheckLimits(node, FloatFrom, problems);
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
