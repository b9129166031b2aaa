// Entries as the agent's records and back: little-endian integers, byte strings as they are, followed by zeros.

#pragma once

#include <google/protobuf/message.h>

#include <string>
#include <string_view>

#include "client/core/outcome.h"
#include "client/table/record_layout.h"

namespace nyxctl {

// The record that the agent makes from a Spec or a key message. As in the agent, wider values are cut, a mask counts
// only with key_mask_valid, and data only when it belongs to the action.
std::string encode_record(const table_layout_s &layout, const google::protobuf::Message &spec);
std::string encode_key(const table_layout_s &layout, const google::protobuf::Message &key);

// Sets the message to what the agent makes of a record. A record of another length is a usage failure.
outcome_s decode_record(const table_layout_s &layout, std::string_view record,
                        google::protobuf::Message *spec);
outcome_s decode_key(const table_layout_s &layout, std::string_view record, google::protobuf::Message *key);

}  // namespace nyxctl
