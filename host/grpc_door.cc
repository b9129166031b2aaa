#include "host/grpc_door.h"

#include <google/protobuf/descriptor.h>
#include <grpc/grpc.h>
#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/grpcpp.h>
#include <grpcpp/health_check_service_interface.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <deque>

#include "base/accept_reserve.h"
#include "host/connections.h"
#include "host/credentials.h"
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

constexpr auto k_shutdown_patience = std::chrono::milliseconds(500);  // then calls are cancelled

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

grpc_door::grpc_door(const options_s &options)
    : listener_(listen_on(options.grpc, options.tls.has_value())),
      stop_(eventfd(0, EFD_CLOEXEC)),
      calls_({}, {.instance_id = instance_.get().id}),
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
    acceptor_ = builder.experimental().AddExternalConnectionAcceptor(
        grpc::ServerBuilder::experimental_type::ExternalConnectionType::FROM_FD,
        server_credentials(options.tls));
    server_ = builder.BuildAndStart();
    if (!stop_.valid() || !server_) {
        throw setup_error(options.grpc + ": the gRPC server does not start");
    }
    for (const auto *service : served_) {  // otherwise the health service knows none by name
        server_->GetHealthCheckService()->SetServingStatus(service->full_name(), true);
    }
    while (workers_.size() < k_workers) {
        workers_.emplace_back([this] { calls_.run(); });
    }
    accept_thread_ = std::thread([this] { accept_until_stopped(); });
}

grpc_door::~grpc_door() { stop(); }

void grpc_door::renew_instance() {
    instance_.renew();
    calls_.set_instance_id(instance_.get().id);
}

void grpc_door::stop() {
    if (!accept_thread_.joinable()) {
        return;
    }
    if (listener_.file) {
        listener_.file->remove();
    }
    eventfd_write(stop_.get(), 1);
    accept_thread_.join();
    server_->Shutdown(std::chrono::system_clock::now() + k_shutdown_patience);
    calls_.shutdown();
    workers_.clear();
}

// What a wait ended with; none of them when time was up.
struct grpc_door::waited_s {
    bool has_client, has_news, must_stop;
};

grpc_door::waited_s grpc_door::wait(bool for_clients, int or_fd, int timeout_ms) const {
    pollfd waiting[] = {{.fd = stop_.get(), .events = POLLIN, .revents = 0},
                        {.fd = for_clients ? listener_.fd.get() : -1, .events = POLLIN, .revents = 0},
                        {.fd = or_fd, .events = POLLIN, .revents = 0}};
    poll(waiting, std::size(waiting), timeout_ms);
    return {.has_client = waiting[1].revents != 0,
            .has_news = waiting[2].revents != 0,
            .must_stop = waiting[0].revents != 0};
}

void grpc_door::accept_until_stopped() {
    base::accept_reserve reserve;
    connections open(&counts_, [this] {
        return connections::uses_s{.tables = sim::table_bytes(), .calls = calls_.memory().used};
    });
    for (;;) {
        const bool may_accept = open.may_accept();
        const waited_s waited = wait(may_accept, open.kept_fd(), may_accept ? -1 : k_pause_ms);
        if (waited.must_stop) {
            return;
        }
        if (eventfd_t ignored = 0; waited.has_news && eventfd_read(open.kept_fd(), &ignored) == 0) {
            replace_awaited_calls(server_.get(), served_);
        }
        if (waited.has_client) {
            accept_one(&reserve, &open);
        }
    }
}

void grpc_door::accept_one(base::accept_reserve *reserve, connections *open) {
    grpc::experimental::ExternalConnectionAcceptor::NewConnectionParameters connection;
    connection.fd = accept4(listener_.fd.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (connection.fd >= first_reserved_fd() || (connection.fd >= 0 && counts_.open >= k_max_connections)) {
        close(connection.fd);
        counts_.turned_away++;
    } else if (connection.fd >= 0) {
        counts_.accepted++;
        open->add(connection.fd);
        acceptor_->HandleNewConnection(&connection);  // owns the descriptor from here on
    } else if (errno == EMFILE || errno == ENFILE) {
        reserve->turn_one_away(listener_.fd.get());
        counts_.turned_away++;
    } else if (errno == ENOBUFS || errno == ENOMEM) {
        wait(false, -1, k_pause_ms);
    }
}

}  // namespace host
