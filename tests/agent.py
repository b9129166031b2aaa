"""nyx-agent and nyxctl as child processes.

The first argument of every script that imports this is the folder of these programs; importing takes it away.
"""

import functools
import json
import pathlib
import signal
import subprocess
import sys
import tempfile
import time
import unittest

BIN = pathlib.Path(sys.argv.pop(1)).resolve()
PATIENCE_S = 60  # sanitizers are slow; nothing here waits unless something is wrong
FREE_PORT = "127.0.0.1:0"
STOP_S = 5  # the promise is one second; what goes wrong in gRPC takes ten


def run(program, *arguments, **options):
    return subprocess.run([BIN / program, *arguments], capture_output=True, text=True, timeout=PATIENCE_S, **options)


class Agent:
    """An agent with its socket and its MAC file in `folder`, until stop() or the end of a with statement."""

    def __init__(self, folder, *options, grpc=FREE_PORT, socket_name="svc.sock"):
        self.folder = pathlib.Path(folder)
        self.socket = str(self.folder / socket_name)
        self.process = subprocess.Popen(
            [BIN / "nyx-agent", "--grpc", grpc, "--socket", self.socket, "--sysconfig", folder, *options],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    def __enter__(self):
        assert self.grpc, "the agent did not start"
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.communicate()

    @functools.cached_property
    def grpc(self):
        """Its address; None if it did not start."""
        ready = self.process.stdout.readline()
        return ready.split()[3] if ready.startswith("nyx-agent ready: grpc ") else None

    def stop(self, with_signal=signal.SIGTERM):
        """Returns the exit code and what was logged."""
        self.process.send_signal(with_signal)
        _, log = self.process.communicate(timeout=STOP_S)
        return self.process.returncode, log

    def command(self, *arguments):
        return [BIN / "nyxctl", "--grpc", self.grpc, "--socket", self.socket, *arguments]

    def ctl(self, *arguments):
        return run(*self.command(*arguments))


def wait_until(condition):
    """Returns the first result of condition() that is true."""
    deadline = time.monotonic() + PATIENCE_S
    while not (result := condition()):
        assert time.monotonic() < deadline, "waited in vain"
        time.sleep(0.01)
    return result


def make_certificate(folder, name, ca=None, days=1):
    """Certificate and key; without a CA, a CA's own. -1 day: expired."""
    cert, key, request = (f"{folder}/{name}.{kind}" for kind in ("crt", "key", "csr"))
    new_key = ["openssl", "req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-subj",
               f"/CN={name}", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", key]
    if ca is None:
        subprocess.run([*new_key, "-x509", "-days", "1", "-out", cert], check=True, capture_output=True)
        return cert, key
    subprocess.run([*new_key, "-out", request], check=True, capture_output=True)
    subprocess.run(["openssl", "x509", "-req", "-in", request, "-CA", ca[0], "-CAkey", ca[1], "-copy_extensions", "copy",
                    "-days", str(days), "-out", cert], check=True, capture_output=True)
    return cert, key


class ClientTestCase(unittest.TestCase):
    """Tests of nyxctl against `agent`."""

    def start(self, *options):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        self.agent = self.enterContext(Agent(self.folder, *options))

    def ctl(self, *arguments, exit_code=0, agent=None):
        result = (agent or self.agent).ctl(*arguments)
        self.assertEqual(result.returncode, exit_code, result.stderr)
        return result

    def json(self, *arguments, exit_code=0):
        return json.loads(self.ctl("-j", *arguments, exit_code=exit_code).stdout)


class SharedAgentTestCase(ClientTestCase):
    """One agent for all tests; a test that calls start() has one of its own from there on."""

    @classmethod
    def setUpClass(cls):
        cls.folder = cls.enterClassContext(tempfile.TemporaryDirectory())
        cls.agent = cls.enterClassContext(Agent(cls.folder))
