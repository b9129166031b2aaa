"""Entries of the agent's tables."""

from __future__ import annotations

import dataclasses
import time
from collections import Counter, deque
from collections.abc import Iterable, Iterator, Mapping
from typing import TYPE_CHECKING, Any, TypeAlias

import grpc
from google.protobuf.message import Message
from nyx import errors, messages
from nyx.types import status_pb2

if TYPE_CHECKING:
    from nyx.agent import Agent, Method

Entry: TypeAlias = Mapping[str, Any] | Message
"""An entry or a key: a dict such as {"key": {"k1": "2001:db8::1"}, "flow_hash_data": {"d1": 7}}, or its message."""

_ENTRIES = 1000  # of a request
_IN_FLIGHT = 4   # requests
_ATTEMPTS = 8    # of apply(), for the entries of a request
_REFUSED = (grpc.StatusCode.UNIMPLEMENTED, grpc.StatusCode.PERMISSION_DENIED, grpc.StatusCode.UNAUTHENTICATED,
            grpc.StatusCode.INVALID_ARGUMENT)


@dataclasses.dataclass
class Applied:
    """What Table.apply() did, in numbers of entries."""

    added: int = 0
    updated: int = 0
    unchanged: int = 0


class Table:
    """The entries of one table. Made by Agent.table().

    An entry is a dict or the generated message; the fields of a table are in its contract (nyxctl describe). Numbers
    may be addresses where the contract says so. What follows from the rest may be left out: the action from its data,
    and that there is a mask. All values are checked before they are sent: ValueError says which field of which entry.

    Methods take any number of entries, also from a generator, and hold only a few thousand at a time. Several requests
    are under way at once, so a key should occur only once in what one call is given.

    After a request that failed, or whose outcome is unknown because the connection broke, its keys are read back. What
    is not as it should be ends in nyx.EntriesFailed, after all the others were sent; after `max_failed` of them no
    more are sent. If the agent restarts meanwhile, the call ends with nyx.Restarted.
    """

    def __init__(self, agent: Agent, name: str) -> None:
        self.name = name
        self._agent = agent
        self._create, self._update, self._delete, self._get = (
            agent.method(name + operation) for operation in ("Create", "Update", "Delete", "Get"))
        fields = self._create.descriptor.input_type.fields_by_name
        self._entry = messages.codec_of(fields["request"].message_type)
        self._key = messages.codec_of(fields["request"].message_type.fields_by_name["key"].message_type)

    @staticmethod
    def fits(create: Method) -> bool:
        """Whether a method creates entries of a table: its request is a list of messages that have a key."""
        request = create.descriptor.input_type.fields_by_name.get("request")
        return bool(request and request.message_type and "key" in request.message_type.fields_by_name)

    def __repr__(self) -> str:
        return f"<nyx table {self.name}: {', '.join(field.name for field in self._entry.message.DESCRIPTOR.fields)}>"

    def add(self, entries: Entry | Iterable[Entry], *, max_failed: int = 10_000) -> int:
        """Adds entries, and returns how many. One that is there already as given counts as added."""
        return self._write(self._create, entries, max_failed)

    def update(self, entries: Entry | Iterable[Entry], *, max_failed: int = 10_000) -> int:
        """Replaces entries that exist, and returns how many."""
        return self._write(self._update, entries, max_failed)

    def delete(self, keys: Entry | Iterable[Entry], *, max_failed: int = 10_000) -> int:
        """Deletes entries by key, and returns how many are gone. One that was not there counts, too."""
        return self._write(self._delete, keys, max_failed)

    def get(self, keys: Entry | Iterable[Entry]) -> Iterator[dict[str, Any] | None]:
        """Reads entries by key, in the order of the keys, as dicts; None for one that is not there or can't be read."""
        with _Work(self._agent, self._get.name) as work:
            for _, request, response in self._pipelined(self._get, self._requests(self._get, keys), work):
                for spec in self._found(request, response or work.read(self._get, request), work):
                    yield None if spec is None else messages.to_dict(spec)

    def apply(self, entries: Entry | Iterable[Entry], *, max_failed: int = 10_000) -> Applied:
        """Makes the card hold these entries: adds what is missing, updates what differs, leaves the rest alone.

        What fails is tried again, a few times. Other entries of the table stay; delete() removes them.
        """
        counts: Counter[str] = Counter()
        with _Work(self._agent, f"{self.name}Apply", max_failed) as work:
            for given, request in self._requests(self._create, entries):
                done, failed = self._settle([self._entry.normalise(spec) for spec in request.request], work)
                counts.update(done)
                work.count(len(given), [given[i] for i in failed])
                if not work.goes_on:
                    break
        return Applied(**counts)

    def _write(self, method: Method, items: Entry | Iterable[Entry], max_failed: int) -> int:
        with _Work(self._agent, method.name, max_failed) as work:
            for given, request, response in self._pipelined(method, self._requests(method, items), work):
                failed = [] if response and not response.api_status else self._wrong(method, request, work)
                work.count(len(given), [given[i] for i in failed])
        return work.done

    def _requests(self, method: Method, items: Entry | Iterable[Entry]) -> Iterator[tuple[list[Entry], Any]]:
        """What is given, in pieces, each with its request."""
        field, codec = ("key", self._key) if method in (self._delete, self._get) else ("request", self._entry)
        for number, given in enumerate(messages.chunks(_several(items), _ENTRIES)):
            request = method.request.message()
            add, append = getattr(request, field).add, getattr(request, field).append
            try:
                for item in given:
                    if isinstance(item, Message):
                        append(codec.build(item))
                    else:
                        add(**codec.arguments(item))
            except (ValueError, TypeError) as error:
                at = number * _ENTRIES + len(getattr(request, field))
                raise ValueError(f"{self.name}: item {at} (from 0): {error}") from None
            yield given, request

    def _pipelined(self, method: Method, requests: Iterator[tuple[list[Entry], Any]], work: _Work,
                   ) -> Iterator[tuple[list[Entry], Any, Any]]:
        """Sends requests, several at once. The response is None where the outcome is unknown."""
        waiting: deque[tuple[list[Entry], Any, Any]] = deque()
        try:
            for given, request in requests:
                waiting.append((given, request, method.start(request)))
                if len(waiting) == _IN_FLIGHT:
                    yield *waiting[0][:2], work.finish(method, waiting.popleft()[2])
                if not work.goes_on:
                    break
            while waiting:
                yield *waiting[0][:2], work.finish(method, waiting.popleft()[2])
        finally:
            for *_, call in waiting:
                if method is self._get:
                    call.cancel()
                else:
                    call.exception()  # waits: a request that runs on could undo what the caller does next

    def _found(self, request: Any, response: Any, work: _Work) -> list[Any]:
        """The entries that a response holds, in the order of the keys; None for those that were not found."""
        specs: list[Any] = [entry.spec for entry in response.response[:len(request.key)]]
        specs += [None] * (len(request.key) - len(specs))  # an agent that says less than it should
        if not response.api_status:
            return specs
        keys = [self._key.normalise(key) for key in request.key]
        found = [spec if spec is not None and spec.key == key else None for key, spec in zip(keys, specs)]
        zero = self._key.normalise(self._key.message())
        if len(keys) == 1:  # the one that was not read; with the all-zero key it looks as if it was
            return [None]
        return [self._read([key], work)[0] if key == zero else spec for key, spec in zip(keys, found)]

    def _read(self, keys: list[Any], work: _Work) -> list[Any]:
        request = self._get.request.message(key=keys)
        return self._found(request, work.read(self._get, request), work)

    def _wrong(self, method: Method, request: Any, work: _Work) -> list[int]:
        """Which entries of a request are not as it wanted them."""
        if method is self._delete:
            return [i for i, spec in enumerate(self._read(request.key, work)) if spec is not None]
        wanted = [self._entry.normalise(spec) for spec in request.request]
        return [i for i, todo in self._todo(wanted, range(len(wanted)), work).items() if todo != "unchanged"]

    def _todo(self, wanted: Any, which: Iterable[int], work: _Work) -> dict[int, str]:
        """What has to be done about entries, by their index."""
        which = list(which)
        found = self._read([wanted[i].key for i in which], work)
        return {i: "added" if spec is None else "unchanged" if spec == wanted[i] else "updated"
                for i, spec in zip(which, found)}

    def _settle(self, wanted: Any, work: _Work) -> tuple[Iterable[str], list[int]]:
        """Brings the entries of a request into the card: what was done, and the indexes of those that failed."""
        done: dict[int, str] = {}
        left: list[int] = list(range(len(wanted)))
        for attempt in range(_ATTEMPTS):
            todo = self._todo(wanted, left, work)
            done |= {i: kind for i, kind in todo.items() if not attempt or kind != "unchanged"}
            left = [i for method, kind in ((self._create, "added"), (self._update, "updated"))
                    for i in self._send(method, wanted, [i for i in todo if todo[i] == kind], work)]
            if not left:
                break
            time.sleep(0.01 * 2**attempt)
        failed = [i for i, kind in self._todo(wanted, left, work).items() if kind != "unchanged"] if left else []
        for i in failed:
            del done[i]
        return done.values(), failed

    def _send(self, method: Method, wanted: Any, which: list[int], work: _Work) -> list[int]:
        """Sends some entries; they are left if their request fails."""
        if not which:
            return []
        response = work.finish(method, method.start(method.request.message(request=[wanted[i] for i in which])))
        return [] if response and not response.api_status else which


class _Work:
    """An operation on many entries: whether the agent is still the same, and what failed."""

    def __init__(self, agent: Agent, name: str, max_failed: int = 0) -> None:
        self.done = 0
        self.goes_on = True  # False: too many failed; what is under way is still counted
        self._agent = agent
        self._name = name
        self._max_failed = max_failed
        self._failed: list[Any] = []
        self._restarts = agent.restarts

    def __enter__(self) -> _Work:
        return self

    def __exit__(self, kind: object, *_: object) -> None:
        self._agent.tell_restart()
        if kind is None and self._failed:
            raise errors.EntriesFailed(self._name, status_pb2.API_STATUS_ERROR, self.done, self._failed, self.goes_on)

    def finish(self, method: Method, call: Any) -> Any:
        """The response, or None if the outcome is unknown."""
        try:
            response = method.finish(call)
        except errors.CallFailed as error:
            if error.code in _REFUSED:
                raise
            response = None
        self._check()
        return response

    def read(self, method: Method, request: Any) -> Any:
        response = method.read(request)
        self._check()
        return response

    def count(self, entries: int, failed: list[Any]) -> None:
        """Notes the outcome of a request."""
        self.done += entries - len(failed)
        self._failed += failed
        self.goes_on = len(self._failed) <= self._max_failed

    def _check(self) -> None:
        if self._agent.restarts != self._restarts:
            raise errors.Restarted(f"{self._name}: the agent at {self._agent.address} restarted")


def _several(items: Entry | Iterable[Entry]) -> Iterable[Entry]:
    return (items,) if isinstance(items, (Mapping, Message)) else items
