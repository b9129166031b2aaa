// What a service class of this library adds to its generated service: a call server can serve it.

#pragma once

#include <google/protobuf/message.h>
#include <grpcpp/completion_queue.h>
#include <grpcpp/server_context.h>
#include <grpcpp/support/async_unary_call.h>
#include <grpcpp/support/byte_buffer.h>

#include <span>
#include <string>

namespace svc {

// A method in terms that are the same for all of them.
struct method_s {
    const char *name;
    const google::protobuf::Message &(*request)();  // the default instances of its types
    const google::protobuf::Message &(*response)();
    grpc::Status (*run)(grpc::Service *service, grpc::ServerContext *context,
                        const google::protobuf::Message &request, google::protobuf::Message *response);
};

template <auto method, class Service, class Request, class Response>
constexpr method_s make_method(const char *name, grpc::Status (Service::*)(grpc::ServerContext *,
                                                                           const Request *, Response *)) {
    using google::protobuf::Message;
    return {.name = name,
            .request = []() -> const Message & { return Request::default_instance(); },
            .response = []() -> const Message & { return Response::default_instance(); },
            .run =
                [](grpc::Service *service, grpc::ServerContext *context, const Message &request,
                   Message *response) {
                    return (static_cast<Service *>(service)->*method)(
                        context, static_cast<const Request *>(&request), static_cast<Response *>(response));
                }};
}

// method_of<&PortSvcImpl::PortGet>("PortGet")
template <auto method>
constexpr method_s method_of(const char *name) {
    return make_method<method>(name, method);
}

// A service as a call server sees it.
class callable {
 public:
    // Waits for a call of the method with this index; `tag` comes out of `queue` with the call, or when the server stops.
    virtual void await_call(int method, grpc::ServerContext *context, grpc::ByteBuffer *request,
                            grpc::ServerAsyncResponseWriter<grpc::ByteBuffer> *answer,
                            grpc::ServerCompletionQueue *queue, void *tag) = 0;

 protected:
    ~callable() = default;
};

// Has the call server, if there is one, serve the service: these methods by their names, all others of its descriptor
// with UNIMPLEMENTED. Returns how many methods it serves, 0 without a call server.
int hand_to_call_server(const char *service_name, grpc::Service *service, callable *calls,
                        std::span<const method_s> methods);

// The base of a service class: served<nyx::PortSvc> in place of nyx::PortSvc::Service. Constructed while there is a call
// server (call_server.h), the object is served by that; otherwise it is a plain synchronous service.
template <class Names>
class served : public Names::Service, callable {
 protected:
    explicit served(std::span<const method_s> methods) {
        const int count = hand_to_call_server(Names::service_full_name(), this, this, methods);
        for (int i = 0; i < count; i++) {
            this->MarkMethodRaw(i);
        }
    }

 private:
    void await_call(int method, grpc::ServerContext *context, grpc::ByteBuffer *request,
                    grpc::ServerAsyncResponseWriter<grpc::ByteBuffer> *answer,
                    grpc::ServerCompletionQueue *queue, void *tag) final {
        this->RequestAsyncUnary(method, context, request, answer, queue, queue, tag);
    }
};

}  // namespace svc
