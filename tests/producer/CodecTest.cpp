#include "HexBytes.h"
#include "producer/ChunkLayout.h"
#include "producer/gige/Discovery.h"
#include "producer/gige/Gvcp.h"
#include "producer/gige/Gvsp.h"
#include "producer/gige/Text.h"
#include "producer/gige/XmlUrl.h"

#include <gtest/gtest.h>

using namespace nuvark;
using namespace nuvark::gige;

namespace {

// One camera throughout: 192.168.10.20, MAC 02:00:00:ab:cd:ef, 640 x 480 Mono8.
constexpr char kDiscoveryAck[] = "00 00 00 03 00 F8 FF FF 00 02 00 00 80 00 00 01 00 00 02 00 00 AB CD EF 00 00 00 07"
                                 "00 00 00 06 00 00 00 00 00 00 00 00 00 00 00 00 C0 A8 0A 14 00 00 00 00 00 00 00 00"
                                 "00 00 00 00 FF FF FF 00 00 00 00 00 00 00 00 00 00 00 00 00 C0 A8 0A 01"
                                 "45 78 61 6D 70 6C 65 43 6F 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
                                 "00 00 00 00 53 69 6D 43 61 6D 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
                                 "00 00 00 00 00 00 00 00 31 2E 30 2E 30 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
                                 "00 00 00 00 00 00 00 00 00 00 00 00 73 69 6D 75 6C 61 74 65 64 00 00 00 00 00 00 00"
                                 "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
                                 "00 00 00 00 53 4E 30 30 30 30 34 32 00 00 00 00 00 00 00 00 6C 65 66 74 00 00 00 00"
                                 "00 00 00 00 00 00 00 00";

NetworkInterface HostInterfaceAt(const char *address, const char *mask)
{
    NetworkInterface interface;
    interface.name = "eth0";
    interface.address = *ParseAddress(address);
    interface.mask = *ParseAddress(mask);
    return interface;
}

} // namespace

TEST(GvcpCodec, CommandsAreBuiltAsOnTheWire)
{
    const std::vector<std::uint8_t> userName = FromHex("72 65 61 72 00 00 00 00 00 00 00 00 00 00 00 00");
    const struct {
        const char *name;
        Datagram built;
        const char *wire;
    } kRows[] = {
        {"discovery", MakeDiscovery(0xFFFF, false), "42 01 00 02 00 00 FF FF"},
        {"discovery, answer may be broadcast", MakeDiscovery(0xFFFF, true), "42 11 00 02 00 00 FF FF"},
        {"read one register", MakeReadRegister(1, {0x0A00}), "42 01 00 80 00 04 00 01 00 00 0A 00"},
        {"read three registers", MakeReadRegister(2, {0x0934, 0x0938, 0x0940}),
         "42 01 00 80 00 0C 00 02 00 00 09 34 00 00 09 38 00 00 09 40"},
        {"take control", MakeWriteRegister(3, {{0x0A00, 2}}), "42 01 00 82 00 08 00 03 00 00 0A 00 00 00 00 02"},
        {"open a stream", MakeWriteRegister(4, {{0x0D18, 0xC0A80A01}, {0x0D04, 0x400005DC}, {0x0D00, 0xC35A}}),
         "42 01 00 82 00 18 00 04 00 00 0D 18 C0 A8 0A 01 00 00 0D 04 40 00 05 DC 00 00 0D 00 00 00 C3 5A"},
        {"read memory", MakeReadMemory(5, 0xE8, 16), "42 01 00 84 00 08 00 05 00 00 00 E8 00 00 00 10"},
        {"write memory", MakeWriteMemory(6, 0xE8, SpanOf(userName)),
         "42 01 00 86 00 14 00 06 00 00 00 E8 72 65 61 72 00 00 00 00 00 00 00 00 00 00 00 00"},
    };
    for (const auto &row : kRows)
        EXPECT_EQ(row.built, FromHex(row.wire)) << row.name;
}

TEST(GvcpCodec, OnlyAcknowledgesThatFitTheCommandCount)
{
    auto registers = FromHex("00 00 00 81 00 0C 00 02 F8 40 00 7F 00 00 0B B8 3B 9A CA 00");
    registers.resize(46); // some drivers hand out the Ethernet padding, too
    const auto acknowledge = ParseAcknowledge(SpanOf(registers));
    ASSERT_TRUE(acknowledge);
    EXPECT_EQ(ParseReadRegister(acknowledge->payload, 3), (std::vector<std::uint32_t>{0xF840007F, 3000, 1000000000}));
    EXPECT_FALSE(ParseReadRegister(acknowledge->payload, 4)) << "more values than came";

    const auto memory = FromHex("00 00 00 85 00 14 00 05 00 00 00 E8 6C 65 66 74 00 00 00 00 00 00 00 00 00 00 00 00");
    const auto read = ParseAcknowledge(SpanOf(memory));
    ASSERT_TRUE(read && ParseReadMemory(read->payload, 0xE8, 16));
    EXPECT_EQ(orv::ByteReader(*ParseReadMemory(read->payload, 0xE8, 16)).Text(16), "left");
    EXPECT_FALSE(ParseReadMemory(read->payload, 0xEC, 16)) << "answer for another address";
    EXPECT_FALSE(ParseReadMemory(read->payload, 0xE8, 20)) << "shorter than asked";
}

TEST(GvcpCodec, EveryCutOfAnAnswerIsRefused)
{
    const auto whole = FromHex(kDiscoveryAck);
    ASSERT_EQ(whole.size(), 256U);
    for (std::size_t size = 0; size < whole.size(); ++size)
        EXPECT_FALSE(ParseAcknowledge({whole.data(), size})) << size;
    for (std::size_t size = 0; size < whole.size() - 8; ++size)
        EXPECT_FALSE(ParseDiscovery({whole.data() + 8, size})) << size;
}

TEST(GvcpCodec, ControlStatusBecomesAGenTLCode)
{
    const struct {
        std::uint16_t wire;
        bool isWrite;
        GC_ERROR code;
    } kRows[] = {
        {0x8001, false, GC_ERR_NOT_IMPLEMENTED},
        {0x8002, false, GC_ERR_INVALID_PARAMETER},
        {0x8002, true, GC_ERR_INVALID_VALUE},
        {0x8003, false, GC_ERR_INVALID_ADDRESS},
        {0x8004, true, GC_ERR_ACCESS_DENIED},
        {0x8005, false, GC_ERR_INVALID_ADDRESS},
        {0x8006, false, GC_ERR_ACCESS_DENIED},
        {0x8007, true, GC_ERR_BUSY},
        {0x8FFF, false, GC_ERR_IO},
        {0x9ABC, true, GC_ERR_IO},
        {0x0000, true, GC_ERR_SUCCESS},
    };
    for (const auto &row : kRows)
        EXPECT_EQ(StatusFromWire(row.wire, row.isWrite, "x").Code(), row.code) << std::hex << row.wire;
}

class DiscoveryTest : public ::testing::Test {
protected:
    /// What is found behind one interface after datagrams of one sender.
    DiscoveryCollector Collect(const NetworkInterface &interface, const std::vector<NetworkInterface> &all,
                               const std::vector<std::vector<std::uint8_t>> &datagrams)
    {
        DiscoveryCollector collector(interface, all);
        for (const auto &datagram : datagrams)
            collector.OnDatagram(SpanOf(datagram), sender, start);
        return collector;
    }

    const TimePoint start{};
    const NetworkInterface near = HostInterfaceAt("192.168.10.1", "255.255.255.0");
    const NetworkInterface far = HostInterfaceAt("10.0.0.1", "255.0.0.0");
    const Endpoint sender{*ParseAddress("192.168.10.20"), kControlPort};
    const std::vector<std::uint8_t> answer = FromHex(kDiscoveryAck);
};

TEST_F(DiscoveryTest, CollectsACameraWithItsRegisters)
{
    DiscoveryCollector collector = Collect(near, {near}, {answer, answer}); // it answers the second broadcast, too
    ASSERT_EQ(collector.Devices().size(), 1U);
    const DiscoveryAnswer told = collector.Devices()[0].answer;
    EXPECT_EQ(told.model, "SimCam");
    EXPECT_EQ(told.serial, "SN000042");
    EXPECT_EQ(told.userName, "left");
    EXPECT_EQ(MacText(told.mac), "02:00:00:ab:cd:ef");
    EXPECT_EQ(AddressText(told.subnetMask), "255.255.255.0");

    const auto answerRead = [&](std::uint32_t value, std::uint16_t status = 0) {
        const auto reads = collector.DueReads(start);
        ASSERT_EQ(reads.size(), 1U);
        EXPECT_TRUE(collector.DueReads(start).empty()) << "one command at a time, no repeat at once";
        const auto again = collector.DueReads(start + std::chrono::milliseconds(100));
        ASSERT_EQ(again.size(), 1U);
        EXPECT_EQ(again[0].datagram, reads[0].datagram) << "a silent register is asked for again under the same id";
        orv::ByteWriter out;
        out.U16(status);
        out.U16(AcknowledgeOf(Command::ReadRegister));
        out.U16(4);
        out.U16(static_cast<std::uint16_t>(reads[0].datagram[6] << 8 | reads[0].datagram[7]));
        out.U32(value);
        const auto datagram = out.Take();
        collector.OnDatagram(SpanOf(datagram), {*ParseAddress("10.0.0.1"), kControlPort}, start); // forged, ignored
        collector.OnDatagram(SpanOf(datagram), sender, start);
    };
    answerRead(2); // privilege: somebody controls it
    answerRead(0); // tick frequency
    answerRead(1000000000);
    answerRead(0xC0A80A05); // the holder
    answerRead(0, 0x8003);  // which this camera does not tell completely
    const FoundDevice device = collector.Devices()[0];
    EXPECT_EQ(device.privilege, 2U);
    EXPECT_EQ(device.tickFrequency, 1000000000U);
    EXPECT_EQ(device.controllerAddress, 0xC0A80A05U);
    EXPECT_FALSE(device.controllerPort);
    EXPECT_TRUE(collector.HasRead([](const FoundDevice &) { return true; }));
    EXPECT_TRUE(collector.DueReads(start + std::chrono::seconds(1)).empty());
}

TEST_F(DiscoveryTest, SubnetsDecideReachability)
{
    DiscoveryCollector foreign = Collect(far, {far}, {answer});
    ASSERT_EQ(foreign.Devices().size(), 1U);
    EXPECT_FALSE(foreign.Devices()[0].reachable);
    EXPECT_TRUE(foreign.DueReads(start).empty()) << "an unreachable camera is not asked";
    EXPECT_TRUE(Collect(far, {far, near}, {answer}).Devices().empty()) << "left to the interface whose subnet it is in";
}

TEST_F(DiscoveryTest, NoiseIsIgnored)
{
    auto failed = answer;
    failed[0] = 0x80;
    auto foreignId = answer;
    foreignId[7] = 0x01;
    auto tooShort = answer;
    tooShort[5] = 0xF0;
    EXPECT_TRUE(Collect(near, {near}, {failed, foreignId, tooShort, {0, 0}, {}}).Devices().empty());
}

TEST(GvspCodec, PacketsOfBothIdForms)
{
    const struct {
        const char *name;
        const char *wire;
        bool extended;
        std::uint8_t format;
        std::uint64_t block;
        std::uint32_t packet;
        std::size_t content;
        bool isError;
    } kRows[] = {
        {"leader, standard ids", "00 00 12 34 01 00 00 00 00 00 00 01", false, 1, 0x1234, 0, 4, false},
        {"payload, standard ids", "00 00 12 34 03 00 00 01 00 01 02 03", false, 3, 0x1234, 1, 4, false},
        {"trailer, standard ids", "00 00 12 34 02 00 00 D3 00 00 00 01 00 00 01 E0", false, 2, 0x1234, 211, 8, false},
        {"leader, extended ids", "00 00 00 00 81 00 00 00 00 00 00 01 23 45 67 89 00 00 00 00", true, 1, 0x123456789, 0,
         0, false},
        {"payload, extended ids", "00 00 00 00 83 00 00 00 00 00 00 01 23 45 67 89 00 00 00 01 00 01", true, 3,
         0x123456789, 1, 2, false},
        {"resent packet is no error", "01 00 12 34 03 00 00 05 00 01", false, 3, 0x1234, 5, 2, false},
        {"refused packet", "80 0C 12 34 03 00 00 05", false, 3, 0x1234, 5, 0, true},
    };
    for (const auto &row : kRows) {
        const auto bytes = FromHex(row.wire);
        const auto packet = ParseStreamPacket(SpanOf(bytes));
        ASSERT_TRUE(packet) << row.name;
        EXPECT_EQ(packet->extendedIds, row.extended) << row.name;
        EXPECT_EQ(packet->format, row.format) << row.name;
        EXPECT_EQ(packet->blockId, row.block) << row.name;
        EXPECT_EQ(packet->packetId, row.packet) << row.name;
        EXPECT_EQ(packet->content.size, row.content) << row.name;
        EXPECT_EQ(packet->IsError(), row.isError) << row.name;
    }
    const auto extended = FromHex(kRows[3].wire);
    for (std::size_t size = 0; size < extended.size(); ++size)
        EXPECT_FALSE(ParseStreamPacket({extended.data(), size})) << size;
}

TEST(GvspCodec, ImageLeaderAndItsCuts)
{
    const auto bytes = FromHex("00 00 00 01 00 00 00 E8 D4 A5 10 00 01 08 00 01 00 00 02 80 00 00 01 E0"
                               "00 00 00 10 00 00 00 20 00 03 00 05");
    const auto leader = ParseLeader(SpanOf(bytes));
    ASSERT_TRUE(leader);
    EXPECT_EQ(leader->payloadType, payload::kImage);
    EXPECT_EQ(leader->timestamp, 1000000000000U);
    EXPECT_EQ(leader->pixelFormat, 0x01080001U);
    EXPECT_EQ(leader->width, 640U);
    EXPECT_EQ(leader->height, 480U);
    EXPECT_EQ(leader->offsetX, 16U);
    EXPECT_EQ(leader->offsetY, 32U);
    EXPECT_EQ(leader->paddingX, 3U);
    EXPECT_EQ(leader->paddingY, 5U);
    EXPECT_EQ(leader->ImageBytes(480, Leader::Packing::PerLine), (640U + 3) * 480 + 5);
    EXPECT_FALSE(leader->CarriesChunks());
    for (std::size_t size = 0; size < bytes.size(); ++size)
        EXPECT_FALSE(ParseLeader({bytes.data(), size})) << size;
}

TEST(GvspCodec, ImageSizesRoundAndSaturate)
{
    Leader leader;
    leader.hasImage = true;
    leader.pixelFormat = 0x010C0047; // 12 bits per pixel
    leader.width = 3;
    EXPECT_EQ(leader.ImageBytes(2, Leader::Packing::PerLine), 10U);
    EXPECT_EQ(leader.ImageBytes(2, Leader::Packing::Continuous), 9U);
    leader.pixelFormat = 0x02FF0001;
    leader.width = 0xFFFFFFFF;
    EXPECT_GT(leader.ImageBytes(0xFFFFFFFF, Leader::Packing::Continuous), std::uint64_t{1} << 60);
    EXPECT_GT(leader.ImageBytes(0xFFFFFFFF, Leader::Packing::PerLine), std::uint64_t{1} << 60);
}

TEST(GvspCodec, TrailersOfEachType)
{
    const struct {
        const char *name;
        const char *wire;
        std::optional<std::uint32_t> height;
        std::uint32_t chunkSize;
    } kRows[] = {
        {"image", "00 00 00 01 00 00 01 E0", 480, 0},
        {"image with chunks", "00 00 40 01 00 00 01 E0 00 04 B0 18 00 00 00 00", 480, 0x4B018},
        {"extended chunk has the other order", "00 00 00 05 00 04 B0 18 00 00 01 E0 00 00 00 00", 480, 0x4B018},
        {"chunks only", "00 00 00 04 00 00 00 40", std::nullopt, 64},
        {"image cut after the type", "00 00 00 01", std::nullopt, 0},
        {"chunks cut after the height", "00 00 40 01 00 00 01 E0 00", 480, 0},
        {"raw", "00 00 00 02", std::nullopt, 0},
    };
    for (const auto &row : kRows) {
        const auto bytes = FromHex(row.wire);
        const auto trailer = ParseTrailer(SpanOf(bytes));
        ASSERT_TRUE(trailer) << row.name;
        EXPECT_EQ(trailer->height, row.height) << row.name;
        EXPECT_EQ(trailer->chunkSize, row.chunkSize) << row.name;
    }
    const auto bytes = FromHex("00 00 00");
    EXPECT_FALSE(ParseTrailer(SpanOf(bytes)));
}

TEST(ChunkLayout, IsReadFromTheEnd)
{
    const struct {
        const char *what;
        const char *payload;
        std::size_t imageSize;
        std::vector<std::array<std::uint64_t, 3>> chunks; ///< id, offset, length; none: cannot be taken apart
    } kRows[] = {
        {"an image with a tail, then a timestamp",
         "11 22 33 44 00 00 00 01 00 00 00 04 00 00 00 E8 D4 A5 10 00 00 00 12 34 00 00 00 08",
         4,
         {{1, 0, 4}, {0x1234, 12, 8}}},
        {"an image without a tail", "FF FF FF FF FF FF FF FF AA BB 00 00 12 34 00 00 00 02", 8, {{0x1234, 8, 2}}},
        {"whose size nobody knows", "FF FF FF FF FF FF FF FF AA BB 00 00 12 34 00 00 00 02", 0, {{0x1234, 8, 2}}},
        {"whose pixels look like empty chunks",
         "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 AA BB 00 00 12 34 00 00 00 02",
         16,
         {{0x1234, 16, 2}}},
        {"whose pixels look like a chunk",
         "00 00 00 01 00 00 00 07 00 00 00 01 00 00 00 00 AA BB 00 00 12 34 00 00 00 02",
         16,
         {{0x1234, 16, 2}}},
        {"a chunk that begins inside the image", "11 22 33 44 55 66 AA BB 00 00 12 34 00 00 00 04", 6, {}},
        {"an image and no chunk", "00 00 00 00 00 00 00 00", 8, {}},
        {"a length beyond the payload", "00 00 12 34 00 00 00 01", 0, {}},
        {"nothing", "", 0, {}},
    };
    for (const auto &row : kRows) {
        const auto payload = FromHex(row.payload);
        std::vector<std::array<std::uint64_t, 3>> found;
        for (const SINGLE_CHUNK_DATA &chunk :
             ParseChunks(SpanOf(payload), row.imageSize).value_or(std::vector<SINGLE_CHUNK_DATA>()))
            found.push_back({chunk.ChunkID, static_cast<std::uint64_t>(chunk.ChunkOffset), chunk.ChunkLength});
        EXPECT_EQ(found, row.chunks) << row.what;
    }
}

TEST(DescriptionUrl, TakesWhatCamerasWrite)
{
    const struct {
        const char *written;
        const char *cleaned; ///< "" when it cannot be used
    } kRows[] = {
        {"Local:sim.xml;10000;3e67", "local:sim.xml;10000;3e67"},
        {"LOCAL:///sim.ZIP;F000;2B39", "local:sim.ZIP;f000;2b39"},
        {" Local:x.xml; 0xF000 ; 2B39 \r\n", "local:x.xml;f000;2b39"},
        {"Local:x.xml;F000;2B39?SchemaVersion=1.0.0", "local:x.xml;f000;2b39"},
        {"File:///home/x.xml", "file:///home/x.xml"},
        {"", ""},
        {"Local:x.xml;F000", ""},
        {"Local:x.xml;F0G0;2B39", ""},
        {"Local:x.xml;F000;-1", ""},
        {"Local:x.xml;F000;3", ""},
        {"Local:x.xml;F000;FFFFFFFF", ""},
        {"gopher:x.xml;F000;2B39", ""},
    };
    for (const auto &row : kRows) {
        std::string reg = row.written;
        reg.resize(512, '\0');
        const auto url = ParseDescriptionUrl(reg);
        EXPECT_EQ(url ? url->url : "", row.cleaned) << row.written;
    }
    EXPECT_EQ(ParseDescriptionUrl("Local:x.xml;F000;2B39?SchemaVersion=1.0.0")->schemaMajor, 1);
    EXPECT_EQ(ParseDescriptionUrl("Local:x.xml;F000;2B39?SchemaVersion=1.0.0")->schemaMinor, 0);
}

TEST(DescriptionUrl, SchemaVersionIsFoundInPlainAndZippedFiles)
{
    const std::string xml = "<RegisterDescription SchemaMajorVersion=\"1\" SchemaMinorVersion=\"0\">";
    const auto version = FindSchemaVersion({reinterpret_cast<const std::uint8_t *>(xml.data()), xml.size()});
    ASSERT_TRUE(version);
    EXPECT_EQ(version->minor, 0);

    // The same text as the one file of an archive, deflated.
    auto zip = FromHex("50 4B 03 04 14 00 00 00 08 00 00 00 00 00 00 00 00 00 34 00 00 00 43 00 00 00 01 00"
                       "00 00 61 B3 09 4A 4D CF 2C 2E 49 2D 72 49 2D 4E 2E CA 2C 28 C9 CC CF 53 08 4E CE 48"
                       "CD 4D F4 4D CC CA 2F 0A 4B 2D 2A 06 0A D9 2A 19 2A C1 84 33 F3 90 84 0D 94 EC 00");
    ASSERT_TRUE(FindSchemaVersion(SpanOf(zip)));
    EXPECT_EQ(FindSchemaVersion(SpanOf(zip))->major, 1);
    EXPECT_EQ(FindSchemaVersion(SpanOf(zip))->minor, 0);
    for (std::size_t size = 0; size < 32; ++size)
        EXPECT_FALSE(FindSchemaVersion({zip.data(), size})) << size;
    EXPECT_FALSE(FindSchemaVersion({})) << "empty";
}
