"""Attacks on the gRPC server."""

import contextlib
import random
import socket
import struct
import time

import processes
import wire
from agent import check
from debug_socket import hold

MOST_MESSAGE = 16 << 20
IDS = 3000  # as many as a connection takes at its beginning
CALL = wire.opening() + wire.call(1, wire.PORT_GET)


def card_id(kind, number):
    return wire.field(1, bytes.fromhex("0a0000000000400080000000") + bytes([0, kind, 0, number]))


def vanish(number, agent, step):
    peers = 0
    for cut in range(number, len(CALL) + 1, step):
        for leave in (socket.socket.close, wire.reset):
            peer = wire.connect(agent.grpc)
            peer.sendall(CALL[:cut])
            leave(peer)
            peers += 1
    for leave in (socket.socket.close, wire.reset):  # within a response
        peer = wire.connect(agent.grpc)
        peer.sendall(wire.opening() + wire.call(1, wire.INTERFACE_GET, card_id(2, 1) * 1000))
        peer.recv(1000)
        leave(peer)
    return peers + 2


def vanishing_clients(agent, step):
    """Clients that are gone, or reset the connection, after every byte of a call."""
    return f"{sum(processes.at_once(2, vanish, agent, step))} clients"


def silent_clients(agent, count):
    """Connections that say nothing, or begin and say no more."""
    return f"{sum(processes.at_once(4, hold, agent.grpc, count // 4, CALL[:60], 1))} connections"


def garbage(chance):
    frames = b"".join(wire.frame(chance.choice((*range(11), chance.randrange(256))), chance.randrange(256),
                                 chance.choice((0, 1, 3, 1 << 31)), chance.randbytes(chance.randrange(60)))
                      for _ in range(50))
    begun = wire.opening() + wire.frame(wire.HEADERS, wire.END_HEADERS, 1, wire.headers(wire.PORT_GET))
    return chance.choice((
        chance.randbytes(500), b"GET / HTTP/1.1\r\nHost: x\r\n\r\n", b"\x16\x03\x01" + chance.randbytes(500),  # TLS
        wire.PREFACE + chance.randbytes(500), wire.opening() + frames, CALL + frames,
        wire.opening() + wire.frame(wire.HEADERS, wire.END_HEADERS, 1, chance.randbytes(100)),
        wire.opening() + wire.frame(wire.HEADERS, 0, 1) + wire.frame(wire.CONTINUATION, 0, 1, bytes(100)) * 50,
        wire.opening() + (1 << 24 - 1).to_bytes(3, "big") + bytes([0, 0, 0, 0, 0, 1]) + bytes(500),
        begun + wire.data_frames(1, b"\1\xff\xff\xff\xff" + bytes(50)),
        wire.opening() + wire.call(1, wire.PORT_GET, chance.randbytes(100)),
        wire.opening() + wire.call(1, chance.randbytes(9).hex(), b"")))


def send_garbage(number, agent, rounds, seed):
    chance = random.Random(seed + number)
    for _ in range(rounds):
        with wire.connect(agent.grpc) as peer:
            try:
                peer.sendall(garbage(chance))
                peer.shutdown(socket.SHUT_WR)
                wire.read_to_end(peer)
            except ConnectionError:
                pass
    return rounds


def http2_garbage(agent, rounds):
    """What is not HTTP/2, and HTTP/2 that breaks its rules."""
    seed = random.randrange(1 << 32)
    return f"{sum(processes.at_once(2, send_garbage, agent, rounds // 2, seed))} connections, seed {seed}"


def begin_stream(stream):
    return wire.frame(wire.HEADERS, wire.END_HEADERS, stream, wire.headers(wire.PORT_GET))


def reset_stream(stream):
    return wire.frame(wire.RST_STREAM, 0, stream, struct.pack(">I", 8))


FLOODS = {
    "reset": lambda stream: begin_stream(stream) + reset_stream(stream),
    "reset after a request": lambda stream: wire.call(stream, wire.PORT_GET) + reset_stream(stream),
    "ping": lambda _: wire.frame(wire.PING, 0, 0, bytes(8)),
    "settings": lambda _: wire.frame(wire.SETTINGS, 0, 0, struct.pack(">HI", 3, 100)),
    "empty data": lambda _: wire.frame(wire.DATA, 0, 1),
    "window": lambda _: wire.frame(wire.WINDOW_UPDATE, 0, 0, struct.pack(">I", 1)),
    "priority": lambda stream: wire.frame(2, 0, stream, bytes(5)),
}


def flood(number, agent, name, seconds):
    """Returns how many frames were taken. Never reads, or the agent's answers would hold nothing up."""
    deadline, sent, peer = time.monotonic() + seconds, 0, None
    while time.monotonic() < deadline:
        if not peer:
            peer, stream = wire.connect(agent.grpc), 1
            peer.settimeout(0.5)
            peer.sendall(wire.opening() + begin_stream(1))
        try:
            peer.sendall(b"".join(FLOODS[name](stream + 2 * i) for i in range(1, 101)))
            stream, sent = stream + 200, sent + 100
        except OSError:
            peer.close()
            peer = None
    return sent


def floods(agent, seconds):
    """Streams opened and reset, pings and the like, as many as go through."""
    sent = {name: sum(processes.at_once(2, flood, agent, name, seconds)) for name in FLOODS}
    return ", ".join(f"{name} {count // seconds}/s" for name, count in sent.items())


def header_frames(size):
    block = wire.headers(wire.PORT_GET, (b"x-much", b"x" * size))
    pieces = [block[i:i + 16384] for i in range(0, len(block), 16384)]
    return b"".join(wire.frame(wire.CONTINUATION if i else wire.HEADERS,
                               wire.END_HEADERS if i == len(pieces) - 1 else 0, 1, piece)
                    for i, piece in enumerate(pieces))


def large_metadata(agent, rounds):
    """Metadata of up to 4 MiB: gRPC's limit holds for clients that acknowledge its settings."""
    largest = 0
    for size in (0, 4000, 7000, 8000, 9000, 16000, 17000, 65536, 1 << 20, 4 << 20)[:8 + 2 * (rounds > 1)] * rounds:
        with wire.connect(agent.grpc) as peer:
            try:
                peer.sendall(wire.opening() + header_frames(size) + wire.data_frames(1, wire.message(b"")))
                answered = bool(wire.grpc_answer(peer))
            except ConnectionError:
                answered = False
            check(answered or size > 7000, f"no answer with {size} bytes of metadata")
            largest = max(largest, size * answered)
    return f"largest answered {largest} bytes"


def send_message(number, agent, size):
    import grpc  # here: it must not be loaded before a fork
    options = [("grpc.max_send_message_length", -1)]
    with grpc.insecure_channel("%s:%d" % agent.grpc, options) as channel:
        padding = wire.field(15, bytes(size - 1 - len(wire.varint(size - 5))))
        try:
            return len(padding), bool(channel.unary_unary(wire.PORT_GET)(padding, timeout=2 * wire.TIMEOUT_S))
        except grpc.RpcError as error:
            check(error.code() == grpc.StatusCode.RESOURCE_EXHAUSTED, f"{error.code()} for a message of {size} bytes")
            return len(padding), False


def message_limits(agent, at_once):
    """Messages around the limit of 16 MiB."""
    for size in (1 << 20, MOST_MESSAGE, MOST_MESSAGE + 1, 2 * MOST_MESSAGE):
        for length, answered in processes.at_once(at_once, send_message, agent, size):
            check(answered == (length <= MOST_MESSAGE), f"answered {answered} for a message of {length} bytes")
    return f"{at_once} at once"


def open_streams(number, agent, count, complete):
    with wire.connect(agent.grpc) as peer:
        with contextlib.suppress(ConnectionError):  # the agent may close what takes so much memory
            peer.sendall(wire.opening())
            for stream in range(1, 2 * count, 2):
                peer.sendall(wire.call(stream, wire.PORT_GET) if complete else begin_stream(stream))
        time.sleep(1)
        return agent.figures().threads


def many_streams(agent, count):
    """Thousands of calls at once on one connection: begun, and whole while each of them takes 0.2 s."""
    threads = [max(processes.at_once(2, open_streams, agent, count // 2, complete)) for complete in (False, True)]
    return f"{count} calls, threads {threads[0]} for begun, {threads[1]} for whole ones"


def read_slowly(number, agent, count, seconds):
    peers = []
    for i in range(count):
        path, kind = ((wire.PORT_GET, 1), (wire.INTERFACE_GET, 2))[i % 2]
        peer = wire.connect(agent.grpc)
        peer.sendall(wire.opening(window=100) + wire.call(1, path, card_id(kind, 1) * IDS))
        peers.append(peer)
    for _ in range(10 * seconds):
        time.sleep(0.1)
        for peer in peers:
            peer.sendall(wire.frame(wire.WINDOW_UPDATE, 0, 1, struct.pack(">I", 10)))
    return len(peers)


def slow_readers(agent, count):
    """Large responses of which hardly anything is read: 18 bytes of a request become 2 to 10 kB."""
    return f"{sum(processes.at_once(2, read_slowly, agent, count // 2, 3))} readers of responses to {IDS} ids each"
