"""Emits the .proto files: one for each family of tables, one for the service."""

from model import families

HEADER = """\
// Generated from schema/quill.toml by tools/tablegen. Do not edit: change the schema and run ./dev generate.
syntax = "proto3";

package nyx;

"""

ADDRESS_TEXT = {6: "BYTES_TEXT_MAC", 16: "BYTES_TEXT_IPV6"}


def _field(field, start):
    first = start + field.offset
    options = [f"(types.record_width) = {field.size}", f"(types.record_offset) = {first}"]
    if field.is_bytes and field.size in ADDRESS_TEXT:
        options.append(f"(types.bytes_text) = {ADDRESS_TEXT[field.size]}")
    number = field.name[1:]
    return f"  {field.proto_type} {field.name} = {number} [{', '.join(options)}];\n"


def _fields_message(comment, name, fields, start, record_size=None):
    body = "".join(_field(f, start) for f in fields)
    if record_size is not None:
        body = f"  option (types.record_size) = {record_size};\n{body}"
    return f"// {comment}\nmessage {name} {{\n{body}}}\n\n"


def _spec_message(table):
    name, numbers = table.name, iter(range(1, 6))
    lines = [
        f"  option (types.record_size) = {table.record_size};\n",
        f"  {name}_key_t key = {next(numbers)};\n",
    ]
    if table.ternary:
        lines += [
            f"  {name}_key_mask_t key_mask = {next(numbers)};  // read if key_mask_valid is not 0\n",
            f"  uint32 key_mask_valid = {next(numbers)} [(types.record_width) = 1,"
            f" (types.record_offset) = {table.mask_offset}];"
            "  // 0: no mask; any other number: a mask\n",
        ]
    lines += [
        f"  uint32 action_id = {next(numbers)} [(types.record_width) = 1, (types.record_offset) = 0];  // {_action_ids(table)}\n",
        f"  uint64 client_tag = {next(numbers)};"
        "  // for the client's own use: the service neither reads nor writes it\n",
    ]
    if table.actions:
        lines.append("  oneof Data {\n")
        for action in table.actions:
            lines.append(
                f"    {name}_{action.name}_data_t {action.name}_data = {action.member_number}"
                f" [(types.action_id) = {action.id}];\n"
            )
        lines.append("  }\n")
    return (
        f"// One entry of {name}: its key, its action and the data of that action.\n"
        f"message {name}Spec {{\n{''.join(lines)}}}\n\n"
    )


def _action_ids(table):
    with_data = " and ".join(str(a.id) for a in table.actions)
    return f"only {with_data} with data" if with_data else "no action carries data"


def _envelopes(name):
    return f"""\
message {name} {{
  {name}Spec spec = 1;
}}

// Entries to create or update, one by one in this order.
message {name}Request {{
  repeated {name}Spec request = 1;
}}

message {name}Response {{
  types.ApiStatus api_status = 1;  // API_STATUS_ERROR if any entry failed
  repeated {name} response = 2;    // left empty by this service
}}

message {name}DeleteRequest {{
  repeated {name}_key_t key = 1;
}}

message {name}DeleteResponse {{
  types.ApiStatus api_status = 1;  // API_STATUS_ERROR if any key failed
}}

message {name}GetRequest {{
  repeated {name}_key_t key = 1;  // empty: nothing is read
}}

message {name}GetResponse {{
  repeated {name} response = 1;    // one for each key, in the order of the keys; all zero if that read failed
  types.ApiStatus api_status = 2;  // API_STATUS_ERROR if any key could not be read
}}

"""


def _table_messages(table):
    name = table.name
    kind = "ternary" if table.ternary else "exact match"
    parts = [
        _fields_message(
            f"Key of {name} ({kind}; key record {table.key_size} bytes, entry record {table.record_size}).",
            f"{name}_key_t", table.key, 1, table.key_size,
        )
    ]
    if table.ternary:
        parts.append(
            _fields_message(f"Mask over the key of {name}.", f"{name}_key_mask_t", table.key, table.mask_offset + 1)
        )
    for action in table.actions:
        parts.append(
            _fields_message(
                f"Data of action {action.id} of {name}.",
                f"{name}_{action.name}_data_t", action.fields, table.data_offset,
            )
        )
    return "".join(parts) + _spec_message(table) + _envelopes(name)


def _family_file(tables):
    imports = 'import "nyx/types/options.proto";\nimport "nyx/types/status.proto";\n\n'
    return HEADER + imports + "".join(map(_table_messages, tables)).rstrip("\n") + "\n"


def _service_file(tables):
    imports = "".join(f'import "nyx/tables/{family}.proto";\n' for family in families(tables))
    imports += 'import "nyx/types/options.proto";\n'
    operate, read = ("{ option (types.role) = ROLE_%s; }" % role for role in ("OPERATE", "READ"))
    methods = []
    for table in tables:
        name = table.name
        methods.append(f"""\
  rpc {name}Create({name}Request) returns ({name}Response) {operate}
  rpc {name}Update({name}Request) returns ({name}Response) {operate}
  rpc {name}Get({name}GetRequest) returns ({name}GetResponse) {read}
  rpc {name}Delete({name}DeleteRequest) returns ({name}DeleteResponse) {operate}
""")
    comment = """\
// Entries of the P4 tables. A request is a list of entries or keys, which are handled one by one, in order and without
// rollback: a failure does not stop the rest, and the response reports only that something failed. A request without
// entries or keys succeeds. Values are not checked: each is cut to the width of its record field, and of action_id the low
// 8 bits are used.
"""
    return f"{HEADER}{imports}\n{comment}service NyxTblSvc {{\n" + "\n".join(methods) + "}\n"


def emit(tables):
    """Returns {path below the repository: text}."""
    files = {f"proto/nyx/tables/{family}.proto": _family_file(group) for family, group in families(tables).items()}
    files["proto/nyx/tables/tbl_svc.proto"] = _service_file(tables)
    return files
