// The whole camera over UDP on the loopback network.
#include "tests/simulator/OneCamera.h"

namespace orvsim {
namespace {

constexpr Endpoint kEverybody{0xffffffff, kGvcpPort};

TEST(GigeCameras, DoNotShareAnAddress)
{
    GigeCamera first(SmallCamera(), At(3));
    GigeCamera second(SmallCamera(), At(3));
    ASSERT_EQ(first.Open(), "");
    EXPECT_NE(second.Open().find(ToText({TestAddress(3), kGvcpPort})), std::string::npos);
    first.Close();
    EXPECT_EQ(second.Open(), "");
}

TEST_F(OneCamera, PlainDescriptionLiesWhereItsUrlSays)
{
    GigeOptions gige = At(0);
    gige.zippedXml = false;
    Open(SmallCamera(), gige);
    const std::string url = host.ReadMemory(address, 0x0200, 512).c_str();
    unsigned start = 0;
    unsigned length = 0;
    ASSERT_EQ(std::sscanf(url.c_str(), "Local:orvsim.xml;%X;%X", &start, &length), 2) << url;
    EXPECT_TRUE(host.ReadMemory(address, start, length) == camera->Core().DescriptionXml());
}

TEST_F(OneCamera, FeaturesShowTheRegisters)
{
    OpenAndControl();
    Camera &core = camera->Core();
    Set("DeviceUserID", "left");
    EXPECT_STREQ(host.ReadMemory(address, 0x00E8, 16).c_str(), "left");
    host.Ask(address, host.commands.Make(GvcpCommand::WriteMemory, {0x00E8, 0x72696768, 0x74000000, 0, 0}));
    EXPECT_EQ(core.GetFeature("DeviceUserID"), "right");

    host.Write(address, 0x0D04, 0x400003E8);
    EXPECT_EQ(core.GetFeature("GevSCPSPacketSize"), "1000");
    Set("GevSCPSPacketSize", "576");
    EXPECT_EQ(host.Read(address, 0x0D04), 0x40000240U) << "the register's other fields stay";
    Set("GevSCPD", "1234");
    EXPECT_EQ(host.Read(address, 0x0D08), 1234U);
    EXPECT_EQ(core.GetFeature("GevCCP"), "ControlAccess");
    EXPECT_EQ(core.GetFeature("GevVersionMajor"), "2");
    EXPECT_EQ(core.GetFeature("GevTimestampTickFrequency"), "1000000000");
    EXPECT_EQ(core.GetFeature("GevCurrentIPAddress"), std::to_string(address));

    Set("TLParamsLocked", "1");
    std::string problem;
    EXPECT_NE(core.SetFeature("GevSCPSPacketSize", "1500", problem), Outcome::Ok) << "would shear the picture";
}

TEST_F(OneCamera, TimestampIsLatched)
{
    OpenAndControl();
    const auto latch = [this] {
        EXPECT_EQ(host.Write(address, 0x0944, 2), 0);
        return std::uint64_t{host.Read(address, 0x0948)} << 32 | host.Read(address, 0x094C);
    };
    const std::uint64_t first = latch();
    EXPECT_GT(latch(), first);
    Set("GevTimestampControlReset", "1");
    EXPECT_TRUE(ComesTrue([&] { return latch() < first; }));
}

TEST_F(OneCamera, SilenceEndsTheAcquisition)
{
    OpenAndControl();
    TestHost receiver;
    StreamTo(receiver.Port());
    Set("AcquisitionStart", "1");
    ASSERT_TRUE(receiver.Receive());
    EXPECT_EQ(host.Write(address, 0x0938, 500), 0);
    EXPECT_TRUE(ComesTrue([this] { return !camera->Core().IsAcquiring(); }));
    EXPECT_EQ(host.Read(address, 0x0A00), 0U);
    EXPECT_EQ(host.Read(address, 0x0D00), 0U);
}

TEST_F(OneCamera, EventsAreRepeatedUntilAcknowledged)
{
    OpenAndControl();
    TestHost listener;
    const std::uint32_t port = listener.Port();
    host.Ask(address, host.commands.Make(GvcpCommand::WriteRegister,
                                         {0x0B10, kHostAddress, 0x0B14, 30, 0x0B18, 100, 0x0B00, port}));
    Set("EventSelector", "Test");
    Set("EventNotification", "On");
    Set("TestEventGenerate", "1");
    const auto first = listener.Receive();
    const auto second = listener.Receive();
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->bytes, second->bytes);
    EXPECT_EQ(first->from.port, host.Read(address, 0x0B1C)) << "MCSP";
    listener.Send(first->from, FromHex("0000 00C1 0000 0001"));
    int late = 0; // what was on its way; then silence
    while (listener.Receive(200))
        ++late;
    EXPECT_LT(late, 10);
}

TEST_F(OneCamera, ForceIpMovesItUntilItIsReset)
{
    Open();
    const std::uint32_t target = TestAddress(4);
    host.Send(kEverybody, ForceTo(target));
    const auto answer = host.Receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->from.address, target);
    EXPECT_EQ(camera->Address(), target);
    EXPECT_EQ(host.Read(target, 0x0024), target);
    EXPECT_EQ(host.Ask(address, host.commands.Read(0x0024), 100), Datagram{}) << "the old address is free";

    ASSERT_EQ(host.Write(target, 0x0A00, 2), 0);
    TestHost receiver;
    StreamTo(receiver.Port());
    host.Write(target, 0x0D04, 0xC0000400); // a test packet
    const auto packet = receiver.Receive();
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->from, (Endpoint{target, static_cast<std::uint16_t>(host.Read(target, 0x0D1C))})) << "SCSP";

    Set("DeviceReset", "1");
    EXPECT_TRUE(ComesTrue([this] { return camera->Address() == address; })) << "the forced address is forgotten";
    EXPECT_EQ(host.Read(address, 0x0024), address);
}

TEST_F(OneCamera, GapsReadAsZeroOnRequest)
{
    GigeOptions gige = At(0);
    gige.gapsReadAsZero = true;
    Open(SmallCamera(), gige);
    EXPECT_EQ(host.Read(address, 0x0980), 0U);
    EXPECT_EQ(host.ReadMemory(address, 0x0978, 16), std::string(16, '\0'));
    for (const std::uint32_t start : {0x0940, 0x0910}) // behind a gap, too
        EXPECT_EQ(host.ReadMemory(address, start, 0x0948 - start), "") << "a write-only register is no gap";
}

} // namespace
} // namespace orvsim
