// Fields of messages, found by their names, and the messages in them.

#pragma once

#include <google/protobuf/message.h>

#include <memory>
#include <span>
#include <string>
#include <vector>

namespace nyxctl {

// How fields of messages of a type of the generated pool are reached. A message has the same answer, but takes a lock's
// time for it.
const google::protobuf::Reflection *reflection_of(const google::protobuf::Descriptor *type);

// An empty message of a type of the generated pool.
std::unique_ptr<google::protobuf::Message> new_message(const google::protobuf::Descriptor *type);

// Elements of a list, or 1 for a field that is not repeated; and one of them, the message at `index`.
int element_count(const google::protobuf::Message &message, const google::protobuf::FieldDescriptor *field);
const google::protobuf::Message &message_at(const google::protobuf::Message &message,
                                            const google::protobuf::FieldDescriptor *field, int index);

// The same to change; an index that is the size of the list appends an element.
google::protobuf::Message *mutable_message_at(google::protobuf::Message *message,
                                              const google::protobuf::FieldDescriptor *field, int index);

// The field of that name in either spelling of protobuf, or with that label, or null.
const google::protobuf::FieldDescriptor *find_field(const google::protobuf::Descriptor *type,
                                                    const std::string &name);

std::vector<std::string> field_names(const google::protobuf::Descriptor *type);

// "no such field in nyx.A or nyx.B; nearest: a, b; see nyxctl describe nyx.B"
std::string unknown_field_text(std::span<const google::protobuf::Descriptor *const> types,
                               const std::string &name);

// Why the field can't be set: another member of its oneof is set, and would be removed. "" when it can.
std::string oneof_error(const google::protobuf::Message &message,
                        const google::protobuf::FieldDescriptor *field);

}  // namespace nyxctl
