"""Beat-by-beat comparison of annotations."""

from __future__ import annotations

import dataclasses
import math
import os
from typing import Any, Mapping, Sequence

from ravo import _arguments
from ravo._errors import BadRequest
from ravo._programs import program, run_json

__tracebackhide__ = True  # pytest shows the caller's line


#: Arguments that are not negative.
_LEAST = {"learning": 0.0, "window": 0.0}


@dataclasses.dataclass(frozen=True)
class Detection:
    """How well one kind of beat was found. Counts are None in averages.

    Attributes:
        tp, fn, fp, tn: counts; `tn` for VEB and SVEB only.
        se: sensitivity, 0 to 1; None where it is undefined.
        ppv: positive predictivity, likewise.
        fpr: false positive rate, likewise; for VEB and SVEB only.
    """

    se: float | None
    ppv: float | None
    fpr: float | None = None
    tp: int | None = None
    fn: int | None = None
    fp: int | None = None
    tn: int | None = None


@dataclasses.dataclass(frozen=True)
class RunBin:
    """Runs of one range of lengths. Counts are None in averages.

    Attributes:
        reference, matched_reference: the reference's runs, and those of them that were found.
        test, matched_test: the test's runs, and those of them that are right.
        se, ppv: 0 to 1; None where undefined.
    """

    se: float | None
    ppv: float | None
    reference: int | None = None
    matched_reference: int | None = None
    test: int | None = None
    matched_test: int | None = None


@dataclasses.dataclass(frozen=True)
class RunBins:
    """Runs of ectopic beats: couplets of 2, short ones of 3 to 5, long ones of 6 and more."""

    couplet: RunBin
    short: RunBin
    long: RunBin


@dataclasses.dataclass(frozen=True)
class Runs:
    """Runs of ventricular (`v`) and of supraventricular (`s`) ectopic beats."""

    v: RunBins
    s: RunBins


@dataclasses.dataclass(frozen=True)
class Episode:
    """Episodes of one kind. Counts are None in averages.

    Attributes:
        reference, detected: the reference's episodes, and those of them that were detected.
        test, matched_test: the test's episodes, and those of them that are right.
        se, ppv, duration_se, duration_ppv: 0 to 1; None where undefined.
    """

    se: float | None
    ppv: float | None
    duration_se: float | None
    duration_ppv: float | None
    reference: int | None = None
    detected: int | None = None
    test: int | None = None
    matched_test: int | None = None


@dataclasses.dataclass(frozen=True)
class Episodes:
    """Episodes of ventricular fibrillation or flutter (`vf`)."""

    vf: Episode


@dataclasses.dataclass(frozen=True)
class Figures:
    """The figures of a record, of all records together, or of the average of records.

    Attributes:
        record: the record's name; empty for gross and average.
        matrix: pairs of labels and their number, {"Nn": 1865, "Nv": 2, ...}; empty for averages.
        qrs, veb, sveb: all beats, ventricular and supraventricular ectopic ones.
        runs: runs of ectopic beats.
        episodes: episodes of fibrillation.
    """

    record: str
    matrix: Mapping[str, int]
    qrs: Detection
    veb: Detection
    sveb: Detection
    runs: Runs
    episodes: Episodes


@dataclasses.dataclass(frozen=True)
class Score:
    """A comparison of annotations.

    Attributes:
        learning: seconds at the beginning that did not count.
        window: greatest distance of a pair of beats in milliseconds.
        records: the figures of each record.
        gross: those of all beats together.
        average: the means of the records' fractions.
        json: everything, as `ravo score --json` prints it.
    """

    learning: float
    window: float
    records: Sequence[Figures]
    gross: Figures
    average: Figures
    json: Mapping[str, Any] = dataclasses.field(repr=False)


def _pick(kind: Any, found: Mapping[str, Any]) -> Any:
    """An object of the dataclass `kind` from the fields that it has."""
    names = {field.name for field in dataclasses.fields(kind)}
    snake = {
        "".join("_" + letter.lower() if letter.isupper() else letter for letter in name): value
        for name, value in found.items()
    }
    fractions = {"se", "ppv", "fpr", "duration_se", "duration_ppv"}
    return kind(
        **{
            name: float(value) if name in fractions and value is not None else value
            for name, value in snake.items()
            if name in names
        }
    )


def _bins(found: Mapping[str, Any]) -> RunBins:
    return RunBins(*(_pick(RunBin, found[name]) for name in ("couplet", "short", "long")))


def _figures(found: Mapping[str, Any]) -> Figures:
    return Figures(
        record=str(found.get("record", "")),
        matrix=found.get("matrix", {}),
        qrs=_pick(Detection, found["qrs"]),
        veb=_pick(Detection, found["veb"]),
        sveb=_pick(Detection, found["sveb"]),
        runs=Runs(_bins(found["runs"]["v"]), _bins(found["runs"]["s"])),
        episodes=Episodes(_pick(Episode, found["episodes"]["vf"])),
    )


def score(
    reference: str | os.PathLike[str],
    test: str | os.PathLike[str],
    *,
    learning: float = 300.0,
    window: float = 150.0,
    offset: float = 0.0,
    clock_ppm: float = 0.0,
    align: bool = False,
    reference_suffix: str | None = None,
    test_suffix: str | None = None,
    strips: str | os.PathLike[str] | None = None,
    report: str | os.PathLike[str] | None = None,
) -> Score:
    """Compares a device's beat annotations with the reference's, by EC57 and IEC 60601-2-47.

    Args:
        reference: annotation file, .csv ("seconds,code" with header) or a folder of them.
        test: the device's: the same.
        learning: seconds at the beginning that do not count.
        window: greatest distance of a pair of beats in milliseconds.
        offset: seconds to add to the test's times.
        clock_ppm: millionths by which to stretch the test's times.
        align: find offset and clock from the lists themselves; neither may then be given.
        reference_suffix, test_suffix: of the files in folders, "atr" if not given.
        strips: folder for a strip of paper around each disagreement.
        report: .html, .pdf or .csv to write.

    Raises:
        BadMaterial: a file is unusable.
    """
    line = [program("ravo"), "score", "--json"]
    line += [_arguments.operand("reference", reference), _arguments.operand("test", test)]
    numbers = {"learning": learning, "window": window, "offset": offset, "clock_ppm": clock_ppm}
    for name, number in numbers.items():
        least = _LEAST.get(name, -math.inf)
        cure = "Give a finite number." if name not in _LEAST else "Give a number from 0 on."
        numbers[name] = _arguments.number(name, number, cure, least=least)
    if _arguments.truth("align", align):
        line.append("--align")
        for name in ("offset", "clock_ppm"):
            if numbers.pop(name) != 0.0:
                raise BadRequest(
                    name, "cannot be given when it is to be found.", "Leave it out, or align."
                )
    suffixes = {"reference_suffix": reference_suffix, "test_suffix": test_suffix}
    paths = {"strips": strips, "report": report}
    given: dict[str, object] = {
        **numbers,
        **{n: _arguments.text(n, v) for n, v in suffixes.items() if v is not None},
        **{n: _arguments.path(n, v) for n, v in paths.items() if v is not None},
    }
    line += [f"--{name.replace('_', '-')}={value}" for name, value in given.items()]
    found = run_json(line)
    return Score(
        learning=float(found["learning"]),
        window=float(found["window"]),
        records=tuple(_figures(record) for record in found["records"]),
        gross=_figures(found["gross"]),
        average=_figures(found["average"]),
        json=found,
    )
