"""What objects say of themselves when their repository is closed or they are gone."""

from __future__ import annotations

import functools
import typing

from vela._errors import Error, NotFoundError


def never_raising(represent: typing.Callable[[typing.Any], str]) -> typing.Callable[[typing.Any], str]:
    """A `__repr__` that tells why an object cannot be read in place of raising."""

    @functools.wraps(represent)
    def represent_always(self: typing.Any) -> str:
        try:
            return represent(self)
        except Error as failure:
            number = f" {self.id}" if hasattr(self, "id") else ""
            return f"<vela.{type(self).__name__}{number} {_state(failure)}>"

    return represent_always


def shown_if_readable(
    represent: typing.Callable[[typing.Any], str]
) -> typing.Callable[[typing.Any], str | None]:
    """A `_repr_html_` that leaves an object that cannot be read to its `__repr__`."""

    @functools.wraps(represent)
    def represent_or_none(self: typing.Any) -> str | None:
        try:
            return represent(self)
        except Error:
            return None

    return represent_or_none


def _state(failure: Error) -> str:
    if failure.identifier.endswith(":RepositoryClosed"):
        return "closed"
    return "removed" if isinstance(failure, NotFoundError) else f"not readable: {failure.message}"
