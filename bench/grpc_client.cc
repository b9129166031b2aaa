#include "bench/grpc_client.h"

#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/grpcpp.h>

#include <future>
#include <thread>

#include "bench/entries.h"
#include "bench/ratio_table.h"
#include "nyx/interface.pb.h"
#include "nyx/port.pb.h"
#include "nyx/tables/tbl_svc.grpc.pb.h"

namespace bench {

struct connection_s {
    explicit connection_s(const std::shared_ptr<grpc::Channel> &channel)
        : tables(nyx::NyxTblSvc::NewStub(channel)), bytes(channel) {}

    const std::unique_ptr<nyx::NyxTblSvc::Stub> tables;
    grpc::TemplatedGenericStub<google::protobuf::Message, grpc::ByteBuffer>
        bytes;  // does not parse responses
};

namespace {

std::shared_ptr<grpc::Channel> connect(const std::string &address) {
    grpc::ChannelArguments arguments;
    arguments.SetMaxReceiveMessageSize(-1);
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
    return grpc::CreateCustomChannel(address, grpc::InsecureChannelCredentials(), arguments);
}

void expect_ok(const grpc::Status &status) {
    if (!status.ok()) {
        fail("gRPC call: " + status.error_message());
    }
}

std::function<void(connection_s *)> creating(int entries) {
    return [request = flow_entries(entries)](connection_s *connection) {
        grpc::ClientContext context;
        context.set_wait_for_ready(true);
        nyx::flowResponse response;
        expect_ok(connection->tables->flowCreate(&context, request, &response));
    };
}

std::function<void(connection_s *)> reading_parsed(int keys) {
    return [request = flow_keys(keys)](connection_s *connection) {
        grpc::ClientContext context;
        context.set_wait_for_ready(true);
        nyx::flowGetResponse response;
        expect_ok(connection->tables->flowGet(&context, request, &response));
    };
}

template <class Request>
std::function<void(connection_s *)> reading(const std::string &method, Request all) {
    return [method, request = std::move(all)](connection_s *connection) {
        grpc::ClientContext context;
        context.set_wait_for_ready(true);
        grpc::ByteBuffer response;
        std::promise<grpc::Status> status;
        connection->bytes.UnaryCall(&context, method, {}, &request, &response,
                                    [&status](grpc::Status result) { status.set_value(std::move(result)); });
        expect_ok(status.get_future().get());
    };
}

std::function<void(connection_s *)> calling(const std::string &call, int count) {
    if (call == "create") {
        return creating(count);
    }
    if (call == "get-parsed") {
        return reading_parsed(count);
    }
    if (call == "walk") {
        return reading("/nyx.IfSvc/InterfaceGet", nyx::InterfaceGetRequest());
    }
    if (call == "ports") {
        return reading("/nyx.PortSvc/PortGet", nyx::PortGetRequest());
    }
    return reading("/nyx.NyxTblSvc/flowGet", flow_keys(count));
}

}  // namespace

grpc_client::grpc_client(const std::string &address, const std::string &call, int count, size_t clients)
    : call_(calling(call, count)) {
    while (connections_.size() < clients) {
        connections_.push_back(std::make_unique<connection_s>(connect(address)));
    }
}

grpc_client::~grpc_client() = default;

double grpc_client::cost_of_call(nanoseconds slice) {
    std::vector<double> costs(connections_.size());
    std::vector<std::jthread> threads;
    for (size_t i = 0; i < costs.size(); i++) {
        threads.emplace_back([&, i] { costs[i] = cost_of(slice, 1, [&] { call_(connections_[i].get()); }); });
    }
    threads.clear();
    double calls_per_second = 0;
    for (const double each : costs) {
        calls_per_second += 1 / each;
    }
    return 1 / calls_per_second;
}

}  // namespace bench
