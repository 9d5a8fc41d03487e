#include "HandlerCheck.h"

#include <gtest/gtest.h>

namespace tickmon {
namespace {

TEST(HandlerCheck, ExpectedCallsAreDueOnTheFirstPassAndEveryIntervalAfter) {
    EXPECT_EQ(expectedCalls(0, 1), 0u);
    EXPECT_EQ(expectedCalls(1, 5), 1u);
    EXPECT_EQ(expectedCalls(5, 5), 1u);
    EXPECT_EQ(expectedCalls(6, 5), 2u);
    EXPECT_EQ(expectedCalls(9, 3), 3u);
    EXPECT_EQ(expectedCalls(10, 3), 4u);
    EXPECT_EQ(expectedCalls(1667, 1), 1667u);
}

TEST(HandlerCheck, IntervalZeroBehavesLikeOne) { EXPECT_EQ(expectedCalls(7, 0), 7u); }

TEST(HandlerCheck, FlagsEveryHandlerCalledTooOftenOrTooRarely) {
    const std::vector<HandlerVerdict> verdicts =
        checkHandlers(10, {{"right", 2, 5}, {"tooRare", 3, 3}, {"tooOften", 1, 11}, {"everyPass", 1, 10}});
    ASSERT_EQ(verdicts.size(), 4u);
    EXPECT_TRUE(verdicts[0].ok);
    EXPECT_EQ(verdicts[0].expected, 5u);
    EXPECT_FALSE(verdicts[1].ok);
    EXPECT_EQ(verdicts[1].expected, 4u);
    EXPECT_EQ(verdicts[1].calls, 3u);
    EXPECT_FALSE(verdicts[2].ok);
    EXPECT_TRUE(verdicts[3].ok);
    EXPECT_EQ(verdicts[1].name, "tooRare");
    EXPECT_EQ(verdicts[1].interval, 3u);
    EXPECT_FALSE(allHandlersOk(verdicts));
}

TEST(HandlerCheck, AllOkWhenEveryCountMatches) {
    EXPECT_TRUE(allHandlersOk(checkHandlers(6, {{"a", 1, 6}, {"b", 4, 2}})));
    EXPECT_TRUE(allHandlersOk({}));
}

}  // namespace
}  // namespace tickmon
