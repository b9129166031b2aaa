"""The service layer in somebody else's agent: outside_agent/ is built against an installed prefix, and run.

usage: outside_agent_test.py BUILD-FOLDER SOURCE-FOLDER-OF-OUTSIDE-AGENT [unittest options]
"""

import functools
import os
import pathlib
import platform
import re
import signal
import subprocess
import sys
import tempfile
import time
import unittest

BUILD, SOURCE = (pathlib.Path(sys.argv.pop(1)).absolute() for _ in range(2))
PATIENCE_S, STOP_S = 60, 2  # nothing here takes a minute unless something is wrong; a stop is quick
OPERATION = "nyx_flow_summary_get(nyx_flow_stats_summary_s*)"
MACHINE = platform.machine()
INSTALL = "cmake", "--install", BUILD, "--prefix"


def run(*command, exit_code=0, **env):  # None: any exit code will do
    result = subprocess.run(command, capture_output=True, text=True, timeout=2 * PATIENCE_S, env=os.environ | env)
    assert exit_code in (None, result.returncode), result
    return result


def configure(folder, *options, **expected):
    return run("cmake", "-S", SOURCE, "-B", folder, "-GNinja", f"-DCMAKE_PREFIX_PATH={PREFIX}", *options, **expected)


def setUpModule():
    global TMP, PREFIX, OUTSIDE, LISTED, AGENT
    TMP = pathlib.Path(unittest.enterModuleContext(tempfile.TemporaryDirectory()))
    PREFIX, OUTSIDE, LISTED = TMP / "prefix", TMP / "build", TMP / "prefix/share/svc_quill/installed.txt"
    run(*INSTALL, PREFIX)
    configure(OUTSIDE)
    run("cmake", "--build", OUTSIDE)
    AGENT = unittest.enterModuleContext(Agent())


class Agent:
    """An outside agent with its sockets, its files and its log in a folder of its own, and the client for it."""

    def __enter__(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(dir=TMP))
        self.env = {"NYX_GRPC": f"unix:{self.folder}/grpc", "NYX_SOCKET": f"{self.folder}/socket"}
        self.log = self.folder / "log"
        with self.log.open("w") as log:
            self.process = subprocess.Popen([OUTSIDE / "outside-agent", *self.env.values(), self.folder],
                                            stdout=subprocess.PIPE, stderr=log, text=True)
        assert self.process.stdout.readline() == "ready\n", self.log.read_text()
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.communicate()

    def ctl(self, line, exit_code=0):
        return run(PREFIX / "bin/nyxctl", *line.split(), exit_code=exit_code, **self.env).stdout

    def wait_for_debug(self, exit_code, pattern=""):
        deadline = time.monotonic() + PATIENCE_S
        help_now = functools.partial(run, PREFIX / "bin/nyxctl", "debug", "help", exit_code=None, **self.env)
        while (result := help_now()).returncode != exit_code or not re.search(pattern, result.stdout):
            assert time.monotonic() < deadline, result
            time.sleep(0.05)


class ServiceTest(unittest.TestCase):
    def test_EveryService_AnswersWithWhatThisPlatformHas(self):
        for method, answer in (("SystemGet", '"die_id": "outside-die"'), ("SlabGet", '"name": "outside-slab"'),
                               ("PortGet", '"vendor_name": "OUTSIDE OPTICS"'), ("LifClassicGet", '"impl_value": 4711'),
                               ("FlowStatsSummaryGet", '"counter_2": "1002"')):
            with self.subTest(method):
                self.assertIn(answer, AGENT.ctl(f"call {method}"))

    def test_Calls_RunOnLentThreadsWithinTheirMemory(self):
        ids, port = TMP / "ids", '"' + b"port".ljust(16, b"\0").hex() + '"'
        ids.write_text('{"id": [' + ", ".join(10_000 * [port]) + "]}")
        refused = run(PREFIX / "bin/nyxctl", "call", "PortGet", f"@{ids}", exit_code=None, **AGENT.env)
        self.assertIn("more memory than the agent has left for calls", refused.stderr)

    def test_TableEntries_AreKeptByTableAndKey(self):
        lif, other = "lif_mapping k1=7", "lif_kvo_mapping k1=7"
        AGENT.ctl(f"table add {lif} d1=42")
        AGENT.ctl(f"table add {lif} d1=42", exit_code=5)
        AGENT.ctl(f"table update {lif} d1=43")
        AGENT.ctl(f"table add {other} d1=44")
        self.assertRegex(AGENT.ctl(f"table get {lif}"), r"\nd1 +43\n")
        AGENT.ctl(f"table del {lif}")
        AGENT.ctl(f"table get {lif}", exit_code=5)
        self.assertRegex(AGENT.ctl(f"table get {other}"), r"\nd1 +44\n")

    def test_InterfacesAndPorts_ChangeWhenTheirBatchIsCommitted(self):
        AGENT.ctl("add interface loopback id=0c prefix=10.0.0.1/32")
        AGENT.ctl("set interface loopback id=0c prefix=10.0.0.2/32")
        AGENT.ctl("del interface 0c 0e", exit_code=5)
        self.assertIn(" 10.0.0.2/32\n", AGENT.ctl("show interface 0c"))
        AGENT.ctl("del interface 0c")
        AGENT.ctl("call InterfaceGet id[0]=0c", exit_code=5)
        AGENT.ctl("set port 1 number_a=1500")
        self.assertRegex(AGENT.ctl("show port 1"), r"mtu +1500 bytes\n")

    def test_HostInterface_IsStoredWhereTheAgentWantsIt(self):
        AGENT.ctl("add interface host id=0d name=h1 mac_address=00:1a:2b:3c:4d:5e")
        self.assertIn('"mac": "00:1a:2b:3c:4d:5e"', (AGENT.folder / "hostif_mac.json").read_text())

    def test_DebugCommands_RunBesideTheHeartbeat(self):
        self.assertIn("outside agent: command 2, ", AGENT.ctl("debug tables"))
        AGENT.wait_for_debug(exit_code=0, pattern=r", ([2-9]|\d\d+) heartbeats")
        self.assertIn("[outside-agent] [info] [svc_server_thread_uds_init:", AGENT.log.read_text())

    def test_Agent_SuspendsResumesAndStops(self):
        with Agent() as agent:
            agent.process.send_signal(signal.SIGUSR1)
            agent.wait_for_debug(exit_code=3)
            agent.ctl("call SystemGet")
            agent.process.send_signal(signal.SIGUSR2)
            agent.wait_for_debug(exit_code=0)
            agent.process.terminate()
            self.assertEqual(0, agent.process.wait(STOP_S))


class PrefixTest(unittest.TestCase):
    def test_MissingOperation_IsNamedByLinkerListAndLoader(self):
        configure(OUTSIDE, f"-DWITHOUT={OPERATION}")
        linked = run("cmake", "--build", OUTSIDE, exit_code=1)
        self.assertRegex(linked.stdout, rf"libsvc_quill\.so.*: undefined reference to `{re.escape(OPERATION)}'")
        for library, missing in (OUTSIDE, ""), (OUTSIDE / "incomplete", OPERATION + "\n"):
            listed = run("sh", "-c", f"nm -DC --defined-only {library}/libplatform.so | cut -c20- | LC_ALL=C sort -u | "
                         f"LC_ALL=C comm -13 - {PREFIX}/share/svc_quill/operations.txt")
            self.assertEqual(missing, listed.stdout)
        started = run(OUTSIDE / "outside-agent", f"unix:{TMP}/grpc", TMP / "socket", TMP, exit_code=127,
                      LD_LIBRARY_PATH=str(OUTSIDE / "incomplete"))
        self.assertEqual("", started.stdout)
        self.assertRegex(started.stderr, "symbol lookup error: .*/libsvc_quill.so.0: .*_Z20nyx_flow_summary_get")

    def test_FindPackage_SaysWhatIsWrong(self):
        wrong = "-DCMAKE_SYSTEM_NAME=Linux", "-DCMAKE_SYSTEM_PROCESSOR=other"
        for options, reason in ((wrong, f"these libraries are for {MACHINE}, this build is for other"),
                                (["-DCMAKE_DISABLE_FIND_PACKAGE_spdlog=ON"], "package for module spdlog")):
            with self.subTest(reason):
                result = configure(tempfile.mkdtemp(dir=TMP), *options, exit_code=1)
                self.assertIn(reason, " ".join(result.stderr.split()))

    def test_SecondInstall_RemovesWhatItNoLongerHas(self):
        gone, foreign, outside = PREFIX / "lib/libgone.so", PREFIX / "lib/libforeign.so", TMP / "outside.so"
        for library in gone, foreign, outside:
            library.touch()
        before, link = LISTED.read_text(), TMP / "link"
        LISTED.write_text(f"{before}lib/libgone.so\n../outside.so\n{outside}\n")
        link.symlink_to(PREFIX)
        run(*INSTALL, link)
        self.assertEqual((False, True, True), (gone.exists(), foreign.exists(), outside.exists()))
        self.assertEqual(before, LISTED.read_text())
        self.assertEqual([], [line for line in before.splitlines()[2:] if not (PREFIX / line).exists()])

    def test_PrefixOfAnotherArchitecture_StaysAsItIs(self):
        listed = TMP / "other/share/svc_quill/installed.txt"
        listed.parent.mkdir(parents=True)
        listed.write_text(LISTED.read_text().replace(MACHINE, "other", 1))
        refused = run(*INSTALL, TMP / "other", exit_code=1)
        self.assertIn(f"for other, this build is for {MACHINE}", " ".join(refused.stderr.split()))
        self.assertEqual([listed], [path for path in (TMP / "other").rglob("*") if path.is_file()])

    def test_PkgConfig_IsEnoughForAClient(self):
        (TMP / "client.cc").write_text('#include "nyx/types/status.pb.h"\n'
                                       'int main() { return types::ApiStatus_Name(5) != "API_STATUS_LOOKUP_FAILURE"; }')
        flags = run("pkg-config", "--cflags", "--libs", "nyx_proto", PKG_CONFIG_PATH=f"{PREFIX}/lib/pkgconfig").stdout
        run("c++", "-std=c++20", TMP / "client.cc", "-o", TMP / "client", *flags.split())
        run(TMP / "client", LD_LIBRARY_PATH=f"{PREFIX}/lib")


if __name__ == "__main__":
    unittest.main()
