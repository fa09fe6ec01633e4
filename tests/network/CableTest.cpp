#include "network/Wire.h"
#include "support/JsonText.h"

#include <gmock/gmock.h>

#include <csignal>

namespace {

using orvsim::ForeignProgram;
using orvsim::ProgramRun;
using testing::HasSubstr;

constexpr char kSmall[] = "--mono --width 320 --height 240 --fps 30 --memory 16 ";

/// What the list tells of the camera.
std::string Listed(Wire &wire, const std::string &serial)
{
    const std::string list = wire.Orvcam("list --json").output;
    const std::size_t place = list.find("\"" + serial + "\"");
    return place == std::string::npos ? "" : list.substr(place);
}

void ACameraOfAForeignSubnetIsListedAndMoved(Wire &wire)
{
    ASSERT_EQ("", wire.Run("for i in 21 22 23; do camera ip addr add 10.0.0.$i/24 dev c0; done;"
                           "camera ip addr add 192.168.5.20/24 dev c0"));
    ASSERT_EQ("", wire.StartCamera(std::string(kSmall) + "--camera --address 192.168.5.20 --serial FAR "
                                                         "--camera --address 10.0.0.20 --serial NEAR"));
    EXPECT_EQ("unreachable", MemberText(Listed(wire, "FAR"), "state"));
    EXPECT_EQ("free", MemberText(Listed(wire, "NEAR"), "state"));
    const ProgramRun ofBoth = wire.Orvcam("doctor");
    EXPECT_EQ(3, ofBoth.exitCode) << ofBoth.errors;
    EXPECT_THAT(ofBoth.output, HasSubstr("192.168.5.20")) << "the unreachable one of two is named";
    const ProgramRun doctor = wire.Orvcam("doctor FAR --json");
    EXPECT_EQ("foreign-subnet", MemberText(doctor.output, "cause")) << doctor.errors;
    EXPECT_EQ("", wire.RunCure(MemberText(doctor.output, "command"))) << "neither ours nor the other camera's";
    EXPECT_EQ("free", MemberText(Listed(wire, "FAR"), "state"));
    const ProgramRun stream = wire.Orvcam("stream FAR --frames 5 --json");
    EXPECT_EQ(0, stream.exitCode) << stream.errors;
    EXPECT_EQ(5, Figure(stream.output, "frames"));
}

void PacketsAreAsLargeAsTheWayCarries(Wire &wire)
{
    ASSERT_EQ("", wire.Run("ip link set h0 mtu 9000; camera ip link set c0 mtu 9000;"
                           "camera ip addr add 10.0.0.21/24 dev c0; camera ip addr add 10.0.0.22/24 dev c0"));
    ASSERT_EQ("",
              wire.StartCamera(std::string(kSmall) + "--packet-size 9000 --camera --address 10.0.0.20 --serial ALL "
                                                     "--camera --address 10.0.0.21 --serial PART --path-mtu 4000 "
                                                     "--camera --address 10.0.0.22 --serial MORE --packet-size 1500"));
    for (const auto &[words, size] :
         {std::pair{"stream ALL --frames 5 --json", 9000},
          {"stream PART --frames 5 --json", 4000},
          {"stream MORE --frames 5 --json --set-stream DeviceStreamChannelPacketSize=2000", 2000},
          {"stream MORE --frames 5 --json", 9000}}) {
        const ProgramRun run = wire.Orvcam(words);
        EXPECT_EQ(0, run.exitCode) << run.errors;
        EXPECT_EQ(0, Figure(run.output, "incomplete"));
        EXPECT_NEAR(size, Figure(run.output, "packetSize"), 8);
    }
}

void TheHolderIsFound(Wire &wire)
{
    ASSERT_EQ("", wire.StartCamera(std::string(kSmall) + "--address 10.0.0.20 --serial HELD"));
    ForeignProgram holder;
    ASSERT_TRUE(wire.Start(holder, "stream HELD"));
    ASSERT_TRUE(Eventually([&] { return MemberText(Listed(wire, "HELD"), "state") == "busy"; }));
    const ProgramRun run = wire.Orvcam("doctor HELD --json");
    EXPECT_EQ("held-by-another", MemberText(run.output, "cause")) << run.errors;
    EXPECT_THAT(run.output, HasSubstr("10.0.0.1:"));
    EXPECT_EQ("", wire.RunCure(MemberText(run.output, "command") + " | grep pid=" + std::to_string(holder.Process())));
}

/// The program is held up until the kernel has thrown away what several frames are made of; the camera repeats none.
void ASmallSocketBufferIsNamed(Wire &wire)
{
    ASSERT_EQ("", wire.StartCamera(
                      "--mono --width 2048 --height 2048 --fps 20 --memory 64 --resend-mode 1 --address 10.0.0.20"));
    const ProgramRun stream = wire.Orvcam("stream --frames 2 --json");
    if (Figure(stream.output, "receiveBuffer") >= Figure(stream.output, "wantedReceiveBuffer")) {
        std::puts("left out: a small socket buffer, since net.core.rmem_max is large enough");
        return;
    }
    const ProgramRun run = wire.Orvcam("doctor --seconds 4 --json", 10 << 20, [](pid_t doctor) {
        kill(doctor, SIGSTOP);
        EXPECT_TRUE(Eventually([] { return Wire::Dropped() > 1000; }));
        kill(doctor, SIGCONT);
    });
    EXPECT_EQ("socket-buffer-small", MemberText(run.output, "cause")) << run.output << run.errors;
    EXPECT_THAT(run.output, HasSubstr("net.core.rmem_max="));
}

TEST(Cable, CarriesWhatItShould)
{
    if (const std::string why = WhyNoWires(); !why.empty())
        GTEST_SKIP() << why;
    RunOnWires({{"a camera of a foreign subnet is listed and moved", ACameraOfAForeignSubnetIsListedAndMoved},
                {"packets are as large as the way carries", PacketsAreAsLargeAsTheWayCarries},
                {"the holder is found", TheHolderIsFound},
                {"a small socket buffer is named", ASmallSocketBufferIsNamed}});
}

} // namespace
