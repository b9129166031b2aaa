"""Faults of the stand-in, for tests."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

import grpc
from nyx import errors

if TYPE_CHECKING:
    from nyx.agent import Agent


class Faults:
    """Faults that are armed while a with block runs. Made by Agent.faults()."""

    def __init__(self, agent: Agent, faults: tuple[str, ...]) -> None:
        self._agent = agent
        self._faults = faults
        self._ids: list[int] = []
        self._restarts = 0

    def __enter__(self) -> Faults:
        self._restarts = self._agent.restarts
        try:
            for fault in self._faults:
                self._ids.append(self._agent.call("FaultSvc/FaultAdd", fault=fault).id)
        except errors.CallFailed as error:
            self.clear()
            if error.code == grpc.StatusCode.INVALID_ARGUMENT:
                raise ValueError(error.details) from None
            raise
        return self

    def __exit__(self, *_: object) -> None:
        self.clear()

    def clear(self) -> None:
        """Disarms the faults. Those of an agent that restarted are gone already, and others may have their ids."""
        ids, self._ids = self._ids, []
        if ids:
            self._agent.ping()
        if ids and self._agent.restarts == self._restarts:
            self._agent.call("FaultSvc/FaultClear", id=ids)

    @property
    def strikes(self) -> int:
        """How many operations these faults have let fail or wait so far."""
        armed: Any = self._agent.call("FaultSvc/FaultList").response
        return sum(fault.strikes for fault in armed if fault.id in self._ids)
