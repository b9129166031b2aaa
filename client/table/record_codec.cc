#include "client/table/record_codec.h"

#include <fmt/format.h>

#include <algorithm>

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

constexpr size_t k_key_offset = 1;  // of the key in the entry record

uint64_t get_number(const pb::Message &message, const record_field_s &field) {
    return field.type == pb::FieldDescriptor::TYPE_UINT64 ? field.reflection->GetUInt64(message, field.field)
                                                          : field.reflection->GetUInt32(message, field.field);
}

void set_number(pb::Message *message, const record_field_s &field, uint64_t number) {
    if (field.type == pb::FieldDescriptor::TYPE_UINT64) {
        field.reflection->SetUInt64(message, field.field, number);
    } else {
        field.reflection->SetUInt32(message, field.field, static_cast<uint32_t>(number));
    }
}

// Writes the value as it is in the record, at most `width` bytes.
void put_value(const pb::Message &message, const record_field_s &field, char *bytes) {
    if (field.type == pb::FieldDescriptor::TYPE_BYTES) {
        std::string scratch;
        const auto &value = field.reflection->GetStringReference(message, field.field, &scratch);
        value.copy(bytes, field.width);
        return;
    }
    uint64_t number = get_number(message, field);
    if (field.part == RECORD_MASK_FLAG) {
        number = number != 0;
    }
    for (size_t i = 0; i < field.width; i++, number >>= 8) {
        bytes[i] = static_cast<char>(number & 0xff);
    }
}

void set_value(pb::Message *message, const record_field_s &field, std::string_view bytes) {
    if (field.type == pb::FieldDescriptor::TYPE_BYTES) {
        field.reflection->SetString(message, field.field, std::string(bytes));
        return;
    }
    uint64_t number = 0;
    for (size_t i = bytes.size(); i > 0; i--) {
        number = number << 8 | static_cast<unsigned char>(bytes[i - 1]);
    }
    set_number(message, field, field.part == RECORD_MASK_FLAG ? number != 0 : number);
}

const record_field_s *flag_field(const table_layout_s &layout) {
    const auto found = std::ranges::find(layout.fields, RECORD_MASK_FLAG, &record_field_s::part);
    return found == layout.fields.end() ? nullptr : &*found;
}

bool counts(const record_field_s &field, bool masked, uint8_t action_id) {
    if (field.part == RECORD_MASK) return masked;
    return field.part != RECORD_DATA || field.action_id == action_id;
}

outcome_s check_size(const table_layout_s &layout, std::string_view record, const char *kind, size_t size) {
    if (record.size() == size) {
        return {};
    }
    const char *other = record.size() == layout.key_size      ? "; that is the size of a key record (--key)"
                        : record.size() == layout.record_size ? "; that is the size of an entry record"
                                                              : "";
    return usage_failure(
        fmt::format("{0}: found {1} bytes, but its {2} record has {3}{4}; see nyxctl explain {0}",
                    layout.name, record.size(), kind, size, other));
}

}  // namespace

std::string encode_record(const table_layout_s &layout, const pb::Message &spec) {
    std::string record(layout.record_size, '\0');
    const auto *flag = flag_field(layout);
    const bool masked = flag && get_number(spec, *flag) != 0;
    const pb::FieldDescriptor *member = nullptr;
    const pb::Message *holder = &spec;
    for (const record_field_s &field : layout.fields) {
        const auto action_id = static_cast<uint8_t>(record[0]);  // the first of the fields
        if (!counts(field, masked, action_id)) {
            continue;
        }
        if (field.member != member) {
            member = field.member;
            holder = member ? &spec.GetReflection()->GetMessage(spec, member) : &spec;
        }
        put_value(*holder, field, &record[field.offset]);
    }
    return record;
}

std::string encode_key(const table_layout_s &layout, const pb::Message &key) {
    std::string record(layout.key_size, '\0');
    for (const record_field_s &field : layout.fields) {
        if (field.part == RECORD_KEY) {
            put_value(key, field, &record[field.offset - k_key_offset]);
        }
    }
    return record;
}

outcome_s decode_record(const table_layout_s &layout, std::string_view record, pb::Message *spec) {
    if (outcome_s outcome = check_size(layout, record, "entry", layout.record_size); !outcome.ok()) {
        return outcome;
    }
    spec->Clear();
    const auto *flag = flag_field(layout);
    const bool masked = flag && record[flag->offset] != 0;
    for (const record_field_s &field : layout.fields) {
        if (counts(field, masked, static_cast<uint8_t>(record[0]))) {
            pb::Message *holder =
                field.member ? spec->GetReflection()->MutableMessage(spec, field.member) : spec;
            set_value(holder, field, record.substr(field.offset, field.width));
        }
    }
    return {};
}

outcome_s decode_key(const table_layout_s &layout, std::string_view record, pb::Message *key) {
    if (outcome_s outcome = check_size(layout, record, "key", layout.key_size); !outcome.ok()) {
        return outcome;
    }
    key->Clear();
    for (const record_field_s &field : layout.fields) {
        if (field.part == RECORD_KEY) {
            set_value(key, field, record.substr(field.offset - k_key_offset, field.width));
        }
    }
    return {};
}

}  // namespace nyxctl
