// A response as the rows of a view.

#pragma once

#include <google/protobuf/message.h>

#include <string_view>

#include "client/view/shown.h"
#include "client/view/views.h"

namespace nyxctl {

// The rows of a list view; the response is of its method's type.
shown_s list_rows(const list_view_s &view, const google::protobuf::Message &response);

// Adds a column for each counter that the dictionary has in short views; those of the same name share one. For rates.
void append_counters(const list_view_s &view, const google::protobuf::Message &response, shown_s *shown);

// The elements of the list at a dotted path; none where a message on the way is absent.
std::vector<const google::protobuf::Message *> elements_at(const google::protobuf::Message &message,
                                                           std::string_view path);

// The value of a column, see view_column_s.
value_s column_value(const google::protobuf::Message &element, const view_column_s &column);

}  // namespace nyxctl
