"""The programs of docs/examples, while the agent fails and restarts.

usage: examples_test.py FOLDER-OF-PROGRAMS FOLDER-OF-THE-PACKAGE REPOSITORY [unittest options]

Each seed is a run of its own. By default there is one, and few faults; the whole rehearsal, about ten seconds a seed:
    NYX_SEEDS=100 python3 tests/examples_test.py build/dev/bin build/dev/python . -k rehearsal
"""

import concurrent.futures
import contextlib
import os
import pathlib
import random
import subprocess
import sys
import tempfile
import unittest

import grpc

from agent import BIN, PATIENCE_S, Agent

PACKAGE, ROOT = (pathlib.Path(sys.argv.pop(1)).resolve() for _ in range(2))
sys.path.insert(0, str(PACKAGE))
import nyx
from nyx import port_pb2

EXAMPLES = ROOT / "docs/examples"
SEEDS = int(os.environ.get("NYX_SEEDS", "0"))
FAULTS, RESTARTS, FLOWS = (50, 5, 2000) if SEEDS else (8, 2, 500)


def controller_flows(flows, rounds):
    """What the controllers want after their rounds: next hops by flow number. Their rule, written down once more."""
    wanted, used = dict.fromkeys(range(flows), 0), flows
    for number in range(1, rounds + 1):
        tenth = max(flows // 10, 1)
        wanted = dict(list(wanted.items())[tenth:])
        wanted.update(dict.fromkeys(list(wanted)[:tenth], number))
        wanted.update(dict.fromkeys(range(used, used + tenth), number))
        used += tenth
    return wanted


def key(number):
    return {"k1": ((0x20010db8 << 96) + number).to_bytes(16, "big"), "k2": 6, "k3": 443}


def random_fault(rng):
    operation = f"nyx_tbl_flow_{rng.choice(['create', 'update', 'delete', 'read'])}"
    code = f"code={rng.randrange(1, 12)}"
    return f"{operation}:" + rng.choice([
        f"{code},chance={rng.randrange(1, 60)},seed={rng.randrange(1000)}",
        f"{code},every={rng.randrange(2, 50)}",
        f"{code},nth={rng.randrange(1, 200)}",
        f"delay={rng.randrange(1, 4)},every={rng.randrange(20, 100)}"])


class Rehearsal(contextlib.ExitStack):
    """An agent that fails and restarts while a program runs: one event for each line that the program prints."""

    def __init__(self, seed):
        super().__init__()
        self.rng = random.Random(seed)
        self.folder = self.enter_context(tempfile.TemporaryDirectory())
        self.events = [self.fail] * FAULTS + [self.restart] * RESTARTS
        self.rng.shuffle(self.events)
        self.rounds = len(self.events) + 2
        self.start()
        self.client = self.enter_context(nyx.connect(self.agent.grpc))

    def start(self):
        self.agent = self.enter_context(Agent(self.folder, grpc=f"unix:{self.folder}/grpc"))

    def restart(self):
        self.agent.process.kill()
        self.agent.process.wait()
        self.start()
        self.client.ping()

    def fail(self):
        if self.rng.random() < 0.5:
            self.client.call("FaultSvc/FaultClear")
        self.client.call("FaultSvc/FaultAdd", fault=random_fault(self.rng))

    def run(self, *command):
        """Runs a program, its arguments completed by what it is to do; the exit code and the last line."""
        command = [str(word).format(address=self.agent.grpc, flows=FLOWS, rounds=self.rounds) for word in command]
        environment = os.environ | {"PYTHONPATH": str(PACKAGE)}
        with subprocess.Popen(command, env=environment, stdout=subprocess.PIPE, text=True) as program:
            self.callback(program.kill)
            for line in program.stdout:
                if self.events:
                    self.events.pop()()
                else:
                    self.client.call("FaultSvc/FaultClear")
            return program.wait(PATIENCE_S), line

    def holds(self):
        """Next hops by flow number, of all that may ever have been programmed; and the card's own count."""
        numbers = range(FLOWS + self.rounds * (FLOWS // 10))
        self.client.call("FaultSvc/FaultClear")
        entries = self.client.table("flow").get(key(number) for number in numbers)
        found = {number: entry["flow_hash_data"]["d1"] for number, entry in zip(numbers, entries) if entry}
        counts = {table.table_name: table.table_stats.entry[0].count
                  for table in self.client.call("TableStatsGet").response}
        return found, counts["flow"]


class ControllerTest(unittest.TestCase):
    def rehearse(self, *command):
        for seed in range(SEEDS or 1):
            with self.subTest(seed=seed), Rehearsal(seed) as rehearsal:
                self.assertEqual(rehearsal.run(*command)[0], 0)
                self.assertEqual(rehearsal.events, [])
                wanted = controller_flows(FLOWS, rehearsal.rounds)
                self.assertEqual(rehearsal.holds(), (wanted, len(wanted)))

    def test_rehearsal_of_the_controller_in_python(self):
        self.rehearse(sys.executable, "-B", EXAMPLES / "controller.py",
                      "--address={address}", "--flows={flows}", "--rounds={rounds}")

    def test_rehearsal_of_the_controller_in_cpp(self):
        self.rehearse(BIN / "example_controller", "{address}", "{flows}", "{rounds}")


class FlappingAgent(grpc.GenericRpcHandler):
    """Answers PortGet with one picture of port 1 after the other, and then with the last one."""

    def __init__(self):
        self.pictures = [self.picture(2, "1"), self.picture(2, "1"), self.picture(2, "123"), self.picture(1, "1234"),
                         self.picture(1, "45"), self.picture(2, "56")]
        self.server = grpc.server(concurrent.futures.ThreadPoolExecutor(1), handlers=[self])
        self.address = f"127.0.0.1:{self.server.add_insecure_port('127.0.0.1:0')}"
        self.server.start()

    @staticmethod
    def picture(state, trace):
        records = [{"timestamp": f"second {at}", "state": int(at)} for at in trace]
        return port_pb2.PortGetResponse(response=[
            {"spec": {"port_number": 1}, "status": {"link_status": {"link_state": state}, "link_sm_records": records}}])

    def service(self, call):
        is_look = call.method.endswith("PortGet")
        return grpc.unary_unary_rpc_method_handler(lambda _request, _context: self.answer() if is_look else b"")

    def answer(self):
        picture = self.pictures.pop(0) if len(self.pictures) > 1 else self.pictures[0]
        return picture.SerializeToString()


class MonitorTest(unittest.TestCase):
    def test_monitors_report_flaps_and_changes(self):
        for command in ([sys.executable, "-B", EXAMPLES / "monitor.py", "--address={}", "--interval=0", "--reports=3"],
                        [BIN / "example_monitor", "{}", "0", "3"]):
            agent = FlappingAgent()
            self.addCleanup(agent.server.stop, None)
            printed = subprocess.run([str(word).format(agent.address) for word in command], capture_output=True,
                                     text=True, timeout=PATIENCE_S, env=os.environ | {"PYTHONPATH": str(PACKAGE)})
            self.assertEqual(printed.stdout, "port 1: flapped until second 3: 2 transitions\n"
                             "port 1: down since second 4\nport 1: up since second 6\n", printed.stderr)


class ExamplesTest(unittest.TestCase):
    def test_programs_are_short(self):
        programs = [path for path in EXAMPLES.iterdir() if path.suffix in (".py", ".cc")]
        self.assertGreaterEqual(len(programs), 4)
        for program in programs:
            self.assertLess(len(program.read_text(encoding="utf-8").splitlines()), 150, program)


if __name__ == "__main__":
    unittest.main(verbosity=2)
