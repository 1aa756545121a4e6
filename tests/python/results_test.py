"""Results have the types that their annotations declare."""

from __future__ import annotations

import collections.abc
import dataclasses
import datetime
import types
import typing
from pathlib import Path
from typing import Any

import numpy as np

import ravo


def is_of(kind: Any, value: object) -> bool:
    """Whether a value is exactly of a type: 1 is not a float."""
    origin, arguments = typing.get_origin(kind), typing.get_args(kind)
    if kind is Any:
        return True
    if origin in (typing.Union, types.UnionType):
        return any(is_of(one, value) for one in arguments)
    if origin is np.ndarray:
        return isinstance(value, np.ndarray) and value.dtype == np.float64
    if origin is collections.abc.Sequence:
        return isinstance(value, tuple) and all(is_of(arguments[0], item) for item in value)
    if origin is collections.abc.Mapping:
        name, item = arguments
        return isinstance(value, dict) and all(
            is_of(name, n) and is_of(item, v) for n, v in value.items()
        )
    if dataclasses.is_dataclass(kind):
        return type(value) is kind and not wrong_of(value)
    return isinstance(value, kind) and (kind not in (int, float, bool) or type(value) is kind)


def wrong_of(result: Any) -> list[str]:
    """The fields that do not have the declared type."""
    hints = typing.get_type_hints(type(result))
    return [
        f"{type(result).__name__}.{field.name}: {getattr(result, field.name)!r}"
        for field in dataclasses.fields(result)
        if not is_of(hints[field.name], getattr(result, field.name))
    ]


def test_the_check_can_fail() -> None:
    wrong = ravo.Finding(check=1, state="ok", code="", found="", cure="", port=None)  # type: ignore[arg-type]
    assert wrong_of(wrong) == ["Finding.check: 1"]
    assert not is_of(float, 1) and not is_of(int, True) and is_of(float | None, None)
    assert is_of(datetime.datetime, datetime.datetime.now())


def test_plays_are_typed(fast: ravo.Simulator) -> None:
    seen: list[ravo.Progress] = []
    material = ravo.Samples([[7.0] * 500, [1.0] * 500], 500, ["I", "V1"])
    played = fast.play(material, gain={"V1": 2}, progress=seen.append)
    assert wrong_of(played) == [] and played.clipped == {"I": 7.0} and played.gain == {"V1": 2.0}
    assert wrong_of(fast.compare()) == []
    with fast.playing(ravo.Sine(10, 1)) as playing:
        pass
    assert wrong_of(playing.played) == []
    fast.play(ravo.Sine(1, 1), seconds=10, progress=seen.append)
    assert seen and [wrong for progress in seen for wrong in wrong_of(progress)] == []


def test_records_are_typed(tmp_path: Path) -> None:
    (tmp_path / "r.hea").write_text("r 1 250 500\nr.dat 16 200 16 0 0 0 0 II\n")
    (tmp_path / "r.dat").write_bytes(bytes(1000))
    (tmp_path / "r.atr").write_bytes(bytes([250, 1 << 2, 0, 0]))  # a beat at 1 s
    record = ravo.load(tmp_path / "r.hea")
    assert wrong_of(record) == [] and [a.time for a in record.annotations] == [1.0]
    assert wrong_of(ravo.preview(tmp_path / "r.hea", seconds=1)) == []


def test_figures_are_typed(tmp_path: Path) -> None:
    path = tmp_path / "beats.csv"
    path.write_text("seconds,code\n1.0,N\n2.0,V\n3.0,N\n")
    assert wrong_of(ravo.score(path, path, learning=0)) == []
    assert wrong_of(ravo.doctor(port=127, timeout=1)) == []
    plan = tmp_path / "plan.toml"
    plan.write_text(
        'title = "x"\n[[step]]\nname = "a"\nmaterial = "builtin:CAL20000"\nseconds = 1.0\n'
        '[[step]]\nname = "b"\nask = "Level"\n'
    )
    out = tmp_path / "out"
    result = ravo.run(plan, out, answers={"b": 1}, emulated=True, speed_up=20, timeout=120)
    assert result.passed and wrong_of(result) == []
