#include "CommaLocale.h"
#include "ParamFixture.h"

#include <gmock/gmock.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>

namespace {

using testing::Eq;

struct FormatCase {
    const char *rule;
    const char *name;
    const char *format;
    const char *expected; // "!n": refused with the status of low half n
};

constexpr char kRefused[] = "!7";

const FormatCase kFormatCases[] = {
    {"integer by default", "Int", nullptr, "-81985529216486896"},
    {"d takes all 64 bits", "Int", "%d", "-81985529216486896"},
    {"a short modifier does not cut", "Int", "%hhi", "-81985529216486896"},
    {"x shows the two's complement", "Int", "%x", "fedcba9876543210"},
    {"lX with flag", "Int", "%#lX", "0XFEDCBA9876543210"},
    {"u is unsigned", "Int", "%lu", "18364758544493064720"},
    {"width and text around", "Int", "a%%b %20lld c", "a%b   -81985529216486896 c"},
    {"integer as double", "Int", "%.3e", "-8.199e+16"},
    {"integer as string", "Int", "%s", kRefused},
    {"integer as character", "Int", "%c", kRefused},
    {"write-back conversion", "Int", "%n", kRefused},
    {"no conversion", "Int", "count", kRefused},
    {"empty format", "Int", "", kRefused},
    {"two conversions", "Int", "%d%d", kRefused},
    {"percent at the end", "Int", "%d%", kRefused},
    {"modifier at the end", "Int", "%ll", kRefused},
    {"width from an argument", "Int", "%*d", kRefused},
    {"precision from an argument", "Float", "%.*f", kRefused},
    {"numbered argument", "Int", "%1$d", kRefused},
    {"absurd width", "Int", "%1000000d", kRefused},
    {"absurd precision", "Float", "%.99999f", kRefused},
    {"float by default is shortest", "Float", nullptr, "29.97"},
    {"float with two decimals", "Float", "%.2f", "29.97"},
    {"float with modifier", "Float", "%lf", "29.970000"},
    {"float general", "Float", "%g fps", "29.97 fps"},
    {"float as integer", "Float", "%d", kRefused},
    {"boolean by default", "Bool", nullptr, "1"},
    {"boolean as integer", "Bool", "%02d", "01"},
    {"boolean as string", "Bool", "%s", kRefused},
    {"string by default", "String", nullptr, "50%s off"},
    {"string cut", "String", "[%.2s]", "[50]"},
    {"string as integer", "String", "%d", kRefused},
    {"array by default", "Array", nullptr, "00ff107f"},
    {"array as string", "Array", "0x%s", "0x00ff107f"},
    {"command", "Command", nullptr, ""},
    {"unknown", "Nothing", nullptr, "!2"},
};

void FillForFormat(EveryType &all)
{
    all.integer = -81985529216486896; // 0xfedcba9876543210
    all.number = 29.97;
    all.flag = true;
    std::strcpy(all.text, "50%s off");
    const unsigned char block[] = {0x00, 0xff, 0x10, 0x7f};
    std::memcpy(all.block, block, sizeof block);
}

TEST(ParamText, EachTypeIsWrittenByItsFormat)
{
    EveryType all;
    FillForFormat(all);
    for (const FormatCase &row : kFormatCases)
        EXPECT_THAT(all.Text(row.name, row.format), Eq(row.expected)) << row.rule;
}

struct ParseCase {
    const char *rule;
    const char *name;
    const char *text;
    std::uint32_t status;
    const char *after; // text form afterwards
};

constexpr char kMax[] = "9223372036854775807";
constexpr char kMin[] = "-9223372036854775808";

const ParseCase kParseCases[] = {
    {"largest integer", "Int", kMax, ORV_PARAM_OK, kMax},
    {"smallest integer", "Int", kMin, ORV_PARAM_OK, kMin},
    {"one beyond the largest", "Int", "9223372036854775808", ORV_PARAM_CLAMPED, kMax},
    {"far below the smallest", "Int", "-99999999999999999999", ORV_PARAM_CLAMPED, kMin},
    {"plus sign", "Int", "+12", ORV_PARAM_OK, "12"},
    {"two signs", "Int", "+-12", ORV_PARAM_BAD_VALUE, "5"},
    {"empty integer", "Int", "", ORV_PARAM_BAD_VALUE, "5"},
    {"fraction for an integer", "Int", "5.0", ORV_PARAM_BAD_VALUE, "5"},
    {"trailing junk", "Int", "12 ", ORV_PARAM_BAD_VALUE, "5"},
    {"leading blank", "Int", " 12", ORV_PARAM_BAD_VALUE, "5"},
    {"junk behind a huge number", "Int", "99999999999999999999x", ORV_PARAM_BAD_VALUE, "5"},
    {"float with point", "Float", "-0.125", ORV_PARAM_OK, "-0.125"},
    {"float with exponent", "Float", "1e3", ORV_PARAM_OK, "1000"},
    {"float with comma", "Float", "1,5", ORV_PARAM_BAD_VALUE, "5"},
    {"float with blank in front", "Float", " 1.5", ORV_PARAM_BAD_VALUE, "5"},
    {"float with unit", "Float", "1.5fps", ORV_PARAM_BAD_VALUE, "5"},
    {"empty float", "Float", "", ORV_PARAM_BAD_VALUE, "5"},
    {"not a number", "Float", "nan", ORV_PARAM_BAD_VALUE, "5"},
    {"float too large", "Float", "1e999", ORV_PARAM_CLAMPED, "1.7976931348623157e+308"},
    {"infinity", "Float", "-inf", ORV_PARAM_CLAMPED, "-1.7976931348623157e+308"},
    {"true by word", "Bool", "True", ORV_PARAM_OK, "1"},
    {"true by digit", "Bool", "1", ORV_PARAM_OK, "1"},
    {"false by word", "Bool", "false", ORV_PARAM_OK, "0"},
    {"other digit", "Bool", "2", ORV_PARAM_BAD_VALUE, "0"},
    {"empty boolean", "Bool", "", ORV_PARAM_BAD_VALUE, "0"},
    {"string that just fits", "String", "123456789012345", ORV_PARAM_OK, "123456789012345"},
    {"string one too long", "String", "1234567890123456", ORV_PARAM_BUFFER_TOO_SMALL, "before"},
    {"array in either case", "Array", "DEADbeef", ORV_PARAM_OK, "deadbeef"},
    {"odd number of digits", "Array", "deadbee", ORV_PARAM_BAD_VALUE, "00000000"},
    {"no hexadecimal digit", "Array", "deadbeeg", ORV_PARAM_BAD_VALUE, "00000000"},
    {"array too short", "Array", "dead", ORV_PARAM_BAD_VALUE, "00000000"},
    {"array too long", "Array", "deadbeef00", ORV_PARAM_BUFFER_TOO_SMALL, "00000000"},
    {"empty text of a command", "Command", "", ORV_PARAM_OK, ""},
    {"text for a command", "Command", "run", ORV_PARAM_BAD_VALUE, ""},
    {"unknown name", "Nothing", "1", ORV_PARAM_UNKNOWN_NAME, "!2"},
};

TEST(ParamText, EachTypeIsReadWholeOrNotAtAll)
{
    for (const ParseCase &row : kParseCases) {
        EveryType all;
        all.integer = 5;
        all.number = 5;
        std::strcpy(all.text, "before");
        EXPECT_EQ(all.store.SetParamAsString(Name(row.name), Name(row.text), true), row.status) << row.rule;
        EXPECT_THAT(all.Text(row.name), Eq(row.after)) << row.rule;
        EXPECT_EQ(all.runs, 0) << row.rule;
    }
}

TEST(ParamText, FloatsReadBackToTheSameValue)
{
    EveryType all;
    for (const double value : {0.1, 1.0 / 3, 1e22, 123456789.123456789, DBL_MIN, -DBL_MAX, 4.9e-324, 30.0}) {
        all.number = value;
        std::string text = all.Text("Float");
        all.number = -1;
        EXPECT_EQ(all.store.SetParamAsString(Name("Float"), text.data(), false), ORV_PARAM_OK) << text;
        EXPECT_EQ(all.number, value) << text;
    }
}

TEST(ParamText, APointIsAPointUnderACommaLocale)
{
    const CommaLocale comma;
    if (!comma.IsActive())
        GTEST_SKIP() << "no locale with a decimal comma can be loaded or compiled here";
    EveryType all;
    FillForFormat(all);
    all.integer = 1234567;
    EXPECT_EQ(all.Text("Float"), "29.97");
    EXPECT_EQ(all.Text("Float", "%.1f"), "30.0");
    EXPECT_EQ(all.Text("Int", "%.1f"), "1234567.0");
    EXPECT_EQ(all.store.SetParamAsString(Name("Float"), Name("2.5"), false), ORV_PARAM_OK);
    EXPECT_EQ(all.number, 2.5);
    EXPECT_EQ(all.store.SetParamAsString(Name("Float"), Name("2,5"), false), ORV_PARAM_BAD_VALUE);
    EXPECT_TRUE(comma.IsActive()) << "the process locale must be left alone";
}

} // namespace
