#include "CliFixture.h"

#include <algorithm>
#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using orvsim::ProgramRun;
using testing::HasSubstr;

class Events : public CliTest {
protected:
    void SetUp() override { Open(Small("ONE")); }
};

TEST_F(Events, OfTheCameraComeAsTheyHappen)
{
    for (const std::vector<std::string> &words : {std::vector<std::string>{"Test"}, {"ExposureEnd", "--streaming"}}) {
        SCOPED_TRACE(words[0]);
        orvsim::ForeignProgram program;
        std::vector<std::string> all = {ORVCAM_PROGRAM, "events", "--json", "--on"};
        all.insert(all.end(), words.begin(), words.end());
        ASSERT_TRUE(program.Start(all));
        EXPECT_TRUE(Eventually([&] {
            std::string problem;
            cameras[0]->Core().SetFeature("TestEventGenerate", "1", problem);
            return !program.Output().empty();
        }));
        program.Interrupt();
        EXPECT_EQ(0, program.Finish()) << program.Errors();
        EXPECT_EQ("\"" + words[0] + "\"", Member(program.Output(), "event"));
        EXPECT_GT(Figure(program.Output(), "timestamp"), 0);
        const std::string on = cameras[0]->Core().GetFeature("EventNotification");
        EXPECT_EQ("Off", on) << "as it was before";
    }
}

/// What a camera does whose acknowledge was lost: it sends the same message again.
TEST_F(Events, OfARepeatedMessageAreToldOnce)
{
    orvsim::ForeignProgram program;
    ASSERT_TRUE(program.Start({ORVCAM_PROGRAM, "events", "--json", "--traffic"}));
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in camera = {};
    camera.sin_family = AF_INET;
    camera.sin_addr.s_addr = htonl(0x7f000015);
    ASSERT_EQ(0, bind(socket, reinterpret_cast<sockaddr *>(&camera), sizeof camera));
    const auto send = [&](std::vector<std::uint8_t> packet, std::uint32_t address, std::uint16_t port) {
        sockaddr_in to = camera;
        to.sin_addr.s_addr = htonl(address);
        to.sin_port = htons(port);
        sendto(socket, packet.data(), packet.size(), 0, reinterpret_cast<sockaddr *>(&to), sizeof to);
        pollfd ready = {socket, POLLIN, 0};
        std::vector<std::uint8_t> answer(64);
        const ssize_t size = poll(&ready, 1, 1000) == 1 ? recv(socket, answer.data(), answer.size(), 0) : 0;
        answer.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
        return answer;
    };
    std::uint16_t port = 0; // of the program's message channel, once it has told the camera
    EXPECT_TRUE(Eventually([&] {
        const std::vector<std::uint8_t> answer = send({0x42, 1, 0, 0x80, 0, 4, 0, 1, 0, 0, 0x0b, 0}, 0x7f000015, 3956);
        port = answer.size() < 12 ? std::uint16_t{0} : static_cast<std::uint16_t>(answer[10] << 8 | answer[11]);
        return port != 0;
    }));
    for (const std::uint8_t request : {77, 77, 77, 78}) {
        const std::vector<std::uint8_t> acknowledge =
            send({0x42, 1, 0, 0xc0, 0, 16, 0, request, 0, 0, 0x90, 2, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0x30, 0x39},
                 0x7f000001, port);
        EXPECT_EQ(8u, acknowledge.size());
    }
    close(socket);
    EXPECT_TRUE(Eventually([&] { return program.Output().find("\n{") != std::string::npos; }));
    program.Interrupt();
    EXPECT_EQ(0, program.Finish()) << program.Errors();
    const std::string output = program.Output();
    EXPECT_EQ(3, std::count(output.begin(), output.end(), '\n')) << "two events and the traffic: " << output;
    EXPECT_EQ(12345, Figure(output, "timestamp"));
    const std::string traffic = output.substr(output.find("\"traffic\""));
    EXPECT_EQ(8, Figure(traffic.substr(traffic.find("\"events\"")), "packets")) << "each, and its acknowledge";
    EXPECT_EQ(0, Figure(traffic, "dropped"));
}

TEST_F(Events, TrafficIsCountedByChannel)
{
    const ProgramRun events = Orvcam({"events", "--seconds", "0.2", "--traffic"});
    EXPECT_EQ(0, events.exitCode) << events.errors;
    EXPECT_THAT(events.output, testing::ContainsRegex("^packets: control [1-9][0-9]* .*stream 0, events 0"));
    const ProgramRun stream = Orvcam({"stream", "--frames", "10", "--traffic", "--json"});
    EXPECT_EQ(0, stream.exitCode) << stream.errors;
    const std::string channel = stream.output.substr(stream.output.find("\"stream\": {"));
    EXPECT_GE(Figure(channel, "packets"), 10 * 5) << "leader, three of payload and trailer of each frame";
    EXPECT_GE(Figure(channel, "bytes"), 10 * 64 * 48);
    const ProgramRun wrong = Orvcam({"events", "--on", "NoSuch", "--seconds", "0.1"});
    EXPECT_EQ(1, wrong.exitCode);
    EXPECT_THAT(wrong.errors, HasSubstr("\"NoSuch\""));
}

TEST_F(Events, ForcedAddresses)
{
    Open(Small("TWO"));
    const struct {
        std::vector<std::string> words;
        int exitCode;
        const char *told;
    } kCases[] = {
        {{"ONE", "127.0.0.300", "255.0.0.0"}, 2, "127.0.0.300"},
        {{"ONE", "127.0.0.28", "255.0.255.0"}, 2, "255.0.255.0"},
        {{"ONE", "128.0.0.28", "255.0.0.0"}, 2, "127.0.0.0/8"},
        {{"ONE", "127.0.0.1", "255.0.0.0"}, 2, "This computer itself"},
        {{"ONE", "127.0.0.22", "255.0.0.0"}, 2, "Another camera"},
        {{"ONE", "128.0.0.28", "255.0.0.0", "--unchecked"}, 1, "did not confirm"},
        {{"NONE", "127.0.0.28", "255.0.0.0"}, 4, "NONE"},
        {{"ONE", "127.0.0.28", "255.0.0.0"}, 0, "is now at 127.0.0.28"},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.told);
        std::vector<std::string> words = {"force-ip"};
        words.insert(words.end(), row.words.begin(), row.words.end());
        const ProgramRun run = Orvcam(words);
        EXPECT_EQ(row.exitCode, run.exitCode);
        EXPECT_THAT(run.errors + run.output, HasSubstr(row.told));
    }
    EXPECT_EQ(0x7f00001cu, cameras[0]->Address());
}

} // namespace
