"""Attacks on the debug socket by another user, who tries to hold the service request thread or to end the process."""

import encodings.idna  # noqa: F401: the other user may not be able to read Python's library
import os
import resource
import socket
import struct
import tempfile
import time

import processes
import wire
from agent import check

STRANGER = 65534
LINGER_S = 3600
SLOW_TO_PARSE = wire.field(15, 1) * 60_000


def become_stranger():
    if os.geteuid() == 0:
        os.setgroups([])
        os.setresgid(STRANGER, STRANGER, STRANGER)
        os.setresuid(STRANGER, STRANGER, STRANGER)


def as_stranger(agent, function, *arguments):
    """Runs function(agent, ...) in a process of another user, if this one may become another."""
    return processes.Work(become, agent, function, arguments).result()


def become(agent, function, arguments):
    become_stranger()
    return function(agent, *arguments)


def try_to(action, *arguments):
    """The agent may have closed the connection."""
    try:
        return action(*arguments)
    except (ConnectionError, BrokenPipeError):
        return None


def stand_by(agent, peers, seconds):
    time.sleep(seconds)
    for peer in peers:
        peer.close()
    return f"{len(peers)} peers"


def lingering_socket():
    """A TCP connection that is full, and whose close() waits for its reader. Returns the reader as well."""
    with socket.create_server(("127.0.0.1", 0)) as listener:
        writer = socket.create_connection(listener.getsockname())
        reader = listener.accept()[0]
    writer.setblocking(False)
    try:
        while True:
            writer.send(bytes(65536))
    except BlockingIOError:
        pass
    writer.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, LINGER_S))
    return writer, reader


def send_out_of_band(agent, seconds):
    peers = []
    for _ in range(20):
        peers.append(wire.connect(agent.socket))
        peers[-1].send(b"x", socket.MSG_OOB)
    return stand_by(agent, peers, seconds)


def out_of_band(agent, seconds):
    """A byte out of band makes a connection readable, and gives nothing to read."""
    return as_stranger(agent, send_out_of_band, seconds)


def bury_in_queue(peer, writer):
    ends = socket.socketpair()
    wire.send_with(ends[0], b"x", [writer.fileno()])
    wire.send_with(peer, wire.UNKNOWN_COMMAND, [ends[1].detach()])
    ends[0].detach()


def pass_second(peer, writer):
    wire.send_with(peer, wire.UNKNOWN_COMMAND, [os.open("/dev/null", os.O_WRONLY), writer.fileno()])


def leave_unread(peer, writer):
    peer.send(wire.UNKNOWN_COMMAND)
    wire.send_with(peer, b"x", [writer.fileno()])


def bury_and_exit(agent, writers, go):
    """Ends at once, so that the agent holds the last references; a process that ends does not linger itself."""
    try:
        slow = [wire.connect(agent.socket) for _ in range(80)]
        peers = [wire.connect(agent.socket) for _ in writers]
        os.read(go, 1)
        for peer in slow:  # keeps the agent busy until this process has ended
            try_to(peer.send, SLOW_TO_PARSE)
        for i, (peer, writer) in enumerate(zip(peers, writers)):
            try_to((bury_in_queue, pass_second, leave_unread)[i % 3], peer, writer)
    finally:
        os._exit(0)


def bury_lingering(agent, seconds):
    ends = [lingering_socket() for _ in range(24)]
    go = os.pipe()
    child = os.fork()
    if child == 0:
        bury_and_exit(agent, [writer for writer, _ in ends], go[0])
    for writer, _ in ends:
        writer.close()
    os.write(go[1], b"x")
    os.waitpid(child, 0)
    time.sleep(seconds)
    for _, reader in ends:
        reader.close()
    return f"{len(ends)} descriptors"


def buried_descriptors(agent, seconds):
    """Sockets that linger for an hour: in the queue of a passed socket, as a second descriptor, in an unread message."""
    return as_stranger(agent, bury_lingering, seconds)


def send_unknown_fields(agent, count):
    resource.setrlimit(resource.RLIMIT_NOFILE, (resource.getrlimit(resource.RLIMIT_NOFILE)[1],) * 2)
    peers = [peer for peer in (try_to(wire.connect, agent.socket) for _ in range(count)) if peer]
    for peer in peers:
        peer.setsockopt(socket.SOL_SOCKET, socket.SO_SNDBUF, 1 << 20)
    sent = sum(bool(try_to(peer.send, SLOW_TO_PARSE)) for peer in peers)
    for peer in peers:
        wire.read_to_end(peer)
    return f"{sent} requests"


def unknown_fields(agent, count):
    """Requests that are long to parse, all at once."""
    return as_stranger(agent, send_unknown_fields, count)


def keep_silent(agent, count):
    resource.setrlimit(resource.RLIMIT_NOFILE, (resource.getrlimit(resource.RLIMIT_NOFILE)[1],) * 2)
    peers = [peer for peer in (try_to(wire.connect, agent.socket) for _ in range(count)) if peer]
    return stand_by(agent, peers, 3)


def silent_strangers(agent, count):
    """More silent peers than the agent may have descriptors: root is served all the same."""
    return as_stranger(agent, keep_silent, count)


def pass_sparse_file(agent, count):
    for _ in range(count):
        with tempfile.TemporaryFile() as file, wire.connect(agent.socket) as peer:
            file.seek(1 << 30)
            wire.send_with(peer, wire.HELP, [file.fileno()])
            wire.read_to_end(peer)
    return f"{count} files"


def file_size_limit(agent, count):
    """A service manager limits the size of files: an output above that does not end the agent."""
    resource.prlimit(agent.pid, resource.RLIMIT_FSIZE, (1 << 24, 1 << 24))
    text = as_stranger(agent, pass_sparse_file, count)
    check(agent.process.poll() is None, "the agent has ended")
    return text


def send_garbage(agent, seconds):
    deadline, count = time.monotonic() + seconds, 0
    while time.monotonic() < deadline:
        with wire.connect(agent.socket) as peer:
            try_to(peer.send, b"\xff")
            wire.read_to_end(peer)
        count += 1
    return count


def garbage(agent, seconds):
    """Connections that send no request: what is logged of them is bounded."""
    begin = agent.log.stat().st_size
    count = as_stranger(agent, send_garbage, seconds)
    lines = len(agent.log_lines(begin))
    check(count > 20 * seconds, f"only {count} connections: nothing to see")
    check(lines <= 12 * (seconds + 1), f"{lines} log lines of {count} connections")
    return f"{count} connections, {lines} log lines"
