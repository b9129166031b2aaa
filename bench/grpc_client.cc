#include "bench/grpc_client.h"

#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/grpcpp.h>
#include <grpcpp/impl/codegen/proto_utils.h>

#include <chrono>
#include <thread>

#include "bench/entries.h"
#include "bench/ratio_table.h"
#include "nyx/interface.pb.h"
#include "nyx/port.pb.h"
#include "nyx/tables/tunnel.pb.h"
#include "nyx/types/object.pb.h"

namespace bench {

struct connection_s {
    explicit connection_s(const std::shared_ptr<grpc::Channel> &channel) : parsing(channel), bytes(channel) {}

    // Generic stubs: the header of the generated one takes seconds to compile.
    grpc::TemplatedGenericStub<google::protobuf::Message, google::protobuf::Message> parsing;
    grpc::TemplatedGenericStub<google::protobuf::Message, grpc::ByteBuffer> bytes;
};

namespace {

std::shared_ptr<grpc::Channel> connect(const std::string &address) {
    grpc::ChannelArguments arguments;
    arguments.SetMaxReceiveMessageSize(-1);
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
    // With gRPC's bandwidth probe on, large responses arrive at one of two speeds.
    arguments.SetInt(GRPC_ARG_HTTP2_BDP_PROBE, 0);
    arguments.SetInt(GRPC_ARG_HTTP2_STREAM_LOOKAHEAD_BYTES, 16 * 1024 * 1024);
    return grpc::CreateCustomChannel(address, grpc::InsecureChannelCredentials(), arguments);
}

template <class Stub, class Response>
void make_call(Stub *stub, const std::string &method, const google::protobuf::Message &request,
               Response *response) {
    grpc::ClientContext context;
    context.set_wait_for_ready(true);
    grpc::CompletionQueue queue;
    const auto reader = stub->PrepareUnaryCall(&context, method, request, &queue);
    grpc::Status status;
    reader->StartCall();
    reader->Finish(response, &status, nullptr);
    void *tag = nullptr;
    bool finished = false;
    queue.Next(&tag, &finished);
    if (!status.ok()) {
        fail("gRPC call: " + status.error_message());
    }
}

template <class Response, class Request>
std::function<void(connection_s *)> parsing(const std::string &method, Request all) {
    return [method, request = std::move(all)](connection_s *connection) {
        Response response;
        make_call(&connection->parsing, method, request, &response);
    };
}

template <class Request>
std::function<void(connection_s *)> reading(const std::string &method, Request all) {
    return [method, request = std::move(all)](connection_s *connection) {
        grpc::ByteBuffer response;
        make_call(&connection->bytes, method, request, &response);
    };
}

std::function<void(connection_s *)> calling(const std::string &call, int count) {
    if (call == "create") {
        return parsing<nyx::flowResponse>("/nyx.NyxTblSvc/flowCreate", flow_entries(count));
    }
    if (call == "get-parsed") {
        return parsing<nyx::flowGetResponse>("/nyx.NyxTblSvc/flowGet", flow_keys(count));
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

namespace {

constexpr uint32_t k_entries_a_request = 1000;

void create_stored(connection_s *connection, uint32_t first) {
    nyx::tunnel_terminate_sa_v4Request request;
    for (uint32_t key = first; key < first + k_entries_a_request; key++) {
        request.add_request()->mutable_key()->set_k2(key);
    }
    nyx::tunnel_terminate_sa_v4Response response;
    make_call(&connection->parsing, "/nyx.NyxTblSvc/tunnel_terminate_sa_v4Create", request, &response);
    if (response.api_status() != types::API_STATUS_OK) {
        fail("the stand-in's table takes no more entries");
    }
}

void delete_stored(connection_s *connection, uint32_t first) {
    nyx::tunnel_terminate_sa_v4DeleteRequest request;
    for (uint32_t key = first; key < first + k_entries_a_request; key++) {
        request.add_key()->set_k2(key);
    }
    nyx::tunnel_terminate_sa_v4DeleteResponse response;
    make_call(&connection->parsing, "/nyx.NyxTblSvc/tunnel_terminate_sa_v4Delete", request, &response);
}

}  // namespace

double throughput_of_last_entries(const std::string &address, size_t count) {
    using clock = std::chrono::steady_clock;
    connection_s connection(connect(address));
    std::vector<clock::time_point> times = {clock::now()};
    for (size_t first = 0; first < count; first += k_entries_a_request) {
        create_stored(&connection, static_cast<uint32_t>(first));
        times.push_back(clock::now());
    }
    for (size_t first = 0; first < count; first += k_entries_a_request) {
        delete_stored(&connection, static_cast<uint32_t>(first));
    }
    constexpr size_t k_requests = 10;
    const auto end = times.end() - 1;
    const std::chrono::duration<double> at_first = times[1 + k_requests] - times[1],
                                        at_last = *end - *(end - k_requests);
    return at_first / at_last;
}

}  // namespace bench
