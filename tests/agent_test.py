"""nyx-agent and nyxctl as their users run them.

usage: agent_test.py FOLDER-OF-PROGRAMS [unittest options]
"""

import contextlib
import fcntl
import grp
import json
import os
import pathlib
import signal
import socket
import stat
import subprocess
import tempfile
import time
import unittest

from agent import BIN, FREE_PORT, Agent, make_certificate, run, wait_until


class AgentTest(unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())

    def start(self, *options, **addresses):
        return self.enterContext(Agent(self.folder, *options, **addresses))

    def ctl(self, agent, *arguments):
        return agent.ctl(*arguments)

    def assert_refused(self, text, *options, exit_code=1):
        result = run("nyx-agent", *options)
        self.assertEqual(result.returncode, exit_code, result.stderr)
        self.assertIn(text, result.stderr)
        self.assertNotIn("ready", result.stdout)

    def free_options(self, **changes):
        options = {"grpc": FREE_PORT, "socket": f"{self.folder}/other.sock", "sysconfig": self.folder} | changes
        return [text for name, value in options.items() for text in (f"--{name}", value)]

    def test_both_servers_answer_and_share_the_tables(self):
        agent = self.start()
        entry = {"request": [{"key": {"k1": 7}, "flow_info_a_data": {"d2": "0102030405060708"}}]}
        self.assertEqual(self.ctl(agent, "call", "flow_infoCreate", json.dumps(entry)).returncode, 0)
        got = self.ctl(agent, "call", "flow_infoGet", '{"key": [{"k1": 7}]}')
        self.assertEqual(json.loads(got.stdout)["response"][0]["spec"]["flow_info_a_data"]["d2"], "0102030405060708")
        output = self.ctl(agent, "debug", "tables")
        self.assertRegex(output.stdout, r"(?m)^flow_info +1$")
        self.assertIn("API_STATUS_OK", output.stderr)

    def test_the_debug_socket_belongs_to_the_group_it_is_given_to(self):
        agent = self.start("--socket-group", grp.getgrgid(os.getegid()).gr_name)
        self.assertEqual((stat.S_IMODE(os.stat(agent.socket).st_mode), os.stat(agent.socket).st_gid), (0o660, os.getegid()))
        self.assertEqual(self.ctl(agent, "debug", "tables").returncode, 0)
        self.assertEqual(stat.S_IMODE(os.stat(self.start(socket_name="open").socket).st_mode), 0o777)
        self.assert_refused("unknown group 'no such'", *self.free_options(), "--socket-group", "no such")

    def test_exit_codes_tell_what_failed(self):
        agent = self.start()
        key = '{"key": [{"k1": 7}]}'
        self.assertEqual(self.ctl(agent, "call", "flow_infoGet", key).returncode, 5)
        self.assertEqual(self.ctl(agent, "debug", "35").returncode, 5)
        self.assertEqual(self.ctl(agent, "call", "flow_infoGet", "{").returncode, 2)
        self.assertEqual(self.ctl(agent, "call", "no_such_method").returncode, 2)
        self.assertEqual(agent.stop()[0], 0)
        self.assertEqual(self.ctl(agent, "call", "flow_infoGet", key).returncode, 3)
        self.assertEqual(self.ctl(agent, "debug", "tables").returncode, 3)

    def test_an_agent_that_never_answers_counts_as_unreachable_and_costs_one_timeout(self):
        with socket.create_server(("127.0.0.1", 0)) as silent:
            for command in (["call", "PortGet"], ["snapshot"]):
                began = time.monotonic()
                result = run("nyxctl", "--grpc", f"127.0.0.1:{silent.getsockname()[1]}", "--timeout", "1", *command)
                self.assertEqual(result.returncode, 3, result.stderr)
                self.assertLess(time.monotonic() - began, 10)

    def test_stops_on_either_signal_whatever_is_open(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            agent = self.start()
            host, port = agent.grpc.rsplit(":", 1)
            with socket.create_connection((host, int(port))), socket.socket(socket.AF_UNIX) as idle:
                idle.connect(agent.socket)
                code, log = agent.stop(number)
            self.assertEqual(code, 0, log)
            self.assertNotIn("error", log)
            self.assertFalse(os.path.exists(agent.socket))

    def fault_calls(self, agent):
        return json.loads(self.ctl(agent, "-j", "fault", "list").stdout)["faults"][0]["calls"]

    def test_stops_though_a_client_does_not_read_its_response(self):
        agent = self.start("--fault-service", "--fault", "nyx_tbl_flow_info_read:delay=1000,nth=1")
        pathlib.Path(self.folder, "keys").write_text(json.dumps({"key": [{"k1": n} for n in range(100_000)]}))
        client = subprocess.Popen([BIN / "nyxctl", "--grpc", agent.grpc, "call", "flow_infoGet",
                                   f"@{self.folder}/keys"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(client.wait)
        self.addCleanup(client.kill)
        wait_until(lambda: self.fault_calls(agent) > 0)  # asked, and delayed
        client.send_signal(signal.SIGSTOP)
        wait_until(lambda: self.fault_calls(agent) == 100_000)  # answered, more than the connection holds
        self.assertEqual(agent.stop()[0], 0)

    def test_stops_though_a_debug_command_takes_long(self):
        agent = self.start("--fault", "debug::nyx_handle_cmd:delay=20000")
        began = time.monotonic()  # the reader of the client's output does not wait for the agent either
        self.assertEqual(self.ctl(agent, "debug", "help", "--timeout", "0.5").returncode, 4)
        self.assertLess(time.monotonic() - began, 15)
        self.assertEqual(agent.stop()[0], 0)
        self.assertFalse(os.path.exists(agent.socket))

    def test_serves_with_all_standard_descriptors_closed(self):
        path = f"{self.folder}/closed.sock"
        process = subprocess.Popen([BIN / "nyx-agent", *self.free_options(socket=path)],
                                   preexec_fn=lambda: os.closerange(0, 3))
        self.addCleanup(process.wait)
        self.addCleanup(process.terminate)
        wait_until(lambda: run("nyxctl", "--socket", path, "debug", "help").returncode == 0)

    def test_of_two_agents_at_once_on_one_path_one_is_refused(self):
        for _ in range(3):
            agents = [Agent(self.folder) for _ in range(2)]
            for agent in agents:
                self.addCleanup(agent.process.communicate)
                self.addCleanup(agent.process.kill)
            serving = [agent for agent in agents if agent.grpc]
            self.assertEqual(len(serving), 1)
            self.assertEqual(self.ctl(serving[0], "debug", "help").returncode, 0)
            self.assertEqual(serving[0].stop()[0], 0)

    def test_stopping_leaves_the_socket_of_another_agent_alone(self):
        first = self.start()
        for name in os.listdir(self.folder):
            os.remove(f"{self.folder}/{name}")
        second = self.start()
        self.assertEqual(first.stop()[0], 0)
        self.assertEqual(self.ctl(second, "debug", "help").returncode, 0)
        self.assert_refused("in use", *self.free_options(socket=second.socket))

    @unittest.skipIf(os.geteuid(), "only root can make files of others")
    def test_lock_of_another_user_does_not_keep_it_from_starting(self):
        os.chmod(self.folder, 0o1777)
        lock = f"{self.folder}/agent.sock.lock"
        with open(lock, "wb") as file:
            os.chown(lock, 65534, 65534)
            fcntl.flock(file, fcntl.LOCK_EX)
            agent = self.start(socket_name="agent.sock")
            self.assertEqual(self.ctl(agent, "debug", "help").returncode, 0)
            self.assert_refused("in use", *self.free_options(socket=agent.socket))
        self.assertEqual(agent.stop()[0], 0)
        self.assertTrue(os.path.exists(lock))

    def test_second_agent_at_the_same_address_is_refused(self):
        first = self.start()
        self.assert_refused(f"{first.grpc}: in use", *self.free_options(grpc=first.grpc))
        self.assert_refused(f"{first.socket}: in use", *self.free_options(socket=first.socket))
        path = f"unix:{self.folder}/grpc.sock"
        self.start(grpc=path, socket_name="second.sock")
        self.assert_refused("in use", *self.free_options(grpc=path))
        self.assertEqual(self.ctl(first, "debug", "help").returncode, 0)
        self.assertEqual(run("nyxctl", "--grpc", path, "call", "flowGet").returncode, 0)

    def test_socket_of_a_killed_agent_is_taken_over(self):
        killed = self.start()
        killed.stop(signal.SIGKILL)
        self.assertTrue(os.path.exists(killed.socket))
        self.assertEqual(self.ctl(self.start(), "debug", "help").returncode, 0)

    def test_plaintext_beyond_loopback_is_refused(self):
        for address in ("0.0.0.0:0", "[::]:0"):
            self.assert_refused("other machines can reach this address", *self.free_options(grpc=address))

    def test_impossible_paths_and_addresses_are_explained(self):
        pathlib.Path(self.folder, "file").write_text("precious")
        for path, text in ((f"{self.folder}/{'x' * 108}", "1 to 107 bytes"), (self.folder, "not a socket"),
                           (f"{self.folder}/file", "not a socket"), (f"{self.folder}/missing/s", "No such file")):
            self.assert_refused(text, *self.free_options(socket=path))
        self.assertEqual(pathlib.Path(self.folder, "file").read_text(), "precious")
        for address in ("nonsense", "127.0.0.1:70000", "::1:50054", ":50054", "unix:"):
            self.assert_refused("nyx-agent: ", *self.free_options(grpc=address))

    def test_bad_command_lines_are_refused(self):
        for options, text in ((["--fault", "nyx_tbl_flow_creat:code=6"], "unknown operation 'nyx_tbl_flow_creat'"),
                              (["--log-level", "loud"], "loud"), (["--nonsense"], "nonsense"),
                              (["--tls-cert", "/dev/null"], "tls-key")):
            self.assert_refused(text, *options, exit_code=2)
        self.assertEqual(run("nyx-agent", "--help").returncode, 0)

    def make_certificate(self, name, ca=None, days=1):
        return make_certificate(self.folder, name, ca, days)

    def test_tls_serves_clients_that_prove_themselves(self):
        ca, foreign_ca = self.make_certificate("ca"), self.make_certificate("foreign-ca")
        server, expired_server = self.make_certificate("agent", ca), self.make_certificate("old-agent", ca, days=-1)
        tls = ("--tls-cert", server[0], "--tls-key", server[1])
        self.assert_refused("not a PEM certificate", *self.free_options(), "--tls-cert", ca[1], "--tls-key", ca[0])
        self.assert_refused("not the unencrypted PEM private key", *self.free_options(), *tls[:3], ca[1])

        agent = self.start(*tls, "--tls-client-ca", ca[0])
        call = ("call", "flowGet", "--timeout", "20")
        for name, identity, exit_code in (("good", self.make_certificate("good", ca), 0),
                                          ("expired", self.make_certificate("expired", ca, days=-1), 3),
                                          ("foreign", self.make_certificate("foreign", foreign_ca), 3),
                                          ("missing", None, 3)):
            options = ("--tls-cert", identity[0], "--tls-key", identity[1]) if identity else ()
            self.assertEqual(self.ctl(agent, "--tls-ca", ca[0], *options, *call).returncode, exit_code, name)
        self.assertEqual(self.ctl(agent, *call).returncode, 3, "plaintext")
        self.assertNotIn("any client may connect", agent.stop()[1])

        open_to_all = self.start(*tls, socket_name="tls.sock")
        self.assertEqual(self.ctl(open_to_all, "--tls-ca", ca[0], *call).returncode, 0)
        self.assertEqual(self.ctl(open_to_all, "--tls-ca", foreign_ca[0], *call).returncode, 3, "server of a foreign CA")
        self.assertIn("any client may connect", open_to_all.stop()[1])
        expired = self.start("--tls-cert", expired_server[0], "--tls-key", expired_server[1], socket_name="old.sock",
                             grpc=FREE_PORT)
        self.assertEqual(self.ctl(expired, "--tls-ca", ca[0], *call).returncode, 3, "expired server")

    def test_nothing_is_logged_below_the_level(self):
        self.assertEqual(self.start("--log-level", "error").stop(), (0, ""))
        self.assertIn("Listening to UDS", self.start().stop()[1])


if __name__ == "__main__":
    with contextlib.suppress(BrokenPipeError):
        unittest.main(verbosity=2)
