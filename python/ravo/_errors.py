"""What can go wrong, and what to do about it."""

from __future__ import annotations

import re
from typing import TYPE_CHECKING, Any, Mapping

if TYPE_CHECKING:
    from ravo._results import Played

_USAGE, _MATERIAL, _NO_SIMULATOR, _OUTPUT_LOST, _DIFFERENT, _CANNOT_WRITE = range(1, 7)


class Error(Exception):
    """Anything that RAVO refuses or fails at.

    Attributes:
        where: the file, lead, option or port concerned.
        problem: what is wrong with it: a sentence without its subject.
        cure: what to do; may be empty.
    """

    def __init__(self, where: str, problem: str, cure: str = "") -> None:
        super().__init__(where, problem, cure)
        self.where = where
        self.problem = problem
        self.cure = cure

    def __str__(self) -> str:
        return f"{self.where}: {self.problem}" + (f"\n{self.cure}" if self.cure else "")


class NoSimulator(Error):
    """No simulator answered in time, or it cannot be used."""


class BadMaterial(Error):
    """The material cannot be read or played."""


class BadRequest(BadMaterial, ValueError, TypeError):
    """An argument, or an option of the material, is of the wrong type or has an impossible value.

    Every argument that is refused raises this one, so that it is a ValueError and a TypeError;
    `where` is the argument's name.
    """


class OutputLost(Error):
    """Output ended before it should.

    Attributes:
        played: how far it got; None when even that is not known.
    """

    played: Played | None = None


class Crashed(OutputLost):
    """The simulator's worker process has ended unexpectedly."""


class Timeout(Error, TimeoutError):
    """A call took longer than its time limit."""


class CannotWrite(Error):
    """A result could not be written."""


_NAMES = {"from": "begin_with", "wait": "a longer timeout"}

_CLASSES: Mapping[int, type[Error]] = {
    _USAGE: BadRequest,
    _MATERIAL: BadMaterial,
    _NO_SIMULATOR: NoSimulator,
    _OUTPUT_LOST: OutputLost,
    _CANNOT_WRITE: CannotWrite,
}


def _in_python(text: object) -> str:
    """A program's text with the names that its options have here; what it quotes stays."""

    def name(found: re.Match[str]) -> str:
        option = found[1]
        return found[0] if option is None else _NAMES.get(option, option.replace("-", "_"))

    return re.sub(r"`[^`]*`|(?<![\w-])--([a-z]+(?:-[a-z]+)*)", name, str(text))


def error_from(answer: Mapping[str, Any]) -> Error:
    """The exception for an error as programs and worker describe it."""
    kind = _CLASSES.get(int(answer.get("status", 0)), Error)
    where, problem = str(answer["where"]), _in_python(answer["problem"])
    if where.startswith("--"):
        # A program names the value too: "--start 5".
        where, _, value = where.partition(" ")
        where, problem = _in_python(where), f"{value} {problem}" if value else problem
    return kind(where, problem, _in_python(answer.get("cure") or ""))
