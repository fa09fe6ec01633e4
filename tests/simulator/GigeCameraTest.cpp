// The whole camera over UDP on the loopback network.
#include "tests/simulator/OneCamera.h"

#include <arv.h>
#include <zlib.h>

#include <cstring>
#include <set>

namespace orvsim {
namespace {

constexpr Endpoint kEverybody{0xffffffff, kGvcpPort};
constexpr Endpoint kLoopbackSubnet{0x7fffffff, kGvcpPort};

/// A file of an archive, as libaravis unpacks it; empty when its check sum is wrong.
std::string Unzipped(const std::string &zip, const char *name)
{
    const std::unique_ptr<ArvZip, void (*)(ArvZip *)> archive(arv_zip_new(zip.data(), zip.size()), arv_zip_free);
    std::size_t size = 0;
    const std::unique_ptr<void, void (*)(void *)> file(arv_zip_get_file(archive.get(), name, &size), g_free);
    const auto *bytes = static_cast<const Bytef *>(file.get());
    std::uint32_t check = 0;
    std::memcpy(&check, zip.data() + 14, sizeof check); // of the first file, in little-endian order
    const bool isRight = bytes != nullptr && check == crc32(0, bytes, static_cast<uInt>(size));
    return isRight ? std::string(bytes, bytes + size) : "";
}

TEST(GigeCameras, AllAnswerOneBroadcast)
{
    GigeCamera first(SmallCamera("T1"), At(1));
    GigeCamera second(SmallCamera("T2"), At(2));
    ASSERT_EQ(first.Open(), "");
    ASSERT_EQ(second.Open(), "");
    for (const Endpoint &everybody : {kEverybody, kLoopbackSubnet}) {
        TestHost host;
        host.Send(everybody, Hex("42 11 0002 0000 FFFF"));
        std::set<std::string> serials; // others on this machine may answer too
        while (serials.size() < 2) {
            const auto arrival = host.Receive();
            ASSERT_TRUE(arrival) << ToText(everybody);
            const bool isOurs = arrival->from.address == TestAddress(1) || arrival->from.address == TestAddress(2);
            if (!isOurs)
                continue;
            EXPECT_EQ(arrival->from.port, kGvcpPort);
            ASSERT_EQ(arrival->bytes.size(), 256U);
            serials.insert(std::string(reinterpret_cast<const char *>(&arrival->bytes[224])));
        }
        EXPECT_EQ(serials, (std::set<std::string>{"T1", "T2"}));
    }
}

TEST(GigeCameras, DoNotShareAnAddress)
{
    GigeCamera first(SmallCamera(), At(3));
    GigeCamera second(SmallCamera(), At(3));
    ASSERT_EQ(first.Open(), "");
    EXPECT_NE(second.Open().find(ToText({TestAddress(3), kGvcpPort})), std::string::npos);
    first.Close();
    EXPECT_EQ(second.Open(), "");
}

TEST_F(OneCamera, DescriptionLiesWhereItsUrlSays)
{
    for (const bool isZipped : {true, false}) {
        GigeOptions gige = At(isZipped ? 0 : 1);
        gige.zippedXml = isZipped;
        Open(SmallCamera(), gige);
        const std::string url = host.ReadMemory(address, 0x0200, 512).c_str();
        unsigned start = 0;
        unsigned length = 0;
        const char *form = isZipped ? "Local:orvsim.zip;%X;%X" : "Local:orvsim.xml;%X;%X";
        ASSERT_EQ(std::sscanf(url.c_str(), form, &start, &length), 2) << url;
        const std::string bytes = host.ReadMemory(address, start, length);
        ASSERT_EQ(bytes.size(), length);
        EXPECT_TRUE((isZipped ? Unzipped(bytes, "orvsim.xml") : bytes) == camera->Core().DescriptionXml());
    }
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
    host.Write(address, 0x0B10, kHostAddress);
    host.Write(address, 0x0B14, 30);
    host.Write(address, 0x0B18, 100);
    host.Write(address, 0x0B00, listener.Port());
    Set("EventSelector", "AcquisitionStart");
    Set("EventNotification", "On");
    Set("AcquisitionStart", "1");
    const auto first = listener.Receive();
    const auto second = listener.Receive();
    ASSERT_TRUE(first && second);
    EXPECT_EQ(ToHex(first->bytes), ToHex(second->bytes));
    EXPECT_EQ(first->from.port, host.Read(address, 0x0B1C)) << "MCSP";
    EXPECT_EQ(first->bytes[3], 0xC0) << "without data: EVENT";
    listener.Send(first->from, Hex("0000 00C1 0000 0001"));
    int late = 0; // what was on its way; then silence
    while (listener.Receive(200))
        ++late;
    EXPECT_LT(late, 10);
    Set("AcquisitionStop", "1");
    Set("AcquisitionStart", "1");
    const auto next = listener.Receive();
    ASSERT_TRUE(next);
    EXPECT_EQ(next->bytes[7], 2) << "the next id";
    host.Write(address, 0x0B00, 0);
    while (listener.Receive(50)) { // what was on its way
    }
    Set("AcquisitionStop", "1");
    Set("AcquisitionStart", "1");
    EXPECT_FALSE(listener.Receive(100)) << "closed";
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
    host.Write(target, 0x0D04, 0xC0000400);
    const auto packet = receiver.Receive();
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->bytes.size(), 0x400U - 28);
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
