#include "acquisition/PixelReadOut.h"

#include "orvimage/PixelFormats.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

namespace {

struct ReadCase {
    const char *rule;
    std::uint32_t pixelType;
    int x, y;
    bool inside;
    int c0, c1, c2;
};

// A 4 x 2 image whose byte n holds n, tight lines.
const ReadCase kReadCases[] = {
    {"mono8 gives its byte alone", 0x01080101, 2, 1, true, -1, 6, -1},
    {"mono12 gives its word", 0x01100306, 1, 1, true, -1, 0x0b0a, -1},
    {"rgb8 in order", 0x02180171, 1, 0, true, 3, 4, 5},
    {"bgr8 is reported as r, g, b", 0x02180172, 1, 0, true, 5, 4, 3},
    {"rgba8 skips alpha", 0x02200173, 1, 1, true, 20, 21, 22},
    {"bgra8 is turned too", 0x02200174, 1, 1, true, 22, 21, 20},
    {"48 bits give three words", 0x0230057b, 0, 1, true, 0x1918, 0x1b1a, 0x1d1c},
    {"bayer8 has no channel of its own", 0x0308010d, 0, 0, true, -1, -1, -1},
    {"right of the last column", 0x01080101, 4, 0, false, 0, 0, 0},
    {"below the last line", 0x01080101, 0, 2, false, 0, 0, 0},
    {"left of the first column", 0x01080101, -1, 0, false, 0, 0, 0},
};

TEST(PixelReadOut, ReadsByFormat)
{
    std::vector<std::uint8_t> bytes(64);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
    for (const ReadCase &c : kReadCases) {
        SCOPED_TRACE(c.rule);
        _OrvImage image{};
        image.pixelType = c.pixelType;
        image.bitsPerPixel = orv::BitsPerPixel(c.pixelType);
        image.width = 4;
        image.height = 2;
        image.linePitch = 4 * image.bitsPerPixel / 8;
        image.data = bytes.data();
        image.dataSize = static_cast<std::size_t>(image.linePitch) * 2;
        PixelValue value;
        ASSERT_EQ(ReadPixel(image, c.x, c.y, &value), c.inside);
        if (!c.inside)
            continue;
        EXPECT_EQ(value.c0, c.c0);
        EXPECT_EQ(value.c1, c.c1);
        EXPECT_EQ(value.c2, c.c2);

        image.dataSize = 0; // described, but not there
        ASSERT_TRUE(ReadPixel(image, c.x, c.y, &value));
        EXPECT_EQ(value.c1, -1);
    }
}

} // namespace
