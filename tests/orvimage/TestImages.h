#pragma once

#include "orvimage/OrvImage.h"
#include "orvimage/PixelFormats.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace orvtest {

/// An image over bytes that end exactly where the geometry says, so that a read beyond them is a read out of bounds.
class TestImage {
public:
    /// \param padding  bytes after each line, for pitched lines only.
    TestImage(std::uint32_t pixelType, std::uint32_t width, std::uint32_t height, std::uint32_t padding = 0,
              OrvLineLayout layout = ORV_LINES_PITCHED)
    {
        const std::uint64_t lineBits = std::uint64_t{width} * orv::BitsPerPixel(pixelType);
        const auto tight = static_cast<std::uint32_t>((lineBits + 7) / 8);
        const bool isContinuous = layout == ORV_LINES_CONTINUOUS;
        const std::size_t size =
            isContinuous ? (lineBits * height + 7) / 8 : std::size_t{tight + padding} * (height - 1) + tight;
        m_bytes = std::make_unique<std::uint8_t[]>(size);
        EXPECT_EQ(OrvCreateImageHeader(&m_image, width, height, pixelType, m_bytes.get(), size, tight + padding), 0);
        m_image->lineLayout = layout;
        if (isContinuous)
            m_image->linePitch = static_cast<std::uint32_t>(lineBits / 8);
    }
    ~TestImage() { OrvReleaseImageHeader(&m_image); }
    TestImage(const TestImage &) = delete;
    TestImage &operator=(const TestImage &) = delete;

    _OrvImage *get() const { return m_image; }
    _OrvImage *operator->() const { return m_image; }
    std::uint8_t *Bytes() const { return m_bytes.get(); }
    std::size_t Size() const { return m_image->dataSize; }

    void FillRandom(std::mt19937 &random)
    {
        for (std::size_t i = 0; i < Size(); ++i)
            m_bytes[i] = static_cast<std::uint8_t>(random());
    }

private:
    std::unique_ptr<std::uint8_t[]> m_bytes;
    _OrvImage *m_image = nullptr;
};

inline std::uint32_t TypeNamed(const std::string &name)
{
    const OrvColorModelDescription *const model = orv::FindColorModel(name);
    EXPECT_NE(model, nullptr) << name;
    return model == nullptr ? 0 : model->pixelType;
}

inline std::vector<std::uint8_t> FromHex(const std::string &text)
{
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i < text.size(); i += 3)
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
    return bytes;
}

} // namespace orvtest
