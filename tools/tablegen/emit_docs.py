"""Emits docs/tables.md, which describes the tables, their keys, actions and records."""

from model import families

HEADER = """\
<!-- Generated from schema/quill.toml by tools/tablegen. Do not edit: change the schema and run ./dev generate. -->

# The tables

The {count} P4 tables of the pipeline `quill`, as `nyx.NyxTblSvc` serves them. A field is written name:width, where the width
is the number of bytes in the record; fields follow each other without gaps. Widths 1, 2 and 4 are `uint32` in the messages,
8 is `uint64`, and a width with b is a `bytes` field. `nyxctl` treats b6 as a MAC address and b16 as an IPv6 address.

The entry record holds the action (1 byte), the key, in a ternary table a flag (1 byte) and the mask (laid out as the key),
and the data of the action. The key record holds only the key. `nyxctl explain TABLE` draws both.

"""


def _fields(fields):
    return ", ".join(f"{f.name}:{'b' if f.is_bytes else ''}{f.size}" for f in fields)


def _table(table):
    kind = "ternary" if table.ternary else "exact match"
    lines = [
        f"### {table.name}\n\n{kind}, key record {table.key_size} bytes, entry record {table.record_size} bytes\n\n",
        "| part | from byte | fields |\n|---|---|---|\n",
        f"| key | 1 | {_fields(table.key)} |\n",
    ]
    if table.ternary:
        lines.append(f"| mask | {table.mask_offset + 1} | as the key |\n")
    for action in table.actions:
        lines.append(f"| data of action {action.id}, `{action.name}_data` | {table.data_offset} | {_fields(action.fields)} |\n")
    return "".join(lines) + "\n"


def emit(tables):
    """Returns {path below the repository: text}."""
    text = HEADER.format(count=len(tables))
    for family, group in families(tables).items():
        text += f"## Family {family}\n\n" + "".join(map(_table, group))
    return {"docs/tables.md": text.rstrip("\n") + "\n"}
