#include "cli/MessageEvents.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::vector<std::uint8_t> Bytes(const std::string &hex)
{
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        if (hex[i] == ' ')
            ++i;
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

TEST(MessageEvents, OfEveryFormOfPacket)
{
    const std::string plain = "00009002 00001234 000000E8 D4A51000";
    const std::string extended = "00189002 00000000 00000001 23456789 000000E8 D4A51000";
    const struct {
        const char *rule, *header;
        std::string body;
        std::vector<std::uint64_t> blocks;
        std::size_t data;
    } kCases[] = {
        {"one event", "420100C00010000A", plain, {0x1234}, 0},
        {"two in a packet", "420100C00020000A", plain + " " + plain, {0x1234, 0x1234}, 0},
        {"long ids", "421100C00018000B", extended, {0x123456789}, 0},
        {"data behind it", "420100C20014000C", plain + " 000061A8", {0x1234}, 4},
        {"long ids with data", "421100C2001C000D", "001C" + extended.substr(4) + " 000061A8", {0x123456789}, 4},
        {"two with data, by their sizes",
         "421100C20038000D",
         "001C" + extended.substr(4) + " 000061A8 001C" + extended.substr(4) + " 000061A8",
         {0x123456789, 0x123456789},
         4},
        {"a size that lies", "421100C20018000D", "FFFF" + extended.substr(4), {0x123456789}, 0},
        {"length says less", "420100C00008000A", plain, {}, 0},
        {"cut off", "420100C00020000A", plain + " 00009002", {0x1234}, 0},
        {"an acknowledge", "000000C10000000A", "", {}, 0},
        {"another command", "420100800010000A", plain, {}, 0},
        {"short", "4201", "", {}, 0},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.rule);
        const std::vector<std::uint8_t> packet = Bytes(row.header + row.body);
        const auto events = orvcli::ReadMessageEvents(packet.data(), packet.size());
        ASSERT_EQ(row.blocks.size(), events.size());
        for (std::size_t i = 0; i < events.size(); ++i) {
            EXPECT_EQ(0x9002, events[i].id);
            EXPECT_EQ(row.blocks[i], events[i].block);
            EXPECT_EQ(1000000000000u, events[i].timestamp);
            EXPECT_EQ(row.data, events[i].dataBytes);
        }
    }
}

} // namespace
