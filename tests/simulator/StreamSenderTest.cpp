#include "simulator/gige/StreamSender.h"

#include "simulator/StreamFixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace orvsim {

namespace {

constexpr std::uint32_t kLoopback = 0x7f000001;
constexpr std::uint32_t kToTheEnd = 0xffffffff;
constexpr int kHistory = 4;
/// A stall that no test sits out.
constexpr std::int64_t kForEverMs = 60'000;

} // namespace

class StreamSenderTest : public testing::Test {
protected:
    void SetUp() override
    {
        target.to = receiver.Where();
        ASSERT_EQ(sender.Open(kLoopback), "");
        sender.SetTarget(target);
        sender.Start();
    }

    void Push(const std::shared_ptr<Frame> &frame, double lossShare = 0)
    {
        FrameJob job;
        job.number = number++;
        job.lossShare = lossShare;
        source->Push(job, frame);
    }
    /// Sends frames and \return all datagrams of theirs.
    std::vector<Datagram> Stream(const std::vector<std::shared_ptr<Frame>> &frames, double lossShare = 0)
    {
        const std::uint64_t before = sender.Counts().packets;
        for (const auto &frame : frames)
            Push(frame, lossShare);
        sent += frames.size();
        EXPECT_TRUE(source->WaitFor([this](const auto &now) { return now.sent >= sent; }));
        return receiver.Take(sender.Counts().packets - before);
    }
    std::vector<std::uint64_t> BlockIdsOf(std::size_t frames)
    {
        std::vector<std::uint64_t> ids;
        for (const Datagram &datagram : Stream(std::vector(frames, MakeFrame(10, 1)))) {
            if (Parse(datagram).format == 1)
                ids.push_back(Parse(datagram).blockId);
        }
        return ids;
    }
    template <class Number> void SetFault(Number Faults::*member, Number value)
    {
        Faults faults;
        faults.*member = value;
        source->SetFaults(faults);
    }

    std::shared_ptr<FakeSource> source = std::make_shared<FakeSource>();
    StreamSender sender{source, 3, kHistory};
    LoopbackSocket receiver;
    StreamTarget target;
    std::uint64_t number = 0;
    std::size_t sent = 0;
};

TEST_F(StreamSenderTest, APacketDelayHoldsPacketsBack)
{
    target.packetDelayNs = 2'000'000;
    sender.SetTarget(target);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Stream({MakeFrame(1464, 8)}).size(), 10U);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(18));
}

TEST_F(StreamSenderTest, BlockIdsRunAsTheFaultsSay)
{
    using Ids = std::vector<std::uint64_t>;
    EXPECT_EQ(sender.BlockIdOf(4), 5U);
    EXPECT_EQ(BlockIdsOf(3), (Ids{1, 2, 3}));
    EXPECT_EQ(sender.BlockIdOf(1), 2U);
    EXPECT_EQ(sender.BlockIdOf(5), 6U);

    number = 0; // a new acquisition
    SetFault<std::int64_t>(&Faults::firstBlockId, 65534);
    EXPECT_EQ(BlockIdsOf(4), (Ids{65534, 65535, 1, 2}));
    EXPECT_EQ(sender.BlockIdOf(2), 1U);
    target.extendedIds = true;
    sender.SetTarget(target);
    EXPECT_EQ(BlockIdsOf(1), (Ids{65538}));

    SetFault(&Faults::skipIdRate, 1.0);
    number = 0;
    EXPECT_EQ(BlockIdsOf(3), (Ids{2, 4, 6}));
    EXPECT_EQ(sender.BlockIdOf(1), 4U);
    SetFault(&Faults::repeatIdRate, 1.0);
    EXPECT_EQ(BlockIdsOf(2), (Ids{6, 6}));
}

TEST_F(StreamSenderTest, AskedForPacketsComeAgain)
{
    struct Row {
        const char *name;
        ResendRequest request;
        std::vector<std::uint32_t> again;
        std::vector<std::uint32_t> refused;
    };
    // Ten packets: leader, eight of data, trailer. Of six frames the last four are kept.
    const Row rows[] = {
        {"two in the middle", {6, 3, 4, false}, {3, 4}, {}},
        {"leader of the oldest that is kept", {3, 0, 0, false}, {0}, {}},
        {"to the end", {6, 8, kToTheEnd, false}, {8, 9}, {}},
        {"more than there are", {6, 8, 11, false}, {8, 9}, {10, 11}},
        {"beyond the end", {6, 200, 200, false}, {}, {200}},
        {"to the end from beyond it", {6, 200, kToTheEnd, false}, {}, {200}},
        {"gone", {2, 1, 2, false}, {}, {1, 2}},
        {"never was, to the end", {77, 1, kToTheEnd, false}, {}, {1}},
        {"asked for in the other form", {6, 1, 1, true}, {}, {1}},
    };
    const auto frame = MakeFrame(1464, 8);
    Stream(std::vector(6, frame));
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        sender.Resend(row.request, {});
        std::vector<std::uint32_t> again;
        std::vector<std::uint32_t> refused;
        for (const Datagram &datagram : receiver.Take(row.again.size() + row.refused.size())) {
            const PacketFields fields = Parse(datagram);
            EXPECT_EQ(fields.blockId, row.request.blockId);
            EXPECT_EQ(fields.isExtended, row.request.extendedIds);
            (fields.status == 0x0100 ? again : refused).push_back(fields.packetId);
            if (fields.status == 0x800c) {
                EXPECT_TRUE(fields.content.empty());
                EXPECT_EQ(fields.format, 3);
            } else if (fields.format == 3) {
                EXPECT_TRUE(std::equal(fields.content.begin(), fields.content.end(),
                                       frame->payload.begin() + 1464 * (fields.packetId - 1)));
            }
        }
        EXPECT_EQ(again, row.again);
        EXPECT_EQ(refused, row.refused);
    }
    EXPECT_EQ(sender.Counts().resentPackets, 7U);
    EXPECT_EQ(sender.Counts().refusedPackets, 8U);
}

TEST_F(StreamSenderTest, RefusalsAreLimited)
{
    Stream({MakeFrame(10, 1)});
    sender.Resend({9, 0, 100'000, false}, {});
    sender.Resend({1, 0, 0, false}, {});
    const std::vector<Datagram> answers = receiver.Take(65);
    ASSERT_EQ(answers.size(), 65U);
    EXPECT_EQ(Parse(answers[63]).packetId, 63U);
    EXPECT_EQ(Parse(answers[64]).blockId, 1U);
}

TEST_F(StreamSenderTest, ResendsGoToWhoAskedWhenTheTargetSaysSo)
{
    target.extendedIds = true;
    target.resendToRequester = true;
    sender.SetTarget(target);
    Stream({MakeFrame(1000, 4)});
    LoopbackSocket other;
    sender.Resend({1, 1, 1, true}, other.Where());
    const PacketFields fields = Parse(other.Next());
    EXPECT_EQ(fields.flags, 0x0001);
    EXPECT_EQ(fields.packetId, 1U);
}

TEST_F(StreamSenderTest, ResendsAreRefusedOrIgnoredByFault)
{
    Stream({MakeFrame(1464, 8)});
    const auto ask = [&](std::int64_t mode, std::uint32_t packet) {
        SetFault(&Faults::resendMode, mode);
        sender.Resend({1, packet, packet, false}, {});
    };
    ask(1, 1);
    EXPECT_EQ(Parse(receiver.Next()).status, 0x800c);
    const std::size_t questions = source->SoFar().questions;
    ask(2, 2);
    // Decided upon before the mode changes.
    ASSERT_TRUE(source->WaitFor([=](const auto &now) { return now.questions > questions; }));
    ask(0, 3);
    EXPECT_EQ(Parse(receiver.Next()).packetId, 3U);
}

TEST_F(StreamSenderTest, WhatIsStillToComeIsPutOffAndAClosedChannelStopsAtOnce)
{
    Faults faults;
    faults.stallEvery = 2;
    faults.stallMs = kForEverMs;
    source->SetFaults(faults);
    Stream({MakeFrame(1464, 8)});
    Push(MakeFrame(1464, 8)); // stalls behind five of its ten packets
    EXPECT_EQ(receiver.Take(5).size(), 5U);
    sender.Resend({2, 4, 6, false}, {});
    const std::vector<Datagram> answers = receiver.Take(3);
    ASSERT_EQ(answers.size(), 3U);
    EXPECT_EQ(Parse(answers[0]).status, 0x0100);
    EXPECT_EQ(Parse(answers[1]).status, 0x8010);
    EXPECT_EQ(Parse(answers[2]).packetId, 6U);

    StreamTarget closed = target;
    closed.to.port = 0;
    sender.SetTarget(closed);
    Push(MakeFrame(10, 1)); // has nowhere to go
    ASSERT_TRUE(source->WaitFor([](const auto &now) { return now.due == 0; }));
    sender.Resend({1, 0, 0, false}, {});
    sender.FireTestPacket();
    sender.Stop(); // whatever was under way is over
    sender.SetTarget(target);
    sender.Start();
    ++number;
    const std::vector<Datagram> datagrams = Stream({MakeFrame(10, 1)});
    ASSERT_EQ(datagrams.size(), 3U);
    EXPECT_EQ(Parse(datagrams[0]).blockId, 3U);
    EXPECT_EQ(sender.Counts().frames, 2U);
}

TEST_F(StreamSenderTest, AFullLinkLosesItsShareForGood)
{
    const auto frame = MakeFrame(1464, 98); // 100 packets
    const std::vector<Datagram> oneLost = Stream({frame}, 1e-6);
    EXPECT_EQ(oneLost.size(), 99U);
    EXPECT_EQ(sender.Counts().lostOnLink, 1U);
    const std::vector<Datagram> quarterLost = Stream({frame}, 0.25);
    ASSERT_EQ(quarterLost.size(), 75U);
    for (std::size_t i = 1; i < quarterLost.size(); ++i)
        EXPECT_LE(Parse(quarterLost[i]).packetId - Parse(quarterLost[i - 1]).packetId, 2U);

    sender.Resend({2, 0, kToTheEnd, false}, {});
    sender.Resend({99, 0, 0, false}, {}); // the next answer shows that the one before gave none
    EXPECT_EQ(Parse(receiver.Next()).blockId, 99U);
    EXPECT_EQ(sender.Counts().lostOnLink, 1U + 25 + 100);
}

TEST_F(StreamSenderTest, ThePathsLimitLosesLargePacketsAndTestPackets)
{
    sender.SetPathMtu(1400);
    sender.FireTestPacket();
    // Full packets are lost; leader, the short last one and the trailer come through.
    const std::vector<Datagram> small = Stream({MakeFrame(1464, 2), MakeFrame(1465, 1)});
    EXPECT_EQ(small.size(), 2U + 3U);
    target.packetSize = 1400;
    target.extendedIds = true;
    sender.SetTarget(target);
    sender.FireTestPacket();
    const auto test = receiver.Receive();
    ASSERT_TRUE(test.has_value());
    EXPECT_EQ(test->bytes.size(), 1372U);
    EXPECT_EQ(Parse(test->bytes).blockId, 0U);
    EXPECT_EQ(test->from.port, sender.SourcePort());
    EXPECT_EQ(source->WireBytes(1), StreamSender::WireBytes(1, 1400, true));
}

TEST_F(StreamSenderTest, ForeignPacketsComeFromAnotherPortToo)
{
    SetFault(&Faults::foreignRate, 1.0);
    Push(MakeFrame(1464, 98));
    std::set<std::uint16_t> ports;
    for (int i = 0; i < 200; ++i)
        ports.insert(receiver.Receive().value_or(LoopbackSocket::Arrival()).from.port);
    EXPECT_EQ(ports.size(), 2U);
    EXPECT_EQ(ports.count(0), 0U) << "fewer packets";
}

TEST_F(StreamSenderTest, EveryAcquisitionHasTheSameFaultsForASeed)
{
    Faults faults;
    faults.dropRate = 0.2;
    faults.skipIdRate = 0.3;
    faults.reorderRate = 0.1;
    source->SetFaults(faults);
    const std::vector<std::shared_ptr<Frame>> frames(10, MakeFrame(1464, 20));
    const std::vector<Datagram> first = Stream(frames);
    number = 0;
    EXPECT_EQ(Stream(frames), first);
    EXPECT_LT(first.size(), 200U);
}

TEST_F(StreamSenderTest, AReceiverThatIsGoneDoesNotHurt)
{
    target.to = LoopbackSocket().Where(); // closed at the line's end
    sender.SetTarget(target);
    for (int i = 0; i < 3; ++i)
        Push(MakeFrame(640, 480));
    sent = 3;
    ASSERT_TRUE(source->WaitFor([this](const auto &now) { return now.sent >= sent; }));
    target.to = receiver.Where();
    sender.SetTarget(target);
    EXPECT_EQ(Stream({MakeFrame(10, 1)}).size(), 3U);
}

} // namespace orvsim
