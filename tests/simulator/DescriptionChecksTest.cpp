#include "tests/simulator/DescriptionChecks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace orvsim {

namespace {

/// Without fault, and with something for every rule to find when a piece of it is replaced.
const char *const kDocument = R"(<?xml version="1.0" encoding="UTF-8"?>
<RegisterDescription ModelName="M" VendorName="V" StandardNameSpace="None" SchemaMajorVersion="1" SchemaMinorVersion="1"
  SchemaSubMinorVersion="0" MajorVersion="1" MinorVersion="0" SubMinorVersion="0" ProductGuid="1" VersionGuid="2"
  xmlns="http://www.genicam.org/GenApi/Version_1_1">
  <Category Name="Root"><pFeature>Width</pFeature><pFeature>Mode</pFeature><pFeature>Gain</pFeature>
    <pFeature>Flag</pFeature><pFeature>Sum</pFeature><pFeature>ChunkTime</pFeature></Category>
  <Integer Name="Width"><ToolTip>Tip</ToolTip><Visibility>Expert</Visibility><pValue>WidthReg</pValue><Min>16</Min>
    <Max>64</Max><Inc>16</Inc></Integer>
  <IntReg Name="WidthReg"><Address>0x300</Address><Length>4</Length><AccessMode>RW</AccessMode>
    <pPort>Device</pPort><pInvalidator>Mode</pInvalidator><Sign>Unsigned</Sign>
    <Endianess>BigEndian</Endianess></IntReg>
  <Enumeration Name="Mode"><EnumEntry Name="On"><pIsAvailable>Open</pIsAvailable><Value>1</Value></EnumEntry>
    <EnumEntry Name="Off"><Value>0</Value></EnumEntry><pValue>ModeReg</pValue>
    <pSelected>Width</pSelected></Enumeration>
  <MaskedIntReg Name="ModeReg"><Address>0x100</Address><Length>4</Length><AccessMode>RW</AccessMode>
    <pPort>Device</pPort><LSB>31</LSB><MSB>28</MSB><Endianess>BigEndian</Endianess></MaskedIntReg>
  <IntSwissKnife Name="Open"><pVariable Name="W">WidthReg</pVariable><Formula>((W &gt; 3) &amp; 1)</Formula>
  </IntSwissKnife>
  <Converter Name="Gain"><FormulaTo>(FROM * 10)</FormulaTo><FormulaFrom>(TO / 10.0)</FormulaFrom>
    <pValue>WidthReg</pValue></Converter>
  <Boolean Name="Flag"><pValue>ModeReg</pValue><OnValue>1</OnValue><OffValue>0</OffValue></Boolean>
  <SwissKnife Name="Sum"><pVariable Name="G">Gain</pVariable><pVariable Name="F">Level</pVariable>
    <Formula>((G + F) - (G * 2))</Formula></SwissKnife>
  <Float Name="Level"><pValue>LevelReg</pValue><Min>0.5</Min><Max>2</Max></Float>
  <FloatReg Name="LevelReg"><Address>0x200</Address><Length>8</Length><AccessMode>RO</AccessMode>
    <pPort>Device</pPort><Endianess>BigEndian</Endianess></FloatReg>
  <IntReg Name="ChunkTime"><Address>0</Address><Length>4</Length><AccessMode>RO</AccessMode><pPort>ChunkPort</pPort>
    <Endianess>BigEndian</Endianess></IntReg>
  <Port Name="ChunkPort"><ChunkID>1A</ChunkID></Port>
  <Port Name="Device"/>
</RegisterDescription>
)";

struct Fault {
    const char *rule;
    const char *piece;
    const char *replacement;
    const char *problem; ///< part of the sentence
};

const Fault kFaults[] = {
    {"well formed", "</Integer>", "</Float>", "not well formed"},
    {"schema version", "SchemaMinorVersion=\"1\"", "SchemaMinorVersion=\"0\"", "SchemaMinorVersion is '0'"},
    {"identification", "ProductGuid=\"1\"", "", "lacks ProductGuid"},
    {"a root category", "Name=\"Root\"", "Name=\"Top\"", "Root: there is no such category"},
    {"known kinds of nodes", "<Port Name=\"Device\"/>", "<Port Name=\"Device\"/><Knob Name=\"K\"/>", "no node"},
    {"each name once", "Name=\"Level\"", "Name=\"Width\"", "Width: the name is there twice"},
    {"references lead somewhere", "<pValue>LevelReg<", "<pValue>LevelRegister<",
     "'LevelRegister', which does not exist"},
    {"entries' references lead somewhere", "<pIsAvailable>Open<", "<pIsAvailable>Opan<", "'Opan'"},
    {"ports are ports", "<pPort>ChunkPort<", "<pPort>Level<", "refers to a Float"},
    {"no Boolean selectors", "</OffValue>", "</OffValue><pSelected>Width</pSelected>", "makes a selector"},
    {"order within the head", "<ToolTip>Tip</ToolTip><Visibility>Expert</Visibility>",
     "<Visibility>Expert</Visibility><ToolTip>Tip</ToolTip>", "Width: <ToolTip> is not allowed at its place"},
    {"elements once", "<Min>0.5</Min>", "<Min>0.5</Min><Min>0.6</Min>", "<Min> is not allowed"},
    {"required elements", "<Length>8</Length>", "", "lacks <Length>"},
    {"words of the schema", ">Expert<", ">Everybody<", "<Visibility> says 'Everybody'"},
    {"operands in parentheses", "((W &gt; 3) &amp; 1)", "(W &gt; 3 &amp; 1)", "not read alike"},
    {"no operators of other languages", "(FROM * 10)", "(FROM == 10)", "not read alike"},
    {"no leading point", "(TO / 10.0)", "(TO / .5)", "not read alike"},
    {"variables are declared", "(G * 2)", "(H * 2)", "not read alike"},
    {"the converter's own variable", "(FROM * 10)", "(TO * 10)", "not read alike"},
    {"integer formulas in integers", "((W &gt; 3) &amp; 1)", "(W &gt; 3.5)", "not read alike"},
    {"variables are not called as functions", "Name=\"G\"", "Name=\"E\"", "cannot be called 'E'"},
    {"entries' names", "EnumEntry Name=\"On\"", "EnumEntry Name=\"Off\"", "two entries are called Off"},
    {"entries' values", "<Value>1</Value>", "<Value>0</Value>", "two entries have the value 0"},
    {"byte order", "<pPort>ChunkPort</pPort>\n    <Endianess>BigEndian</Endianess>", "<pPort>ChunkPort</pPort>",
     "ChunkTime: lacks <Endianess>"},
    {"bits as big-endian registers count them", "<LSB>31</LSB><MSB>28</MSB>", "<LSB>28</LSB><MSB>31</MSB>", "bits"},
    {"bits within the register", "<LSB>31</LSB><MSB>28</MSB>", "<Bit>32</Bit>", "bits"},
    {"lengths of floats", "<Length>8</Length>", "<Length>6</Length>", "a FloatReg of 6 bytes"},
    {"increment leads to the maximum", "<Max>64</Max>", "<Max>60</Max>", "does not lead"},
    {"minimum below maximum", "<Min>16</Min>", "<Min>80</Min>", "Width: the minimum is above"},
    {"literals are numbers", "<Min>0.5</Min>", "<Min>0,5</Min>", "<Min> is no number"},
    {"identifiers of chunks", ">1A<", ">0x1A<", "not hexadecimal without prefix"},
};

} // namespace

TEST(DescriptionChecks, FindNothingInAGoodDescription)
{
    EXPECT_THAT(DescriptionProblems(kDocument), testing::IsEmpty());
}

TEST(DescriptionChecks, EachRuleFindsItsFault)
{
    for (const Fault &fault : kFaults) {
        SCOPED_TRACE(fault.rule);
        std::string document = kDocument;
        const std::size_t place = document.find(fault.piece);
        ASSERT_NE(place, std::string::npos);
        document.replace(place, std::string(fault.piece).size(), fault.replacement);
        EXPECT_THAT(DescriptionProblems(document), testing::Contains(testing::HasSubstr(fault.problem)));
    }
}

} // namespace orvsim
