#include "tests/simulator/DescriptionChecks.h"

#include "simulator/features/NumberText.h"
#include "tests/simulator/DescriptionIndex.h"
#include "tests/simulator/FormulaChecks.h"
#include "tests/simulator/SchemaOrder.h"

#include <cctype>
#include <optional>
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

void CheckReferences(const DescriptionIndex &index, const XmlElement &node, Problems &problems)
{
    for (const DescriptionIndex::Reference &reference : DescriptionIndex::ReferencesOf(node)) {
        const XmlElement *target = index.Find(reference.target);
        const std::string where = node.Name() + ": <" + reference.tag + "> ";
        if (target == nullptr)
            problems.push_back(where + "refers to '" + reference.target + "', which does not exist");
        else if ((reference.tag == "pPort") != (target->tag == "Port"))
            problems.push_back(where + "refers to a " + target->tag);
        else if (reference.tag == "pIndex" && !DescriptionIndex::IsIntegerLike(*target))
            problems.push_back(where + "refers to a " + target->tag + ", which is no integer");
        if (reference.tag == "pSelected" && (node.tag == "Boolean" || node.tag == "StructEntry"))
            problems.push_back(where + "makes a selector of a " + node.tag);
    }
}

void CheckFormulas(const XmlElement &node, Problems &problems)
{
    std::set<std::string> names;
    for (const XmlElement &child : node.children) {
        if (child.tag != "pVariable" && child.tag != "Constant" && child.tag != "Expression")
            continue;
        names.insert(child.Name());
        if (!IsVariableName(child.Name()))
            problems.push_back(node.Name() + ": a formula's variable cannot be called '" + child.Name() + "'");
    }
    const bool isInteger = node.tag == "IntSwissKnife" || node.tag == "IntConverter";
    for (const XmlElement &child : node.children) {
        if (child.tag.compare(0, 7, "Formula") != 0 && child.tag != "Expression")
            continue;
        std::set<std::string> known = names;
        if (child.tag == "FormulaTo" || child.tag == "FormulaFrom")
            known.insert(child.tag == "FormulaTo" ? "FROM" : "TO");
        const std::string problem = FormulaProblem(child.text, known, isInteger);
        if (!problem.empty())
            problems.push_back(node.Name() + ": <" + child.tag + "> " + child.text + ": " + problem);
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
    const bool isNumber = node.tag == "IntReg" || node.tag == "MaskedIntReg" || node.tag == "FloatReg";
    if (node.Has("Length") && length <= 0)
        problems.push_back(node.Name() + ": the length is not positive");
    if (isNumber && node.Has("Length") && length > 8)
        problems.push_back(node.Name() + ": a number of " + node.TextOf("Length") + " bytes");
    if (node.tag == "FloatReg" && length != 4 && length != 8)
        problems.push_back(node.Name() + ": a float of " + node.TextOf("Length") + " bytes");
    if (isNumber && length != 1 && !node.Has("Endianess"))
        problems.push_back(node.Name() + ": lacks <Endianess>");
    if (node.Has("Address") && IntegerFrom(node.TextOf("Address")).value_or(-1) < 0)
        problems.push_back(node.Name() + ": the address is not below 2^63");
    if (node.tag == "MaskedIntReg")
        CheckBits(node, 8 * length, problems);
}

void CheckIntegerLimits(const XmlElement &node, Problems &problems)
{
    const auto minimum = IntegerFrom(node.TextOf("Min"));
    const auto maximum = IntegerFrom(node.TextOf("Max"));
    const auto increment = IntegerFrom(node.TextOf("Inc"));
    for (const char *tag : {"Min", "Max", "Inc", "Value"}) {
        if (node.Has(tag) && !IntegerFrom(node.TextOf(tag)).has_value())
            problems.push_back(node.Name() + ": <" + tag + "> is no whole number");
    }
    if (increment.has_value() && *increment <= 0)
        problems.push_back(node.Name() + ": the increment is not positive");
    if (minimum.has_value() && maximum.has_value()) {
        if (*minimum > *maximum)
            problems.push_back(node.Name() + ": the minimum is above the maximum");
        else if (increment.value_or(1) > 1 && (*maximum - *minimum) % *increment != 0)
            problems.push_back(node.Name() + ": the increment does not lead from minimum to maximum");
    }
    const auto value = IntegerFrom(node.TextOf("Value"));
    if (value.has_value() && (*value < minimum.value_or(*value) || *value > maximum.value_or(*value)))
        problems.push_back(node.Name() + ": the value is outside of its limits");
}

void CheckFloatLimits(const XmlElement &node, Problems &problems)
{
    const auto minimum = FloatFrom(node.TextOf("Min"));
    const auto maximum = FloatFrom(node.TextOf("Max"));
    for (const char *tag : {"Min", "Max", "Inc", "Value"}) {
        if (node.Has(tag) && !FloatFrom(node.TextOf(tag)).has_value())
            problems.push_back(node.Name() + ": <" + tag + "> is no number");
    }
    if (minimum.has_value() && maximum.has_value() && *minimum > *maximum)
        problems.push_back(node.Name() + ": the minimum is above the maximum");
}

/// A literal value is state of the consumer; only constants may be that.
void CheckLiteral(const XmlElement &node, Problems &problems)
{
    const bool isValueNode = node.tag == "Integer" || node.tag == "Float" || node.tag == "Boolean" ||
                             node.tag == "Enumeration" || node.tag == "String" || node.tag == "Command";
    if (!isValueNode || !node.Has("Value"))
        return;
    if (node.TextOf("ImposedAccessMode") != "RO")
        problems.push_back(node.Name() + ": a literal value that can be written");
    if (node.tag == "Boolean" && node.TextOf("Value") != "0" && node.TextOf("Value") != "1")
        problems.push_back(node.Name() + ": a Boolean's literal is neither 0 nor 1");
}

void CheckPort(const XmlElement &node, Problems &problems)
{
    for (const char *tag : {"ChunkID", "EventID"}) {
        const std::string id = node.TextOf(tag);
        if (node.Has(tag) && (id.empty() || id.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos))
            problems.push_back(node.Name() + ": <" + tag + "> is not hexadecimal without prefix");
    }
}

void CheckNode(const DescriptionIndex &index, const XmlElement &node, Problems &problems)
{
    for (const std::string &problem : OrderProblems(node))
        problems.push_back(node.Name() + ": " + problem);
    for (const std::string &problem : SpellingProblems(node))
        problems.push_back(node.Name() + ": " + problem);
    CheckReferences(index, node, problems);
    CheckFormulas(node, problems);
    CheckLiteral(node, problems);
    if (DescriptionIndex::IsRegister(node))
        CheckRegister(node, problems);
    if (node.tag == "Enumeration")
        CheckEnumeration(node, problems);
    if (node.tag == "Integer")
        CheckIntegerLimits(node, problems);
    if (node.tag == "Float")
        CheckFloatLimits(node, problems);
    if (node.tag == "Port" || DescriptionIndex::IsRegister(node))
        CheckPort(node, problems);
}

void CheckReach(const DescriptionIndex &index, Problems &problems)
{
    const XmlElement *root = index.Find("Root");
    if (root == nullptr || root->tag != "Category") {
        problems.push_back("Root: there is no such category");
        return;
    }
    const std::set<std::string> reached = index.ReachedFrom("Root");
    for (const XmlElement *node : index.Nodes()) {
        if (reached.count(node->Name()) == 0)
            problems.push_back(node->Name() + ": no category leads to it, and no node that one leads to");
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
    const DescriptionIndex index(root, problems);
    for (const XmlElement *node : index.Nodes())
        CheckNode(index, *node, problems);
    for (const XmlElement *entry : index.Entries())
        CheckNode(index, *entry, problems);
    for (const std::string &loop : index.Loops())
        problems.push_back(loop);
    CheckReach(index, problems);
    return problems;
}

} // namespace orvsim
