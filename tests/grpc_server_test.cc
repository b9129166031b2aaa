// The host's gRPC server, in this process.

#include "host/grpc_server.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <google/protobuf/descriptor.h>
#include <grpc/grpc.h>
#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/grpcpp.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <deque>
#include <filesystem>
#include <future>
#include <optional>

#include "nyx/port.pb.h"
#include "nyx/tables/flow.pb.h"
#include "tests/grpc_fixture.h"
#include "tests/socket_fixture.h"

namespace {

using testing::HasSubstr;

constexpr const char *k_reflection = "/grpc.reflection.v1alpha.ServerReflection/ServerReflectionInfo";

class GrpcServer : public testing::Test {
 protected:
    // Taken and never given back: after a large request a client's gRPC library takes ten seconds to shut
    // down.
    static void SetUpTestSuite() { grpc_init(); }

    GrpcServer() { start(true); }

    void start(bool with_options) {
        host::options_s options = {};
        options.grpc = {"127.0.0.1:0"};
        options.fault_service = options.reflection = with_options;
        server_.emplace(options);
    }

    std::shared_ptr<grpc::Channel> channel() const {
        grpc::ChannelArguments arguments;
        arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);  // a connection of its own
        return grpc::CreateCustomChannel(server_->address(), grpc::InsecureChannelCredentials(), arguments);
    }

    static grpc::Status get_ports(const std::shared_ptr<grpc::Channel> &channel, int patience_s) {
        nyx::PortGetResponse response;
        return test::unary_call(channel, "/nyx.PortSvc/PortGet", nyx::PortGetRequest(), &response,
                                std::chrono::seconds(patience_s));
    }

    std::optional<host::grpc_server> server_;
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

// A call of a method with or without streams, in bytes.
class open_stream {
 public:
    open_stream(const std::shared_ptr<grpc::Channel> &channel, const std::string &method) : stub_(channel) {
        context_.set_deadline(std::chrono::system_clock::now() + std::chrono::seconds(30));
        call_ = stub_.PrepareCall(&context_, method, &queue_);
        call_->StartCall(nullptr);
        EXPECT_TRUE(next());
    }
    ~open_stream() {
        context_.TryCancel();
        finish();
    }

    // Returns the next response; empty when the call has ended.
    std::string ask(const std::string &request) {
        call_->Write(to_buffer(request), nullptr);
        next();
        grpc::ByteBuffer response;
        call_->Read(&response, nullptr);
        return next() ? to_string(response) : "";
    }

    grpc::Status finish() {
        grpc::Status status;
        if (!finished_) {
            call_->Finish(&status, nullptr);
            EXPECT_TRUE(next());
            finished_ = true;
        }
        return status;
    }

 private:
    bool next() {
        void *tag;
        bool ok = false;
        return queue_.Next(&tag, &ok) && ok;
    }

    grpc::GenericStub stub_;
    grpc::CompletionQueue queue_;
    grpc::ClientContext context_;
    std::unique_ptr<grpc::GenericClientAsyncReaderWriter> call_;
    bool finished_ = false;
};

std::string ask(const std::shared_ptr<grpc::Channel> &channel, const std::string &method,
                const std::string &request) {
    return open_stream(channel, method).ask(request);
}

TEST_F(GrpcServer, ReflectionAndHealthKnowTheServices) {
    const std::string list_services("\x3a\x00", 2);
    EXPECT_THAT(ask(channel(), k_reflection, list_services),
                testing::AllOf(HasSubstr("nyx.NyxTblSvc"), HasSubstr("grpc.health.v1.Health")));
    for (const std::string symbol : {"nyx.NyxTblSvc", "grpc.health.v1.Health"}) {
        const std::string file_of_symbol = std::string("\x22") + static_cast<char>(symbol.size()) + symbol;
        EXPECT_THAT(ask(channel(), k_reflection, file_of_symbol), HasSubstr(".proto"));
    }
    EXPECT_EQ(ask(channel(), "/grpc.health.v1.Health/Check", ""), "\x08\x01");  // SERVING
}

TEST_F(GrpcServer, ReflectionDescribesExtensionsAndSaysWhatItDoesNotKnow) {
    const std::string options = "google.protobuf.FieldOptions";
    EXPECT_THAT(ask(channel(), k_reflection, "\x32" + std::string(1, char(options.size())) + options),
                HasSubstr(options + "\x12"));  // numbers follow
    for (const std::string unknown :
         {"\x1a\x03x.p", "\x22\x03x.y", "\x2a\x05\x0a\x01x\x10\x01", "\x32\x01x"}) {
        EXPECT_THAT(ask(channel(), k_reflection, unknown), HasSubstr("not found: x"));
    }
    EXPECT_THAT(ask(channel(), k_reflection, ""), HasSubstr("asks for nothing"));
}

TEST_F(GrpcServer, OpenReflectionStreamsTakeNoThreadAndTheOldestGivesWay) {
    constexpr int k_more_than_it_keeps = 66;
    const auto threads = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
    };
    const auto connection = channel();
    const std::string list_services("\x3a\x00", 2);
    ask(connection, k_reflection, list_services);
    const auto before = threads();
    std::deque<open_stream> streams;
    for (int i = 0; i < k_more_than_it_keeps; i++) {
        EXPECT_THAT(streams.emplace_back(connection, k_reflection).ask(list_services),
                    HasSubstr("nyx.NyxTblSvc"));
    }
    EXPECT_LT(threads(), before + 10);
    EXPECT_EQ(streams.front().ask(list_services), "");
    EXPECT_THAT(streams.back().ask(list_services), HasSubstr("nyx.NyxTblSvc"));
    EXPECT_EQ(streams.back().ask("\x1a\x81\x20" + std::string(4097, 'x')), "");
}

TEST_F(GrpcServer, FaultsAndReflectionAreServedOnlyWhenAskedFor) {
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

TEST_F(GrpcServer, RequestsOfUpTo16MebibytesAreTaken) {
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

TEST_F(GrpcServer, ServesNewClientsAgainAfterItWasOutOfDescriptors) {
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

TEST_F(GrpcServer, StopEndsCallsThatWouldGoOnForEver) {
    open_stream stream(channel(), k_reflection);
    server_.reset();
    EXPECT_FALSE(stream.finish().ok());
}

}  // namespace
