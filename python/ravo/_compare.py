"""Outputs against what they should carry."""

from __future__ import annotations

import dataclasses
import os
from typing import Mapping

import numpy as np

from ravo._errors import BadRequest
from ravo._materials import OUTPUTS, Material, Option, request_of
from ravo._programs import program, run_json
from ravo._worker import Floats, Worker


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
        return max(self.largest.values())

    @classmethod
    def of(cls, expected: Floats, found: Floats, rate: float) -> Comparison:
        """Compares as many frames as both have; arrays of shape (8, frames) in millivolts."""
        frames = min(expected.shape[1], found.shape[1])
        if frames == 0:
            raise BadRequest("outputs", "hold no frames to compare.")
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
    outputs: Floats | str | os.PathLike[str],
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
        start: second of the material at which the play began.
    """
    if isinstance(outputs, np.ndarray):
        request = request_of(material)
        head = {**request.head({**options, "start": start or None}), "frames": outputs.shape[1]}
        worker = Worker()
        try:
            answer = worker.call("expected", head, request.payload)
        finally:
            worker.close()
        expected = answer.rows(8, int(answer.result["frames"]))
        return Comparison.of(expected, outputs, float(answer.result["rate"]))
    request = request_of(material)
    if request.samples is not None or options:
        raise BadRequest("outputs", "of samples, or with options, are compared as an array.")
    line = [program("ravo"), "compare", request.name, os.fspath(outputs), "--json"]
    found = run_json([*line, *(["--start", str(int(start))] if start else [])])
    return Comparison(
        found["largestDifferenceMicrovolts"], {}, int(found["frames"]), float(found["rate"])
    )
