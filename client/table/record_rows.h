// Records of P4 tables, and what is in them, as rows to show.

#pragma once

#include <google/protobuf/message.h>

#include <string>

#include "client/core/rows.h"
#include "client/table/record_layout.h"

namespace nyxctl {

// A row for each table: name, kind, sizes of its records, and the actions that have data.
rows_s all_layout_rows();

// A row for each field of the entry record, with its offset in the key record where it is of the key, and a row for
// the bytes after the last field, which are always zero.
rows_s layout_rows(const table_layout_s &layout);

// The sizes of the records and their parts in two lines:
//   "flow_info: exact, key record 4 bytes, entry record 69 bytes
//    [0 action] [1-4 key] [5-68 data of action 0]"
std::string layout_summary(const table_layout_s &layout);

// The same as a document: {"table": ..., "kind": ..., "key_bytes": ..., "record_bytes": ..., "fields": [rows]}.
std::string layout_json(const table_layout_s &layout);

// A row for each field of a Spec or key message: name as entry_args.h takes it, and value. Data of other actions and
// masks that are not valid are left out. With `numbers`, byte strings of 8 bytes in data, which hold counts, are
// counters (most significant byte first).
rows_s spec_rows(const table_layout_s &layout, const google::protobuf::Message &spec, bool numbers = false);
rows_s key_rows(const table_layout_s &layout, const google::protobuf::Message &key);

// A row for each field that differs: name, old and new value, null where the entry does not have the field.
rows_s change_rows(const table_layout_s &layout, const google::protobuf::Message &before,
                   const google::protobuf::Message &after);

// The fields that are not zero: "k1=100 k2=7".
std::string key_text(const table_layout_s &layout, const google::protobuf::Message &key);

}  // namespace nyxctl
