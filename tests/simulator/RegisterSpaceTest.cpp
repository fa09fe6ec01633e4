#include "simulator/features/RegisterSpace.h"

#include <gtest/gtest.h>

#include <vector>

namespace orvsim {

namespace {

using Bytes = std::vector<std::uint8_t>;

/// 0x100: a number of 4 bytes, 0x104: one of 8, 0x10C: text of 8, 0x114: a gap, 0x118: a block, 0x120: write-only,
/// and the last word of the address space.
struct Device {
    Device()
    {
        space.AddNumber(
            0x104, 8, RegisterAccess::ReadWrite, [this] { return wide; }, Keep(wide));
        space.AddNumber(
            0x100, 4, RegisterAccess::ReadWrite, [this] { return word; },
            [this](std::uint64_t value) {
                word = value;
                return value == 0xbad ? Outcome::InvalidValue : Outcome::Ok;
            });
        space.AddText(
            0x10c, 8, RegisterAccess::ReadWrite, [this] { return text; },
            [this](const std::string &value) {
                text = value;
                return Outcome::Ok;
            });
        space.AddBlock(0x118, "block");
        space.AddNumber(0x120, 4, RegisterAccess::WriteOnly, {}, Keep(word));
        space.AddNumber(0xfffffffc, 4, RegisterAccess::ReadOnly, [] { return 0x0badcafe; });
    }
    std::function<Outcome(std::uint64_t)> Keep(std::uint64_t &target)
    {
        return [&target](std::uint64_t value) {
            target = value;
            return Outcome::Ok;
        };
    }
    Bytes Read(std::uint32_t address, std::uint32_t size)
    {
        Bytes bytes(size, 0xee);
        EXPECT_EQ(space.Read(address, size, bytes.data()), Outcome::Ok);
        return bytes;
    }

    RegisterSpace space;
    std::uint64_t word = 0x01020304;
    std::uint64_t wide = 0x1112131415161718;
    std::string text = "abcdefgh"; // full: no terminator
};

} // namespace

TEST(RegisterSpace, AReadSpansRegistersAndPartsOfThem)
{
    Device device;
    EXPECT_EQ(device.Read(0x100, 4), (Bytes{1, 2, 3, 4}));
    EXPECT_EQ(device.Read(0x108, 8), (Bytes{0x15, 0x16, 0x17, 0x18, 'a', 'b', 'c', 'd'}));
    EXPECT_EQ(device.Read(0x100, 20).back(), 'h');
    EXPECT_EQ(device.Read(0x11c, 4), (Bytes{'k', 0, 0, 0}));
    EXPECT_EQ(device.Read(0xfffffffc, 4), (Bytes{0x0b, 0xad, 0xca, 0xfe}));
    device.text = "too long for it";
    EXPECT_EQ(device.Read(0x110, 4), (Bytes{'l', 'o', 'n', 'g'}));
}

TEST(RegisterSpace, APartialWriteKeepsTheRest)
{
    Device device;
    const Bytes bytes = {0xa1, 0xa2, 0xa3, 0xa4, 'X', 'Y', 0, 'Z'};
    EXPECT_EQ(device.space.Write(0x108, 8, bytes.data()), Outcome::Ok);
    EXPECT_EQ(device.wide, 0x11121314a1a2a3a4u);
    EXPECT_EQ(device.text, "XY") << "text ends at the first zero";
    EXPECT_EQ(device.space.Write(0x120, 4, bytes.data()), Outcome::Ok);
    EXPECT_EQ(device.word, 0xa1a2a3a4u);
}

TEST(RegisterSpace, RefusesWhatCannotBeAccessed)
{
    struct Case {
        const char *rule;
        std::uint32_t address;
        std::uint32_t size;
        Outcome read;
        Outcome write;
    };
    const Case cases[] = {
        {"odd address", 0x102, 4, Outcome::BadAlignment, Outcome::BadAlignment},
        {"odd size", 0x100, 6, Outcome::BadAlignment, Outcome::BadAlignment},
        {"gap", 0x114, 4, Outcome::NoSuchAddress, Outcome::NoSuchAddress},
        {"runs into a gap", 0x110, 8, Outcome::NoSuchAddress, Outcome::NoSuchAddress},
        {"before the first", 0xfc, 4, Outcome::NoSuchAddress, Outcome::NoSuchAddress},
        {"beyond the last", 0x124, 4, Outcome::NoSuchAddress, Outcome::NoSuchAddress},
        {"past the end of the space", 0xfffffffc, 8, Outcome::NoSuchAddress, Outcome::NoSuchAddress},
        {"read-only", 0x118, 8, Outcome::Ok, Outcome::ReadOnly},
        {"write-only", 0x120, 4, Outcome::WriteOnly, Outcome::Ok},
        {"nothing", 0x100, 0, Outcome::Ok, Outcome::Ok},
    };
    for (const Case &row : cases) {
        SCOPED_TRACE(row.rule);
        Device device;
        Bytes bytes(8);
        EXPECT_EQ(device.space.Read(row.address, row.size, bytes.data()), row.read);
        EXPECT_EQ(device.space.Write(row.address, row.size, bytes.data()), row.write);
    }
}

TEST(RegisterSpace, AWriteStopsAtTheFirstRefusal)
{
    Device device;
    Bytes bytes(12, 0);
    bytes[2] = 0x0b;
    bytes[3] = 0xad;
    EXPECT_EQ(device.space.Write(0x100, 12, bytes.data()), Outcome::InvalidValue);
    EXPECT_EQ(device.wide, 0x1112131415161718u);
    const Bytes across(16, 0);
    EXPECT_EQ(device.space.Write(0x108, 16, across.data()), Outcome::NoSuchAddress);
    EXPECT_EQ(device.wide, 0x1112131400000000u) << "registers before the gap keep what they were given";
}

} // namespace orvsim
