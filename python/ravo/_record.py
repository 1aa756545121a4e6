"""Records as arrays."""

from __future__ import annotations

import dataclasses
import os
from typing import Any, Mapping, Sequence

import numpy as np

from ravo import _arguments
from ravo._errors import BadRequest
from ravo._materials import (
    LEADS,
    OUTPUTS,
    Described,
    Material,
    Option,
    Request,
    request_of,
    settled,
)
from ravo._worker import Answer, Floats, Worker

__tracebackhide__ = True  # pytest shows the caller's line


@dataclasses.dataclass(frozen=True)
class Annotation:
    """An annotation of a record.

    Attributes:
        time: seconds from the record's beginning.
        sample: the same in the record's samples.
        code: its usual symbol: "N", "V", "+" ...
        subtype, channel, number: as the file has them.
        text: what was written, may be empty.
    """

    time: float
    sample: int
    code: str
    subtype: int
    channel: int
    number: int
    text: str


@dataclasses.dataclass(frozen=True, eq=False)
class Signal:
    """One signal of a record, as its file has it.

    Attributes:
        description: its name in the record.
        lead: the output that it feeds; None when it feeds none.
        unit: of its samples, "mV" for every voltage.
        rate: samples per second.
        samples: shape (n,); missing ones are NaN.
    """

    description: str
    lead: str | None
    unit: str
    rate: float
    samples: Floats = dataclasses.field(repr=False)


@dataclasses.dataclass(frozen=True, eq=False)
class Record(Described):
    """A record of any format that `Simulator.play` takes; it can be played itself.

    Attributes:
        name: the record's name.
        source: "file", "licensed", "stand-in" or "waveform".
        files: what it was read from.
        date: of its beginning, as it gives it; may be empty.
        rate: samples per second of `samples`.
        leads: the twelve standard leads, which the rows of `samples` are.
        supplied: those of them that the record has, computed ones included.
        samples: millivolts, shape (12, n); zeros in leads that the record does not have, NaN where
            samples are missing.
        signals: all signals, those that feed no lead too.
        annotations: beats and other notes, in the order of time.
        warnings: what should be known about it.
    """

    name: str
    source: str
    files: Sequence[str]
    date: str
    rate: float
    supplied: Sequence[str]
    samples: Floats = dataclasses.field(repr=False)
    signals: Sequence[Signal] = dataclasses.field(repr=False)
    annotations: Sequence[Annotation] = dataclasses.field(repr=False)
    warnings: Sequence[str]
    _request: Request = dataclasses.field(repr=False)
    leads: Sequence[str] = LEADS

    @property
    def seconds(self) -> float:
        """Its length in seconds."""
        return self.samples.shape[1] / self.rate

    def request(self) -> Request:
        """The record as the worker takes it."""
        return self._request


@dataclasses.dataclass(frozen=True, eq=False)
class Preview:
    """What the leads carry when material is played; nothing is clipped.

    Attributes:
        rate: samples per second.
        start: second of the material at which it begins.
        leads: the twelve standard leads, which the rows of `samples` are.
        supplied: those of them that the material feeds.
        samples: millivolts, shape (12, n); zeros in leads that nothing feeds.
        source: as of a `Record`.
        warnings: what should be known about the material.
    """

    rate: float
    start: float
    supplied: Sequence[str]
    samples: Floats = dataclasses.field(repr=False)
    source: str
    warnings: Sequence[str]
    leads: Sequence[str] = LEADS


def _ask(name: str, head: Mapping[str, Any], payload: Floats | None = None) -> Answer:
    worker = Worker()
    try:
        return worker.call(name, head, payload)
    finally:
        worker.close()


def load(path: str | os.PathLike[str], **options: Option) -> Record:
    """Reads a record: WFDB, EDF, EDF+, BDF, CSV, any other file that `ravo info` takes, or a
    built-in one.

    `options` are those of `Simulator.play` that say how to read it, map={"MLII": "I"} for one.
    """
    request = request_of(path, "path")
    if request.samples is not None:
        raise BadRequest("path", "is no file but samples.", "Their `array` has them.")
    answer = _ask("load", request.head(options))
    found = answer.result
    signals, rows = _split(answer)
    samples = _twelve(rows)
    return Record(
        name=str(found["name"]),
        source=str(found["source"]),
        files=tuple(found["files"]),
        date=str(found["date"]),
        rate=float(found["rate"]),
        supplied=tuple(
            lead
            for lead in LEADS
            if lead in rows or (lead not in OUTPUTS and "I" in rows and "II" in rows)
        ),
        samples=samples,
        signals=signals,
        annotations=tuple(Annotation(**annotation) for annotation in found["annotations"]),
        warnings=tuple(found["warnings"]),
        _request=dataclasses.replace(request, options=settled({**request.options, **options})),
    )


def preview(
    material: Material, *, start: float = 0.0, seconds: float = 10.0, **options: Option
) -> Preview:
    """What the leads carry when `material` is played, as far as it goes; nothing is played.

    The arguments are those of `Simulator.play`.
    """
    request = request_of(material)
    length = _arguments.number("seconds", seconds, "Give seconds above 0.", above=0.0)
    head = {**request.head({**options, "start": start}), "length": length}
    answer = _ask("preview", head, request.payload)
    found = answer.result
    return Preview(
        rate=float(found["rate"]),
        start=float(found["start"]),
        supplied=tuple(found["supplied"]),
        samples=answer.rows(len(LEADS), int(found["frames"])),
        source=str(found["source"]),
        warnings=tuple(found["warnings"]),
    )


def _split(answer: Answer) -> tuple[tuple[Signal, ...], dict[str, Floats]]:
    """The signals, and by output the samples that feed it, all at one rate."""
    values = answer.payload.view(np.float64)
    signals = []
    at = 0
    for described in answer.result["signals"]:
        count = int(described["samples"])
        fields = {name: described[name] for name in ("description", "lead", "unit", "rate")}
        signals.append(Signal(**fields, samples=values[at : at + count]))
        at += count
    feeding = answer.result["feeding"]
    frames = answer.result["leadFrames"]
    rows = {}
    for number, index in enumerate(feeding):
        lead = signals[index].lead
        assert lead is not None
        if frames is None:
            rows[lead] = signals[index].samples
        else:
            rows[lead] = values[at + number * frames : at + (number + 1) * frames]
    return tuple(signals), rows


def _twelve(rows: Mapping[str, Floats]) -> Floats:
    frames = max((len(row) for row in rows.values()), default=0)
    samples = np.zeros((len(LEADS), frames))
    for lead, row in rows.items():
        samples[LEADS.index(lead), : len(row)] = row
        samples[LEADS.index(lead), len(row) :] = np.nan
    if "I" in rows and "II" in rows:
        one, two = samples[0], samples[1]
        samples[2] = two - one
        samples[3] = -(one + two) / 2.0
        samples[4] = one - two / 2.0
        samples[5] = two - one / 2.0
    return samples
