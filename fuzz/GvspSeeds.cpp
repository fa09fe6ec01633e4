// Streams as the software camera sends them, whole and with the faults that networks have.
#include "fuzz/GvspFuzz.h"
#include "fuzz/Target.h"
#include "orvimage/PixelFormats.h"
#include "simulator/gige/GvspPackets.h"

#include <numeric>

namespace orv::fuzz {

namespace {

using namespace gvspinput;

constexpr std::uint32_t kPacketSize = 110;
constexpr int kWidth = 20;
constexpr int kLines = 12;
constexpr int kLongLines = 32;
constexpr std::uint16_t kBufferSize = kWidth * kLines + 20;
constexpr std::uint16_t kLongBufferSize = kWidth * kLongLines + 20;
constexpr std::uint8_t kManyBuffers = 7;
constexpr std::uint32_t kMono8 = 0x01080001;

std::shared_ptr<orvsim::Frame> MakeFrame(bool hasChunks, int lines)
{
    auto frame = std::make_shared<orvsim::Frame>();
    frame->settings.width = kWidth;
    frame->settings.height = lines;
    frame->settings.pixelType = orv::PixelTypeFromWire(kMono8);
    frame->imageBytes = static_cast<std::size_t>(kWidth * lines);
    frame->payload.resize(frame->imageBytes);
    std::iota(frame->payload.begin(), frame->payload.end(), std::uint8_t{1});
    frame->timestampNs = 1000000;
    frame->hasChunks = hasChunks;
    if (hasChunks) { // the image's length and a chunk of four bytes, as chunks go: data, id, length
        ByteWriter out;
        for (const std::uint32_t word : {1U, static_cast<std::uint32_t>(frame->imageBytes), 0x01020304U, 2U, 4U})
            out.U32(word);
        const Bytes tail = out.Take();
        frame->payload.insert(frame->payload.end(), tail.begin(), tail.end());
    }
    return frame;
}

/// One input being written.
class Stream {
public:
    explicit Stream(const orvsim::StreamTarget &target, bool hasChunks = false, std::uint8_t settings = 0,
                    std::uint16_t bufferSize = kBufferSize, std::uint8_t buffers = 3, int lines = kLines)
        : m_target(target), m_frame(MakeFrame(hasChunks, lines))
    {
        m_out.U8(settings);
        m_out.U16(static_cast<std::uint16_t>(target.packetSize));
        m_out.U16(bufferSize);
        m_out.U8(buffers);
    }

    std::uint32_t Count(std::uint64_t id) const { return orvsim::MakeBlock(m_frame, m_target, id).packetCount; }
    Stream &Send(std::uint64_t id, std::uint32_t packet, orvsim::Sending sending = orvsim::Sending::First)
    {
        return Raw(Datagram(MakeOf(id, packet, sending)));
    }
    Stream &Refuse(std::uint64_t id, std::uint32_t packet, std::uint16_t status)
    {
        return Raw(Datagram(orvsim::MakeRefusal(status, id, packet, m_target.extendedIds)));
    }
    Stream &Whole(std::uint64_t id, std::uint32_t without = ~0U)
    {
        for (std::uint32_t packet = 0; packet < Count(id); ++packet) {
            if (packet != without)
                Send(id, packet);
        }
        return *this;
    }
    /// Packets that come at once: of one block, and of its successor.
    Stream &AtOnce(std::uint64_t id, const std::vector<std::uint32_t> &packets,
                   const std::vector<std::uint32_t> &ofNext = {})
    {
        m_out.U8(kBatch);
        m_out.U8(static_cast<std::uint8_t>(packets.size() + ofNext.size()));
        for (const std::uint32_t packet : packets)
            PutPiece(m_out, SpanOf(Datagram(MakeOf(id, packet, orvsim::Sending::First))));
        for (const std::uint32_t packet : ofNext)
            PutPiece(m_out, SpanOf(Datagram(MakeOf(id + 1, packet, orvsim::Sending::First))));
        return *this;
    }
    /// A block's packets from one to another, at once.
    Stream &Run(std::uint64_t id, std::uint32_t first, std::uint32_t last)
    {
        std::vector<std::uint32_t> packets(last - first + 1);
        std::iota(packets.begin(), packets.end(), first);
        return AtOnce(id, packets);
    }
    Stream &Wait(std::uint16_t hundredUs)
    {
        m_out.U8(kWait);
        m_out.U16(hundredUs);
        return *this;
    }
    Stream &Do(Step step)
    {
        m_out.U8(step);
        return *this;
    }
    Stream &Raw(const Bytes &datagram)
    {
        m_out.U8(kPacket);
        PutPiece(m_out, SpanOf(datagram));
        return *this;
    }
    Bytes Done() { return m_out.Take(); }

private:
    orvsim::Packet MakeOf(std::uint64_t id, std::uint32_t packet, orvsim::Sending sending) const
    {
        return orvsim::MakePacket(orvsim::MakeBlock(m_frame, m_target, id), packet, sending);
    }
    static Bytes Datagram(const orvsim::Packet &packet)
    {
        Bytes datagram(packet.head.begin(), packet.head.begin() + static_cast<std::ptrdiff_t>(packet.headBytes));
        datagram.insert(datagram.end(), packet.body.data, packet.body.data + packet.body.size);
        return datagram;
    }

    const orvsim::StreamTarget m_target;
    const std::shared_ptr<const orvsim::Frame> m_frame;
    ByteWriter m_out;
};

orvsim::StreamTarget Target(bool extendedIds, std::uint32_t packetSize = kPacketSize)
{
    orvsim::StreamTarget target;
    target.packetSize = packetSize;
    target.extendedIds = extendedIds;
    return target;
}

void PutHeader(ByteWriter &out, std::uint8_t format, std::uint32_t id, std::uint8_t parts = 0)
{
    out.U32(0);
    out.U8(0x80 | format);
    out.U16(0);
    out.U8(parts);
    out.U64(1);
    out.U32(id);
}

void PutPart(ByteWriter &out, std::uint16_t dataType, std::uint16_t lines)
{
    out.U16(dataType);
    out.U16(0); // a length of 48 bits
    out.U32(kWidth * lines);
    out.U32(kMono8);
    for (int i = 0; i < 3; ++i)
        out.U32(0);
    out.U32(kWidth);
    out.U32(lines);
    for (int i = 0; i < 4; ++i)
        out.U32(0);
}

/// Two parts in one block: an image and its confidence map.
Bytes MultiPart()
{
    Stream stream(Target(true));
    ByteWriter leader;
    PutHeader(leader, 1, 0, 2);
    leader.U16(0);
    leader.U16(0x000A);
    leader.U64(7);
    PutPart(leader, 1, 4);
    PutPart(leader, 2, 2);
    stream.Raw(leader.Take());
    const struct {
        std::uint8_t part;
        std::uint32_t offset;
        std::size_t size;
    } kPackets[] = {{0, 0, 54}, {0, 54, 26}, {1, 0, 40}};
    std::uint32_t id = 1;
    for (const auto &packet : kPackets) {
        ByteWriter out;
        PutHeader(out, 7, id++);
        out.U8(packet.part);
        out.U8(0);
        out.U16(0);
        out.U32(packet.offset);
        const Bytes data(packet.size, 9);
        out.Bytes(SpanOf(data));
        stream.Raw(out.Take());
    }
    ByteWriter trailer;
    PutHeader(trailer, 2, id);
    trailer.U32(0x000A);
    return stream.Raw(trailer.Take()).Done();
}

/// A block of a type without an image, whose leader states a size.
Bytes Typed(std::uint16_t type, const Bytes &leaderRest)
{
    Stream stream(Target(true));
    ByteWriter leader;
    PutHeader(leader, 1, 0);
    leader.U32(type);
    leader.U64(7);
    leader.Bytes(SpanOf(leaderRest));
    ByteWriter data;
    PutHeader(data, 3, 1);
    const Bytes content(30, 5);
    data.Bytes(SpanOf(content));
    ByteWriter trailer;
    PutHeader(trailer, 2, 2);
    trailer.U32(type);
    trailer.U32(30);
    return stream.Raw(leader.Take()).Raw(data.Take()).Raw(trailer.Take()).Done();
}

/// Eleven packets to a frame, or fourteen, in runs. What the first run brings is never in its place: only then is it
/// known that there are runs.
void AddRuns(std::vector<Bytes> &seeds, bool extended)
{
    const orvsim::StreamTarget target = Target(extended, 96);
    const auto stream = [&](std::uint8_t settings, bool hasChunks = false, std::uint16_t room = kLongBufferSize) {
        return Stream(target, hasChunks, settings, room, 3, kLongLines);
    };
    const std::uint32_t last = stream(0).Count(1) - 1;
    const std::uint32_t middle = last / 2;
    seeds.push_back(stream(0).Run(1, 0, last).Run(2, 0, last).Done());
    seeds.push_back(stream(0, true).Run(1, 0, last).Send(2, 0).Run(2, 1, middle).Do(kAbandon).Done());
    seeds.push_back(stream(0).Run(1, 0, 3).Run(1, 4, middle).Run(1, 2, last - 1).Run(1, 1, last).Done());
    seeds.push_back(stream(0).Run(1, 1, middle).Send(1, 0).Run(1, middle + 2, last).Run(3, 0, last).Wait(2000).Done());
    seeds.push_back(stream(kResend)
                        .Run(1, 0, 3)
                        .Run(1, 5, middle)
                        .Wait(20)
                        .Do(kRequest)
                        .Send(1, 4, orvsim::Sending::Again)
                        .Run(1, middle + 2, last)
                        .Wait(300)
                        .Do(kRequest)
                        .Run(1, 4, middle + 1)
                        .Done());
    seeds.push_back(stream(0).Run(1, 0, 2).AtOnce(1, {3, 4, 6, 5, 7}).AtOnce(1, {8}, {9, 10}).Run(2, 0, last).Done());
    seeds.push_back(stream(0).Run(1, 0, last).Send(6, 1).Run(2, 0, last).Run(3, 0, last).Send(6, 2).Wait(2000).Done());
    seeds.push_back(stream(kResend)
                        .Run(1, 0, 2)
                        .Wait(300)
                        .Do(kRequest)
                        .Send(1, 3, orvsim::Sending::Again)
                        .Wait(300)
                        .Do(kRequest)
                        .Run(1, 4, last)
                        .Done());
    seeds.push_back(stream(0).Run(1, 1, 2).Run(1, 3, middle).Wait(2000).Run(2, 1, middle).Run(2, 3, last).Done());
    seeds.push_back(stream(0, false, kBufferSize).Run(1, 0, 3).Run(1, 4, last).Run(2, 0, last).Done());
}

} // namespace

std::vector<Bytes> Seeds()
{
    using orvsim::Sending;
    std::vector<Bytes> seeds;
    for (const bool extended : {false, true}) {
        const orvsim::StreamTarget target = Target(extended);
        const std::uint32_t last = Stream(target).Count(1) - 1;
        seeds.push_back(Stream(target).Whole(1).Whole(2).Whole(3).Done());
        seeds.push_back(Stream(target, true).Whole(1).Done());
        seeds.push_back(Stream(target).Whole(1, 2).Whole(2).Whole(3, last).Whole(4, 0).Wait(2000).Done());
        seeds.push_back(Stream(target, false, kResend)
                            .Whole(1, 2)
                            .Wait(20)
                            .Do(kRequest)
                            .Refuse(1, 2, orvsim::gvsp::kStatusNotYet)
                            .Wait(300)
                            .Do(kRequest)
                            .Send(1, 2, Sending::Again)
                            .Whole(2, 1)
                            .Wait(20)
                            .Do(kRequest)
                            .Refuse(2, 1, orvsim::gvsp::kStatusUnavailable)
                            .Whole(7)
                            .Done());
        // Of blocks 2, 5 and 6 nothing comes by itself.
        seeds.push_back(Stream(target, false, kResend, kBufferSize, kManyBuffers)
                            .Whole(1)
                            .Whole(3)
                            .Wait(20)
                            .Do(kRequest)
                            .Send(2, 0, Sending::Again)
                            .Whole(4)
                            .Do(kRequest)
                            .Send(2, 2, Sending::Again)
                            .Whole(7)
                            .Wait(20)
                            .Do(kRequest)
                            .Refuse(5, 0, orvsim::gvsp::kStatusUnavailable)
                            .Whole(6)
                            .Wait(2000)
                            .Done());
        seeds.push_back(Stream(target).Send(1, 0).Send(2, 0).Send(1, last).Send(1, 1).Send(1, 1).Wait(2000).Done());
        seeds.push_back(Stream(target, false, 0, 100).Whole(1).Whole(65535).Whole(1).Do(kAbandon).Done());
        seeds.push_back(Stream(target).Send(1, 0).AtOnce(1, {1, 2, 3, 4}).AtOnce(1, {last}).Whole(2).Done());
        seeds.push_back(Stream(target).AtOnce(1, {0, 2}).AtOnce(1, {1, 1, 4}).AtOnce(1, {3, last, 0}).Done());
        AddRuns(seeds, extended);
        orvsim::StreamTarget allIn = Target(extended, 400);
        allIn.allIn = true;
        seeds.push_back(Stream(allIn, true).Whole(1).Do(kRefuseNew).Whole(2).Do(kDeliverAll).Done());
        seeds.push_back(Stream(allIn, false, kResend, kBufferSize, kManyBuffers)
                            .Whole(1)
                            .Whole(4)
                            .Wait(20)
                            .Do(kRequest)
                            .Whole(3)
                            .Whole(2)
                            .Done());
        orvsim::StreamTarget old = Target(extended, 9000);
        old.oldChunkType = true;
        seeds.push_back(Stream(old, true, kBigEndian).Whole(1).Done());
    }
    seeds.push_back(MultiPart());
    const Bytes size = {0, 0, 0, 0, 0, 0, 0, 30};
    for (const std::uint16_t type : {0x0002, 0x0004, 0x0006, 0x8001, 0x4002})
        seeds.push_back(Typed(type, size));
    Bytes file = size;
    file.insert(file.end(), {'a', '.', 'b', 0});
    seeds.push_back(Typed(0x0003, file));
    seeds.push_back(Stream(Target(false)).Raw(orvsim::MakeTestPacket(Target(false))).Done());
    return seeds;
}

} // namespace orv::fuzz
