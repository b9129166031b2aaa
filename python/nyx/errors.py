"""What can go wrong: everything here is a nyx.Error. Values that don't fit raise ValueError before anything is sent."""

from __future__ import annotations

from typing import Any

import grpc
from nyx.types import status_pb2


class Error(Exception):
    """Base of all errors of this package."""


class CallFailed(Error):
    """A call did not reach its service, or its outcome is unknown: `code` is the gRPC status."""

    def __init__(self, method: str, code: grpc.StatusCode, details: str) -> None:
        super().__init__(f"{method}: {code.name}: {details}")
        self.method = method
        self.code = code
        self.details = details


class Unreachable(CallFailed):
    """There was no agent at the address within the time limit, or the connection broke."""


class ApiError(Error):
    """The agent answered, and its `api_status` is not API_STATUS_OK.

    `status` is the number, `name` its name in the contract, `response` the whole response: lists end at the first
    failure, and what came before it is there.
    """

    def __init__(self, method: str, status: int, response: Any = None, text: str = "") -> None:
        known = status_pb2.ApiStatus.DESCRIPTOR.values_by_number.get(status)
        self.name: str = known.name if known else f"api_status {status}"
        super().__init__(f"{method}: {self.name}{text}")
        self.method = method
        self.status = status
        self.response = response


class EntriesFailed(ApiError):
    """Entries of a table that are not in the card as they were asked to be.

    `failed` holds them as they were given, so that they can be given again; `done` counts the others. If `complete` is
    False, more than the allowed number failed and the rest was not sent.
    """

    def __init__(self, method: str, status: int, done: int, failed: list[Any], complete: bool) -> None:
        rest = "" if complete else "; the rest was not sent"
        first = str(failed[0]).replace("\n", " ")
        super().__init__(method, status, None, f": {len(failed)} failed and {done} done{rest}; the first: {first:.200}")
        self.failed = failed
        self.done = done
        self.complete = complete


class Restarted(Error):
    """The agent restarted in the middle of an operation: what was sent before is gone. Program everything again."""
