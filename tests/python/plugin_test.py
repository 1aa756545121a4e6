"""The pytest plugin, as a team uses it in its tests."""

from __future__ import annotations

import textwrap
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


def properties_of(junit: Path) -> dict[tuple[str | None, str | None], str]:
    return {
        (case.get("name"), entry.get("name")): entry.get("value", "")
        for case in xml.etree.ElementTree.parse(junit).iter("testcase")
        for entry in case.iter("property")
    }


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
            "*picture: pictures/test_a_failing_test_shows_what_was_played-test_fails-*.png",
        ]
    )
    (picture,) = (pytester.path / "pictures").iterdir()
    assert picture.read_bytes().startswith(b"\x89PNG")
    properties = properties_of(pytester.path / "out.xml")
    assert properties["test_passes", "ravo.1.record"] == "CAL20000"
    assert properties["test_passes", "ravo.1.result"] == "finished"
    assert properties["test_fails", "ravo.1.seconds"] == "1.2"


def test_a_rate_that_was_not_measured_is_left_out(pytester: pytest.Pytester) -> None:
    pytester.makepyfile(
        """
        import ravo

        def test_short(ravo_simulator):
            played = ravo_simulator.play(ravo.Samples([0.5], 500, ["I"]))
            assert played.measured_rate == 0

        def test_long(ravo_simulator, record_property):
            played = ravo_simulator.play(ravo.Sine(), seconds=100)
            record_property("rate", played.measured_rate)  # 0 on a machine that is starved
        """
    )
    pytester.runpytest_subprocess(*ARGUMENTS, "--junitxml", "out.xml").assert_outcomes(passed=2)
    properties = properties_of(pytester.path / "out.xml")
    assert properties["test_short", "ravo.1.frames_played"] == "1"
    assert ("test_short", "ravo.1.measured_rate") not in properties
    measured = properties["test_long", "rate"]
    assert properties.get(("test_long", "ravo.1.measured_rate"), "0.0") == measured


def test_equally_named_tests_have_their_own_pictures(pytester: pytest.Pytester) -> None:
    fails = """
        import pytest

        class TestOne:
            def test_it(self, ravo_simulator):
                ravo_simulator.play("builtin:CAL20000", seconds=1)
                assert False

        class TestTwo(TestOne):
            @pytest.mark.parametrize("text", ["a/b", "a_b", "x" * 400])
            def test_it(self, ravo_simulator, text):
                super().test_it(ravo_simulator)
        """
    for folder in ("one", "two"):
        package = pytester.mkpydir(folder)
        (package / "test_same.py").write_text(textwrap.dedent(fails))
    found = pytester.runpytest_subprocess(*ARGUMENTS, "--ravo-pictures", "pictures")
    found.assert_outcomes(failed=8)
    told = [line.split("picture: ")[1] for line in found.outlines if "picture: " in line]
    assert len(set(told)) == 8
    assert {str(path) for path in Path("pictures").iterdir()} == set(told)


def test_a_failing_fixture_shows_what_was_played(pytester: pytest.Pytester) -> None:
    pytester.makepyfile(
        """
        import pytest, ravo

        @pytest.fixture
        def alarm(ravo_simulator):
            ravo_simulator.play(ravo.Sine(7, 1.0), seconds=1)
            raise RuntimeError("no alarm")

        @pytest.fixture
        def calm(ravo_simulator):
            ravo_simulator.play(ravo.Sine(8, 1.0), seconds=1)
            yield
            ravo_simulator.play(ravo.Square(9, 1.0), seconds=1)
            raise RuntimeError("no calm")

        def test_setup(alarm):
            pass

        def test_teardown(calm, ravo_simulator):
            ravo_simulator.play(ravo.Triangle(2, 1.0), seconds=1)
        """
    )
    found = pytester.runpytest_subprocess(
        *ARGUMENTS, "--junitxml", "out.xml", "--ravo-pictures", "pictures"
    )
    found.assert_outcomes(passed=1, errors=2)
    found.stdout.fnmatch_lines(
        [
            "*ERROR at setup of test_setup*",
            "*ravo: what was played*",
            "1. sine (waveform) *",
            "*picture: pictures/*test_setup-*.png",
            "*ERROR at teardown of test_teardown*",
            "*ravo: what was played*",
            "1. sine (waveform) *",
            "2. triangle (waveform) *",
            "3. square (waveform) *",
            "*picture: pictures/*test_teardown-*.png",
        ]
    )
    properties = properties_of(pytester.path / "out.xml")
    assert properties["test_setup", "ravo.1.record"] == "sine"
    told = [properties["test_teardown", f"ravo.{number}.record"] for number in (1, 2, 3)]
    assert told == ["sine", "triangle", "square"]
    root = xml.etree.ElementTree.parse(pytester.path / "out.xml").getroot()
    names = [(c.get("name"), e.get("name")) for c in root.iter("testcase") for e in c.iter("property")]
    assert len(names) == len(set(names))


def test_what_is_left_playing_does_not_meet_the_next_test(pytester: pytest.Pytester) -> None:
    pytester.makepyfile(
        """
        import ravo

        left = []

        def test_leaves(ravo_simulator):
            left.append(ravo_simulator.playing(ravo.Sine()).__enter__())

        def test_next(ravo_simulator):
            assert ravo_simulator.play("builtin:CAL20000", seconds=1).finished
        """
    )
    pytester.runpytest_subprocess(*ARGUMENTS).assert_outcomes(passed=2)


def test_a_simulator_with_faults_is_drawn_too(pytester: pytest.Pytester) -> None:
    pytester.makepyfile(
        """
        import pytest, ravo

        @pytest.fixture
        def calm(ravo_simulator):
            yield ravo_simulator

        @pytest.fixture
        def strict():
            yield
            raise RuntimeError("no calm")

        @pytest.mark.ravo_emulator(faults=["@500 vanish"])
        def test_it(strict, calm):
            assert calm.play("builtin:CAL20000", seconds=1).finished

        def test_next(ravo_simulator):
            pass
        """
    )
    found = pytester.runpytest_subprocess(*ARGUMENTS, "--ravo-pictures", "pictures")
    found.assert_outcomes(passed=2, errors=1)
    found.stdout.fnmatch_lines(["*ERROR at teardown of test_it*", "*picture: pictures/*"])


def test_a_refusal_ends_at_the_line_of_the_test(pytester: pytest.Pytester) -> None:
    pytester.makepyfile(
        """
        import ravo

        def test_play(ravo_simulator):
            ravo_simulator.play("missing.hea")

        def test_block(ravo_simulator):
            with ravo_simulator.playing("missing.hea"):
                pass

        def test_samples():
            ravo.Samples([1j], 500, ["I"])

        def test_score():
            ravo.score("missing.csv", "missing.csv")
        """
    )
    found = pytester.runpytest_subprocess(*ARGUMENTS)
    found.assert_outcomes(failed=4)
    found.stdout.fnmatch_lines(["E *BadMaterial: ./missing.hea: *", "*:4: BadMaterial"])
    found.stdout.no_fnmatch_line("*_*.py:*: in *")
    shown = [line for line in found.outlines if line.startswith(">")]
    assert len(shown) == 4 and all("missing" in line or "1j" in line for line in shown)


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


def test_wrong_settings_are_refused(pytester: pytest.Pytester) -> None:
    pytester.makepyfile(
        """
        import pytest

        @pytest.mark.ravo_emulator(unti="12")
        def test_name(ravo_simulator): pass

        @pytest.mark.ravo_emulator("12")
        def test_no_name(ravo_simulator): pass

        @pytest.mark.ravo_emulator(unit=12)
        def test_value(ravo_simulator): pass

        class TestFixture:
            @pytest.fixture
            def ravo_emulator_settings(self): return {"unit": "12"}

            def test_kind(self, ravo_simulator): pass
        """
    )
    found = pytester.runpytest_subprocess(*ARGUMENTS)
    found.assert_outcomes(errors=4)
    found.stdout.fnmatch_lines(
        [
            "*BadRequest: ravo_emulator: has no setting unti.",
            "*They are unit, speed_up, *",
            "*BadRequest: ravo_emulator: has no setting '12'.",
            "*BadRequest: unit: is 12.",
            "*BadRequest: ravo_emulator_settings: is of type dict.",
        ]
    )


@pytest.mark.parametrize("factor", ["0", "nan", "1001", "fast"])
def test_wrong_factors_are_refused(pytester: pytest.Pytester, factor: str) -> None:
    found = pytester.runpytest_subprocess(*ARGUMENTS, f"--ravo-speed-up={factor}")
    assert found.ret == pytest.ExitCode.USAGE_ERROR
    found.stderr.fnmatch_lines(["*--ravo-speed-up*"])


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
