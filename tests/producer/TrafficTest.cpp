// What is captured of the packets on the wire, and what a camera tells by itself.
#include "producer/Event.h"
#include "producer/gige/Bootstrap.h"
#include "producer/gige/GvcpEvents.h"
#include "producer/gige/MessageChannel.h"
#include "producer/gige/Text.h"

#include "HexBytes.h"
#include "SimulatedFixture.h"

using namespace nuvark;
using namespace nuvark::gige;

namespace {

using Packets = std::vector<std::vector<std::uint8_t>>;

std::uint16_t CommandOf(const std::vector<std::uint8_t> &packet)
{
    return packet.size() < kHeaderSize ? 0 : static_cast<std::uint16_t>(packet[2] << 8 | packet[3]);
}

} // namespace

TEST(EventMessages, AreSplitInBothIdForms)
{
    const std::string ticks = "00 00 00 E8 D4 A5 10 00 ";
    const std::string shortEvent = "00 00 90 02 00 00 12 34 " + ticks;
    const std::string longEvent = "00 00 90 02 00 00 00 00 00 00 00 01 23 45 67 89 " + ticks;
    const std::string sized = "00 1C 90 03 00 00 00 00 00 00 00 01 23 45 67 89 " + ticks + "00 00 61 A8 ";
    const struct {
        const char *what;
        std::string packet;
        std::vector<std::string> events; ///< without headers
    } kRows[] = {
        {"one event", "42 01 00 C0 00 10 00 0A " + shortEvent, {shortEvent}},
        {"two events", "42 01 00 C0 00 20 00 0A " + shortEvent + shortEvent, {shortEvent, shortEvent}},
        {"two events with long ids", "42 11 00 C0 00 30 00 0A " + longEvent + longEvent, {longEvent, longEvent}},
        {"what is no whole event is left out", "42 01 00 C0 00 14 00 0A " + shortEvent + "00 00 90 02", {shortEvent}},
        {"data are the rest of the packet",
         "42 01 00 C2 00 14 00 0C " + shortEvent + "00 00 61 A8",
         {shortEvent + "00 00 61 A8"}},
        {"data with sizes", "42 11 00 C2 00 38 00 0D " + sized + sized, {sized, sized}},
        {"data with long ids and no size",
         "42 11 00 C2 00 1C 00 0D " + longEvent + "00 00 61 A8",
         {longEvent + "00 00 61 A8"}},
        {"a size beyond the packet", "42 11 00 C2 00 18 00 0D 00 FF " + longEvent.substr(6), {}},
        {"a size below the head", "42 11 00 C2 00 18 00 0D 00 08 " + longEvent.substr(6), {}},
        {"padding behind the stated length", "42 01 00 C0 00 10 00 0A " + shortEvent + "00 00 00 00", {shortEvent}},
        {"nothing in it", "42 01 00 C0 00 00 00 0A", {}},
    };
    for (const auto &row : kRows) {
        const auto packet = FromHex(row.packet);
        const auto message = ParseEventMessage(SpanOf(packet));
        ASSERT_TRUE(message) << row.what;
        ASSERT_EQ(message->events.size(), row.events.size()) << row.what;
        for (std::size_t i = 0; i < row.events.size(); ++i) {
            const auto event = FromHex(row.events[i]);
            EXPECT_EQ(Packets({{message->events[i].begin() + kHeaderSize, message->events[i].end()}}), Packets({event}))
                << row.what;
            EXPECT_EQ(message->events[i][5], event.size()) << "the header tells of this one alone";
        }
    }
    for (const char *bad : {"", "42 01 00 C0 00 10 00", "41 01 00 C0 00 00 00 0A", "42 01 00 80 00 00 00 0A",
                            "42 01 00 C0 00 10 00 0A 00 00 90 02"}) {
        const auto packet = FromHex(bad);
        EXPECT_FALSE(ParseEventMessage(SpanOf(packet))) << bad;
    }
}

TEST(MessageChannels, AcknowledgeRepeatsAndTellOnce)
{
    NetworkInterface lo;
    lo.name = "lo";
    lo.index = 1;
    lo.address = *ParseAddress("127.0.0.1");
    const std::uint32_t cameraAddress = *ParseAddress("127.0.0.23");
    TrafficTap tap;
    std::atomic<int> told{0};
    auto channel = MessageChannel::Open(lo, cameraAddress, tap, [&](const Datagram &) { ++told; });
    ASSERT_TRUE(channel.Ok());
    const Endpoint host{lo.address, channel.value->Port()};
    UdpSocket camera = UdpSocket::Open(cameraAddress).value;
    UdpSocket stranger = UdpSocket::Open(*ParseAddress("127.0.0.24")).value;
    const auto send = [&](UdpSocket &from, const std::string &packet) {
        const auto bytes = FromHex(packet);
        EXPECT_TRUE(from.SendTo(host, SpanOf(bytes)).Ok());
    };
    const auto answer = [&] {
        std::vector<std::uint8_t> bytes(64);
        const bool came =
            camera.WaitReadable(Clock::now() + std::chrono::seconds(3), nullptr) == UdpSocket::Wait::Readable;
        bytes.resize(came ? camera.Receive(bytes.data(), bytes.size()) : 0);
        return bytes;
    };
    const std::string event = "00 00 90 02 00 00 12 34 00 00 00 E8 D4 A5 10 00";
    send(stranger, "42 01 00 C0 00 10 00 01 " + event);
    for (int i = 0; i < 3; ++i) {
        send(camera, "42 01 00 C0 00 10 00 01 " + event);
        EXPECT_EQ(answer(), FromHex("00 00 00 C1 00 00 00 01"));
    }
    send(camera, "42 01 00 C2 00 10 00 02 " + event);
    EXPECT_EQ(answer(), FromHex("00 00 00 C3 00 00 00 02"));
    EXPECT_TRUE(Becomes([&] { return told == 2; })) << told;
    send(camera, "42 00 00 C0 00 10 00 03 " + event); // wants no answer
    send(camera, "42 01 00 C0 00 10 00 04 " + event);
    EXPECT_EQ(answer(), FromHex("00 00 00 C1 00 00 00 04"));
    EXPECT_TRUE(Becomes([&] { return told == 4; })) << told;
}

TEST(EventQueues, CountWhatTheyDrop)
{
    PacketEvents byBytes(NUVARK_EVENT_STREAM_TRAFFIC);
    const std::size_t packet = PacketEvents::kMaxPacket;
    const std::size_t room = PacketEvents::kMaxBytes / packet;
    for (std::size_t i = 0; i < room + 3; ++i)
        byBytes.Push(std::vector<std::uint8_t>(packet, static_cast<std::uint8_t>(i)));
    EXPECT_EQ(byBytes.Count(), room);
    EXPECT_EQ(byBytes.Dropped(), 3U);
    std::vector<std::uint8_t> first(packet);
    std::size_t size = first.size();
    EXPECT_EQ(byBytes.TakeOldest(first.data(), &size), EventSource::Pop::Done);
    EXPECT_EQ(first.front(), 3) << "the oldest went";
    byBytes.Clear();
    byBytes.Push(first);
    EXPECT_EQ(byBytes.Dropped(), 3U) << "room again";

    PacketEvents byNumber(NUVARK_EVENT_CONTROL_TRAFFIC);
    for (std::size_t i = 0; i < PacketEvents::kMaxPackets + 5; ++i)
        byNumber.Push({1});
    EXPECT_EQ(byNumber.Count(), PacketEvents::kMaxPackets);
    EXPECT_EQ(byNumber.Dropped(), 5U);
}

class TrafficTest : public SimulatedTest {
protected:
    void SetUp() override
    {
        SimulatedTest::SetUp();
        ASSERT_NO_FATAL_FAILURE(StartCamera());
        OpenDevice();
    }
    /// What is told about one entry of an event.
    std::string EntryInfo(EVENT_HANDLE event, const std::vector<std::uint8_t> &entry, EVENT_DATA_INFO_CMD command)
    {
        return Ask(
            [&](auto... out) { return Gc().EventGetDataInfo(event, entry.data(), entry.size(), command, out...); });
    }
};

TEST_F(TrafficTest, ControlPacketsOfBothDirectionsAreShownWhileSomebodyListens)
{
    std::uint8_t bytes[8];
    ASSERT_EQ(Read(0x0938, bytes, 4), GC_ERR_SUCCESS) << LastError();
    const EVENT_HANDLE traffic = Register(NUVARK_EVENT_CONTROL_TRAFFIC);
    const auto number = [&](EVENT_INFO_CMD command) {
        return AskFor<std::uint64_t>([&](auto... out) { return Gc().EventGetInfo(traffic, command, out...); });
    };
    EXPECT_EQ(number(EVENT_NUM_IN_QUEUE), 0U) << "nothing of before";
    ASSERT_EQ(Read(0x093C, bytes, 8), GC_ERR_SUCCESS) << LastError();
    // The heartbeat may speak in between.
    std::vector<std::uint8_t> command;
    while (CommandOf(command = Next(traffic)) != 0x0084)
        ASSERT_FALSE(command.empty());
    EXPECT_EQ(std::vector<std::uint8_t>(command.begin() + 8, command.end()), FromHex("00 00 09 3C 00 00 00 08"));
    EXPECT_EQ(command[0], 0x42);
    const std::vector<std::uint8_t> answer = Next(traffic);
    ASSERT_EQ(answer.size(), 20U);
    EXPECT_EQ(CommandOf(answer), 0x0085);
    EXPECT_EQ(answer[7], command[7]) << "the same request id";
    EXPECT_EQ(std::vector<std::uint8_t>(answer.begin() + 12, answer.end()),
              std::vector<std::uint8_t>(bytes, bytes + 8));
    EXPECT_EQ(EntryInfo(traffic, answer, EVENT_DATA_VALUE), std::string(answer.begin(), answer.end()));
    EXPECT_EQ(number(NUVARK_EVENT_INFO_NUM_DROPPED), 0U);
    ASSERT_EQ(Gc().GCUnregisterEvent(device, NUVARK_EVENT_CONTROL_TRAFFIC), GC_ERR_SUCCESS);
    ASSERT_EQ(Read(0x0938, bytes, 4), GC_ERR_SUCCESS);
}

TEST_F(TrafficTest, TheCameraTellsEventsWhileSomebodyListens)
{
    constexpr std::uint64_t kMessagePort = 0x0B00;
    const auto portNumber = [&] {
        std::uint8_t bytes[4] = {};
        EXPECT_EQ(Read(kMessagePort, bytes, 4), GC_ERR_SUCCESS) << LastError();
        return bytes[2] << 8 | bytes[3];
    };
    EXPECT_EQ(portNumber(), 0) << "closed until somebody wants it";
    const EVENT_HANDLE events = Register(EVENT_REMOTE_DEVICE);
    const EVENT_HANDLE traffic = Register(NUVARK_EVENT_EVENT_TRAFFIC);
    EXPECT_NE(portNumber(), 0);
    Set("EventSelector", "Test");
    Set("EventNotification", "On");
    Set("TestEventGenerate", "1");
    const std::vector<std::uint8_t> event = Next(events);
    ASSERT_GE(event.size(), kHeaderSize + 16);
    EXPECT_EQ(EntryInfo(events, event, EVENT_DATA_VALUE), std::string(event.begin() + kHeaderSize, event.end()));
    char id[8];
    std::snprintf(id, sizeof id, "%02X%02X", event[10], event[11]);
    EXPECT_EQ(EntryInfo(events, event, EVENT_DATA_ID), id);
    const std::uint64_t number = static_cast<std::uint64_t>(event[10] << 8 | event[11]);
    EXPECT_EQ(EntryInfo(events, event, EVENT_DATA_NUMID),
              std::string(reinterpret_cast<const char *>(&number), sizeof number));

    const std::vector<std::uint8_t> message = Next(traffic);
    EXPECT_EQ(message, event) << "one event in the packet";
    EXPECT_EQ(CommandOf(Next(traffic)), CommandOf(message) + 1) << "and its acknowledge";

    ASSERT_EQ(Gc().GCUnregisterEvent(device, EVENT_REMOTE_DEVICE), GC_ERR_SUCCESS);
    EXPECT_NE(portNumber(), 0) << "somebody is left";
    ASSERT_EQ(Gc().GCUnregisterEvent(device, NUVARK_EVENT_EVENT_TRAFFIC), GC_ERR_SUCCESS);
    EXPECT_TRUE(Becomes([&] { return portNumber() == 0; }));
    Register(EVENT_REMOTE_DEVICE);
    EXPECT_NE(portNumber(), 0) << "and opened again";
    Set("TestEventGenerate", "1");
    EXPECT_EQ(Gc().DevClose(device), GC_ERR_SUCCESS);

    OpenDevice("SIM-PRODUCER", DEVICE_ACCESS_READONLY);
    EVENT_HANDLE refused = nullptr;
    EXPECT_EQ(Gc().GCRegisterEvent(device, EVENT_REMOTE_DEVICE, &refused), GC_ERR_NOT_IMPLEMENTED) << "a mere reader";
    Register(NUVARK_EVENT_CONTROL_TRAFFIC);
}

TEST_F(TrafficTest, StreamPacketsAreShownAsTheyCame)
{
    const EVENT_HANDLE traffic = Register(NUVARK_EVENT_STREAM_TRAFFIC);
    const EVENT_HANDLE invalid = Register(EVENT_FEATURE_INVALIDATE);
    ASSERT_NO_FATAL_FAILURE(OpenStream());
    AllocateBuffers(1, 1 << 20);
    const BUFFER_HANDLE buffer = TakeOneFrame();
    ASSERT_NE(buffer, nullptr) << LastError();
    // The picture is in the packets: leader, payload, trailer of a camera with long or short ids.
    std::vector<std::uint8_t> packet;
    int testPackets = 0;
    while ((packet = Next(traffic)).size() >= 8 && (packet[4] & 0x0F) != 1)
        ++testPackets;
    EXPECT_GT(testPackets, 0) << "of the packet size";
    ASSERT_GE(packet.size(), 8U);
    const bool extended = (packet[4] & 0x80) != 0;
    std::vector<std::uint8_t> picture;
    while ((packet = Next(traffic)).size() > 8 && (packet[4] & 0x0F) == 3)
        picture.insert(picture.end(), packet.begin() + (extended ? 20 : 8), packet.end());
    ASSERT_EQ(packet[4] & 0x0F, 2) << "and a trailer last";
    EXPECT_EQ(picture, Pixels(buffer));
    EXPECT_EQ(picture.size(), 64U * 48U);

    const std::vector<std::uint8_t> feature = Next(invalid);
    EXPECT_EQ(EntryInfo(invalid, feature, EVENT_DATA_ID), "GevSCPSPacketSize");
    size_t size = 0;
    EXPECT_EQ(Gc().EventGetDataInfo(invalid, feature.data(), feature.size(), EVENT_DATA_VALUE, nullptr, nullptr, &size),
              GC_ERR_NOT_AVAILABLE);
    ASSERT_EQ(Gc().GCUnregisterEvent(device, NUVARK_EVENT_STREAM_TRAFFIC), GC_ERR_SUCCESS);
}

TEST_F(TrafficTest, PacketsAreCutAsTheStreamIsSet)
{
    constexpr char kSize[] = "DeviceStreamChannelPacketSize";
    constexpr char kDelay[] = "GevStreamPacketDelay";
    const struct {
        const char *what;
        std::int64_t written;
        GC_ERROR code;
        std::size_t becomes;
    } kRows[] = {{"a size", 1000, GC_ERR_SUCCESS, 1000},
                 {"the camera rounds", 579, GC_ERR_SUCCESS, 576},
                 {"more than the camera can", 60000, GC_ERR_INVALID_VALUE, 576},
                 {"less than it can", 0, GC_ERR_INVALID_VALUE, 576},
                 {"no size of a packet", 65536, GC_ERR_INVALID_VALUE, 576}};
    const EVENT_HANDLE traffic = Register(NUVARK_EVENT_STREAM_TRAFFIC);
    const EVENT_HANDLE invalid = Register(EVENT_FEATURE_INVALIDATE);
    ASSERT_NO_FATAL_FAILURE(OpenStream());
    AllocateBuffers(1, 1 << 14);
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(SetNumber(stream, kSize, row.written), row.code) << LastError();
        EXPECT_EQ(!Next(invalid, 0).empty(), row.code == GC_ERR_SUCCESS) << "the camera's own feature shows it as well";
        EXPECT_EQ(GetNumber(stream, kSize), row.becomes);
        ASSERT_EQ(Gc().EventFlush(traffic), GC_ERR_SUCCESS);
        const BUFFER_HANDLE buffer = TakeOneFrame();
        ASSERT_NE(buffer, nullptr) << LastError();
        EXPECT_FALSE(BufferInfo<bool8_t>(buffer, BUFFER_INFO_IS_INCOMPLETE));
        std::vector<std::size_t> sizes;
        for (auto packet = Next(traffic); packet.size() >= 8 && (packet[4] & 0x0F) != 2; packet = Next(traffic)) {
            if ((packet[4] & 0x0F) == 3)
                sizes.push_back(packet.size() + kIpUdpHeaders);
        }
        ASSERT_GT(sizes.size(), 1U);
        sizes.pop_back(); // of the rest
        EXPECT_THAT(sizes, testing::Each(row.becomes));
        ASSERT_EQ(SetNumber(stream, kSize, 1500), GC_ERR_BUSY) << "until the acquisition is stopped";
        EXPECT_EQ(SetNumber(stream, kDelay, 0), GC_ERR_BUSY);
        ASSERT_EQ(Gc().DSStopAcquisition(stream, ACQ_STOP_FLAGS_DEFAULT), GC_ERR_SUCCESS);
        ASSERT_EQ(Gc().DSQueueBuffer(stream, buffer), GC_ERR_SUCCESS);
        ASSERT_EQ(Gc().EventFlush(invalid), GC_ERR_SUCCESS);
    }
    EXPECT_EQ(SetNumber(stream, kDelay, 12345), GC_ERR_SUCCESS) << LastError();
    EXPECT_EQ(camera->Core().GetFeature("GevSCPD"), "12345");
}
