"""Views, watch, snapshot and diff of nyxctl against an agent.

usage: ctl_show_test.py FOLDER-OF-PROGRAMS [unittest options]
"""

import fcntl
import json
import os
import pathlib
import pty
import re
import signal
import struct
import subprocess
import termios
import unittest

import agent


VIEWS = ["ports", "port 1", "interfaces", "interface host0", "lifs", "lifs --classic", "lif 02:ac:3e:00:04:02",
         "tables", "table flow_info k1=7", "system", "pipeline", "sessions 0 3", "heap", "slabs", "packet-buffer",
         "switch-ports", "credits"]


def cell_text(cell):
    if isinstance(cell, list):
        return ",".join(map(cell_text, cell)) or "-"
    if cell is None or isinstance(cell, bool):
        return {None: "-", True: "yes", False: "no"}[cell]
    text = str(cell) or "-"
    return text[:32] if re.fullmatch("[0-9a-f]{65,}", text) else text


def read_some(output):
    try:
        return output.read(65536)
    except OSError:  # how a terminal that nobody writes to any more ends
        return b""


class ShowTest(agent.SharedAgentTestCase):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        entry = {"request": [{"key": {"k1": 7}, "flow_info_a_data": {"d2": "0000000000000005"}}]}
        assert cls.agent.ctl("call", "flow_infoCreate", json.dumps(entry)).returncode == 0

    def ctl(self, *words, exit_code=None):
        result = self.agent.ctl(*words)
        if exit_code is not None:
            self.assertEqual(result.returncode, exit_code, result.stderr)
        return result

    def rows(self, *words):
        result = self.ctl(*words, "-j")
        self.assertEqual(result.returncode, 0, result.stderr)
        document = json.loads(result.stdout)
        return next(iter(document.values()))

    def snapshot(self, name):
        path = f"{self.folder}/{name}"
        result = self.ctl("snapshot", "-o", path)
        self.assertEqual((result.returncode, result.stdout), (0, ""), result.stderr)
        return path

    def test_every_view_has_the_same_rows_as_text_and_as_json(self):
        for view in VIEWS:
            with self.subTest(view):
                text = self.ctl("show", *view.split())
                self.assertEqual((text.returncode, text.stderr), (0, ""))
                lines = text.stdout.splitlines()
                rows = self.rows("show", *view.split(), "--labels", "json")
                self.assertGreater(len(rows), 0)
                self.assertEqual(len(lines), len(rows) + 1)
                if view == "heap":  # moves between two calls
                    continue
                for line, row in zip(lines[1:], rows):
                    for name, cell in row.items():
                        cell = row.get(name + "_text", cell)
                        # The name of an enumerator is shown to people without what all of them share.
                        self.assertIn(cell_text(cell).rsplit("_")[-1].lower(), line.lower())

    def test_objects_are_found_by_what_people_call_them(self):
        port = self.rows("show", "port", "2")
        self.assertIn({"field": "spec.port_number", "value": 2}, port)
        uuid = port[0]["value"]
        self.assertEqual(self.rows("show", "port", uuid.replace("-", "").upper())[0], port[0])
        self.ctl("call", "InterfaceCreate", '{"request": [{"id": "0b", "loopback_if_spec": {}}]}')
        self.assertEqual(self.rows("show", "interface", "0b")[0]["value"], "0b000000-0000-0000-0000-000000000000")
        for words, code, text in ((("port", "77"), 5, "known: 1, 2"), (("lif", "host0-li"), 5, "host0-lif"),
                                  (("prots",), 2, "nearest: ports"), (("ports", "1"), 2, 'unexpected "1"'),
                                  ((), 2, "give one of ports"), (("table", "flow_inf"), 2, "flow_info"),
                                  (("table", "flow_info", "k1=8"), 5, "flow_info")):
            result = self.ctl("show", *words)
            self.assertEqual((result.returncode, result.stdout), (code, ""), words)
            self.assertIn(text, result.stderr)

    def test_long_bytes_are_cut_for_people_alone(self):
        text = self.ctl("show", "port", "1").stdout
        self.assertRegex(text, r"(?m)^status\.xcvr_status\.id_data +[0-9a-f]{32}\.\.\.$")
        data = [row["value"] for row in self.rows("show", "port", "1") if row["field"].endswith("id_data")]
        self.assertEqual([len(text) for text in data], [512])

    def on_terminal(self, columns, lines, *words):
        """What a command prints on a terminal of that size; without COLUMNS, which would say another."""
        try:
            ours, its = pty.openpty()
        except OSError as error:
            self.skipTest(f"no pseudo-terminals here: {error}")
        with open(ours, "rb", buffering=0) as output:
            fcntl.ioctl(its, termios.TIOCSWINSZ, struct.pack("HHHH", lines, columns, 0, 0))
            process = subprocess.Popen(self.agent.command(*words), stdout=its, stderr=subprocess.PIPE,
                                       env={name: text for name, text in os.environ.items() if name != "COLUMNS"})
            os.close(its)
            text = b""
            while part := read_some(output):
                text += part
            _, log = process.communicate(timeout=agent.PATIENCE_S)
        self.assertEqual((process.returncode, log), (0, b""), words)
        return text.decode().replace("\r\n", "\n")

    def assert_fits(self, text, columns, view):
        self.assertLessEqual(max(map(len, text.splitlines())), columns, f"{view} in {columns} columns")

    def test_no_view_is_wider_than_columns_says(self):
        for columns in (60, 80, 120):
            for view in VIEWS:
                result = subprocess.run(self.agent.command("show", *view.split()), capture_output=True, text=True,
                                        timeout=agent.PATIENCE_S, env=os.environ | {"COLUMNS": str(columns)})
                self.assertEqual(result.returncode, 0, result.stderr)
                self.assert_fits(result.stdout, columns, view)

    def test_no_view_is_wider_than_the_terminal(self):
        for columns in (60, 80, 120):
            for view in VIEWS:
                self.assert_fits(self.on_terminal(columns, 24, "show", *view.split()), columns, view)
        self.assertEqual(self.on_terminal(0, 0, "show", "ports"), self.on_terminal(80, 24, "show", "ports"))
        narrow = self.on_terminal(60, 24, "show", "ports")
        self.assertEqual(self.on_terminal(60, 24, "show", "ports", "--wide"), self.ctl("show", "ports").stdout)
        self.assertLess(len(narrow.splitlines()[0]), len(self.ctl("show", "ports").stdout.splitlines()[0]))
        self.assertIn("0a000000", self.on_terminal(60, 24, "show", "ports", "--columns", "port_number,id"))

    def test_long_views_show_what_counts_and_watch_fits_the_screen(self):
        shown = self.on_terminal(80, 24, "show", "port", "1")
        self.assertRegex(shown, r"(?m)^stats\.rx frames +\d+$")
        self.assertNotIn("mac_stats", shown)
        self.assertRegex(shown, r"\n\d+ more rows")
        everything = self.on_terminal(80, 24, "show", "port", "1", "--all")
        self.assertEqual(everything.count("mac_stats["), 84)
        self.assertEqual(self.ctl("show", "port", "1").stdout.count("mac_stats["), 84)
        watched = self.on_terminal(80, 24, "watch", "port", "1", "--count", "1").split("\x1b[H\x1b[2J")
        self.assertEqual(len(watched[-1].splitlines()), 23)

    def test_rows_and_columns_are_chosen(self):
        rows = self.rows("show", "ports", "--where", "link_state=up", "--where", "port_number>1", "--columns", "port_number,link_state")
        self.assertEqual(rows, [{"port_number": 3, "link_state": "PORT_LINK_STATE_2"}])
        names = [row["name"] for row in self.rows("show", "lifs", "--sort", "drops", "--reverse")]
        self.assertEqual((names[0], names[-1]), ("spare-lif", "host0-lif"))
        self.assertRegex(self.ctl("show", "ports", "--where", "lnk_state=up", exit_code=2).stderr, "nearest: link_state, link_sm_state; give one of")

    def test_watch_shows_rates_per_round(self):
        result = self.ctl("watch", "table", "flow_info", "k1=7", "--rates", "--count", "2", "-n", "0.1", "-j")
        self.assertEqual(result.returncode, 0, result.stderr)
        first, second = map(json.loads, result.stdout.splitlines())
        value = {row["field"]: row for row in second["fields"]}
        self.assertEqual(value["d2"], {"field": "d2", "value": 5, "value_per_s": 0})
        self.assertIsNone(value["k1"]["value_per_s"])
        self.assertEqual({row["value_per_s"] for row in first["fields"]}, {None})
        text = self.ctl("watch", "sessions", "0", "3", "--count", "2", "-n", "0.1").stdout
        self.assertRegex(text, r"^(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d [+-]\d{4}  sessions 0 3\nSESSION [^\x1b]*){2}$")

    def test_watch_ends_with_0_on_interrupt(self):
        process = subprocess.Popen(self.agent.command("watch", "ports", "-n", "100"), stdout=subprocess.PIPE, text=True)
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        self.assertRegex(process.stdout.readline(), "ports$")
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(agent.PATIENCE_S), 0)

    def test_snapshots_differ_in_what_moved_alone(self):
        before = self.snapshot("before")
        document = json.loads(pathlib.Path(before).read_text())
        self.assertEqual(list(document), sorted(document))
        self.assertEqual(len(document["ports"]["response"]), 3)
        self.ctl("show", "tables")  # the heap moves
        result = self.ctl("diff", before, self.snapshot("same"))
        self.assertEqual((result.returncode, result.stdout), (0, "no differences\n"))
        port = document["ports"]["response"].pop(1)
        document["ports"]["response"][0]["status"]["if_index"] += 3
        after = pathlib.Path(self.folder, "after")
        after.write_text(json.dumps(document))
        result = self.ctl("diff", before, str(after), "-j")
        self.assertEqual(result.returncode, 1)
        paths = {row["path"]: row["change"] for row in json.loads(result.stdout)["differences"]}
        first = document["ports"]["response"][0]["spec"]["id"]
        self.assertEqual(paths, {f"ports.response[{first}].status.if_index": 3,
                                 f"ports.response[{port['spec']['id']}]": None})
        after.write_text("{")
        self.assertEqual(self.ctl("diff", before, str(after)).returncode, 2)
        self.assertEqual(self.ctl("diff", before, f"{self.folder}/missing").returncode, 2)

    def test_what_fails_does_not_take_the_rest_along(self):
        self.start("--fault", "debug::nyx_slab_get:code=6", "--fault", "nyx_if_read_all:code=10,after=2")
        shown = self.ctl("show", "interfaces")
        self.assertEqual((shown.returncode, len(shown.stdout.splitlines())), (5, 3))
        snapshot = self.ctl("snapshot")
        self.assertEqual(snapshot.returncode, 5)
        document = json.loads(snapshot.stdout)
        self.assertIn("API_STATUS", document["slabs"]["error"])
        self.assertNotEqual(document["interfaces"]["api_status"], "API_STATUS_OK")
        self.assertNotIn("error", document["ports"])
        self.agent.stop()
        self.assertEqual(self.ctl("snapshot").returncode, 3)


if __name__ == "__main__":
    unittest.main(verbosity=2)
