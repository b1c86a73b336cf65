"""Streams: named rows of numbers in the shared repository."""

from __future__ import annotations

import math
import typing

from vela import _vela

if typing.TYPE_CHECKING:
    import numpy
    from numpy.typing import ArrayLike


class Stream:
    """A stream of the process's shared repository: rows of a time and one value a channel.

    `Stream.create(channels)` makes one; `Stream(name)` is an existing one, of any session. The name is
    unique over all repositories.
    """

    __slots__ = ("name",)

    def __init__(self, name: str) -> None:
        _vela.streamMetadata(name)
        self.name = name

    @classmethod
    def create(cls, channels: int) -> Stream:
        """A new stream of that many channels of doubles."""
        return cls(_vela.createStream(channels))

    def append(self, times: ArrayLike, values: ArrayLike) -> None:
        """Append rows, sorted by time first.

        When they begin before the newest stored time, the rows stored at or after that beginning are
        dropped; late rows belong to `update`.

        times : array of shape (rows,), seconds; values : array of shape (rows, channels), or (rows,) for
        one channel. For one time, a number, values of shape (channels,) will do. Raises vela.DataError
        for other shapes, another number of channels or a time that is not finite.
        """
        _vela.addStreamRows(self.name, times, values)

    def update(self, times: ArrayLike, values: ArrayLike) -> None:
        """Replace all rows of each given time by those given for it; other times are inserted in order."""
        _vela.updateStreamRows(self.name, times, values)

    def read(
        self, start: float = -math.inf, end: float = math.inf, first: int | None = None, last: int | None = None
    ) -> tuple[numpy.ndarray, numpy.ndarray]:
        """Rows with start <= time <= end: times of shape (rows,), values of shape (rows, channels).

        first : at most so many rows, the first ones; last : of those at most so many, the last ones.
        """
        return _vela.readStreamRows(self.name, start, end, first, last)

    def delete(self, times: ArrayLike) -> None:
        """Delete the rows at exactly these times."""
        _vela.deleteStreamRows(self.name, times)

    @property
    def metadata(self) -> dict[str, str | float]:
        """A dict of texts and numbers, by key: a copy."""
        return _vela.streamMetadata(self.name)

    def set_metadata(self, key: str, value: str | float) -> None:
        """Keep a text or a number under a key, in place of what was there."""
        _vela.setStreamMetadata(self.name, key, value)

    def __repr__(self) -> str:
        return f"<vela.Stream {self.name!r}>"

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Stream) and other.name == self.name

    def __hash__(self) -> int:
        return hash(self.name)

