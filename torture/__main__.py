"""Hostile clients against a real agent over real sockets, and what it costs the agent and its other clients.

usage: python3 torture BUILD-FOLDER [--short] [--minutes N] [--only ATTACK] [--soak REQUESTS]
"""

import argparse
import collections
import sys
import time

import grpc_server
import grpc_memory
import life
import slow_files
import debug_socket
import soak
import strangers
from agent import LOG_LINE, SPARE_THREADS, Agent, Failed, check
from heartbeats import heartbeats
from watch import Watch

LONGEST_GAP_S = 2  # then the watchdog complains
LONGEST_ANSWER_S = 5  # hostile clients take their share of the processor
MOST_THREADS = 600

MIB_KB = 1024
MOST_MEMORY_KB, KEPT_MEMORY_KB = 512 * MIB_KB, 64 * MIB_KB  # above what it had: during an attack, and after it

# Amounts of the whole attack and of the short form, which leaves out what has none. `files`: descriptors of an agent of
# its own; `starves`: clients need not be served while it lasts.
Attack = collections.namedtuple("Attack", "run whole short files options starves", defaults=(None, (), False))

SLOW_PORTS = ("--fault", "api::port_get_all:delay=200")

WITHOUT_AGENT = {
    "restarts": Attack(life.restarts, 50, 3),
    "stop-under-load": Attack(life.stop_under_load, 20, 2),
    "foreign-terminals": Attack(slow_files.foreign_terminals, 20, 2),
    "mac-file-killed": Attack(life.mac_file_killed, 10_000, 100),
    "mac-file-shared": Attack(life.mac_file_shared, 1889, 20),  # 34,002 updates
}
ATTACKS = {
    "log-forging": Attack(life.log_forging, 20, 1, 20000, ("--log-limit", "0")),
    "descriptor-storm": Attack(debug_socket.descriptor_storm, 1, 60),
    "vanishing-peers": Attack(debug_socket.vanishing_peers, 1000, 10),
    "silent-peers": Attack(debug_socket.silent_peers, 8000, 400),
    "silent-peers-few-files": Attack(debug_socket.silent_peers, 400, 400, 200, (), True),
    "prefixes-and-splits": Attack(debug_socket.prefixes_and_splits, 20, 1),
    "size-limits": Attack(debug_socket.size_limits, 100, 2000),
    "stalled-outputs": Attack(debug_socket.stalled_outputs, 60, 20),
    "descriptor-limit": Attack(debug_socket.descriptor_limit, 20, 2, 200, (), True),
    "out-of-band": Attack(strangers.out_of_band, 5, 2),
    "buried-descriptors": Attack(strangers.buried_descriptors, 5, 2),
    "unknown-fields": Attack(strangers.unknown_fields, 900, 400),
    "silent-strangers": Attack(strangers.silent_strangers, 1100, 1100, 1024),
    "file-size-limit": Attack(strangers.file_size_limit, 20, 2, 20000),
    "garbage": Attack(strangers.garbage, 10, 2),
    "hanging-file-system": Attack(slow_files.hanging_file_system, 5, 1),
    "fragmented-files": Attack(slow_files.fragmented_files, 3000, None),
    "vanishing-clients": Attack(grpc_server.vanishing_clients, 1, 20),
    "silent-clients": Attack(grpc_server.silent_clients, 8000, 400),
    "silent-clients-few-files": Attack(grpc_server.silent_clients, 400, 400, 200, (), True),
    "http2-garbage": Attack(grpc_server.http2_garbage, 10_000, 200),
    "floods": Attack(grpc_server.floods, 5, None, 20000, (), True),
    "large-metadata": Attack(grpc_server.large_metadata, 20, 1),
    "message-limits": Attack(grpc_server.message_limits, 2, 1),
    "many-streams": Attack(grpc_server.many_streams, 5000, 400, 20000, SLOW_PORTS, True),
    "slow-readers": Attack(grpc_server.slow_readers, 100, 10),
    "closed-windows": Attack(grpc_memory.closed_windows, 1000, 20),
    "cancelled-calls": Attack(grpc_memory.cancelled_calls, 32, 16, 20000, grpc_memory.SLOW_UPDATES),
    "blocked-operations": Attack(grpc_memory.blocked_operations, 8, 8, 20000, grpc_memory.BLOCKED),
    "half-sent-requests": Attack(grpc_memory.half_sent_requests, 8, None, 20000, (), True),
    "endless-headers": Attack(grpc_memory.endless_headers, 5, None, 20000, (), True),
    "unknown-methods": Attack(grpc_memory.unknown_methods, 8, None, 20000, (), True),
}


def verdict(attack, seen, gap_s, before, after, lines):
    """Raises Failed when the agent has not kept what it promises."""
    check(after.descriptors <= before.descriptors, f"{after.descriptors - before.descriptors} descriptors stay open")
    check(after.threads <= before.threads + SPARE_THREADS, f"{after.threads - before.threads} threads stay")
    check(seen.threads <= MOST_THREADS, f"{seen.threads} threads at once")
    check(after.peak_kb - before.memory_kb <= MOST_MEMORY_KB, "it takes too much memory")
    check(after.memory_kb - before.memory_kb <= KEPT_MEMORY_KB, "it keeps too much memory")
    check(gap_s < LONGEST_GAP_S, "a heartbeat was missed")
    check(attack.starves or not seen.failures, f"{seen.failures} requests of the well-behaved client failed")
    check(attack.starves or seen.slowest_s < LONGEST_ANSWER_S, "the well-behaved client waited too long")
    forged = [line for line in lines if not LOG_LINE.fullmatch(line)]
    check(not forged, f"no line of the logger: {forged[:1]}")


def run_against(agent, attack, amount, short):
    """Returns the figures of the attack and what was wrong."""
    agent.answers()
    while not short and not heartbeats(agent.grpc).punched:
        time.sleep(0.2)  # the first one comes 10 s after the start
    time.sleep(0.2)  # until these connections are closed
    log_begin, before = agent.log.stat().st_size, agent.figures()
    agent.forget_peak()
    heartbeats(agent.grpc, restart=True)
    watch, text, wrong = Watch(agent), "", None
    try:
        text = attack.run(agent, amount)
    except (Failed, OSError, EOFError) as error:
        wrong = f"{type(error).__name__} {error}"
    seen = watch.end()
    try:
        recovery = agent.recovery_s()
        gap_s = heartbeats(agent.grpc).longest_gap_s
        after, lines = agent.settle(before, KEPT_MEMORY_KB), agent.log_lines(log_begin)
        text += (f"; descriptors {before.descriptors} -> {after.descriptors}, "
                 f"threads {before.threads} -> {after.threads} (peak {seen.threads}), "
                 f"memory {before.memory_kb // 1000} -> {after.memory_kb // 1000} MB "
                 f"(peak {after.peak_kb // 1000}), heartbeat gap {gap_s:.2f} s, {seen.answers} answers, "
                 f"slowest {seen.slowest_s * 1000:.0f} ms, "
                 f"{seen.failures} failed, recovery {recovery * 1000:.0f} ms, {len(lines)} log lines")
        verdict(attack, seen, gap_s, before, after, lines)
    except (Failed, OSError) as error:
        wrong = wrong or f"{type(error).__name__} {error}"
    return text, wrong


def run_one(name, build, shared, short):
    attack = ATTACKS.get(name) or WITHOUT_AGENT[name]
    amount = attack.short if short else attack.whole
    began = time.monotonic()
    if name in WITHOUT_AGENT:
        try:
            text, wrong = attack.run(build, amount), None
        except (Failed, OSError) as error:
            text, wrong = "", f"{type(error).__name__} {error}"
    elif attack.files:
        with Agent(build, *attack.options, files=attack.files) as agent:
            text, wrong = run_against(agent, attack, amount, short)
    else:
        text, wrong = run_against(shared, attack, amount, short)
    text += f": {wrong}" if wrong else ""
    print(f"{'FAILED' if wrong else 'ok':6} {name} ({time.monotonic() - began:.0f} s): {text}", flush=True)
    return not wrong


def torture(build, names, minutes, short):
    until, rounds = time.monotonic() + 60 * minutes, 0
    passed = True
    with Agent(build) as shared:
        while rounds == 0 or time.monotonic() < until:
            for name in names:
                passed = run_one(name, build, shared, short) and passed
            rounds += 1
    return passed


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    names = [*WITHOUT_AGENT, *ATTACKS]
    parser.add_argument("build")
    parser.add_argument("--short", action="store_true", help="each attack small, all of them in half a minute")
    parser.add_argument("--minutes", type=float, default=0, help="again and again for so long")
    parser.add_argument("--only", choices=names, action="append", metavar="ATTACK", help=", ".join(names))
    parser.add_argument("--soak", type=int, metavar="REQUESTS", help="mixed requests, to see whether anything grows")
    options = parser.parse_args()
    if options.soak:
        return soak.run(options.build, options.soak)
    if options.short:
        names = [name for name in names if (ATTACKS | WITHOUT_AGENT)[name].short is not None]
    return torture(options.build, options.only or names, options.minutes, options.short)


if __name__ == "__main__":
    sys.exit(0 if main() else 1)
