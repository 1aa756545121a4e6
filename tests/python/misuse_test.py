"""What must not happen, however a simulator is used: a wrong answer, a wrong code, a hang."""

from __future__ import annotations

import asyncio
import os
import subprocess
import threading
from pathlib import Path
from typing import Any

import numpy as np
import pytest

import ravo
from processes import LONG, wait_until
from ravo._worker import Call, Worker

CAL = "builtin:CAL20000"


# ---- A forked process ---------------------------------------------------------------------------


def test_a_forked_process_is_refused_and_its_parent_goes_on(fast: ravo.Simulator) -> None:
    reader, writer = os.pipe()
    child = os.fork()
    if child == 0:
        said = "played"
        try:
            fast.play(CAL, seconds=1)
        except ravo.Error as error:
            said = error.problem
        fast.close()
        os.write(writer, said.encode())
        os._exit(0)
    os.close(writer)
    os.waitpid(child, 0)
    with os.fdopen(reader) as pipe:
        assert "belongs to the process" in pipe.read()
    played = fast.play("builtin:MA1_001", seconds=2)
    assert (played.record, played.seconds, played.result) == ("MA1_001", 2.0, "finished")


# ---- What is changed while it is used -----------------------------------------------------------


def test_samples_are_copied(fast: ravo.Simulator) -> None:
    array = np.linspace(-1.0, 1.0, 500)
    samples = ravo.Samples(array, 500, ["I"])
    gain = {"I": 0.5}
    fast.play(samples, gain=gain)
    array[:] = np.nan
    gain["I"] = 3.0
    assert fast.compare().worst <= 0.16
    assert fast.play(samples).finished
    with pytest.raises(ValueError):
        samples.array[0, 0] = 1.0


@pytest.mark.parametrize("value", [float("nan"), float("inf"), 1e300])
def test_the_worker_refuses_what_is_no_voltage(fast: ravo.Simulator, value: float) -> None:
    samples = ravo.Samples(np.zeros(500), 500, ["I"])
    samples.array = np.full((1, 500), value)
    with pytest.raises(ravo.BadRequest, match="at sample 0 of lead I") as caught:
        fast.play(samples)
    assert caught.value.where == "array"
    assert fast.play(CAL, seconds=0.1).finished


def test_the_largest_sample_is_a_number(fast: ravo.Simulator) -> None:
    assert fast.play(ravo.Samples([1e15, -1e15], 500, ["I"]), gain=1000).clipped == {"I": 1e18}
    for wrong in (1.1e15, -1e308):
        with pytest.raises(ravo.BadRequest, match="-1e15 to 1e15"):
            ravo.Samples([0.0, wrong], 500, ["I"])


def test_a_lead_that_begins_at_its_limit_is_told(fast: ravo.Simulator) -> None:
    played = fast.play(ravo.Samples([[5.0] * 500, [4.0] * 500], 500, ["V3", "I"]))
    (warning,) = [warning for warning in played.warnings if "limit" in warning]
    assert "Lead V3" in warning and "one code" in warning
    played = fast.play(ravo.Samples([5.0] + [0.0] * 499, 500, ["I"]))
    assert not any("limit" in warning for warning in played.warnings)


# ---- Comparisons --------------------------------------------------------------------------------


def test_outputs_that_are_no_numbers_are_not_compared() -> None:
    outputs = np.zeros((8, 100))
    outputs[4, 7] = np.nan
    with pytest.raises(ravo.BadRequest, match="nan at frame 7 of output V3") as caught:
        ravo.compare(CAL, outputs)
    assert caught.value.where == "outputs"


def test_the_worst_is_never_hidden() -> None:
    found = ravo.Comparison({"I": 1.0, "II": float("nan"), "V1": 0.0}, {}, 1, 500.0)
    assert np.isnan(found.worst)


# ---- Use from within ----------------------------------------------------------------------------


@pytest.mark.parametrize("name", ["outputs", "compare", "plot", "play"])
def test_a_progress_function_cannot_use_the_simulator(fast: ravo.Simulator, name: str) -> None:
    fast.play(CAL, seconds=0.1)
    use = getattr(fast, name)
    arguments: dict[str, Any] = {"material": CAL, "seconds": 1} if name == "play" else {}
    with pytest.raises(ravo.Error, match="is playing"):
        fast.play(ravo.Sine(), seconds=200, progress=lambda _: use(**arguments))
    assert fast.play(CAL, seconds=0.1).finished


def test_a_block_is_entered_before_it_is_left(fast: ravo.Simulator) -> None:
    with pytest.raises(ravo.Error, match="has not begun"):
        fast.playing(ravo.Sine()).__exit__(None, None, None)
    assert fast.is_idle and fast.play(CAL, seconds=0.1).finished


# ---- Stops that come early ----------------------------------------------------------------------


def test_a_stop_during_the_upload_is_heard(
    fast: ravo.Simulator, monkeypatch: pytest.MonkeyPatch
) -> None:
    """As if another thread stopped while half of the array is being sent."""
    send, stops = Worker._send, 0

    def stop_within(worker: Worker, head: Any, payload: Any = None) -> None:
        nonlocal stops
        if head["do"] == "play":
            stopper = threading.Thread(target=fast.stop)
            stopper.start()
            stopper.join()
        stops += head["do"] == "stop"
        send(worker, head, payload)

    monkeypatch.setattr(Worker, "_send", stop_within)
    samples = ravo.Samples(np.zeros((8, 500_000)), 500, ravo.OUTPUTS)
    played = fast.play(samples)
    assert (played.result, stops) == ("interrupted", 1)


def test_ctrl_c_between_request_and_answer_stops_the_output(
    fast: ravo.Simulator, monkeypatch: pytest.MonkeyPatch
) -> None:
    begin = Call.begin

    def interrupted(call: Call, *arguments: Any) -> None:
        begin(call, *arguments)
        raise KeyboardInterrupt

    with monkeypatch.context() as patch:
        patch.setattr(Call, "begin", interrupted)
        with pytest.raises(KeyboardInterrupt):
            fast.play(ravo.Sine(), seconds=10_000)
    # Nothing is left of it: the next one is played at once, and not after 10000 s.
    assert fast.play(CAL, seconds=0.1, timeout=LONG).finished


# ---- asyncio ------------------------------------------------------------------------------------


def test_a_call_that_is_cancelled_in_its_queue_is_never_begun(
    monkeypatch: pytest.MonkeyPatch,
) -> None:
    begun = []
    begin = Call.begin

    def note(call: Call, head: Any = None, payload: Any = None) -> None:
        begun.append((head or {}).get("material"))
        begin(call, head, payload)

    async def cancel() -> str:
        async with ravo.AsyncSimulator(emulated=True, speed_up=20, timeout=LONG) as one:
            monkeypatch.setattr(Call, "begin", note)
            first = asyncio.create_task(one.play(ravo.Sine(), seconds=10_000))
            while not begun:
                await asyncio.sleep(0.01)
            second = asyncio.create_task(one.play(CAL, seconds=1))
            await asyncio.sleep(0.1)
            second.cancel()
            with pytest.raises(asyncio.CancelledError):
                await second
            await one.stop()
            return (await first).result

    assert asyncio.run(cancel()) == "interrupted"
    assert begun == ["sine"]


def test_an_asynchronous_block_plays_until_it_is_left() -> None:
    async def play() -> tuple[Any, Any]:
        async with ravo.AsyncSimulator(emulated=True, speed_up=20, timeout=LONG) as one:
            async with one.playing(ravo.Sine(10, 2.0)) as block:
                for use in (one.outputs, one.compare):
                    with pytest.raises(ravo.Error, match="is playing"):
                        await use()
                with pytest.raises(ravo.Error, match="is playing"):
                    one.simulator.outputs()
                waits = asyncio.create_task(one.play(CAL, seconds=1))
                await asyncio.sleep(0.1)
                assert not waits.done()
            with pytest.raises(ZeroDivisionError):
                async with one.playing(ravo.Sine()):
                    raise ZeroDivisionError
            with pytest.raises(ravo.BadMaterial):
                async with one.playing("missing.hea"):
                    pass
            return block.played, await waits

    block, waited = asyncio.run(play())
    assert block.result == "interrupted" and waited.result == "finished"


def test_a_cancelled_block_is_left() -> None:
    async def play() -> bool:
        async with ravo.AsyncSimulator(emulated=True, speed_up=20, timeout=LONG) as one:

            async def block() -> None:
                async with one.playing(ravo.Sine()):
                    await asyncio.sleep(LONG)

            for pause in (0, 0.01, 1.0):
                task = asyncio.create_task(block())
                await asyncio.sleep(pause)
                task.cancel()
                with pytest.raises(asyncio.CancelledError):
                    await task
                assert one.simulator.is_idle
            return (await one.play(CAL, seconds=0.1)).finished

    assert asyncio.run(play())


# ---- Options that have no meaning ---------------------------------------------------------------


@pytest.mark.parametrize(
    "option",
    [
        {"map": {"I": "V3"}},
        {"rate": 250},
        {"unit": "uV"},
        {"format": "csv"},
        {"missing": "zero"},
        {"as_edf": True},
        {"frequency": 3},
        {"amplitude": 3},
        {"width": 3},
        {"noise_record": "n.hea"},
        {"snr": 6},
    ],
)
def test_samples_have_no_such_option(fast: ravo.Simulator, option: dict[str, Any]) -> None:
    with pytest.raises(ravo.BadRequest) as caught:
        fast.play(ravo.Samples([0.0], 500, ["I"]), **option)
    assert caught.value.where == next(iter(option)) and "Leave it out" in caught.value.cure


def test_a_ratio_needs_a_noise(fast: ravo.Simulator) -> None:
    with pytest.raises(ravo.BadRequest, match="noise_record") as caught:
        fast.play(CAL, seconds=1, snr=6)
    assert caught.value.where == "snr"


@pytest.mark.parametrize(
    ("material", "options", "where", "problem"),
    [
        (CAL, {"start": 700}, "start", "700"),
        (CAL, {"start": 700.5}, "start", "700.5"),
        (ravo.Samples(np.zeros(500), 500, ["I"]), {"start": 5}, "start", "5"),
        (ravo.Samples(np.zeros(500), 50, ["I"]), {"start": 50}, "start", "50"),
        (ravo.Builtin("MA1_001", noise="XX"), {}, "noise", "XX"),
        (CAL, {"gain": {"Q": 1.0}}, "gain", "Q"),
    ],
)
def test_the_argument_is_named(
    fast: ravo.Simulator, material: Any, options: dict[str, Any], where: str, problem: str
) -> None:
    with pytest.raises(ravo.BadMaterial) as caught:
        fast.play(material, seconds=1, **options)
    assert (caught.value.where, problem in str(caught.value)) == (where, True), str(caught.value)


def test_a_name_of_a_waveform_has_a_cure(fast: ravo.Simulator) -> None:
    with pytest.raises(ravo.BadRequest) as caught:
        fast.play("sine", seconds=1)
    assert caught.value.where == "material" and "ravo.Sine(" in caught.value.cure


def test_a_list_within_itself_is_refused(fast: ravo.Simulator) -> None:
    endless: list[Any] = []
    endless.append(endless)
    with pytest.raises(ravo.BadRequest) as caught:
        fast.play(CAL, gain=endless)
    assert caught.value.where == "gain"


def test_an_emulator_is_asked_for_a_simulator() -> None:
    for argument in ("--help", "-h", "--version", "--"):
        with pytest.raises(ravo.BadRequest) as caught:
            ravo.Emulator(arguments=[argument])
        assert caught.value.where == "arguments" and argument in caught.value.problem


# ---- Plans --------------------------------------------------------------------------------------

PLAN = 'title = "One play"\n[[step]]\nname = "a"\nmaterial = "builtin:CAL20000"\nseconds = 1.0\n'


def test_an_old_result_is_not_that_of_a_run_that_fails(tmp_path: Path) -> None:
    plan, wrong, out = tmp_path / "plan.toml", tmp_path / "wrong.toml", tmp_path / "out"
    plan.write_text(PLAN)
    wrong.write_text(PLAN + "volume = 11\n")
    with pytest.raises(ravo.NoSimulator):
        ravo.run(plan, out, emulated=ravo.Emulator(arguments=["--absent"]), timeout=1)
    assert '"incomplete"' in (out / "result.json").read_text().replace(" ", "")
    with pytest.raises(ravo.CannotWrite):
        ravo.run(plan, out, emulated=True, speed_up=20)
    with pytest.raises(ravo.BadMaterial):
        ravo.run(wrong, out, emulated=True)
    with pytest.raises(ravo.BadMaterial):
        ravo.run(tmp_path / "missing.toml", out, emulated=True)
    with pytest.raises(ravo.BadRequest) as caught:
        ravo.run(plan, out, emulated=True, resume=True, only="b")
    assert caught.value.where == "only"


def test_a_run_that_lost_its_simulator_has_a_result(tmp_path: Path) -> None:
    plan = tmp_path / "plan.toml"
    plan.write_text(PLAN.replace("1.0", "600.0\nloop = true"))
    journal, control = tmp_path / "out/journal.jsonl", str(tmp_path / "control")

    def unplug() -> None:
        wait_until(lambda: journal.exists() and '"event":"begin"' in journal.read_text())
        emulator = Path(os.environ["RAVO_PROGRAMS"], "ravo-emulator")
        subprocess.run([emulator, "--tell", control, "vanish"], check=False)

    thread = threading.Thread(target=unplug)
    thread.start()
    settings = ravo.Emulator(arguments=["--control", control])
    result = ravo.run(plan, tmp_path / "out", emulated=settings, timeout=5)
    thread.join()
    assert result.outcome == "incomplete"
