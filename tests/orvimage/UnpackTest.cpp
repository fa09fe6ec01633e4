#include "TestImages.h"

#include "orvimage/Kernels.h"
#include "orvimage/Samples.h"

#include <hwy/targets.h>

using orvtest::FromHex;
using orvtest::TypeNamed;

namespace {

struct UnpackCase {
    const char *format;
    const char *bytes;
    std::vector<std::uint16_t> samples;
};

const UnpackCase kCases[] = {
    {"Mono8", "00 7f ff", {0x00, 0x7f, 0xff}},
    {"Mono12", "bc 0a", {0xabc}},
    {"Mono10", "af 02", {0x2af}},
    {"Mono16", "34 12", {0x1234}},
    {"Mono10p", "af 8e f4 7f 00", {0x2af, 0x123, 0x3ff, 0x001}},
    {"Mono12p", "bc 3a 12", {0xabc, 0x123}},
    {"Mono12p", "bc 0a", {0xabc}}, // an odd line ends inside a group
    {"Mono10Packed", "ab 33 48", {0x2af, 0x123}},
    {"Mono12Packed", "ab 3c 12", {0xabc, 0x123}},
    {"Mono12Packed", "ab 3c 12 de 0f", {0xabc, 0x123, 0xdef}},
    {"BayerRG10p", "af 8e f4 7f 00", {0x2af, 0x123, 0x3ff, 0x001}},
    {"BayerGB12Packed", "ab 3c 12", {0xabc, 0x123}},
    {"RGB10Dense", "af 8e f4 3f", {0x2af, 0x123, 0x3ff}},
};

TEST(Unpack, BytesOfEachPacking)
{
    for (const UnpackCase &row : kCases) {
        const std::vector<std::uint8_t> bytes = FromHex(row.bytes);
        const orv::PixelLayout layout = orv::LayoutOf(TypeNamed(row.format));
        const orv::SampleRun line{bytes.data(), bytes.data() + bytes.size(), 0};
        std::vector<std::uint16_t> samples(row.samples.size());
        orv::UnpackSamples(line, layout, 0, static_cast<int>(samples.size()), samples.data());
        EXPECT_EQ(samples, row.samples) << row.format;

        std::vector<std::uint8_t> stored(bytes.size());
        for (std::size_t k = 0; k < samples.size(); ++k)
            orv::StoreSample(stored.data(), layout.packing, layout.bits, k, samples[k]);
        EXPECT_EQ(stored, bytes) << row.format;
    }
}

/// Runs a check on every vector width that this processor has, not only on the best.
template <class Check> void OnEveryProcessorTarget(Check check)
{
    std::int64_t remaining = hwy::SupportedTargets();
    while (remaining != 0) {
        const std::int64_t target = remaining & -remaining;
        remaining &= ~target;
        hwy::SetSupportedTargetsForTest(target);
        SCOPED_TRACE(hwy::TargetName(target));
        check();
    }
    hwy::SetSupportedTargetsForTest(0);
}

TEST(Unpack, LongLinesFromAnyStartEqualTheSamplesOneByOne)
{
    OnEveryProcessorTarget([] {
        std::mt19937 random(1);
        for (const char *name : {"Mono8", "Mono12", "Mono10p", "Mono12p", "Mono10Packed", "Mono12Packed"}) {
            const orv::PixelLayout layout = orv::LayoutOf(TypeNamed(name));
            for (int round = 0; round < 60; ++round) {
                const auto start = random() % 40; // of the run: a continuous line may begin inside a group
                const int first = static_cast<int>(random() % 20);
                const int count = static_cast<int>(1 + random() % 300);
                const std::size_t total = start + static_cast<std::size_t>(first + count);
                std::vector<std::uint8_t> bytes((total * static_cast<std::size_t>(layout.bitsPerPixel) + 7) / 8);
                for (std::uint8_t &byte : bytes)
                    byte = static_cast<std::uint8_t>(random());
                const orv::SampleRun line{bytes.data(), bytes.data() + bytes.size(), start};
                std::vector<std::uint16_t> samples(static_cast<std::size_t>(count));
                std::vector<std::uint8_t> eight(static_cast<std::size_t>(count));
                orv::UnpackSamples(line, layout, first, count, samples.data());
                orv::UnpackToEight(line, layout, layout.bits - 8, first, count, eight.data());
                for (int i = 0; i < count; ++i) {
                    const auto k = static_cast<std::size_t>(i);
                    const std::uint16_t expected =
                        orv::SampleAt(line, layout.packing, layout.bits, start + static_cast<unsigned>(first + i));
                    ASSERT_EQ(samples[k], expected) << name << " sample " << i << " of " << count;
                    ASSERT_EQ(eight[k], std::min(expected >> (layout.bits - 8), 255)) << name;
                }
            }
        }
    });
}

TEST(Kernels, VectorsEqualThePlainVersion)
{
    OnEveryProcessorTarget([] {
        std::mt19937 random(2);
        for (int length = 1; length < 300; length += 1 + length / 20) {
            const auto size = static_cast<std::size_t>(length);
            std::vector<std::uint8_t> lines[4];
            for (auto &line : lines) {
                line.resize(2 * size);
                for (std::uint8_t &byte : line)
                    byte = static_cast<std::uint8_t>(random());
            }
            std::vector<std::uint8_t> selection(size / 8 + 1 + orv::kKernelSlack);
            for (std::uint8_t &byte : selection)
                byte = static_cast<std::uint8_t>(random() & random());
            using Sums = std::vector<std::uint16_t>;
            const auto expectPicked = [&](const Sums &fast, const Sums &plain, const char *what) {
                std::size_t picked = 0;
                for (int x = 0; x < length; ++x)
                    picked += selection[static_cast<std::size_t>(x) / 8] >> x % 8 & 1;
                EXPECT_TRUE(std::equal(fast.begin(), fast.begin() + static_cast<long>(picked), plain.begin()))
                    << what << ' ' << length;
            };
            Sums fast(3 * (size + orv::kKernelSlack));
            Sums plain(fast.size());
            const orv::LinePair pair{lines[0].data(), lines[1].data(), 64};
            const orv::Selection columns{selection.data(), length};
            orv::PickWords(pair, 4, columns, fast.data());
            orv::plain::PickWords(pair, 4, columns, plain.data());
            expectPicked(fast, plain, "words");

            for (int variant = 0; variant < 4; ++variant) {
                const bool isPair = variant % 2 != 0;
                const orv::CellLines cells{{lines[0].data(), isPair ? lines[2].data() : nullptr},
                                           {lines[1].data(), isPair ? lines[3].data() : nullptr},
                                           0};
                const auto sumsOf = [&](Sums &sums) {
                    const std::size_t stride = size + orv::kKernelSlack;
                    return orv::CellSums{sums.data(), sums.data() + stride, sums.data() + 2 * stride};
                };
                orv::PickCells(cells, variant / 2, columns, sumsOf(fast));
                orv::plain::PickCells(cells, variant / 2, columns, sumsOf(plain));
                for (std::size_t colour = 0; colour < 3; ++colour) {
                    const auto from = static_cast<long>(colour * (size + orv::kKernelSlack));
                    expectPicked(Sums(fast.begin() + from, fast.end()), Sums(plain.begin() + from, plain.end()),
                                 "cells");
                }
                const orv::MosaicLines mosaic{lines[0].data(), lines[1].data(), lines[2].data(), isPair, variant / 2};
                std::vector<std::uint32_t> colours(size);
                std::vector<std::uint32_t> expected(size);
                orv::DemosaicLine(mosaic, length, colours.data());
                orv::plain::DemosaicLine(mosaic, length, expected.data());
                EXPECT_EQ(colours, expected) << "mosaic line of " << length;
            }
        }
    });
}

} // namespace
