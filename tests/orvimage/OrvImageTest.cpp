#include "TestImages.h"

#include "orvimage/Samples.h"

using orvtest::TestImage;
using orvtest::TypeNamed;

namespace {

TEST(OrvImage, CreateGivesZeroedPixelsAndTightLines)
{
    _OrvImage *image = nullptr;
    ASSERT_EQ(OrvCreateImage(&image, 5, 3, TypeNamed("Mono12p")), ORV_IMAGE_OK);
    EXPECT_EQ(image->linePitch, 8U); // 60 bits
    EXPECT_EQ(image->dataSize, 24U);
    EXPECT_EQ(image->significantBits, 12U);
    EXPECT_EQ(image->bitsPerPixel, 12U);
    const auto *const bytes = static_cast<const std::uint8_t *>(image->data);
    EXPECT_TRUE(std::all_of(bytes, bytes + 24, [](std::uint8_t byte) { return byte == 0; }));
    EXPECT_EQ(OrvReleaseImage(&image), ORV_IMAGE_OK);
    EXPECT_EQ(image, nullptr);
    EXPECT_EQ(OrvReleaseImage(&image), ORV_IMAGE_OK);
    EXPECT_EQ(OrvReleaseImage(nullptr), ORV_IMAGE_OK);
    EXPECT_EQ(OrvReleaseImageHeader(nullptr), ORV_IMAGE_OK);
}

TEST(OrvImage, CreateRefusesWhatCannotBe)
{
    _OrvImage *image = reinterpret_cast<_OrvImage *>(1);
    const struct {
        const char *rule;
        std::uint32_t width, height, pixelType;
        int status;
    } kCases[] = {
        {"no width", 0, 1, orv::kMono8, ORV_IMAGE_ERR_INVALID_ARGUMENT},
        {"no height", 1, 0, orv::kMono8, ORV_IMAGE_ERR_INVALID_ARGUMENT},
        {"beyond 16 bits", 65536, 1, orv::kMono8, ORV_IMAGE_ERR_INVALID_ARGUMENT},
        {"wire code", 4, 4, 0x01080001, ORV_IMAGE_ERR_UNKNOWN_FORMAT},
        {"code almost right", 4, 4, 0x01090101, ORV_IMAGE_ERR_UNKNOWN_FORMAT},
    };
    for (const auto &row : kCases) {
        EXPECT_EQ(OrvCreateImage(&image, row.width, row.height, row.pixelType), row.status) << row.rule;
        EXPECT_EQ(image, nullptr) << row.rule;
    }
    EXPECT_EQ(OrvCreateImage(nullptr, 4, 4, orv::kMono8), ORV_IMAGE_ERR_INVALID_ARGUMENT);
    std::uint8_t pixels[16];
    EXPECT_EQ(OrvCreateImageHeader(&image, 4, 4, orv::kMono16, pixels, 16, 7), ORV_IMAGE_ERR_INVALID_ARGUMENT)
        << "pitch below the line's bytes";
}

TEST(OrvImage, HeaderBorrowsItsPixels)
{
    std::uint8_t pixels[12] = {};
    _OrvImage *header = nullptr;
    ASSERT_EQ(OrvCreateImageHeader(&header, 4, 3, orv::kMono8, pixels, sizeof pixels, 0), ORV_IMAGE_OK);
    EXPECT_EQ(header->data, pixels);
    EXPECT_EQ(header->linePitch, 4U);
    EXPECT_FALSE(header->ownsData);
    OrvReleaseImageHeader(&header); // a double free would be seen by the sanitizer
    ASSERT_EQ(OrvCreateImageHeader(&header, 4, 3, orv::kMono8, nullptr, 99, 0), ORV_IMAGE_OK);
    EXPECT_EQ(header->dataSize, 0U);
    OrvReleaseImage(&header);
}

TEST(OrvImage, CopyRefusesOtherFormats)
{
    TestImage source(orv::kMono8, 4, 4);
    TestImage wider(orv::kMono8, 5, 4);
    TestImage higher(orv::kMono8, 4, 5);
    TestImage other(orv::kBayerGR8, 4, 4);
    for (const TestImage *destination : {&wider, &higher, &other})
        EXPECT_EQ(OrvCopyImage(destination->get(), source.get()), ORV_IMAGE_ERR_MISMATCH);
    EXPECT_EQ(OrvCopyImage(nullptr, source.get()), ORV_IMAGE_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(OrvCopyImage(source.get(), nullptr), ORV_IMAGE_ERR_INVALID_ARGUMENT);
}

TEST(OrvImage, CopyHandsOnTheFramesFigures)
{
    TestImage source(orv::kMono16, 3, 2);
    TestImage destination(orv::kMono16, 3, 2);
    source->timestamp = 123456789012345;
    source->frameId = 42;
    source->significantBits = 12;
    source->wireFormat = 0x01100005;
    ASSERT_EQ(OrvCopyImage(destination.get(), source.get()), ORV_IMAGE_OK);
    EXPECT_EQ(destination->timestamp, 123456789012345U);
    EXPECT_EQ(destination->frameId, 42U);
    EXPECT_EQ(destination->significantBits, 12U);
    EXPECT_EQ(destination->wireFormat, 0x01100005U);
}

/// The samples of all lines, one by one.
std::vector<std::uint16_t> SamplesOf(const TestImage &image)
{
    const orv::PixelLayout layout = orv::LayoutOf(image->pixelType);
    const bool isContinuous = image->lineLayout == ORV_LINES_CONTINUOUS;
    const std::uint64_t perLine = std::uint64_t{image->width} * static_cast<std::uint64_t>(layout.samplesPerPixel);
    std::vector<std::uint16_t> samples;
    for (std::uint64_t y = 0; y < image->height; ++y) {
        const std::uint8_t *const origin = image.Bytes() + (isContinuous ? 0 : y * image->linePitch);
        for (std::uint64_t k = 0; k < perLine; ++k)
            samples.push_back(
                orv::SampleAt({origin, origin, 0}, layout.packing, layout.bits, k + (isContinuous ? y * perLine : 0)));
    }
    return samples;
}

/// The bytes with the samples' bits cleared: what belongs to no sample.
std::vector<std::uint8_t> Surroundings(const TestImage &image)
{
    const orv::PixelLayout layout = orv::LayoutOf(image->pixelType);
    const bool isContinuous = image->lineLayout == ORV_LINES_CONTINUOUS;
    const std::uint64_t perLine = std::uint64_t{image->width} * static_cast<std::uint64_t>(layout.samplesPerPixel);
    std::vector<std::uint8_t> bytes(image.Bytes(), image.Bytes() + image.Size());
    for (std::uint64_t y = 0; y < image->height; ++y) {
        std::uint8_t *const origin = bytes.data() + (isContinuous ? 0 : y * image->linePitch);
        for (std::uint64_t k = 0; k < perLine; ++k)
            orv::StoreSample(origin, layout.packing, layout.bits, k + (isContinuous ? y * perLine : 0), 0);
    }
    return bytes;
}

TEST(OrvImage, CopyBetweenAllLineLayouts)
{
    std::mt19937 random(7);
    for (const char *name : {"Mono8", "Mono12", "Mono10p", "Mono12p", "Mono10Packed", "Mono12Packed", "RGB8",
                             "RGB10Dense", "YUV422_10_PACKED", "TrueSense_GBRG_WGGW_1_10"}) {
        for (const std::uint32_t width : {1U, 2U, 7U, 8U, 61U, 1501U}) {
            for (int kinds = 0; kinds < 4; ++kinds) {
                const auto layoutOf = [&](int bit) {
                    return (kinds & bit) != 0 ? ORV_LINES_CONTINUOUS : ORV_LINES_PITCHED;
                };
                TestImage source(TypeNamed(name), width, 5, 3, layoutOf(1));
                TestImage destination(TypeNamed(name), width, 5, 1, layoutOf(2));
                source.FillRandom(random);
                destination.FillRandom(random);
                const std::vector<std::uint8_t> around = Surroundings(destination);
                ASSERT_EQ(OrvCopyImage(destination.get(), source.get()), ORV_IMAGE_OK) << name;
                ASSERT_EQ(SamplesOf(destination), SamplesOf(source)) << name << ' ' << width << ' ' << kinds;
                const bool sharesBytes = kinds != 0 && width * orv::BitsPerPixel(source->pixelType) % 8 != 0;
                if (sharesBytes) {
                    ASSERT_EQ(Surroundings(destination), around) << name << ' ' << width << ' ' << kinds;
                }
            }
        }
    }
}

TEST(OrvImage, CopyOfShortSourceKeepsTheMissingLines)
{
    const struct {
        const char *rule;
        std::size_t bytes;
        int linesCopied;
    } kCases[] = {{"nothing", 0, 0},         {"less than a line", 3, 0},
                  {"a line", 4, 1},          {"a line and padding", 6, 1},
                  {"all but a byte", 15, 2}, {"all", 16, 3}};
    for (const auto &row : kCases) {
        TestImage source(orv::kMono8, 4, 3, 2);
        TestImage destination(orv::kMono8, 4, 3);
        std::memset(source.Bytes(), 0x11, source.Size());
        std::memset(destination.Bytes(), 0x77, destination.Size());
        source->dataSize = row.bytes;
        EXPECT_EQ(OrvCopyImage(destination.get(), source.get()),
                  row.linesCopied == 3 ? ORV_IMAGE_OK : ORV_IMAGE_ERR_TOO_SHORT)
            << row.rule;
        for (int y = 0; y < 3; ++y)
            EXPECT_EQ(destination.Bytes()[4 * y + 3], y < row.linesCopied ? 0x11 : 0x77) << row.rule << ' ' << y;
    }
}

} // namespace
