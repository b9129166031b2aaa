"""Requests as bytes: hostile ones can't be made with the libraries of well-behaved clients."""

import array
import os
import socket
import struct

TIMEOUT_S = 20
PREFACE = b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n"
DATA, HEADERS, RST_STREAM, SETTINGS, PING, GOAWAY, WINDOW_UPDATE, CONTINUATION = 0, 1, 3, 4, 6, 7, 8, 9
END_STREAM, END_HEADERS = 1, 4
ANSWERED = b"\x08\x00"  # a ServiceResponseMessage with API_STATUS_OK

PORT_GET, INTERFACE_GET = "/nyx.PortSvc/PortGet", "/nyx.IfSvc/InterfaceGet"


def varint(number):
    text = bytearray()
    while number > 127:
        text.append(number & 127 | 128)
        number >>= 7
    return bytes([*text, number])


def field(number, value):
    """A field of a protobuf message: an int, or bytes for all that has a length."""
    if isinstance(value, int):
        return varint(number << 3) + varint(value)
    return varint(number << 3 | 2) + varint(len(value)) + value


def request(payload, type_url=b"x/nyx.CommandMessage", op=0):
    return field(1, op) + field(2, field(1, type_url) + field(2, payload))


HELP, UNKNOWN_COMMAND = request(field(1, 1)), request(field(1, 35))


def connect(address, timeout_s=TIMEOUT_S):
    """A Unix socket for a path, TCP for (host, port)."""
    peer = socket.socket(socket.AF_UNIX if isinstance(address, str) else socket.AF_INET)
    # Not settimeout(): with it a Unix socket does not wait for its place in the backlog.
    peer.setsockopt(socket.SOL_SOCKET, socket.SO_SNDTIMEO, struct.pack("ll", timeout_s, 0))
    peer.connect(address)
    peer.settimeout(timeout_s)
    return peer


def reset(peer):
    """Closes a TCP connection with RST."""
    peer.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    peer.close()


def send_with(peer, data, descriptors):
    peer.sendmsg([data], [(socket.SOL_SOCKET, socket.SCM_RIGHTS, array.array("i", descriptors))] if descriptors else [])


def read_to_end(peer):
    """All that comes until the end; a connection that is reset ends as well."""
    text = b""
    try:
        while block := peer.recv(65536):
            text += block
    except ConnectionError:
        pass
    return text


def ask(path, data=HELP):
    """A well-behaved debug request with a pipe for its output. Returns the answer and the output."""
    reader, writer = os.pipe()
    with open(reader, "rb") as output, connect(path) as peer:
        try:
            send_with(peer, data, [writer])
        finally:
            os.close(writer)
        return read_to_end(peer), output.read()


def frame(kind, flags, stream, payload=b""):
    return len(payload).to_bytes(3, "big") + bytes([kind, flags]) + stream.to_bytes(4, "big") + payload


def prefixed(number, bits):
    """An integer of HPACK behind `8 - bits` zero bits."""
    most = (1 << bits) - 1
    return bytes([number]) if number < most else bytes([most]) + varint(number - most)


def header(name, value):
    return b"\0" + b"".join(prefixed(len(text), 7) + text for text in (name, value))


def headers(path, *more):
    return b"".join(header(*pair) for pair in (
        (b":method", b"POST"), (b":scheme", b"http"), (b":path", path.encode()), (b":authority", b"x"),
        (b"te", b"trailers"), (b"content-type", b"application/grpc"), *more))


def message(data):
    return b"\0" + struct.pack(">I", len(data)) + data


def data_frames(stream, data, last=END_STREAM):
    pieces = [data[i:i + 16384] for i in range(0, len(data), 16384)] or [b""]
    return b"".join(frame(DATA, last if i == len(pieces) - 1 else 0, stream, piece) for i, piece in enumerate(pieces))


def call(stream, path, data=b""):
    return frame(HEADERS, END_HEADERS, stream, headers(path)) + data_frames(stream, message(data))


def opening(window=65535):
    """What a client sends first; `window` is how much of each response it takes unasked."""
    return PREFACE + frame(SETTINGS, 0, 0, struct.pack(">HI", 4, window))


def read_exactly(peer, size):
    text = b""
    while len(text) < size:
        block = peer.recv(size - len(text))
        if not block:
            raise ConnectionError("the connection ended")
        text += block
    return text


def grpc_ask(address, path=PORT_GET, data=b""):
    """A call over a connection of its own. Returns what came as DATA: nothing when the call failed."""
    with connect(address) as peer:
        peer.sendall(opening() + call(1, path, data))
        return grpc_answer(peer)


def grpc_answer(peer):
    answer = b""
    while True:
        head = read_exactly(peer, 9)
        payload = read_exactly(peer, int.from_bytes(head[:3], "big"))
        if head[3] == DATA:
            answer += payload
        if head[3] in (RST_STREAM, GOAWAY) or (head[3] in (DATA, HEADERS) and head[4] & END_STREAM):
            return answer
