#include "simulator/gige/PacketFaults.h"

#include "simulator/StreamFixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <tuple>

namespace orvsim {

namespace {

/// What came out: packet ids, and the bytes of each packet.
struct Recorder : PacketSink {
    void Put(const Packet &packet) override
    {
        Datagram bytes(packet.head.begin(), packet.head.begin() + static_cast<std::ptrdiff_t>(packet.headBytes));
        bytes.insert(bytes.end(), packet.body.data, packet.body.data + packet.body.size);
        datagrams.push_back(bytes);
    }
    void PutForeign(const std::vector<std::uint8_t> &datagram, bool fromAnotherPort) override
    {
        datagrams.push_back(datagram);
        ++(fromAnotherPort ? fromOtherPort : fromStreamPort);
    }
    std::vector<std::uint32_t> Ids() const
    {
        std::vector<std::uint32_t> ids;
        for (const Datagram &datagram : datagrams)
            ids.push_back(Parse(datagram).packetId);
        return ids;
    }

    std::vector<Datagram> datagrams;
    int fromOtherPort = 0;
    int fromStreamPort = 0;
};

constexpr std::uint32_t kPackets = 1002;
constexpr std::uint32_t kTrailer = kPackets - 1;

const Block &LargeBlock()
{
    static const Block block = [] {
        StreamTarget target;
        target.packetSize = 136; // 100 bytes of data
        return MakeBlock(MakeFrame(1000, 100), target, 7);
    }();
    return block;
}

Recorder Pass(const Faults &faults, Sending sending = Sending::First, std::uint64_t seed = 5)
{
    Recorder recorder;
    PacketFaults stage(seed);
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

std::size_t CountOf(const std::vector<std::uint32_t> &ids, std::uint32_t id)
{
    return static_cast<std::size_t>(std::count(ids.begin(), ids.end(), id));
}

} // namespace

TEST(PacketFaults, WithoutFaultsAllPacketsPassAsTheyAre)
{
    ASSERT_EQ(LargeBlock().packetCount, kPackets);
    const Recorder recorder = Pass({});
    EXPECT_EQ(recorder.datagrams.size(), kPackets);
    EXPECT_EQ(Reassemble(recorder.datagrams)[7].payload, LargeBlock().frame->payload);
}

TEST(PacketFaults, RatesDropAndDuplicateTheirShare)
{
    EXPECT_NEAR(static_cast<double>(Pass(With(&Faults::dropRate, 0.1)).datagrams.size()), 902, 40);
    EXPECT_TRUE(Pass(With(&Faults::dropRate, 1)).datagrams.empty());
    const Recorder doubled = Pass(With(&Faults::duplicateRate, 0.1));
    EXPECT_NEAR(static_cast<double>(doubled.datagrams.size()), 1102, 40);
    for (std::uint32_t id = 0; id < kPackets; ++id)
        EXPECT_GE(CountOf(doubled.Ids(), id), 1U);
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

TEST(PacketFaults, TruncatedPacketsLoseTheirLastBytesAndNeverAll)
{
    const Recorder cut = Pass(With(&Faults::truncateRate, 1));
    const Recorder whole = Pass({});
    ASSERT_EQ(cut.datagrams.size(), whole.datagrams.size());
    for (std::size_t i = 0; i < whole.datagrams.size(); ++i) {
        const Datagram &was = whole.datagrams[i];
        const Datagram &is = cut.datagrams[i];
        ASSERT_TRUE(!is.empty() && is.size() < was.size()) << i;
        ASSERT_TRUE(std::equal(is.begin(), is.end(), was.begin())) << i;
    }
}

TEST(PacketFaults, CorruptedPacketsHaveBitsFlippedInTheirHeaderOnly)
{
    const Recorder corrupt = Pass(With(&Faults::corruptRate, 1));
    const Recorder whole = Pass({});
    ASSERT_EQ(corrupt.datagrams.size(), whole.datagrams.size());
    for (std::size_t i = 0; i < whole.datagrams.size(); ++i) {
        const Datagram &was = whole.datagrams[i];
        const Datagram &is = corrupt.datagrams[i];
        ASSERT_FALSE(std::equal(was.begin(), was.begin() + 8, is.begin())) << i;
        ASSERT_TRUE(std::equal(was.begin() + 8, was.end(), is.begin() + 8, is.end())) << i;
    }
}

TEST(PacketFaults, ForeignPacketsComeBetweenTheOthersFromBothPorts)
{
    const Recorder recorder = Pass(With(&Faults::foreignRate, 0.2));
    EXPECT_NEAR(recorder.fromOtherPort, 100, 40);
    EXPECT_NEAR(recorder.fromStreamPort, 100, 40);
    EXPECT_EQ(recorder.datagrams.size(), kPackets + static_cast<std::size_t>(recorder.fromOtherPort) +
                                             static_cast<std::size_t>(recorder.fromStreamPort));
}

TEST(PacketFaults, ChosenPacketsAreMissingUntilTheyAreSentAgain)
{
    Faults faults;
    faults.dropPacket = 17;
    faults.dropLeaderRate = 1;
    faults.dropTrailerRate = 1;
    const std::vector<std::uint32_t> first = Pass(faults).Ids();
    EXPECT_EQ(first.size(), kPackets - 3);
    for (const std::uint32_t id : {0U, 17U, kTrailer})
        EXPECT_EQ(CountOf(first, id), 0U) << id;
    EXPECT_EQ(Pass(faults, Sending::Again).datagrams.size(), kPackets);
    // The network's faults befall what is sent again too.
    EXPECT_LT(Pass(With(&Faults::dropRate, 0.1), Sending::Again).datagrams.size(), kPackets);
}

TEST(PacketFaults, TheSameSeedGivesTheSameFaults)
{
    Faults all;
    for (double Faults::*rate : {&Faults::dropRate, &Faults::reorderRate, &Faults::duplicateRate, &Faults::truncateRate,
                                 &Faults::corruptRate, &Faults::foreignRate})
        all.*rate = 0.1;
    EXPECT_EQ(Pass(all).datagrams, Pass(all).datagrams);
    EXPECT_NE(Pass(all, Sending::First, 6).datagrams, Pass(all).datagrams);
}

} // namespace orvsim
