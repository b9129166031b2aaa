"""nyxctl fault and nyxctl status against an agent.

usage: ctl_fault_test.py FOLDER-OF-PROGRAMS [unittest options]
"""

from concurrent import futures
import json
import unittest

import grpc

import agent


def entries(*keys):
    return json.dumps({"request": [{"key": {"k1": key}} for key in keys]})


class FaultTest(agent.ClientTestCase):
    def setUp(self):
        self.start("--fault-service", "--fault", "nyx_if_read:code=6")

    def test_fault_strikes_from_add_to_clear_and_counts(self):
        spec = "nyx_tbl_flow_info_create:code=6,every=2"
        self.assertEqual(self.json("fault", "add", spec), {"faults": [{"id": 2, "fault": spec}]})
        self.ctl("call", "flow_infoCreate", entries(1), exit_code=0)
        self.ctl("call", "flow_infoCreate", entries(2), exit_code=5)
        at_start = {"id": 1, "fault": "nyx_if_read:code=6", "calls": 0, "strikes": 0}
        added = {"id": 2, "fault": spec, "calls": 2, "strikes": 1}
        self.assertEqual(self.json("fault", "list"), {"faults": [at_start, added]})
        self.assertEqual(self.json("fault", "clear", "2"), {"faults": [added]})
        self.ctl("call", "flow_infoCreate", entries(2))
        self.assertIn("unknown fault 2", self.ctl("fault", "clear", "1", "2", exit_code=64 + 5).stderr)
        self.assertEqual(self.json("fault", "clear"), {"faults": [at_start]})
        self.assertEqual(self.ctl("fault", "list").stdout, "no faults\n")
        found = self.json("fault", "list", "--operations", "L2SEG_c")["operations"]
        self.assertEqual(found, [{"operation": "nyx_tbl_l2seg_create"}])

    def test_agent_without_fault_injection_is_reported(self):
        server = grpc.server(futures.ThreadPoolExecutor(1))  # offers no service, neither health nor reflection
        self.agent.grpc = f"127.0.0.1:{server.add_insecure_port('127.0.0.1:0')}"
        server.start()
        self.addCleanup(lambda: server.stop(None).wait())
        self.assertIn("does not offer fault injection", self.ctl("fault", "list", exit_code=64 + 12).stderr)
        states = [(row["check"], row["state"]) for row in self.json("status")["status"]]
        self.assertIn(("grpc", "ok"), states)
        self.assertIn(("health", "unknown"), states)

    def test_status_of_an_agent_that_is_well(self):
        rows = self.json("status")["status"]
        self.assertEqual({row["state"] for row in rows}, {"ok", "info"}, rows)
        self.assertTrue(all(list(row) == ["check", "subject", "state", "ms", "detail"] for row in rows))
        checks = [row["check"] for row in rows]
        self.assertEqual([checks.count(name) for name in ("grpc", "socket", "health")], [1, 1, 8])
        limits = {row["subject"]: row["detail"] for row in rows if row["check"] == "limit"}
        self.assertEqual(limits, {"gRPC request": 16 << 20, "socket request": 1 << 20})

    def test_status_tells_degraded_from_unreachable(self):
        self.ctl("fault", "add", "debug::nyx_handle_cmd:code=39")
        self.assertRegex(self.ctl("status", exit_code=1).stdout, r"(?m)^socket .* warning .*API_STATUS_TIMED_OUT$")
        self.assertEqual(self.agent.stop()[0], 0)
        self.assertEqual(self.ctl("status", exit_code=3).stdout.count(" unreachable "), 2)


if __name__ == "__main__":
    unittest.main(verbosity=2)
