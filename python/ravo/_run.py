"""Test plans."""

from __future__ import annotations

import dataclasses
import datetime
import json
import os
import tempfile
from pathlib import Path
from typing import Any, Mapping, Sequence

from ravo._emulator import Emulator
from ravo._errors import BadMaterial, Error
from ravo._programs import program, run_json

_DONE, _OUTPUT_LOST, _FAILED = 0, 4, 5


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
        json: everything that result.json has of it.
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
        steps: what became of each.
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
    return "".join(
        f"{json.dumps(name, ensure_ascii=False)} = {json.dumps(value, ensure_ascii=False)}\n"
        for name, value in answers.items()
    )


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
    """Carries a test plan out; journal, result and reports are in the folder `output` afterwards.

    Args:
        plan: a file of TOML; `ravo run --example` prints one.
        output: folder that is not there yet or, with `resume`, the one of the run to go on with.
        answers: to the plan's questions: {"name": value}, or a file of TOML.
        only: carry out this step only.
        begin_with: begin with this step.
        operator: who carries it out.
        emulated: on an emulated simulator: True, or an `Emulator` with settings.
        port: only the simulator on /dev/ttyACM<port>.
        timeout: seconds to wait for the simulator, also for one that went away.
        speed_up: of an emulated simulator: how many times faster than real time.

    Returns:
        The result, whether it passed, failed or is incomplete.

    Raises:
        BadRequest, BadMaterial: the plan or its material is wrong; nothing was played.
        NoSimulator: there was none.
        CannotWrite: the folder is taken, in use, read-only or full.
    """
    emulator = (Emulator() if emulated is True else emulated) or None
    if emulator is not None and speed_up is not None:
        emulator = dataclasses.replace(emulator, speed_up=float(speed_up))
    line = [program("ravo-emulator"), *emulator.command_line(), "--"] if emulator else []
    line += [program("ravo"), "run", os.fspath(plan), "--output", os.fspath(output), "--json"]
    line += ["--timeout", str(max(1, round(timeout)))]
    factor = emulator.speed_up if emulator else speed_up
    given = {
        "--port": port,
        "--only": only,
        "--from": begin_with,
        "--operator": operator,
        "--speed-up": repr(factor) if factor and factor >= 1.0 else None,
    }
    for name, value in given.items():
        line += [name, str(value)] if value is not None else []
    line += ["--resume"] if resume else []
    with tempfile.NamedTemporaryFile("w", suffix=".toml", encoding="utf-8") as file:
        if isinstance(answers, Mapping):
            file.write(_answers_text(answers))
            file.flush()
            line += ["--answers", file.name]
        elif answers is not None:
            line += ["--answers", os.fspath(answers)]
        try:
            run_json(line, accepted=(_DONE, _FAILED))
        except Error:
            # A simulator that is gone for good leaves a result all the same.
            if not _is_incomplete(Path(output)):
                raise
    return _result(Path(output))


def _is_incomplete(folder: Path) -> bool:
    try:
        return _result(folder).outcome == "incomplete"
    except Error:
        return False
