"""Addresses as Python values, and what a field of a message accepts."""

from __future__ import annotations

import dataclasses
import ipaddress
import uuid
from collections.abc import Callable
from typing import Any

from nyx.types import options_pb2

Convert = Callable[[Any], Any]

_MAC_LIMIT = (1 << 48) - 1


@dataclasses.dataclass(frozen=True, order=True, repr=False, init=False)
class Mac:
    """A MAC address, from text ("00:1a:2b:3c:4d:5e"), six bytes, or a number; int(), bytes() and str() give them back."""

    number: int

    def __init__(self, address: Mac | str | bytes | int) -> None:
        if isinstance(address, str):
            parts = address.replace("-", ":").split(":")
            if len(parts) != 6 or not all(1 <= len(part) <= 2 for part in parts):
                raise ValueError(f"{address!r} is not a MAC address such as 00:1a:2b:3c:4d:5e")
            address = bytes(int(part, 16) for part in parts)
        if isinstance(address, bytes):
            if len(address) != 6:
                raise ValueError(f"a MAC address has 6 bytes, not {len(address)}")
            address = int.from_bytes(address, "big")
        if not 0 <= int(address) <= _MAC_LIMIT:
            raise ValueError(f"{address} is not a MAC address: it has 48 bits")
        object.__setattr__(self, "number", int(address))

    def __int__(self) -> int:
        return self.number

    def __bytes__(self) -> bytes:
        return self.number.to_bytes(6, "big")

    def __str__(self) -> str:
        return bytes(self).hex(":")

    def __repr__(self) -> str:
        return f"Mac({str(self)!r})"


def largest(field: Any) -> int:
    """The largest number that an unsigned integer field takes: the agent would cut a larger one."""
    bits = 64 if field.cpp_type == field.CPPTYPE_UINT64 else 32
    width = field.GetOptions().Extensions[options_pb2.record_width]
    return (1 << min(bits, 8 * width or bits)) - 1


def width(field: Any) -> int:
    """The bytes that a bytes field takes; 0: any number."""
    return int(field.GetOptions().Extensions[options_pb2.record_width])


def _exactly(data: bytes, count: int) -> bytes:
    if len(data) not in (0, count):
        raise ValueError(f"an address has {count} bytes, not {len(data)}; is it meant to be text (str)?")
    return data


def _ipv6(value: Any) -> bytes:
    return _exactly(value, 16) if isinstance(value, bytes) else ipaddress.IPv6Address(value).packed


def _mac_bytes(value: Any) -> bytes:
    return _exactly(value, 6) if isinstance(value, bytes) else bytes(Mac(value))


def _uuid(value: Any) -> bytes:
    if isinstance(value, str):
        value = uuid.UUID(value)
    return value.bytes if isinstance(value, uuid.UUID) else bytes_of(value)


def bytes_of(value: Any) -> bytes:
    if isinstance(value, str):
        return bytes.fromhex(value.replace(":", ""))
    if not isinstance(value, (bytes, bytearray, memoryview)):
        raise ValueError(f"expected bytes, not {type(value).__name__}")
    return bytes(value)


def _mac_out(value: bytes | int) -> Any:
    fits = value <= _MAC_LIMIT if isinstance(value, int) else len(value) == 6
    return Mac(value) if fits else value


def _ipv6_out(value: bytes) -> Any:
    return ipaddress.IPv6Address(value) if len(value) == 16 else value


def _uuid_out(value: bytes) -> Any:
    return uuid.UUID(bytes=value) if len(value) == 16 else value


def _ipv4(value: Any) -> int:
    return int(ipaddress.IPv4Address(value))


# How people write a field, by its option: what the message takes, and what it gives.
NUMBERS: dict[int, tuple[Convert, Convert]] = {
    options_pb2.NUMBER_TEXT_MAC: (lambda value: int(Mac(value)), _mac_out),
    options_pb2.NUMBER_TEXT_IPV4: (_ipv4, ipaddress.IPv4Address),
}
BYTES: dict[int, tuple[Convert, Convert]] = {
    options_pb2.BYTES_TEXT_MAC: (_mac_bytes, _mac_out),
    options_pb2.BYTES_TEXT_IPV6: (_ipv6, _ipv6_out),
    options_pb2.BYTES_TEXT_UUID: (_uuid, _uuid_out),
}


def address_fields(address: Any) -> dict[str, Any]:
    """The fields of a types.IPAddress."""
    address = ipaddress.ip_address(address)
    if address.version == 4:
        return {"af": "IP_AF_INET", "v4_addr": int(address)}
    return {"af": "IP_AF_INET6", "v6_addr": address.packed}


def prefix_fields(prefix: Any) -> dict[str, Any]:
    """The fields of a types.IPPrefix."""
    prefix = ipaddress.ip_interface(prefix)
    return {"addr": address_fields(prefix.ip), "len": prefix.network.prefixlen}


def address_of(message: Any) -> Any:
    if message.af == 1:
        return ipaddress.IPv4Address(message.v4_addr)
    return ipaddress.IPv6Address(message.v6_addr.ljust(16, b"\0")[:16]) if message.af == 2 else None


def prefix_of(message: Any) -> Any:
    address = address_of(message.addr)
    fits = address is not None and message.len <= address.max_prefixlen
    return ipaddress.ip_interface((address, message.len)) if fits else None


# Messages that are one Python value.
MESSAGES: dict[str, tuple[Convert, Convert]] = {
    "types.IPAddress": (address_fields, address_of),
    "types.IPPrefix": (prefix_fields, prefix_of),
}
