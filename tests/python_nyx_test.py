"""The Python package nyx against the stand-in, and against a fake that restarts on command.

usage: python_nyx_test.py FOLDER-OF-PROGRAMS FOLDER-OF-THE-PACKAGE REPOSITORY [unittest options]
"""

import concurrent.futures
import inspect
import ipaddress
import itertools
import pathlib
import subprocess
import sys
import tempfile
import unittest
import uuid

import grpc

from agent import Agent

PACKAGE, ROOT = (pathlib.Path(sys.argv.pop(1)).resolve() for _ in range(2))
sys.path.insert(0, str(PACKAGE))
import nyx
from nyx import interface_pb2, values
from nyx.tables import flow_pb2


def flow(number, d1=1):
    return {"key": {"k1": number.to_bytes(16, "big"), "k2": 6}, "flow_hash_data": {"d1": d1}}


def flows(count, d1=1):
    return (flow(i, d1) for i in range(count))


def largest_entry(table):
    """An entry with the largest value of each field, with the data of the last action."""
    def fill(message):
        filled = {}
        for field in message.fields:
            if field.message_type and not field.containing_oneof:
                filled[field.name] = fill(field.message_type)
            elif not field.message_type and field.name not in ("action_id", "client_tag", "key_mask_valid"):
                filled[field.name] = (b"\xfe" * values.width(field) if field.type == field.TYPE_BYTES
                                      else values.largest(field))
        for data in message.oneofs[0].fields[-1:] if message.oneofs else ():
            filled[data.name] = fill(data.message_type)
        return filled
    return fill(table._entry.message.DESCRIPTOR)


class ValuesTest(unittest.TestCase):
    def test_values_that_do_not_fit_are_refused_with_their_path(self):
        key = nyx.messages.codec_of(flow_pb2.flowSpec.DESCRIPTOR)
        for given, expected in (
                ({"key": {"k2": 70000}}, "key.k2=70000: the largest value is 255"),
                ({"key": {"k2": -1}}, "key.k2=-1: the smallest value is 0"),
                ({"key": {"k2": 1.5}}, "key.k2=1.5: float does not fit"),
                ({"key": {"k1": b"2001:db8::2"}}, "key.k1=b'2001:db8::2': an address has 16 bytes, not 11"),
                ({"key": {"k1": "10.0.0.1"}}, "key.k1='10.0.0.1': "),
                ({"key": {"kk": 1}}, "key.kk: no such field"),
                ({"action_id": 5, "flow_hash_data": {}}, "action_id=5: flow_hash_data belongs to action 0")):
            with self.assertRaises(ValueError) as raised:
                key.build(given)
            self.assertTrue(str(raised.exception).startswith(expected), raised.exception)
        message = flow_pb2.flowSpec(key={"k2": 70000})
        self.assertRaisesRegex(ValueError, "key.k2=70000: the largest value is 255", nyx.check_widths, message)

    def test_addresses_go_in_and_come_out_as_python_values(self):
        spec = interface_pb2.InterfaceSpec.DESCRIPTOR
        given = {"id": uuid.UUID(int=5), "admin_status": "STATE_UP",
                 "l3_if_spec": {"prefix": [ipaddress.ip_interface("10.0.0.1/24"), "2001:db8::/32"],
                                "mac_address": nyx.Mac("00:1a:2b:3c:4d:5e")}}
        out = nyx.to_dict(nyx.messages.codec_of(spec).build(given))
        self.assertEqual(out["id"], uuid.UUID(int=5))
        self.assertEqual([str(prefix) for prefix in out["l3_if_spec"]["prefix"]], ["10.0.0.1/24", "2001:db8::/32"])
        self.assertEqual(str(out["l3_if_spec"]["mac_address"]), "00:1a:2b:3c:4d:5e")
        self.assertEqual(bytes(nyx.Mac(0x1a2b3c4d5e)), bytes.fromhex("001a2b3c4d5e"))
        for wrong in ("00:1a:2b:3c:4d", "00:1a:2b:3c:4d:5e:6f", "zz:1a:2b:3c:4d:5e", b"12345", 1 << 48, -1):
            self.assertRaises(ValueError, nyx.Mac, wrong)


class AgentTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = cls.enterClassContext(tempfile.TemporaryDirectory())
        cls.address = cls.enterClassContext(Agent(cls.folder, grpc=f"unix:{cls.folder}/grpc")).grpc
        cls.agent = cls.enterClassContext(nyx.connect(cls.address))

    def tearDown(self):
        self.agent.table("flow").delete(item["key"] for item in flows(5000))

    def test_all_tables_take_and_give_back_their_largest_values(self):
        self.assertEqual(len(self.agent.tables), 37)
        for name in self.agent.tables:
            table = self.agent.table(name)
            entry = largest_entry(table)
            self.assertEqual((table.add(entry), table.apply(entry).unchanged), (1, 1), name)
            read, missing = table.get([entry["key"], {}])
            self.assertIsNone(missing, name)
            self.assertEqual(nyx.to_dict(table._entry.build(read)), read, name)
            self.assertEqual(table.apply(read).unchanged, 1, name)
            self.assertEqual(table.delete(entry["key"]), 1)
            self.assertEqual(list(table.get(entry["key"])), [None])

    def test_failed_entries_are_exactly_those_that_are_not_in_the_card(self):
        table = self.agent.table("flow")
        with self.agent.faults("nyx_tbl_flow_create:code=7,chance=20,seed=7") as faults:
            with self.assertRaises(nyx.EntriesFailed) as raised:
                table.add(flows(5000))
            self.assertEqual(faults.strikes, len(raised.exception.failed))
        failed = raised.exception.failed
        missing = [item for item, read in zip(flows(5000), table.get(item["key"] for item in flows(5000))) if not read]
        self.assertEqual((failed, raised.exception.done), (missing, 5000 - len(missing)))
        self.assertEqual(table.add(failed), len(failed))
        self.assertEqual(table.add(flows(5000)), 5000)
        self.assertRaises(nyx.EntriesFailed, table.add, flow(1, d1=2))
        with self.agent.faults("nyx_tbl_flow_delete:code=7,every=10"):
            with self.assertRaises(nyx.EntriesFailed) as raised:
                table.delete(item["key"] for item in flows(5000))
        keys = [item["key"] for item in flows(5000)]  # which tenth it is depends on the order of requests under way
        left = [key for key, read in zip(keys, table.get(keys)) if read]
        self.assertEqual((raised.exception.failed, len(left)), (left, 500))

    def test_too_many_failures_end_an_endless_stream(self):
        with self.agent.faults("nyx_tbl_flow_create:full=2000"):
            with self.assertRaises(nyx.EntriesFailed) as raised:
                self.agent.table("flow").add((flow(i) for i in itertools.count()), max_failed=500)
        self.assertEqual((raised.exception.done, raised.exception.complete), (2000, False))

    def test_apply_makes_the_card_hold_the_entries_in_spite_of_faults(self):
        table = self.agent.table("flow")
        table.add(flows(100))
        table.add(flow(i, d1=7) for i in range(100, 200))
        with self.agent.faults("nyx_tbl_flow_create:code=7,chance=20", "nyx_tbl_flow_update:code=7,chance=20") as faults:
            self.assertEqual(table.apply(flows(3000)), nyx.Applied(added=2800, updated=100, unchanged=100))
            self.assertGreater(faults.strikes, 500)
        self.assertEqual({read["flow_hash_data"]["d1"] for read in table.get(item["key"] for item in flows(3000))}, {1})
        with self.agent.faults("nyx_tbl_flow_create:full=3001"):
            with self.assertRaises(nyx.EntriesFailed) as raised:
                table.apply(flows(3003))
        self.assertEqual(raised.exception.failed, [flow(3001), flow(3002)])

    def test_a_wrong_value_leaves_what_came_before_its_request(self):
        table = self.agent.table("flow")
        with self.assertRaisesRegex(ValueError, "flow: item 2500 .*the largest value is 255"):
            table.add(flow(i) if i != 2500 else {"key": {"k2": 256}} for i in range(5000))
        there = [bool(read) for read in table.get(item["key"] for item in flows(5000))]
        self.assertEqual(there, [True] * 2000 + [False] * 3000)

    def test_calls_report_both_outcomes(self):
        with self.assertRaises(nyx.ApiError) as raised:
            self.agent.call("PortSvc/PortGet", id=[self.agent.call("PortGet").response[0].spec.id, b"\x63"])
        self.assertEqual((raised.exception.name, len(raised.exception.response.response)),
                         ("API_STATUS_LOOKUP_FAILURE", 1))
        with self.assertRaises(nyx.CallFailed) as raised:
            self.agent.call("TraceLevelGet")
        self.assertEqual(raised.exception.code, grpc.StatusCode.UNIMPLEMENTED)
        self.assertRaisesRegex(ValueError, "unknown method", self.agent.call, "PortSvc/PortGte")
        with self.assertRaisesRegex(ValueError, "unknown operation"), self.agent.faults("api::nonsense:code=1"):
            pass
        self.assertEqual(len(self.agent.call("FaultList").response), 0)
        self.assertRaises(nyx.Unreachable, nyx.connect, f"unix:{self.folder}/nobody", timeout=0.2)


class FakeAgent(grpc.GenericRpcHandler):
    """Answers every call with an empty response, as an agent of the given instance. `at` counts calls down to a restart."""

    def __init__(self):
        self.instance, self.restart_at, self.calls = "a" * 32, None, 0
        self.server = grpc.server(concurrent.futures.ThreadPoolExecutor(1), handlers=[self])
        self.port = self.server.add_insecure_port("127.0.0.1:0")
        self.server.start()

    def service(self, _):
        return grpc.unary_unary_rpc_method_handler(self.answer)

    def answer(self, _, context):
        self.calls += 1
        if self.calls == self.restart_at:
            self.instance = "b" * 32
        context.send_initial_metadata([("nyx-instance-id", self.instance)])
        return b""


class RestartTest(unittest.TestCase):
    def setUp(self):
        self.fake = FakeAgent()
        self.addCleanup(self.fake.server.stop, None)
        self.told = []
        self.agent = self.enterContext(nyx.connect(f"127.0.0.1:{self.fake.port}", on_restart=self.told.append))

    def test_restart_between_calls_is_told_once(self):
        self.agent.ping()
        self.assertEqual(self.told, [])
        self.fake.instance = "b" * 32
        self.agent.ping()
        self.fake.instance = "a" * 32  # as of a response that comes late
        self.agent.ping()
        self.assertEqual((self.told, self.agent.instance_id), ([self.agent], "b" * 32))

    def test_restart_in_the_middle_ends_an_operation(self):
        self.fake.restart_at = self.fake.calls + 5
        self.assertRaises(nyx.Restarted, self.agent.table("flow").add, flows(100_000))
        self.assertEqual(self.told, [self.agent])
        self.assertEqual(self.agent.table("flow").add(flows(3000)), 3000)

    def test_entries_that_an_agent_leaves_out_are_not_there(self):
        table = self.agent.table("flow")
        self.assertEqual(list(table.get(item["key"] for item in flows(3))), [None] * 3)
        self.fake.restart_at = self.fake.calls + 1
        self.assertRaises(nyx.Restarted, table.apply, flows(3))


class ConnectionTest(unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        self.start()
        self.restarts = []
        self.agent = self.enterContext(nyx.connect(self.process.grpc, on_restart=self.restarts.append))

    def start(self):
        self.process = self.enterContext(Agent(self.folder, grpc=f"unix:{self.folder}/grpc"))

    def crash(self):
        self.process.process.kill()
        self.process.process.wait()
        self.start()

    def test_crash_in_the_middle_ends_an_operation(self):
        def flows_with_a_crash():
            yield from flows(10_000)
            self.crash()
            yield from flows(20_000)

        table = self.agent.table("flow")
        self.assertRaises(nyx.Restarted, table.add, flows_with_a_crash())
        self.assertEqual(self.restarts, [self.agent])
        self.assertEqual(table.apply(flows(20_000)).updated, 0)
        keys = (item["key"] for item in flows(20_001))
        self.assertEqual(sum(read is not None for read in table.get(keys)), 20_000)

    def test_reads_are_repeated_on_a_new_connection(self):
        for _ in range(3):
            self.crash()
            self.assertEqual(len(self.agent.call("PortSvc/PortGet").response), 3)
        self.assertEqual(len(self.restarts), 3)


class PackageTest(unittest.TestCase):
    def test_everything_public_is_documented(self):
        for name in nyx.__all__:
            thing = getattr(nyx, name)
            members = inspect.getmembers(thing, inspect.isfunction) if inspect.isclass(thing) else []
            for member, text in [(name, thing.__doc__)] + [(name, value.__doc__) for name, value in members]:
                self.assertTrue(text or member.startswith("_") or member == "close", f"{name}.{member}")

    def test_types_are_strict(self):
        layer = [str(path) for path in sorted(PACKAGE.glob("nyx/*.py")) if "_pb2" not in path.name]
        self.assertGreater(len(layer), 7)
        user = ("import nyx\nfor read in nyx.connect().table('flow').get([{'k2': 6}]):\n    reveal_type(read)\n"
                "nyx.connect().table(5)\n")
        mypy = [sys.executable, "-m", "mypy", "--config-file", ROOT / "python/mypy.ini", "--cache-dir", "/dev/null"]
        result = subprocess.run([*mypy, *layer], cwd=PACKAGE, capture_output=True, text=True)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        result = subprocess.run([*mypy, "-c", user], cwd=PACKAGE, capture_output=True, text=True)
        self.assertIn('"Union[builtins.dict[builtins.str, Any], None]"', result.stdout)
        self.assertIn('"table" of "Agent" has incompatible type "int"; expected "str"', result.stdout)


if __name__ == "__main__":
    unittest.main(verbosity=2)
