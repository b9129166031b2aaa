"""nyxctl's short commands, its fields without JSON, its completion and its manuals.

usage: ctl_alias_test.py FOLDER-OF-PROGRAMS [unittest options]
"""

import json
import pathlib
import shutil
import subprocess
import unittest

import agent
from agent import BIN, PATIENCE_S

NOWHERE = "unix:/nonexistent/nyx.sock"
COMPLETE = """source <("$0" completion bash); COMP_WORDS=("$0" "$@"); COMP_CWORD=$#; _nyxctl
printf '%s\\n' "${COMPREPLY[@]}" """
# Both run the script's function with what their line editors would set; zsh's compadd exists only there.
COMPLETE_ZSH = """compadd() { while [[ $1 != -- ]]; do shift; done; shift; print -rl -- "$@" }
_files() { print FILES }
source <("$0" completion zsh); words=("$0" "$@"); CURRENT=$#words; PREFIX=$words[-1]; _nyxctl"""
COMPLETE_FISH = """set -gx PATH (dirname $argv[1]) $PATH; nyxctl completion fish | source
complete -C (string join -- ' ' nyxctl $argv[2..-1])"""
KINDS = {
    "uplink": ["port_id=01"],
    "l3": ["prefix=10.0.0.1/24", "prefix=2001:db8::1/64", "encap.type=dot1q", "encap.value.val_vlan=7"],
    "loopback": ["prefix=10.0.0.2/32"],
    "control": ["prefix=10.0.0.3/24", "mac_address=00:1a:2b:3c:4d:5e"],
}


class AliasTest(agent.SharedAgentTestCase):
    def ctl(self, *arguments, code=0, grpc=None):
        result = agent.run("nyxctl", "--grpc", grpc or self.agent.grpc, "--socket", self.agent.socket, *arguments)
        self.assertEqual(result.returncode, code, result.stderr)
        return result

    def call(self, *arguments):
        return json.loads(self.ctl("call", *arguments).stdout)

    def interface(self, key):
        return self.call("InterfaceGet", f"id={key}")["response"][0]["spec"]

    def ports(self):
        return {port["spec"]["port_number"]: port["spec"] for port in self.call("PortGet")["response"]}

    def test_set_port_changes_what_is_named_and_keeps_the_rest(self):
        before = self.ports()
        changed = self.ctl("set", "port", "1", "number_a=1234", "setting_a=none", "--labels", "none").stdout
        self.assertIn(f"number_a {before[1]['number_a']} -> 1234\n", changed)
        wanted = before | {1: before[1] | {"number_a": 1234, "setting_a": "PORT_SETTING_NONE"}}
        self.assertEqual(self.ports(), wanted)
        self.ctl("set", "port", before[1]["id"], f"number_a={before[1]['number_a']}", "flag_a=no")
        self.assertEqual(self.ports()[1]["number_a"], before[1]["number_a"])

    def test_refusals_name_what_is_wrong_and_send_nothing(self):
        for arguments, text in ((["set", "port", "1", "nmber_a=1"], "nearest: number_a"),
                                (["set", "port", "1", "id="], "can't be changed"),
                                (["set", "port", "", "flag_a=no"], 'invalid id ""'),
                                (["del", "interface", "0a", ""], 'invalid id ""'),
                                (["add", "interface", "loopback", "prefix=10.0.0.1/32"], "give id="),
                                (["set", "recovery", "onn"], "give one of on, off"),
                                (["set", "clock", "cpu=1"], "core=MHZ"),
                                (["set", "trace-level", "loud"], "give one of none, error"),
                                (["set", "foo"], "nyxctl set --help"), (["set"], "give one of port"),
                                (["--timeout", "0", "status"], "give 0.001 to 1000000"),
                                (["watch", "ports", "-n", "1h"], 'invalid number of seconds "1h"'),
                                (["show", "sessions", "0", "-1"], "see nyxctl show sessions --help"),
                                (["add", "interface", "l4", "id=1"], "nearest: l3"),
                                (["add", "interface", "l3", "encap.value.val_vlan=65536"], "largest is 65535"),
                                (["call", "InterfaceGet", "id=0"], "odd number of hex digits")):
            self.assertIn(text, self.ctl(*arguments, code=2, grpc=NOWHERE).stderr)
        self.ctl("set", "quiesce", "on", code=3, grpc=NOWHERE)

    def test_what_the_agent_refuses_is_exit_code_5(self):
        for arguments, text in ((["set", "port", "99", "number_a=1"], "known: 1, 2"),
                                (["clear", "port-stats", "ffff"], "known: 1, 2"),
                                (["clear", "lif-stats", "ffff"], "host0-lif"),
                                (["set", "clock", "core=1"], "INVALID_ARG"),
                                (["del", "interface", "00" * 17], "host0"),
                                (["del", "interface", "ffff"], "host0")):
            self.assertIn(text, self.ctl(*arguments, code=5).stderr)

    def test_interfaces_of_each_kind_come_change_and_go(self):
        for number, (kind, fields) in enumerate(KINDS.items(), start=0xA1):
            self.ctl("add", "interface", kind, f"id={number:x}", "admin_status=up", *fields)
            created = self.interface(f"{number:x}")
            self.assertIn(f"{kind}{'' if kind == 'uplink' else '_if'}_spec", created)
            self.ctl("set", "interface", kind, f"id={number:x}", "admin_status=down", *fields)
            self.assertEqual(self.interface(f"{number:x}"), created | {"admin_status": "STATE_DOWN"})
        ids = [f"{number:x}" for number in range(0xA1, 0xA1 + len(KINDS))]
        self.ctl("del", "interface", *ids)
        for key in ids:
            self.ctl("call", "InterfaceGet", f"id={key}", code=5)
        self.ctl("add", "interface", "host", "id=a9", "name=h9", "mac_address=00:1a:2b:3c:4d:5e")
        self.assertIn("h9", (self.agent.folder / "hostif_mac.json").read_text())

    def test_set_interface_changes_what_is_named_and_keeps_the_rest(self):
        self.start()
        self.ctl("add", "interface", "l3", "id=b1", "admin_status=up", *KINDS["l3"])
        before = self.interface("b1")
        changed = self.ctl("set", "interface", "l3", "id=b1", "admin_status=down", "prefix=10.9.0.1/24",
                           "--labels", "none").stdout
        self.assertIn("admin_status up -> down\n", changed)
        prefix = [{"addr": {"af": "IP_AF_INET", "v4_addr": "10.9.0.1"}, "len": 24}]
        wanted = before | {"admin_status": "STATE_DOWN", "l3_if_spec": before["l3_if_spec"] | {"prefix": prefix}}
        self.assertEqual(self.interface("b1"), wanted)
        self.assertIn('"b1" is l3, not uplink', self.ctl("set", "interface", "uplink", "id=b1", code=2).stderr)
        self.assertEqual(self.ctl("set", "interface", "uplink", "id=uplink1", "admin_status=down").stdout,
                         "admin_status up -> down\n")

        key = next(row["spec"]["id"] for row in self.call("InterfaceGet")["response"]
                   if row["status"].get("host_if_status", {}).get("name") == "host0")
        before = self.interface(key)
        self.assertEqual(self.ctl("set", "interface", "host", "name=host0", "host_flag_1=yes", "--labels", "none").stdout,
                         "host_if_spec.host_flag_1 no -> yes\n")
        changed = before | {"host_if_spec": before["host_if_spec"] | {"host_flag_1": True}}
        self.assertEqual(self.interface(key), changed)
        macs = pathlib.Path(self.folder, "hostif_mac.json")
        self.assertFalse(macs.exists())
        self.ctl("set", "interface", "host", "name=host0", "mac_address=02:00:00:00:00:09")
        bogus = ("set", "interface", "host", "name=bogus", "mac_address=02:00:00:00:00:08")
        self.assertIn("--new stores", self.ctl(*bogus, code=5).stderr)
        self.assertNotIn("bogus", macs.read_text())
        self.ctl(*bogus, "--new")
        self.assertIn("bogus", macs.read_text())
        self.assertIn("host0", macs.read_text())

    def test_switches_and_resets_reach_the_agent(self):
        self.ctl("set", "recovery", "off")
        self.assertNotEqual(self.call("ProcessRecoveryGet")["recovery_status"], "RECOVERY_STATUS_ENABLED")
        self.ctl("set", "recovery", "on")
        self.assertEqual(self.call("ProcessRecoveryGet")["recovery_status"], "RECOVERY_STATUS_ENABLED")
        self.ctl("set", "clock", "p4=1137", "core=900")
        for arguments in (["set", "trace-level", "debug"], ["set", "statistics", "lifs", "off"],
                          ["set", "quiesce", "off"], ["clear", "drop-stats"], ["clear", "lif-stats"],
                          ["clear", "lif-stats", "host0-lif"]):
            self.assertEqual(json.loads(self.ctl(*arguments, "-j").stdout), {"status": "ok"})

    def test_clear_port_stats_clears_one_port(self):
        def counts():
            return [sum(int(entry["count"]) for entry in port["stats"]["mac_stats"])
                    for port in self.call("PortGet")["response"][:2]]
        first, second = counts()
        self.ctl("clear", "port-stats", "1")
        cleared = counts()
        self.assertLess(cleared[0], first)
        self.assertGreaterEqual(cleared[1], second)

    def test_fields_complete_the_json_of_a_call_and_canonical_json_is_protobufs(self):
        self.ctl("call", "flow_infoCreate", '{"request": [{"key": {"k1": 5}}]}',
                 "request[0].flow_info_a_data.d2=0102030405060708")
        got = json.loads(self.ctl("call", "flow_infoGet", "key[0].k1=5", "--canonical").stdout)
        self.assertEqual(got["apiStatus"], "API_STATUS_OK")
        self.assertEqual(got["response"][0]["spec"]["flowInfoAData"]["d2"], "AQIDBAUGBwg=")

    def test_template_of_a_method_is_a_request_for_it(self):
        result = self.ctl("describe", "LifGet", "--template", grpc=NOWHERE)
        self.ctl("call", "LifGet", result.stdout)
        result = self.ctl("describe", "InterfaceCreate", "--template", grpc=NOWHERE)
        self.assertIn("# request[0].ifinfo: uplink_spec, or", result.stderr)

    def test_describe_has_the_comments_of_the_contract_before_what_they_are_about(self):
        for symbol, text in (("PortUpdate", "\n// Replaces all settings of one port."),
                             ("PortLinkSMRecord", "\n  // the state entered\n  .nyx.PortLinkSMState state = 3;\n"),
                             ("FaultClear", "\n// with gRPC status NOT_FOUND"),
                             ("HealthCheckRequest", "message HealthCheckRequest {")):
            self.assertIn(text, self.ctl("describe", symbol, grpc=NOWHERE).stdout)

    def complete(self, *words):
        result = subprocess.run(["bash", "-c", COMPLETE, BIN / "nyxctl", *words], capture_output=True, text=True,
                                timeout=PATIENCE_S, check=True)
        self.assertEqual(result.stderr, "")
        return result.stdout.split()

    def test_completion_offers_what_can_stand_there(self):
        for words, wanted in ((["descr"], "describe"), (["call", "flow_infoC"], "flow_infoCreate"),
                              (["--grpc", "unix", ":", "/x", "call", "PortG"], "PortGet"),
                              (["call", "nyx.PortSvc.PortG"], "nyx.PortSvc.PortGet"),
                              (["list", "PortS"], "PortSvc"), (["set", "--time"], "--timeout"),
                              (["set", "trace-level", "verb"], "verbose"), (["add", "interface", "loop"], "loopback"),
                              (["set", "port", "1", "flag_a", "=", "y"], "yes"),
                              (["call", "flow_infoCreate", "request[0].ke"], "request[0].key."),
                              (["show", "table", "flow_inf"], "flow_info"),
                              (["table", "add", "flow_info", "k1"], "k1="),
                              (["debug", "--args", "IntrDump"], "IntrDumpArgs"), (["debug", "tabl"], "tables")):
            self.assertEqual(self.complete(*words), [wanted])
        self.assertNotIn("__complete", self.complete(""))
        self.assertIn("completion", self.complete(""))

    def test_zsh_and_fish_offer_the_same(self):
        for words in (["descr"], ["call", "flow_infoC"], ["set", "trace-level", "v"], ["set", "port", "1", "flag_a=y"],
                      ["set", "port", "1", "set"], ["--grpc", self.agent.grpc, "show", "port", ""]):
            wanted = sorted(agent.run("nyxctl", "__complete", "--", *words).stdout.split())
            self.assertGreater(len(wanted), 0)
            for shell in (["zsh", "-fc", COMPLETE_ZSH], ["fish", "--no-config", "-c", COMPLETE_FISH, "--"]):
                result = subprocess.run([*shell, BIN / "nyxctl", *words], capture_output=True, text=True,
                                        timeout=PATIENCE_S, check=True)
                self.assertEqual(sorted(line.split("\t")[0] for line in result.stdout.split()), wanted, result.stderr)

    def test_objects_complete_from_the_agent_and_without_one_to_nothing(self):
        at = ["--grpc", self.agent.grpc]
        for words, wanted in ((["show", "port", ""], "1 2 3"), (["show", "interface", "host"], "host0 host1"),
                              (["clear", "lif-stats", "mgm"], "mgmt-lif"), (["del", "interface", "host0", "host1"], "host1"),
                              (["set", "port", "0a000000-0000-4000-8000-000000010002"], "0a000000-0000-4000-8000-000000010002")):
            self.assertEqual(agent.run("nyxctl", "__complete", "--", *at, *words).stdout.split(), wanted.split())
        self.assertEqual(agent.run("nyxctl", "__complete", "--", "--grpc", NOWHERE, "show", "port", "").stdout.split(), [])

    def test_objects_are_found_by_the_beginning_of_their_ids(self):
        self.ctl("show", "port", "0A0000000000400080000000000100 03".replace(" ", ""))
        self.ctl("add", "interface", "loopback", "id=c5d6", "prefix=10.9.0.1/32")
        self.ctl("show", "interface", "c5d60")
        self.assertIn("several ports", self.ctl("show", "port", "0a0", code=5).stderr)
        self.ctl("del", "interface", "c")

    def test_manuals_name_every_command_and_have_no_faults(self):
        manuals = [BIN.parent / "man" / name for name in ("man1/nyxctl.1", "man8/nyx-agent.8")]
        for command in ("call", "set port", "del interface", "completion bash"):
            self.assertIn(f".SS {command}\n", manuals[0].read_text())
        self.assertIn("64+ gRPC status of the call plus 64", manuals[0].read_text())
        if shutil.which("groff"):
            for manual in manuals:
                shown = subprocess.run(["groff", "-man", "-Tutf8", "-ww", manual], capture_output=True, text=True)
                self.assertEqual((shown.returncode, shown.stderr), (0, ""))


if __name__ == "__main__":
    unittest.main(verbosity=2)
