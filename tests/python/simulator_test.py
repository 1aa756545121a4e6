"""A simulator from its creation to its end."""

from __future__ import annotations

import asyncio
import os
import signal
import subprocess
import sys
import threading
import time
from pathlib import Path

import numpy as np
import pytest

import ravo
from processes import LONG, descendants, is_gone, wait_until

# ---- Refusals -----------------------------------------------------------------------------------


def test_a_refusal_leaves_the_simulator_as_it_was(fast: ravo.Simulator, tmp_path: Path) -> None:
    worker = fast.process
    with pytest.raises(ravo.BadMaterial):
        fast.play(str(tmp_path / "missing.hea"))
    with pytest.raises(ravo.BadRequest, match="seconds: is nan"):
        fast.play("builtin:CAL20000", seconds=float("nan"))
    played = fast.play("builtin:CAL20000", seconds=np.float32(0.5))  # type: ignore[arg-type]
    with pytest.raises(ravo.Error):
        fast.plot(leads=["Z"])
    assert played.frames_played == 0.5 * played.frames_per_second
    assert fast.process == worker


@pytest.mark.parametrize(
    ("material", "options"),
    [
        ("missing.hea", {}),
        ("builtin:CAL20000", {"start": 700}),
        (ravo.Sine(10, 1.0), {"seconds": 1, "gain": "loud"}),
    ],
)
def test_a_refused_play_leaves_the_last_one(
    fast: ravo.Simulator, material: ravo.Material, options: dict[str, object]
) -> None:
    fast.play(ravo.Samples(np.linspace(-1.0, 1.0, 500), 500, ["II"]))
    outputs, picture = fast.outputs(), fast.plot()
    with pytest.raises(ravo.BadMaterial):
        fast.play(material, **options)  # type: ignore[arg-type]
    assert (fast.outputs() == outputs).all()
    found = fast.compare()
    assert found.frames == 500 and found.worst <= 0.16  # one code
    assert fast.plot() == picture


# ---- Playing ------------------------------------------------------------------------------------


def test_a_play_is_proven(fast: ravo.Simulator) -> None:
    played = fast.play("builtin:CAL20000", start=1, seconds=2.5)
    assert played.finished and played.result == "finished"
    assert played.frames_due == played.frames_played == 2.5 * played.frames_per_second
    assert played.seconds == played.seconds_due == 2.5
    assert played.source in ("stand-in", "licensed")
    assert played.requests > 1
    assert played.started_at is not None and played.ended_at is not None
    assert played.started_at.tzinfo is not None and played.started_at <= played.ended_at
    assert fast.played == played
    assert (fast.emulated, fast.bits, fast.device) == (True, 16, "/dev/ttyACM0")


def test_progress_comes_on_the_calling_thread(fast: ravo.Simulator) -> None:
    seen: list[ravo.Progress] = []
    threads = set()

    def note(progress: ravo.Progress) -> None:
        seen.append(progress)
        threads.add(threading.get_ident())

    fast.play(ravo.Sine(10, 1.0), seconds=30, progress=note)
    assert threads == {threading.get_ident()}
    assert all(progress.due == 30 for progress in seen)
    assert [p.frames_played for p in seen] == sorted(p.frames_played for p in seen)


def test_a_block_plays_until_it_is_left(fast: ravo.Simulator) -> None:
    with fast.playing(ravo.Sine(10, 2.0)) as playing:
        assert playing.played is None
        time.sleep(0.5)
    assert playing.played is not None
    assert playing.played.result == "interrupted"
    outputs = fast.outputs()
    assert outputs[0].max() == pytest.approx(1.0, abs=0.01)
    assert fast.play("builtin:CAL20000", seconds=1).finished


def test_a_block_has_the_simulator_for_itself(fast: ravo.Simulator) -> None:
    with fast.playing(ravo.Sine(10, 1.0)):
        with pytest.raises(ravo.Error, match="is playing"):
            fast.play("builtin:CAL20000")
        with pytest.raises(ravo.Error, match="is playing"):
            fast.outputs()
    assert fast.outputs().shape[0] == 8


def test_an_exception_in_a_block_stops_the_output(fast: ravo.Simulator) -> None:
    with pytest.raises(ZeroDivisionError):
        with fast.playing(ravo.Square(5, 1.0)):
            raise ZeroDivisionError
    assert fast.played is not None and fast.played.result == "interrupted"
    assert fast.play("builtin:CAL20000", seconds=1).finished


def test_stop_ends_a_play_from_another_thread(fast: ravo.Simulator) -> None:
    threading.Timer(0.3, fast.stop).start()
    played = fast.play(ravo.Sine(1, 1.0), seconds=10_000)
    assert played.result == "interrupted"


def test_what_takes_too_long_is_stopped(fast: ravo.Simulator) -> None:
    plays = len(fast.plays)
    with pytest.raises(ravo.Timeout, match="took longer than 1 s") as caught:
        fast.play(ravo.Sine(1, 1.0), seconds=10_000, timeout=1.0)
    assert caught.value.where == "play" and caught.value.cure
    # The frames that had left the outputs by then are the last play.
    (stopped,) = fast.plays[plays:]
    assert stopped.record == "sine" and stopped.result == "interrupted"
    assert stopped.frames_played == 0 or fast.compare().worst <= 0.16
    assert fast.play("builtin:CAL20000", seconds=1).finished


def test_other_threads_keep_running(fast: ravo.Simulator) -> None:
    count = 0
    goes_on = True

    def run() -> None:
        nonlocal count
        while goes_on:
            count += 1

    thread = threading.Thread(target=run)
    with fast.playing(ravo.Sine(1, 1.0)):
        thread.start()
        assert wait_until(lambda: count > 100_000)
        goes_on = False
        thread.join()


def test_simulators_work_side_by_side(fast: ravo.Simulator) -> None:
    with ravo.Simulator(emulated=ravo.Emulator(unit="12"), speed_up=20, timeout=LONG) as other:
        assert (fast.bits, other.bits) == (16, 12)
        with fast.playing(ravo.Sine(10, 1.0)):
            assert other.play("builtin:CAL20000", seconds=1).finished
        assert other.process != fast.process


def test_it_works_with_asyncio() -> None:
    async def play_two() -> list[ravo.Played]:
        async with ravo.AsyncSimulator(emulated=True, speed_up=20, timeout=LONG) as one:
            async with ravo.AsyncSimulator(emulated=True, speed_up=20, timeout=LONG) as two:
                return list(
                    await asyncio.gather(
                        one.play("builtin:CAL20000", seconds=2), two.play(ravo.Sine(), seconds=2)
                    )
                )

    async def cancel() -> str:
        async with ravo.AsyncSimulator(emulated=True, speed_up=20, timeout=LONG) as simulator:
            with pytest.raises(asyncio.TimeoutError):
                await asyncio.wait_for(simulator.play(ravo.Sine(), seconds=10_000), 1.0)
            assert simulator.simulator.plays[-1].record == "sine"  # as far as it came
            result = (await simulator.play("builtin:CAL20000", seconds=1)).result
            assert (await simulator.compare()).worst <= 0.16
            assert (await simulator.plot(format="svg")).startswith(b"<?xml")
            return result

    assert [played.result for played in asyncio.run(play_two())] == ["finished", "finished"]
    assert asyncio.run(cancel()) == "finished"


def test_a_cancelled_call_is_stopped_and_no_other() -> None:
    """However early: while it waits for its thread, and while it waits for another call's end."""

    async def cancel() -> tuple[str, list[str]]:
        async with ravo.AsyncSimulator(emulated=True, speed_up=20, timeout=LONG) as simulator:
            early = asyncio.create_task(simulator.play(ravo.Sine(), seconds=10_000))
            await asyncio.sleep(0)
            early.cancel()
            first = asyncio.create_task(simulator.play("builtin:CAL20000", seconds=9))
            await asyncio.sleep(0)
            second = asyncio.create_task(simulator.play(ravo.Sine(), seconds=10_000))
            await asyncio.sleep(0)
            second.cancel()
            ends = await asyncio.gather(early, second, return_exceptions=True)
            return (await first).result, [type(end).__name__ for end in ends]

    assert asyncio.run(cancel()) == ("finished", ["CancelledError", "CancelledError"])


_ON_A_PORT = """
import os, ravo
from pathlib import Path
with ravo.Simulator(port=0, timeout=120) as s:
    print(s.emulated, s.device, s.play("builtin:CAL20000", seconds=1).result)
    try:
        s.outputs()
    except ravo.Error as error:
        print(error.where)
try:
    ravo.Simulator(port=1, timeout=1)
except ravo.NoSimulator as error:
    print(error.where)
# Held by this process, as by any other program that drives the port.
Path("/var/lock/tarnwick.ACM0.lock").write_bytes(os.getpid().to_bytes(4, "little"))
try:
    ravo.Simulator(port=0, timeout=1)
except ravo.NoSimulator as error:
    print(error.where, f"(process {os.getpid()})" in error.problem, error.cure)
"""


def test_a_port_is_played_on() -> None:
    """The interpreter, too, runs in the emulated simulator's sandbox: it sees a real port."""
    emulator = Path(os.environ["RAVO_PROGRAMS"], "ravo-emulator")
    said = subprocess.run(
        [emulator, "--", sys.executable, "-c", _ON_A_PORT],
        capture_output=True,
        text=True,
        check=True,
    )
    assert said.stdout.splitlines() == [
        "False /dev/ttyACM0 finished",
        "outputs",
        "/dev/ttyACM1",
        "/dev/ttyACM0 True Wait for its end with a longer timeout, or end it.",
    ]


# ---- What goes wrong ----------------------------------------------------------------------------


@pytest.mark.parametrize(
    ("material", "options", "kind", "where"),
    [
        ("missing.hea", {}, ravo.BadMaterial, "missing.hea"),
        ("builtin:NOTHING", {}, ravo.BadMaterial, "builtin:NOTHING"),
        ("builtin:CAL20000", {"start": 700}, ravo.BadMaterial, "start"),
        ("builtin:CAL20000", {"seconds": -1}, ValueError, "seconds"),
        ("builtin:CAL20000", {"volume": 11}, ValueError, "volume"),
        ("builtin:CAL20000", {"gain": "loud"}, ValueError, "gain"),
        (ravo.Sine(0.001, 1.0), {"seconds": 1}, ValueError, "frequency"),
        (ravo.Sine(10, 1.0), {}, ValueError, "seconds"),
        ("builtin:CAL20000", {"loop": True}, ValueError, "seconds"),
    ],
)
def test_what_cannot_be_played_says_why(
    fast: ravo.Simulator,
    material: ravo.Material,
    options: dict[str, object],
    kind: type[Exception],
    where: str,
) -> None:
    with pytest.raises(kind) as caught:
        fast.play(material, **options)  # type: ignore[arg-type]
    error = caught.value
    assert isinstance(error, ravo.Error)
    assert where in error.where
    assert error.problem and error.problem in str(error)
    assert fast.play("builtin:CAL20000", seconds=1).finished


def test_an_unplugged_simulator_is_lost(tmp_path: Path) -> None:
    control = str(tmp_path / "control")
    emulator = str(Path(os.environ["RAVO_PROGRAMS"], "ravo-emulator"))

    def unplug(progress: ravo.Progress) -> None:
        if progress.frames_played > 0:
            subprocess.run([emulator, "--tell", control, "vanish"], check=False)

    settings = ravo.Emulator(arguments=["--control", control])
    with ravo.Simulator(emulated=settings, timeout=LONG, progress=unplug) as simulator:
        with pytest.raises(ravo.OutputLost) as caught:
            simulator.play(ravo.Sine(1, 1.0), seconds=60)
        assert simulator.played == caught.value.played
    assert caught.value.where == "/dev/ttyACM0"
    assert caught.value.played is not None
    assert caught.value.played.result == "lost"
    assert caught.value.played.seconds < 60


def test_without_a_simulator_there_is_a_cure() -> None:
    with pytest.raises(ravo.NoSimulator) as caught:
        ravo.Simulator(emulated=ravo.Emulator(arguments=["--absent"]), timeout=1)
    assert "no such port" in caught.value.problem
    assert caught.value.cure


def test_a_dead_worker_is_an_exception() -> None:
    with ravo.Simulator(emulated=True, timeout=LONG) as simulator:
        threading.Timer(0.5, os.kill, (simulator.process, signal.SIGKILL)).start()
        with pytest.raises(ravo.Crashed):
            simulator.play(ravo.Sine(1, 1.0), seconds=60)
        assert not simulator.is_open
        with pytest.raises(ravo.Error):
            simulator.outputs()


def test_a_closed_simulator_says_so() -> None:
    simulator = ravo.Simulator(emulated=True, timeout=LONG)
    simulator.close()
    simulator.close()
    with pytest.raises(ravo.Error, match="closed"):
        simulator.play("builtin:CAL20000")


def test_outputs_need_a_play() -> None:
    with ravo.Simulator(emulated=True, timeout=LONG) as simulator:
        with pytest.raises(ravo.Error, match="Play something first"):
            simulator.outputs()


# ---- The end ------------------------------------------------------------------------------------

_PLAYS = """
import ravo, signal, sys
signal.signal(signal.SIGINT, signal.default_int_handler)
simulator = ravo.Simulator(emulated=True, timeout=120)
print(simulator.process, flush=True)
try:
    simulator.play(ravo.Sine(1, 1.0), seconds=1000, progress=lambda p: print("plays", flush=True))
except KeyboardInterrupt:
    print("interrupted", simulator.is_open, flush=True)
"""


def start_player() -> subprocess.Popen[str]:
    player = subprocess.Popen([sys.executable, "-c", _PLAYS], stdout=subprocess.PIPE, text=True)
    assert player.stdout is not None
    player.stdout.readline()
    assert player.stdout.readline() == "plays\n"
    return player


def test_a_killed_interpreter_leaves_nothing() -> None:
    player = start_player()
    processes = descendants(player.pid)
    assert len(processes) == 2  # the emulator and its worker
    player.kill()
    player.communicate()
    assert wait_until(lambda: all(map(is_gone, processes)), 30)


def test_a_fork_that_lives_on_keeps_no_worker() -> None:
    forks = _PLAYS.replace("try:", "import os, time\nif os.fork() == 0: time.sleep(600)\ntry:")
    player = subprocess.Popen(
        [sys.executable, "-c", forks], stdout=subprocess.PIPE, text=True, start_new_session=True
    )
    assert player.stdout is not None
    worker = int(player.stdout.readline())
    assert player.stdout.readline() == "plays\n"
    player.kill()
    player.wait()
    try:
        assert wait_until(lambda: is_gone(worker), 30)
    finally:
        os.killpg(player.pid, signal.SIGKILL)
        player.stdout.close()


def test_ctrl_c_ends_the_play_and_not_the_simulator() -> None:
    player = start_player()
    processes = descendants(player.pid)
    player.send_signal(signal.SIGINT)
    said, _ = player.communicate(timeout=LONG)
    assert said.splitlines()[-1] == "interrupted True"
    assert player.returncode == 0
    assert all(map(is_gone, processes))


def test_nothing_is_left_behind(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("TMPDIR", str(tmp_path))
    threads = threading.active_count()
    files = len(os.listdir("/proc/self/fd"))
    children = descendants(os.getpid())
    for _ in range(3):
        with ravo.Simulator(emulated=True, speed_up=20, timeout=LONG) as simulator:
            simulator.play(ravo.Samples([[0.0, 1.0]], 500, ["I"]))
    ravo.preview("builtin:CAL20000")
    assert threading.active_count() <= threads
    assert len(os.listdir("/proc/self/fd")) == files
    assert descendants(os.getpid()) == children
    assert list(tmp_path.iterdir()) == []
