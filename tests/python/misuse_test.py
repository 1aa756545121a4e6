"""What must not happen, however a simulator is used: a wrong answer, a wrong code, a hang."""

from __future__ import annotations

from pathlib import Path
from typing import Any

import numpy as np
import pytest

import ravo

CAL = "builtin:CAL20000"


# ---- Samples and comparisons ---------------------------------------------------------------------


@pytest.mark.parametrize("value", [float("nan"), float("inf"), 1e300])
def test_the_worker_refuses_what_is_no_voltage(fast: ravo.Simulator, value: float) -> None:
    samples = ravo.Samples(np.zeros(500), 500, ["I"])
    samples.array = np.full((1, 500), value)
    with pytest.raises(ravo.BadRequest, match="at sample 0 of lead I") as caught:
        fast.play(samples)
    assert caught.value.where == "array"
    assert fast.play(CAL, seconds=0.1).finished


def test_the_largest_sample_is_a_number(fast: ravo.Simulator) -> None:
    assert fast.play(ravo.Samples([1e15, -1e15], 500, ["I"]), gain=1000).clipped == {"I": 1e18}
    for wrong in (1.1e15, -1e308):
        with pytest.raises(ravo.BadRequest, match="-1e15 to 1e15"):
            ravo.Samples([0.0, wrong], 500, ["I"])


def test_a_lead_that_begins_at_its_limit_is_told(fast: ravo.Simulator) -> None:
    played = fast.play(ravo.Samples([[5.0] * 500, [4.0] * 500], 500, ["V3", "I"]))
    (warning,) = [warning for warning in played.warnings if "limit" in warning]
    assert "Lead V3" in warning and "one code" in warning
    played = fast.play(ravo.Samples([5.0] + [0.0] * 499, 500, ["I"]))
    assert not any("limit" in warning for warning in played.warnings)


def test_outputs_that_are_no_numbers_are_not_compared() -> None:
    outputs = np.zeros((8, 100))
    outputs[4, 7] = np.nan
    with pytest.raises(ravo.BadRequest, match="nan at frame 7 of output V3") as caught:
        ravo.compare(CAL, outputs)
    assert caught.value.where == "outputs"


def test_the_worst_is_never_hidden() -> None:
    found = ravo.Comparison({"I": 1.0, "II": float("nan"), "V1": 0.0}, {}, 1, 500.0)
    assert np.isnan(found.worst)


# ---- Options that have no meaning ---------------------------------------------------------------


@pytest.mark.parametrize(
    "option",
    [
        {"map": {"I": "V3"}},
        {"rate": 250},
        {"unit": "uV"},
        {"format": "csv"},
        {"missing": "zero"},
        {"as_edf": True},
        {"frequency": 3},
        {"amplitude": 3},
        {"width": 3},
        {"noise_record": "n.hea"},
        {"snr": 6},
    ],
)
def test_samples_have_no_such_option(fast: ravo.Simulator, option: dict[str, Any]) -> None:
    with pytest.raises(ravo.BadRequest) as caught:
        fast.play(ravo.Samples([0.0], 500, ["I"]), **option)
    assert caught.value.where == next(iter(option)) and "Leave it out" in caught.value.cure


def test_a_ratio_needs_a_noise(fast: ravo.Simulator) -> None:
    with pytest.raises(ravo.BadRequest, match="noise_record") as caught:
        fast.play(CAL, seconds=1, snr=6)
    assert caught.value.where == "snr"


@pytest.mark.parametrize(
    ("material", "options", "where", "problem"),
    [
        (CAL, {"start": 700}, "start", "700"),
        (CAL, {"start": 700.5}, "start", "700.5"),
        (ravo.Samples(np.zeros(500), 500, ["I"]), {"start": 5}, "start", "5"),
        (ravo.Samples(np.zeros(500), 50, ["I"]), {"start": 50}, "start", "50"),
        (ravo.Builtin("MA1_001", noise="XX"), {}, "noise", "XX"),
        (CAL, {"gain": {"Q": 1.0}}, "gain", "Q"),
    ],
)
def test_the_argument_is_named(
    fast: ravo.Simulator, material: Any, options: dict[str, Any], where: str, problem: str
) -> None:
    with pytest.raises(ravo.BadMaterial) as caught:
        fast.play(material, seconds=1, **options)
    assert (caught.value.where, problem in str(caught.value)) == (where, True), str(caught.value)


def test_a_name_of_a_waveform_has_a_cure(fast: ravo.Simulator) -> None:
    with pytest.raises(ravo.BadRequest) as caught:
        fast.play("sine", seconds=1)
    assert caught.value.where == "material" and "ravo.Sine(" in caught.value.cure


def test_a_list_within_itself_is_refused(fast: ravo.Simulator) -> None:
    endless: list[Any] = []
    endless.append(endless)
    with pytest.raises(ravo.BadRequest) as caught:
        fast.play(CAL, gain=endless)
    assert caught.value.where == "gain"


def test_an_emulator_is_asked_for_a_simulator() -> None:
    for argument in ("--help", "-h", "--version", "--"):
        with pytest.raises(ravo.BadRequest) as caught:
            ravo.Emulator(arguments=[argument])
        assert caught.value.where == "arguments" and argument in caught.value.problem


# ---- Plans --------------------------------------------------------------------------------------

PLAN = 'title = "One play"\n[[step]]\nname = "a"\nmaterial = "builtin:CAL20000"\nseconds = 1.0\n'


def test_an_old_result_is_not_that_of_a_run_that_fails(tmp_path: Path) -> None:
    plan, wrong, out = tmp_path / "plan.toml", tmp_path / "wrong.toml", tmp_path / "out"
    plan.write_text(PLAN)
    wrong.write_text(PLAN + "volume = 11\n")
    with pytest.raises(ravo.NoSimulator):
        ravo.run(plan, out, emulated=ravo.Emulator(arguments=["--absent"]), timeout=1)
    assert '"incomplete"' in (out / "result.json").read_text().replace(" ", "")
    with pytest.raises(ravo.CannotWrite):
        ravo.run(plan, out, emulated=True, speed_up=20)
    with pytest.raises(ravo.BadMaterial):
        ravo.run(wrong, out, emulated=True)
    with pytest.raises(ravo.BadMaterial):
        ravo.run(tmp_path / "missing.toml", out, emulated=True)
    with pytest.raises(ravo.BadRequest) as caught:
        ravo.run(plan, out, emulated=True, resume=True, only="b")
    assert caught.value.where == "only"


def test_a_run_that_lost_its_simulator_has_a_result(tmp_path: Path) -> None:
    plan = tmp_path / "plan.toml"
    plan.write_text(PLAN.replace("1.0", "600.0\nloop = true"))
    settings = ravo.Emulator(faults=["@2 vanish"])
    result = ravo.run(plan, tmp_path / "out", emulated=settings, timeout=1)
    assert result.outcome == "incomplete"
