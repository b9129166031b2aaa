"""nyxctl metrics, read by the parser of Prometheus' Python client.

usage: ctl_metrics_test.py FOLDER-OF-PROGRAMS [unittest options]
"""

import json
import os
import pathlib
import re
import shutil
import subprocess
import unittest

from prometheus_client.parser import text_string_to_metric_families

import agent

PROMETHEUS = pathlib.Path(__file__).resolve().parent.parent / "packaging/prometheus"
LABELS = r"""
["nyx.SystemTemperature.value_1"]
name = "core"
unit = "°C"
help = "Hottest \\ \"core\""
["nyx.SystemTemperature.value_2"]
name = "core"
unit = "°C"
["nyx.SystemVoltage.value_1"]
name = "Kernspannung (größte)"
unit = "mV"
warn = { above = 850, below = 800 }
critical = 851
["nyx.PortStats.mac_stats[17]"]
name = "rx frames"
["nyx.PortStats.mac_stats[18]"]
name = "link state"
["nyx.PortSpec.number_a"]
counter = true
["nyx.PortLinkState"]
values = { "1" = "down", "2" = "up" }
"""


class MetricsTest(agent.SharedAgentTestCase):
    def scrape(self, *options, exit_code=0):
        return self.parsed(self.ctl("metrics", *options, exit_code=exit_code).stdout)

    def parsed(self, text):
        """Samples by name and labels."""
        samples, names = {}, []
        for family in text_string_to_metric_families(text):
            names.append(family.name)
            self.assertNotEqual((family.type, family.documentation), ("unknown", ""), family.name)
            for sample in family.samples:
                self.assertRegex(sample.name, r"^nyx_[a-z0-9_]+$")
                self.assertEqual(family.type == "counter", sample.name.endswith("_total"), sample.name)
                key = (sample.name, *sorted(sample.labels.items()))
                self.assertNotIn(key, samples)
                samples[key] = sample.value
        self.assertEqual(len(names), len(set(names)))
        if shutil.which("promtool"):  # fails for a text that is wrong; its advice about names is 3
            check = subprocess.run(["promtool", "check", "metrics"], input=text, text=True, capture_output=True)
            self.assertIn(check.returncode, (0, 3), check.stderr)
        return samples

    def test_every_number_is_a_series_in_base_units(self):
        text = self.ctl("metrics", "--sessions", "0", "1", "--labels", "none").stdout
        samples = self.parsed(text)
        self.assertEqual(samples["nyx_up",], 1)
        self.assertEqual(samples["nyx_system_temperature_value_1",], 58)
        port = (("id", "0a000000-0000-4000-8000-000000010001"), ("port", "1"))
        self.assertEqual(samples["nyx_port_link_state", *port], 2)
        self.assertEqual(samples["nyx_port_mac_stats_total", *port, ("type", "17")], 1000018)
        self.assertEqual(samples["nyx_queue_credit", ("port", "0"), ("queue", "0")],
                         self.json("show", "credits")["credits"][0]["credit"])
        self.assertTrue(any(key[0] == "nyx_session_counter_a_total" for key in samples))
        self.assertGreater(samples["nyx_agent_memory_resident_bytes",], 1 << 20)
        facts = [dict(key[1:]) for key in samples if key[0] == "nyx_port_info"]
        self.assertEqual([fact["vendor"] for fact in facts], ["ACME OPTICS", "ACME OPTICS", ""])

    def test_labels_name_families_and_units_and_never_break_the_text(self):
        path = pathlib.Path(self.folder, "labels.toml")
        path.write_text(LABELS, encoding="utf-8")
        text = self.ctl("metrics", "--labels", "none", "--labels", str(path)).stdout
        samples = self.parsed(text)
        port = (("id", "0a000000-0000-4000-8000-000000010001"), ("port", "1"))
        self.assertEqual(samples["nyx_system_temperature_core_celsius",], 58)
        self.assertIn(r'# HELP nyx_system_temperature_core_celsius Hottest \\ "core"', text)
        self.assertEqual(samples["nyx_system_temperature_value_2_celsius",], 43)  # its name is taken
        self.assertEqual([value for key, value in samples.items() if key[0].endswith("_volts")], [0.851])
        limits = {dict(key[1:])["severity"]: value for key, value in samples.items() if key[0] == "nyx_limit_passed"}
        self.assertEqual(limits, {"warning": 1, "critical": 0})  # 851 mV
        self.assertEqual(samples["nyx_port_rx_frames_total", *port], 1000018)
        self.assertEqual(samples["nyx_port_link_state", *port], 2)
        self.assertEqual(samples["nyx_port_mac_stats_total", *port, ("type", "18")], 1000019)  # taken, too
        self.assertEqual(samples["nyx_port_number_a_total", *port], 9216)
        self.assertRegex(text, "# HELP nyx_port_link_state .*: 1 down, 2 up\n")

    def test_each_method_is_called_once_however_many_objects_there_are(self):
        self.start()
        self.scrape()
        samples = self.scrape()
        asked = {dict(key[1:])["method"] for key in samples if key[0] == "nyx_read_failed"}
        self.assertGreater(len(asked), 12)
        for method in asked:
            # Calls with INTERNAL are the agent's own, which free memory; under a sanitizer it needs them.
            found = [(dict(key[1:])["grpc_code"] in ("13", "INTERNAL"), value) for key, value in samples.items()
                     if key[0] == "nyx_agent_calls_total" and ("method", method) in key]
            self.assertEqual([value for is_own, value in found if not is_own], [1], method)
            own = sum(value for is_own, value in found if is_own)
            buckets = [(dict(key[1:])["le"], value) for key, value in samples.items()
                       if key[0] == "nyx_agent_call_duration_seconds_bucket" and ("method", method) in key]
            self.assertEqual([value for _, value in buckets], sorted(value for _, value in buckets))
            self.assertEqual(buckets[-1], ("+Inf", 1 + own), method)

    def test_what_fails_is_reported_and_the_file_is_replaced(self):
        self.start("--fault", "debug::nyx_slab_get:code=6", "--fault", "nyx_if_read_all:code=10,after=2",
                   "--fault", "nyx_flow_summary_get:code=6")
        path = pathlib.Path(self.folder, "nyx.prom")
        path.write_text("old")
        path.chmod(0o600)
        self.ctl("metrics", "-o", str(path), exit_code=5)
        self.assertEqual(path.stat().st_mode & 0o777, 0o644)
        samples = self.parsed(path.read_text(encoding="utf-8"))
        failed = {dict(key[1:])["method"] for key, value in samples.items() if key[0] == "nyx_read_failed" and value}
        self.assertEqual(failed, {"nyx.DebugSvc/SlabGet", "nyx.IfSvc/InterfaceGet", "nyx.PipelineSvc/FlowStatsSummaryGet"})
        names = [key[0] for key in samples]
        self.assertEqual(names.count("nyx_interface_info"), 2)  # those read before the failure
        self.assertNotIn("nyx_flow_summary_counter_1_total", names)  # zeros would be a reset
        self.agent.stop()
        self.ctl("metrics", "-o", str(path), exit_code=3)
        samples = self.parsed(path.read_text(encoding="utf-8"))
        self.assertEqual(samples.pop(("nyx_up",)), 0)
        self.assertEqual(set(samples.values()), {1})
        self.assertEqual([name for name in os.listdir(self.folder) if re.match("nyx.prom", name)], ["nyx.prom"])
        self.assertIn("nyx_up 0", self.ctl("metrics", "-o", "/dev/stdout", exit_code=3).stdout)
        result = self.ctl("metrics", "-o", f"{self.folder}/missing/nyx.prom", exit_code=1)
        self.assertIn("cannot write", result.stderr)

    def test_rules_and_dashboard_use_metrics_that_there_are(self):
        names = set(re.findall(r"^nyx_\w+", self.ctl("metrics").stdout, re.MULTILINE)) | {"nyx_limit_passed"}
        for file in ("rules.yml", "dashboard.json"):
            used = set(re.findall(r"(?<![:\w])nyx_\w+(?![\w.(\\])", (PROMETHEUS / file).read_text(encoding="utf-8")))
            self.assertGreater(len(used), 3)
            self.assertEqual(used - names, set(), file)
        dashboard = json.loads((PROMETHEUS / "dashboard.json").read_text(encoding="utf-8"))
        self.assertGreater(len(dashboard["panels"]), 5)
        if shutil.which("promtool"):
            rules = [{"record": "x", "expr": target["expr"].replace("$instance", "card")}
                     for panel in dashboard["panels"] for target in panel["targets"]]
            path = pathlib.Path(self.folder, "dashboard.yml")
            path.write_text(json.dumps({"groups": [{"name": "x", "rules": rules}]}))
            check = subprocess.run(["promtool", "check", "rules", path], text=True, capture_output=True)
            self.assertEqual(check.returncode, 0, check.stderr)

    @unittest.skipUnless(shutil.which("promtool"), "promtool is not installed")
    def test_alerts_fire_for_what_is_wrong_only(self):
        well = {line.split()[0]: "{}+0x60".format(line.split()[1])
                for line in self.ctl("metrics").stdout.replace('", "', '","').splitlines()
                if line.startswith(("nyx_up", "nyx_read", "nyx_interface_", "nyx_agent_")) and line.count(" ") == 1}
        well['node_textfile_mtime_seconds{file="/x/nyx.prom"}'] = "0+15x60"
        ill = well | {"nyx_up": "0x60", "nyx_agent_start_time_seconds": "1x50 2x10",
                      'nyx_limit_passed{severity="warning"}': "1x60", "nyx_agent_memory_limit_bytes": "1x60",
                      "nyx_agent_mac_file_folder_writable": "0x60", "nyx_agent_watchdog_late_total": "0+1x60",
                      "nyx_agent_refusals_role_total": "0+1x60", 'node_textfile_mtime_seconds{file="/x/nyx.prom"}': "0x60",
                      'nyx_agent_calls_total{method="x",grpc_code="8",api_status="ok"}': "0+1000x60",
                      'nyx_agent_call_duration_seconds_bucket{method="x",le="1"}': "0+10x60",
                      'nyx_agent_call_duration_seconds_bucket{method="x",le="9"}': "0+20x60",
                      'nyx_agent_call_duration_seconds_bucket{method="x",le="+Inf"}': "0+20x60"}
        all_alerts = set(re.findall(r"alert: (\w+)", (PROMETHEUS / "rules.yml").read_text()))
        ill |= {name: "2x60" for name in well if name.startswith("nyx_interface_oper_status")}
        for series, fire in ((well, set()), (ill, all_alerts - {"NyxReadFails"})):
            test = {"rule_files": [str(PROMETHEUS / "rules.yml")], "evaluation_interval": "15s",
                    "tests": [{"interval": "15s",
                               "input_series": [{"series": name, "values": values} for name, values in series.items()],
                               "promql_expr_test": [{"expr": 'group by (alertname) (ALERTS{alertstate="firing"})',
                                                     "eval_time": "14m30s",
                                                     "exp_samples": [{"labels": f'{{alertname="{name}"}}', "value": 1}
                                                                     for name in sorted(fire)]}]}]}
            path = pathlib.Path(self.folder, "rules_test.yml")
            path.write_text(json.dumps(test))
            check = subprocess.run(["promtool", "test", "rules", path], text=True, capture_output=True)
            self.assertEqual(check.returncode, 0, check.stdout[-2000:] + check.stderr[-2000:])


if __name__ == "__main__":
    unittest.main(verbosity=2)
