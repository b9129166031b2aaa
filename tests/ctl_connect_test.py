"""What nyxctl says of an agent that it can't reach.

usage: ctl_connect_test.py FOLDER-OF-PROGRAMS LOST-ERRNO-LIBRARY [unittest options]
"""

import os
import pathlib
import signal
import socket
import subprocess
import sys
import unittest

import agent

LOST_ERRNO = pathlib.Path(sys.argv.pop(1)).resolve()


class ConnectTest(agent.SharedAgentTestCase):
    def get_ports(self, grpc, *options, **environment):
        return agent.run("nyxctl", "--grpc", grpc, *options, "call", "PortGet", env=os.environ | environment)

    def assert_fails(self, exit_code, texts, *arguments):
        result = self.get_ports(*arguments)
        self.assertEqual(result.returncode, exit_code, result.stderr)
        for text in texts:
            self.assertIn(text, result.stderr)
        return result

    def test_lost_errno_of_connect_is_not_an_absent_agent(self):
        options = os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0"
        result = self.get_ports(self.agent.grpc, LD_PRELOAD=str(LOST_ERRNO), ASAN_OPTIONS=options)
        self.assertEqual(result.returncode, 0, result.stderr)

    def test_absent_agent_is_reported_with_the_reason_of_connect(self):
        with socket.socket() as held:
            held.bind(("127.0.0.1", 0))  # and does not listen
            self.assert_fails(3, ["no agent reachable", ": Connection refused;"],
                              f"127.0.0.1:{held.getsockname()[1]}")
        self.assert_fails(3, [": No such file or directory;"], "unix:/nonexistent/nyx.sock")
        self.assert_fails(3, ["no agent reachable"], "agent.invalid:1")
        self.assert_fails(2, ["give HOST:PORT"], "::1:50054")

    def test_stopped_agent_is_said_to_be_silent(self):
        self.agent.process.send_signal(signal.SIGSTOP)
        self.addCleanup(self.agent.process.send_signal, signal.SIGCONT)
        result = self.assert_fails(3, ["accepted the connection but did not answer"], self.agent.grpc, "--timeout", "0.5")
        self.assertNotIn("TLS", result.stderr)

    def test_listener_without_grpc_is_no_agent(self):
        self.assert_fails(3, ["accepts connections, but not gRPC", "--tls-ca"], self.hangs_up())

    def hangs_up(self):
        """The address of a program that closes every connection at once."""
        server = self.enterContext(subprocess.Popen(
            [sys.executable, "-c", "import socket\ns = socket.create_server(('127.0.0.1', 0))\n"
             "print(s.getsockname()[1], flush=True)\nwhile True: s.accept()[0].close()"],
            stdout=subprocess.PIPE, text=True))
        self.addCleanup(server.kill)
        return f"127.0.0.1:{int(server.stdout.readline())}"


if __name__ == "__main__":
    unittest.main(verbosity=2)
