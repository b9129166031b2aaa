"""How many instructions the conversion of one full entry takes, for every table, to its record and from it.

Counted by callgrind: a count is the same in every run. What was counted is printed as a table, and for one of the
P4 tables function by function.

usage: instruction_count_test.py NYX-INSTRUCTIONS SCHEMA [unittest options]
"""

import collections
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import tomllib
import unittest

PROGRAM, SCHEMA = sys.argv.pop(1), pathlib.Path(sys.argv.pop(1))
TO, FROM = "to_record", "from_record"
DETAILED = "flow"
TIMEOUT_S = 120


class Entry:
    def __init__(self, table):
        masks = table["match"] == "ternary"
        data = table["actions"][0]["fields"].split() if table["actions"] else []
        widths = table["key"].split() * (1 + masks) + data
        self.name = table["name"]
        self.messages = 1 + masks + bool(data)
        self.fields = len(widths)
        self.strings = sum(width.startswith("b") for width in widths)
        self.heap_strings = widths.count("b16")  # the others fit into a std::string itself

    def bounds(self):
        """A quarter above what was counted where code comes closest. Messages and strings are made by protobuf."""
        return {
            TO: 25 + 3.5 * self.fields + 8 * self.strings,
            FROM: 210 * self.messages + 3 * self.fields + 215 * self.strings + 100 * self.heap_strings,
        }


class Profile:
    """Of one call: instructions by function, with and without those of what it calls."""

    COST = re.compile(r"[+-]?\d+ (\d+)$")

    def __init__(self, text):
        self.total = int(re.search(r"^summary: (\d+)", text, re.MULTILINE)[1])
        self.own, self.calls = collections.Counter(), collections.defaultdict(collections.Counter)
        function = callee = None
        for line in text.splitlines():
            if line.startswith("fn="):
                function = line[3:]
            elif line.startswith("cfn="):
                callee = line[4:]
            elif cost := self.COST.match(line):
                if callee:
                    self.calls[function][callee] += int(cost[1])
                else:
                    self.own[function] += int(cost[1])
                callee = None

    def below(self, root):
        """The functions that the root calls, and theirs: callgrind lists its callers too."""
        found = [root]
        for function in found:
            found += [callee for callee in self.calls[function] if callee not in found]
        return found

    def inclusive(self, function):
        return self.own[function] + self.calls[function].total()


def profiles():
    """{(table, direction): (function, profile of its last call)}; earlier calls warm up."""
    with tempfile.TemporaryDirectory() as folder:
        # With the same pattern in both options, only the second one is heeded.
        command = ["valgrind", "--tool=callgrind", f"--callgrind-out-file={folder}/out", "--combine-dumps=yes",
                   "--compress-strings=no", "--compress-pos=no", "--toggle-collect=void bench::*_record<*",
                   "--dump-after=*bench::*_record<*", PROGRAM]
        result = subprocess.run(command, env={"PATH": os.environ["PATH"]}, capture_output=True, text=True,
                                timeout=TIMEOUT_S)
        if result.returncode:
            raise RuntimeError(result.stderr)
        parts = pathlib.Path(folder, "out").read_text(encoding="utf-8").split("\npart: ")
    found = {}
    for part in parts:
        if call := re.search(r"--dump-after=(void bench::(\w+)<nyx_tbl::(\w+)_binding.*)", part):
            found[call[3], call[2]] = (call[1], Profile(part))
    return found


class InstructionCountTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.entries = [Entry(table) for table in tomllib.loads(SCHEMA.read_text(encoding="utf-8"))["table"]]
        cls.profiles = profiles()

    def print_functions(self, direction):
        root, profile = self.profiles[DETAILED, direction]
        print(f"\n{DETAILED}, {direction}: instructions of a function with all that it calls, and its own")
        for function in sorted(profile.below(root), key=profile.inclusive, reverse=True)[:20]:
            print(f"{profile.inclusive(function):7}{profile.own[function]:7}  {function[:100]}")

    def test_conversions_stay_below_their_bounds(self):
        print(f"\n{'table':24}{'fields':>7}" + f"{'to record':>10}{'a field':>8}{'bound':>7}"
              + f"{'from record':>13}{'a field':>8}{'bound':>7}")
        for entry in self.entries:
            counts = {direction: self.profiles[entry.name, direction][1].total for direction in (TO, FROM)}
            row = f"{entry.name:24}{entry.fields:7}"
            for (direction, bound), width in zip(entry.bounds().items(), (10, 13)):
                row += f"{counts[direction]:{width}}{counts[direction] / entry.fields:8.1f}{bound:7.0f}"
                with self.subTest(table=entry.name, direction=direction):
                    self.assertLessEqual(counts[direction], bound)
            print(row)
        for direction in (TO, FROM):
            self.print_functions(direction)


if __name__ == "__main__":
    unittest.main(verbosity=2)
