"""nyxctl table against an agent.

usage: ctl_table_test.py FOLDER-OF-PROGRAMS [unittest options]
"""

import json
import pathlib
import unittest

import agent


class TableTest(agent.ClientTestCase):
    def file(self, entries):
        path = pathlib.Path(self.folder, "entries")
        path.write_text("".join(json.dumps(entry) + "\n" for entry in entries))
        return f"@{path}"

    def test_bulk_load_names_the_request_that_failed_and_sends_the_rest(self):
        self.start("--fault", "nyx_tbl_flow_info_create:code=6,nth=1500")
        specs = [{"key": {"k1": n}, "flow_info_a_data": {"d1": n}} for n in range(1, 2201)]
        result = self.ctl("table", "add", "flow_info", self.file(specs), exit_code=5)
        self.assertIn("entries 1001 to 2000: API_STATUS_ERROR; the service does not say which", result.stderr)
        self.assertNotIn("1 to 1000:", result.stderr)
        self.assertIn("1200 of 2200 entries added", result.stderr)
        self.assertEqual(result.stdout, "")

        got = self.ctl("table", "get", "flow_info", self.file([{"k1": 2200}, {"k1": 1500}, {"k1": 7}]), exit_code=5)
        self.assertEqual([json.loads(line)["key"]["k1"] for line in got.stdout.splitlines()], [2200, 7])
        self.assertIn("number 2 of those", got.stderr)
        lines = self.file(map(json.loads, got.stdout.splitlines()))
        self.ctl("table", "update", "flow_info", lines)

    def test_wide_value_anywhere_in_a_file_sends_nothing(self):
        self.start()
        lines = self.file([{"key": {"k1": 1}}, {"key": {"k1": 65536}}])
        result = self.ctl("table", "add", "vlan_mapping", lines, exit_code=2)
        self.assertIn(": key.k1: 65536 does not fit in 2 bytes", result.stderr)
        self.ctl("table", "get", "vlan_mapping", "k1=1", exit_code=5)
        self.ctl("call", "vlan_mappingCreate", '{"request": [{"key": {"k1": 65536}}]}', exit_code=2)
        self.ctl("table", "add", "vlan_mapping", lines, "--cut")
        self.ctl("table", "get", "vlan_mapping", "k1=0")

    def test_json_has_one_shape_whether_an_entry_was_there_or_not(self):
        self.start()
        for code, status in ((0, "API_STATUS_OK"), (5, "API_STATUS_ERROR")):
            result = self.ctl("-j", "table", "add", "flow_info", "k1=7", "d1=1", exit_code=code)
            self.assertEqual(json.loads(result.stdout), {"requests": [{"first": 1, "last": 1, "api_status": status}]})
        self.assertEqual(json.loads(result.stderr)["exit_code"], 5)
        fields = json.loads(self.ctl("-j", "table", "get", "flow_info", "k1=7").stdout)["fields"]
        self.assertIn({"field": "d1", "value": 1}, fields)


if __name__ == "__main__":
    unittest.main()
