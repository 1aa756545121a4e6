"""What must not happen, however the package is used: a wrong answer, a wrong code, a hang."""

from __future__ import annotations

from pathlib import Path

import pytest

import ravo

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
