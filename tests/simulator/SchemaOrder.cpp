#include "tests/simulator/SchemaOrder.h"

#include <algorithm>
#include <map>
#include <sstream>

namespace orvsim {

namespace {

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
    {"Boolean", kNode + "Streamable pValue! OnValue OffValue pSelected*"},
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

struct Place {
    std::vector<std::string> tags;
    bool isRepeatable = false;
    bool isRequired = false;

    bool Takes(const std::string &tag) const { return std::find(tags.begin(), tags.end(), tag) != tags.end(); }
};

std::vector<std::string> Split(const std::string &text, char separator)
{
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) {
        if (!part.empty())
            parts.push_back(part);
    }
    return parts;
}

std::vector<Place> PlacesOf(const std::string &order)
{
    std::vector<Place> places;
    for (std::string word : Split(order, ' ')) {
        Place place;
        for (; word.back() == '!' || word.back() == '*'; word.pop_back())
            (word.back() == '!' ? place.isRequired : place.isRepeatable) = true;
        place.tags = Split(word, '|');
        places.push_back(place);
    }
    return places;
}

} // namespace

bool IsNodeTag(const std::string &tag)
{
    return kOrders.count(tag) != 0;
}

std::vector<std::string> OrderProblems(const XmlElement &node)
{
    const std::vector<Place> places = PlacesOf(kOrders.at(node.tag));
    std::vector<int> uses(places.size(), 0);
    std::vector<std::string> problems;
    std::size_t place = 0;
    for (const XmlElement &child : node.children) {
        std::size_t next = place;
        while (next < places.size() &&
               !(places[next].Takes(child.tag) && (uses[next] == 0 || places[next].isRepeatable)))
            ++next;
        if (next == places.size()) {
            problems.push_back("<" + child.tag + "> is not allowed at its place");
            continue;
        }
        place = next;
        ++uses[place];
    }
    for (std::size_t i = 0; i < places.size(); ++i) {
        if (places[i].isRequired && uses[i] == 0)
            problems.push_back("lacks <" + places[i].tags.front() + ">");
    }
    return problems;
}

std::vector<std::string> SpellingProblems(const XmlElement &node)
{
    std::vector<std::string> problems;
    for (const XmlElement &child : node.children) {
        const auto allowed = kSpellings.find(child.tag);
        if (allowed == kSpellings.end())
            continue;
        const std::vector<std::string> words = Split(allowed->second, ' ');
        if (std::find(words.begin(), words.end(), child.text) == words.end())
            problems.push_back("<" + child.tag + "> says '" + child.text + "'");
    }
    return problems;
}

} // namespace orvsim
