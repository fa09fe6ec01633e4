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
    std::size_t SpareBuffers() const override { return spare; }

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
    std::size_t spare = 1000;

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
    explicit Bench(std::size_t bufferSize = kWidth * kLines, int buffers = 1000, bool extended = false,
                   bool resend = false)
        : sink(bufferSize, buffers), m_extended(extended), assembler(sink, SettingsFor(extended, resend))
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
    /// "1:2-3 1:5-": what is asked for again since the last call; an open end is the end of the block.
    std::string Requests()
    {
        std::vector<ResendRequest> requests;
        assembler.TakeRequests(requests, now);
        std::string text;
        for (const ResendRequest &request : requests) {
            text += (text.empty() ? "" : " ") + std::to_string(request.blockId) + ":" + std::to_string(request.first);
            if (request.last == kToTheEnd)
                text += "-";
            else if (request.last != request.first)
                text += "-" + std::to_string(request.last);
        }
        return text;
    }
    void Send(const std::vector<std::uint8_t> &datagram)
    {
        // A copy of its own, so the sanitizer sees a read beyond it.
        const auto exact = std::make_unique<std::uint8_t[]>(datagram.size());
        std::copy(datagram.begin(), datagram.end(), exact.get());
        assembler.OnPacket({exact.get(), datagram.size()}, now);
    }

    /// L1 leader of block 1, P1.2 payload packet 2, T1 trailer, A1 all of it, E1.2 refused packet, N1.2 packet that is
    /// not there yet, R1.2 resent packet, X1.2 a packet that contradicts, W50 fifty milliseconds, ? what is asked for.
    void Run(const std::string &script)
    {
        std::istringstream words(script);
        for (std::string word; words >> word;) {
            const auto dot = word.find('.');
            const std::uint64_t number = word == "?" ? 0 : std::stoull(word.substr(1, dot - 1));
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
            case 'N':
                Payload(number, id, 0, 0x8010);
                break;
            case 'X': // same number, other data
                Send(Packet(m_extended, 0, 3, number, id, PayloadContent(number + 1, id)));
                break;
            case '?':
                asked += (m_asked++ == 0 ? "" : "; ") + Requests();
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
    std::string asked;

private:
    static FrameAssembler::Settings SettingsFor(bool extended, bool resend)
    {
        FrameAssembler::Settings settings;
        settings.resend.enabled = resend;
        settings.packetSize = extended ? kExtendedPacketSize : kStandardPacketSize;
        return settings;
    }
    const bool m_extended;
    int m_asked = 0;

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

TEST(FrameAssembler, AsksAgainForWhatIsMissing)
{
    const struct {
        const char *name;
        const char *script;
        const char *asked;
        const char *delivered;
    } kRows[] = {
        {"nothing missing", "A1 A2 W50 ?", "", "1 2"},
        {"a hole, after the initial timeout", "L1 P1.1 P1.3 ? W1 ? R1.2 P1.4 P1.5 T1", "; 1:2", "1"},
        {"neighbours together", "L1 P1.1 P1.4 P1.5 T1 W1 ? R1.2 R1.3", "1:2-3", "1"},
        {"apart when there is something between", "L1 P1.1 P1.3 P1.5 T1 W1 ?", "1:2 1:4", ""},
        {"what came out of order is not asked for", "L1 P1.1 P1.3 P1.2 P1.4 P1.5 W1 ? T1", "", "1"},
        {"again after the packet timeout", "L1 P1.1 P1.3 P1.4 P1.5 T1 W1 ? W19 ? W1 ? R1.2", "1:2; ; 1:2", "1"},
        {"a lost leader", "P1.1 P1.2 W1 ? L1 P1.3 P1.4 P1.5 T1", "1:0", "1"},
        {"a lost tail, when the next frame begins", "L1 P1.1 P1.2 P1.3 L2 W1 ?", "1:4-", ""},
        {"a lost trailer", "L1 P1.1 P1.2 P1.3 P1.4 P1.5 A2 W1 ? T1", "1:6-", "1 2"},
        {"the tail of the last frame, when nothing comes", "L1 P1.1 P1.2 W19 ? W1 ?", "; 1:3-", ""},
        {"a lone leader waits for its trigger", "L1 W5000 ?", "", ""},
        {"the next frame waits", "L1 P1.1 P1.3 P1.4 P1.5 T1 A2 A3 W1 ? R1.2 A4", "1:2", "1 2 3 4"},
        {"until the retention", "L1 P1.1 P1.3 P1.4 P1.5 T1 A2 W99 W1", "", "1! 2"},
        {"a refusal ends it", "L1 P1.1 P1.3 P1.4 P1.5 T1 A2 W1 ? E1.2 W30 ?", "1:2; ", "1! 2"},
        {"but not one that nobody asked for", "L1 P1.1 P1.3 P1.4 E1.2 W1 ?", "1:2", ""},
        {"not yet there: later", "L1 P1.1 P1.3 P1.4 P1.5 T1 W1 ? W15 N1.2 W10 ? W10 ? R1.2", "1:2; ; 1:2", "1"},
        {"asked for often enough",
         "L1 P1.1 P1.3 P1.4 P1.5 T1 A2 W1 ? W20 ? P1.1 W20 ? P1.1 W20 ? P1.1 W20 ? P1.1 W20 ?",
         "1:2; 1:2; 1:2; 1:2; 1:2; ", "1! 2"},
        {"packets that contradict are both wrong", "L1 P1.1 X1.1 P1.2 P1.3 P1.4 P1.5 T1 ? R1.1", "1:1", "1"},
        {"the first one may be the wrong one", "L1 X1.1 P1.1 P1.2 P1.3 P1.4 P1.5 T1 ? R1.1", "1:1", "1"},
        {"nothing for delivered frames", "L1 P1.1 P1.3 P1.4 P1.5 T1 W100 ? P1.2 ?", "; ", "1!"},
        {"across the wrap", "A65535 P1.1 A2 W1 ?", "1:0 1:2-", "65535"},
        {"a number left out", "A1 A3 W30 ?", "", "1 3"},
        {"a stray packet does not jump ahead", "A1 P9.3 L2 P2.1 P2.2 P2.3 P2.4 P2.5 T2 A3", "", "1 2 3"},
    };
    for (const auto &row : kRows) {
        for (const bool extended : {false, true}) {
            const std::string script = row.script;
            if (extended && script.find("65535") != std::string::npos)
                continue;
            Bench bench(kWidth * kLines, 1000, extended, true);
            bench.Run(script);
            EXPECT_EQ(bench.asked, row.asked) << row.name;
            EXPECT_EQ(bench.sink.Summary(), row.delivered) << row.name;
            for (const Delivered &frame : bench.sink.frames) {
                if (!frame.info.isIncomplete)
                    bench.ExpectPixels(frame);
            }
        }
    }
}

TEST(FrameAssembler, WhatIsAskedForHasLimits)
{
    constexpr std::uint32_t kMany = 1000; // packets
    const auto lossy = [](Bench &bench, std::uint32_t lastLost) {
        bench.Leader(1, {payload::kImage, kWidth, 2 * kMany});
        for (std::uint32_t id = 1; id <= kMany; ++id) {
            if (id < 100 || id > lastLost)
                bench.Payload(1, id);
        }
        bench.Trailer(1, kMany + 1, 2 * kMany);
        bench.now += std::chrono::milliseconds(1);
    };
    Bench burst(kData * kMany, 1000, false, true);
    lossy(burst, 499);
    EXPECT_EQ(burst.Requests(), "1:100-163 1:164-227 1:228-291 1:292-355") << "not all at once";
    EXPECT_EQ(burst.Requests(), "");
    burst.now += std::chrono::milliseconds(1);
    EXPECT_EQ(burst.Requests(), "1:356-419 1:420-483 1:484-499") << "the rest a moment later";
    EXPECT_EQ(burst.assembler.Count().requested, 400U);

    Bench tooMuch(kData * kMany, 1000, false, true);
    lossy(tooMuch, 749);
    for (int i = 0; i < 10; ++i) {
        (void)tooMuch.Requests();
        tooMuch.now += std::chrono::milliseconds(1);
    }
    EXPECT_LE(tooMuch.assembler.Count().requested, 501U) << "half of the frame's packets";

    Bench starved(kWidth * kLines, 1000, false, true);
    starved.sink.spare = 1; // what waits behind the hole would leave none
    starved.Run("L1 P1.1 P1.3 P1.4 P1.5 T1 A2 A3");
    EXPECT_EQ(starved.sink.Summary(), "1! 2 3");
}

TEST(FrameAssembler, ATruncatedPacketIsAskedForAgain)
{
    for (const std::uint32_t cut : {1U, 3U, 5U}) {
        Bench bench(kWidth * kLines, 1000, false, true);
        bench.Leader(1);
        for (std::uint32_t id = 1; id <= kPackets; ++id)
            bench.Payload(1, id, id == cut ? 7 : kData);
        bench.Trailer(1);
        bench.now += std::chrono::milliseconds(1);
        EXPECT_EQ(bench.Requests(), "1:" + std::to_string(cut));
        bench.Payload(1, cut, kData, 0x0100);
        ASSERT_EQ(bench.sink.Summary(), "1") << cut;
        bench.ExpectPixels(bench.sink.frames[0]);
        EXPECT_EQ(bench.assembler.Count().resent, 1U);
    }
}

TEST(FrameAssembler, ABlockInOnePacket)
{
    for (const bool extended : {false, true}) {
        Bench bench(kWidth * kLines + 7, 1000, extended, true);
        std::vector<std::uint8_t> content = LeaderContent();
        const std::vector<std::uint8_t> trailer = TrailerContent();
        content.insert(content.end(), trailer.begin(), trailer.end());
        for (std::uint32_t id = 1; id <= kPackets; ++id) {
            const std::vector<std::uint8_t> data = PayloadContent(4, id);
            content.insert(content.end(), data.begin(), data.end());
        }
        bench.Send(Packet(extended, 0, 4, 4, 0, content));
        ASSERT_EQ(bench.sink.Summary(), "4");
        bench.ExpectPixels(bench.sink.frames[0]);
        EXPECT_EQ(bench.sink.frames[0].info.sizeFilled, kWidth * kLines);
        content.resize(content.size() - 30); // cut on the way
        bench.Send(Packet(extended, 0, 4, 5, 0, content));
        content.resize(30);
        bench.Send(Packet(extended, 0, 4, 6, 0, content));
        bench.Wait(100);
        EXPECT_EQ(bench.sink.Summary(), "4 5! 6!");
    }
}

namespace {

/// Leader of two parts: a map of 30 bytes, then the image of 10 x 10, each in packets of 12 bytes.
std::vector<std::uint8_t> PartsLeader(std::uint16_t firstType)
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
    part(firstType, 30, 3);
    part(1, kWidth * kLines, kLines);
    std::vector<std::uint8_t> packet = Packet(true, 0, 1, 1, 0, out.Take());
    packet[7] = 2; // parts
    return packet;
}

std::vector<std::uint8_t> PartPacket(std::uint32_t id, std::uint8_t part, std::uint64_t offset, std::size_t begin,
                                     std::size_t size)
{
    orv::ByteWriter out;
    out.U64(std::uint64_t{part} << 56 | offset);
    for (std::size_t i = begin; i < begin + size; ++i)
        out.U8(Pixel(1, i));
    return Packet(true, 0, 7, 1, id, out.Take());
}

} // namespace

TEST(FrameAssembler, TheFirstImageOfSeveralParts)
{
    constexpr std::size_t kPartData = kData - 8;
    constexpr std::uint16_t kConfidence = 9;
    for (const bool absolute : {false, true}) {
        Bench bench(200, 1000, true);
        bench.Send(PartsLeader(kConfidence));
        std::vector<std::vector<std::uint8_t>> packets;
        std::uint32_t id = 1;
        for (std::size_t at = 0; at < 30; at += kPartData)
            packets.push_back(PartPacket(id++, 0, at, at, std::min<std::size_t>(kPartData, 30 - at)));
        for (std::size_t at = 0; at < kWidth * kLines; at += kPartData)
            packets.push_back(PartPacket(id++, 1, at + (absolute ? 30 : 0), 30 + at,
                                         std::min<std::size_t>(kPartData, kWidth * kLines - at)));
        for (auto packet = packets.rbegin(); packet != packets.rend(); ++packet)
            bench.Send(*packet);
        bench.Send(PartPacket(2, 1, 0, 0, kPartData));       // of a part that packet 2 is not of
        bench.Send(PartPacket(3, 9, 0, 0, kPartData));       // of no part
        bench.Send(PartPacket(2, 0, 1000000, 0, kPartData)); // far outside
        bench.Send(Packet(true, 0, 2, 1, id, TrailerContent()));
        ASSERT_EQ(bench.sink.Summary(), "1") << absolute;
        const Delivered &frame = bench.sink.frames[0];
        EXPECT_EQ(frame.info.imageOffset, 30U);
        EXPECT_EQ(frame.info.width, kWidth);
        EXPECT_EQ(frame.info.payloadType, PAYLOAD_TYPE_MULTI_PART);
        EXPECT_EQ(frame.info.sizeFilled, 130U);
        ASSERT_EQ(frame.info.parts.size(), 2U);
        const FramePart &map = frame.info.parts[0];
        const FramePart &image = frame.info.parts[1];
        EXPECT_EQ(map.dataType, PART_DATATYPE_CONFIDENCE_MAP);
        EXPECT_EQ(image.dataType, PART_DATATYPE_2D_IMAGE);
        EXPECT_TRUE(map.begin == 0 && map.size == 30 && map.width == kWidth && map.height == 3);
        EXPECT_TRUE(image.begin == 30 && image.size == kWidth * kLines && image.pixelFormat == 0x01080001);
        for (std::size_t i = 0; i < 130; ++i)
            ASSERT_EQ(frame.data[i], Pixel(1, i)) << i;
        EXPECT_EQ(frame.data[130], kOld);
    }
    Bench tooSmall(50, 1000, true);
    tooSmall.Send(PartsLeader(kConfidence));
    for (std::uint32_t id = 1; id < 20; ++id)
        tooSmall.Send(PartPacket(id, 1, std::uint64_t{id - 4} * kPartData, 0, kPartData));
    tooSmall.Send(Packet(true, 0, 2, 1, 13, TrailerContent()));
    tooSmall.Wait(100);
    ASSERT_EQ(tooSmall.sink.Summary(), "1!");
    EXPECT_TRUE(tooSmall.sink.frames[0].info.isLargerThanBuffer);
}

TEST(ResendCommand, HasTheFormOfTheBlocksIds)
{
    // Packets 5 to the end of block 0x1234; a standard command keeps 24 bits of the packet numbers.
    EXPECT_EQ(MakeResendCommand(0x0102, 1, {0x1234, false, 5, kToTheEnd}),
              (std::vector<std::uint8_t>{0x42, 0x00, 0x00, 0x40, 0x00, 0x0C, 0x01, 0x02, 0x00, 0x01,
                                         0x12, 0x34, 0x00, 0x00, 0x00, 0x05, 0x00, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(MakeResendCommand(7, 0, {0x1234, true, 5, kToTheEnd}),
              (std::vector<std::uint8_t>{0x42, 0x10, 0x00, 0x40, 0x00, 0x14, 0x00, 0x07, 0x00, 0x00,
                                         0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0xFF, 0xFF, 0xFF, 0xFF,
                                         0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x12, 0x34}));
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
    EXPECT_EQ(farPayload.sink.Summary(), "1!") << "nothing had come yet that shows it to be a lie";
    Bench laterLie;
    laterLie.Run("L1 P1.1");
    laterLie.Payload(1, 0xFFFFFF);
    laterLie.Run("P1.2 P1.3 P1.4 P1.5 T1");
    EXPECT_EQ(laterLie.sink.Summary(), "1");

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
        Bench bench(1 + any(200), 1000, round % 2 == 1, round % 3 != 0);
        for (int i = 0; i < 100; ++i) {
            std::vector<std::uint8_t> content(any(48));
            for (std::uint8_t &byte : content)
                byte = static_cast<std::uint8_t>(random());
            if (content.size() >= 4 && any(2) == 0) {
                content[2] = any(2) == 0 ? 0x40 : 0x00;
                content[3] = static_cast<std::uint8_t>(any(11));
            }
            const std::uint32_t id = any(4) == 0 ? random() : any(8);
            bench.Send(Packet(any(2) == 0, any(10) == 0 ? 0x800C : 0, static_cast<std::uint8_t>(any(9)), 1 + any(4), id,
                              content));
            bench.Wait(static_cast<int>(any(20)));
            (void)bench.Requests();
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
