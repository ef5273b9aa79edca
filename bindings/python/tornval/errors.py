"""The exceptions."""

from __future__ import annotations

from typing import Optional, Sequence

from ._library import Reason, Result
from .words import is_timeout, record_words


class TornvalError(Exception):
    """An operation failed.

    Attributes:
        result: the record of the library; None where it gave none.
        words: the record in words.
        reasons: what was refused at a load and why, by the places that refused it.
    """

    def __init__(self, words: str, result: Optional[Result] = None,
                 reasons: Sequence[Reason] = ()) -> None:
        super().__init__("; ".join([words, *(each.text for each in reasons)]))
        self.words = words
        self.result = result
        self.reasons = list(reasons)


class TornvalTimeout(TornvalError, TimeoutError):
    """No answer came in time. The instrument may be used on."""


def raise_for(result: Result, command: Optional[int] = None, elapsed: float = 0,
              reasons: Sequence[Reason] = ()) -> None:
    """Raises what a failing record stands for; returns where it is a success."""
    if result.status != 0:
        kind = TornvalTimeout if is_timeout(result, command, elapsed) else TornvalError
        raise kind(record_words(result, command, elapsed), result, reasons)
