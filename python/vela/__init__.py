"""Simulation runs and their signals in one repository file.

`open` is the short way in: a repository as a mapping of runs, a run as a mapping of signals, numpy
arrays in and out. `compare` tells whether two runs agree. `Repository` has every method there is.
"""

from vela import host
from vela._compare import Comparison, compare
from vela._errors import DataError, Error, NotFoundError
from vela._runs import RepositoryFile, Run, Runs, open
from vela._signals import Samples, Signal
from vela._streams import Stream
from vela._values import FixedPoint
from vela._vela import Repository, set_progress, setMinimumChunkNumBytes

__all__ = [
    "Comparison",
    "DataError",
    "Error",
    "FixedPoint",
    "NotFoundError",
    "Repository",
    "RepositoryFile",
    "Run",
    "Runs",
    "Samples",
    "Signal",
    "Stream",
    "compare",
    "host",
    "open",
    "setMinimumChunkNumBytes",
    "set_progress",
]
