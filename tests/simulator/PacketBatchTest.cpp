#include "simulator/gige/PacketBatch.h"

#include "simulator/gige/SendPace.h"
#include "simulator/StreamFixture.h"

#include <gtest/gtest.h>

namespace orvsim {

namespace {

constexpr std::uint32_t kLoopback = 0x7f000001;

/// Bodies of these sizes behind heads of 8 bytes, each with its number in front.
std::vector<Packet> PacketsOf(const std::vector<std::size_t> &bodyBytes, const std::vector<std::uint8_t> &bytes)
{
    std::vector<Packet> packets(bodyBytes.size());
    for (std::size_t i = 0; i < packets.size(); ++i) {
        packets[i].head.fill(static_cast<std::uint8_t>(i));
        packets[i].headBytes = 8;
        packets[i].body = {bytes.data() + i, bodyBytes[i]};
    }
    return packets;
}

std::vector<std::size_t> MixedSizes()
{
    std::vector<std::size_t> sizes{36, 1464, 1464, 16, 0, 0, 0, 20, 40, 40, 30, 40, 30000, 30000, 30000, 40000, 40000};
    sizes.insert(sizes.end(), 130, 1464); // more than one message takes
    sizes.insert(sizes.end(), 200, 1);
    sizes.push_back(700);
    return sizes;
}

class PacketBatchTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(socket.Open(kLoopback), ""); }
    PacketBatch::Sent SendAll(const std::vector<Packet> &packets, const LoopbackSocket &to)
    {
        const SendGate open;
        batch.SetReceiver(to.Where());
        for (const Packet &packet : packets)
            batch.Add(packet);
        return batch.Flush(open, open.TakePass());
    }

    StreamSocket socket;
    PacketBatch batch{socket};
    LoopbackSocket receiver;
    const std::vector<std::uint8_t> bytes = MakeFrame(400, 400)->payload;
};

} // namespace

TEST_F(PacketBatchTest, SegmentedByTheKernelOrNotTheDatagramsAreTheSame)
{
    const std::vector<Packet> packets = PacketsOf(MixedSizes(), bytes);
    for (const bool isSegmented : {true, false}) {
        SCOPED_TRACE(isSegmented);
        batch.AllowSegments(isSegmented);
        const PacketBatch::Sent sent = SendAll(packets, receiver);
        EXPECT_EQ(sent.packets, packets.size());
        EXPECT_EQ(sent.errors, 0U);
        for (const Packet &packet : packets)
            ASSERT_EQ(receiver.Next(), BytesOf(packet)) << int{packet.head[0]};
    }
}

TEST_F(PacketBatchTest, APacketThatTheSystemRefusesDoesNotHoldUpTheOthers)
{
    const PacketBatch::Sent sent = SendAll(PacketsOf({100, 66000, 66000, 100, 100}, bytes), receiver);
    EXPECT_EQ(sent.packets, 3U);
    EXPECT_EQ(sent.errors, 2U);
    EXPECT_EQ(sent.bytes, 3U * 108);
    EXPECT_EQ(receiver.Take(3).size(), 3U);
}

TEST_F(PacketBatchTest, AShutGateKeepsEverythingBack)
{
    batch.SetReceiver(receiver.Where());
    SendGate gate;
    const SendGate::Pass pass = gate.TakePass();
    batch.Add(PacketsOf({100}, bytes)[0]);
    gate.Shut();
    EXPECT_EQ(batch.Flush(gate, pass).packets, 0U);
    EXPECT_FALSE(gate.WaitUntil(SendClock::now() + std::chrono::hours(1), pass));
    EXPECT_EQ(SendAll(PacketsOf({50}, bytes), receiver).packets, 1U);
    EXPECT_EQ(receiver.Next().size(), 58U);
}

TEST(SendPace, FollowsTheDelayOrSpreadsAFrameOverHalfItsPeriodAtMost)
{
    struct Row {
        const char *name;
        std::uint32_t packetSize;
        std::uint64_t delayNs;
        std::uint64_t periodNs;
        double wholeNs; ///< from the first packet to where the one behind the last would be
        std::uint32_t groupPackets;
    };
    constexpr std::uint64_t kMs = 1'000'000;
    // A frame of 1024 x 1024 bytes: 717 data packets of 1500, 1.1 MB on the wire; 17 of 65535.
    const Row rows[] = {
        {"slow: as over 1 Gbit/s", 1500, 0, 1000 * kMs, 8.82e6, 35},
        {"half of the period", 1500, 0, 10 * kMs, 5e6, 35},
        {"fast: at least 0.1 ms at once", 1500, 0, 1 * kMs, 0.5e6, 143},
        {"too fast to wait", 1500, 0, kMs / 10, 0, kMostGroupPackets},
        {"no period", 1500, 0, 0, 0, kMostGroupPackets},
        {"large packets go one by one", 65535, 0, 1000 * kMs, 8.41e6, 1},
        {"delay: groups of 1 ms", 1500, kMs / 10, 10 * kMs, 719 * 1e5, 10},
        {"delay beyond 1 ms", 1500, 3 * kMs, 10 * kMs, 719 * 3e6, 1},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        StreamTarget target;
        target.packetSize = row.packetSize;
        const Block block = MakeBlock(MakeFrame(1024, 1024), target, 1);
        const SendPace pace = PaceOf(block, row.delayNs, row.periodNs);
        EXPECT_NEAR(pace.packetNs * block.packetCount, row.wholeNs, row.wholeNs * 0.01);
        EXPECT_EQ(pace.groupPackets, row.groupPackets);
    }
}

} // namespace orvsim
