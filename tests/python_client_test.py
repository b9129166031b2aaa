"""A client in Python, with stubs made from the .proto files as its author would make them.

usage: python_client_test.py FOLDER-OF-PROGRAMS FOLDER-OF-PROTOS PROTOC GRPC-PYTHON-PLUGIN [unittest options]
"""

import pathlib
import subprocess
import sys
import tempfile
import unittest

import grpc

from agent import Agent

PROTOS, PROTOC, PLUGIN = (pathlib.Path(sys.argv.pop(1)).resolve() for _ in range(3))
TIMEOUT_S = 60  # sanitizers are slow


def port_key(number):
    return bytes.fromhex("0a00000000004000800000000001") + number.to_bytes(2, "big")


class PythonClientTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = cls.enterClassContext(tempfile.TemporaryDirectory())
        protos = sorted(str(path.relative_to(PROTOS)) for path in PROTOS.glob("nyx/**/*.proto"))
        subprocess.run([PROTOC, f"-I{PROTOS}", f"--python_out={folder}", f"--grpc_python_out={folder}",
                        f"--plugin=protoc-gen-grpc_python={PLUGIN}", *protos], check=True)
        sys.path.insert(0, folder)
        agent = cls.enterClassContext(Agent(folder))
        cls.channel = cls.enterClassContext(grpc.insecure_channel(agent.grpc))

    def test_reads_ports(self):
        from nyx import port_pb2, port_pb2_grpc
        stub = port_pb2_grpc.PortSvcStub(self.channel)
        answer = stub.PortGet(port_pb2.PortGetRequest(), timeout=TIMEOUT_S)
        self.assertEqual([port.spec.id for port in answer.response], [port_key(n) for n in (1, 2, 3)])
        self.assertEqual([port.status.xcvr_status.vendor_name for port in answer.response],
                         ["ACME OPTICS", "ACME OPTICS", ""])
        self.assertEqual([len(port.stats.mac_stats) for port in answer.response], [89, 89, 0])
        unknown = stub.PortGet(port_pb2.PortGetRequest(id=[port_key(1), port_key(9)]), timeout=TIMEOUT_S)
        self.assertEqual((len(unknown.response), unknown.api_status), (1, 5))

    def test_reads_and_creates_interfaces(self):
        from nyx import interface_pb2, interface_pb2_grpc
        stub = interface_pb2_grpc.IfSvcStub(self.channel)
        spec = interface_pb2.InterfaceSpec(id=b"py", l3_if_spec={"prefix": [{"addr": {"af": 1, "v4_addr": 1}, "len": 24}]})
        self.assertEqual(stub.InterfaceCreate(interface_pb2.InterfaceRequest(request=[spec]),
                                              timeout=TIMEOUT_S).api_status, 0)
        answer = stub.InterfaceGet(interface_pb2.InterfaceGetRequest(), timeout=TIMEOUT_S)
        kinds = {interface.spec.WhichOneof("ifinfo") for interface in answer.response}
        self.assertEqual(kinds, {"uplink_spec", "host_if_spec", "l3_if_spec"})
        neighbors = [interface.status.uplink_if_status.lldp_status.neighbor_if_status.chassis_info.system_name
                     for interface in answer.response if interface.spec.HasField("uplink_spec")]
        self.assertEqual(neighbors, ["tor-r07-a", ""])

    def test_reads_lifs_in_both_views(self):
        from nyx import interface_pb2_grpc, lif_pb2, lif_pb2_grpc
        lifs = interface_pb2_grpc.IfSvcStub(self.channel).LifGet(lif_pb2.LifGetRequest(), timeout=TIMEOUT_S)
        classic = lif_pb2_grpc.LifClassicSvcStub(self.channel).LifClassicGet(lif_pb2.LifClassicGetRequest(),
                                                                            timeout=TIMEOUT_S)
        self.assertEqual([lif.status.name for lif in lifs.response], [lif.spec.name for lif in classic.response])
        self.assertEqual([lif.HasField("status") for lif in classic.response], [True] * 4 + [False])


if __name__ == "__main__":
    unittest.main(verbosity=2)
