// What numbers of messages are called in metrics.

#pragma once

#include <google/protobuf/descriptor.h>

#include <string>
#include <string_view>

#include "client/core/labels.h"

namespace nyxctl {

struct unit_s {
    std::string_view unit;
    std::string_view base;  // the base unit, at the end of a name; "" for a number without one
    double factor = 1;
};

// nyx_port_link_state for "port" and "status.link_status.link_state": what the next name repeats is left out.
std::string metric_name(std::string_view prefix, std::string_view path);

// The unit of the label, of the contract, or of the field's name, which is then left without it.
unit_s metric_unit(const google::protobuf::FieldDescriptor *field, const label_s *label, std::string *name);

// ": 1 down, 2 up", of an enumeration or of a number that has texts.
std::string number_texts(const google::protobuf::FieldDescriptor *field, const label_s *label);

}  // namespace nyxctl
