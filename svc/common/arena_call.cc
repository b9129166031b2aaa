#include "svc/common/arena_call.h"

#include <google/protobuf/arena.h>
#include <google/protobuf/descriptor.h>
#include <grpcpp/grpcpp.h>
#include <grpcpp/impl/codegen/proto_utils.h>
#include <grpcpp/impl/codegen/server_callback_handlers.h>
#include <grpcpp/support/message_allocator.h>
#include <grpcpp/support/method_handler.h>

#include <climits>
#include <cstddef>
#include <new>

namespace svc {

namespace {

using google::protobuf::MessageLite;
using grpc::internal::CatchingFunctionHandler;

// A message of any type, for gRPC's handler, which is written for one type.
struct any_message_s {
    MessageLite *message = nullptr;  // none when there was no memory for it
    grpc::Status parsed = {};
};

grpc::Status parse(grpc::ByteBuffer *bytes, MessageLite *message) {
    if (!grpc::SerializationTraits<MessageLite>::Deserialize(bytes, message).ok()) {
        return {grpc::INTERNAL, "The request can't be parsed as " + message->GetTypeName()};
    }
    return grpc::Status::OK;
}

}  // namespace

}  // namespace svc

template <>
class grpc::SerializationTraits<svc::any_message_s> {
 public:
    static Status Serialize(const svc::any_message_s &from, ByteBuffer *to, bool *own_buffer) {
        return SerializationTraits<google::protobuf::MessageLite>::Serialize(*from.message, to, own_buffer);
    }

    // Keeps the outcome for the handler: whatever is returned here, clients are told UNIMPLEMENTED.
    static Status Deserialize(ByteBuffer *from, svc::any_message_s *to) {
        if (to->message) {
            to->parsed = internal::CatchingFunctionHandler([&] { return svc::parse(from, to->message); });
        }
        from->Clear();
        return Status::OK;
    }
};

namespace svc {

namespace {

using callback_handler = grpc::internal::CallbackUnaryHandler<any_message_s, any_message_s>;
using message_allocator = grpc::MessageAllocator<any_message_s, any_message_s>;
using message_holder = grpc::MessageHolder<any_message_s, any_message_s>;

// The messages of one call, and their memory.
class call_messages : public message_holder {
 public:
    explicit call_messages(const unary_method_s &method)
        : arena_(pieces()), request_{method.request->New(&arena_)}, response_{method.response->New(&arena_)} {
        set_request(&request_);
        set_response(&response_);
    }

    void Release() override { delete this; }

 private:
    google::protobuf::ArenaOptions pieces() {
        google::protobuf::ArenaOptions options;
        options.initial_block = first_piece_;
        options.initial_block_size = sizeof(first_piece_);
        options.max_block_size = 64 * 1024;  // below what malloc maps and unmaps each time
        return options;
    }

    alignas(std::max_align_t) char first_piece_[4000];  // enough for a few entries
    google::protobuf::Arena arena_;
    any_message_s request_, response_;
};

// In their place when there is no memory for them.
class no_messages : public message_holder {
 public:
    no_messages() {
        set_request(&none_);
        set_response(&none_);
    }

    void Release() override {}

 private:
    any_message_s none_;
};

bool may_be_huge(const MessageLite &response) {
    constexpr size_t k_arena_of_small_ones =
        16 * 1024 * 1024;  // leaves out long strings, a multiple of it at most
    return response.GetArena()->SpaceAllocated() > k_arena_of_small_ones;
}

grpc::Status answer(const unary_method_s &method, const any_message_s &request, any_message_s *response) {
    if (!request.message) {
        throw std::bad_alloc();
    }
    if (!request.parsed.ok()) {
        return request.parsed;
    }
    method.run(*request.message, response->message);
    return may_be_huge(*response->message) ? status_of(*response->message) : grpc::Status::OK;
}

class arena_handler : public callback_handler, message_allocator {
 public:
    explicit arena_handler(const unary_method_s &method)
        : callback_handler([this](grpc::CallbackServerContext *context, const any_message_s *request,
                                  any_message_s *response) {
              auto *reactor = context->DefaultReactor();
              reactor->Finish(CatchingFunctionHandler([&] { return answer(method_, *request, response); }));
              return reactor;
          }),
          method_(method) {
        SetMessageAllocator(this);
    }

 private:
    message_holder *AllocateMessages() override {
        auto *messages = new (std::nothrow) call_messages(method_);
        return messages ? static_cast<message_holder *>(messages) : &no_messages_;
    }

    const unary_method_s method_;
    no_messages no_messages_;
};

}  // namespace

int method_index(const std::string &full_name) {
    return google::protobuf::DescriptorPool::generated_pool()->FindMethodByName(full_name)->index();
}

grpc::internal::MethodHandler *make_arena_handler(const unary_method_s &method) {
    return new arena_handler(method);
}

grpc::Status status_of(const MessageLite &response) {
    if (response.ByteSizeLong() > INT_MAX) {
        return {grpc::RESOURCE_EXHAUSTED, "The response would be longer than 2 GiB: ask for less at a time"};
    }
    return grpc::Status::OK;
}

}  // namespace svc
