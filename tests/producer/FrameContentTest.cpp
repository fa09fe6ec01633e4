// What is in a delivered frame, and what is said of it.
#include "AssemblerBench.h"

using namespace assembling;

TEST(FrameContent, HolesAreZerosAndCounted)
{
    constexpr std::size_t kHalf = kBytes / 2;
    const struct {
        const char *name;
        std::size_t buffer;
        const char *script;
        const char *delivered;
        const char *there; ///< bytes of each packet
        std::size_t filled;
        std::uint64_t missing; ///< packets
    } kRows[] = {
        {"lost packets", kBytes, "L1 P1.1 P1.3 P1.5 T1 W100", "1!", "20 0 20 0 20", 60, 2},
        {"a lost tail", kBytes, "L1 P1.1 P1.2 W1000", "1!", "20 20 0 0 0", 40, 4},
        {"a lost leader", kBytes, "P1.1 P1.2 P1.3 P1.4 P1.5 T1 A2", "1! 2", "", kBytes, 1},
        {"a cut packet, seen when the next one comes", kBytes, "L1 P1.1 P1.2/5 P1.3 P1.4 P1.5 T1 W100", "1!",
         "20 0 20 20 20", 80, 1},
        {"a cut first packet: the others stay where they belong", kBytes, "L1 P1.1/12 P1.2 P1.3 P1.4 P1.5 T1 W100",
         "1!", "0 20 20 20 20", 80, 1},
        {"a cut last packet: all packets, but not all of the image", kBytes, "L1 P1.1 P1.2 P1.3 P1.4 P1.5/5 T1", "1!",
         "20 20 20 20 5", 85, 0},
        {"a whole copy comes later", kBytes, "L1 P1.1 P1.2/5 P1.3 P1.2 P1.4 P1.5 T1", "1", "", kBytes, 0},
        {"a short packet at last, not known to be cut", kBytes, "L1 P1.1 P1.2/5 W1000", "1!", "20 5 0 0 0", 25, 4},
        {"a second copy that differs: the first one stays", kBytes, "L1 P1.1 X1.1 P1.2 P1.3 P1.4 P1.5 T1 W100", "1!",
         "", kBytes, 0},
        {"taken back after it had been clipped", kHalf, "P1.3/19 P1.4 W1000", "1!", "0 0 0", 0, 5},
        {"nothing lost, it just did not fit", kHalf, "A1", "1!", "", kHalf, 0},
        {"lost besides", kHalf, "L1 P1.1 P1.3 P1.4 P1.5 T1 W100", "1!", "20 0 10", 30, 1},
        {"a trailer before the end", kBytes, "L1 P1.1 P1.2 P1.3 P1.4 P1.5 T1.3 W100", "1!", "", kBytes, 0},
        {"a trailer of a million packets", kBytes, "L1 P1.1 T1.16777215 W100", "1!", "20 0 0 0 0", 20, 4},
        {"a payload packet far away", kBytes, "L1 P1.16777215 P1.1 P1.2 P1.3 P1.4 P1.5 T1", "1", "", kBytes, 0},
        {"even without a leader", kBytes, "P1.16777215 P1.1 P1.2 P1.3 P1.4 P1.5 L1 T1", "1", "", kBytes, 0},
        {"fewer lines than announced", kBytes, "L1 P1.1 P1.2 P1.3 T1.4/6", "1", "", 60, 0},
        {"lines that the camera does not tell", kBytes, "L1 P1.1 P1.2 P1.3 P1.4 P1.5 T1.6/0", "1", "", kBytes, 0},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.name);
        Bench bench({row.buffer});
        bench.Run(row.script);
        ASSERT_EQ(bench.sink.Summary(), row.delivered);
        bench.ExpectPixels(bench.sink.frames[0], row.there);
        EXPECT_EQ(bench.sink.frames[0].info.sizeFilled, row.filled);
        EXPECT_EQ(bench.assembler.Count().missing, row.missing);
    }
}

TEST(FrameContent, APayloadLargerThanTheBufferIsCutAndSaid)
{
    for (const std::size_t size : {1U, 19U, 20U, 50U, 99U}) {
        Bench bench({size});
        bench.Whole(1);
        ASSERT_EQ(bench.sink.Summary(), "1!") << size;
        EXPECT_TRUE(bench.sink.frames[0].info.isLargerThanBuffer) << size;
        EXPECT_LE(bench.sink.frames[0].info.dataSize, size);
        for (std::size_t i = 0; i < size; ++i)
            ASSERT_EQ(bench.sink.frames[0].data[i], Pixel(1, i)) << size;
    }
    Bench huge; // a leader that promises far more than comes
    huge.Leader(1, {payload::kImage, 0xFFFFFFFF, 0xFFFFFFFF});
    huge.Run("P1.1 P1.2 P1.3 P1.4 P1.5 T1");
    ASSERT_EQ(huge.sink.Summary(), "1!");
    EXPECT_TRUE(huge.sink.frames[0].info.isLargerThanBuffer);
}

TEST(FrameContent, AnOversizedPacketSpoilsOnlyItsFrame)
{
    // Chunks alone announce no size, so only the packets themselves can tell what a full one is.
    Bench bench;
    const auto chunkFrame = [&](std::uint64_t block) {
        bench.Leader(block, {payload::kChunk, 0, 0});
        for (std::uint32_t id = 1; id <= kPackets; ++id)
            bench.Payload(block, id);
        orv::ByteWriter out;
        out.U16(0);
        out.U16(payload::kChunk);
        out.U32(kBytes);
        bench.Send(Packet(false, 0, 2, block, kPackets + 1, out.Take()));
    };
    chunkFrame(1);
    bench.Leader(2, {payload::kChunk, 0, 0});
    bench.Payload(2, 1, 2 * kData);
    chunkFrame(3);
    chunkFrame(4);
    EXPECT_EQ(bench.sink.Summary(), "1 2! 3 4");
    bench.ExpectCompleteFramesAreRight();
    for (const std::size_t size : {0U, 1U}) { // two packets alike, but of next to nothing
        Bench tiny;
        tiny.Payload(1, 1, size);
        tiny.Payload(1, 2, size);
        tiny.Wait(1000);
        EXPECT_EQ(tiny.sink.Summary(), "1!");
        tiny.Whole(2);
        EXPECT_EQ(tiny.sink.Summary(), "1! 2") << "nothing is learned from them";
    }
}

TEST(FrameContent, LearnsThePacketSizeThatReallyComes)
{
    const struct {
        std::size_t real; ///< data bytes per packet, where 20 were told
        std::uint32_t lines;
        std::size_t chunks = 0; ///< bytes behind the image
        const char *result = "1 2";
        std::uint64_t fullPackets = 0; ///< of the first packet of all only the second one shows that it was one
    } kRows[] = {
        {10, kLines, 0, "1 2", 19},
        {25, kLines, 0, "1 2", 8},
        {50, kLines, 0, "1 2", 4},
        {16, 3, 0, "1 2", 1},
        // All of it would have fitted into one packet.
        {10, 2, 0, "1 2", 3},
        {12, 2, 0, "1 2", 1},
        {10, 2, 4, "1 2", 3},
        // With chunks even two packets show it only when the trailer has come.
        {19, 3, 6, "1! 2", 1},
        {10, 1, 9, "1! 2", 1},
    };
    for (const auto &row : kRows) {
        for (const bool resend : {false, true}) {
            SCOPED_TRACE(std::to_string(row.real) + " of " + std::to_string(row.lines) + " lines");
            const std::size_t bytes = kWidth * row.lines + row.chunks;
            Bench::Options options;
            options.bufferSize = bytes;
            options.resend = resend;
            Bench bench(options);
            const std::uint16_t type = row.chunks != 0 ? payload::kImage | payload::kChunksFollow : payload::kImage;
            for (const std::uint64_t block : {1U, 2U}) {
                bench.Leader(block, {type, kWidth, row.lines});
                std::uint32_t id = 1;
                for (std::size_t at = 0; at < bytes; at += row.real)
                    bench.Send(Packet(false, 0, 3, block, id++, Pixels(block, at, std::min(row.real, bytes - at))));
                bench.Trailer(block, id, row.lines);
            }
            bench.Wait(1000);
            EXPECT_EQ(bench.sink.Summary(), row.result);
            bench.ExpectCompleteFramesAreRight();
            EXPECT_EQ(bench.assembler.Count().fullPackets, row.fullPackets);
            for (const auto &frame : bench.sink.frames)
                EXPECT_FALSE(frame.info.isLargerThanBuffer);
        }
    }
}

TEST(FrameContent, BehindOnePacketWithAllOfTheImageNothingFollows)
{
    for (const std::size_t stray : {0U, 10U}) {
        Bench bench({kWidth});
        bench.Leader(1, {payload::kImage, kWidth, 1});
        bench.Payload(1, 1, kWidth);
        bench.Send(Packet(false, 0, 3, 1, 2, Pixels(1, 0, stray)));
        bench.Trailer(1, 2, 1);
        EXPECT_EQ(bench.sink.Summary(), "1") << stray;
        EXPECT_EQ(bench.assembler.Count().unusable, 1U);
    }
}

TEST(FrameContent, ACutFirstPacketTeachesNothingOnceAWholeCopyHasCome)
{
    Bench::Options options;
    options.resend = true;
    Bench bench(options);
    const auto resend = [&](std::uint64_t block) {
        bench.Wait(3);
        EXPECT_EQ(bench.Requests(), std::to_string(block) + ":1");
        bench.Payload(block, 1);
    };
    bench.Leader(1, {payload::kImage, kWidth, 3});
    bench.Payload(1, 1, 12);
    bench.Payload(1, 2, kWidth);
    bench.Trailer(1, 3, 3);
    resend(1);
    bench.Leader(2, {payload::kImage, kWidth, 3});
    bench.Payload(2, 2, kWidth); // the first one is lost
    bench.Trailer(2, 3, 3);
    resend(2);
    EXPECT_EQ(bench.sink.Summary(), "1 2");
}

TEST(FrameContent, TheLastPacketMayBePaddedOrShort)
{
    for (const std::size_t last : {10U, 20U}) { // nine lines end with half a packet
        Bench bench({90});
        bench.Leader(1, {payload::kImage, kWidth, 9});
        bench.Run("P1.1 P1.2 P1.3 P1.4");
        bench.Payload(1, 5, last);
        bench.Trailer(1, 6, 9);
        ASSERT_EQ(bench.sink.Summary(), "1");
        EXPECT_EQ(bench.sink.frames[0].info.sizeFilled, 90U);
    }
}

TEST(FrameContent, ChunksAreAnnouncedOnlyWhenWhole)
{
    const struct {
        const char *name;
        std::size_t buffer;
        const char *payload;
        bool isComplete;
        bool isLarger;
        bool isCut; ///< the trailer, to what every one has
    } kRows[] = {{"whole", 200, "P1.1 P1.2 P1.3 P1.4 P1.5 P1.6/16", true, false, false},
                 {"with a hole", 200, "P1.1 P1.3 P1.4 P1.5 P1.6/16", false, false, false},
                 {"too small a buffer", 110, "P1.1 P1.2 P1.3 P1.4 P1.5 P1.6/16", false, true, false},
                 {"a trailer without their size", 200, "P1.1 P1.2 P1.3 P1.4 P1.5 P1.6/16", true, false, true}};
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.name);
        Bench bench({row.buffer});
        bench.Leader(1, {payload::kImage | payload::kChunksFollow, kWidth, kLines});
        bench.Run(row.payload);
        orv::ByteWriter out;
        out.U16(0);
        out.U16(payload::kImage | payload::kChunksFollow);
        if (!row.isCut) {
            out.U32(kLines);
            out.U32(116);
            out.U32(9);
        }
        bench.Send(Packet(false, 0, 2, 1, 7, out.Take()));
        bench.Wait(100);
        ASSERT_EQ(bench.sink.Summary(), row.isComplete ? "1" : "1!");
        const FrameInfo &info = bench.sink.frames[0].info;
        EXPECT_EQ(info.hasChunks, row.isComplete);
        EXPECT_EQ(info.isLargerThanBuffer, row.isLarger);
        EXPECT_EQ(info.chunkPayloadSize, row.isComplete ? 116U : 0U);
        EXPECT_EQ(info.chunkLayoutId, row.isComplete && !row.isCut ? 9U : 0U);
        EXPECT_EQ(info.payloadType, PAYLOAD_TYPE_IMAGE);
    }
}

TEST(FrameContent, ABlockInOnePacket)
{
    for (const bool extended : {false, true}) {
        Bench bench({kBytes + 7, 1000, extended, true});
        std::vector<std::uint8_t> content = LeaderContent();
        for (const std::vector<std::uint8_t> &rest : {TrailerContent(), Pixels(4, 0, kBytes)})
            content.insert(content.end(), rest.begin(), rest.end());
        bench.Send(Packet(extended, 0, 4, 4, 0, content));
        ASSERT_EQ(bench.sink.Summary(), "4");
        bench.ExpectPixels(bench.sink.frames[0]);
        EXPECT_EQ(bench.sink.frames[0].info.sizeFilled, kBytes);
        content.resize(content.size() - 30); // cut on the way
        bench.Send(Packet(extended, 0, 4, 5, 0, content));
        content.resize(30);
        bench.Send(Packet(extended, 0, 4, 6, 0, content));
        bench.Wait(1000);
        EXPECT_EQ(bench.sink.Summary(), "4 5! 6!");
    }
}

namespace {

constexpr std::size_t kPartData = kData - 8;
constexpr std::size_t kFirstPart = 30;
constexpr std::uint16_t kConfidence = 9;

/// Leader of two parts: a map, then the image, each in packets of 12 bytes.
std::vector<std::uint8_t> PartsLeader(std::uint64_t block, std::uint32_t firstPart = kFirstPart)
{
    orv::ByteWriter out;
    out.U16(0);
    out.U16(payload::kMultiPart);
    out.U64(77);
    const auto part = [&](std::uint16_t type, std::uint32_t length, std::uint32_t height) {
        out.U16(type);
        out.U16(0);
        out.U32(length);
        out.U32(0x01080001);
        out.U64(0);
        out.U32(0);
        out.U32(kWidth);
        out.U32(height);
        out.U64(0);
        out.U64(0);
    };
    part(kConfidence, firstPart, firstPart / kWidth);
    part(1, kBytes, kLines);
    std::vector<std::uint8_t> packet = Packet(true, 0, 1, block, 0, out.Take());
    packet[7] = 2; // parts
    return packet;
}

std::vector<std::uint8_t> PartPacket(std::uint64_t block, std::uint32_t id, std::uint8_t part, std::uint64_t offset,
                                     std::size_t begin, std::size_t size)
{
    orv::ByteWriter out;
    out.U64(std::uint64_t{part} << 56 | offset);
    const std::vector<std::uint8_t> pixels = Pixels(block, begin, size);
    out.Bytes({pixels.data(), pixels.size()});
    return Packet(true, 0, 7, block, id, out.Take());
}

/// All packets of a block of two parts, the leader first. \param absolute offsets count from the first part's beginning
std::vector<std::vector<std::uint8_t>> PartsBlock(std::uint64_t block, std::uint32_t firstPart = kFirstPart,
                                                  bool absolute = false)
{
    std::vector<std::vector<std::uint8_t>> packets = {PartsLeader(block, firstPart)};
    std::uint32_t id = 1;
    for (std::size_t at = 0; at < firstPart; at += kPartData)
        packets.push_back(PartPacket(block, id++, 0, at, at, std::min<std::size_t>(kPartData, firstPart - at)));
    for (std::size_t at = 0; at < kBytes; at += kPartData)
        packets.push_back(PartPacket(block, id++, 1, at + (absolute ? firstPart : 0), firstPart + at,
                                     std::min(kPartData, kBytes - at)));
    packets.push_back(Packet(true, 0, 2, block, id, TrailerContent()));
    return packets;
}

void ExpectParts(const Delivered &frame, std::uint32_t firstPart = kFirstPart)
{
    EXPECT_EQ(frame.info.imageOffset, firstPart);
    EXPECT_EQ(frame.info.width, kWidth);
    EXPECT_EQ(frame.info.payloadType, PAYLOAD_TYPE_MULTI_PART);
    EXPECT_EQ(frame.info.sizeFilled, firstPart + kBytes);
    ASSERT_EQ(frame.info.parts.size(), 2U);
    const FramePart &map = frame.info.parts[0];
    const FramePart &image = frame.info.parts[1];
    EXPECT_EQ(map.dataType, PART_DATATYPE_CONFIDENCE_MAP);
    EXPECT_EQ(image.dataType, PART_DATATYPE_2D_IMAGE);
    EXPECT_TRUE(map.begin == 0 && map.size == firstPart && map.width == kWidth && map.height == firstPart / kWidth);
    EXPECT_TRUE(image.begin == firstPart && image.size == kBytes && image.pixelFormat == 0x01080001);
    for (std::size_t i = 0; i < firstPart + kBytes; ++i)
        ASSERT_EQ(frame.data[i], Pixel(frame.info.frameId, i)) << i;
    EXPECT_EQ(frame.data[firstPart + kBytes], kOld);
}

} // namespace

TEST(FrameContent, TheFirstImageOfSeveralParts)
{
    for (const bool absolute : {false, true}) {
        Bench bench({200, 1000, true});
        std::vector<std::vector<std::uint8_t>> packets = PartsBlock(1, kFirstPart, absolute);
        bench.Send(packets.front());
        for (auto packet = packets.rbegin(); packet + 1 != packets.rend(); ++packet)
            bench.Send(*packet);
        ASSERT_EQ(bench.sink.Summary(), "1") << absolute;
        ExpectParts(bench.sink.frames[0]);
    }
    Bench liars({200, 1000, true});
    const std::vector<std::vector<std::uint8_t>> packets = PartsBlock(1);
    liars.Send(packets[0]);
    liars.Send(packets[1]);
    liars.Send(PartPacket(1, 2, 1, 0, 0, kPartData));       // of a part that packet 2 is not of
    liars.Send(PartPacket(1, 3, 9, 0, 0, kPartData));       // of no part
    liars.Send(PartPacket(1, 2, 0, 1000000, 0, kPartData)); // far outside
    for (std::size_t i = 2; i < packets.size(); ++i)
        liars.Send(packets[i]);
    ASSERT_EQ(liars.sink.Summary(), "1");
    ExpectParts(liars.sink.frames[0]);

    Bench tooSmall({50, 1000, true});
    for (const auto &packet : packets)
        tooSmall.Send(packet);
    tooSmall.Wait(100);
    ASSERT_EQ(tooSmall.sink.Summary(), "1!");
    EXPECT_TRUE(tooSmall.sink.frames[0].info.isLargerThanBuffer);

    Bench fewer({200, 1000, true}); // maps alone, of which the trailer counts only one
    std::vector<std::uint8_t> maps = packets[0];
    maps[81] = kConfidence;
    fewer.Send(maps);
    for (std::size_t i = 1; i <= 3; ++i)
        fewer.Send(packets[i]);
    fewer.Send(Packet(true, 0, 2, 1, 4, TrailerContent()));
    ASSERT_EQ(fewer.sink.Summary(), "1!") << "the other one has not come";
}

TEST(FrameContent, PartsBeforeTheirLeader)
{
    // The first block of all has no one before it whose parts it may be like, a smaller map comes as a surprise.
    const struct {
        const char *name;
        std::uint64_t block;
        std::uint32_t firstPart;
        const char *before; ///< the leader comes that is asked for
        const char *after;
    } kRows[] = {{"nothing to go by", 1, kFirstPart, "1:0", "1:1-12"},
                 {"like the block before", 2, kFirstPart, "2:0", ""},
                 {"unlike the block before", 2, 20, "2:0 2:2-11", "2:1-11"}};
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.name);
        Bench bench({200, 1000, true, true});
        for (std::uint64_t block = 1; block < row.block; ++block)
            for (const auto &packet : PartsBlock(block))
                bench.Send(packet);
        const std::vector<std::vector<std::uint8_t>> packets = PartsBlock(row.block, row.firstPart);
        for (std::size_t i = 1; i < packets.size(); ++i)
            bench.Send(packets[i]);
        bench.Wait(1);
        EXPECT_EQ(bench.Requests(), row.before);
        bench.Send(packets[0]);
        bench.Wait(1);
        EXPECT_EQ(bench.Requests(), row.after);
        for (const auto &packet : packets)
            bench.Send(packet);
        ASSERT_EQ(bench.sink.Summary(), row.block == 1 ? "1" : "1 2");
        ExpectParts(bench.sink.frames.back(), row.firstPart);
    }
}

TEST(FrameContent, PacketsUnderWrongNumbersAreRefused)
{
    Bench bench; // a leader that is not number 0, a trailer and a payload that are
    bench.Send(Packet(false, 0, 1, 1, 5, LeaderContent()));
    bench.Send(Packet(false, 0, 2, 1, 0, TrailerContent()));
    bench.Send(Packet(false, 0, 3, 1, 0, Pixels(1, 0, kData)));
    bench.Whole(1);
    EXPECT_EQ(bench.sink.Summary(), "1");
    EXPECT_EQ(bench.assembler.Count().unusable, 3U);
}
