"""Attacks on the memory and the threads behind the gRPC server: what is begun and never ends."""

import itertools
import struct
import time

import processes
import wire
from agent import check

UPDATE, SYSTEM_GET = "/nyx.IfSvc/InterfaceUpdate", "/nyx.SystemSvc/SystemGet"
REFLECTION, LIST_SERVICES = "/grpc.reflection.v1alpha.ServerReflection/ServerReflectionInfo", wire.field(7, b"")
SLOW_UPDATES = ("--fault", "nyx_ms::interface_update:delay=20")
HEALTH = "/grpc.health.v1.Health/Check"
LIF_GET = "/nyx.IfSvc/LifGet"
STREAMS = 128  # the agent's limit for a connection
LIF_MAPPING_CREATE = "/nyx.NyxTblSvc/lif_mappingCreate"
BLOCKED_S = 10
BLOCKED = ("--fault", f"nyx_tbl_lif_mapping_create:delay={1000 * BLOCKED_S}")


class Windows:
    """How much the agent takes: of each stream and of the connection, by what it sends."""

    def __init__(self, peer):
        self.peer, self.unread, self.initial = peer, b"", 65535
        self.streams = dict.fromkeys(range(1, 2 * STREAMS, 2), self.initial)
        self.connection = self.initial

    def read(self, wait_s):
        self.peer.settimeout(wait_s)
        try:
            block = self.peer.recv(1 << 20)
        except (TimeoutError, BlockingIOError):
            return
        if not block:
            raise ConnectionError("the agent closed the connection")
        self.unread += block
        while len(self.unread) >= 9 and len(self.unread) >= 9 + (size := int.from_bytes(self.unread[:3], "big")):
            head, payload = self.unread[:9], self.unread[9:9 + size]
            self.unread = self.unread[9 + size:]
            self.take(head[3], head[4], int.from_bytes(head[5:9], "big"), payload)

    def take(self, kind, flags, stream, payload):
        if kind == wire.WINDOW_UPDATE:
            more = int.from_bytes(payload, "big")
            if stream:
                self.streams[stream] = self.streams.get(stream, 0) + more
            else:
                self.connection += more
        elif kind == wire.RST_STREAM:
            self.streams.pop(stream, None)
        elif kind in (wire.PING, wire.SETTINGS) and not flags & 1:
            for setting, value in struct.iter_unpack(">HI", payload if kind == wire.SETTINGS else b""):
                if setting == 4:
                    self.streams = {each: left + value - self.initial for each, left in self.streams.items()}
                    self.initial = value
            self.peer.settimeout(wire.TIMEOUT_S)
            self.peer.sendall(wire.frame(kind, 1, 0, payload if kind == wire.PING else b""))


def send_half(number, agent, seconds):
    """Requests of 16 MiB, of each of which the last bytes are never sent. Returns how many MB were taken."""
    sent, deadline = 0, time.monotonic() + seconds
    while time.monotonic() < deadline:
        try:
            with wire.connect(agent.grpc) as peer:
                windows = Windows(peer)
                peer.sendall(wire.opening() + b"".join(
                    wire.frame(wire.HEADERS, wire.END_HEADERS, stream, wire.headers(wire.PORT_GET))
                    + wire.data_frames(stream, struct.pack(">xI", 16 << 20), 0) for stream in windows.streams))
                sent += fill(windows, deadline)
        except OSError:
            time.sleep(0.05)
    return sent >> 20


def fill(windows, deadline):
    piece, sent = bytes(16384), 0
    left = dict.fromkeys(windows.streams, (16 << 20) - 1000)
    while time.monotonic() < deadline:
        before = sent
        for stream in left:
            if min(windows.streams.get(stream, 0), windows.connection, left[stream]) >= len(piece):
                windows.peer.settimeout(1)
                windows.peer.sendall(wire.frame(wire.DATA, 0, stream, piece))
                windows.streams[stream] -= len(piece)
                windows.connection -= len(piece)
                left[stream] -= len(piece)
                sent += len(piece)
        windows.read(0 if sent > before else 0.05)
    return sent


def half_sent_requests(agent, seconds):
    """Requests that are almost complete, 128 on a connection."""
    return f"{sum(processes.at_once(3, send_half, agent, seconds))} MB taken"


def send_unknown(number, agent, seconds):
    calls, deadline = 0, time.monotonic() + seconds
    while time.monotonic() < deadline:
        try:
            with wire.connect(agent.grpc) as peer:
                peer.settimeout(0.5)
                peer.sendall(wire.opening())
                for stream in itertools.count(1, 2):
                    if time.monotonic() > deadline:
                        break
                    peer.sendall(wire.call(stream, f"/x.Y/Z{stream}", bytes(1000)))
                    calls += 1
        except OSError:
            pass
    return calls


def unknown_methods(agent, seconds):
    """Calls of methods that do not exist, by clients that never read."""
    return f"{sum(processes.at_once(2, send_unknown, agent, seconds))} calls"


def literal(length):
    return b"\0" + wire.prefixed(1, 7) + b"x" + wire.prefixed(length, 7)


# What a block of headers begins with, and what comes again and again.
ENDLESS_HEADERS = {
    "one without an end": (literal(1 << 30), b"a" * 16384),
    "small headers": (b"", wire.header(b"x-ab", b"y") * 2000),
    "one from the table": (b"\x40" + wire.header(b"x", b"y" * 3000)[1:], b"\xbe" * 16384),
}


def send_headers(number, agent, name, ends, seconds):
    """Never acknowledges the agent's settings, which bound them. Returns how many MB were taken."""
    begin, piece = ENDLESS_HEADERS[name]
    pieces, sent, deadline = wire.frame(wire.CONTINUATION, 0, 1, piece) * 8, 0, time.monotonic() + seconds
    while time.monotonic() < deadline:
        try:
            with wire.connect(agent.grpc) as peer:
                peer.settimeout(1)
                peer.sendall(wire.opening() + wire.frame(wire.HEADERS, 0, 1, wire.headers(LIF_GET) + begin))
                for i in itertools.count():
                    if time.monotonic() > deadline:
                        break
                    peer.sendall(pieces)
                    sent += len(pieces)
                    if ends and i == 50:  # some MB
                        peer.sendall(wire.frame(wire.CONTINUATION, wire.END_HEADERS, 1)
                                     + wire.data_frames(1, wire.message(b"")))
                        wire.grpc_answer(peer)
                        break
        except OSError:
            pass
    return sent >> 20


def endless_headers(agent, seconds):
    """Blocks of headers that never end, of a method that nobody else calls, and very long ones."""
    return ", ".join(f"{name}{' and an end' * ends}: "
                     f"{sum(processes.at_once(2, send_headers, agent, name, ends, seconds))} MB taken"
                     for name in ENDLESS_HEADERS for ends in (False, True))


def call_slowly(number, agent, _):
    answer = wire.grpc_ask(agent.grpc, LIF_MAPPING_CREATE, wire.field(1, b""))
    check(answer, "a call that waited for the card was not answered")
    return 1


def slowest_s(agent, seconds):
    """The longest that one of four methods needs for an answer, asked by a client of its own again and again."""
    slowest, end = 0, time.monotonic() + seconds
    while time.monotonic() < end:
        for path in (HEALTH, wire.PORT_GET, SYSTEM_GET, wire.INTERFACE_GET):
            began = time.monotonic()
            check(wire.grpc_ask(agent.grpc, path), f"no answer from {path}")
            slowest = max(slowest, time.monotonic() - began)
    return slowest


def blocked_operations(agent, count):
    """Table calls that wait for the card: other methods answer as fast as before, within 100 ms."""
    idle_s = slowest_s(agent, 1)
    blocked = [processes.Work(call_slowly, number, agent, None) for number in range(count)]
    time.sleep(0.5)
    beside_s = slowest_s(agent, BLOCKED_S - 2)
    calls = sum(work.result() for work in blocked)
    check(beside_s < idle_s + 0.1, f"an answer took {beside_s * 1000:.0f} ms beside them, {idle_s * 1000:.0f} before")
    return (f"{calls} calls of {BLOCKED_S} s at once, others answered within {beside_s * 1000:.0f} ms, "
            f"{idle_s * 1000:.0f} before")


def never_read(number, agent, over):
    """Opens a number of connections again and again, each with as many calls as it may have."""
    path, calls = (wire.PORT_GET, REFLECTION)[number], 0
    while not over.is_set():
        peers = []
        for _ in range(50):
            peers.append(wire.connect(agent.grpc))
            peers[-1].sendall(wire.opening(window=0) + b"".join(
                wire.call(stream, path, LIST_SERVICES * number) for stream in range(1, 2 * STREAMS, 2)))
        calls += STREAMS * len(peers)
        over.wait(2)
        for peer in peers:
            peer.close()
    return calls


def closed_windows(agent, probes):
    """Calls and reflection streams whose answers nobody takes, 128 on a connection: other clients are all answered."""
    over = processes.CONTEXT.Event()
    holders = [processes.Work(never_read, number, agent, over) for number in range(2)]
    time.sleep(1)
    try:
        for i in range(probes):
            check(wire.grpc_ask(agent.grpc, SYSTEM_GET), f"no answer to call {i} of {probes}")
    finally:
        over.set()
    return f"{probes} answers beside {sum(holder.result() for holder in holders)} calls"


def update_and_leave(number, agent, request):
    peer = wire.connect(agent.grpc)
    peer.sendall(wire.opening() + wire.frame(wire.HEADERS, wire.END_HEADERS, 1, wire.headers(UPDATE))
                 + wire.data_frames(1, wire.message(request)))
    time.sleep(1)
    wire.reset(peer)
    return time.monotonic()


def cancelled_calls(agent, count):
    """Updates of 2,000 host interfaces, each of which takes 20 ms, by clients that leave: a further update runs soon."""
    record = wire.field(2, wire.field(8, wire.field(2, b"host") + wire.field(5, 1)))  # needs no id
    left = max(processes.at_once(count, update_and_leave, agent, record * 2000))
    check(wire.grpc_ask(agent.grpc, UPDATE, record), "no answer to an update")
    seconds = time.monotonic() - left
    check(seconds < 1, f"cancelled calls ran for {seconds:.1f} s")
    return f"{count} calls stopped within {seconds:.2f} s"
