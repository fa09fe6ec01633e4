#include "simulator/gige/GvspPackets.h"

#include "producer/HexBytes.h"
#include "simulator/StreamFixture.h"

#include <gtest/gtest.h>

#include <numeric>

namespace orvsim {

namespace {

constexpr std::uint64_t kTimestampNs = 0xe8d4a51000; // 1000 s

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

enum class Variant { Plain, OldChunks, OldStatus, Parts, PartsByThemselves };

/// A frame whose second half is a picture of its own.
std::shared_ptr<Frame> TwoPictures(std::shared_ptr<Frame> frame)
{
    frame->confidenceBytes = frame->payload.size() - frame->imageBytes;
    frame->hasChunks = false;
    return frame;
}

struct LayoutCase {
    const char *name;
    bool extendedIds;
    std::size_t chunkBytes;
    std::uint32_t packetId;
    Sending sending;
    std::size_t size; ///< of the whole datagram
    const char *begin;
    Variant variant = Variant::Plain;
};

constexpr std::uint64_t kShortId = 0x1234;
constexpr std::uint64_t kLongId = 0x123456789;
constexpr std::size_t kVgaBytes = 640 * 480;

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
     "0000 1234 01 000000 0000 0005 000000E8D4A51000 01080001", Variant::OldChunks},
    {"trailer with chunks, version 1.2: size and height change places", false, 24, 211, Sending::First, 24,
     "0000 1234 02 0000D3 0000 0005 0004B018 000001E0 00000000", Variant::OldChunks},
    {"image alone, version 1.2", false, 0, 211, Sending::First, 16, "0000 1234 02 0000D3 0000 0001 000001E0",
     Variant::OldChunks},
    {"resent, standard", false, 0, 5, Sending::Again, 1472, "0100 1234 03 000005"},
    {"resent, without extended status codes", false, 0, 5, Sending::Again, 1472, "0000 1234 03 000005",
     Variant::OldStatus},
    {"resent, extended", true, 0, 5, Sending::Again, 1472, "0000 0001 83 0000 00 0000000123456789 00000005"},
    {"last payload packet is as short as its rest", false, 0, 210, Sending::First, 8 + 307200 - 209 * 1464,
     "0000 1234 03 0000D2"},
    {"leader of two parts", true, kVgaBytes, 0, Sending::First, 128,
     "0000 0000 81 0000 02 0000000123456789 00000000 0000 000A 000000E8D4A51000"
     "0001 00000004B000 01080001 00000000 00000000 0001 0000 00000280 000001E0 00000000 00000000 0000 0000 00000000"
     "0009 00000004B000 01080001 00000000 00000000 0006 0000 00000280 000001E0 00000000 00000000 0000 0000 00000000",
     Variant::Parts},
    {"first packet of the first part", true, kVgaBytes, 1, Sending::First, 1472,
     "0000 0000 87 0000 00 0000000123456789 00000001 00 00 000000000000 00010203", Variant::Parts},
    {"end of the first part: 213 packets", true, kVgaBytes, 213, Sending::First, 28 + 307200 - 212 * 1444,
     "0000 0000 87 0000 00 0000000123456789 000000D5 00 40 00000004ABD0", Variant::Parts},
    {"first packet of the second part", true, kVgaBytes, 214, Sending::Again, 1472,
     "0000 0001 87 0000 00 0000000123456789 000000D6 01 00 00000004B000", Variant::Parts},
    {"first packet of the second part, counted from there", true, kVgaBytes, 214, Sending::First, 1472,
     "0000 0000 87 0000 00 0000000123456789 000000D6 01 00 000000000000", Variant::PartsByThemselves},
    {"trailer of two parts", true, kVgaBytes, 427, Sending::First, 56,
     "0000 0000 82 0000 00 0000000123456789 000001AB 0000 000A"
     "0001 00000004B000 000001E0 00000000 0009 00000004B000 000001E0 00000000",
     Variant::Parts},
};

} // namespace

TEST(GvspPackets, PacketsHaveTheStandardsLayout)
{
    for (const LayoutCase &row : kLayouts) {
        SCOPED_TRACE(row.name);
        StreamTarget target = Target(row.extendedIds);
        target.oldChunkType = row.variant == Variant::OldChunks;
        target.extendedStatus = row.variant != Variant::OldStatus;
        std::shared_ptr<Frame> frame = VgaFrame(row.chunkBytes);
        if (row.variant >= Variant::Parts)
            frame = TwoPictures(frame);
        Block block = MakeBlock(frame, target, row.extendedIds ? kLongId : kShortId);
        block.countsFromPart = row.variant == Variant::PartsByThemselves;
        const Datagram datagram = BytesOf(MakePacket(block, row.packetId, row.sending));
        EXPECT_EQ(datagram.size(), row.size);
        const Datagram begin = FromHex(row.begin);
        ASSERT_GE(datagram.size(), begin.size());
        EXPECT_EQ(Datagram(datagram.begin(), datagram.begin() + static_cast<std::ptrdiff_t>(begin.size())), begin);
    }
}

TEST(GvspPackets, RefusalsAreAHeaderWithTheAskedIds)
{
    EXPECT_EQ(BytesOf(MakeRefusal(gvsp::kStatusUnavailable, kShortId, 5, false)), FromHex("800C 1234 03 000005"));
    EXPECT_EQ(BytesOf(MakeRefusal(gvsp::kStatusNotYet, kLongId, 5, true)),
              FromHex("8010 0000 83 0000 00 0000000123456789 00000005"));
}

TEST(GvspPackets, AFrameGoesAllInWhenItFitsOnePacketAndMay)
{
    StreamTarget target = Target(false);
    target.allIn = true;
    const std::size_t most = 1500 - 28 - 8 - 36 - 8;
    const Block fits = MakeBlock(MakeFrame(static_cast<int>(most), 1), target, 1);
    EXPECT_EQ(fits.packetCount, 1U);
    const Datagram datagram = BytesOf(MakePacket(fits, 0, Sending::First));
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

TEST(GvspPackets, PacketsCarryAllBytesOnceAndCostWhatIsSaid)
{
    const auto onEthernet = [](std::size_t udpBytes) { return std::max<std::size_t>(udpBytes + 28, 46) + 38; };
    for (const int width : {1, 1443, 1444, 1445, 1452, 2928, 3001}) {
        for (const std::uint32_t packetSize : {0U, 100U, 1500U, 9000U, 70000U}) {
            for (const bool isMultiPart : {false, true}) {
                SCOPED_TRACE(::testing::Message()
                             << width << " bytes in packets of " << packetSize << (isMultiPart ? ", twice" : ""));
                const std::shared_ptr<Frame> frame =
                    isMultiPart ? TwoPictures(MakeFrame(width, 1, static_cast<std::size_t>(width)))
                                : MakeFrame(width, 1);
                const Block block = MakeBlock(frame, Target(!isMultiPart, packetSize), 1);
                EXPECT_TRUE(block.extendedIds) << "of parts always";
                std::vector<std::uint8_t> payload;
                std::size_t wireBytes = 0;
                for (std::uint32_t id = 0; id < block.packetCount; ++id) {
                    const Packet packet = MakePacket(block, id, Sending::First);
                    EXPECT_LE(packet.Size() + gvsp::kIpAndUdpBytes,
                              std::clamp(packetSize, isMultiPart ? 156U : 96U, 65535U));
                    wireBytes += onEthernet(packet.Size());
                    payload.insert(payload.end(), packet.body.data, packet.body.data + packet.body.size);
                }
                EXPECT_EQ(payload, frame->payload);
                EXPECT_EQ(wireBytes, isMultiPart ? MultiPartEthernetBytes(frame->payload.size(), packetSize)
                                                 : EthernetBytes(frame->payload.size(), packetSize, true));
            }
        }
    }
}

} // namespace orvsim
