"""The heartbeats of the agent's event threads, as its own watchdog sees them."""

import collections

import wire

HEARTBEAT_GET = "/nyx.FaultSvc/HeartbeatGet"  # served at Unix addresses, over TCP with --fault-service
RESTART = wire.field(1, 1)
MESSAGE_PREFIX_SIZE = 5

Heartbeats = collections.namedtuple("Heartbeats", "punched since_last_s longest_gap_s")


def fields(data):
    """The fields of a message by number, as int or bytes; the last one of each number."""
    found, at = {}, 0

    def number():
        nonlocal at
        value, shift = 0, 0
        while True:
            byte = data[at]
            at += 1
            value |= (byte & 127) << shift
            shift += 7
            if byte < 128:
                return value

    while at < len(data):
        tag = number()
        value = number()
        if tag & 7 == 2:
            value, at = data[at:at + value], at + value
        found[tag >> 3] = value
    return found


def heartbeats(grpc, restart=False):
    """Of the service request thread. A thread that is stuck now counts in `longest_gap_s`, which is measured since the
    first heartbeat, 10 s after the start of the agent, or since the last `restart`."""
    answer = wire.grpc_ask(grpc, HEARTBEAT_GET, RESTART if restart else b"")
    thread = fields(fields(answer[MESSAGE_PREFIX_SIZE:])[1])
    return Heartbeats(thread.get(2, 0), thread.get(3, 0) / 1000, thread.get(4, 0) / 1000)
