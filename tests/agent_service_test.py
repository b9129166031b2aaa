"""nyx-agent as a service: who it is, who may do what, what it records, how it starts and stops.

usage: agent_service_test.py FOLDER-OF-PROGRAMS DESCRIPTOR-SET [unittest options]
"""

import pathlib
import sys
import tempfile
import unittest

import grpc
from google.protobuf import descriptor_pb2, descriptor_pool, message_factory

from agent import PATIENCE_S, Agent


def read_descriptors(path):
    pool = descriptor_pool.DescriptorPool()
    files = descriptor_pb2.FileDescriptorSet.FromString(pathlib.Path(path).read_bytes()).file
    for file in files:
        pool.Add(file)
    return pool, [pool.FindServiceByName(f"{file.package}.{service.name}") for file in files for service in file.service]


POOL, SERVICES = read_descriptors(sys.argv.pop(1))


class Client:
    """Calls methods by their names."""

    def __init__(self, test, address, credentials=None):
        make = (lambda: grpc.secure_channel(address, credentials)) if credentials else (lambda: grpc.insecure_channel(address))
        self.channel = test.enterContext(make())

    def call(self, name, **fields):
        """Returns the response and the initial metadata of SERVICE/METHOD; raises grpc.RpcError."""
        service, method = name.split("/")
        found = POOL.FindServiceByName(f"nyx.{service}").methods_by_name[method]
        request, response = (message_factory.MessageFactory(POOL).GetPrototype(kind)
                             for kind in (found.input_type, found.output_type))
        rpc = self.channel.unary_unary(f"/nyx.{name}", request.SerializeToString, response.FromString)
        answer, call = rpc.with_call(request(**fields), timeout=PATIENCE_S, wait_for_ready=True)
        return answer, dict(call.initial_metadata())

    def state(self):
        return self.call("AgentSvc/AgentGet")[0]


class ServiceTestCase(unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(tempfile.TemporaryDirectory())

    def start(self, *options, **doors):
        return self.enterContext(Agent(self.folder, *options, **doors))


class IdentityTest(ServiceTestCase):
    def test_each_start_has_an_id_that_every_response_carries(self):
        ids = set()
        for _ in range(2):
            agent = self.start()
            client = Client(self, agent.grpc)
            state, metadata = client.call("AgentSvc/AgentGet")
            self.assertEqual(metadata["nyx-instance-id"], state.instance_id.hex())
            self.assertEqual(client.call("PortSvc/PortGet")[1]["nyx-instance-id"], state.instance_id.hex())
            with self.assertRaises(grpc.RpcError) as refused:
                client.call("DebugSvc/TraceLevelGet")
            self.assertIn(("nyx-instance-id", state.instance_id.hex()), refused.exception.initial_metadata())
            ids.add(state.instance_id)
            self.assertEqual(agent.stop()[0], 0)
        self.assertEqual(len(ids), 2)

    def test_state_counts_connections_and_calls(self):
        client = Client(self, self.start().grpc)
        for _ in range(3):
            client.call("PortSvc/PortGet")
        client.call("PortSvc/PortGet", id=[b"unknown"])
        state = client.state()
        self.assertEqual((state.connections.grpc, state.connections.accepted), (1, 1))
        self.assertEqual((state.mac_file_folder.path, state.mac_file_folder.writable), (self.folder, True))
        self.assertGreater(state.memory.resident, 0)
        [ports] = [method for method in state.method if method.method == "nyx.PortSvc/PortGet"]
        self.assertEqual([(o.grpc_code, o.api_status, o.calls) for o in ports.outcome], [(0, 0, 3), (0, 5, 1)])
        self.assertEqual(len(ports.duration_calls), len(state.duration_bound_ns) + 1)
        self.assertEqual(sum(ports.duration_calls), 4)


if __name__ == "__main__":
    unittest.main(verbosity=2)
