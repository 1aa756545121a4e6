"""Arguments of a wrong kind: each is refused by name, with one class of exception."""

from __future__ import annotations

import asyncio
import inspect
import pickle
from pathlib import Path
from typing import Any, Callable, Mapping

import numpy as np
import pytest

import ravo

# : Classes that only the package itself instantiates, and names that are not calls.
RESULTS = {
    "LEADS", "OUTPUTS", "Annotation", "Comparison", "Detection", "Figures", "Finding", "Findings",
    "Material", "Played", "Playing", "Preview", "Progress", "Record", "RunResult", "Score",
    "Signal", "Step",
}  # fmt: skip

#: What is raised, and the asynchronous twin, which has the arguments of Simulator.
OTHERS = {
    "AsyncSimulator", "BadMaterial", "BadRequest", "CannotWrite", "Crashed", "Error",
    "NoSimulator", "OutputLost", "Timeout",
}  # fmt: skip

CAL = "builtin:CAL20000"

#: Each public call with arguments that are right.
CALLS: Mapping[str, tuple[Callable[..., Any], Mapping[str, Any]]] = {
    "Builtin": (ravo.Builtin, {"name": "CAL20000"}),
    "Calibration": (ravo.Calibration, {}),
    "Emulator": (ravo.Emulator, {}),
    "NoiseStress": (ravo.NoiseStress, {"record": "a.hea", "noise": "b.hea", "snr": 6}),
    "Picture": (ravo.Picture, {"data": b"", "format": "png"}),
    "RectanglePulse": (ravo.RectanglePulse, {}),
    "Samples": (ravo.Samples, {"array": [0.0], "rate": 500, "leads": ["I"]}),
    "Simulator": (ravo.Simulator, {}),
    "Sine": (ravo.Sine, {}),
    "Square": (ravo.Square, {}),
    "Staircase": (ravo.Staircase, {}),
    "Triangle": (ravo.Triangle, {}),
    "TrianglePulse": (ravo.TrianglePulse, {}),
    "compare": (ravo.compare, {"material": CAL, "outputs": np.zeros((8, 9))}),
    "doctor": (ravo.doctor, {}),
    "load": (ravo.load, {"path": CAL}),
    "plot": (ravo.plot, {"material": CAL}),
    "preview": (ravo.preview, {"material": CAL}),
    "run": (ravo.run, {"plan": "plan.toml", "output": "out"}),
    "score": (ravo.score, {"reference": "r.csv", "test": "t.csv"}),
}

METHODS: Mapping[str, Mapping[str, Any]] = {
    "play": {"material": CAL, "seconds": 1},
    "playing": {"material": CAL},
    "plot": {},
    "echo": {"array": [0.0]},
}


def parameters(call: Callable[..., Any]) -> list[str]:
    kinds = (inspect.Parameter.POSITIONAL_OR_KEYWORD, inspect.Parameter.KEYWORD_ONLY)
    found = inspect.signature(call).parameters.values()
    return [p.name for p in found if p.kind in kinds and p.name != "self"]


def refused(call: Callable[..., Any], **arguments: Any) -> ravo.BadRequest:
    with pytest.raises(ravo.BadRequest) as caught:
        made = call(**arguments)
        if isinstance(made, ravo.Playing):
            made.__enter__()
    error = caught.value
    assert isinstance(error, ravo.BadMaterial)
    assert isinstance(error, ValueError) and isinstance(error, TypeError)
    assert error.problem and error.cure
    return error


def test_every_public_name_is_looked_at() -> None:
    assert RESULTS | OTHERS | set(CALLS) == set(ravo.__all__)


@pytest.mark.parametrize(
    ("name", "argument"), [(name, a) for name in CALLS for a in parameters(CALLS[name][0])]
)
def test_an_argument_that_nothing_takes_is_refused(name: str, argument: str) -> None:
    call, right = CALLS[name]
    assert refused(call, **{**right, argument: object()}).where == argument


@pytest.mark.parametrize(
    ("name", "argument"),
    [(name, a) for name in METHODS for a in parameters(getattr(ravo.Simulator, name))],
)
def test_a_simulator_refuses_likewise(fast: ravo.Simulator, name: str, argument: str) -> None:
    fast.play(CAL, seconds=0.1)
    call = getattr(fast, name)
    assert refused(call, **{**METHODS[name], argument: object()}).where == argument
    assert fast.play(CAL, seconds=0.1).finished


# ---- Wrong in their own ways --------------------------------------------------------------------


@pytest.mark.parametrize(
    ("material", "cure"),
    [
        (None, "a file's path"),
        (3, "a file's path"),
        (b"100.hea", "a file's path"),
        ("", "a file's path"),
        ("a\0.hea", "a file's path"),
        ("a\udcff.hea", "a file's path"),
        (np.zeros((1, 9)), "ravo.Samples(array"),
        ([0.0, 1.0], "ravo.Samples(array"),
        (ravo.Sine, "ravo.Sine(...)"),
    ],
)
def test_what_is_no_material_has_a_cure(fast: ravo.Simulator, material: Any, cure: str) -> None:
    error = refused(fast.play, material=material)
    assert error.where == "material" and cure in error.cure


@pytest.mark.parametrize(
    ("options", "where"),
    [
        ({"start": "1"}, "start"),
        ({"start": -1}, "start"),
        ({"seconds": True}, "seconds"),
        ({"seconds": 10**400}, "seconds"),
        ({"timeout": -1}, "timeout"),
        ({"timeout": float("nan")}, "timeout"),
        ({"gain": 1j}, "gain"),
        ({"gain": {"II": float("inf")}}, "gain"),
        ({"gain": {"Q": 1.0}}, "gain"),
        ({"gain": {(1, 2): 1.0}}, "gain"),
        ({"gain": np.ones(3)}, "gain"),
        ({"map": {"I": "Q"}}, "map"),
        ({"map": 3}, "map"),
        ({"noise_record": 3}, "noise_record"),
        ({"format": b"wfdb"}, "format"),
    ],
)
def test_wrong_options_are_named(
    fast: ravo.Simulator, options: dict[str, Any], where: str
) -> None:
    assert refused(fast.play, material=CAL, **{"seconds": 1, **options}).where == where


def test_a_refusal_shows_the_value(fast: ravo.Simulator) -> None:
    error = refused(fast.play, material=CAL, seconds=1, map={"I": "Q"})
    assert error.problem == 'is {"I":"Q"}.'


def test_a_cure_speaks_of_arguments(fast: ravo.Simulator, tmp_path: Path) -> None:
    (tmp_path / "r.hea").write_text("r 1 500 3\nr.dat 16 200 16 0 0 0 0 odd\n")
    (tmp_path / "r.dat").write_bytes(bytes(6))
    error = refused(fast.play, material=tmp_path / "r.hea", map={"none": "II"})
    assert error.where == "map" and error.problem.startswith("none names no signal")
    with pytest.raises(ravo.BadRequest) as caught:
        fast.play(CAL, seconds=1, snr=6.0, noise_record="x.hea")
    assert caught.value.where == "noise_record"
    assert caught.value.cure.startswith("noise adds")


@pytest.mark.parametrize(
    ("setting", "value"),
    [
        ("unit", "9"),
        ("unit", 16),
        ("speed_up", 0),
        ("speed_up", True),
        ("speed_up", 1001.0),
        ("clock_ppm", 1e6),
        ("uncalibrated", 1),
        ("range", 0.0),
        ("faults", "@1 vanish"),
        ("faults", [1]),
        ("arguments", "--absent"),
        ("arguments", {"--absent": True}),
    ],
)
def test_wrong_settings_are_refused(setting: str, value: Any) -> None:
    assert refused(ravo.Emulator, **{setting: value}).where == setting


def test_what_the_emulator_refuses_is_a_wrong_argument() -> None:
    wrong = ravo.Emulator(faults=["@1 fly"])
    assert refused(ravo.Simulator, emulated=wrong).where == "faults"
    assert refused(ravo.Simulator, emulated=ravo.Emulator(arguments=["--fly"])).where == "arguments"


@pytest.mark.parametrize(
    ("arguments", "where"),
    [
        ({"emulated": None}, "emulated"),
        ({"emulated": "16"}, "emulated"),
        ({"emulated": True, "port": 0}, "port"),
        ({"emulated": True, "serial": "X"}, "serial"),
        ({"emulated": True, "speed_up": 0}, "speed_up"),
        ({"speed_up": 2}, "speed_up"),
        ({"port": 128}, "port"),
        ({"port": 0.0}, "port"),
        ({"port": True}, "port"),
        ({"timeout": float("inf")}, "timeout"),
        ({"timeout": "1"}, "timeout"),
    ],
)
def test_a_simulator_that_cannot_be_is_refused(arguments: dict[str, Any], where: str) -> None:
    assert refused(ravo.Simulator, **arguments).where == where

    async def enter() -> None:
        async with ravo.AsyncSimulator(**arguments):
            pass

    with pytest.raises(ravo.BadRequest, match=where):
        asyncio.run(enter())


def test_an_asynchronous_simulator_is_there_in_its_block() -> None:
    with pytest.raises(TypeError, match="emulatd"):
        ravo.AsyncSimulator(emulatd=True)
    with pytest.raises(ravo.Error, match="async with"):
        ravo.AsyncSimulator(emulated=True).simulator


@pytest.mark.parametrize(
    "array",
    [
        None,
        "1.0",
        [[1j]],
        [["a"]],
        [[1.0, 2.0], [3.0]],
        [[None]],
        np.ma.masked_equal([[1.0, 2.0]], 2.0),
        np.array([["2026-01-01"]], "datetime64[D]"),
    ],
)
def test_what_holds_no_millivolts_is_refused(array: Any) -> None:
    assert refused(ravo.Samples, array=array, rate=500, leads=["I"]).where == "array"


@pytest.mark.parametrize("rate", [None, "500", 1j, 0, -1, 1e9, float("inf"), True])
def test_what_is_no_rate_is_refused(rate: Any) -> None:
    error = refused(ravo.Samples, array=[0.0], rate=rate, leads=["I"])
    assert error.where == "rate" and "1000000" in error.cure


def test_too_few_samples_to_play_are_refused(fast: ravo.Simulator) -> None:
    """Of 20 samples at 1000000 per second, 0.4 remain at 20000 per second."""
    error = refused(fast.play, material=ravo.Samples(np.zeros(20), 1e6, ["I"]))
    assert error.where == "array" and "20000" in error.problem
    assert fast.play(ravo.Samples(np.zeros(100), 1e6, ["I"])).frames_due == 2


@pytest.mark.parametrize(
    ("arguments", "where"),
    [
        ({"outputs": np.zeros(9)}, "outputs"),
        ({"outputs": np.zeros((3, 9))}, "outputs"),
        ({"outputs": np.zeros((8, 9), complex)}, "outputs"),
        ({"outputs": np.zeros((8, 0))}, "outputs"),
        ({"outputs": "out.hea", "start": 1.5}, "start"),
        ({"outputs": "out.hea", "material": ravo.Sine(7, 1)}, "outputs"),
        ({"outputs": "out.hea", "gain": 2.0}, "outputs"),
    ],
)
def test_outputs_that_cannot_be_compared_are_refused(
    arguments: dict[str, Any], where: str
) -> None:
    assert refused(ravo.compare, **{"material": CAL, **arguments}).where == where


@pytest.mark.parametrize(
    ("arguments", "where"),
    [
        ({"offset": "1"}, "offset"),
        ({"window": float("nan")}, "window"),
        ({"window": -1}, "window"),
        ({"learning": -5}, "learning"),
        ({"align": 1}, "align"),
        ({"align": True, "offset": 1.0}, "offset"),
        ({"align": True, "clock_ppm": 5}, "clock_ppm"),
        ({"reference": b"r.csv"}, "reference"),
        ({"test": "a\0"}, "test"),
    ],
)
def test_a_score_that_cannot_be_is_refused(arguments: dict[str, Any], where: str) -> None:
    assert refused(ravo.score, **{"reference": "r.csv", "test": "t.csv", **arguments}).where == where


@pytest.mark.parametrize(
    ("arguments", "where"),
    [
        ({"emulated": True, "port": 0}, "port"),
        ({"emulated": True, "speed_up": 0}, "speed_up"),
        ({"speed_up": "2"}, "speed_up"),
        ({"timeout": float("inf")}, "timeout"),
        ({"answers": {3: 1.0}}, "answers"),
        ({"answers": {"a": None}}, "answers['a']"),
        ({"answers": {"a": float("nan")}}, "answers['a']"),
        ({"resume": "yes"}, "resume"),
    ],
)
def test_a_run_that_cannot_be_is_refused(arguments: dict[str, Any], where: str) -> None:
    assert refused(ravo.run, **{"plan": "p.toml", "output": "out", **arguments}).where == where


def test_an_answer_to_no_question_is_named(tmp_path: Path) -> None:
    plan = tmp_path / "plan.toml"
    plan.write_text('title = "Level"\n[[step]]\nname = "level"\nask = "Level"\n')
    arguments = {"plan": plan, "output": tmp_path / "out", "answers": {"leve": 1.0}}
    error = refused(ravo.run, **arguments)
    assert error.where == "answers" and "leve" in error.problem
    assert ".toml" not in error.problem


# ---- Right in numpy's way -----------------------------------------------------------------------


class Odd(float):
    """A number whose repr is not a plain number, as numpy's since version 2."""

    def __repr__(self) -> str:
        return f"np.float64({float(self)})"


def test_numbers_of_numpy_are_numbers(fast: ravo.Simulator) -> None:
    played = fast.play(ravo.Sine(np.float32(5), np.int64(2)), seconds=np.float64(0.5), loop=np.bool_(0))
    assert played.finished
    assert fast.play(ravo.Sine(5, np.ones(8)), seconds=0.5).finished
    settings = ravo.Emulator(speed_up=Odd(2.0), clock_ppm=Odd(5.0), range=Odd(10.0))
    assert "np." not in " ".join(settings.command_line())


def test_a_score_takes_any_number_and_any_name(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.chdir(tmp_path)
    Path("-x.csv").write_text("seconds,code\n1.0,N\n2.0,N\n")
    Path("late.csv").write_text("seconds,code\n0.5,N\n1.5,N\n")
    score = ravo.score("-x.csv", "late.csv", learning=np.int64(0), offset=Odd(0.5), report="-r.csv")
    assert (score.gross.qrs.tp, score.gross.qrs.fn, score.gross.qrs.fp) == (2, 0, 0)
    assert Path("-r.csv").is_file()


def test_a_picture_and_an_error_are_copied_whole() -> None:
    picture = pickle.loads(pickle.dumps(ravo.Picture(b"x", "svg")))
    assert (picture, picture.format) == (b"x", "svg")
    error = pickle.loads(pickle.dumps(ravo.BadRequest("gain", "is 3.", "Give 2.")))
    assert (error.where, error.problem, error.cure) == ("gain", "is 3.", "Give 2.")
