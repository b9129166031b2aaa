"""A well-behaved client in a process of its own, which looks at the heartbeats as well."""

import collections
import threading
import time

import processes
import wire

PAUSE_S = 0.02
Seen = collections.namedtuple("Seen", "gap_s threads answers slowest_s failures")


class Watch:
    def __init__(self, agent):
        agent.heartbeats()  # looks up once where they are
        self.over = processes.CONTEXT.Event()
        self.work = processes.Work(watch, agent, self.over)

    def end(self):
        self.over.set()
        return self.work.result()


def watch(agent, over):
    gaps, threads = [0], [0]
    looker = threading.Thread(target=look_at, args=(agent, over, gaps, threads))
    looker.start()
    times, failures = [], 0
    while not over.wait(PAUSE_S):
        for door in (lambda: wire.ask(agent.socket)[0] == wire.ANSWERED, lambda: wire.grpc_ask(agent.grpc)):
            began = time.monotonic()
            try:
                failures += not door()
            except OSError:
                failures += 1
            times.append(time.monotonic() - began)
    looker.join()
    return Seen(max(gaps), max(threads), len(times) - failures, max(times, default=0), failures)


def look_at(agent, over, gaps, threads):
    """Appends gaps between heartbeats, from the first one on, 10 s after the start; and numbers of threads."""
    count, began = agent.heartbeats(), time.monotonic()
    while not over.wait(PAUSE_S):
        now_count, now = agent.heartbeats(), time.monotonic()
        if now_count:
            gaps.append(now - began)
        if now_count != count or not now_count:
            count, began = now_count, now
        threads.append(agent.figures().threads)
