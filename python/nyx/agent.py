"""The connection to an agent."""

from __future__ import annotations

import contextlib
import functools
import importlib
import os
import pkgutil
import random
import threading
import time
from collections.abc import Callable, Iterator, Mapping
from typing import Any

import grpc
import nyx
from google.protobuf.message import Message
from nyx import errors, messages
from nyx.build import DEFAULT_ADDRESS
from nyx.faults import Faults
from nyx.table import Table
from nyx.types import options_pb2

# An agent that restarts is found again within a second or two; gRPC's own limit is two minutes.
_CHANNEL_OPTIONS = [
    ("grpc.initial_reconnect_backoff_ms", 100),
    ("grpc.min_reconnect_backoff_ms", 1000),
    ("grpc.max_reconnect_backoff_ms", 2000),
    ("grpc.max_receive_message_length", 256 << 20),
    ("grpc.max_send_message_length", 64 << 20),
]
_INSTANCE = "nyx-instance-id"
_BROKEN = (grpc.StatusCode.UNAVAILABLE, grpc.StatusCode.CANCELLED)


def connect(address: str | None = None, *, on_restart: Callable[[Agent], object] | None = None, timeout: float = 30,
            credentials: grpc.ChannelCredentials | None = None) -> Agent:
    """Connects to an agent, waiting for it up to `timeout` seconds; raises nyx.Unreachable if there is none.

    address: "HOST:PORT" or "unix:PATH". Without it: the environment variable NYX_GRPC, else the agent's default.
    on_restart: see Agent.on_restart.
    timeout: seconds that each call may take.
    credentials: of grpc.ssl_channel_credentials(), for an agent with TLS.
    """
    agent = Agent(address or os.environ.get("NYX_GRPC") or DEFAULT_ADDRESS, timeout, credentials)
    if on_restart:
        agent.on_restart(on_restart)
    try:
        agent.ping()
    except BaseException as error:
        agent.close()
        if not isinstance(error, errors.Unreachable):
            raise
        advice = "check that the agent runs, and its address (NYX_GRPC), and whether it wants TLS"
        text = f"no agent answers at {agent.address} within {timeout:g} s; {advice}"
        raise errors.Unreachable("connect", error.code, text) from None
    return agent


def _services() -> Iterator[Any]:
    for module in pkgutil.walk_packages(nyx.__path__, "nyx."):
        if module.name.endswith("_pb2"):
            yield from importlib.import_module(module.name).DESCRIPTOR.services_by_name.values()


class Agent:
    """An agent: its tables, its other services, and whether it is still the same one.

    Made by nyx.connect(). It may be used by several threads, and as a context manager that closes the connection. A
    connection that is lost comes back by itself; a call meanwhile waits for it, up to its timeout.
    """

    def __init__(self, address: str, timeout: float, credentials: grpc.ChannelCredentials | None) -> None:
        self.address = address
        self.timeout = timeout
        self.instance_id: str | None = None
        self.restarts = 0
        self._channel = (grpc.secure_channel(address, credentials, _CHANNEL_OPTIONS) if credentials
                         else grpc.insecure_channel(address, _CHANNEL_OPTIONS))
        self._lock = threading.Lock()
        self._callbacks: list[Callable[[Agent], object]] = []
        self._past: set[str] = set()
        self._untold = False
        self._tables: dict[str, Table] = {}
        self._methods: dict[str, Method] = {}
        for service in _services():
            for method in service.methods:
                known = Method(self, service.full_name, method)
                for name in (method.name, f"{service.name}/{method.name}", f"{service.full_name}/{method.name}"):
                    self._methods[name] = known

    def __enter__(self) -> Agent:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<nyx agent at {self.address}>"

    def close(self) -> None:
        self._channel.close()

    @property
    def methods(self) -> list[str]:
        """The methods that call() knows, as "Service/Method"."""
        return sorted(name for name in self._methods if name.count("/") == 1 and "." not in name)

    @functools.cached_property
    def tables(self) -> list[str]:
        """The names of all tables."""
        return sorted({name.removesuffix("Create") for name in self._methods
                       if name.endswith("Create") and "/" not in name
                       and name.removesuffix("Create") + "Get" in self._methods
                       and Table.fits(self._methods[name])})

    def table(self, name: str) -> Table:
        """The entries of a table, for example agent.table("flow")."""
        if name not in self._tables:
            if name not in self.tables:
                raise ValueError(f"unknown table {name!r}; agent.tables lists all")
            self._tables[name] = Table(self, name)
        return self._tables[name]

    def method(self, name: str) -> Method:
        """A method by its name: "PortGet", "PortSvc/PortGet" or "nyx.PortSvc/PortGet"."""
        try:
            return self._methods[name]
        except KeyError:
            raise ValueError(f"unknown method {name!r}; agent.methods lists all") from None

    def call(self, method: str, request: Mapping[str, Any] | Message | None = None, /, **fields: Any) -> Any:
        """Calls any method, and returns the response as a generated message (nyx.to_dict() makes Python values of it).

            ports = agent.call("PortSvc/PortGet", id=[b"..."]).response

        The request is a generated message, a dict, or the fields by name. Raises nyx.ApiError if the response's
        api_status is not API_STATUS_OK. When the connection breaks, methods that only read are called again; of others
        the outcome is unknown, and nyx.Unreachable is raised.
        """
        called = self.method(method)
        message = called.request.build(fields if request is None else request)
        response = called.read(message) if called.only_reads else called.finish(called.start(message))
        self.tell_restart()
        status = getattr(response, "api_status", 0)
        if status:
            raise errors.ApiError(called.name, status, response)
        return response

    def ping(self) -> None:
        """Asks the agent for a sign of life, and so notices a restart: for a client that has nothing else to ask."""
        self.method(self.tables[0] + "Get").read()  # without a key it reads nothing; every agent has it
        self.tell_restart()

    def on_restart(self, callback: Callable[[Agent], object]) -> None:
        """Calls `callback(agent)` when a response shows that the agent restarted, and so lost its tables.

        It runs in the thread whose call or ping() noticed, at the end of that call. It may use the agent: to program
        everything again, for example.
        """
        self._callbacks.append(callback)

    def faults(self, *faults: str) -> contextlib.AbstractContextManager[Faults]:
        """Makes operations of the stand-in fail while a with block runs, for tests of a client:

            with agent.faults("nyx_tbl_flow_create:code=7,chance=20"):
                ...

        `nyxctl fault add --help` explains how to write a fault. Raises ValueError for one that is not valid.
        """
        return Faults(self, faults)

    def seen(self, metadata: Any) -> None:
        """Notes which instance answered."""
        instance = next((value for name, value in metadata or () if name == _INSTANCE), None)
        if instance is None or instance == self.instance_id:
            return
        with self._lock:
            if instance == self.instance_id or instance in self._past:  # seen by another thread meanwhile
                return
            if self.instance_id is not None:
                self._past.add(self.instance_id)
                self.restarts += 1
                self._untold = True
            self.instance_id = instance

    def tell_restart(self) -> None:
        """Calls what on_restart() was given, once for each restart. Not within an operation, which they would disturb."""
        with self._lock:
            untold, self._untold = self._untold, False
        if untold:
            for callback in self._callbacks:
                callback(self)


class Method:
    """A method of a service, ready to be called."""

    def __init__(self, agent: Agent, service: str, descriptor: Any) -> None:
        self.name = f"{service.rpartition('.')[2]}/{descriptor.name}"
        self.descriptor = descriptor
        self.only_reads: bool = descriptor.GetOptions().Extensions[options_pb2.role] == options_pb2.ROLE_READ
        self._agent = agent
        self._path = f"/{service}/{descriptor.name}"

    def __getattr__(self, name: str) -> Any:  # on first use: most methods are never called
        if name == "request":
            self.request = messages.codec_of(self.descriptor.input_type)
        elif name == "_call":
            response = messages.codec_of(self.descriptor.output_type).message
            self._call = self._agent._channel.unary_unary(
                self._path, request_serializer=self.request.message.SerializeToString,
                response_deserializer=response.FromString)
        else:
            raise AttributeError(name)
        return self.__dict__[name]

    def start(self, request: Message, timeout: float | None = None) -> Any:
        """A call under way, waiting for the connection if there is none."""
        limit = self._agent.timeout if timeout is None else timeout
        return self._call.future(request, timeout=limit, wait_for_ready=True)

    def finish(self, call: Any) -> Any:
        """The response of a call."""
        try:
            response = call.result()
            self._agent.seen(call.initial_metadata())
            return response
        except grpc.RpcError as error:
            raise self._failure(error) from None
        except grpc.FutureCancelledError:
            raise errors.Unreachable(self.name, grpc.StatusCode.CANCELLED, "the call was cancelled") from None

    def read(self, request: Message | None = None) -> Any:
        """The response of a call that changes nothing: it is repeated when the connection breaks."""
        deadline = time.monotonic() + self._agent.timeout
        pause = 0.02
        while True:
            try:
                left = max(deadline - time.monotonic(), 0.001)
                return self.finish(self.start(self.request.message() if request is None else request, left))
            except errors.Unreachable as error:
                if error.code not in _BROKEN or time.monotonic() + pause > deadline:
                    raise
            time.sleep(pause * random.uniform(0.5, 1))
            pause = min(2 * pause, 1)

    def _failure(self, error: Any) -> errors.CallFailed:
        code, details = error.code(), error.details() or ""
        if code in _BROKEN or code == grpc.StatusCode.DEADLINE_EXCEEDED:
            return errors.Unreachable(self.name, code, f"{details}: no answer from {self._agent.address}")
        return errors.CallFailed(self.name, code, details)
