"""Materials that can be played."""

from __future__ import annotations

import dataclasses
import os
from typing import Any, Mapping, Sequence, Union

import numpy as np
import numpy.typing as npt

from ravo import _arguments
from ravo._errors import BadRequest
from ravo._worker import Floats

__tracebackhide__ = True  # pytest shows the caller's line

Option = Union[str, float, bool, Sequence[float], Mapping[str, str], Mapping[str, float], None]

#: The simulator's outputs, in their order.
OUTPUTS = ("I", "II", "V1", "V2", "V3", "V4", "V5", "V6")

_MOST = 1e15  # millivolts that a sample may be

_WAVEFORMS = {
    "sine": "Sine",
    "triangle": "Triangle",
    "square": "Square",
    "rectangle-pulse": "RectanglePulse",
    "triangle-pulse": "TrianglePulse",
    "calibration": "Calibration",
    "staircase": "Staircase",
}

# Options that say how to read a file or make a waveform, and what to use instead for samples.
_OF_OTHERS = {
    "map": "Samples have their own `leads`.",
    "rate": "Samples have their own `rate`.",
    "unit": "Samples are millivolts.",
    "format": "It is for files.",
    "missing": "It is for files; no sample is missing here.",
    "as_edf": "It is for files.",
    "frequency": "It is for waveforms.",
    "amplitude": "It is for waveforms; `gain` changes samples.",
    "width": "It is for waveforms.",
    "noise_record": "It is for WFDB records; `noise` adds noise to samples.",
    "snr": "It is for WFDB records; `noise` adds noise to samples.",
}

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
        given = settled({**self.options, **options})
        self._require_sense(given)
        head: dict[str, Any] = {"material": self.name, "options": given}
        if self.samples is not None:
            head["samples"] = self.samples
        return head

    def _require_sense(self, given: Mapping[str, Any]) -> None:
        for name, cure in _OF_OTHERS.items():
            if self.samples is not None and name in given:
                raise BadRequest(name, "has no meaning for samples.", f"Leave it out. {cure}")
        if "snr" in given and "noise_record" not in given:
            raise BadRequest(
                "snr", "is given without a noise_record.", "Give the noise's record too."
            )


def settled(options: Mapping[str, Option]) -> dict[str, Any]:
    """A copy of the options, independent of the dicts and lists in which they were given."""
    return {
        name: _arguments.option(name, value)
        for name, value in options.items()
        if value is not None
    }


class Described:
    """Material that is not a file's name."""

    def request(self) -> Request:
        """The material as the worker takes it."""
        raise NotImplementedError


#: A file's path, the name of a built-in record ("builtin:MA1_001"), or one of the classes below.
Material = Union[str, "os.PathLike[str]", Described]


def request_of(material: Material, where: str = "material") -> Request:
    """Any material as the worker takes it; `where` is the argument's name."""
    if isinstance(material, Described):
        return material.request()
    name = _arguments.path(where, material, _cure_of(material))
    # The names of waveforms are only for the command line.
    if name in _WAVEFORMS and not os.path.exists(name):
        raise BadRequest(
            where,
            f'is "{name}", and there is no such file.',
            f"Make the waveform: ravo.{_WAVEFORMS[name]}(...).",
        )
    is_plain = name.startswith("builtin:") or os.sep in name or "." in name
    return Request(name if is_plain else os.path.join(os.curdir, name))


def _cure_of(material: object) -> str:
    if isinstance(material, type) and issubclass(material, Described):
        return f"Make one: ravo.{material.__name__}(...)."
    if isinstance(material, (list, tuple)) or hasattr(material, "__array__"):
        return "Wrap an array: ravo.Samples(array, rate=500, leads=[...])."
    return "Give a file's path, a built-in record, a waveform, ravo.Samples or a loaded record."


@dataclasses.dataclass(frozen=True)
class Builtin(Described):
    """A record of the built-in CTS/CSE test database, with one of its noises or none."""

    name: str
    noise: str | None = None

    def __post_init__(self) -> None:
        _arguments.text("name", self.name, 'Give a name: "MA1_001".')
        if self.noise is not None:
            _arguments.text("noise", self.noise, 'Give a name: "50HZ".')

    def request(self) -> Request:
        """The material as the worker takes it."""
        return Request("builtin:" + self.name.removeprefix("builtin:"), {"noise": self.noise})


@dataclasses.dataclass(frozen=True)
class NoiseStress(Described):
    """A WFDB record with a noise record mixed in.

    Attributes:
        record: path of the record.
        noise: path of the noise's record.
        snr: signal-to-noise ratio in decibels.
    """

    record: str | os.PathLike[str]
    noise: str | os.PathLike[str]
    snr: float

    def __post_init__(self) -> None:
        _arguments.path("record", self.record)
        _arguments.path("noise", self.noise)
        _arguments.number("snr", self.snr, "Give decibels, -100 to 100.")

    def request(self) -> Request:
        """The material as the worker takes it."""
        mix: dict[str, Option] = {"noise_record": os.fspath(self.noise), "snr": self.snr}
        return Request(os.fspath(self.record), mix)


# ---- Waveforms ----------------------------------------------------------------------------------


# The worker checks the ranges.


def _hertz(frequency: object) -> None:
    _arguments.number("frequency", frequency, "Give hertz, 0.01 to 100.")


def _peak_to_peak(amplitude: object) -> None:
    _arguments.number("amplitude", amplitude, "Give millivolts, -10 to 10.")


@dataclasses.dataclass(frozen=True)
class _Shape(Described):
    frequency: float = 1.0
    amplitude: float | Sequence[float] = 1.0

    def __post_init__(self) -> None:
        _hertz(self.frequency)
        amplitude = _arguments.option("amplitude", self.amplitude)
        for one in amplitude if isinstance(amplitude, list) else [amplitude]:
            _peak_to_peak(one)

    def _name(self) -> str:
        raise NotImplementedError

    def request(self) -> Request:
        """The material as the worker takes it."""
        options = {"frequency": self.frequency, "amplitude": self.amplitude}
        return Request(self._name(), options, endless=True)


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
class _Pulse(Described):
    frequency: float = 1.0
    amplitude: float = 1.0
    width: int = 100

    def __post_init__(self) -> None:
        _hertz(self.frequency)
        _peak_to_peak(self.amplitude)
        _arguments.number("width", self.width, "Give whole milliseconds, 1 to 100000.")

    def _name(self) -> str:
        raise NotImplementedError

    def request(self) -> Request:
        """The material as the worker takes it."""
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
class Calibration(Described):
    """The calibration signal: `frequency` in hertz, `amplitude` in millivolts."""

    frequency: float = 1.0
    amplitude: float = 1.0

    def __post_init__(self) -> None:
        _hertz(self.frequency)
        _peak_to_peak(self.amplitude)

    def request(self) -> Request:
        """The material as the worker takes it."""
        return Request(
            "calibration", {"frequency": self.frequency, "amplitude": self.amplitude}
        )


@dataclasses.dataclass(frozen=True)
class Staircase(Described):
    """A staircase of 0.2, 1, 2 and 5 mV, up and down; 45 s."""

    def request(self) -> Request:
        """The material as the worker takes it."""
        return Request("staircase")


# ---- Arrays -------------------------------------------------------------------------------------


class Samples(Described):
    """Samples given as an array.

    On a 16-bit simulator every output plays the code nearest to the requested voltage. Voltages
    beyond 5 mV are clipped, and `Played.clipped` says so. A lead that begins at its limit of 5 mV
    and stays there for a while has its very first sample one code off, since the output would lose
    its offset otherwise; `Played.warnings` says so.

    Args:
        array: millivolts, shape (leads, samples), or (samples,) for one lead; -1e15 to 1e15, none
            masked. It is copied.
        rate: samples per second, 0.001 to 1000000. From 92 to 20000 and whole they are played as
            they are; otherwise they are resampled.
        leads: for each row the output that it feeds: I, II, V1 to V6. An output that is
            not named plays as if its lead were all zeros.
    """

    def __init__(self, array: npt.ArrayLike, rate: float, leads: Sequence[str]) -> None:
        self.array: Floats = np.atleast_2d(_arguments.millivolts("array", array)).copy()
        self.array.flags.writeable = False
        cure = "Give 0.001 to 1000000 samples per second."
        self.rate = _arguments.number("rate", rate, cure, least=0.001, most=1e6)
        cure = f"They are {', '.join(OUTPUTS)}."
        names = [leads] if isinstance(leads, str) else _arguments.texts("leads", leads, cure)
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
        meant = np.abs(self.array) <= _MOST  # NaN is not
        if not meant.all():
            row, column = np.argwhere(~meant)[0]
            raise BadRequest(
                "array",
                f"holds {self.array[row, column]} at sample {column} of lead {self.leads[row]}.",
                "Every sample is a number of millivolts, -1e15 to 1e15.",
            )

    def __repr__(self) -> str:
        return f"Samples({self.array.shape[1]} of {', '.join(self.leads)} at {self.rate:g} Hz)"

    def request(self) -> Request:
        """The material as the worker takes it."""
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
