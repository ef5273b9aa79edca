"""The instrument: drivers loaded for the time of a ``with``, each operation a method."""

from __future__ import annotations

import contextlib
import ctypes
import os
import threading
import time
from ctypes import byref, c_double, c_int32, c_uint32
from typing import Any, Dict, Iterator, List, Mapping, NamedTuple, Optional, Tuple, Union

import numpy as np
import numpy.typing as npt

from . import _library
from ._library import DriverRecord, Reason, ReceiveRecord, Result, SendRecord
from .errors import TornvalError, raise_for

LOAD_MILLIOHM = 0x01
LOAD_BOARD = 0x10
LOAD_ALL = LOAD_MILLIOHM | LOAD_BOARD

Samples = npt.NDArray[np.int32]
#: One array for each channel; their lengths may differ.
Channels = Tuple[Samples, ...]
_BOARD_CHANNELS = 3
_PROBE_CHANNELS = 2
_MEASURING_INPUTS = 13
_BOARD_WORDS = _BOARD_CHANNELS + _BOARD_CHANNELS * 65544
_COMMAND_TIMEOUT_MS = 10
_PROBE_TIMEOUT_MS = 5000
# Statuses of a probe whose reply still carries samples.
_FLAGGED = (44, 48)


class Driver(NamedTuple):
    """A loaded driver. ``link_type`` is "IM" (board), "MO" (milliohm module), "BT" or "USB"."""

    id: int
    link_type: str
    name: str


class Answer(NamedTuple):
    """What a command brought: raw bytes, the size word, and the words decoded from the bytes."""

    raw: bytes
    size: int
    words: Samples


# The library keeps one set of drivers in a process.
_one_at_a_time = threading.Lock()


class Instrument:
    """Loads the drivers on entering a ``with`` and unloads them, and the library, on leaving it.

    Methods may be called from any thread. Commands and uploads on one driver take turns; single
    measures of board and module may run beside them.

    Args:
        home: folder of TornvalC63.ini and of link libraries named without a folder; left out,
            TORNVAL_HOME, or the folder of the python executable.
        load: LOAD_BOARD, LOAD_MILLIOHM or both. Probes join by the key LOAD of the configuration.
        volume: folder of the trace log; left out, TORNVAL_HD00 or what the library was built with.
        partial: content with those drivers that come up; otherwise one that does not fails the load.

    Raises:
        TornvalError: on entering, when drivers do not come up; ``reasons`` says what was tried.
        RuntimeError: when another instrument is open in this process.
    """

    def __init__(self, home: Union[str, "os.PathLike[str]", None] = None, load: int = LOAD_ALL,
                 volume: Union[str, "os.PathLike[str]", None] = None,
                 partial: bool = False) -> None:
        self._environment = {"TORNVAL_HOME": home, "TORNVAL_HD00": volume}
        self._saved: Dict[str, Optional[str]] = {}
        self._mask = load
        self._partial = partial
        self._library: Any = None
        self._calls = 0
        self._idle = threading.Condition()
        self._pairs: Dict[int, threading.RLock] = {}
        #: The loaded drivers, by ascending ID.
        self.drivers: List[Driver] = []
        #: What was refused at the load, and why.
        self.reasons: List[Reason] = []

    def __enter__(self) -> "Instrument":
        if not _one_at_a_time.acquire(blocking=False):
            raise RuntimeError("another Instrument is open in this process")
        try:
            self._library = _library.open_measuring()
        except BaseException:
            _one_at_a_time.release()
            raise
        try:
            self._set_environment()
            result = self._library.LoadMeasDrivers(self._mask).result()
            self.reasons = _library.reasons()
            self.drivers = self._list_drivers()
            self._pairs = {driver.id: threading.RLock() for driver in self.drivers}
            if not self._partial:
                raise_for(result, reasons=self.reasons)
        except BaseException:
            self.close()
            raise
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        """Unloads, once the calls under way are done. What is closed stays so."""
        with self._idle:
            library, self._library = self._library, None
            if library is None:
                return
            self._idle.wait_for(lambda: self._calls == 0)
        try:
            library.LoadMeasDrivers(0)
            _library.close_measuring(library)
        finally:
            self._restore_environment()
            _one_at_a_time.release()

    def measure(self, voie: int, calibrated: bool = True) -> int:
        """One measure of the board on a measuring input, 0 to 12; without calibration the value of
        the converter."""
        value = c_int32()
        self._run("GetInstantMeasure" if calibrated else "GetInstantMeasureWithoutCompensation",
                  byref(value), voie, command=212)
        return value.value

    def measure_on(self, driver: Union[Driver, int], channel: int, parameter: int = 0) -> int:
        """One measure of a driver: the board on an input 0 to 12, a probe on a channel 0 or 1 with a
        measuring parameter of its own."""
        value = c_int32()
        with self._pair(driver) as ident:
            self._run("GetInstantMeasureOnDevice", ident, byref(value), channel, parameter)
        return value.value

    def microohm(self) -> int:
        """One measure of the milliohm module: its first value."""
        value = c_int32()
        self._run("GetMicroOhmMeasure", byref(value), command=161)
        return value.value

    def microohm_all(self) -> Tuple[int, int, int]:
        """One measure of the milliohm module: its three values, in the order of the answer."""
        values = (c_int32(), c_int32(), c_int32())
        self._run("GetAllMicroOhmMeasure", *map(byref, values), command=161)
        return (values[0].value, values[1].value, values[2].value)

    def calibration(self) -> npt.NDArray[np.float64]:
        """The board's calibration, shape (13, 2): factor a and offset b of each measuring input. A
        measure is (x * a + b) * 0.0001."""
        a, b = ((c_double * _MEASURING_INPUTS)() for _ in range(2))
        with self._call() as library:
            if library.GetMBCalibrationCoeff(a, b, _MEASURING_INPUTS) == 0:
                raise TornvalError("no board is loaded")
        return np.column_stack([np.array(a), np.array(b)])

    def set_calibration(self, pairs: Mapping[int, Tuple[float, float]]) -> None:
        """Writes pairs (a, b) by measuring input and restarts the board; takes a good second. They
        are in force after a new load."""
        count = len(pairs)
        self._run("SetMBCalibration", (c_uint32 * count)(*pairs),
                  (c_double * count)(*(a for a, _ in pairs.values())),
                  (c_double * count)(*(b for _, b in pairs.values())), count)

    def generate(self, burst: int) -> None:
        """Sends a value to the current generator; boards on a serial link refuse it."""
        self._run("CurrentGeneratorBurst", burst)

    def initialise(self, driver: Union[Driver, int], force: bool = False) -> None:
        """Initialises a driver; ``force`` also one that is initialised."""
        with self._pair(driver) as ident:
            self._run("InitialiseMeasBoard", ident, int(force))

    def reset(self, driver: Union[Driver, int]) -> None:
        """Closes the link of a driver. Board and module need a new load then."""
        with self._pair(driver) as ident:
            self._run("ResetMeasBoard", ident)

    def exchange(self, driver: Union[Driver, int], command: int, payload: bytes = b"",
                 parameter: int = 0, timeout_ms: int = _COMMAND_TIMEOUT_MS) -> Answer:
        """Sends a command and fetches its answer.

        Args:
            payload: bytes behind the command.
            timeout_ms: on top of the 5 seconds that board and module wait; on a probe, all of it.
        """
        answer, result, elapsed = self._exchange(driver, command, payload, parameter, timeout_ms)
        raise_for(result, command, elapsed)
        return answer

    def upload(self, blocks: int = 1, interval: float = 0) -> Channels:
        """Starts an acquisition of the board and uploads it.

        Args:
            blocks: number of uploads.
            interval: pause between two, seconds.

        Returns:
            The samples of each of the three channels.
        """
        return _joined(list(self.uploads(blocks, interval)), _BOARD_CHANNELS)

    def uploads(self, blocks: int, interval: float = 0) -> Iterator[Channels]:
        """As upload(), block by block while they come in."""
        board = self.driver("IM")
        self.exchange(board, 209)
        for block in range(blocks):
            if block != 0:
                time.sleep(interval)
            yield _channels(self.exchange(board, 211), _BOARD_CHANNELS)

    def record(self, driver: Union[Driver, int], reads: int, channel: int = 0, parameter: int = 0,
               interval: float = 0.1) -> Channels:
        """Runs a rolling acquisition of a probe: start, reads, stop, whatever happens in between.

        Returns:
            The samples of both channels; the second one has none with channel 0.
        """
        payload = parameter.to_bytes(4, "little") + (b"\3\0\0\0" if channel == 1 else b"")
        parts: List[Channels] = []
        with self._pair(driver) as ident:
            try:
                self.exchange(ident, 64 if channel == 1 else 32, payload,
                              timeout_ms=_PROBE_TIMEOUT_MS)
                for read in range(reads):
                    if read != 0:
                        time.sleep(interval)
                    command = 1 if channel == 1 else 33
                    answer, result, elapsed = self._exchange(ident, command, b"", 0,
                                                             _PROBE_TIMEOUT_MS)
                    if result.fw_status not in _FLAGGED:
                        raise_for(result, command, elapsed)
                    parts.append(_channels(answer, _PROBE_CHANNELS))
            except TornvalError:
                # The first failure is the one to tell.
                with contextlib.suppress(TornvalError):
                    self.exchange(ident, 34, timeout_ms=1000)
                raise
            self.exchange(ident, 34, timeout_ms=1000)
        return _joined(parts, _PROBE_CHANNELS)

    def driver(self, link_type: str) -> Driver:
        """The first driver of a kind: "IM", "MO", "BT" or "USB"."""
        for each in self.drivers:
            if each.link_type == link_type:
                return each
        raise TornvalError(f"no driver of the kind {link_type} is loaded", None, self.reasons)

    def _exchange(self, driver: Union[Driver, int], command: int, payload: bytes, parameter: int,
                  timeout_ms: int) -> Tuple[Answer, Result, float]:
        with self._pair(driver) as ident, self._call() as library:
            probe = any(each.id == ident and each.link_type in ("BT", "USB")
                        for each in self.drivers)
            # Board and module count the four bytes of their frame's own head as well.
            send = SendRecord(0, command, parameter, 0, timeout_ms,
                              len(payload) + (0 if probe else 4))
            receive = ReceiveRecord()
            sent = library.SendMeasBoardCmd(ident, byref(send), byref(receive), payload or None)
            raise_for(sent.result(), command)
            # The library wants a buffer even where nothing comes back.
            raw = ctypes.create_string_buffer(max(receive.return_bytes, 1))
            words = np.zeros(max(_BOARD_WORDS, receive.return_bytes + _PROBE_CHANNELS), np.int32)
            size = c_int32()
            begin = time.monotonic()
            result = library.GetMeasBoardResult(
                ident, receive.return_bytes, raw, byref(size),
                words.ctypes.data_as(ctypes.POINTER(c_int32)), timeout_ms)
            elapsed = time.monotonic() - begin
            return (Answer(raw.raw[:receive.return_bytes], size.value, words), result.result(),
                    elapsed)

    def _run(self, function: str, *arguments: Any, command: Optional[int] = None) -> None:
        with self._call() as library:
            begin = time.monotonic()
            result = getattr(library, function)(*arguments).result()
            elapsed = time.monotonic() - begin
        raise_for(result, command, elapsed)

    @contextlib.contextmanager
    def _call(self) -> Iterator[Any]:
        """A call under way: the library is not unloaded meanwhile."""
        with self._idle:
            if self._library is None:
                raise TornvalError("the instrument is not open: use it in a with statement")
            library = self._library
            self._calls += 1
        try:
            yield library
        finally:
            with self._idle:
                self._calls -= 1
                self._idle.notify_all()

    @contextlib.contextmanager
    def _pair(self, driver: Union[Driver, int]) -> Iterator[int]:
        """The driver for one thread, so that a send and its fetch stay together."""
        ident = driver.id if isinstance(driver, Driver) else driver
        with self._pairs.get(ident, contextlib.nullcontext()):
            yield ident

    def _list_drivers(self) -> List[Driver]:
        room = (DriverRecord * 8)()
        count = c_uint32()
        self._library.EnumMeasDrivers(room, len(room), byref(count))
        return [Driver(each.id, each.link_type.decode("latin-1"), os.fsdecode(each.name))
                for each in room[:count.value]]

    def _set_environment(self) -> None:
        for name, value in self._environment.items():
            if value is not None:
                self._saved[name] = os.environ.get(name)
                os.environ[name] = os.fspath(value)

    def _restore_environment(self) -> None:
        for name, value in self._saved.items():
            if value is None:
                os.environ.pop(name, None)
            else:
                os.environ[name] = value
        self._saved = {}


def _channels(answer: Answer, channels: int) -> Channels:
    """The samples of an answer by channel. Its counts rule; the size word must agree with them."""
    counts = [0] * channels if answer.size == 0 else answer.words[:channels].tolist()
    total = sum(counts)
    if min(counts) < 0 or answer.size not in (total, total + channels) or (
            total + channels > answer.words.size):
        raise TornvalError("the sample counts of an answer do not add up to its size")
    ends = np.cumsum([channels, *counts])
    return tuple(answer.words[ends[i]:ends[i + 1]].copy() for i in range(channels))


def _joined(parts: List[Channels], channels: int) -> Channels:
    none = np.zeros(0, np.int32)
    return tuple(np.concatenate([none, *(part[i] for part in parts)]) for i in range(channels))
