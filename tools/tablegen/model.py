"""The schema of the pipeline's tables, read from TOML and validated.

Errors in a schema are reported as a SchemaError that names file, table and field.
"""

import re
import tomllib
from dataclasses import dataclass, field

# Width in the schema -> (bytes in the record, protobuf type, C type of an integer).
WIDTHS = {
    "1": (1, "uint32", "uint8_t"),
    "2": (2, "uint32", "uint16_t"),
    "4": (4, "uint32", "uint32_t"),
    "8": (8, "uint64", "uint64_t"),
    "b6": (6, "bytes", None),
    "b7": (7, "bytes", None),
    "b8": (8, "bytes", None),
    "b16": (16, "bytes", None),
}

TABLE_KEYS = {"name", "family", "match", "key", "actions"}
ACTION_KEYS = {"id", "data", "fields"}
IDENTIFIER = re.compile(r"[a-z][a-z0-9_]*\Z")


class SchemaError(Exception):
    """Something in the schema can't be used; the text says where and what."""


@dataclass(frozen=True)
class Field:
    name: str  # k1, d1 ...
    size: int  # bytes in the record
    proto_type: str
    c_type: str | None  # None for a byte array
    offset: int  # from the start of the key record or of the action's data

    @property
    def is_bytes(self):
        return self.c_type is None


@dataclass(frozen=True)
class Action:
    id: int
    name: str  # the data's name without the suffix _data
    fields: tuple[Field, ...]
    member_number: int  # protobuf field number in the oneof

    @property
    def size(self):
        return sum(f.size for f in self.fields)


@dataclass(frozen=True)
class Table:
    name: str
    family: str
    ternary: bool
    key: tuple[Field, ...]
    actions: tuple[Action, ...] = field(default=())

    @property
    def key_size(self):
        return sum(f.size for f in self.key)

    @property
    def mask_offset(self):
        """Offset of key_mask_valid, or of the data in an exact-match table."""
        return 1 + self.key_size

    @property
    def data_offset(self):
        return self.mask_offset + (1 + self.key_size if self.ternary else 0)

    @property
    def data_size(self):
        """A table whose actions carry no data has one byte that is always 0."""
        return max((a.size for a in self.actions), default=1)

    @property
    def record_size(self):
        return self.data_offset + self.data_size


class _Place:
    """Where in the schema we are, for error texts."""

    def __init__(self, path, *parts):
        self.path, self.parts = path, parts

    def at(self, part):
        return _Place(self.path, *self.parts, part)

    def error(self, text):
        return SchemaError(": ".join((str(self.path), *self.parts, text)))

    def expect_keys(self, stanza, allowed):
        if not isinstance(stanza, dict):
            raise self.error("must be a table of keys and values")
        for key in sorted(stanza.keys() - allowed):
            raise self.at(f"field '{key}'").error(f"unknown, allowed are {', '.join(sorted(allowed))}")
        for key in sorted(allowed - stanza.keys()):
            raise self.at(f"field '{key}'").error("missing")

    def identifier(self, stanza, key):
        value = stanza[key]
        if not isinstance(value, str) or not IDENTIFIER.match(value):
            raise self.at(f"field '{key}'").error(
                f"{value!r} is not a valid name: use lower-case letters, digits and '_', and begin with a letter"
            )
        return value


def _parse_fields(place, text, prefix):
    if not isinstance(text, str) or not text.split():
        raise place.error(f"{text!r} must be a text of one or more widths")
    fields, offset = [], 0
    for number, width in enumerate(text.split(), start=1):
        name = f"{prefix}{number}"
        if width not in WIDTHS:
            raise place.at(name).error(f"width '{width}' is unknown, allowed are {' '.join(WIDTHS)}")
        size, proto_type, c_type = WIDTHS[width]
        fields.append(Field(name, size, proto_type, c_type, offset))
        offset += size
    return tuple(fields)


def _parse_action(place, stanza, member_number):
    place.expect_keys(stanza, ACTION_KEYS)
    name = place.identifier(stanza, "data")
    place = place.at(f"action '{name}'")
    action_id = stanza["id"]
    if not isinstance(action_id, int) or isinstance(action_id, bool) or not 0 <= action_id <= 255:
        raise place.at("field 'id'").error(f"{action_id!r} must be a number from 0 to 255")
    fields = _parse_fields(place.at("field 'fields'"), stanza["fields"], "d")
    return Action(action_id, name, fields, member_number)


def _refuse_repeated(place, what, values):
    seen = set()
    for value in values:
        if value in seen:
            raise place.error(f"{what} {value!r} appears twice")
        seen.add(value)


def _parse_table(place, stanza, number):
    named = isinstance(stanza, dict) and isinstance(stanza.get("name"), str)
    place = place.at(f"table '{stanza['name']}'" if named else f"table number {number}")
    place.expect_keys(stanza, TABLE_KEYS)
    if stanza["match"] not in ("exact", "ternary"):
        raise place.at("field 'match'").error(f"{stanza['match']!r} must be \"exact\" or \"ternary\"")
    if not isinstance(stanza["actions"], list):
        raise place.at("field 'actions'").error("must be a list of actions")

    ternary = stanza["match"] == "ternary"
    first_member = 6 if ternary else 4
    actions = tuple(
        _parse_action(place, action, first_member + i) for i, action in enumerate(stanza["actions"])
    )
    actions_place = place.at("field 'actions'")
    _refuse_repeated(actions_place, "id", [a.id for a in actions])
    _refuse_repeated(actions_place, "data", [a.name for a in actions])
    return Table(
        name=place.identifier(stanza, "name"),
        family=place.identifier(stanza, "family"),
        ternary=ternary,
        key=_parse_fields(place.at("field 'key'"), stanza["key"], "k"),
        actions=actions,
    )


def read_schema(path):
    """Returns the tables of the schema at `path`, in the order of the file."""
    place = _Place(path)
    try:
        with open(path, "rb") as file:
            document = tomllib.load(file)
    except OSError as error:
        raise place.error(error.strerror) from error
    except (tomllib.TOMLDecodeError, UnicodeDecodeError) as error:
        raise place.error(f"not valid TOML: {error}") from error
    place.expect_keys(document, {"table"})
    if not isinstance(document["table"], list) or not document["table"]:
        raise place.at("field 'table'").error("must be one or more [[table]] stanzas")
    tables = [_parse_table(place, stanza, i) for i, stanza in enumerate(document["table"], start=1)]
    _refuse_repeated(place, "table", [t.name for t in tables])
    return tables


def families(tables):
    """The families in order of their first table, each with its tables."""
    grouped = {}
    for table in tables:
        grouped.setdefault(table.family, []).append(table)
    return grouped
