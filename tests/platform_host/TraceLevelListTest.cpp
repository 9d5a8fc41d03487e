// Reading per-module trace levels from a KIV_TRACE value.

#include <gtest/gtest.h>

#include "TraceLevelList.h"

namespace {

using platform_host::detail::parseTraceLevelList;
using platform_host::detail::TraceLevelList;

TEST(TraceLevelListTest, OneModule) {
    TraceLevelList levels;
    ASSERT_TRUE(parseTraceLevelList("ZYN.TS:7", levels));
    EXPECT_EQ(levels, (TraceLevelList{{"ZYN.TS", 7}}));
}

TEST(TraceLevelListTest, SeveralModulesInOrder) {
    TraceLevelList levels;
    ASSERT_TRUE(parseTraceLevelList("ZYN.TS:7,OTHER:2,THIRD:0", levels));
    EXPECT_EQ(levels, (TraceLevelList{{"ZYN.TS", 7}, {"OTHER", 2}, {"THIRD", 0}}));
}

TEST(TraceLevelListTest, BlanksAroundNamesAndLevelsAreIgnored) {
    TraceLevelList levels;
    ASSERT_TRUE(parseTraceLevelList(" ZYN.TS : 7 ,\tOTHER:2 ", levels));
    EXPECT_EQ(levels, (TraceLevelList{{"ZYN.TS", 7}, {"OTHER", 2}}));
}

TEST(TraceLevelListTest, EmptyValueSetsNothing) {
    TraceLevelList levels{{"stale", 1}};
    EXPECT_TRUE(parseTraceLevelList("", levels));
    EXPECT_TRUE(levels.empty());
    EXPECT_TRUE(parseTraceLevelList("  ", levels));
    EXPECT_TRUE(levels.empty());
}

TEST(TraceLevelListTest, LastColonSeparatesNameFromLevel) {
    TraceLevelList levels;
    ASSERT_TRUE(parseTraceLevelList("NS:MODULE:5", levels));
    EXPECT_EQ(levels, (TraceLevelList{{"NS:MODULE", 5}}));
}

TEST(TraceLevelListTest, MalformedValuesAreRejectedWhole) {
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
        TraceLevelList levels;
        EXPECT_FALSE(parseTraceLevelList(value, levels)) << value;
        EXPECT_TRUE(levels.empty()) << value;
    }
}

}  // namespace
