"""Kills a writer of the MAC file at random moments: the file must hold what was acknowledged, or one update more.

usage: mac_file_kills.py MAC-FILE-WRITER [KILLS]
"""

import json
import pathlib
import random
import subprocess
import sys
import tempfile
import time

NAMES = 20
LONGEST_S = 0.02  # from the first acknowledged update to the kill: some tens of updates


def mac(number):
    return number.to_bytes(6, "big").hex(":")


def content_after(number):
    """The elements after updates 1 to `number`, in their order."""
    last = {n % NAMES: n for n in range(max(1, number - NAMES + 1), number + 1)}
    order = [n % NAMES for n in range(1, min(number, NAMES) + 1)]
    return [{"name": f"h{name}", "mac": mac(last[name])} for name in order]


def updates_in(text, acknowledged):
    """How many updates the file holds; raises ValueError when it is not what so many updates lead to."""
    content = json.loads(text)
    for number in (acknowledged, acknowledged + 1):
        if content == {"host-interface": content_after(number) or ""}:
            return number
    raise ValueError(f"not the content after {acknowledged} updates, nor after one more: {text}")


def write_and_kill(writer, path, first, delay):
    """Returns the number of the last acknowledged update."""
    process = subprocess.Popen([writer, path, "h", str(NAMES), str(first)], stdout=subprocess.PIPE,
                               stderr=subprocess.DEVNULL, text=True)
    done = [process.stdout.readline()]
    time.sleep(delay)
    process.kill()
    done += process.communicate()[0].splitlines()
    return int([line for line in done if line.strip()][-1])


def main(writer, kills=1000):
    broken, unfinished, number, seed = 0, 0, 0, random.randrange(1 << 32)
    moments = random.Random(seed)
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / "hostif_mac.json"
        for _ in range(int(kills)):
            acknowledged = write_and_kill(writer, path, number + 1, moments.uniform(0, LONGEST_S))
            try:
                number = updates_in(path.read_text(encoding="utf-8"), acknowledged)
            except (OSError, ValueError) as error:
                print(f"after update {acknowledged}: {error}", file=sys.stderr)
                broken, number = broken + 1, 0
                path.unlink(missing_ok=True)
            left = {path.suffix for path in pathlib.Path(folder).iterdir()}
            unfinished += ".new" in left
    print(f"seed {seed}, updates {number}, kills that left an unfinished file {unfinished}, files at the end {len(left)}")
    print(f"kills {kills}, broken files {broken}")
    return 1 if broken or len(left) > 3 else 0  # unfinished files must not pile up


if __name__ == "__main__":
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
