#pragma once

#include "orvcam/OrvFeatures.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

/// What our own reading of a GenICam description tells, apart from the values behind it.
///
/// The GenApi library trusts its input: it overflows the stack on reference loops, reads wrong registers behind
/// references that lead nowhere, and drops facts we need. So every description passes through ReadDescription first;
/// what the library then gets is a cleaned copy of what was checked here.
namespace orv::cam {

enum class NodeKind {
    Other, ///< not usable: a kind the GenApi library does not know
    Category,
    Port,
    Integer,
    IntReg,
    MaskedIntReg,
    IntConverter,
    IntSwissKnife,
    StructEntry,
    Float,
    FloatReg,
    Converter,
    SwissKnife,
    Boolean,
    Enumeration,
    EnumEntry,
    Command,
    String,
    StringReg,
    Register,
    StructReg
};

/// What one node refers to another for.
enum class Link {
    Value,
    ValueIndexed,
    ValueDefault,
    Variable,
    Index,
    Offset,
    Address,
    Length,
    Structure, ///< from a StructEntry to its StructReg, implied by nesting
    Port,
    Minimum,
    Maximum,
    Increment,
    Implemented,
    Available,
    Locked,
    CommandValue,
    ChunkId,
    Selected,
    Invalidator,
    Feature, ///< a category's member
    Error,
    Alias,
    CastAlias,
    BlockPolling,
    ValueCopy
};

/// What following a link costs.
enum class LinkClass {
    Evaluated, ///< read whenever the node's value is read; a loop of these never ends
    Required,  ///< read for limits, access or execution; must exist
    Loose      ///< only names the other node; dropped when that does not exist
};
LinkClass ClassOf(Link link);

struct Reference {
    Link link;
    std::string name;
    int target = -1; ///< index into Description::nodes, -1 when there is no such node
};

struct NodeFacts {
    std::string name;
    NodeKind kind = NodeKind::Other;
    int parent = -1; ///< the Enumeration, StructReg or register this node is nested in
    std::vector<Reference> references;
    std::vector<int> selectedBy; ///< features that select this one, in document order
    bool streamable = false;
    bool deprecated = false;
    std::int64_t pollingMs = 0;
    std::int64_t commandValue = 0; ///< of a Command with a literal CommandValue
    std::size_t formulaBytes = 0;  ///< length of its formulas, their expressions written out
    std::string unit;
    std::string toolTip;
    OrvCam::Visibility visibility = OrvCam::Visibility::Beginner;
    OrvCam::Representation representation = OrvCam::Representation::Plain;
    std::string problem; ///< why the node was taken out; "" when it is usable

    bool Usable() const { return problem.empty(); }
    const Reference *Find(Link link) const;
};

struct Description {
    std::string vendorName;
    std::string modelName;
    std::string version;       ///< of the description, "1.2.3"
    std::string schemaVersion; ///< "1.1.0"
    bool marksStreamable = false;
    std::vector<NodeFacts> nodes;                ///< in document order
    std::unordered_map<std::string, int> byName; ///< usable and refused nodes; not the entries of enumerations
    std::vector<std::string> warnings;

    /// Adds a warning; past a hundred, only a note that there are more.
    void Warn(const std::string &text);
    bool IsFullOfWarnings() const; ///< further ones would not be kept
    /// The usable node of that name, null when there is none.
    const NodeFacts *Find(const std::string &name) const;
    struct Listed {
        const NodeFacts *node;
        int level; ///< 0: listed by the root
    };
    /// All categories and features that the root leads to, in tree order, each once.
    std::vector<Listed> Tree() const;
    /// The same without the categories, names alone.
    std::vector<std::string> FeatureNames() const;
};

/// Limits against descriptions that are broken or hostile.
constexpr std::size_t kMaxDescriptionBytes = 64u << 20;
constexpr std::size_t kMaxRegisterBytes = 16u << 20;
constexpr std::size_t kMaxToldRegisterBytes = 64u << 10; ///< of registers whose length the camera tells
constexpr int kMaxElementDepth = 64;
constexpr std::size_t kMaxNodes = 500000;
/// Levels of values behind values, and values read for one value. Real cameras stay below 20 and 1000.
constexpr int kMaxEvaluationDepth = 200;
constexpr std::uint64_t kMaxEvaluationCost = 100000;
/// Of a formula that count as one value read.
constexpr std::size_t kFormulaBytesPerValue = 256;
/// The library keeps some hundred bytes for each of a formula. Real descriptions stay below 1 MiB.
constexpr std::size_t kMaxFormulaBytesInAll = 8u << 20;

/// Reads and checks a description.
///
/// Refuses what is not well formed, has a document type declaration or another root element. Takes out features that
/// are in a reference loop or lead into one, that need a node which does not exist, that stand where no node belongs or
/// that are too deep to evaluate; each of them leaves a warning. Bytes behind the end tag are ignored.
/// \param bytes    XML in any encoding that expat knows; else it is read as UTF-8 if it is that, or as Latin-1.
/// \param cleaned  UTF-8 XML without what was taken out, references trimmed: the copy for the GenApi library.
/// \return false with one sentence in `*error`.
bool ReadDescription(const std::string &bytes, Description *description, std::string *cleaned, std::string *error);

/// Second half of ReadDescription: fills Reference::target and selectedBy, and marks the nodes to be taken out.
void CheckReferences(Description *description);

} // namespace orv::cam
