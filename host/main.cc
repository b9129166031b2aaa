// nyx-agent: the services on the stand-in, from start to SIGTERM or SIGINT.

#include <fmt/core.h>
#include <pthread.h>
#include <signal.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <chrono>
#include <cstdlib>
#include <future>

#include "agent_api/trace_level.h"
#include "agent_api/trace_logger.h"
#include "base/standard_descriptors.h"
#include "host/grpc_door.h"
#include "host/grpc_log.h"
#include "host/options.h"
#include "host/socket_door.h"
#include "sim/card/host_interfaces.h"
#include "svc/host_if_mac.h"

namespace {

// The signals are taken by sigwait() on the main thread alone: a gRPC server can't be stopped from a handler.
sigset_t block_stop_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

// A debug command or a peer can hold a door open for as long as it likes. What has not let go in time is left behind.
void stop_in_time(host::grpc_door &grpc, host::socket_door &socket) {
    constexpr auto k_patience = std::chrono::milliseconds(900);
    const auto deadline = std::chrono::steady_clock::now() + k_patience;
    const auto grpc_stopped = std::async(std::launch::async, [&] { grpc.stop(); });
    const auto socket_stopped = std::async(std::launch::async, [&] { socket.stop(); });
    for (const auto *stopped : {&grpc_stopped, &socket_stopped}) {
        if (stopped->wait_until(deadline) != std::future_status::ready) {
            std::_Exit(0);
        }
    }
}

// What an agent does with the file at its start. A broken one is told of, and left for the next update to replace.
void restore_host_interfaces(const std::string &sysconfig) {
    g_host_if_mac_file = sysconfig + "/hostif_mac.json";
    std::string error;
    if (!sim::load_host_interfaces(g_host_if_mac_file, &error)) {
        fmt::print(stderr, "nyx-agent: {}\n", error);
    }
}

int serve(const host::options_s &options) {
    const sigset_t stop_signals = block_stop_signals();
    host::grpc_door grpc(options);
    host::socket_door socket(options.socket);
    fmt::print("nyx-agent ready: grpc {} socket {}\n", grpc.address(), options.socket);
    fflush(stdout);
    int signal = 0;
    sigwait(&stop_signals, &signal);
    stop_in_time(grpc, socket);
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    base::occupy_standard_descriptors();
    const host::parsed_s parsed = host::parse_command_line(argc, argv);
    if (!parsed.options) {
        return parsed.exit_code;
    }
    signal(SIGPIPE, SIG_IGN);
    utils::log trace_logger(spdlog::stderr_logger_mt("nyx-agent"), 0);
    host::redirect_grpc_log(trace_logger.logger());
    core::g_trace_logger = &trace_logger;
    core::trace_update(parsed.options->trace_level);
    for (const auto &fault : parsed.options->faults) {
        sim::add_fault(fault);
    }
    restore_host_interfaces(parsed.options->sysconfig);
    int exit_code = 1;
    try {
        exit_code = serve(*parsed.options);
    } catch (const std::exception &error) {
        fmt::print(stderr, "nyx-agent: {}\n", error.what());
    }
    core::g_trace_logger = nullptr;
    return exit_code;
}
