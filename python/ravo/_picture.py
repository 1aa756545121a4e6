"""Material on ECG paper."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Any, Sequence

from ravo._errors import BadRequest, CannotWrite
from ravo._materials import Material, Option, request_of
from ravo._worker import Worker

_FORMATS = ("png", "svg", "pdf")


class Picture(bytes):
    """The bytes of a picture; a notebook shows it.

    Attributes:
        format: "png", "svg" or "pdf".
    """

    format: str

    def __new__(cls, data: bytes, format: str) -> Picture:
        picture = super().__new__(cls, data)
        picture.format = format
        return picture

    def __repr__(self) -> str:
        return f"<ravo.Picture: {self.format}, {len(self)} bytes>"

    def save(self, path: str | os.PathLike[str]) -> Path:
        """Writes it to a file and returns the file's path."""
        try:
            Path(path).write_bytes(self)
        except OSError as error:
            raise CannotWrite(os.fspath(path), f"cannot be written: {error.strerror}.") from error
        return Path(path)

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
) -> dict[str, Any]:
    """The picture as the worker takes it."""
    if format not in _FORMATS:
        raise BadRequest("format", f'is "{format}".', f"Give one of {', '.join(_FORMATS)}.")
    if speed not in (12.5, 25.0, 50.0):
        raise BadRequest("speed", f"is {speed:g}.", "Give 12.5, 25 or 50 mm/s.")
    if layout not in (None, "3x4", "6x2", "12x1", "strip"):
        raise BadRequest("layout", f'is "{layout}".', "Give 3x4, 6x2, 12x1 or strip.")
    if seconds is not None and not 0.1 <= seconds <= 86400.0:
        raise BadRequest("seconds", f"is {seconds:g}.", "Give 0.1 to 86400.")
    if gain not in (None, 5.0, 10.0, 20.0):
        raise BadRequest("gain", f"is {gain:g}.", "Give 5, 10 or 20 mm/mV.")
    wanted: dict[str, Any] = {"format": format, "speed": float(speed)}
    further = {
        "seconds": seconds,
        "gain": gain,
        "layout": layout,
        "leads": list(leads) if leads else None,
    }
    return {**wanted, **{name: value for name, value in further.items() if value is not None}}


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
    wanted = picture_request(format, seconds, speed, paper_gain, layout, leads)
    head = {**request.head({**options, "start": start or None}), "picture": wanted}
    worker = Worker()
    try:
        answer = worker.call("picture", head, request.payload)
    finally:
        worker.close()
    return Picture(answer.payload.tobytes(), format)
