// The monitor's per-handler work list and its report of the scheduler's
// handler timing, text and JSON.

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "HandlerTimeReport.h"
#include "MonitorOptions.h"
#include "RunReport.h"
#include "TextChecks.h"

namespace tickmon {
namespace {

TEST(PerHandlerWork, AListGivesEachHandlerItsOwnTimeAndTheRestNone) {
    const ParseResult result = parseOptions({"--work", "0,0,2ms"});
    ASSERT_EQ(result.outcome, ParseOutcome::Run) << result.error;
    EXPECT_EQ(result.options.workPerHandler, (std::vector<int64_t>{0, 0, 2000000}));
    EXPECT_EQ(workOfHandler(result.options, 0), 0);
    EXPECT_EQ(workOfHandler(result.options, 2), 2000000);
    EXPECT_EQ(workOfHandler(result.options, 5), 0);
}

TEST(PerHandlerWork, OneValueStillAppliesToEveryHandler) {
    const ParseResult result = parseOptions({"--work", "50"});
    ASSERT_EQ(result.outcome, ParseOutcome::Run) << result.error;
    EXPECT_TRUE(result.options.workPerHandler.empty());
    EXPECT_EQ(workOfHandler(result.options, 0), 50000);
    EXPECT_EQ(workOfHandler(result.options, 9), 50000);
}

TEST(PerHandlerWork, AnyElementOutOfRangeOrEmptyIsRefused) {
    EXPECT_EQ(parseOptions({"--work", "0,7ms"}).outcome, ParseOutcome::Error);
    EXPECT_EQ(parseOptions({"--work", "0,,1ms"}).outcome, ParseOutcome::Error);
    EXPECT_EQ(parseOptions({"--work", "1ms,"}).outcome, ParseOutcome::Error);
    EXPECT_NE(parseOptions({"--work", "0,x"}).error.find("one per handler, e.g. 0,0,2ms"), std::string::npos);
}

HandlerTimeReport sampleTime() {
    HandlerTimeReport time;
    time.available = true;
    time.passes = 250;
    time.overruns = 3;
    time.budgetNs = 6000000;
    time.longestPassNs = 6012547;
    time.culprit = "tickmon-handler-2";
    time.culpritNs = 6002913;
    time.handlers = {{"tickmon-probe", 250, 60, 1847, 5078, 0},
                     {"tickmon-handler-2", 250, 6000109, 6000995, 6004555, 3}};
    return time;
}

TEST(HandlerTimeReport, TextListsEveryHandlerAndNamesTheWorstPasssCulprit) {
    const std::string text = formatHandlerTime(sampleTime());
    EXPECT_TRUE(contains(text, "Handler time (measured by the scheduler, per call)")) << text;
    EXPECT_TRUE(contains(text,
                         "  tickmon-handler-2                      250     6000.109     6000.995     6004.555"
                         "            3\n"))
        << text;
    EXPECT_TRUE(containsAll(text, {"passes longer than the 6.000 ms period: 3 of 250",
                                   "worst pass: 6012.547 us, culprit tickmon-handler-2 (6002.913 us of it)"}));
}

TEST(HandlerTimeReport, JsonCarriesTheCulpritAndEveryHandler) {
    RunReport report;
    report.handlerTime = sampleTime();
    report.options.workPerHandler = {0, 0, 2000000};
    const nlohmann::json doc = nlohmann::json::parse(formatJson(report));
    const nlohmann::json& time = doc.at("handler_time");
    EXPECT_EQ(time.at("passes").get<double>(), 250);
    EXPECT_EQ(time.at("overruns").get<double>(), 3);
    EXPECT_EQ(time.at("worst_pass").at("duration_ns").get<double>(), 6012547);
    EXPECT_EQ(time.at("worst_pass").at("culprit").get<std::string>(), "tickmon-handler-2");
    EXPECT_EQ(time.at("worst_pass").at("culprit_ns").get<double>(), 6002913);
    EXPECT_EQ(time.at("handlers").at(1).at("name").get<std::string>(), "tickmon-handler-2");
    EXPECT_EQ(time.at("handlers").at(1).at("mean_ns").get<double>(), 6000995);
    EXPECT_EQ(time.at("handlers").at(1).at("over_budget").get<double>(), 3);
    EXPECT_EQ(doc.at("settings").at("work_per_handler_ns").at(2).get<double>(), 2000000);
}

TEST(HandlerTimeReport, UnreadableStatisticsAreSaidSoAndNullInJson) {
    RunReport report;
    EXPECT_TRUE(contains(formatHandlerTime(report.handlerTime), "not available"));
    const nlohmann::json doc = nlohmann::json::parse(formatJson(report));
    EXPECT_TRUE(doc.at("handler_time").is_null());
}

}  // namespace
}  // namespace tickmon
