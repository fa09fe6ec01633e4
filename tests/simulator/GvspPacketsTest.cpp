#include "simulator/gige/GvspPackets.h"

#include "producer/HexBytes.h"
#include "simulator/StreamFixture.h"

#include <gtest/gtest.h>

#include <numeric>

namespace orvsim {

namespace {

constexpr std::uint64_t kTimestampNs = 0xe8d4a51000; // 1000 s

Datagram Join(const Packet &packet)
{
    Datagram datagram(packet.head.begin(), packet.head.begin() + static_cast<std::ptrdiff_t>(packet.headBytes));
    datagram.insert(datagram.end(), packet.body.data, packet.body.data + packet.body.size);
    return datagram;
}

std::shared_ptr<Frame> VgaFrame(std::size_t chunkBytes)
{
    auto frame = MakeFrame(640, 480, chunkBytes);
    frame->timestampNs = kTimestampNs;
    std::iota(frame->payload.begin(), frame->payload.begin() + 256, std::uint8_t{0});
    return frame;
}

StreamTarget Target(bool extendedIds, std::uint32_t packetSize = 1500)
{
    StreamTarget target;
    target.to.port = 1;
    target.extendedIds = extendedIds;
    target.packetSize = packetSize;
    return target;
}

struct LayoutCase {
    const char *name;
    bool extendedIds;
    std::size_t chunkBytes;
    std::uint32_t packetId;
    Sending sending;
    std::size_t size; ///< of the whole datagram
    const char *begin;
    bool oldChunkType = false;
};

constexpr std::uint64_t kShortId = 0x1234;
constexpr std::uint64_t kLongId = 0x123456789;

const LayoutCase kLayouts[] = {
    {"leader, standard", false, 0, 0, Sending::First, 44,
     "0000 1234 01 000000 00 00 0001 000000E8D4A51000 01080001 00000280 000001E0 00000000 00000000 0000 0000"},
    {"leader, extended", true, 0, 0, Sending::First, 56,
     "0000 0000 81 0000 00 0000000123456789 00000000 00 00 0001 000000E8D4A51000 01080001 00000280 000001E0 00000000"
     "00000000 0000 0000"},
    {"payload, standard", false, 0, 1, Sending::First, 1472, "0000 1234 03 000001 00010203 04050607 08090A0B"},
    {"payload, extended", true, 0, 1, Sending::First, 1472,
     "0000 0000 83 0000 00 0000000123456789 00000001 00010203 04050607 08090A0B"},
    {"trailer, standard: 210 payload packets", false, 0, 211, Sending::First, 16,
     "0000 1234 02 0000D3 0000 0001 000001E0"},
    {"trailer, extended: 212 payload packets", true, 0, 213, Sending::First, 28,
     "0000 0000 82 0000 00 0000000123456789 000000D5 0000 0001 000001E0"},
    {"leader with chunks", false, 24, 0, Sending::First, 44, "0000 1234 01 000000 0000 4001 000000E8D4A51000 01080001"},
    {"trailer with chunks: 307224 bytes", false, 24, 211, Sending::First, 24,
     "0000 1234 02 0000D3 0000 4001 000001E0 0004B018 00000000"},
    {"leader with chunks, version 1.2", false, 24, 0, Sending::First, 44,
     "0000 1234 01 000000 0000 0005 000000E8D4A51000 01080001", true},
    {"trailer with chunks, version 1.2: size and height change places", false, 24, 211, Sending::First, 24,
     "0000 1234 02 0000D3 0000 0005 0004B018 000001E0 00000000", true},
    {"image alone, version 1.2", false, 0, 211, Sending::First, 16, "0000 1234 02 0000D3 0000 0001 000001E0", true},
    {"resent, standard", false, 0, 5, Sending::Again, 1472, "0100 1234 03 000005"},
    {"resent, extended", true, 0, 5, Sending::Again, 1472, "0000 0001 83 0000 00 0000000123456789 00000005"},
    {"last payload packet is as short as its rest", false, 0, 210, Sending::First, 8 + 307200 - 209 * 1464,
     "0000 1234 03 0000D2"},
};

} // namespace

TEST(GvspPackets, PacketsHaveTheStandardsLayout)
{
    for (const LayoutCase &row : kLayouts) {
        SCOPED_TRACE(row.name);
        StreamTarget target = Target(row.extendedIds);
        target.oldChunkType = row.oldChunkType;
        const Block block = MakeBlock(VgaFrame(row.chunkBytes), target, row.extendedIds ? kLongId : kShortId);
        const Datagram datagram = Join(MakePacket(block, row.packetId, row.sending));
        EXPECT_EQ(datagram.size(), row.size);
        const Datagram begin = FromHex(row.begin);
        ASSERT_GE(datagram.size(), begin.size());
        EXPECT_EQ(Datagram(datagram.begin(), datagram.begin() + static_cast<std::ptrdiff_t>(begin.size())), begin);
    }
}

TEST(GvspPackets, WithoutExtendedStatusCodesAResentPacketLooksLikeTheFirst)
{
    StreamTarget target = Target(false);
    target.extendedStatus = false;
    const Block block = MakeBlock(VgaFrame(0), target, kShortId);
    EXPECT_EQ(Join(MakePacket(block, 5, Sending::Again)), Join(MakePacket(block, 5, Sending::First)));
}

TEST(GvspPackets, RefusalsAreAHeaderWithTheAskedIds)
{
    EXPECT_EQ(Join(MakeRefusal(gvsp::kStatusUnavailable, kShortId, 5, false)), FromHex("800C 1234 03 000005"));
    EXPECT_EQ(Join(MakeRefusal(gvsp::kStatusNotYet, kLongId, 5, true)),
              FromHex("8010 0000 83 0000 00 0000000123456789 00000005"));
}

TEST(GvspPackets, AFrameGoesAllInWhenItFitsOnePacketAndMay)
{
    StreamTarget target = Target(false);
    target.allIn = true;
    const std::size_t most = 1500 - 28 - 8 - 36 - 8;
    const Block fits = MakeBlock(MakeFrame(static_cast<int>(most), 1), target, 1);
    EXPECT_EQ(fits.packetCount, 1U);
    const Datagram datagram = Join(MakePacket(fits, 0, Sending::First));
    EXPECT_EQ(datagram.size(), 1472U);
    const PacketFields fields = Parse(datagram);
    EXPECT_EQ(fields.format, 4);
    EXPECT_EQ(fields.packetId, 0U);
    // Leader, trailer, data.
    EXPECT_EQ(Datagram(fields.content.begin() + 36, fields.content.begin() + 44), FromHex("0000 0001 00000001"));
    EXPECT_TRUE(std::equal(fields.content.begin() + 44, fields.content.end(), fits.frame->payload.begin(),
                           fits.frame->payload.end()));

    EXPECT_EQ(MakeBlock(MakeFrame(static_cast<int>(most) + 1, 1), target, 1).packetCount, 3U);
    target.allIn = false;
    EXPECT_EQ(MakeBlock(MakeFrame(10, 1), target, 1).packetCount, 3U);
}

TEST(GvspPackets, PacketsOfEveryPayloadCarryAllItsBytesOnce)
{
    for (const int width : {1, 1463, 1464, 1465, 2928, 3001}) {
        for (const std::uint32_t packetSize : {0U, 100U, 1500U, 9000U, 70000U}) {
            const Block block = MakeBlock(MakeFrame(width, 1), Target(true, packetSize), 1);
            std::vector<std::uint8_t> payload;
            for (std::uint32_t id = 0; id < block.packetCount; ++id) {
                const Packet packet = MakePacket(block, id, Sending::First);
                EXPECT_LE(packet.Size() + gvsp::kIpAndUdpBytes, std::clamp(packetSize, 96U, 65535U));
                payload.insert(payload.end(), packet.body.data, packet.body.data + packet.body.size);
            }
            EXPECT_EQ(payload, block.frame->payload) << width << " bytes in packets of " << packetSize;
        }
    }
}

TEST(GvspPackets, IdsOf16BitsPassOverZero)
{
    EXPECT_EQ(BlockIdOnWire(65535, false), 65535U);
    EXPECT_EQ(BlockIdOnWire(65536, false), 1U);
    EXPECT_EQ(BlockIdOnWire(65536, true), 65536U);
    EXPECT_EQ(BlockIdOnWire(2 * 65535, false), 65535U);
}

TEST(GvspPackets, EthernetCarries38BytesMorePerPacketAndAtLeast84)
{
    // Two full packets; leader 72 and trailer 44 bytes of IP, of which the second is filled up to 46.
    EXPECT_EQ(EthernetBytes(2 * 1464, 1500, false), 2 * 1538 + (72 + 38) + (46 + 38));
    EXPECT_EQ(EthernetBytes(2 * 1464 + 1, 1500, false), 2 * 1538 + 84 + (72 + 38) + (46 + 38));
}

} // namespace orvsim
