"""What the build can't see: who includes whom, and which symbols the product offers and needs.

usage: structure_test.py REPOSITORY LIBSVC-QUILL NYX-TBL-H [unittest options]
"""

import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(sys.argv.pop(1)).resolve()
LIBRARY = sys.argv.pop(1)
TABLES = pathlib.Path(sys.argv.pop(1))

# Folder -> the folders whose headers it may include, besides its own. The folders nyx and nyx/types hold messages.
MAY_INCLUDE = {
    "base": set(),
    "nyx/types": set(),
    "agent_api": set(),
    "svc/common": {"agent_api", "base", "nyx/types"},
    "svc/channel": {"svc/common", "agent_api", "base", "nyx/types", "nyx"},
    "svc": {"svc/common", "agent_api", "base", "nyx/types", "nyx"},
    "sim/proto": set(),
    "sim/framework": {"agent_api", "base"},
    "sim/card": {"agent_api", "base"},
    "sim/faults": {"sim/card", "agent_api", "base"},
    "sim/api": {"sim/card", "sim/faults", "agent_api", "base"},
    "sim/scenario": {"sim/api", "sim/card", "sim/faults", "agent_api", "base"},
    "host": {"svc", "svc/channel", "sim/api", "sim/card", "sim/faults", "sim/framework", "sim/proto", "sim/scenario", "agent_api", "base", "nyx/types", "nyx"},
    "client/core": {"base", "nyx/types", "nyx"},
    "client/table": {"client/core", "base", "nyx/types", "nyx"},
    "client/view": {"client/core", "client/table", "base", "nyx/types", "nyx"},
    "client/cli": {"sim/proto", "client/core", "client/table", "client/view", "base", "nyx/types", "nyx"},
}

# Records of agent_api/ that a compiler can neither pack nor prove to have no gaps, and why.
NOT_PACKED = {
    "lldp_if_status_s": "holds std::string",
    "nyx_if_lldp_status_s": "holds std::string",
    "nyx_table_stats_s": "holds std::string",
    "link_event_buffer_s": "holds an atomic",
    "link_event_tracer_s": "holds an atomic",
}

OWN_FOLDER = re.compile(r'#include "((?:base|agent_api|svc|sim|host|client|nyx|tests)/[^"]+)"')


class StructureTest(unittest.TestCase):
    def test_no_include_crosses_a_wall(self):
        for folder, allowed in MAY_INCLUDE.items():
            for source in sorted((ROOT / folder).glob("*.*")):
                for header in OWN_FOLDER.findall(source.read_text(encoding="utf-8")):
                    owner = str(pathlib.PurePath(header).parent)
                    while owner not in MAY_INCLUDE and "/" in owner:
                        owner = str(pathlib.PurePath(owner).parent)
                    self.assertIn(owner, allowed | {folder}, f"{source.relative_to(ROOT)} includes {header}")

    def test_headers_that_cost_seconds_stay_where_they_are_needed(self):
        allowed = {"toml++/toml.h": set(),
                   "nlohmann/json.hpp": {"client/core/json_dom.h"}, "simdjson.h": {"client/core/json_reader.cc"}}
        for source in sorted((ROOT / "client").rglob("*.*")):
            name, text = str(source.relative_to(ROOT)), source.read_text(encoding="utf-8")
            for header, users in allowed.items():
                self.assertFalse(f"<{header}>" in text and name not in users, f"{name} includes {header}")
            self.assertFalse("<CLI/" in text and not name.startswith("client/cli/"), f"{name} includes CLI11")

    def test_product_offers_and_needs_what_is_written_down(self):
        with tempfile.TemporaryDirectory() as folder:
            subprocess.run([ROOT / "tools/symbol_lists", LIBRARY, folder], check=True)
            for name, advice in (("svc/exports.txt", "callers break by what is gone: raise NYX_SOVERSION"),
                                 ("agent_api/operations.txt", "agents must supply what is new")):
                found = pathlib.Path(folder, pathlib.Path(name).name).read_text(encoding="utf-8")
                self.assertEqual(found.splitlines(), (ROOT / name).read_text(encoding="utf-8").splitlines(),
                                 f"{advice}; ./dev symbols writes {name} anew")

    def test_product_has_no_trace_of_the_stand_ins_service(self):
        messages = pathlib.Path(LIBRARY).with_name("libnyx_proto.so")
        symbols = subprocess.run(["nm", "-DC", messages], capture_output=True, text=True, check=True).stdout
        self.assertIn("nyx::PortGetRequest", symbols)
        self.assertNotRegex(symbols, "nyx::Fault")

    def test_records_exchanged_with_the_agent_have_no_gaps(self):
        headers = [*sorted((ROOT / "agent_api").glob("*.h")), TABLES]
        code = "\n".join(header.read_text(encoding="utf-8") for header in headers)
        records = re.findall(r"^struct (\w+_s_?) \{.*?^\}( __attribute__\(\(packed\)\))?;", code, re.M | re.S)
        self.assertGreater(len(records), 100)
        proved = re.findall(r"^static_assert\(std::has_unique_object_representations_v<(\w+)>\);", code, re.M)
        self.assertEqual({name for name, packed in records if not packed} - set(proved), NOT_PACKED.keys())

    def test_changes_start_with_the_version_that_is_built(self):
        version = re.search(r"project\(\w+ VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text(encoding="utf-8"))[1]
        newest = re.search(r"^## (.*)$", (ROOT / "CHANGELOG.md").read_text(encoding="utf-8"), re.MULTILINE)[1]
        self.assertEqual(newest, version)

    def test_operations_are_those_that_the_contracts_declare(self):
        operations = (ROOT / "agent_api/operations.txt").read_text(encoding="utf-8").splitlines()
        needed = {re.sub(r"\(.*|typeinfo for ", "", operation).split("::")[-1] for operation in operations}
        headers = [*sorted((ROOT / "agent_api").glob("*.h")), TABLES]
        code = re.sub(r"//.*|static_assert.*|__attribute__.*", "", "\n".join(h.read_text(encoding="utf-8") for h in headers))
        declared = set(re.findall(r"\b(\w+)\((?:[^();]|\([^()]*\))*\)(?: const| override)?;", code))
        declared |= set(re.findall(r"(?:extern|thread_local) .*\*(\w+)", code))
        self.assertEqual(needed, declared - {"str", "valid", "snprintf"})  # inline


if __name__ == "__main__":
    unittest.main(verbosity=2)
