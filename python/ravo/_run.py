"""Test plans."""

from __future__ import annotations

import contextlib
import dataclasses
import datetime
import functools
import json
import math
import os
import tempfile
from pathlib import Path
from typing import Any, Iterator, Mapping, Sequence

from ravo import _arguments
from ravo._emulator import Emulator, emulator_of, speed_up_of
from ravo._errors import BadMaterial, Error, OutputLost
from ravo._programs import program, run_json

__tracebackhide__ = True  # pytest shows the caller's line

_DONE, _FAILED = 0, 5


@dataclasses.dataclass(frozen=True)
class Step:
    """One step of a plan that has been carried out.

    Attributes:
        name: of the result: NAME, NAME[value,value], NAME#2.
        kind: "material", "ask", "wait" or "hook".
        outcome: "passed", "failed", "error" or "skipped".
        attempts: how often it was begun.
        started, ended: when; None for a step that was not begun.
        seconds: how long it took.
        message: why it failed; may be empty.
        values: of questions and hooks: what was answered.
        json: everything that result.json states about it.
    """

    name: str
    kind: str
    outcome: str
    attempts: int
    started: datetime.datetime | None
    ended: datetime.datetime | None
    seconds: float
    message: str
    values: Mapping[str, float | str]
    json: Mapping[str, Any] = dataclasses.field(repr=False)

    def __getitem__(self, name: str) -> Any:
        """A field of result.json: step["framesPlayed"]."""
        return self.json[name]


@dataclasses.dataclass(frozen=True)
class RunResult:
    """A plan that has been carried out.

    Attributes:
        title: the plan's.
        outcome: "passed", "failed" or "incomplete".
        stand_ins: whether any step played stand-ins of built-in records.
        steps: the result of each.
        folder: where journal, result and reports are.
        json: everything, as result.json has it.
    """

    title: str
    outcome: str
    stand_ins: bool
    steps: Sequence[Step]
    folder: Path
    json: Mapping[str, Any] = dataclasses.field(repr=False)

    @property
    def passed(self) -> bool:
        """Whether every step passed."""
        return self.outcome == "passed"

    def __getitem__(self, name: str) -> Step:
        """The step of that name."""
        for step in self.steps:
            if step.name == name:
                return step
        raise KeyError(name)


def _instant(text: object) -> datetime.datetime | None:
    return datetime.datetime.fromisoformat(text) if isinstance(text, str) and text else None


def _step(found: Mapping[str, Any]) -> Step:
    return Step(
        name=str(found["name"]),
        kind=str(found["kind"]),
        outcome=str(found["outcome"]),
        attempts=int(found.get("attempts") or 0),
        started=_instant(found.get("started")),
        ended=_instant(found.get("ended")),
        seconds=float(found.get("seconds") or 0.0),
        message=str(found.get("message") or ""),
        values=found.get("values") or {},
        json=found,
    )


def _result(folder: Path) -> RunResult:
    path = folder / "result.json"
    try:
        found = json.loads(path.read_bytes())
    except (OSError, ValueError) as error:
        raise BadMaterial(str(path), f"cannot be read: {error}.") from error
    return RunResult(
        title=str(found["title"]),
        outcome=str(found["outcome"]),
        stand_ins=bool(found["standIns"]),
        steps=tuple(_step(step) for step in found["steps"]),
        folder=folder,
        json=found,
    )


def _answers_text(answers: Mapping[str, float | str]) -> str:
    # What JSON writes of names, texts and numbers is TOML as well.
    line = functools.partial(json.dumps, ensure_ascii=False)
    return "".join(
        f"{line(_arguments.text('answers', name))} = {line(_answer(name, value))}\n"
        for name, value in answers.items()
    )


def _answer(name: str, value: object) -> object:
    where = f"answers[{name!r}]"
    if isinstance(value, str):
        return _arguments.text(where, value)
    return _arguments.number(where, value, "Give a number or a text.")


def run(
    plan: str | os.PathLike[str],
    output: str | os.PathLike[str],
    *,
    resume: bool = False,
    answers: str | os.PathLike[str] | Mapping[str, float | str] | None = None,
    only: str | None = None,
    begin_with: str | None = None,
    operator: str | None = None,
    emulated: bool | Emulator = False,
    port: int | None = None,
    timeout: float = 10.0,
    speed_up: float | None = None,
) -> RunResult:
    """Carries out a test plan; journal, result and reports are in the folder `output` afterwards.

    Args:
        plan: a file of TOML; `ravo run --example` prints one.
        output: folder that does not exist yet or, with `resume`, that of the run to continue.
        answers: to the plan's questions: {"name": value}, or a file of TOML.
        only: carry out this step only.
        begin_with: begin with this step.
        operator: who carries it out.
        emulated: to run on an emulated simulator: True, or an `Emulator` with settings.
        port: only the simulator on /dev/ttyACM<port>; for real ones.
        timeout: seconds to wait for the simulator, also after a loss; up to 86400.
        speed_up: of an emulated simulator: how many times faster than real time, 0.001 to 1000.

    Returns:
        The result, whether it passed, failed or is incomplete.

    Raises:
        BadRequest, BadMaterial: the plan or its material is wrong; nothing was played.
        NoSimulator: there was none.
        CannotWrite: the folder is taken, in use, read-only or full.
    """
    emulator = emulator_of(emulated, port, speed_up=speed_up)
    folder = Path(_arguments.path("output", output))
    line = [program("ravo-emulator"), *emulator.command_line(), "--"] if emulator else []
    line += [program("ravo"), "run", "--json", _arguments.operand("plan", plan)]
    line += ["--resume"] if _arguments.truth("resume", resume) else []
    cure = "Give 0 to 86400 seconds."
    seconds = _arguments.number("timeout", timeout, cure, least=0.0, most=86400.0)
    given = {
        "output": folder,
        "timeout": max(1, math.ceil(seconds)),
        "port": _arguments.port(port),
        "speed-up": _factor(emulator.speed_up if emulator else speed_up),
        "only": _text("only", only),
        "from": _text("begin_with", begin_with),
        "operator": _text("operator", operator),
    }
    line += [f"--{name}={value}" for name, value in given.items() if value is not None]
    with _answers_file(answers) as file:
        line += [f"--answers={file}"] if file else []
        try:
            run_json(line, accepted=(_DONE, _FAILED))
        except OutputLost:
            # A run whose simulator is gone for good still has a result.
            if not _is_incomplete(folder):
                raise
        except Error as error:
            # Whatever the folder holds is another run's.
            raise _about_answers(error, file if isinstance(answers, Mapping) else "")
    return _result(folder)


def _factor(speed_up: object) -> float | None:
    """None for less than 1: a plan's waits keep their length, however slowly it is played."""
    factor = 1.0 if speed_up is None else speed_up_of(speed_up)
    return factor if factor > 1.0 else None


def _text(where: str, value: object) -> str | None:
    return None if value is None else _arguments.text(where, value)


@contextlib.contextmanager
def _answers_file(answers: object) -> Iterator[str]:
    """The path of a file of answers; empty when there are none."""
    if isinstance(answers, Mapping):
        with tempfile.NamedTemporaryFile("w", suffix=".toml", encoding="utf-8") as file:
            file.write(_answers_text(answers))
            file.flush()
            yield file.name
    else:
        cure = 'Give {"name": value}, or a file of TOML.'
        yield "" if answers is None else _arguments.path("answers", answers, cure)


def _about_answers(error: Error, file: str) -> Error:
    """An error in the temporary file is one in the argument from which it was made."""
    if not file or error.where != file:
        return error
    return type(error)("answers", error.problem.replace(f"{file}:", "line "), error.cure)


def _is_incomplete(folder: Path) -> bool:
    try:
        return _result(folder).outcome == "incomplete"
    except Error:
        return False
