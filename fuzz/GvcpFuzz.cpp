#include "fuzz/GvcpFuzz.h"

#include "fuzz/Target.h"
#include "tests/simulator/FakeDevice.h"

#include <initializer_list>

namespace {

using namespace orvsim;
using orv::fuzz::Require;

constexpr std::size_t kMaxAnswer = 548;     // of a GVCP packet
constexpr std::size_t kMaxAnswers = 2;      // PENDING_ACK and the answer itself
constexpr std::uint8_t kByBroadcast = 0x04; // of the byte before each datagram
constexpr std::uint8_t kTimePasses = 0x08;  // a second, before the datagram
constexpr std::uint8_t kSenderMask = 0x03;  // three senders; 3 is the first again
constexpr Endpoint kSenders[] = {{0xC0A80A01, 40000}, {0xC0A80A02, 40000}, {0x0A000001, 40000}, {0xC0A80A01, 40000}};

bool IsAsked(orv::ByteSpan datagram)
{
    return datagram.size >= kGvcpHeaderSize && datagram.data[0] == 0x42 && (datagram.data[1] & kFlagAcknowledge) != 0;
}

/// Nobody but whoever asked hears anything; only a search may be answered by broadcast, to the port that asked.
void CheckReplies(const Endpoint &from, orv::ByteSpan datagram, const std::vector<Reply> &replies)
{
    Require(replies.empty() || IsAsked(datagram), "no answer without the acknowledge flag");
    Require(replies.size() <= kMaxAnswers, "one answer, and one notice before it");
    for (const Reply &reply : replies) {
        const bool isBroadcast = reply.to == Endpoint{0xffffffff, from.port};
        Require(reply.to == from || isBroadcast, "answers go to whoever asked");
        Require(!isBroadcast || (datagram.data[1] & kFlagBroadcastAnswer) != 0, "broadcast only where allowed");
        Require(reply.bytes.size() >= kGvcpHeaderSize && reply.bytes.size() <= kMaxAnswer, "answer's length");
        const std::size_t length = reply.bytes[4] << 8 | reply.bytes[5];
        Require(length + kGvcpHeaderSize == reply.bytes.size(), "answer's length field");
        Require(reply.bytes[6] == datagram.data[6] && reply.bytes[7] == datagram.data[7], "answer's id");
    }
}

void CheckState(const FakeDevice &device)
{
    const BootstrapState state = device.bootstrap.State();
    for (const Endpoint &to : {state.Stream().to, state.Messages().to})
        Require(to.port == 0 || to.address == 0 || IsMulticast(to.address) || to.address == state.controllerAddress,
                "streams and events go to the controller or a group");
    Require(state.IsControlled() || (state.streamPort == 0 && state.messagePort == 0), "closed without a controller");
    const std::uint32_t size = state.streamPacketSize & 0xffff;
    Require(size >= kMinPacketSize && size <= kMaxPacketSize && size % kPacketSizeStep == 0, "packet size");
}

/// Packets that requests bring: those of their range that the block has, and a refusal for each of the next 64 beyond.
class AskedPackets {
public:
    explicit AskedPackets(const FakeDevice &device) : m_device(device) {}

    /// Counts the requests that are new since the last call.
    void Check(TimePoint now)
    {
        m_left = std::min(kAtOnce, m_left + kPerSecond * std::chrono::duration<double>(now - m_at).count());
        m_at = now;
        for (; m_counted < m_device.resends.size(); ++m_counted)
            m_left -= static_cast<double>(PacketsOf(m_device.resends[m_counted]));
        Require(m_left >= 0, "no more packets than the budget for them holds");
    }

private:
    static constexpr double kAtOnce = 50000;
    static constexpr double kPerSecond = 200000;
    static constexpr std::uint64_t kMostRefusals = 64;

    std::uint64_t PacketsOf(const ResendRequest &request) const
    {
        const StreamTarget target = m_device.bootstrap.State().Stream();
        const std::size_t dataBytes = target.packetSize - (target.extendedIds ? 48 : 36);
        const std::uint64_t count = (FakeDevice::kPayloadBytes + dataBytes - 1) / dataBytes + 2;
        const std::uint64_t end = std::uint64_t{request.lastPacket} + 1;
        const std::uint64_t first = request.firstPacket;
        const std::uint64_t there = std::max(first, std::min(end, count)) - first;
        const bool isOpenEnded = request.lastPacket == 0xffffffff;
        const std::uint64_t beyond =
            isOpenEnded ? (first < count ? 0 : 1) : end - std::min(end, std::max(first, count));
        return there + std::min(beyond, kMostRefusals);
    }

    const FakeDevice &m_device;
    double m_left = kAtOnce;
    TimePoint m_at{};
    std::size_t m_counted = 0;
};

void Append(std::vector<std::uint8_t> &input, std::uint8_t way, std::initializer_list<std::uint32_t> words,
            GvcpCommand command, std::uint8_t flags, std::uint16_t id)
{
    orv::ByteWriter out;
    out.U8(way);
    out.U16(static_cast<std::uint16_t>(kGvcpHeaderSize + 4 * words.size()));
    out.U8(0x42);
    out.U8(flags);
    out.U16(static_cast<std::uint16_t>(command));
    out.U16(static_cast<std::uint16_t>(4 * words.size()));
    out.U16(id);
    for (const std::uint32_t word : words)
        out.U32(word);
    const auto bytes = out.Take();
    input.insert(input.end(), bytes.begin(), bytes.end());
}

} // namespace

std::vector<std::vector<std::uint8_t>> GvcpSeeds()
{
    std::vector<std::vector<std::uint8_t>> seeds(5);
    Append(seeds[0], kByBroadcast, {}, GvcpCommand::Discovery, 0x11, 0xffff);
    Append(seeds[0], kByBroadcast | 2, {}, GvcpCommand::Discovery, 0x11, 0xffff);
    Append(seeds[0], 1, {0x0000, 0x200}, GvcpCommand::ReadMemory, 0x01, 1);
    Append(seeds[0], 0, {0, 0, 0, 0, 0, 0x7f000009, 0, 0, 0, 0xff000000, 0, 0, 0, 0}, GvcpCommand::ForceIp, 0x01, 2);

    std::vector<std::uint8_t> &session = seeds[1];
    Append(session, 0, {0x0A00, 2}, GvcpCommand::WriteRegister, 0x01, 1);
    Append(session, 0, {0x0954, 6, 0x0960, 0x40000000, 0xA004, 1}, GvcpCommand::WriteRegister, 0x01, 2);
    Append(session, 0, {0x0D18, 0xC0A80A01, 0x0D04, 0xC00005DC, 0x0D00, 50010}, GvcpCommand::WriteRegister, 0x01, 3);
    Append(session, 0, {0x00000001, 5, 7}, GvcpCommand::PacketResend, 0x00, 4);
    Append(session, 1, {0, 5, 7, 0, 1}, GvcpCommand::PacketResend, 0x10, 5);
    Append(session, 0, {0x0B10, 0xC0A80A01, 0x0B00, 50011}, GvcpCommand::WriteRegister, 0x01, 6);
    Append(session, 0, {0x00E8, 0x61626364}, GvcpCommand::WriteMemory, 0x01, 7);
    Append(session, kTimePasses, {0x0A00}, GvcpCommand::ReadRegister, 0x01, 8);
    Append(session, 0, {0x0A00, 0}, GvcpCommand::WriteRegister, 0x01, 9);

    Append(seeds[2], 0, {0x0A00, 1, 0x9804, 1, 0x0954, 8}, GvcpCommand::WriteRegister, 0x01, 1);
    Append(seeds[2], kByBroadcast | 1, {0, 0, 1}, GvcpCommand::Action, 0x01, 2);
    Append(seeds[2], 1, {0, 0, 1, 0, 100}, GvcpCommand::Action, 0x81, 3);
    Append(seeds[2], 1, {0x0938}, GvcpCommand::ReadRegister, 0x01, 4);

    Append(seeds[3], 0, {0x0A00, 2}, GvcpCommand::WriteMemory, 0x01, 1);
    Append(seeds[3], 0, {0x0D18, 0xEF000001, 0x0D24, 0xC, 0x0D00, 50010}, GvcpCommand::WriteRegister, 0x01, 2);
    Append(seeds[3], 1, {0x00000001, 0, 0x00ffffff}, GvcpCommand::PacketResend, 0x00, 3);

    // Small packets with long ids: blocks of many packets, asked for as a whole and beyond, until the budget is used
    // up.
    Append(seeds[4], 0, {0x0A00, 2, 0x0960, 0x40000000, 0x0D04, 220}, GvcpCommand::WriteRegister, 0x01, 1);
    Append(seeds[4], 0, {0x0D18, 0xC0A80A01, 0x0D00, 50010}, GvcpCommand::WriteRegister, 0x01, 2);
    for (std::uint16_t i = 0; i < 40; ++i)
        Append(seeds[4], 0, {0, 0, 0x00ffffff, 0, 1U + i}, GvcpCommand::PacketResend, 0x10, 3);
    Append(seeds[4], kTimePasses, {0, 0, 0x00ffffff, 0, 1}, GvcpCommand::PacketResend, 0x10, 3);
    return seeds;
}

std::vector<orv::fuzz::Bytes> orv::fuzz::Seeds()
{
    return GvcpSeeds();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    GigeOptions options;
    options.address = 0xC0A80A14; // 192.168.10.20
    options.subnetMask = 0xFFFFFF00;
    FakeDevice device(options);
    device.slowMs = 300;
    MessageChannel messages;
    ControlServer server(device.bootstrap, device, messages, 1);
    TimePoint now = TimePoint{} + std::chrono::hours(1);
    AskedPackets asked(device);

    orv::ByteReader in({data, size});
    while (in.Rest().size >= 3) {
        const std::uint8_t way = in.U8();
        const std::size_t length = std::min<std::size_t>(in.U16(), in.Rest().size);
        // A copy of its own, so that a read beyond the datagram is noticed.
        const Datagram datagram(in.Rest().data, in.Rest().data + length);
        in.Skip(length);
        if ((way & kTimePasses) != 0)
            now += std::chrono::seconds(1);
        const Endpoint from = kSenders[way & kSenderMask];
        const orv::ByteSpan bytes{datagram.data(), datagram.size()};
        const auto replies =
            (way & kByBroadcast) != 0 ? server.HandleBroadcast(from, bytes, now) : server.Handle(from, bytes, now);
        CheckReplies(from, bytes, replies);
        CheckState(device);
        asked.Check(now);
        messages.Receive(from, bytes);
    }
    return 0;
}
