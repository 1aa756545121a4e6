"""Records, previews, comparisons and pictures."""

from __future__ import annotations

from pathlib import Path

import numpy as np
import pytest

import ravo


@pytest.fixture
def record(tmp_path: Path) -> Path:
    """Three signals of ten samples at 250 per second, the third one without a lead; 200 per mV."""
    rows = [[n * 10 for n in range(10)], [-n for n in range(10)], [7] * 10]
    rows[1][4] = -32768  # missing
    frames = np.array(rows, dtype="<i2").T
    (tmp_path / "made.dat").write_bytes(frames.tobytes())
    (tmp_path / "made.hea").write_text(
        "made 3 250 10\n"
        "made.dat 16 200(0)/mV 16 0 0 0 0 MLII\n"
        "made.dat 16 100(50)/mV 16 0 0 0 0 V1\n"
        "made.dat 16 10(0)/degC 16 0 0 0 0 Temp\n"
    )
    # A beat at sample 3, a ventricular one 4 samples later: code in the upper 6 bits, distance
    # below.
    (tmp_path / "made.atr").write_bytes(bytes([3, 1 << 2, 4, 5 << 2, 0, 0]))
    return tmp_path / "made.hea"


def test_a_record_is_loaded_as_its_file_has_it(record: Path) -> None:
    loaded = ravo.load(record)
    assert (loaded.name, loaded.rate, loaded.source) == ("made", 250.0, "file")
    assert loaded.leads == ravo.LEADS and loaded.samples.shape == (12, 10)
    assert loaded.supplied == ("II", "V1")
    rows = dict(zip(loaded.leads, loaded.samples))
    assert rows["II"].tolist() == [n * 10 / 200 for n in range(10)]
    assert np.isnan(rows["V1"]).nonzero()[0].tolist() == [4]
    assert rows["V1"][3] == -0.53
    assert not rows["I"].any() and not rows["III"].any()
    assert [(s.description, s.lead, s.unit, s.rate) for s in loaded.signals] == [
        ("MLII", "II", "mV", 250.0),
        ("V1", "V1", "mV", 250.0),
        ("Temp", None, "degC", 250.0),
    ]
    assert loaded.signals[2].samples.tolist() == [0.7] * 10
    assert [(a.sample, a.time, a.code) for a in loaded.annotations] == [
        (3, 0.012, "N"),
        (7, 0.028, "V"),
    ]


def test_leads_are_mapped_as_asked_for(record: Path) -> None:
    loaded = ravo.load(record, map={"MLII": "I", "V1": "II"})
    rows = dict(zip(loaded.leads, loaded.samples))
    assert loaded.supplied == ("I", "II", "III", "aVR", "aVL", "aVF")
    assert rows["I"][2] == 0.1 and rows["II"][2] == -0.52
    assert rows["III"][2] == pytest.approx(-0.62)
    assert rows["aVR"][2] == pytest.approx(0.21)
    assert rows["aVL"][2] == pytest.approx(0.36)
    assert rows["aVF"][2] == pytest.approx(-0.57)


def test_a_loaded_record_plays_as_it_was_loaded(fast: ravo.Simulator, record: Path) -> None:
    played = fast.play(ravo.load(record, map={"MLII": "V6", "V1": "none"}))
    assert played.map == {"V6": "MLII"}
    assert played.path == str(record)


def test_real_records_are_loaded(data: Path) -> None:
    path = next(iter(sorted(data.rglob("100.hea"))), None)
    if path is None:
        pytest.skip("record 100 is missing")
    loaded = ravo.load(path)
    assert loaded.rate == 360
    assert loaded.samples.shape == (12, 650_000)
    assert loaded.samples[1, 0] == (995 - 1024) / 200
    assert loaded.annotations[1].code == "N"


def test_a_preview_shows_what_would_be_played() -> None:
    shown = ravo.preview(ravo.Samples([[1.0, 2.0, 3.0], [0.5, 0.5, 0.5]], 500, ["I", "II"]))
    assert shown.rate == 500 and shown.samples.shape == (12, 3)
    assert shown.supplied == ("I", "II", "III", "aVR", "aVL", "aVF")
    assert np.abs(shown.samples[0] - [1.0, 2.0, 3.0]).max() < 0.0003
    assert np.abs(shown.samples[2] - [-0.5, -1.5, -2.5]).max() < 0.0005


def test_outputs_are_compared_with_what_they_should_carry(fast: ravo.Simulator) -> None:
    fast.play("builtin:CAL20000", start=1, seconds=2)
    found = fast.compare()
    assert set(found.largest) == set(ravo.OUTPUTS)
    assert found.frames == 2 * found.rate
    assert found.worst <= 0.16  # one code
    outputs = fast.outputs()[:, : found.frames]
    assert ravo.compare("builtin:CAL20000", outputs, start=1).worst == found.worst
    outputs[3, 700] += 0.5
    moved = ravo.compare("builtin:CAL20000", outputs, start=1)
    assert moved.largest["V2"] == pytest.approx(500.0, abs=0.2)
    assert moved.at["V2"] == 700 / found.rate


def test_noise_is_mixed_in(fast: ravo.Simulator, record: Path) -> None:
    played = fast.play(ravo.Builtin("CAL20000", noise="50HZ"), seconds=1)
    assert played.noise == "50HZ"
    with pytest.raises(ravo.BadMaterial):
        fast.play(ravo.NoiseStress(record, "nowhere.hea", 6.0))


@pytest.mark.parametrize(
    "waveform",
    [
        ravo.Sine(10, [1, 2, 3, 4, 5, 6, 7, 8]),
        ravo.Triangle(2, 1.5),
        ravo.Square(5, 2),
        ravo.RectanglePulse(1, 1.0, 100),
        ravo.TrianglePulse(1, 1.0, 200),
        ravo.Calibration(1, 2.0),
        ravo.Staircase(),
    ],
)
def test_every_waveform_plays(fast: ravo.Simulator, waveform: ravo.Material) -> None:
    played = fast.play(waveform, seconds=1.5)
    assert played.source == "waveform" and played.finished
    assert fast.compare().worst <= 0.16


@pytest.mark.parametrize(("format", "begin"), [("png", b"\x89PNG"), ("svg", b"<?xml"), ("pdf", b"%PDF")])
def test_pictures_are_bytes(format: str, begin: bytes, tmp_path: Path) -> None:
    picture = ravo.plot("builtin:CAL20000", format=format, seconds=2)
    assert picture.startswith(begin)
    assert picture.save(tmp_path / "picture").read_bytes() == picture
    assert (picture._repr_png_() is None) == (format != "png")
    assert (picture._repr_svg_() is None) == (format != "svg")


def test_what_was_played_is_drawn(fast: ravo.Simulator) -> None:
    fast.play(ravo.Samples(np.zeros((1, 1000)), 500, ["II"]))
    assert b"outputs" in fast.plot(format="svg") or len(fast.plot(format="svg")) > 1000


def test_a_picture_that_cannot_be_drawn_says_why() -> None:
    with pytest.raises(ravo.BadRequest, match="12.5, 25 or 50"):
        ravo.plot("builtin:CAL20000", speed=30)
    with pytest.raises(ravo.CannotWrite):
        ravo.Picture(b"", "png").save("/nowhere/picture.png")
