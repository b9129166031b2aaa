// The host's gRPC server, in this process.

#include "host/grpc_door.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <google/protobuf/descriptor.h>
#include <grpc/grpc.h>
#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/grpcpp.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <future>
#include <optional>

#include "nyx/port.pb.h"
#include "nyx/tables/flow.pb.h"
#include "tests/grpc_fixture.h"
#include "tests/socket_fixture.h"

namespace {

using testing::HasSubstr;

constexpr const char *k_reflection = "/grpc.reflection.v1alpha.ServerReflection/ServerReflectionInfo";

class GrpcDoor : public testing::Test {
 protected:
    // Taken and never given back: after a large request a client's gRPC library takes ten seconds to shut
    // down.
    static void SetUpTestSuite() { grpc_init(); }

    GrpcDoor() { start(true); }

    void start(bool with_options) {
        host::options_s options = {};
        options.grpc = "127.0.0.1:0";
        options.fault_service = options.reflection = with_options;
        door_.emplace(options);
    }

    std::shared_ptr<grpc::Channel> channel() const {
        grpc::ChannelArguments arguments;
        arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);  // a connection of its own
        return grpc::CreateCustomChannel(door_->address(), grpc::InsecureChannelCredentials(), arguments);
    }

    static grpc::Status get_ports(const std::shared_ptr<grpc::Channel> &channel, int patience_s) {
        nyx::PortGetResponse response;
        return test::unary_call(channel, "/nyx.PortSvc/PortGet", nyx::PortGetRequest(), &response,
                                std::chrono::seconds(patience_s));
    }

    std::optional<host::grpc_door> door_;
};

grpc::ByteBuffer to_buffer(const std::string &bytes) {
    const grpc::Slice slice(bytes);
    return {&slice, 1};
}

std::string to_string(const grpc::ByteBuffer &buffer) {
    std::vector<grpc::Slice> slices;
    EXPECT_TRUE(buffer.Dump(&slices).ok());
    std::string bytes;
    for (const auto &slice : slices) {
        bytes.append(reinterpret_cast<const char *>(slice.begin()), slice.size());
    }
    return bytes;
}

// One request and its first response, as bytes; works for streaming methods too.
std::string ask(const std::shared_ptr<grpc::Channel> &channel, const std::string &method,
                const std::string &request) {
    grpc::GenericStub stub(channel);
    grpc::CompletionQueue queue;
    grpc::ClientContext context;
    context.set_deadline(std::chrono::system_clock::now() + std::chrono::seconds(30));
    const auto next = [&queue] {
        void *tag;
        bool ok = false;
        return queue.Next(&tag, &ok) && ok;
    };
    const auto call = stub.PrepareCall(&context, method, &queue);
    call->StartCall(nullptr);
    EXPECT_TRUE(next());
    call->Write(to_buffer(request), nullptr);
    EXPECT_TRUE(next());
    grpc::ByteBuffer response;
    call->Read(&response, nullptr);
    EXPECT_TRUE(next()) << method;
    context.TryCancel();
    grpc::Status status;
    call->Finish(&status, nullptr);
    next();
    return to_string(response);
}

TEST_F(GrpcDoor, ReflectionAndHealthKnowTheServices) {
    const std::string list_services("\x3a\x00", 2);
    EXPECT_THAT(ask(channel(), k_reflection, list_services),
                testing::AllOf(HasSubstr("nyx.NyxTblSvc"), HasSubstr("grpc.health.v1.Health")));
    for (const std::string symbol : {"nyx.NyxTblSvc", "grpc.health.v1.Health"}) {
        const std::string file_of_symbol = std::string("\x22") + static_cast<char>(symbol.size()) + symbol;
        EXPECT_THAT(ask(channel(), k_reflection, file_of_symbol), HasSubstr(".proto"));
    }
    EXPECT_EQ(ask(channel(), "/grpc.health.v1.Health/Check", ""), "\x08\x01");  // SERVING
}

TEST_F(GrpcDoor, FaultsAndReflectionAreServedOnlyWhenAskedFor) {
    const auto unimplemented = [this](const std::string &method) {
        grpc::TemplatedGenericStub<grpc::ByteBuffer, grpc::ByteBuffer> stub(channel());
        grpc::ClientContext context;
        context.set_deadline(std::chrono::system_clock::now() + std::chrono::seconds(30));
        grpc::CompletionQueue queue;
        const auto call = stub.PrepareUnaryCall(&context, method, to_buffer(""), &queue);
        grpc::ByteBuffer response;
        grpc::Status status;
        call->StartCall();
        call->Finish(&response, &status, nullptr);
        void *tag = nullptr;
        bool ok = false;
        queue.Next(&tag, &ok);
        return status.error_code() == grpc::StatusCode::UNIMPLEMENTED;
    };
    for (const std::string &method : {std::string(k_reflection), std::string("/nyx.FaultSvc/FaultList")}) {
        start(true);
        EXPECT_FALSE(unimplemented(method));
        start(false);
        EXPECT_TRUE(unimplemented(method));
    }
}

TEST_F(GrpcDoor, RequestsOfUpTo16MebibytesAreTaken) {
    const auto connection = channel();
    const auto delete_with_key_of = [&](size_t size) {
        nyx::flowDeleteRequest request;
        request.add_key()->set_k1(std::string(size, 'x'));
        nyx::flowDeleteResponse response;
        return test::unary_call(connection, "/nyx.NyxTblSvc/flowDelete", request, &response).error_code();
    };
    constexpr size_t k_mebibyte = 1024 * 1024;
    EXPECT_EQ(delete_with_key_of(15 * k_mebibyte), grpc::StatusCode::OK);
    EXPECT_EQ(delete_with_key_of(16 * k_mebibyte), grpc::StatusCode::RESOURCE_EXHAUSTED);
}

TEST_F(GrpcDoor, ServesNewClientsAgainAfterItWasOutOfDescriptors) {
    const auto before = channel();
    EXPECT_TRUE(get_ports(before, 30).ok());
    rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit low = {.rlim_cur = 200, .rlim_max = limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
    const auto waiting = channel();
    std::future<grpc::Status> answer;
    {
        std::vector<base::unique_fd> taken;
        for (int fd; (fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) {
            taken.emplace_back(fd);
        }
        taken.pop_back();  // for the client's end of the connection
        answer = std::async(std::launch::async, get_ports, waiting, 30);
        EXPECT_TRUE(get_ports(before, 30).ok());
        EXPECT_FALSE(get_ports(channel(), 1).ok());
    }
    EXPECT_TRUE(answer.get().ok());
    EXPECT_TRUE(get_ports(channel(), 30).ok());
    setrlimit(RLIMIT_NOFILE, &limit);
}

TEST_F(GrpcDoor, StopEndsCallsThatWouldGoOnForEver) {
    grpc::GenericStub stub(channel());
    grpc::CompletionQueue queue;
    grpc::ClientContext context;
    const auto call = stub.PrepareCall(&context, k_reflection, &queue);
    void *tag;
    bool ok = false;
    call->StartCall(nullptr);
    ASSERT_TRUE(queue.Next(&tag, &ok) && ok);
    door_.reset();
    grpc::Status status;
    call->Finish(&status, nullptr);
    ASSERT_TRUE(queue.Next(&tag, &ok));
    EXPECT_FALSE(status.ok());
}

}  // namespace
