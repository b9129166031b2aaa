"""How many instructions the conversion of one full entry to its record takes, for every table.

Counted by callgrind: a count is the same in every run. What was counted is printed as a table. The way back is
not counted here: nearly all of it is protobuf's allocation of messages and strings, which ./dev bench measures.

usage: instruction_count_test.py NYX-INSTRUCTIONS SCHEMA [unittest options]
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile
import tomllib
import unittest

PROGRAM, SCHEMA = sys.argv.pop(1), pathlib.Path(sys.argv.pop(1))
TIMEOUT_S = 120


def counts():
    """{table: instructions of its last conversion}; earlier ones warm up."""
    with tempfile.TemporaryDirectory() as folder:
        # With the same pattern in both options, callgrind heeds only the second one.
        command = ["valgrind", "--tool=callgrind", f"--callgrind-out-file={folder}/out", "--combine-dumps=yes",
                   "--compress-strings=no", "--compress-pos=no", "--toggle-collect=void bench::to_record<*",
                   "--dump-after=*bench::to_record<*", PROGRAM]
        result = subprocess.run(command, env={"PATH": os.environ["PATH"]}, capture_output=True, text=True,
                                timeout=TIMEOUT_S)
        if result.returncode:
            raise RuntimeError(result.stderr)
        parts = pathlib.Path(folder, "out").read_text(encoding="utf-8").split("\npart: ")
    found = {}
    for part in parts:
        if call := re.search(r"--dump-after=void bench::to_record<nyx_tbl::(\w+)_binding", part):
            found[call[1]] = int(re.search(r"^summary: (\d+)", part, re.MULTILINE)[1])
    return found


def widths(table):
    """Of all fields of a full entry, as the schema writes them."""
    data = table["actions"][0]["fields"].split() if table["actions"] else []
    return table["key"].split() * (2 if table["match"] == "ternary" else 1) + data


class InstructionCountTest(unittest.TestCase):
    def test_conversions_stay_below_their_bounds(self):
        counted = counts()
        print(f"\n{'table':24}{'fields':>7}{'to record':>10}{'a field':>8}{'bound':>7}")
        for table in tomllib.loads(SCHEMA.read_text(encoding="utf-8"))["table"]:
            name, fields = table["name"], widths(table)
            # A quarter above what was counted where code comes closest.
            bound = 25 + 3.5 * len(fields) + 8 * sum(width.startswith("b") for width in fields)
            print(f"{name:24}{len(fields):7}{counted[name]:10}{counted[name] / len(fields):8.1f}{bound:7.0f}")
            with self.subTest(table=name):
                self.assertLessEqual(counted[name], bound)


if __name__ == "__main__":
    unittest.main(verbosity=2)
