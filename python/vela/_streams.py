"""Streams: named rows of numbers in the shared repository."""

import math

import numpy

from vela import _vela


class Stream:
    """A stream of the process's shared repository: rows of a time and one value a channel.

    `Stream.create(channels)` makes one; `Stream(name)` is an existing one, of any session. The name is
    unique over all repositories.
    """

    __slots__ = ("name",)

    def __init__(self, name):
        _vela.streamMetadata(name)
        self.name = name

    @classmethod
    def create(cls, channels):
        """A new stream of that many channels of doubles."""
        return cls(_vela.createStream(channels))

    def append(self, times, values):
        """Append rows, sorted by time first.

        When they begin before the newest stored time, the rows stored at or after that beginning are
        dropped; late rows belong to `update`.

        times : array of shape (rows,), seconds; values : array of shape (rows, channels), or (rows,) for
        one channel. Raises vela.Error for another number of channels or a time that is not finite.
        """
        _vela.addStreamRows(self.name, *_rows(times, values))

    def update(self, times, values):
        """Replace all rows of each given time by those given for it; other times are inserted in order."""
        _vela.updateStreamRows(self.name, *_rows(times, values))

    def read(self, start=-math.inf, end=math.inf, first=None, last=None):
        """Rows with start <= time <= end: times of shape (rows,), values of shape (rows, channels).

        first : at most so many rows, the first ones; last : of those at most so many, the last ones.
        """
        limits = (-1 if limit is None else limit for limit in (first, last))
        return _vela.readStreamRows(self.name, start, end, *limits)

    def delete(self, times):
        """Delete the rows at exactly these times."""
        _vela.deleteStreamRows(self.name, [float(time) for time in numpy.atleast_1d(times)])

    @property
    def metadata(self):
        """A dict of texts and numbers, by key: a copy."""
        return _vela.streamMetadata(self.name)

    def set_metadata(self, key, value):
        """Keep a text or a number under a key, in place of what was there."""
        if isinstance(value, str):
            _vela.setStreamText(self.name, key, value)
        else:
            _vela.setStreamNumber(self.name, key, value)

    def __repr__(self):
        return f"<vela.Stream {self.name!r}>"

    def __eq__(self, other):
        return isinstance(other, Stream) and other.name == self.name

    def __hash__(self):
        return hash(self.name)


def _rows(times, values):
    times = numpy.atleast_1d(numpy.asarray(times, dtype=numpy.float64))
    values = numpy.asarray(values, dtype=numpy.float64)
    return times, values.reshape(len(times), -1) if values.ndim < 2 and len(times) else values
