"""nyx-agent as a service: who it is, who may do what, what it records, how it starts and stops.

usage: agent_service_test.py FOLDER-OF-PROGRAMS REPOSITORY PROTOC [unittest options]
"""

import os
import pathlib
import re
import shutil
import signal
import socket
import ssl
import subprocess
import sys
import tempfile
import threading
import unittest
from unittest import mock

import grpc
from google.protobuf import descriptor_pb2, descriptor_pool, message_factory

from agent import BIN, PATIENCE_S, Agent, make_certificate, run, wait_until


ROOT, PROTOC = (pathlib.Path(sys.argv.pop(1)).resolve() for _ in range(2))
ROLE_OPTION = 50101  # types.role in nyx/types/options.proto
ROLES = (None, "read", "operate", "rehearse")


def read_services():
    """All services, those of the stand-in too, with the pool of their messages."""
    folders = (ROOT / "proto", ROOT / "sim/proto")
    protos = [path for folder in folders for path in sorted(folder.glob("nyx/**/*.proto"))]
    with tempfile.NamedTemporaryFile() as file:
        subprocess.run([PROTOC, *(f"-I{folder}" for folder in folders), "--include_imports",
                        f"--descriptor_set_out={file.name}", *protos], check=True)
        files = descriptor_pb2.FileDescriptorSet.FromString(file.read()).file
    pool = descriptor_pool.DescriptorPool()
    for each in files:
        pool.Add(each)
    return pool, [pool.FindServiceByName(f"{each.package}.{service.name}") for each in files for service in each.service]


POOL, SERVICES = read_services()
METHODS = [method for service in SERVICES for method in service.methods]


def role_of(method):
    numbers = [option.data for option in method.GetOptions().UnknownFields() if option.field_number == ROLE_OPTION]
    return ROLES[numbers[0]] if numbers else None


class Client:
    """Calls methods by their names."""

    def __init__(self, test, address, credentials=None):
        make = (lambda: grpc.secure_channel(address, credentials)) if credentials else (lambda: grpc.insecure_channel(address))
        self.channel = test.enterContext(make())

    def call(self, name, **fields):
        """Returns the response and the initial metadata of SERVICE/METHOD; raises grpc.RpcError."""
        service, method = name.split("/")
        found = POOL.FindServiceByName(f"nyx.{service}").methods_by_name[method]
        request, response = (message_factory.MessageFactory(POOL).GetPrototype(kind)
                             for kind in (found.input_type, found.output_type))
        rpc = self.channel.unary_unary(f"/nyx.{name}", request.SerializeToString, response.FromString)
        answer, call = rpc.with_call(request(**fields), timeout=PATIENCE_S, wait_for_ready=True)
        return answer, dict(call.initial_metadata())

    def refusal(self, method):
        """The message of PERMISSION_DENIED; None when the method may be called."""
        rpc = self.channel.unary_unary(f"/{method.containing_service.full_name}/{method.name}")
        try:
            rpc(b"", timeout=PATIENCE_S, wait_for_ready=True)
        except grpc.RpcError as error:
            return error.details() if error.code() == grpc.StatusCode.PERMISSION_DENIED else None
        return None

    def state(self):
        return self.call("AgentSvc/AgentGet")[0]


class ServiceTestCase(unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())

    def start(self, *options, **addresses):
        return self.enterContext(Agent(self.folder, *options, **addresses))


class IdentityTest(ServiceTestCase):
    def test_each_start_has_an_id_that_every_response_carries(self):
        ids = set()
        for _ in range(2):
            agent = self.start()
            client = Client(self, agent.grpc)
            state, metadata = client.call("AgentSvc/AgentGet")
            self.assertEqual(metadata["nyx-instance-id"], state.instance_id.hex())
            self.assertEqual(client.call("PortSvc/PortGet")[1]["nyx-instance-id"], state.instance_id.hex())
            with self.assertRaises(grpc.RpcError) as refused:
                client.call("DebugSvc/TraceLevelGet")
            self.assertIn(("nyx-instance-id", state.instance_id.hex()), refused.exception.initial_metadata())
            ids.add(state.instance_id)
            self.assertEqual(agent.stop()[0], 0)
        self.assertEqual(len(ids), 2)

    def test_state_counts_connections_and_calls(self):
        agent = self.start()
        client = Client(self, agent.grpc)
        for _ in range(3):
            client.call("PortSvc/PortGet")
        client.call("PortSvc/PortGet", id=[b"unknown"])
        peer = self.enterContext(socket.socket(socket.AF_UNIX))
        peer.connect(agent.socket)
        state = wait_until(lambda: (state := client.state()).connections.debug_socket and state)
        self.assertEqual((state.connections.grpc, state.connections.accepted, state.connections.debug_socket), (1, 1, 1))
        self.assertEqual((state.mac_file_folder.path, state.mac_file_folder.writable), (self.folder, True))
        self.assertGreater(state.memory.resident, 0)
        [ports] = [method for method in state.method if method.method == "nyx.PortSvc/PortGet"]
        self.assertEqual([(o.grpc_code, o.api_status, o.calls) for o in ports.outcome], [(0, 0, 3), (0, 5, 1)])
        self.assertEqual(len(ports.duration_calls), len(state.duration_bound_ns) + 1)
        self.assertEqual(sum(ports.duration_calls), 4)


def tls_credentials(ca, identity):
    root, cert, key = (pathlib.Path(path).read_bytes() for path in (ca[0], *identity))
    return grpc.ssl_channel_credentials(root, key, cert)


class RolesTest(ServiceTestCase):
    def assert_may(self, client, *roles):
        """Calls every method of every service."""
        for method in METHODS:
            refusal, role = client.refusal(method), role_of(method)
            with self.subTest(method=method.full_name, role=role):
                if role in roles:
                    self.assertIsNone(refusal)
                else:
                    self.assertIn(f"needs the role {role}", refusal or "not refused")

    def test_every_method_has_a_role(self):
        self.assertGreater(len(METHODS), 200)
        self.assertEqual([method.full_name for method in METHODS if role_of(method) is None], [])

    def test_socket_decides(self):
        agent = self.start("--read-socket", f"{self.folder}/read.sock", grpc=f"unix:{self.folder}/grpc.sock")
        self.assert_may(Client(self, agent.grpc), "read", "operate", "rehearse")
        self.assert_may(Client(self, f"unix:{self.folder}/read.sock"), "read")
        self.assertEqual({os.stat(f"{self.folder}/{name}.sock").st_mode & 0o777 for name in ("grpc", "read")}, {0o660})

    def test_plaintext_over_tcp_may_do_all(self):
        self.assert_may(Client(self, self.start("--fault-service").grpc), "read", "operate", "rehearse")

    def test_certificate_decides_over_tls(self):
        ca = make_certificate(self.folder, "ca")
        server, *clients = (make_certificate(self.folder, name, ca) for name in ("agent", "controller", "tester", "guest"))
        agent = self.start("--fault-service", "--tls-cert", server[0], "--tls-key", server[1], "--tls-client-ca", ca[0],
                           "--tls-operate", "controller", "--tls-operate", "tester", "--tls-rehearse", "tester")
        roles = (("read", "operate"), ("read", "operate", "rehearse"), ("read",))
        for identity, may in zip(clients, roles, strict=True):
            self.assert_may(Client(self, agent.grpc, tls_credentials(ca, identity)), *may)

    def test_certificate_without_names_of_roles_may_do_all(self):
        ca = make_certificate(self.folder, "ca")
        server, client = (make_certificate(self.folder, name, ca) for name in ("agent", "client"))
        agent = self.start("--fault-service", "--tls-cert", server[0], "--tls-key", server[1], "--tls-client-ca", ca[0])
        self.assert_may(Client(self, agent.grpc, tls_credentials(ca, client)), "read", "operate", "rehearse")


class AuditTest(ServiceTestCase):
    def test_thousand_changes_leave_thousand_lines_or_a_true_count(self):
        for options in ((), ("--audit-limit", "100"), ("--audit-limit", "0")):
            agent = self.start(*options)
            client = Client(self, agent.grpc)
            for number in range(1000):
                client.call("NyxTblSvc/flowCreate", request=[{"key": {"k1": number.to_bytes(2, "big")}}])
            log = agent.stop()[1]
            lines = re.findall(r"\[audit\] method=nyx.NyxTblSvc/flowCreate role=operate .*objects=k1:\w{4} count=1$", log, re.M)
            left_out = sum(map(int, re.findall(r"\[audit\] (\d+) more lines from here were left out", log)))
            left_out += sum(map(int, re.findall(r"(\d+) lines were left out: whoever reads", log)))
            self.assertEqual(len(lines) + left_out, 1000, log[-1000:])

    def test_line_names_client_objects_and_outcome(self):
        agent = self.start("--read-socket", f"{self.folder}/read.sock", grpc=f"unix:{self.folder}/grpc.sock")
        client, reader = Client(self, agent.grpc), Client(self, f"unix:{self.folder}/read.sock")
        client.call("NyxTblSvc/flowDelete", key=[{"k1": bytes([n])} for n in range(5)])
        client.call("PortSvc/PortUpdate", spec={"id": b"a \n", "port_number": 4711})
        client.call("PortSvc/PortGet")
        with self.assertRaises(grpc.RpcError):
            reader.call("FaultSvc/FaultClear")
        log = agent.stop()[1]
        self.assertRegex(log, rf"\[connection\] socket={agent.grpc} uid={os.getuid()} pid={os.getpid()}\n")
        self.assertRegex(log, r"flowDelete role=operate client=unix outcome=API_STATUS_ERROR duration_us=\d+ "
                              r"objects=k1:00,k1:01,k1:02 count=5\n")
        self.assertRegex(log, r"PortUpdate .*outcome=API_STATUS_\w+ .*objects=61200a\n")
        self.assertRegex(log, r"\[warning\] \[audit\] method=nyx.FaultSvc/FaultClear role=rehearse .*outcome=PERMISSION_DENIED")
        self.assertNotIn("PortGet", log)
        self.assertNotIn("4711", log)


class NotifySocket:
    """What systemd would listen at. Messages are dictionaries, in the order in which they came."""

    def __init__(self, test, **environment):
        self.socket = test.enterContext(socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM))
        self.socket.bind(f"{test.folder}/notify")
        self.socket.settimeout(PATIENCE_S)
        test.enterContext(mock.patch.dict(os.environ, NOTIFY_SOCKET=f"{test.folder}/notify", **environment))

    def until(self, key, text=""):
        """The messages up to the first that has `text` in `key`."""
        messages = []
        while not messages or key not in messages[-1] or text not in messages[-1][key]:
            messages.append(dict(line.split("=", 1) for line in self.socket.recv(4096).decode().splitlines()))
        return messages


class ServiceManagerTest(ServiceTestCase):
    def test_service_manager_follows_the_whole_life(self):
        manager = NotifySocket(self, WATCHDOG_USEC="4000000")
        agent = self.start("--fault", "debug::nyx_handle_cmd:delay=17000,nth=2")
        [ready] = manager.until("READY")
        self.assertIn(agent.grpc, ready["STATUS"])
        for command in (("call", "PortGet"), ("debug", "help")):
            self.assertEqual(agent.ctl(*command).returncode, 0)
        manager.until("WATCHDOG")
        holding = subprocess.Popen(agent.command("--timeout", "60", "debug", "help"), stdout=subprocess.DEVNULL)
        self.addCleanup(holding.wait)
        manager.until("STATUS", "is held")
        silent = manager.until("STATUS", "Serving")[:-1]
        self.assertFalse(any("WATCHDOG" in message for message in silent))
        manager.until("WATCHDOG")
        self.assertEqual(agent.stop()[0], 0)
        self.assertEqual(manager.until("STOPPING")[-1]["STATUS"], "Stopping")

    @unittest.skipUnless(shutil.which("systemd-analyze"), "systemd is not installed")
    def test_unit_has_no_faults(self):
        text = (ROOT / "packaging/agent/nyx-agent.service.in").read_text(encoding="utf-8")
        for name, value in (("CMAKE_INSTALL_FULL_BINDIR", str(BIN)), ("NYX_DEFAULT_CONFIG", "/etc/nyx/agent.toml")):
            text = text.replace(f"@{name}@", value)
        unit = pathlib.Path(self.folder, "nyx-agent.service")
        unit.write_text(text, encoding="utf-8")
        result = subprocess.run(["systemd-analyze", "verify", "--man=no", unit], capture_output=True, text=True)
        self.assertEqual((result.returncode, [line for line in result.stderr.splitlines() if "nyx-agent" in line]), (0, []))

    def test_client_in_flight_at_a_stop_gets_unavailable(self):
        agent = self.start("--fault-service", "--fault", "nyx_tbl_flow_create:delay=20000")
        client, calls = Client(self, agent.grpc), []

        def call():
            with self.assertRaises(grpc.RpcError) as error:
                client.call("NyxTblSvc/flowCreate", request=[{}])
            calls.append(error.exception.code())
        caller = threading.Thread(target=call)
        caller.start()
        other = Client(self, agent.grpc)
        wait_until(lambda: other.call("FaultSvc/FaultList")[0].response[0].calls)
        self.assertEqual(agent.stop()[0], 0)
        caller.join(PATIENCE_S)
        self.assertEqual(calls, [grpc.StatusCode.UNAVAILABLE])


class ConfigurationTest(ServiceTestCase):
    def configure(self, text):
        path = pathlib.Path(self.folder, "agent.toml")
        path.write_text(text, encoding="utf-8")
        return str(path)

    def check(self, text, *options):
        return run("nyx-agent", "--config", self.configure(text), "--sysconfig", self.folder, *options, "--check")

    def test_check_says_what_is_wrong(self):
        self.assertEqual(self.check('log-level = "debug"\ngrpc = ["unix:/x", "127.0.0.1"]\nlog-limit = 3\n').returncode, 0)
        for text, complaint in (('log-level = "loud"', "loud"), ("nonsense = 1", "nonsense"),
                                ('tls-cert = "/nowhere"', "/nowhere"), ('tls-operate = ["a"]', "tls-client-ca")):
            result = self.check(text)
            self.assertEqual(result.returncode, 2, result.stderr)
            self.assertIn(complaint, result.stderr)
        shipped = ROOT / "packaging/agent/agent.toml"
        result = run("nyx-agent", "--config", shipped, "--sysconfig", self.folder, "--check")
        self.assertEqual(result.returncode, 0, result.stderr)

    def test_hangup_reads_the_log_level_again_and_keeps_it_if_the_file_is_bad(self):
        agent = self.start("--config", self.configure('log-level = "error"\nreflection = true'))
        client = Client(self, agent.grpc)
        self.assertEqual(client.state().trace_level, 1)
        self.configure('log-level = "debug"')
        agent.process.send_signal(signal.SIGHUP)
        wait_until(lambda: client.state().trace_level == 2)
        self.configure('log-level = "loud"')
        agent.process.send_signal(signal.SIGHUP)
        log = iter(agent.process.stderr.readline, "")
        self.assertIn("loud", next(line for line in log if "nothing changed" in line))
        self.assertEqual(client.state().trace_level, 2)
        other = self.start("--config", self.configure('log-level = "error"'), "--log-level", "warn", socket_name="other")
        self.assertEqual(Client(self, other.grpc).state().trace_level, 3, "options win")

    def test_debug_level_logs_each_call(self):
        agent = self.start()
        client = Client(self, agent.grpc)
        client.call("PortSvc/PortGet")
        client.call("DebugSvc/TraceUpdate", trace_level=2)
        client.call("PortSvc/PortGet")
        self.assertEqual(len(re.findall("nyx.PortSvc.PortGet: gRPC status 0, API_STATUS_OK", agent.stop()[1])), 1)

    def test_certificate_is_replaced_under_load(self):
        ca = make_certificate(self.folder, "ca")
        first, second, client = (make_certificate(self.folder, name, ca) for name in ("first", "second", "client"))
        used = [shutil.copy(path, f"{self.folder}/used{path[-4:]}") for path in first]
        agent = self.start("--tls-cert", used[0], "--tls-key", used[1], "--tls-client-ca", ca[0])
        stop, failures, calls = threading.Event(), [], []

        def load():
            while not stop.is_set():
                with grpc.secure_channel(agent.grpc, tls_credentials(ca, client),
                                         [("grpc.use_local_subchannel_pool", 1)]) as channel:
                    try:
                        channel.unary_unary("/nyx.PortSvc/PortGet")(b"", timeout=PATIENCE_S)
                        calls.append(1)
                    except grpc.RpcError as error:
                        failures.append(error)

        def served_name():
            context = ssl.create_default_context(cafile=ca[0])
            context.load_cert_chain(*client)
            host, port = agent.grpc.rsplit(":", 1)
            with socket.create_connection((host, int(port))) as plain, context.wrap_socket(plain, server_hostname=host) as tls:
                return dict(item for [item] in tls.getpeercert()["subject"])["commonName"]

        loaders = [threading.Thread(target=load) for _ in range(4)]
        for loader in loaders:
            loader.start()
        self.assertEqual(served_name(), "first")
        for source, target in zip(second, used, strict=True):
            shutil.copy(source, target)
        agent.process.send_signal(signal.SIGHUP)
        wait_until(lambda: served_name() == "second")
        shutil.copy(first[1], used[1])  # not the key of this certificate
        agent.process.send_signal(signal.SIGHUP)
        log = iter(agent.process.stderr.readline, "")
        self.assertIn("not the unencrypted PEM private key", next(line for line in log if "nothing changed" in line))
        self.assertEqual(served_name(), "second")
        before = len(calls)
        wait_until(lambda: len(calls) > before + 20)
        stop.set()
        for loader in loaders:
            loader.join()
        self.assertEqual(failures, [])


if __name__ == "__main__":
    unittest.main(verbosity=2)
