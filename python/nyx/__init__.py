"""A client of the dataplane agent.

    import nyx

    agent = nyx.connect()
    flows = agent.table("flow")
    flows.add({"key": {"k1": "2001:db8::1", "k2": 6}, "flow_hash_data": {"d1": 7}})

Tables: agent.table("flow") has add, update, delete, get and apply, for one entry or millions; see nyx.Table.
Everything else: agent.call("PortSvc/PortGet"), with the names of the contract; see nyx.Agent.
Restarts: agent.on_restart(callback) reports that the agent restarted and lost its tables.
Tests: agent.faults(...) makes operations of the stand-in fail.
Errors: nyx.Error and its subclasses; ValueError for values that don't fit their field.

The generated messages and stubs are here, too: nyx.port_pb2, nyx.port_pb2_grpc, nyx.tables.flow_pb2 ...
"""

from nyx.agent import Agent, connect
from nyx.build import VERSION as __version__
from nyx.errors import ApiError, CallFailed, EntriesFailed, Error, Restarted, Unreachable
from nyx.messages import check_widths, to_dict
from nyx.table import Applied, Entry, Table
from nyx.values import Mac

__all__ = ["Agent", "ApiError", "Applied", "CallFailed", "EntriesFailed", "Entry", "Error", "Mac", "Restarted", "Table",
           "Unreachable", "check_widths", "connect", "to_dict", "__version__"]
