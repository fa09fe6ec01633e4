#include "InfoChecks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace {

constexpr std::uint8_t kUntouched = 0xEE;

} // namespace

std::string Readable(INFO_DATATYPE type, const std::vector<std::uint8_t> &bytes, size_t size)
{
    if (type == kText)
        return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size) - 1};
    std::uint64_t number = 0;
    std::memcpy(&number, bytes.data(), std::min(size, sizeof number));
    return std::to_string(number);
}

void CheckAnswer(const std::string &what, const InfoRow &row, const Query &query)
{
    INFO_DATATYPE type = INFO_DATATYPE_UNKNOWN;
    size_t needed = 12345;
    const GC_ERROR code = query(row.command, &type, nullptr, &needed);
    ASSERT_EQ(code, row.expected) << what;
    if (row.expected != GC_ERR_SUCCESS) {
        EXPECT_EQ(needed, 12345U) << what << ": a failing call changes nothing";
        return;
    }
    EXPECT_EQ(type, row.type) << what;
    ASSERT_GT(needed, 0U) << what;
    std::vector<std::uint8_t> bytes(needed + 1, kUntouched);
    size_t size = needed + 1;
    EXPECT_EQ(query(row.command, nullptr, bytes.data(), &size), GC_ERR_SUCCESS) << what << ": no type wanted";
    EXPECT_EQ(size, needed) << what;
    EXPECT_EQ(bytes.back(), kUntouched) << what;
    if (type == kText) {
        EXPECT_EQ(std::find(bytes.begin(), bytes.end(), 0) - bytes.begin() + 1, static_cast<std::ptrdiff_t>(needed));
        EXPECT_GT(needed, 1U) << what << ": no text of this camera is empty";
    }
    if (row.value != nullptr) {
        EXPECT_EQ(Readable(type, bytes, needed), row.value) << what;
    }
    std::fill(bytes.begin(), bytes.end(), kUntouched);
    size = needed - 1;
    EXPECT_EQ(query(row.command, &type, bytes.data(), &size), GC_ERR_BUFFER_TOO_SMALL) << what;
    EXPECT_EQ(size, needed - 1) << what;
    EXPECT_EQ(bytes, std::vector<std::uint8_t>(needed + 1, kUntouched)) << what;
    EXPECT_EQ(query(row.command, &type, bytes.data(), nullptr), GC_ERR_INVALID_PARAMETER) << what;
    EXPECT_EQ(query(row.command, &type, reinterpret_cast<void *>(~std::uintptr_t{0}), &size), GC_ERR_INVALID_PARAMETER)
        << what;
}

void CheckAll(const std::string &function, const std::vector<InfoRow> &rows, const Query &query)
{
    for (const InfoRow &row : rows)
        CheckAnswer(function + " " + std::to_string(row.command), row, query);
}
