"""Checks of arguments: a refusal names the argument and what is allowed instead."""

from __future__ import annotations

import math
import numbers
import operator
import os
from typing import Any, Mapping, Sequence

import numpy as np
import numpy.typing as npt

from ravo._errors import BadRequest

__tracebackhide__ = True  # pytest shows the caller's line

_LONGEST = 60  # characters of a value that are shown
_DEEPEST = 3  # lists within lists


def described(value: object) -> str:
    """A value in a sentence: "is None", "is of type list"."""
    if isinstance(value, type):
        return f"the class {value.__name__}"
    if value is None or isinstance(value, (bool, float, str)):
        shown = ascii(value)
        return shown if len(shown) <= _LONGEST else f"{shown[:_LONGEST]}..."
    if isinstance(value, int):
        return str(value) if value.bit_length() <= _LONGEST else "too large a number"
    return f"of type {type(value).__name__}"


def refuse(where: str, value: object, cure: str) -> BadRequest:
    """The exception for an unusable value."""
    return BadRequest(where, f"is {described(value)}.", cure)


def number(
    where: str,
    value: object,
    cure: str,
    *,
    least: float = -math.inf,
    above: float = -math.inf,
    most: float = math.inf,
) -> float:
    """A finite number, at least `least`, greater than `above` and at most `most`."""
    if isinstance(value, numbers.Real) and not isinstance(value, bool):
        try:
            found = float(value)
        except OverflowError:
            found = math.inf
        if math.isfinite(found) and above < found and least <= found <= most:
            return found
    raise refuse(where, value, cure)


def whole(where: str, value: object, cure: str, *, least: int, most: int) -> int:
    """A whole number from `least` to `most`."""
    if isinstance(value, numbers.Integral) and not isinstance(value, bool):
        found = operator.index(value)
        if least <= found <= most:
            return found
    raise refuse(where, value, cure)


def port(value: object) -> int | None:
    """The N of /dev/ttyACMN."""
    cure = "Give the N of /dev/ttyACMN, 0 to 127."
    return None if value is None else whole("port", value, cure, least=0, most=127)


def seconds_to_wait(value: object) -> float:
    """The time to look for a simulator."""
    return number("timeout", value, "Give 0 to 3600 seconds.", least=0.0, most=3600.0)


def truth(where: str, value: object) -> bool:
    """True or False, numpy's own too."""
    if isinstance(value, (bool, np.bool_)):
        return bool(value)
    raise refuse(where, value, "Give True or False.")


def text(where: str, value: object, cure: str = "Give a text.") -> str:
    """A text that can be passed to a program."""
    if not isinstance(value, str):
        raise refuse(where, value, cure)
    try:
        encoded = value.encode()
    except UnicodeEncodeError:
        raise BadRequest(where, f"is {described(value)}, which is not UTF-8.", cure) from None
    if b"\0" in encoded:
        raise BadRequest(where, f"is {described(value)}, which holds a zero byte.", cure)
    return value


def texts(where: str, value: object, cure: str) -> tuple[str, ...]:
    """Several texts; a single one is refused, since each letter would count as one."""
    if isinstance(value, (str, bytes, Mapping)) or not hasattr(value, "__iter__"):
        raise refuse(where, value, cure)
    return tuple(text(where, item, cure) for item in value)


def path(where: str, value: object, cure: str = "Give a path.") -> str:
    """A path as a text."""
    if not isinstance(value, (str, os.PathLike)):
        raise refuse(where, value, cure)
    found = text(where, os.fspath(value), cure)
    if not found:
        raise BadRequest(where, "is an empty text.", cure)
    return found


def operand(where: str, value: object) -> str:
    """A path on a program's command line, where a dash at the beginning means an option."""
    found = path(where, value)
    return os.path.join(os.curdir, found) if found.startswith("-") else found


def choice(where: str, value: object, allowed: Sequence[str]) -> str:
    """One of several texts."""
    if isinstance(value, str) and value in allowed:
        return value
    raise refuse(where, value, f"Give one of {', '.join(allowed)}.")


def caller(where: str, value: object) -> None:
    """None or a callable."""
    if value is not None and not callable(value):
        raise refuse(where, value, "Give a function of one argument.")


def option(where: str, value: object, depth: int = 0) -> Any:
    """A material option as JSON has it; the worker checks its range."""
    if depth > _DEEPEST:
        raise BadRequest(where, "holds lists within lists.", "Give one list, or one dict.")
    if isinstance(value, (np.generic, np.ndarray)):
        value = value.tolist()
    if value is None or isinstance(value, bool):
        return value
    if isinstance(value, (str, os.PathLike)):
        return text(where, os.fspath(value))
    if isinstance(value, numbers.Integral) and abs(value) < 1 << 63:
        return operator.index(value)
    if isinstance(value, numbers.Real):
        return number(where, value, "Give a finite number.")
    if isinstance(value, Mapping):
        return {text(where, name): option(where, item, depth + 1) for name, item in value.items()}
    if isinstance(value, Sequence) and not isinstance(value, (bytes, bytearray)):
        return [option(where, item, depth + 1) for item in value]
    raise refuse(where, value, "Give a number, a text, True or False, or what holds such.")


def millivolts(where: str, value: npt.ArrayLike) -> npt.NDArray[np.float64]:
    """An array of numbers; masked entries are refused."""
    cure = "Give an array of numbers, in millivolts."
    try:
        array = np.asanyarray(value)
    except (TypeError, ValueError):
        raise BadRequest(where, "has rows of different lengths.", cure) from None
    if array.dtype.kind not in "fiub":
        raise BadRequest(where, f"holds values of type {array.dtype.name}.", cure)
    found = np.ascontiguousarray(array, dtype=np.float64)
    return np.where(array.mask, np.nan, found) if isinstance(array, np.ma.MaskedArray) else found
