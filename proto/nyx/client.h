// What a client in C++ needs besides the generated stubs: whether values fit their fields, which entries of a request that
// failed are not in the card, and whether the agent restarted.
//
//     using stub = nyx::NyxTblSvc::Stub;
//     nyx::client::service<nyx::NyxTblSvc> tables(nyx::client::connect("unix:/run/nyx/grpc.sock"));
//     const auto written = tables.write(&stub::flowCreate, &stub::flowGet, entries);  // std::vector<nyx::flowSpec>

#pragma once

#include <google/protobuf/message.h>
#include <grpcpp/grpcpp.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "nyx/types/options.pb.h"
#include "nyx/types/status.pb.h"

namespace nyx::client {

namespace pb = google::protobuf;

// The value of an integer field; 0 for other types.
inline uint64_t number_of(const pb::Message &message, const pb::FieldDescriptor *field) {
    const pb::Reflection *reflection = message.GetReflection();
    return field->cpp_type() == field->CPPTYPE_UINT64   ? reflection->GetUInt64(message, field)
           : field->cpp_type() == field->CPPTYPE_UINT32 ? reflection->GetUInt32(message, field)
                                                        : 0;
}

// The first field whose value the agent would cut, such as "key.k2=70000: the largest value is 255". Empty if all fit.
inline std::string too_wide(const pb::Message &message) {
    const pb::Reflection *reflection = message.GetReflection();
    std::vector<const pb::FieldDescriptor *> fields;
    reflection->ListFields(message, &fields);
    for (const pb::FieldDescriptor *field : fields) {
        const uint32_t width = field->options().GetExtension(types::record_width);
        if (field->cpp_type() == field->CPPTYPE_MESSAGE) {
            for (int i = 0; i < (field->is_repeated() ? reflection->FieldSize(message, field) : 1); i++) {
                const std::string inner =
                    too_wide(field->is_repeated() ? reflection->GetRepeatedMessage(message, field, i)
                                                  : reflection->GetMessage(message, field));
                if (!inner.empty()) {
                    return field->name() + "." + inner;
                }
            }
        } else if (width != 0 && !field->is_repeated()) {
            const bool is_bytes = field->type() == field->TYPE_BYTES;
            const uint64_t largest = is_bytes ? width : ~0ULL >> (64 - 8 * width);
            const uint64_t value =
                is_bytes ? reflection->GetString(message, field).size() : number_of(message, field);
            if (value > largest) {
                return field->name() + "=" + std::to_string(value) + (is_bytes ? " bytes" : "") +
                       ": the largest value is " + std::to_string(largest);
            }
        }
    }
    return {};
}

// Whether two entries or keys become the same record.
inline bool same(const pb::Message &one, const pb::Message &other) {
    const auto *reflection = one.GetReflection();
    const auto *descriptor = one.GetDescriptor();
    for (int i = 0; i < descriptor->field_count(); i++) {
        const pb::FieldDescriptor *field = descriptor->field(i);
        if (field->cpp_type() == field->CPPTYPE_MESSAGE) {
            const auto *valid = descriptor->FindFieldByName(field->name() + "_valid");
            const bool is_read = !valid || number_of(one, valid) != 0;
            if (is_read && !same(reflection->GetMessage(one, field), reflection->GetMessage(other, field))) {
                return false;
            }
        } else if (field->type() == field->TYPE_BYTES) {
            std::string left = reflection->GetString(one, field);
            std::string right = reflection->GetString(other, field);
            left.resize(std::max(left.size(), right.size()));
            right.resize(left.size());
            if (left != right) {
                return false;
            }
        } else if (field->options().HasExtension(types::record_width) &&
                   number_of(one, field) != number_of(other, field)) {
            return false;
        }
    }
    return true;
}

// A channel to an agent that is found again soon after it restarted.
inline std::shared_ptr<grpc::Channel> connect(
    const std::string &address,
    const std::shared_ptr<grpc::ChannelCredentials> &credentials = grpc::InsecureChannelCredentials()) {
    grpc::ChannelArguments arguments;
    arguments.SetInt(GRPC_ARG_INITIAL_RECONNECT_BACKOFF_MS, 100);
    arguments.SetInt(GRPC_ARG_MAX_RECONNECT_BACKOFF_MS, 2000);
    return grpc::CreateCustomChannel(address, credentials, arguments);
}

// What became of entries or keys.
template <class Item>
struct written_s {
    size_t done = 0;
    std::vector<Item> failed = {};  // not in the card as they should be
    grpc::Status status = {};       // that ended it. INVALID_ARGUMENT: a value does not fit, nothing was sent
    [[nodiscard]] bool ok() const { return status.ok() && failed.empty(); }
};

// A service of the agent. One thread at a time may use it.
template <class Service>
class service {
 public:
    template <class Request, class Response>
    using method_t = grpc::Status (Service::Stub::*)(grpc::ClientContext *, const Request &, Response *);

    explicit service(const std::shared_ptr<grpc::Channel> &channel,
                     std::chrono::milliseconds timeout = std::chrono::seconds(30))
        : stub_(Service::NewStub(channel)), timeout_(timeout) {}

    // Calls a method, waiting for the agent if it is away. With `again`, for methods that change nothing, the call is
    // repeated when the connection breaks.
    template <class Request, class Response>
    grpc::Status call(method_t<Request, Response> method, const Request &request, Response *response,
                      bool again = false) {
        const auto deadline = std::chrono::system_clock::now() + timeout_;
        for (auto pause = std::chrono::milliseconds(20);; pause *= 2) {
            grpc::ClientContext context;
            context.set_wait_for_ready(true);
            context.set_deadline(deadline);
            const grpc::Status status = (stub_.get()->*method)(&context, request, response);
            note_instance(context);
            const bool broken =
                status.error_code() == grpc::UNAVAILABLE || status.error_code() == grpc::CANCELLED;
            if (!again || !broken || std::chrono::system_clock::now() + pause > deadline) {
                return status;
            }
            std::this_thread::sleep_for(pause);
        }
    }

    // Creates, updates or deletes table entries, a thousand in a request; `get` reads the same table. The keys of a request
    // that fails, or whose outcome is unknown, are read back: an entry that is there as given counts as done, and so does a
    // deleted key that is not there. Compare restarts() before and after: a restart takes what was written before it.
    template <class Request, class Response, class GetRequest, class GetResponse, class Items>
    auto write(method_t<Request, Response> method, method_t<GetRequest, GetResponse> get,
               const Items &items) {
        for (const auto &item : items) {
            if (const std::string text = too_wide(item); !text.empty()) {
                return written_s<std::remove_cvref_t<decltype(item)>>{
                    .status = {grpc::INVALID_ARGUMENT, text}};
            }
        }
        return in_parts(items, [&](const auto &part, auto *written) {
            Request request;
            if constexpr (requires { request.add_request(); }) {
                request.mutable_request()->Add(part.begin(), part.end());
            } else {
                request.mutable_key()->Add(part.begin(), part.end());
            }
            Response response;
            if (call(method, request, &response).ok() && response.api_status() == types::API_STATUS_OK) {
                written->done += part.size();
            } else {
                read_back(get, part, written);
            }
        });
    }

    // Which entries are in the card as given. `get` reads their table.
    template <class GetRequest, class GetResponse, class Items>
    auto check(method_t<GetRequest, GetResponse> get, const Items &items) {
        return in_parts(items, [&](const auto &part, auto *checked) { read_back(get, part, checked); });
    }

    // How often a response came from a new start of the agent, whose tables are empty: write everything again.
    [[nodiscard]] unsigned restarts() const { return restarts_; }

 private:
    static constexpr size_t k_entries = 1000;

    template <class Items, class Do>
    static auto in_parts(const Items &items, Do &&handle) {
        const std::span all(items);
        written_s<std::remove_cvref_t<decltype(all[0])>> done;
        for (size_t i = 0; i < all.size() && done.status.ok(); i += k_entries) {
            handle(all.subspan(i, std::min(k_entries, all.size() - i)), &done);
        }
        return done;
    }

    void note_instance(const grpc::ClientContext &context) {
        const auto &metadata = context.GetServerInitialMetadata();
        if (const auto found = metadata.find("nyx-instance-id"); found != metadata.end()) {
            const std::string instance(found->second.data(), found->second.size());
            restarts_ += !instance_.empty() && instance_ != instance;
            instance_ = instance;
        }
    }

    template <class GetRequest, class GetResponse, class Part, class Written>
    void read_back(method_t<GetRequest, GetResponse> get, const Part &part, Written *written) {
        constexpr bool are_entries = requires { part[0].key(); };
        GetRequest request;
        for (const auto &item : part) {
            if constexpr (are_entries) {
                *request.add_key() = item.key();
            } else {
                *request.add_key() = item;
            }
        }
        GetResponse response;
        written->status = call(get, request, &response, true);
        while (response.response_size() < request.key_size()) {
            response.add_response();  // an agent that says less than it should
        }
        for (int i = 0; i < request.key_size() && written->status.ok(); i++) {
            const auto &spec = response.response(i).spec();
            const bool is_all = response.api_status() == types::API_STATUS_OK;
            bool is_right = !is_all && !same(spec.key(), request.key(i));
            if constexpr (are_entries) {
                is_right = !is_right && same(part[i], spec);
            }
            is_right ? void(written->done++) : written->failed.push_back(part[i]);
        }
    }

    std::unique_ptr<typename Service::Stub> stub_;
    std::chrono::milliseconds timeout_;
    std::string instance_;
    unsigned restarts_ = 0;
};

}  // namespace nyx::client
