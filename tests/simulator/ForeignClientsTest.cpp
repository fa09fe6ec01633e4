// The software camera in the hands of programs that others wrote: Aravis's arv-tool and arv-camera-test.
#include "simulator/gige/GigeCamera.h"

#include "support/PrivateNetwork.h"
#include "tests/simulator/ForeignProgram.h"
#include "tests/simulator/TestHost.h"

#include <map>
#include <regex>
#include <sstream>

#include <unistd.h>

namespace orvsim {
namespace {

constexpr char kTool[] = "arv-tool-0.8";
constexpr char kStreamer[] = "arv-camera-test-0.8";

using Words = std::vector<std::string>;

Words Join(Words words, const Words &more)
{
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

/// Frames that fit any system's socket buffer, so that a loaded machine loses none, and a history that outlasts a pause
/// of the client.
CameraOptions ClientsCamera()
{
    CameraOptions options;
    options.serial = "CLIENTS" + std::to_string(getpid());
    options.sensor.width = 320;
    options.sensor.height = 200;
    options.frameRate = 20;
    options.frameMemory = 8 << 20;
    return options;
}

class ForeignClient : public ::testing::Test {
protected:
    explicit ForeignClient(const char *program) : m_program(program) {}
    void SetUp() override
    {
        (void)InPrivateNetwork(); // so that the program has a network of its own where the system lets it
        if (!ForeignProgram::Installed(m_program))
            GTEST_SKIP() << m_program << " is not installed";
        gige.address = TestAddress(0);
        gige.resendFrames = 64;
    }
    void Open()
    {
        camera = std::make_unique<GigeCamera>(options, gige);
        ASSERT_EQ(camera->Open(), "");
    }
    std::string Address() const { return AddressText(gige.address); }

    CameraOptions options = ClientsCamera();
    GigeOptions gige;
    std::unique_ptr<GigeCamera> camera;

private:
    const char *m_program;
};

class ArvTool : public ForeignClient {
protected:
    ArvTool() : ForeignClient(kTool) {}
    /// What the command prints; a failure of the program is one of the test.
    std::string Run(const Words &command)
    {
        const ProgramRun run = RunForeignProgram(Join({kTool, "-a", Address()}, command));
        EXPECT_EQ(run.exitCode, 0);
        EXPECT_EQ(run.errors, "");
        return run.output;
    }
    /// What "control" prints, by feature. The rest of a line is unit and limits.
    std::map<std::string, std::string> Control(const Words &features)
    {
        std::istringstream lines(Run(Join({"control"}, features)));
        std::map<std::string, std::string> answers;
        for (std::string line; std::getline(lines, line);) {
            const std::size_t gap = line.find_first_of(" ");
            answers[line.substr(0, gap)] = gap == std::string::npos ? "" : line.substr(gap + 1);
        }
        return answers;
    }
};

TEST_F(ArvTool, ListsTheCamera)
{
    Open();
    const ProgramRun run = RunForeignProgram({kTool});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_NE(run.output.find("OrvPlayer-OrvSim-" + options.serial + " (" + Address() + ")\n"), std::string::npos)
        << run.output;
}

/// Every feature that is listed can be read.
TEST_F(ArvTool, ReadsTheFeatures)
{
    options.userName = "a name";
    Open();
    const std::string listed = Run({"features"});
    const std::string values = Run({"values"});
    EXPECT_NE(values.find("'DeviceUserID' = 'a name'"), std::string::npos) << values;
    const std::regex form("\\[R[OW]\\] '(\\w+)' = ");
    const std::vector<std::smatch> read(std::sregex_iterator(values.begin(), values.end(), form), {});
    EXPECT_GT(read.size(), 100U);
    for (const std::smatch &parts : read)
        EXPECT_NE(listed.find("'" + parts[1].str() + "'"), std::string::npos) << parts[1];
}

TEST_F(ArvTool, ChangesFeaturesOfEveryKind)
{
    Open();
    struct Change {
        const char *feature;
        const char *value; ///< nullptr: a command
        const char *printed;
        const char *held;
    };
    const Change changes[] = {
        {"Width", "160", "= 160 px min:32 max:304 inc:8", "160"},
        {"OffsetX", "16", "= 16 px min:0 max:160 inc:2", "16"},
        {"ExposureTime", "2000.5", "= 2000.5 us min:10 max:1e+07", "2000.5"},
        {"Gain", "6.5", "= 6.5 dB min:0 max:24", "6.5"},
        {"PixelFormat", "BayerRG12Packed", "= BayerRG12Packed", nullptr},
        {"TestPattern", "FrameCounter", "= FrameCounter", nullptr},
        {"ReverseX", "true", "= true", "1"},
        {"AcquisitionFrameRateEnable", "false", "= false", "0"},
        {"DeviceUserID", "left camera", "= left camera", "left camera"},
        {"GevSCPSPacketSize", "1000", "= 1000 B ", "1000"},
        {"GevSCPSDoNotFragment", "false", "= false", "0"},
        {"TimestampLatch", nullptr, "executed", nullptr},
    };
    Words assignments;
    Words names;
    for (const Change &change : changes) {
        const std::string name = change.feature;
        assignments.push_back(change.value != nullptr ? name + "=" + change.value : name);
        names.push_back(name);
    }
    Control(assignments);
    std::map<std::string, std::string> answers = Control(names); // a later connection sees the same
    for (const Change &change : changes) {
        EXPECT_EQ(answers[change.feature].rfind(change.printed, 0), 0U)
            << change.feature << " " << answers[change.feature];
        if (change.held != nullptr) {
            EXPECT_EQ(camera->Core().GetFeature(change.feature), change.held) << change.feature;
        }
    }
    EXPECT_GT(std::stoull(camera->Core().GetFeature("TimestampLatchValue")), 0U);
    Control({"UserSetSelector=Default", "UserSetLoad"});
    EXPECT_EQ(camera->Core().GetFeature("Width"), "320");
}

/// The numbers that arv-camera-test prints at its end.
class Statistics {
public:
    explicit Statistics(const std::string &output) : m_output(output) {}
    /// -1 when it is not there.
    long operator[](const std::string &name) const
    {
        std::smatch parts;
        const std::regex form("(?:^|\n)" + name + " *= (\\d+)");
        return std::regex_search(m_output, parts, form) ? std::stol(parts[1]) : -1;
    }
    void ExpectNoLoss() const
    {
        EXPECT_GT((*this)["n_completed_buffers"], 0);
        for (const char *name : {"n_failures", "n_timeouts", "n_missing_frames", "n_size_mismatch_errors",
                                 "n_missing_packets", "n_error_packets"})
            EXPECT_EQ((*this)[name], 0) << name;
    }

private:
    std::string m_output;
};

constexpr char kPlainSocket[] = "--no-packet-socket";

struct StreamCase {
    const char *name;
    const char *features;
    Words words;
    bool isMultiPart = false;
};
void PrintTo(const StreamCase &streamCase, std::ostream *out)
{
    *out << streamCase.name;
}

class ArvCameraTest : public ForeignClient {
protected:
    ArvCameraTest() : ForeignClient(kStreamer) {}

    /// Streams until the camera has sent so many frames more. \return what the program printed.
    std::string Stream(const Words &words, std::uint64_t frames = 6)
    {
        // Frames are not given up while the machine is busy with other things.
        const Words always = {kStreamer, "-n", Address(), "--auto", "--frame-retention=10000", "--debug=stream:3"};
        const std::uint64_t start = camera->Counts().frames;
        ForeignProgram program;
        EXPECT_TRUE(program.Start(Join(always, words)));
        const auto limit = std::chrono::steady_clock::now() + ForeignProgram::kLimit;
        while (camera->Counts().frames < start + frames && std::chrono::steady_clock::now() < limit) {
            if (program.HasEnded(std::chrono::milliseconds(10)))
                break;
        }
        EXPECT_GE(camera->Counts().frames, start + frames);
        program.Interrupt();
        EXPECT_EQ(program.Finish(), 0);
        return program.Output() + program.Errors();
    }
};

class ArvCameraTestStreams : public ArvCameraTest, public ::testing::WithParamInterface<StreamCase> {};

TEST_P(ArvCameraTestStreams, WithoutLoss)
{
    gige.multiPart = GetParam().isMultiPart;
    Open();
    const bool takesPlainSocket = GetParam().words.back() == kPlainSocket;
    const std::string printed =
        Stream(Join({"--features=TestPattern=FrameCounter " + std::string(GetParam().features)}, GetParam().words));
    SCOPED_TRACE(printed);
    Statistics(printed).ExpectNoLoss();
    const char *way = takesPlainSocket || geteuid() != 0 ? "Standard socket method" : "Packet socket method";
    EXPECT_NE(printed.find(way), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ArvCameraTestStreams,
    ::testing::Values(
        StreamCase{"Mono8", "PixelFormat=Mono8", {"--gv-packet-size=1500"}},
        StreamCase{"Mono8ExtendedIds", "PixelFormat=Mono8 GevGVSPExtendedIDMode=On", {"--gv-packet-size=1500"}},
        StreamCase{"BayerRG8InSmallPackets", "PixelFormat=BayerRG8", {"--gv-packet-size=576", kPlainSocket}},
        StreamCase{"BayerRG12PackedExtendedIds",
                   "PixelFormat=BayerRG12Packed GevGVSPExtendedIDMode=On",
                   {"--gv-packet-size=9000", kPlainSocket}},
        StreamCase{"Mono12p", "PixelFormat=Mono12p", {"--gv-packet-size=9000"}},
        StreamCase{"RGB8InLargePackets", "PixelFormat=RGB8", {"--gv-packet-size=16000"}},
        StreamCase{"YUV422_8", "PixelFormat=YUV422_8 GevGVSPExtendedIDMode=On", {"--gv-packet-size=4000"}},
        StreamCase{"PacketSizeThatIsNegotiated", "", {"--packet-size-adjustment=always", kPlainSocket}},
        StreamCase{"PacketDelay", "", {"--gv-packet-delay=20000"}},
        StreamCase{"TwoParts", "PixelFormat=Mono12p", {"--multipart", "--gv-packet-size=1500"}, true}),
    [](const auto &info) { return std::string(info.param.name); });

TEST_F(ArvCameraTest, ReadsChunks)
{
    Open();
    for (const char *ids : {"Off", "On"}) {
        const std::string printed = Stream({std::string("--features=ExposureTime=1500 GevGVSPExtendedIDMode=") + ids,
                                            "--chunks=Timestamp,FrameID,ExposureTime,PixelFormat,Width"});
        SCOPED_TRACE(printed);
        Statistics(printed).ExpectNoLoss();
        for (const char *line : {"ChunkFrameID = 0\n", "ChunkFrameID = 1\n", "ChunkExposureTime = 1500\n",
                                 "ChunkWidth = 320\n", "ChunkPixelFormat = 17301513\n"}) // 0x01080009: BayerRG8
            EXPECT_NE(printed.find(line), std::string::npos) << line;
    }
}

TEST_F(ArvCameraTest, TriggersBySoftware)
{
    Open();
    const std::string printed = Stream({"--software-trigger=20"});
    SCOPED_TRACE(printed);
    Statistics(printed).ExpectNoLoss();
    EXPECT_EQ(camera->Core().GetFeature("TriggerMode"), "On");
}

TEST_F(ArvCameraTest, GetsLostPacketsAgain)
{
    options.faults.dropRate = 0.02;
    Open();
    for (const char *features : {"GevGVSPExtendedIDMode=Off", "GevGVSPExtendedIDMode=On"}) {
        for (const Words &way : {Words{}, Words{kPlainSocket}}) {
            const std::string printed =
                Stream(Join({std::string("--features=") + features, "--gv-packet-size=576"}, way), 15);
            SCOPED_TRACE(printed);
            const Statistics statistics(printed);
            EXPECT_GT(statistics["n_resent_packets"], 0);
            EXPECT_GT(statistics["n_completed_buffers"], 0);
            EXPECT_LE(statistics["n_failures"] * 5, statistics["n_completed_buffers"]);
            EXPECT_GT(camera->Counts().resentPackets, 0U);
        }
    }
}

} // namespace
} // namespace orvsim
