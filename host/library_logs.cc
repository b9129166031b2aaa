#include "host/library_logs.h"

#include <google/protobuf/stubs/logging.h>
#include <grpc/support/log.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

namespace host {

namespace {

// Never destroyed: gRPC's threads may log until the process ends.
std::shared_ptr<spdlog::logger> &log_target() {
    static auto &target = *new std::shared_ptr<spdlog::logger>;
    return target;
}

std::string printable(std::string text) {
    std::ranges::replace_if(
        text, [](unsigned char c) { return c < 0x20 || c > 0x7e; }, '?');
    return text;
}

void log_error(std::string_view path, int line, const char *library, const std::string &text) {
    log_target()->error("[{}:{}] {}: {}", path.substr(path.rfind('/') + 1), line, library, printable(text));
}

void log_grpc(gpr_log_func_args *args) {
    if (args->severity == GPR_LOG_SEVERITY_ERROR) {
        log_error(args->file, args->line, "gRPC", args->message);
    }
}

void log_protobuf(google::protobuf::LogLevel level, const char *file, int line, const std::string &text) {
    if (level >= google::protobuf::LOGLEVEL_ERROR) {
        log_error(file, line, "protobuf", text);
    }
}

}  // namespace

void redirect_library_logs(std::shared_ptr<spdlog::logger> logger) {
    log_target() = std::move(logger);
    gpr_set_log_function(log_grpc);
    google::protobuf::SetLogHandler(log_protobuf);
}

}  // namespace host
