"""Measures with a Tornval C63 instrument.

    import tornval

    with tornval.Instrument(home="folder of TornvalC63.ini") as instrument:
        print(instrument.measure(2))
        samples = instrument.upload(blocks=14)  # numpy, one column for each channel

A failure is a :class:`TornvalError` that carries the library's record and its words.
:class:`Emulator` brings an instrument for tests; with pytest it is the fixture ``tornval_emulator``.

The import fails with :class:`ImportError` where the libraries are missing or of another version.
"""

from ._library import Reason, Result, check, library_folder
from ._version import __version__
from .emulator import Emulator
from .errors import TornvalError, TornvalTimeout
from .instrument import (
    LOAD_ALL,
    LOAD_BOARD,
    LOAD_MILLIOHM,
    Answer,
    Driver,
    Instrument,
)
from .words import command_name, driver_type_name, step_name, system_error_name

check()

__all__ = [
    "LOAD_ALL",
    "LOAD_BOARD",
    "LOAD_MILLIOHM",
    "Answer",
    "Driver",
    "Emulator",
    "Instrument",
    "Reason",
    "Result",
    "TornvalError",
    "TornvalTimeout",
    "__version__",
    "command_name",
    "driver_type_name",
    "library_folder",
    "step_name",
    "system_error_name",
]
