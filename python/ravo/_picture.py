"""Material on ECG paper."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Any, Sequence

from ravo import _arguments
from ravo._errors import CannotWrite
from ravo._materials import Material, Option, request_of
from ravo._worker import Worker

__tracebackhide__ = True  # pytest shows the caller's line

_FORMATS = ("png", "svg", "pdf")
_LAYOUTS = ("3x4", "6x2", "12x1", "strip")


class Picture(bytes):
    """The bytes of a picture; a notebook shows it.

    Attributes:
        format: "png", "svg" or "pdf".
    """

    format: str

    def __new__(cls, data: bytes, format: str) -> Picture:
        if not isinstance(data, bytes):
            raise _arguments.refuse("data", data, "Give a picture's bytes.")
        picture = super().__new__(cls, data)
        picture.format = _arguments.choice("format", format, _FORMATS)
        return picture

    def __getnewargs__(self) -> tuple[bytes, str]:  # type: ignore[override]
        return bytes(self), self.format

    def __repr__(self) -> str:
        return f"<ravo.Picture: {self.format}, {len(self)} bytes>"

    def save(self, path: str | os.PathLike[str]) -> Path:
        """Writes it to a file and returns the file's path."""
        name = _arguments.path("path", path)
        try:
            Path(name).write_bytes(self)
        except OSError as error:
            raise CannotWrite(name, f"cannot be written: {error.strerror}.") from error
        return Path(name)

    def _repr_png_(self) -> bytes | None:
        return bytes(self) if self.format == "png" else None

    def _repr_svg_(self) -> str | None:
        return self.decode() if self.format == "svg" else None


def picture_request(
    format: str,
    seconds: float | None,
    speed: float,
    gain: float | None,
    layout: str | None,
    leads: Sequence[str] | None,
    gain_name: str = "gain",
) -> dict[str, Any]:
    """The picture as the worker takes it."""
    wanted: dict[str, Any] = {
        "format": _arguments.choice("format", format, _FORMATS),
        "speed": _one_of("speed", speed, (12.5, 25.0, 50.0), "Give 12.5, 25 or 50 mm/s."),
    }
    if seconds is not None:
        cure = "Give 0.1 to 86400 seconds."
        wanted["seconds"] = _arguments.number("seconds", seconds, cure, least=0.1, most=86400.0)
    if gain is not None:
        wanted["gain"] = _one_of(gain_name, gain, (5.0, 10.0, 20.0), "Give 5, 10 or 20 mm/mV.")
    if layout is not None:
        wanted["layout"] = _arguments.choice("layout", layout, _LAYOUTS)
    if leads is not None:
        names = [leads] if isinstance(leads, str) else leads
        wanted["leads"] = _arguments.texts("leads", names, 'Give a list of leads: ["II", "V1"].')
    return {name: value for name, value in wanted.items() if value != ()}


def _one_of(where: str, value: object, allowed: Sequence[float], cure: str) -> float:
    found = _arguments.number(where, value, cure)
    if found not in allowed:
        raise _arguments.refuse(where, value, cure)
    return found


def plot(
    material: Material,
    *,
    format: str = "png",
    start: float = 0.0,
    seconds: float | None = None,
    speed: float = 25.0,
    paper_gain: float | None = None,
    layout: str | None = None,
    leads: Sequence[str] | None = None,
    **options: Option,
) -> Picture:
    """Material on ECG paper, as bytes.

    Args:
        material: as in `Simulator.play`, with the same options.
        format: "png", "svg" or "pdf".
        start: second of the material at the left edge.
        seconds: how much to draw; else 250 mm of paper.
        speed: millimetres per second: 12.5, 25 or 50.
        paper_gain: millimetres per millivolt: 5, 10 or 20; else 10, or less for tall signals.
        layout: "3x4", "6x2", "12x1" or "strip"; else what fits.
        leads: for strips: which leads.
    """
    request = request_of(material)
    wanted = picture_request(format, seconds, speed, paper_gain, layout, leads, "paper_gain")
    head = {**request.head({**options, "start": start}), "picture": wanted}
    worker = Worker()
    try:
        answer = worker.call("picture", head, request.payload)
    finally:
        worker.close()
    return Picture(answer.payload.tobytes(), format)
