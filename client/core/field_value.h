// Values of fields as people write and read them: the only reader and the only writer of such texts. Used by words of
// the command line, by JSON in both directions, and by views.

#pragma once

#include <google/protobuf/message.h>

#include <string>
#include <string_view>
#include <vector>

#include "client/core/value.h"

namespace nyxctl {

// What to do with a number or byte string that is too wide.
enum class fit_e {
    type,    // refuse what the field does not hold
    record,  // refuse what the field of the agent's record does not hold, see record_width.h
    cut,     // take it: the agent cuts it; of a number only the low-order bytes may be left
};

// Sets a field that is not a message; of a list the element at `index`, or a new one when that is its size. Takes
//   for integers a number, decimal or 0x and hex digits, or an address where bytes_text.h has one
//   for enumerators the short text, the full name in any case, or the number: up, STATE_UP, 1
//   for truth values yes, no, true, false, 1, 0
//   for bytes what bytes_text.h takes, for texts the text itself
// Returns "", or the value and what is allowed instead; the message is then unchanged.
[[nodiscard]] std::string set_from_text(google::protobuf::Message *message,
                                        const google::protobuf::FieldDescriptor *field, int index,
                                        std::string_view text, fit_e fit = fit_e::type);

// Whether messages of the type are written and shown as one value: types.IPAddress as 10.0.0.1 or 2001:db8::1,
// types.IPPrefix as 10.0.0.0/24.
bool is_one_value(const google::protobuf::Descriptor *type);

// Sets such a message. Refuses any other with the names of its fields.
[[nodiscard]] std::string set_from_text(google::protobuf::Message *message, std::string_view text);

// The value of a field, the whole list of a repeated one. Bytes, and integers that are addresses, are texts; an
// unknown enumerator is its number; addresses without a family and other messages are null.
value_s field_value(const google::protobuf::Message &message, const google::protobuf::FieldDescriptor *field);

// The value of one element of a list, or of a field that is not repeated.
value_s element_value(const google::protobuf::Message &message,
                      const google::protobuf::FieldDescriptor *field, int index);

// An enumerator without the prefix that all of its enumeration share, in lower case: "up" for STATE_UP.
std::string enumerator_text(const google::protobuf::EnumValueDescriptor *value);

}  // namespace nyxctl
