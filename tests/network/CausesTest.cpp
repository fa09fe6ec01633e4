#include "network/Wire.h"
#include "support/JsonText.h"

#include <gmock/gmock.h>

namespace {

using orvsim::ProgramRun;
using testing::HasSubstr;
using testing::Not;

constexpr char kSmall[] = "--mono --width 320 --height 240 --fps 30 --memory 16 ";
constexpr char kNear[] = "--address 10.0.0.20 --serial NEAR ";
/// So that some pictures have come.
constexpr std::uint64_t kSomePictures = 1 << 20;

/// Puts packet rules in front of the kernel's own addresses, so that they hold for what comes in, too; no packet filter
/// is needed. 3956 is the control port.
constexpr char kBlockStream[] = "ip rule add pref 100 lookup local; ip rule del pref 0;"
                                "ip rule add pref 10 iif h0 ipproto udp sport 3957-65534 blackhole";
/// A packet filter as Debian starts it: only what $ALLOWED says comes in.
constexpr char kFilter[] = R"(
mount -t tmpfs tmpfs /etc/systemd/system
mkdir /etc/systemd/system/sysinit.target.wants
ln -s x /etc/systemd/system/sysinit.target.wants/nftables.service
mount -t tmpfs tmpfs /mnt
cat > /mnt/rules <<END
table inet filter {
    chain input {
        type filter hook input priority 0; policy drop;
        $ALLOWED accept
    }
}
END
mount --bind /mnt/rules /etc/nftables.conf
nft -f /etc/nftables.conf)";
/// A packet filter for what leaves through h0.
constexpr char kOut[] = "nft add table inet out; nft 'add chain inet out o { type filter hook output priority 0; }';"
                        "nft add rule inet out o oif h0 udp dport 3956 ";
const std::string kNoSearch = std::string(kOut) + "drop";
/// Another interface of the host in the camera's subnet, and the way to the camera leads through it.
constexpr char kTwin[] = "ip link add h1 type veth peer name c1 netns $CAMERA; ip link set h1 up;"
                         "ip addr del 10.0.0.1/24 dev h0; ip addr add 10.0.0.2/24 dev h1;"
                         "ip addr add 10.0.0.1/24 dev h0;";
/// The same with both cables in one switch: the camera is reached either way.
constexpr char kTwinOfOneSwitch[] = "camera ip link set c1 up;";
constexpr char kForeign[] = "camera ip addr del 10.0.0.20/24 dev c0; camera ip addr add 192.168.5.20/24 dev c0;";
/// The kernel notices a moment later.
constexpr char kNoLink[] = "camera ip link set c0 down;"
                           "until ip link show h0 | grep -qE 'state (LOWERLAYER)?DOWN'; do sleep 0.05; done";
/// Another network of the host, whose datagrams it throws away; some dozens of them while the camera's stay away.
constexpr char kOtherNetwork[] = "ip link add h1 type veth peer name c1 netns $CAMERA; ip link set h1 up;"
                                 "ip addr add 10.9.0.1/24 dev h1; camera ip link set c1 up;"
                                 "camera ip addr add 10.9.0.2/24 dev c1;"
                                 "ip rule add pref 100 lookup local; ip rule del pref 0;"
                                 "ip rule add pref 10 iif h1 ipproto udp blackhole";
constexpr char kStrays[] = "camera ip rule add pref 10 to 10.0.0.1 ipproto udp sport 3957-65534 blackhole; sleep 1;"
                           "camera bash -c 'for n in {1..60}; do echo >/dev/udp/10.9.0.1/5353; done'";
constexpr char kStrict[] = "sysctl -qw net.ipv4.conf.h0.rp_filter=1";

struct CauseRow {
    const char *name;
    const char *cause;          ///< that is named first, "" when nothing is wrong
    const char *words;          ///< in its finding or command
    std::string camera = "";    ///< options of orvsim behind the usual ones
    std::string setUp = "";     ///< shell lines before the camera starts
    std::string meanwhile = ""; ///< shell lines once pictures have come
    const char *options = "";   ///< of doctor
    int cures = 0;              ///< how often its first command has to be run until pictures come, 0: none is
    int exitCode = 3;           ///< where there is a cause
};

void ExpectCure(Wire &wire, std::string command, int cures)
{
    for (int cure = 1; cure <= cures; ++cure) {
        EXPECT_EQ("", wire.RunCure(command));
        // A kernel that got no answer to its question for an address asks again after a second.
        EXPECT_TRUE(Eventually([&] { return wire.Orvcam("list").exitCode == 0; }));
        if (cure < cures)
            command = MemberText(wire.Orvcam("doctor --seconds 1.5 --json").output, "command");
    }
    const ProgramRun run = wire.Orvcam("stream NEAR --frames 5 --json");
    EXPECT_EQ(0, run.exitCode) << run.errors;
    EXPECT_EQ(0, Figure(run.output, "incomplete"));
}

void ExpectCause(Wire &wire, const CauseRow &row)
{
    ASSERT_EQ("", wire.Run(row.setUp));
    ASSERT_EQ("", wire.StartCamera(kSmall + (kNear + row.camera)));
    const std::string words = std::string("doctor --json ") + row.options;
    const ProgramRun run = row.meanwhile.empty() ? wire.Orvcam(words) : wire.Orvcam(words, kSomePictures, [&](pid_t) {
        EXPECT_EQ("", wire.Run(row.meanwhile));
    });
    EXPECT_EQ(row.cause, MemberText(run.output, "cause")) << run.output << run.errors;
    EXPECT_EQ(*row.cause == 0 ? 0 : row.exitCode, run.exitCode) << run.errors;
    EXPECT_THAT(run.output, HasSubstr(row.words));
    if (row.cures > 0)
        ExpectCure(wire, MemberText(run.output, "command"), row.cures);
}

void ExpectList(Wire &wire)
{
    ASSERT_EQ("", wire.Run(kNoSearch));
    EXPECT_EQ("[]\n", wire.Orvcam("list --json").output);
    EXPECT_THAT(wire.Orvcam("list").errors,
                HasSubstr("warning: the search through h0 (10.0.0.1) failed: cannot send: Operation not permitted"));
    const std::string all = wire.Orvcam("list --interfaces --json").output;
    EXPECT_EQ("", MemberText(all, "searchFailure")) << "the loopback's";
    const std::size_t place = all.find("h0 (");
    ASSERT_NE(std::string::npos, place) << all;
    EXPECT_EQ("cannot send: Operation not permitted", MemberText(all.substr(place), "searchFailure"));
    ASSERT_EQ("", wire.Run("nft delete table inet out"));
    EXPECT_THAT(wire.Orvcam("list").errors, Not(HasSubstr("failed")));
}

/// Only the command that sets an address is kept back: the camera is found.
void ExpectNoAddressSet(Wire &wire)
{
    ASSERT_EQ("", wire.Run(kForeign));
    ASSERT_EQ("", wire.StartCamera(std::string(kSmall) + "--address 192.168.5.20 --serial NEAR"));
    ASSERT_EQ("", wire.Run(std::string(kOut) + "@th,80,16 4 drop"));
    const ProgramRun run = wire.Orvcam("force-ip NEAR 10.0.0.20 255.255.255.0");
    EXPECT_EQ(1, run.exitCode);
    EXPECT_THAT(run.errors, HasSubstr("through h0 (10.0.0.1): cannot send: Operation not permitted"));
}

const CauseRow kHealthy[] = {
    {"a healthy camera", "", ""},
    {"a trigger every 2 s", "", "", "--set TriggerMode=On --set TriggerSource=Timer0End --set TimerDuration=2000000",
     "", "", "--seconds 7"},
    {"an exposure of 1.5 s, with pictures", "", "",
     "--set AcquisitionFrameRateEnable=0 --set ExposureTime=1500000 --set TestPattern=GreyHorizontalRamp", "", "",
     "--seconds 5.2"},
    {"two interfaces in one switch", "", "", "", std::string(kTwin) + kTwinOfOneSwitch},
    {"a strict filter, one interface", "", "", "", kStrict},
    {"large packets on the camera's side only", "", "", "--packet-size 9000", "camera ip link set c0 mtu 9000"},
};

const CauseRow kOfCameraAndHost[] = {
    {"vanishes", "camera-silent", "does not answer", "--vanish-after-ms 2000", "", "", "--seconds 20"},
    {"trigger", "waits-for-trigger", "Software", "--set TriggerMode=On --set TriggerSource=Software"},
    {"single frame", "acquisition-ended", "AcquisitionMode", "--set AcquisitionMode=SingleFrame"},
    {"long exposure", "long-exposure", "4 s", "--set AcquisitionFrameRateEnable=0 --set ExposureTime=4000000"},
    {"busy answers", "camera-busy", "busy", "--answer-error 1"},
    {"black", "black", "100 %", "--set ExposureTime=10"},
    {"saturated", "saturated", "", "--set AcquisitionFrameRateEnable=0 --set ExposureTime=800000 --set Gain=20"},
};

const CauseRow kOfTheWay[] = {
    {"stream port blocked", "stream-blocked", "", "", kBlockStream},
    {"stream port blocked after pictures came", "stream-blocked", "", "", "", kBlockStream, "--seconds 5"},
    {"stream port blocked for a while", "stream-interrupted", "2", "", "",
     std::string(kBlockStream) + "; sleep 2; ip rule del pref 10", "--seconds 6"},
    {"the camera sends nothing", "no-packets", "", "--drop 1"},
    {"it does, while others' packets are thrown away", "no-packets", "through h0", "", kOtherNetwork, kStrays,
     "--seconds 6"},
    {"frames lost as a whole", "packets-lost", "never came",
     "--set Width=32 --set Height=32 --set GevSCCFGAllInTransmission=1 --drop 0.2 --resend-mode 1"},
    {"numbers left out", "packets-lost", "leaves their numbers out", "--skip-id 0.2"},
    {"packets lost", "packets-lost", "", "--drop-packet 7 --resend-mode 1"},
    {"leaders lost", "packets-lost", "", "--drop-leader 1 --resend-mode 1"},
    {"path narrower than any packet", "packets-too-large", "", "--path-mtu 500"},
    {"the interface's MTU sinks", "packets-too-large", "1000", "", "camera ip link set c0 gso_max_segs 1",
     "ip link set h0 mtu 1000", "--seconds 5", 1},
    {"one id for every frame", "unusable-packets", "", "--repeat-id 1"},
};

const CauseRow kOfInterfaces[] = {
    {"foreign subnet", "foreign-subnet", "192.168.5.20/24", "--address 192.168.5.20", kForeign},
    {"strict filter, the way leads elsewhere", "reverse-path-filter", "h0", "",
     std::string(kTwin) + kTwinOfOneSwitch + kStrict, "", "", 1},
    {"a filter that becomes strict", "reverse-path-filter", "h0", "", std::string(kTwin) + kTwinOfOneSwitch, kStrict,
     "--seconds 5", 1},
    {"a loose filter, a foreign camera", "reverse-path-filter", "h0", "--address 192.168.5.20",
     std::string(kForeign) + "sysctl -qw net.ipv4.conf.h0.rp_filter=2"},
    {"two interfaces, the way leads to the wrong one", "two-interfaces-in-one-subnet", "h1", "", kTwin, "", "", 1},
    {"no address", "interface-without-address", "h0", "", "ip addr flush dev h0"},
    {"no link", "interface-without-link", "h0", "", kNoLink, "", "", 0, 4},
    {"no interface", "no-interface", "", "", "ip link del h0; camera ip addr add 10.0.0.20/32 dev lo"},
};

const CauseRow kOfAPacketFilter[] = {
    {"a filter for cameras' answers alone", "stream-blocked", "nft insert rule inet filter input", "",
     std::string("ALLOWED='udp sport 3956';") + kFilter, "", "", 1},
    {"a filter for what was asked of one host", "firewall", "nft insert rule inet filter input udp sport 3956 accept",
     "", std::string("ALLOWED='ct state established';") + kFilter, "", "", 2},
    {"a filter for what goes out", "search-not-sent", "h0 (10.0.0.1)", "", kNoSearch},
};

TEST(Causes, AreNamedOneAndAll)
{
    if (const std::string why = WhyNoWires(); !why.empty())
        GTEST_SKIP() << why;
    std::vector<WireCase> cases;
    const auto add = [&](const auto &rows) {
        for (const CauseRow &row : rows)
            cases.push_back({row.name, [&row](Wire &wire) { ExpectCause(wire, row); }});
    };
    add(kHealthy);
    add(kOfCameraAndHost);
    add(kOfTheWay);
    add(kOfInterfaces);
    if (orvsim::ForeignProgram::Installed("nft")) {
        add(kOfAPacketFilter);
        cases.push_back({"a list without what cannot be searched", ExpectList});
        cases.push_back({"an address that cannot be sent", ExpectNoAddressSet});
    } else {
        std::puts("left out: a packet filter, since nft is not installed");
    }
    RunOnWires(cases);
}

} // namespace
