// Packets through a real socket: whatever comes in whatever portions, each byte ends where it belongs.
#include "producer/gige/StreamReceiver.h"
#include "AssemblerBench.h"
#include "support/SendRun.h"

#include <condition_variable>
#include <mutex>
#include <thread>

using namespace assembling;

namespace {

// Frames of forty packets of a hundred bytes; the last one is half a packet.
constexpr std::uint32_t kCamera = 0x7f000051;
constexpr std::uint32_t kStranger = 0x7f000052;
constexpr std::size_t kFull = 100;
constexpr std::uint32_t kLast = 40;
constexpr std::size_t kImage = (kLast - 1) * kFull + kFull / 2;

/// Two buffers; says what is done with them.
class TwoBuffers final : public FrameSink {
public:
    TwoBuffers()
    {
        for (auto &buffer : buffers)
            buffer.assign(kImage, kOld);
    }

    bool TakeBuffer(FrameTarget &target) override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_next == buffers.size())
            return false;
        std::vector<std::uint8_t> &buffer = buffers[m_next++];
        target = {buffer.data(), buffer.size(), &buffer};
        return true;
    }
    void Deliver(const FrameTarget &target, const FrameInfo &info) override
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_frames.push_back({info, std::vector<std::uint8_t>(target.data, target.data + target.size)});
        m_changed.notify_all();
    }
    void GiveBack(const FrameTarget &target) override { std::fill_n(target.data, target.size, kOld); }

    /// The frame of that number; nothing when it does not come.
    std::optional<Delivered> WaitFor(std::uint64_t id)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        std::optional<Delivered> found;
        m_changed.wait_for(lock, std::chrono::seconds(10), [&] {
            for (const Delivered &frame : m_frames)
                if (frame.info.frameId == id)
                    found = frame;
            return found.has_value();
        });
        return found;
    }

    std::array<std::vector<std::uint8_t>, 2> buffers;

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::size_t m_next = 0;
    std::vector<Delivered> m_frames;
};

/// A socket of one sender.
class Sender {
public:
    Sender(std::uint32_t from, std::uint16_t port) : m_socket(UdpSocket::Open(from))
    {
        EXPECT_TRUE(m_socket.status.Ok());
        EXPECT_TRUE(m_socket.value.Connect({0x7f000001, port}).Ok());
    }
    /// In one message, which the kernel takes for packets of that size; false where it cannot.
    bool Send(const std::vector<std::uint8_t> &bytes, std::size_t packetSize) const
    {
        return SendRun(m_socket.value.Fd(), bytes, packetSize);
    }

private:
    Result<UdpSocket> m_socket;
};

class Wire {
public:
    explicit Wire(bool extended, std::size_t toldData = kFull)
        : m_extended(extended), m_socket(OpenSocket()), m_port(m_socket.LocalPort()), m_camera(kCamera, m_port),
          m_stranger(kStranger, m_port), receiver(sink, std::move(m_socket), SettingsFor(extended, toldData))
    {
    }

    /// L and T leader and trailer; 3 one packet, 3,9 each of them by itself, 3-9 all in one message, 3/50 fifty bytes
    /// of one, s3-9 by a stranger, with other data; e nothing; n the leader of the next frame. \param block the frame
    void Run(std::uint64_t block, const std::string &script)
    {
        std::istringstream words(script);
        for (std::string word; words >> word;) {
            const bool isStrange = word[0] == 's';
            std::istringstream numbers(word.substr(isStrange ? 1 : 0));
            std::uint32_t first = 0;
            std::uint32_t second = 0;
            char mark = 0;
            if (word == "L" || word == "n")
                Send(m_camera,
                     Packet(m_extended, 0, 1, block + (word == "n"), 0, LeaderContent({payload::kImage, kImage, 1})));
            else if (word == "e" || word == "se")
                Send(isStrange ? m_stranger : m_camera, {});
            else if (word == "T")
                Send(m_camera, Packet(m_extended, 0, 2, block, kLast + 1, TrailerContent(1)));
            else if (numbers >> first >> mark >> second && mark == '/')
                Send(m_camera, Payload(block, first, second));
            else
                Send(isStrange ? m_stranger : m_camera, block + (isStrange ? 5 : 0), block, first,
                     std::max(first, second), mark == '-');
        }
    }

    TwoBuffers sink;

private:
    static UdpSocket OpenSocket()
    {
        Result<UdpSocket> socket = UdpSocket::Open(0x7f000001);
        EXPECT_TRUE(socket.status.Ok());
        (void)socket.value.SetReceiveBuffer(1 << 20);
        return std::move(socket.value);
    }
    static StreamReceiver::Settings SettingsFor(bool extended, std::size_t toldData)
    {
        StreamReceiver::Settings settings;
        settings.cameraAddress = kCamera;
        settings.assembly.packetSize = 28 + (extended ? kExtendedHeaderSize : kStandardHeaderSize) + toldData;
        settings.assembly.resend.enabled = false;
        return settings;
    }
    std::vector<std::uint8_t> Payload(std::uint64_t block, std::uint32_t id, std::size_t size, std::uint64_t look = 0)
    {
        return Packet(m_extended, 0, 3, block, id, Pixels(look != 0 ? look : block, (id - 1) * kFull, size));
    }
    void Send(const Sender &sender, const std::vector<std::uint8_t> &packet)
    {
        EXPECT_TRUE(sender.Send(packet, packet.size()));
    }
    void Send(const Sender &sender, std::uint64_t look, std::uint64_t block, std::uint32_t first, std::uint32_t last,
              bool together)
    {
        std::vector<std::uint8_t> message;
        std::size_t full = 0;
        for (std::uint32_t id = first; id <= last; ++id) {
            const std::vector<std::uint8_t> packet = Payload(block, id, id == kLast ? kFull / 2 : kFull, look);
            full = std::max(full, packet.size());
            message.insert(message.end(), packet.begin(), packet.end());
            if (together && id != last)
                continue;
            EXPECT_TRUE(sender.Send(message, full));
            message.clear();
        }
    }

    const bool m_extended;
    UdpSocket m_socket;
    const std::uint16_t m_port;
    const Sender m_camera;
    const Sender m_stranger;

public:
    StreamReceiver receiver;
};

void ExpectFrame(const Delivered &frame, std::uint32_t missing)
{
    EXPECT_EQ(frame.info.isIncomplete, missing != 0);
    for (std::size_t i = 0; i < kImage; ++i)
        ASSERT_EQ(frame.data[i], i / kFull + 1 == missing ? 0 : Pixel(frame.info.frameId, i)) << "byte " << i;
}

} // namespace

TEST(StreamReceiver, EachByteComesWhereItBelongs)
{
    const struct {
        const char *name;
        const char *script;
        std::uint32_t missing; ///< packet, 0 for none
    } kRows[] = {
        {"one by one", "L 1,40 T", 0},
        {"all at once", "L 1-40 T", 0},
        {"portions", "L 1-7 8-14 15-39 40 T", 0},
        {"by turns", "L 1 2-10 11,20 21-29 30,39 40 T", 0},
        {"one lost", "L 1,9 11,40 T", 10},
        {"one lost between portions", "L 1-9 11-40 T", 10},
        {"the first one lost", "L 2,40 T", 1},
        {"the last one lost", "L 1-39 T", 40},
        {"two changed places", "L 1,9 11 10 12,40 T", 0},
        {"portions changed places", "L 1-10 21-30 11-20 31-40 T", 0},
        {"backwards", "T 31-40 21,30 11-20 1,10 L", 0},
        {"a stranger in between", "L 1,9 s10 10,40 T", 0},
        {"a stranger's portion", "L 1-10 s11-30 11-40 T", 0},
        {"a stranger's portion instead", "L 1,9 s10-12 11,40 T", 10},
        {"an empty datagram in between", "L 1,9 e 10,40 T", 0},
        {"a stranger's empty one instead", "L 1,9 se 11,40 T", 10},
        {"one is cut", "L 1,9 10/50 11,40 T", 10},
        {"a trailer in between", "L 1,20 T 21,40", 0},
        {"a trailer between portions", "L 1-20 T 21-40", 0},
        {"the next leader in between", "L 1,20 n 21,40 T", 0},
        {"everything twice", "L L 1-20 1,30 15-40 31,40 T T", 0},
    };
    for (const auto &row : kRows) {
        for (const bool extended : {false, true}) {
            SCOPED_TRACE(std::string(row.name) + (extended ? ", extended ids" : ""));
            Wire wire(extended);
            wire.Run(7, row.script); // waits in the socket, so that the portions are always the same
            ASSERT_TRUE(wire.receiver.Start().Ok());
            const std::optional<Delivered> frame = wire.sink.WaitFor(7);
            ASSERT_TRUE(frame);
            ExpectFrame(*frame, row.missing);
        }
    }
}

TEST(StreamReceiver, PacketsMayBeShorterThanTold)
{
    for (const char *script : {"L 1,40 T", "L 1-40 T"}) {
        Wire wire(false, 2 * kFull);
        wire.Run(1, script);
        wire.Run(2, script);
        ASSERT_TRUE(wire.receiver.Start().Ok());
        const std::optional<Delivered> frame = wire.sink.WaitFor(2);
        ASSERT_TRUE(frame);
        ExpectFrame(*frame, 0);
    }
}

TEST(StreamReceiver, WhatWasTakenAwayIsNotTouchedAnyMore)
{
    for (const char *rest : {"21,40 T", "21-40 T"}) {
        Wire wire(false);
        ASSERT_TRUE(wire.receiver.Start().Ok());
        wire.Run(1, "L 1,20");
        while (wire.receiver.Counters().packets < 21)
            std::this_thread::yield();
        wire.receiver.AbandonFrames(); // fills the buffer with what is to stay
        wire.Run(1, rest);
        wire.Run(2, "L 1-40 T");
        const std::optional<Delivered> frame = wire.sink.WaitFor(2);
        ASSERT_TRUE(frame);
        ExpectFrame(*frame, 0);
        EXPECT_EQ(wire.sink.buffers[0], std::vector<std::uint8_t>(kImage, kOld));
    }
}
