// Calls of the table service, by calls of a service that takes the same messages and does nothing.

#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/grpcpp.h>

#include <future>
#include <memory>
#include <thread>
#include <vector>

#include "bench/entries.h"
#include "bench/figures.h"
#include "bench/grpc_server.h"
#include "bench/parts.h"
#include "bench/service_thread.h"
#include "nyx/tables/tbl_svc.grpc.pb.h"

namespace bench {

namespace {

// A client with a connection of its own.
struct client_s {
    explicit client_s(const std::shared_ptr<grpc::Channel> &channel)
        : stub(nyx::NyxTblSvc::NewStub(channel)), bytes_stub(channel) {}

    const std::unique_ptr<nyx::NyxTblSvc::Stub> stub;
    grpc::TemplatedGenericStub<nyx::flowGetRequest, grpc::ByteBuffer>
        bytes_stub;  // does not parse the response
};

// A server on a Unix domain socket. It is a process of its own, as it always is: all servers and clients of a
// process poll through one set of descriptors, and the server that was started last comes off much better.
class server {
 public:
    explicit server(const std::string &service)
        : address_("unix:" + folder_.path() + "/socket"),
          process_("grpc-server " + service + " " + address_) {}

    std::shared_ptr<client_s> connect() const {
        grpc::ChannelArguments arguments;
        arguments.SetMaxReceiveMessageSize(-1);
        arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
        return std::make_shared<client_s>(
            grpc::CreateCustomChannel(address_, grpc::InsecureChannelCredentials(), arguments));
    }

 private:
    temporary_folder folder_;
    const std::string address_;
    running_part process_;
};

struct servers_s {
    server ours{"table"};
    server empty{"empty"};
};

void expect_ok(const grpc::Status &status) {
    if (!status.ok()) {
        fail("gRPC call: " + status.error_message());
    }
}

auto creating(int entries) {
    return [request = flow_entries(entries)](client_s *client) {
        grpc::ClientContext context;
        context.set_wait_for_ready(true);
        nyx::flowResponse response;
        expect_ok(client->stub->flowCreate(&context, request, &response));
    };
}

auto reading(int keys) {
    return [request = flow_keys(keys)](client_s *client) {
        grpc::ClientContext context;
        context.set_wait_for_ready(true);
        nyx::flowGetResponse response;
        expect_ok(client->stub->flowGet(&context, request, &response));
    };
}

auto reading_bytes(int keys) {
    return [request = flow_keys(keys)](client_s *client) {
        grpc::ClientContext context;
        context.set_wait_for_ready(true);
        grpc::ByteBuffer response;
        std::promise<grpc::Status> status;
        client->bytes_stub.UnaryCall(&context, "/nyx.NyxTblSvc/flowGet", {}, &request, &response,
                                     [&status](grpc::Status result) { status.set_value(std::move(result)); });
        expect_ok(status.get_future().get());
    };
}

// Calls from as many clients at once, each on a thread of its own.
template <class Call>
cost calls(const std::shared_ptr<servers_s> &servers, const server &server, size_t client_count,
           const Call &call) {
    std::vector<std::shared_ptr<client_s>> clients(client_count);
    for (auto &client : clients) {
        client = server.connect();
    }
    return [servers, clients, call](nanoseconds slice) {
        std::vector<double> costs(clients.size());
        std::vector<std::jthread> threads;
        for (size_t i = 0; i < clients.size(); i++) {
            threads.emplace_back([&, i] { costs[i] = cost_of(slice, 1, [&] { call(clients[i].get()); }); });
        }
        threads.clear();
        double calls_per_second = 0;
        for (const double cost : costs) {
            calls_per_second += 1 / cost;
        }
        return 1 / calls_per_second;
    };
}

}  // namespace

void add_grpc(ratio_table *table) {
    const auto servers = std::make_shared<servers_s>();
    const auto add = [=](double goal, const std::string &what, size_t clients, const auto &call) {
        table->throughput_at_least(goal, "gRPC: " + what + " / empty handler",
                                   calls(servers, servers->ours, clients, call),
                                   calls(servers, servers->empty, clients, call));
    };
    add(0.93, "flowCreate of 1,000 entries", 1, creating(1000));
    add(0.95, "flowCreate of one entry", 1, creating(1));
    add(0.95, "flowCreate of one entry, 8 clients", 8, creating(1));
    add(0.50, "flowGet of 1,000 keys", 1, reading_bytes(1000));
    // What such a client sees: it parses all entries of the one response and nothing of the other.
    add(0, "flowGet of 1,000 keys, parsed by the client", 1, reading(1000));
}

}  // namespace bench
