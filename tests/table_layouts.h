// What tests expect of the P4 tables: layouts read from data/table_layouts.txt, and entries made up from them, each as
// message and as record. Nothing here uses the code of the table service, or the schema.

#pragma once

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace test {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using record = std::vector<uint8_t>;

struct field_layout_s {
    std::string name;
    size_t offset;  // in the entry record
    size_t width;
    FieldDescriptor::Type type;
};

struct action_layout_s {
    uint32_t id;
    std::string member;  // of the oneof Data
    int number;          // the member's field number
    std::string message;
    std::vector<field_layout_s> fields;
};

struct table_layout_s {
    size_t number;  // place in the table service, from 0
    std::string name;
    bool ternary;
    size_t record_size;
    size_t key_size;
    std::vector<field_layout_s> key;
    size_t mask_flag_offset;  // with the mask: ternary tables only
    std::vector<field_layout_s> mask;
    std::vector<action_layout_s> actions;  // those with data

    const action_layout_s *action(uint32_t id) const;  // nullptr: carries no data
};

// All tables in the order of the table service. Throws std::runtime_error when the listing cannot be read.
const std::vector<table_layout_s> &table_layouts();

// The table of this name. Throws std::runtime_error when there is none.
const table_layout_s &table_layout(const std::string &name);

struct entry_s {
    std::shared_ptr<Message> spec;
    test::record record;
};

// How values are made: of the width of their record field, with more bytes than it takes, or (byte strings)
// with only half of them.
enum class fit_e { FIT_EXACT, FIT_TOO_WIDE, FIT_TOO_SHORT };

// An entry whose key counts up from `key_byte`, byte by byte, and whose mask and data do so from `data_byte`.
// When the action has no data, the spec holds some all the same if the table has any.
entry_s make_entry(const table_layout_s &layout, uint32_t action_id, uint8_t key_byte, uint8_t data_byte,
                   fit_e fit = fit_e::FIT_EXACT);

// The spec that a Get answers for a record.
std::shared_ptr<Message> read_record(const table_layout_s &layout, const record &rec);

// Requests about entries: the message of a Create or Update, and of a Get or Delete (`operation`).
std::shared_ptr<Message> write_request(const table_layout_s &layout, const std::vector<entry_s> &entries);
std::shared_ptr<Message> keys_request(const table_layout_s &layout, const std::string &operation,
                                      const std::vector<entry_s> &entries);

// Responses: the one of Create or Update (`operation` empty) or Delete, and the one of a Get that finds
// `entries`.
std::shared_ptr<Message> response(const table_layout_s &layout, const std::string &operation, int api_status);
std::shared_ptr<Message> get_response(const table_layout_s &layout, const std::vector<entry_s> &entries,
                                      int api_status);

// An empty message nyx.NAME.
std::shared_ptr<Message> new_message(const std::string &name);

// Members of a message by name.
Message *mutable_member(Message *message, const std::string &name);
void set_number(Message *message, const std::string &name, uint64_t value);

}  // namespace test
