"""Settings of an emulated simulator."""

from __future__ import annotations

import dataclasses
from typing import Literal, Sequence


@dataclasses.dataclass(frozen=True)
class Emulator:
    """What an emulated simulator is like.

    Attributes:
        unit: "16" or "12" bits, or "legacy".
        speed_up: how many times faster than real time it plays.
        clock_ppm: by how much its sample clock is too fast, in millionths.
        uncalibrated: a 12-bit unit whose converters have errors, and the file that tells of them.
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

    def command_line(self) -> list[str]:
        """The arguments of ravo-emulator."""
        line = ["--unit", self.unit, "--speed", repr(self.speed_up)]
        line += ["--clock-ppm", repr(self.clock_ppm)] if self.clock_ppm else []
        line += ["--uncalibrated"] if self.uncalibrated else []
        line += ["--no-calibration-file"] if self.no_calibration_file else []
        line += ["--range", repr(self.range)] if self.range is not None else []
        for fault in self.faults:
            line += ["--fault", fault]
        return line + list(self.arguments)
