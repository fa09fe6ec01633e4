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
constexpr std::uint32_t kLostPacket = 2;
constexpr char kBayerRG8[] = "0x01080009";

// Registers, by GigE Vision's names.
constexpr std::uint32_t kCcp = 0x0A00;
constexpr std::uint32_t kMcp = 0x0B00;
constexpr std::uint32_t kMcda = 0x0B10;
constexpr std::uint32_t kScp = 0x0D00;
constexpr std::uint32_t kScps = 0x0D04;
constexpr std::uint32_t kScda = 0x0D18;

const std::vector<std::string> kFields = {
    "frame.number",     "frame.protocols",    "ip.len",           "ip.src",          "_ws.malformed",
    "_ws.short",        "_ws.expert.message", "gvcp.cmd.command", "gvcp.ack",        "gvcp.cmd.flag.64bitid",
    "gvsp.format",      "gvsp.status",        "gvsp.blockid16",   "gvsp.blockid64",  "gvsp.flag.packetresend",
    "gvsp.payloadtype", "gvsp.pixel",         "gvsp.numparts",    "gvsp.partlength", "gvsp.partid"};

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
    void Open()
    {
        (void)InPrivateNetwork(); // so that the program has a network of its own where the system lets it
        options.serial = "CAPTURE" + std::to_string(getpid());
        options.sensor.width = 64;
        options.sensor.height = 48;
        options.frameMemory = 1 << 20;
        gige.address = TestAddress(0);
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
    void Tell(const Datagram &command) { host.Send({gige.address, kGvcpPort}, command); }

    /// Ends the capture and takes it apart; whatever Wireshark dislikes is a failure.
    void Dissect(std::map<std::uint16_t, std::string> ports = {})
    {
        // By the camera's port: from theirs, clients send commands as well.
        ports[static_cast<std::uint16_t>(std::stoul(camera->Core().GetFeature("GevSCSP")))] = "gvsp";
        ASSERT_TRUE(capture.Stop());
        std::string problem;
        packets = capture.Dissect(ports, kFields, problem);
        EXPECT_EQ(problem, "");
        for (DissectedPacket &packet : packets) {
            SCOPED_TRACE("packet " + packet["frame.number"]);
            const std::string protocols = packet["frame.protocols"];
            if (IsFromCamera(packet)) // clients may knock at the camera's stream port, to open a firewall
            {
                EXPECT_TRUE(protocols == "eth:ethertype:ip:udp:gvcp" || protocols == "eth:ethertype:ip:udp:gvsp")
                    << protocols;
            }
            for (const char *complaint : {"_ws.malformed", "_ws.short", "_ws.expert.message"})
                EXPECT_EQ(packet[complaint], "");
        }
    }
    bool IsFromCamera(DissectedPacket &packet) const { return packet["ip.src"] == AddressText(gige.address); }
    /// Packets whose fields have all these values.
    std::size_t Count(const DissectedPacket &values)
    {
        return static_cast<std::size_t>(std::count_if(packets.begin(), packets.end(), [&](DissectedPacket &packet) {
            return std::all_of(values.begin(), values.end(),
                               [&](const auto &value) { return packet[value.first] == value.second; });
        }));
    }

    CameraOptions options;
    GigeOptions gige;
    std::unique_ptr<GigeCamera> camera;
    PacketCapture capture;
    TestHost host;
    std::vector<DissectedPacket> packets;
};

class DissectedSession : public Dissection {
protected:
    void SetUp() override
    {
        options.frameRate = 50;
        gige.multiPart = true;
        options.features = {{"AcquisitionMode", "MultiFrame"}, {"AcquisitionFrameCount", std::to_string(kFrames)}};
        Open();
    }
    void Control()
    {
        EXPECT_FALSE(host.Ask(gige.address, host.commands.Make(GvcpCommand::Discovery, {})).empty());
        Write(kCcp, 2);
        const auto ask = [this](GvcpCommand command, const std::vector<std::uint32_t> &words) {
            ASSERT_FALSE(host.Ask(gige.address, host.commands.Make(command, words)).empty());
        };
        ask(GvcpCommand::ReadRegister, {0x0000, 0x0004, 0x0934, 0x0938});
        ask(GvcpCommand::WriteRegister, {0x0938, 5000, kMcda, kHostAddress});
        Write(0x0954, 0x04);                                          // packets that are sent again say so
        ask(GvcpCommand::WriteMemory, {0x00E8, 0x6c656674, 0, 0, 0}); // the user's name: "left"
        ask(GvcpCommand::ReadRegister, {0x9998});                     // none is there
        Set("ActionGroupKey", "2");
        Set("ActionGroupMask", "1");
        Tell(host.commands.Make(GvcpCommand::Action, {0, 2, 1})); // triggers nothing now
        const Datagram scheduled =
            host.commands.Make(GvcpCommand::Action, {0, 2, 1, 0, 1}, kFlagAcknowledge | kFlagScheduled);
        ASSERT_FALSE(host.Ask(gige.address, scheduled).empty());
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
        AcknowledgeEvents();
        Set("AcquisitionStop", "1");
    }
    /// Asks for what the camera has left out, and once for a block that it never had.
    void ReceiveFrames(const Acquisition &acquisition)
    {
        std::size_t frames = 0;
        std::size_t answers = 0;
        const std::size_t wanted =
            !acquisition.LosesPackets() ? 0 : kFrames + (acquisition.kind == Kind::Image ? 1 : 0);
        while (frames < kFrames || answers < wanted) {
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
                Tell(Resend(fields.blockId, acquisition.extendedIds));
            if (acquisition.kind == Kind::Image && frames == kFrames)
                Tell(Resend(999, acquisition.extendedIds));
        }
    }
    Datagram Resend(std::uint64_t block, bool extendedIds)
    {
        const auto low = static_cast<std::uint32_t>(block);
        if (!extendedIds)
            return host.commands.Make(GvcpCommand::PacketResend, {low, kLostPacket, kLostPacket}, 0);
        return host.commands.Make(GvcpCommand::PacketResend, {0, kLostPacket, kLostPacket, 0, low}, kFlagExtendedIds);
    }
    void AcknowledgeEvents()
    {
        for (std::set<std::uint8_t> ids; ids.size() < kFrames + 1;) {
            const auto event = listener.Receive();
            ASSERT_TRUE(event);
            ASSERT_GE(event->bytes.size(), 8U);
            const std::uint8_t id = event->bytes[7];
            ids.insert(id);
            listener.Send(event->from,
                          {0, 0, 0, static_cast<std::uint8_t>(event->bytes[3] + 1), 0, 0, event->bytes[6], id});
        }
    }

    static bool IsAllIn(DissectedPacket &packet)
    {
        return packet["gvsp.format"] == "0x04" || packet["gvsp.format"] == "0x84";
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
        constexpr std::size_t kPerFrame = 4; // 64 x 48 bytes in packets of 1000; the chunks fit the last
        EXPECT_EQ(count('3', {}), 2 * kFrames * kPerFrame + 1);
        EXPECT_EQ(count('3', again), kFrames);
        EXPECT_EQ(count('3', {{"gvsp.status", "0x800c"}}), 1U) << "the block that never was";
        EXPECT_EQ(count('4', {{"gvsp.payloadtype", "0x0001"}, {"gvsp.pixel", kBayerRG8}}), kFrames);
    }

    /// Two pictures of 3072 bytes with each frame, each in four packets of 1000.
    void ExpectParts()
    {
        const DissectedPacket parts = {{"gvsp.payloadtype", "0x000a"}, {"gvsp.partlength", "0x0000000000000c00"}};
        for (const char *format : {"0x81", "0x82"}) {
            DissectedPacket values = parts;
            values["gvsp.format"] = format;
            EXPECT_EQ(Count(values), kFrames) << format;
        }
        EXPECT_EQ(Count({{"gvsp.format", "0x81"}, {"gvsp.numparts", "2"}}), kFrames);
        for (const char *part : {"0x00", "0x01"})
            EXPECT_EQ(Count({{"gvsp.format", "0x87"}, {"gvsp.partid", part}}), 4 * kFrames);
        EXPECT_EQ(Count({{"gvsp.format", "0x87"}, {"gvsp.flag.packetresend", "0x0001"}}), kFrames);
    }

    LoopbackSocket stream;
    TestHost listener;
};

TEST_F(DissectedSession, IsWellFormed)
{
    ASSERT_NO_FATAL_FAILURE(Control());
    for (const Acquisition &acquisition : kAcquisitions)
        ASSERT_NO_FATAL_FAILURE(Acquire(acquisition));
    Write(kCcp, 0);
    ASSERT_NO_FATAL_FAILURE(Dissect({{listener.Port(), "gvcp"}}));

    for (const char *answer : {"0x0003", "0x0081", "0x0083", "0x0085", "0x0087", "0x0101"})
        EXPECT_GT(Count({{"gvcp.ack", answer}}), 0U) << answer;
    for (const char *isExtended : {"0", "1"}) {
        const auto count = [&](const char *command) {
            return Count({{"gvcp.cmd.command", command}, {"gvcp.cmd.flag.64bitid", isExtended}});
        };
        const std::size_t ofParts = *isExtended == '1' ? 1 : 0; // acquisitions beside the three of either form
        EXPECT_EQ(count("0x0040"), kFrames + 1 + ofParts * kFrames) << "requests for packets";
        EXPECT_EQ(count("0x00c0"), 3 + ofParts) << "starts of acquisitions";
        EXPECT_EQ(count("0x00c2"), (3 + ofParts) * kFrames) << "their frames";
    }
    EXPECT_EQ(Count({{"gvcp.ack", "0x00c1"}}), 7);
    EXPECT_EQ(Count({{"gvcp.ack", "0x00c3"}}), 7 * kFrames);
    ExpectStream("0x0", {{"gvsp.status", "0x0100"}});
    ExpectStream("0x8", {{"gvsp.status", "0x0000"}, {"gvsp.flag.packetresend", "0x0001"}});
    ExpectParts();
    for (DissectedPacket &packet : packets)
        EXPECT_LE(std::stoul(packet["ip.len"]), IsAllIn(packet) ? 9000U : 1000U) << packet["frame.number"];
}

/// A session of Aravis's, with losses, chunks and a slow command.
class DissectedClients : public Dissection {
protected:
    void SetUp() override
    {
        for (const char *program : {"arv-tool-0.8", "arv-camera-test-0.8"}) {
            if (!ForeignProgram::Installed(program))
                GTEST_SKIP() << program << " is not installed";
        }
        options.frameRate = 20;
        options.faults.dropRate = 0.05;
        Open();
    }
    static bool IsTestPacket(DissectedPacket &packet)
    {
        return packet["gvsp.blockid16"] == "0" || packet["gvsp.blockid64"] == "0";
    }
    void Stream(const std::string &features)
    {
        const std::uint64_t start = camera->Counts().frames;
        ForeignProgram program;
        EXPECT_TRUE(program.Start({"arv-camera-test-0.8", "-n", AddressText(gige.address), "--gv-packet-size=576",
                                   "--chunks=FrameID", "--features=" + features}));
        const auto limit = std::chrono::steady_clock::now() + ForeignProgram::kLimit;
        while (camera->Counts().frames < start + 10 && std::chrono::steady_clock::now() < limit) {
            if (program.HasEnded(std::chrono::milliseconds(10)))
                break;
        }
        program.Interrupt();
        EXPECT_EQ(program.Finish(), 0) << program.Output() << program.Errors();
    }
};

TEST_F(DissectedClients, AreAnsweredWellFormed)
{
    const ProgramRun run =
        RunForeignProgram({"arv-tool-0.8", "-a", AddressText(gige.address), "control", "GevGVCPPendingAck=true",
                           "SimCommandTime=400", "UserSetSelector=Default", "UserSetLoad", "SimCommandTime=0"});
    EXPECT_NE(run.output.find("UserSetLoad executed"), std::string::npos) << run.output << run.errors;
    for (const char *ids : {"Off", "On"})
        Stream(std::string("GevGVSPExtendedIDMode=") + ids);
    ASSERT_NO_FATAL_FAILURE(Dissect());

    EXPECT_GT(Count({{"gvcp.ack", "0x0089"}}), 0U) << "PENDING_ACK";
    EXPECT_GT(Count({{"gvcp.cmd.command", "0x0040"}}), 0U);
    for (const char *leader : {"0x01", "0x81"})
        EXPECT_GT(Count({{"gvsp.format", leader}, {"gvsp.payloadtype", "0x4001"}}), 0U);
    std::size_t streamed = 0;
    for (DissectedPacket &packet : packets)
        streamed += IsFromCamera(packet) && !packet["gvsp.format"].empty() && !IsTestPacket(packet) ? 1 : 0;
    EXPECT_EQ(streamed, camera->Counts().packets) << "every packet goes out whole, and nothing else does";
}

} // namespace
} // namespace orvsim
