// What the software camera says on the wire, taken apart by Wireshark.
#include "simulator/gige/GigeCamera.h"
#include "simulator/gige/GvspPackets.h"

#include "support/PrivateNetwork.h"
#include "tests/simulator/PacketCapture.h"
#include "tests/simulator/StreamFixture.h"
#include "tests/simulator/TestHost.h"

#include <algorithm>
#include <set>

#include <netinet/in.h>
#include <unistd.h>

namespace orvsim {
namespace {

constexpr std::uint32_t kHostAddress = INADDR_LOOPBACK;
constexpr std::size_t kFrames = 3;
constexpr std::size_t kPerPicture = 4; // packets of 1000 bytes; the chunks fit the last
constexpr std::uint32_t kLostPacket = 2;
constexpr char kBayerRG8[] = "0x01080009";

// Registers, by GigE Vision's names.
constexpr std::uint32_t kCcp = 0x0A00;
constexpr std::uint32_t kMcp = 0x0B00;
constexpr std::uint32_t kMcda = 0x0B10;
constexpr std::uint32_t kScp = 0x0D00;
constexpr std::uint32_t kScps = 0x0D04;
constexpr std::uint32_t kScda = 0x0D18;

const std::vector<std::string> kFields = {"frame.number",
                                          "frame.protocols",
                                          "ip.len",
                                          "_ws.malformed",
                                          "_ws.short",
                                          "_ws.expert.message",
                                          "gvcp.cmd.command",
                                          "gvcp.ack",
                                          "gvcp.cmd.flag.64bitid",
                                          "gvsp.format",
                                          "gvsp.status",
                                          "gvsp.blockid16",
                                          "gvsp.blockid64",
                                          "gvsp.flag.packetresend",
                                          "gvsp.payloadtype",
                                          "gvsp.pixel",
                                          "gvsp.numparts",
                                          "gvsp.partlength",
                                          "gvsp.partid"};

/// One acquisition of kFrames frames. Those of one image or of parts lose packets.
enum class Kind { Image, Chunks, AllIn, Parts };
struct Acquisition {
    const char *name;
    bool extendedIds;
    Kind kind;

    bool LosesPackets() const { return kind == Kind::Image || kind == Kind::Parts; }
};
const Acquisition kAcquisitions[] = {
    {"16-bit ids", false, Kind::Image},
    {"64-bit ids", true, Kind::Image},
    {"16-bit ids, chunks", false, Kind::Chunks},
    {"64-bit ids, chunks", true, Kind::Chunks},
    {"16-bit ids, all-in", false, Kind::AllIn},
    {"64-bit ids, all-in", true, Kind::AllIn},
    {"64-bit ids, multi-part", true, Kind::Parts},
};

class Dissection : public ::testing::Test {
protected:
    void SetUp() override
    {
        (void)InPrivateNetwork(); // so that the program has a network of its own where the system lets it
        CameraOptions options;
        options.serial = "CAPTURE" + std::to_string(getpid());
        options.sensor.width = 64;
        options.sensor.height = 48;
        options.frameMemory = 1 << 20;
        options.frameRate = 50;
        options.features = {{"AcquisitionMode", "MultiFrame"}, {"AcquisitionFrameCount", std::to_string(kFrames)}};
        gige.address = TestAddress(0);
        gige.multiPart = true;
        camera = std::make_unique<GigeCamera>(options, gige);
        ASSERT_EQ(camera->Open(), "");
        const std::string obstacle = capture.Start(gige.address);
        if (!obstacle.empty())
            GTEST_SKIP() << obstacle;
    }
    void Set(const std::string &name, const std::string &text)
    {
        std::string problem;
        EXPECT_EQ(camera->Core().SetFeature(name, text, problem), Outcome::Ok) << name << ": " << problem;
    }
    void Write(std::uint32_t reg, std::uint32_t value) { EXPECT_EQ(host.Write(gige.address, reg, value), 0) << reg; }
    void Control()
    {
        const auto ask = [this](GvcpCommand command, const std::vector<std::uint32_t> &words,
                                std::uint8_t flags = kFlagAcknowledge) {
            ASSERT_FALSE(host.Ask(gige.address, host.commands.Make(command, words, flags)).empty());
        };
        ask(GvcpCommand::Discovery, {});
        Write(kCcp, 2);
        ask(GvcpCommand::ReadRegister, {0x0000, 0x0004, 0x0934, 0x0938});
        ask(GvcpCommand::WriteRegister, {0x0938, 5000, kMcda, kHostAddress});
        Write(0x0954, 0x04);                                          // packets that are sent again say so
        ask(GvcpCommand::WriteMemory, {0x00E8, 0x6c656674, 0, 0, 0}); // the user's name: "left"
        ask(GvcpCommand::ReadRegister, {0x9998});                     // none is there
        Set("ActionGroupKey", "2");
        Set("ActionGroupMask", "1");
        ask(GvcpCommand::Action, {0, 2, 1, 0, 1}, kFlagAcknowledge | kFlagScheduled);
        EXPECT_NE(host.ReadMemory(gige.address, 0x0200, 512), "");
        Write(kMcp, listener.Port());
        Write(kScda, kHostAddress);
        Write(kScp, stream.Port());
        for (const char *event : {"AcquisitionStart", "FrameEnd"}) {
            Set("EventSelector", event);
            Set("EventNotification", "On");
        }
    }
    void Acquire(const Acquisition &acquisition)
    {
        SCOPED_TRACE(acquisition.name);
        Set("GevGVSPExtendedIDMode", acquisition.extendedIds ? "On" : "Off");
        Set("ChunkModeActive", acquisition.kind == Kind::Chunks ? "1" : "0");
        Set("GevSCCFGAllInTransmission", acquisition.kind == Kind::AllIn ? "1" : "0");
        Set("GevSCCFGMultiPart", acquisition.kind == Kind::Parts ? "1" : "0");
        Set("SimDropPacket", acquisition.LosesPackets() ? std::to_string(kLostPacket) : "-1");
        Write(kScps, 0x40000000 | (acquisition.kind == Kind::AllIn ? 9000 : 1000));
        Set("AcquisitionStart", "1");
        ReceiveFrames(acquisition);
        std::set<Datagram> events; // nobody acknowledges them, so they may come again
        while (events.size() < kFrames + 1) {
            events.insert(listener.Next());
            ASSERT_FALSE(events.begin()->empty());
        }
        Set("AcquisitionStop", "1");
    }
    /// Asks for what the camera has left out.
    void ReceiveFrames(const Acquisition &acquisition)
    {
        std::size_t frames = 0;
        std::size_t answers = 0;
        while (frames < kFrames || answers < (acquisition.LosesPackets() ? kFrames : 0)) {
            const Datagram packet = stream.Next();
            ASSERT_FALSE(packet.empty()) << frames << " frames, " << answers << " answers";
            const PacketFields fields = Parse(packet);
            const auto format = static_cast<gvsp::Format>(fields.format);
            const bool isPayload = format == gvsp::Format::Payload || format == gvsp::Format::PartPayload;
            answers += isPayload && fields.packetId == kLostPacket ? 1 : 0;
            if (format != gvsp::Format::Trailer && format != gvsp::Format::AllIn)
                continue;
            ++frames;
            if (acquisition.LosesPackets())
                host.Send({gige.address, kGvcpPort}, Resend(fields.blockId, acquisition.extendedIds));
        }
    }
    Datagram Resend(std::uint64_t block, bool extendedIds)
    {
        const auto low = static_cast<std::uint32_t>(block);
        if (!extendedIds)
            return host.commands.Make(GvcpCommand::PacketResend, {low, kLostPacket, kLostPacket}, 0);
        return host.commands.Make(GvcpCommand::PacketResend, {0, kLostPacket, kLostPacket, 0, low}, kFlagExtendedIds);
    }

    /// Ends the capture and takes it apart; whatever Wireshark dislikes is a failure.
    void Dissect()
    {
        const auto port = static_cast<std::uint16_t>(std::stoul(camera->Core().GetFeature("GevSCSP")));
        ASSERT_TRUE(capture.Stop());
        std::string problem;
        packets = capture.Dissect({{port, "gvsp"}, {listener.Port(), "gvcp"}}, kFields, problem);
        EXPECT_EQ(problem, "");
        for (DissectedPacket &packet : packets) {
            SCOPED_TRACE("packet " + packet["frame.number"] + " " + packet["frame.protocols"]);
            for (const char *complaint : {"_ws.malformed", "_ws.short", "_ws.expert.message"})
                EXPECT_EQ(packet[complaint], "");
            const bool isAllIn = packet["gvsp.format"] == "0x04" || packet["gvsp.format"] == "0x84";
            EXPECT_LE(std::stoul(packet["ip.len"]), isAllIn ? 9000U : 1000U) << "not cut up for who looks on";
        }
    }
    /// Packets whose fields have all these values.
    std::size_t Count(const DissectedPacket &values)
    {
        return static_cast<std::size_t>(std::count_if(packets.begin(), packets.end(), [&](DissectedPacket &packet) {
            return std::all_of(values.begin(), values.end(),
                               [&](const auto &value) { return packet[value.first] == value.second; });
        }));
    }
    /// The packets of a plain acquisition, one with chunks and one all-in, with one form of ids.
    /// \param form  first digits of the format field  \param again  what marks packets that were sent again
    void ExpectStream(const std::string &form, const DissectedPacket &again)
    {
        SCOPED_TRACE(form);
        const auto count = [&](char format, DissectedPacket values) {
            values["gvsp.format"] = form + format;
            return Count(values);
        };
        for (const char *payloadType : {"0x0001", "0x4001"}) {
            EXPECT_EQ(count('1', {{"gvsp.payloadtype", payloadType}, {"gvsp.pixel", kBayerRG8}}), kFrames);
            EXPECT_EQ(count('2', {{"gvsp.payloadtype", payloadType}}), kFrames);
        }
        EXPECT_EQ(count('3', {}), 2 * kFrames * kPerPicture);
        EXPECT_EQ(count('3', again), kFrames);
        EXPECT_EQ(count('4', {{"gvsp.payloadtype", "0x0001"}, {"gvsp.pixel", kBayerRG8}}), kFrames);
    }
    /// Two pictures of 3072 bytes with each frame.
    void ExpectParts()
    {
        for (const char *format : {"0x81", "0x82"}) {
            EXPECT_EQ(Count({{"gvsp.format", format},
                             {"gvsp.payloadtype", "0x000a"},
                             {"gvsp.partlength", "0x0000000000000c00"}}),
                      kFrames);
        }
        EXPECT_EQ(Count({{"gvsp.format", "0x81"}, {"gvsp.numparts", "2"}}), kFrames);
        for (const char *part : {"0x00", "0x01"})
            EXPECT_EQ(Count({{"gvsp.format", "0x87"}, {"gvsp.partid", part}}), kPerPicture * kFrames);
        EXPECT_EQ(Count({{"gvsp.format", "0x87"}, {"gvsp.flag.packetresend", "0x0001"}}), kFrames);
    }

    GigeOptions gige;
    std::unique_ptr<GigeCamera> camera;
    PacketCapture capture;
    TestHost host;
    LoopbackSocket stream;
    LoopbackSocket listener;
    std::vector<DissectedPacket> packets;
};

TEST_F(Dissection, OfASessionFindsNothingMalformed)
{
    ASSERT_NO_FATAL_FAILURE(Control());
    for (const Acquisition &acquisition : kAcquisitions)
        ASSERT_NO_FATAL_FAILURE(Acquire(acquisition));
    Write(kCcp, 0);
    ASSERT_NO_FATAL_FAILURE(Dissect());

    for (const char *answer : {"0x0003", "0x0081", "0x0083", "0x0085", "0x0087", "0x0101"})
        EXPECT_GT(Count({{"gvcp.ack", answer}}), 0U) << answer;
    for (const char *isExtended : {"0", "1"}) {
        for (const char *command : {"0x0040", "0x00c0", "0x00c2"}) // requests for packets, events without and with data
            EXPECT_GE(Count({{"gvcp.cmd.command", command}, {"gvcp.cmd.flag.64bitid", isExtended}}), 3U) << command;
    }
    ExpectStream("0x0", {{"gvsp.status", "0x0100"}});
    ExpectStream("0x8", {{"gvsp.status", "0x0000"}, {"gvsp.flag.packetresend", "0x0001"}});
    ExpectParts();
}

} // namespace
} // namespace orvsim
