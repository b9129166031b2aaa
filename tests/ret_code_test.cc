#include "svc/common/ret_code.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "svc/common/trace.h"
#include "tests/trace_capture.h"

namespace {

using sdk::sdk_ret_t;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

std::string printed(uint32_t code) {
    std::ostringstream out;
    out << static_cast<sdk_ret_t>(code);
    return out.str();
}

TEST(RetCode, PrintsItsTextInQuotesOrNothing) {
    const std::map<uint32_t, std::string> texts = {{0, "\"ok\""},
                                                   {7, "\"hw table full\""},
                                                   {20, "\"h/w, s/w out of sync\""},
                                                   {24, "\"dpdk device comapt check error\""},
                                                   {40, "\"partial entry is read \""},
                                                   {44, "\"catch all generic error\""},
                                                   {45, ""},
                                                   {254, ""},
                                                   {255, "\"max return value\""},
                                                   {300, ""},
                                                   {UINT32_MAX, ""}};
    for (const auto &[code, text] : texts) {
        EXPECT_EQ(printed(code), text) << code;
    }
}

TEST(RetCode, HasATextForEachOfTheFirst45Codes) {
    std::set<std::string> texts;
    for (uint32_t code = 0; code <= 44; code++) {
        texts.insert(printed(code));
    }
    EXPECT_EQ(texts.size(), 45u);
    EXPECT_FALSE(texts.contains(""));
}

TEST(RetCode, TranslatesInTwoWays) {
    // What both know, then what only the full translation knows; all other codes are an error.
    const std::map<uint32_t, int> common = {{0, 0}, {1, 4}, {2, 2}, {3, 8}, {4, 5}, {5, 3}, {6, 6}};
    const std::map<uint32_t, int> full_only = {{10, 7}, {39, 9}, {42, 10}};
    for (uint32_t code = 0; code <= 300; code++) {
        const int tbl = common.contains(code) ? common.at(code) : 1;
        const int full = full_only.contains(code) ? full_only.at(code) : tbl;
        EXPECT_EQ(tbl_svc_ret_to_api_status(static_cast<sdk_ret_t>(code)), tbl) << code;
        EXPECT_EQ(sdk_ret_to_api_status(static_cast<sdk_ret_t>(code)), full) << code;
    }
    EXPECT_EQ(sdk_ret_to_api_status(static_cast<sdk_ret_t>(UINT32_MAX)), types::API_STATUS_ERROR);
}

void log_both() {
    SVC_TRACE_ERR("err {} of {}", sdk::SDK_RET_ENTRY_BUSY, "x");
    SVC_TRACE_INFO("plain");
}

TEST(Trace, LineNamesFunctionAndSourceLineAndIsFlushed) {
    test::trace_capture trace;
    log_both();
    EXPECT_THAT(trace.sink().lines(),
                ElementsAre(MatchesRegex("\\[log_both:[0-9]+\\] err \"entry is in-use/busy\" of x"),
                            MatchesRegex("\\[log_both:[0-9]+\\] plain")));
    EXPECT_EQ(trace.sink().flushes(), 2);
}

TEST(Trace, CodeWithoutTextLeavesTheRestOfTheLine) {
    test::trace_capture trace;
    SVC_TRACE_ERR("a{}b", static_cast<sdk_ret_t>(45));
    EXPECT_THAT(trace.messages(), ElementsAre("ab"));
}

TEST(Trace, AgentLevelAndLoggerLevelBothFilter) {
    test::trace_capture trace;
    const std::map<int32_t, size_t> lines_at_level = {{-1, 0}, {0, 0}, {1, 1}, {2, 1}, {3, 2}, {5, 2}};
    for (const auto &[level, lines] : lines_at_level) {
        const size_t before = trace.sink().lines().size();
        trace.log().trace_level = level;
        log_both();
        EXPECT_EQ(trace.sink().lines().size() - before, lines) << "level " << level;
    }
    const size_t before = trace.sink().lines().size();
    trace.log().logger()->set_level(spdlog::level::err);
    log_both();
    EXPECT_EQ(trace.sink().lines().size() - before, 1u);
}

TEST(Trace, WithoutALoggerNothingHappens) {
    core::g_trace_logger = nullptr;
    log_both();
    utils::log no_logger(nullptr, 5);
    core::g_trace_logger = &no_logger;
    log_both();
    core::g_trace_logger = nullptr;
}

TEST(Trace, ExceptionInsideLoggingStaysThere) {
    test::trace_capture trace;
    trace.log().logger()->set_error_handler([](const std::string &text) { throw std::runtime_error(text); });
    trace.sink().throw_from_now_on();
    EXPECT_NO_THROW(log_both());
    EXPECT_THAT(trace.sink().lines(), IsEmpty());
}

}  // namespace
