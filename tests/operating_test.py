"""docs/operating.md, as an operator would follow it on a card: its blocks are run in their order.

Commands of the machine (systemctl, apt, ...) are a stub that looks whether units and packages exist; a restart or reload of
nyx-agent is carried out. Blocks of the language toml are the configuration, blocks of text must stand in what was printed.

usage: operating_test.py FOLDER-OF-PROGRAMS REPOSITORY [unittest options]
"""

import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

from agent import BIN, PATIENCE_S, Agent

ROOT = pathlib.Path(sys.argv.pop(1)).resolve()
BLOCK = re.compile(r"^```(\w+)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
STUBBED = ("ansible-playbook", "apt", "chgrp", "journalctl", "systemctl", "usermod")
STUB = r"""#!/bin/bash
case $(basename "$0") in
    apt)
        version=$(sed -n 's/^project(.* VERSION \([0-9.]*\).*/\1/p' ROOT/CMakeLists.txt)
        for package in $(printf '%s\n' "$@" | grep '\.deb$'); do [[ $package == *_${version}_* ]] || exit 1; done ;;
    systemctl | journalctl)
        for unit in $(printf '%s\n' "$@" | grep -E '\.(service|timer)$'); do
            [ "$(find ROOT/packaging ROOT/host -name "$unit*")" ] || { echo "no $unit" >&2; exit 1; }
        done
        echo "$@" >>FOLDER/systemctl ;;
    ansible-playbook)
        for file in "${@: -1}" hosts.yml; do [ -e "ROOT/packaging/ansible/$file" ] || [[ $file == --* ]] || exit 1; done ;;
esac
"""


class OperatingTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        (self.folder / "bin").mkdir()
        for name in STUBBED:
            path = self.folder / "bin" / name
            path.write_text(STUB.replace("ROOT", str(ROOT)).replace("FOLDER", str(self.folder)))
            path.chmod(0o755)
        (self.folder / "l2seg.jsonl").write_text('{"key": {"k1": 1}, "l2seg_data": {"d1": 5}}\n')
        self.port = "0"
        self.start()

    def start(self, *options):
        """An agent that ends with the test; its options are added to those of Agent."""
        self.agent = self.enterContext(Agent(self.folder, *options, grpc=f"unix:{self.folder}/grpc.sock",
                                             socket_name="agent.sock"))

    def here(self, text):
        """The same text for the folders and the port of this test."""
        for theirs, ours in (("/etc/nyx/", f"{self.folder}/"), ("/run/nyx/", f"{self.folder}/"),
                             ("/run/nyx-read/", f"{self.folder}/"), ("/var/lib/nyx", str(self.folder)),
                             ("0.0.0.0:9550", "localhost:0"), ("card-1.example:9550", f"localhost:{self.port}")):
            text = text.replace(theirs, ours)
        return text

    def restart(self):
        self.agent.stop()
        self.start("--config", str(self.folder / "agent.toml"), "--grpc", "localhost:0")
        self.port = re.search(r":(\d+)$", self.agent.grpc)[1]

    def run_shell(self, text):
        environment = os.environ | {"PATH": f"{self.folder}/bin:{BIN}:{os.environ['PATH']}",
                                    "NYX_GRPC": f"unix:{self.folder}/grpc.sock", "NYX_SOCKET": self.agent.socket}
        result = subprocess.run(["bash", "-euc", self.here(text)], cwd=self.folder, env=environment, capture_output=True,
                                text=True, timeout=PATIENCE_S)
        self.assertEqual(result.returncode, 0, f"{text}\n{result.stdout}\n{result.stderr}")
        return result.stdout

    def carry_out(self):
        asked = self.folder / "systemctl"
        for line in asked.read_text().splitlines() if asked.exists() else []:
            if line == "restart nyx-agent.service":
                self.restart()
            elif line == "reload nyx-agent.service":
                self.agent.process.send_signal(signal.SIGHUP)
        asked.unlink(missing_ok=True)

    def test_an_operator_can_follow_the_page(self):
        blocks = BLOCK.findall((ROOT / "docs/operating.md").read_text(encoding="utf-8"))
        self.assertGreater(len(blocks), 12)
        printed = ""
        for language, text in blocks:
            if language == "toml":
                (self.folder / "agent.toml").write_text(self.here(text))
            elif language == "text":
                self.assertIn(text, printed)
            else:
                printed = self.run_shell(text)
                self.carry_out()

    @unittest.skipUnless(shutil.which("systemd-analyze"), "systemd is not installed")
    def test_units_of_the_metrics_have_no_faults(self):
        units = []
        for name in ("nyx-metrics.service", "nyx-metrics.timer"):
            units.append(self.folder / name)
            text = (ROOT / "packaging/prometheus" / name).read_text(encoding="utf-8")
            units[-1].write_text(text.replace("/usr/bin/nyxctl", str(BIN / "nyxctl")), encoding="utf-8")
        result = subprocess.run(["systemd-analyze", "verify", "--man=no", *units], capture_output=True, text=True)
        self.assertEqual([line for line in result.stderr.splitlines() if "nyx-" in line], [])


if __name__ == "__main__":
    unittest.main(verbosity=2)
