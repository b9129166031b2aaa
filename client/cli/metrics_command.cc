#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <memory>

#include "client/cli/commands.h"
#include "client/core/symbols.h"
#include "client/core/text_io.h"
#include "client/view/metrics.h"
#include "client/view/read_view.h"

namespace nyxctl {
namespace {

using std::chrono::steady_clock;

constexpr uint32_t k_sessions_max = 10'000;
constexpr int k_unimplemented = NYXCTL_EXIT_GRPC_BASE + 12;
constexpr int k_unavailable = NYXCTL_EXIT_GRPC_BASE + 14;

constexpr char k_footer[] =
    R"(One scrape: each method that reads is called once. Numeric fields are gauges,
those that count events counters (_total), enumerations gauges of their number;
texts are labels of nyx_..._info. --timeout is for all calls together.

  nyx_up                      1 if the agent answered
  nyx_read_failed{method=}    1 for a method that failed; its metrics are
                              missing, or end at the failure
  nyx_limit_passed{metric=, severity=}   1 for a number beyond a limit of the
                              dictionary (--labels)
A method that the agent does not provide has no metrics and has not failed.

The file of -o is replaced whole, as the textfile collector of the Prometheus
node exporter wants it. It is written after failures, too; then the exit code is
that of the first one.

Examples:
  nyxctl metrics
  nyxctl metrics -o /var/lib/prometheus/node-exporter/nyx.prom)";

using message_t = std::unique_ptr<google::protobuf::Message>;

class scrape_s {
 public:
    scrape_s(const given_s &given) : given_(given), deadline_(steady_clock::now() + given.global.timeout()) {}

    void read(const metric_view_s &view) {
        if (view.method != method_) {
            method_ = view.method;
            response_.reset();
            call(method_, request_of(view));
        }
        // After a failure the elements of a list are those read before; zeros elsewhere are not values.
        if (response_ && (complete_ || *view.list)) {
            metrics_.add(view, *response_);
        }
    }

    outcome_s write() {
        if (first_failure_.exit_code == NYXCTL_EXIT_USAGE) {
            return first_failure_;
        }
        metrics_.add("nyx_up", "Whether the agent answered", "", up_);
        const std::string text = metrics_.text();
        const std::string path = given_.one("--output");
        const outcome_s written = path.empty() ? write_stdout(text) : replace_file(path, text);
        return written.ok() ? first_failure_ : written;
    }

 private:
    std::string request_of(const metric_view_s &view) const {
        const auto range = given_.numbers("--sessions");
        return view.request
                   ? view.request
                   : fmt::format(R"({{"stats_index_low": {}, "stats_index_high": {}}})", range[0], range[1]);
    }

    void call(const std::string &name, const std::string &request) {
        const google::protobuf::MethodDescriptor *method = nullptr;
        outcome_s outcome = find_method(name, &method);
        if (outcome.ok()) {
            outcome = unreachable() ? first_failure_ : read_in_time(name, request);
        }
        const bool failed = !outcome.ok() && outcome.exit_code != k_unimplemented;
        complete_ = outcome.ok();
        up_ = up_ || !no_answer(outcome);
        metrics_.add("nyx_read_failed", "Whether the method failed",
                     metrics_s::label("method", method_path(method)), failed);
        if (failed && first_failure_.ok()) {
            first_failure_ = outcome;
        }
    }

    outcome_s read_in_time(const std::string &name, const std::string &request) {
        global_options_s options = given_.global;
        const std::chrono::duration<double> left = deadline_ - steady_clock::now();
        options.timeout_seconds = left.count();
        return left.count() > 0 ? read_method(options, name.c_str(), request, &response_)
                                : outcome_s{NYXCTL_EXIT_DEADLINE, name + ": no time left; raise --timeout"};
    }

    bool unreachable() const { return first_failure_.exit_code == NYXCTL_EXIT_UNREACHABLE; }

    static bool no_answer(const outcome_s &outcome) {
        return outcome.exit_code == NYXCTL_EXIT_UNREACHABLE || outcome.exit_code == NYXCTL_EXIT_DEADLINE ||
               outcome.exit_code == k_unavailable;
    }

    const given_s &given_;
    const steady_clock::time_point deadline_;
    metrics_s metrics_;
    outcome_s first_failure_;
    std::string method_;
    message_t response_;
    bool complete_ = false, up_ = false;
};

outcome_s run_metrics(const given_s &given) {
    const auto sessions = given.numbers("--sessions");
    if (!sessions.empty() && (sessions[1] < sessions[0] || sessions[1] - sessions[0] >= k_sessions_max)) {
        return usage_failure(fmt::format("--sessions {} {}: give LOW and HIGH, and at most {} sessions",
                                         sessions[0], sessions[1], k_sessions_max));
    }
    scrape_s scrape(given);
    for (const metric_view_s &view : metric_views()) {
        if (view.request || !sessions.empty()) {
            scrape.read(view);
        }
    }
    return scrape.write();
}

}  // namespace

commands_t metrics_commands() {
    argument_s sessions = {"--sessions", "Read the counters of these sessions, too", KIND_NUMBER, COUNT_TWO};
    sessions.shown = "LOW HIGH";
    return {{"metrics",
             "Read everything that is a number, for Prometheus",
             k_footer,
             {{"-o,--output", "Replace this file", KIND_FILE}, sessions},
             run_metrics}};
}

}  // namespace nyxctl
