// The views of the agent's objects, as data.

#pragma once

#include <span>
#include <string_view>
#include <vector>

namespace nyxctl {

// A column takes its name from the last one of its path unless it has one; people read that of the field's label. Paths are dotted names of fields, and
//   a.kind    where "kind" is a oneof: which member is set, without "_spec" or "_if_spec"
//   a.b#      how many elements the list has, 0 where a message on the way is absent
//   a.b!      the names of the flags that are set in the message
//   a|b       the first of several paths that has a value, as text
//   ^a        a field of the element that an inner list belongs to
// A list of messages on the way means its last element.
struct view_column_s {
    const char *path;
    const char *title = nullptr;
};

// One row for each element of a list in the response.
struct list_view_s {
    const char *name;  // the word after "show"
    const char *help;
    const char *subject;  // see rows_s
    const char *method;
    const char *request = "{}";     // JSON
    const char *list = "response";  // dotted path
    const char *inner = "";         // a list in each element, whose elements are the rows then
    size_t keys = 1;                // see shown_s
    std::vector<view_column_s> columns;
    bool flattened = false;  // a row for each field of an element, in further columns field and value
    std::vector<const char *> counters = {};  // paths of lists of numbered counters, for append_counters()
};

// One response, or several one after the other, as rows of field and value.
struct object_part_s {
    const char *method;
    const char *prefix;   // in front of the names of the fields
    const char *message;  // path of the message to show; "" is the response
};

struct object_view_s {
    const char *name;
    const char *help;
    std::vector<object_part_s> parts;
};

// One element of a list as rows of field and value, chosen by the user.
struct element_view_s {
    const char *name;
    const char *help;
    const char *method;
    const char *example;                // a blank and a handle
    std::vector<const char *> handles;  // paths whose values choose an element; the first is its id
};

std::span<const list_view_s> list_views();
std::span<const object_view_s> object_views();
std::span<const element_view_s> element_views();
const list_view_s &lifs_classic_view();
const list_view_s &sessions_view();  // its request is the caller's

// Everything that can be read without parameters.
struct snapshot_part_s {
    const char *name;
    const char *method;
    const char *request;  // JSON
    const char *see;      // the command that shows it
};

std::span<const snapshot_part_s> snapshot_parts();

}  // namespace nyxctl
