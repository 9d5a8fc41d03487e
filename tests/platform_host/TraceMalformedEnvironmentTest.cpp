// A malformed KIV_TRACE is reported once on stderr and ignored as a whole.
// This executable runs with KIV_TRACE="ZYN.TS:7,OTHER.MODULE".

#include <gtest/gtest.h>

#include <string>

#include "KivTrace.h"
#include "PlatformHost/TraceHost.h"

namespace {

size_t occurrences(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

// One test only: the report happens at the first use of the trace service in
// the process, which must fall inside the captured stretch.
TEST(TraceMalformedEnvironmentTest, MalformedValueIsReportedOnceAndIgnored) {
    ::testing::internal::CaptureStderr();
    const KivTrace first("ZYN.TS", KIV_TRACE_NOTICE, KIV_TRACE_HDR_FUNCTION);
    const KivTrace second("OTHER.MODULE", KIV_TRACE_INFO, KIV_TRACE_HDR_FUNCTION);
    const KivTrace third("ZYN.TS", KIV_TRACE_WARNING, KIV_TRACE_HDR_FUNCTION);
    const std::string reported = ::testing::internal::GetCapturedStderr();

    EXPECT_EQ(occurrences(reported, "KIV_TRACE: ignoring malformed value \"ZYN.TS:7,OTHER.MODULE\""), 1u) << reported;
    // Not even the well-formed first entry is applied.
    EXPECT_TRUE(first.isEnabled(KIV_TRACE_NOTICE));
    EXPECT_FALSE(first.isEnabled(KIV_TRACE_STATUS));
    EXPECT_TRUE(second.isEnabled(KIV_TRACE_INFO));
    EXPECT_FALSE(second.isEnabled(KIV_TRACE_ENTER));
    EXPECT_FALSE(third.isEnabled(KIV_TRACE_NOTICE));
}

}  // namespace
