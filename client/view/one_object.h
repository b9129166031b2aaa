// A message as rows of field and value.

#pragma once

#include <google/protobuf/message.h>

#include <string>

#include "client/view/shown.h"

namespace nyxctl {

// Adds a row for every field of the message: the cells `keys`, its dotted path after `prefix`, its value. Of a oneof
// only the member that is set has rows; an absent message is null. Elements of lists of messages are named by their
// index, link_sm_records[0].state; elements that are a number and its value give one row, mac_stats[17] for the type 17.
// A field api_status is left out.
void append_object(const google::protobuf::Message &message, const std::string &prefix, const row_t &keys,
                   shown_s *shown);

// Whether messages of the type are a number and its value: MacStats, of a type and a count.
bool is_number_and_value(const google::protobuf::Descriptor *type);

// The head for such rows: the columns `keys`, field and value.
shown_s object_head(const std::string &subject, std::vector<column_s> keys = {});

}  // namespace nyxctl
