// Reading per-module trace levels from a KIV_TRACE value.

#include <gtest/gtest.h>

#include "TraceLevelSpec.h"

namespace {

using platform_host::detail::parseTraceLevelSpec;
using platform_host::detail::TraceLevelSpec;

TEST(TraceLevelSpecTest, OneModule) {
    TraceLevelSpec levels;
    ASSERT_TRUE(parseTraceLevelSpec("ZYN.TS:7", levels));
    EXPECT_EQ(levels, (TraceLevelSpec{{"ZYN.TS", 7}}));
}

TEST(TraceLevelSpecTest, SeveralModulesInOrder) {
    TraceLevelSpec levels;
    ASSERT_TRUE(parseTraceLevelSpec("ZYN.TS:7,OTHER:2,THIRD:0", levels));
    EXPECT_EQ(levels, (TraceLevelSpec{{"ZYN.TS", 7}, {"OTHER", 2}, {"THIRD", 0}}));
}

TEST(TraceLevelSpecTest, BlanksAroundNamesAndLevelsAreIgnored) {
    TraceLevelSpec levels;
    ASSERT_TRUE(parseTraceLevelSpec(" ZYN.TS : 7 ,\tOTHER:2 ", levels));
    EXPECT_EQ(levels, (TraceLevelSpec{{"ZYN.TS", 7}, {"OTHER", 2}}));
}

TEST(TraceLevelSpecTest, EmptyValueSetsNothing) {
    TraceLevelSpec levels{{"stale", 1}};
    EXPECT_TRUE(parseTraceLevelSpec("", levels));
    EXPECT_TRUE(levels.empty());
    EXPECT_TRUE(parseTraceLevelSpec("  ", levels));
    EXPECT_TRUE(levels.empty());
}

TEST(TraceLevelSpecTest, LastColonSeparatesNameFromLevel) {
    TraceLevelSpec levels;
    ASSERT_TRUE(parseTraceLevelSpec("NS:MODULE:5", levels));
    EXPECT_EQ(levels, (TraceLevelSpec{{"NS:MODULE", 5}}));
}

TEST(TraceLevelSpecTest, MalformedValuesAreRejectedWhole) {
    const char* const malformed[] = {
        "ZYN.TS",          // no level
        "ZYN.TS:",         // empty level
        ":3",              // empty name
        "ZYN.TS:8",        // above the highest level
        "ZYN.TS:x",        // not a number
        "ZYN.TS:-1",       // not a number
        "ZYN.TS:007",      // too many digits
        "ZYN.TS:7,",       // empty entry at the end
        "A:1,,B:2",        // empty entry in the middle
        "ZYN.TS:7,OTHER",  // one good entry does not save a bad one
        "ZYN.TS:7 2",      // two numbers
    };
    for (const char* value : malformed) {
        TraceLevelSpec levels;
        EXPECT_FALSE(parseTraceLevelSpec(value, levels)) << value;
        EXPECT_TRUE(levels.empty()) << value;
    }
}

}  // namespace
