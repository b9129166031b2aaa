#include "client/core/reflection.h"

#include <google/protobuf/descriptor.pb.h>
#include <grpcpp/grpcpp.h>

#include <memory>

#include "client/core/grpc_call.h"
#include "grpc/reflection/v1alpha/reflection.grpc.pb.h"

namespace nyxctl {
namespace {

using grpc::reflection::v1alpha::FileDescriptorResponse;
using grpc::reflection::v1alpha::ListServiceResponse;
using grpc::reflection::v1alpha::ServerReflection;
using grpc::reflection::v1alpha::ServerReflectionRequest;
using grpc::reflection::v1alpha::ServerReflectionResponse;
using stream_t = grpc::ClientReaderWriter<ServerReflectionRequest, ServerReflectionResponse>;

void keep_files(const FileDescriptorResponse &response, reflection_s *answer) {
    for (const std::string &bytes : response.file_descriptor_proto()) {
        google::protobuf::FileDescriptorProto file;
        if (file.ParseFromString(bytes)) {
            answer->files.emplace(file.name(), bytes);
        }
    }
}

void keep_services(const ListServiceResponse &response, reflection_s *answer) {
    for (const auto &service : response.service()) {
        answer->services.push_back(service.name());
    }
}

// Answers to a question come one by one and in its place: an error where the agent does not have the file.
bool ask(stream_t *stream, const ServerReflectionRequest &request, reflection_s *answer) {
    ServerReflectionResponse response;
    if (!stream->Write(request) || !stream->Read(&response)) {
        return false;
    }
    keep_files(response.file_descriptor_response(), answer);
    keep_services(response.list_services_response(), answer);
    return true;
}

void ask_all(stream_t *stream, std::span<const std::string> files, reflection_s *answer) {
    ServerReflectionRequest request;
    request.set_list_services("*");
    bool answered = ask(stream, request, answer);
    for (size_t i = 0; answered && i < files.size(); i++) {
        if (!answer->files.contains(files[i])) {
            request.set_file_by_filename(files[i]);
            answered = ask(stream, request, answer);
        }
    }
    stream->WritesDone();
}

}  // namespace

outcome_s ask_reflection(const global_options_s &options, std::span<const std::string> files,
                         reflection_s *answer) {
    std::shared_ptr<grpc::Channel> channel;
    if (outcome_s outcome = grpc_channel(options, &channel); !outcome.ok()) {
        return outcome;
    }
    grpc::ClientContext context;
    context.set_deadline(std::chrono::system_clock::now() + options.timeout());
    const auto stub = ServerReflection::NewStub(channel);
    const auto stream = stub->ServerReflectionInfo(&context);
    reflection_s told;
    ask_all(stream.get(), files, &told);
    const grpc::Status status = stream->Finish();
    if (!status.ok()) {
        return {NYXCTL_EXIT_GRPC_BASE + static_cast<int>(status.error_code()), status.error_message()};
    }
    *answer = std::move(told);
    return {};
}

}  // namespace nyxctl
