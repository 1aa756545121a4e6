"""RAVO: the multichannel ECG simulator within a test.

    >>> import ravo
    >>> with ravo.Simulator(emulated=True, speed_up=10) as s:
    ...     played = s.play("builtin:CAL20000", seconds=2)
    >>> played.result
    'finished'

Voltages are millivolts, times seconds, rates samples per second. Whatever fails raises a
`ravo.Error`, which says where, what and what to do.
"""

from ravo._aio import AsyncSimulator
from ravo._compare import Comparison, compare
from ravo._doctor import Finding, Findings, doctor
from ravo._emulator import Emulator
from ravo._errors import (
    BadMaterial,
    BadRequest,
    CannotWrite,
    Crashed,
    Error,
    NoSimulator,
    OutputLost,
    Timeout,
)
from ravo._materials import (
    LEADS,
    OUTPUTS,
    Builtin,
    Calibration,
    Material,
    NoiseStress,
    RectanglePulse,
    Samples,
    Sine,
    Square,
    Staircase,
    Triangle,
    TrianglePulse,
)
from ravo._picture import Picture, plot
from ravo._record import Annotation, Preview, Record, Signal, load, preview
from ravo._results import Played, Progress
from ravo._run import RunResult, Step, run
from ravo._score import Detection, Figures, Score, score
from ravo._simulator import Playing, Simulator

__all__ = [
    "LEADS",
    "OUTPUTS",
    "Annotation",
    "AsyncSimulator",
    "BadMaterial",
    "BadRequest",
    "Builtin",
    "Calibration",
    "CannotWrite",
    "Comparison",
    "Crashed",
    "Emulator",
    "Error",
    "Detection",
    "Figures",
    "Finding",
    "Findings",
    "Material",
    "NoSimulator",
    "NoiseStress",
    "OutputLost",
    "Picture",
    "Played",
    "Playing",
    "Preview",
    "Progress",
    "Record",
    "RectanglePulse",
    "RunResult",
    "Samples",
    "Score",
    "Signal",
    "Simulator",
    "Sine",
    "Square",
    "Staircase",
    "Step",
    "Timeout",
    "Triangle",
    "TrianglePulse",
    "compare",
    "doctor",
    "load",
    "plot",
    "preview",
    "run",
    "score",
]
