"""The emulated instrument, for tests of hosts: real drivers, real frames, faults on demand."""

from __future__ import annotations

import os
import tempfile
from pathlib import Path
from typing import Dict, Optional, Union

from ._library import link_library
from .instrument import LOAD_ALL, Instrument

_PARTS = ("board", "milliohm", "bt", "usb")


class Emulator:
    """An emulated board, milliohm module and, on request, probes, in this process.

    It is a folder with a configuration and a setting of the environment, both undone on leaving the
    ``with``. Where a host under test opens the library itself, give it :attr:`home` as TORNVAL_HOME.

        with tornval.Emulator() as emulator, emulator.instrument() as instrument:
            emulator.set("board", "adc=2/3000")
            assert instrument.measure(2) == 3000
            emulator.set("board", "no-answer*1")
            with pytest.raises(tornval.TornvalTimeout):
                instrument.measure(2)

    Args:
        folder: where to put the configuration; left out, a temporary folder.
        recording: file that board and probes play, four numbers a row; left out, a test signal.
        probes: bring up an emulated probe on Bluetooth and one on USB, too.
        more: further lines of the configuration, behind those of section IM.
    """

    def __init__(self, folder: Union[str, "os.PathLike[str]", None] = None,
                 recording: Union[str, "os.PathLike[str]", None] = None, probes: bool = False,
                 more: str = "") -> None:
        self._temporary: Optional["tempfile.TemporaryDirectory[str]"] = None
        if folder is None:
            self._temporary = tempfile.TemporaryDirectory(prefix="tornval-")
            folder = self._temporary.name
        #: The folder of the configuration, for TORNVAL_HOME. Trace and calibration are there too.
        self.home = Path(folder)
        self._control = self.home / "control"
        self._environment: Dict[str, str] = {
            "TORNVAL_EMULATOR_CONTROL": str(self._control),
            "TORNVAL_EMULATOR_STATE": str(self.home / "board-store"),
        }
        if recording is not None:
            self._environment["TORNVAL_EMULATOR_RECORDING"] = os.path.abspath(recording)
        self._saved: Dict[str, Optional[str]] = {}
        self._configuration = (
            f"[LOG]\nENABLE=1\nLEVEL=4369\n"
            f"[IM]\nDRIVER_NAME={link_library('virtual_link.so')}\n"
            f"CHANNEL_1=0\nCHANNEL_2=1\nCHANNEL_3=2\n{more}\n"
            + (f"[BT]\nLOAD=1\nDRIVER_NAME={link_library('zondebtc6.dll')}\n"
               f"[USB]\nLOAD=1\nDRIVER_NAME={link_library('zondeusbc6.dll')}\n" if probes else ""))

    def __enter__(self) -> "Emulator":
        self._control.mkdir(parents=True, exist_ok=True)
        (self.home / "TornvalC63.ini").write_text(self._configuration)
        for name, value in self._environment.items():
            self._saved[name] = os.environ.get(name)
            os.environ[name] = value
        return self

    def __exit__(self, *_: object) -> None:
        for name, value in self._saved.items():
            if value is None:
                os.environ.pop(name, None)
            else:
                os.environ[name] = value
        if self._temporary is not None:
            self._temporary.cleanup()

    def instrument(self, load: int = LOAD_ALL, partial: bool = False) -> Instrument:
        """An instrument over this emulator, to be opened by ``with``."""
        return Instrument(home=self.home, load=load, volume=self.home, partial=partial)

    def set(self, part: str, settings: str) -> None:
        """Dials settings or faults in, as in "late=200, error-code=17@212*1", "clear"; the next call
        of the part's link takes them.

        Args:
            part: "board", "milliohm", "bt" or "usb".
            settings: a list separated by commas, see emulator/README.md.
        """
        if part not in _PARTS:
            raise ValueError(f"{part!r} is none of {', '.join(_PARTS)}")
        # Written aside and renamed: the link must not meet half a file.
        fresh = self._control / f".{part}"
        fresh.write_text(settings)
        fresh.rename(self._control / part)

    def trace(self) -> str:
        """The trace log so far."""
        log = self.home / "log_tornval.txt"
        return log.read_text(encoding="latin-1") if log.exists() else ""
