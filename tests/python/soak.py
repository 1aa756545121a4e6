#!/usr/bin/python3
"""Repeats many times what the tests do once, and prints figures.

    RAVO_PROGRAMS=build/release/bin PYTHONPATH=python tests/python/soak.py
        [--tests N] [--simulators N] [--kills N]

Plays N tests in four processes of pytest, opens N simulators one after the other in this one, and
kills the interpreter at N moments. None of them may leave anything behind: no process, thread, open
file, lock or temporary file.
"""

from __future__ import annotations

import argparse
import os
import random
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path
from typing import Callable

import numpy as np

import ravo

TEST = """
import numpy as np
import pytest
import ravo

@pytest.mark.parametrize("number", range({tests}))
def test_it(ravo_simulator, number):
    row = np.random.default_rng(number).uniform(-4, 4, 250)
    assert ravo_simulator.play(ravo.Samples(row, 500, ["II"])).finished
    assert np.abs(ravo_simulator.outputs()[1, :250] - row).max() <= 2.5 / 32000 * (1 + 1e-9)
"""

PLAYER = """
import ravo
while True:
    with ravo.Simulator(emulated=True, timeout=120) as s:
        print(s.process, flush=True)
        s.play(ravo.Samples([[0.0] * 100_000], 500, ["I"]), seconds=1)
"""


def ours() -> set[int]:
    """The workers and emulators running on this machine."""
    found = set()
    for entry in Path("/proc").iterdir():
        try:
            name = (entry / "comm").read_text().strip()
            state = (entry / "stat").read_text().rsplit(")", 1)[1].split()[0]
            marked = f"RAVO_SOAK={os.getpid()}".encode() in (entry / "environ").read_bytes()
        except OSError:
            continue
        if name in ("ravo-worker", "ravo-emulator") and marked and state != "Z":
            found.add(int(entry.name))
    return found


def state() -> tuple[int, int, set[int], list[str], list[str]]:
    return (
        threading.active_count(),
        len(os.listdir("/proc/self/fd")),
        ours(),
        sorted(os.listdir("/var/lock")),
        sorted(os.listdir(tempfile.gettempdir())),
    )


def in_pytest(tests: int) -> None:
    with tempfile.TemporaryDirectory() as folder:
        Path(folder, "test_many.py").write_text(TEST.format(tests=tests))
        began = time.monotonic()
        subprocess.run(
            [sys.executable, "-m", "pytest", "-q", "-n", "4", "-p", "ravo.pytest"]
            + ["-p", "no:cacheprovider", "--ravo-speed-up", "20", "--basetemp", folder + "/t", folder],
            check=True,
            stdout=subprocess.DEVNULL,
        )
        print(f"{tests} tests in 4 processes: {time.monotonic() - began:.0f} s")


def one_after_the_other(simulators: int) -> None:
    began = time.monotonic()
    for _ in range(simulators):
        with ravo.Simulator(emulated=True, speed_up=20, timeout=120) as simulator:
            simulator.play(ravo.Samples([[0.0, 1.0]], 500, ["I"]))
    print(f"{simulators} simulators, one after the other: {time.monotonic() - began:.0f} s")


def killed(kills: int) -> None:
    slowest = 0.0
    for _ in range(kills):
        player = subprocess.Popen([sys.executable, "-c", PLAYER], stdout=subprocess.DEVNULL)
        time.sleep(random.uniform(0.1, 3.0))
        player.kill()
        player.wait()
        began = time.monotonic()
        while ours() and time.monotonic() - began < 60:
            time.sleep(0.02)
        slowest = max(slowest, time.monotonic() - began)
    print(f"{kills} interpreters killed: nothing left after {slowest:.2f} s at the latest")


def pace() -> None:
    """The effect on a counting thread, and the speed of large arrays."""
    count = 0
    goes_on = True

    def run() -> None:
        nonlocal count
        while goes_on:
            count += 1

    # In processor time, so that other work of the machine does not count.
    def counted(call: Callable[[float], object], seconds: float) -> float:
        before, began = count, time.process_time()
        call(seconds)
        return (count - before) / (time.process_time() - began)

    with ravo.Simulator(emulated=True, timeout=120) as simulator:
        thread = threading.Thread(target=run)
        thread.start()
        def play(seconds: float) -> None:
            simulator.play(ravo.Sine(1, 1.0), seconds=seconds)

        # Alternately, and the best of each, so that both have the same conditions.
        alone = playing = 0.0
        for _ in range(6):
            alone = max(alone, counted(time.sleep, 2.0))
            playing = max(playing, counted(play, 2.0))
        goes_on = False
        thread.join()
        print(f"a counting thread keeps {100 * playing / alone:.1f} % of its pace")
        sent = np.random.default_rng(1).standard_normal((12, 1_000_000))
        best = 1e9
        for _ in range(5):
            began = time.monotonic()
            back = simulator.echo(sent)
            best = min(best, time.monotonic() - began)
            assert back.tobytes() == sent.tobytes()
        print(f"12 x 10^6 samples over and back: {best:.3f} s")


def main() -> int:
    parser = argparse.ArgumentParser()
    parser.add_argument("--tests", type=int, default=1000)
    parser.add_argument("--simulators", type=int, default=100)
    parser.add_argument("--kills", type=int, default=100)
    options = parser.parse_args()
    os.environ["RAVO_SOAK"] = str(os.getpid())
    with tempfile.TemporaryDirectory() as folder:
        os.environ["TMPDIR"] = tempfile.tempdir = folder
        before = state()
        in_pytest(options.tests)
        one_after_the_other(options.simulators)
        killed(options.kills)
        pace()
        after = state()
    if after != before:
        print(f"something is left: {before} became {after}", file=sys.stderr)
        return 1
    print("nothing is left")
    return 0


if __name__ == "__main__":
    sys.exit(main())
