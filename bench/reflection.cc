#include "bench/reflection.h"

#include <algorithm>
#include <cstring>

#include "nyx/types/options.pb.h"

namespace bench {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

flow_reflection::flow_reflection()
    : key_(fields_of(nyx::flow_key_t::descriptor())),
      data_(fields_of(nyx::flow_flow_hash_data_t::descriptor())) {}

std::vector<flow_reflection::field_s> flow_reflection::fields_of(const Descriptor *message) {
    std::vector<field_s> fields;
    for (int i = 0; i < message->field_count(); i++) {
        const auto &options = message->field(i)->options();
        fields.push_back({message->field(i), options.GetExtension(types::record_offset),
                          options.GetExtension(types::record_width)});
    }
    return fields;
}

void flow_reflection::to_bytes(uint8_t *record, const Message &message, const std::vector<field_s> &fields) {
    const auto *reflection = message.GetReflection();
    std::string scratch;
    for (const auto &[field, offset, width] : fields) {
        switch (field->cpp_type()) {
            case FieldDescriptor::CPPTYPE_UINT32: {
                const auto number = reflection->GetUInt32(message, field);
                memcpy(record + offset, &number, width);
                break;
            }
            case FieldDescriptor::CPPTYPE_UINT64: {
                const auto number = reflection->GetUInt64(message, field);
                memcpy(record + offset, &number, width);
                break;
            }
            default: {
                const auto &bytes = reflection->GetStringReference(message, field, &scratch);
                memcpy(record + offset, bytes.data(), std::min(bytes.size(), width));
            }
        }
    }
}

void flow_reflection::to_fields(Message *message, const uint8_t *record, const std::vector<field_s> &fields) {
    const auto *reflection = message->GetReflection();
    for (const auto &[field, offset, width] : fields) {
        uint64_t number = 0;
        if (field->cpp_type() == FieldDescriptor::CPPTYPE_STRING) {
            reflection->SetString(message, field,
                                  std::string(reinterpret_cast<const char *>(record + offset), width));
            continue;
        }
        memcpy(&number, record + offset, width);
        if (field->cpp_type() == FieldDescriptor::CPPTYPE_UINT32) {
            reflection->SetUInt32(message, field, static_cast<uint32_t>(number));
        } else {
            reflection->SetUInt64(message, field, number);
        }
    }
}

void flow_reflection::to_record(nyx_tbl_flow_spec_s &record, const nyx::flowSpec &spec) const {
    auto *bytes = reinterpret_cast<uint8_t *>(&record);
    record.action_id = static_cast<uint8_t>(spec.action_id());
    to_bytes(bytes, spec.key(), key_);
    to_bytes(bytes, spec.flow_hash_data(), data_);
}

void flow_reflection::to_message(nyx::flowSpec *spec, const nyx_tbl_flow_spec_s &record) const {
    const auto *bytes = reinterpret_cast<const uint8_t *>(&record);
    spec->set_action_id(record.action_id);
    to_fields(spec->mutable_key(), bytes, key_);
    to_fields(spec->mutable_flow_hash_data(), bytes, data_);
}

}  // namespace bench
