"""Finds and runs the programs that the package uses."""

from __future__ import annotations

import functools
import json
import os
import re
import shutil
import signal
import subprocess
from pathlib import Path
from typing import Any, Sequence

from ravo._errors import Error, error_from

__tracebackhide__ = True  # pytest shows the caller's line

_STOP_PATIENCE = 15.0  # seconds; a stop takes effect at a request, which may be 3 s away


def _folders() -> list[Path]:
    """The folders to search: the one that RAVO_PROGRAMS names, or those of an installation."""
    named = os.environ.get("RAVO_PROGRAMS")
    if named:
        return [Path(named)]
    # PREFIX/lib/python3/dist-packages/ravo/_programs.py
    parents = Path(__file__).resolve().parents
    prefixes = [parent for parent in parents if (parent / "bin").is_dir()]
    found = shutil.which("ravo")
    if found:
        prefixes.append(Path(found).resolve().parent.parent)
    prefixes += [Path("/usr/local"), Path("/usr")]
    # Beside the package's own source.
    prefixes += [parent / "build/release" for parent in parents]
    return [prefix / folder for prefix in prefixes for folder in ("libexec/ravo", "bin")]


@functools.lru_cache(maxsize=None)
def _program(name: str, named: str | None) -> str:
    for folder in _folders():
        path = folder / name
        if os.access(path, os.X_OK) and path.is_file():
            return str(path)
    where = named or "PATH, /usr/local and /usr"
    raise Error(
        name,
        f"is not installed: it is not in {where}.",
        "Install the packages ravo-tools and python3-ravo, or set RAVO_PROGRAMS to the folder "
        "that holds ravo, ravo-emulator and ravo-worker.",
    )


def program(name: str) -> str:
    """The path of a program; raises Error when it is not installed."""
    return _program(name, os.environ.get("RAVO_PROGRAMS"))


def _told_of(path: str, text: str) -> list[str]:
    """The lines of a program's standard error that are about a place in the file."""
    return [line for line in text.splitlines() if re.match(re.escape(path) + r":\d+:", line)]


def _bound(arguments: Sequence[str]) -> list[str]:
    """A command that is interrupted when the interpreter is killed."""
    keeper = shutil.which("setpriv")
    return [*([keeper, "--pdeathsig", "INT", "--"] if keeper else []), *arguments]


def _run(arguments: Sequence[str]) -> tuple[int, str, str]:
    """Status, standard output and standard error of a command.

    An exception, Ctrl-C among them, ends the command as Ctrl-C would, before it is raised.
    """
    # In its own session: only the interpreter gets Ctrl-C, and passes it on to the command once.
    with subprocess.Popen(
        _bound(arguments),
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        encoding="utf-8",
        errors="replace",
        start_new_session=True,
    ) as process:
        try:
            out, error = process.communicate()
        except BaseException:
            _interrupt(process)
            raise
    return process.returncode, out, error


def _interrupt(process: subprocess.Popen[str]) -> None:
    process.send_signal(signal.SIGINT)
    try:
        process.communicate(timeout=_STOP_PATIENCE)
    except (subprocess.TimeoutExpired, KeyboardInterrupt):
        process.kill()


def run_json(arguments: Sequence[str], *, accepted: Sequence[int] = (0,)) -> Any:
    """The JSON that a command prints; raises its failure as an exception."""
    status, out, told = _run(arguments)
    try:
        printed = json.loads(out) if out.strip() else {}
    except ValueError:
        printed = {}
    if status in accepted:
        return printed
    if isinstance(printed, dict) and "error" in printed:
        error = printed["error"]
        lines = [str(error["problem"]), *_told_of(str(error["where"]), told)]
        raise error_from({**error, "problem": "\n".join(lines)})
    name = Path(arguments[0]).name
    problem = told.strip() or f"ended with status {status}."
    raise error_from({"status": status, "where": name, "problem": problem})
