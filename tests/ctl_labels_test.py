"""The dictionary of names, units and limits: where nyxctl finds it, and what it changes.

usage: ctl_labels_test.py FOLDER-OF-PROGRAMS [unittest options]
"""

import json
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

import agent

LABELS = """
["nyx.PortSpec.number_a"]
name = "frame limit"
unit = "octets"
["nyx.PortStats.mac_stats[3]"]
name = "rx pauses"
["nyx.PortLinkState"]
values = { "2" = "carrier" }
"""


class LabelsTest(agent.SharedAgentTestCase):
    def file(self, text):
        path = pathlib.Path(self.folder, "labels.toml")
        path.write_text(text, encoding="utf-8")
        return str(path)

    def installed(self):
        """A client with an empty folder of labels beside it, as an installation has one."""
        prefix = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        (prefix / "bin").mkdir()
        shutil.copy(agent.BIN / "nyxctl", prefix / "bin")
        labels = prefix / "share/svc_quill/labels.d"
        labels.mkdir(parents=True)
        return labels, lambda *words: subprocess.run(
            [prefix / "bin/nyxctl", "--grpc", self.agent.grpc, *words], capture_output=True, text=True,
            timeout=agent.PATIENCE_S, env=os.environ | {"LD_LIBRARY_PATH": str(agent.BIN.parent / "lib")})

    def test_later_files_win_and_json_keeps_the_contract(self):
        labels = self.file(LABELS)
        text = self.ctl("show", "port", "1", "--labels", labels).stdout
        for line in (r"spec\.frame limit +9216 octets", r"stats\.rx pauses +\d+", r"stats\.rx frames +\d+",
                     r"status\.link_status\.link_state +carrier"):
            self.assertRegex(text, rf"(?m)^{line}$")
        plain = self.ctl("show", "port", "1", "-j").stdout
        self.assertEqual(self.ctl("show", "port", "1", "-j", "--labels", labels).stdout, plain)
        rows = self.json("show", "port", "1", "--labels", labels, "--labels", "json")["port"]
        self.assertIn({"field": "spec.number_a", "field_text": "spec.frame limit", "value": 9216,
                       "value_text": "9216 octets"}, rows)
        link = self.json("call", "PortGet", "--labels", labels, "--labels", "json")["response"][0]["status"]["link_status"]
        self.assertEqual((link["link_state"], link["link_state_text"]), ("PORT_LINK_STATE_2", "carrier"))
        self.assertRegex(self.ctl("show", "port", "1", "--labels", "none").stdout, r"(?m)^spec\.number_a +9216$")

    def test_words_take_what_views_show(self):
        labels = ("--labels", self.file(LABELS))
        self.ctl("set", "port", "1", "frame_limit=1500", "setting_b=100g", *labels)
        self.assertIn("1500 octets", self.ctl("show", "port", "1", *labels).stdout)
        self.ctl("set", "port", "1", "number_a=9216", "speed=100G")
        refused = self.ctl("set", "port", "1", "speed=100M", exit_code=2)
        self.assertRegex(refused.stderr, r"give one of .*8 \(100G\).*nearest: 100g")
        self.assertIn("nearest: frame_limit", self.ctl("set", "port", "1", "fram_limit=1", *labels, exit_code=2).stderr)
        offered = self.ctl("__complete", "--", "set", "port", "1", "sp").stdout.split()
        self.assertEqual(offered, ["speed="])
        self.assertIn("speed=100g", self.ctl("__complete", "--", "set", "port", "1", "speed=").stdout.split())
        self.assertIn("//   number_a mtu [bytes]\n", self.ctl("describe", "PortSpec").stdout)

    def test_words_of_table_entries(self):
        entry = ("src=2001:db8::1", "dport=80", "proto=tcp")
        self.ctl("table", "add", "flow", *entry, "d1=5")
        fields = self.json("table", "get", "flow", "k13=2001:db8::1", "k12=80", "k2=6", "--labels", "json")["fields"]
        self.assertIn({"field": "k2", "field_text": "proto (k2)", "value": 6, "value_text": "tcp"}, fields)
        self.assertRegex(self.ctl("show", "table", "flow", *entry).stdout, r"(?m)^dport \(k12\) +80$")
        self.assertRegex(self.ctl("explain", "flow").stdout, r"(?m)^ +50 +16 +src \(k13\) ")
        self.assertIn("nearest: dport", self.ctl("table", "add", "flow", "dprt=80", exit_code=2).stderr)
        self.assertIn("k12 is given twice", self.ctl("table", "get", "flow", "k12=1", "dport=2", exit_code=2).stderr)
        self.assertEqual(self.ctl("__complete", "--", "table", "get", "flow", "dp").stdout, "dport=\n")

    def test_check_names_what_fits_nothing(self):
        self.assertRegex(self.ctl("labels", "check").stdout, "^[0-9]{2,} entries, all of them fit\n$")
        document = (pathlib.Path(__file__).parent.parent / "docs/integrating.md").read_text(encoding="utf-8")
        for example in re.findall("^```toml\n(.*?)^```$", document, re.MULTILINE | re.DOTALL):
            self.assertIn("4 entries, all", self.ctl("labels", "check", self.file(example)).stdout)
        wrong = {'["nyx.PortSpec.numbr_a"]\nname = "x"': "nearest: nyx.PortSpec.number_a",
                 '["nyx.PortSpec.number_a[3]"]\nname = "x"': "nyx.PortSpec.number_a is not a list",
                 '["flow.k19"]\nname = "x"': "nearest: flow.k1",
                 '["nyx.LedStatus.LED_STATUS_7"]\nname = "x"': "nearest: nyx.LedStatus.LED_STATUS_1",
                 '["flow.k1"]\nnam = "x"': 'unknown "nam"; nearest: name', "[": "labels.toml:1: "}
        for text, problem in wrong.items():
            result = self.ctl("labels", "check", self.file(text), exit_code=1)
            self.assertIn(problem, result.stdout)
        self.assertEqual(len(json.loads(self.ctl("labels", "check", "-j", self.file(text), exit_code=1).stdout)["problems"]), 1)
        self.assertIn("labels.toml:1: ", self.ctl("show", "ports", "--labels", self.file("["), exit_code=2).stderr)

    def test_commands_that_need_no_labels_open_no_file(self):
        labels, run = self.installed()
        os.mkfifo(labels / "a.toml")  # whoever opens it waits for ever
        for words in (["list"], ["--help"], ["call", "PortGet"]):
            self.assertEqual(run(*words).returncode, 0, words)

    def test_broken_file_of_the_installation_is_noted(self):
        labels, run = self.installed()
        (labels / "a.toml").write_text('["nyx.LedStatus.LED_STATUS_1"]\nname = "green \\u001b[2J"\n')
        (labels / "b.toml").write_text("[")
        result = run("show", "system")
        self.assertEqual(result.returncode, 0)
        self.assertRegex(result.stdout, r"led_status +green \?\[2J\n")
        self.assertRegex(result.stderr, r"^nyxctl: note: .*b\.toml:1: .*; see nyxctl labels check\n$")
        self.assertEqual(run("labels", "check").returncode, 1)


if __name__ == "__main__":
    unittest.main()
