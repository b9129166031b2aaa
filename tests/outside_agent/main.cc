// An agent that loads the service layer: the platform below, gRPC server and debug socket above.

#include <grpcpp/grpcpp.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "agent_api/trace_logger.h"
#include "platform.h"
#include "svc/call_server.h"
#include "svc/channel/svc_thread.h"
#include "svc/debug.h"
#include "svc/grpc_nyx_tbl.h"
#include "svc/host_if_mac.h"
#include "svc/interface.h"
#include "svc/lif_classic.h"
#include "svc/pipeline.h"
#include "svc/port.h"
#include "svc/system.h"

namespace {

constexpr size_t k_call_memory = 16 << 20;  // of all requests and answers together
constexpr size_t k_workers = 8;             // operations that may wait for the card at once

struct signal_watcher : sdk::event_thread::io_ {
    char *socket_path;
};

void signal_cb(sdk::event_thread::io_ *io, int fd, int) {
    char *const socket_path = static_cast<signal_watcher *>(io)->socket_path;
    signalfd_siginfo info = {};
    if (read(fd, &info, sizeof(info)) != sizeof(info)) return;
    if (info.ssi_signo == SIGTERM) platform::stop_events();
    if (info.ssi_signo == SIGUSR1) (void)core::svc_server_thread_suspend_cb(socket_path);
    if (info.ssi_signo == SIGUSR2) (void)core::svc_server_thread_resume_cb(socket_path);  // logs its failures
}

// The service request thread, until SIGTERM; false when it could not start. The gRPC server runs by then.
bool serve_requests(char *socket_path, int signal_fd) {
    sdk::lib::thread::t_curr_thread_ = &platform::g_service_thread;
    if (core::svc_server_thread_init(socket_path) != sdk::SDK_RET_OK) return false;
    signal_watcher signals = {};
    signals.socket_path = socket_path;
    sdk::event_thread::io_init(&signals, signal_cb, signal_fd, sdk::event_thread::k_io_readable);
    sdk::event_thread::io_start(&signals);
    puts("ready");
    fflush(stdout);
    platform::run_events();
    core::svc_server_thread_exit(socket_path);
    return true;
}

int block_signals() {
    signal(SIGPIPE, SIG_IGN);
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGTERM, SIGUSR1, SIGUSR2}) sigaddset(&signals, number);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // on all threads, which inherit it
    return signalfd(-1, &signals, SFD_CLOEXEC);
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: outside-agent GRPC-ADDRESS SOCKET-PATH FOLDER\n");
        return 2;
    }
    const int signal_fd = block_signals();
    utils::log log(spdlog::stderr_logger_mt("outside-agent"), 3);
    core::g_trace_logger = &log;
    g_host_if_mac_file = std::string(argv[3]) + "/hostif_mac.json";

    svc::call_server calls({.memory = k_call_memory});  // serves the services that follow
    NyxTblSvcImpl tables;
    IfSvcImpl interfaces;
    LifClassicSvcImpl lifs;
    PortSvcImpl ports;
    SystemSvcImpl system;
    PipelineSvcImpl pipeline;
    DebugSvcImpl debug;
    grpc::ServerBuilder builder;
    builder.AddListeningPort(argv[1], grpc::InsecureServerCredentials());
    const std::vector<grpc::Service *> services = {&tables, &interfaces, &lifs, &ports,
                                                   &system, &pipeline,   &debug};
    for (grpc::Service *service : services) builder.RegisterService(service);
    calls.attach(&builder);
    const std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
    if (!server) return 1;
    std::vector<std::jthread> workers;
    while (workers.size() < k_workers) workers.emplace_back([&calls] { calls.run(); });

    bool served = false;
    std::thread([&] { served = serve_requests(argv[2], signal_fd); }).join();
    server->Shutdown(std::chrono::system_clock::now() + std::chrono::milliseconds(500));
    calls.shutdown();  // the workers end
    return served ? 0 : 1;
}
