// Stream packets in any form and order, put together to frames in buffers of a known size: once each by itself, once
// taken from a socket straight to where they belong, and once so with those of one size in a row in one message. All
// ways must give the same frames and ask for the same packets.
//
// Input: a byte of settings (kResend ...), the packet size that the camera was told and the buffers' size (two bytes
// each), the number of buffers; then steps, each a byte (kPacket ...) and what belongs to it.
#include "fuzz/GvspFuzz.h"

#include "fuzz/PacketWire.h"
#include "fuzz/Target.h"
#include "producer/gige/FrameAssembler.h"

#include <cstring>
#include <memory>
#include <tuple>

namespace {

using namespace nuvark;
using namespace nuvark::gige;
using namespace orv::fuzz;
using namespace gvspinput;

/// What a buffer holds before anything is written to it, and no packet brings.
constexpr std::uint8_t kUntouched = 0xEE;
constexpr std::size_t kMargin = 64;
constexpr std::size_t kMostRequested = 100000;

/// Memory of one buffer between two margins that nobody may write to.
class GuardedBuffer {
public:
    explicit GuardedBuffer(std::size_t size) : m_bytes(size + 2 * kMargin, kUntouched) {}

    FrameTarget Lend()
    {
        std::fill(m_bytes.begin(), m_bytes.end(), kUntouched);
        isLent = true;
        return {m_bytes.data() + kMargin, m_bytes.size() - 2 * kMargin, this};
    }
    bool IsIntact() const
    {
        const auto isUntouched = [](std::uint8_t byte) { return byte == kUntouched; };
        return std::all_of(m_bytes.begin(), m_bytes.begin() + kMargin, isUntouched) &&
               std::all_of(m_bytes.end() - kMargin, m_bytes.end(), isUntouched);
    }

    bool isLent = false;

private:
    Bytes m_bytes;
};

/// What was delivered, to compare with: number, whether it is complete, sizes, and the bytes.
using Delivered = std::tuple<std::uint64_t, bool, std::size_t, std::size_t, Bytes>;

/// Block, first and last packet of a request.
using Asked = std::tuple<std::uint64_t, std::uint32_t, std::uint32_t>;

auto AllOf(const FrameAssembler::Counters &c)
{
    return std::make_tuple(c.packets, c.fullPackets, c.unusable, c.duplicates, c.late, c.withoutBuffer,
                           c.droppedByCamera, c.refused, c.missing, c.requested, c.resent, c.missedFrames);
}

/// Gives out its buffers again and again, and checks what comes back.
class CheckingSink final : public FrameSink {
public:
    CheckingSink(std::size_t buffers, std::size_t size)
    {
        for (std::size_t i = 0; i < buffers; ++i)
            m_buffers.push_back(std::make_unique<GuardedBuffer>(size));
    }

    bool TakeBuffer(FrameTarget &target) override
    {
        for (const auto &buffer : m_buffers) {
            if (buffer->isLent)
                continue;
            target = buffer->Lend();
            return true;
        }
        return false;
    }
    void Deliver(const FrameTarget &target, const FrameInfo &info) override
    {
        TakeBack(target);
        Check(target, info);
        delivered.emplace_back(info.frameId, info.isIncomplete, info.dataSize, info.sizeFilled,
                               Bytes(target.data, target.data + info.dataSize));
    }
    void GiveBack(const FrameTarget &target) override { TakeBack(target); }
    std::size_t SpareBuffers() const override
    {
        return static_cast<std::size_t>(
            std::count_if(m_buffers.begin(), m_buffers.end(), [](const auto &buffer) { return !buffer->isLent; }));
    }

    void CheckMargins() const
    {
        for (const auto &buffer : m_buffers)
            Require(buffer->IsIntact(), "nothing is written beside a buffer");
    }
    bool HasLent() const { return SpareBuffers() != m_buffers.size(); }

    std::vector<Delivered> delivered;

private:
    static void Check(const FrameTarget &target, const FrameInfo &info)
    {
        Require(info.frameId != 0, "block 0 is no frame");
        Require(info.dataSize <= target.size, "a frame's data ends within its buffer");
        Require(info.sizeFilled <= info.dataSize, "no more bytes than there is data");
        Require(info.imageOffset <= target.size, "the image begins within the buffer");
        const std::size_t end = info.isIncomplete ? target.size : info.dataSize;
        for (const FramePart &part : info.parts)
            Require(part.begin <= end && part.size <= end - part.begin, "parts lie within the frame");
        Require(info.chunkPayloadSize <= info.sizeFilled, "chunks lie in what came");
        Require(!info.hasChunks || !info.isIncomplete, "chunks of complete frames only");
        Require(info.isIncomplete || info.sizeFilled == info.dataSize, "a complete frame has all of its bytes");
        Require(info.isIncomplete || !info.isLargerThanBuffer, "a frame that was cut is not complete");
        // Holes are filled with zeros and a complete frame has none: nothing from before shines through.
        Require(info.dataSize == 0 || std::memchr(target.data, kUntouched, info.dataSize) == nullptr,
                "every byte of a frame was received or is zero");
    }
    void TakeBack(const FrameTarget &target)
    {
        auto *buffer = static_cast<GuardedBuffer *>(target.owner);
        Require(buffer->isLent, "a buffer comes back once");
        buffer->isLent = false;
    }

    std::vector<std::unique_ptr<GuardedBuffer>> m_buffers;
};

FrameAssembler::Settings ReadSettings(std::uint8_t flags, std::size_t packetSize)
{
    FrameAssembler::Settings settings;
    settings.packetSize = packetSize;
    settings.bigEndianPixels = (flags & kBigEndian) != 0;
    settings.resend.enabled = (flags & kResend) != 0;
    return settings;
}

enum class Way { OneByOne, Landing, Runs };

/// What an input came to.
struct Outcome {
    std::vector<Delivered> frames;
    std::vector<Asked> asked;
    FrameAssembler::Counters counters;
    bool hasRuns = false; ///< packets of one size came at once, one behind the other
};

/// An assembler, its buffers and a clock.
class Session {
public:
    Session(const FrameAssembler::Settings &settings, std::size_t buffers, std::size_t size, Way way)
        : m_way(way), m_sink(buffers, size), m_assembler(m_sink, settings)
    {
    }
    Outcome End()
    {
        m_assembler.DeliverAll();
        m_sink.CheckMargins();
        Require(!m_sink.HasLent(), "all buffers come back");
        Require(m_assembler.Count().packets == m_packets, "every packet is counted");
        return {std::move(m_sink.delivered), std::move(m_asked), m_assembler.Count(), m_hasRuns};
    }

    void Step(orv::ByteReader &in)
    {
        switch (in.U8() % kSteps) {
        case kWait:
            m_now += std::chrono::microseconds(100) * in.U16();
            m_assembler.OnTime(m_now);
            break;
        case kRequest:
            TakeRequests();
            break;
        case kAbandon:
            m_assembler.AbandonAll();
            break;
        case kDeliverAll:
            m_assembler.DeliverAll();
            break;
        case kRefuseNew:
            m_assembler.RefuseNewFrames();
            break;
        case kBatch:
            ReceiveBatch(in);
            break;
        default:
            Receive(TakeDatagram(in));
            break;
        }
        m_sink.CheckMargins();
        Require(m_assembler.HasOpenFrames() == m_sink.HasLent(), "an open frame has a buffer");
    }

private:
    static Bytes TakeDatagram(orv::ByteReader &in)
    {
        Bytes datagram = TakePiece(in);
        std::replace(datagram.begin(), datagram.end(), kUntouched, std::uint8_t{kUntouched - 1});
        return datagram;
    }
    void Receive(const Bytes &datagram)
    {
        ++m_packets;
        m_assembler.OnPacket(SpanOf(datagram), m_now);
    }
    void ReceiveBatch(orv::ByteReader &in)
    {
        std::vector<Bytes> datagrams(in.U8() % (kMostAtOnce + 1));
        for (Bytes &datagram : datagrams)
            datagram = TakeDatagram(in);
        for (std::size_t i = 0; i < datagrams.size(); ++i)
            m_hasRuns = m_hasRuns || PacketWire::RunLength(datagrams, i) > 1;
        if (m_way == Way::OneByOne) {
            for (const Bytes &datagram : datagrams)
                Receive(datagram);
            return;
        }
        if (m_wire == nullptr)
            m_wire = m_way == Way::Runs ? PacketWire::Runs() : PacketWire::Single();
        m_wire->Put(datagrams);
        const std::uint64_t all = m_packets + datagrams.size();
        while (m_packets < all) {
            if (m_wire->batch->Read(m_assembler.NextLanding()) == PacketBatch::Found::Nothing)
                Require(m_wire->WaitForMore(), "every packet arrives");
            TakeBatch(m_wire->batch->Packets());
        }
        Require(m_packets == all, "no packet arrives twice");
    }
    void TakeBatch(const std::vector<PacketBatch::Packet> &packets)
    {
        for (const PacketBatch::Packet &packet : packets) {
            m_packets += std::max(packet.landed, 1U);
            if (packet.landed != 0)
                m_assembler.OnLanded(packet.bytes, packet.landed, m_now);
            else
                m_assembler.OnPacket(packet.bytes, m_now);
        }
    }
    void TakeRequests()
    {
        std::vector<ResendRequest> requests;
        m_assembler.TakeRequests(requests, m_now);
        Require(requests.size() <= kMostRequested, "requests are limited");
        for (const ResendRequest &request : requests) {
            Require(request.first <= request.last, "a request has a beginning and an end");
            Require(!MakeResendCommand(1, 0, request).empty(), "a request has a form");
            m_asked.emplace_back(request.blockId, request.first, request.last);
        }
    }

    const Way m_way;
    std::unique_ptr<PacketWire> m_wire;
    CheckingSink m_sink;
    FrameAssembler m_assembler;
    TimePoint m_now = TimePoint{} + std::chrono::hours(1);
    std::uint64_t m_packets = 0;
    std::vector<Asked> m_asked;
    bool m_hasRuns = false;
};

Outcome Play(orv::ByteSpan input, Way way)
{
    orv::ByteReader in(input);
    const std::uint8_t flags = in.U8();
    const std::size_t packetSize = in.U16();
    const std::size_t bufferSize = in.U16();
    const std::size_t buffers = in.U8() % 8;
    Session session(ReadSettings(flags, packetSize), buffers, std::max<std::size_t>(bufferSize, 1), way);
    while (in.Rest().size != 0)
        session.Step(in);
    return session.End();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const Outcome expected = Play({data, size}, Way::OneByOne);
    for (const Way way : {Way::Landing, Way::Runs}) {
        if (way == Way::Runs && !(expected.hasRuns && PacketWire::HasRuns()))
            continue;
        const Outcome outcome = Play({data, size}, way);
        Require(outcome.frames == expected.frames, "where packets land first makes no difference to the frames");
        Require(outcome.asked == expected.asked, "nor to what is asked for");
        Require(AllOf(outcome.counters) == AllOf(expected.counters), "nor to what is counted");
    }
    return 0;
}
