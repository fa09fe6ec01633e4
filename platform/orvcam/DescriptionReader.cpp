#include "orvcam/CleanedText.h"
#include "orvcam/Description.h"
#include "orvcam/DescriptionNames.h"
#include "orvcam/FormulaCheck.h"
#include "orvcam/Text.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <expat.h>
#include <memory>

namespace orv::cam {

namespace {

/// Begins the names of the nodes that are added here. No node of the description has such a name, see IsNodeName().
const std::string kAddedName = "#";

/// Name without a namespace prefix.
const char *LocalName(const char *name)
{
    const char *colon = std::strrchr(name, ':');
    return colon != nullptr ? colon + 1 : name;
}

/// Parsers differ on which characters beyond these a name may have; descriptions have no use for more.
bool IsPlainName(const std::string &name)
{
    const auto isPlain = [](unsigned char c) { return std::isalnum(c) != 0 || c == '_'; };
    return std::isalpha(static_cast<unsigned char>(name[0])) != 0 && std::all_of(name.begin(), name.end(), isPlain);
}

/// In what else a name may hold, a line end for instance, parsers take different names for the same one.
bool IsNodeName(const std::string &name)
{
    const auto isFirst = [](unsigned char c) { return (c < 0x80 && std::isalpha(c) != 0) || c == '_'; };
    const auto isPart = [&](unsigned char c) { return isFirst(c) || std::isdigit(c) != 0 || c == '.' || c == '-'; };
    return isFirst(static_cast<unsigned char>(name[0])) && std::all_of(name.begin(), name.end(), isPart);
}

bool HasFormula(NodeKind kind)
{
    return kind == NodeKind::SwissKnife || kind == NodeKind::IntSwissKnife || kind == NodeKind::Converter ||
           kind == NodeKind::IntConverter;
}

std::string AttributeOf(const char **attributes, const char *name)
{
    for (const char **pair = attributes; pair[0] != nullptr; pair += 2) {
        if (std::strcmp(pair[0], name) == 0)
            return Trimmed(pair[1]);
    }
    return std::string();
}

struct ParserFree {
    void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};

/// Turns the parser's events into facts, and writes the description anew as it goes.
class Reader {
public:
    explicit Reader(Description &description) : m_description(description) {}

    /// \param encoding  overrides what the bytes say of themselves; null to believe them.
    bool Read(const std::string &bytes, const char *encoding);
    const std::string &Error() const { return m_error; }
    bool WasEncodingTrouble() const { return m_encodingTrouble; }
    std::string Cleaned() const { return m_out.Without(m_description.nodes); }

private:
    struct Element {
        std::string tag;
        std::string text;
        std::string symbol;                   ///< name of a formula's variable, constant or expression
        std::unique_ptr<FormulaSet> formulas; ///< of a node that has some
        int node = -1;                        ///< the named node it belongs to, itself included; -1 outside of any
        bool isNode = false;                  ///< the node's own element
        bool isContainer = false;
        std::size_t begin = 0; ///< of its start tag in the new text
        std::size_t cut = CleanedText::kNoCut;
    };
    /// A length that is another node's value.
    struct Guard {
        int node = -1;      ///< the register
        std::string length; ///< name of the other node
    };

    void Start(const char *name, const char **attributes);
    void End();
    void Text(const char *text, int length);
    void Fail(const std::string &error);
    void FlushText();
    bool StartRoot(const std::string &tag, const char **attributes);
    void StartNode(Element &element, const char **attributes);
    void StartProperty(Element &element, const char **attributes);
    int AddNode(NodeKind kind, const std::string &name, int parent);
    void WriteStartTag(const std::string &tag, const char **attributes);
    void EndLeaf(Element &element);
    void TakeFormula(const Element &element, std::string *value);
    void EndFormulas(const Element &element);
    void CheckLength(const Element &element, const std::string &value);
    void RefuseNode(int index, const std::string &problem);
    void WriteLengthGuards();

    Description &m_description;
    XML_Parser m_parser = nullptr;
    std::vector<Element> m_open;
    int m_skipDepth = 0; ///< open elements of a part that is left out
    bool m_rootClosed = false;
    bool m_encodingTrouble = false;
    std::string m_error;
    CleanedText m_out;
    std::size_t m_formulaBytes = 0; ///< of all nodes, written out
    std::vector<Guard> m_guards;    ///< the node that is added for each gets its number as a name
};

bool Reader::Read(const std::string &bytes, const char *encoding)
{
    std::unique_ptr<std::remove_pointer<XML_Parser>::type, ParserFree> parser(XML_ParserCreate(encoding));
    if (!parser) {
        m_error = "there is not enough memory";
        return false;
    }
    m_parser = parser.get();
    XML_SetUserData(m_parser, this);
    XML_SetElementHandler(
        m_parser,
        [](void *self, const XML_Char *name, const XML_Char **attributes) {
            static_cast<Reader *>(self)->Start(name, attributes);
        },
        [](void *self, const XML_Char *) { static_cast<Reader *>(self)->End(); });
    XML_SetCharacterDataHandler(m_parser, [](void *self, const XML_Char *text, int length) {
        static_cast<Reader *>(self)->Text(text, length);
    });
    XML_SetStartDoctypeDeclHandler(m_parser, [](void *self, const XML_Char *, const XML_Char *, const XML_Char *, int) {
        static_cast<Reader *>(self)->Fail("it has a document type declaration, which is refused");
    });
    m_out.Append("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
    const XML_Status status = XML_Parse(m_parser, bytes.data(), static_cast<int>(bytes.size()), XML_TRUE);
    if (!m_error.empty())
        return false;
    if (status == XML_STATUS_OK)
        return true;
    const XML_Error code = XML_GetErrorCode(m_parser);
    if (m_rootClosed) {
        m_description.Warn("bytes behind the description's end tag were ignored");
        return true;
    }
    m_encodingTrouble =
        code == XML_ERROR_INVALID_TOKEN || code == XML_ERROR_UNKNOWN_ENCODING || code == XML_ERROR_INCORRECT_ENCODING;
    m_error = "it is not well formed: " + std::string(XML_ErrorString(code)) + " in line " +
              std::to_string(XML_GetCurrentLineNumber(m_parser));
    return false;
}

void Reader::Fail(const std::string &error)
{
    if (m_error.empty())
        m_error = error;
    XML_StopParser(m_parser, XML_FALSE);
}

void Reader::FlushText()
{
    if (m_open.empty() || m_open.back().text.empty())
        return;
    m_out.Append(XmlEscaped(Trimmed(m_open.back().text)));
    m_open.back().text.clear();
}

void Reader::Start(const char *name, const char **attributes)
{
    if (!m_error.empty())
        return;
    const std::string tag = LocalName(name);
    // What is inside a property belongs to nothing, and must not split the property's text.
    const bool inProperty = !m_open.empty() && !m_open.back().isNode && !m_open.back().isContainer;
    if (m_skipDepth > 0 || inProperty || tag == "Extension" || !IsPlainName(tag)) {
        ++m_skipDepth;
        return;
    }
    if (m_open.size() >= static_cast<std::size_t>(kMaxElementDepth))
        return Fail("its elements are nested deeper than " + std::to_string(kMaxElementDepth) + " levels");
    FlushText();
    Element element;
    element.tag = tag;
    if (m_open.empty()) {
        if (!StartRoot(tag, attributes))
            return;
        element.isContainer = true;
    } else if (m_open.back().isContainer && tag == "Group") {
        element.isContainer = true;
    } else {
        StartNode(element, attributes);
        if (m_skipDepth > 0)
            return;
    }
    element.begin = m_out.Bytes();
    WriteStartTag(tag, attributes);
    m_open.push_back(std::move(element));
}

bool Reader::StartRoot(const std::string &tag, const char **attributes)
{
    if (tag != "RegisterDescription") {
        Fail("its root element is <" + tag + "> instead of <RegisterDescription>");
        return false;
    }
    std::string version[3];
    std::string schema[3];
    const struct {
        const char *name;
        std::string *target;
    } kAttributes[] = {
        {"VendorName", &m_description.vendorName},
        {"ModelName", &m_description.modelName},
        {"MajorVersion", &version[0]},
        {"MinorVersion", &version[1]},
        {"SubMinorVersion", &version[2]},
        {"SchemaMajorVersion", &schema[0]},
        {"SchemaMinorVersion", &schema[1]},
        {"SchemaSubMinorVersion", &schema[2]},
    };
    for (const char **pair = attributes; pair[0] != nullptr; pair += 2) {
        for (const auto &row : kAttributes) {
            if (std::strcmp(pair[0], row.name) == 0)
                *row.target = pair[1];
        }
    }
    m_description.version = version[0] + "." + version[1] + "." + version[2];
    m_description.schemaVersion = schema[0] + "." + schema[1] + "." + schema[2];
    return true;
}

int Reader::AddNode(NodeKind kind, const std::string &name, int parent)
{
    auto &nodes = m_description.nodes;
    if (nodes.size() >= kMaxNodes) {
        Fail("it has more than " + std::to_string(kMaxNodes) + " nodes");
        return -1;
    }
    const int index = static_cast<int>(nodes.size());
    nodes.emplace_back();
    NodeFacts &node = nodes.back();
    node.name = name;
    node.kind = kind;
    node.parent = parent;
    if (kind != NodeKind::EnumEntry && !name.empty() && !m_description.byName.emplace(name, index).second) {
        node.problem = "there are two nodes of this name";
        m_description.Warn("\"" + name + "\": a second node of this name was left out");
    }
    return index;
}

/// Finds out what an element below the root is: a node of its own, or a property of the node around it.
void Reader::StartNode(Element &element, const char **attributes)
{
    const Element &outer = m_open.back();
    element.node = outer.node;
    const NodeKind kind = KindOf(element.tag);
    const NodeKind outerKind = outer.isNode ? m_description.nodes[outer.node].kind : NodeKind::Other;
    const bool nested = (kind == NodeKind::EnumEntry && outerKind == NodeKind::Enumeration) ||
                        (kind == NodeKind::StructEntry && outerKind == NodeKind::StructReg) ||
                        (kind == NodeKind::IntSwissKnife && IsRegister(outerKind));
    if (!outer.isContainer && !nested) {
        StartProperty(element, attributes);
        return;
    }
    const std::string name = AttributeOf(attributes, "Name");
    // A formula inside a register and a structure may go without a name; anything else could never be found.
    const bool mayBeNameless = kind == NodeKind::StructReg || (nested && kind == NodeKind::IntSwissKnife);
    if (kind == NodeKind::Other || (name.empty() && !mayBeNameless)) {
        m_skipDepth = 1;
        return;
    }
    if (kind != NodeKind::EnumEntry && !name.empty() && !IsNodeName(name)) { // entries are found by their parent alone
        m_skipDepth = 1;
        m_description.Warn("\"" + name + "\" was left out: no node can have that name");
        if (nested)
            RefuseNode(outer.node, "a part of it has a name that no node can have");
        return;
    }
    const int parent = nested ? outer.node : -1;
    element.node = AddNode(kind, name, parent);
    element.isNode = true;
    if (element.node < 0)
        return;
    if (HasFormula(kind))
        element.formulas = std::make_unique<FormulaSet>(kind == NodeKind::IntSwissKnife ? FormulaNumbers::Integers
                                                                                        : FormulaNumbers::Doubles);
    if (kind == NodeKind::StructEntry)
        m_description.nodes[element.node].references.push_back({Link::Structure, std::string(), parent});
    if (nested && kind == NodeKind::IntSwissKnife)
        m_description.nodes[parent].references.push_back({Link::Address, name, element.node});
    element.cut = m_out.BeginCut(m_out.Bytes(), element.node);
}

void Reader::StartProperty(Element &element, const char **attributes)
{
    // The library would find a node wherever it stands, and we have checked none of its references.
    if (KindOf(element.tag) != NodeKind::Other) {
        m_skipDepth = 1;
        m_description.Warn("\"" + m_description.nodes[element.node].name + "\": <" + element.tag +
                           "> inside of it was left out");
        return;
    }
    const bool isSymbol = element.tag == "pVariable" || element.tag == "Constant" || element.tag == "Expression";
    if (isSymbol)
        element.symbol = AttributeOf(attributes, "Name");
    if (isSymbol && element.symbol.empty())
        RefuseNode(element.node, "a variable of its formula has no name");
}

void Reader::WriteStartTag(const std::string &tag, const char **attributes)
{
    const int node = m_open.empty() ? -1 : m_open.back().node;
    m_out.Append("<" + tag);
    for (const char **pair = attributes; pair[0] != nullptr; pair += 2) {
        if (!IsPlainName(pair[0]) || std::strcmp(pair[0], "xmlns") == 0)
            continue;
        const std::string value = Trimmed(pair[1]);
        m_out.Append(" " + std::string(pair[0]) + "=\"" + XmlEscaped(value) + "\"");
        if (node >= 0 && std::strcmp(pair[0], "pOffset") == 0)
            m_description.nodes[node].references.push_back({Link::Offset, value});
    }
    m_out.Append(">");
}

void Reader::Text(const char *text, int length)
{
    if (m_skipDepth == 0 && !m_open.empty())
        m_open.back().text.append(text, static_cast<std::size_t>(length));
}

void Reader::End()
{
    if (!m_error.empty())
        return; // a stopped parser still reports the end of an empty element
    if (m_skipDepth > 0) {
        --m_skipDepth;
        return;
    }
    Element &element = m_open.back();
    if (!element.isNode && !element.isContainer && element.node >= 0)
        EndLeaf(element);
    else
        FlushText();
    if (element.formulas)
        EndFormulas(element);
    if (m_open.size() == 1)
        WriteLengthGuards();
    m_out.Append("</" + element.tag + ">\n");
    m_out.EndCut(element.cut);
    m_open.pop_back();
    m_rootClosed = m_open.empty();
}

/// Takes the facts from a property element and writes its text.
void Reader::EndLeaf(Element &element)
{
    NodeFacts &node = m_description.nodes[element.node];
    const bool keepBlanks = element.tag == "Value" && node.kind == NodeKind::String;
    std::string value = keepBlanks ? element.text : Trimmed(element.text);
    if (const Link *link = FindLink(element.tag)) {
        if (ClassOf(*link) == LinkClass::Loose)
            element.cut = m_out.BeginCut(element.begin, element.node, static_cast<int>(node.references.size()));
        node.references.push_back({*link, value});
        if (*link == Link::Length) {
            m_out.Append(kAddedName + std::to_string(m_guards.size()));
            m_guards.push_back({element.node, value});
            return;
        }
    } else if (element.tag == "Length") {
        CheckLength(element, value);
    } else if (element.tag == "Streamable") {
        node.streamable = value == "Yes";
        m_description.marksStreamable |= node.streamable;
    } else if (element.tag == "IsDeprecated") {
        node.deprecated = value == "Yes";
    } else if (element.tag == "PollingTime") {
        node.pollingMs = std::strtoll(value.c_str(), nullptr, 0);
    } else if (element.tag == "CommandValue") {
        node.commandValue = std::strtoll(value.c_str(), nullptr, 0);
    } else if (element.tag == "Unit") {
        node.unit = value;
    } else if (element.tag == "ToolTip") {
        node.toolTip = value;
    } else if (element.tag == "Visibility") {
        node.visibility = VisibilityOf(value);
    } else if (element.tag == "Representation") {
        node.representation = RepresentationOf(value);
    }
    TakeFormula(element, &value);
    m_out.Append(XmlEscaped(value));
}

/// Hands a formula, or a part of one, to the checks of its node.
void Reader::TakeFormula(const Element &element, std::string *value)
{
    FormulaSet *formulas = m_open[m_open.size() - 2].formulas.get();
    if (formulas == nullptr)
        return;
    if (element.tag == "Formula" || element.tag == "FormulaTo" || element.tag == "FormulaFrom")
        formulas->AddFormula(value);
    else if (element.tag == "Expression")
        formulas->AddExpression(element.symbol, value);
    else if (element.tag == "Constant")
        formulas->AddConstant(*value);
}

void Reader::EndFormulas(const Element &element)
{
    std::string problem = element.formulas->Problem();
    const std::size_t bytes = element.formulas->WrittenOutBytes();
    if (problem.empty() && bytes > kMaxFormulaBytesInAll - m_formulaBytes)
        problem = "the formulas are too long all together";
    if (!problem.empty())
        return RefuseNode(element.node, problem);
    m_formulaBytes += bytes;
    m_description.nodes[element.node].formulaBytes = bytes;
}

/// The library allocates what a register's length says, and ends the process when it cannot.
void Reader::CheckLength(const Element &element, const std::string &value)
{
    const long long length = std::strtoll(value.c_str(), nullptr, 0);
    if (length > 0 && length <= static_cast<long long>(kMaxRegisterBytes))
        return;
    RefuseNode(element.node, "its length is " + value);
}

void Reader::RefuseNode(int index, const std::string &problem)
{
    NodeFacts &node = m_description.nodes[index];
    if (!node.Usable())
        return;
    node.problem = problem;
    m_description.Warn("\"" + node.name + "\" was left out: " + problem);
}

/// A length that the camera tells is known only when it is read, so it goes through a formula that bounds it.
void Reader::WriteLengthGuards()
{
    const std::string most = std::to_string(kMaxToldRegisterBytes);
    for (std::size_t i = 0; i < m_guards.size(); ++i) {
        const std::size_t cut = m_out.BeginCut(m_out.Bytes(), m_guards[i].node);
        m_out.Append("<IntSwissKnife Name=\"" + kAddedName + std::to_string(i) + "\"><pVariable Name=\"LENGTH\">" +
                     XmlEscaped(m_guards[i].length) + "</pVariable><Formula>((LENGTH &lt; 1) ? 1 : ((LENGTH &gt; " +
                     most + ") ? " + most + " : LENGTH))</Formula></IntSwissKnife>\n");
        m_out.EndCut(cut);
    }
}

} // namespace

bool ReadDescription(const std::string &bytes, Description *description, std::string *cleaned, std::string *error)
{
    if (bytes.empty() || bytes.size() > kMaxDescriptionBytes) {
        *error = bytes.empty() ? "it is empty" : "it is larger than 64 MiB";
        return false;
    }
    *description = Description();
    Reader reader(*description);
    Reader other(*description);
    Reader *done = &reader;
    if (!reader.Read(bytes, nullptr)) {
        // Names of encodings that the parser does not know are common, and so is a degree sign or a micro sign in one
        // byte in texts that call themselves UTF-8.
        *error = reader.Error();
        if (!reader.WasEncodingTrouble())
            return false;
        const bool isUtf8 = IsUtf8(bytes);
        *description = Description();
        if (!other.Read(bytes, isUtf8 ? "UTF-8" : "ISO-8859-1"))
            return false;
        description->Warn(std::string("its text is not in the encoding that it states; it was read as ") +
                          (isUtf8 ? "UTF-8" : "Latin-1"));
        done = &other;
    }
    CheckReferences(description);
    if (const NodeFacts *root = description->Find("Root"); root == nullptr || root->kind != NodeKind::Category)
        description->Warn("it has no category \"Root\"");
    *cleaned = done->Cleaned();
    return true;
}

} // namespace orv::cam
