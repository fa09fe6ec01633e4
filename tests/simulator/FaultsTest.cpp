#include "simulator/core/Faults.h"

#include <gtest/gtest.h>

#include <set>

namespace orvsim {

TEST(Faults, EveryRowHasItsOwnNamesAndExactlyOneMember)
{
    std::set<std::string> names;
    for (const FaultRow &row : FaultRows()) {
        EXPECT_TRUE(names.insert(row.feature).second) << row.feature;
        EXPECT_TRUE(names.insert(row.option).second) << row.option;
        EXPECT_NE(row.rate == nullptr, row.number == nullptr) << row.feature;
        const Faults none;
        if (row.number != nullptr) {
            EXPECT_LE(row.minimum, none.*row.number) << row.feature;
            EXPECT_GE(row.maximum, none.*row.number) << row.feature;
        }
    }
}

TEST(Faults, DiceFallAsOftenAsTheRateSaysAndAlikeForOneSeed)
{
    FaultDice first(7);
    FaultDice second(7);
    int count = 0;
    for (int i = 0; i < 20000; ++i) {
        const bool falls = first.Falls(0.1);
        ASSERT_EQ(falls, second.Falls(0.1));
        count += falls;
    }
    EXPECT_NEAR(count, 2000, 200);
    EXPECT_FALSE(first.Falls(0));
    EXPECT_TRUE(first.Falls(1.1));
}

} // namespace orvsim
