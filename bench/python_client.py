"""Measures the Python package nyx against the bare generated stubs: the same flows, the same agent, one run.

usage: python_client.py FOLDER-OF-PROGRAMS FOLDER-OF-THE-PACKAGE [ENTRIES]
"""

import pathlib
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests"))
from agent import Agent

sys.path.insert(0, sys.argv.pop(1))
import grpc
import nyx
from nyx.tables import flow_pb2, tbl_svc_pb2_grpc

ENTRIES = int(sys.argv[1]) if len(sys.argv) > 1 else 1_000_000
IN_REQUEST = 1000
DATA = {f"d{number}": number for number in range(1, 21)}
REST_OF_KEY = {f"k{number}": number for number in range(2, 13)} | {"k13": b"\1" * 16, "k14": b"\2" * 16}


def key(number):
    return {"k1": number.to_bytes(16, "big"), **REST_OF_KEY}


def keys():
    return map(key, range(ENTRIES))


def entries():
    return ({"key": key(number), "flow_hash_data": DATA} for number in range(ENTRIES))


def add_with_stubs(address):
    stub = tbl_svc_pb2_grpc.NyxTblSvcStub(grpc.insecure_channel(address))
    for first in range(0, ENTRIES, IN_REQUEST):
        specs = [flow_pb2.flowSpec(key=flow_pb2.flow_key_t(**key(number)),
                                   flow_hash_data=flow_pb2.flow_flow_hash_data_t(**DATA))
                 for number in range(first, min(first + IN_REQUEST, ENTRIES))]
        assert stub.flowCreate(flow_pb2.flowRequest(request=specs)).api_status == 0


def resident_mib():
    return int(pathlib.Path("/proc/self/statm").read_text().split()[1]) * 4096 >> 20


def measured(name, run, base_s=None):
    start = time.perf_counter()
    run()
    seconds = time.perf_counter() - start
    ratio = f"{base_s / seconds:8.2f}" if base_s else ""
    print(f"{name:22} {ENTRIES / seconds:10.0f}/s {resident_mib():6} MiB {ratio}", flush=True)
    return seconds


def main():
    with tempfile.TemporaryDirectory() as folder, Agent(folder) as agent:
        base_s = measured("bare stubs, add", lambda: add_with_stubs(agent.grpc))
    with tempfile.TemporaryDirectory() as folder, Agent(folder) as agent:
        flows = nyx.connect(agent.grpc).table("flow")
        measured("add", lambda: flows.add(entries()), base_s)
        measured("apply, unchanged", lambda: flows.apply(entries()), base_s)
        measured("get", lambda: sum(1 for _ in flows.get(keys())), base_s)
        measured("delete", lambda: flows.delete(keys()), base_s)


if __name__ == "__main__":
    main()
