"""Words for records and numbers, from libTornvalC63Text."""

from __future__ import annotations

import ctypes
from typing import Any, Optional

from ._library import CallRecord, Result, ResultRecord, wording


def _ask(function: Any, *arguments: Any) -> str:
    length = function(*arguments, None, 0)
    room = ctypes.create_string_buffer(length + 1)
    function(*arguments, room, len(room))
    return room.value.decode(errors="replace")


def _call(command: Optional[int], elapsed: float) -> CallRecord:
    return CallRecord(-1 if command is None else command, min(int(elapsed * 1000), 0xFFFFFFFF))


def record_words(result: Result, command: Optional[int] = None, elapsed: float = 0) -> str:
    """The whole record as one sentence; the command and the seconds it took make it more exact."""
    return _ask(wording.TornvalTextRecord, ResultRecord(*result), _call(command, elapsed))


def is_timeout(result: Result, command: Optional[int] = None, elapsed: float = 0) -> bool:
    """Whether the record is that of an answer that did not come in time."""
    return bool(wording.TornvalTextIsTimeOut(ResultRecord(*result), _call(command, elapsed)))


def step_name(step: int) -> str:
    """Name of a stage of the library."""
    return _ask(wording.TornvalTextStep, step)


def driver_type_name(driver_type: int) -> str:
    """Name of a kind of driver."""
    return _ask(wording.TornvalTextDriverType, driver_type)


def system_error_name(number: int) -> str:
    """Meaning of a system error number."""
    return _ask(wording.TornvalTextSystemError, number)


def command_name(command: int) -> str:
    """Name of a command of board, module or probe."""
    return _ask(wording.TornvalTextCommand, command)
