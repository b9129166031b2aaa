"""Starts, stops, the log and the MAC file."""

import contextlib
import json
import os
import pathlib
import re
import subprocess
import tempfile
import threading

import processes
import wire
from agent import Agent, check
from grpc_server import card_id

CREATE, UPDATE, DELETE = (f"/nyx.IfSvc/Interface{verb}" for verb in ("Create", "Update", "Delete"))
MAC_NAMES = 20  # of each writer
STOP_S = 1.2  # the promise is a second; the rest is for a busy machine to notice
FOREIGN = {"file": pathlib.Path.touch, "folder": pathlib.Path.mkdir, "fifo": os.mkfifo,
           "link": lambda path: path.symlink_to("/dev/null")}


def restarts(build, rounds):
    """A killed agent's socket is taken over; a live one, and what is no socket, is left alone."""
    with tempfile.TemporaryDirectory() as folder:
        for _ in range(rounds):
            agent = Agent(build, folder=folder)
            agent.answers()
            idle = [wire.connect(address) for address in (agent.socket, agent.grpc)]
            agent.kill()
            del idle
        agent = Agent(build, folder=folder)
        check(not Agent(build, folder=folder).grpc, "two agents have one socket")
        agent.answers()
        check(agent.stop()[0] == 0, "it does not stop")
        path = pathlib.Path(agent.socket)
        for name, make in FOREIGN.items():
            make(path)
            made = path.lstat()
            check(not Agent(build, folder=folder).grpc, f"it starts over a {name}")
            check(path.lstat().st_ino == made.st_ino, f"it removes a {name}")
            os.rename(path, f"{folder}/old {name}")
    return f"{rounds} kills, {len(FOREIGN)} foreign files"


def keep_asking(number, agent):
    """Until the agent is gone."""
    answers = 0
    with contextlib.suppress(OSError):
        while True:
            if number % 2:
                wire.ask(agent.socket)
            else:
                wire.grpc_ask(agent.grpc, wire.INTERFACE_GET, card_id(2, 1) * 20)
            answers += 1
    return answers


def stop_under_load(build, rounds):
    """SIGTERM among busy clients: the agent ends within a second and leaves no socket behind."""
    slowest, answers = 0, 0
    for _ in range(rounds):
        with Agent(build) as agent:
            clients = [processes.Work(keep_asking, number, agent) for number in range(6)]
            threading.Event().wait(0.5)
            code, seconds = agent.stop()
            slowest = max(slowest, seconds)
            answers += sum(client.result() for client in clients)
            check(code == 0, f"exit code {code}")
            check(not os.path.exists(agent.socket), "the socket's file is left")
    check(slowest < STOP_S, f"it took {slowest:.2f} s to end")
    return f"{rounds} stops, the slowest {slowest:.2f} s, {answers} answers"


TEXTS = (b"\n[2026-01-01 00:00:00.000] [nyx-agent] [error] forged", b"\r\x1b[2Jx", b"%s%n%s", b"{} {0} {:999999}",
         b"\xff\xfe\x80", b"\0x\0", "\u2028\u202e\u0085x".encode(), b"\x7f\x08\x9b2J")


def interface(key, name):
    host = wire.field(2, name) + wire.field(5, 1)
    return wire.field(2, wire.field(1, key) + wire.field(8, host))


def log_forging(agent, rounds):
    """Texts that could begin a line of their own, or be taken for a format, wherever a peer can say one."""
    begin, sent = agent.log.stat().st_size, 0
    for text in TEXTS * rounds:
        for op in (0, 1, 99):
            wire.ask(agent.socket, wire.request(wire.field(1, 1), text + b"/" + text, op))
        arguments = wire.field(1, b"x/" + text) + wire.field(2, text)
        wire.ask(agent.socket, wire.request(wire.field(1, 5) + wire.field(2, arguments)))
        wire.ask(agent.socket, text)
        loopback = wire.field(2, wire.field(1, text[:16]) + wire.field(9, text) + wire.field(6, b""))  # refused
        for path, data in ((CREATE, interface(text[:16], text)), (UPDATE, interface(b"", text)),
                           (UPDATE, interface(text[:16], text)), (CREATE, loopback),
                           (DELETE, wire.field(2, text[:16])), (DELETE, wire.field(2, text)),
                           ("/nyx.PortSvc/PortStatsReset", wire.field(1, text)),
                           ("/nyx.FaultSvc/FaultAdd", wire.field(1, text)),
                           ("/nyx.NyxTblSvc/flow_infoGet", text), ("/" + text.decode("latin-1"), text)):
            wire.grpc_ask(agent.grpc, path, data)
            sent += 1
    lines = agent.log_lines(begin)
    check(len(lines) >= 3 * len(TEXTS) * rounds, "the texts did not come to the log")
    return f"{sent} calls, {len(lines)} log lines"


def kill_writers(_, tests, kills):
    result = subprocess.run([tests, "--gtest_filter=mac_file_writers.Killed*"], env=os.environ | {"NYX_KILLS": str(kills)},
                            capture_output=True, text=True, check=False)
    check(result.returncode == 0, result.stdout)
    return int(re.search(r"updates (\d+)", result.stdout)[1])


def mac_file_killed(build, kills):
    """Writers of the MAC file killed at any moment: no broken file."""
    count = 4
    updates = sum(processes.at_once(count, kill_writers, f"{build}/bin/mac_file_test", kills // count))
    return f"{kills} kills, {updates} updates, no broken file"


def mac(number):
    return number.to_bytes(6, "big").hex(":")


def write_over_grpc(number, agents, file, updates):
    """Each update must be in the file when it is acknowledged; one that waited for too long may be refused, and is sent
    again. Returns what the writer's names must hold at the end, and the number of refusals."""
    holds, refused = {}, 0
    for n in range(1, updates + 1):
        name = f"g{number}.{n % MAC_NAMES}"
        record = wire.field(2, wire.field(8, wire.field(2, name.encode()) + wire.field(5, n)))
        while wire.grpc_ask(agents[number % len(agents)].grpc, CREATE, record) != wire.message(b""):
            refused += 1
            check(refused < 100, f"update {n} of {name} fails")
        holds[name] = mac(n)
        if n % 16 == 0:
            check(mac_file(file).get(name) == mac(n), f"update {n} of {name} is lost")
    return holds, refused


def mac_file(path):
    records = json.loads(path.read_text(encoding="utf-8"))["host-interface"]
    return {record["name"]: record["mac"] for record in records}


def mac_file_shared(build, updates):
    """Eighteen gRPC clients of three agents update one MAC file at once: nothing is lost."""
    with Agent(build) as agent, Agent(build, sysconfig=agent.folder) as second, Agent(build, sysconfig=agent.folder) as third:
        file, agents = agent.folder / "hostif_mac.json", (agent, second, third)
        expected, all_refused = {}, 0
        for holds, refused in processes.at_once(18, write_over_grpc, agents, file, updates):
            expected |= holds
            all_refused += refused
        check(mac_file(file) == expected, "updates are lost")
    return f"{18 * updates} updates, none lost, {all_refused} refused for too long a wait"
