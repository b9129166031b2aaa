"""nyxctl table against an agent.

usage: ctl_table_test.py FOLDER-OF-PROGRAMS [unittest options]
"""

import json
import os
import pathlib
import re
import signal
import subprocess
import unittest

import agent

CHANCE = "code=7,chance=20,seed=7"


def flow(number, **data):
    return {"key": {"k4": number}, "flow_hash_data": {"d1": 1} | data}


class TableTest(agent.ClientTestCase):
    def path(self, name):
        return str(pathlib.Path(self.folder, name))

    def file(self, entries, name="entries"):
        pathlib.Path(self.path(name)).write_text("".join(json.dumps(entry) + "\n" for entry in entries))
        return f"@{self.path(name)}"

    def lines(self, name):
        return pathlib.Path(self.path(name)).read_text().splitlines()

    def keys(self, numbers):
        return self.file([{"k4": number} for number in numbers], "keys")

    def count(self, table="flow"):
        """The entries that the stand-in holds."""
        rows = self.json("show", "tables")["tables"]
        return next(row["entries"] for row in rows if row["name"] == table)

    def totals(self, *arguments, exit_code=0):
        totals = self.json("table", *arguments, exit_code=exit_code)
        self.assertEqual(totals.pop("total"), sum(n for name, n in totals.items() if name not in ("table", "changes")))
        return totals

    def fault(self, operation):
        self.ctl("fault", "clear")
        self.ctl("fault", "add", f"nyx_tbl_flow_{operation}:{CHANCE}")

    def test_totals_are_what_the_card_holds_when_a_fifth_fails(self):
        self.start("--fault-service")
        self.fault("create")
        flows = self.file(flow(n) for n in range(2500))
        added = self.totals("add", "flow", flows, "--failed", self.path("again"), exit_code=5)
        self.assertEqual(added["added"], self.count())
        self.assertEqual((added["added"] + added["failed"], len(self.lines("again"))), (2500, added["failed"]))
        self.assertGreater(added["failed"], 300)
        again = self.totals("add", "flow", f"@{self.path('again')}", "--failed", self.path("later"), exit_code=5)
        self.assertEqual(added["added"] + again["added"], self.count())
        self.ctl("fault", "clear")
        self.totals("add", "flow", f"@{self.path('later')}")
        self.assertEqual(self.count(), 2500)

        self.fault("update")
        changed = self.file(flow(n, d1=2) for n in range(2500))
        updated = self.totals("update", "flow", changed, exit_code=5)
        self.fault("read")
        read = self.ctl("table", "get", "flow", self.keys(range(2500)), exit_code=5)
        shown = len(read.stdout.splitlines())
        self.assertIn(f"{shown} read, {2500 - shown} absent", read.stderr)
        self.ctl("fault", "clear")
        got = self.ctl("table", "get", "flow", self.keys(range(2500))).stdout.splitlines()
        self.assertEqual(sum(json.loads(line)["flow_hash_data"]["d1"] == 2 for line in got), updated["updated"])

        self.fault("delete")
        deleted = self.totals("del", "flow", self.keys(range(3000)), exit_code=5)
        self.assertEqual((deleted["deleted"], deleted["failed"]), (2500 - self.count(), self.count()))
        self.assertEqual(deleted["absent"], 500)

    def test_failure_names_lines_and_reasons(self):
        self.start("--fault", "nyx_tbl_flow_info_create:code=6,key=dc05")  # 1500
        specs = [{"key": {"k1": n}, "flow_info_a_data": {"d1": n}} for n in range(1, 2201)]
        result = self.ctl("table", "add", "flow_info", self.file(specs), exit_code=5)
        self.assertIn("2200 entries: 2199 added, 1 failed", result.stderr)
        self.assertIn("1 of 2200 entries was not added: line 1500: API_STATUS_ERROR", result.stderr)
        self.assertEqual(result.stdout, "")
        got = self.ctl("table", "get", "flow_info", self.file([{"k1": 2200}, {"k1": 1500}, {"k1": 7}]), exit_code=5)
        self.assertEqual([json.loads(line)["key"]["k1"] for line in got.stdout.splitlines()], [2200, 7])
        self.assertIn("line 2: no entry has this key", got.stderr)
        lines = self.file(map(json.loads, got.stdout.splitlines()))
        self.assertEqual(self.totals("update", "flow_info", lines), {"table": "flow_info", "unchanged": 2})
        again = self.ctl("table", "add", "flow_info", "k1=7", "d1=8", exit_code=5)
        self.assertIn("the entry k1=7 d1=8 was not added: the table has an entry with this key and other", again.stderr)

    def test_key_given_twice_is_written_in_order(self):
        self.start()
        flows = self.file([flow(0, d1=n) for n in range(20)] + [flow(n) for n in range(1, 2000)] + [flow(0, d1=9)])
        self.assertEqual(self.totals("apply", "flow", flows[1:]), {"table": "flow", "added": 2000, "updated": 20})
        self.assertEqual(self.totals("add", "flow", self.file([flow(0, d1=9), flow(5000)] * 2), exit_code=5),
                         {"table": "flow", "added": 1, "unchanged": 3})
        got = json.loads(self.ctl("table", "get", "flow", self.keys([0])).stdout)
        self.assertEqual(got["flow_hash_data"]["d1"], 9)

    def test_wrong_line_stops_before_its_request_or_is_passed_over(self):
        self.start()
        lines = self.file([{"key": {"k1": 1}}, {"key": {"k1": 65536}}])
        result = self.ctl("table", "add", "vlan_mapping", lines, exit_code=2)
        self.assertIn('entries" line 2: JSON of nyx.vlan_mappingSpec: key.k1: 65536 does not fit in 2 bytes', result.stderr)
        self.assertEqual(self.count("vlan_mapping"), 0)
        self.ctl("call", "vlan_mappingCreate", '{"request": [{"key": {"k1": 65536}}]}', exit_code=2)
        kept = self.totals("add", "vlan_mapping", lines, "--keep-going", "--failed", self.path("again"), exit_code=6)
        self.assertEqual(kept, {"table": "vlan_mapping", "added": 1, "invalid": 1})
        self.assertEqual(self.lines("again"), ['{"key": {"k1": 65536}}'])
        self.ctl("table", "add", "vlan_mapping", f"@{self.path('again')}", "--cut")
        self.ctl("table", "get", "vlan_mapping", "k1=0")
        self.ctl("table", "add", "vlan_mapping", lines, "--failed", lines[1:], exit_code=2)

        many = self.file([flow(n) for n in range(1500)] + [{"key": {"k99": 1}}, flow(1501)])
        result = self.ctl("table", "add", "flow", many, exit_code=6)
        self.assertIn("line 1501: JSON of nyx.flowSpec: key.k99: no such field", result.stderr)
        self.assertIn("1000 entries added", result.stderr)
        self.assertIn("go on with --from 1001", result.stderr)
        rest = self.totals("add", "flow", many, "--from", "1001", "--keep-going", exit_code=6)
        self.assertEqual(rest, {"table": "flow", "added": 501, "invalid": 1})

    def test_csv_applies_what_differs_and_deletes_what_left(self):
        self.start()
        old = pathlib.Path(self.path("old.csv"))
        old.write_text("k4,d1,d2\n" + "".join(f"{n},{n},7\n" for n in range(10)))
        new = pathlib.Path(self.path("new.csv"))
        new.write_text("d1,k4\n" + "".join(f"{n % 8},{n}\n" for n in range(3, 12)))
        self.assertEqual(self.totals("apply", "flow", str(old)), {"table": "flow", "added": 10})
        difference = self.ctl("table", "diff", "flow", str(new), "--previous", str(old), exit_code=1).stdout.splitlines()
        self.assertEqual(difference[0], "~ k4=3: d2 7 -> 0")
        self.assertEqual((difference[5], difference[7:]),
                         ("~ k4=8: d1 8 -> 0, d2 7 -> 0", ["+ k4=10", "+ k4=11", "- a key of zeros", "- k4=1", "- k4=2"]))
        dry = self.totals("apply", "flow", str(new), "--previous", str(old), "--dry-run")
        self.assertEqual(dry["changes"][0], {"change": "updated", "line": 2, "key": "k4=3",
                                             "fields": [{"field": "d2", "old": 7, "new": 0}]})
        self.assertEqual(self.count(), 10)
        applied = self.totals("apply", "flow", str(new), "--previous", str(old))
        self.assertEqual(applied, {"table": "flow", "added": 2, "updated": 7, "deleted": 3})
        self.assertEqual(self.count(), 9)
        self.ctl("table", "diff", "flow", str(new), "--previous", str(old))
        self.assertEqual(self.totals("apply", "flow", str(new)), {"table": "flow", "unchanged": 9})

    def test_update_keeps_what_is_not_given_and_says_what_changed(self):
        self.start()
        self.ctl("table", "add", "l2seg", "k1=9", "d1=1", "d2=2", "d4=400")
        dry = self.ctl("table", "update", "l2seg", "k1=9", "d1=7", "--dry-run")
        changed = self.ctl("table", "update", "l2seg", "k1=9", "d1=7")
        self.assertEqual((dry.stdout, changed.stdout), ("~ k1=9: d1 1 -> 7\n",) * 2)
        self.ctl("table", "update", "l2seg", self.file([{"key": {"k1": 9}, "l2seg_data": {"d2": 0}}]))
        fields = {row["field"]: row["value"] for row in self.json("table", "get", "l2seg", "k1=9")["fields"]}
        self.assertEqual([fields[name] for name in ("d1", "d2", "d4")], [7, 0, 400])
        replaced = self.ctl("table", "update", "l2seg", "k1=9", "d2=5", "--replace")
        self.assertEqual(replaced.stdout, "~ k1=9: d1 7 -> 0, d2 0 -> 5, d4 400 -> 0\n")
        self.assertIn("no entry has this key", self.ctl("table", "update", "l2seg", "k1=8", "d2=5", exit_code=5).stderr)

    def pipe(self, *arguments):
        """A command that has sent 2500 entries and waits for more."""
        process = subprocess.Popen(self.agent.command("table", *arguments, "-"), stdin=subprocess.PIPE,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.kill)
        process.stdin.write("".join(json.dumps(flow(n)) + "\n" for n in range(2500)))
        process.stdin.flush()
        agent.wait_until(lambda: self.count() == 2500)
        return process

    def test_interrupt_ends_with_the_totals_and_where_to_go_on(self):
        self.start()
        process = self.pipe("add", "flow")
        process.send_signal(signal.SIGINT)
        process.wait(agent.PATIENCE_S)
        _, text = process.communicate(timeout=agent.PATIENCE_S)
        self.assertEqual(process.returncode, 6, text)
        self.assertIn("2500 entries added", text)
        self.assertIn("interrupted; go on with --from 2501", text)
        self.assertEqual(self.count(), 2500)

    def test_lost_agent_ends_with_what_is_known(self):
        self.start()
        process = self.pipe("add", "flow", "--failed", self.path("again"))
        self.agent.stop(signal.SIGKILL)
        _, text = process.communicate("".join(json.dumps(flow(n)) + "\n" for n in range(2500, 9000)), agent.PATIENCE_S)
        self.assertEqual(process.returncode, 6, text)
        sent, added = map(int, re.search(r"flow: (\d+) entries: (\d+) added, ", text).groups())
        self.assertLessEqual(added, 2500)
        self.assertEqual(added + len(self.lines("again")), sent)
        self.assertIn(f"go on with --from {sent + 1}", text)
        self.ctl("table", "add", "flow", "k4=1", exit_code=3)

    def test_agent_that_stops_answering_is_not_asked_for_tls(self):
        self.start()
        process = self.pipe("--timeout", "1", "add", "flow")
        self.agent.process.send_signal(signal.SIGSTOP)
        self.addCleanup(self.agent.process.send_signal, signal.SIGCONT)
        os.waitpid(self.agent.process.pid, os.WUNTRACED)  # until all its threads have stopped
        _, text = process.communicate(json.dumps(flow(2500)), agent.PATIENCE_S)
        self.assertEqual(process.returncode, 6, text)
        self.assertIn("no answer from", text)
        self.assertNotIn("TLS", text)

    def test_json_has_one_shape_whether_an_entry_was_there_or_not(self):
        self.start()
        for code, verdict in ((0, "added"), (5, "unchanged")):
            result = self.ctl("-j", "table", "add", "flow_info", "k1=7", "d1=1", exit_code=code)
            self.assertEqual(json.loads(result.stdout), {"table": "flow_info", "total": 1, verdict: 1})
        self.assertEqual(json.loads(result.stderr)["exit_code"], 5)
        fields = json.loads(self.ctl("-j", "table", "get", "flow_info", "k1=7").stdout)["fields"]
        self.assertIn({"field": "d1", "value": 1}, fields)
        entries = self.json("table", "get", "flow_info", self.file([{"k1": 7}, {"k1": 7}]))["entries"]
        self.assertEqual([entry["flow_info_a_data"]["d1"] for entry in entries], [1, 1])


if __name__ == "__main__":
    unittest.main()
