// nyx-agent: the services on the stand-in, from start to SIGTERM or SIGINT.

#include <fmt/core.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <future>
#include <string>

#include "agent_api/trace_level.h"
#include "agent_api/trace_logger.h"
#include "base/standard_descriptors.h"
#include "host/agent_log.h"
#include "host/debug_socket.h"
#include "host/grpc_server.h"
#include "host/journal.h"
#include "host/library_logs.h"
#include "host/options.h"
#include "host/service_manager.h"
#include "host/setup_error.h"
#include "sim/card/host_interfaces.h"
#include "sim/scenario/running.h"
#include "sim/scenario/scenario_files.h"
#include "svc/host_if_mac.h"

namespace {

// The main thread waits for them: a gRPC server can't be stopped from a handler. A blocked signal is delivered even if it
// is ignored, as nohup does with SIGHUP, so that one is asked first.
sigset_t block_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    struct sigaction hangup;
    if (sigaction(SIGHUP, nullptr, &hangup) == 0 && hangup.sa_handler != SIG_IGN) {
        sigaddset(&signals, SIGHUP);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

// A peer that has gone, a file that has reached the limit of its size, a terminal that belongs to another process group:
// the write fails, and the agent goes on.
void ignore_signals_of_writes() {
    for (const int number : {SIGPIPE, SIGXFSZ, SIGTTOU}) {
        signal(number, SIG_IGN);
    }
}

// Libraries log why they abort; without this the process would end before that line is written.
void let_the_log_finish_before_an_abort() {
    signal(SIGABRT, [](int) {
        constexpr useconds_t k_patience_us = 50'000;
        usleep(k_patience_us);
    });
}

// What the agent and its libraries do, and who changed what.
struct logs_s {
    logs_s(const spdlog::sink_ptr &target, const host::options_s &options)
        : trace(target, options.log_limit), audit(target, options.audit_limit) {}

    bool drain() {
        constexpr auto k_patience = std::chrono::milliseconds(50);
        const bool traced = trace.drain(k_patience);
        return audit.drain(k_patience) && traced;
    }

    host::agent_log trace, audit;
};

// A debug command or a peer can hold a server open for as long as it likes. What has not stopped in time is abandoned.
void stop_in_time(host::grpc_server &grpc, host::debug_socket &socket, logs_s &logs) {
    constexpr auto k_patience = std::chrono::milliseconds(850);
    const auto deadline = std::chrono::steady_clock::now() + k_patience;
    const auto grpc_stopped = std::async(std::launch::async, [&] { grpc.stop(); });
    const auto socket_stopped = std::async(std::launch::async, [&] { socket.stop(); });
    for (const auto *stopped : {&grpc_stopped, &socket_stopped}) {
        if (stopped->wait_until(deadline) != std::future_status::ready) {
            logs.drain();
            std::_Exit(0);
        }
    }
}

void warn_of_missing_protection(const host::options_s &options) {
    if (options.tls && options.tls->client_ca_file.empty()) {
        fmt::print(stderr,
                   "nyx-agent: warning: --tls-cert encrypts, but any client may connect and change the card; "
                   "give --tls-client-ca to serve only clients with a certificate\n");
    }
}

// What an agent does with the file at its start. A broken one is reported, and the next update replaces it.
void restore_host_interfaces(const std::string &sysconfig) {
    g_host_if_mac_file = sysconfig + "/hostif_mac.json";
    std::string error;
    if (!sim::load_host_interfaces(g_host_if_mac_file, &error)) {
        fmt::print(stderr, "nyx-agent: {}\n", error);
    }
}

// A card that starts anew has lost everything, as with a new start of the agent. Other threads use the path of the file
// meanwhile, and stderr may have no reader.
void start_scenario(const host::options_s &options, host::grpc_server *grpc) {
    sim::on_card_restart([grpc] {
        std::string error;
        if (!sim::load_host_interfaces(g_host_if_mac_file, &error)) {
            core::g_trace_logger->logger()->error("{}", error);
        }
        grpc->renew_instance();
    });
    if (!options.scenario.empty()) {
        sim::start_scenario(sim::load_scenario(options.scenario),
                            {.name = options.scenario, .seed = options.seed, .speed = options.speed});
    }
}

// What a person who starts the agent by hand can do about a folder that the service has and others lack.
void check_folders(const host::options_s &options) {
    for (const std::string &path : {options.grpc.front(), options.socket}) {
        const std::string file = path.substr(path.starts_with("unix:") ? 5 : 0);
        const std::string folder = file.substr(0, file.rfind('/'));
        if ((path == NYX_DEFAULT_GRPC || path == NYX_DEFAULT_SOCKET) &&
            access(folder.c_str(), W_OK | X_OK) != 0) {
            throw host::setup_error(
                fmt::format("{}: {}; it belongs to the service nyx-agent. By hand, give --grpc unix:PATH and "
                            "--socket PATH "
                            "in a folder of your own, or --grpc 127.0.0.1",
                            folder, strerror(errno)));
        }
    }
}

// Certificates and log level; what else has changed takes a restart. What is wrong is reported, and the old stays.
void reload(int argc, char **argv, host::grpc_server &grpc, spdlog::logger &log) {
    const host::parsed_s parsed = host::parse_command_line(argc, argv);
    try {
        if (!parsed.options) {
            throw host::setup_error(parsed.error);
        }
        grpc.reload_certificates();
        core::trace_update(parsed.options->trace_level);
        log.info("[reload] certificates and log level were read again");
    } catch (const std::exception &error) {
        log.error("[reload] nothing changed: {}", error.what());
    }
}

int serve(const host::options_s &options, const sigset_t &signals, logs_s &logs,
          const std::function<void(host::grpc_server &)> &on_hangup) {
    check_folders(options);
    host::grpc_server grpc(options, logs.audit.logger());
    host::debug_socket socket(options.socket, options.socket_group);
    start_scenario(options, &grpc);
    const auto ready = fmt::format("grpc {} socket {}", grpc.address(), options.socket);
    fmt::print("nyx-agent ready: {}\n", ready);
    fflush(stdout);
    host::report_ready("Serving " + ready);
    host::service_watchdog watchdog;
    const auto wait = std::chrono::nanoseconds(watchdog.interval()).count();
    const timespec limit = {.tv_sec = wait / 1'000'000'000, .tv_nsec = wait % 1'000'000'000};
    int signal = 0;
    do {
        signal = sigtimedwait(&signals, nullptr, &limit);
        watchdog.look();
        if (signal == SIGHUP) {
            on_hangup(grpc);
        }
    } while (signal <= 0 || signal == SIGHUP);
    host::report_stopping();
    stop_in_time(grpc, socket, logs);
    sim::on_card_restart(nullptr);
    return 0;
}

// Whether the agent would start with these options, as far as that can be known without starting it.
int check(const host::options_s &options) {
    if (options.tls) {
        host::certificates certificates(*options.tls);
    }
    if (access(options.sysconfig.c_str(), W_OK | X_OK) != 0) {
        throw host::setup_error(options.sysconfig + ": " + strerror(errno) + "; it keeps hostif_mac.json");
    }
    fmt::print("nyx-agent: the configuration is valid\n");
    return 0;
}

// The exit code of `run`, or 1 after reporting what it threw.
int or_complain(const std::function<int()> &run) {
    try {
        return run();
    } catch (const std::exception &error) {
        fmt::print(stderr, "nyx-agent: {}\n", error.what());
        return 1;
    }
}

}  // namespace

int main(int argc, char **argv) {
    base::occupy_standard_descriptors();
    const host::parsed_s parsed = host::parse_command_line(argc, argv);
    if (!parsed.options) {
        if (!parsed.error.empty()) {
            fmt::print(stderr, "nyx-agent: {}; see nyx-agent --help\n", parsed.error);
        }
        return parsed.exit_code;
    }
    if (parsed.options->check) {
        return or_complain([&] { return check(*parsed.options); });
    }
    const sigset_t signals = block_signals();  // before there are other threads
    ignore_signals_of_writes();
    let_the_log_finish_before_an_abort();
    // Never destroyed: if nobody reads stderr, their threads do not end.
    static auto &logs = *new logs_s(host::make_log_target(), *parsed.options);
    utils::log trace_logger(logs.trace.logger(), 0);
    host::redirect_library_logs(logs.trace.logger());
    core::g_trace_logger = &trace_logger;
    core::trace_update(parsed.options->trace_level);
    for (const auto &fault : parsed.options->faults) {
        sim::add_fault(fault);
    }
    warn_of_missing_protection(*parsed.options);
    restore_host_interfaces(parsed.options->sysconfig);
    const int exit_code = or_complain([&] {
        return serve(*parsed.options, signals, logs,
                     [&](host::grpc_server &grpc) { reload(argc, argv, grpc, *logs.trace.logger()); });
    });
    core::g_trace_logger = nullptr;
    if (!logs.drain()) {
        std::_Exit(exit_code);  // exit() would wait for stderr, which the log's thread is writing to
    }
    return exit_code;
}
