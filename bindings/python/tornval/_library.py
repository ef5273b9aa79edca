"""The three libraries, found and declared: records, functions, versions."""

from __future__ import annotations

import _ctypes
import ctypes
import os
import sys
from ctypes import POINTER, c_char, c_char_p, c_double, c_int32, c_uint8, c_uint32, c_void_p
from pathlib import Path
from typing import Any, Dict, List, NamedTuple, Optional, Tuple

from ._version import __version__


class Result(NamedTuple):
    """A record of the library: five words. ``status`` 0 is success."""

    driver_type: int
    step: int
    last_error: int
    fw_status: int
    status: int


class Reason(NamedTuple):
    """Why something was refused: the driver's link type word, the system's error, the words."""

    about: str
    code: int
    text: str


class ResultRecord(ctypes.Structure):
    _fields_ = [(name, c_uint32) for name in Result._fields]

    def result(self) -> Result:
        return Result(*(getattr(self, name) for name in Result._fields))


class SendRecord(ctypes.Structure):
    _pack_ = 1
    _fields_ = [("reserved0", c_uint8), ("command", c_uint8), ("parameter", c_uint8),
                ("reserved3", c_uint8), ("timeout", c_uint32), ("size", c_uint32)]


class ReceiveRecord(ctypes.Structure):
    _pack_ = 1
    _fields_ = [("answer", c_uint32), ("return_bytes", c_uint32)]


class DriverRecord(ctypes.Structure):
    _pack_ = 1
    _fields_ = [("name", c_char * 50), ("link_type", c_char * 50), ("id", c_uint32)]


class CallRecord(ctypes.Structure):
    _fields_ = [("command", c_int32), ("elapsed_ms", c_uint32)]


class ReasonRecord(ctypes.Structure):
    _fields_ = [("about", c_char * 16), ("code", c_uint32), ("text", c_char * 492)]


_Declarations = Dict[str, Tuple[Any, List[Any]]]
_WORDS = POINTER(c_int32)
_TEXT: List[Any] = [c_char_p, c_uint32]

_MEASURING: _Declarations = {
    "LoadMeasDrivers": (ResultRecord, [c_int32]),
    "EnumMeasDrivers": (c_uint32, [POINTER(DriverRecord), c_uint32, POINTER(c_uint32)]),
    "InitialiseMeasBoard": (ResultRecord, [c_uint32, c_int32]),
    "ResetMeasBoard": (ResultRecord, [c_uint32]),
    "SendMeasBoardCmd": (ResultRecord, [c_uint32, POINTER(SendRecord), POINTER(ReceiveRecord),
                                        c_void_p]),
    "GetMeasBoardResult": (ResultRecord, [c_uint32, c_uint32, c_void_p, _WORDS, _WORDS, c_uint32]),
    "CurrentGeneratorBurst": (ResultRecord, [c_uint32]),
    "GetInstantMeasure": (ResultRecord, [_WORDS, c_uint32]),
    "GetInstantMeasureWithoutCompensation": (ResultRecord, [_WORDS, c_uint32]),
    "GetInstantMeasureOnDevice": (ResultRecord, [c_uint32, _WORDS, c_uint32, c_uint32]),
    "GetAllMicroOhmMeasure": (ResultRecord, [_WORDS, _WORDS, _WORDS]),
    "GetMicroOhmMeasure": (ResultRecord, [_WORDS]),
    "GetMBCalibrationCoeff": (c_uint32, [POINTER(c_double), POINTER(c_double), c_uint32]),
    "SetMBCalibration": (ResultRecord, [POINTER(c_uint32), POINTER(c_double), POINTER(c_double),
                                        c_uint32]),
}
_WORDING: _Declarations = {
    "TornvalTextRecord": (c_uint32, [POINTER(ResultRecord), POINTER(CallRecord), *_TEXT]),
    "TornvalTextStep": (c_uint32, [c_uint32, *_TEXT]),
    "TornvalTextDriverType": (c_uint32, [c_uint32, *_TEXT]),
    "TornvalTextSystemError": (c_uint32, [c_uint32, *_TEXT]),
    "TornvalTextCommand": (c_uint32, [c_int32, *_TEXT]),
    "TornvalTextIsTimeOut": (c_int32, [POINTER(ResultRecord), POINTER(CallRecord)]),
}
_CORE: _Declarations = {
    "CeGetVersion": (c_char_p, []),
    "CeGetReasons": (c_uint32, [POINTER(ReasonRecord), c_uint32]),
    "CeGetPath": (c_uint32, [c_uint32, *_TEXT]),
}

try:
    # Written by the build; seen from the folder of this module.
    from ._place import LIBRARY_FOLDER  # type: ignore[import]
except ImportError:
    LIBRARY_FOLDER = None

_MAJOR = __version__.split(".")[0]
_LINKS = 1  # CECORE_PATH_LINKS


def library_folder() -> Optional[Path]:
    """Folder of the libraries: the one that TORNVAL_LIBRARY_DIR names; else that of the installation
    or build that brought this module; else lib of the Python installation, as of a virtual
    environment; None leaves it to the system's search."""
    named = os.environ.get("TORNVAL_LIBRARY_DIR")
    if named:
        return Path(named)
    near = [Path(__file__).resolve().parent / str(LIBRARY_FOLDER)] if LIBRARY_FOLDER else []
    for folder in [*near, Path(sys.prefix, "lib"), Path(sys.prefix, "lib64")]:
        if (folder / f"libTornvalC63.so.{_MAJOR}").exists():
            return folder.resolve()
    return None


def link_library(name: str) -> str:
    """Path of a link library of ours: an installed one, else one of the build that the libraries are
    of; else its bare name for the loader to look for."""
    room = ctypes.create_string_buffer(4096)
    core.CeGetPath(_LINKS, room, len(room))
    for folder in [os.fsdecode(room.value), str(library_folder() or "") + "/../links"]:
        file = Path(folder, name)
        if file.is_file():
            return str(file.resolve())
    return name


def _open(name: str, declarations: _Declarations) -> ctypes.CDLL:
    file = f"lib{name}.so.{_MAJOR}"
    folder = library_folder()
    try:
        library = ctypes.CDLL(str(folder / file) if folder else file)
        for function, (result, arguments) in declarations.items():
            declared = getattr(library, function)
            declared.restype, declared.argtypes = result, arguments
    except (OSError, AttributeError) as error:
        raise ImportError(f"tornval {__version__}: {error}") from None
    return library


def open_measuring() -> ctypes.CDLL:
    """Loads libTornvalC63. Given back by close_measuring()."""
    return _open("TornvalC63", _MEASURING)


def close_measuring(library: ctypes.CDLL) -> None:
    """Unloads it: the next load starts from nothing and reads all of its configuration anew."""
    _ctypes.dlclose(library._handle)  # type: ignore[attr-defined]


core = _open("cecore", _CORE)
wording = _open("TornvalC63Text", _WORDING)


def check() -> None:
    """Refuses libraries of another version: before 1.0 a minor version may change records."""
    version = core.CeGetVersion().decode()
    if version.split(".")[:2] != __version__.split(".")[:2]:
        raise ImportError(f"the module tornval is of version {__version__}, but the libraries in "
                          f"{library_folder() or 'the system'} are of version {version}")
    close_measuring(open_measuring())


def reasons() -> List[Reason]:
    """What was refused since the last load of the drivers began, and why; oldest first."""
    room = (ReasonRecord * 64)()
    count = min(core.CeGetReasons(room, len(room)), len(room))
    return [Reason(each.about.decode("latin-1"), each.code, each.text.decode(errors="replace"))
            for each in room[:count]]
