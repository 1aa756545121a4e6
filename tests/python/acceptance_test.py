"""The outputs of `ravo play`, frame by frame, compared with the tests' own model.

The model knows the files' encodings, the treatment's order and the outputs' arithmetic. A frame
passes when its code is what the converter makes of a voltage as near to the model's as the record
that is staged for the library can hold it; where nothing is staged or its numbers stay, of the
voltage itself.
"""

from __future__ import annotations

import json
import os
import subprocess
from pathlib import Path
from typing import Callable, NamedTuple

import numpy as np
import pytest

LEADS = ("I", "II", "V1", "V2", "V3", "V4", "V5", "V6")

LIMIT = 5.0  # millivolts

#: The outputs are a matrix times the leads: chest leads are measured from a third of I + II.
MATRIX = np.eye(8)
MATRIX[2:, :2] += 0.33333333333
MATRIX[2:] *= 0.592731022038923

#: By bits: codes to the millivolt, the middle code, and the emulator's numbers to the code.
CONVERTERS = {"16": (6400.0, 32768, 1), "12": (400.0, 2048, 16)}

STEPS = 65000  # that a staged record has at least for what a lead spans
FINEST = 1e-5  # millivolts; finer steps it has none

RESAMPLED = 2e-5  # millivolts that the filter may leave


class Leads(NamedTuple):
    """The model's values of the eight leads, in millivolts."""

    volts: np.ndarray  # (8, frames)
    doubt: np.ndarray  # (8,), by how much a played voltage may differ from that
    skipped: int = 0  # frames at both ends that are not looked at


def fed(rows: dict[str, np.ndarray], skipped: int = 0) -> Leads:
    volts = np.zeros((8, len(next(iter(rows.values())))))
    for lead, row in rows.items():
        volts[LEADS.index(lead)] = row
    return Leads(volts, np.zeros(8), skipped)


def staged(leads: Leads) -> Leads:
    """With the uncertainty of a record whose numbers are spread over the span of each lead."""
    steps = np.maximum(np.ptp(leads.volts, axis=1) * (1 + 2e-5) / STEPS, FINEST)
    return leads._replace(doubt=leads.doubt + np.where(leads.volts.any(axis=1), steps / 2, 0.0))


def codes(leads: Leads, bits: str) -> tuple[np.ndarray, np.ndarray]:
    """The lowest and the highest code that each output may have."""
    per_millivolt, middle, _ = CONVERTERS[bits]
    volts = MATRIX @ np.clip(leads.volts, -LIMIT, LIMIT)
    doubt = (np.abs(MATRIX) @ leads.doubt)[:, np.newaxis]
    return tuple(
        np.floor(np.clip(volts + sign * doubt, -LIMIT, LIMIT) * per_millivolt + middle + sign * 1e-6)
        for sign in (-1, 1)
    )


# ---- Playing ------------------------------------------------------------------------------------


def play(
    folder: Path, bits: str, material: Path, *options: str, speed: int
) -> tuple[np.ndarray, dict]:
    """The codes of the outputs, and the output of `ravo play`."""
    programs = Path(os.environ["RAVO_PROGRAMS"])
    outputs = folder / "outputs"
    said = subprocess.run(
        [programs / "ravo-emulator", "--unit", bits, "--speed", str(speed), "-o", outputs, "--"]
        + [programs / "ravo", "play", material, "--json", "--speed-up", str(speed)]
        + ["--timeout", "120", *options],
        capture_output=True,
        text=True,
        check=False,
    )
    assert said.returncode == 0, said.stdout + said.stderr
    _, middle, numbers = CONVERTERS[bits]
    frames = np.fromfile(outputs.with_suffix(".dat"), "<i2").reshape(-1, 8).T
    assert (frames % numbers == 0).all()
    return frames // numbers + middle, json.loads(said.stdout)


def expect(
    folder: Path, bits: str, leads: Leads, material: Path, *options: str, speed: int = 20
) -> dict:
    found, said = play(folder, bits, material, *options, speed=speed)
    frames = leads.volts.shape[1]
    assert said["result"] == "finished"
    assert (said["framesDue"], said["framesPlayed"]) == (frames, frames)
    inner = slice(leads.skipped, frames - leads.skipped)
    lowest, highest = (code[:, inner] for code in codes(leads, bits))
    codes_found = found[:, :frames][:, inner]
    wrong = np.argwhere((codes_found < lowest) | (codes_found > highest))
    assert len(wrong) == 0, f"{len(wrong)} codes differ, the first at output, frame {wrong[0]}"
    assert np.ptp(codes_found, axis=1).max() > 100  # something was on the outputs
    return said


# ---- Files --------------------------------------------------------------------------------------


def read_212(path: Path, signals: int) -> np.ndarray:
    """Two samples in three bytes: low eight bits at both ends, high four of both in the middle."""
    data = np.fromfile(path, np.uint8)
    data = data[: len(data) // 3 * 3].reshape(-1, 3).astype(int)
    pairs = np.stack([data[:, 0] | (data[:, 1] & 15) << 8, data[:, 2] | (data[:, 1] & 240) << 4])
    samples = pairs.T.reshape(-1)
    return np.where(samples > 2047, samples - 4096, samples).reshape(-1, signals).T


def write_wfdb(path: Path, rate: str, lines: list[str], data: np.ndarray) -> Path:
    """`lines` are the signals' lines without the file's name."""
    data.tofile(path.with_suffix(".dat"))
    signals = "".join(f"{path.stem}.dat {line}\n" for line in lines)
    path.with_suffix(".hea").write_text(f"{path.stem} {len(lines)} {rate}\n{signals}")
    return path.with_suffix(".hea")


def tones(rate: float, seconds: float, *partials: tuple[float, float]) -> np.ndarray:
    """A sum of sines: pairs of Hz and millivolts."""
    time = np.arange(round(rate * seconds)) / rate
    return sum((volts * np.sin(2 * np.pi * hertz * time + hertz) for hertz, volts in partials))


def at_rest(row: np.ndarray) -> np.ndarray:
    """Each missing sample is replaced by the last one before it."""
    last = np.maximum.accumulate(np.where(np.isnan(row), -1, np.arange(len(row))))
    return np.where(last < 0, 0.0, row[last])


# ---- Real records -------------------------------------------------------------------------------


@pytest.fixture(params=["16", "12"])
def bits(request: pytest.FixtureRequest) -> str:
    return str(request.param)


def record_100(data: Path, first: int, frames: int) -> dict[str, np.ndarray]:
    if not (data / "100.dat").is_file():
        pytest.skip("record 100 is missing")
    millivolts = (read_212(data / "100.dat", 2)[:, first : first + frames] - 1024) / 200.0
    return {"II": millivolts[0], "V5": millivolts[1]}


def test_a_real_record_as_it_is(tmp_path: Path, data: Path, bits: str) -> None:
    leads = fed(record_100(data, 20 * 360, 10 * 360))
    expect(tmp_path, bits, leads, data / "100.hea", "--start", "20", "--seconds", "10")


def test_a_real_record_treated(tmp_path: Path, data: Path, bits: str) -> None:
    """A noise record begins with the record and repeats; the gain is applied before the offset."""
    noise = np.random.default_rng(3).integers(-200, 200, 1000)
    write_wfdb(tmp_path / "noise", "360", ["16 1000"], noise.astype("<i2"))
    first, frames = 1890, 1800
    rows = record_100(data, 0, 650_000)
    added = np.resize(noise / 1000.0, 650_000)
    gains = {"II": -1.5, "V5": 2.0}
    whole = staged(fed({lead: row * gains[lead] + 0.25 + added for lead, row in rows.items()}))
    leads = whole._replace(volts=whole.volts[:, first : first + frames])
    expect(
        *(tmp_path, bits, leads, data / "100.hea", "--start", "5.25", "--seconds", "5"),
        *("--gain", "2", "--gain", "II=-1.5", "--offset", "0.25"),
        *("--noise", str(tmp_path / "noise.hea")),
    )


def test_a_real_record_with_another_map(tmp_path: Path, data: Path, bits: str) -> None:
    if not (data / "v102s.dat").is_file():
        pytest.skip("record v102s is missing")
    samples = read_212(data / "v102s.dat", 4)[:, :2500]
    leads = fed({"V6": samples[0] / 2281.0, "I": samples[1] / 1856.0})
    said = expect(
        *(tmp_path, bits, leads, data / "v102s.hea", "--seconds", "10"),
        *("--map", "II=V6", "--map", "V=I"),
    )
    assert said["map"] == {"V6": "II", "I": "V"}


# ---- Made records -------------------------------------------------------------------------------


@pytest.mark.parametrize("missing", ["hold", "zero"])
def test_missing_samples(tmp_path: Path, bits: str, missing: str) -> None:
    draw = np.random.default_rng(5)
    numbers = draw.integers(-30000, 30000, (2000, 3)).astype("<i2")
    numbers[draw.random((2000, 3)) < 0.2] = -32768
    numbers[:5] = -32768
    lines = [f"16 8000 16 0 0 0 0 {lead}" for lead in ("I", "V2", "V6")]
    material = write_wfdb(tmp_path / "gaps", "500", lines, numbers)
    volts = np.where(numbers == -32768, np.nan, numbers / 8000.0).T
    filled = [at_rest(row) if missing == "hold" else np.nan_to_num(row) for row in volts]
    leads = fed(dict(zip(("I", "V2", "V6"), filled)))
    said = expect(tmp_path, bits, leads, material, "--missing", missing)
    assert said["missing"] == np.isnan(volts).sum()


def write_slow(folder: Path) -> tuple[Path, Leads]:
    """50/s, which the simulator's timer cannot reach: played at 100/s."""
    partials = {"I": ((3.0, 1.5), (19.5, 0.8)), "V3": ((11.0, 2.0),)}
    rows = [np.rint(tones(50, 12, *tone) * 1e6).astype("<i4") for tone in partials.values()]
    lines = [f"32 1000000 32 0 0 0 0 {lead}" for lead in partials]
    material = write_wfdb(folder / "slow", "50", lines, np.array(rows).T.copy())
    return material, fed({lead: tones(100, 12, *tone) for lead, tone in partials.items()}, 300)


def write_two_rates(folder: Path) -> tuple[Path, Leads]:
    """Four samples of lead II for one of V1, which is resampled to the rate of II."""
    two, one = ((7.0, 1.0), (90.0, 1.0)), ((2.0, 1.0), (40.0, 2.0))
    quick = np.rint(tones(500, 12, *two) * 1e6).astype("<i4").reshape(-1, 4)
    slow = np.rint(tones(125, 12, *one) * 1e6).astype("<i4").reshape(-1, 1)
    lines = ["32x4 1000000 32 0 0 0 0 II", "32 1000000 32 0 0 0 0 V1"]
    material = write_wfdb(folder / "rates", "125", lines, np.hstack([quick, slow]))
    return material, fed({"II": tones(500, 12, *two), "V1": tones(500, 12, *one)}, 1500)


def write_csv(folder: Path) -> tuple[Path, Leads]:
    """257.5/s is not a whole rate: played at 515/s."""
    partials = ((1.0, 0.5), (100.0, 0.25))
    row = tones(257.5, 12, *partials)
    lines = "".join(f"{n / 257.5:.9f},{volts * 1000:.4f}\n" for n, volts in enumerate(row))
    path = folder / "odd.csv"
    path.write_text("seconds,II [uV]\n" + lines)
    return path, fed({"II": tones(515, 12, *partials)}, 1500)


def write_fast(folder: Path) -> tuple[Path, Leads]:
    """Above the simulator's highest rate: components that 20000/s cannot carry are lost."""
    partials, beyond = ((5.0, 1.0), (7000.0, 0.5)), (11_500.0, 0.5)
    row = np.rint(tones(25_000, 3, *partials, beyond) * 1e6).astype("<i4")
    material = write_wfdb(folder / "fast", "25000", ["32 1000000 32 0 0 0 0 II"], row)
    return material, fed({"II": tones(20_000, 3, *partials)}, 20_000)


@pytest.mark.parametrize(
    ("write", "source", "speed"),
    [
        (write_slow, 50, 20),
        (write_two_rates, 125, 20),
        (write_csv, 257.5, 20),
        (write_fast, 25_000, 1),  # more would be too quick for a machine that does other things
    ],
)
def test_rates_that_are_not_the_outputs_own(
    tmp_path: Path,
    bits: str,
    write: Callable[[Path], tuple[Path, Leads]],
    source: float,
    speed: int,
) -> None:
    material, leads = write(tmp_path)
    is_fed = leads.volts.any(axis=1)[:, np.newaxis]
    treated = leads._replace(volts=leads.volts * 1.25 + 0.5 * is_fed, doubt=RESAMPLED * is_fed[:, 0])
    treatment = ("--gain", "1.25", "--offset", "0.5")
    said = expect(tmp_path, bits, staged(treated), material, *treatment, speed=speed)
    assert said["resampledFrom"] == source
