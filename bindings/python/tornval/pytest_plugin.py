"""Fixtures for tests of hosts. An installed package brings them along; elsewhere name the plugin:
``pytest -p tornval.pytest_plugin``."""

from __future__ import annotations

from pathlib import Path
from typing import Iterator

import pytest

# The libraries are loaded by the tests that ask for them, not by every run of pytest.


@pytest.fixture
def tornval_emulator(tmp_path: Path) -> "Iterator[object]":
    """An emulated board and milliohm module, with a folder of its own (tornval.Emulator)."""
    from .emulator import Emulator

    with Emulator(tmp_path) as emulator:
        yield emulator


@pytest.fixture
def tornval_instrument(tornval_emulator: "object") -> "Iterator[object]":
    """The real drivers over the emulated instrument (tornval.Instrument)."""
    with tornval_emulator.instrument() as instrument:  # type: ignore[attr-defined]
        yield instrument
