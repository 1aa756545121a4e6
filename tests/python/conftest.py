"""Helpers shared by the tests of the Python package."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Iterator

import pytest

import ravo
from processes import LONG

pytest_plugins = ["pytester"]


@pytest.fixture(scope="module")
def fast() -> Iterator[ravo.Simulator]:
    """An emulated simulator that plays twenty times faster than real time."""
    with ravo.Simulator(emulated=True, speed_up=20, timeout=LONG) as simulator:
        yield simulator


@pytest.fixture(scope="session")
def data() -> Path:
    """The folder of real records; tests without it are skipped."""
    folder = Path(os.environ.get("RAVO_TEST_DATA_DIRECTORY", "data"))
    if not folder.is_dir():
        pytest.skip("the folder of real records is missing")
    return folder
