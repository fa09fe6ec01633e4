#include "producer/gige/FrameAssembler.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <sstream>

using namespace nuvark;
using namespace nuvark::gige;

namespace {

// Frames of 10 x 10 pixels in packets of 20 bytes: leader, payload 1 to 5, trailer 6.
constexpr std::uint32_t kWidth = 10;
constexpr std::uint32_t kLines = 10;
constexpr std::size_t kData = 20;
constexpr std::uint32_t kPackets = 5;
constexpr std::size_t kStandardPacketSize = 28 + 8 + kData;
constexpr std::size_t kExtendedPacketSize = 28 + 20 + kData;
constexpr std::uint8_t kOld = 0xEE; ///< what a buffer holds from before

/// Every pixel of every frame differs from its neighbours' and from the next frame's.
std::uint8_t Pixel(std::uint64_t block, std::size_t index)
{
    return static_cast<std::uint8_t>(block * 7 + index * 3);
}

struct Delivered {
    FrameInfo info;
    std::vector<std::uint8_t> data; ///< the whole buffer
};

/// Gives out buffers and keeps what comes back.
class Sink final : public FrameSink {
public:
    explicit Sink(std::size_t bufferSize, int buffers = 1000) : m_bufferSize(bufferSize), m_left(buffers) {}

    bool TakeBuffer(FrameTarget &target) override
    {
        ++taken;
        if (m_left == 0)
            return false;
        --m_left;
        // Exactly as long as stated, so the sanitizer sees a write beyond it.
        m_buffers.push_back(std::make_unique<std::uint8_t[]>(m_bufferSize));
        std::fill_n(m_buffers.back().get(), m_bufferSize, kOld);
        target = {m_buffers.back().get(), m_bufferSize, m_buffers.back().get()};
        return true;
    }
    void Deliver(const FrameTarget &target, const FrameInfo &info) override
    {
        frames.push_back({info, std::vector<std::uint8_t>(target.data, target.data + target.size)});
    }
    void GiveBack(const FrameTarget &) override { ++givenBack; }

    /// "1 2!": frames in order of delivery, the incomplete ones marked.
    std::string Summary() const
    {
        std::string text;
        for (const Delivered &frame : frames) {
            text += (text.empty() ? "" : " ") + std::to_string(frame.info.frameId);
            text += frame.info.isIncomplete ? "!" : "";
        }
        return text;
    }

    std::vector<Delivered> frames;
    int taken = 0;
    int givenBack = 0;

private:
    const std::size_t m_bufferSize;
    int m_left;
    std::vector<std::unique_ptr<std::uint8_t[]>> m_buffers;
};

std::vector<std::uint8_t> Packet(bool extended, std::uint16_t status, std::uint8_t format, std::uint64_t block,
                                 std::uint32_t id, const std::vector<std::uint8_t> &content)
{
    orv::ByteWriter out;
    out.U16(status);
    if (extended) {
        out.U16(0);
        out.U8(0x80 | format);
        out.U8(0);
        out.U16(0);
        out.U64(block);
        out.U32(id);
    } else {
        out.U16(static_cast<std::uint16_t>(block));
        out.U32(std::uint32_t{format} << 24 | id);
    }
    out.Bytes({content.data(), content.size()});
    return out.Take();
}

struct LeaderOptions {
    std::uint16_t type = payload::kImage;
    std::uint32_t width = kWidth;
    std::uint32_t height = kLines;
};
std::vector<std::uint8_t> LeaderContent(const LeaderOptions &options = {})
{
    orv::ByteWriter out;
    out.U16(0);
    out.U16(options.type);
    out.U64(0x1122334455);
    out.U32(0x01080001); // Mono8
    out.U32(options.width);
    out.U32(options.height);
    out.U64(0);
    out.U32(0);
    return out.Take();
}

std::vector<std::uint8_t> TrailerContent(std::uint32_t height = kLines)
{
    orv::ByteWriter out;
    out.U16(0);
    out.U16(payload::kImage);
    out.U32(height);
    return out.Take();
}

std::vector<std::uint8_t> PayloadContent(std::uint64_t block, std::uint32_t id, std::size_t size = kData)
{
    std::vector<std::uint8_t> content;
    for (std::size_t i = 0; i < size; ++i)
        content.push_back(Pixel(block, (id - 1) * kData + i));
    return content;
}

/// An assembler with a sink and a clock, driven by words.
class Bench {
public:
    explicit Bench(std::size_t bufferSize = kWidth * kLines, int buffers = 1000, bool extended = false)
        : sink(bufferSize, buffers), m_extended(extended), assembler(sink, SettingsFor(extended))
    {
    }

    void Leader(std::uint64_t block, const LeaderOptions &options = {})
    {
        Send(Packet(m_extended, 0, 1, block, 0, LeaderContent(options)));
    }
    void Payload(std::uint64_t block, std::uint32_t id, std::size_t size = kData, std::uint16_t status = 0)
    {
        Send(Packet(m_extended, status, 3, block, id, PayloadContent(block, id, size)));
    }
    void Trailer(std::uint64_t block, std::uint32_t id = kPackets + 1, std::uint32_t height = kLines)
    {
        Send(Packet(m_extended, 0, 2, block, id, TrailerContent(height)));
    }
    void Whole(std::uint64_t block)
    {
        Leader(block);
        for (std::uint32_t id = 1; id <= kPackets; ++id)
            Payload(block, id);
        Trailer(block);
    }
    void Wait(int milliseconds)
    {
        now += std::chrono::milliseconds(milliseconds);
        assembler.OnTime(now);
    }
    void Send(const std::vector<std::uint8_t> &datagram)
    {
        // A copy of its own, so the sanitizer sees a read beyond it.
        const auto exact = std::make_unique<std::uint8_t[]>(datagram.size());
        std::copy(datagram.begin(), datagram.end(), exact.get());
        assembler.OnPacket({exact.get(), datagram.size()}, now);
    }

    /// L1 leader of block 1, P1.2 payload packet 2, T1 trailer, A1 all of it, E1.2 refused packet, R1.2 resent packet,
    /// W50 fifty milliseconds.
    void Run(const std::string &script)
    {
        std::istringstream words(script);
        for (std::string word; words >> word;) {
            const auto dot = word.find('.');
            const std::uint64_t number = std::stoull(word.substr(1, dot - 1));
            const std::uint32_t id = dot == std::string::npos ? 0 : std::stoul(word.substr(dot + 1));
            switch (word[0]) {
            case 'L':
                Leader(number);
                break;
            case 'P':
                Payload(number, id);
                break;
            case 'T':
                Trailer(number);
                break;
            case 'A':
                Whole(number);
                break;
            case 'E':
                Payload(number, id, 0, 0x800C);
                break;
            case 'R':
                Payload(number, id, kData, 0x0100);
                break;
            default:
                Wait(static_cast<int>(number));
                break;
            }
        }
    }

    /// Every pixel of a frame, missing packets as zeros.
    void ExpectPixels(const Delivered &frame, const std::vector<std::uint32_t> &missing = {}) const
    {
        for (std::size_t i = 0; i < kWidth * kLines; ++i) {
            const bool isMissing = std::find(missing.begin(), missing.end(), i / kData + 1) != missing.end();
            ASSERT_EQ(frame.data[i], isMissing ? 0 : Pixel(frame.info.frameId, i)) << "byte " << i;
        }
    }

    Sink sink;

private:
    static FrameAssembler::Settings SettingsFor(bool extended)
    {
        FrameAssembler::Settings settings;
        settings.packetSize = extended ? kExtendedPacketSize : kStandardPacketSize;
        return settings;
    }
    const bool m_extended;

public:
    FrameAssembler assembler;
    TimePoint now{};
};

} // namespace

TEST(FrameAssembler, DeliversFramesAsTheyComplete)
{
    const struct {
        const char *name;
        const char *script;
        const char *delivered;
    } kRows[] = {
        {"in order", "L1 P1.1 P1.2 P1.3 P1.4 P1.5 T1", "1"},
        {"backwards", "T1 P1.5 P1.4 P1.3 P1.2 P1.1 L1", "1"},
        {"everything twice", "L1 L1 P1.1 P1.1 P1.2 P1.2 P1.3 P1.4 P1.5 P1.5 T1 T1", "1"},
        {"two frames interleaved", "L1 L2 P1.1 P2.1 P1.2 P2.2 P1.3 P2.3 P1.4 P2.4 P1.5 P2.5 T1 T2", "1 2"},
        {"not before the last packet", "L1 P1.1 P1.2 P1.4 P1.5 T1", ""},
        {"a hole is given up when the next frame completes", "L1 P1.1 P1.2 P1.4 P1.5 T1 A2", "1! 2"},
        {"the next frame waits for its turn", "L1 P1.1 L2 P2.1 P2.2 P2.3 P2.4 P2.5 P1.2 P1.3 P1.4 P1.5 T1 T2", "1 2"},
        {"a lost leader", "P1.1 P1.2 P1.3 P1.4 P1.5 T1 A2", "1! 2"},
        {"a lost trailer", "L1 P1.1 P1.2 P1.3 P1.4 P1.5 A2", "1! 2"},
        {"two newer frames have begun", "L1 P1.1 L2 L3", "1!"},
        {"one newer frame is not enough", "L1 P1.1 L2", ""},
        {"retention runs out", "L1 P1.1 W100", "1!"},
        {"retention counts from the last packet", "L1 P1.1 W60 P1.2 W60", ""},
        {"a lone leader waits for the trigger", "L1 W5000 P1.1 P1.2 P1.3 P1.4 P1.5 T1", "1"},
        {"the lone leader of an older frame does not", "L1 L2 P2.1 W100", "1! 2!"},
        {"a late packet does not open its frame again", "A1 P1.3 L1 A2 T1", "1 2"},
        {"a late packet of a lost frame", "L1 P1.1 A2 P1.2 A3", "1! 2 3"},
        {"block 0 is a test packet", "L0 P0.1 T0 A1", "1"},
        {"any number may be the first", "A65400 A65401", "65400 65401"},
        {"block numbers wrap from 65535 to 1", "A65534 A65535 A1 A2", "65534 65535 1 2"},
        {"a hole at the wrap", "L65535 P65535.1 A1 A2", "65535! 1 2"},
        {"late across the wrap", "A65535 A1 P65535.2 A2", "65535 1 2"},
        {"numbers may jump ahead", "A1 A900", "1 900"},
        {"far back is counting anew", "A500 A501 A1 A2", "500 501 1 2"},
        {"counting anew ends what is open", "A500 L501 P501.1 A1", "500 501! 1"},
        {"a stray packet of a far block opens nothing", "L10 P10.1 P5000.1 P10.2 P10.3 P10.4 P10.5 T10 A11", "10 11"},
        {"a refused packet is a hole", "L1 P1.1 P1.2 E1.3 P1.4 P1.5 T1 A2", "1! 2"},
        {"a resent packet closes it", "L1 P1.1 P1.2 E1.3 P1.4 P1.5 T1 R1.3", "1"},
        {"a refused packet opens no frame", "E1.3 W200 A2", "2"},
    };
    for (const auto &row : kRows) {
        for (const bool extended : {false, true}) {
            const std::string script = row.script;
            if (extended && script.find("65535") != std::string::npos)
                continue; // only 16-bit numbers wrap there
            Bench bench(kWidth * kLines, 1000, extended);
            bench.Run(script);
            EXPECT_EQ(bench.sink.Summary(), row.delivered) << row.name << (extended ? ", extended ids" : "");
            for (const Delivered &frame : bench.sink.frames) {
                if (!frame.info.isIncomplete)
                    bench.ExpectPixels(frame);
            }
        }
    }
}

TEST(FrameAssembler, TellsEverythingOfACompleteFrame)
{
    Bench bench(kWidth * kLines + 50);
    bench.Whole(7);
    ASSERT_EQ(bench.sink.frames.size(), 1U);
    const FrameInfo &info = bench.sink.frames[0].info;
    EXPECT_EQ(info.frameId, 7U);
    EXPECT_EQ(info.timestamp, 0x1122334455U);
    EXPECT_EQ(info.payloadType, PAYLOAD_TYPE_IMAGE);
    EXPECT_TRUE(info.hasImage);
    EXPECT_EQ(info.pixelFormat, 0x01080001U);
    EXPECT_EQ(info.width, kWidth);
    EXPECT_EQ(info.height, kLines);
    EXPECT_EQ(info.deliveredHeight, kLines);
    EXPECT_EQ(info.sizeFilled, kWidth * kLines);
    EXPECT_EQ(info.dataSize, kWidth * kLines);
    EXPECT_FALSE(info.isLargerThanBuffer);
    EXPECT_FALSE(info.hasChunks);
    EXPECT_EQ(bench.sink.frames[0].data.back(), kOld) << "beyond the frame nothing is touched";
}

TEST(FrameAssembler, HolesAreZeros)
{
    Bench bench;
    bench.Run("L1 P1.1 P1.3 P1.5 T1 W100");
    ASSERT_EQ(bench.sink.Summary(), "1!");
    bench.ExpectPixels(bench.sink.frames[0], {2, 4});
    EXPECT_EQ(bench.sink.frames[0].info.sizeFilled, 60U);
    EXPECT_EQ(bench.sink.frames[0].info.dataSize, 100U);
    EXPECT_EQ(bench.assembler.Count().missing, 2U);

    Bench lostTail;
    lostTail.Run("L1 P1.1 P1.2 W100");
    lostTail.ExpectPixels(lostTail.sink.frames[0], {3, 4, 5});
}

TEST(FrameAssembler, APayloadLargerThanTheBufferIsCutAndSaid)
{
    for (const std::size_t size : {1U, 19U, 20U, 50U, 99U}) {
        Bench bench(size);
        bench.Whole(1);
        ASSERT_EQ(bench.sink.Summary(), "1!") << size;
        EXPECT_TRUE(bench.sink.frames[0].info.isLargerThanBuffer) << size;
        EXPECT_LE(bench.sink.frames[0].info.dataSize, size);
        for (std::size_t i = 0; i < size; ++i)
            ASSERT_EQ(bench.sink.frames[0].data[i], Pixel(1, i)) << size;
    }
}

TEST(FrameAssembler, ATruncatedPacketIsAHoleNotOldData)
{
    Bench bench;
    bench.Leader(1);
    bench.Payload(1, 1);
    bench.Payload(1, 2, 5); // cut on the way, seen when packet 3 follows
    bench.Payload(1, 3);
    bench.Payload(1, 4);
    bench.Payload(1, 5);
    bench.Trailer(1);
    bench.Wait(100);
    ASSERT_EQ(bench.sink.Summary(), "1!");
    bench.ExpectPixels(bench.sink.frames[0], {2});

    Bench last;
    last.Run("L1 P1.1 P1.2 P1.3 P1.4");
    last.Payload(1, 5, 5);
    last.Trailer(1);
    EXPECT_EQ(last.sink.Summary(), "1!") << "all packets, but not all of the image";
    EXPECT_EQ(last.sink.frames[0].info.sizeFilled, 85U);

    Bench healed;
    healed.Run("L1 P1.1");
    healed.Payload(1, 2, 5);
    healed.Run("P1.3 P1.2 P1.4 P1.5 T1");
    ASSERT_EQ(healed.sink.Summary(), "1") << "a whole copy comes later";
    healed.ExpectPixels(healed.sink.frames[0]);
}

TEST(FrameAssembler, AShortPacketLeavesNoOldDataBehindIt)
{
    Bench bench;
    bench.Run("L1 P1.1");
    bench.Payload(1, 2, 5); // the last one to come, so nobody knows that it is not the last one of the frame
    bench.Wait(100);
    ASSERT_EQ(bench.sink.Summary(), "1!");
    const std::vector<std::uint8_t> &data = bench.sink.frames[0].data;
    for (std::size_t i = 0; i < data.size(); ++i)
        ASSERT_EQ(data[i], i < 25 ? Pixel(1, i) : 0) << "byte " << i;
}

TEST(FrameAssembler, CountsBytesAndPacketsThatCameForAClippedFrame)
{
    Bench half(kWidth * kLines / 2);
    half.Payload(1, 3, 19); // ten of its bytes fit; taken back when packet 4 shows that it was cut
    half.Payload(1, 4);
    half.Wait(100);
    ASSERT_EQ(half.sink.Summary(), "1!");
    EXPECT_EQ(half.sink.frames[0].info.sizeFilled, 0U);

    Bench whole(kWidth * kLines / 2);
    whole.Whole(1);
    EXPECT_EQ(whole.assembler.Count().missing, 0U) << "nothing was lost, it just did not fit";

    Bench holed(kWidth * kLines / 2);
    holed.Run("L1 P1.1 P1.3 P1.4 P1.5 T1 W100");
    EXPECT_EQ(holed.assembler.Count().missing, 1U);

    Bench lyingTrailer(kWidth * kLines, 1000, true);
    lyingTrailer.Run("L1 P1.1");
    lyingTrailer.Trailer(1, 0xFFFFFFFF);
    lyingTrailer.Wait(100);
    EXPECT_EQ(lyingTrailer.assembler.Count().missing, 4U);
}

TEST(FrameAssembler, AnOversizedPacketSpoilsOnlyItsFrame)
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
        out.U32(kWidth * kLines);
        bench.Send(Packet(false, 0, 2, block, kPackets + 1, out.Take()));
    };
    chunkFrame(1);
    bench.Leader(2, {payload::kChunk, 0, 0});
    bench.Payload(2, 1, 2 * kData);
    chunkFrame(3);
    chunkFrame(4);
    EXPECT_EQ(bench.sink.Summary(), "1 2! 3 4");
    Bench empty; // two packets alike, but of nothing
    empty.Payload(1, 1, 0);
    empty.Payload(1, 2, 0);
    empty.Wait(100);
    EXPECT_EQ(empty.sink.Summary(), "1!");
    for (const Delivered &frame : bench.sink.frames) {
        if (!frame.info.isIncomplete)
            bench.ExpectPixels(frame);
    }
}

TEST(FrameAssembler, LyingPacketsCannotHarm)
{
    Bench huge; // a leader that promises far more than comes
    huge.Leader(1, {payload::kImage, 0xFFFFFFFF, 0xFFFFFFFF});
    huge.Run("P1.1 P1.2 P1.3 P1.4 P1.5 T1");
    ASSERT_EQ(huge.sink.Summary(), "1!");
    EXPECT_TRUE(huge.sink.frames[0].info.isLargerThanBuffer);
    EXPECT_LE(huge.sink.frames[0].info.dataSize, kWidth * kLines);

    Bench shortTrailer; // a trailer before the end
    shortTrailer.Run("L1 P1.1 P1.2 P1.3 P1.4 P1.5");
    shortTrailer.Trailer(1, 3);
    shortTrailer.Wait(100);
    EXPECT_EQ(shortTrailer.sink.Summary(), "1!");

    Bench farTrailer; // a trailer of four thousand million packets
    farTrailer.Run("L1 P1.1");
    farTrailer.Trailer(1, 0xFFFFFF);
    farTrailer.Wait(100);
    EXPECT_EQ(farTrailer.sink.Summary(), "1!");

    Bench farPayload;
    farPayload.Run("L1");
    farPayload.Payload(1, 0xFFFFFF);
    farPayload.Run("P1.1 P1.2 P1.3 P1.4 P1.5 T1 W100");
    EXPECT_EQ(farPayload.sink.Summary(), "1!");

    Bench wrongIds; // a leader that is not number 0, a trailer and a payload that are
    wrongIds.Send(Packet(false, 0, 1, 1, 5, LeaderContent()));
    wrongIds.Send(Packet(false, 0, 2, 1, 0, TrailerContent()));
    wrongIds.Send(Packet(false, 0, 3, 1, 0, PayloadContent(1, 1)));
    wrongIds.Whole(1);
    EXPECT_EQ(wrongIds.sink.Summary(), "1");
    EXPECT_EQ(wrongIds.assembler.Count().unusable, 3U);
}

TEST(FrameAssembler, RandomPacketsNeverLeaveTheBuffers)
{
    std::mt19937 random(4711);
    const auto any = [&](std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); };
    for (int round = 0; round < 200; ++round) {
        Bench bench(1 + any(200), 1000, round % 2 == 1);
        for (int i = 0; i < 100; ++i) {
            std::vector<std::uint8_t> content(any(48));
            for (std::uint8_t &byte : content)
                byte = static_cast<std::uint8_t>(random());
            if (content.size() >= 4 && any(2) == 0) {
                content[2] = any(2) == 0 ? 0x40 : 0x00;
                content[3] = static_cast<std::uint8_t>(any(9));
            }
            const std::uint32_t id = any(4) == 0 ? random() : any(8);
            bench.Send(Packet(any(2) == 0, any(10) == 0 ? 0x800C : 0, static_cast<std::uint8_t>(any(5)), 1 + any(4), id,
                              content));
            bench.Wait(static_cast<int>(any(20)));
        }
        bench.assembler.DeliverAll();
        for (const Delivered &frame : bench.sink.frames) {
            ASSERT_LE(frame.info.dataSize, frame.data.size());
            ASSERT_LE(frame.info.sizeFilled, frame.info.dataSize);
            ASSERT_LE(frame.info.chunkPayloadSize, frame.info.sizeFilled);
        }
    }
}

TEST(FrameAssembler, LearnsThePacketSizeThatReallyComes)
{
    for (const std::size_t real : {10U, 25U, 50U}) {
        Bench bench; // told 20 bytes per packet
        for (const std::uint64_t block : {1U, 2U}) {
            bench.Leader(block);
            const std::uint32_t packets = kWidth * kLines / real;
            for (std::uint32_t id = 1; id <= packets; ++id) {
                std::vector<std::uint8_t> content;
                for (std::size_t i = 0; i < real; ++i)
                    content.push_back(Pixel(block, (id - 1) * real + i));
                bench.Send(Packet(false, 0, 3, block, id, content));
            }
            bench.Trailer(block, packets + 1);
        }
        ASSERT_EQ(bench.sink.Summary(), "1 2") << real;
        bench.ExpectPixels(bench.sink.frames[0]);
        bench.ExpectPixels(bench.sink.frames[1]);
    }
}

TEST(FrameAssembler, TheLastPacketMayBePaddedOrShort)
{
    Bench padded(90); // 9 lines; the last packet is padded from 10 to 20 bytes
    padded.Leader(1, {payload::kImage, kWidth, 9});
    padded.Run("P1.1 P1.2 P1.3 P1.4 P1.5");
    padded.Trailer(1, 6, 9);
    ASSERT_EQ(padded.sink.Summary(), "1");
    EXPECT_EQ(padded.sink.frames[0].info.sizeFilled, 90U);

    Bench shortLast(100);
    shortLast.Leader(1, {payload::kImage, kWidth, 9});
    shortLast.Run("P1.1 P1.2 P1.3 P1.4");
    shortLast.Payload(1, 5, 10);
    shortLast.Trailer(1, 6, 9);
    ASSERT_EQ(shortLast.sink.Summary(), "1");
    EXPECT_EQ(shortLast.sink.frames[0].info.sizeFilled, 90U);

    Bench fewerLines; // the trailer tells that only six lines came
    fewerLines.Run("L1 P1.1 P1.2 P1.3");
    fewerLines.Trailer(1, 4, 6);
    ASSERT_EQ(fewerLines.sink.Summary(), "1");
    EXPECT_EQ(fewerLines.sink.frames[0].info.deliveredHeight, 6U);
    EXPECT_EQ(fewerLines.sink.frames[0].info.sizeFilled, 60U);
}

TEST(FrameAssembler, ChunksAreAnnouncedOnlyWhenWhole)
{
    const auto trailer = [](std::uint32_t chunkSize) {
        orv::ByteWriter out;
        out.U16(0);
        out.U16(payload::kImage | payload::kChunksFollow);
        out.U32(kLines);
        out.U32(chunkSize);
        out.U32(9);
        return Packet(false, 0, 2, 1, 7, out.Take());
    };
    const LeaderOptions chunked{payload::kImage | payload::kChunksFollow, kWidth, kLines};
    Bench bench(200);
    bench.Leader(1, chunked);
    bench.Run("P1.1 P1.2 P1.3 P1.4 P1.5");
    bench.Payload(1, 6, 16);
    bench.Send(trailer(116));
    ASSERT_EQ(bench.sink.Summary(), "1");
    EXPECT_TRUE(bench.sink.frames[0].info.hasChunks);
    EXPECT_EQ(bench.sink.frames[0].info.chunkPayloadSize, 116U);
    EXPECT_EQ(bench.sink.frames[0].info.chunkLayoutId, 9U);
    EXPECT_EQ(bench.sink.frames[0].info.sizeFilled, 116U);
    EXPECT_EQ(bench.sink.frames[0].info.payloadType, PAYLOAD_TYPE_IMAGE);

    Bench holed(200);
    holed.Leader(1, chunked);
    holed.Run("P1.1 P1.3 P1.4 P1.5");
    holed.Payload(1, 6, 16);
    holed.Send(trailer(116));
    holed.Wait(100);
    ASSERT_EQ(holed.sink.Summary(), "1!");
    EXPECT_FALSE(holed.sink.frames[0].info.hasChunks);

    Bench tooSmall(110);
    tooSmall.Leader(1, chunked);
    tooSmall.Run("P1.1 P1.2 P1.3 P1.4 P1.5");
    tooSmall.Payload(1, 6, 16);
    tooSmall.Send(trailer(116));
    ASSERT_EQ(tooSmall.sink.Summary(), "1!");
    EXPECT_TRUE(tooSmall.sink.frames[0].info.isLargerThanBuffer);
}

TEST(FrameAssembler, WithoutABufferTheWholeFrameIsLostOnce)
{
    Bench bench(kWidth * kLines, 1);
    bench.Run("L1 P1.1 A2 P2.1 T1"); // the only buffer is taken when frame 2 comes
    EXPECT_EQ(bench.sink.taken, 2);
    bench.Run("W100");
    EXPECT_EQ(bench.sink.Summary(), "1!");
}

TEST(FrameAssembler, AbandonedFramesGoBackAndStayAway)
{
    Bench bench;
    bench.Run("L1 P1.1 L2 P2.1");
    bench.assembler.AbandonAll();
    EXPECT_EQ(bench.sink.givenBack, 2);
    bench.Run("P1.2 P2.2 T2 A3");
    EXPECT_EQ(bench.sink.Summary(), "3");
}

TEST(FrameAssembler, OnceRefusedNoFrameBeginsButOpenOnesEnd)
{
    Bench bench;
    bench.Run("L1 P1.1 P1.2");
    bench.assembler.RefuseNewFrames();
    bench.Run("A2 P1.3 P1.4 P1.5 T1");
    EXPECT_EQ(bench.sink.Summary(), "1");
    EXPECT_EQ(bench.sink.taken, 1);
}

TEST(FrameAssembler, TellsWhenItWantsToBeWoken)
{
    Bench bench;
    EXPECT_FALSE(bench.assembler.NextDeadline());
    bench.Run("L1");
    EXPECT_FALSE(bench.assembler.NextDeadline()) << "a lone leader has no time-out";
    bench.Run("P1.1");
    ASSERT_TRUE(bench.assembler.NextDeadline());
    bench.assembler.OnTime(*bench.assembler.NextDeadline());
    EXPECT_EQ(bench.sink.Summary(), "1!");
}
