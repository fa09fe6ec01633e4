// Small descriptions, each with the nodes of one subject, and some that hostile cameras would tell.
#include "fuzz/Target.h"
#include "tests/orvcam/BytePort.h"

#include <string>

namespace orv::fuzz {

namespace {

Bytes Seed(const std::vector<std::string> &features, const std::string &nodes)
{
    const std::string xml = DescriptionOf(features, nodes);
    return Bytes(xml.begin(), xml.end());
}

std::string Knife(const std::string &kind, const std::string &name, const std::string &formula)
{
    return "<" + kind + " Name=\"" + name + "\"><pVariable Name=\"A\">R</pVariable><Constant Name=\"C\">3</Constant>" +
           "<Expression Name=\"E\">A*2+C</Expression><Formula>" + formula + "</Formula></" + kind + ">\n";
}

std::string Converter(const std::string &kind, const std::string &name)
{
    return "<" + kind + " Name=\"" + name + "\"><FormulaTo>FROM/2</FormulaTo><FormulaFrom>TO*2</FormulaFrom>" +
           "<pValue>R</pValue><Slope>Increasing</Slope></" + kind + ">\n";
}

/// Each expression names the one before twice.
std::string Laughs()
{
    std::string text = "<IntSwissKnife Name=\"K\"><Expression Name=\"E0\">1</Expression>";
    for (int i = 1; i < 40; ++i) {
        const std::string before = "E" + std::to_string(i - 1);
        text += "<Expression Name=\"E" + std::to_string(i) + "\">" + before + "+" + before + "</Expression>";
    }
    return text + "<Formula>E39</Formula></IntSwissKnife>";
}

} // namespace

std::vector<Bytes> Seeds()
{
    const std::string reg = IntReg("R", "0x10");
    return {
        Seed({"I"}, "<Integer Name=\"I\"><pValue>R</pValue><Min>1</Min><Max>100</Max><Inc>2</Inc></Integer>" + reg),
        Seed({"I", "F"}, "<Integer Name=\"I\"><Value>5</Value></Integer><Float Name=\"F\"><Value>0.5</Value>"
                         "<Min>-1e3</Min><Max>1e3</Max><Unit>us</Unit></Float>"),
        Seed({"F"}, "<FloatReg Name=\"F\"><Address>0x20</Address><Length>4</Length><AccessMode>RW</AccessMode>"
                    "<pPort>Device</pPort><Endianess>LittleEndian</Endianess></FloatReg>"),
        Seed({"M"}, "<MaskedIntReg Name=\"M\"><Address>4</Address><Length>4</Length><AccessMode>RW</AccessMode>"
                    "<pPort>Device</pPort><LSB>7</LSB><MSB>4</MSB><Sign>Signed</Sign>"
                    "<Endianess>BigEndian</Endianess></MaskedIntReg>"),
        Seed({"E"}, "<Enumeration Name=\"E\"><EnumEntry Name=\"A\"><Value>0</Value></EnumEntry>"
                    "<EnumEntry Name=\"B\"><Value>1</Value><pIsAvailable>R</pIsAvailable></EnumEntry>"
                    "<pValue>R</pValue></Enumeration>" +
                        reg),
        Seed({"B", "C"}, "<Boolean Name=\"B\"><pValue>R</pValue><OnValue>1</OnValue><OffValue>0</OffValue></Boolean>"
                         "<Command Name=\"C\"><pValue>R</pValue><CommandValue>1</CommandValue></Command>" +
                             reg),
        Seed({"S"}, "<StringReg Name=\"S\"><Address>0x40</Address><Length>16</Length><AccessMode>RW</AccessMode>"
                    "<pPort>Device</pPort></StringReg>"),
        Seed({"K"}, Knife("IntSwissKnife", "K", "(A&gt;2) ? E/C : A%C") + reg),
        Seed({"K"}, Knife("SwissKnife", "K", "SIN(A)*1.5e0 + E ** 2 - LN(C)") + reg),
        Seed({"V"}, Converter("IntConverter", "V") + reg),
        Seed({"V"}, Converter("Converter", "V") + reg),
        Seed({"P"}, "<StructReg Comment=\"s\"><Address>8</Address><Length>4</Length><AccessMode>RW</AccessMode>"
                    "<pPort>Device</pPort><Endianess>BigEndian</Endianess><StructEntry Name=\"P\"><Bit>3</Bit>"
                    "</StructEntry></StructReg>"),
        Seed({"I"}, "<Integer Name=\"I\"><pIndex Name=\"R\">R</pIndex><pValueIndexed Index=\"0\">R</pValueIndexed>"
                    "<pValueDefault>R</pValueDefault></Integer>" +
                        reg),
        Seed({"Y"}, "<IntReg Name=\"Y\"><pAddress>R</pAddress><pIndex Offset=\"4\">R</pIndex><pLength>R</pLength>"
                    "<AccessMode>RW</AccessMode><pPort>Device</pPort><Cachable>NoCache</Cachable>"
                    "<pInvalidator>R</pInvalidator></IntReg>" +
                        reg),
        Seed({"X", "R"}, "<Integer Name=\"X\"><Visibility>Guru</Visibility><pIsLocked>R</pIsLocked>"
                         "<pIsImplemented>R</pIsImplemented><Streamable>Yes</Streamable><pValue>R</pValue>"
                         "<Representation>IPV4Address</Representation><pSelected>R</pSelected></Integer>" +
                             reg),
        Seed({"L"}, "<Integer Name=\"L\"><pValue>M</pValue></Integer><Integer Name=\"M\"><pValue>L</pValue></Integer>"),
        Seed({"K"}, Laughs()),
        Seed({"K"}, Knife("IntSwissKnife", "K", "0x8000000000000000 / (0-1)") + reg),
        Seed({"G"}, "<Group Comment=\"g\"><Register Name=\"G\"><Address>0</Address><Length>0xFFFFFFFF</Length>"
                    "<AccessMode>RO</AccessMode><pPort>Device</pPort></Register></Group>"),
    };
}

} // namespace orv::fuzz
