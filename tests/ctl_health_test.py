"""nyxctl health against an agent that is well, and one with troubles.

usage: ctl_health_test.py FOLDER-OF-PROGRAMS [unittest options]
"""

import json
import pathlib
import tempfile
import threading
import unittest

import agent

UPLINK, PORT = "0a000000-0000-4000-8000-000000020002", "0a000000-0000-4000-8000-000000010002"
LIMITS = """
["nyx.PortLinkStatus.link_state"]
warn = { below = 2 }
["nyx.SystemTemperature.value_1"]
name = "core"
unit = "°C"
critical = 105
["nyx.TableApiStats.entry[7]"]
name = "failed reads"
warn = 0
["flow_info.entries"]
warn = 0
"""
HOT = """
["nyx.SystemTemperature.value_1"]
critical = 57
"""
MISSING = json.dumps({"key": [{"k1": 9999}]})

# Check and beginning of the subject of the reasons, what brings the trouble and what ends it.
TROUBLES = [
    ({("interface", UPLINK), ("ports", "2 link_status")},
     f"set interface uplink id={UPLINK} port_id={PORT} admin_status=up",
     f"set interface uplink id={UPLINK} port_id={PORT} admin_status=down"),
    ({("read", "ports")}, "fault add api::port_get_all:walk=3,code=6", "fault clear"),
    ({("read", "interfaces")}, "fault add nyx_if_read_all:walk=3,code=6", "fault clear"),
    ({("read", "lifs"), ("read", "lifs_classic")}, "fault add nyx_lif_read_all:walk=2,code=10", "fault clear"),
    ({("read", "slabs")}, "fault add debug::nyx_slab_get:code=6", "fault clear"),
    ({("socket", "")}, "fault add debug::nyx_handle_cmd:code=39", "fault clear"),
    ({("table", "flow_info")}, "table add flow_info k1=1", "table del flow_info k1=1"),
    ({("pipeline", "")}, "set quiesce on", "set quiesce off"),
    ({("process recovery", "")}, "set recovery off", "set recovery on"),
]


class HealthTest(agent.ClientTestCase):
    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        self.sysconfig = pathlib.Path(self.folder, "sysconfig")
        self.sysconfig.mkdir()
        self.agent = self.enterContext(agent.Agent(self.sysconfig, "--fault-service", socket_name=f"{self.folder}/socket"))
        self.labels = pathlib.Path(self.folder, "limits.toml")
        self.labels.write_text(LIMITS, encoding="utf-8")
        self.hot = pathlib.Path(self.folder, "hot.toml")
        self.hot.write_text(HOT, encoding="utf-8")

    def health(self, *options, verdict, interval="0.05"):
        code = {"ok": 0, "degraded": 1, "failed": 2}[verdict]
        result = self.ctl("health", "-j", "--labels", self.labels, "--interval", interval, *options, exit_code=code)
        document = json.loads(result.stdout)
        self.assertEqual(document["health"], verdict)
        return document["checks"]

    def reasons(self, *options, **wanted):
        checks = self.health(*options, **wanted)
        return {(row["check"], row["subject"]) for row in checks if row["state"] not in ("ok", "info")}

    def assert_reasons(self, wanted, found):
        for check, subject in wanted:
            self.assertTrue([row for row in found if row[0] == check and row[1].startswith(subject)], (check, found))

    def test_each_trouble_is_named_alone_and_all_are_together(self):
        self.assertEqual(self.reasons(verdict="ok"), set())
        for wanted, begin, end in TROUBLES:
            with self.subTest(begin):
                self.ctl(*begin.split())
                found = self.reasons(verdict="degraded")
                self.assert_reasons(wanted, found)
                self.assertEqual(len(found), len(wanted), found)
                self.ctl(*end.split())
        self.assertEqual(self.reasons(verdict="ok"), set())
        for _, begin, _ in TROUBLES:
            self.ctl(*begin.split())
        self.sysconfig.rmdir()
        found = self.reasons("--labels", self.hot, verdict="failed")
        self.assert_reasons({("system", "temperature core"), ("MAC file folder", "")}, found)
        for wanted, _, _ in TROUBLES:
            self.assert_reasons(wanted, found)

    def test_sensors_pass_limits_and_counters_may_not_grow(self):
        self.assertEqual(self.reasons("--labels", self.hot, verdict="failed"), {("system", "temperature core")})
        done = threading.Event()

        def read_in_vain():
            while not done.is_set():
                self.agent.ctl("call", "flow_infoGet", MISSING)

        reader = threading.Thread(target=read_in_vain)
        reader.start()
        try:
            found = self.reasons(interval="2", verdict="degraded")
        finally:
            done.set()
            reader.join()
        self.assertEqual(found, {("table_statistics", "flow_info failed reads")})

    def test_missing_folder_is_named(self):
        self.sysconfig.rmdir()
        self.assertEqual(self.reasons(verdict="degraded"), {("MAC file folder", str(self.sysconfig))})

    def test_shipped_labels_know_when_a_table_is_nearly_full(self):
        options = ("--fault-service", "--scenario", "filling", "--speed", "0")
        self.agent = self.enterContext(agent.Agent(self.sysconfig, *options, socket_name=f"{self.folder}/other"))
        self.ctl("health", "--interval", "0")
        self.ctl("scenario", "advance", "80")
        lines = self.ctl("health", "--interval", "0", exit_code=1).stdout.splitlines()
        self.assertEqual(lines[1], "degraded  table flow: 60000 entries, warning above 52000")

    def test_hung_read_leaves_the_others_their_time(self):
        self.ctl("fault", "add", "nyx_lif_read_all:delay=5000")
        found = self.reasons("--timeout", "1", interval="0", verdict="degraded")
        self.assertEqual(found, {("read", "lifs"), ("read", "lifs_classic")})

    def test_text_begins_with_the_verdict_and_reasons_have_a_command(self):
        self.ctl("set", "recovery", "off")
        lines = self.ctl("--labels", self.labels, "health", "--interval", "0", exit_code=1).stdout.splitlines()
        self.assertEqual(lines[:3], ["degraded", "degraded  process recovery: disabled",
                                     "          nyxctl show system"])
        self.assertLessEqual(max(map(len, lines)), 80)
        status = self.ctl("--labels", self.labels, "status", "--interval", "0", exit_code=1).stdout
        for text in ("\nok        grpc ", "\nok        service nyx.PortSvc: serving\n", "\ninfo      limit gRPC request: "):
            self.assertIn(text, status)

    def test_agent_that_is_gone_has_failed(self):
        self.assertEqual(self.agent.stop()[0], 0)
        checks = self.health(verdict="failed")
        self.assertEqual([row["check"] for row in checks if row["state"] == "failed"], ["grpc", "socket"])


if __name__ == "__main__":
    unittest.main(verbosity=2)
