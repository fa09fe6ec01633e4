#include "orvdisplay/ColourMap.h"

#include <gtest/gtest.h>

namespace {

using Colours = orv::LevelColours;

TEST(ColourMap, Texts)
{
    const struct {
        const char *rule;
        const char *text;
        Colours colours; ///< empty: refused
    } kCases[] = {
        {"one entry", "0,0.5,1", {0xff0080ff}},
        {"two entries, as printed with four digits",
         "0.0000,0.0000,0.0000;1.0000,1.0000,1.0000",
         {0xff000000, 0xffffffff}},
        {"a separator at the end", "1,0,0;0,0,1;", {0xffff0000, 0xff0000ff}},
        {"empty", "", {}},
        {"only separators", ";;", {}},
        {"an empty entry", "1,0,0;;1,0,0", {}},
        {"two numbers", "1,0", {}},
        {"four numbers", "1,0,0,0", {}},
        {"above one", "1.01,0,0", {}},
        {"negative", "0,-0.5,0", {}},
        {"no number", "a,b,c", {}},
        {"not a number", "nan,0,0", {}},
        {"infinite", "inf,0,0", {}},
        {"exponent", "1e0,0,0", {}},
        {"blank before", " 1,0,0", {}},
        {"blank behind", "1,0,0 ", {}},
        {"decimal comma", "0,5,0,0,0,0", {}},
        {"missing separator", "1,0,0 0,0,1", {}},
    };
    for (const auto &row : kCases) {
        Colours colours = {7};
        const bool isGood = orv::ParseColourMap(row.text, colours);
        EXPECT_EQ(isGood, !row.colours.empty()) << row.rule;
        EXPECT_EQ(colours, isGood ? row.colours : Colours{7}) << row.rule;
    }
}

TEST(ColourMap, SixteenBitLevelsAndNoMore)
{
    std::string text;
    for (int i = 0; i < orv::kMaxColourMapEntries; ++i)
        text += "0.250000,0.500000,0.750000;";
    Colours colours;
    ASSERT_TRUE(orv::ParseColourMap(text, colours));
    EXPECT_EQ(colours.size(), 65536U);
    EXPECT_FALSE(orv::ParseColourMap(text + "0,0,0", colours));
}

} // namespace
