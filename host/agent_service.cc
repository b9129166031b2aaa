#include "host/agent_service.h"

#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <vector>

#include "agent_api/trace_level.h"
#include "agent_api/trace_logger.h"
#include "base/text.h"
#include "host/setup_error.h"
#include "sim/api/pipeline.h"
#include "sim/faults/faults.h"
#include "sim/framework/watchdog.h"
#include "svc/channel/svc_thread.h"

namespace host {

namespace {

constexpr size_t k_id_size = 16;

std::string hex_of(const unsigned char (&bytes)[k_id_size]) {
    std::string text(2 * k_id_size + 1, '\0');
    for (size_t i = 0; i < k_id_size; i++) {
        snprintf(&text[2 * i], 3, "%02x", bytes[i]);
    }
    text.pop_back();
    return text;
}

std::string bytes_of(const std::string &hex) {
    std::string bytes;
    for (size_t i = 0; i < hex.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

template <class Duration>
uint64_t to_ns(Duration duration) {
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(duration).count());
}

nyx::TraceLevel trace_level() {
    static constexpr nyx::TraceLevel k_levels[] = {nyx::TRACE_LEVEL_NONE, nyx::TRACE_LEVEL_ERROR,
                                                   nyx::TRACE_LEVEL_WARN, nyx::TRACE_LEVEL_INFO,
                                                   nyx::TRACE_LEVEL_DEBUG};
    const auto level = core::g_trace_logger ? core::g_trace_logger->trace_level.load() : 0;
    return level < static_cast<int32_t>(std::size(k_levels)) ? k_levels[std::max(level, 0)]
                                                             : nyx::TRACE_LEVEL_VERBOSE;
}

// The first word of a file, as a number; 0 when it is not one.
uint64_t number_in(const std::string &path) {
    uint64_t number = 0;
    std::ifstream(path) >> number;
    return number;
}

uint64_t resident_bytes() {
    uint64_t total = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

// "max", which is not a number, means no limit. The line of the unified hierarchy begins with "0::".
uint64_t memory_limit() {
    std::ifstream groups("/proc/self/cgroup");
    for (std::string line; std::getline(groups, line);) {
        if (line.starts_with("0::")) {
            return number_in("/sys/fs/cgroup" + line.substr(3) + "/memory.max");
        }
    }
    return 0;
}

void fill(const connection_counts_s &counts, nyx::AgentConnections *connections) {
    connections->set_grpc(counts.open);
    connections->set_debug_socket(static_cast<uint32_t>(core::svc_server_open_connections()));
    connections->set_accepted(counts.accepted);
    connections->set_turned_away(counts.turned_away);
    connections->set_closed(counts.closed);
}

void fill(nyx::AgentWatchdog *watchdog) {
    for (const auto &thread : sim::thread_heartbeats(false)) {
        if (thread.thread == "svc_server") {
            const auto since = std::chrono::duration_cast<std::chrono::milliseconds>(thread.since_last);
            watchdog->set_since_heartbeat_ms(static_cast<uint32_t>(since.count()));
        }
    }
    watchdog->set_late(sim::heartbeats().late);
}

void fill(const std::string &path, nyx::AgentFolder *folder) {
    folder->set_path(base::to_utf8(path));
    folder->set_exists(access(path.c_str(), F_OK) == 0);
    folder->set_writable(access(path.c_str(), W_OK | X_OK) == 0);
}

void add_outcome(uint32_t code, size_t api_status, uint64_t calls, nyx::AgentMethod *method) {
    if (calls > 0) {
        auto *outcome = method->add_outcome();
        outcome->set_grpc_code(code);
        outcome->set_api_status(static_cast<types::ApiStatus>(api_status));
        outcome->set_calls(calls);
    }
}

void fill(const svc::method_counts_s &counts, nyx::AgentMethod *method) {
    method->set_method(counts.method->service()->full_name() + "/" + counts.method->name());
    for (size_t i = 0; i < counts.by_api_status.size(); i++) {
        add_outcome(grpc::OK, i, counts.by_api_status[i], method);
    }
    for (uint32_t i = grpc::OK + 1; i < counts.by_code.size(); i++) {
        add_outcome(i, 0, counts.by_code[i], method);
    }
    method->set_duration_ns(to_ns(counts.duration));
    method->mutable_duration_calls()->Add(counts.by_duration.begin(), counts.by_duration.end());
}

bool was_called(const svc::method_counts_s &counts) {
    return std::ranges::any_of(counts.by_code, [](uint64_t calls) { return calls > 0; });
}

}  // namespace

void agent_instance::renew() {
    unsigned char bytes[k_id_size];
    if (getrandom(bytes, sizeof(bytes), 0) != sizeof(bytes)) {
        throw setup_error("no random bytes for the id of this start");
    }
    const std::lock_guard lock(mutex_);
    instance_ = {.id = hex_of(bytes),
                 .start = std::chrono::system_clock::now(),
                 .steady_start = std::chrono::steady_clock::now()};
}

instance_s agent_instance::get() const {
    const std::lock_guard lock(mutex_);
    return instance_;
}

static constexpr svc::method_s k_methods[] = {svc::method_of<&AgentSvcImpl::AgentGet>("AgentGet")};

AgentSvcImpl::AgentSvcImpl(const agent_instance &instance, const svc::call_server &calls,
                           const connection_counts_s &connections, const std::string &sysconfig)
    : served(k_methods),
      instance_(instance),
      calls_(calls),
      connections_(connections),
      sysconfig_(sysconfig) {}

grpc::Status AgentSvcImpl::AgentGet(grpc::ServerContext *, const nyx::AgentGetRequest *,
                                    nyx::AgentGetResponse *rsp) {
    fill(rsp);
    fill_calls(rsp);
    return grpc::Status::OK;
}

void AgentSvcImpl::fill(nyx::AgentGetResponse *rsp) const {
    rsp->set_version(NYX_VERSION);
    sim::begin_operation();  // which a scenario may start with a restart
    const instance_s instance = instance_.get();
    rsp->set_instance_id(bytes_of(instance.id));
    rsp->set_start_time_ns(to_ns(instance.start.time_since_epoch()));
    rsp->set_uptime_ns(to_ns(std::chrono::steady_clock::now() - instance.steady_start));
    rsp->set_trace_level(trace_level());
    const auto calls = calls_.memory();
    auto *memory = rsp->mutable_memory();
    memory->set_resident(resident_bytes());
    memory->set_limit(memory_limit());
    memory->set_calls(calls.used);
    memory->set_calls_limit(calls.limit);
    host::fill(connections_, rsp->mutable_connections());
    host::fill(rsp->mutable_watchdog());
    host::fill(sysconfig_, rsp->mutable_mac_file_folder());
    rsp->set_pipeline_quiesced(sim::pipeline_state().quiesced);
}

void AgentSvcImpl::fill_calls(nyx::AgentGetResponse *rsp) const {
    for (const auto bound : svc::k_duration_bounds) {
        rsp->add_duration_bound_ns(to_ns(bound));
    }
    auto *refusals = rsp->mutable_refusals();
    for (const auto &counts : calls_.counts()) {
        refusals->set_role(refusals->role() + counts.by_code[grpc::PERMISSION_DENIED]);
        refusals->set_resources(refusals->resources() + counts.by_code[grpc::RESOURCE_EXHAUSTED]);
        if (was_called(counts)) {
            host::fill(counts, rsp->add_method());
        }
    }
}

}  // namespace host
