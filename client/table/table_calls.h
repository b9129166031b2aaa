// The methods of the table service, for any table.

#pragma once

#include <google/protobuf/message.h>

#include <memory>
#include <string>

#include "client/core/options.h"
#include "client/core/outcome.h"
#include "client/table/record_layout.h"

namespace nyxctl {

// "Create", "Update", "Delete" or "Get" of a table, and the lists that its requests and responses consist of.
struct table_method_s {
    table_method_s(const table_layout_s &layout, const std::string &operation);

    const google::protobuf::MethodDescriptor *method;
    const google::protobuf::FieldDescriptor *list;
    const google::protobuf::FieldDescriptor *answers;

    // The entry in an answer of "Get".
    const google::protobuf::Message &spec(const google::protobuf::Message &response, size_t index) const;
};

struct table_methods_s {
    explicit table_methods_s(const table_layout_s &layout)
        : get(layout, "Get"), create(layout, "Create"), update(layout, "Update"), remove(layout, "Delete") {}

    table_method_s get, create, update, remove;
};

// Reads one entry into `spec`. One that can't be read ends with NYXCTL_EXIT_API_STATUS, because the service reports no
// more about it.
outcome_s get_entry(const global_options_s &global, const table_layout_s &layout,
                    const google::protobuf::Message &key, google::protobuf::Message *spec);

}  // namespace nyxctl
