#include "bench/entries.h"

#include <google/protobuf/message.h>

#include <algorithm>
#include <random>

#include "nyx/types/options.pb.h"
#include "svc/nyx_tbl_flow.h"
#include "svc/table_operations.h"

namespace bench {

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

using random_numbers = std::mt19937_64;

void fill_field(Message *message, const FieldDescriptor *field, random_numbers *random) {
    const auto *reflection = message->GetReflection();
    const auto width = field->options().GetExtension(types::record_width);
    const uint64_t number = (*random)() >> (64 - 8 * std::min(width, 8u));
    switch (field->cpp_type()) {
        case FieldDescriptor::CPPTYPE_UINT32:
            return reflection->SetUInt32(message, field, static_cast<uint32_t>(number));
        case FieldDescriptor::CPPTYPE_UINT64:
            return reflection->SetUInt64(message, field, number);
        default:
            std::string bytes(width, '\0');
            std::ranges::generate(bytes, [&] { return static_cast<char>((*random)()); });
            return reflection->SetString(message, field, bytes);
    }
}

void fill_fields(Message *message, random_numbers *random) {
    const auto *descriptor = message->GetDescriptor();
    for (int i = 0; i < descriptor->field_count(); i++) {
        fill_field(message, descriptor->field(i), random);
    }
}

}  // namespace

nyx::flowRequest flow_entries(int count) {
    random_numbers random;
    nyx::flowRequest request;
    for (int i = 0; i < count; i++) {
        auto *spec = request.add_request();
        fill_fields(spec->mutable_key(), &random);
        fill_fields(spec->mutable_flow_hash_data(), &random);
    }
    return request;
}

nyx::flowGetRequest flow_keys(int count) {
    random_numbers random;
    nyx::flowGetRequest request;
    for (int i = 0; i < count; i++) {
        fill_fields(request.add_key(), &random);
    }
    return request;
}

nyx_tbl_flow_spec_s flow_record() {
    nyx_tbl_flow_spec_s record{};
    nyx_tbl::spec_to_record<nyx_tbl::flow_binding>(record, flow_entries(1).request(0));
    return record;
}

}  // namespace bench
