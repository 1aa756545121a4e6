"""Arrays on the outputs."""

from __future__ import annotations

import numpy as np
import pytest

import ravo

CODE = 5.0 / 32000  # millivolts between two codes of a 16-bit unit
CHEST = 0.592731022038923


def outputs_for(leads: dict[str, np.ndarray]) -> np.ndarray:
    """The voltages that the outputs should carry; chest leads are relative to a third of I + II."""
    length = len(next(iter(leads.values())))
    rows = [np.clip(leads.get(lead, np.zeros(length)), -5.0, 5.0) for lead in ravo.OUTPUTS]
    terminal = (rows[0] + rows[1]) / 3.0
    return np.array(rows[:2] + [(row + terminal) * CHEST for row in rows[2:]])


def play(simulator: ravo.Simulator, leads: dict[str, np.ndarray], rate: float) -> np.ndarray:
    array = np.array(list(leads.values()))
    played = simulator.play(ravo.Samples(array, rate=rate, leads=list(leads)))
    assert played.finished
    assert played.frames_due == array.shape[1]
    assert played.map == {lead: lead for lead in leads}
    outputs = simulator.outputs()
    assert outputs.shape[0] == 8 and outputs.dtype == np.float64
    return outputs[:, : array.shape[1]]


@pytest.mark.parametrize("names", [ravo.OUTPUTS, ("I", "II", "V1"), ("V6",), ("II", "I")])
@pytest.mark.parametrize("peak", [0.02, 1.7, 4.9])
def test_every_output_is_within_half_a_code(
    fast: ravo.Simulator, names: tuple[str, ...], peak: float
) -> None:
    noise = np.random.default_rng(7)
    leads = {name: noise.uniform(-peak, peak, 3000) for name in names}
    difference = play(fast, leads, 1000) - outputs_for(leads)
    assert np.abs(difference).max() <= 0.5 * CODE * (1 + 1e-9)


def test_a_lead_at_its_limit_stays_there(fast: ravo.Simulator) -> None:
    leads = {"I": np.full(2000, 5.0), "II": np.full(2000, -5.0)}
    found = play(fast, leads, 500)[:2]
    assert np.abs(found[0] - 5.0).max() <= CODE * (1 + 1e-9)
    assert np.abs(found[1] + 5.0).max() <= CODE * (1 + 1e-9)
    assert (np.abs(found[:, 1:]) == 5.0).all()


def test_what_is_clipped_is_told(fast: ravo.Simulator) -> None:
    row = np.zeros(500)
    row[100] = -7.25
    played = fast.play(ravo.Samples(row, 500, ["V3"]))
    assert played.clipped == {"V3": 7.25}
    assert fast.play(ravo.Samples(row * 0.5, 500, ["V3"])).clipped == {}


def test_gain_and_offset_act_on_samples_too(fast: ravo.Simulator) -> None:
    row = np.linspace(-1.0, 1.0, 1000)
    fast.play(ravo.Samples(row, 1000, ["II"]), gain={"II": -2.0}, offset=0.25)
    found = fast.outputs()[1, :1000]
    assert np.abs(found - (row * -2.0 + 0.25)).max() <= 0.5 * CODE * (1 + 1e-9)


def test_start_and_seconds_choose_a_part(fast: ravo.Simulator) -> None:
    row = np.arange(4000) / 1000.0
    played = fast.play(ravo.Samples(row, 1000, ["I"]), start=1.5, seconds=0.5)
    assert (played.start, played.frames_due) == (1.5, 500)
    found = fast.outputs()[0, :500]
    assert np.abs(found - row[1500:2000]).max() <= 0.5 * CODE * (1 + 1e-9)


def test_rates_that_the_clock_cannot_keep_are_resampled(fast: ravo.Simulator) -> None:
    time = np.arange(500) / 50.0
    played = fast.play(ravo.Samples(np.sin(2 * np.pi * 2 * time), 50, ["II"]))
    assert played.rate == 100.0
    assert any("resampled from 50 to 100" in warning for warning in played.warnings)
    found = fast.outputs()[1, 200:800:2]
    assert np.abs(found - np.sin(2 * np.pi * 2 * time[100:400])).max() < 0.01


@pytest.mark.parametrize(
    ("array", "rate", "leads", "where"),
    [
        ([[1.0, float("nan")]], 500, ["I"], "array"),
        ([[1.0], [2.0]], 500, ["I"], "array"),
        (np.zeros((1, 0)), 500, ["I"], "array"),
        ([[1.0], [2.0]], 500, ["I", "i"], "leads"),
        ([[1.0]], 500, ["aVR"], "leads"),
        ([[1.0]], 0, ["I"], "rate"),
    ],
)
def test_wrong_samples_are_refused(array: object, rate: float, leads: list[str], where: str) -> None:
    with pytest.raises(ravo.BadMaterial) as caught:
        ravo.Samples(array, rate, leads)  # type: ignore[arg-type]
    assert caught.value.where == where
    assert caught.value.problem


def test_twelve_million_samples_go_over_and_come_back(fast: ravo.Simulator) -> None:
    sent = np.random.default_rng(1).standard_normal((12, 1_000_000))
    assert (fast.echo(sent).view(np.uint64) == sent.view(np.uint64)).all()
