#include "host/grpc_server.h"

#include <google/protobuf/descriptor.h>
#include <grpc/grpc.h>
#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/grpcpp.h>
#include <grpcpp/health_check_service_interface.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <deque>
#include <semaphore>

#include "base/accept_reserve.h"
#include "host/audit.h"
#include "host/connections.h"
#include "host/fault_service.h"
#include "host/reflection.h"
#include "host/server_settings.h"
#include "host/setup_error.h"
#include "proto/proto_files.h"
#include "sim/api/tables.h"
#include "svc/debug.h"
#include "svc/interface.h"
#include "svc/lif_classic.h"
#include "svc/pipeline.h"
#include "svc/port.h"
#include "svc/system.h"
#include "svc/table_service.h"

namespace host {

namespace {

// Threads that run calls: as many operations can wait for the card at once, of one method a quarter.
constexpr size_t k_workers = 64;

constexpr uint32_t k_max_connections = 8192;  // each takes 40 KiB; what is beyond is turned away

constexpr int k_pause_ms = 50;  // clients wait in the backlog until there is memory again

// Then connections are closed, and after half as long again calls are cancelled that don't notice.
constexpr auto k_shutdown_patience = std::chrono::milliseconds(500);

std::vector<std::unique_ptr<grpc::Service>> make_services(bool with_faults) {
    std::vector<std::unique_ptr<grpc::Service>> services;
    services.push_back(make_table_service());
    services.push_back(std::make_unique<IfSvcImpl>());
    services.push_back(std::make_unique<LifClassicSvcImpl>());
    services.push_back(std::make_unique<PortSvcImpl>());
    services.push_back(std::make_unique<SystemSvcImpl>());
    services.push_back(std::make_unique<PipelineSvcImpl>());
    services.push_back(std::make_unique<DebugSvcImpl>());
    if (with_faults) {
        services.push_back(std::make_unique<FaultSvcImpl>());
    }
    return services;
}

using google::protobuf::DescriptorPool;
using google::protobuf::ServiceDescriptor;

// Of the services that are served, gRPC's own included.
std::vector<const ServiceDescriptor *> served_services(bool with_faults) {
    const auto *pool = DescriptorPool::generated_pool();
    std::vector<const ServiceDescriptor *> services;
    for (const char *path : nyx::proto_files()) {
        const auto *file = pool->FindFileByName(path);
        for (int i = 0; i < file->service_count(); i++) {
            services.push_back(file->service(i));
        }
    }
    if (with_faults) {
        services.push_back(pool->FindServiceByName(nyx::FaultSvc::service_full_name()));
    }
    return services;
}

// A call that the agent makes of itself.
struct own_call_s {
    grpc::ClientContext context;
    grpc::ByteBuffer response;
    grpc::Status status;
    std::unique_ptr<grpc::ClientAsyncResponseReader<grpc::ByteBuffer>> call;
};

// gRPC keeps the headers of a call whose client left before its request was whole, until the next call of that method. So
// this calls every method, as often as the call server awaits calls of it, with a request that can't be parsed.
void replace_awaited_calls(grpc::Server *server, const std::vector<const ServiceDescriptor *> &services) {
    constexpr int k_awaited = 2;
    constexpr auto k_patience = std::chrono::milliseconds(300);
    const grpc::Slice garbage("\xff");
    const grpc::ByteBuffer request(&garbage, 1);
    const auto deadline = std::chrono::system_clock::now() + k_patience;
    grpc::CompletionQueue queue;
    grpc::GenericStub stub(server->InProcessChannel({}));
    std::deque<own_call_s> calls;
    for (const auto *service : services) {
        for (int i = 0; i < k_awaited * service->method_count(); i++) {
            auto &own = calls.emplace_back();
            own.context.set_deadline(deadline);
            const std::string path =
                "/" + service->full_name() + "/" + service->method(i / k_awaited)->name();
            own.call = stub.PrepareUnaryCall(&own.context, path, request, &queue);
            own.call->StartCall();
            own.call->Finish(&own.response, &own.status, &own);
        }
    }
    void *tag = nullptr;
    bool ok = false;
    for (size_t i = 0; i < calls.size(); i++) {
        queue.Next(&tag, &ok);
    }
}

std::vector<std::string> names_of(const std::vector<const ServiceDescriptor *> &services) {
    std::vector<std::string> names = {"grpc.reflection.v1alpha.ServerReflection"};
    for (const auto *service : services) {
        names.push_back(service->full_name());
    }
    return names;
}

// Connections with this descriptor and above are turned away, so that there are some left for everything else. The
// kernel hands out the lowest number that is free: it tells how many are taken.
int first_reserved_fd() {
    constexpr rlim_t k_reserve = 64;
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    return static_cast<int>(
        std::min<rlim_t>(limit.rlim_cur - std::min(k_reserve, limit.rlim_cur / 4), INT_MAX));
}

}  // namespace

grpc_server::grpc_server(const options_s &options, std::shared_ptr<spdlog::logger> audit)
    : audit_(std::move(audit)),
      policy_(options.certificate_roles, audit_),
      stop_(eventfd(0, EFD_CLOEXEC)),
      calls_({}, {.observer = &policy_, .instance_id = instance_.get().id}),
      services_(make_services(options.fault_service)),
      served_(served_services(options.fault_service)) {
    services_.push_back(std::make_unique<AgentSvcImpl>(instance_, calls_, counts_, options.sysconfig));
    // Taken and never given back: after a large response gRPC takes ten seconds to shut itself down.
    grpc_init();
    grpc::EnableDefaultHealthCheckService(true);
    grpc::ServerBuilder builder;
    if (options.reflection) {
        services_.push_back(make_reflection_service(names_of(served_)));
    }
    apply_server_settings(builder);
    for (const auto &service : services_) {
        builder.RegisterService(service.get());
    }
    calls_.attach(&builder);
    if (options.tls) {
        certificates_.emplace(*options.tls);
    }
    open_entrances(options, &builder);
    server_ = builder.BuildAndStart();
    if (!stop_.valid() || !server_) {
        throw setup_error(address() + ": the gRPC server does not start");
    }
    for (const auto *service : served_) {  // otherwise the health service knows none by name
        server_->GetHealthCheckService()->SetServingStatus(service->full_name(), true);
    }
    while (workers_.size() < k_workers) {
        workers_.emplace_back([this] { calls_.run(); });
    }
    open_ = std::make_unique<connections>(&counts_, [this] {
        return connections::uses_s{.tables = sim::table_bytes(), .calls = calls_.memory().used};
    });
    accept_thread_ = std::thread([this] { accept_until_stopped(); });
}

// The transport of a connection is all that a call shows of how it came in: call_policy.h.
void grpc_server::open_entrances(const options_s &options, grpc::ServerBuilder *builder) {
    for (const std::string &address : options.grpc) {
        listener_s listener = listen_on(address, certificates_.has_value());
        auto credentials = listener.is_unix() ? grpc::experimental::LocalServerCredentials(UDS)
                           : certificates_    ? certificates_->credentials()
                                              : grpc::InsecureServerCredentials();
        add_entrance(std::move(listener), true, std::move(credentials), builder);
    }
    if (!options.read_socket.empty()) {
        add_entrance(listen_on("unix:" + options.read_socket, false), false,
                     grpc::InsecureServerCredentials(), builder);
    }
}

void grpc_server::add_entrance(listener_s listener, bool may_change,
                               std::shared_ptr<grpc::ServerCredentials> credentials,
                               grpc::ServerBuilder *builder) {
    auto acceptor = builder->experimental().AddExternalConnectionAcceptor(
        grpc::ServerBuilder::experimental_type::ExternalConnectionType::FROM_FD, std::move(credentials));
    entrances_.push_back(
        {.listener = std::move(listener), .may_change = may_change, .acceptor = std::move(acceptor)});
}

std::string grpc_server::address() const {
    std::string all;
    for (const auto &entrance : entrances_) {
        if (entrance.may_change) {
            all += (all.empty() ? "" : ",") + entrance.listener.address;
        }
    }
    return all;
}

void grpc_server::reload_certificates() {
    if (certificates_) {
        certificates_->reload();
    }
}

grpc_server::~grpc_server() { stop(); }

void grpc_server::renew_instance() {
    instance_.renew();
    calls_.set_instance_id(instance_.get().id);
}

void grpc_server::stop() {
    if (!accept_thread_.joinable()) {
        return;
    }
    for (const auto &entrance : entrances_) {
        if (entrance.listener.is_unix()) {
            entrance.listener.file->remove();
        }
    }
    eventfd_write(stop_.get(), 1);
    accept_thread_.join();
    std::binary_semaphore drained(0);
    std::jthread closer([&] {
        if (!drained.try_acquire_for(k_shutdown_patience)) {
            open_->close_all();
        }
    });
    server_->Shutdown(std::chrono::system_clock::now() + 3 * k_shutdown_patience / 2);
    drained.release();
    calls_.shutdown();
    workers_.clear();
}

// One descriptor for each entrance, and the last two: connections have news, the server must stop. False when it must.
bool grpc_server::wait(std::vector<pollfd> *waiting, bool for_clients, int timeout_ms) const {
    for (size_t i = 0; i < entrances_.size(); i++) {
        (*waiting)[i].fd = for_clients ? entrances_[i].listener.fd.get() : -1;
    }
    if (poll(waiting->data(), waiting->size(), timeout_ms) < 0) {
        std::ranges::for_each(*waiting, [](pollfd &each) { each.revents = 0; });
    }
    return waiting->back().revents == 0;
}

void grpc_server::accept_until_stopped() {
    base::accept_reserve reserve;
    std::vector<pollfd> waiting(entrances_.size(), {.fd = -1, .events = POLLIN, .revents = 0});
    waiting.push_back({.fd = open_->kept_fd(), .events = POLLIN, .revents = 0});
    waiting.push_back({.fd = stop_.get(), .events = POLLIN, .revents = 0});
    for (bool may = true; wait(&waiting, may, may ? -1 : k_pause_ms); may = open_->may_accept()) {
        const bool has_news = waiting[entrances_.size()].revents != 0;
        if (eventfd_t ignored = 0; has_news && eventfd_read(open_->kept_fd(), &ignored) == 0) {
            replace_awaited_calls(server_.get(), served_);
        }
        for (size_t i = 0; i < entrances_.size(); i++) {
            if (waiting[i].revents != 0) {
                accept_one(&entrances_[i], &reserve);
            }
        }
    }
}

void grpc_server::accept_one(entrance_s *entrance, base::accept_reserve *reserve) {
    const int listening = entrance->listener.fd.get();
    grpc::experimental::ExternalConnectionAcceptor::NewConnectionParameters connection;
    connection.fd = accept4(listening, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (connection.fd >= first_reserved_fd() || (connection.fd >= 0 && counts_.open >= k_max_connections)) {
        close(connection.fd);
        counts_.turned_away++;
    } else if (connection.fd >= 0) {
        counts_.accepted++;
        record(*entrance, connection.fd);
        open_->add(connection.fd);
        entrance->acceptor->HandleNewConnection(&connection);  // owns the descriptor from here on
    } else if (errno == EMFILE || errno == ENFILE) {
        reserve->turn_one_away(listening);
        counts_.turned_away++;
    } else if (errno == ENOBUFS || errno == ENOMEM) {
        pollfd stop = {.fd = stop_.get(), .events = POLLIN, .revents = 0};
        poll(&stop, 1, k_pause_ms);
    }
}

// Calls over a Unix socket do not show whose they are.
void grpc_server::record(const entrance_s &entrance, int fd) const {
    ucred peer = {};
    socklen_t size = sizeof(peer);
    if (audit_ && entrance.may_change && entrance.listener.is_unix() &&
        getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0) {
        audit_->info("[connection] socket={} uid={} pid={}", word_of(entrance.listener.address), peer.uid,
                     peer.pid);
    }
}

}  // namespace host
