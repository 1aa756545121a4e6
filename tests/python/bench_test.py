"""Scores, plans and findings as objects."""

from __future__ import annotations

import shutil
import signal
import subprocess
import sys
from pathlib import Path

import pytest

import ravo
from processes import LONG, descendants, is_gone, wait_until


def write_beats(path: Path, beats: list[tuple[float, str]]) -> Path:
    path.write_text("seconds,code\n" + "".join(f"{time},{code}\n" for time, code in beats))
    return path


def test_a_score_has_the_figures(tmp_path: Path) -> None:
    reference = [(1.0 + n, "V" if n == 4 else "N") for n in range(10)]
    test = [beat for n, beat in enumerate(reference) if n not in (2, 3)] + [(20.0, "N")]
    score = ravo.score(
        write_beats(tmp_path / "r.csv", reference),
        write_beats(tmp_path / "t.csv", test),
        learning=0,
    )
    assert (score.learning, score.window) == (0, 150)
    gross = score.gross
    assert (gross.qrs.tp, gross.qrs.fn, gross.qrs.fp) == (8, 2, 1)
    assert gross.qrs.se == 0.8
    assert gross.qrs.ppv == pytest.approx(8 / 9)
    assert gross.veb.se == 1.0 and gross.veb.fpr == 0.0
    assert gross.sveb.se is None
    assert gross.matrix["Nn"] == 7 and gross.matrix["No"] == 2
    assert gross.runs.v.couplet.reference == 0
    assert gross.episodes.vf.se is None
    assert score.average.qrs.se == 0.8 and score.average.qrs.tp is None
    assert [record.record for record in score.records] == ["r"]


def test_an_unusable_annotation_file_is_named(tmp_path: Path) -> None:
    broken = tmp_path / "broken.csv"
    broken.write_text("no header\n")
    with pytest.raises(ravo.BadMaterial, match="broken.csv"):
        ravo.score(broken, broken)


PLAN = """
title = "Two plays and a question"
[[step]]
name = "calibration"
material = "builtin:CAL20000"
seconds = 1.0
[[step]]
name = "level"
ask = "Level"
unit = "mV"
min = 0.9
max = 1.1
"""


def test_a_plan_is_carried_out(tmp_path: Path) -> None:
    plan = tmp_path / "plan.toml"
    plan.write_text(PLAN)
    result = ravo.run(
        plan, tmp_path / "out", answers={"level": 1.0}, emulated=True, speed_up=20, timeout=60
    )
    assert (result.title, result.outcome, result.passed) == (
        "Two plays and a question",
        "passed",
        True,
    )
    assert [(step.name, step.outcome) for step in result.steps] == [
        ("calibration", "passed"),
        ("level", "passed"),
    ]
    assert result["calibration"]["framesPlayed"] > 0
    assert result["level"].json["unit"] == "mV"
    assert (result.folder / "report.pdf").is_file()


def test_a_verdict_that_failed_is_a_result(tmp_path: Path) -> None:
    plan = tmp_path / "plan.toml"
    plan.write_text(PLAN)
    result = ravo.run(
        plan, tmp_path / "out", answers={"level": 2.0}, emulated=True, speed_up=20, timeout=60
    )
    assert result.outcome == "failed"
    assert result["level"].outcome == "failed"


def test_a_wrong_plan_is_refused(tmp_path: Path) -> None:
    plan = tmp_path / "plan.toml"
    plan.write_text('title = "x"\n[[step]]\nname = "a"\nmaterial = 7\n')
    with pytest.raises(ravo.BadMaterial, match="material"):
        ravo.run(plan, tmp_path / "out", emulated=True)
    assert not (tmp_path / "out").exists()


_RUNS = """
import ravo, signal
signal.signal(signal.SIGINT, signal.default_int_handler)
ravo.run("plan.toml", "out", emulated=True, timeout=120)
"""


@pytest.mark.parametrize("how", [signal.SIGINT, signal.SIGKILL])
def test_a_run_ends_with_its_interpreter(tmp_path: Path, how: signal.Signals) -> None:
    """As Ctrl-C ends `ravo run`: the output is stopped, and the journal says so."""
    if how == signal.SIGKILL and shutil.which("setpriv") is None:
        pytest.skip("setpriv is not installed, without which a killed interpreter leaves its run")
    (tmp_path / "plan.toml").write_text(PLAN.replace("seconds = 1.0", "seconds = 600.0\nloop = true"))
    journal = tmp_path / "out/journal.jsonl"
    player = subprocess.Popen(
        [sys.executable, "-c", _RUNS], cwd=tmp_path, stderr=subprocess.PIPE, text=True
    )
    begins = '"event":"begin"'
    assert wait_until(lambda: journal.exists() and begins in journal.read_text())
    processes = descendants(player.pid)
    assert len(processes) >= 2  # the emulator and its command
    player.send_signal(how)
    _, said = player.communicate(timeout=LONG)
    assert player.returncode == -how
    assert ("KeyboardInterrupt" in said) == (how == signal.SIGINT)
    assert wait_until(lambda: all(map(is_gone, processes)))
    assert '"event":"stop"' in journal.read_text().splitlines()[-1]


def test_findings_have_cures() -> None:
    found = ravo.doctor(port=127, timeout=1)
    assert not found.plays and found.device is None
    assert found.failed
    assert all(finding.found for finding in found.findings)
    assert any(finding.cure for finding in found.failed)
