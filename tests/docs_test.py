"""The examples of the documentation, run in their order as a reader would.

docs/clients.md: a block of the language sh, python or cpp is run (cpp: saved as example.cc); a block of text behind it
must stand in what it printed. README.md: what is shown below a "$ nyxctl" must be all that the command prints.

usage: docs_test.py FOLDER-OF-PROGRAMS REPOSITORY BUILD-FOLDER PYTHON [unittest options]
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

from agent import Agent

ROOT, BUILD, PYTHON = (pathlib.Path(sys.argv.pop(1)).absolute() for _ in range(3))
BLOCK = re.compile(r"^```(\w+)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
TIMEOUT_S = 120
os.environ["TZ"] = "UTC"  # which the agent's times are shown in


class DocsTest(unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())
        os.symlink(ROOT / "proto", f"{self.folder}/proto")
        self.agent = self.enterContext(Agent(self.folder, grpc=f"unix:{self.folder}/grpc", socket_name="socket"))

    def run_block(self, language, text):
        if language == "cpp":
            pathlib.Path(self.folder, "example.cc").write_text(text, encoding="utf-8")
            return ""
        command = [PYTHON, "-c", text] if language == "python" else ["bash", "-euc", text]
        environment = os.environ | {"COLUMNS": "80", "PATH": f"{BUILD}/bin:{os.environ['PATH']}", "NYX_BUILD": str(BUILD),
                                    "NYX_GRPC": self.agent.grpc, "NYX_SOCKET": self.agent.socket,
                                    "PYTHONPATH": f"{BUILD}/python"}
        result = subprocess.run(command, cwd=self.folder, env=environment, capture_output=True, text=True,
                                timeout=TIMEOUT_S)
        self.assertEqual(result.returncode, 0, f"{text}\n{result.stderr}")
        return result.stdout

    def test_examples_for_clients_print_what_they_promise(self):
        printed = ""
        blocks = BLOCK.findall((ROOT / "docs/clients.md").read_text(encoding="utf-8"))
        self.assertGreater(len(blocks), 5)
        for language, text in blocks:
            if language == "text":
                self.assertIn(text, printed)
            else:
                printed = self.run_block(language, text)

    def test_first_screen_shows_what_commands_print(self):
        screen = (ROOT / "README.md").read_text(encoding="utf-8").split("## You are")[0]
        shown = re.findall(r"^\$ (nyxctl .*)\n((?:(?!\$ |```).*\n)*)", screen, re.MULTILINE)
        self.assertGreater(len(shown), 3)
        for command, text in shown:
            self.assertEqual(self.run_block("sh", command + " 2>&1 || true").strip(), text.strip(), command)


if __name__ == "__main__":
    unittest.main(verbosity=2)
