#include "simulator/gige/PacketFaults.h"

#include "simulator/StreamFixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace orvsim {

namespace {

/// What came out: packet ids, and the bytes of each packet.
struct Recorder : PacketSink {
    void Put(const Packet &packet) override { datagrams.push_back(BytesOf(packet)); }
    void PutForeign(const std::vector<std::uint8_t> &, bool) override {}
    std::vector<std::uint32_t> Ids() const
    {
        std::vector<std::uint32_t> ids;
        for (const Datagram &datagram : datagrams)
            ids.push_back(Parse(datagram).packetId);
        return ids;
    }

    std::vector<Datagram> datagrams;
};

constexpr std::uint32_t kPackets = 1002;

const Block &LargeBlock()
{
    static const Block block = [] {
        StreamTarget target;
        target.packetSize = 136; // 100 bytes of data
        return MakeBlock(MakeFrame(1000, 100), target, 7);
    }();
    return block;
}

Recorder Pass(const Faults &faults, Sending sending = Sending::First)
{
    Recorder recorder;
    PacketFaults stage(5);
    stage.Begin(faults, sending, LargeBlock().packetCount);
    for (std::uint32_t id = 0; id < LargeBlock().packetCount; ++id)
        stage.Pass(MakePacket(LargeBlock(), id, sending), id, recorder);
    stage.End(recorder);
    return recorder;
}

Faults With(double Faults::*rate, double value)
{
    Faults faults;
    faults.*rate = value;
    return faults;
}

} // namespace

TEST(PacketFaults, RatesDropAndDuplicateTheirShare)
{
    EXPECT_NEAR(static_cast<double>(Pass(With(&Faults::dropRate, 0.1)).datagrams.size()), 902, 40);
    EXPECT_TRUE(Pass(With(&Faults::dropRate, 1)).datagrams.empty());
    const std::vector<std::uint32_t> doubled = Pass(With(&Faults::duplicateRate, 0.1)).Ids();
    EXPECT_NEAR(static_cast<double>(doubled.size()), 1102, 40);
    EXPECT_EQ(std::set(doubled.begin(), doubled.end()).size(), kPackets);
}

TEST(PacketFaults, BurstsTakePacketsInARow)
{
    Faults faults = With(&Faults::dropRate, 0.01);
    faults.dropBurst = 9;
    const std::vector<std::uint32_t> ids = Pass(faults).Ids();
    EXPECT_LT(ids.size(), kPackets - 9);
    for (std::size_t i = 1; i < ids.size(); ++i)
        EXPECT_TRUE(ids[i] == ids[i - 1] + 1 || ids[i] > ids[i - 1] + 10) << ids[i];
}

TEST(PacketFaults, ReorderedPacketsChangePlacesWithTheirSuccessor)
{
    const std::vector<std::uint32_t> ids = Pass(With(&Faults::reorderRate, 0.1)).Ids();
    ASSERT_EQ(ids.size(), kPackets);
    int swapped = 0;
    for (std::uint32_t i = 0; i < kPackets; ++i) {
        if (ids[i] == i)
            continue;
        ASSERT_EQ(ids[i], i + 1);
        ASSERT_EQ(ids[i + 1], i);
        ++swapped;
        ++i;
    }
    EXPECT_NEAR(swapped, 91, 40);
    // Even the last one goes out.
    EXPECT_EQ(Pass(With(&Faults::reorderRate, 1)).datagrams.size(), kPackets);
}

TEST(PacketFaults, TruncatedPacketsLoseTheirEndAndCorruptedOnesBitsOfTheirHeader)
{
    const Recorder whole = Pass({});
    const Recorder cut = Pass(With(&Faults::truncateRate, 1));
    const Recorder corrupt = Pass(With(&Faults::corruptRate, 1));
    ASSERT_EQ(cut.datagrams.size(), kPackets);
    ASSERT_EQ(corrupt.datagrams.size(), kPackets);
    for (std::size_t i = 0; i < kPackets; ++i) {
        const Datagram &was = whole.datagrams[i];
        Datagram is = cut.datagrams[i];
        ASSERT_TRUE(!is.empty() && is.size() < was.size()) << i;
        ASSERT_TRUE(std::equal(is.begin(), is.end(), was.begin())) << i;
        is = corrupt.datagrams[i];
        ASSERT_FALSE(std::equal(was.begin(), was.begin() + 8, is.begin())) << i;
        ASSERT_TRUE(std::equal(was.begin() + 8, was.end(), is.begin() + 8, is.end())) << i;
    }
}

TEST(PacketFaults, ChosenPacketsAreMissingUntilTheyAreSentAgain)
{
    Faults faults;
    faults.dropPacket = 17;
    faults.dropLeaderRate = 1;
    faults.dropTrailerRate = 1;
    const std::vector<std::uint32_t> first = Pass(faults).Ids();
    EXPECT_EQ(first.size(), kPackets - 3);
    for (const std::uint32_t id : {0U, 17U, kPackets - 1})
        EXPECT_EQ(std::count(first.begin(), first.end(), id), 0) << id;
    EXPECT_EQ(Pass(faults, Sending::Again).datagrams.size(), kPackets);
    // The network's faults befall what is sent again too.
    EXPECT_LT(Pass(With(&Faults::dropRate, 0.1), Sending::Again).datagrams.size(), kPackets);
}

} // namespace orvsim
