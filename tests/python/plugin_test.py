"""The pytest plugin, as a team's tests meet it."""

from __future__ import annotations

import xml.etree.ElementTree
from pathlib import Path

import pytest

TESTS = """
import pytest, ravo

def test_passes(ravo_simulator):
    assert ravo_simulator.play("builtin:CAL20000", seconds=1).finished

def test_fails(ravo_simulator):
    ravo_simulator.play(ravo.Samples([[0.0, 7.0] * 300], 500, ["V2"]))
    assert False

@pytest.mark.ravo_emulator(unit="12")
def test_twelve(ravo_simulator):
    assert ravo_simulator.bits == 12

@pytest.mark.ravo_real
def test_real(ravo_simulator):
    assert False
"""

ARGUMENTS = ("-p", "ravo.pytest", "-p", "no:cacheprovider", "--ravo-speed-up", "20")


def test_a_failing_test_shows_what_was_played(pytester: pytest.Pytester) -> None:
    pytester.makepyfile(TESTS)
    found = pytester.runpytest_subprocess(
        *ARGUMENTS, "--junitxml", "out.xml", "--ravo-pictures", "pictures"
    )
    found.assert_outcomes(passed=2, failed=1, skipped=1)
    found.stdout.fnmatch_lines(
        [
            "ravo: emulated simulators",
            "*ravo: what was played*",
            "1. samples (samples) from second 0: 1.200 s of 1.200 s, finished, on *",
            "*map: V2 = V2",
            "*clipped: V2 at 7.000 mV",
            "*picture: pictures/test_fails.png",
        ]
    )
    assert (pytester.path / "pictures/test_fails.png").read_bytes().startswith(b"\x89PNG")
    properties = {
        (case.get("name"), entry.get("name")): entry.get("value")
        for case in xml.etree.ElementTree.parse(pytester.path / "out.xml").iter("testcase")
        for entry in case.iter("property")
    }
    assert properties["test_passes", "ravo.1.record"] == "CAL20000"
    assert properties["test_passes", "ravo.1.result"] == "finished"
    assert properties["test_fails", "ravo.1.seconds"] == "1.2"


def test_settings_are_overridden(pytester: pytest.Pytester) -> None:
    pytester.makeconftest(
        """
        import pytest, ravo

        @pytest.fixture
        def ravo_emulator_settings():
            return ravo.Emulator(unit="12", speed_up=10)
        """
    )
    pytester.makepyfile("def test_it(ravo_simulator): assert ravo_simulator.bits == 12")
    pytester.runpytest_subprocess(*ARGUMENTS).assert_outcomes(passed=1)


def test_each_process_has_its_own_simulator(pytester: pytest.Pytester) -> None:
    pytest.importorskip("xdist")
    pytester.makepyfile(
        """
        import pytest

        @pytest.mark.parametrize("number", range(4))
        def test_it(ravo_simulator, number):
            assert ravo_simulator.play("builtin:CAL20000", seconds=1).finished
        """
    )
    pytester.runpytest_subprocess(*ARGUMENTS, "-n", "2").assert_outcomes(passed=4)


@pytest.mark.parametrize("port", ["ttyACM0", "-1", "128"])
def test_wrong_options_are_refused(pytester: pytest.Pytester, port: str) -> None:
    found = pytester.runpytest_subprocess(*ARGUMENTS, f"--ravo-port={port}")
    assert found.ret == pytest.ExitCode.USAGE_ERROR
    found.stderr.fnmatch_lines(["*--ravo-port*"])


def test_one_real_simulator_is_not_shared(pytester: pytest.Pytester) -> None:
    pytest.importorskip("xdist")
    found = pytester.runpytest_subprocess(*ARGUMENTS, "--ravo-port=0", "-n", "2")
    assert found.ret == pytest.ExitCode.USAGE_ERROR
    found.stderr.fnmatch_lines(["*one simulator cannot be played on by several processes*"])


def test_a_test_without_a_simulator_starts_none(pytester: pytest.Pytester) -> None:
    pytester.makepyfile("def test_it(): pass")
    pytester.runpytest_subprocess(*ARGUMENTS, "--ravo-port=127").assert_outcomes(passed=1)
