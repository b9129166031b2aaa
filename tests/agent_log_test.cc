// The agent's trace logger: it neither waits for whoever reads it, nor writes as much as peers like.

#include "host/agent_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/base_sink.h>

#include <future>
#include <numeric>
#include <regex>
#include <string>
#include <vector>

#include "tests/trace_capture.h"

namespace {

using testing::Contains;
using testing::HasSubstr;

// Takes nothing until it is opened.
class closed_sink : public test::collecting_sink {
 public:
    void open() { opened_.set_value(); }

 private:
    void sink_it_(const spdlog::details::log_msg &line) override {
        open_.wait();
        collecting_sink::sink_it_(line);
    }

    std::promise<void> opened_;
    const std::shared_future<void> open_ = opened_.get_future().share();
};

// The sum of the numbers in front of this text.
uint64_t sum_before(const std::vector<std::string> &lines, const std::string &text) {
    const std::regex number("(\\d+) " + text);
    return std::accumulate(lines.begin(), lines.end(), uint64_t{0}, [&](uint64_t sum, const auto &line) {
        std::smatch match;
        return std::regex_search(line, match, number) ? sum + std::stoull(match[1]) : sum;
    });
}

constexpr auto k_long = std::chrono::seconds(60);

TEST(AgentLog, WhoLogsNeverWaitsForTheReader) {
    constexpr uint64_t k_lines = 5000;
    const auto sink = std::make_shared<closed_sink>();
    host::agent_log log(sink, 0);
    for (uint64_t i = 0; i < k_lines; i++) {
        log.logger()->error("[place:1] line {}", i);
    }
    EXPECT_FALSE(log.drain(std::chrono::milliseconds(1)));
    sink->open();
    EXPECT_TRUE(log.drain(k_long));
    const auto lines = sink->lines();
    const auto written =
        std::ranges::count_if(lines, [](auto &line) { return line.starts_with("[place:1] "); });
    EXPECT_LT(lines.size(), 2100u);
    EXPECT_THAT(lines, Contains("[place:1] line " + std::to_string(k_lines - 1)));
    // One of those that were left out may be a request to flush.
    const uint64_t left_out = sum_before(lines, "lines were left out");
    EXPECT_THAT(left_out, testing::AnyOf(k_lines - written, k_lines - written + 1));
}

TEST(AgentLog, OnePlaceIsLimitedAndTheOthersAreNot) {
    const auto sink = std::make_shared<test::collecting_sink>();
    host::agent_log log(sink, 10);
    for (int i = 0; i < 1000; i++) {
        log.logger()->error("[noisy:1] line {}", i);
    }
    log.logger()->error("[quiet:1] line");
    log.logger()->info(std::string(100'000, 'x'));
    ASSERT_TRUE(log.drain(k_long));
    const auto lines = sink->lines();
    const uint64_t noisy = static_cast<uint64_t>(
        std::ranges::count_if(lines, [](auto &line) { return line.starts_with("[noisy:1] line"); }));
    EXPECT_GE(noisy, 10u);
    EXPECT_LE(noisy, 500u);  // 10 a second: this machine would have to be very slow
    EXPECT_EQ(noisy + sum_before(lines, "more lines from here were left out"), 1000u);
    EXPECT_THAT(lines, Contains("[quiet:1] line"));
    EXPECT_THAT(lines, Contains(testing::SizeIs(1024)));
}

}  // namespace
