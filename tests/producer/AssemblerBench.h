#pragma once

#include "producer/gige/FrameAssembler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

/// A frame assembler driven by words, for frames of 10 x 10 pixels in packets of 20 bytes: leader, payload 1 to 5,
/// trailer 6.
namespace assembling {

using namespace nuvark;
using namespace nuvark::gige;

constexpr std::uint32_t kWidth = 10;
constexpr std::uint32_t kLines = 10;
constexpr std::size_t kBytes = kWidth * kLines;
constexpr std::size_t kData = 20;
constexpr std::uint32_t kPackets = 5;
constexpr std::uint8_t kOld = 0xEE; ///< what a buffer holds from before

/// Every pixel of every frame differs from its neighbours' and from the next frame's.
inline std::uint8_t Pixel(std::uint64_t block, std::size_t index)
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
    bool WantsFrames() const override { return wants; }
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
    bool wants = true;

private:
    const std::size_t m_bufferSize;
    int m_left;
    std::vector<std::unique_ptr<std::uint8_t[]>> m_buffers;
};

inline std::vector<std::uint8_t> Packet(bool extended, std::uint16_t status, std::uint8_t format, std::uint64_t block,
                                        std::uint32_t id, const std::vector<std::uint8_t> &content,
                                        std::uint16_t flags = 0)
{
    orv::ByteWriter out;
    out.U16(status);
    if (extended) {
        out.U16(flags);
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
inline std::vector<std::uint8_t> LeaderContent(const LeaderOptions &options = {})
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

inline std::vector<std::uint8_t> TrailerContent(std::uint32_t height = kLines)
{
    orv::ByteWriter out;
    out.U16(0);
    out.U16(payload::kImage);
    out.U32(height);
    return out.Take();
}

/// Pixels of a block from byte `begin` on.
inline std::vector<std::uint8_t> Pixels(std::uint64_t block, std::size_t begin, std::size_t size)
{
    std::vector<std::uint8_t> content;
    for (std::size_t i = begin; i < begin + size; ++i)
        content.push_back(Pixel(block, i));
    return content;
}

/// An assembler with a sink and a clock.
class Bench {
public:
    struct Options {
        std::size_t bufferSize = kBytes;
        int buffers = 1000;
        bool extended = false;
        bool resend = false;
        std::uint32_t percent = ResendSettings().requestPercent;
    };
    explicit Bench(const Options &options)
        : sink(options.bufferSize, options.buffers), m_extended(options.extended), assembler(sink, SettingsFor(options))
    {
    }
    Bench() : Bench(Options()) {}

    void Leader(std::uint64_t block, const LeaderOptions &options = {})
    {
        Send(Packet(m_extended, 0, 1, block, 0, LeaderContent(options)));
    }
    void Payload(std::uint64_t block, std::uint32_t id, std::size_t size = kData, std::uint16_t status = 0)
    {
        Send(Packet(m_extended, status, 3, block, id, Pixels(block, (id - 1) * kData, size)));
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

    /// L1 leader of block 1; P1.2 payload packet 2, P1.2/5 five bytes of it; T1 trailer, T1.4 as packet 4, T1.4/6 of
    /// six lines; A1 all of a block. Of a packet that is not there: E1.2 refused, N1.2 not yet there, O1.2 the camera's
    /// memory ran over, O1 before the trailer. R1.2 resent packet, R1 resent leader, X1.2 one that contradicts, W50
    /// fifty milliseconds, ? what is asked for, B all open frames are given back.
    void Run(const std::string &script)
    {
        std::istringstream words(script);
        for (std::string word; words >> word;) {
            std::istringstream numbers(word.substr(1));
            std::uint64_t block = 0;
            std::uint32_t id = 0;
            std::size_t size = 0;
            char mark = 0;
            numbers >> block >> mark >> id;
            const bool hasId = mark == '.';
            const bool hasSize = bool(numbers >> mark >> size);
            switch (word[0]) {
            case 'L':
                Leader(block);
                break;
            case 'P':
                Payload(block, id, hasSize ? size : kData);
                break;
            case 'T':
                Trailer(block, hasId ? id : kPackets + 1, hasSize ? static_cast<std::uint32_t>(size) : kLines);
                break;
            case 'A':
                Whole(block);
                break;
            case 'E':
                Payload(block, id, 0, kStatusUnavailable);
                break;
            case 'N':
                Payload(block, id, 0, kStatusNotYetAvailable);
                break;
            case 'O':
                Send(Packet(m_extended, kStatusOverrun, hasId ? 3 : 2, block, hasId ? id : kPackets + 1, {}));
                break;
            case 'R':
                if (hasId)
                    Payload(block, id, kData, 0x0100);
                else
                    Send(Packet(m_extended, 0x0100, 1, block, 0, LeaderContent()));
                break;
            case 'X': // same number, other data
                Send(Packet(m_extended, 0, 3, block, id, Pixels(block + 1, (id - 1) * kData, kData)));
                break;
            case '?':
                asked += (m_asked++ == 0 ? "" : "; ") + Requests();
                break;
            case 'B':
                assembler.AbandonAll();
                break;
            default:
                Wait(static_cast<int>(block));
                break;
            }
        }
    }

    /// Of each packet so many bytes as `there` says ("20 5 0"), the rest zeros; without a word about it: all.
    void ExpectPixels(const Delivered &frame, const std::string &there = "") const
    {
        std::istringstream sizes(there);
        for (std::size_t begin = 0; begin < std::min(kBytes, frame.info.dataSize); begin += kData) {
            std::size_t size = kData;
            sizes >> size;
            for (std::size_t i = begin; i < std::min(begin + kData, frame.info.dataSize); ++i)
                ASSERT_EQ(frame.data[i], i < begin + size ? Pixel(frame.info.frameId, i) : 0) << "byte " << i;
        }
    }
    void ExpectCompleteFramesAreRight() const
    {
        for (const Delivered &frame : sink.frames) {
            if (!frame.info.isIncomplete)
                ExpectPixels(frame);
        }
    }

    Sink sink;
    std::string asked;

private:
    static FrameAssembler::Settings SettingsFor(const Options &options)
    {
        FrameAssembler::Settings settings;
        settings.resend.enabled = options.resend;
        settings.resend.requestPercent = options.percent;
        settings.packetSize = 28 + (options.extended ? kExtendedHeaderSize : kStandardHeaderSize) + kData;
        return settings;
    }
    const bool m_extended;
    int m_asked = 0;

public:
    FrameAssembler assembler;
    TimePoint now{};
};

} // namespace assembling
