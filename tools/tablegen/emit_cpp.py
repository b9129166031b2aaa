"""Emits the C++ of every table: records, bindings, the methods of the service, the entry points of the stand-in."""

from model import families

HEADER = "// Generated from schema/quill.toml by tools/tablegen. Do not edit.\n"
KEY_TEMPLATE = "    template <class Key>  // the key's message or the mask's\n"
OPERATIONS = ("create", "update", "get", "delete")


def _c_member(field):
    if field.is_bytes:
        return f"    uint8_t {field.name}[{field.size}];\n"
    return f"    {field.c_type} {field.name};\n"


def _packed_struct(name, members):
    return f"struct {name} {{\n{members}}} __attribute__((packed));\n\n"


# --- agent_api: records and the table API -----------------------------------------------------------------


def _layout_proofs(table):
    spec, key = f"nyx_tbl_{table.name}_spec_s", f"nyx_tbl_{table.name}_key_s"
    proofs = [f"sizeof({spec}) == {table.record_size}", f"sizeof({key}) == {table.key_size}"]
    proofs += [f"offsetof({key}, {f.name}) == {f.offset}" for f in table.key]
    proofs.append(f"offsetof({spec}, key) == 1")
    if table.ternary:
        proofs.append(f"offsetof({spec}, key_mask_valid) == {table.mask_offset}")
        proofs.append(f"offsetof({spec}, key_mask) == {table.mask_offset + 1}")
    proofs.append(f"offsetof({spec}, data) == {table.data_offset}")
    for action in table.actions:
        data = f"nyx_tbl_{table.name}_{action.name}_data_s"
        proofs += [f"offsetof({data}, {f.name}) == {f.offset}" for f in action.fields]
    return "".join(f"static_assert({proof});\n" for proof in proofs)


def _records(table):
    name = table.name
    parts = [_packed_struct(f"nyx_tbl_{name}_key_s", "".join(map(_c_member, table.key)))]
    for action in table.actions:
        members = "".join(map(_c_member, action.fields))
        parts.append(_packed_struct(f"nyx_tbl_{name}_{action.name}_data_s", members))
    members = f"    uint8_t action_id;\n    nyx_tbl_{name}_key_s key;\n"
    if table.ternary:
        members += f"    uint8_t key_mask_valid;  // 1 when key_mask holds a mask\n    nyx_tbl_{name}_key_s key_mask;\n"
    if table.actions:
        data = "".join(
            f"        nyx_tbl_{name}_{a.name}_data_s {a.name}_data;  // action {a.id}\n" for a in table.actions
        )
        members += f"    union {{\n{data}    }} data;\n"
    else:
        members += "    uint8_t data;  // always 0: no action carries data\n"
    parts.append(_packed_struct(f"nyx_tbl_{name}_spec_s", members))
    kind = "ternary" if table.ternary else "exact match"
    comment = f"// {name}: {kind}, key record {table.key_size} bytes, entry record {table.record_size} bytes.\n\n"
    return comment + "".join(parts) + _layout_proofs(table) + "\n"


def _table_api(table):
    name = table.name
    return f"""\
sdk::sdk_ret_t nyx_tbl_{name}_create(const nyx_tbl_{name}_spec_s *spec);
sdk::sdk_ret_t nyx_tbl_{name}_update(const nyx_tbl_{name}_spec_s *spec);
sdk::sdk_ret_t nyx_tbl_{name}_delete(const nyx_tbl_{name}_key_s *key);
sdk::sdk_ret_t nyx_tbl_{name}_read(const nyx_tbl_{name}_key_s *key, nyx_tbl_{name}_spec_s *spec);

"""


def _records_header(tables):
    return f"""\
{HEADER}
// The pipeline's P4 tables: key records, entry records, and the operations on single entries. Rules for all operations:
// sdk_ret.h.
//
// A key record holds the key's fields. An entry record holds the action, the key, in a ternary table a mask with its
// flag, and the data of the action. Byte arrays are passed on byte for byte. The services cut what a client sent to the
// width of the record field and check nothing: any value can be in any field, also an action that the table does not
// have. The data of an action that carries none, and the mask when key_mask_valid is 0, are zero.
//
//   _create(spec)      installs the entry; a key that exists already may be refused
//   _update(spec)      changes the entry with the key of `spec`: action, mask and data, zeros included
//   _delete(key)       removes the entry with this key
//   _read(key, spec)   fills `spec` with action, key, mask and data of the entry with this key
//
// Each acts at once, without a batch, and returns SDK_RET_OK or a code. All codes are the same to the services: they go
// on with the next entry of the request, don't undo earlier ones, and answer API_STATUS_ERROR for the whole request,
// without the code or the entry that failed.
//
// A record that _read leaves after a failure is answered to the client all the same, in the place of its key: so a
// failed _read leaves `spec` zero, as it was passed in.
//
// Requests of thousands of entries call these operations in a row, on a thread that serves other clients too: they
// should wait for nothing but a lock that is held briefly.

#pragma once

#include <cstddef>
#include <cstdint>

#include "agent_api/sdk_ret.h"

{"".join(map(_records, tables))}extern "C" {{

{"".join(map(_table_api, tables))}}}  // extern "C"
"""


# --- svc: bindings between messages and records -----------------------------------------------------------


def _to_record(field):
    if field.is_bytes:
        return f"svc::store_bytes(rec.{field.name}, msg.{field.name}());"
    return f"rec.{field.name} = static_cast<{field.c_type}>(msg.{field.name}());"


def _to_proto(field):
    if field.is_bytes:
        return f"svc::load_bytes(msg->mutable_{field.name}(), rec.{field.name});"
    return f"msg->set_{field.name}(rec.{field.name});"


def _body(lines, indent):
    return "".join(f"{indent}{line}\n" for line in lines)


def _both_ways(what, record, message, template, fields):
    return f"""\
{template}    static void {what}_to_record({record} &rec, const {message} &msg) {{
{_body(map(_to_record, fields), "        ")}    }}
{template}    static void {what}_to_proto({message} *msg, const {record} &rec) {{
{_body(map(_to_proto, fields), "        ")}    }}

"""


def _by_action(table, line):
    """A switch over the action byte; action ids that carry no data do nothing."""
    if not table.actions:
        return ""
    cases = "".join(f"        case {a.id}:\n            {line(a)}\n            break;\n" for a in table.actions)
    return f"        switch (rec.action_id) {{\n{cases}        }}\n"


# The service offers the conversion of these tables' data as a function of its own, which is the one to call.
CONVERTERS = {"flow_info": "nyx_flow_info_proto_to_api_spec"}


def _data_to_record(table):
    converter = CONVERTERS.get(table.name)
    if converter:
        return _by_action(table, lambda a: f"{converter}(&rec, &spec);")
    return _by_action(table, lambda a: f"{a.name}_to_record(rec.data.{a.name}_data, spec.{a.name}_data());")


def _converters(tables):
    return "".join(
        f"void {CONVERTERS[t.name]}(nyx_tbl_{t.name}_spec_s *spec, const nyx::{t.name}Spec *proto);\n\n"
        for t in tables
        if t.name in CONVERTERS
    )


def _binding(table):
    name, actions = table.name, table.actions
    data = "".join(
        _both_ways(a.name, f"nyx_tbl_{name}_{a.name}_data_s", f"nyx::{name}_{a.name}_data_t", "", a.fields)
        for a in actions
    )
    to_record = _data_to_record(table)
    to_proto = _by_action(table, lambda a: f"{a.name}_to_proto(spec->mutable_{a.name}_data(), rec.data.{a.name}_data);")
    unused = "" if actions else "[[maybe_unused]] "
    key = _both_ways("key", "key_s", "Key", KEY_TEMPLATE, table.key)
    return f"""\
struct {name}_binding {{
    using spec_s = nyx_tbl_{name}_spec_s;
    using key_s = nyx_tbl_{name}_key_s;

{key}{data}\
    static void data_to_record({unused}spec_s &rec, {unused}const nyx::{name}Spec &spec) {{
{to_record}    }}
    static void data_to_proto({unused}nyx::{name}Spec *spec, {unused}const spec_s &rec) {{
{to_proto}    }}
}};

"""


def _bindings_header(family, tables):
    return f"""\
{HEADER}
// Straight-line conversions between the messages and the records of the {family} tables.

#pragma once

#include "agent_api/nyx_tbl.h"
#include "nyx/tables/{family}.pb.h"
#include "svc/common/bytes.h"

{_converters(tables)}namespace nyx_tbl {{

{"".join(map(_binding, tables))}}}  // namespace nyx_tbl
"""


# --- svc: free functions and methods ----------------------------------------------------------------------


def _request(name, operation):
    return f"nyx::{name}{'' if operation in ('create', 'update') else operation.capitalize()}Request"


def _response(name, operation):
    return _request(name, operation).removesuffix("Request") + "Response"


def _signature(name, operation):
    return (
        f"sdk::sdk_ret_t nyx_svc_{name}_{operation}"
        f"(const {_request(name, operation)} *req, {_response(name, operation)} *rsp)"
    )


def _functions_header(tables):
    includes = "".join(f'#include "nyx/tables/{family}.pb.h"\n' for family in families(tables))
    declarations = "".join(f"{_signature(t.name, op)};\n" for t in tables for op in OPERATIONS)
    return f"""\
{HEADER}
// The table service's operations. Each puts the translation of the code that it returns into api_status.

#pragma once

#include "agent_api/sdk_ret.h"
{includes}
{declarations}"""


def _functions(table):
    name = table.name
    frames = {"create": "write", "update": "write", "get": "get", "delete": "remove"}
    calls = {"get": "read"}
    return "".join(
        f"{_signature(name, op)} {{\n"
        f"    return nyx_tbl::{frames[op]}<nyx_tbl::{name}_binding>(nyx_tbl_{name}_{calls.get(op, op)}, *req, rsp);\n"
        f"}}\n"
        for op in OPERATIONS
    )


def _functions_source(family, tables):
    return f"""\
{HEADER}
// The operations of the {family} tables.

#include "svc/nyx_tbl_{family}.h"
#include "svc/nyx_tbl_functions.h"
#include "svc/table_operations.h"

{"".join(map(_functions, tables))}"""


def _method(table, operation):
    """The return type, and the rest of the declaration."""
    name = f"{table.name}{operation.capitalize()}"
    arguments = (f"(grpc::ServerContext *context, const {_request(table.name, operation)} *req, "
                 f"{_response(table.name, operation)} *rsp)")
    return name, arguments


def _methods(tables):
    lines = [f"{HEADER}// Inside class NyxTblSvcImpl.\n"]
    for table in tables:
        for operation in OPERATIONS:
            lines.append("grpc::Status {}{} override;\n".format(*_method(table, operation)))
    return "".join(lines)


def _calls(tables):
    lines = [f"{HEADER}// The methods of NyxTblSvcImpl, and how a call server finds them.\n"]
    rows = []
    for table in tables:
        for operation in OPERATIONS:
            name, arguments = _method(table, operation)
            lines.append(f"grpc::Status NyxTblSvcImpl::{name}{arguments} {{\n"
                         f"    return svc::call<svc::k_max_table_entries>(context, req, rsp, "
                         f"nyx_svc_{table.name}_{operation});\n}}\n")
            rows.append(f'    svc::method_of<&NyxTblSvcImpl::{name}>("{name}"),\n')
    return "".join([*lines, "\nconstexpr svc::method_s k_methods[] = {\n", *rows, "};\n"])


# --- sim: the stand-in's table library --------------------------------------------------------------------


def _sim_source(tables):
    rows = "".join(f'    {{"{t.name}", {t.record_size}, {t.key_size}}},\n' for t in tables)
    lines = []
    for number, table in enumerate(tables):
        name = table.name
        spec, key = f"const nyx_tbl_{name}_spec_s *spec", f"const nyx_tbl_{name}_key_s *key"
        for operation, arguments, passed in (
            ("create", spec, "spec"),
            ("update", spec, "spec"),
            ("delete", key, "key"),
            ("read", f"{key}, nyx_tbl_{name}_spec_s *spec", "key, spec"),
        ):
            lines.append(
                f"sdk::sdk_ret_t nyx_tbl_{name}_{operation}({arguments}) "
                f"{{ return sim::table_{operation}({number}, {passed}); }}\n"
            )
    return f"""\
{HEADER}
// The stand-in's table library: what tables there are, and their entry points.

#include "agent_api/nyx_tbl.h"
#include "sim/api/tables.h"

namespace sim {{

constexpr table_info_s k_tables[] = {{
{rows}}};

std::span<const table_info_s> table_infos() {{ return k_tables; }}

}}  // namespace sim

{"".join(lines)}"""


def emit(tables):
    """Returns {path below the folder for generated C++: text}."""
    files = {
        "agent_api/nyx_tbl.h": _records_header(tables),
        "svc/nyx_tbl_functions.h": _functions_header(tables),
        "svc/nyx_tbl_methods.inc": _methods(tables),
        "svc/nyx_tbl_calls.inc": _calls(tables),
        "sim/api/nyx_tbl_entry_points.cc": _sim_source(tables),
    }
    for family, group in families(tables).items():
        files[f"svc/nyx_tbl_{family}.h"] = _bindings_header(family, group)
        files[f"svc/nyx_tbl_{family}.cc"] = _functions_source(family, group)
    return files
