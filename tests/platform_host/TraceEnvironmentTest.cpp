// KIV_TRACE sets levels per module name. This executable runs with
// KIV_TRACE=" ZYN.TS:7, OTHER.MODULE:2,LATER.MODULE:4 ".

#include <gtest/gtest.h>

#include <cstdlib>

#include "KivTrace.h"
#include "PlatformHost/TraceHost.h"

namespace {

TEST(TraceEnvironmentTest, EnvironmentLevelReplacesTheConstructorLevel) {
    const KivTrace raised("ZYN.TS", KIV_TRACE_NOTICE, KIV_TRACE_HDR_FUNCTION);
    const KivTrace lowered("OTHER.MODULE", KIV_TRACE_INFO, KIV_TRACE_HDR_FUNCTION);
    EXPECT_TRUE(raised.isEnabled(KIV_TRACE_DETAIL));
    EXPECT_TRUE(lowered.isEnabled(KIV_TRACE_WARNING));
    EXPECT_FALSE(lowered.isEnabled(KIV_TRACE_NOTICE));
    EXPECT_EQ(platform_host::traceLevel("ZYN.TS"), 7u);
    EXPECT_EQ(platform_host::traceLevel("OTHER.MODULE"), 2u);
}

TEST(TraceEnvironmentTest, ModulesNotNamedKeepTheirConstructorLevel) {
    const KivTrace unnamed("UNNAMED.MODULE", KIV_TRACE_STATUS, KIV_TRACE_HDR_FUNCTION);
    EXPECT_TRUE(unnamed.isEnabled(KIV_TRACE_STATUS));
    EXPECT_FALSE(unnamed.isEnabled(KIV_TRACE_INFO));
}

TEST(TraceEnvironmentTest, EnvironmentIsReadOnlyOnce) {
    const KivTrace first("ZYN.TS", KIV_TRACE_NOTICE, KIV_TRACE_HDR_FUNCTION);
    ASSERT_EQ(setenv("KIV_TRACE", "ZYN.TS:1,CHANGED.MODULE:7", 1), 0);
    const KivTrace afterChange("ZYN.TS", KIV_TRACE_NOTICE, KIV_TRACE_HDR_FUNCTION);
    const KivTrace changed("CHANGED.MODULE", KIV_TRACE_WARNING, KIV_TRACE_HDR_FUNCTION);
    EXPECT_TRUE(afterChange.isEnabled(KIV_TRACE_DETAIL));
    EXPECT_FALSE(changed.isEnabled(KIV_TRACE_NOTICE));
}

TEST(TraceEnvironmentTest, RunTimeChangeOverridesTheEnvironment) {
    const KivTrace before("LATER.MODULE", KIV_TRACE_ERROR, KIV_TRACE_HDR_FUNCTION);
    EXPECT_TRUE(before.isEnabled(KIV_TRACE_STATUS));
    platform_host::setTraceLevel("LATER.MODULE", 6);
    const KivTrace after("LATER.MODULE", KIV_TRACE_ERROR, KIV_TRACE_HDR_FUNCTION);
    EXPECT_TRUE(before.isEnabled(KIV_TRACE_ENTER));
    EXPECT_TRUE(after.isEnabled(KIV_TRACE_ENTER));
    EXPECT_FALSE(after.isEnabled(KIV_TRACE_DETAIL));
}

}  // namespace
