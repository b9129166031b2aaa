// Table entries there and back: what was read of an entry, written again, reads the same. An input holds any number of
// them: for each the number of its table, its size, and what to make its fields of.

#include <google/protobuf/message.h>

#include <string>

#include "fuzz/check.h"
#include "fuzz/input.h"
#include "svc/nyx_tbl_functions.h"

namespace {

using fuzz::check;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

void fill(Message *message, fuzz::input &in);

void fill_field(Message *message, const FieldDescriptor *field, fuzz::input &in) {
    const auto *reflection = message->GetReflection();
    switch (field->cpp_type()) {
        case FieldDescriptor::CPPTYPE_UINT32:
            return reflection->SetUInt32(message, field, in.take<uint32_t>());
        case FieldDescriptor::CPPTYPE_UINT64:
            return reflection->SetUInt64(message, field, in.take<uint64_t>());
        case FieldDescriptor::CPPTYPE_STRING:
            return reflection->SetString(message, field, std::string(in.take_bytes(in.take<uint8_t>() % 24)));
        case FieldDescriptor::CPPTYPE_MESSAGE:
            return fill(reflection->MutableMessage(message, field), in);
        default:
            check(false, "fields of table entries are of kinds that are known here");
    }
}

// All fields, those of a oneof one after the other, up to where the input ends: the last one stays.
void fill(Message *message, fuzz::input &in) {
    for (int i = 0; i < message->GetDescriptor()->field_count() && !in.empty(); i++) {
        const auto *field = message->GetDescriptor()->field(i);
        if (!field->containing_oneof() || in.take<uint8_t>() % 2) {
            fill_field(message, field, in);
        }
    }
}

template <class>
struct operation;
template <class Request, class Response>
struct operation<sdk::sdk_ret_t (*)(const Request *, Response *)> {
    using request_t = Request;
    using response_t = Response;
};

template <auto Operation>
auto run(const typename operation<decltype(Operation)>::request_t &req, bool succeeds) {
    typename operation<decltype(Operation)>::response_t rsp;
    const auto ret = Operation(&req, &rsp);
    check((ret == sdk::SDK_RET_OK) == succeeds, "operations on an entry that is there succeed, and no other");
    check((rsp.api_status() == types::API_STATUS_OK) == succeeds, "the response says how it went");
    fuzz::check_message(rsp);
    return rsp;
}

// The entry as the table has it, which is as empty after this as before.
template <auto Create, auto Get, auto Delete, class Spec>
Spec stored(const Spec &spec) {
    typename operation<decltype(Create)>::request_t entry;
    *entry.add_request() = spec;
    typename operation<decltype(Get)>::request_t key;
    *key.add_key() = spec.key();
    typename operation<decltype(Delete)>::request_t deleted;
    *deleted.add_key() = spec.key();

    (void)run<Create>(entry, true);
    (void)run<Create>(entry, false);
    const auto rsp = run<Get>(key, true);
    (void)run<Delete>(deleted, true);
    (void)run<Get>(key, false);
    check(rsp.response_size() == 1, "a key is answered once");
    return rsp.response(0).spec();
}

template <auto Create, auto Get, auto Delete>
void there_and_back(fuzz::input &in) {
    typename operation<decltype(Create)>::request_t entries;
    auto *spec = entries.add_request();
    fill(spec, in);
    const auto once = stored<Create, Get, Delete>(*spec);
    const auto twice = stored<Create, Get, Delete>(once);
    check(once.SerializeAsString() == twice.SerializeAsString(),
          "what was read, written again, reads the same");
}

constexpr void (*k_tables[])(fuzz::input &) = {
#define TABLE(name) there_and_back<&nyx_svc_##name##_create, &nyx_svc_##name##_get, &nyx_svc_##name##_delete>,
#include "fuzz/tables.inc"
#undef TABLE
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    for (fuzz::input in(data, size); !in.empty();) {
        const auto there_and_back = k_tables[in.take<uint8_t>() % std::size(k_tables)];
        fuzz::input entry(in.take_bytes(in.take<uint16_t>()));
        there_and_back(entry);
    }
    return 0;
}
