// Services, methods, messages and enumerations of the proto library, found by name. All lookups take a full
// name or any of its endings in whole dotted parts: "flowCreate" finds "nyx.NyxTblSvc.flowCreate" and never
// "nyx.NyxTblSvc.l2_flowCreate". A '/' counts as a dot. A full name is preferred to an ending.

#pragma once

#include <google/protobuf/descriptor.h>

#include <string>
#include <string_view>
#include <vector>

#include "client/core/outcome.h"

namespace nyxctl {

// All services by full name, in alphabetical order.
std::vector<const google::protobuf::ServiceDescriptor *> all_services();

// Full names of all messages, nested ones included.
std::vector<std::string> all_message_names();

// Each sets `found` and returns success when the name fits exactly one symbol. Otherwise it returns a usage
// failure with the nearest names or, when several fit, with all of those; `found` is then unchanged.
outcome_s find_service(std::string_view name, const google::protobuf::ServiceDescriptor **found);
outcome_s find_method(std::string_view name, const google::protobuf::MethodDescriptor **found);
outcome_s find_message(std::string_view name, const google::protobuf::Descriptor **found);

// Finds a symbol of any of the four kinds and sets `text` to its definition in .proto notation; a method
// comes with its request and its response.
outcome_s describe_symbol(std::string_view name, std::string *text);

// "nyx.NyxTblSvc/flowCreate"
std::string method_path(const google::protobuf::MethodDescriptor *method);

}  // namespace nyxctl
