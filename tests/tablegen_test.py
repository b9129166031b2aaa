"""The table generator: what it refuses, and that the checked-in .proto files follow from the schema.

usage: tablegen_test.py REPOSITORY [unittest options]
"""

import pathlib
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(sys.argv.pop(1)).resolve()
GOOD = """
[[table]]
name = "t"
family = "f"
match = "exact"
key = "2 b6"
actions = [{ id = 0, data = "t", fields = "1 8" }]
"""


def tablegen(schema, *options):
    return subprocess.run([sys.executable, "-B", ROOT / "tools/tablegen", schema, *options],
                          capture_output=True, text=True)


class TablegenTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))

    def test_checked_in_files_follow_from_the_schema(self):
        result = tablegen(ROOT / "schema/quill.toml", "--check", ROOT)
        self.assertEqual(result.returncode, 0, result.stderr)

    def test_stale_and_left_over_protos_are_named(self):
        schema = self.folder / "s.toml"
        schema.write_text(GOOD)
        self.assertEqual(tablegen(schema, "--write", self.folder).returncode, 0)
        self.assertEqual(tablegen(schema, "--check", self.folder).returncode, 0)
        (self.folder / "proto/nyx/tables/old.proto").touch()
        schema.write_text(GOOD.replace("1 8", "1 4"))
        result = tablegen(schema, "--check", self.folder)
        self.assertEqual(result.returncode, 1)
        self.assertIn("f.proto", result.stderr)
        self.assertIn("tables.md", result.stderr)
        self.assertIn("old.proto", result.stderr)
        self.assertNotIn("tbl_svc.proto", result.stderr)

    def test_mistakes_are_refused_with_file_table_and_field(self):
        mistakes = [
            (('key = "2 b6"', 'key = "2 3"'), ["table 't'", "'key'", "k2", "width '3'"]),
            (('"1 8"', '"1 b9"'), ["table 't'", "action 't'", "d2", "width 'b9'"]),
            (('"1 8"', '""'), ["action 't'", "'fields'"]),
            (('key = "2 b6"', ""), ["table 't'", "field 'key'", "missing"]),
            (('key = "2 b6"', "key = 2"), ["table 't'", "field 'key'"]),
            (('"exact"', '"prefix"'), ["table 't'", "field 'match'", "'prefix'"]),
            (('family = "f"', 'family = "f"\nwidth = 3'), ["table 't'", "field 'width'", "unknown"]),
            (("id = 0", "id = 256"), ["action 't'", "field 'id'", "256"]),
            (("id = 0", 'id = "0"'), ["action 't'", "field 'id'"]),
            (('name = "t"', 'name = "T t"'), ["table 'T t'", "field 'name'"]),
            (('name = "t"', ""), ["table number 1", "field 'name'", "missing"]),
            (("actions = [", 'actions = [{ id = 0, data = "u", fields = "1" }, '), ["field 'actions'", "id 0", "twice"]),
            (("actions = [", 'actions = [{ id = 1, data = "t", fields = "1" }, '), ["data 't'", "twice"]),
            (("actions = [{", "actions = [5, {"), ["table 't'"]),
            (("\n[[table]]", GOOD + "[[table]]"), ["table 't' appears twice"]),
            (("[[table]]", "[table]"), ["field 'table'"]),
            (("[[table]]", "[[tables]]"), ["field 'tables'"]),
            (("[[table]]", "[[table"), ["not valid TOML"]),
        ]
        for (old, new), words in mistakes:
            with self.subTest(new=new):
                schema = self.folder / "s.toml"
                self.assertIn(old, GOOD)
                schema.write_text(GOOD.replace(old, new, 1))
                result = tablegen(schema, "--cpp", self.folder / "out")
                self.assertEqual(result.returncode, 2, result.stderr)
                for word in [str(schema), *words]:
                    self.assertIn(word, result.stderr)
                self.assertFalse((self.folder / "out").exists())
        self.assertEqual(tablegen(self.folder / "missing.toml").returncode, 2)


if __name__ == "__main__":
    unittest.main(verbosity=2)
