"""Attacks on the debug socket with outputs whose file system or terminal lets the writer wait, or belongs to somebody else."""

import ctypes
import fcntl
import os
import select
import struct
import tempfile
import termios
import threading
import time

import processes
import wire
from agent import Agent, check
from strangers import as_stranger, become_stranger

LIBC = ctypes.CDLL(None, use_errno=True)
UNMOUNT_BY_FORCE = 1 | 2  # MNT_FORCE ends calls that wait, MNT_DETACH
FUSE_GETATTR, FUSE_OPEN, FUSE_WRITE, FUSE_FLUSH, FUSE_RELEASE, FUSE_INIT = 3, 14, 16, 25, 18, 26
FUSE_ANSWERS = {
    FUSE_INIT: struct.pack("<IIIIHHIIHHI28x", 7, 31, 0, 0, 12, 9, 4096, 1, 1, 0, 0),
    FUSE_GETATTR: struct.pack("<QII6Q10I", 1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0o100666, 1, 0, 0, 0, 4096, 0),
    FUSE_OPEN: struct.pack("<QII", 1, 1, 0),
}


def serve_fuse(device):
    """The file system of one file, until it is unmounted: writes to the file, and closing it, are never answered."""
    try:
        while request := os.read(device, 1 << 18):
            _, operation, unique = struct.unpack_from("<IIQ", request)
            if operation in (FUSE_WRITE, FUSE_FLUSH, FUSE_RELEASE):
                continue
            answer = FUSE_ANSWERS.get(operation)
            os.write(device, struct.pack("<IiQ", 16 + len(answer or b""), 0 if answer else -38, unique) + (answer or b""))
    except OSError:
        pass


def pass_file(agent, path, count):
    become_stranger()
    for _ in range(count):
        wire.send_with(wire.connect(agent.socket), wire.HELP, [os.open(path, os.O_WRONLY)])


def hanging_file_system(agent, seconds):
    """Outputs in a FUSE file system that never answers a write or a close."""
    try:
        device = os.open("/dev/fuse", os.O_RDWR)
    except OSError as error:
        return f"skipped: {error}"
    with tempfile.NamedTemporaryFile() as place:
        options = f"fd={device},rootmode=100000,user_id=0,group_id=0,allow_other"
        if LIBC.mount(b"torture", place.name.encode(), b"fuse", 0, options.encode()):
            os.close(device)
            return f"skipped, can't mount: {os.strerror(ctypes.get_errno())}"
        server = processes.Work(serve_fuse, device)
        os.close(device)
        stranger = processes.Work(pass_file, agent, place.name, 8)
        time.sleep(seconds)
        LIBC.umount2(place.name.encode(), UNMOUNT_BY_FORCE)
        for work in (stranger, server):
            work.result()
    return "8 outputs"


def pass_fragments(agent, extents):
    """One file that is being cut meanwhile, which holds the lock of its inode, and one whose last name is gone."""
    files = [tempfile.TemporaryFile() for _ in range(2)]
    for file in files:
        for i in range(extents):
            os.posix_fallocate(file.fileno(), 8192 * i, 4096)
    cutting = threading.Thread(target=os.truncate, args=(os.dup(files[0].fileno()), 0))
    began = time.monotonic()
    cutting.start()
    time.sleep(0.1)
    peers = [wire.connect(agent.socket) for _ in files]
    for peer, file in zip(peers, files):
        wire.send_with(peer, wire.HELP, [file.fileno()])
        file.close()
    cutting.join()
    return f"cutting a file of {extents} extents took {time.monotonic() - began:.1f} s"


def fragmented_files(agent, extents):
    """Outputs that a writer, and whoever closes them last, must wait for."""
    return as_stranger(agent, pass_fragments, extents)


def pass_own_terminal(agent):
    os.setsid()
    master, slave = os.openpty()
    fcntl.ioctl(slave, termios.TIOCSCTTY, 0)
    become_stranger()
    with wire.connect(agent.socket) as peer, open("/dev/tty", "wb", buffering=0) as terminal:
        wire.send_with(peer, wire.HELP, [terminal.fileno()])
        wire.read_to_end(peer)
    return bool(select.select([master], [], [], 0)[0])


def foreign_terminals(build, rounds):
    """A stranger's /dev/tty is the stranger's terminal: nothing comes to that of the agent, which does not stop either."""
    try:
        operator, terminal = os.openpty()
    except OSError:
        return "skipped: no terminals here"
    with Agent(build, terminal=terminal) as agent:
        shown = sum(processes.Work(pass_own_terminal, agent).result() for _ in range(rounds))
        agent.answers()
        check(not select.select([operator], [], [], 0)[0], "output of a stranger on the agent's terminal")
    return f"{rounds} outputs, {shown} of them shown"
