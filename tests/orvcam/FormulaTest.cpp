#include "BytePort.h"

#include "orvcam/FeatureArrayImp.h"
#include "orvcam/FormulaCheck.h"
#include "orvcam/Text.h"

#include <gtest/gtest.h>

namespace {

using namespace orv::cam;

/// Formulas of a node that may use LOW (the lowest number there is), MINUS (-1), HALF (-1.5), ZERO, TEN and SIX, and
/// the expression REST.
std::string Knife(const std::string &kind, const std::string &formula, const std::string &extra = "")
{
    return "<" + kind +
           " Name=\"K\"><pVariable Name=\"LOW\">Low</pVariable><pVariable Name=\"MINUS\">Minus</pVariable>"
           "<pVariable Name=\"HALF\">Half</pVariable><pVariable Name=\"ZERO\">Zero</pVariable>"
           "<pVariable Name=\"TEN\">Ten</pVariable><pVariable Name=\"SIX\">Six</pVariable>" +
           extra + "<Formula>" + XmlEscaped(formula) + "</Formula></" + kind +
           ">\n<Integer Name=\"Low\"><Value>-9223372036854775808</Value></Integer>"
           "<Integer Name=\"Minus\"><Value>-1</Value></Integer><Float Name=\"Half\"><Value>-1.5</Value></Float>"
           "<Integer Name=\"Zero\"><Value>0</Value></Integer><Integer Name=\"Ten\"><Value>10</Value></Integer>"
           "<Integer Name=\"Six\"><Value>6</Value></Integer>";
}

std::unique_ptr<FeatureArrayImp> Made(const std::string &nodes, BytePort &port)
{
    std::string error;
    return FeatureArrayImp::Create(DescriptionOf({"K"}, nodes), port, &error);
}

TEST(Formula, IntegersDivideAsTheyShould)
{
    const std::string rest = "<Expression Name=\"REST\">TEN % MINUS</Expression>";
    const struct {
        const char *formula;
        std::int64_t value;
    } kCases[] = {
        {"TEN / MINUS", -10},
        {"TEN % MINUS", 0},
        {"TEN / 3", 3},
        {"TEN % 4", 2},
        {"TEN / SIX * 5", 5},
        {"100 / TEN / MINUS / SIX", -1},
        {"100 - TEN / -SIX * 2 + 1", 103},
        {"TEN / -2 ** 2", 2},
        {"TEN / SIX ** 2 * TEN", 0},
        {"100 / (TEN / (TEN - 8))", 20},
        {"100 % (TEN % 7) + NEG(TEN) % SGN(SIX)", 1},
        {"(TEN > 5) ? (TEN / SIX) : TEN / 2", 1},
        {"7 % ~5", 1},
        {"SIX + REST - 1", 5},
        // Ended the process, or would have but for the guard.
        {"LOW / MINUS", INT64_MIN},
        {"LOW % MINUS", 0},
        {"0x8000000000000000 % (0-1)", 0},
        {"0x8000000000000000 / (0-1)", INT64_MIN},
        {"LOW / HALF", INT64_MIN},
        {"LOW % HALF", 0},
        {"LOW % ~ZERO", 0},
        {"LOW % -1", 0},
        {"LOW % 1 * -1 / TEN", 0},
        {"LOW % MINUS ** 1", 0},
        {"LOW % (SIX % (LOW % MINUS + 7) - 7)", 0},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.formula);
        BytePort port;
        const auto array = Made(Knife("IntSwissKnife", row.formula, rest), port);
        ASSERT_NE(nullptr, array);
        OrvCam::IntegerNode *node = array->GetInt("K");
        ASSERT_NE(nullptr, node);
        int status = -1;
        EXPECT_EQ(row.value, node->GetValue(&status));
        EXPECT_EQ(ORV_CAM_OK, status);
    }
}

TEST(Formula, FractionsDivideAsTheyShould)
{
    const struct {
        const char *formula;
        double value;
    } kCases[] = {
        {"TEN / HALF * 3", -20},    {"TEN / 4", 2.5},           {"TEN / MINUS", -10}, {"TEN % HALF", 0},
        {"LOW % HALF", 0},          {"LOW % MINUS", 0},         {"TEN % 4.5", 2},     {"1e1 % ABS(0 - 3.5)", 1},
        {"ROUND(TEN / 4, 0)", 3.0}, {"LOW % SIN(PI * 1.5)", 0},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.formula);
        BytePort port;
        const auto array = Made(Knife("SwissKnife", row.formula), port);
        ASSERT_NE(nullptr, array);
        OrvCam::FloatNode *node = array->GetFloat("K");
        ASSERT_NE(nullptr, node);
        EXPECT_DOUBLE_EQ(row.value, node->GetValue());
    }
}

TEST(Formula, WhatCannotBeCheckedIsLeftOut)
{
    const struct {
        const char *formula;
        const char *extra;
    } kCases[] = {
        {"LOW MINUS %", ""},
        {"LOW MINUS REM", "<Constant Name=\"REM\">%</Constant>"},
        {"LOW % 1 MINUS", ""},
        {"LOW % 1 SIN(1)", ""},
        {"LOW % (1, MINUS)", ""},
        {"LOW % (1 : MINUS)", ""},
        {"LOW % (1", ""},
        {"LOW % SUB", "<Expression Name=\"SUB\">1) MINUS (1</Expression>"},
        {"LOW + X % 1", "<Constant Name=\"X\">SIN</Constant>"},
        {"LOW SUB MINUS", "<Expression Name=\"SUB\">/</Expression>"},
        {"LOW / == 1", ""},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.formula);
        BytePort port;
        const auto array = Made(Knife("IntSwissKnife", row.formula, row.extra), port);
        ASSERT_NE(nullptr, array);
        EXPECT_EQ(nullptr, array->GetInt("K"));
    }
}

std::string Repeated(const std::string &text, int times)
{
    std::string all = "1";
    for (int i = 0; i < times; ++i)
        all += text;
    return all;
}

/// Or else the test's own time is over.
TEST(Formula, LongOnesEndSomewhere)
{
    const std::string nested = Repeated("/(1", 5000) + std::string(5000, ')');
    const std::string divided = Repeated("/(TEN", 30) + std::string(30, ')');
    const struct {
        const char *rule;
        std::string formula;
        std::string extra;
        bool isThere;
    } kCases[] = {
        {"long", Repeated("+1", 20000), "", true},
        {"too long", Repeated("+1", 40000), "", false},
        {"uses of an expression", Repeated("+AA", 100), "<Expression Name=\"AA\">1+1</Expression>", true},
        {"expression written out too often", Repeated("+AA", 12000),
         "<Expression Name=\"AA\">" + Repeated("+1", 12000) + "</Expression>", false},
        {"division in division without end", nested, "", false},
        {"division in division that doubles the text each time", divided, "", false},
    };
    for (const auto &row : kCases) {
        SCOPED_TRACE(row.rule);
        BytePort port;
        const auto array = Made(Knife("IntSwissKnife", row.formula, row.extra), port);
        ASSERT_NE(nullptr, array);
        OrvCam::IntegerNode *node = array->GetInt("K");
        EXPECT_EQ(row.isThere, node != nullptr);
        if (node != nullptr)
            node->GetValue();
    }
    // Each of these is short enough, but not all of them.
    std::string many;
    for (int i = 0; i < 300; ++i)
        many += "<IntSwissKnife Name=\"M" + std::to_string(i) + "\"><Expression Name=\"AA\">" + Repeated("+1", 500) +
                "</Expression><Formula>" + Repeated("+AA", 60) + "</Formula></IntSwissKnife>\n";
    BytePort port;
    const auto array = Made(many, port);
    ASSERT_NE(nullptr, array);
    EXPECT_NE(nullptr, array->GetInt("M0"));
    EXPECT_EQ(nullptr, array->GetInt("M299"));
}

/// Odd formulas stay what the library makes of them.
TEST(Formula, OddOnesCrashNothing)
{
    for (const char *formula : {"(1 / ZERO)", "(1 % ZERO)", "(1 << 9999)", "(9 ** 9999)", "(((", "", "1 +", ") 1 ("}) {
        SCOPED_TRACE(formula);
        BytePort port;
        const auto array = Made(Knife("IntSwissKnife", formula), port);
        ASSERT_NE(nullptr, array);
        if (OrvCam::IntegerNode *node = array->GetInt("K")) {
            node->GetValue();
            node->GetMax();
        }
    }
}

} // namespace
