// Where the fields of a P4 table's entries are in the agent's records, read from the descriptors of the table's
// messages.

#pragma once

#include <google/protobuf/descriptor.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "client/core/outcome.h"

namespace nyxctl {

enum record_part_e { RECORD_ACTION, RECORD_KEY, RECORD_MASK_FLAG, RECORD_MASK, RECORD_DATA };

struct record_field_s {
    record_part_e part;
    const google::protobuf::FieldDescriptor
        *member;  // of the Spec; holds `field`, null for fields of the Spec itself
    const google::protobuf::FieldDescriptor *field;
    const google::protobuf::Reflection *reflection;  // of messages that have `field`
    google::protobuf::FieldDescriptor::Type type;    // of `field`
    size_t offset;       // in the entry record; in the key record a key field is one byte earlier
    size_t width;        // bytes
    uint32_t action_id;  // that a data field goes with

    // As people name it in one table: "action", "k1", "key_mask_valid", "mask.k1", "d1".
    std::string short_name() const;

    // The same by the field's label, as a word: "src", "mask.src". "" without one.
    std::string label() const;
};

struct table_layout_s {
    std::string name;
    const google::protobuf::Descriptor *spec;            // nyx.NAMESpec
    const google::protobuf::Descriptor *key;             // nyx.NAME_key_t
    const google::protobuf::FieldDescriptor *key_field;  // of the Spec
    size_t record_size;                                  // bytes of the entry record
    size_t key_size;                                     // bytes of the key record
    std::vector<record_field_s>
        fields;  // by offset up to the data; then the data of one action after the other
    std::vector<const google::protobuf::FieldDescriptor *> data;  // members of the Spec, by action_id

    bool ternary() const;

    // The member with the action's data, or null when the action has none.
    const google::protobuf::FieldDescriptor *data_of(uint32_t action_id) const;
};

uint32_t action_of(const google::protobuf::FieldDescriptor *data_member);

// "0 (flow_info_a_data)", for a table with data of several actions "0 (...) or 1 (...)".
std::string data_actions_text(const table_layout_s &layout);

// All tables, in the order of the table service.
std::vector<std::string> table_names();

// Sets `layout`, or returns a usage failure with the nearest names.
outcome_s find_table(std::string_view name, table_layout_s *layout);

}  // namespace nyxctl
