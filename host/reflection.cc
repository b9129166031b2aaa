#include "host/reflection.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>

#include <list>
#include <mutex>
#include <new>
#include <unordered_set>
#include <utility>

#include "grpc/reflection/v1alpha/reflection.grpc.pb.h"

namespace host {

namespace {

namespace pb = google::protobuf;
namespace v1alpha = grpc::reflection::v1alpha;
using request_t = v1alpha::ServerReflectionRequest;
using response_t = v1alpha::ServerReflectionResponse;

constexpr size_t k_max_streams = 64, k_max_request_size = 4096;

void fail(const std::string &missing, response_t *response) {
    response->mutable_error_response()->set_error_code(grpc::NOT_FOUND);
    response->mutable_error_response()->set_error_message("not found: " + missing);
}

// The file after those that it imports, each once.
void add_file(const pb::FileDescriptor *file, std::unordered_set<const pb::FileDescriptor *> *added,
              v1alpha::FileDescriptorResponse *response) {
    if (!added->insert(file).second) {
        return;
    }
    pb::FileDescriptorProto content;
    file->CopyTo(&content);
    response->add_file_descriptor_proto(content.SerializeAsString());
    for (int i = 0; i < file->dependency_count(); i++) {
        add_file(file->dependency(i), added, response);
    }
}

void answer_file(const pb::FileDescriptor *file, const std::string &name, response_t *response) {
    if (!file) {
        return fail(name, response);
    }
    std::unordered_set<const pb::FileDescriptor *> added;
    add_file(file, &added, response->mutable_file_descriptor_response());
}

const pb::FileDescriptor *file_of_extension(const pb::Descriptor *type, int number) {
    const auto *extension = type ? type->file()->pool()->FindExtensionByNumber(type, number) : nullptr;
    return extension ? extension->file() : nullptr;
}

void answer_extension_numbers(const std::string &type_name, response_t *response) {
    const auto *pool = pb::DescriptorPool::generated_pool();
    const auto *type = pool->FindMessageTypeByName(type_name);
    if (!type) {
        return fail(type_name, response);
    }
    std::vector<const pb::FieldDescriptor *> extensions;
    pool->FindAllExtensions(type, &extensions);
    auto *numbers = response->mutable_all_extension_numbers_response();
    numbers->set_base_type_name(type_name);
    for (const auto *extension : extensions) {
        numbers->add_extension_number(extension->number());
    }
}

class reflection_stream;

// Called by gRPC's threads.
class reflection_service final : public v1alpha::ServerReflection::CallbackService {
 public:
    explicit reflection_service(std::vector<std::string> services) : services_(std::move(services)) {}

    grpc::ServerBidiReactor<request_t, response_t> *ServerReflectionInfo(
        grpc::CallbackServerContext *context) override;

 private:
    friend class reflection_stream;

    void answer(const request_t &request, response_t *response) const;
    void joined(reflection_stream *joining);
    void left(reflection_stream *leaving);

    const std::vector<std::string> services_;
    std::recursive_mutex mutex_;  // gRPC may report the end of a stream within the call that ends it
    std::list<reflection_stream *> streams_;  // the oldest one first
};

// Always waits for one thing: a request, or its answer to be sent.
class reflection_stream final : public grpc::ServerBidiReactor<request_t, response_t> {
 public:
    reflection_stream(reflection_service *service, grpc::CallbackServerContext *context)
        : service_(service), context_(context) {
        service_->joined(this);
        StartRead(&request_);
    }

    void cancel() { context_->TryCancel(); }

    void OnReadDone(bool ok) override {
        if (!ok) {
            return Finish(grpc::Status::OK);
        }
        if (request_.ByteSizeLong() > k_max_request_size) {
            return Finish({grpc::INVALID_ARGUMENT, "The request is longer than 4096 bytes"});
        }
        try {
            response_.Clear();
            service_->answer(request_, &response_);
        } catch (const std::bad_alloc &) {
            return Finish({grpc::RESOURCE_EXHAUSTED, "Out of memory"});
        }
        StartWrite(&response_);
    }

    void OnWriteDone(bool ok) override {
        if (!ok) {
            return Finish(grpc::Status::OK);
        }
        StartRead(&request_);
    }

    void OnDone() override {
        service_->left(this);
        delete this;
    }

 private:
    reflection_service *service_;
    grpc::CallbackServerContext *context_;  // lives until OnDone() has returned
    request_t request_;
    response_t response_;
};

grpc::ServerBidiReactor<request_t, response_t> *reflection_service::ServerReflectionInfo(
    grpc::CallbackServerContext *context) {
    return new reflection_stream(this, context);
}

void reflection_service::joined(reflection_stream *joining) {
    const std::lock_guard lock(mutex_);
    streams_.push_back(joining);
    if (streams_.size() > k_max_streams) {
        reflection_stream *oldest = streams_.front();
        streams_.pop_front();
        oldest->cancel();
    }
}

void reflection_service::left(reflection_stream *leaving) {
    const std::lock_guard lock(mutex_);
    streams_.remove(leaving);
}

void reflection_service::answer(const request_t &request, response_t *response) const {
    const auto *pool = pb::DescriptorPool::generated_pool();
    response->set_valid_host(request.host());
    *response->mutable_original_request() = request;
    switch (request.message_request_case()) {
        case request_t::kFileByFilename:
            return answer_file(pool->FindFileByName(request.file_by_filename()), request.file_by_filename(),
                               response);
        case request_t::kFileContainingSymbol:
            return answer_file(pool->FindFileContainingSymbol(request.file_containing_symbol()),
                               request.file_containing_symbol(), response);
        case request_t::kFileContainingExtension: {
            const auto &extension = request.file_containing_extension();
            return answer_file(file_of_extension(pool->FindMessageTypeByName(extension.containing_type()),
                                                 extension.extension_number()),
                               extension.containing_type(), response);
        }
        case request_t::kAllExtensionNumbersOfType:
            return answer_extension_numbers(request.all_extension_numbers_of_type(), response);
        case request_t::kListServices:
            for (const auto &name : services_) {
                response->mutable_list_services_response()->add_service()->set_name(name);
            }
            return;
        case request_t::MESSAGE_REQUEST_NOT_SET:
            response->mutable_error_response()->set_error_code(grpc::INVALID_ARGUMENT);
            response->mutable_error_response()->set_error_message("the request asks for nothing");
    }
}

}  // namespace

std::unique_ptr<grpc::Service> make_reflection_service(std::vector<std::string> services) {
    return std::make_unique<reflection_service>(std::move(services));
}

}  // namespace host
