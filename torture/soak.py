"""Mixed requests by the hundred thousand: memory, threads and descriptors of the agent must not grow with them."""

import contextlib
import os
import random
import socket
import statistics
import time

import processes
import wire
from agent import Agent, check
from grpc_server import CALL, card_id, garbage

WORKERS = 4
STEP = 10_000  # requests between samples
# Growth over the whole run that may be noise: memory_kb, threads, descriptors.
NOISE = {"memory_kb": 3000, "threads": 3, "descriptors": 2}


def grpc_requests(number):
    """Pairs of path and request: what is created is deleted."""
    key, name = wire.field(1, number + 1), b"soak%d" % number  # no such interface
    tables = "/nyx.NyxTblSvc/flow_info"
    return ((tables + "Create", wire.field(1, wire.field(1, key))), (tables + "Get", wire.field(1, key)),
            (tables + "Delete", wire.field(1, key)), (wire.INTERFACE_GET, b""),
            (wire.INTERFACE_GET, wire.field(1, name)),
            (wire.PORT_GET, card_id(1, 1)), ("/nyx.IfSvc/LifGet", b""), ("/nyx.LifClassicSvc/LifClassicGet", b""),
            ("/nyx.SystemSvc/SystemGet", b""), ("/nyx.PipelineSvc/FlowStatsSummaryGet", b""),
            ("/nyx.DebugSvc/SlabGet", b""), ("/nyx.DebugSvc/TableStatsGet", b""))


def hostile(agent, chance):
    if chance.random() < 0.3:
        with contextlib.suppress(OSError), wire.connect(agent.grpc) as peer:
            peer.sendall(chance.choice((garbage(chance), CALL[:chance.randrange(len(CALL))], CALL)))
        return
    with contextlib.suppress(OSError), wire.connect(agent.socket) as peer, open("/dev/null", "wb") as output:
        data = chance.choice((wire.HELP, wire.HELP[:chance.randrange(len(wire.HELP))], b"\xff" * 30,
                              wire.request(b"", b"x/y", 3)))
        wire.send_with(peer, data, [output.fileno()] * chance.choice((0, 1, 2, 50)))
        if chance.random() < 0.5:
            peer.shutdown(socket.SHUT_WR)
            wire.read_to_end(peer)


def ask_with_file(agent, output):
    with wire.connect(agent.socket) as peer:
        wire.send_with(peer, wire.HELP, [output])
        check(wire.read_to_end(peer) == wire.ANSWERED, "no answer to a debug command")


def work(number, agent, count, done):
    """Every tenth request is hostile, another tenth a debug command, the rest gRPC over one channel."""
    import grpc  # here: it must not be loaded before a fork
    chance, output = random.Random(number), os.open("/dev/null", os.O_WRONLY)
    with grpc.insecure_channel("%s:%d" % agent.grpc) as channel:
        calls = [(channel.unary_unary(path), data) for path, data in grpc_requests(number)]
        for i in range(count):
            if i % 10 == 0:
                hostile(agent, chance)
            elif i % 10 == 5:
                ask_with_file(agent, output)
            else:
                method, data = calls[i % len(calls)]
                method(data, timeout=wire.TIMEOUT_S)
            if i % 100 == 99:
                with done.get_lock():
                    done.value += 100


def growth(samples):
    """Of the last three quarters, over the whole run: 0 when it could be chance."""
    samples = samples[len(samples) // 4:]
    slope, start = statistics.linear_regression(range(len(samples)), samples)
    errors = [sample - start - slope * i for i, sample in enumerate(samples)]
    spread = statistics.pstdev(range(len(samples))) * len(samples) ** 0.5
    error = statistics.pstdev(errors) / spread if spread else 0
    return slope, slope * len(samples) if slope > 3 * error else 0


def rate_kept(times):
    """Requests a second over the last tenth of the samples, by those over the first."""
    tenth = max(len(times) // 10, 1)
    return (times[tenth] - times[0]) / (times[-1] - times[-1 - tenth])


def run(build, requests):
    """Returns whether nothing grows."""
    done, began, samples, times = processes.CONTEXT.Value("q", 0), time.monotonic(), [], []
    with Agent(build, "--log-level", "none") as agent:
        workers = [processes.Work(work, number, agent, requests // WORKERS, done) for number in range(WORKERS)]
        while any(worker.process.is_alive() for worker in workers):
            if done.value >= STEP * (len(samples) + 1):
                samples.append(agent.figures())
                times.append(time.monotonic())
            time.sleep(0.01)
        for worker in workers:
            worker.result()
        agent.answers()
    check(len(samples) >= 8, f"{len(samples)} samples are too few: at least {8 * STEP} requests")
    print(f"{done.value} requests, {done.value / (time.monotonic() - began):.0f}/s; {samples[0]} -> {samples[-1]}")
    print(f"rate of the last tenth by that of the first: {rate_kept(times):.2f}")
    passed = True
    for name, noise in NOISE.items():
        slope, grown = growth([getattr(sample, name) for sample in samples])
        passed = passed and grown <= noise
        print(f"{'ok' if grown <= noise else 'FAILED':6} {name}: {slope:+.3f} for {STEP} requests")
    return passed
