"""nyxctl fault and scenario against an agent.

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
        self.assertIn("does not offer faults and scenarios", self.ctl("fault", "list", exit_code=64 + 12).stderr)
        states = {(row["check"], row["state"]) for row in self.json("health")["checks"]}
        self.assertLessEqual({("grpc", "ok"), ("service", "unknown"), ("read", "unknown")}, states)


class ScenarioTest(agent.ClientTestCase):
    SCENARIOS = ["busy", "filling", "flapping", "hot", "restart"]

    def card(self, scenario, seed, *steps):
        """What clients see of the card after these seconds."""
        self.start("--fault-service", "--scenario", scenario, "--seed", seed, "--speed", "0")
        for seconds in steps:
            self.json("scenario", "advance", str(seconds))
        snapshot = self.json("snapshot")
        shown = {part: snapshot[part] for part in snapshot if part.startswith(
            ("credits", "interfaces", "lifs", "packet", "pipeline", "ports", "switch", "system", "table"))}
        self.assertGreater(len(shown), 8)
        return shown, self.json("watch", "sessions", "0", "9", "--count", "1")["sessions"]

    def test_same_seed_gives_the_same_snapshot_at_the_same_virtual_time(self):
        for scenario in self.SCENARIOS:
            card = self.card(scenario, "7", 61.5)
            self.assertEqual(self.card(scenario, "7", 0.001, 30, 31.499), card, scenario)
            self.assertNotEqual(self.card(scenario, "8", 61.5), card, scenario)
            self.assertNotEqual(self.card(scenario, "7", 61), card, scenario)

    def test_watch_shows_rates_of_ports_that_carry_traffic(self):
        self.start("--fault-service", "--scenario", "busy", "--speed", "60")
        rounds = self.ctl("-j", "watch", "ports", "--rates", "--count", "2", "-n", "0.1").stdout.splitlines()
        for counter in ("mac_stats[0]", "mac_stats[17]"):
            rows = [json.loads(line)["ports"] for line in rounds]
            self.assertEqual([port[f"{counter}_per_s"] for port in rows[0]], [None] * 3)
            self.assertTrue(all(port[f"{counter}_per_s"] > 0 for port in rows[1]), rows[1])
        self.assertNotIn("mac_stats[0]", self.json("show", "ports")["ports"][0])

    def instance(self):
        return self.json("call", "AgentGet")["instance_id"]

    def test_restart_of_the_card_shows_in_the_instance_id(self):
        self.start("--fault-service")
        self.assertEqual(self.json("scenario", "list"), {"scenarios": [{"name": name} for name in self.SCENARIOS]})
        self.assertEqual(self.json("scenario", "show"), {"scenarios": []})
        host_if = "request[0].id=0b6831 request[0].host_if_spec.name=h1 request[0].host_if_spec.mac_address=02:00:00:00:00:09"
        self.ctl("call", "InterfaceCreate", *host_if.split())
        instances = [self.instance()]
        path = f"{self.folder}/mine.toml"
        with open(path, "w", encoding="utf-8") as file:
            file.write('event = [{what = "restart", at = 5}]')
        self.json("scenario", "set", path, "--speed", "0")
        instances.append(self.instance())
        self.ctl("call", "flow_infoCreate", entries(1))
        self.json("scenario", "advance", "4.999")
        self.ctl("call", "flow_infoGet", '{"key": [{"k1": 1}]}')
        self.assertEqual(self.instance(), instances[-1])
        (scenario,) = self.json("scenario", "advance", "0.001")["scenarios"]
        self.assertEqual((scenario["virtual_s"], scenario["restarts"]), (5, 1))
        instances.append(self.instance())
        self.assertEqual(len(set(instances)), 3)
        self.ctl("call", "flow_infoGet", '{"key": [{"k1": 1}]}', exit_code=5)
        self.ctl("show", "interface", "h1")  # recorded for the next start
        self.assertEqual(self.json("scenario", "show", "--events"), {"events": [{"virtual_s": 5, "event": "restart"}]})
        self.assertFalse(self.json("scenario", "stop")["scenarios"][0]["running"])

    def test_what_is_wrong_with_a_scenario_is_said(self):
        self.start("--fault-service")
        unknown = self.ctl("scenario", "set", "bussy", exit_code=64 + 5).stderr
        self.assertIn('unknown scenario "bussy"; nearest: busy', unknown)
        self.assertIn("cannot open", self.ctl("scenario", "set", "./none.toml", exit_code=1).stderr)
        path = f"{self.folder}/broken.toml"
        with open(path, "w", encoding="utf-8") as file:
            file.write('[[event]]\nwhat = "link_up"')
        refused = self.ctl("scenario", "set", path, exit_code=64 + 3).stderr
        self.assertIn('line 2: what "link_up" is unknown; known: link_down, transceiver_out,', refused)
        self.assertIn("no scenario runs", self.ctl("scenario", "advance", "1", exit_code=64 + 9).stderr)
        for wrong in (["--scenario", path], ["--scenario", "bussy"], ["--speed", "1001"]):
            result = agent.run("nyx-agent", *wrong)
            self.assertEqual((result.returncode, result.stdout), (2, ""), result.stderr)


if __name__ == "__main__":
    unittest.main(verbosity=2)
