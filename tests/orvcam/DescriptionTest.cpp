#include "BytePort.h"
#include "ZipMaker.h"

#include "orvcam/Description.h"
#include "orvcam/DescriptionSource.h"
#include "orvcam/ZipReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>

namespace {

using namespace orv::cam;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

const std::string kGood =
    DescriptionOf({"Gain"}, "<Integer Name=\"Gain\"><pValue>GainReg</pValue></Integer>" + IntReg("GainReg", "0x10"));

struct Read {
    bool ok = false;
    Description description;
    std::string cleaned;
    std::string error;
};

Read ReadIt(const std::string &xml)
{
    Read read;
    read.ok = ReadDescription(xml, &read.description, &read.cleaned, &read.error);
    return read;
}

std::string Utf16(const std::string &ascii)
{
    std::string text = "\xFF\xFE";
    for (const char c : ascii)
        text += std::string{c, '\0'};
    return text;
}

std::string Replaced(std::string text, const std::string &what, const std::string &with)
{
    return text.replace(text.find(what), what.size(), with);
}

std::string Nested(int levels)
{
    std::string inner;
    for (int i = 0; i < levels; ++i)
        inner = "<Group Comment=\"g\">" + inner + "</Group>";
    return DescriptionOf({}, "<Integer Name=\"Gain\"><Value>1</Value></Integer>" + inner);
}

const struct {
    const char *rule;
    std::string bytes;
    const char *error = nullptr; ///< part of it; null when the description must be accepted
} kForms[] = {
    {"good", kGood},
    {"empty", "", "empty"},
    {"cut off in the middle", kGood.substr(0, kGood.size() / 2), "not well formed"},
    {"cut off before the last tag", kGood.substr(0, kGood.size() - 5), "not well formed"},
    {"padded with NULs", kGood + std::string(100, '\0')},
    {"text behind the end tag", kGood + "garbage <x>"},
    {"UTF-16", Utf16(Replaced(kGood, "UTF-8", "UTF-16"))},
    {"UTF-16 padded with NULs", Utf16(Replaced(kGood, "UTF-8", "UTF-16")) + std::string(64, '\0')},
    {"Latin-1 degree sign that claims to be UTF-8", Replaced(kGood, "<pValue>",
                                                             "<ToolTip>in \xB0"
                                                             "C</ToolTip><pValue>")},
    {"encoding that the parser does not know", Replaced(kGood, "UTF-8", "windows-1252")},
    {"the same in UTF-8",
     Replaced(Replaced(kGood, "UTF-8", "cp1252"), "<pValue>", "<ToolTip>\xC2\xB5s</ToolTip><pValue>")},
    {"the same with bytes of its own",
     Replaced(Replaced(kGood, "UTF-8", "windows-1252"), "<pValue>", "<ToolTip>\xB5s</ToolTip><pValue>")},
    {"bytes that call themselves UTF-16", Replaced(kGood, "UTF-8", "UTF-16")},
    {"other root element", "<Description/>", "<Description>"},
    {"document type", "<!DOCTYPE RegisterDescription>" + kGood.substr(kGood.find('\n')), "document type declaration"},
    {"entity bomb",
     "<!DOCTYPE b [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;&a;&a;\">]>"
     "<RegisterDescription>&b;</RegisterDescription>",
     "document type declaration"},
    {"prefixed names",
     "<g:RegisterDescription xmlns:g=\"urn:g\"><g:Integer Name=\"Gain\"><g:Value>1</g:Value></g:Integer>"
     "</g:RegisterDescription>"},
    {"groups nested ten deep", Nested(10)},
    {"nested too deep", Nested(100), "deeper"},
};

TEST(Description, IsAcceptedOrRefusedByItsForm)
{
    for (const auto &row : kForms) {
        SCOPED_TRACE(row.rule);
        const Read read = ReadIt(row.bytes);
        EXPECT_EQ(row.error == nullptr, read.ok) << read.error;
        if (row.error != nullptr)
            EXPECT_THAT(read.error, HasSubstr(row.error));
        else
            EXPECT_NE(nullptr, read.description.Find("Gain"));
    }
}

std::string Integer(const std::string &name, const std::string &inside)
{
    return Node("Integer", name, inside);
}

std::string Knife(const std::string &name, const std::vector<std::string> &variables)
{
    std::string inside;
    int i = 0;
    for (const std::string &variable : variables)
        inside += "<pVariable Name=\"V" + std::to_string(i++) + "\">" + variable + "</pVariable>";
    return Node("IntSwissKnife", name, inside + "<Formula>V0</Formula>");
}

std::string Chain(const std::string &prefix, int length, const std::string &end)
{
    std::string nodes;
    for (int i = 0; i < length; ++i)
        nodes += Integer(prefix + std::to_string(i),
                         "<pValue>" + (i + 1 < length ? prefix + std::to_string(i + 1) : end) + "</pValue>");
    return nodes;
}

/// Each level reads the next one twice: few nodes, but 2^levels register reads.
std::string Doubling(int levels)
{
    std::string nodes;
    for (int i = 0; i < levels; ++i) {
        const std::string next = i + 1 < levels ? "K" + std::to_string(i + 1) : "Good";
        nodes += Knife("K" + std::to_string(i), {next, next});
    }
    return nodes;
}

/// `nodes` beside a sound feature "Good"; which features remain, and what the log says of the others.
const struct {
    const char *rule;
    std::string nodes;
    std::string gone, kept; ///< names divided by |
    const char *warning = nullptr;
} kReferences[] = {
    {"loop of values", Integer("A", "<pValue>B</pValue>") + Integer("B", "<pValue>A</pValue>"), "A|B", "",
     "A -> B -> A"},
    {"itself", Integer("A", "<pValue>A</pValue>"), "A", "", "A -> A"},
    {"leads into a loop", Integer("Entry", "<pValue>A</pValue>") + Knife("A", {"B"}) + Knife("B", {"A"}), "Entry|A|B",
     "", "(A -> B -> A)"},
    {"loop through an index offset", Register("IntReg", "A", "0", "4", "<pIndex pOffset=\" A \">Good</pIndex>"), "A",
     "", "A -> A"},
    // Width's limit depends on the offset and the offset's on the width: that is how cameras do it.
    {"limits that depend on each other's values",
     Integer("Width", "<pValue>Good</pValue><pMax>WidthMax</pMax>") +
         Integer("OffsetX", "<pValue>Good</pValue><pMax>OffsetMax</pMax>") + Knife("WidthMax", {"OffsetX"}) +
         Knife("OffsetMax", {"Width"}),
     "", "Width|OffsetX|WidthMax|OffsetMax"},
    {"selectors and categories may go round",
     Node("Category", "C", "<pFeature>D</pFeature>") + Node("Category", "D", "<pFeature>C</pFeature>") +
         Integer("S", "<Value>0</Value><pSelected>T</pSelected>") +
         Integer("T", "<Value>0</Value><pSelected>S</pSelected>"),
     "", "C|D|S|T"},
    {"dangling value", Integer("A", "<pValue>Nowhere</pValue>"), "A", "", "\"Nowhere\""},
    {"dangling limit spreads to users", Integer("A", "<pValue>Good</pValue><pMax>Nowhere</pMax>") + Knife("B", {"A"}),
     "A|B", "", "which was left out"},
    {"dangling port", Node("IntReg", "A", "<Address>0</Address><Length>4</Length><pPort>Other</pPort>"), "A", "",
     "\"Other\""},
    {"dangling selected and invalidator only go themselves",
     Integer("A", "<pInvalidator>Gone</pInvalidator><Value>1</Value><pSelected>Gone</pSelected>"), "", "A"},
    {"blanks around a reference", Integer("A", "<pValue>\n  Good </pValue>"), "", "A"},
    {"second node of a name", Integer("A", "<Value>1</Value>") + Integer("A", "<Value>2</Value>"), "", "A",
     "second node"},
    {"entry that cannot work leaves the enumeration",
     "<Enumeration Name=\"E\"><EnumEntry Name=\"Fine\"><Value>0</Value></EnumEntry>"
     "<EnumEntry Name=\"Bad\"><pIsAvailable>Nowhere</pIsAvailable><Value>1</Value></EnumEntry>"
     "<pValue>Good</pValue></Enumeration>",
     "Bad", "E", "E/Bad"},
    {"structure with its entries",
     "<StructReg><Address>0</Address><Length>4</Length><pPort>Other</pPort>"
     "<StructEntry Name=\"A\"><Bit>1</Bit></StructEntry></StructReg>",
     "A", "", "\"Other\""},
    {"formula inside a register",
     "<IntReg Name=\"A\"><IntSwissKnife Name=\"F\"><pVariable Name=\"X\">Nowhere</pVariable>"
     "<Formula>X</Formula></IntSwissKnife><Length>4</Length><pPort>Device</pPort></IntReg>",
     "A|F", "", "\"Nowhere\""},
    {"formula variable without a name", Node("SwissKnife", "A", "<pVariable>Good</pVariable><Formula>1</Formula>"), "A",
     "", "has no name"},
    {"length that no register has", Register("StringReg", "A", "0", "99999999999"), "A", "", "99999999999"},
    {"attributes that parsers read differently",
     "<Integer Name=\"A\" n\xC3\xA4me=\"x\" b-c=\"y\"><Value>1</Value></Integer>", "", "A"},
    {"node inside of a node that takes none",
     Integer("B", "<Value>1</Value>") + "<IntReg Name=\"A\"><Address>0</Address><Length>4</Length><pPort>Device</pPort>"
                                        "<IntConverter Name=\"C\"><pValue>B</pValue></IntConverter></IntReg>",
     "C", "A|B", "<IntConverter> inside of it"},
    {"name that parsers read differently",
     "<Integer Name=\"A&#10;B\"><pValue>A B</pValue></Integer>" + Integer("A B", "<Value>1</Value>") +
         Integer("C", "<pValue>A B</pValue>") + Integer("D-1.x", "<Value>1</Value>"),
     "A\nB|A B|C", "D-1.x", "\"A B\" was left out"},
    {"formula inside a register with such a name",
     "<IntReg Name=\"A\"><IntSwissKnife Name=\"F&#10;\n G\"><Formula>1</Formula></IntSwissKnife>"
     "<Length>4</Length><pPort>Device</pPort></IntReg>",
     "A", "", "a part of it"},
    {"element that splits a length",
     "<StringReg Name=\"A\"><Address>0</Address><Length>9999999999999<x/>8</Length>"
     "<pPort>Device</pPort></StringReg>",
     "A", "", "99999999999998"},
    {"element that splits a reference",
     Integer("A", "<pValue>Go<x>od</x>od</pValue>") + Integer("B", "<pValue>No<x/>where</pValue>"), "B", "A",
     "\"Nowhere\""},
    {"unknown kinds", "<IntKey Name=\"A\"/>" + Integer("B", "<pValue>A</pValue>"), "A|B", "", "\"A\""},
    {"extensions are not looked at",
     Integer("A", "<Extension><pValue>Nowhere</pValue><IntReg Name=\"X\"/></Extension><Value>1</Value>"), "X", "A"},
    {"chain of ordinary length", Chain("N", 20, "Good"), "", "N0|N19"},
    {"chain that would overflow the stack", Chain("N", 100000, "Good"), "N0", "N99999", "too many values"},
    {"few nodes with endless work", Doubling(60), "K0", "K59", "too many values"},
};

std::vector<std::string> Names(const std::string &text)
{
    std::vector<std::string> names;
    std::istringstream stream(text);
    for (std::string name; std::getline(stream, name, '|');)
        names.push_back(name);
    return names;
}

TEST(Description, ReferencesTakeOutOnlyWhatCannotWork)
{
    for (const auto &row : kReferences) {
        SCOPED_TRACE(row.rule);
        const Read read = ReadIt(DescriptionOf({"Good"}, row.nodes + IntReg("Good", "0x20")));
        ASSERT_TRUE(read.ok) << read.error;
        EXPECT_NE(nullptr, read.description.Find("Good"));
        for (const std::string &name : Names(row.gone)) {
            EXPECT_EQ(nullptr, read.description.Find(name)) << name;
            EXPECT_THAT(read.cleaned, Not(HasSubstr("Name=\"" + name + "\""))) << name;
        }
        for (const std::string &name : Names(row.kept)) {
            EXPECT_NE(nullptr, read.description.Find(name)) << name;
            EXPECT_THAT(read.cleaned, HasSubstr("Name=\"" + name + "\"")) << name;
        }
        if (row.warning != nullptr)
            EXPECT_THAT(read.description.warnings, testing::Contains(HasSubstr(row.warning)));
        else
            EXPECT_THAT(read.description.warnings, testing::IsEmpty());
        EXPECT_THAT(read.cleaned, Not(HasSubstr("\xC3\xA4me")));
        const Read again = ReadIt(read.cleaned);
        EXPECT_TRUE(again.ok) << read.cleaned;
        EXPECT_THAT(again.description.warnings, testing::IsEmpty());
    }
}

/// A walk along the references that calls itself runs out of stack here, and a quadratic one out of the test's time.
TEST(Description, DeepAndWideOnesAreRead)
{
    std::string selectors = Integer("T", "<Value>1</Value>");
    for (int i = 0; i < 30000; ++i)
        selectors += Integer("S" + std::to_string(i), "<Value>1</Value><pSelected>T</pSelected>");
    const Read loop = ReadIt(DescriptionOf({}, Chain("N", 30000, "N29999")));
    const Read many = ReadIt(DescriptionOf({}, selectors));
    EXPECT_EQ(nullptr, loop.description.Find("N0"));
    EXPECT_THAT(loop.description.warnings, testing::Contains(HasSubstr("(N29999 -> N29999)")));
    EXPECT_EQ(30000u, many.description.Find("T")->selectedBy.size());
}

/// Lengths that the camera tells pass through nodes of our own, which nothing in a description can mean.
TEST(Description, ToldLengthsAreBounded)
{
    const std::string reg = "<Address>0</Address><AccessMode>RW</AccessMode><pPort>Device</pPort><pLength>";
    const Read read = ReadIt(DescriptionOf(
        {"A"}, "<StringReg Name=\"A\">" + reg + "L</pLength></StringReg><StructReg>" + reg +
                   "L</pLength><StructEntry Name=\"B\"><Bit>1</Bit></StructEntry></StructReg><StructReg>" + reg +
                   "M</pLength><StructEntry Name=\"C\"><Bit>1</Bit></StructEntry></StructReg>" +
                   Integer("L", "<Value>8</Value>") + Integer("M", "<Value>4</Value>") +
                   Integer("Taken", "<pValue>#0</pValue>") + Integer("#0", "<Value>4</Value>")));
    ASSERT_TRUE(read.ok) << read.error;
    for (const char *name : {"A", "B", "C", "L", "M"})
        EXPECT_NE(nullptr, read.description.Find(name)) << name;
    EXPECT_EQ(nullptr, read.description.Find("Taken"));
    for (const char *text : {"<pLength>#0</pLength>", "<pLength>#1</pLength>", "<pLength>#2</pLength>",
                             "Name=\"#2\"><pVariable Name=\"LENGTH\">M<"}) {
        EXPECT_THAT(read.cleaned, HasSubstr(text));
        EXPECT_EQ(read.cleaned.find(text), read.cleaned.rfind(text)) << text;
    }
    EXPECT_EQ(read.cleaned.find("Name=\"#0\""), read.cleaned.rfind("Name=\"#0\""));
}

TEST(Description, KeepsTheFactsThatGenApiDrops)
{
    const std::string nodes = "<Enumeration Name=\"Sel\"><EnumEntry Name=\"One\"><Value>1</Value></EnumEntry>"
                              "<Value>1</Value><pSelected>Gain</pSelected></Enumeration>"
                              "<Boolean Name=\"Flag\"><Value>1</Value><pSelected>Gain</pSelected></Boolean>"
                              "<Integer Name=\"Gain\"><Streamable>Yes</Streamable><Value>1</Value></Integer>"
                              "<Command Name=\"Go\"><Value>0</Value><CommandValue>0x10</CommandValue>"
                              "<PollingTime>250</PollingTime></Command>"
                              "<Category Name=\"Sub\"><pFeature>Gain</pFeature><pFeature>Go</pFeature></Category>";
    const Read read = ReadIt(DescriptionOf({"Sel", "Sub", "Missing", "Gain", "Flag"}, nodes));
    ASSERT_TRUE(read.ok) << read.error;
    const Description &facts = read.description;
    EXPECT_EQ("Nuvark", facts.vendorName);
    EXPECT_EQ("2.3.4", facts.version);
    EXPECT_EQ("1.1.0", facts.schemaVersion);
    EXPECT_TRUE(facts.marksStreamable);
    EXPECT_TRUE(facts.Find("Gain")->streamable);
    EXPECT_FALSE(facts.Find("Sel")->streamable);
    EXPECT_EQ(250, facts.Find("Go")->pollingMs);
    EXPECT_EQ(16, facts.Find("Go")->commandValue);
    std::vector<std::string> selectors;
    for (const int index : facts.Find("Gain")->selectedBy)
        selectors.push_back(facts.nodes[index].name);
    EXPECT_THAT(selectors, ElementsAre("Sel", "Flag"));
    EXPECT_THAT(facts.FeatureNames(), ElementsAre("Sel", "Gain", "Go", "Flag"));
    EXPECT_EQ(nullptr, facts.Find("One")) << "entries have names of their own only within their enumeration";
}

TEST(Zip, UnpacksWhatCamerasAndToolsWrite)
{
    const std::string companion(200, 'x');
    const struct {
        const char *rule;
        std::string archive;
    } kCases[] = {
        {"deflated", MakeZip({{"camera.xml", kGood}})},
        {"stored", MakeZip({{"camera.XML", kGood, false}})},
        {"streamed, sizes behind the data", MakeZip({{"camera.xml", kGood, true, true}})},
        {"companions first",
         MakeZip({{"__MACOSX/._camera.xml", companion}, {"readme.txt", companion}, {"a/c.xml", kGood}})},
        {"padded to the register's length", MakeZip({{"camera.xml", kGood}}) + std::string(37, '\0')},
        {"behind other bytes", "stub" + MakeZip({{"camera.xml", kGood}})},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.rule);
        std::string xml, error;
        EXPECT_TRUE(UnzipDescription(row.archive, kMaxDescriptionBytes, &xml, &error)) << error;
        EXPECT_EQ(kGood, xml);
    }
}

TEST(Zip, RefusesWhatIsDamaged)
{
    const std::string good = MakeZip({{"camera.xml", kGood}});
    std::string flipped = good;
    flipped[good.find("camera.xml") + 40] ^= 0x20;
    std::string wrongCrc = MakeZip({{"camera.xml", kGood, false}});
    wrongCrc[wrongCrc.find("Gain")] = 'R';
    const std::string bomb = MakeZip({{"camera.xml", std::string(1 << 20, ' ')}});
    std::string xml, error;
    EXPECT_FALSE(UnzipDescription(flipped, 1 << 20, &xml, &error));
    EXPECT_FALSE(UnzipDescription(wrongCrc, 1 << 20, &xml, &error));
    EXPECT_FALSE(UnzipDescription(MakeZip({{"camera.txt", kGood}}), 1 << 20, &xml, &error));
    EXPECT_FALSE(UnzipDescription(bomb, (1 << 20) - 1, &xml, &error));
    EXPECT_THAT(error, HasSubstr("1048576 bytes"));
    for (std::size_t length = 0; length < good.size(); ++length)
        EXPECT_FALSE(UnzipDescription(good.substr(0, length), 1 << 20, &xml, &error)) << length;
    // Any single wrong byte is either noticed or harmless: never more than the content, never a read out of bounds.
    for (std::size_t at = 0; at < good.size(); ++at) {
        std::string damaged = good;
        damaged[at] = static_cast<char>(~damaged[at]);
        EXPECT_TRUE(!UnzipDescription(damaged, 1 << 20, &xml, &error) || xml == kGood) << at;
    }
}

TEST(DescriptionSource, UnderstandsTheAddressesOfRealCameras)
{
    const struct {
        const char *text;
        std::uint64_t address, bytes;
    } kCases[] = {
        {"local:camera.xml;F000;2b39", 0xF000, 0x2B39},
        {"Local:///camera.zip; 0xF0000 ; 2B39?SchemaVersion=1.1.0", 0xF0000, 0x2B39},
        {"LOCAL:camera.xml;8000000000000000;10", 0x8000000000000000, 0x10},
    };
    DescriptionUrl url;
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.text);
        ASSERT_TRUE(ParseDescriptionUrl(row.text, &url));
        EXPECT_EQ(row.address, url.address);
        EXPECT_EQ(row.bytes, url.bytes);
    }
    for (const char *text : {"local:camera.xml;F000", "local:camera.xml;F000;0", "local:camera.xml;F000;FFFFFFFF",
                             "local:camera.xml;F000;12G", "local:camera.xml;F000;11112222333344445",
                             "http://host/camera.xml", "camera.xml", ""})
        EXPECT_FALSE(ParseDescriptionUrl(text, &url)) << text;
    ASSERT_TRUE(ParseDescriptionUrl("File:///usr/share/my%20camera.xml?SchemaVersion=1.0.0", &url));
    EXPECT_EQ("/usr/share/my camera.xml", url.path);
}

TEST(DescriptionSource, FallsBackAlongTheList)
{
    const std::string zip = MakeZip({{"camera.xml", kGood}});
    BytePort port(0x10000);
    std::copy(zip.begin(), zip.end(), port.bytes.begin() + 0x9000);
    char length[32];
    std::snprintf(length, sizeof length, ";9000;%zx", zip.size());
    std::string xml, error;
    // The zip is known by its content, not its name.
    EXPECT_TRUE(FetchDescription({"http://x/y.xml", "local:a.xml;FF00;200", "local:a.xml" + std::string(length)}, port,
                                 &xml, &error))
        << error;
    EXPECT_EQ(kGood, xml);
    EXPECT_FALSE(FetchDescription({"local:a.xml;FF00;200", "file:///no/such/file.xml"}, port, &xml, &error));
    EXPECT_THAT(error, HasSubstr("no register there"));
    EXPECT_THAT(error, HasSubstr("no such file"));
    EXPECT_FALSE(FetchDescription({}, port, &xml, &error));

    const std::string path = testing::TempDir() + "orv description.xml";
    std::ofstream(path) << kGood;
    EXPECT_TRUE(FetchDescription({"file://" + Replaced(path, " ", "%20")}, port, &xml, &error)) << error;
    EXPECT_EQ(kGood, xml);
    std::remove(path.c_str());
}

} // namespace
