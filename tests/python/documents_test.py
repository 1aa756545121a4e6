"""The documentation of the package is correct: types, examples, tutorial."""

from __future__ import annotations

import doctest
import importlib
import os
import subprocess
import sys
from pathlib import Path

import pytest

SOURCE = Path(os.environ["RAVO_SOURCE"])

CALLER = """
import numpy as np
import ravo

with ravo.Simulator(emulated=True) as s:
    seconds: float = s.play("100.hea", start=10, seconds=5, map={"MLII": "I"}).seconds
    s.play(ravo.Samples(np.zeros((1, 9)), rate=500, leads=["I"]), gain=2.0, noise="50HZ")
    shape: tuple[int, ...] = s.outputs().shape
se: float | None = ravo.score("100.atr", "100.det").gross.qrs.se
outcome: str = ravo.run("plan.toml", output="out").outcome
"""


def test_the_types_are_complete(tmp_path: Path) -> None:
    caller = tmp_path / "caller.py"
    caller.write_text(CALLER)
    command = [sys.executable, "-m", "mypy", "--strict", "--cache-dir", str(tmp_path / "cache")]
    if subprocess.run([*command, "--version"], capture_output=True).returncode != 0:
        pytest.skip("mypy is not installed")
    found = subprocess.run(
        [*command, str(SOURCE / "python/ravo"), str(caller)], capture_output=True, text=True
    )
    assert found.returncode == 0, found.stdout
    assert (SOURCE / "python/ravo/py.typed").is_file()


@pytest.mark.parametrize("module", ["ravo", "ravo._simulator", "ravo._materials"])
def test_docstrings_run(module: str) -> None:
    failed, _ = doctest.testmod(importlib.import_module(module), optionflags=doctest.ELLIPSIS)
    assert failed == 0


def test_the_tutorial_runs(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.chdir(tmp_path)
    failed, tried = doctest.testfile(
        str(SOURCE / "docs/python.md"), module_relative=False, optionflags=doctest.ELLIPSIS
    )
    assert failed == 0 and tried > 10


def test_the_readme_is_a_whole_test(pytester: pytest.Pytester) -> None:
    """On an emulated simulator and, as the README says, on one whose port is real to pytest."""
    readme = (SOURCE / "README.md").read_text()
    pytester.makepyfile(test_first=readme.split("```python\n")[1].split("```")[0])
    plugins = ("-p", "ravo.pytest", "-p", "no:cacheprovider")
    pytester.runpytest_subprocess(*plugins).assert_outcomes(passed=1)
    emulator = Path(os.environ["RAVO_PROGRAMS"], "ravo-emulator")
    on_port = (sys.executable, "-m", "pytest", *plugins, "--ravo-port", "any")
    found = pytester.run(emulator, "--", *on_port)
    found.assert_outcomes(passed=1)
    found.stdout.fnmatch_lines(["ravo: real simulator, port any"])


def test_the_versions_agree() -> None:
    project = (SOURCE / "CMakeLists.txt").read_text()
    assert f"VERSION {_version()}" in project


def _version() -> str:
    for line in (SOURCE / "python/pyproject.toml").read_text().splitlines():
        if line.startswith("version = "):
            return line.split('"')[1]
    raise AssertionError("pyproject.toml has no version")
