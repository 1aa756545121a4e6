"""Settings of an emulated simulator."""

from __future__ import annotations

import dataclasses
from typing import Literal, Sequence

from ravo import _arguments
from ravo._errors import BadRequest


@dataclasses.dataclass(frozen=True)
class Emulator:
    """The properties of an emulated simulator.

    Attributes:
        unit: "16" or "12" bits, or "legacy".
        speed_up: how many times faster than real time it plays, 0.001 to 1000.
        clock_ppm: by how much its sample clock is too fast, in millionths.
        uncalibrated: a 12-bit unit whose converters have errors, and the file that describes them.
        no_calibration_file: with `uncalibrated`: the errors without the file.
        range: full scale of the outputs in millivolts; None: as the start command says.
        faults: what goes wrong, as `ravo-emulator --fault` takes it: "@2.5 vanish".
        arguments: further arguments of ravo-emulator.
    """

    unit: Literal["16", "12", "legacy"] = "16"
    speed_up: float = 1.0
    clock_ppm: float = 0.0
    uncalibrated: bool = False
    no_calibration_file: bool = False
    range: float | None = None
    faults: Sequence[str] = ()
    arguments: Sequence[str] = ()

    def __post_init__(self) -> None:
        _arguments.choice("unit", self.unit, ("16", "12", "legacy"))
        speed_up_of(self.speed_up)
        cure = "Give millionths, -100000 to 100000."
        _arguments.number("clock_ppm", self.clock_ppm, cure, least=-1e5, most=1e5)
        _arguments.truth("uncalibrated", self.uncalibrated)
        _arguments.truth("no_calibration_file", self.no_calibration_file)
        if self.range is not None:
            _arguments.number("range", self.range, "Give millivolts above 0.", above=0.0)
        _arguments.texts("faults", self.faults, 'Give a list of texts: ["@2.5 vanish"].')
        _arguments.texts("arguments", self.arguments, 'Give a list of texts: ["--absent"].')

        for argument in self.arguments:
            if argument in ("-h", "--help", "--version", "--tell", "--"):
                raise BadRequest(
                    "arguments",
                    f"hold {argument}, with which it is no simulator.",
                    "Leave it out; it is for the command line.",
                )

    def command_line(self) -> list[str]:
        """The arguments of ravo-emulator."""
        line = ["--unit", self.unit, "--speed", repr(float(self.speed_up))]
        line += ["--clock-ppm", repr(float(self.clock_ppm))] if self.clock_ppm else []
        line += ["--uncalibrated"] if self.uncalibrated else []
        line += ["--no-calibration-file"] if self.no_calibration_file else []
        line += ["--range", repr(float(self.range))] if self.range is not None else []
        for fault in self.faults:
            line += ["--fault", fault]
        return line + list(self.arguments)


def speed_up_of(value: object) -> float:
    """How many times faster than real time an emulated simulator plays."""
    return _arguments.number("speed_up", value, "Give 0.001 to 1000.", least=0.001, most=1000.0)


def emulator_of(
    emulated: object, port: object, serial: object = "", speed_up: object = None
) -> Emulator | None:
    """The settings that result from a simulator's arguments; None for a real one."""
    if not isinstance(emulated, Emulator):
        cure = "Give True, or a ravo.Emulator with settings."
        if not isinstance(emulated, bool):
            raise _arguments.refuse("emulated", emulated, cure)
        if not emulated:
            return None
        emulated = Emulator()
    for name, value in {"port": port, "serial": serial or None}.items():
        if value is not None:
            raise BadRequest(
                name, "is for real simulators; an emulated one has its own.", "Leave it out."
            )
    if speed_up is None:
        return emulated
    return dataclasses.replace(emulated, speed_up=speed_up_of(speed_up))
