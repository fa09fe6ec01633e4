// What we send, in the eyes of a dissector that others wrote.
#include "SimulatedFixture.h"
#include "tests/simulator/PacketCapture.h"

#include <set>

namespace {

const std::vector<std::string> kFields = {"frame.number",  "frame.protocols", "gvcp.cmd.command",
                                          "_ws.malformed", "_ws.short",       "_ws.expert.message"};

using DissectionTest = SimulatedTest;

} // namespace

TEST_F(DissectionTest, OurControlTrafficIsWellFormed)
{
    StartCamera();
    orvsim::PacketCapture capture;
    const std::string obstacle = capture.Start(0x7F000001); // from us and to us, broadcasts included
    if (!obstacle.empty())
        GTEST_SKIP() << obstacle;
    // Everything that we know to send: discovery, opening, single and many registers, memory, events, an address.
    ASSERT_EQ(Gc().IFUpdateDeviceList(interface, nullptr, 200), GC_ERR_SUCCESS);
    ASSERT_NO_FATAL_FAILURE(OpenDevice());
    std::uint8_t bytes[600];
    EXPECT_EQ(Read(0x0201, bytes, 509), GC_ERR_SUCCESS) << LastError();
    PORT_REGISTER_STACK_ENTRY entries[] = {{0x0934, bytes, 4}, {0x0938, bytes + 4, 4}, {0x0940, bytes + 8, 4}};
    size_t count = std::size(entries);
    EXPECT_EQ(Gc().GCReadPortStacked(port, entries, &count), GC_ERR_SUCCESS) << LastError();
    EXPECT_EQ(count, 3U);
    PORT_REGISTER_STACK_ENTRY heartbeat[] = {{0x0938, bytes + 4, 4}, {0x0938, bytes + 4, 4}};
    count = std::size(heartbeat);
    EXPECT_EQ(Gc().GCWritePortStacked(port, heartbeat, &count), GC_ERR_SUCCESS) << LastError();
    size_t size = 16;
    EXPECT_EQ(Gc().GCWritePort(port, 0x00E8, "left\0\0\0\0\0\0\0\0\0\0\0", &size), GC_ERR_SUCCESS) << LastError();
    const EVENT_HANDLE events = Register(EVENT_REMOTE_DEVICE);
    const std::uint16_t messages = static_cast<std::uint16_t>(std::stoul(camera->Core().GetFeature("GevMCSP")));
    Set("EventSelector", "Test");
    Set("EventNotification", "On");
    Set("TestEventGenerate", "1");
    EXPECT_FALSE(Next(events).empty());
    EXPECT_EQ(Gc().DevClose(device), GC_ERR_SUCCESS);
    EXPECT_EQ(SetNumber(interface, "GevDeviceForceIPAddress", kSimulatedAddress), GC_ERR_SUCCESS);
    EXPECT_EQ(SetNumber(interface, "GevDeviceForceSubnetMask", 0xFF000000), GC_ERR_SUCCESS);
    EXPECT_EQ(SetNumber(interface, "GevDeviceForceIP", 1), GC_ERR_SUCCESS) << LastError();

    ASSERT_TRUE(capture.Stop());
    std::set<std::uint16_t> sent;
    std::string problem;
    for (orvsim::DissectedPacket &packet : capture.Dissect({{messages, "gvcp"}}, kFields, problem)) {
        SCOPED_TRACE("packet " + packet["frame.number"] + " " + packet["frame.protocols"]);
        for (const char *complaint : {"_ws.malformed", "_ws.short", "_ws.expert.message"})
            EXPECT_EQ(packet[complaint], "");
        if (!packet["gvcp.cmd.command"].empty())
            sent.insert(static_cast<std::uint16_t>(std::stoul(packet["gvcp.cmd.command"], nullptr, 0)));
    }
    EXPECT_EQ(problem, "");
    for (std::uint16_t command : {0x0002, 0x0004, 0x0080, 0x0082, 0x0084, 0x0086, 0x00C0})
        EXPECT_EQ(sent.count(command), 1U) << std::hex << command;
}
