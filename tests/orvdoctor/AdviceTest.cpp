#include "DiagnosisFacts.h"

#include <gmock/gmock.h>

#include <sstream>
#include <string>

namespace {

using namespace doctor;
using orv::Cure;
using OrvCam::DeviceState;
using testing::HasSubstr;

/// What a person reads: figures in the finding, and a command that cures exactly this.
struct Case {
    const char *rule;
    Facts facts;
    std::string said; ///< pieces of finding and remedy, divided by |
    const char *command = "";
    Cure cure = Cure::None;
    double value = 0;
};

const Change kBusy = Set(&Camera::state, DeviceState::Busy);
const Change kStrictFilter = Set(&Interface::reversePathFilter, 1);
const Change kThrownAway = [](Facts &facts) {
    facts.host = Healthy().host;
    facts.host.undelivered = 400;
};
const Change kNoLongPackets = Set(&Stream::fullPackets, 0);
const Change kAutoExposure = Set(&Facts::exposureIsAuto, true);

const Case kOfConnection[] = {
    {"who holds it, on this computer", Free({kBusy, Set(&Camera::holder, "10.0.0.1:50123")}),
     "on this computer|10.0.0.1:50123", "sudo ss -uanp 'sport = :50123'"},
    {"who holds it, elsewhere", Free({kBusy, Set(&Camera::holder, "10.0.0.9:50123")}),
     "on another computer|10.0.0.9:50123"},
    {"a holder's port that is none", Free({kBusy, Set(&Camera::holder, "10.0.0.1:1; reboot")}), "on this computer"},
    {"the address to set", Foreign(), "192.168.5.20/24|eth0 (10.0.0.1/24)|10.0.0.20|255.255.255.0",
     "orvcam force-ip C1 10.0.0.20 255.255.255.0", Cure::SetAddress},
    {"one that no other camera has", Foreign({Set(&Facts::takenAddresses, std::vector<std::uint32_t>{0x0A000014})}),
     "10.0.0.21", "orvcam force-ip C1 10.0.0.21 255.255.255.0", Cure::SetAddress},
    {"a serial number that is a command", Foreign({Set(&Camera::serial, "$(reboot)'\n;reboot")}), "10.0.0.20",
     "orvcam force-ip '$(reboot)'\\'' ;reboot' 10.0.0.20 255.255.255.0", Cure::SetAddress},
    {"silence", NothingComes({Set(&Facts::isSilent, true)}), "10.0.0.20", "ping -c 3 10.0.0.20"},
    {"an address where there is none", Missing({Set(&Interface::address, 0)}), "eth0|until a restart",
     "sudo ip address add 169.254.1.1/16 dev eth0"},
};

const Case kOfHost[] = {
    {"nothing comes", NothingComes(), "3 s|through eth0 meanwhile were 25 packets (2.84 kB)|sends nothing"},
    {"the filter", BetweenTwo({kStrictFilter, Set(&Host::filtered, 264)}),
     "264 packets|eth0 (10.0.0.1/24)|through eth1|10.0.0.20|tee -a /etc/sysctl.d",
     "sudo sysctl -w net.ipv4.conf.eth0.rp_filter=2"},
    {"the filter of a virtual network that nothing but off helps with",
     BetweenTwo({Set(&Interface::name, "eth0.5"), Set(&Interface::reversePathFilter, 2),
                 Set(&Facts::reversePathFilterOfAll, 1), Set(&Facts::routeInterface, ""), Set(&Host::filtered, 264)}),
     "eth0.5|no way to 10.0.0.20", "sudo sysctl -w net.ipv4.conf.all.rp_filter=0 net.ipv4.conf.eth0/5.rp_filter=0"},
    {"both interfaces", BetweenTwo(), "eth0 (10.0.0.1/24)|eth1 (10.0.0.2/24)",
     "sudo ip address del 10.0.0.2/24 dev eth1"},
    {"the other one leads to the rest of the world",
     BetweenTwo({[](Facts &f) { f.interfaces.back().hasDefaultRoute = true; }}),
     "Give eth0 and the camera addresses|eth1 carries"},
    {"a firewall that nobody knows", NothingComes({kThrownAway}),
     "through eth0|400 packets|as a firewall does|10.0.0.20", "sudo nft list ruleset"},
    {"one by its own tool", NothingComes({kThrownAway, Set(&Facts::firewall, "ufw")}), "ufw is switched on",
     "sudo ufw allow proto udp from 10.0.0.20"},
    {"one whose rules are in a file",
     NothingComes({kThrownAway, Set(&Facts::firewall, "nftables"), Set(&Facts::firewallChain, "inet filter input")}),
     "/etc/nftables.conf", "sudo nft insert rule inet filter input ip saddr 10.0.0.20 udp sport 1-65535 accept"},
    {"one with zones", NothingComes({kThrownAway, Set(&Facts::firewall, "firewalld")}), "--permanent",
     "sudo firewall-cmd --zone=$(sudo firewall-cmd --get-zone-of-interface=eth0 2>/dev/null || sudo firewall-cmd "
     "--get-default-zone) --add-rich-rule='rule family=ipv4 source address=10.0.0.20 protocol value=udp accept'"},
    {"one that keeps answers off", Missing({Set(&Host::undelivered, 2), Set(&Facts::firewall, "iptables")}),
     "2 packets|may be|netfilter-persistent save", "sudo iptables -I INPUT -p udp --sport 3956 -j ACCEPT"},
};

const Case kOfSettings[] = {
    {"the trigger's source", NothingComes({Set(&Facts::hasTrigger, true), Set(&Facts::triggerSource, "Line1")}),
     "TriggerMode is On|Line1|3 s", "", Cure::SwitchTriggerOff},
    {"the exposure and the time waited", NothingComes({Set(&Facts::exposureUs, 12.5e6)}), "12.5 s|3 s have passed", "",
     Cure::ShortenExposure, 20000},
    {"an automatic exposure has no button", NothingComes({Set(&Facts::exposureUs, 12.5e6), kAutoExposure}), "12.5 s",
     "", Cure::None, 20000},
    {"pictures by number",
     NothingComes({Set(&Facts::acquisitionMode, "MultiFrame"), Set(&Facts::acquisitionFrameCount, 5),
                   Set(&Facts::completeFrames, 5)}),
     "5 pictures|MultiFrame", "", Cure::TakeContinuously},
    {"black, with the settings", Healthy({Set(&Facts::darkShare, 0.9996), Set(&Facts::exposureUs, 20)}),
     "99.9 %|20 µs|gain 0", "", Cure::LengthenExposure, 10000},
    {"white, with the settings", Healthy({Set(&Facts::saturatedShare, 1), Set(&Facts::exposureUs, 80000)}),
     "100 %|80 ms", "", Cure::ShortenExposure, 20000},
    {"white with an automatic exposure", Healthy({Set(&Facts::saturatedShare, 1), kAutoExposure}), "100 %|lens"},
};

const Case kOfStream[] = {
    {"packet and interface", Incomplete({Set(&Stream::packetSize, 9000)}), "9000|eth0|1500",
     "sudo ip link set dev eth0 mtu 9000", Cure::ReducePacketSize, 1500},
    {"the camera's packet size where the stream does not tell",
     Incomplete({Set(&Stream::packetSize, 0), Set(&Facts::packetSize, 8000)}), "8000|eth0|1500",
     "sudo ip link set dev eth0 mtu 8000", Cure::ReducePacketSize, 1500},
    {"packet and path",
     Incomplete(
         {kNoLongPackets, Set(&Stream::packets, 120), Set(&Stream::packetSize, 8000), Set(&Interface::mtu, 9000)}),
     "8000|not one of the long ones", "", Cure::ReducePacketSize, 1500},
    {"a path narrower than Ethernet", Incomplete({kNoLongPackets}), "1500", "", Cure::ReducePacketSize, 576},
    {"the buffer's figures",
     Incomplete({Set(&Stream::kernelDrops, 13000), Set(&Stream::receiveBuffer, 425984),
                 Set(&Stream::wantedReceiveBuffer, 20000000)}),
     "at least 13000 packets|425984|20000000|212992", "sudo sysctl -w net.core.rmem_max=33554432"},
    {"lost packets", Incomplete(), "60 of 60 pictures came incomplete in 10 s|13200|14000 packets were asked|800"},
    {"pictures lost as a whole", Incomplete({Set(&Stream::missed, 3)}),
     "60 of 63 pictures came incomplete and 3 never came in|Check cables"},
    {"that the camera says it does not have", Healthy({Set(&Stream::missed, 40), Set(&Stream::refused, 38)}),
     "40 of 340 pictures never came in 10 s|leaves their numbers out"},
    {"hardly any of them by this computer", Incomplete({Set(&Stream::kernelDrops, 1)}), "Check cables"},
};

template <std::size_t Count> void Check(const Case (&table)[Count])
{
    for (const Case &row : table) {
        SCOPED_TRACE(row.rule);
        const std::vector<orv::Diagnosis> found = orv::Diagnose(row.facts);
        ASSERT_FALSE(found.empty());
        const orv::Diagnosis &first = found.front();
        std::istringstream said(row.said);
        for (std::string words; std::getline(said, words, '|');)
            EXPECT_THAT(first.finding + " " + first.remedy + " " + first.lasting, HasSubstr(words));
        EXPECT_EQ(first.command, row.command);
        EXPECT_EQ(first.cure, row.cure);
        EXPECT_DOUBLE_EQ(first.value, row.value);
    }
}

TEST(Advice, HasFiguresCommandsAndCures)
{
    Check(kOfConnection);
    Check(kOfHost);
    Check(kOfSettings);
    Check(kOfStream);
}

TEST(Advice, ASoftwareTriggerCanBeGivenAtOnce)
{
    const Changes trigger = {Set(&Facts::hasTrigger, true), Set(&Facts::triggerSource, "Software")};
    const orv::Diagnosis found = orv::Diagnose(NothingComes(trigger)).at(0);
    EXPECT_EQ(found.otherCure, Cure::TriggerOnce);
    EXPECT_THAT(found.remedy, HasSubstr("TriggerSoftware"));
}

TEST(StreamCounts, OfAPartOfTheTime)
{
    Stream before, now;
    before.delivered = 1000;
    before.packets = 5;
    now.delivered = 1010;
    now.packets = 2; // a stream that was started anew meanwhile
    now.receiveBuffer = before.receiveBuffer = 4096;
    const Stream since = orv::Since(before, now);
    EXPECT_EQ(since.delivered, 10U);
    EXPECT_EQ(since.packets, 0U);
    EXPECT_EQ(since.receiveBuffer, 4096U) << "a size is no count";
}

} // namespace
