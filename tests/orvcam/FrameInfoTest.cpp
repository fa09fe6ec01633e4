#include "orvcam/FrameInfo.h"
#include "orvimage/PixelFormats.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace orv::cam;
using Items = std::vector<std::pair<FrameItem, std::uint64_t>>;

constexpr std::uint64_t kWireMono8 = 0x01080001;
constexpr std::uint64_t kWireMono10p = 0x010A0046;
constexpr std::uint64_t kWireMono12Packed = 0x010C0006;
constexpr std::uint64_t kWireRgb8 = 0x02180014;
constexpr std::size_t kMemory = 100000;

struct ViewCase {
    const char *rule;
    Items items;
    std::uint32_t width, height, pitch;
    std::size_t dataSize, received;
    bool incomplete = false;
    std::size_t offset = 0;
    OrvLineLayout layout = ORV_LINES_PITCHED;
};

Items Frame(std::uint64_t wire, std::uint64_t width, std::uint64_t height, std::uint64_t filled, Items more = {})
{
    Items items = {{FrameItem::PixelFormat, wire},
                   {FrameItem::Width, width},
                   {FrameItem::Height, height},
                   {FrameItem::SizeFilled, filled}};
    items.insert(items.end(), more.begin(), more.end());
    return items;
}

const ViewCase kCases[] = {
    {"plain", Frame(kWireMono8, 10, 5, 50), 10, 5, 10, 50, 50},
    {"colour", Frame(kWireRgb8, 10, 5, 150), 10, 5, 30, 150, 150},
    {"padded lines", Frame(kWireMono8, 10, 5, 60, {{FrameItem::XPadding, 2}}), 10, 5, 12, 60, 60},
    {"padding missing behind the last line", Frame(kWireMono8, 10, 5, 58, {{FrameItem::XPadding, 2}}), 10, 5, 12, 58,
     58},
    {"chunks behind the image are not part of it", Frame(kWireMono8, 10, 5, 80), 10, 5, 10, 50, 80},
    {"image behind a header", Frame(kWireMono8, 10, 5, 66, {{FrameItem::ImageOffset, 16}}), 10, 5, 10, 50, 66, false,
     16},
    {"packed, whole bytes per line", Frame(kWireMono10p, 8, 2, 20), 8, 2, 10, 20, 20},
    {"packed, line ends inside a byte", Frame(kWireMono10p, 5, 3, 19), 5, 3, 6, 19, 19, false, 0, ORV_LINES_CONTINUOUS},
    {"packed, odd, with padding: lines start on bytes", Frame(kWireMono10p, 5, 2, 16, {{FrameItem::XPadding, 1}}), 5, 2,
     8, 16, 16},
    {"old packing of an odd total", Frame(kWireMono12Packed, 3, 3, 14), 3, 3, 4, 14, 14, false, 0,
     ORV_LINES_CONTINUOUS},
    {"fewer lines than set", Frame(kWireMono8, 10, 5, 30, {{FrameItem::DeliveredHeight, 3}}), 10, 3, 10, 30, 30},
    {"with a hole the size stays, up to what was meant",
     Frame(kWireMono8, 10, 5, 30,
           {{FrameItem::Incomplete, 1}, {FrameItem::DataSize, 50}, {FrameItem::DeliveredHeight, 3}}),
     10, 5, 10, 50, 30, true},
    {"fewer bytes than the picture needs", Frame(kWireMono8, 10, 5, 49), 10, 5, 10, 49, 49, true},
    {"larger than the buffer", Frame(kWireMono8, 65535, 65535, kMemory * 9, {{FrameItem::LargerThanBuffer, 1}}), 65535,
     65535, 65535, kMemory, kMemory, true},
    {"a filled size beyond the buffer", Frame(kWireMono8, 1000, 1000, ~0ull), 1000, 1000, 1000, kMemory, kMemory, true},
    {"an offset beyond the buffer", Frame(kWireMono8, 10, 5, 50, {{FrameItem::ImageOffset, ~0ull}}), 10, 5, 10, 0, 50,
     true, 50},
    {"sides that no camera has", Frame(kWireMono8, 1ull << 40, 1ull << 40, 50), 0, 0, 0, 50, 50, true},
    {"the many lines of a line camera", Frame(kWireMono8, 1, 70000, 70000), 1, 70000, 1, 70000, 70000},
    {"a line longer than usual", Frame(kWireMono8, 80000, 1, 80000), 80000, 1, 80000, 80000, 80000},
    {"more lines than the buffer holds", Frame(kWireMono8, 2, 70000, 50), 0, 0, 0, 50, 50, true},
    {"padding that no camera has", Frame(kWireMono8, 10, 5, 50, {{FrameItem::XPadding, ~0ull}}), 0, 0, 0, 50, 50, true},
    {"a file", Frame(kWireMono8, 10, 5, 50, {{FrameItem::PayloadType, 3}}), 0, 0, 0, 50, 50},
    {"no image this time", Frame(kWireMono8, 10, 5, 50, {{FrameItem::ImagePresent, 0}}), 0, 0, 0, 50, 50},
    {"pixels of unknown size are a whole frame", Frame(0x40000001, 10, 5, 50, {{FrameItem::XPadding, 2}}), 10, 5, 0, 50,
     50},
    {"and incomplete when the producer says so", Frame(0x40000001, 10, 5, 50, {{FrameItem::Incomplete, 1}}), 10, 5, 0,
     kMemory, 50, true},
    {"a producer that tells nothing", {}, 20, 4, 20, 80, kMemory},
};

FrameView ViewOfItems(const Items &items, const ConfiguredFormat &configured, std::vector<unsigned char> &memory)
{
    FrameInfo info;
    for (const auto &item : items)
        info.Set(item.first, item.second);
    return ViewOf(info, configured, memory.data(), memory.size());
}

TEST(FrameView, FollowsTheInfosButNeverBeyondTheBuffer)
{
    std::vector<unsigned char> memory(kMemory);
    ConfiguredFormat configured;
    configured.width = 20;
    configured.height = 4;
    configured.pixelFormat = kWireMono8;
    for (const ViewCase &row : kCases) {
        SCOPED_TRACE(row.rule);
        const FrameView view = ViewOfItems(row.items, configured, memory);
        EXPECT_EQ(row.width, view.image.width);
        EXPECT_EQ(row.height, view.image.height);
        EXPECT_EQ(row.pitch, view.image.linePitch);
        EXPECT_EQ(row.layout, view.image.lineLayout);
        EXPECT_EQ(row.dataSize, view.image.dataSize);
        EXPECT_EQ(row.received, view.receivedBytes);
        EXPECT_EQ(row.incomplete, view.incomplete);
        const auto *data = static_cast<unsigned char *>(view.image.data);
        EXPECT_EQ(memory.data() + row.offset, data);
        EXPECT_LE(data + view.image.dataSize, memory.data() + memory.size());
    }
}

TEST(FrameView, NanosecondsStandInForTicks)
{
    const struct {
        const char *rule;
        Items items;
        std::uint64_t ticksPerSecond, timestamp;
    } kRows[] = {
        {"ticks", {{FrameItem::Timestamp, 5}, {FrameItem::TimestampNs, 7}}, 1000, 5},
        {"nanoseconds", {{FrameItem::TimestampNs, 2500000000}}, 1000, 2500},
        {"long after the start", {{FrameItem::TimestampNs, 1700000000000000008}}, 125000000, 212500000000000001},
        {"of an unknown clock", {{FrameItem::TimestampNs, 7}}, 0, 7},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.rule);
        ConfiguredFormat configured;
        configured.ticksPerSecond = row.ticksPerSecond;
        std::vector<unsigned char> memory(1);
        EXPECT_EQ(row.timestamp, ViewOfItems(row.items, configured, memory).image.timestamp);
    }
}

TEST(FrameView, NamesTheFormat)
{
    std::vector<unsigned char> memory(kMemory);
    const struct {
        const char *rule;
        Items items;
        std::uint32_t pixelType, bitsPerPixel, significantBits, wireFormat;
    } kFormats[] = {
        {"mono", Frame(kWireMono8, 4, 4, 16), orv::kMono8, 8, 8, 0x01080001},
        {"ten bits in sixteen", Frame(0x01100003, 4, 4, 32), orv::kMono10, 16, 10, 0x01100003},
        {"colour", Frame(kWireRgb8, 4, 4, 48), orv::kRGB8, 24, 8, 0x02180014},
        {"a maker's own code keeps its size", Frame(0x81100123, 4, 4, 32), 0, 16, 16, 0x81100123},
        {"a maker's own code of 12 bits", Frame(0x810C0123, 4, 4, 24), 0, 12, 12, 0x810C0123},
        {"a name without a row in the table", Frame(0x0220001D, 2, 2, 16), 0, 32, 8, 0x0220001D},
        {"a code without a pixel size", Frame(0x40000001, 4, 4, 16), 0, 0, 8, 0x40000001},
        {"codes of another standard are not ours to read",
         Frame(kWireMono8, 4, 4, 16, {{FrameItem::PixelFormatNamespace, 2}}), 0, 8, 8, 0},
    };
    for (const auto &row : kFormats) {
        SCOPED_TRACE(row.rule);
        const FrameView view = ViewOfItems(row.items, {}, memory);
        EXPECT_EQ(row.pixelType, view.image.pixelType);
        EXPECT_EQ(row.bitsPerPixel, view.image.bitsPerPixel);
        EXPECT_EQ(row.significantBits, view.image.significantBits);
        EXPECT_EQ(row.wireFormat, view.image.wireFormat);
        EXPECT_GT(view.image.width, 0u);
    }
}

} // namespace
