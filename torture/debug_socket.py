"""Attacks on the debug socket."""

import contextlib
import itertools
import os
import random
import resource
import socket
import tempfile
import time

import processes
import wire
from agent import check
from strangers import become_stranger

REQUESTS = {"command": wire.HELP, "unknown type": wire.request(b"", b"x/nyx.Nothing", 1), "garbage": b"\xff" * 50,
            "empty": b""}
MOST_DESCRIPTORS = 253  # of one message


def open_pipe(_):
    return os.pipe()


def open_sockets(_):
    return [end.detach() for end in socket.socketpair()]


def open_file(_):
    with tempfile.TemporaryFile() as file:
        return [os.dup(file.fileno())]


KINDS = {"pipe": open_pipe, "socket": open_sockets, "file": open_file, "memfd": lambda _: [os.memfd_create("x")],
         "its own connection": lambda peer: [os.dup(peer.fileno())]}


def storm(number, agent, counts):
    for kind, data, count in itertools.product(KINDS, REQUESTS, counts):
        with wire.connect(agent.socket) as peer:
            descriptors = KINDS[kind](peer)
            wire.send_with(peer, REQUESTS[data], [descriptors[-1]] * count)
            for descriptor in descriptors:
                os.close(descriptor)
            peer.shutdown(socket.SHUT_WR)
            wire.read_to_end(peer)
    return len(KINDS) * len(REQUESTS) * len(counts)


def descriptor_storm(agent, step):
    """Up to 253 descriptors with every kind of request."""
    counts = sorted({*range(0, MOST_DESCRIPTORS + 1, step), 1, 2, MOST_DESCRIPTORS})
    return f"{sum(processes.at_once(2, storm, agent, counts))} messages"


def vanish(number, agent, rounds):
    for _ in range(rounds):
        for cut in (0, len(wire.HELP) // 2, len(wire.HELP)):
            for last in (socket.SHUT_WR, socket.SHUT_RD, None):
                peer = wire.connect(agent.socket)
                reader, writer = os.pipe()
                wire.send_with(peer, wire.HELP[:cut], [writer] if cut else [])
                os.close(reader)  # nobody reads the output either
                os.close(writer)
                if last is not None:
                    peer.shutdown(last)
                peer.close()
    return rounds * 9


def vanishing_peers(agent, rounds):
    """Peers that are gone before, within and right after their request."""
    return f"{sum(processes.at_once(4, vanish, agent, rounds))} peers"


def hold(number, address, count, begin, seconds):
    peers = []
    for i in range(count):
        peers.append(wire.connect(address))
        with contextlib.suppress(OSError):  # the agent may have turned it away already
            if begin and i % 2:
                peers[-1].sendall(begin)
            if i % 3 == 0 and number % 2:
                peers[-1].shutdown(socket.SHUT_WR)
    time.sleep(seconds)
    return len(peers)


def silent_peers(agent, count):
    """Connections that say nothing, for some seconds."""
    return f"{sum(processes.at_once(4, hold, agent.socket, count // 4, b'', 1))} connections"


def splits(number, agent, data, whole):
    answered = 0
    for cut in range(len(data) + 1):
        with wire.connect(agent.socket) as peer:
            try:
                peer.sendall(data[:cut])
                if whole:
                    time.sleep(0.0005 * (cut % 3))
                    peer.sendall(data[cut:])
                peer.shutdown(socket.SHUT_WR)
            except OSError:
                pass  # the agent has read the first piece, and closed
            answered += bool(wire.read_to_end(peer))
    return answered


def prefixes_and_splits(agent, rounds):
    """Every prefix and every split of a request: a request is read once."""
    arguments = wire.field(1, b"x/nyx.FlowTracerSpec") + wire.field(2, wire.field(8, 9))
    data, answered = wire.request(wire.field(1, 7) + wire.field(2, arguments)), 0
    for _ in range(rounds):
        for whole in (False, True):
            answered += sum(processes.at_once(2, splits, agent, data, whole))
    return f"{rounds * 4 * (len(data) + 1)} requests, {answered} answered"


def padded(size):
    head = wire.HELP + wire.varint(15 << 3 | 2)
    for width in range(1, 5):
        left = size - len(head) - width
        if left >= 0 and len(wire.varint(left)) == width:
            return head + wire.varint(left) + bytes(left)
    return wire.HELP


def answered(agent, size, descriptors):
    with wire.connect(agent.socket) as peer, open("/dev/null", "wb") as output:
        try:
            peer.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 8 << 20)
            wire.send_with(peer, padded(size), [output.fileno()] if descriptors else [])
        except BrokenPipeError:
            pass
        return bool(wire.read_to_end(peer))


def size_limits(agent, step):
    """Requests around every limit: with a descriptor, without one, and of the buffer."""
    most = {}
    for descriptors, sure, sizes in ((True, 32_000, range(30_000, 42_000, step)),
                                     (False, 32_000, range(140_000, 260_000, 4 * step))):
        for size in (*sizes, 1_048_575, 1_048_576, 1_048_577, 4 << 20):
            if answered(agent, size, descriptors):
                most[descriptors] = max(size, most.get(descriptors, 0))
            else:
                check(size > sure, f"no answer to a request of {size} bytes")
    return f"largest answered: {most[True]} bytes with a descriptor, {most[False]} without"


def keep_full(number, agent, seconds):
    """Fills the agent with connections at both servers, and opens new ones where old ones are closed."""
    resource.setrlimit(resource.RLIMIT_NOFILE, (1000, 20000))
    peers, deadline, tried = [], time.monotonic() + seconds, 0
    while time.monotonic() < deadline:
        tried += 1
        try:
            peer = wire.connect(agent.socket if number % 2 else agent.grpc, 1)
            peer.setblocking(False)
            peers.append(peer)
        except OSError:
            time.sleep(0.01)
        if len(peers) > 300:
            peers.pop(random.randrange(len(peers))).close()
    return tried


def descriptor_limit(agent, seconds):
    """An agent that has no descriptors left: heartbeats go on, few lines are logged, and it recovers within a second."""
    begin = agent.log.stat().st_size
    tried = sum(processes.at_once(2, keep_full, agent, seconds))
    recovery = agent.recovery_s()
    lines = len(agent.log_lines(begin))
    check(recovery < 1, f"recovery took {recovery:.1f} s")
    check(lines <= 2 * 10 * (seconds + 3), f"{lines} log lines")  # of two places in the code
    return f"{tried} connections, recovery {recovery * 1000:.0f} ms, {lines} log lines"


def pass_output(number, agent, count, make):
    """Many at once pass an output that takes nothing. All their requests wait for the agent at the same time."""
    become_stranger()
    peers = [(wire.connect(agent.socket), *make()) for _ in range(count)]
    time.sleep(0.2)  # all are accepted
    for peer, output, _ in peers:
        wire.send_with(peer, wire.HELP, [output])
        os.close(output)
    for peer, _, _ in peers:
        wire.read_to_end(peer)
    return len(peers)


def fill(output, block):
    os.set_blocking(output, False)
    try:
        while True:
            os.write(output, block)
    except BlockingIOError:
        os.set_blocking(output, True)


def full_pipe():
    reader, writer = os.pipe()
    fill(writer, bytes(4096))
    return writer, reader


def narrow_terminal():
    """Ready for writing, but has no room for a whole text."""
    master, slave = os.openpty()
    for _ in range(3):  # the kernel moves what was written, and makes room
        fill(slave, b"x" * 64)
        time.sleep(0.01)
    os.read(master, 50)
    return slave, master


def has_terminals():
    """A container may be without pseudo-terminals."""
    try:
        for end in os.openpty():
            os.close(end)
    except OSError:
        return False
    return True


def stalled_outputs(agent, count):
    """Outputs that nobody reads: the thread waits for each, but must not stand still."""
    kinds = [full_pipe, narrow_terminal] if has_terminals() else [full_pipe]
    for make in kinds:
        processes.at_once(2, pass_output, agent, count // 2, make)
    return f"{len(kinds) * count} outputs" + ("" if len(kinds) == 2 else ", no terminals here")
