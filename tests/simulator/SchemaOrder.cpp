#include "tests/simulator/SchemaOrder.h"

#include <algorithm>
#include <map>
#include <sstream>

namespace orvsim {

namespace {

// Elements in their order; a|b: one of them, *: any number, !: at least one.
const std::string kHead = "Extension ToolTip Description DisplayName Visibility DocuURL IsDeprecated EventID "
                          "pIsImplemented pIsAvailable pIsLocked pBlockPolling ImposedAccessMode pError* pAlias "
                          "pCastAlias ";
const std::string kNode = kHead + "pInvalidator* ";
const std::string kRegister = kHead + "Streamable Address|IntSwissKnife|pAddress|pIndex*! Length|pLength! AccessMode! "
                                      "pPort! Cachable PollingTime pInvalidator* ";
const std::string kValue = "Streamable pValueCopy* Value|pValue|pIndex! pValueCopy* ValueIndexed|pValueIndexed* "
                           "ValueDefault|pValueDefault ";
const std::string kLimits = "Min|pMin Max|pMax Inc|pInc Unit Representation ";
const std::string kMask = "Bit|LSB! MSB ";
const std::string kKnife = kNode + "Streamable pVariable* Constant* Expression* ";
const std::string kBothWays = "FormulaTo! FormulaFrom! pValue! Unit Representation ";

const std::map<std::string, std::string> kOrders = {
    {"Category", kNode + "pFeature*"},
    {"Integer", kNode + kValue + kLimits + "ValidValueSet pSelected*"},
    {"Float", kNode + kValue + kLimits + "DisplayNotation DisplayPrecision"},
    {"Boolean", kNode + "Streamable Value|pValue! OnValue OffValue pSelected*"},
    {"Enumeration", kNode + "Streamable EnumEntry*! Value|pValue! pSelected* PollingTime"},
    {"EnumEntry", kNode + "Value! NumericValue Symbolic IsSelfClearing"},
    {"Command", kNode + "Value|pValue! CommandValue|pCommandValue! PollingTime"},
    {"String", kNode + "Streamable Value|pValue!"},
    {"IntReg", kRegister + "Sign Endianess Unit Representation pSelected*"},
    {"MaskedIntReg", kRegister + kMask + "Sign Endianess Unit Representation pSelected*"},
    {"FloatReg", kRegister + "Endianess Unit Representation DisplayNotation DisplayPrecision"},
    {"StringReg", kRegister},
    {"Register", kRegister},
    {"StructReg", kRegister + "Endianess StructEntry*!"},
    {"StructEntry",
     kNode + "AccessMode Cachable PollingTime Streamable " + kMask + "Sign Unit Representation pSelected*"},
    {"Converter", kKnife + kBothWays + "DisplayNotation DisplayPrecision Slope IsLinear"},
    {"IntConverter", kKnife + kBothWays + "Slope"},
    {"SwissKnife", kKnife + "Formula! Unit Representation DisplayNotation DisplayPrecision"},
    {"IntSwissKnife", kKnife + "Formula! Unit Representation"},
    {"Port", kNode + "ChunkID|pChunkID SwapEndianess CacheChunkData"},
};

const std::map<std::string, std::string> kSpellings = {
    {"Visibility", "Beginner Expert Guru Invisible"},
    {"AccessMode", "RO RW WO"},
    {"ImposedAccessMode", "RO RW WO"},
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
