#include "host/grpc_log.h"

#include <grpc/support/log.h>

#include <chrono>
#include <cstring>
#include <mutex>
#include <string>
#include <utility>

#include "base/text.h"

namespace host {

namespace {

// Lets so many lines of each second through.
class line_limit {
 public:
    bool take() {
        const std::lock_guard lock(mutex_);
        const auto now = clock::now();
        if (now - second_ >= std::chrono::seconds(1)) {
            second_ = now;
            lines_ = 0;
        }
        return lines_++ < k_lines_a_second;
    }

 private:
    using clock = std::chrono::steady_clock;
    static constexpr int k_lines_a_second = 10;

    std::mutex mutex_;
    clock::time_point second_ = {};
    int lines_ = 0;
};

// Never destroyed: gRPC's threads may log until the process ends.
std::shared_ptr<spdlog::logger> &log_target() {
    static auto &target = *new std::shared_ptr<spdlog::logger>;
    return target;
}

void log_line(gpr_log_func_args *args) {
    static line_limit limit;
    if (args->severity != GPR_LOG_SEVERITY_ERROR || !limit.take()) {
        return;
    }
    const char *slash = strrchr(args->file, '/');
    log_target()->error("[{}:{}] gRPC: {}", slash ? slash + 1 : args->file, args->line,
                        base::without_controls(base::to_utf8(args->message)));
}

}  // namespace

void redirect_grpc_log(std::shared_ptr<spdlog::logger> logger) {
    log_target() = std::move(logger);
    gpr_set_log_function(log_line);
}

}  // namespace host
