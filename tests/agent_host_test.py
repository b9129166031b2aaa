"""nyx-agent and its surroundings: signals, the reader of its log, files of certificates.

usage: agent_host_test.py FOLDER-OF-PROGRAMS [unittest options]
"""

import os
import resource
import signal
import socket
import subprocess
import tempfile
import time
import unittest

import agent

GARBAGE = 3000


def full_pipe():
    """A pipe that takes nothing more until somebody reads."""
    reader, writer = os.pipe()
    os.set_blocking(writer, False)
    for size in (65536, 1):
        try:
            while True:
                os.write(writer, b"x" * size)
        except BlockingIOError:
            pass
    os.set_blocking(writer, True)
    return reader, writer


class AgentHostTest(unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        self.socket, self.grpc = f"{self.folder}/socket", f"unix:{self.folder}/grpc"

    def start(self, stderr, **popen):
        process = subprocess.Popen(
            [agent.BIN / "nyx-agent", "--grpc", self.grpc, "--socket", self.socket, "--sysconfig", self.folder],
            stdout=subprocess.PIPE, stderr=stderr, text=True, **popen)
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        return process

    def assert_serves(self):
        for command in (("call", "PortGet"), ("debug", "help")):
            result = agent.run("nyxctl", "--grpc", self.grpc, "--socket", self.socket, "--timeout", "20", *command)
            self.assertEqual(result.returncode, 0, result.stderr)

    def send_garbage(self):
        """Each is refused with a line in the log."""
        with socket.socket(socket.AF_UNIX) as peer:
            peer.connect(self.socket)
            peer.sendall(b"garbage")
            peer.shutdown(socket.SHUT_WR)
            peer.recv(64)

    def test_log_that_nobody_reads_holds_up_nothing(self):
        reader, writer = full_pipe()
        self.addCleanup(os.close, reader)
        process = self.start(writer)
        os.close(writer)
        self.assertTrue(process.stdout.readline().startswith("nyx-agent ready"))
        self.send_garbage()
        self.assert_serves()
        process.terminate()
        self.assertEqual(process.wait(agent.STOP_S), 0)

    def test_garbage_does_not_fill_the_log(self):
        with open(f"{self.folder}/log", "w+b") as log:
            process = self.start(log)
            process.stdout.readline()
            began = time.monotonic()
            for _ in range(GARBAGE):
                self.send_garbage()
            seconds = time.monotonic() - began
            process.terminate()
            process.wait(agent.STOP_S)
            log.seek(0)
            lines = log.read().decode().splitlines()
        self.assertLessEqual(len(lines), 20 * (seconds + 3))
        self.assertLess(len(lines), GARBAGE)
        self.assertRegex("\n".join(lines), r"\d+ more lines from here were left out")

    def test_signals_of_writes_do_not_end_or_stop_it(self):
        with open(f"{self.folder}/log", "wb") as log:
            process = self.start(log)
            process.stdout.readline()
            resource.prlimit(process.pid, resource.RLIMIT_FSIZE, (0, 0))  # not before: sanitizers map files at their start
            self.send_garbage()
            for number in (signal.SIGTTOU, signal.SIGPIPE, signal.SIGXFSZ):
                process.send_signal(number)
            self.assert_serves()

    def test_hangup_does_not_stop_it(self):
        for prepare in (None, lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN)):
            process = self.start(subprocess.DEVNULL, preexec_fn=prepare)
            process.stdout.readline()
            process.send_signal(signal.SIGHUP)
            self.assert_serves()
            process.terminate()
            self.assertEqual(process.wait(agent.STOP_S), 0)

    def test_certificate_that_is_no_file_is_refused(self):
        os.mkfifo(f"{self.folder}/fifo")
        for path in (f"{self.folder}/fifo", "/dev/zero"):
            result = agent.run("nyx-agent", "--grpc", self.grpc, "--socket", self.socket, "--sysconfig", self.folder,
                                    "--tls-cert", path, "--tls-key", path)
            self.assertEqual(result.returncode, 1)
            self.assertIn(f"{path}: not a regular file", result.stderr)

    def test_help_fits_a_terminal(self):
        lines = agent.run("nyx-agent", "--help").stdout.splitlines()
        self.assertEqual([line for line in lines if len(line) > 80], [])


if __name__ == "__main__":
    unittest.main(verbosity=2)
