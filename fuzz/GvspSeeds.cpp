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
constexpr std::uint16_t kBufferSize = kWidth * kLines + 20;
constexpr std::uint8_t kManyBuffers = 7;
constexpr std::uint32_t kMono8 = 0x01080001;

std::shared_ptr<orvsim::Frame> MakeFrame(bool hasChunks)
{
    auto frame = std::make_shared<orvsim::Frame>();
    frame->settings.width = kWidth;
    frame->settings.height = kLines;
    frame->settings.pixelType = orv::PixelTypeFromWire(kMono8);
    frame->imageBytes = kWidth * kLines;
    frame->payload.resize(frame->imageBytes);
    std::iota(frame->payload.begin(), frame->payload.end(), std::uint8_t{1});
    frame->timestampNs = 1000000;
    frame->hasChunks = hasChunks;
    if (hasChunks) { // the image's length and a chunk of four bytes, as chunks go: data, id, length
        const Bytes tail = {0, 0, 0, 1, 0, 0, 0, kWidth * kLines, 1, 2, 3, 4, 0, 0, 0, 2, 0, 0, 0, 4};
        frame->payload.insert(frame->payload.end(), tail.begin(), tail.end());
    }
    return frame;
}

/// One input being written.
class Stream {
public:
    explicit Stream(const orvsim::StreamTarget &target, bool hasChunks = false, std::uint8_t settings = 0,
                    std::uint16_t bufferSize = kBufferSize, std::uint8_t buffers = 3)
        : m_target(target), m_frame(MakeFrame(hasChunks))
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
    /// Packets of one block that come at once.
    Stream &AtOnce(std::uint64_t id, const std::vector<std::uint32_t> &packets)
    {
        m_out.U8(kBatch);
        m_out.U8(static_cast<std::uint8_t>(packets.size()));
        for (const std::uint32_t packet : packets)
            PutPiece(m_out, SpanOf(Datagram(MakeOf(id, packet, orvsim::Sending::First))));
        return *this;
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
