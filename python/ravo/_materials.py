"""What can be played."""

from __future__ import annotations

import dataclasses
import os
from typing import Any, Mapping, Protocol, Sequence, Union, runtime_checkable

import numpy as np
import numpy.typing as npt

from ravo._errors import BadRequest
from ravo._worker import Floats

Option = Union[str, float, bool, Sequence[float], Mapping[str, str], Mapping[str, float], None]

#: The simulator's outputs, in their order.
OUTPUTS = ("I", "II", "V1", "V2", "V3", "V4", "V5", "V6")

#: The standard leads, in the order of previews and loaded records.
LEADS = ("I", "II", "III", "aVR", "aVL", "aVF", "V1", "V2", "V3", "V4", "V5", "V6")


@dataclasses.dataclass(frozen=True)
class Request:
    """Material as the worker takes it."""

    name: str = ""
    options: Mapping[str, Option] = dataclasses.field(default_factory=dict)
    samples: Mapping[str, Any] | None = None
    payload: Floats | None = None
    endless: bool = False

    def head(self, options: Mapping[str, Option]) -> dict[str, Any]:
        """The request's own fields, with further options."""
        given = {**self.options, **options}
        head: dict[str, Any] = {
            "material": self.name,
            "options": {
                name.replace("_", "-"): value for name, value in given.items() if value is not None
            },
        }
        if self.samples is not None:
            head["samples"] = self.samples
        return head


@runtime_checkable
class Described(Protocol):
    """Material that is not a file's name."""

    def request(self) -> Request:
        """What the worker is told."""


#: A file's path, the name of a built-in record ("builtin:MA1_001"), or one of the classes below.
Material = Union[str, "os.PathLike[str]", Described]


def request_of(material: Material) -> Request:
    """Any material as the worker takes it."""
    if isinstance(material, Described):
        return material.request()
    name = os.fspath(material)
    # Names of waveforms are for the command line.
    is_plain = name.startswith("builtin:") or os.sep in name or "." in name
    return Request(name if is_plain else os.path.join(os.curdir, name))


@dataclasses.dataclass(frozen=True)
class Builtin:
    """A record of the built-in CTS/CSE test database, with one of its noises or none."""

    name: str
    noise: str | None = None

    def request(self) -> Request:
        """What the worker is told."""
        return Request("builtin:" + self.name.removeprefix("builtin:"), {"noise": self.noise})


@dataclasses.dataclass(frozen=True)
class NoiseStress:
    """A WFDB record with a noise record mixed in.

    Attributes:
        record: path of the record.
        noise: path of the noise's record.
        snr: signal-to-noise ratio in decibels.
    """

    record: str | os.PathLike[str]
    noise: str | os.PathLike[str]
    snr: float

    def request(self) -> Request:
        """What the worker is told."""
        mix: dict[str, Option] = {"noise_record": os.fspath(self.noise), "snr": self.snr}
        return Request(os.fspath(self.record), mix)


# ---- Waveforms ----------------------------------------------------------------------------------


@dataclasses.dataclass(frozen=True)
class _Shape:
    frequency: float = 1.0
    amplitude: float | Sequence[float] = 1.0

    def _name(self) -> str:
        raise NotImplementedError

    def request(self) -> Request:
        """What the worker is told."""
        amplitude = self.amplitude
        given = amplitude if isinstance(amplitude, (int, float)) else list(amplitude)
        return Request(
            self._name(), {"frequency": self.frequency, "amplitude": given}, endless=True
        )


class Sine(_Shape):
    """A sine.

    `frequency` is in hertz (0.01 to 100), `amplitude` in millivolts peak to peak (-10 to 10): one
    number, or one for each output.
    """

    def _name(self) -> str:
        return "sine"


class Triangle(_Shape):
    """A triangle; frequency and amplitude as of `Sine`."""

    def _name(self) -> str:
        return "triangle"


class Square(_Shape):
    """A square wave; frequency and amplitude as of `Sine`."""

    def _name(self) -> str:
        return "square"


@dataclasses.dataclass(frozen=True)
class _Pulse:
    frequency: float = 1.0
    amplitude: float = 1.0
    width: int = 100

    def _name(self) -> str:
        raise NotImplementedError

    def request(self) -> Request:
        """What the worker is told."""
        options: dict[str, Option] = {
            "frequency": self.frequency,
            "amplitude": self.amplitude,
            "width": self.width,
        }
        return Request(self._name(), options, endless=True)


class RectanglePulse(_Pulse):
    """Rectangular pulses: hertz, millivolts, and the pulses' `width` in milliseconds."""

    def _name(self) -> str:
        return "rectangle-pulse"


class TrianglePulse(_Pulse):
    """Triangular pulses: hertz, millivolts, and the pulses' `width` in milliseconds."""

    def _name(self) -> str:
        return "triangle-pulse"


@dataclasses.dataclass(frozen=True)
class Calibration:
    """The calibration signal: `frequency` in hertz, `amplitude` in millivolts."""

    frequency: float = 1.0
    amplitude: float = 1.0

    def request(self) -> Request:
        """What the worker is told."""
        return Request(
            "calibration", {"frequency": self.frequency, "amplitude": self.amplitude}
        )


@dataclasses.dataclass(frozen=True)
class Staircase:
    """A staircase of 0.2, 1, 2 and 5 mV, up and down; 45 s."""

    def request(self) -> Request:
        """What the worker is told."""
        return Request("staircase")


# ---- Arrays -------------------------------------------------------------------------------------


class Samples:
    """Samples of one's own making.

    On a 16-bit simulator every output plays the code next to what the samples ask for. What is
    beyond 5 mV is clipped there, and `Played.clipped` says so.

    Args:
        array: millivolts, shape (leads, samples), or (samples,) for one lead.
        rate: samples per second. From 92 to 20000 and whole they are played as they are; otherwise
            they are resampled.
        leads: for each row the output that it feeds: I, II, V1 to V6. Outputs that are not named
            carry what zeros in that lead bring about.
    """

    def __init__(self, array: npt.ArrayLike, rate: float, leads: Sequence[str]) -> None:
        self.array: Floats = np.ascontiguousarray(np.atleast_2d(array), dtype=np.float64)
        self.rate = rate
        names = [leads] if isinstance(leads, str) else list(leads)
        self.leads = tuple(_output_named(lead) for lead in names)
        self._check()

    def _check(self) -> None:
        shape = self.array.shape
        if self.array.ndim != 2 or shape[0] != len(self.leads):
            raise BadRequest(
                "array",
                f"has the shape {shape}, which does not fit {len(self.leads)} leads.",
                "Its shape is (leads, samples).",
            )
        if shape[1] == 0 or not self.leads:
            raise BadRequest("array", "holds no samples.")
        if len(set(self.leads)) != len(self.leads):
            raise BadRequest("leads", "name an output twice.")
        if not (np.isfinite(self.rate) and self.rate > 0):
            raise BadRequest("rate", f"is {self.rate!r}.", "It is in samples per second.")
        finite = np.isfinite(self.array)
        if not finite.all():
            row, column = np.argwhere(~finite)[0]
            raise BadRequest(
                "array",
                f"holds {self.array[row, column]} at sample {column} of lead {self.leads[row]}.",
                "Every sample is a number of millivolts.",
            )

    def __repr__(self) -> str:
        return f"Samples({self.array.shape[1]} of {', '.join(self.leads)} at {self.rate:g} Hz)"

    def request(self) -> Request:
        """What the worker is told."""
        described = {
            "rate": np.format_float_positional(self.rate, trim="-"),
            "leads": list(self.leads),
            "frames": self.array.shape[1],
        }
        return Request(samples=described, payload=self.array)


def _output_named(lead: str) -> str:
    for name in OUTPUTS:
        if name.lower() == lead.lower():
            return name
    raise BadRequest(
        "leads", f'"{lead}" is not an output of the simulator.', f"They are {', '.join(OUTPUTS)}."
    )
