"""pytest plugin: a simulator for every test, and what was played in the report of a failing one.

Fixtures:
    ravo_simulator: a `ravo.Simulator`, emulated unless --ravo-port says otherwise.
    ravo_emulator_settings: the `ravo.Emulator` that it is; override it in a conftest.py or class.

Options:
    --ravo-port N|any: play on the real simulator at /dev/ttyACMN, or on any that is found.
    --ravo-speed-up X: emulated simulators play X times faster than real time.
    --ravo-pictures DIR: where pictures of failing tests go, pytest's own folder if not given; their
        names are made of the test's file, class and name.

Markers:
    ravo_emulator(unit="12", ...): settings of this test's emulated simulator.
    ravo_emulated: skipped on a real simulator.
    ravo_real: skipped on an emulated one.
"""

from __future__ import annotations

import argparse
import dataclasses
import hashlib
import importlib
from pathlib import Path
from typing import Any, Generator, Iterator, Mapping, Sequence

import pytest

from ravo import BadRequest, Emulator, Error, Played, Simulator
from ravo._emulator import speed_up_of

_Settings = Emulator | int | None  # emulated, a port, any port


class _Bench:
    """The simulators of one test process: tests with the same settings use the same."""

    def __init__(self) -> None:
        self._simulators: dict[str, Simulator] = {}
        self._retired: list[Simulator] = []

    def simulator(self, settings: _Settings) -> Simulator:
        simulator = self._simulators.get(repr(settings))
        if simulator is None or not simulator.is_open:
            if isinstance(settings, Emulator):
                simulator = Simulator(emulated=settings)
            else:
                simulator = Simulator(port=settings)
            self._simulators[repr(settings)] = simulator
        return simulator

    def release(self, settings: _Settings) -> None:
        """Removes a simulator that later tests should not get: one with faults, or a busy one.

        One with faults stays open until the test has been reported, with its picture.
        """
        is_shared = not isinstance(settings, Emulator) or not (
            settings.faults or settings.arguments
        )
        is_idle = self._simulators[repr(settings)].is_idle
        if is_shared and is_idle:
            return
        simulator = self._simulators.pop(repr(settings))
        self._retired.append(simulator)
        if not is_idle:
            simulator.close()

    def close_retired(self) -> None:
        while self._retired:
            self._retired.pop().close()

    def close(self) -> None:
        self.close_retired()
        for simulator in self._simulators.values():
            simulator.close()
        self._simulators.clear()


_LONGEST_NAME = 120  # bytes of a picture's name that are the test's

_bench = pytest.StashKey[_Bench]()
_used = pytest.StashKey["_Use"]()


@dataclasses.dataclass
class _Use:
    """A test's use of a simulator."""

    simulator: Simulator
    earlier: int  # plays of other tests
    reported: int = 0  # plays whose properties have been told

    @property
    def plays(self) -> Sequence[Played]:
        return self.simulator.plays[self.earlier :]


# ---- Options and markers ------------------------------------------------------------------------


def _port(text: str) -> str:
    if text != "any" and not (text.isdecimal() and int(text) < 128):
        raise argparse.ArgumentTypeError(f"is {text}. Give 0 to 127, or any.")
    return text


def _speed_up(text: str) -> float:
    try:
        return speed_up_of(float(text))
    except ValueError:
        raise argparse.ArgumentTypeError(f"is {text}. Give 0.001 to 1000.") from None


def pytest_addoption(parser: pytest.Parser) -> None:
    group = parser.getgroup("ravo", "the RAVO ECG simulator")
    group.addoption(
        "--ravo-port",
        type=_port,
        metavar="N|any",
        help="play on the real simulator at /dev/ttyACMN, or on any that is found",
    )
    group.addoption(
        "--ravo-speed-up",
        type=_speed_up,
        metavar="X",
        help="emulated simulators play X times faster than real time",
    )
    group.addoption(
        "--ravo-pictures",
        type=Path,
        metavar="DIR",
        help="where the pictures of failing tests go",
    )


def pytest_configure(config: pytest.Config) -> None:
    config.stash[_bench] = _Bench()
    for line in (
        'ravo_emulator(**settings): this test\'s emulated simulator: unit="12", faults=["@1 vanish"]',
        "ravo_emulated: skipped on a real simulator",
        "ravo_real: skipped on an emulated simulator",
    ):
        config.addinivalue_line("markers", line)
    port = config.getoption("--ravo-port")
    if port is not None and port != "any" and (getattr(config.option, "numprocesses", 0) or 0) > 1:
        raise pytest.UsageError(
            "--ravo-port: one simulator cannot be played on by several processes; "
            "run without -n, or give --ravo-port any"
        )


def pytest_unconfigure(config: pytest.Config) -> None:
    bench = config.stash.get(_bench, None)
    if bench is not None:
        bench.close()


def pytest_runtest_setup(item: pytest.Item) -> None:
    is_real = item.config.getoption("--ravo-port") is not None
    if is_real and item.get_closest_marker("ravo_emulated"):
        pytest.skip("is for emulated simulators")
    if not is_real and item.get_closest_marker("ravo_real"):
        pytest.skip("is for real simulators: --ravo-port N|any")


def pytest_report_header(config: pytest.Config) -> str:
    port = config.getoption("--ravo-port")
    return "ravo: " + ("emulated simulators" if port is None else f"real simulator, port {port}")


# ---- Fixtures -----------------------------------------------------------------------------------


@pytest.fixture
def ravo_emulator_settings() -> Emulator:
    """The settings of emulated simulators; override it to change them for many tests."""
    return Emulator()


@pytest.fixture
def ravo_simulator(
    request: pytest.FixtureRequest, ravo_emulator_settings: Emulator
) -> Iterator[Simulator]:
    """A simulator that is connected and idle."""
    settings = _settings(request, ravo_emulator_settings)
    bench = request.config.stash[_bench]
    simulator = bench.simulator(settings)
    request.node.stash[_used] = _Use(simulator, len(simulator.plays))
    yield simulator
    bench.release(settings)


def _settings(request: pytest.FixtureRequest, emulator: Emulator) -> _Settings:
    port = request.config.getoption("--ravo-port")
    if port is not None:
        return None if port == "any" else int(port)
    if not isinstance(emulator, Emulator):
        raise BadRequest(
            "ravo_emulator_settings",
            f"is of type {type(emulator).__name__}.",
            "Return a ravo.Emulator.",
        )
    speed_up = request.config.getoption("--ravo-speed-up")
    if speed_up is not None:
        emulator = dataclasses.replace(emulator, speed_up=speed_up)
    for marker in reversed(list(request.node.iter_markers("ravo_emulator"))):
        emulator = dataclasses.replace(emulator, **_marked(marker))
    return emulator


def _marked(marker: pytest.Mark) -> Mapping[str, Any]:
    """The settings of a marker."""
    names = [field.name for field in dataclasses.fields(Emulator)]
    wrong = [repr(value) for value in marker.args]
    wrong += [name for name in marker.kwargs if name not in names]
    if wrong:
        raise BadRequest(
            "ravo_emulator", f"has no setting {wrong[0]}.", f"They are {', '.join(names)}."
        )
    return marker.kwargs


# ---- Reports ------------------------------------------------------------------------------------


def _sentence(number: int, played: Played) -> str:
    due = "" if played.seconds_due is None else f" of {played.seconds_due:.3f} s"
    lines = [
        f"{number}. {played.record} ({played.source}) from second {played.start:g}: "
        f"{played.seconds:.3f} s{due}, {played.result}, on {played.model} {played.serial}",
        f"   map: {', '.join(f'{lead} = {signal}' for lead, signal in played.map.items())}",
    ]
    lines += [f"   noise: {played.noise}"] if played.noise else []
    lines += [f"   clipped: {lead} at {peak:.3f} mV" for lead, peak in played.clipped.items()]
    lines += [f"   {warning}" for warning in played.warnings]
    return "\n".join(lines)


def _properties(number: int, played: Played) -> Iterator[tuple[str, object]]:
    for name in ("record", "source", "result", "seconds", "frames_played"):
        yield f"ravo.{number}.{name}", getattr(played, name)
    if played.measured_rate > 0:
        yield f"ravo.{number}.measured_rate", played.measured_rate
    yield f"ravo.{number}.simulator", f"{played.model} {played.serial}"


def _add_properties(item: pytest.Item, report: pytest.TestReport, use: _Use) -> None:
    """Only the plays of this phase; a report has already copied those of the item."""
    for number, played in list(enumerate(use.plays, 1))[use.reported :]:
        properties = list(_properties(number, played))
        item.user_properties.extend(properties)
        report.user_properties.extend(properties)
    use.reported = len(use.plays)


def _picture_name(nodeid: str, phase: str) -> str:
    """Readable, and unique for each test and phase, however similar their names are."""
    file, _, test = nodeid.partition("::")
    name = "".join(c if c.isalnum() or c in "-_." else "_" for c in f"{Path(file).stem}-{test}")
    digest = hashlib.sha256(f"{nodeid} {phase}".encode()).hexdigest()
    return f"{name.encode()[:_LONGEST_NAME].decode(errors='ignore')}-{digest[:8]}.png"


def _picture(item: pytest.Item, phase: str, use: _Use) -> Path | None:
    """The last play on paper; None when it cannot be drawn."""
    folder = item.config.getoption("--ravo-pictures")
    try:
        if folder is None:
            folder = getattr(item.config, "_tmp_path_factory").mktemp("ravo")
        folder.mkdir(parents=True, exist_ok=True)
        name = _picture_name(item.nodeid, phase)
        return use.simulator.plot(seconds=10.0).save(folder / name)
    except (Error, OSError, AttributeError):
        return None


def _add_extra(item: pytest.Item, report: pytest.TestReport, picture: Path) -> None:
    """For pytest-html, where it is installed."""
    html = item.config.pluginmanager.getplugin("html")
    if html is not None:
        extra = importlib.import_module("pytest_html").extras.png(str(picture))
        setattr(report, "extras", [*getattr(report, "extras", []), extra])


def _make_report(
    item: pytest.Item, call: pytest.CallInfo[None]
) -> Generator[None, Any, None]:
    outcome = yield
    use = item.stash.get(_used, None)
    if use is not None and use.plays:
        _add_plays(item, call, outcome.get_result(), use)
    if call.when == "teardown":
        item.config.stash[_bench].close_retired()


def _add_plays(
    item: pytest.Item, call: pytest.CallInfo[None], report: pytest.TestReport, use: _Use
) -> None:
    _add_properties(item, report, use)
    if not report.failed:
        return
    lines = [_sentence(number, played) for number, played in enumerate(use.plays, 1)]
    picture = _picture(item, call.when, use)
    if picture is not None:
        lines.append(f"   picture: {picture}")
        _add_extra(item, report, picture)
    report.sections.append(("ravo: what was played", "\n".join(lines)))


pytest_runtest_makereport = pytest.hookimpl(hookwrapper=True)(_make_report)
