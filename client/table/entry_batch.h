// Entries that share a request: their texts, their messages, and how far each has come.

#pragma once

#include <google/protobuf/message.h>

#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "client/table/entry_source.h"
#include "client/table/entry_stream.h"
#include "client/table/table_calls.h"

namespace nyxctl {

// What an entry needs, in the order in which a batch takes these steps.
enum step_e { STEP_NONE, STEP_CREATE, STEP_UPDATE, STEP_DELETE, STEP_CHECK };

struct batch_entry_s {
    size_t line;
    size_t text_at = 0;
    size_t text_size = 0;
    key_hash_t key = 0;
    step_e step = STEP_NONE;
    verdict_e verdict = VERDICT_UNKNOWN;
    bool has_zero_key = false;
    bool was_there = false;
    std::string_view reason = {};  // in `reasons` of the batch, or constant

    bool has_to(step_e next) const { return step == next && verdict == VERDICT_UNKNOWN && reason.empty(); }
    bool is_doubtful() const { return verdict == VERDICT_UNKNOWN && !reason.empty(); }
};

// Its memory is used again after clear().
struct entry_batch_s {
    using message_t = std::unique_ptr<google::protobuf::Message>;

    entry_batch_s(const table_layout_s &table, const table_methods_s &table_methods, bool only_keys);

    void clear();

    // Appends the message of an entry that is to be read into it.
    google::protobuf::Message *add_message();
    void drop_message();

    // Appends the entry of the last message.
    void add(const batch_entry_s &entry, std::string_view text);

    // Sets `keys` to those of the entries.
    void copy_keys();

    // A request with the entries that have to take the step.
    const google::protobuf::Message &request_for(step_e step);

    entry_text_s text_of(const batch_entry_s &entry) const;
    google::protobuf::Message *spec(size_t index);
    const google::protobuf::Message &key(size_t index) const;

    // Whether what was read has the record that the entry is to become.
    bool is_right(size_t index, const google::protobuf::Message &read) const;

    // Puts what an entry's text gives over what was read.
    void merge(size_t index, entry_source *source);

    const table_layout_s &layout;
    const table_methods_s &methods;
    const bool has_only_keys;
    std::vector<batch_entry_s> entries;
    std::string texts;
    message_t specs;   // a request with all entries
    message_t keys;    // a request for all keys
    message_t before;  // what was read
    message_t after;   // what was read again
    message_t some_specs;
    message_t some_keys;
    message_t write_answer;
    message_t delete_answer;
    std::deque<std::string> reasons;
    step_e step = STEP_NONE;  // under way; first the read
    bool is_done = false;
};

}  // namespace nyxctl
