"""The Ansible playbook on several agents of this machine, one of which is broken.

Skipped where ansible-playbook is not installed. NYX_FLEET in the environment is the number of agents.

usage: fleet_test.py FOLDER-OF-PROGRAMS [unittest options]
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

PLAYBOOK = pathlib.Path(__file__).resolve().parent.parent / "packaging/ansible"
RESTART = """#!/bin/sh
# What systemctl restart does, for the card in folder $1.
[ ! -e "$1/pid" ] || kill $(cat "$1/pid")
setsid nyx-agent --config "$1/etc/agent.toml" >"$1/log" 2>&1 </dev/null & echo $! >"$1/pid"
"""


@unittest.skipUnless(shutil.which("ansible-playbook"), "ansible-playbook is not installed")
class FleetTest(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        shutil.copytree(PLAYBOOK, self.folder / "ansible")
        self.cards = [f"card-{number}" for number in range(1, int(os.environ.get("NYX_FLEET", "3")) + 1)]
        self.broken = self.cards[len(self.cards) // 2]
        self.addCleanup(self.stop_all)
        (self.folder / "restart").write_text(RESTART)
        (self.folder / "restart").chmod(0o755)
        files = self.folder / "ansible/files"
        entries = "".join(json.dumps({"key": {"k1": number}, "l2seg_data": {"d1": 5}}) + "\n" for number in range(100))
        for card in self.cards:
            (self.folder / card).mkdir()
            (files / card).mkdir(parents=True)
            for name in ("ca.pem", "agent.pem", "agent.key"):
                (files / card / name).write_text(card)
        (files / "l2seg.jsonl").write_text(entries)
        (self.folder / "ansible/hosts.yml").write_text(json.dumps({"cards": {
            "hosts": {card: self.variables(card) for card in self.cards},
            "vars": {"nyx_become": False, "ansible_connection": "local", "nyx_owner": os.getuid(), "nyx_group": os.getgid(),
                     "ansible_python_interpreter": "/usr/bin/python3",
                     "nyx_tables": [{"table": "l2seg", "file": "l2seg.jsonl"}]}}}))

    def variables(self, card):
        folder = self.folder / card
        return {"nyx_etc": f"{folder}/etc", "nyx_grpc": f"unix:{folder}/grpc", "nyx_socket": f"{folder}/socket",
                "nyx_read_socket": f"{folder}/read", "nyx_sysconfig": str(folder),
                "nyx_restart": f"{self.folder}/restart {folder}",
                "nyx_reload": f"sh -c 'kill -HUP $(cat {folder}/pid) || true'"}

    def stop_all(self):
        for card in self.cards:
            pid = self.folder / card / "pid"
            if pid.exists():
                subprocess.run(["kill", pid.read_text().strip()], check=False, stderr=subprocess.DEVNULL)

    def play(self, *options):
        """What Ansible counts, by card: ok, changed, failed."""
        environment = os.environ | {"PATH": f"{agent.BIN}:{os.environ['PATH']}", "ANSIBLE_NOCOLOR": "1",
                                    "ANSIBLE_LOCAL_TEMP": f"{self.folder}/tmp", "ANSIBLE_REMOTE_TEMP": f"{self.folder}/tmp"}
        result = subprocess.run(["ansible-playbook", "-i", "hosts.yml", "cards.yml", "--skip-tags", "install", *options],
                                cwd=self.folder / "ansible", env=environment, capture_output=True, text=True)
        recap = re.findall(r"^(card-\d+) +: ok=(\d+) +changed=(\d+) .*failed=(\d+)", result.stdout, re.MULTILINE)
        return result, {card: (int(ok), int(changed), int(failed)) for card, ok, changed, failed in recap}

    def entries(self, card):
        result = agent.run("nyxctl", "--grpc", f"unix:{self.folder}/{card}/grpc", "table", "get", "l2seg", "k1=99")
        return result.returncode == 0

    def test_first_failed_card_stops_the_rest_and_a_second_run_changes_nothing(self):
        result, recap = self.play()
        self.assertEqual(result.returncode, 0, result.stdout[-3000:])
        self.assertEqual([recap[card][1] > 0 and self.entries(card) for card in self.cards], [True] * len(self.cards))
        result, recap = self.play()
        self.assertEqual({counts[1:] for counts in recap.values()}, {(0, 0)}, result.stdout[-3000:])
        # A new table, and a card whose debug socket is gone.
        with open(self.folder / "ansible/files/l2seg.jsonl", "a", encoding="utf-8") as file:
            file.write('{"key": {"k1": 1000}, "l2seg_data": {"d1": 5}}\n')
        (self.folder / self.broken / "socket").unlink()
        result, recap = self.play("-e", json.dumps({"batches": [1, 1, 1] if len(self.cards) < 4 else [1, 5, "20%"]}))
        self.assertNotEqual(result.returncode, 0)
        reached = [card for card in self.cards if card in recap]
        self.assertEqual([card for card in reached if recap[card][2]], [self.broken], result.stdout[-3000:])
        self.assertLess(len(reached), len(self.cards))
        self.assertIn(self.broken, reached)


if __name__ == "__main__":
    unittest.main(verbosity=2)
