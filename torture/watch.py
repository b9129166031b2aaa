"""A well-behaved client in a process of its own, which counts the agent's threads as well."""

import collections
import threading
import time

import processes
import wire

PAUSE_S = 0.02
Seen = collections.namedtuple("Seen", "threads answers slowest_s failures")


class Watch:
    def __init__(self, agent):
        self.over = processes.CONTEXT.Event()
        self.work = processes.Work(watch, agent, self.over)

    def end(self):
        self.over.set()
        return self.work.result()


def watch(agent, over):
    threads = [0]
    looker = threading.Thread(target=count_threads, args=(agent, over, threads))
    looker.start()
    times, failures = [], 0
    while not over.wait(PAUSE_S):
        for is_answered in (lambda: wire.ask(agent.socket)[0] == wire.ANSWERED, lambda: wire.grpc_ask(agent.grpc)):
            began = time.monotonic()
            try:
                failures += not is_answered()
            except OSError:
                failures += 1
            times.append(time.monotonic() - began)
    looker.join()
    return Seen(max(threads), len(times) - failures, max(times, default=0), failures)


def count_threads(agent, over, threads):
    while not over.wait(PAUSE_S):
        threads.append(agent.figures().threads)
