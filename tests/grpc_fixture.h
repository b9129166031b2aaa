// Services under test behind a real gRPC server in this process.

#pragma once

#include <google/protobuf/message.h>
#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/grpcpp.h>
#include <grpcpp/impl/codegen/proto_utils.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "svc/call_server.h"
#include "tests/temporary_folder.h"

namespace test {

// One unary call by the path of its method, /PACKAGE.SERVICE/METHOD, that waits for the response. Needs no generated
// stub, whose header takes a compiler seconds.
inline grpc::Status unary_call(const std::shared_ptr<grpc::Channel> &channel, const std::string &path,
                               const google::protobuf::Message &req, google::protobuf::Message *rsp,
                               std::chrono::seconds patience = std::chrono::seconds(30)) {
    grpc::TemplatedGenericStub<google::protobuf::Message, google::protobuf::Message> stub(channel);
    grpc::ClientContext context;
    context.set_deadline(std::chrono::system_clock::now() + patience);
    context.set_wait_for_ready(true);
    grpc::CompletionQueue queue;
    const auto reader = stub.PrepareUnaryCall(&context, path, req, &queue);
    grpc::Status status;
    reader->StartCall();
    reader->Finish(rsp, &status, nullptr);
    void *tag = nullptr;
    bool finished = false;
    queue.Next(&tag, &finished);
    return status;
}

// A server on a Unix domain socket of its own and a channel to it, with threads for `calls` if given. Both and the
// services must outlive it. Calls may come from any thread.
class grpc_server {
 public:
    explicit grpc_server(const std::vector<grpc::Service *> &services, svc::call_server *calls = nullptr)
        : calls_(calls) {
        const std::string address = "unix:" + (folder_ / "grpc.sock");
        grpc::ServerBuilder builder;
        builder.AddListeningPort(address, grpc::InsecureServerCredentials());
        for (auto *service : services) {
            builder.RegisterService(service);
        }
        if (calls_) {
            calls_->attach(&builder);
        }
        server_ = builder.BuildAndStart();
        if (!server_) {
            throw std::runtime_error("no server at " + address);
        }
        channel_ = grpc::CreateChannel(address, grpc::InsecureChannelCredentials());
        constexpr size_t k_workers = 32;
        while (calls_ && workers_.size() < k_workers) {
            workers_.emplace_back([this] { calls_->run(); });
        }
    }
    grpc_server(const grpc_server &) = delete;
    grpc_server &operator=(const grpc_server &) = delete;
    ~grpc_server() {
        server_->Shutdown();
        if (calls_) {
            calls_->shutdown();
        }
    }

    const std::shared_ptr<grpc::Channel> &channel() const { return channel_; }

    grpc::Status call(const std::string &path, const google::protobuf::Message &req,
                      google::protobuf::Message *rsp) {
        return unary_call(channel_, path, req, rsp);
    }

 private:
    temporary_folder folder_;
    svc::call_server *calls_;
    std::unique_ptr<grpc::Server> server_;
    std::vector<std::jthread> workers_;
    std::shared_ptr<grpc::Channel> channel_;
};

}  // namespace test
