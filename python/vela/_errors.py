"""What the system refuses, as Python exceptions."""

from __future__ import annotations

from collections.abc import Iterable


class Error(RuntimeError):
    """A call the repository refused or could not finish.

    Attributes
    ----------
    identifier : str
        The message ID, such as "nexstore:nex:NoSuchRun": what code can test.
    message : str
        What happened, in words.
    causes : tuple of Error
        What led to it, outermost first.
    """

    def __init__(self, identifier: str, message: str, causes: Iterable[Error] = ()) -> None:
        causes = tuple(causes)
        super().__init__(identifier, message, causes)
        self.identifier = identifier
        self.message = message
        self.causes: tuple[Error, ...] = causes
        if causes:
            self.__cause__ = causes[0]

    def __str__(self) -> str:
        return f"{self.identifier}: {self.message}"


class NotFoundError(Error, LookupError):
    """A run, a signal, an object or a name that does not exist."""


class DataError(Error, ValueError):
    """Values, shapes or names that the repository cannot take."""


_NOT_FOUND_KEYS = {"InvalidObject", "InvalidRunID"}
_BAD_DATA_KEYS = {
    "HostArrayIndex",
    "HostArrayMismatch",
    "IntegerExpected",
    "IntegerScalarExpected",
    "InvalidData",
    "InvalidDimensions",
    "InvalidHostArray",
    "InvalidProperty",
    "InvalidPropertyValue",
    "MismatchedPropVal",
    "NumericScalarExpected",
    "PropNameString",
}


def make_error(identifier: str, message: str, causes: Iterable[Error]) -> Error:
    """The exception for a message ID: the class follows from what a caller would do next."""
    key = identifier.rpartition(":")[2]
    if key.startswith("NoSuch") or key in _NOT_FOUND_KEYS:
        return NotFoundError(identifier, message, causes)
    if key in _BAD_DATA_KEYS:
        return DataError(identifier, message, causes)
    return Error(identifier, message, causes)
