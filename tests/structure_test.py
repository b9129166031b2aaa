"""What the build can't see: who includes whom, and which symbols the product offers and needs.

usage: structure_test.py REPOSITORY LIBSVC-QUILL [unittest options]
"""

import pathlib
import re
import subprocess
import sys
import unittest

ROOT = pathlib.Path(sys.argv.pop(1)).resolve()
LIBRARY = sys.argv.pop(1)

# Folder -> the folders whose headers it may include, besides its own. The folders nyx and nyx/types hold messages.
MAY_INCLUDE = {
    "base": set(),
    "nyx/types": set(),
    "agent_api": set(),
    "svc/common": {"agent_api", "base", "nyx/types"},
    "svc/channel": {"svc/common", "agent_api", "base", "nyx/types", "nyx"},
    "svc": {"svc/common", "agent_api", "base", "nyx/types", "nyx"},
    "sim": {"agent_api", "base"},
    "host": {"svc", "svc/channel", "sim", "agent_api", "base", "nyx/types", "nyx"},
    "client": {"client/table", "client/view", "base", "nyx/types", "nyx"},
    "client/table": {"client", "base", "nyx/types", "nyx"},
    "client/view": {"client", "client/table", "base", "nyx/types", "nyx"},
}

OWN_FOLDER = re.compile(r'#include "((?:base|agent_api|svc|sim|host|client|nyx|tests)/[^"]+)"')

SERVICES = {"NyxTblSvcImpl", "IfSvcImpl", "LifClassicSvcImpl", "PortSvcImpl", "SystemSvcImpl", "PipelineSvcImpl",
            "DebugSvcImpl"}

# What the product may offer besides its service classes.
OFFERED = re.compile(r"core::svc_server_|handle_svc_req\(|nyx_svc_|nyx_\w+_proto_to_api_spec\(|"
                     r"ippfx_proto_spec_to_api_spec\(|nyx_\w+_to_(config_)?proto\(|macaddr2str\(|"
                     r"marvell_get_port_info\(|host_if_mac_update\(|g_host_if_mac_file\[|sdk::operator<<\(|(sdk|tbl_svc)_ret_to_api_status\(")

# What the product may need besides the agent's libraries.
LIBRARIES = re.compile(r"google::|grpc|absl::|spdlog::|fmt::|std::|nyx::|types::|__cxa|__gxx|_ITM|__gmon|_Unwind|"
                       r"operator (new|delete)|(vtable|typeinfo|VTT) for (nyx::|__cxx|grpc|google)|descriptor_table_")


def symbols(option):
    """Names of the dynamic symbols; those with a version belong to the C and C++ libraries."""
    lines = subprocess.run(["nm", "-DC", option, LIBRARY], capture_output=True, text=True, check=True).stdout
    names = [line[17:].split(" ", 1)[1] for line in lines.splitlines()]
    return [name for name in names if "@" not in name]


class StructureTest(unittest.TestCase):
    def test_no_include_crosses_a_wall(self):
        for folder, allowed in MAY_INCLUDE.items():
            for source in sorted((ROOT / folder).glob("*.*")):
                for header in OWN_FOLDER.findall(source.read_text(encoding="utf-8")):
                    owner = str(pathlib.PurePath(header).parent)
                    while owner not in MAY_INCLUDE and "/" in owner:
                        owner = str(pathlib.PurePath(owner).parent)
                    self.assertIn(owner, allowed | {folder}, f"{source.relative_to(ROOT)} includes {header}")

    def test_product_offers_its_entry_points_and_nothing_else(self):
        offered = symbols("--defined-only")
        of_services = re.compile("|".join(SERVICES))
        self.assertEqual([n for n in offered if not OFFERED.match(n) and not of_services.search(n)], [])
        for name in ("handle_svc_req(", "core::svc_server_thread_init(", "core::svc_server_thread_exit(",
                     "core::svc_server_thread_suspend_cb(", "core::svc_server_thread_resume_cb(",
                     "nyx_flow_info_proto_to_api_spec(", "g_host_if_mac_file[", "host_if_mac_update(",
                     *(f"vtable for {service}" for service in SERVICES),
                     *(f"{service}::~{service}(" for service in SERVICES)):
            self.assertTrue(any(n.startswith(name) for n in offered), name)
        self.assertEqual(sum(n.startswith("nyx_svc_") for n in offered), 148 + 4 + 2)  # tables, interfaces, ports

    def test_platform_operations_stay_undefined_and_are_declared(self):
        needed = [n for n in symbols("--undefined-only") if not LIBRARIES.search(n)]
        self.assertEqual(sum(n.startswith("nyx_tbl_") for n in needed), 148)
        headers = "\n".join(h.read_text(encoding="utf-8") for h in sorted((ROOT / "agent_api").glob("*.h")))
        declared = set(re.findall(r"\w+", headers))
        names = [re.sub(r"\(.*| const$|typeinfo for ", "", n).split("::")[-1] for n in needed]
        self.assertEqual([n for n in names if n not in declared and not n.startswith("nyx_tbl_")], [])


if __name__ == "__main__":
    unittest.main(verbosity=2)
