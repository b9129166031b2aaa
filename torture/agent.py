"""The agent under attack, and what can be seen of it from outside."""

import collections
import fcntl
import os
import pathlib
import re
import resource
import shutil
import signal
import subprocess
import tempfile
import termios
import time

import wire

SPARE_THREADS = 20  # gRPC keeps some in hand
SETTLED_S = 10
FAR_RECOVERY_S = 15  # sockets in the thousands are closed one by one, and idle threads end after some seconds
LOG_LINE = re.compile("|".join(shape + "[ -~]*" for shape in (
    r"\[\d{4}-\d\d-\d\d [\d:.]+\] \[nyx-agent\] \[\w+\] ",  # the logger's
    r"[DIWE]\d{4} [\d:.]+ +\d+ [\w/.+]+:\d+\] ", r"\[libprotobuf \w+ [\w/.]+:\d+\] ")))  # of the libraries themselves

Figures = collections.namedtuple("Figures", "descriptors threads memory_kb peak_kb")


class Failed(Exception):
    """The agent does not keep what it promises."""


def check(condition, text):
    if not condition:
        raise Failed(text)


def prepare(files, terminal):
    resource.setrlimit(resource.RLIMIT_NOFILE, (files, files))
    if terminal is not None:
        fcntl.ioctl(terminal, termios.TIOCSCTTY, 0)


class Agent:
    """Runs from construction to stop(). `files` limits its descriptors, `sysconfig` is the folder of its MAC file, `terminal`
    becomes its own terminal."""

    def __init__(self, build, *options, files=20000, folder=None, sysconfig=None, terminal=None):
        self.programs = pathlib.Path(build, "bin")
        self.folder = pathlib.Path(folder or tempfile.mkdtemp(prefix="torture."))
        self.folder.chmod(0o711)  # other users reach the socket
        self.socket = str(self.folder / "socket")
        self.log = self.folder / "log"
        if not folder:
            (self.folder / "hostif_mac.json").write_text('{"host-interface": ""}')  # without one, stderr gets a line
        with open(self.log, "ab") as log:
            self.process = subprocess.Popen(
                [self.programs / "nyx-agent", "--grpc", "127.0.0.1:0", "--socket", self.socket, "--sysconfig",
                 sysconfig or self.folder, "--fault-service", "--reflection", *options], stdout=subprocess.PIPE,
                stderr=log, text=True,
                start_new_session=terminal is not None,
                preexec_fn=lambda: prepare(files, terminal))
        ready = self.process.stdout.readline().split()
        self.grpc = ("127.0.0.1", int(ready[3].rsplit(":", 1)[1])) if ready else None
        self.pid = self.process.pid

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.kill()
        shutil.rmtree(self.folder, ignore_errors=True)

    def kill(self):
        self.process.kill()
        self.process.communicate()

    def stop(self):
        """Returns the exit code and the seconds that it took to end."""
        began = time.monotonic()
        self.process.send_signal(signal.SIGTERM)
        self.process.communicate(timeout=60)
        return self.process.returncode, time.monotonic() - began

    def figures(self):
        status = dict(line.split(":", 1) for line in pathlib.Path(f"/proc/{self.pid}/status").read_text().splitlines())
        return Figures(len(os.listdir(f"/proc/{self.pid}/fd")),
                       *(int(status[name].split()[0]) for name in ("Threads", "VmRSS", "VmHWM")))

    def forget_peak(self):
        pathlib.Path(f"/proc/{self.pid}/clear_refs").write_text("5")

    def log_lines(self, begin=0):
        return self.log.read_bytes()[begin:].decode("latin-1").splitlines()

    def answers(self):
        check(wire.ask(self.socket)[0] == wire.ANSWERED, "the debug socket does not answer")
        check(wire.grpc_ask(self.grpc), "gRPC does not answer")

    def recovery_s(self):
        """How long it takes until new clients are answered at gRPC server and debug socket."""
        began = time.monotonic()
        while True:
            try:
                self.answers()
                return time.monotonic() - began
            except (OSError, Failed):
                check(time.monotonic() - began < FAR_RECOVERY_S, "no answers after the attack")
                time.sleep(0.01)

    def settle(self, before, spare_kb):
        """Waits until an attack has left nothing behind, or it is clear that it has."""
        deadline = time.monotonic() + SETTLED_S
        while time.monotonic() < deadline:
            after = self.figures()
            if (after.descriptors <= before.descriptors and after.threads <= before.threads + SPARE_THREADS
                    and after.memory_kb <= before.memory_kb + spare_kb):
                break
            time.sleep(0.05)
        return self.figures()
