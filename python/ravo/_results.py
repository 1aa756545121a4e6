"""The result of a play, as figures that the simulator's own requests prove."""

from __future__ import annotations

import dataclasses
import datetime
import math
from typing import Any, Mapping, Sequence


def _instant(text: str | None) -> datetime.datetime | None:
    return datetime.datetime.fromisoformat(text) if text else None


@dataclasses.dataclass(frozen=True)
class Played:
    """One play, from start to end.

    Attributes:
        record: name of the material.
        path: its file; None for what is no file.
        source: "file", "licensed", "stand-in", "waveform" or "samples".
        device: the simulator's port.
        model: its model.
        serial: its serial number.
        calibrated: whether its own calibration was used.
        calibration: "not-needed", "loaded", "missing" or "damaged".
        version: of the library.
        map: output lead: signal that fed it.
        noise: what was added; None for nothing.
        gain: output lead: factor, where it was not 1.
        clipped: lead: largest voltage in millivolts, where it was beyond the outputs' range.
        started_at: time of the first request; None when none came.
        ended_at: time of the last one.
        start: second of the material at which the play began.
        seconds: of material that the requests prove to have left the outputs.
        seconds_due: of material that was to be played; None without end.
        elapsed: seconds of this machine's clock.
        rate: samples per second of the material.
        frames_per_second: of the outputs.
        nominal_rate: frames per second that the simulator's clock was set to.
        measured_rate: frames per second of this machine's clock; 0 when too few came.
        frames_due: frames that were to be played; None without end.
        frames_played: of those, the ones that the requests prove.
        frames_sent: frames written to the simulator.
        frames_beyond_end: that may have left the outputs after the last one due.
        requests: requests of the simulator.
        delays: delays that it reported.
        largest_delay: the largest of them, in its own unit.
        result: "finished", or "interrupted" when it was stopped; "short" or "lost" in the
            `played` of an `OutputLost`.
        warnings: what should be known about the material and the calibration.
    """

    record: str
    path: str | None
    source: str
    device: str
    model: str
    serial: str
    calibrated: bool
    calibration: str
    version: str
    map: Mapping[str, str]
    noise: str | None
    gain: Mapping[str, float]
    clipped: Mapping[str, float]
    started_at: datetime.datetime | None
    ended_at: datetime.datetime | None
    start: float
    seconds: float
    seconds_due: float | None
    elapsed: float
    rate: float
    frames_per_second: float
    nominal_rate: float
    measured_rate: float
    frames_due: int | None
    frames_played: int
    frames_sent: int
    frames_beyond_end: int
    requests: int
    delays: int
    largest_delay: int
    result: str
    warnings: Sequence[str]

    @classmethod
    def of(cls, answer: Mapping[str, Any]) -> Played:
        """From the JSON of a play."""
        values = _fields(cls, answer)
        values["started_at"] = _instant(answer["startedAt"])
        values["ended_at"] = _instant(answer["endedAt"])
        # JSON cannot represent infinity.
        values["clipped"] = {
            lead: math.inf if peak is None else peak for lead, peak in values["clipped"].items()
        }
        values["warnings"] = tuple(answer.get("warnings", ()))
        return cls(**values)

    @property
    def finished(self) -> bool:
        """Whether every frame due has left the outputs."""
        return self.result == "finished"


@dataclasses.dataclass(frozen=True)
class Progress:
    """The progress of a play.

    Attributes:
        elapsed: seconds since its start.
        played: seconds of material proven to have left the outputs.
        due: seconds of material to play; None without end.
        position: second within the material.
        frames_played: frames proven to have left the outputs.
        measured_rate: frames per second of this machine's clock; 0 when too early to say.
        delays: delays that the simulator reported.
    """

    elapsed: float
    played: float
    due: float | None
    position: float
    frames_played: int
    measured_rate: float
    delays: int

    @classmethod
    def of(cls, event: Mapping[str, Any]) -> Progress:
        """From an event of the worker."""
        return cls(**_fields(cls, event))


def _fields(result: type[Any], answer: Mapping[str, Any]) -> dict[str, Any]:
    """The fields of a result in an answer; in JSON, whole numbers may stand for fractions."""
    kinds = {field.name: str(field.type) for field in dataclasses.fields(result)}
    values = {_snake(name): value for name, value in answer.items()}
    return {
        name: _fraction(value) if "float" in kinds[name] else value
        for name, value in values.items()
        if name in kinds
    }


def _fraction(value: Any) -> Any:
    if isinstance(value, Mapping):
        return {name: _fraction(item) for name, item in value.items()}
    return None if value is None else float(value)


def _snake(name: str) -> str:
    return "".join("_" + letter.lower() if letter.isupper() else letter for letter in name)
