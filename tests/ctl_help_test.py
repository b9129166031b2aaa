"""The help texts of nyxctl: they fit a terminal, and their examples work on the stand-in as it is shipped.

usage: ctl_help_test.py FOLDER-OF-PROGRAMS [unittest options]
"""

import os
import pathlib
import re
import subprocess
import tempfile
import unittest

import agent

WIDTH = 80
EXAMPLES = re.compile(r"^Examples?:\n((?:  .*\n?)*)", re.MULTILINE)

# What a page takes for granted.
ENTRY = "nyxctl table add flow_info k1=7 d1=5"
INTERFACES = ["nyxctl add interface uplink id=0a port_id=01", "nyxctl add interface l3 id=0b prefix=10.0.0.1/24",
              "nyxctl add interface loopback id=0c prefix=10.0.0.2/32"]
PREPARED = {
    "show table": [ENTRY], "watch table": [ENTRY], "table get": [ENTRY],
    "table diff": ["nyxctl table apply flow_info entries.jsonl"], "table apply": [ENTRY],
    "table update": [ENTRY, "nyxctl table add flow_info @entries.jsonl"],
    "table del": ["nyxctl table add flow_info @entries.jsonl", "nyxctl table add flow_info k1=8", ENTRY],
    "fault clear": ["nyxctl fault add nyx_tbl_flow_create:full=1000"],
    "del": INTERFACES, "del interface": INTERFACES,
}
FILES = {
    "entries.json": '{"request": [{"key": {"k12": 80}}]}',
    "entries.jsonl": '{"key": {"k1": 9}, "flow_info_a_data": {"d1": 5}}\n',
    "keys.json": '{"key": []}',
    "keys.jsonl": '{"k1": 7}\n',
    "entries.csv": "k1,d1\n7,6\n",
    "new.csv": "k1,d1\n7,6\n",
    "old.csv": "k1\n7\n",
    "my.toml": 'title = "mine"\n',
    "before.json": "{}",
    "after.json": "{}",
}


def pages(path=()):
    """The help of every command by the words of its path."""
    text = agent.run("nyxctl", *path, "--help").stdout
    found = {" ".join(path): text}
    for name in re.findall(r"^  (\S+)", text.partition("Subcommands:\n")[2].partition("\n\n")[0], re.MULTILINE):
        found |= pages((*path, name))
    return found


def commands(page):
    """The examples of a page as they are typed; what some say about themselves is left out, and watch ends."""
    for block in EXAMPLES.findall(page):
        for command in re.findall(r"^  (\S(?:.*\\\n)*.*)$", block, re.MULTILINE):
            command = re.sub(r"(?<=\S) {2,}[a-z].*$", "", command)
            command = command.removesuffix(" | source")  # as only fish has it
            yield command + (" --count 1" if " watch " in command and "--count" not in command else "")


class HelpTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.pages = pages()

    def test_every_line_fits_the_terminal(self):
        self.assertGreater(len(self.pages), 50)
        wide = [(path, line) for path, page in self.pages.items() for line in page.splitlines() if len(line) > WIDTH]
        self.assertEqual(wide, [])

    def run_all(self, typed):
        """Runs commands one after the other on an agent of their own; below its folder is what they write to /etc or /var."""
        with tempfile.TemporaryDirectory() as folder:
            for name, text in FILES.items():
                pathlib.Path(folder, name).write_text(text, encoding="utf-8")
            with agent.Agent(folder, "--fault-service") as host:
                environment = os.environ | {"PATH": f"{agent.BIN}:{os.environ['PATH']}", "NYX_GRPC": host.grpc,
                                            "NYX_SOCKET": host.socket}
                for command in typed:
                    for target in re.findall(r"(?<= )/(?:etc|var)/\S+", command):
                        pathlib.Path(folder + target).parent.mkdir(parents=True, exist_ok=True)
                        command = command.replace(target, folder + target)
                    result = subprocess.run(["bash", "-c", command], cwd=folder, env=environment, capture_output=True,
                                            text=True, timeout=agent.PATIENCE_S)
                    self.assertEqual((command, result.returncode, result.stderr[-500:]), (command, 0, result.stderr[-500:]))

    def test_every_example_works_as_it_is_written(self):
        ran = 0
        for path, page in self.pages.items():
            typed = list(commands(page))
            ran += len(typed)
            with self.subTest(path):
                self.run_all(PREPARED.get(path, []) + typed if typed else [])
        self.assertGreater(ran, 90)


if __name__ == "__main__":
    unittest.main()
