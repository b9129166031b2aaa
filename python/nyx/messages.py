"""Messages from dicts and dicts from messages, by descriptors and field options."""

from __future__ import annotations

import difflib
import functools
import operator
from collections.abc import Iterable, Mapping
from typing import Any

from google.protobuf import symbol_database
from google.protobuf.message import Message

from nyx import values
from nyx.types import options_pb2


@functools.cache
def codec_of(descriptor: Any) -> Codec:
    return Codec(descriptor)


def check_widths(message: Message) -> None:
    """Raises ValueError for the first field of a generated message whose value the agent would cut."""
    codec_of(message.DESCRIPTOR).check(message)


def to_dict(message: Message) -> dict[str, Any]:
    """The fields of a message as Python values: addresses as objects of ipaddress and nyx.Mac, enumerators as names.

    Numbers that are 0 are in it, members of a oneof and messages only if they are set. What comes out can be given to
    every call that takes a dict.
    """
    return codec_of(message.DESCRIPTOR).to_dict(message)


class Codec:
    """What is known of a message type; prepared once, because entries come by the million."""

    def __init__(self, descriptor: Any) -> None:
        self.message = symbol_database.Default().GetPrototype(descriptor)
        self._fields = {field.name: _Field(field) for field in descriptor.fields}
        self._limits = {field.name: known.limit for field, known in zip(descriptor.fields, self._fields.values())}
        self._actions = {field.name: field.GetOptions().Extensions[options_pb2.action_id]
                         for field in descriptor.fields
                         if field.GetOptions().HasExtension(options_pb2.action_id)}
        self._spoken = {name for name, field in self._fields.items() if not field.plain}
        self._switches = {name: f"{name}_valid" for name in self._fields if f"{name}_valid" in self._fields}
        self._optional = {*self._actions, *self._switches}
        for switch in self._switches.values():
            self._limits[switch] = self._fields[switch].limit = 1

    def build(self, given: Mapping[str, Any] | Message) -> Message:
        """A message with its values checked; a message of this type is checked and given back."""
        if isinstance(given, Message):
            self.check(given)
            return given
        return self.message(**self.arguments(given))

    def arguments(self, given: Mapping[str, Any]) -> Mapping[str, Any]:
        """What the constructor of the message takes, nested messages as dicts: the fastest way to build it."""
        limits = self._limits
        changed: dict[str, Any] = {}
        for name, value in given.items():
            if not (value.__class__ is int and 0 <= value <= limits.get(name, -1)):
                changed[name] = self._convert(name, value)
        self._complete(given, changed)
        return {**given, **changed} if changed else given

    def _convert(self, name: str, value: Any) -> Any:
        field = self._fields.get(name)
        if field is None:
            near = difflib.get_close_matches(name, self._fields, 1) or list(self._fields)
            raise ValueError(f"{name}: no such field; known: {', '.join(near)}")
        return field.convert(value)

    def _complete(self, given: Mapping[str, Any], changed: dict[str, Any]) -> None:
        """Sets what follows from the rest: the action from its data, and that there is a mask."""
        for name, action in self._actions.items():
            if name in given and given.get("action_id", action) != action:
                raise ValueError(f"action_id={given['action_id']}: {name} belongs to action {action}")
            if name in given and action:
                changed["action_id"] = action
        for name, switch in self._switches.items():
            if name in given and switch not in given:
                changed[switch] = 1

    def check(self, message: Message) -> None:
        if message.DESCRIPTOR is not self.message.DESCRIPTOR:
            raise ValueError(f"expected {self.message.DESCRIPTOR.full_name}, not {message.DESCRIPTOR.full_name}")
        for field, value in message.ListFields():
            self._fields[field.name].convert(value)
            action = self._actions.get(field.name)
            if action is not None and message.action_id != action:
                raise ValueError(f"action_id={message.action_id}: {field.name} belongs to action {action}")

    def to_dict(self, message: Message) -> dict[str, Any]:
        found = {name: getattr(message, name) for name, field in self._fields.items()
                 if not field.has_presence or message.HasField(name)}
        for name in self._spoken & found.keys():
            found[name] = self._fields[name].read(found[name])
        return found

    def normalise(self, message: Message) -> Message:
        """Changes an entry or a key into what would be read back: so that == compares the records."""
        texts, unstored, children = self._records
        for name, width in texts:
            value = getattr(message, name)
            if len(value) < width:
                setattr(message, name, value.ljust(width, b"\0"))
        for name in unstored:
            message.ClearField(name)
        for name, switch in self._switches.items():
            if not getattr(message, switch):
                message.ClearField(name)
        for name, action in self._actions.items():
            if message.action_id == action:
                getattr(message, name).SetInParent()
        for name, child in children:
            if name not in self._optional or message.HasField(name):
                nested = getattr(message, name)
                nested.SetInParent()
                child.normalise(nested)
        return message

    @functools.cached_property
    def _records(self) -> tuple[list[tuple[str, int]], list[str], list[tuple[str, Codec]]]:
        """Of the fields: bytes with their width, those that are in no record, messages."""
        fields = self.message.DESCRIPTOR.fields
        texts = [(field.name, values.width(field)) for field in fields if field.type == field.TYPE_BYTES]
        unstored = [field.name for field in fields
                    if field.type not in (field.TYPE_BYTES, field.TYPE_MESSAGE) and not values.width(field)]
        return texts, unstored, [(field.name, codec_of(field.message_type)) for field in fields if field.message_type]


class _Field:
    """A field: how to convert a Python value for it, and back."""

    def __init__(self, field: Any) -> None:
        self._field = field
        self.repeated = field.label == field.LABEL_REPEATED
        self.has_presence = field.has_presence and not self.repeated
        options = field.GetOptions().Extensions
        number = field.cpp_type in (field.CPPTYPE_UINT32, field.CPPTYPE_UINT64)
        texts = values.NUMBERS.get(options[options_pb2.number_text]) if number else None
        if field.type == field.TYPE_BYTES:
            texts = values.BYTES.get(options[options_pb2.bytes_text])
        if field.message_type:
            texts = values.MESSAGES.get(field.message_type.full_name)
        self._in: values.Convert | None
        self._out: values.Convert | None
        self._in, self._out = texts or (None, None)
        self.plain = not (self.repeated or self._out or field.message_type or field.enum_type)
        self.limit = values.largest(field) if number and not self.repeated else -1
        self._largest = values.largest(field) if number else None

    def convert(self, value: Any) -> Any:
        if value is None and self.has_presence:
            return None
        try:
            if self.repeated:
                return [self._one(item) for item in value]
            return self._one(value)
        except ValueError as error:
            nested = self._field.message_type and not self._in
            raise ValueError(f"{self._field.name}{'.' if nested else f'={value!r}: '}{error}") from None
        except TypeError:
            raise ValueError(f"{self._field.name}={value!r}: {type(value).__name__} does not fit") from None

    def _one(self, value: Any) -> Any:
        if self._field.message_type:
            return self._submessage(value)
        if self._largest is not None:
            return self._number(value)
        if self._field.type == self._field.TYPE_BYTES:
            return self._bytes(value)
        return self._enumerator(value) if self._field.enum_type else value

    def _submessage(self, value: Any) -> Any:
        codec = codec_of(self._field.message_type)
        if isinstance(value, Message):
            codec.check(value)
            return value
        if self._in and not isinstance(value, Mapping):
            return self._in(value)
        return codec.arguments(value)

    def _number(self, value: Any) -> int:
        if self._in and not isinstance(value, int):
            value = self._in(value)
        number = operator.index(value)
        limit = self._largest if self.repeated else self.limit
        if not 0 <= number <= (limit or 0):
            raise ValueError(f"the {'smallest value is 0' if number < 0 else f'largest value is {limit}'}")
        return number

    def _bytes(self, value: Any) -> bytes:
        data = self._in(value) if self._in else values.bytes_of(value)
        width = values.width(self._field)
        if width and len(data) > width:
            raise ValueError(f"{len(data)} bytes; the maximum is {width}")
        return bytes(data)

    def _enumerator(self, value: Any) -> Any:
        names = self._field.enum_type.values_by_name
        if isinstance(value, str) and value not in names:
            raise ValueError(f"unknown; known: {', '.join(names)}")
        return value

    def read(self, value: Any) -> Any:
        return [self._read_one(item) for item in value] if self.repeated else self._read_one(value)

    def _read_one(self, value: Any) -> Any:
        if self._out:
            return self._out(value)
        if self._field.message_type:
            return to_dict(value)
        if self._field.enum_type:
            known = self._field.enum_type.values_by_number.get(value)
            return known.name if known else value
        return value


def chunks(items: Iterable[Any], size: int) -> Iterable[list[Any]]:
    """Lists of at most `size` items, made as they are asked for."""
    chunk: list[Any] = []
    for item in items:
        chunk.append(item)
        if len(chunk) == size:
            yield chunk
            chunk = []
    if chunk:
        yield chunk
