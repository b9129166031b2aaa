// What reading and writing a message needs to know of its fields, looked up once for each type: descriptors answer too
// slowly for millions of entries.

#pragma once

#include <google/protobuf/message.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "nyx/types/options.pb.h"

namespace nyxctl {

// Fields that are read and written without a detour; all others take that of field_value.h.
enum plain_e { PLAIN_NONE, PLAIN_UINT32, PLAIN_UINT64, PLAIN_BYTES };

struct field_plan_s {
    const google::protobuf::FieldDescriptor *field;
    const google::protobuf::Reflection *reflection;  // of messages that have the field
    plain_e plain;
    std::string json_name;  // "\"k1\":"
    uint64_t largest;       // number that the field and its record hold
    size_t width;           // bytes in the record; 0 without one
    types::BytesText bytes_form;
    types::NumberText number_form;

    bool is_plain_number() const { return plain == PLAIN_UINT32 || plain == PLAIN_UINT64; }
    void set_number(google::protobuf::Message *message, uint64_t number) const;
    uint64_t number(const google::protobuf::Message &message) const;
};

struct message_plan_s {
    std::vector<field_plan_s> fields;                    // in the order of the type
    std::unordered_map<std::string_view, size_t> names;  // in either spelling of protobuf

    // The index of a field, or fields.size(). Fields mostly come in the same order, so `guess` is tried first.
    size_t find(std::string_view name, size_t guess) const;
};

// Made when it is asked for first; lives as long as the thread.
const message_plan_s &plan_of(const google::protobuf::Descriptor *type);

field_plan_s plan_of_field(const google::protobuf::FieldDescriptor *field);

// Sets a field, which is not repeated, to a value that is written in the usual way and fits. Otherwise returns false, and
// set_from_text() sets it or says what is wrong.
bool set_plainly(const field_plan_s &plan, std::string_view text, google::protobuf::Message *message);

}  // namespace nyxctl
