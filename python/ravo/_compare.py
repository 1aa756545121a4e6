"""Comparison of outputs with what they should carry."""

from __future__ import annotations

import dataclasses
import os
from typing import Mapping

import numpy as np
import numpy.typing as npt

from ravo import _arguments
from ravo._errors import BadRequest
from ravo._materials import OUTPUTS, Material, Option, request_of
from ravo._programs import program, run_json
from ravo._worker import Floats, Worker

__tracebackhide__ = True  # pytest shows the caller's line


@dataclasses.dataclass(frozen=True)
class Comparison:
    """Largest differences between what outputs carried and what they should have.

    Attributes:
        largest: output: largest difference in microvolts.
        at: output: where that was, in seconds from the start of the play.
        frames: that were compared.
        rate: frames per second.
    """

    largest: Mapping[str, float]
    at: Mapping[str, float]
    frames: int
    rate: float

    @property
    def worst(self) -> float:
        """The largest of all differences, in microvolts."""
        return float(np.max(list(self.largest.values())))

    @classmethod
    def of(cls, expected: Floats, found: Floats, rate: float) -> Comparison:
        """Compares as many frames as both have; arrays of shape (8, frames) in millivolts."""
        expected, found = _eight("expected", expected), _eight("found", found)
        rate = _arguments.number("rate", rate, "Give frames per second.", above=0.0)
        frames = min(expected.shape[1], found.shape[1])
        if frames == 0:
            raise BadRequest("outputs", "hold no frames to compare.", "Play something first.")
        difference = np.abs(found[:, :frames] - expected[:, :frames]) * 1000.0
        where = difference.argmax(axis=1)
        return cls(
            {name: float(row.max()) for name, row in zip(OUTPUTS, difference)},
            {name: float(index) / rate for name, index in zip(OUTPUTS, where)},
            frames,
            rate,
        )


def compare(
    material: Material,
    outputs: npt.ArrayLike | os.PathLike[str],
    *,
    start: float = 0.0,
    **options: Option,
) -> Comparison:
    """Compares outputs with what they should carry when `material` is played.

    Args:
        material: as in `Simulator.play`, with the same options.
        outputs: millivolts, shape (8, frames), as `Simulator.outputs` returns them; or the path of
            a record of the outputs that ravo-emulator has written, which is compared from the
            second on at which it fits best.
        start: second of the material at which the play began; a whole one with a record.
    """
    request = request_of(material)
    if not isinstance(outputs, (str, os.PathLike)):
        found = _eight("outputs", outputs)
        head = {**request.head({**options, "start": start}), "frames": found.shape[1]}
        worker = Worker()
        try:
            answer = worker.call("expected", head, request.payload)
        finally:
            worker.close()
        expected = answer.rows(8, int(answer.result["frames"]))
        return Comparison.of(expected, found, float(answer.result["rate"]))
    if request.samples is not None or any(
        value is not None for value in {**request.options, **options}.values()
    ):
        raise BadRequest(
            "outputs",
            "are a record, and the material is an array or has options.",
            "Give an array of outputs: shape (8, frames), in millivolts.",
        )
    cure = "Give whole seconds, or the outputs as an array."
    second = _arguments.whole("start", _whole_if_it_is(start), cure, least=0, most=10**6)
    line = [program("ravo"), "compare", _arguments.operand("material", request.name)]
    line += [_arguments.operand("outputs", outputs), "--json", "--start", str(second)]
    result = run_json(line)
    return Comparison(
        result["largestDifferenceMicrovolts"], {}, int(result["frames"]), float(result["rate"])
    )


def _whole_if_it_is(value: object) -> object:
    return int(value) if isinstance(value, float) and value.is_integer() else value


def _eight(where: str, outputs: npt.ArrayLike) -> Floats:
    found = _arguments.millivolts(where, outputs)
    if found.ndim != 2 or found.shape[0] != len(OUTPUTS):
        raise BadRequest(
            where, f"has the shape {found.shape}.", "Its shape is (8, frames), in millivolts."
        )
    finite = np.isfinite(found)
    if not finite.all():
        row, frame = np.argwhere(~finite)[0]
        raise BadRequest(
            where,
            f"holds {found[row, frame]} at frame {frame} of output {OUTPUTS[row]}.",
            "Every value is a number of millivolts.",
        )
    return found
