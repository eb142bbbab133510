"""What a receiver conversation raises.

Every error carries the control's own error number and text where the control
raised one (None and "" when the failure was found around it, such as a port
that does not exist). A Ctrl-C during a wait raises KeyboardInterrupt.
"""

from __future__ import annotations

import builtins
from typing import Any, List, Optional

__all__ = ["Error", "NoDeviceError", "TimeoutError", "UnsupportedError", "RefusedError", "IncompleteError",
           "FileFormatError"]


class Error(Exception):
    """Anything that went wrong talking to a receiver."""

    def __init__(self, message: str, number: Optional[int] = None, text: str = "") -> None:
        super().__init__(message)
        self.number = number  #: the control's error number, None if it raised none
        self.text = text      #: the control's description of it

    def __reduce__(self) -> Any:
        return (type(self), (str(self), self.number, self.text))


class NoDeviceError(Error, ConnectionError):
    """The port cannot be opened, or no receiver is on it."""


class TimeoutError(Error, builtins.TimeoutError):
    """The receiver does not answer, or stopped answering."""


class UnsupportedError(Error):
    """The receiver has no such kind of record or request."""


class RefusedError(Error):
    """The receiver refused what was sent."""


class IncompleteError(Error):
    """A download ended with fewer records than the receiver announced.

    What did arrive is in `received`: nothing is dropped.
    """

    def __init__(self, message: str, number: Optional[int] = None, text: str = "", received: Optional[List[Any]] = None) -> None:
        super().__init__(message, number, text)
        self.received: List[Any] = list(received or [])

    def __reduce__(self) -> Any:
        return (type(self), (str(self), self.number, self.text, self.received))


class FileFormatError(Error, ValueError):
    """A file of records is unreadable or malformed."""
